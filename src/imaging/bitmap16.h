#pragma once

#include <cstddef>
#include <cstdint>

#include "imaging/pixel.h"

class COLImage;

// 16 bits per colour, no alpha: blue, green, red. An 8-bit value v is stored as v * 256.
struct C16BitPixel {
    uint16_t blue;
    uint16_t green;
    uint16_t red;

    CPixel GetPixel() const
    {
        CPixel p{};
        p.blue = To8(blue);
        p.green = To8(green);
        p.red = To8(red);
        p.alpha = 255;
        return p;
    }
    C16BitPixel& operator=(const CPixel& p)
    {
        blue = static_cast<uint16_t>(p.blue * 256);
        green = static_cast<uint16_t>(p.green * 256);
        red = static_cast<uint16_t>(p.red * 256);
        return *this;
    }
    bool operator==(const C16BitPixel& o) const { return blue == o.blue && green == o.green && red == o.red; }
    bool operator!=(const C16BitPixel& o) const { return !(*this == o); }
    int GetGray() const { return (3 * red + 6 * green + blue) / 10; }

    static uint8_t To8(uint16_t c)
    {
        const int v = (c + 128) >> 8;
        return static_cast<uint8_t>(v > 255 ? 255 : v);
    }
};
static_assert(sizeof(C16BitPixel) == 6, "C16BitPixel must stay 6 bytes");

// High-precision intermediate picture for work on gradients without banding.
class C16BitBitmap {
public:
    C16BitBitmap() = default;
    virtual ~C16BitBitmap();
    C16BitBitmap(const C16BitBitmap&) = delete;
    C16BitBitmap& operator=(const C16BitBitmap&) = delete;

    int Create(uint32_t width, uint32_t height);   // always reallocates, not cleared
    void Free();
    C16BitPixel* GetBuffer(uint32_t x = 0, uint32_t y = 0) const
    {
        return m_pBuffer ? m_pBuffer + (size_t(y) * m_width + x) : nullptr;
    }
    C16BitPixel GetPixel(uint32_t x, uint32_t y) const { return m_pBuffer[size_t(y) * m_width + x]; }
    // Clamps with an unsigned test: a negative coordinate lands on the last column or row.
    C16BitPixel SafeGetPixel(int x, int y) const
    {
        uint32_t ux = static_cast<uint32_t>(x), uy = static_cast<uint32_t>(y);
        if (ux > m_width - 1) ux = m_width - 1;
        if (uy > m_height - 1) uy = m_height - 1;
        return m_pBuffer[size_t(uy) * m_width + ux];
    }
    uint32_t GetWidth() const { return m_width; }
    uint32_t GetHeight() const { return m_height; }

    // Smart 1 smooths the staircase of 8-bit data (mean of a horizontal and a vertical pass).
    int ConvertFromSimpleBitmap(const COLImage* image, int smart);
    // Dither 1 diffuses the rounding error and changes this bitmap while doing so.
    int ConvertToSimpleBitmap(COLImage* image, int dither);
    void SaveToBmpFile(const char* path);

    // Exposed for tests: the ramp smoothing of one channel of a line.
    static void SmoothInChannel(uint16_t* values, int count, int stride);

private:
    int SmartConvert(const COLImage* image);
    static void ConvertLine(C16BitPixel* destination, const CPixel* source, int count, int stride);

    C16BitPixel* m_pBuffer = nullptr;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
};
