#include "tools/tool_base.h"

CToolBase::CToolBase(CToolContext* context, const char* tipKey, const char* helpKey, uint32_t iconId)
    : m_pDrawer(this), m_pSink(this), m_helpKey(helpKey), m_iconId(iconId), m_tipKey(tipKey), m_pContext(context)
{
}

int CToolBase::SetView(ICanvasView* view)
{
    m_pView = view;
    return 0;
}

int CToolBase::DrawOverlay(IOverlayDC&, bool repainted)
{
    // A repaint has wiped the lines already; erasing them again would draw them back.
    if (repainted) m_overlayLines.clear();
    return 0;
}

void CToolBase::EraseOverlay(IOverlayDC& dc)
{
    for (const OverlayLine& l : m_overlayLines) dc.DrawLine(l.x0, l.y0, l.x1, l.y1);
    m_overlayLines.clear();
}

void CToolBase::AddOverlayLine(IOverlayDC& dc, int x0, int y0, int x1, int y1)
{
    dc.DrawLine(x0, y0, x1, y1);
    m_overlayLines.push_back({x0, y0, x1, y1});
}

void CToolBase::AddOverlayRect(IOverlayDC& dc, int l, int t, int r, int b)
{
    AddOverlayLine(dc, l, t, r, t);
    AddOverlayLine(dc, r, t, r, b);
    AddOverlayLine(dc, r, b, l, b);
    AddOverlayLine(dc, l, b, l, t);
}
