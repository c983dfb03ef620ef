#pragma once

#include <QObject>

class CMainFrame;

// Sees every key press of the application before any window does and hands the shortcut table's keys to the
// frame. Keys pass untouched while a text field has the focus, a dialog or menu is open, the worker is busy, or
// when they belong to another top-level window.
class CKeyFilter : public QObject {
    Q_OBJECT
public:
    explicit CKeyFilter(CMainFrame* frame);
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    CMainFrame* m_pFrame;
};
