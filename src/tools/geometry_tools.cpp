#include "tools/geometry_tools.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "commands/history_sink.h"
#include "document/compose_document.h"
#include "document/layer.h"
#include "imaging/channel.h"

namespace {

// Handles are squares of 7 client pixels; a press within 4 pixels of a corner takes it.
constexpr int kHandleHalf = 3;
constexpr int kHitRadius = 4;
// Free corners keep this far from the opposite sides.
constexpr int kFreeGap = 4;

int Round(double v) { return int(std::floor(v + 0.5)); }

CViewPoint Turn(CViewPoint p, CViewPoint c, double angle)
{
    const double s = std::sin(angle), k = std::cos(angle);
    const double dx = p.x - c.x, dy = p.y - c.y;
    return {Round(c.x + dx * k - dy * s), Round(c.y + dx * s + dy * k)};
}

// Even-odd test of (x, y) against the closed polygon of n points.
template <typename P>
bool EvenOdd(const P* pts, int n, double x, double y)
{
    bool inside = false;
    for (int i = 0, j = n - 1; i < n; j = i++) {
        const double xi = pts[i].x, yi = pts[i].y, xj = pts[j].x, yj = pts[j].y;
        if ((yi > y) != (yj > y) && x < (xj - xi) * (y - yi) / (yj - yi) + xi) inside = !inside;
    }
    return inside;
}

// Replaces each "%d" of the format by the next number, in order; other text stays as it stands.
std::string FormatInts(const std::string& format, const int* values, int count)
{
    std::string out;
    int next = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] == '%' && i + 1 < format.size() && format[i + 1] == 'd') {
            out += next < count ? std::to_string(values[next++]) : std::string();
            ++i;
        } else {
            out += format[i];
        }
    }
    return out;
}

bool MaskHasPixels(const COLChannel& mask) { return !mask.IsNull() && !mask.IsAllZero(); }

} // namespace

// ---- CropShape ---------------------------------------------------------------------------------------------------

void CropShape::SetRect(int left, int top, int right, int bottom)
{
    if (left > right) std::swap(left, right);
    if (top > bottom) std::swap(top, bottom);
    angle = 0.0;
    centre = {(left + right) / 2, (top + bottom) / 2};
    unrotated[0] = centre;
    unrotated[1] = {left, top};
    unrotated[2] = {right, top};
    unrotated[3] = {right, bottom};
    unrotated[4] = {left, bottom};
    UpdateCorners();
}

void CropShape::UpdateCorners()
{
    for (int i = 0; i < 4; ++i) corners[i] = angle == 0.0 ? unrotated[i + 1] : Turn(unrotated[i + 1], centre, angle);
}

CViewPoint CropShape::Unrotate(CViewPoint p) const { return angle == 0.0 ? p : Turn(p, centre, -angle); }

void CropShape::GetCorners(WarpCorner (&out)[4]) const
{
    for (int i = 0; i < 4; ++i) out[i] = {corners[i].x, corners[i].y};
}

bool CropShape::Contains(double x, double y) const { return EvenOdd(corners, 4, x, y); }

bool CropShape::IsSound() const
{
    // Twice the area, positive for corners that run clockwise on screen as they should.
    long long area = 0;
    for (int i = 0; i < 4; ++i) {
        const CViewPoint& a = corners[i];
        const CViewPoint& b = corners[(i + 1) % 4];
        area += (long long)a.x * b.y - (long long)b.x * a.y;
    }
    if (area <= 0) return false;
    return Contains((corners[0].x + corners[2].x) / 2.0, (corners[0].y + corners[2].y) / 2.0) &&
           Contains((corners[1].x + corners[3].x) / 2.0, (corners[1].y + corners[3].y) / 2.0);
}

// ---- CPropCrop ---------------------------------------------------------------------------------------------------

bool CPropCrop::SetFreeShape(bool on)
{
    if (on && m_choice != kRatioNone) return false;
    m_freeShape = on;
    Apply();
    return true;
}

bool CPropCrop::SetRatioChoice(int choice)
{
    if (choice < kRatioNone || choice > kRatioCustom) return false;
    if (choice != kRatioNone && m_freeShape) return false;
    m_choice = choice;
    Apply();
    return true;
}

bool CPropCrop::SetCustomRatio(int width, int height)
{
    if (width < 1 || height < 1 || width > 20000 || height > 20000 || m_freeShape) return false;
    m_customWidth = width;
    m_customHeight = height;
    m_choice = kRatioCustom;
    Apply();
    return true;
}

double CPropCrop::LockedRatio(int originalWidth, int originalHeight) const
{
    switch (m_choice) {
    case kRatioOriginal: return originalHeight > 0 ? double(originalWidth) / originalHeight : 0.0;
    case kRatio4x3: return 4.0 / 3.0;
    case kRatio3x4: return 3.0 / 4.0;
    case kRatio3x2: return 3.0 / 2.0;
    case kRatio2x3: return 2.0 / 3.0;
    case kRatioCustom: return double(m_customWidth) / m_customHeight;
    default: return 0.0;
    }
}

void CPropCrop::Apply()
{
    if (m_pOwner) m_pOwner->OnOptionsChanged();
    Changed();
}

// ---- CCropTool ---------------------------------------------------------------------------------------------------

CCropTool::CCropTool(CToolContext* context, const char* tipKey, const char* helpKey, uint32_t iconId)
    : CToolBase(context, tipKey, helpKey, iconId)
{
    m_pOptionPanel = &m_options;
    m_options.Attach(this);
    m_cursor = kCursorCrop;
}

bool CCropTool::DocumentSize(int& width, int& height) const
{
    width = height = 0;
    if (!m_pContext || !m_pContext->document) return false;
    width = m_pContext->document->GetWidth();
    height = m_pContext->document->GetHeight();
    return width > 0 && height > 0;
}

