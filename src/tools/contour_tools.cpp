#include "tools/contour_tools.h"

#include <cmath>

#include "commands/history_log.h"
#include "commands/history_sink.h"
#include "document/selection_document.h"

// ---- CInjectTool ------------------------------------------------------------------------------------------------

CInjectTool::CInjectTool(CToolContext* context) : CToolBase(context, "injecttip", "injecthelp", 233)
{
    m_pOptionPanel = &m_panel;
}

int CInjectTool::OnActivate()
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    if (!s || s->GetInnerPlane()->IsAllZero()) {
        if (m_pContext) m_pContext->Message("injecterr");
        return 0;
    }
    return 1;
}

bool CInjectTool::Accepts(int x, int y) const
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    if (!s) return false;
    const COLChannel& inner = *s->GetInnerPlane();
    if (inner.IsNull()) return false;
    // The first row and column are refused: the contour's growth reads a pixel's upper and left neighbours.
    if (x < 1 || y < 1 || x >= int(inner.GetWidth()) || y >= int(inner.GetHeight())) return false;
    const COLChannel& outer = *s->GetOuterPlane();
    if (!outer.IsAllZero() && x < int(outer.GetWidth()) && y < int(outer.GetHeight()) &&
        outer.GetValue(uint32_t(x), uint32_t(y)) < 255)
        return false;
    return true;
}

int CInjectTool::OnLButtonDown(uint32_t, int x, int y)
{
    const CViewPoint p = ToImage(x, y);
    if (!Accepts(p.x, p.y)) return 0;
    CSelectionDocument* s = m_pContext->selection;
    s->GetInnerPlane()->SetValue(uint32_t(p.x), uint32_t(p.y), 255);
    s->RefreshPreview();
    if (m_pContext->selectionHistory)
        m_pContext->selectionHistory->AddStep(s, kStepChannel, kPlaneInner, m_tipKey);
    return 0;
}

int CInjectTool::OnSetCursor(int, int, int, int, int x, int y)
{
    const CViewPoint p = ToImage(x, y);
    bool cross = Accepts(p.x, p.y);
    if (cross) cross = m_pContext->selection->GetInnerPlane()->GetValue(uint32_t(p.x), uint32_t(p.y)) < 255;
    SetCursorRole(cross ? kCursorCross : kCursorDefault);
    return 1;
}

// ---- CZoomTool --------------------------------------------------------------------------------------------------

CZoomTool::CZoomTool(CToolContext* context) : CToolBase(context, "zoom", "zoomhelp", 177)
{
    m_pOptionPanel = &m_panel;
}

int CZoomTool::OnLButtonDown(uint32_t, int x, int y)
{
    if (!m_pView) return 0;
    const uint32_t mode = m_panel.GetMode();
    if (mode == CPropZoom::kPan) {
        m_startX = x;
        m_startY = y;
        const CViewPoint origin = m_pView->GetOrigin();
        m_startOriginX = origin.x;
        m_startOriginY = origin.y;
        m_panning = 1;
    } else {
        m_pView->ZoomStep(mode == CPropZoom::kZoomIn, x, y);
    }
    return 0;
}

int CZoomTool::OnMouseMove(uint32_t, int x, int y)
{
    if (!m_panning || !m_pView) return 0;
    const double z = m_pView->GetZoom();
    if (!(z > 0)) return 0;
    const int dx = int(std::trunc((x - m_startX) / z)), dy = int(std::trunc((y - m_startY) / z));
    m_pView->SetOrigin(nullptr, m_startOriginX - dx, m_startOriginY - dy, true);
    return 0;
}

int CZoomTool::OnLButtonUp(uint32_t, int, int)
{
    m_panning = 0;
    return 0;
}

int CZoomTool::OnKeyDown(uint32_t key, uint32_t)
{
    if (m_keyHeld) return 0;
    key &= ~kKeyRepeat;
    if (key != kKeyControl && key != kKeyShift) return 0;
    m_savedMode = m_panel.GetMode();
    m_panel.SetMode(key == kKeyControl ? CPropZoom::kPan : CPropZoom::kZoomOut);
    m_keyHeld = 1;
    UpdateCursor();
    return 0;
}

int CZoomTool::OnKeyUp(uint32_t, uint32_t)
{
    // Any key released ends the held mode, not only the one that set it.
    if (!m_keyHeld) return 0;
    m_panel.SetMode(m_savedMode);
    m_keyHeld = 0;
    UpdateCursor();
    return 0;
}

void CZoomTool::UpdateCursor()
{
    const uint32_t mode = m_panel.GetMode();
    SetCursorRole(mode == CPropZoom::kPan ? kCursorPan : mode == CPropZoom::kZoomOut ? kCursorZoomOut : kCursorZoomIn);
}

int CZoomTool::OnSetCursor(int, int, int, int, int, int)
{
    UpdateCursor();
    return 1;
}
