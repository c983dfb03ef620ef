#include "tools/smart_adjust_tool.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "commands/history_log.h"
#include "document/selection_document.h"

namespace {

// The truncated Euclidean distance of two colours over blue, green and red.
int Distance(CPixel a, CPixel b)
{
    const int db = a.blue - b.blue, dg = a.green - b.green, dr = a.red - b.red;
    return int(std::sqrt(double(db * db + dg * dg + dr * dr)));
}

uint8_t PlaneAt(const COLChannel* plane, CViewPoint p)
{
    if (!plane || plane->IsNull() || p.x < 0 || p.y < 0 || uint32_t(p.x) >= plane->GetWidth() ||
        uint32_t(p.y) >= plane->GetHeight())
        return 0;
    return plane->GetValue(uint32_t(p.x), uint32_t(p.y));
}

} // namespace

// --- CPropSmartAdj ----------------------------------------------------------------------------------------------

void CPropSmartAdj::SetMode(uint32_t mode)
{
    m_adjustMode = mode <= kAdjustLower ? mode : kAdjustBoth;
    m_keyHeld = -1;
    Changed();
}

void CPropSmartAdj::ForceByKey(uint32_t mode)
{
    if (m_adjustMode != kAdjustBoth) return;
    m_adjustMode = mode;
    m_keyHeld = 0;
    Changed();
}

void CPropSmartAdj::ReleaseKey()
{
    if (m_keyHeld != 0) return;
    m_adjustMode = kAdjustBoth;
    m_keyHeld = -1;
    Changed();
}

void CPropSmartAdj::SetForeColor(CPixel colour)
{
    colour.alpha = 255;
    m_foreColor = colour;
    Changed();
}

void CPropSmartAdj::SetBackColor(CPixel colour)
{
    colour.alpha = 255;
    m_backColor = colour;
    Changed();
}

void CPropSmartAdj::ResetFace()
{
    m_foreColor = CPixel{0x80, 0x80, 0x80, 0};
    m_backColor = CPixel{0x80, 0x80, 0x80, 0};
    m_adjustMode = kAdjustBoth;
    m_keyHeld = -1;
    Changed();
}

// --- CSmartAdjustTool ---------------------------------------------------------------------------------------------

CSmartAdjustTool::CSmartAdjustTool(CToolContext* context)
    : CPaintTool(context, "smartadjtip", "smartadjhelp", 234, "SmartAdjustTool")
{
    UseBrush(&m_prop);
    // 0 up to 32, a straight ramp, 255 from 224: colours near a reference count as that reference.
    for (int i = 0; i < 256; ++i) {
        const int t = 255 * i - 8160;
        m_curve[i] = uint8_t(t < 0 ? 0 : t < 48960 ? t / 192 : 255);
    }
}

int CSmartAdjustTool::PositionBetween(CPixel picture, CPixel fore, CPixel back)
{
    const int d0 = Distance(fore, back), d1 = Distance(picture, back), d2 = Distance(picture, fore);
    int a;
    if (d1 + d2 == 0) {
        a = 255;
    } else if (d0 < 16) {
        // References too close for a line between them: the nearer one wins, by the ratio of the distances.
        a = 255 * d1 / (d1 + d2);
    } else {
        // The projection of the colour on the line from the background to the foreground reference.
        a = std::abs(255 * (d1 * d1 - d2 * d2 + d0 * d0) / (2 * d0 * d0));
    }
    return std::min(a, 255);
}

CViewPoint CSmartAdjustTool::PlanePoint(int x, int y)
{
    CViewPoint p = ToImage(x, y);
    int w = 0, h = 0;
    if (m_pContext && m_pContext->selection) m_pContext->selection->GetSize(w, h);
    p.x = std::clamp(p.x, 0, std::max(0, w - 1));
    p.y = std::clamp(p.y, 0, std::max(0, h - 1));
    return p;
}

