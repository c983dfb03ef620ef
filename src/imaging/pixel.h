#pragma once

#include <cstdint>
#include <cstdlib>

// One 32-bit pixel: bytes blue, green, red, alpha in memory, 0xAARRGGBB as a little-endian word.
// Alpha is straight coverage, never premultiplied, and doubles as scratch storage (gray, edge strength).
struct CPixel {
    uint8_t blue;
    uint8_t green;
    uint8_t red;
    uint8_t alpha;

    // Gray (3R + 6G + B) / 10; also stored into alpha, which callers rely on.
    uint8_t GetGray()
    {
        alpha = GetGray2();
        return alpha;
    }
    uint8_t GetGray2() const { return static_cast<uint8_t>((3 * red + 6 * green + blue) / 10); }

    // Comparisons and distance look at colour only.
    int operator==(const CPixel& o) const { return red == o.red && green == o.green && blue == o.blue; }
    int operator!=(const CPixel& o) const { return !(*this == o); }
    int operator-(const CPixel& o) const
    {
        return std::abs(red - o.red) + std::abs(green - o.green) + std::abs(blue - o.blue);
    }
    void operator+=(int v)
    {
        red = Saturate(red + v);
        green = Saturate(green + v);
        blue = Saturate(blue + v);
    }
    void operator-=(int v)
    {
        red = Saturate(red - v);
        green = Saturate(green - v);
        blue = Saturate(blue - v);
    }

    uint32_t Word() const
    {
        return static_cast<uint32_t>(blue) | static_cast<uint32_t>(green) << 8 | static_cast<uint32_t>(red) << 16 |
               static_cast<uint32_t>(alpha) << 24;
    }
    static CPixel FromWord(uint32_t w)
    {
        return CPixel{static_cast<uint8_t>(w), static_cast<uint8_t>(w >> 8), static_cast<uint8_t>(w >> 16),
                      static_cast<uint8_t>(w >> 24)};
    }
    static CPixel Make(uint8_t r, uint8_t g, uint8_t b, uint8_t a = 255) { return CPixel{b, g, r, a}; }

private:
    static uint8_t Saturate(int v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }
};
static_assert(sizeof(CPixel) == 4, "CPixel must stay 4 bytes");
