#include "shell/view_geometry.h"

#include <algorithm>
#include <climits>
#include <cmath>

const double kZoomStops[kZoomStopCount] = {0.1, 0.2, 1.0 / 3.0, 0.5, 2.0 / 3.0, 1, 1.5, 2, 3, 4, 5, 6, 7, 8, 9, 10};

double NextZoomStop(double zoom, bool in)
{
    if (in) {
        for (double stop : kZoomStops)
            if (stop > zoom) return stop;
        return kMaxZoom;
    }
    for (int i = kZoomStopCount - 1; i >= 0; --i)
        if (kZoomStops[i] < zoom) return kZoomStops[i];
    return kMinZoom;
}

int TruncToInt(double v)
{
    if (std::isnan(v)) return 0;
    if (v >= double(INT_MAX)) return INT_MAX;
    if (v <= double(INT_MIN)) return INT_MIN;
    return static_cast<int>(v);
}

void CViewGeometry::SetImageSize(int width, int height)
{
    m_imageWidth = std::max(0, width);
    m_imageHeight = std::max(0, height);
}

void CViewGeometry::SetClientSize(int width, int height)
{
    m_width = std::max(0, width);
    m_height = std::max(0, height);
}

int CViewGeometry::VisibleAlong(int areaSize, bool barPresent) const
{
    // Without the bar the strip it would take is free for the picture too.
    const int size = areaSize - 2 + (barPresent ? 0 : kScrollBarSize);
    return TruncToInt(size / m_zoom + 0.5);
}

int CViewGeometry::VisibleWidth() const
{
    return VisibleAlong(m_area.Width(), m_hBar);
}
int CViewGeometry::VisibleHeight() const
{
    return VisibleAlong(m_area.Height(), m_vBar);
}

bool CViewGeometry::Layout()
{
    if (m_width <= 0 || m_height <= 0) return false;
    const double iw = m_imageWidth, ih = m_imageHeight;
    // A bar stays while the origin is off zero; when clamping brings the origin back to zero (after zooming out),
    // the bars are decided once more so that a picture that now fits shows none.
    for (int pass = 0; pass < 2; ++pass) {
        m_area = {1, 1, m_width - 1, m_height - 1};
        m_hBar = m_originX > 0 || iw * m_zoom + 0.5 >= m_area.Width() - kScrollBarSize;
        if (m_hBar) m_area.bottom -= kScrollBarSize;
        m_vBar = m_originY > 0 || ih * m_zoom + 0.5 >= m_area.Height() - kScrollBarSize;
        if (m_vBar) m_area.right -= kScrollBarSize;
        if (m_imageWidth == 0 || m_imageHeight == 0) {
            m_hBar = m_vBar = false;
            m_area = {1, 1, m_width - 1, m_height - 1};
        }
        // Clamp the origin so that the visible part never runs past the picture.
        const int oldX = m_originX, oldY = m_originY;
        m_originX = std::max(0, std::min(m_originX, m_imageWidth - VisibleWidth()));
        m_originY = std::max(0, std::min(m_originY, m_imageHeight - VisibleHeight()));
        if (m_originX == oldX && m_originY == oldY) break;
    }

    // The picture fills the area where it is larger, and sits in the middle of it where it is smaller.
    const int shownW = std::max(0, TruncToInt((m_imageWidth - m_originX) * m_zoom + 0.5));
    const int shownH = std::max(0, TruncToInt((m_imageHeight - m_originY) * m_zoom + 0.5));
    const int rw = std::min(m_area.Width(), shownW);
    const int rh = std::min(m_area.Height(), shownH);
    const int left = m_hBar ? m_area.left : m_area.left + (m_area.Width() - rw) / 2;
    const int top = m_vBar ? m_area.top : m_area.top + (m_area.Height() - rh) / 2;
    m_imageRect = {left, top, left + rw, top + rh};
    return m_area.Width() > 0 && m_area.Height() > 0;
}

bool CViewGeometry::SetZoom(double zoom)
{
    m_zoom = std::clamp(zoom, 0.01, 100.0);
    return Layout();
}

VPoint CViewGeometry::SetOrigin(int x, int y)
{
    m_originX = x;
    m_originY = y;
    Layout();
    return GetOrigin();
}

ScrollBarLayout CViewGeometry::HBar() const
{
    ScrollBarLayout b;
    b.visible = m_hBar;
    b.rect = {1, m_height - 17, 1 + (m_width - 18 - m_labelWidth), m_height - 1};
    b.page = VisibleWidth();
    b.maximum = std::max(0, m_imageWidth - 1);
    b.position = m_originX;
    return b;
}

ScrollBarLayout CViewGeometry::VBar() const
{
    ScrollBarLayout b;
    b.visible = m_vBar;
    b.rect = {m_width - 17, 1, m_width - 1, 1 + (m_height - 17)};
    b.page = VisibleHeight();
    b.maximum = std::max(0, m_imageHeight - 1);
    b.position = m_originY;
    return b;
}

double CViewGeometry::FitZoom(double maxZoom) const
{
    if (m_imageWidth <= 0 || m_imageHeight <= 0) return 1.0;
    // A bar appears when size * zoom + 0.5 reaches (area - 16), the area being the client less 1 on each side:
    // the picture must stay below that by a margin the rounding cannot eat.
    const double roomW = m_width - 2 - kScrollBarSize - 1.0, roomH = m_height - 2 - kScrollBarSize - 1.0;
    const double z = std::min(roomW / m_imageWidth, roomH / m_imageHeight);
    return std::clamp(z, 0.01, maxZoom);
}

VPoint CViewGeometry::ClientToImage(int x, int y) const
{
    return {TruncToInt((x - m_imageRect.left) / m_zoom + 0.5) + m_originX,
            TruncToInt((y - m_imageRect.top) / m_zoom + 0.5) + m_originY};
}

VPoint CViewGeometry::ImageToClient(int x, int y) const
{
    return {TruncToInt((x - m_originX) * m_zoom + 0.5) + m_imageRect.left,
            TruncToInt((y - m_originY) * m_zoom + 0.5) + m_imageRect.top};
}

CViewGeometry::ZoomStepResult CViewGeometry::ComputeZoomStep(bool in, int x, int y) const
{
    ZoomStepResult r{NextZoomStop(m_zoom, in), false, GetOrigin()};
    if (m_imageRect.Contains(x, y)) {
        const VPoint p = ClientToImage(x, y);
        r.recentre = true;
        r.origin = {TruncToInt(p.x - m_imageRect.Width() * 0.5 / r.zoom),
                    TruncToInt(p.y - m_imageRect.Height() * 0.5 / r.zoom)};
    }
    return r;
}

int CViewGeometry::ScrollTarget(bool horizontal, EScrollKind kind, int trackPosition) const
{
    const int size = horizontal ? m_imageWidth : m_imageHeight;
    const int page = horizontal ? VisibleWidth() : VisibleHeight();
    const int origin = horizontal ? m_originX : m_originY;
    const int step = std::max(1, TruncToInt(size * 0.02));
    int v = origin;
    switch (kind) {
    case EScrollKind::kLineUp:
        v = origin - step;
        break;
    case EScrollKind::kLineDown:
        v = origin + step;
        break;
    case EScrollKind::kPageUp:
        v = origin - page;
        break;
    case EScrollKind::kPageDown:
        v = origin + page;
        break;
    case EScrollKind::kTrack:
        v = trackPosition;
        break;
    }
    if (v < 0) v = 0;
    if (v > 0 && v + page > size) v = size - page;
    return v;
}