void CCropTool::TakeOptions()
{
    int w = 0, h = 0;
    DocumentSize(w, h);
    m_shape.imageWidth = w;
    m_shape.imageHeight = h;
    m_shape.freeShape = m_options.GetFreeShape() ? 1 : 0;
    m_shape.rotated = m_shape.freeShape;
    const double ratio = m_options.LockedRatio(w, h);
    m_shape.keepRatio = !m_shape.freeShape && ratio > 0.0 ? 1 : 0;
    m_shape.ratio = ratio > 0.0 ? ratio : 1.0;
}

int CCropTool::OnActivate()
{
    ClearFrame();
    TakeOptions();
    SetCursorRole(kCursorCrop);
    return 1;
}

int CCropTool::OnDeactivate()
{
    // Leaving with a frame drops it: nothing changes.
    ClearFrame();
    return 1;
}

void CCropTool::OnOptionsChanged()
{
    ClearFrame();
    TakeOptions();
}

void CCropTool::ClearFrame()
{
    const bool had = m_state != 0 || !m_dimmed.IsNull();
    m_state = 0;
    m_grab = kGrabNone;
    m_shape.handle = 0;
    if (!had) return;
    m_dimmed.Free();
    if (m_pView) {
        m_pView->SetDisplayOverride(nullptr);
        m_pView->Redraw();
    }
    if (m_pContext) m_pContext->Status(std::string());
}

void CCropTool::ClipToImage(CViewPoint& p) const
{
    p.x = std::clamp(p.x, 0, std::max(0, m_shape.imageWidth));
    p.y = std::clamp(p.y, 0, std::max(0, m_shape.imageHeight));
}

int CCropTool::HitTest(CViewPoint image, CViewPoint client, int& corner) const
{
    corner = -1;
    if (m_state < 2) return kGrabNone;
    // The nearest corner within the radius: corners close together on screen each stay reachable.
    int best = 2 * kHitRadius + 1;
    for (int i = 0; i < 4; ++i) {
        const CViewPoint c = ToClient(m_shape.corners[i].x, m_shape.corners[i].y);
        const int dx = std::abs(c.x - client.x), dy = std::abs(c.y - client.y);
        if (dx <= kHitRadius && dy <= kHitRadius && dx + dy < best) {
            best = dx + dy;
            corner = i;
        }
    }
    if (corner >= 0) return kGrabCorner;
    if (m_shape.Contains(image.x, image.y)) return kGrabInside;
    return kGrabNone;
}

int CCropTool::OnLButtonDown(uint32_t, int x, int y)
{
    int w = 0, h = 0;
    if (!DocumentSize(w, h)) return 0;
    m_shape.imageWidth = w;
    m_shape.imageHeight = h;
    const CViewPoint p = ToImage(x, y);
    m_lastClientX = x;
    m_lastClientY = y;
    int corner = -1;
    m_grab = HitTest(p, {x, y}, corner);
    if (m_grab == kGrabNone && m_state >= 2 && m_shape.rotated && m_rotateOutside)
        m_grab = kGrabRotate;
    if (m_grab != kGrabNone) {
        m_state = 3;
        m_shape.handle = corner + 1;
        m_grabPoint = p;
        m_grabCentre = m_shape.centre;
        std::copy(m_shape.unrotated, m_shape.unrotated + 5, m_grabUnrotated);
        m_grabAngle = m_shape.angle;
        return 0;
    }
    // A new frame: the old one goes.
    if (m_state != 0) ClearFrame();
    TakeOptions();
    m_state = 1;
    m_start = m_end = p;
    ClipToImage(m_start);
    ClipToImage(m_end);
    if (m_pView) m_pView->DrawOverlayNow();
    return 0;
}

void CCropTool::DragCorner(int corner, CViewPoint p)
{
    CViewPoint q = m_shape.Unrotate(p);
    if (!m_shape.rotated) ClipToImage(q);
    const CViewPoint o = m_shape.unrotated[(corner + 2) % 4 + 1];
    const int sx = (corner == 0 || corner == 3) ? -1 : 1, sy = (corner == 0 || corner == 1) ? -1 : 1;
    // At least one pixel from the opposite sides.
    if (sx < 0) q.x = std::min(q.x, o.x - 1);
    else q.x = std::max(q.x, o.x + 1);
    if (sy < 0) q.y = std::min(q.y, o.y - 1);
    else q.y = std::max(q.y, o.y + 1);
    if (m_shape.keepRatio && m_shape.ratio > 0.0) {
        int hh = std::abs(q.y - o.y);
        int ww = std::max(1, Round(hh * m_shape.ratio));
        q.x = o.x + sx * ww;
        if (!m_shape.rotated && (q.x < 0 || q.x > m_shape.imageWidth)) {
            // The width the picture leaves decides, and the height follows from it.
            q.x = std::clamp(q.x, 0, m_shape.imageWidth);
            ww = std::max(1, std::abs(q.x - o.x));
            hh = std::max(1, Round(ww / m_shape.ratio));
            q.y = o.y + sy * hh;
        }
    }
    const CViewPoint oldCentre = m_shape.centre;
    const int l = std::min(q.x, o.x), r = std::max(q.x, o.x), t = std::min(q.y, o.y), b = std::max(q.y, o.y);
    m_shape.unrotated[1] = {l, t};
    m_shape.unrotated[2] = {r, t};
    m_shape.unrotated[3] = {r, b};
    m_shape.unrotated[4] = {l, b};
    if (m_shape.angle == 0.0) {
        m_shape.centre = m_shape.unrotated[0] = {(l + r) / 2, (t + b) / 2};
        m_shape.UpdateCorners();
        return;
    }
    // The frame turns about its own centre: the corners as they now show about the old centre give the new
    // centre, and the unrotated frame is taken again about it, so the opposite corner stays where it is.
    m_shape.centre = oldCentre;
    m_shape.UpdateCorners();
    int sumX = 0, sumY = 0;
    for (const CViewPoint& c : m_shape.corners) {
        sumX += c.x;
        sumY += c.y;
    }
    m_shape.centre = m_shape.unrotated[0] = {Round(sumX / 4.0), Round(sumY / 4.0)};
    for (int i = 0; i < 4; ++i) m_shape.unrotated[i + 1] = Turn(m_shape.corners[i], m_shape.centre, -m_shape.angle);
    m_shape.UpdateCorners();
}

