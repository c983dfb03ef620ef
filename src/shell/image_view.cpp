#include "shell/image_view.h"

#include <QApplication>
#include <QFontMetrics>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QWheelEvent>
#include <algorithm>
#include <cstring>

#include "shell/key_translate.h"
#include "shell/navigator.h"
#include "shell/tool_cursors.h"
#include "tools/tool_base.h"

namespace {

// Lines of the overlay: white in difference mode inverts what lies under them, and a second pass restores it.
class CPainterOverlayDC : public IOverlayDC {
public:
    explicit CPainterOverlayDC(QPainter& p) : m_painter(p) {}
    void DrawLine(int x0, int y0, int x1, int y1) override { m_painter.drawLine(x0, y0, x1, y1); }

private:
    QPainter& m_painter;
};

QColor FromRgb(uint32_t rgb)
{
    return QColor((rgb >> 16) & 0xFF, (rgb >> 8) & 0xFF, rgb & 0xFF);
}

} // namespace

CImageView::CImageView(QWidget* parent)
    : QWidget(parent), m_pHBar(new QScrollBar(Qt::Horizontal, this)), m_pVBar(new QScrollBar(Qt::Vertical, this)),
      m_pNavigator(new CNavigator(this))
{
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(120, 120);
    m_pHBar->hide();
    m_pVBar->hide();
    m_pNavigator->hide();
    // Room for the widest label, "1000.0%", in the label's font.
    QFont labelFont(QStringLiteral("Arial"));
    labelFont.setPixelSize(14);
    m_geo.SetZoomLabelWidth(QFontMetrics(labelFont).horizontalAdvance(QStringLiteral("1000.0%")) + 8);
    connect(m_pHBar, &QScrollBar::actionTriggered, this, [this](int action) { OnBarAction(true, action); });
    connect(m_pVBar, &QScrollBar::actionTriggered, this, [this](int action) { OnBarAction(false, action); });
    connect(&m_timer, &QTimer::timeout, this, &CImageView::OnTimer);
    m_timer.start(100);
}

CImageView::~CImageView()
{
    if (m_pSource) m_pSource->SetView(nullptr);
}

void CImageView::SetSource(ICanvasSource* source)
{
    // The old source must stop telling this view about merges before it is forgotten.
    if (m_pSource && m_pSource != source) m_pSource->SetView(nullptr);
    m_pSource = source;
    m_rendered = false;
    m_display.Free();
    m_screen = QImage();
    for (auto& ants : m_ants) ants.clear();
    m_antsBox = {};
    m_antsCount = 0;
    m_outlineVersion = -1;
    if (!source) {
        m_geo.SetImageSize(0, 0);
        Layout();
        m_pNavigator->hide();
        update();
        Q_EMIT ViewChanged();
        return;
    }
    source->SetView(this);
    Refresh();
}

void CImageView::SetSink(IViewSink* sink)
{
    m_pSink = sink;
    if (sink) sink->SetView(this);
    if (!sink && m_cursorRole != 0) {
        m_cursorRole = 0;
        unsetCursor();
    }
    // A tool chosen by key or menu while the pointer rests on the picture shows its cursor at once, not at the
    // next move.
    if (sink) {
        const QPoint at = mapFromGlobal(QCursor::pos());
        if (rect().contains(at)) UpdateToolCursor(at.x(), at.y());
    }
}

void CImageView::Layout()
{
    int w = 0, h = 0;
    if (m_pSource) m_pSource->GetSize(w, h);
    m_geo.SetImageSize(w, h);
    m_geo.SetClientSize(width(), height());
    m_geo.Layout();
    UpdateBars();
}

