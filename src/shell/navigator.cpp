#include "shell/navigator.h"

#include <QMouseEvent>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "shell/image_view.h"

CNavigator::CNavigator(CImageView* view) : QWidget(view), m_pView(view)
{
    setFixedSize(100, 120);
    setCursor(Qt::ArrowCursor);
    connect(view, &CImageView::ViewChanged, this, [this] {
        if (isVisible()) update();
    });
}

void CNavigator::PlaceIn(int viewWidth, int viewHeight)
{
    move(viewWidth - 117, viewHeight - 137);
}

void CNavigator::ContentChanged()
{
    m_stale = true;
    if (isVisible()) update();
}

QRect CNavigator::PictureRect() const
{
    ICanvasSource* source = m_pView->GetSource();
    int w = 0, h = 0;
    if (source) source->GetSize(w, h);
    const QRect frame = ThumbnailFrame();
    if (w <= 0 || h <= 0) return {};
    const double s = std::min(double(frame.width()) / w, double(frame.height()) / h);
    const int tw = std::max(1, int(w * s)), th = std::max(1, int(h * s));
    return {frame.left() + (frame.width() - tw) / 2, frame.top() + (frame.height() - th) / 2, tw, th};
}

QRect CNavigator::VisibleRect() const
{
    ICanvasSource* source = m_pView->GetSource();
    int w = 0, h = 0;
    if (source) source->GetSize(w, h);
    const QRect pic = PictureRect();
    if (w <= 0 || h <= 0 || pic.isEmpty()) return {};
    const CViewGeometry& g = m_pView->Geometry();
    const double sx = double(pic.width()) / w, sy = double(pic.height()) / h;
    const int vw = std::min(w, g.VisibleWidth()), vh = std::min(h, g.VisibleHeight());
    return {pic.left() + int(g.GetOrigin().x * sx), pic.top() + int(g.GetOrigin().y * sy), std::max(2, int(vw * sx)),
            std::max(2, int(vh * sy))};
}

int CNavigator::StopX(int stop) const
{
    const QRect s = SliderRect();
    return s.left() + 4 + (s.width() - 9) * stop / (kZoomStopCount - 1);
}

int CNavigator::StopAt(int x) const
{
    int best = 0;
    for (int i = 1; i < kZoomStopCount; ++i)
        if (std::abs(StopX(i) - x) < std::abs(StopX(best) - x)) best = i;
    return best;
}

void CNavigator::MakeThumbnail()
{
    m_stale = false;
    m_thumb = QImage();
    const QRect pic = PictureRect();
    ICanvasSource* source = m_pView->GetSource();
    if (!source || pic.isEmpty()) return;
    if (m_thumbPixels.Create(uint32_t(pic.width()), uint32_t(pic.height())) != kOk) return;
    source->RenderWhole(&m_thumbPixels, pic.width(), pic.height());
    if (m_thumbPixels.IsNull()) return;
    m_thumb = QImage(int(m_thumbPixels.GetWidth()), int(m_thumbPixels.GetHeight()), QImage::Format_RGB32);
    for (int y = 0; y < m_thumb.height(); ++y) {
        const CPixel* src = m_thumbPixels.GetBuffer(0, uint32_t(y));
        auto* dst = reinterpret_cast<uint32_t*>(m_thumb.scanLine(y));
        for (int x = 0; x < m_thumb.width(); ++x)
            dst[x] = src[x].Word() | 0xFF000000u;
    }
}

