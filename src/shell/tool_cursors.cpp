#include "shell/tool_cursors.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <array>

#include "tools/tool_base.h"

namespace {

constexpr int kSize = 32;

enum class EBadge { kNone, kAdd, kSubtract, kClose };
enum class EShape { kCross, kLasso, kPolygon, kMagic, kCrop, kRotate };

// Every stroke is drawn twice, wide in white and narrow in black, so the cursor shows on any picture.
void Stroke(QPainter& p, const QPainterPath& path)
{
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(Qt::white, 3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.drawPath(path);
    p.setPen(QPen(Qt::black, 1, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin));
    p.drawPath(path);
}

// The crosshair around (cx, cy), open in the middle so the pixel under it stays visible.
QPainterPath Crosshair(double cx, double cy, double arm)
{
    QPainterPath path;
    path.moveTo(cx - arm, cy);
    path.lineTo(cx - 2, cy);
    path.moveTo(cx + 2, cy);
    path.lineTo(cx + arm, cy);
    path.moveTo(cx, cy - arm);
    path.lineTo(cx, cy - 2);
    path.moveTo(cx, cy + 2);
    path.lineTo(cx, cy + arm);
    return path;
}

void DrawBadge(QPainter& p, EBadge badge)
{
    if (badge == EBadge::kNone) return;
    const QRectF box(20.5, 20.5, 10, 10);
    p.setPen(QPen(Qt::black, 1));
    p.setBrush(Qt::white);
    if (badge == EBadge::kClose) {
        p.drawEllipse(box);
        p.setBrush(Qt::black);
        p.drawEllipse(box.center(), 2, 2);
        return;
    }
    p.drawRect(box);
    p.setPen(QPen(Qt::black, 2, Qt::SolidLine, Qt::FlatCap));
    p.drawLine(QPointF(box.left() + 2, box.center().y()), QPointF(box.right() - 2, box.center().y()));
    if (badge == EBadge::kAdd)
        p.drawLine(QPointF(box.center().x(), box.top() + 2), QPointF(box.center().x(), box.bottom() - 2));
}

QCursor Make(EShape shape, EBadge badge)
{
    QPixmap pixmap(kSize, kSize);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing, false);
    int hotX = 10, hotY = 10;
    switch (shape) {
    case EShape::kCross:
        Stroke(p, Crosshair(10.5, 10.5, 8));
        break;
    case EShape::kLasso: {
        // A loop of rope with its end at the hot spot, bottom left.
        p.setRenderHint(QPainter::Antialiasing, true);
        QPainterPath rope;
        rope.addEllipse(QRectF(6.5, 2.5, 17, 11));
        rope.moveTo(10, 12.5);
        rope.cubicTo(8, 16, 4, 17, 3, 24);
        Stroke(p, rope);
        hotX = 3;
        hotY = 24;
        break;
    }
    case EShape::kPolygon: {
        Stroke(p, Crosshair(8.5, 8.5, 7));
        QPainterPath corners;
        corners.moveTo(15.5, 13.5);
        corners.lineTo(26.5, 15.5);
        corners.lineTo(22.5, 26.5);
        corners.lineTo(13.5, 22.5);
        corners.closeSubpath();
        Stroke(p, corners);
        hotX = hotY = 8;
        break;
    }
    case EShape::kMagic: {
        // A wand from the bottom right to the hot spot at its sparkling tip.
        p.setRenderHint(QPainter::Antialiasing, true);
        QPainterPath wand;
        wand.moveTo(8, 8);
        wand.lineTo(22, 22);
        Stroke(p, wand);
        QPainterPath sparkle = Crosshair(6.5, 6.5, 5);
        Stroke(p, sparkle);
        hotX = hotY = 6;
        break;
    }
    case EShape::kCrop: {
        // The two crop angles around a small crosshair at the hot spot.
        Stroke(p, Crosshair(8.5, 8.5, 6));
        QPainterPath angles;
        angles.moveTo(12.5, 4.5);
        angles.lineTo(24.5, 4.5);
        angles.lineTo(24.5, 28.5);
        angles.moveTo(4.5, 12.5);
        angles.lineTo(4.5, 24.5);
        angles.lineTo(28.5, 24.5);
        Stroke(p, angles);
        hotX = hotY = 8;
        break;
    }
    case EShape::kRotate: {
        // A quarter circle with an arrow head at each end, the hot spot at its middle.
        p.setRenderHint(QPainter::Antialiasing, true);
        QPainterPath arc;
        arc.moveTo(6, 24);
        arc.quadTo(6, 6, 24, 6);
        arc.moveTo(2, 20);
        arc.lineTo(6, 25);
        arc.lineTo(10, 20);
        arc.moveTo(20, 2);
        arc.lineTo(25, 6);
        arc.lineTo(20, 10);
        Stroke(p, arc);
        hotX = hotY = 11;
        break;
    }
    }
    p.setRenderHint(QPainter::Antialiasing, false);
    DrawBadge(p, badge);
    p.end();
    return QCursor(pixmap, hotX, hotY);
}

// A magnifier with a plus or a minus in its glass; the hot spot is the glass's centre.
QCursor MagnifierCursor(bool in)
{
    QPixmap pixmap(kSize, kSize);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing, true);
    QPainterPath glass;
    glass.addEllipse(QPointF(12, 12), 8, 8);
    glass.moveTo(18, 18);
    glass.lineTo(28, 28);
    glass.moveTo(8, 12);
    glass.lineTo(16, 12);
    if (in) {
        glass.moveTo(12, 8);
        glass.lineTo(12, 16);
    }
    Stroke(p, glass);
    p.end();
    return QCursor(pixmap, 12, 12);
}

} // namespace