void CCropTool::DragFreeCorner(int corner, CViewPoint p)
{
    CViewPoint q = m_shape.Unrotate(p);
    CViewPoint* u = m_shape.unrotated; // u[1..4]
    const int minX23 = std::min(u[2].x, u[3].x), maxX14 = std::max(u[1].x, u[4].x);
    const int minY34 = std::min(u[3].y, u[4].y), maxY12 = std::max(u[1].y, u[2].y);
    switch (corner) {
    case 0: q.x = std::min(q.x, minX23 - kFreeGap); q.y = std::min(q.y, minY34 - kFreeGap); break;
    case 1: q.x = std::max(q.x, maxX14 + kFreeGap); q.y = std::min(q.y, minY34 - kFreeGap); break;
    case 2: q.x = std::max(q.x, maxX14 + kFreeGap); q.y = std::max(q.y, maxY12 + kFreeGap); break;
    default: q.x = std::min(q.x, minX23 - kFreeGap); q.y = std::max(q.y, maxY12 + kFreeGap); break;
    }
    const CViewPoint before = u[corner + 1];
    u[corner + 1] = q;
    m_shape.UpdateCorners();
    // A shape that has folded (a diagonal's midpoint outside it) takes the move back.
    if (!m_shape.IsSound()) {
        u[corner + 1] = before;
        m_shape.UpdateCorners();
    }
}

void CCropTool::MoveFrame(int dx, int dy)
{
    if (!m_shape.rotated) {
        int l = m_shape.corners[0].x, r = l, t = m_shape.corners[0].y, b = t;
        for (const CViewPoint& c : m_shape.corners) {
            l = std::min(l, c.x);
            r = std::max(r, c.x);
            t = std::min(t, c.y);
            b = std::max(b, c.y);
        }
        // The frame stays within the picture.
        dx = std::clamp(dx, -l, std::max(-l, m_shape.imageWidth - r));
        dy = std::clamp(dy, -t, std::max(-t, m_shape.imageHeight - b));
    }
    m_shape.centre.x += dx;
    m_shape.centre.y += dy;
    for (CViewPoint& u : m_shape.unrotated) {
        u.x += dx;
        u.y += dy;
    }
    if (!m_shape.rotated) {
        // A frame larger than the picture (a locked ratio after the picture changed) is cut back on the other
        // axis by half the excess on each side.
        CViewPoint* u = m_shape.unrotated;
        const int excessX = (u[2].x - u[1].x) - m_shape.imageWidth, excessY = (u[4].y - u[1].y) - m_shape.imageHeight;
        if (excessX > 0 || excessY > 0) {
            int l = std::max(u[1].x, 0), r = std::min(u[2].x, m_shape.imageWidth);
            int t = std::max(u[1].y, 0), b = std::min(u[4].y, m_shape.imageHeight);
            if (m_shape.keepRatio && excessX > 0) {
                const int cut = Round(excessX / m_shape.ratio) / 2;
                t += cut;
                b -= cut;
            } else if (m_shape.keepRatio && excessY > 0) {
                const int cut = Round(excessY * m_shape.ratio) / 2;
                l += cut;
                r -= cut;
            }
            if (r > l && b > t) m_shape.SetRect(l, t, r, b);
        }
    }
    m_shape.UpdateCorners();
}

int CCropTool::OnMouseMove(uint32_t, int x, int y)
{
    m_lastClientX = x;
    m_lastClientY = y;
    const CViewPoint p = ToImage(x, y);
    if (m_state == 1) {
        m_end = p;
        ClipToImage(m_end);
        if (m_shape.keepRatio && m_shape.ratio > 0.0) {
            // The width follows from the height by the ratio, and is cut back (with the height) at the edge.
            const int sx = m_end.x < m_start.x ? -1 : 1, sy = m_end.y < m_start.y ? -1 : 1;
            int hh = std::abs(m_end.y - m_start.y);
            int ww = Round(hh * m_shape.ratio);
            const int room = sx < 0 ? m_start.x : m_shape.imageWidth - m_start.x;
            if (ww > room) {
                ww = room;
                hh = Round(ww / m_shape.ratio);
            }
            m_end = {m_start.x + sx * ww, m_start.y + sy * hh};
        }
        const CViewPoint a = m_start, b = m_end;
        m_shape.SetRect(a.x, a.y, b.x, b.y);
        if (m_pContext) m_pContext->Status(SizeText());
        if (m_pView) m_pView->DrawOverlayNow();
        return 0;
    }
    if (m_state == 3) {
        if (m_grab == kGrabCorner) {
            if (m_shape.freeShape)
                DragFreeCorner(m_shape.handle - 1, p);
            else
                DragCorner(m_shape.handle - 1, p);
        } else if (m_grab == kGrabInside) {
            m_shape.centre = m_grabCentre;
            std::copy(m_grabUnrotated, m_grabUnrotated + 5, m_shape.unrotated);
            m_shape.UpdateCorners();
            MoveFrame(p.x - m_grabPoint.x, p.y - m_grabPoint.y);
        } else if (m_grab == kGrabRotate) {
            const double a0 = std::atan2(m_grabPoint.y - m_shape.centre.y, m_grabPoint.x - m_shape.centre.x);
            const double a1 = std::atan2(p.y - m_shape.centre.y, p.x - m_shape.centre.x);
            m_shape.angle = m_grabAngle + (a1 - a0);
            m_shape.UpdateCorners();
        }
        FrameChanged();
        return 0;
    }
    UpdateCursorAt({x, y});
    return 0;
}

