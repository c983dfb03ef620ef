#include "shell/selection_mode.h"

#include <QColorDialog>

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

std::function<BringBackChoice(QWidget*)>& Chooser()
{
    static std::function<BringBackChoice(QWidget*)> chooser;
    return chooser;
}

std::function<uint32_t(QWidget*)>& MethodChooser()
{
    static std::function<uint32_t(QWidget*)> chooser;
    return chooser;
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

// A picture the user opens with the file dialog. False when the dialog was cancelled or the file did not read
// ("can't open" is shown then).
bool AskPicture(IUiServices& services, COLImage& picture)
{
    const std::string filter =
        OpenDialogFilter(GetString("openflatfiletype"), GetString("allpictures"), GetString("allfiles"), false);
    const QString path = services.GetOpenFileName(filter);
    if (path.isEmpty()) return false;
    if (COLImageCodec().LoadFile(path.toStdString().c_str(), &picture) && !picture.IsNull()) return true;
    services.MessageBox(Text("can't open"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
    return false;
}

// A result that keeps every pixel changes nothing: there is nothing to decide.
bool KeepsEverything(const COLChannel& mask)
{
    const uint8_t* p = mask.GetBuffer();
    for (size_t i = 0, n = size_t(mask.GetWidth()) * mask.GetHeight(); i < n; ++i)
        if (p[i] != 255) return false;
    return true;
}

// Carries out one choice of the result wizard. True when it is done and the mode may be left; false keeps the
// wizard up (a cancelled file dialog, a picture that did not read, a failure before anything changed).
bool Act(QWidget* parent, CToolBar& bar, IUiServices& services, const BringBackChoice& choice, bool& useTransform)
{
    CSelectionDocument& selection = bar.Selection();
    CComposeDocument& document = bar.Document();
    const auto failed = [&services] {
        services.MessageBox(Text("except"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
        return false;
    };
    // The base keeps its background: its cut-out goes onto a copy instead, after a warning.
    const auto orCopy = [&](int result) {
        if (result != kBringBackIsBase) return result;
        services.MessageBox(Text("isbkwarning"), EMsgButtons::kOk, EMsgIcon::kWarning, QStringLiteral("Warning"));
        return selection.CopyToLayer(document, true);
    };
    int result = kBringBackFailed;
    switch (choice.action) {
    case EBringBack::kCancel:
    case EBringBack::kDiscard:
        return choice.action == EBringBack::kDiscard;
    case EBringBack::kBlurBackground:
        // The blur is part of the way back: the step recorded on leaving holds it. The main window shows the
        // run's progress in its status bar.
        return BlurBackgroundAfterCutout(parent, *AppGlobals(), services, selection,
                                         dynamic_cast<IStatusProgress*>(parent)) ||
               failed();
    case EBringBack::kChangeBackground: {
        COLImage picture;
        if (!AskPicture(services, picture)) return false;
        const int layers = document.GetLayerCount();
        if (selection.ChangeBackground(document, picture, AppGlobals()->m_foreColor.Word() | 0xFF000000u) !=
            kBringBackDone) {
            failed();
            // A copy that was made stays, and the way back records it.
            return document.GetLayerCount() > layers;
        }
        useTransform = true; // the subject is placed on its new background next
        return true;
    }
    case EBringBack::kApply:
        result = orCopy(selection.ApplyToLayer(document));
        break;
    case EBringBack::kSeparate:
        result = orCopy(selection.SeparateToLayer(document));
        break;
    case EBringBack::kCopy:
        result = selection.CopyToLayer(document, true);
        break;
    case EBringBack::kKeep:
        result = kBringBackDone;
        break;
    }
    if (result != kBringBackDone) return failed();
    if ((choice.keepSelection || choice.action == EBringBack::kKeep) &&
        selection.KeepAsSelection(document) != kBringBackDone)
        failed();
    return true;
}

// Leaving with a result: the wizard first, so that closing it keeps the mode and everything in it.
bool LeaveWithResult(QWidget* parent, CToolBar& bar, IUiServices& services)
{
    if (KeepsEverything(*bar.Selection().GetResultMask())) {
        Leave(bar, false);
        return true;
    }
    bool useTransform = false;
    BringBackChoice choice;
    if (Chooser()) {
        choice = Chooser()(parent);
        if (choice.action == EBringBack::kCancel || !Act(parent, bar, services, choice, useTransform)) return false;
    } else {
        CResultWizard wizard(parent, [&](const BringBackChoice& c) {
            return Act(parent, bar, services, c, useTransform);
        });
        if (wizard.exec() != QDialog::Accepted) return false;
        choice = wizard.Choice();
    }
    if (choice.action == EBringBack::kDiscard) {
        Leave(bar, false);
        return true;
    }
    Leave(bar, true);
    if (useTransform) bar.Manager().SetCurrentTool(&bar.Manager().GetTransformTool());
    return true;
}

} // namespace

void SetBringBackChooser(std::function<BringBackChoice(QWidget*)> chooser)
{
    Chooser() = std::move(chooser);
}

void SetMethodChooser(std::function<uint32_t(QWidget*)> chooser)
{
    MethodChooser() = std::move(chooser);
}

uint32_t AskMethod(QWidget* parent)
{
    if (MethodChooser()) return MethodChooser()(parent);
    CMethodDlg dialog(parent);
    return dialog.exec() == QDialog::Accepted ? dialog.Method() : 0;
}

bool CanEnter(CToolBar& bar, IUiServices& services)
{
    if (!LayerHasTransparency(bar.Document())) return true;
    services.MessageBox(Text("cantsel"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
    return false;
}

bool HasWork(CSelectionDocument& selection)
{
    return !selection.GetResultMask()->IsNull() || !selection.GetOuterPlane()->IsNull() ||
           !selection.GetInnerPlane()->IsNull();
}

bool Toggle(QWidget* parent, CToolBar& bar, IUiServices& services, uint32_t method)
{
    CToolManager& manager = bar.Manager();
    if (!manager.IsSelectionMode()) {
        if (!CanEnter(bar, services)) return false;
        if (!manager.EnterOrLeaveSelectionMode(true, int32_t(method), true)) {
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
        COLImage picture;
        if (!AskPicture(services, picture)) return false;
        selection.GetBackgroundPicture()->Free();
        if (!selection.GetBackgroundPicture()->DuplicateFrom(&picture)) return false;
    }
    selection.SetDisplayMode(mode);
    selection.RefreshPreview();
    return true;
}

} // namespace selmode