QCursor ToolCursorFor(int role)
{
    if (role == kCursorZoomIn || role == kCursorZoomOut) {
        static const QCursor zoomIn = MagnifierCursor(true), zoomOut = MagnifierCursor(false);
        return role == kCursorZoomIn ? zoomIn : zoomOut;
    }
    if (role == kCursorPan) return QCursor(Qt::OpenHandCursor);
    // The frames' handles and the move tool take the system's own sizing cursors.
    switch (role) {
    case kCursorMoveFrame:
    case kCursorMove: return QCursor(Qt::SizeAllCursor);
    case kCursorCornerNwSe: return QCursor(Qt::SizeFDiagCursor);
    case kCursorCornerNeSw: return QCursor(Qt::SizeBDiagCursor);
    default: break;
    }
    static std::array<QCursor, 64> cursors;
    static std::array<bool, 64> made{};
    const bool drawn = (role > kCursorDefault && role <= kCursorMagicSubtract) || role == kCursorCrop ||
                       role == kCursorRotate;
    if (!drawn || size_t(role) >= cursors.size()) return QCursor(Qt::ArrowCursor);
    const size_t i = size_t(role);
    if (!made[i]) {
        EShape shape = EShape::kCross;
        EBadge badge = EBadge::kNone;
        switch (role) {
        case kCursorCross: break;
        case kCursorRectAdd: badge = EBadge::kAdd; break;
        case kCursorRectSubtract: badge = EBadge::kSubtract; break;
        case kCursorLasso: shape = EShape::kLasso; break;
        case kCursorLassoAdd: shape = EShape::kLasso; badge = EBadge::kAdd; break;
        case kCursorLassoSubtract: shape = EShape::kLasso; badge = EBadge::kSubtract; break;
        case kCursorPolygon: shape = EShape::kPolygon; break;
        case kCursorPolygonAdd: shape = EShape::kPolygon; badge = EBadge::kAdd; break;
        case kCursorPolygonSubtract: shape = EShape::kPolygon; badge = EBadge::kSubtract; break;
        case kCursorPolygonClose: shape = EShape::kPolygon; badge = EBadge::kClose; break;
        case kCursorMagic: shape = EShape::kMagic; break;
        case kCursorMagicAdd: shape = EShape::kMagic; badge = EBadge::kAdd; break;
        case kCursorMagicSubtract: shape = EShape::kMagic; badge = EBadge::kSubtract; break;
        case kCursorCrop: shape = EShape::kCrop; break;
        case kCursorRotate: shape = EShape::kRotate; break;
        default: break;
        }
        cursors[i] = Make(shape, badge);
        made[i] = true;
    }
    return cursors[i];
}
