#include <algorithm>

#include "imaging/codec.h"

// Colour forms of the codec, all integer and table-free so that they can be called per pixel from any thread.
// HSB: the hexagon model; brightness is the largest component, saturation the spread relative to it, and the
// colour circle of 360 degrees is mapped onto 0..255 with 255 a full turn (red 0, green 85, blue 170, red again at
// 255), so that the primaries are exact and a strip of 256 columns shows the whole circle, red at both ends.
// YUV: BT.601 luma with full-range chroma offset by 128, as JPEG uses it; 16-bit fixed point, rounded.

namespace {

inline uint8_t Clamp255(int v)
{
    return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
}

inline void ToHsb(CPixel& p)
{
    const int r = p.red, g = p.green, b = p.blue;
    const int mx = std::max({r, g, b}), mn = std::min({r, g, b}), d = mx - mn;
    int hue = 0;
    if (d > 0) {
        // Position on the hexagon in units of d, 0 .. 6d, then scaled to 255 per turn with rounding.
        int pos;
        if (mx == r)
            pos = g - b < 0 ? g - b + 6 * d : g - b;
        else if (mx == g)
            pos = 2 * d + b - r;
        else
            pos = 4 * d + r - g;
        hue = (pos * 510 + 6 * d) / (12 * d);
    }
    p.blue = static_cast<uint8_t>(mx);
    p.green = static_cast<uint8_t>(mx ? (255 * d + mx / 2) / mx : 0);
    p.red = static_cast<uint8_t>(hue);
}

inline void FromHsb(CPixel& p)
{
    const int hue = p.red, s = p.green, v = p.blue;
    const int chroma = (v * s + 127) / 255, mn = v - chroma;
    const int h6 = (hue * 1536 + 127) / 255; // six sextants of 256 steps
    const int sextant = (h6 >> 8) % 6, f = h6 & 255;
    const int step = (chroma * f + 128) >> 8;
    const int rise = mn + step, fall = v - step;
    int r, g, b;
    switch (sextant) {
    case 0:
        r = v;
        g = rise;
        b = mn;
        break;
    case 1:
        r = fall;
        g = v;
        b = mn;
        break;
    case 2:
        r = mn;
        g = v;
        b = rise;
        break;
    case 3:
        r = mn;
        g = fall;
        b = v;
        break;
    case 4:
        r = rise;
        g = mn;
        b = v;
        break;
    default:
        r = v;
        g = mn;
        b = fall;
        break;
    }
    p.red = Clamp255(r);
    p.green = Clamp255(g);
    p.blue = Clamp255(b);
}

inline void ToYuv(CPixel& p)
{
    const int r = p.red, g = p.green, b = p.blue;
    const int y = (19595 * r + 38470 * g + 7471 * b + 32768) >> 16;
    const int cb = ((-11059 * r - 21709 * g + 32768 * b + 32768) >> 16) + 128;
    const int cr = ((32768 * r - 27439 * g - 5329 * b + 32768) >> 16) + 128;
    p.red = Clamp255(y);
    p.blue = Clamp255(cb);
    p.green = Clamp255(cr);
}

inline void FromYuv(CPixel& p)
{
    const int y = p.red << 16, cb = p.blue - 128, cr = p.green - 128;
    p.red = Clamp255((y + 91881 * cr + 32768) >> 16);
    p.green = Clamp255((y - 22554 * cb - 46802 * cr + 32768) >> 16);
    p.blue = Clamp255((y + 116130 * cb + 32768) >> 16);
}

} // namespace

void COLImageCodec::RGB2HSB(CPixel* pixels, int count)
{
    for (int i = 0; pixels && i < count; ++i)
        ToHsb(pixels[i]);
}

void COLImageCodec::HSB2RGB(CPixel* pixels, int count)
{
    for (int i = 0; pixels && i < count; ++i)
        FromHsb(pixels[i]);
}

void COLImageCodec::RGB2YUV(CPixel* pixels, int count)
{
    for (int i = 0; pixels && i < count; ++i)
        ToYuv(pixels[i]);
}

int COLImageCodec::RGBToYUV(COLImage* image)
{
    if (!image || image->IsNull()) return 0;
    CPixel* p = image->GetBuffer();
    for (size_t i = 0, n = image->GetPixelCount(); i < n; ++i)
        ToYuv(p[i]);
    return 1;
}

int COLImageCodec::YUVToRGB(COLImage* image)
{
    if (!image || image->IsNull()) return 0;
    CPixel* p = image->GetBuffer();
    for (size_t i = 0, n = image->GetPixelCount(); i < n; ++i)
        FromYuv(p[i]);
    return 1;
}
