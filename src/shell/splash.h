#pragma once

#include <QImage>
#include <QWidget>

// The start picture ("start.lgb", read as BMP data): a frameless window of the picture's size, on top and
// centred. As the About box a click closes it.
class CSplashWindow : public QWidget {
    Q_OBJECT
public:
    explicit CSplashWindow(QWidget* parent = nullptr);
    // False when the picture cannot be read; the window then stays empty and is not shown.
    bool LoadPicture(const std::string& path);
    bool HasPicture() const { return !m_picture.isNull(); }
    void ShowCentred();
    void SetClickToClose(bool close) { m_clickToClose = close; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;

private:
    QImage m_picture;
    bool m_clickToClose = false;
};
