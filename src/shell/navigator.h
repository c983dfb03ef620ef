#pragma once

#include <QImage>
#include <QWidget>

#include "imaging/image.h"

class CImageView;

// The small overview in the corner of the canvas: the whole picture, the visible part as a frame, and a strip
// that slides between the zoom stops. A press on the picture centres the view there; dragging the frame or the
// strip moves or zooms the canvas at once.
class CNavigator : public QWidget {
    Q_OBJECT
public:
    explicit CNavigator(CImageView* view);
    void PlaceIn(int viewWidth, int viewHeight);
    // The picture changed: the thumbnail is made again when next shown.
    void ContentChanged();
    bool IsDragging() const { return m_drag != EDrag::kNone; }

    // Where things are, in the navigator's own pixels.
    QRect ThumbnailFrame() const { return {4, 4, 92, 92}; }
    QRect PictureRect() const; // the thumbnail inside its frame
    QRect VisibleRect() const; // the canvas's visible part on the thumbnail
    QRect SliderRect() const { return {4, 100, 92, 16}; }
    int StopAt(int x) const;   // the zoom stop under a point of the strip
    int StopX(int stop) const; // and back

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    enum class EDrag { kNone, kFrame, kSlider };
    void MakeThumbnail();
    void CentreOn(QPoint point);
    void ApplyStop(int stop);

    CImageView* m_pView;
    COLImage m_thumbPixels;
    QImage m_thumb;
    bool m_stale = true;
    EDrag m_drag = EDrag::kNone;
    QPoint m_dragStart;
    QPoint m_originAtStart;
};
