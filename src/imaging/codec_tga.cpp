#include <algorithm>
#include <cstring>
#include <vector>

#include "imaging/codec_formats.h"
#include "imaging/safe_file.h"

namespace codec {

namespace {

// The footer of a version 2 file; it makes the format recognisable by its content.
constexpr char kFooterSignature[18] = {'T', 'R', 'U', 'E', 'V', 'I', 'S', 'I', 'O',
                                       'N', '-', 'X', 'F', 'I', 'L', 'E', '.', '\0'};

// One stored value (index, gray or colour) of the given depth turned into a pixel.
CPixel Colour(const uint8_t* p, int depth, bool gray)
{
    if (gray) return CPixel{p[0], p[0], p[0], depth == 16 ? p[1] : uint8_t(255)}; // 16 bits: gray, alpha
    switch (depth) {
    case 8:
        return CPixel{p[0], p[0], p[0], 255};
    case 15:
    case 16: {
        const uint32_t v = Le16(p);
        auto five = [](uint32_t x) { return static_cast<uint8_t>((x << 3) | (x >> 2)); };
        return CPixel{five(v & 31), five((v >> 5) & 31), five((v >> 10) & 31),
                      static_cast<uint8_t>(depth == 16 && (v & 0x8000) ? 255 : 0)};
    }
    case 24:
        return CPixel{p[0], p[1], p[2], 255};
    default:
        return CPixel{p[0], p[1], p[2], p[3]};
    }
}

} // namespace

bool LoadTga(const uint8_t* data, size_t size, COLImage& image)
{
    if (size < 18) return false;
    const uint32_t idLength = data[0], mapType = data[1], type = data[2];
    const uint32_t mapFirst = Le16(data + 3), mapLength = Le16(data + 5), mapDepth = data[7];
    const uint32_t w = Le16(data + 12), h = Le16(data + 14), depth = data[16], descriptor = data[17];
    if (!SidesOk(w, h) || mapType > 1) return false;
    const uint32_t base = type & ~8u;
    const bool rle = (type & 8) != 0;
    if (base < 1 || base > 3) return false;
    const bool mapped = base == 1, gray = base == 3;
    if (mapped && (mapType != 1 || depth != 8)) return false;
    if (gray && depth != 8 && depth != 16) return false;
    if (base == 2 && depth != 15 && depth != 16 && depth != 24 && depth != 32) return false;
    size_t at = 18 + idLength;
    std::vector<CPixel> palette;
    if (mapType == 1) {
        if (mapDepth != 15 && mapDepth != 16 && mapDepth != 24 && mapDepth != 32) return false;
        const size_t entry = (mapDepth + 7) / 8;
        if (size < at || (size - at) / entry < mapLength) return false;
        if (mapped) {
            palette.resize(mapLength);
            for (uint32_t i = 0; i < mapLength; ++i)
                palette[i] = Colour(data + at + i * entry, int(mapDepth), false);
        }
        at += mapLength * entry;
    }
    if (at > size) return false;
    const size_t bytes = (depth + 7) / 8;
    // 16-bit colour and 32-bit files carry alpha; 15-bit and 24-bit ones don't.
    const int alphaDepth = mapped ? int(mapDepth) : int(depth);
    const bool hasAlpha = gray ? depth == 16 : (alphaDepth == 32 || (alphaDepth == 16 && (descriptor & 15) != 0));
    auto decode = [&](const uint8_t* p) {
        if (!mapped) {
            CPixel c = Colour(p, int(depth), gray);
            if (!hasAlpha) c.alpha = 255;
            return c;
        }
        const uint32_t idx = p[0];
        if (idx < mapFirst || idx - mapFirst >= palette.size()) return CPixel::Make(0, 0, 0);
        CPixel c = palette[idx - mapFirst];
        if (!hasAlpha) c.alpha = 255;
        return c;
    };
    if (image.Create(w, h) != kOk) return false;
    // Pixels in stored order; placed by the origin bits afterwards.
    const size_t total = size_t(w) * h;
    CPixel* out = image.GetBuffer();
    const uint8_t* p = data + at;
    const uint8_t* end = data + size;
    if (!rle) {
        if (size_t(end - p) / bytes < total) return false;
        for (size_t i = 0; i < total; ++i, p += bytes)
            out[i] = decode(p);
    } else {
        size_t i = 0;
        while (i < total) {
            if (p >= end) return false;
            const uint8_t head = *p++;
            const size_t count = std::min<size_t>((head & 0x7F) + 1u, total - i);
            if (head & 0x80) {
                if (size_t(end - p) < bytes) return false;
                const CPixel c = decode(p);
                p += bytes;
                std::fill(out + i, out + i + count, c);
            } else {
                if (size_t(end - p) / bytes < count) return false;
                for (size_t k = 0; k < count; ++k, p += bytes)
                    out[i + k] = decode(p);
            }
            i += count;
        }
    }
    if (descriptor & 0x10) // right to left
        for (uint32_t y = 0; y < h; ++y)
            std::reverse(image.GetBuffer(0, y), image.GetBuffer(0, y) + w);
    if (!(descriptor & 0x20)) // bottom to top, the usual order
        for (uint32_t y = 0; y < h / 2; ++y)
            std::swap_ranges(image.GetBuffer(0, y), image.GetBuffer(0, y) + w, image.GetBuffer(0, h - 1 - y));
    if (hasAlpha) OpaqueIfAllClear(image);
    return true;
}

bool IsTgaFooter(const uint8_t* data, size_t size)
{
    return size >= 44 && std::memcmp(data + size - 18, kFooterSignature, 18) == 0;
}

bool SaveTga(const char* path, const COLImage& image)
{
    if (image.IsNull() || !SidesOk(image.GetWidth(), image.GetHeight())) return false;
    const uint32_t w = image.GetWidth(), h = image.GetHeight();
    if (w > 0xFFFF || h > 0xFFFF) return false;
    uint8_t header[18] = {};
    header[2] = 2; // uncompressed true colour
    header[12] = static_cast<uint8_t>(w);
    header[13] = static_cast<uint8_t>(w >> 8);
    header[14] = static_cast<uint8_t>(h);
    header[15] = static_cast<uint8_t>(h >> 8);
    header[16] = 24;
    header[17] = 0; // bottom-left origin, no alpha bits
    CSafeFileWriter writer;
    if (!writer.Open(path) || !writer.Write(header, sizeof header)) return false;
    std::vector<uint8_t> row(size_t(w) * 3);
    for (uint32_t r = 0; r < h; ++r) {
        const CPixel* p = image.GetBuffer(0, h - 1 - r);
        for (uint32_t x = 0; x < w; ++x) {
            row[3 * x] = p[x].blue;
            row[3 * x + 1] = p[x].green;
            row[3 * x + 2] = p[x].red;
        }
        if (!writer.Write(row.data(), row.size())) return false;
    }
    uint8_t footer[26] = {}; // no extension area, no developer area
    std::memcpy(footer + 8, kFooterSignature, sizeof kFooterSignature);
    if (!writer.Write(footer, sizeof footer)) return false;
    return writer.Commit();
}

} // namespace codec
