#include "tools/tool_manager.h"

#include "commands/history_log.h"
#include "commands/history_sink.h"
#include "document/compose_document.h"
#include "document/selection_document.h"

namespace {

enum : int { kInC = 1, kInK = 2, kInI = 4 };

} // namespace

CToolManager::CToolManager(CToolContext& context)
    : m_context(context), m_polygon(&context), m_free(&context), m_rect(&context), m_round(&context),
      m_magic(&context), m_outPolygon(&context), m_inPolygon(&context), m_modifyPolygon(&context),
      m_eraseLayer(&context), m_freePaint(&context), m_camera(&context), m_desat(&context), m_picker(&context),
      m_forePaint(&context), m_eraseSel(&context),
      m_innerBrush(&context, "innerbrushtip", "innerbrushhelp", 180, kPlaneInner),
      m_outerBrush(&context, "outerbrushtip", "outerbrushhelp", 180, kPlaneOuter), m_bkPicker(&context),
      m_inject(&context), m_zoom(&context), m_smartAdjust(&context), m_crop(&context), m_transform(&context),
      m_move(&context)
{
    // One row per tool: its short name for scripts, the lists it stands in, and what it does. The order of the
    // rows is the order of the buttons. Tools still to come join here.
    const struct {
        const char* name;
        CToolBase* tool;
        int lists;
        const char* summary;
    } table[] = {
        {"crop", &m_crop, kInC,
         "crop: drag a frame, drag its corners or inside, double-click (or key return) to cut the picture to it;\n"
         "                 option freeshape on straightens a four-cornered shape (perspective);\n"
         "                 option ratio none|original|4:3|3:4|3:2|2:3|W:H locks the frame's proportions"},
        {"transform", &m_transform, kInC,
         "free transform of the current upper layer: drag corners to scale, inside to move, outside to turn;\n"
         "                 double-click applies; option ratio none keeps no proportions, option freeshape on\n"
         "                 moves corners one by one; option corners X1 Y1 X2 Y2 X3 Y3 X4 Y4 (top-left,\n"
         "                 top-right, bottom-right, bottom-left) sets the frame at once"},
        {"polygon", &m_polygon, kInC, "polygon selection: click corners, close on the first point or double-click"},
        {"lasso", &m_free, kInC, "free-hand selection: press, drag the outline, release"},
        {"rect", &m_rect, kInC, "rectangle selection: drag from corner to corner"},
        {"ellipse", &m_round, kInC, "ellipse selection inside the dragged rectangle"},
        {"magic", &m_magic, kInC, "tolerance selection: click a colour, neighbours within the tolerance join"},
        {"eraser", &m_eraseLayer, kInC,
         "erase the current layer (its alpha goes down; the base layer takes the foreground colour)"},
        {"brush", &m_freePaint, kInC, "paint the foreground colour on the current layer"},
        {"clone", &m_camera, kInC,
         "clone brush: down X Y alt (or the first click) sets the source, strokes copy from it"},
        {"desaturate", &m_desat, kInC, "take the colour out of the current layer under the brush"},
        {"move", &m_move, kInC,
         "move the current upper layer by dragging or with the arrow keys; with a selection its pixels are\n"
         "                 lifted onto a new layer first (on the base the hole takes the foreground colour)"},
        {"colourpicker", &m_picker, kInC, "click: the colour of the picture becomes the foreground colour"},
        {"picker", &m_bkPicker, kInK,
         "selection mode, chroma key: click the backdrop; its colour is keyed out (a second click takes the "
         "result away)"},
        {"outpolygon", &m_outPolygon, kInI, "selection mode: polygon on the outer contour plane (sure background)"},
        {"inpolygon", &m_inPolygon, kInI, "selection mode: polygon on the inner contour plane (sure foreground)"},
        {"inject", &m_inject, kInI, "selection mode: click adds one point to the inner contour plane"},
        {"smartadjust", &m_smartAdjust, kInI,
         "selection mode: click inside the inner and the outer contour to pick the two reference colours, then "
         "brush the band between them: the result mask follows the colours (down X Y shift raises only, ctrl "
         "lowers only; option adjust)"},
        {"modifypolygon", &m_modifyPolygon, kInK | kInI,
         "selection mode: polygon on the result mask; raised parts take their colour back from the layer"},
        {"restore", &m_forePaint, kInK | kInI,
         "selection mode: brush that puts the untouched picture back (raises the result mask)"},
        {"resulteraser", &m_eraseSel, kInK | kInI, "selection mode: brush that erases the result mask"},
        {"innerbrush", &m_innerBrush, kInI,
         "selection mode: brush on the inner contour plane (sure foreground); down X Y ctrl erases"},
        {"outerbrush", &m_outerBrush, kInI,
         "selection mode: brush on the outer contour plane (sure background); down X Y ctrl erases"},
        {"zoom", &m_zoom, kInC | kInK | kInI,
         "click zooms in one stop (shift: out); ctrl and drag pans the view"},
    };
    for (const auto& row : table) {
        m_named.push_back({row.name, row.tool, row.summary});
        RegisterPanel(row.tool);
        if (row.lists & kInC) AddTool(row.tool, kListCompose);
        if (row.lists & kInK) AddTool(row.tool, kListChroma);
        if (row.lists & kInI) AddTool(row.tool, kListInOut);
    }
    context.updateBars = [this] { UpdateBars(); };
    context.leaveTool = [this] { SetCurrentTool(nullptr); };
    // The brushes take their settings from the profile once, as their panels are made.
    if (context.profileInt)
        for (CPaintTool* tool : GetPaintTools()) tool->GetBrush().LoadSettings(context.profileInt);
}

