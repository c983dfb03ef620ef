#pragma once

#include <QString>
#include <string>

class QWidget;

enum class EMsgButtons { kOk, kYesNo, kYesNoCancel, kSaveDiscardCancel };
enum class EMsgResult { kOk, kYes, kNo, kCancel, kSave, kDiscard };
enum class EMsgIcon { kInformation, kWarning, kQuestion };

// Message boxes, file dialogs and opening addresses: everything that waits for the user goes through here, so
// tests put a scripted stand-in in its place.
class IUiServices {
public:
    virtual ~IUiServices() = default;
    virtual EMsgResult MessageBox(const QString& text, EMsgButtons buttons, EMsgIcon icon, const QString& title) = 0;
    // filter is a filter text of the table ("name|*.a;*.b||"); an empty answer means cancelled.
    virtual QString GetOpenFileName(const std::string& filter) = 0;
    // Asks before overwriting; adds the filter's extension to a name without one.
    virtual QString GetSaveFileName(const std::string& filter) = 0;
    // A help page of the program's own or an address on the web.
    virtual bool OpenAddress(const QString& address) = 0;
};

// The real dialogs, parented to the main window.
class CQtUiServices : public IUiServices {
public:
    explicit CQtUiServices(QWidget* parent) : m_pParent(parent) {}
    void SetParent(QWidget* parent) { m_pParent = parent; }
    EMsgResult MessageBox(const QString& text, EMsgButtons buttons, EMsgIcon icon, const QString& title) override;
    QString GetOpenFileName(const std::string& filter) override;
    QString GetSaveFileName(const std::string& filter) override;
    bool OpenAddress(const QString& address) override;

private:
    QWidget* m_pParent;
    QString m_lastFolder;
};

// Shows a local help page in a window of the program (relative links and pictures work).
void ShowHelpPage(QWidget* parent, const QString& path, const QString& title);
