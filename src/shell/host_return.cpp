// The plug-in start's selection work and its end: the cut-out goes back to the host editor through the exchange
// file, and the program ends. The frame's part (entering the method the host asked for, and turning the answers
// into the end of the program) is at the bottom.

#include "shell/host_return.h"

#include "document/selection_document.h"
#include "interchange/host_result.h"
#include "shell/app_globals.h"
#include "shell/main_frame.h"
#include "shell/selection_mode.h"
#include "shell/tool_bar.h"
#include "shell/ui_services.h"
#include "tools/tool_manager.h"

namespace hostret {

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

} // namespace

int MethodForDigit(int digit)
{
    switch (digit) {
    case 0:
        return kMethodChroma;
    case 1:
        return kMethodInOut;
    default:
        return 0;
    }
}

bool HasResult(CSelectionDocument& selection)
{
    const COLChannel& mask = *selection.GetResultMask();
    if (mask.IsNull()) return false;
    const uint8_t* m = mask.GetBuffer();
    for (size_t i = 0, n = size_t(mask.GetWidth()) * mask.GetHeight(); i < n; ++i)
        if (m[i] != 255) return true;
    return false;
}

EHostEnd ReturnResult(CToolBar& bar, IUiServices& services, const HostLink& link)
{
    // A polygon still being drawn is not part of the result.
    bar.Manager().SetCurrentTool(nullptr);
    switch (services.MessageBox(Text("pluginask"), EMsgButtons::kYesNoCancel, EMsgIcon::kQuestion, Text("Tittle"))) {
    case EMsgResult::kNo:
        return EHostEnd::kEnd;
    case EMsgResult::kYes:
        break;
    default:
        return EHostEnd::kStay;
    }
    CSelectionDocument& selection = bar.Selection();
    if (!HasResult(selection)) return EHostEnd::kStay;
    if (!WriteHostResult(link.path, int(link.channels), *selection.GetWorkingImage(), *selection.GetResultMask())) {
        // The host would read nothing: say so and keep the work, so that another try or a save can keep it.
        services.MessageBox(Text("saveerr"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
        return EHostEnd::kStay;
    }
    return EHostEnd::kEnd;
}

EHostEnd CancelWork(CToolBar& bar, IUiServices& services)
{
    bar.Manager().SetCurrentTool(nullptr);
    if (selmode::HasWork(bar.Selection()) &&
        services.MessageBox(Text("dropcutout"), EMsgButtons::kYesNo, EMsgIcon::kQuestion, Text("Tittle")) !=
            EMsgResult::kYes)
        return EHostEnd::kStay;
    return EHostEnd::kEnd;
}

} // namespace hostret

// ---- The frame's part -------------------------------------------------------------------------------------------

void CMainFrame::EnterHostMethod(int digit)
{
    const int method = hostret::MethodForDigit(digit);
    if (!m_hostMode || method == 0 || !m_pToolBar || m_pToolBar->Manager().IsSelectionMode()) return;
    // The host's picture has no transparency, so the way in cannot be refused for it.
    if (!m_pToolBar->Manager().EnterOrLeaveSelectionMode(true, method, true)) {
        ShowMessage("except");
        return;
    }
    UpdatePanels();
}

bool CMainFrame::OnHostReturn(bool withResult)
{
    const hostret::HostLink link{m_hostPath, m_hostChannels};
    const hostret::EHostEnd end = withResult ? hostret::ReturnResult(*m_pToolBar, *m_pServices, link)
                                             : hostret::CancelWork(*m_pToolBar, *m_pServices);
    if (end == hostret::EHostEnd::kStay) {
        UpdatePanels();
        return false;
    }
    Q_EMIT HostFinished(0);
    return true;
}
