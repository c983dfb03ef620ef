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
    // The method: block quilting unless the user asks for the structure-aware fill, which has no feathering.
    auto* refine = new QCheckBox(Text(app, "inpaintrefine"), &dialog);
    refine->setObjectName(QStringLiteral("inpaintrefine"));
    refine->setChecked(logic.settings.method == kInpaintStructure);
    auto* refineNote = new QLabel(Text(app, "inpaintrefinenote"), &dialog);
    refineNote->setObjectName(QStringLiteral("inpaintrefinenote"));
    refineNote->setWordWrap(true);
    refineNote->setIndent(20);
    feather->setEnabled(!refine->isChecked());
    QObject::connect(refine, &QCheckBox::toggled, feather, [feather](bool on) { feather->setEnabled(!on); });
    column->addWidget(refine);
    column->addWidget(refineNote);
    column->addWidget(feather);
    column->addWidget(note);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    column->addWidget(buttons);
    if (dialog.exec() != QDialog::Accepted) return false;

    logic.settings.feather = feather->isChecked() ? 1 : 0;
    logic.settings.method = refine->isChecked() ? kInpaintStructure : kInpaintClassic;
    const ProcessRunner runner = [&](CImageProcess& process, const void* params) {
        return RunProcessWithWait(*worker, process, params, parent, status);
    };
    if (!logic.Run(app.CommandContext().history, runner, key)) {
        // No key: the user stopped the structure-aware fill, which then filled nothing; there is nothing to say.
        if (!key.empty())
            services.MessageBox(Text(app, key.c_str()), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
        return false;
    }
    return true;
}
