#include "tools/selection_tools.h"

#include <cmath>
#include <cstring>

#include "commands/history_log.h"
#include "commands/history_sink.h"
#include "document/compose_document.h"
#include "document/layer.h"
#include "document/selection_document.h"
#include "effects/tolerance_fill.h"
#include "imaging/channel.h"
#include "imaging/image.h"

namespace {

// Shared by the whole family: the lens state and the timer's tick counter.
struct FamilyState {
    bool lensOn = false;
    double savedZoom = 1.0;
    unsigned ticks = 0;
};
FamilyState g_family;

int ModeCursor(int mode, int onNew, int onAdd, int onSubtract)
{
    return mode == kSelAdd ? onAdd : mode == kSelSubtract ? onSubtract : onNew;
}

} // namespace

int CPropMagicSel::GetTolerance() const
{
    int value = 0;
    for (char c : m_tolerance) {
        if (c < '0' || c > '9') break;
        value = value * 10 + (c - '0');
    }
    return value > 99 ? 99 : value;
}

// --- CNormalSelTool -------------------------------------------------------------------------------------------

CNormalSelTool::CNormalSelTool(CToolContext* context, const char* tipKey, const char* helpKey, uint32_t iconId)
    : CToolBase(context, tipKey, helpKey, iconId)
{
    m_pOptionPanel = &m_panel;
}

COLChannel* CNormalSelTool::GetMask()
{
    return m_pContext && m_pContext->document ? &m_pContext->document->GetSelectionMask() : nullptr;
}

void CNormalSelTool::OnMaskChanged()
{
    if (m_pContext && m_pContext->document) m_pContext->document->Refresh();
}

void CNormalSelTool::CommitSelection()
{
    m_uncommitted = 0;
    if (IsSelectionModeTool() || !m_pContext || !m_pContext->composeHistory) return;
    m_pContext->composeHistory->AddStep(m_pContext->document, kStepChannel, -1, m_tipKey);
}

void CNormalSelTool::CommitNudge()
{
    m_uncommitted = 0;
    if (IsSelectionModeTool()) {
        CommitSelection();
        return;
    }
    OnMaskChanged();
    if (m_pContext && m_pContext->composeHistory)
        m_pContext->composeHistory->AddStep(m_pContext->document, kStepChannel, -1, "movesel");
}

bool CNormalSelTool::GetDocumentSize(int& width, int& height)
{
    width = height = 0;
    if (!m_pContext) return false;
    if (IsSelectionModeTool()) {
        if (!m_pContext->selection) return false;
        m_pContext->selection->GetSize(width, height);
    } else {
        if (!m_pContext->document) return false;
        width = m_pContext->document->GetWidth();
        height = m_pContext->document->GetHeight();
    }
    return width > 0 && height > 0;
}

bool CNormalSelTool::MaskHasPixels() { return m_pMask && !m_pMask->IsAllZero(); }

void CNormalSelTool::Lock(bool enter)
{
    if (m_pContext && m_pContext->document) m_pContext->document->Lock(enter ? 1 : 0);
}

bool CNormalSelTool::DropSelectionForNewOutline()
{
    m_pMask = GetMask();
    if (!MaskHasPixels() || PanelMode() != kSelNew) return false;
    Lock(true);
    m_pMask->Free();
    Lock(false);
    return true;
}

bool CNormalSelTool::Rasterise()
{
    int width = 0, height = 0;
    m_pMask = GetMask();
    if (!m_pMask || !GetDocumentSize(width, height)) return false;
    if (m_pMask->IsNull() || m_pMask->GetWidth() != uint32_t(width) || m_pMask->GetHeight() != uint32_t(height)) {
        if (m_pMask->Create(uint32_t(width), uint32_t(height)) != kOk) return false;
        std::memset(m_pMask->GetBuffer(), 0, m_pMask->GetAreaByteSize());
    }
    long result = kOk;
    Lock(true);
    const int mode = PanelMode();
    if (mode == kSelNew) {
        result = FillShape(*m_pMask);
    } else {
        COLChannel shape;
        result = shape.Create(uint32_t(width), uint32_t(height));
        if (result == kOk) result = FillShape(shape);
        if (result == kOk) {
            if (mode == kSelAdd)
                m_pMask->Add(&shape);
            else
                m_pMask->Subtract(&shape);
        }
    }
    Lock(false);
    return result == kOk;
}

