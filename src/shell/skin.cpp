#include "shell/skin.h"

#include <QPainter>
#include <QRect>
#include <random>

#include "imaging/codec.h"
#include "shell/app_globals.h"

QImage ToQImage(const COLImage& image, bool opaque)
{
    if (image.IsNull()) return {};
    QImage out(int(image.GetWidth()), int(image.GetHeight()), opaque ? QImage::Format_RGB32 : QImage::Format_ARGB32);
    if (out.isNull()) return {};
    for (int y = 0; y < out.height(); ++y) {
        const CPixel* src = image.GetBuffer(0, uint32_t(y));
        auto* dst = reinterpret_cast<uint32_t*>(out.scanLine(y));
        for (int x = 0; x < out.width(); ++x)
            dst[x] = opaque ? (src[x].Word() | 0xFF000000u) : src[x].Word();
    }
    return out;
}

QImage LoadSkinPicture(const std::string& name)
{
    CAppGlobals* app = AppGlobals();
    if (!app) return {};
    COLImage picture;
    COLImageCodec codec;
    if (!codec.LoadFile(app->GetSkinPath(name).c_str(), &picture)) return {};
    return ToQImage(picture, false);
}

QColor FromBgr(int bgr)
{
    const uint32_t v = static_cast<uint32_t>(bgr);
    return QColor(int(v & 0xFF), int((v >> 8) & 0xFF), int((v >> 16) & 0xFF));
}

void CSkin::Load()
{
    CAppGlobals* app = AppGlobals();
    auto colour = [&](const char* key) { return FromBgr(app ? app->GetProfileInt(key) : ProfileIntDefault(key)); };
    m_darkColor = colour("DarkColor");
    m_lightColor = colour("LightColor");
    m_fontColor = colour("FontColor");
    m_backColor = colour("BackColor");
    m_backLightColor = colour("BackLightColor");
    m_backDarkColor = colour("BackDarkColor");
    // The table's face first, then CJK faces that Linux systems have, so Chinese never shows as boxes.
    m_font.setFamilies({QString::fromStdString(GetString("font")), QStringLiteral("WenQuanYi Zen Hei"),
                        QStringLiteral("Noto Sans CJK SC"), QStringLiteral("Sans Serif")});
    m_font.setPixelSize(12);
    m_valid = true;
}

bool CSkin::LoadPicture(const std::string& name)
{
    m_backPicture = LoadSkinPicture(name);
    return !m_backPicture.isNull();
}

void CSkin::Fill(QPainter& painter, const QRect& rect) const
{
    if (!m_backPicture.isNull()) {
        painter.save();
        painter.setRenderHint(QPainter::SmoothPixmapTransform, true);
        painter.drawImage(rect, m_backPicture);
        painter.restore();
    } else {
        painter.fillRect(rect, m_backColor);
    }
}

void Gradient(COLImage& target, int width, int height, bool vertical, uint32_t from, uint32_t to, uint32_t seed)
{
    if (width <= 0 || height <= 0 || target.Create(uint32_t(width), uint32_t(height)) != kOk) return;
    std::mt19937 rng(seed);
    const int steps = std::max(1, (vertical ? height : width) - 1);
    for (int y = 0; y < height; ++y) {
        CPixel* row = target.GetBuffer(0, uint32_t(y));
        for (int x = 0; x < width; ++x) {
            const int t = vertical ? y : x;
            uint8_t c[3];
            for (int k = 0; k < 3; ++k) {
                const int a = int((from >> (16 - 8 * k)) & 0xFF), b = int((to >> (16 - 8 * k)) & 0xFF);
                // 8 fractional bits; the dither picks the lower or upper neighbour by the fraction.
                const int v256 = a * 256 + (b - a) * 256 * t / steps;
                const int frac = v256 & 0xFF;
                int v = v256 >> 8;
                if (frac && int(rng() & 0xFF) < frac) ++v;
                c[k] = uint8_t(std::clamp(v, 0, 255));
            }
            row[x] = CPixel::Make(c[0], c[1], c[2], 255);
        }
    }
}
