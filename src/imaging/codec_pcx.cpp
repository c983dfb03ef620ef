#include <algorithm>
#include <vector>

#include "imaging/codec_formats.h"

namespace codec {

// PCX: 8-bit paletted (palette behind the data), 8-bit planar RGB and RGBA, 1-bit with one plane (black and
// white) or four planes (the 16 colours of the header).
bool LoadPcx(const uint8_t* data, size_t size, COLImage& image)
{
    if (size < 128 || data[0] != 0x0A || data[2] > 1) return false;
    const bool encoded = data[2] == 1;
    const uint32_t bits = data[3], planes = data[65], lineBytes = Le16(data + 66);
    const int64_t w = int64_t(Le16(data + 8)) - Le16(data + 4) + 1;
    const int64_t h = int64_t(Le16(data + 10)) - Le16(data + 6) + 1;
    if (w <= 0 || h <= 0 || !SidesOk(uint64_t(w), uint64_t(h))) return false;
    const bool paletted8 = bits == 8 && planes == 1;
    const bool rgb = bits == 8 && (planes == 3 || planes == 4);
    const bool mono = bits == 1 && planes == 1;
    const bool ega = bits == 1 && planes == 4;
    if (!paletted8 && !rgb && !mono && !ega) return false;
    if (lineBytes == 0 || size_t(lineBytes) * 8 < size_t(w) * bits) return false;

    CPixel palette[256];
    const uint8_t* end = data + size;
    if (paletted8) {
        // A version 5 file keeps 256 colours after a 12 behind the pixel data; without them the data is gray.
        const bool hasPalette = size >= 128 + 769 && data[size - 769] == 0x0C;
        for (int i = 0; i < 256; ++i) {
            const uint8_t* e = data + size - 768 + 3 * i;
            palette[i] = hasPalette ? CPixel::Make(e[0], e[1], e[2]) : CPixel::Make(uint8_t(i), uint8_t(i), uint8_t(i));
        }
        if (hasPalette) end = data + size - 769;
    } else if (ega) {
        for (int i = 0; i < 16; ++i)
            palette[i] = CPixel::Make(data[16 + 3 * i], data[17 + 3 * i], data[18 + 3 * i]);
    } else if (mono) {
        palette[0] = CPixel::Make(0, 0, 0);
        palette[1] = CPixel::Make(255, 255, 255);
    }
    if (image.Create(uint32_t(w), uint32_t(h)) != kOk) return false;

    const size_t scanBytes = size_t(lineBytes) * planes;
    std::vector<uint8_t> scan(scanBytes);
    const uint8_t* p = data + 128;
    uint32_t runLeft = 0; // a run may carry over from one line into the next
    uint8_t runValue = 0;
    for (uint32_t y = 0; y < uint32_t(h); ++y) {
        size_t filled = 0;
        while (filled < scanBytes) {
            if (runLeft) {
                const size_t n = std::min<size_t>(runLeft, scanBytes - filled);
                std::fill_n(scan.begin() + std::ptrdiff_t(filled), n, runValue);
                filled += n;
                runLeft -= uint32_t(n);
                continue;
            }
            if (p >= end) return false;
            const uint8_t c = *p++;
            if (encoded && (c & 0xC0) == 0xC0) {
                if (p >= end) return false;
                runLeft = c & 0x3F;
                runValue = *p++;
            } else {
                scan[filled++] = c;
            }
        }
        CPixel* out = image.GetBuffer(0, y);
        for (uint32_t x = 0; x < uint32_t(w); ++x) {
            if (paletted8) {
                out[x] = palette[scan[x]];
            } else if (rgb) {
                out[x] = CPixel::Make(scan[x], scan[lineBytes + x], scan[2 * size_t(lineBytes) + x],
                                      planes == 4 ? scan[3 * size_t(lineBytes) + x] : uint8_t(255));
            } else {
                uint32_t idx = 0;
                for (uint32_t k = 0; k < planes; ++k)
                    idx |= uint32_t((scan[k * size_t(lineBytes) + x / 8] >> (7 - x % 8)) & 1) << k;
                out[x] = palette[idx];
            }
        }
    }
    if (rgb && planes == 4) OpaqueIfAllClear(image);
    return true;
}

} // namespace codec