int CNormalSelTool::OnActivate()
{
    m_pMask = GetMask();
    m_pPanel->SetMode(0);
    UpdateCursor();
    return 1;
}

int CNormalSelTool::OnDeactivate()
{
    m_pMask = GetMask();
    if (!m_pMask || m_pMask->IsAllZero()) {
        if (m_pMask && !m_pMask->IsNull()) {
            Lock(true);
            m_pMask->Free();
            Lock(false);
        }
    } else if (m_uncommitted) {
        CommitNudge();
    }
    m_dragging = 0;
    return 1;
}

std::string CNormalSelTool::GetHelpText()
{
    m_helpText = m_pContext ? m_pContext->Text(m_helpKey) + "\n\n" + m_pContext->Text("normalseltip") : "";
    return m_helpText;
}

int CNormalSelTool::OnKeyDown(uint32_t key, uint32_t flags)
{
    switch (key) {
    case kKeyShift: m_keyBits |= 2; break;
    case kKeyControl: m_keyBits |= 1; break;
    case kKeySpace:
        if (!(flags & kKeyRepeat)) SpaceLens(true);
        break;
    case kKeyLeft: Nudge(-1, 0); break;
    case kKeyUp: Nudge(0, -1); break;
    case kKeyRight: Nudge(1, 0); break;
    case kKeyDown: Nudge(0, 1); break;
    default: break;
    }
    if (!m_dragging && MaskHasPixels()) {
        if (m_keyBits & 2) {
            m_keyMode = 1;
            m_pPanel->SetMode(1);
        } else if (m_keyBits & 1) {
            m_keyMode = 2;
            m_pPanel->SetMode(2);
        }
    }
    UpdateCursor();
    return 0;
}

int CNormalSelTool::OnKeyUp(uint32_t key, uint32_t)
{
    // Any key going up returns the panel to New, also after the user chose Add by hand.
    m_keyMode = 0;
    m_pPanel->SetMode(0);
    if (key == kKeyShift) m_keyBits = 0;
    // Ctrl up clears the Shift bit only, so the Ctrl bit stays until the next Shift release: the tools have
    // always behaved so, and users of the program know it as "sticky subtract".
    if (key == kKeyControl) m_keyBits &= uint8_t(~2u);
    if (key == kKeySpace) SpaceLens(false);
    UpdateCursor();
    return 0;
}

int CNormalSelTool::OnMouseMove(uint32_t, int x, int y)
{
    m_lastX = x;
    m_lastY = y;
    if (!m_pView) return 0;
    const CRect r = m_pView->GetImageRect();
    m_scrollX = r.left == 1 ? (x >= r.right ? 2 : x < r.left ? 1 : 0) : 0;
    m_scrollY = r.top == 1 ? (y >= r.bottom ? 2 : y < r.top ? 1 : 0) : 0;
    return 0;
}

void CNormalSelTool::OnAutoScrollTick()
{
    if (!m_pView || (m_scrollX == 0 && m_scrollY == 0)) {
        m_scrolledX = m_scrolledY = -1;
        return;
    }
    const CViewPoint o = m_pView->GetOrigin();
    m_scrolledX = o.x + (m_scrollX == 2 ? 64 : m_scrollX == 1 ? -64 : 0);
    m_scrolledY = o.y + (m_scrollY == 2 ? 64 : m_scrollY == 1 ? -64 : 0);
}

int CNormalSelTool::OnTimer()
{
    if (m_autoScroll && m_dragging) OnAutoScrollTick();
    if (++g_family.ticks % 5 == 0 && m_maskMoved) {
        OnMaskChanged();
        m_maskMoved = 0;
    }
    return 0;
}

void CNormalSelTool::Nudge(int dx, int dy)
{
    m_pMask = GetMask();
    if (!m_canNudge || !MaskHasPixels()) return;
    COLChannel old;
    if (!old.DuplicateFrom(m_pMask)) return;
    const int w = int(m_pMask->GetWidth()), h = int(m_pMask->GetHeight());
    Lock(true);
    for (int y = 0; y < h; ++y) {
        uint8_t* row = m_pMask->GetBuffer(0, uint32_t(y));
        const int sy = y - dy;
        for (int x = 0; x < w; ++x) {
            const int sx = x - dx;
            row[x] = (sx >= 0 && sy >= 0 && sx < w && sy < h) ? old.GetValue(uint32_t(sx), uint32_t(sy)) : 0;
        }
    }
    Lock(false);
    m_maskMoved = 1;
    m_uncommitted = 1;
}

