#pragma once

#include <QColor>
#include <QFont>
#include <QImage>
#include <QString>

#include "imaging/image.h"

class QPainter;
class QRect;

// A COLImage as a toolkit picture (a copy). opaque: alpha is ignored (it may hold a selection or nothing).
QImage ToQImage(const COLImage& image, bool opaque);
// A picture of the skin folder through the codec; a null picture when it is missing or unreadable.
QImage LoadSkinPicture(const std::string& name);
// A colour as the profile stores it: 0xBBGGRR.
QColor FromBgr(int bgr);

// The look of a panel: six colours from the profile, the font of the texts, and an optional background picture.
// Without the picture, Fill paints the back colour.
class CSkin {
public:
    void Load();
    bool LoadPicture(const std::string& name);
    void Fill(QPainter& painter, const QRect& rect) const;

    bool m_valid = false;
    QColor m_darkColor, m_lightColor, m_fontColor, m_backDarkColor, m_backColor, m_backLightColor;
    QFont m_font;
    QImage m_backPicture;
};

// A vertical or horizontal blend between two colours (0xRRGGBB) with a random dither in the last bits, as
// panel backgrounds use it. seed makes it repeatable.
void Gradient(COLImage& target, int width, int height, bool vertical, uint32_t from, uint32_t to, uint32_t seed = 1);