int CCropTool::OnLButtonUp(uint32_t, int x, int y)
{
    if (m_state == 1) {
        OnMouseMove(0, x, y);
        if (m_start.x == m_end.x || m_start.y == m_end.y) {
            // A click without a frame.
            m_state = 0;
            if (m_pView) m_pView->DrawOverlayNow();
            if (m_pContext) m_pContext->Status(std::string());
            return 0;
        }
        m_shape.SetRect(m_start.x, m_start.y, m_end.x, m_end.y);
        m_state = 2;
        FrameChanged();
    } else if (m_state == 3) {
        m_state = 2;
        m_grab = kGrabNone;
        m_shape.handle = 0;
        FrameChanged();
    }
    return 0;
}

int CCropTool::OnLButtonDblClk(uint32_t, int, int)
{
    if (m_state == 2) ApplyFrame();
    return 0;
}

int CCropTool::OnKeyDown(uint32_t key, uint32_t)
{
    if (m_state != 2) return 0;
    if (key == kKeyReturn) {
        ApplyFrame();
        return 1;
    }
    const double zoom = m_pView ? m_pView->GetZoom() : 1.0;
    const int step = std::max(1, int(1.0 / (zoom > 0 ? zoom : 1.0)));
    int dx = 0, dy = 0;
    switch (key) {
    case kKeyLeft: dx = -step; break;
    case kKeyRight: dx = step; break;
    case kKeyUp: dy = -step; break;
    case kKeyDown: dy = step; break;
    default: return 0;
    }
    MoveFrame(dx, dy);
    FrameChanged();
    return 1;
}

void CCropTool::UpdateCursorAt(CViewPoint client)
{
    const CViewPoint p = ToImage(client.x, client.y);
    int corner = -1;
    int role = kCursorCrop;
    int grab = HitTest(p, client, corner);
    if (grab == kGrabNone && m_state >= 2 && m_shape.rotated && m_rotateOutside)
        grab = kGrabRotate;
    if (grab == kGrabCorner) {
        // The diagonal the corner shows on: top-left and bottom-right against the other two, by the centre.
        const CViewPoint c = m_shape.corners[corner];
        const bool nwse = (c.x < m_shape.centre.x) == (c.y < m_shape.centre.y);
        role = nwse ? kCursorCornerNwSe : kCursorCornerNeSw;
    } else if (grab == kGrabInside) {
        role = kCursorMoveFrame;
    } else if (grab == kGrabRotate) {
        role = kCursorRotate;
    }
    SetCursorRole(role);
}

int CCropTool::OnSetCursor(int, int, int, int, int x, int y)
{
    if (m_state != 3) UpdateCursorAt({x, y});
    return 1;
}

int CCropTool::OnTimer()
{
    // During the first drag a pointer outside the visible part scrolls the view.
    if (m_state != 1 || !m_pView) return 0;
    const CRect r = m_pView->GetImageRect();
    const double zoom = m_pView->GetZoom() > 0 ? m_pView->GetZoom() : 1.0;
    const int step = std::max(1, int(10.0 / zoom));
    const int dx = m_lastClientX < r.left ? -step : m_lastClientX >= r.right ? step : 0;
    const int dy = m_lastClientY < r.top ? -step : m_lastClientY >= r.bottom ? step : 0;
    if (dx == 0 && dy == 0) return 0;
    const CViewPoint o = m_pView->GetOrigin();
    m_pView->SetOrigin(nullptr, o.x + dx, o.y + dy, true);
    OnMouseMove(kMkLButton, m_lastClientX, m_lastClientY);
    return 0;
}

int CCropTool::OnFrameDone()
{
    // The view has a new picture: the dimmed copy is made again from it.
    if (m_state >= 2) BuildPreview();
    return 0;
}

void CCropTool::FrameChanged()
{
    BuildPreview();
    if (m_pContext && m_state >= 1) m_pContext->Status(SizeText());
    if (m_pView) m_pView->DrawOverlayNow();
}

void CCropTool::BuildPreview()
{
    if (!m_pView || m_state < 2) return;
    COLImage* display = m_pView->GetDisplayBuffer();
    if (!display || display->IsNull() || !m_dimmed.DuplicateFrom(display)) return;
    const CRect r = m_pView->GetImageRect();
    CViewPoint pts[4];
    for (int i = 0; i < 4; ++i) {
        const CViewPoint c = ToClient(m_shape.corners[i].x, m_shape.corners[i].y);
        pts[i] = {c.x - r.left, c.y - r.top};
    }
    const int w = int(m_dimmed.GetWidth()), h = int(m_dimmed.GetHeight());
    for (int y = 0; y < h; ++y) {
        // The crossings of the row's centre line with the four edges; the row is inside between pairs of them.
        double xs[4];
        int n = 0;
        const double cy = y + 0.5;
        for (int i = 0, j = 3; i < 4; j = i++)
            if ((pts[i].y > cy) != (pts[j].y > cy))
                xs[n++] = pts[i].x + double(pts[j].x - pts[i].x) * (cy - pts[i].y) / double(pts[j].y - pts[i].y);
        for (int i = 1; i < n; ++i)
            for (int j = i; j > 0 && xs[j - 1] > xs[j]; --j) std::swap(xs[j - 1], xs[j]);
        CPixel* row = m_dimmed.GetBuffer(0, uint32_t(y));
        int span = 0;
        for (int x = 0; x < w; ++x) {
            const double cx = x + 0.5;
            while (span < n && xs[span] <= cx) ++span;
            if (span % 2 == 1) continue;
            row[x].red >>= 1;
            row[x].green >>= 1;
            row[x].blue >>= 1;
        }
    }
    m_pView->SetDisplayOverride(&m_dimmed);
}

