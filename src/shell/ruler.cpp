#include "shell/ruler.h"

#include <QEvent>
#include <QMouseEvent>
#include <QPainter>

#include "shell/image_view.h"
#include "shell/ruler_ticks.h"

CRuler::CRuler(CImageView* view, Qt::Orientation orientation, QWidget* parent)
    : QWidget(parent), m_pView(view), m_orientation(orientation)
{
    if (orientation == Qt::Horizontal)
        setFixedHeight(kThickness);
    else
        setFixedWidth(kThickness);
    connect(view, &CImageView::ViewChanged, this, [this] { update(); });
    view->installEventFilter(this);
}

bool CRuler::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_pView) {
        if (event->type() == QEvent::MouseMove) {
            const QPointF p = static_cast<QMouseEvent*>(event)->position();
            m_marker = int(m_orientation == Qt::Horizontal ? p.x() : p.y());
            update();
        } else if (event->type() == QEvent::Leave) {
            m_marker = -1;
            update();
        } else if (event->type() == QEvent::Resize) {
            update();
        }
    }
    return QWidget::eventFilter(watched, event);
}

void CRuler::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.fillRect(rect(), QColor(0xF0, 0xF0, 0xF0));
    const bool horizontal = m_orientation == Qt::Horizontal;
    p.setPen(QColor(0xA0, 0xA0, 0xA0));
    if (horizontal)
        p.drawLine(0, height() - 1, width(), height() - 1);
    else
        p.drawLine(width() - 1, 0, width() - 1, height());

    ICanvasSource* source = m_pView->GetSource();
    if (!source) return;
    int imageW = 0, imageH = 0;
    source->GetSize(imageW, imageH);
    const VPoint origin = m_pView->GetOrigin();
    const VPoint corner = m_pView->ImageToClient(origin.x, origin.y);
    const int length = horizontal ? width() : height();
    const std::vector<RulerTick> ticks =
        horizontal ? ComputeRulerTicks(m_pView->GetZoom(), origin.x, corner.x, imageW, 0, length - 1)
                   : ComputeRulerTicks(m_pView->GetZoom(), origin.y, corner.y, imageH, 0, length - 1);

    QFont font = p.font();
    font.setPixelSize(9);
    p.setFont(font);
    p.setPen(QColor(0x50, 0x50, 0x50));
    const int t = kThickness;
    for (const RulerTick& tick : ticks) {
        const int mark = tick.major ? t - 2 : t / 4;
        if (horizontal) {
            p.drawLine(tick.client, t - 1 - mark, tick.client, t - 1);
            if (tick.major) p.drawText(tick.client + 2, 9, QString::number(tick.value));
        } else {
            p.drawLine(t - 1 - mark, tick.client, t - 1, tick.client);
            if (tick.major) {
                // Vertical numbers read bottom to top, as in other editors.
                p.save();
                p.translate(9, tick.client + 2);
                p.rotate(-90);
                p.drawText(-p.fontMetrics().horizontalAdvance(QString::number(tick.value)), 0,
                           QString::number(tick.value));
                p.restore();
            }
        }
    }
    if (m_marker >= 0) {
        p.setPen(QColor(0xD0, 0x30, 0x30));
        if (horizontal)
            p.drawLine(m_marker, 0, m_marker, t - 1);
        else
            p.drawLine(0, m_marker, t - 1, m_marker);
    }
}