void CNormalSelTool::SpaceLens(bool on)
{
    if (!m_pView) return;
    const CViewPoint p = m_pView->ClientToImage(m_lastX, m_lastY);
    if (on) {
        int w = 0, h = 0;
        if (!GetDocumentSize(w, h)) return;
        if (!(p.x > 0 && p.x < w && p.y > 0 && p.y < h) || g_family.lensOn || m_pView->GetZoom() > 2.0) return;
        g_family.savedZoom = m_pView->GetZoom();
        const int ox = int(p.x - m_lastX * 0.25), oy = int(p.y - m_lastY * 0.25);
        m_pView->SetZoom(4.0, false);
        m_pView->SetOrigin(nullptr, ox, oy, true);
        g_family.lensOn = true;
    } else if (g_family.lensOn) {
        const int ox = int(p.x - m_lastX / g_family.savedZoom), oy = int(p.y - m_lastY / g_family.savedZoom);
        m_pView->SetOrigin(nullptr, ox, oy, false);
        m_pView->SetZoom(g_family.savedZoom, false);
        m_pView->Redraw();
        g_family.lensOn = false;
    }
}

// --- Rectangle and ellipse ------------------------------------------------------------------------------------

CRectSelTool::CRectSelTool(CToolContext* context, const char* tipKey, const char* helpKey, uint32_t iconId)
    : CNormalSelTool(context, tipKey, helpKey, iconId)
{
}

void CRectSelTool::UpdateCursor()
{
    const int mode = m_keyMode ? int(m_keyMode) : PanelMode();
    SetCursorRole(ModeCursor(mode, kCursorCross, kCursorRectAdd, kCursorRectSubtract));
}

int CRectSelTool::OnLButtonDown(uint32_t, int x, int y)
{
    m_dragging = m_autoScroll = 1;
    m_start = m_end = ToImage(x, y);
    DropSelectionForNewOutline();
    return 0;
}

int CRectSelTool::OnMouseMove(uint32_t flags, int x, int y)
{
    CNormalSelTool::OnMouseMove(flags, x, y);
    if (!m_dragging) return 0;
    m_end = ToImage(x, y);
    if (m_pView) m_pView->DrawOverlayNow();
    return 0;
}

int CRectSelTool::DrawOverlay(IOverlayDC& dc, bool repainted)
{
    CToolBase::DrawOverlay(dc, repainted);
    EraseOverlay(dc);
    if (!m_dragging || (m_start.x == m_end.x && m_start.y == m_end.y)) return 0;
    const CViewPoint a = ToClient(m_start.x, m_start.y), b = ToClient(m_end.x, m_end.y);
    AddOverlayRect(dc, a.x, a.y, b.x, b.y);
    return 0;
}

void CRectSelTool::BuildOutline()
{
    m_outline.Clear();
    m_outline.Add(m_start.x, m_start.y);
    m_outline.Add(m_end.x, m_start.y);
    m_outline.Add(m_end.x, m_end.y);
    m_outline.Add(m_start.x, m_end.y);
    m_outline.Add(m_start.x, m_start.y);
}

int CRectSelTool::OnLButtonUp(uint32_t, int x, int y)
{
    if (!m_dragging) return 0;
    m_dragging = 0;
    m_end = ToImage(x, y);
    BuildOutline();
    const bool ok = Rasterise();
    OnMaskChanged();
    if (ok) {
        m_pMask = GetMask();
        if (!m_pMask || m_pMask->IsAllZero()) {
            // An empty result (a click without a drag, say) is a deselection.
            if (m_pMask && !m_pMask->IsNull()) {
                Lock(true);
                m_pMask->Free();
                Lock(false);
            }
            m_uncommitted = 0;
            if (m_pContext && m_pContext->composeHistory)
                m_pContext->composeHistory->AddStep(m_pContext->document, kStepChannel, -1, "His_selectnone");
        } else {
            CommitSelection();
        }
    }
    m_outline.Clear();
    return 0;
}