void CNavigator::paintEvent(QPaintEvent*)
{
    if (m_stale) MakeThumbnail();
    QPainter p(this);
    p.fillRect(rect(), QColor(0xD2, 0xD2, 0xD2));
    p.setPen(QColor(0x80, 0x80, 0x80));
    p.drawRect(rect().adjusted(0, 0, -1, -1));
    const QRect frame = ThumbnailFrame();
    p.fillRect(frame, QColor(0x40, 0x40, 0x40));
    const QRect pic = PictureRect();
    if (!m_thumb.isNull()) p.drawImage(pic.topLeft(), m_thumb);
    // The visible part as a raised frame.
    const QRect v = VisibleRect().intersected(pic.adjusted(0, 0, 1, 1));
    if (!v.isEmpty()) {
        p.setPen(Qt::white);
        p.drawLine(v.topLeft(), v.topRight());
        p.drawLine(v.topLeft(), v.bottomLeft());
        p.setPen(Qt::black);
        p.drawLine(v.bottomLeft(), v.bottomRight());
        p.drawLine(v.topRight(), v.bottomRight());
        p.setPen(QColor(255, 64, 64));
        p.drawRect(v.adjusted(1, 1, -1, -1));
    }
    // The zoom strip: a groove, a tick per stop, and the thumb at the current stop.
    const QRect s = SliderRect();
    p.setPen(QColor(0x80, 0x80, 0x80));
    p.drawLine(s.left() + 4, s.center().y(), s.right() - 4, s.center().y());
    int current = 0;
    for (int i = 0; i < kZoomStopCount; ++i) {
        p.drawLine(StopX(i), s.center().y() + 3, StopX(i), s.center().y() + 5);
        if (kZoomStops[i] <= m_pView->GetZoom() + 1e-9) current = i;
    }
    const QRect knob(StopX(current) - 3, s.top() + 2, 7, 10);
    p.fillRect(knob, QColor(0xF0, 0xF0, 0xF0));
    p.setPen(Qt::black);
    p.drawRect(knob.adjusted(0, 0, -1, -1));
}

void CNavigator::CentreOn(QPoint point)
{
    int w = 0, h = 0;
    if (ICanvasSource* source = m_pView->GetSource()) source->GetSize(w, h);
    const QRect pic = PictureRect();
    if (pic.isEmpty()) return;
    const int ix = int((point.x() - pic.left()) * double(w) / pic.width());
    const int iy = int((point.y() - pic.top()) * double(h) / pic.height());
    const CViewGeometry& g = m_pView->Geometry();
    m_pView->SetOrigin(nullptr, ix - g.VisibleWidth() / 2, iy - g.VisibleHeight() / 2, true);
}

void CNavigator::ApplyStop(int stop)
{
    const double zoom = kZoomStops[std::clamp(stop, 0, kZoomStopCount - 1)];
    if (zoom == m_pView->GetZoom()) return;
    // Keep the middle of the visible part where it is.
    const CViewGeometry& g = m_pView->Geometry();
    const int cx = g.GetOrigin().x + g.VisibleWidth() / 2, cy = g.GetOrigin().y + g.VisibleHeight() / 2;
    m_pView->SetZoom(zoom, false);
    m_pView->SetOrigin(nullptr, cx - g.VisibleWidth() / 2, cy - g.VisibleHeight() / 2, true);
    update();
}

void CNavigator::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) return;
    const QPoint pos = event->position().toPoint();
    if (SliderRect().contains(pos)) {
        m_drag = EDrag::kSlider;
        ApplyStop(StopAt(pos.x()));
        return;
    }
    if (!PictureRect().contains(pos)) return;
    if (!VisibleRect().contains(pos)) CentreOn(pos);
    m_drag = EDrag::kFrame;
    m_dragStart = pos;
    m_originAtStart = QPoint(m_pView->GetOrigin().x, m_pView->GetOrigin().y);
}

void CNavigator::mouseMoveEvent(QMouseEvent* event)
{
    const QPoint pos = event->position().toPoint();
    if (m_drag == EDrag::kSlider) {
        ApplyStop(StopAt(pos.x()));
    } else if (m_drag == EDrag::kFrame) {
        int w = 0, h = 0;
        if (ICanvasSource* source = m_pView->GetSource()) source->GetSize(w, h);
        const QRect pic = PictureRect();
        if (pic.isEmpty()) return;
        const int dx = int((pos.x() - m_dragStart.x()) * double(w) / pic.width());
        const int dy = int((pos.y() - m_dragStart.y()) * double(h) / pic.height());
        m_pView->SetOrigin(nullptr, m_originAtStart.x() + dx, m_originAtStart.y() + dy, true);
    }
}

void CNavigator::mouseReleaseEvent(QMouseEvent*)
{
    m_drag = EDrag::kNone;
}
