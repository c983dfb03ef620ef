#include <algorithm>
#include <bit>
#include <cstring>
#include <vector>

#include "imaging/codec_formats.h"
#include "imaging/safe_file.h"

namespace codec {

namespace {

constexpr uint32_t kRgb = 0, kRle8 = 1, kRle4 = 2, kBitFields = 3, kAlphaBitFields = 6;

// One channel described by a bit mask, scaled to 0..255.
struct Field {
    uint32_t mask = 0;
    int shift = 0;
    int bits = 0;
    void Set(uint32_t m)
    {
        mask = m;
        shift = m ? std::countr_zero(m) : 0;
        bits = m ? std::popcount(m) : 0;
    }
    uint8_t Get(uint32_t v) const
    {
        if (!bits) return 0;
        const uint32_t x = (v & mask) >> shift;
        if (bits >= 8) return static_cast<uint8_t>(x >> (bits - 8));
        // Repeat the bits downwards (5 bits abcde give abcdeabc), as other readers do.
        uint32_t rep = 0;
        for (int filled = 0; filled < 8; filled += bits)
            rep = (rep << bits) | x;
        return static_cast<uint8_t>(rep >> (((8 + bits - 1) / bits) * bits - 8));
    }
};

// Run-length data: bottom-up rows, escapes for end of line, end of picture, a jump, and literal runs.
// Pixels the data skips stay transparent.
bool DecodeRle(const uint8_t* p, const uint8_t* end, int bits, const CPixel* palette, uint32_t paletteSize,
               COLImage& image)
{
    const uint32_t w = image.GetWidth(), h = image.GetHeight();
    std::fill(image.GetBuffer(), image.GetBuffer() + image.GetPixelCount(), CPixel{0, 0, 0, 0});
    uint32_t x = 0, y = 0; // y counts from the bottom row
    auto put = [&](uint32_t index) {
        if (x < w && y < h) image.PutPixel(x, h - 1 - y, index < paletteSize ? palette[index] : palette[0]);
        ++x;
    };
    while (p + 2 <= end) {
        const uint32_t n = p[0], v = p[1];
        p += 2;
        if (n > 0) { // a run of n pixels
            for (uint32_t i = 0; i < n; ++i)
                put(bits == 8 ? v : (i & 1) ? (v & 15) : (v >> 4));
            continue;
        }
        if (v == 0) { // end of line
            x = 0;
            ++y;
        } else if (v == 1) { // end of picture
            return true;
        } else if (v == 2) { // jump right and up
            if (p + 2 > end) return false;
            x += p[0];
            y += p[1];
            p += 2;
        } else { // v literal pixels, padded to a whole 16-bit word
            const size_t bytes = bits == 8 ? v : (v + 1) / 2;
            const size_t padded = (bytes + 1) & ~size_t(1);
            if (size_t(end - p) < padded) return false;
            for (uint32_t i = 0; i < v; ++i)
                put(bits == 8 ? p[i] : (i & 1) ? (p[i / 2] & 15) : (p[i / 2] >> 4));
            p += padded;
        }
        if (y > h) return false; // jumps far beyond the picture: damaged
    }
    return false; // the data ended without its end-of-picture mark
}

} // namespace

bool LoadBmp(const uint8_t* data, size_t size, COLImage& image)
{
    if (size < 26 || data[0] != 'B' || data[1] != 'M') return false;
    const uint32_t dataOffset = Le32(data + 10);
    const uint32_t headerSize = Le32(data + 14);
    if (headerSize < 12 || size - 14 < headerSize) return false;
    const uint8_t* hd = data + 14;
    int64_t width, height;
    uint32_t bits, compression = kRgb, colours = 0;
    uint32_t masks[4] = {0, 0, 0, 0};
    bool haveMasks = false;
    size_t paletteAt = 14 + size_t(headerSize);
    const int entrySize = headerSize == 12 ? 3 : 4;
    if (headerSize == 12) { // OS/2 core header
        width = Le16(hd + 4);
        height = static_cast<int16_t>(Le16(hd + 6));
        bits = Le16(hd + 10);
    } else {
        if (headerSize < 40) return false;
        width = static_cast<int32_t>(Le32(hd + 4));
        height = static_cast<int32_t>(Le32(hd + 8));
        bits = Le16(hd + 14);
        compression = Le32(hd + 16);
        colours = Le32(hd + 32);
        if (headerSize == 64 && compression > kRle4) return false; // OS/2 Huffman and RLE24
        if (compression == kBitFields || compression == kAlphaBitFields) {
            const int count = compression == kAlphaBitFields ? 4 : 3;
            if (headerSize >= 52) {
                for (int i = 0; i < 4 && 40 + 4 * size_t(i) + 4 <= headerSize; ++i)
                    masks[i] = Le32(hd + 40 + 4 * i);
            } else {
                if (size < paletteAt + 4 * size_t(count)) return false;
                for (int i = 0; i < count; ++i)
                    masks[i] = Le32(data + paletteAt + 4 * i);
                paletteAt += 4 * size_t(count);
            }
            haveMasks = true;
        }
    }
    const bool topDown = height < 0;
    if (topDown) height = -height;
    if (!SidesOk(uint64_t(width < 0 ? 0 : width), uint64_t(height))) return false;
    const uint32_t w = uint32_t(width), h = uint32_t(height);
    const bool rle = compression == kRle8 || compression == kRle4;
    if (rle && (topDown || bits != (compression == kRle8 ? 8u : 4u))) return false;
    if (compression != kRgb && !rle && compression != kBitFields && compression != kAlphaBitFields) return false;
    if (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32) return false;
    if ((compression == kBitFields || compression == kAlphaBitFields) && bits != 16 && bits != 32) return false;

    CPixel palette[256];
    uint32_t paletteSize = 0;
    if (bits <= 8) {
        paletteSize = colours && colours < (1u << bits) ? colours : (1u << bits);
        if (dataOffset > size || paletteAt > size) return false;
        const size_t room = dataOffset > paletteAt ? dataOffset - paletteAt : size - paletteAt;
        paletteSize = static_cast<uint32_t>(std::min<size_t>(paletteSize, room / entrySize));
        if (paletteSize == 0) return false;
        for (uint32_t i = 0; i < paletteSize; ++i) {
            const uint8_t* e = data + paletteAt + size_t(i) * entrySize;
            palette[i] = CPixel{e[0], e[1], e[2], 255};
        }
    }
    size_t pixelsAt = dataOffset;
    if (pixelsAt == 0 || pixelsAt >= size) return false;
    if (image.Create(w, h) != kOk) return false;
    if (rle) return DecodeRle(data + pixelsAt, data + size, int(bits), palette, paletteSize, image);

    const size_t stride = ((size_t(w) * bits + 31) / 32) * 4;
    if ((size - pixelsAt) / stride < h) return false;
    Field f[4];
    if (haveMasks) {
        for (int i = 0; i < 4; ++i)
            f[i].Set(masks[i]);
    } else if (bits == 16) { // plain 16-bit data is 5-5-5
        f[0].Set(0x7C00);
        f[1].Set(0x03E0);
        f[2].Set(0x001F);
    }
    const bool fields = bits == 16 || haveMasks;
    // Plain 32-bit data may carry alpha in its fourth byte or leave it zero; OpaqueIfAllClear tells which.
    const bool alphaInFile = fields ? f[3].bits > 0 : bits == 32;
    for (uint32_t r = 0; r < h; ++r) {
        const uint8_t* src = data + pixelsAt + size_t(r) * stride;
        CPixel* out = image.GetBuffer(0, topDown ? r : h - 1 - r);
        for (uint32_t x = 0; x < w; ++x) {
            CPixel& p = out[x];
            switch (bits) {
            case 1:
            case 4:
            case 8: {
                const uint32_t bit = x * bits;
                const uint32_t idx = (src[bit >> 3] >> (8 - bits - (bit & 7))) & ((1u << bits) - 1);
                p = idx < paletteSize ? palette[idx] : palette[0];
                break;
            }
            case 24:
                p = CPixel{src[3 * x], src[3 * x + 1], src[3 * x + 2], 255};
                break;
            default: {
                const uint32_t v = bits == 16 ? Le16(src + 2 * x) : Le32(src + 4 * x);
                if (fields) {
                    p = CPixel{f[2].Get(v), f[1].Get(v), f[0].Get(v), alphaInFile ? f[3].Get(v) : uint8_t(255)};
                } else {
                    p = CPixel{src[4 * x], src[4 * x + 1], src[4 * x + 2], src[4 * x + 3]};
                }
            }
            }
        }
    }
    if (alphaInFile) OpaqueIfAllClear(image);
    return true;
}

bool SaveBmp(const char* path, const COLImage& image)
{
    if (image.IsNull() || !SidesOk(image.GetWidth(), image.GetHeight())) return false;
    const uint32_t w = image.GetWidth(), h = image.GetHeight();
    const uint32_t stride = (w * 3 + 3) & ~3u;
    const uint32_t pixelBytes = stride * h;
    uint8_t header[54] = {'B', 'M'};
    auto put32 = [&](int at, uint32_t v) {
        for (int i = 0; i < 4; ++i)
            header[at + i] = static_cast<uint8_t>(v >> (8 * i));
    };
    put32(2, 54 + pixelBytes);
    put32(10, 54);
    put32(14, 40);
    put32(18, w);
    put32(22, h);
    header[26] = 1;
    header[28] = 24;
    put32(34, pixelBytes);
    put32(38, 2835); // 72 dpi
    put32(42, 2835);
    CSafeFileWriter writer;
    if (!writer.Open(path) || !writer.Write(header, sizeof header)) return false;
    std::vector<uint8_t> row(stride, 0);
    for (uint32_t r = 0; r < h; ++r) {
        const CPixel* p = image.GetBuffer(0, h - 1 - r);
        for (uint32_t x = 0; x < w; ++x) {
            row[3 * x] = p[x].blue;
            row[3 * x + 1] = p[x].green;
            row[3 * x + 2] = p[x].red;
        }
        if (!writer.Write(row.data(), stride)) return false;
    }
    return writer.Commit();
}

} // namespace codec