int CCropTool::DrawOverlay(IOverlayDC& dc, bool repainted)
{
    CToolBase::DrawOverlay(dc, repainted);
    EraseOverlay(dc);
    if (m_state == 0) return 0;
    CViewPoint c[4];
    for (int i = 0; i < 4; ++i) c[i] = ToClient(m_shape.corners[i].x, m_shape.corners[i].y);
    for (int i = 0; i < 4; ++i) AddOverlayLine(dc, c[i].x, c[i].y, c[(i + 1) % 4].x, c[(i + 1) % 4].y);
    if (m_state >= 2)
        for (const CViewPoint& h : c)
            AddOverlayRect(dc, h.x - kHandleHalf, h.y - kHandleHalf, h.x + kHandleHalf, h.y + kHandleHalf);
    return 0;
}

bool CCropTool::SetCorners(const CViewPoint (&corners)[4])
{
    int w = 0, h = 0;
    if (!DocumentSize(w, h)) return false;
    m_shape.imageWidth = w;
    m_shape.imageHeight = h;
    int l = corners[0].x, r = l, t = corners[0].y, b = t;
    for (const CViewPoint& c : corners) {
        l = std::min(l, c.x);
        r = std::max(r, c.x);
        t = std::min(t, c.y);
        b = std::max(b, c.y);
    }
    m_shape.angle = 0.0;
    m_shape.centre = m_shape.unrotated[0] = {(l + r) / 2, (t + b) / 2};
    for (int i = 0; i < 4; ++i) m_shape.unrotated[i + 1] = corners[i];
    m_shape.UpdateCorners();
    m_state = 2;
    FrameChanged();
    return true;
}

std::string CCropTool::SizeText() const
{
    int l = m_shape.corners[0].x, r = l, t = m_shape.corners[0].y, b = t;
    for (const CViewPoint& c : m_shape.corners) {
        l = std::min(l, c.x);
        r = std::max(r, c.x);
        t = std::min(t, c.y);
        b = std::max(b, c.y);
    }
    const int values[6] = {r - l, b - t, l, m_shape.imageWidth - r, t, m_shape.imageHeight - b};
    return FormatInts(m_pContext ? m_pContext->Text("cropsize") : std::string("%d x %d"), values, 6);
}

bool CCropTool::ApplyFrame()
{
    if (m_state != 2 || !m_pContext || !m_pContext->document) return false;
    const bool ok = m_shape.freeShape ? ApplyFreeShape() : ApplyRectangle();
    if (!ok) return false;
    ClearFrame();
    // A finished crop leaves the tool.
    if (m_pContext->leaveTool) m_pContext->leaveTool();
    return true;
}

bool CCropTool::ApplyRectangle()
{
    CComposeDocument& doc = *m_pContext->document;
    int l = m_shape.corners[0].x, r = l, t = m_shape.corners[0].y, b = t;
    for (const CViewPoint& c : m_shape.corners) {
        l = std::min(l, c.x);
        r = std::max(r, c.x);
        t = std::min(t, c.y);
        b = std::max(b, c.y);
    }
    if (r <= l || b <= t || doc.GetLayerCount() == 0) return false;
    // The base takes the rectangle (the current colour where it reaches beyond the picture), the layers above
    // shift with it, and the selection goes.
    if (!doc.ChangeCanvas(r - l, b - t, -l, -t, m_pContext->Foreground().Word())) {
        m_pContext->Message("expect");
        return false;
    }
    doc.Refresh();
    if (m_pContext->composeHistory) m_pContext->composeHistory->AddStep(&doc, kStepWholeDocument, 0, m_tipKey);
    return true;
}

bool CCropTool::ApplyFreeShape()
{
    CComposeDocument& doc = *m_pContext->document;
    if (!m_shape.IsSound()) {
        m_pContext->Message("transbad");
        return false;
    }
    auto length = [](CViewPoint a, CViewPoint b) { return std::hypot(double(b.x - a.x), double(b.y - a.y)); };
    const CViewPoint* c = m_shape.corners;
    const int width = int(std::max(length(c[0], c[1]), length(c[3], c[2])));
    const int height = int(std::max(length(c[0], c[3]), length(c[1], c[2])));
    if (width < 1 || height < 1) return false;
    if (!doc.FlattenAll()) {
        m_pContext->Message("except");
        return false;
    }
    WarpCorner corners[4];
    m_shape.GetCorners(corners);
    FitDirectWarp(corners, m_params.xCoef, m_params.yCoef);
    m_params.width = width;
    m_params.height = height;
    m_params.fillColour = m_pContext->Foreground();
    m_params.mode = 0;
    m_params.originX = m_params.originY = 0;
    COLImage result;
    CLayer* base = doc.GetLayer(0);
    m_warp.SetImages(&base->m_image, &result);
    const long status = m_warp.Process(&m_params);
    m_warp.SetImages(nullptr, nullptr);
    if (status != kOk) {
        // The flattening stays: it is the document the user sees now.
        doc.Refresh();
        m_pContext->Message("expect");
        return false;
    }
    {
        CStackLock lock(doc);
        base->m_image = std::move(result);
        doc.GetSelectionMask().Free();
    }
    doc.SyncSizeToBase();
    doc.Refresh();
    if (m_pContext->composeHistory) m_pContext->composeHistory->AddStep(&doc, kStepWholeDocument, 0, m_tipKey);
    return true;
}

// ---- CTransformTool ----------------------------------------------------------------------------------------------

