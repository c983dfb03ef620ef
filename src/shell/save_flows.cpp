#include "shell/save_flows.h"

#include "document/compose_document.h"
#include "document/selection_document.h"
#include "shell/app_globals.h"
#include "shell/save_dlg.h"
#include "shell/save_paths.h"
#include "shell/ui_services.h"

bool RunSaveDialog(QWidget* parent, CAppGlobals& app, CDocumentSession& session, IUiServices& services,
                   ESaveDialogUse use, CSelectionDocument* selection)
{
    if (use == ESaveDialogUse::kCutout && !selection) return false;
    CSavePaths paths(parent, app, session, services);
    COLImage cutout;
    auto writer = [&](ESaveChoice choice, const std::string& path, bool withHistory) {
        if (use == ESaveDialogUse::kCutout && DescribeSaveChoice(choice).source == ESaveSource::kLayerPicture) {
            // Built at the press, from the result as it stands now.
            cutout.Free();
            if (!BuildSelectionExport(*selection->GetWorkingImage(), *selection->GetResultMask(), cutout)) {
                services.MessageBox(QString::fromStdString(GetString("except")), EMsgButtons::kOk, EMsgIcon::kWarning,
                                    QString());
                return ESaveOutcome::kAbandoned;
            }
            paths.SetLayerPicture(&cutout);
        }
        return paths.Save(choice, path, withHistory);
    };
    CSaveDlg dialog(parent, services, app.Document().GetCurrentIndex(), use != ESaveDialogUse::kDocument, writer);
    dialog.exec();
    return dialog.HasChoice() && dialog.Outcome() == ESaveOutcome::kWritten;
}