std::vector<CPaintTool*> CToolManager::GetPaintTools()
{
    return {&m_eraseLayer, &m_freePaint, &m_camera, &m_desat, &m_forePaint, &m_eraseSel, &m_innerBrush,
            &m_outerBrush, &m_smartAdjust};
}

void CToolManager::RegisterPanel(CToolBase* tool)
{
    CToolOptions* panel = tool->GetOptionPanel();
    if (!panel) return;
    for (CToolOptions* p : m_panels)
        if (p == panel) return;
    m_panels.push_back(panel);
}

void CToolManager::AddTool(CToolBase* tool, int list)
{
    auto has = [](const std::vector<CToolBase*>& v, const CToolBase* t) {
        for (const CToolBase* x : v)
            if (x == t) return true;
        return false;
    };
    std::vector<CToolBase*>* target = list == kListCompose ? &m_composeTools
                                      : list == kListChroma ? &m_chromaTools
                                      : list == kListInOut  ? &m_inOutTools
                                                            : nullptr;
    if (!tool || !target || has(*target, tool)) return;
    target->push_back(tool);
    if (list == kListInOut && has(m_chromaTools, tool) && !has(m_commonTools, tool)) m_commonTools.push_back(tool);
}

const std::vector<CToolBase*>& CToolManager::GetList(int list) const
{
    return list == kListChroma ? m_chromaTools : list == kListInOut ? m_inOutTools : m_composeTools;
}

const std::vector<CToolBase*>& CToolManager::GetShownTools() const
{
    if (!m_selectionMode) return m_composeTools;
    if (m_method == kMethodChroma) return m_chromaTools;
    if (m_method == kMethodInOut) return m_inOutTools;
    return m_commonTools;
}

CToolBase* CToolManager::FindTool(const std::string& name) const
{
    for (const NamedTool& n : m_named)
        if (name == n.name) return n.tool;
    return nullptr;
}

CRect CToolManager::GetButtonRect(int index) const
{
    const int base = (m_selectionMode == 1 && m_method == kMethodInOut) ? 95 : 75;
    const int left = 5 + 20 * (index % 3), top = base + 20 * (index / 3);
    return {left, top, left + 19, top + 19};
}