CTransformTool::CTransformTool(CToolContext* context) : CCropTool(context, "transtip", "helptrans", 189)
{
    m_rotateOutside = true;
    // The layer keeps its proportions unless the panel says otherwise.
    m_options.SetRatioChoice(CPropCrop::kRatioOriginal);
}

bool CTransformTool::Begin(bool showMessage)
{
    CComposeDocument* doc = m_pContext ? m_pContext->document : nullptr;
    const int index = doc ? doc->GetCurrentIndex() : 0;
    CLayer* layer = doc ? doc->GetCurrentLayer() : nullptr;
    if (!layer || index <= 0 || layer->m_image.IsNull()) {
        if (showMessage && m_pContext) m_pContext->Message("transerr");
        return false;
    }
    {
        CStackLock lock(*doc);
        layer->TrimToContent();
    }
    m_pLayer = layer;
    TakeOptions();
    const int w = int(layer->m_image.GetWidth()), h = int(layer->m_image.GetHeight());
    m_shape.rotated = 1;
    const double ratio = m_options.LockedRatio(w, h);
    m_shape.keepRatio = !m_shape.freeShape && ratio > 0.0 ? 1 : 0;
    m_shape.ratio = ratio > 0.0 ? ratio : 1.0;
    m_shape.SetRect(layer->m_x, layer->m_y, layer->m_x + w, layer->m_y + h);
    m_state = 2;
    Hide(true);
    FrameChanged();
    return true;
}

void CTransformTool::Hide(bool hidden)
{
    CComposeDocument* doc = m_pContext->document;
    if (!m_pLayer || doc->IndexOfLayer(m_pLayer) < 0) return;
    m_pLayer->m_visible = hidden ? 0 : 1;
    doc->Refresh();
    m_generation = doc->GetModificationCount();
}

void CTransformTool::End()
{
    if (m_pLayer) Hide(false);
    m_pLayer = nullptr;
    m_fitted = false;
    ClearFrame();
}

bool CTransformTool::StillHeld() const
{
    const CComposeDocument* doc = m_pContext ? m_pContext->document : nullptr;
    return doc && m_pLayer && doc->IndexOfLayer(m_pLayer) == doc->GetCurrentIndex() &&
           doc->GetCurrentIndex() > 0 && doc->GetModificationCount() == m_generation;
}

int CTransformTool::OnActivate()
{
    m_pLayer = nullptr;
    CCropTool::OnActivate();
    SetCursorRole(kCursorMoveFrame);
    return Begin(true) ? 1 : 0;
}

int CTransformTool::OnDeactivate()
{
    End();
    return 1;
}

void CTransformTool::OnOptionsChanged()
{
    // The frame starts again from the layer as it stands.
    if (!m_pLayer) {
        TakeOptions();
        return;
    }
    const bool held = StillHeld();
    End();
    if (held) Begin(false);
}

int CTransformTool::OnLButtonDown(uint32_t flags, int x, int y)
{
    // After an apply, or when the document changed under the frame (undo, another layer), the frame is taken
    // again from the current layer.
    if (m_state == 0 || !StillHeld()) {
        End();
        if (!Begin(true)) return 0;
    }
    return CCropTool::OnLButtonDown(flags, x, y);
}

bool CTransformTool::SetCorners(const CViewPoint (&corners)[4])
{
    if (!m_pLayer || m_state < 2 || !StillHeld()) return false;
    return CCropTool::SetCorners(corners);
}

void CTransformTool::BuildPreview()
{
    if (!m_pView || m_state < 2 || !m_pLayer || !StillHeld()) return;
    COLImage* display = m_pView->GetDisplayBuffer();
    if (!display || display->IsNull()) return;
    WarpCorner corners[4];
    m_shape.GetCorners(corners);
    m_fitted = m_shape.IsSound() && FitInverseWarp(corners, m_uCoef, m_vCoef);
    if (!m_dimmed.DuplicateFrom(display)) return;
    if (m_fitted) {
        const COLImage& src = m_pLayer->m_image;
        const int sw = int(src.GetWidth()), sh = int(src.GetHeight());
        const CViewPoint origin = m_pView->GetOrigin();
        const double zoom = m_pView->GetZoom() > 0 ? m_pView->GetZoom() : 1.0;
        // Only the display pixels within the shape's box can show the layer.
        int l = corners[0].x, rr = l, t = corners[0].y, b = t;
        for (const WarpCorner& c : corners) {
            l = std::min(l, c.x);
            rr = std::max(rr, c.x);
            t = std::min(t, c.y);
            b = std::max(b, c.y);
        }
        const int w = int(m_dimmed.GetWidth()), h = int(m_dimmed.GetHeight());
        const int x0 = std::clamp(int(std::floor((l - origin.x) * zoom)) - 1, 0, w);
        const int x1 = std::clamp(int(std::ceil((rr - origin.x) * zoom)) + 1, 0, w);
        const int y0 = std::clamp(int(std::floor((t - origin.y) * zoom)) - 1, 0, h);
        const int y1 = std::clamp(int(std::ceil((b - origin.y) * zoom)) + 1, 0, h);
        for (int y = y0; y < y1; ++y) {
            const double dy = origin.y + (y + 0.5) / zoom - 0.5;
            CPixel* row = m_dimmed.GetBuffer(0, uint32_t(y));
            for (int x = x0; x < x1; ++x) {
                const double dx = origin.x + (x + 0.5) / zoom - 0.5;
                const double u = EvaluateWarpPolynomial(m_uCoef, dx, dy), v = EvaluateWarpPolynomial(m_vCoef, dx, dy);
                if (!(u > 0.0 && u < 1.0 && v > 0.0 && v < 1.0)) continue;
                const int sx = std::min(int(u * sw), sw - 1), sy = std::min(int(v * sh), sh - 1);
                const CPixel s = src.GetPixel2(uint32_t(sx), uint32_t(sy));
                const int a = s.alpha;
                row[x].red = uint8_t((row[x].red * (255 - a) + s.red * a) >> 8);
                row[x].green = uint8_t((row[x].green * (255 - a) + s.green * a) >> 8);
                row[x].blue = uint8_t((row[x].blue * (255 - a) + s.blue * a) >> 8);
            }
        }
    }
    m_pView->SetDisplayOverride(&m_dimmed);
}