void CImageView::UpdateBars()
{
    const ScrollBarLayout bars[2] = {m_geo.HBar(), m_geo.VBar()};
    QScrollBar* widgets[2] = {m_pHBar, m_pVBar};
    for (int i = 0; i < 2; ++i) {
        const ScrollBarLayout& b = bars[i];
        QScrollBar* bar = widgets[i];
        if (!b.visible || !m_pSource) {
            bar->hide();
            continue;
        }
        bar->setGeometry(b.rect.left, b.rect.top, b.rect.Width(), b.rect.Height());
        const QSignalBlocker block(bar);
        bar->setRange(0, std::max(0, b.maximum + 1 - b.page));
        bar->setPageStep(std::max(1, b.page));
        bar->setSingleStep(1);
        bar->setValue(b.position);
        bar->show();
    }
    m_pNavigator->PlaceIn(width(), height());
}

void CImageView::Refresh()
{
    Layout();
    Render(true);
    m_pNavigator->ContentChanged();
    Redraw();
}

void CImageView::PostMergeDone()
{
    // Called by the merge thread: coalesce, and let the interface thread do the work.
    if (!m_pendingRefresh.exchange(true))
        QMetaObject::invokeMethod(
            this,
            [this] {
                if (m_pendingRefresh.exchange(false)) Refresh();
            },
            Qt::QueuedConnection);
}

int CImageView::Render(bool force)
{
    const VRect& r = m_geo.GetImageRect();
    if (!m_pSource || !m_geo.IsLaidOut() || r.Width() <= 0 || r.Height() <= 0) return 0;
    // A source with outline planes says by its version when its content changed.
    auto* outlines = dynamic_cast<IOutlineSource*>(m_pSource);
    const int version = outlines ? outlines->GetOutlineVersion() : -1;
    if (m_rendered && !force && m_lastZoom == m_geo.GetZoom() && m_lastOrigin == m_geo.GetOrigin() &&
        version == m_outlineVersion)
        return 1;
    m_outlineVersion = version;
    if (m_display.Create(uint32_t(r.Width()), uint32_t(r.Height())) != kOk) return 0;
    m_lastZoom = m_geo.GetZoom();
    m_lastOrigin = m_geo.GetOrigin();
    m_rendered = true;
    m_pSource->Render(&m_display);
    if (m_pSink) m_pSink->OnFrameDone();
    // Most pictures have no selection: the copy notices that, and the outline search is skipped. The outlines
    // are traced here, once per new picture on screen; the animation only recolours them.
    const bool selected = UpdateScreenCopy();
    for (auto& ants : m_ants) ants.clear();
    m_antsBox = {};
    m_antsCount = 0;
    if (selected || outlines) BuildAnts();
    DrawAnts();
    return 1;
}

bool CImageView::UpdateScreenCopy()
{
    const int w = int(m_display.GetWidth()), h = int(m_display.GetHeight());
    if (m_screen.width() != w || m_screen.height() != h) m_screen = QImage(w, h, QImage::Format_RGB32);
    if (m_screen.isNull()) return false;
    // The alpha byte of the display buffer is the selection; the screen copy is opaque.
    uint32_t selected = 0;
    for (int y = 0; y < h; ++y) {
        const CPixel* src = m_display.GetBuffer(0, uint32_t(y));
        auto* dst = reinterpret_cast<uint32_t*>(m_screen.scanLine(y));
        for (int x = 0; x < w; ++x) {
            const uint32_t word = src[x].Word();
            // Bit 7 of alpha: a value of 128 or more; 127 itself is caught by the +1.
            selected |= (word >> 24) + 1;
            dst[x] = word | 0xFF000000u;
        }
    }
    return (selected & 0x180) != 0;
}

void CImageView::Redraw()
{
    if (m_pSource && m_geo.IsLaidOut()) Render(false);
    update();
    Q_EMIT ViewChanged();
}

void CImageView::DrawOverlayNow()
{
    // Painting happens in paintEvent; the overlay is drawn there after the picture.
    update(m_geo.GetImageRect().left, m_geo.GetImageRect().top, m_geo.GetImageRect().Width(),
           m_geo.GetImageRect().Height());
}