CPixel CSmartAdjustTool::MeanAround(CViewPoint p) const
{
    const CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    const COLImage* picture = s ? s->GetSourceImage() : nullptr;
    if (!picture || picture->IsNull()) return CPixel{0, 0, 0, 255};
    const int w = int(picture->GetWidth()), h = int(picture->GetHeight());
    int sum[3] = {0, 0, 0};
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
            const CPixel c =
                picture->GetPixel2(uint32_t(std::clamp(p.x + dx, 0, w - 1)), uint32_t(std::clamp(p.y + dy, 0, h - 1)));
            sum[0] += c.blue;
            sum[1] += c.green;
            sum[2] += c.red;
        }
    return CPixel{uint8_t(sum[0] / 9), uint8_t(sum[1] / 9), uint8_t(sum[2] / 9), 255};
}

int CSmartAdjustTool::OnSetCursor(int, int, int, int, int x, int y)
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    const CViewPoint p = PlanePoint(x, y);
    if (s && PlaneAt(s->GetInnerPlane(), p) == 255) {
        SetCursorRole(kCursorPicker);
        m_inBand = 0;
    } else if (s && PlaneAt(s->GetOuterPlane(), p) == 255) {
        SetCursorRole(kCursorPicker);
        m_inBand = 0;
    } else {
        SetCursorRole(kCursorBrush);
        m_inBand = 1;
    }
    return 1;
}

int CSmartAdjustTool::OnLButtonDown(uint32_t flags, int x, int y)
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    if (!s) return 0;
    const CViewPoint p = PlanePoint(x, y);
    if (PlaneAt(s->GetInnerPlane(), p) == 255) {
        m_prop.SetForeColor(MeanAround(p));
        return 0;
    }
    if (PlaneAt(s->GetOuterPlane(), p) == 255) {
        m_prop.SetBackColor(MeanAround(p));
        return 0;
    }
    if (!m_prop.IsForePicked() || !m_prop.IsBackPicked()) {
        m_pContext->Message("smartadjerr");
        return 0;
    }
    CPaintTool::OnLButtonDown(flags, x, y);
    m_painting2 = m_painting;
    return 0;
}

int CSmartAdjustTool::OnMouseMove(uint32_t flags, int x, int y)
{
    CPaintTool::OnMouseMove(flags, x, y);
    if (!m_painting2) {
        m_lastX = x;
        m_lastY = y;
    }
    return 0;
}

int CSmartAdjustTool::OnLButtonUp(uint32_t flags, int x, int y)
{
    if (!m_painting2) return 0;
    m_painting2 = 0;
    CPaintTool::OnLButtonUp(flags, x, y);
    if (m_pView) m_pView->Redraw();
    return 0;
}

int CSmartAdjustTool::OnKeyDown(uint32_t key, uint32_t)
{
    if (key == kKeyShift) m_prop.ForceByKey(kAdjustRaise);
    if (key == kKeyControl) m_prop.ForceByKey(kAdjustLower);
    return 0;
}

int CSmartAdjustTool::OnKeyUp(uint32_t key, uint32_t)
{
    if (key == kKeyShift || key == kKeyControl) m_prop.ReleaseKey();
    return 0;
}

int CSmartAdjustTool::DrawOverlay(IOverlayDC& dc, bool repainted)
{
    if (m_inBand) return CPaintTool::DrawOverlay(dc, repainted);
    // Over a contour the click picks a colour: no brush circle.
    CToolBase::DrawOverlay(dc, repainted);
    EraseOverlay(dc);
    return 0;
}

int CSmartAdjustTool::OnFrameDone()
{
    if (!m_active || !m_pView) return 0;
    COLImage* display = m_pView->GetDisplayBuffer();
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    if (!display || display->IsNull() || !s || !m_overlay.DuplicateFrom(display)) {
        m_pView->SetDisplayOverride(nullptr);
        return 0;
    }
    const COLImage* picture = s->GetSourceImage();
    const COLChannel* inner = s->GetInnerPlane();
    const COLChannel* outer = s->GetOuterPlane();
    int w = 0, h = 0;
    s->GetSize(w, h);
    if (picture && !picture->IsNull() && int(picture->GetWidth()) == w && int(picture->GetHeight()) == h && w > 0 &&
        h > 0) {
        // Both contour areas show the plain picture, the band the result over the chosen background.
        const CRect r = m_pView->GetImageRect();
        const int ow = int(m_overlay.GetWidth()), oh = int(m_overlay.GetHeight());
        for (int v = 0; v < oh; ++v) {
            CPixel* row = m_overlay.GetBuffer(0, uint32_t(v));
            for (int u = 0; u < ow; ++u) {
                CViewPoint p = ToImage(r.left + u, r.top + v);
                p.x = std::clamp(p.x, 0, w - 1);
                p.y = std::clamp(p.y, 0, h - 1);
                if (!PlaneAt(inner, p) && !PlaneAt(outer, p)) continue;
                CPixel c = picture->GetPixel2(uint32_t(p.x), uint32_t(p.y));
                c.alpha = 255;
                row[u] = c;
            }
        }
    }
    m_pView->SetDisplayOverride(&m_overlay);
    return 0;
}

