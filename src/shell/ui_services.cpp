#include "shell/ui_services.h"

#include <QDesktopServices>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QTextBrowser>
#include <QUrl>
#include <QVBoxLayout>

#include "shell/app_globals.h"
#include "shell/file_filter.h"

EMsgResult CQtUiServices::MessageBox(const QString& text, EMsgButtons buttons, EMsgIcon icon, const QString& title)
{
    QMessageBox::StandardButtons set = QMessageBox::Ok;
    if (buttons == EMsgButtons::kYesNo) set = QMessageBox::Yes | QMessageBox::No;
    if (buttons == EMsgButtons::kYesNoCancel) set = QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel;
    if (buttons == EMsgButtons::kSaveDiscardCancel)
        set = QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel;
    QMessageBox box(icon == EMsgIcon::kWarning    ? QMessageBox::Warning
                    : icon == EMsgIcon::kQuestion ? QMessageBox::Question
                                                  : QMessageBox::Information,
                    title.isEmpty() ? QString::fromStdString(GetString("Tittle")) : title, text, set, m_pParent);
    // Escape and the window's close button answer Cancel where there is one.
    if (set & QMessageBox::Cancel) box.setEscapeButton(QMessageBox::Cancel);
    if (buttons == EMsgButtons::kSaveDiscardCancel) box.setDefaultButton(QMessageBox::Save);
    switch (box.exec()) {
    case QMessageBox::Yes:
        return EMsgResult::kYes;
    case QMessageBox::No:
        return EMsgResult::kNo;
    case QMessageBox::Cancel:
        return EMsgResult::kCancel;
    case QMessageBox::Save:
        return EMsgResult::kSave;
    case QMessageBox::Discard:
        return EMsgResult::kDiscard;
    default:
        return buttons == EMsgButtons::kOk ? EMsgResult::kOk : EMsgResult::kCancel;
    }
}

QString CQtUiServices::GetOpenFileName(const std::string& filter)
{
    QString path = QFileDialog::getOpenFileName(m_pParent, QString(), m_lastFolder,
                                                QString::fromStdString(ToDialogFilter(filter)));
    if (!path.isEmpty()) m_lastFolder = QFileInfo(path).absolutePath();
    return path;
}

QString CQtUiServices::GetSaveFileName(const std::string& filter)
{
    QFileDialog dialog(m_pParent, QString(), m_lastFolder, QString::fromStdString(ToDialogFilter(filter)));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setDefaultSuffix(QString::fromStdString(DefaultExtension(filter)));
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return {};
    QString path = dialog.selectedFiles().front();
    m_lastFolder = QFileInfo(path).absolutePath();
    return path;
}

bool CQtUiServices::OpenAddress(const QString& address)
{
    const QUrl url(address);
    if (!url.scheme().isEmpty() && url.scheme() != QLatin1String("file") && url.scheme().size() > 1)
        return QDesktopServices::openUrl(url);
    // A page of our own: relative to the work folder.
    QString path = url.isLocalFile() ? url.toLocalFile() : address;
    if (QFileInfo(path).isRelative() && AppGlobals()) path = QString::fromStdString(AppGlobals()->GetWorkDir()) + path;
    if (!QFileInfo::exists(path)) return false;
    ShowHelpPage(m_pParent, path, QString::fromStdString(GetString("help")));
    return true;
}

void ShowHelpPage(QWidget* parent, const QString& path, const QString& title)
{
    auto* dialog = new QDialog(parent);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(title);
    auto* layout = new QVBoxLayout(dialog);
    auto* browser = new QTextBrowser(dialog);
    browser->setOpenExternalLinks(true);
    browser->setSource(QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()));
    layout->addWidget(browser);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, dialog);
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::close);
    layout->addWidget(buttons);
    dialog->resize(640, 520);
    dialog->show();
}
