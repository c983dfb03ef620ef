#include "shell/selection_mode.h"

#include <QColorDialog>
#include <QMessageBox>
#include <QPushButton>

#include "document/compose_document.h"
#include "document/layer.h"
#include "document/selection_document.h"
#include "imaging/codec.h"
#include "shell/app_globals.h"
#include "shell/file_filter.h"
#include "shell/lens_blur_dlg.h"
#include "shell/menu_table.h"
#include "shell/tool_bar.h"
#include "shell/ui_services.h"

namespace selmode {

namespace {

QString Text(const char* key) { return QString::fromStdString(GetString(key)); }

std::function<EBringBack(QWidget*)>& Chooser()
{
    static std::function<EBringBack(QWidget*)> chooser;
    return chooser;
}

EBringBack AskBringBack(QWidget* parent)
{
    if (Chooser()) return Chooser()(parent);
    QMessageBox box(parent);
    box.setWindowTitle(Text("Tittle"));
    box.setText(Text("leavesel"));
    QPushButton* apply = box.addButton(Text("bringapply"), QMessageBox::AcceptRole);
    QPushButton* separate = box.addButton(Text("bringseparate"), QMessageBox::AcceptRole);
    QPushButton* keep = box.addButton(Text("bringkeep"), QMessageBox::AcceptRole);
    QPushButton* blur = box.addButton(Text("blurbk"), QMessageBox::AcceptRole);
    box.addButton(QMessageBox::Cancel);
    box.exec();
    if (box.clickedButton() == apply) return EBringBack::kApply;
    if (box.clickedButton() == separate) return EBringBack::kSeparate;
    if (box.clickedButton() == keep) return EBringBack::kKeep;
    if (box.clickedButton() == blur) return EBringBack::kBlurBackground;
    return EBringBack::kCancel;
}

// Leaves the mode; the result dialog's part is already done, so the manager's wizard only reports it.
void Leave(CToolBar& bar, bool broughtBack)
{
    std::function<bool()> wizard = std::move(bar.onResultWizard);
    bar.onResultWizard = [broughtBack] { return broughtBack; };
    bar.Manager().EnterOrLeaveSelectionMode(false, 0, true);
    bar.onResultWizard = std::move(wizard);
}

bool LayerHasTransparency(const CComposeDocument& document)
{
    const CLayer* layer = document.GetCurrentLayer();
    if (!layer || layer->m_image.IsNull()) return false;
    const CPixel* p = layer->m_image.GetBuffer();
    for (size_t i = 0, n = layer->m_image.GetPixelCount(); i < n; ++i)
        if (p[i].alpha != 255) return true;
    return false;
}

// Leaving with a result: the dialog first, so that Cancel keeps the mode and everything in it.
bool LeaveWithResult(QWidget* parent, CToolBar& bar, IUiServices& services)
{
    CSelectionDocument& selection = bar.Selection();
    CComposeDocument& document = bar.Document();
    const EBringBack choice = AskBringBack(parent);
    if (choice == EBringBack::kCancel) return false;
    if (choice == EBringBack::kBlurBackground) {
        // The blur is part of the way back: the step recorded on leaving holds it.
        // The main window shows the run's progress in its status bar.
        if (!BlurBackgroundAfterCutout(parent, *AppGlobals(), services, selection,
                                       dynamic_cast<IStatusProgress*>(parent))) {
            services.MessageBox(Text("except"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
            return false;
        }
        Leave(bar, true);
        return true;
    }
    int result = choice == EBringBack::kApply      ? selection.ApplyToLayer(document)
                 : choice == EBringBack::kSeparate ? selection.SeparateToLayer(document)
                                                   : selection.KeepAsSelection(document);
    if (result == kBringBackIsBase) {
        // The base keeps its background; the result stays as the selection instead.
        services.MessageBox(Text("isbkwarning"), EMsgButtons::kOk, EMsgIcon::kWarning, QStringLiteral("Warning"));
        result = selection.KeepAsSelection(document);
    }
    if (result != kBringBackDone) {
        services.MessageBox(Text("except"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
        return false;
    }
    Leave(bar, true);
    return true;
}

} // namespace

void SetBringBackChooser(std::function<EBringBack(QWidget*)> chooser)
{
    Chooser() = std::move(chooser);
}

bool HasWork(CSelectionDocument& selection)
{
    return !selection.GetResultMask()->IsNull() || !selection.GetOuterPlane()->IsNull() ||
           !selection.GetInnerPlane()->IsNull();
}

bool Toggle(QWidget* parent, CToolBar& bar, IUiServices& services)
{
    CToolManager& manager = bar.Manager();
    if (!manager.IsSelectionMode()) {
        // The cut-out becomes the layer's alpha: a layer that has one already cannot be cut out.
        if (LayerHasTransparency(bar.Document())) {
            services.MessageBox(Text("cantsel"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
            return false;
        }
        if (!manager.EnterOrLeaveSelectionMode(true, kMethodInOut, true)) {
            services.MessageBox(Text("except"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
            return false;
        }
        return true;
    }
    manager.SetCurrentTool(nullptr); // a half-made polygon is not part of the result
    if (!bar.Selection().GetResultMask()->IsNull()) return LeaveWithResult(parent, bar, services);
    // Nothing to bring back yet: the contours alone are no result, and leaving drops them.
    if (HasWork(bar.Selection()) &&
        services.MessageBox(Text("dropcontours"), EMsgButtons::kYesNo, EMsgIcon::kQuestion, Text("Tittle")) !=
            EMsgResult::kYes)
        return false;
    Leave(bar, false);
    return true;
}

bool CancelReturn(CToolBar& bar, IUiServices& services)
{
    if (!bar.Manager().IsSelectionMode()) return false;
    bar.Manager().SetCurrentTool(nullptr);
    if (HasWork(bar.Selection()) &&
        services.MessageBox(Text("dropcutout"), EMsgButtons::kYesNo, EMsgIcon::kQuestion, Text("Tittle")) !=
            EMsgResult::kYes)
        return false;
    Leave(bar, false);
    return true;
}

void Save(CToolBar& bar, IUiServices& services, const std::function<void()>& saveCutout,
          const std::function<void()>& leave)
{
    if (!bar.Manager().IsSelectionMode()) return;
    if (bar.Selection().GetResultMask()->IsNull()) {
        if (services.MessageBox(Text("backtocompose"), EMsgButtons::kYesNo, EMsgIcon::kQuestion, Text("Tittle")) ==
                EMsgResult::kYes &&
            leave)
            leave();
        return;
    }
    bar.Manager().SetCurrentTool(nullptr); // a half-made polygon is not part of the cut-out
    if (saveCutout) saveCutout();
}

bool AllowClose(QWidget* parent, CToolBar& bar, IUiServices& services)
{
    if (!bar.Manager().IsSelectionMode()) return true;
    bar.Manager().SetCurrentTool(nullptr);
    if (!HasWork(bar.Selection())) {
        Leave(bar, false);
        return true;
    }
    switch (services.MessageBox(Text("backtocompose"), EMsgButtons::kYesNoCancel, EMsgIcon::kQuestion,
                                Text("Tittle"))) {
    case EMsgResult::kYes:
        // Bring the result back (or drop bare contours after asking); the document's question follows.
        return Toggle(parent, bar, services);
    case EMsgResult::kNo:
        Leave(bar, false);
        return true;
    default:
        return false;
    }
}

bool ChooseBackground(QWidget* parent, CToolBar& bar, IUiServices& services, int id)
{
    CSelectionDocument& selection = bar.Selection();
    const int mode = BackgroundModeOf(id);
    if (mode == 0) return false;
    if (mode == kShowColour) {
        const uint32_t old = selection.GetBackgroundColour();
        const QColor chosen = QColorDialog::getColor(QColor((old >> 16) & 0xFF, (old >> 8) & 0xFF, old & 0xFF),
                                                     parent, Text("bkmodecolor"));
        if (!chosen.isValid()) return false;
        selection.SetBackgroundColour(0xFF000000u | uint32_t(chosen.red()) << 16 | uint32_t(chosen.green()) << 8 |
                                      uint32_t(chosen.blue()));
    }
    if (mode == kShowPicture) {
        const std::string filter = OpenDialogFilter(GetString("openflatfiletype"), GetString("allpictures"),
                                                    GetString("allfiles"), false);
        const QString path = services.GetOpenFileName(filter);
        if (path.isEmpty()) return false;
        COLImage picture;
        if (!COLImageCodec().LoadFile(path.toStdString().c_str(), &picture) || picture.IsNull()) {
            services.MessageBox(Text("can't open"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
            return false;
        }
        selection.GetBackgroundPicture()->Free();
        if (!selection.GetBackgroundPicture()->DuplicateFrom(&picture)) return false;
    }
    selection.SetDisplayMode(mode);
    selection.RefreshPreview();
    return true;
}

} // namespace selmode