long CImageView::SetZoom(double zoom, bool redraw)
{
    m_fitMax = 0;
    m_geo.SetClientSize(width(), height());
    const bool ok = m_geo.SetZoom(zoom);
    UpdateBars();
    if (redraw) Redraw();
    return ok ? kOk : kFail;
}

long CImageView::SetOrigin(VPoint* out, int x, int y, bool redraw)
{
    m_fitMax = 0;
    m_geo.SetClientSize(width(), height());
    const VPoint o = m_geo.SetOrigin(x, y);
    UpdateBars();
    if (out) *out = o;
    if (redraw) Redraw();
    return m_geo.IsLaidOut() ? kOk : kFail;
}

void CImageView::ZoomStep(bool in, int x, int y)
{
    if (!m_pSource) return;
    const CViewGeometry::ZoomStepResult step = m_geo.ComputeZoomStep(in, x, y);
    if (step.recentre) {
        SetZoom(step.zoom, false);
        SetOrigin(nullptr, step.origin.x, step.origin.y, true);
    } else {
        SetZoom(step.zoom, true);
    }
}

double CImageView::FitZoom(double maxZoom) const
{
    CViewGeometry g = m_geo;
    int w = 0, h = 0;
    if (m_pSource) m_pSource->GetSize(w, h);
    g.SetImageSize(w, h);
    g.SetClientSize(width(), height());
    return g.FitZoom(maxZoom);
}

void CImageView::ZoomFit()
{
    FitWhole(kMaxZoom);
}

void CImageView::FitWhole(double maxZoom)
{
    if (!m_pSource) return;
    Layout(); // the picture's size may be new
    m_geo.SetOrigin(0, 0);
    SetZoom(FitZoom(maxZoom), true);
    // The window around the canvas may still change (bars and panels appear after a file opens, the window
    // is maximised): the picture stays whole until the user zooms or scrolls.
    m_fitMax = maxZoom;
}

void CImageView::OnBarAction(bool horizontal, int action)
{
    QScrollBar* bar = horizontal ? m_pHBar : m_pVBar;
    EScrollKind kind;
    switch (action) {
    case QAbstractSlider::SliderSingleStepSub:
        kind = EScrollKind::kLineUp;
        break;
    case QAbstractSlider::SliderSingleStepAdd:
        kind = EScrollKind::kLineDown;
        break;
    case QAbstractSlider::SliderPageStepSub:
        kind = EScrollKind::kPageUp;
        break;
    case QAbstractSlider::SliderPageStepAdd:
        kind = EScrollKind::kPageDown;
        break;
    case QAbstractSlider::SliderMove:
        kind = EScrollKind::kTrack;
        break;
    case QAbstractSlider::SliderToMinimum:
        kind = EScrollKind::kTrack;
        break;
    case QAbstractSlider::SliderToMaximum:
        kind = EScrollKind::kTrack;
        break;
    default:
        return;
    }
    const int v = m_geo.ScrollTarget(horizontal, kind, bar->sliderPosition());
    const VPoint o = m_geo.GetOrigin();
    SetOrigin(nullptr, horizontal ? v : o.x, horizontal ? o.y : v, true);
    // Our arithmetic decides the position, not the bar's own.
    bar->setSliderPosition(horizontal ? m_geo.GetOrigin().x : m_geo.GetOrigin().y);
}