void CRectSelTool::OnAutoScrollTick()
{
    CNormalSelTool::OnAutoScrollTick();
    if (m_scrolledX == -1 && m_scrolledY == -1) return;
    m_end = ToImage(m_lastX, m_lastY);
    if (m_pView) m_pView->SetOrigin(nullptr, m_scrolledX, m_scrolledY, true);
}

CRoundSelTool::CRoundSelTool(CToolContext* context) : CRectSelTool(context, "roundseltip", "helproundsel", 171) {}

void CRoundSelTool::BuildOutline()
{
    m_outline.Clear();
    const int a = std::abs(m_end.x - m_start.x) / 2, b = std::abs(m_end.y - m_start.y) / 2;
    const int cx = (m_start.x + m_end.x) / 2, cy = (m_start.y + m_end.y) / 2;
    const int lo = std::min(m_start.x, m_end.x), hi = std::max(m_start.x, m_end.x);
    auto half = [&](int x) {
        if (a == 0) return 0.0;
        const double t = 1.0 - double(x - cx) * (x - cx) / (double(a) * a);
        return t > 0 ? b * std::sqrt(t) : 0.0;
    };
    for (int x = lo; x <= hi; ++x) m_outline.Add(x, int(cy - half(x)));
    for (int x = hi; x >= lo; --x) m_outline.Add(x, int(cy + half(x)));
}

int CRoundSelTool::DrawOverlay(IOverlayDC& dc, bool repainted)
{
    CToolBase::DrawOverlay(dc, repainted);
    EraseOverlay(dc);
    if (!m_dragging || (m_start.x == m_end.x && m_start.y == m_end.y)) return 0;
    BuildOutline();
    for (size_t i = 0; i + 1 < m_outline.GetCount(); ++i) {
        const CViewPoint a = ToClient(m_outline[i].x, m_outline[i].y);
        const CViewPoint b = ToClient(m_outline[i + 1].x, m_outline[i + 1].y);
        AddOverlayLine(dc, a.x, a.y, b.x, b.y);
    }
    m_outline.Clear();
    return 0;
}

long CRoundSelTool::FillShape(COLChannel& plane)
{
    std::memset(plane.GetBuffer(), 0, plane.GetAreaByteSize());
    return FillEllipse(m_start.x, m_start.y, m_end.x, m_end.y, &plane);
}

// --- Lasso ----------------------------------------------------------------------------------------------------

CFreeSelTool::CFreeSelTool(CToolContext* context) : CNormalSelTool(context, "freeseltip", "helpfreesel", 172) {}

void CFreeSelTool::UpdateCursor()
{
    const int mode = m_keyMode ? int(m_keyMode) : PanelMode();
    SetCursorRole(ModeCursor(mode, kCursorLasso, kCursorLassoAdd, kCursorLassoSubtract));
}

int CFreeSelTool::OnLButtonDown(uint32_t, int x, int y)
{
    m_dragging = 1;
    if (DropSelectionForNewOutline()) OnMaskChanged();   // the old ants go while the new outline is drawn
    m_outline.Clear();
    m_drawn = 0;
    const CViewPoint p = ToImage(x, y);
    m_outline.Add(p.x, p.y);
    return 0;
}

int CFreeSelTool::OnMouseMove(uint32_t flags, int x, int y)
{
    CNormalSelTool::OnMouseMove(flags, x, y);
    if (!m_dragging) return 0;
    const CViewPoint p = ToImage(x, y);
    m_outline.Add(p.x, p.y);
    if (m_pView) m_pView->DrawOverlayNow();
    return 0;
}

int CFreeSelTool::DrawOverlay(IOverlayDC& dc, bool repainted)
{
    CToolBase::DrawOverlay(dc, repainted);
    if (!m_dragging) {
        EraseOverlay(dc);
        m_drawn = 0;
        return 0;
    }
    // After a repaint the whole line is drawn again; otherwise only the new pieces.
    size_t from = repainted || m_overlayLines.empty() ? 0 : (m_drawn > 0 ? m_drawn - 1 : 0);
    if (repainted) m_overlayLines.clear();
    for (size_t i = from; i + 1 < m_outline.GetCount(); ++i) {
        const CViewPoint a = ToClient(m_outline[i].x, m_outline[i].y);
        const CViewPoint b = ToClient(m_outline[i + 1].x, m_outline[i + 1].y);
        AddOverlayLine(dc, a.x, a.y, b.x, b.y);
    }
    m_drawn = m_outline.GetCount();
    return 0;
}

