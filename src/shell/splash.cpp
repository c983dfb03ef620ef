#include "shell/splash.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QScreen>

#include "imaging/image.h"
#include "shell/skin.h"

CSplashWindow::CSplashWindow(QWidget* parent)
    : QWidget(parent, Qt::SplashScreen | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint)
{
    setAttribute(Qt::WA_DeleteOnClose, false);
}

bool CSplashWindow::LoadPicture(const std::string& path)
{
    COLImage picture;
    if (picture.LoadFromFile(path.c_str()) != kOk) return false;
    // The small reader leaves alpha alone; the splash is opaque.
    m_picture = ToQImage(picture, true);
    if (m_picture.isNull()) return false;
    setFixedSize(m_picture.size());
    return true;
}

void CSplashWindow::ShowCentred()
{
    if (m_picture.isNull()) return;
    if (QScreen* screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        move(area.center() - QPoint(width() / 2, height() / 2));
    }
    show();
    if (QGuiApplication::platformName() != QLatin1String("offscreen")) raise();
}

void CSplashWindow::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    if (!m_picture.isNull()) p.drawImage(0, 0, m_picture);
}

void CSplashWindow::mousePressEvent(QMouseEvent*)
{
    if (m_clickToClose) hide();
}