void CImageView::BuildAnts()
{
    const int w = int(m_display.GetWidth()), h = int(m_display.GetHeight());
    if (w <= 0 || h <= 0) return;
    const double z = m_geo.GetZoom();
    const VPoint o = m_geo.GetOrigin();
    auto unite = [this](const AntsBox& b) {
        if (b.IsEmpty()) return;
        if (m_antsBox.IsEmpty()) {
            m_antsBox = b;
            return;
        }
        m_antsBox = {std::min(m_antsBox.left, b.left), std::min(m_antsBox.top, b.top),
                     std::max(m_antsBox.right, b.right), std::max(m_antsBox.bottom, b.bottom)};
    };
    if (auto* outlines = dynamic_cast<IOutlineSource*>(m_pSource)) {
        // Each plane at screen scale, traced in its own style.
        OutlinePlane planes[kOutlineStyles];
        const int n = outlines->GetOutlinePlanes(planes, kOutlineStyles);
        for (int i = 0; i < n; ++i) {
            if (!planes[i].plane || planes[i].style < 0 || planes[i].style >= kOutlineStyles) continue;
            const AntsBorders borders = SamplePlane(*planes[i].plane, z, o.x, o.y, w, h, m_sampled);
            unite(TraceOutline(m_sampled.data(), w, h, 1, w, borders, m_ants[planes[i].style]));
        }
    } else {
        // The selection is the display buffer's alpha. A border of the buffer is an outline only where it is
        // also a border of the image.
        const int iw = m_geo.ImageWidth(), ih = m_geo.ImageHeight();
        AntsBorders borders;
        borders.left = o.x == 0;
        borders.top = o.y == 0;
        borders.right = TruncToInt((w - 1) / z) + o.x >= iw - 1;
        borders.bottom = TruncToInt((h - 1) / z) + o.y >= ih - 1;
        const auto* alpha = reinterpret_cast<const uint8_t*>(m_display.GetBuffer()) + 3;
        unite(TraceOutline(alpha, w, h, 4, w * 4, borders, m_ants[kOutlineSelection]));
    }
    for (const auto& ants : m_ants) m_antsCount += int(ants.size());
}

void CImageView::DrawAnts()
{
    if (!m_antsCount || m_screen.isNull()) return;
    ++m_antsFrame;
    const uint32_t t = m_antsFrame;
    // Dark stripes by style: the selection and the result black, the outer contour red, the inner green; the
    // light stripes white. The colour of each phase is worked out once per step.
    static const uint32_t kDark[kOutlineStyles] = {0xFF000000u, 0xFFE01818u, 0xFF00A000u, 0xFF000000u};
    auto* screen = reinterpret_cast<uint32_t*>(m_screen.bits());
    const size_t pixels = size_t(m_screen.width()) * size_t(m_screen.height());
    // The screen copy has no row padding (32-bit pixels); the indices count pixels of the display buffer.
    if (m_screen.bytesPerLine() != m_screen.width() * 4) return;
    for (int style = 0; style < kOutlineStyles; ++style) {
        uint32_t colour[8];
        for (uint32_t phase = 0; phase < 8; ++phase) colour[phase] = AntIsDark(phase, t) ? kDark[style] : 0xFFFFFFFFu;
        for (const uint32_t ant : m_ants[style]) {
            const uint32_t index = AntIndex(ant);
            if (index < pixels) screen[index] = colour[AntPhase(ant)];
        }
    }
}

QRect CImageView::StepAnts()
{
    if (!m_antsCount || m_antsBox.IsEmpty()) return {};
    DrawAnts();
    const VRect& r = m_geo.GetImageRect();
    return QRect(r.left + m_antsBox.left, r.top + m_antsBox.top, m_antsBox.right - m_antsBox.left,
                 m_antsBox.bottom - m_antsBox.top);
}

void CImageView::OnTimer()
{
    ++m_tick;
    const bool captured = QApplication::mouseButtons() != Qt::NoButton && (underMouse() || m_pNavigator->IsDragging());
    if (m_tick % 4 == 0 && m_antsCount && !captured) {
        // Only the part of the canvas the outlines cover is painted again (the tool's overlay with it).
        const QRect changed = StepAnts();
        if (!changed.isEmpty()) update(changed);
    }
    if (m_pSink) m_pSink->OnTimer();
}

