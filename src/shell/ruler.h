#pragma once

#include <QWidget>

class CImageView;

// A pixel ruler along the top or left edge of the canvas. It follows the canvas's zoom and scrolling and marks
// where the pointer is.
class CRuler : public QWidget {
    Q_OBJECT
public:
    static constexpr int kThickness = 20;

    CRuler(CImageView* view, Qt::Orientation orientation, QWidget* parent = nullptr);
    // The pointer's position along this ruler in client pixels of the canvas, or -1 when it is off the canvas.
    int MarkerPosition() const { return m_marker; }

protected:
    void paintEvent(QPaintEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    CImageView* m_pView;
    Qt::Orientation m_orientation;
    int m_marker = -1;
};