int CFreeSelTool::OnLButtonUp(uint32_t, int, int)
{
    if (!m_dragging) return 0;
    m_dragging = 0;
    m_outline.Close();
    m_outline.Thin(kMaxPoints);
    // A click without a drag has no area to fill; the selection stays as the start of the drag left it.
    const bool ok = m_outline.GetCount() < 4 || Rasterise();
    m_outline.Clear();
    OnMaskChanged();
    if (!ok) return 0;
    m_pMask = GetMask();
    if (!m_pMask || m_pMask->IsNull()) {
        // New mode dropped the old selection at the press: that is a deselection, recorded as one.
        if (m_pContext && m_pContext->composeHistory)
            m_pContext->composeHistory->AddStep(m_pContext->document, kStepChannel, -1, "His_selectnone");
        return 0;
    }
    CommitSelection();
    return 0;
}

void CFreeSelTool::OnAutoScrollTick()
{
    CNormalSelTool::OnAutoScrollTick();
    if (m_scrolledX == -1 && m_scrolledY == -1) return;
    const CViewPoint p = ToImage(m_lastX, m_lastY);
    m_outline.Add(p.x, p.y);
    if (m_pView) m_pView->SetOrigin(nullptr, m_scrolledX, m_scrolledY, true);
}

// --- Polygon --------------------------------------------------------------------------------------------------

CPolygonSelTool::CPolygonSelTool(CToolContext* context, const char* tipKey, uint32_t iconId)
    : CNormalSelTool(context, tipKey, "helppolygonsel", iconId)
{
    m_autoScroll = 1;
}

void CPolygonSelTool::UpdateCursor()
{
    int cursor;
    switch (m_keyMode) {
    case 1: cursor = kCursorPolygonAdd; break;
    case 2: cursor = kCursorPolygonSubtract; break;
    case 3: cursor = kCursorPolygonClose; break;
    default:
        cursor = ModeCursor(PanelMode(), kCursorPolygon, kCursorPolygonAdd, kCursorPolygonSubtract);
        break;
    }
    if (cursor != m_cursor) SetCursorRole(cursor);
}

int CPolygonSelTool::OnLButtonDown(uint32_t, int, int)
{
    if (m_dragging) return 0;
    m_dragging = 1;
    if (DropSelectionForNewOutline()) OnMaskChanged();
    m_outline.Clear();
    m_rubber = false;
    if (m_pView) m_pView->Redraw();
    return 0;
}

int CPolygonSelTool::OnLButtonUp(uint32_t, int x, int y)
{
    if (!m_dragging) return 0;
    if (m_keyMode == 3) {
        FinishPolygon();
        m_keyMode = 0;
        UpdateCursor();
        return 0;
    }
    const CViewPoint p = ToImage(x, y);
    m_outline.Add(p.x, p.y);
    m_rubber = true;
    m_rubberEnd = p;
    if (m_pView) m_pView->Redraw();
    return 0;
}

int CPolygonSelTool::OnMouseMove(uint32_t flags, int x, int y)
{
    CNormalSelTool::OnMouseMove(flags, x, y);
    if (!m_dragging) return 0;
    if (!m_outline.IsEmpty()) {
        m_rubber = true;
        m_rubberEnd = ToImage(x, y);
        if (m_pView) m_pView->DrawOverlayNow();
        const CViewPoint first = ToClient(m_outline.Front().x, m_outline.Front().y);
        if (std::abs(first.x - x) <= 3 && std::abs(first.y - y) <= 3 && m_outline.GetCount() > 2) {
            m_keyMode = 3;
            UpdateCursor();
            return 0;
        }
    }
    if (m_keyMode) {
        m_keyMode = 0;
        UpdateCursor();
    }
    return 0;
}

int CPolygonSelTool::OnRButtonUp(uint32_t, int, int)
{
    if (!m_dragging || m_outline.GetCount() < 2) return 0;
    m_outline.RemoveLast();
    m_rubberEnd = {m_outline.Back().x, m_outline.Back().y};
    if (m_pView) m_pView->Redraw();
    return 0;
}

