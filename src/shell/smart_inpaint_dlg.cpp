#include "shell/smart_inpaint_dlg.h"

#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QVBoxLayout>

#include "commands/command.h"
#include "commands/history_log.h"
#include "effects/smart_inpaint_dialog.h"
#include "shell/app_globals.h"
#include "shell/ui_services.h"
#include "shell/wait_dialog.h"

namespace {

QString Text(CAppGlobals& app, const char* key)
{
    return QString::fromStdString(app.GetString(key));
}

} // namespace

bool RunSmartInpaintDialog(QWidget* parent, CAppGlobals& app, IUiServices& services, IStatusProgress* status)
{
    CProcessThread* worker = app.Worker();
    if (!worker) {
        services.MessageBox(Text(app, "inpainterr"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
        return false;
    }
    CQtUiPoster poster;
    CSmartInpaintDlg logic(*worker, poster);
    std::string key;
    if (!logic.Open(app.Document(), key)) {
        services.MessageBox(Text(app, key.c_str()), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
        return false;
    }

    QDialog dialog(parent);
    dialog.setObjectName(QStringLiteral("smartinpaint"));
    dialog.setWindowTitle(Text(app, CSmartInpaintDlg::kTitleKey));
    auto* column = new QVBoxLayout(&dialog);
    auto* feather = new QCheckBox(Text(app, CSmartInpaintDlg::kFeatherKey), &dialog);
    feather->setObjectName(QStringLiteral("inpaintfeather"));
    feather->setChecked(logic.settings.feather != 0);
    auto* note = new QLabel(Text(app, CSmartInpaintDlg::kNoteKey), &dialog);
    note->setWordWrap(true);
    note->setMinimumWidth(360);
    // The place where a choice of method goes, above the check box, when there is more than one.
    column->addWidget(feather);
    column->addWidget(note);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    column->addWidget(buttons);
    if (dialog.exec() != QDialog::Accepted) return false;

    logic.settings.feather = feather->isChecked() ? 1 : 0;
    const ProcessRunner runner = [&](CImageProcess& process, const void* params) {
        return RunProcessWithWait(*worker, process, params, parent, status);
    };
    if (!logic.Run(app.CommandContext().history, runner, key)) {
        services.MessageBox(Text(app, key.c_str()), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
        return false;
    }
    return true;
}