bool CTransformTool::ApplyFrame()
{
    if (m_state != 2 || !m_pContext || !m_pContext->document) return false;
    CComposeDocument& doc = *m_pContext->document;
    if (!StillHeld()) {
        End();
        return false;
    }
    WarpCorner corners[4];
    m_shape.GetCorners(corners);
    double u[6], v[6];
    if (!m_shape.IsSound() || !FitInverseWarp(corners, u, v)) {
        // Corners that cross give no map: the layer stays as it was and the frame stays for another try.
        m_pContext->Message("transbad");
        return false;
    }
    int minX = 20000, minY = 20000, maxX = -20000, maxY = -20000;
    for (const WarpCorner& c : corners) {
        minX = std::min(minX, c.x);
        minY = std::min(minY, c.y);
        maxX = std::max(maxX, c.x);
        maxY = std::max(maxY, c.y);
    }
    std::copy(u, u + 6, m_params.xCoef);
    std::copy(v, v + 6, m_params.yCoef);
    m_params.width = maxX - minX + 2;
    m_params.height = maxY - minY + 2;
    m_params.fillColour = m_pContext->Foreground();
    m_params.mode = 1;
    m_params.originX = minX - 1;
    m_params.originY = minY - 1;
    COLImage result;
    m_warp.SetImages(&m_pLayer->m_image, &result);
    const long status = m_warp.Process(&m_params);
    m_warp.SetImages(nullptr, nullptr);
    if (status != kOk) {
        m_pContext->Message("expect");
        return false;
    }
    {
        CStackLock lock(doc);
        m_pLayer->m_image = std::move(result);
        m_pLayer->m_x = minX - 1;
        m_pLayer->m_y = minY - 1;
        m_pLayer->TrimToContent();
        m_pLayer->m_visible = 1;
    }
    const int index = doc.IndexOfLayer(m_pLayer);
    m_pLayer = nullptr;
    m_fitted = false;
    doc.Refresh();
    ClearFrame();
    if (m_pContext->composeHistory) m_pContext->composeHistory->AddStep(&doc, kStepLayerHeaderRegion, index, m_tipKey);
    return true;
}

// ---- CMoveTool ---------------------------------------------------------------------------------------------------

CMoveTool::CMoveTool(CToolContext* context) : CToolBase(context, "movtooltip", "movtoolhelp", 208)
{
    m_pOptionPanel = &m_panel;
    m_cursor = kCursorMove;
}

int CMoveTool::OnActivate()
{
    m_pMoving = nullptr;
    m_dragging = false;
    m_dirty = false;
    SetCursorRole(kCursorMove);
    return 1;
}

int CMoveTool::OnDeactivate()
{
    FlushMove();
    m_pMoving = nullptr;
    m_dragging = false;
    return 1;
}

bool CMoveTool::HasSelection() const
{
    return m_pContext && m_pContext->document && MaskHasPixels(m_pContext->document->GetSelectionMask());
}

void CMoveTool::NoteGeneration()
{
    if (m_pContext && m_pContext->document) m_generation = m_pContext->document->GetModificationCount();
}

void CMoveTool::FlushMove()
{
    if (!m_dirty || !m_pContext || !m_pContext->document) return;
    m_dirty = false;
    CComposeDocument& doc = *m_pContext->document;
    const int index = doc.IndexOfLayer(m_pMoving);
    if (index <= 0) return;
    doc.Refresh();
    if (m_pContext->composeHistory) m_pContext->composeHistory->AddStep(&doc, kStepLayerHeader, index, m_tipKey);
    NoteGeneration();
}