int CPolygonSelTool::OnLButtonDblClk(uint32_t, int, int)
{
    if (!m_dragging) return 0;
    FinishPolygon();
    UpdateCursor();
    return 0;
}

int CPolygonSelTool::DrawOverlay(IOverlayDC& dc, bool repainted)
{
    CToolBase::DrawOverlay(dc, repainted);
    EraseOverlay(dc);
    if (!m_dragging) return 0;
    for (size_t i = 0; i + 1 < m_outline.GetCount(); ++i) {
        const CViewPoint a = ToClient(m_outline[i].x, m_outline[i].y);
        const CViewPoint b = ToClient(m_outline[i + 1].x, m_outline[i + 1].y);
        AddOverlayLine(dc, a.x, a.y, b.x, b.y);
    }
    if (m_rubber && !m_outline.IsEmpty()) {
        const CViewPoint a = ToClient(m_outline.Back().x, m_outline.Back().y);
        const CViewPoint b = ToClient(m_rubberEnd.x, m_rubberEnd.y);
        AddOverlayLine(dc, a.x, a.y, b.x, b.y);
    }
    return 0;
}

void CPolygonSelTool::OnAutoScrollTick()
{
    CNormalSelTool::OnAutoScrollTick();
    if (m_scrolledX == -1 && m_scrolledY == -1) return;
    if (m_scrolledX == m_lastOrigin.x && m_scrolledY == m_lastOrigin.y) return;
    m_lastOrigin = {m_scrolledX, m_scrolledY};
    m_rubberEnd = ToImage(m_lastX, m_lastY);
    if (m_pView) m_pView->SetOrigin(nullptr, m_scrolledX, m_scrolledY, true);
}

void CPolygonSelTool::FinishPolygon()
{
    m_dragging = 0;
    m_rubber = false;
    m_outline.Close();
    bool ok = true;
    if (m_outline.GetCount() >= 4) {
        if (PanelMode() == kSelNew) m_lastNew = m_outline;
        ok = Rasterise();
    }
    m_outline.Clear();
    if (!ok) {
        OnMaskChanged();
        return;
    }
    AfterPolygon();
    CommitSelection();
}

// --- Polygons of selection mode -------------------------------------------------------------------------------

CPlanePolygonTool::CPlanePolygonTool(CToolContext* context, const char* tipKey, uint32_t iconId, uint32_t planeBit)
    : CPolygonSelTool(context, tipKey, iconId), m_planeBit(planeBit)
{
    m_autoScroll = 0;
}

COLChannel* CPlanePolygonTool::GetMask()
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    if (!s) return nullptr;
    if (m_planeBit & kPlaneOuter) return s->GetOuterPlane();
    if (m_planeBit & kPlaneInner) return s->GetInnerPlane();
    return s->GetResultMask();
}

void CPlanePolygonTool::OnMaskChanged()
{
    if (m_pContext && m_pContext->selection) m_pContext->selection->RefreshPreview();
}

void CPlanePolygonTool::CommitSelection()
{
    m_uncommitted = 0;
    if (!m_pContext || !m_pContext->selection) return;
    m_pContext->selection->RefreshPreview();
    if (m_pContext->selectionHistory)
        m_pContext->selectionHistory->AddStep(m_pContext->selection, kStepChannel, int32_t(m_planeBit), m_tipKey);
}

void CPlanePolygonTool::AfterPolygon()
{
    CommitSelection();
    if (m_pContext && m_pContext->updateBars) m_pContext->updateBars();
}

COutPolygonTool::COutPolygonTool(CToolContext* context)
    : CPlanePolygonTool(context, "outpolygonseltip", 156, kPlaneOuter)
{
}

CInPolygonTool::CInPolygonTool(CToolContext* context) : CPlanePolygonTool(context, "inpolygonseltip", 157, kPlaneInner)
{
}

// The result mask and the working image change together, so its steps store both: undo then restores the
// colours taken back from the layer picture as well as the mask.
CModifyPolygonTool::CModifyPolygonTool(CToolContext* context)
    : CPlanePolygonTool(context, "modifypolygonseltip", 158, kPlaneResult | kPlaneWorking)
{
}

