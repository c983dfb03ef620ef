#pragma once

#include <QTimer>
#include <QWidget>

#include "matting/process_thread.h"

class CAppGlobals;
class CToolBar;
class IUiServices;
class QCheckBox;
class QLabel;
class QPushButton;

// The side page of selection mode's inner-outer method: whether the canvas shows the inner and the outer contour,
// and the button that snaps both contours to the edges of the picture (the segmentation runs on the worker with
// the wait dialog; the two planes change together as one step of the selection log).
class CTabInout : public QWidget {
    Q_OBJECT
public:
    enum class EOptimiseOutcome {
        kDone,      // both planes snapped; one selection step "inoutoptimize" recorded
        kEmpty,     // a contour plane is missing or empty: nothing to snap, nothing changed
        kNotReady,  // not in the inner-outer method, or a result exists already
        kCancelled, // Esc in the wait dialog: nothing changed
        kFailed,    // the engine failed or ran out of memory: nothing changed
    };

    // status (may be null) shows the worker's progress in the status bar as well.
    CTabInout(CAppGlobals& app, CToolBar& bar, IUiServices& services, IStatusProgress* status, QWidget* parent);

    // The button's work. Says why when it refuses or fails (message boxes through the services).
    EOptimiseOutcome OptimiseContours();

    // Enables the controls by the planes (the contours count only while no result exists) and shows the
    // selection document's show flags. Also run every second by the page's timer.
    void SyncControls();

    QCheckBox* ShowInnerBox() const { return m_pShowInner; }
    QCheckBox* ShowOuterBox() const { return m_pShowOuter; }
    QPushButton* OptimiseButton() const { return m_pOptimise; }

    // The segmentation's detail for the button; a direct run without a record uses the engine's default.
    static constexpr int32_t kDetail = 50;

Q_SIGNALS:
    // The planes or the log changed: the frame brings its bars and panels up to date.
    void Changed();
    // A text for the help panel.
    void Tip(const QString& text);

private:
    void OnShowToggled();

    CAppGlobals& m_app;
    CToolBar& m_bar;
    IUiServices& m_services;
    IStatusProgress* m_pStatus;
    QCheckBox* m_pShowInner;
    QCheckBox* m_pShowOuter;
    QPushButton* m_pOptimise;
    QLabel* m_pNote;
    QTimer m_timer;
    bool m_syncing = false;
};
