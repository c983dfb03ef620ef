#include "imaging/bitmap16.h"

#include <cstdlib>
#include <memory>
#include <new>

#include "imaging/image.h"

C16BitBitmap::~C16BitBitmap() { Free(); }

int C16BitBitmap::Create(uint32_t width, uint32_t height)
{
    Free();
    m_pBuffer = static_cast<C16BitPixel*>(std::malloc(size_t(width) * height * sizeof(C16BitPixel)));
    if (!m_pBuffer) return 0;
    m_width = width;
    m_height = height;
    return 1;
}

void C16BitBitmap::Free()
{
    std::free(m_pBuffer);
    m_pBuffer = nullptr;
}

int C16BitBitmap::ConvertFromSimpleBitmap(const COLImage* image, int smart)
{
    if (!image || image->IsNull()) return 0;
    if (!Create(image->GetWidth(), image->GetHeight())) return 0;
    if (smart) return SmartConvert(image);
    const CPixel* src = image->GetBuffer();
    const size_t n = size_t(m_width) * m_height;
    for (size_t i = 0; i < n; ++i) m_pBuffer[i] = src[i];
    return 1;
}

void C16BitBitmap::SmoothInChannel(uint16_t* values, int count, int stride)
{
    if (count <= 0) return;
    int prev = values[0];
    int i = 0;
    while (i < count) {
        const int v = values[size_t(i) * stride];
        int j = i;
        while (j < count && values[size_t(j) * stride] == v) ++j;
        if (j >= count) return;   // the last run of a line is left as it is
        const int run = j - i;
        const int next = values[size_t(j) * stride];
        if (run == 1) {
            if (std::abs(prev - v) < 0x800 && std::abs(next - v) < 0x800)
                values[size_t(i) * stride] = static_cast<uint16_t>((next + prev) / 2);
        } else {
            int h = run / 2;
            if (h > 8) h = 8;
            const int d = v - prev;
            if (std::abs(d) < 0x800 && h > 0)
                for (int k = 0; k < h; ++k)
                    values[size_t(i + k) * stride] = static_cast<uint16_t>(v - ((d / 2) * (h - k)) / h);
            // The trailing ramp starts at element h, so a long run keeps v in its tail.
            const int d2 = next - v;
            if (std::abs(d2) < 0x800)
                for (int k = 0; k < h; ++k)
                    values[size_t(i + h + k) * stride] = static_cast<uint16_t>(v + (k * (d2 / 2)) / h);
        }
        prev = v;
        i = j;
    }
}

void C16BitBitmap::ConvertLine(C16BitPixel* destination, const CPixel* source, int count, int stride)
{
    for (int i = 0; i < count; ++i) destination[size_t(i) * stride] = source[size_t(i) * stride];
    uint16_t* base = reinterpret_cast<uint16_t*>(destination);
    for (int c = 0; c < 3; ++c) SmoothInChannel(base + c, count, 3 * stride);
}

int C16BitBitmap::SmartConvert(const COLImage* image)
{
    const size_t n = size_t(m_width) * m_height;
    std::unique_ptr<C16BitPixel[]> temp(new (std::nothrow) C16BitPixel[n]);
    if (!temp) return 0;
    const int w = static_cast<int>(m_width), h = static_cast<int>(m_height);
    for (int y = 0; y < h; ++y) ConvertLine(temp.get() + size_t(y) * w, image->GetBuffer(0, y), w, 1);
    for (int x = 0; x < w; ++x) ConvertLine(m_pBuffer + x, image->GetBuffer(x, 0), h, w);
    uint16_t* a = reinterpret_cast<uint16_t*>(m_pBuffer);
    const uint16_t* b = reinterpret_cast<const uint16_t*>(temp.get());
    for (size_t i = 0; i < n * 3; ++i) a[i] = static_cast<uint16_t>((a[i] + b[i]) >> 1);
    return 1;
}

int C16BitBitmap::ConvertToSimpleBitmap(COLImage* image, int dither)
{
    if (!m_pBuffer || !image) return 0;
    if (image->Create(m_width, m_height) != kOk) return 0;
    CPixel* dst = image->GetBuffer();
    const size_t n = size_t(m_width) * m_height;
    if (!dither) {
        for (size_t i = 0; i < n; ++i) dst[i] = m_pBuffer[i].GetPixel();
        return 1;
    }
    auto addClamped = [](uint16_t& c, int q) {
        const int v = c + q;
        c = static_cast<uint16_t>(v < 0 ? 0 : (v > 65535 ? 65535 : v));
    };
    for (uint32_t y = 0; y < m_height; ++y) {
        for (uint32_t x = 0; x < m_width; ++x) {
            uint16_t* c = reinterpret_cast<uint16_t*>(m_pBuffer + size_t(y) * m_width + x);
            uint8_t out[3];
            for (int k = 0; k < 3; ++k) {
                out[k] = C16BitPixel::To8(c[k]);
                // A quarter of the residue each to the right, below and diagonally; the last quarter is dropped.
                const int q = (c[k] - out[k] * 256) / 4;
                const bool lastCol = x + 1 == m_width, lastRow = y + 1 == m_height;
                if (!lastCol) addClamped(c[3 + k], q);
                if (!lastRow) addClamped(c[size_t(m_width) * 3 + k], q);
                if (!lastCol && !lastRow) addClamped(c[size_t(m_width) * 3 + 3 + k], q);
            }
            CPixel& p = dst[size_t(y) * m_width + x];
            p.blue = out[0];
            p.green = out[1];
            p.red = out[2];
            p.alpha = 255;
        }
    }
    return 1;
}

void C16BitBitmap::SaveToBmpFile(const char* path)
{
    COLImage temp;
    if (ConvertToSimpleBitmap(&temp, 1)) temp.SaveToFile(path);
}