void CModifyPolygonTool::AfterPolygon()
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    COLChannel* mask = s ? s->GetResultMask() : nullptr;
    COLImage* working = s ? s->GetWorkingImage() : nullptr;
    const COLImage* picture = s ? s->GetSourceImage() : nullptr;
    if (mask && !mask->IsNull() && working && !working->IsNull() && mask->GetWidth() == working->GetWidth() &&
        mask->GetHeight() == working->GetHeight()) {
        const bool withPicture = picture && !picture->IsNull() && picture->GetWidth() == working->GetWidth() &&
                                 picture->GetHeight() == working->GetHeight();
        const size_t n = working->GetPixelCount();
        const uint8_t* m = mask->GetBuffer();
        CPixel* w = working->GetBuffer();
        const CPixel* p = withPicture ? picture->GetBuffer() : nullptr;
        for (size_t i = 0; i < n; ++i) {
            if (w[i].alpha < m[i] && p) {
                const uint32_t d = m[i] - w[i].alpha;
                w[i].red = uint8_t((p[i].red * d + w[i].red * (255 - d)) / 255);
                w[i].green = uint8_t((p[i].green * d + w[i].green * (255 - d)) / 255);
                w[i].blue = uint8_t((p[i].blue * d + w[i].blue * (255 - d)) / 255);
            }
            w[i].alpha = m[i];
        }
    }
    CPlanePolygonTool::AfterPolygon();
}

// --- Tolerance ------------------------------------------------------------------------------------------------

CMagicSelTool::CMagicSelTool(CToolContext* context) : CNormalSelTool(context, "magicseltip", "helpmagicsel", 173)
{
    m_pPanel = &m_magicPanel;
    m_pOptionPanel = &m_magicPanel;
}

void CMagicSelTool::UpdateCursor()
{
    const int mode = m_keyMode ? int(m_keyMode) : PanelMode();
    SetCursorRole(ModeCursor(mode, kCursorMagic, kCursorMagicAdd, kCursorMagicSubtract));
}

int CMagicSelTool::OnLButtonDown(uint32_t, int x, int y)
{
    m_lastX = x;
    m_lastY = y;
    const CViewPoint seed = ToImage(x, y);
    if (DropSelectionForNewOutline()) OnMaskChanged();
    if (Fill(seed.x, seed.y)) {
        OnMaskChanged();
        CommitSelection();
    }
    return 0;
}

bool CMagicSelTool::Fill(int seedX, int seedY)
{
    const int tol = m_magicPanel.GetTolerance();
    int width = 0, height = 0;
    if (!GetDocumentSize(width, height)) return true;
    if (seedX < 0 || seedY < 0 || seedX >= width || seedY >= height) return true;
    COLChannel plane;
    if (plane.Create(uint32_t(width), uint32_t(height)) != kOk) return false;
    std::memset(plane.GetBuffer(), 0, plane.GetAreaByteSize());
    const CLayer* layer = m_pContext->document->GetCurrentLayer();
    if (!layer) return true;
    const int ox = layer->m_x, oy = layer->m_y;
    const int lx = seedX - ox, ly = seedY - oy;
    const COLImage& image = layer->m_image;
    if (lx < 0 || ly < 0 || lx >= int(image.GetWidth()) || ly >= int(image.GetHeight()) ||
        image.GetPixel2(uint32_t(lx), uint32_t(ly)).alpha == 0) {
        SelectUncovered(image, ox, oy, plane);
    } else if (ToleranceFlood(image, ox, oy, lx, ly, tol, plane) != kOk) {
        return false;
    }
    m_pMask = GetMask();
    if (!m_pMask) return false;
    bool ok = true;
    Lock(true);
    switch (PanelMode()) {
    case kSelNew: ok = m_pMask->DuplicateFrom(&plane) != 0; break;
    case kSelAdd:
        if (!m_pMask->IsNull() && (m_pMask->GetWidth() != plane.GetWidth() ||
                                   m_pMask->GetHeight() != plane.GetHeight()))
            m_pMask->Free();   // a mask of an older document size cannot be combined
        m_pMask->Add(&plane);
        break;
    default:
        if (MaskHasPixels()) m_pMask->Subtract(&plane);
        break;
    }
    Lock(false);
    return ok;
}