void CImageView::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    if (!m_pSource) {
        p.fillRect(rect(), Qt::black);
        return;
    }
    const VRect& r = m_geo.GetImageRect();
    const QRect imageRect(r.left, r.top, std::max(0, r.Width()), std::max(0, r.Height()));
    // Everything around the picture in the back colour.
    const QRegion around = QRegion(rect()).subtracted(QRegion(imageRect));
    for (const QRect& part : around)
        p.fillRect(part, FromRgb(m_backColor));

    if (m_pOverride && !m_pOverride->IsNull()) {
        QImage copy(int(m_pOverride->GetWidth()), int(m_pOverride->GetHeight()), QImage::Format_RGB32);
        for (int y = 0; y < copy.height(); ++y) {
            const CPixel* src = m_pOverride->GetBuffer(0, uint32_t(y));
            auto* dst = reinterpret_cast<uint32_t*>(copy.scanLine(y));
            for (int x = 0; x < copy.width(); ++x)
                dst[x] = src[x].Word() | 0xFF000000u;
        }
        p.drawImage(imageRect, copy);
    } else if (!m_screen.isNull()) {
        p.drawImage(imageRect.topLeft(), m_screen);
    }

    // The zoom label beside the horizontal bar.
    const VRect label = m_geo.ZoomLabelRect();
    const QRect labelRect(label.left, label.top, label.Width(), label.Height());
    p.fillRect(labelRect, FromRgb(m_backColor));
    p.setPen(FromRgb(0x5A5A5A));
    p.drawRect(labelRect.adjusted(0, 0, -1, -1));
    QFont font(QStringLiteral("Arial"));
    font.setPixelSize(14);
    p.setFont(font);
    p.setPen(FromRgb(0x8C8C8C));
    p.drawText(labelRect, Qt::AlignCenter, QString::asprintf("%.1f%%", m_geo.GetZoom() * 100.0));

    if (m_pOverlay) {
        p.setClipRect(imageRect);
        p.setCompositionMode(QPainter::CompositionMode_Difference);
        p.setPen(QPen(Qt::white, 1));
        p.setRenderHint(QPainter::Antialiasing, false);
        CPainterOverlayDC dc(p);
        m_pOverlay->DrawOverlay(dc, true);
    }
}

void CImageView::resizeEvent(QResizeEvent*)
{
    if (m_fitMax > 0 && m_pSource) {
        FitWhole(m_fitMax);
        return;
    }
    Layout();
    if (m_pSource) Render(true);
    update();
    Q_EMIT ViewChanged();
}

uint32_t CImageView::MouseFlags(Qt::MouseButtons buttons, Qt::KeyboardModifiers modifiers) const
{
    uint32_t f = 0;
    if (buttons & Qt::LeftButton) f |= kMkLButton;
    if (buttons & Qt::RightButton) f |= kMkRButton;
    if (buttons & Qt::MiddleButton) f |= kMkMButton;
    if (modifiers & Qt::ShiftModifier) f |= kMkShift;
    if (modifiers & Qt::ControlModifier) f |= kMkControl;
    if (modifiers & Qt::AltModifier) f |= kMkAlt;
    return f;
}

void CImageView::mousePressEvent(QMouseEvent* event)
{
    const int x = int(event->position().x()), y = int(event->position().y());
    const uint32_t flags = MouseFlags(event->buttons(), event->modifiers());
    if (event->button() == Qt::LeftButton) {
        const VRect corner = m_geo.CornerBox();
        if (corner.Contains(x, y) && (m_geo.HasHBar() || m_geo.HasVBar()) && m_pSource) {
            m_pNavigator->setVisible(!m_pNavigator->isVisible());
            if (m_pNavigator->isVisible()) m_pNavigator->ContentChanged();
            return;
        }
        if (m_pSink && m_geo.GetImageRect().Contains(x, y)) m_pSink->OnLButtonDown(flags, x, y);
    } else if (event->button() == Qt::RightButton) {
        if (m_pSink) m_pSink->OnRButtonDown(flags, x, y);
    }
}

void CImageView::mouseReleaseEvent(QMouseEvent* event)
{
    const int x = int(event->position().x()), y = int(event->position().y());
    const uint32_t flags = MouseFlags(event->buttons(), event->modifiers());
    if (!m_pSink) return;
    if (event->button() == Qt::LeftButton) m_pSink->OnLButtonUp(flags, x, y);
    if (event->button() == Qt::RightButton) m_pSink->OnRButtonUp(flags, x, y);
}