bool CMoveTool::LiftSelection()
{
    CComposeDocument& doc = *m_pContext->document;
    const int current = doc.GetCurrentIndex();
    CLayer* layer = doc.GetCurrentLayer();
    COLChannel& mask = doc.GetSelectionMask();
    if (!layer || layer->m_image.IsNull() || mask.IsNull()) return false;
    const int dw = doc.GetWidth(), dh = doc.GetHeight();
    if (int(mask.GetWidth()) != dw || int(mask.GetHeight()) != dh) return false;
    const int lw = int(layer->m_image.GetWidth()), lh = int(layer->m_image.GetHeight());
    const CPixel colour = m_pContext->Foreground();
    // The part of the layer over the document.
    const int x0 = std::max(0, layer->m_x), y0 = std::max(0, layer->m_y);
    const int x1 = std::min(dw, layer->m_x + lw), y1 = std::min(dh, layer->m_y + lh);

    if (current > 0) {
        // A selection that holds every visible pixel of an upper layer fully moves the layer itself.
        bool whole = layer->m_x >= 0 && layer->m_y >= 0 && layer->m_x + lw <= dw && layer->m_y + lh <= dh;
        for (int y = 0; whole && y < lh; ++y)
            for (int x = 0; x < lw; ++x) {
                if (layer->m_image.GetPixel2(uint32_t(x), uint32_t(y)).alpha == 0) continue;
                if (mask.GetValue(uint32_t(x + layer->m_x), uint32_t(y + layer->m_y)) != 255) {
                    whole = false;
                    break;
                }
            }
        if (whole) {
            m_pMoving = layer;
            return true;
        }
    }
    // Anything to lift at all?
    bool any = false;
    for (int y = y0; !any && y < y1; ++y)
        for (int x = x0; x < x1; ++x) {
            const int a = layer->m_image.GetPixel2(uint32_t(x - layer->m_x), uint32_t(y - layer->m_y)).alpha;
            if (a * mask.GetValue(uint32_t(x), uint32_t(y)) / 255 != 0) {
                any = true;
                break;
            }
        }
    if (!any) return false;
    CLayer* lifted = doc.AddLayer(current, kLayerKindRaster);
    if (!lifted) {
        m_pContext->Message("except");
        return false;
    }
    for (int y = y0; y < y1; ++y) {
        CPixel* out = lifted->m_image.GetBuffer(0, uint32_t(y));
        CPixel* in = layer->m_image.GetBuffer(0, uint32_t(y - layer->m_y));
        const uint8_t* m = mask.GetBuffer(0, uint32_t(y));
        for (int x = x0; x < x1; ++x) {
            CPixel& old = in[x - layer->m_x];
            const int a = old.alpha;
            const int taken = a * m[x] / 255;
            if (taken == 0) continue;
            out[x] = CPixel{old.blue, old.green, old.red, uint8_t(taken)};
            if (current > 0) {
                old.alpha = uint8_t(a - taken);
            } else {
                // The base has no transparency: the hole takes the current colour by the part taken.
                const int r = a - taken;
                old.red = uint8_t((colour.red * (255 - r) + old.red * r) / 255);
                old.green = uint8_t((colour.green * (255 - r) + old.green * r) / 255);
                old.blue = uint8_t((colour.blue * (255 - r) + old.blue * r) / 255);
            }
        }
    }
    {
        CStackLock lock(doc);
        doc.SetCurrentIndex(current + 1);
        lifted->TrimToContent();
        mask.Free();
    }
    doc.Refresh();
    m_pMoving = lifted;
    if (m_pContext->composeHistory) m_pContext->composeHistory->AddStep(&doc, kStepWholeDocument, 0, m_tipKey);
    return true;
}

bool CMoveTool::TakeLayer()
{
    CComposeDocument& doc = *m_pContext->document;
    const int current = doc.GetCurrentIndex();
    CLayer* layer = doc.GetCurrentLayer();
    if (!layer) return false;
    const bool selection = HasSelection();
    if (current == 0 && !selection) {
        m_pContext->Message("moverror");
        return false;
    }
    if (!selection) {
        m_pMoving = layer;
    } else if (!LiftSelection()) {
        return false;
    }
    {
        CStackLock lock(doc);
        doc.GetSelectionMask().Free();
    }
    doc.Refresh();
    NoteGeneration();
    return true;
}

void CMoveTool::MoveBy(int dx, int dy)
{
    if (!m_pContext || !m_pContext->document) return;
    CComposeDocument& doc = *m_pContext->document;
    const bool stale = !m_pMoving || doc.GetModificationCount() != m_generation ||
                       doc.IndexOfLayer(m_pMoving) != doc.GetCurrentIndex();
    if (stale) {
        // The gathered moves of the layer before are written first.
        FlushMove();
        m_pMoving = nullptr;
        if (!TakeLayer()) {
            m_pMoving = nullptr;
            m_dragging = false;
            return;
        }
    }
    if (dx == 0 && dy == 0) return;
    const CRect before = doc.GetLayerRect(m_pMoving);
    {
        CStackLock lock(doc);
        m_pMoving->m_x += dx;
        m_pMoving->m_y += dy;
    }
    const CRect after = doc.GetLayerRect(m_pMoving);
    doc.MergeRect(std::min(before.left, after.left), std::min(before.top, after.top),
                  std::max(before.right, after.right), std::max(before.bottom, after.bottom), 1);
    m_dirty = true;
}

int CMoveTool::OnLButtonDown(uint32_t, int x, int y)
{
    if (!m_pContext || !m_pContext->document || !m_pContext->document->GetCurrentLayer()) return 0;
    if (m_pContext->document->GetCurrentIndex() == 0 && !HasSelection()) {
        // Said at the press, not only at the first step of the drag: the user learns why nothing moves.
        m_pContext->Message("moverror");
        return 0;
    }
    m_dragging = true;
    m_last = ToImage(x, y);
    return 0;
}

int CMoveTool::OnMouseMove(uint32_t, int x, int y)
{
    if (!m_dragging) return 0;
    const CViewPoint p = ToImage(x, y);
    const int dx = p.x - m_last.x, dy = p.y - m_last.y;
    m_last = p;
    if (dx != 0 || dy != 0) MoveBy(dx, dy);
    return 0;
}

int CMoveTool::OnLButtonUp(uint32_t flags, int x, int y)
{
    if (!m_dragging) return 0;
    OnMouseMove(flags, x, y);
    m_dragging = false;
    // The exact composite; the step is written later, so that a run of moves is one step.
    if (m_dirty && m_pContext->document) {
        m_pContext->document->Refresh();
        NoteGeneration();
    }
    return 0;
}

int CMoveTool::OnKeyDown(uint32_t key, uint32_t)
{
    if (key < kKeyLeft || key > kKeyDown) return 0;
    const double zoom = m_pView && m_pView->GetZoom() > 0 ? m_pView->GetZoom() : 1.0;
    const int step = std::max(1, int(1.0 / zoom));
    MoveBy(key == kKeyLeft ? -step : key == kKeyRight ? step : 0, key == kKeyUp ? -step : key == kKeyDown ? step : 0);
    return 1;
}

int CMoveTool::OnSetCursor(int, int, int, int, int, int)
{
    SetCursorRole(kCursorMove);
    return 1;
}

int CMoveTool::OnTimer()
{
    if (++m_ticks > 10000) m_ticks = 1;
    if (m_ticks % 30 == 0) FlushMove();
    return 0;
}