int CSmartAdjustTool::OnActivate()
{
    m_active = true;
    OnFrameDone();
    if (m_pView) m_pView->Redraw();
    if (!CPaintTool::OnActivate()) {
        m_active = false;
        if (m_pView) m_pView->SetDisplayOverride(nullptr);
        return 0;
    }
    return 1;
}

int CSmartAdjustTool::OnDeactivate()
{
    // Off before the redraw: the canvas calls back into OnFrameDone while it renders.
    m_active = false;
    m_painting = 0;
    m_painting2 = 0;
    if (m_pView) {
        m_pView->SetDisplayOverride(nullptr);
        m_pView->Redraw();
    }
    // The stroke buffers stay: the next activation on the same canvas reuses them.
    return 1;
}

void CSmartAdjustTool::OnStrokeBegin()
{
    ClearStroke();
}

void CSmartAdjustTool::OnStrokeUpdate()
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    if (!s) return;
    COLChannel* mask = s->GetResultMask();
    COLImage* working = s->GetWorkingImage();
    const COLImage* picture = s->GetSourceImage();
    if (mask->IsNull()) return;
    const uint32_t w = mask->GetWidth(), h = mask->GetHeight();
    auto sameSize = [w, h](uint32_t cw, uint32_t ch) { return cw == w && ch == h; };
    if (!picture || picture->IsNull() || !sameSize(picture->GetWidth(), picture->GetHeight()) ||
        !sameSize(working->GetWidth(), working->GetHeight()) || !sameSize(m_stroke.GetWidth(), m_stroke.GetHeight()))
        return;
    const COLChannel* inner = s->GetInnerPlane();
    const COLChannel* outer = s->GetOuterPlane();
    const bool hasInner = !inner->IsNull() && sameSize(inner->GetWidth(), inner->GetHeight());
    const bool hasOuter = !outer->IsNull() && sameSize(outer->GetWidth(), outer->GetHeight());
    const CPixel fore = m_prop.GetForeColor(), back = m_prop.GetBackColor();
    const uint32_t mode = m_prop.GetMode();
    // The stroke is 0 outside what it has touched, and every touched pixel is walked again each frame.
    const CRect r = StrokeBounds();
    for (int y = r.top; y < r.bottom; ++y) {
        const uint8_t* st = m_stroke.GetBuffer(0, uint32_t(y));
        const uint8_t* in = hasInner ? inner->GetBuffer(0, uint32_t(y)) : nullptr;
        const uint8_t* out = hasOuter ? outer->GetBuffer(0, uint32_t(y)) : nullptr;
        const CPixel* pic = picture->GetBuffer(0, uint32_t(y));
        const CPixel* work = working->GetBuffer(0, uint32_t(y));
        uint8_t* m = mask->GetBuffer(0, uint32_t(y));
        for (int x = r.left; x < r.right; ++x) {
            const uint32_t sv = st[x];
            if (!sv || (in && in[x]) || (out && out[x])) continue;
            const uint32_t t = m_curve[PositionBetween(pic[x], fore, back)];
            const uint32_t a = work[x].alpha;
            if (mode == kAdjustRaise && t < a) continue;
            if (mode == kAdjustLower && t > a) continue;
            m[x] = uint8_t(((255 - sv) * m[x] + t * sv) / 255);
        }
    }
    working->ChannelFrom(mask, 3);
    s->RefreshPreview();
}

void CSmartAdjustTool::OnStrokeEnd()
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    if (s && m_pContext->selectionHistory && !s->GetResultMask()->IsNull())
        m_pContext->selectionHistory->AddStep(s, kStepChannel, kPlaneResult, m_tipKey);
}