void CImageView::mouseMoveEvent(QMouseEvent* event)
{
    // Keys then reach the tool without a click.
    if (!hasFocus() && isActiveWindow()) setFocus(Qt::MouseFocusReason);
    const int x = int(event->position().x()), y = int(event->position().y());
    if (!m_pSink) {
        UpdateToolCursor(x, y);
        return;
    }
    m_pSink->OnMouseMove(MouseFlags(event->buttons(), event->modifiers()), x, y);
    UpdateToolCursor(x, y);
}

void CImageView::UpdateToolCursor(int x, int y)
{
    // Over the picture the tool chooses its cursor; elsewhere (bars, the corner box) the arrow stands.
    int role = kCursorDefault;
    const VRect& area = m_geo.GetImageArea();
    if (m_pSink && m_geo.GetImageRect().Contains(x, y) &&
        m_pSink->OnSetCursor(area.left, area.top, area.right, area.bottom, x, y) != 0)
        if (const auto* tool = dynamic_cast<const CToolBase*>(m_pSink)) role = tool->GetCursor();
    if (role == m_cursorRole) return;
    m_cursorRole = role;
    switch (role) {
    case kCursorDefault: unsetCursor(); break;
    // The brushes draw their circle as overlay; the pointer itself is a small cross, or a pointing hand while
    // the clone brush waits for its source and the picker for a click.
    case kCursorBrush: setCursor(Qt::CrossCursor); break;
    case kCursorCloneSource:
    case kCursorPicker: setCursor(Qt::PointingHandCursor); break;
    default: setCursor(ToolCursorFor(role)); break;
    }
}

void CImageView::mouseDoubleClickEvent(QMouseEvent* event)
{
    const int x = int(event->position().x()), y = int(event->position().y());
    if (m_pSink && event->button() == Qt::LeftButton)
        m_pSink->OnLButtonDblClk(MouseFlags(event->buttons(), event->modifiers()), x, y);
}

void CImageView::wheelEvent(QWheelEvent* event)
{
    const int x = int(event->position().x()), y = int(event->position().y());
    const int delta = event->angleDelta().y();
    if (m_pSink && m_pSink->OnMouseWheel(MouseFlags(event->buttons(), event->modifiers()), delta, x, y)) return;
    if (!m_pSource || delta == 0) return;
    // A notch is 120; touchpads send small steps that add up to one.
    m_wheelRemainder += delta;
    while (m_wheelRemainder >= 120 || m_wheelRemainder <= -120) {
        const bool in = m_wheelRemainder > 0;
        m_wheelRemainder += in ? -120 : 120;
        ZoomStep(in, x, y);
    }
}

void CImageView::keyPressEvent(QKeyEvent* event)
{
    const bool taken = m_pSink && m_pSink->OnKeyDown(VirtualKeyOf(event), event->isAutoRepeat() ? 0x40000000u : 0u);
    // Shift and Ctrl change the tool's mode, and with it the cursor, without a move of the pointer.
    const QPoint at = mapFromGlobal(QCursor::pos());
    UpdateToolCursor(at.x(), at.y());
    if (!taken) QWidget::keyPressEvent(event);
}

void CImageView::keyReleaseEvent(QKeyEvent* event)
{
    const bool taken = m_pSink && m_pSink->OnKeyUp(VirtualKeyOf(event), 0xC0000000u);
    const QPoint at = mapFromGlobal(QCursor::pos());
    UpdateToolCursor(at.x(), at.y());
    if (!taken) QWidget::keyReleaseEvent(event);
}

void CImageView::leaveEvent(QEvent*)
{
    m_wheelRemainder = 0;
}

bool CImageView::IsNavigatorVisible() const
{
    return m_pNavigator->isVisible();
}