CToolBase* CToolManager::HitTest(int x, int y) const
{
    const std::vector<CToolBase*>& tools = GetShownTools();
    for (size_t i = 0; i < tools.size(); ++i) {
        if (!tools[i]->IsEnabled()) continue;
        if (GetButtonRect(int(i)).Contains(x, y)) return tools[i];
    }
    return nullptr;
}

void CToolManager::UpdateBars()
{
    // In selection mode the contour tools pick regions for a result still to be made: once a result mask
    // exists (the contours are no longer shown) they are disabled, and the tools that edit the result remain.
    if (m_selectionMode && m_context.selection) {
        const bool result = !m_context.selection->GetResultMask()->IsNull();
        m_outPolygon.SetEnabled(result ? 0 : 1);
        m_inPolygon.SetEnabled(result ? 0 : 1);
        m_inject.SetEnabled(result ? 0 : 1);
        m_smartAdjust.SetEnabled(result ? 1 : 0);
        // A current tool that is now disabled finishes what it does; its button only cannot be pressed again.
    } else {
        m_outPolygon.SetEnabled(1);
        m_inPolygon.SetEnabled(1);
        m_inject.SetEnabled(1);
        m_smartAdjust.SetEnabled(1);
    }
    if (m_pHost) m_pHost->RedrawBar();
}

void CToolManager::SetCurrentTool(CToolBase* next)
{
    if (next == m_pCurrent) return;
    if (m_pCurrent && !m_pCurrent->OnDeactivate()) next = nullptr;
    m_pCurrent = next;
    auto showNone = [this] {
        if (m_pView) {
            m_pView->SetOverlay(nullptr);
            m_pView->SetSink(nullptr);
        }
        if (m_pHost) {
            m_pHost->ShowHelp(std::string());
            m_pHost->ShowOptionPanel(nullptr);
        }
    };
    if (!next) {
        showNone();
    } else {
        if (m_pView) {
            m_pView->SetOverlay(next->GetDrawer());
            m_pView->SetSink(next->GetSink());
        }
        next->SetView(m_pView);
        std::string help = next->GetHelpText();
        if (help.empty()) help = m_context.Text(next->GetHelpKey());
        if (m_pHost) {
            m_pHost->ShowHelp(help);
            m_pHost->ShowOptionPanel(next->GetOptionPanel());
        }
        // Help and panel are up before the activation, so that a refusal's message shows over the new panel.
        if (!next->OnActivate()) {
            m_pCurrent = nullptr;
            showNone();
        }
    }
    if (m_pHost) m_pHost->RedrawBar();
}

bool CToolManager::EnterOrLeaveSelectionMode(bool enter, int32_t method, bool withHistory)
{
    CSelectionDocument* selection = m_context.selection;
    CComposeDocument* document = m_context.document;
    if (!selection || !document) return false;
    if (enter == IsSelectionMode()) return false;
    SetCurrentTool(nullptr);
    if (enter) {
        if (!selection->Begin(*document)) return false;
        m_selectionMode = 1;
        m_method = uint32_t(method);
        if (method == kMethodChroma) m_bkPicker.ResetForEntry();
        if (m_pHost) m_pHost->OnModeChanged(true);
        if (m_context.selectionHistory) {
            m_context.selectionHistory->Reset();
            if (withHistory) m_context.selectionHistory->AddStep(selection, kStepWholeDocument, 0, "createsel");
        }
        selection->RefreshPreview();
    } else {
        if (m_context.selectionHistory) m_context.selectionHistory->Reset();
        const bool ok = m_pHost && m_pHost->RunResultWizard();
        m_selectionMode = 0;
        if (m_pHost) m_pHost->OnModeChanged(false);
        selection->Clear();
        m_bkPicker.Forget();
        if (ok && withHistory && m_context.composeHistory)
            m_context.composeHistory->AddStep(document, kStepWholeDocument, 0, "His_selandproc");
        document->Refresh();
    }
    UpdateBars();
    return true;
}
