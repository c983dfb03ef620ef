#include "codec_test_util.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

#include "support/engine_checks.h"

namespace codectest {

bool ReadPam(const std::string& path, COLImage& image)
{
    std::ifstream in(path, std::ios::binary);
    std::string line;
    if (!std::getline(in, line) || line != "P7") return false;
    uint32_t w = 0, h = 0, depth = 0, maxval = 0;
    const std::map<std::string, uint32_t*> fields = {
        {"WIDTH", &w}, {"HEIGHT", &h}, {"DEPTH", &depth}, {"MAXVAL", &maxval}};
    while (std::getline(in, line) && line != "ENDHDR") {
        std::istringstream s(line);
        std::string key;
        s >> key;
        if (const auto field = fields.find(key); field != fields.end()) s >> *field->second;
    }
    if (!w || !h || depth < 1 || depth > 4 || (maxval != 255 && maxval != 65535)) return false;
    std::vector<uint8_t> raw(size_t(w) * h * depth);
    if (maxval == 255) {
        if (!in.read(reinterpret_cast<char*>(raw.data()), std::streamsize(raw.size()))) return false;
    } else {
        // 16-bit samples, big-endian, rounded to the nearest 8-bit value.
        std::vector<uint8_t> wide(raw.size() * 2);
        if (!in.read(reinterpret_cast<char*>(wide.data()), std::streamsize(wide.size()))) return false;
        for (size_t i = 0; i < raw.size(); ++i)
            raw[i] = uint8_t(((wide[2 * i] << 8 | wide[2 * i + 1]) * 255 + 32767) / 65535);
    }
    if (image.Create(w, h) != kOk) return false;
    for (size_t i = 0; i < size_t(w) * h; ++i) {
        const uint8_t* p = raw.data() + i * depth;
        CPixel& o = image.GetBuffer()[i];
        if (depth <= 2)
            o = CPixel::Make(p[0], p[0], p[0], depth == 2 ? p[1] : 255);
        else
            o = CPixel::Make(p[0], p[1], p[2], depth == 4 ? p[3] : 255);
    }
    return true;
}

COLImage Pattern(uint32_t width, uint32_t height, bool withAlpha)
{
    return vmtest::Picture(width, height, [&](uint32_t x, uint32_t y) {
        const uint8_t r = uint8_t(x * 255 / std::max(1u, width - 1));
        const uint8_t g = uint8_t(y * 255 / std::max(1u, height - 1));
        const uint8_t b = uint8_t(((x / 4 + y / 3) & 1) ? 200 : 30);
        const uint8_t a = withAlpha ? uint8_t((x + 2 * y) * 255 / std::max(1u, width + 2 * height - 3)) : 255;
        return CPixel::Make(r, g, b, a);
    });
}

vmtest::ByteWriter BmpHeader(int32_t width, int32_t height, uint16_t bits, uint32_t compression, uint32_t headerSize,
                             uint32_t dataOffset, uint32_t colours)
{
    vmtest::ByteWriter b;
    b.Str("BM");
    b.U32(0);
    b.U32(0);
    b.U32(dataOffset);
    b.U32(headerSize);
    b.U32(uint32_t(width));
    b.U32(uint32_t(height));
    b.U16(1);
    b.U16(bits);
    b.U32(compression);
    b.U32(0);
    b.U32(2835);
    b.U32(2835);
    b.U32(colours);
    b.U32(0);
    return b;
}

// Inserts an APP1 Exif segment holding only an orientation tag right after SOI.
std::vector<uint8_t> WithOrientation(const std::vector<uint8_t>& jpeg, int orientation, bool bigEndian)
{
    vmtest::ByteWriter tiff(bigEndian);
    tiff.Str(bigEndian ? "MM" : "II");
    tiff.U16(42);
    tiff.U32(8);
    tiff.U16(2); // two entries: a resolution unit first, then the orientation
    tiff.U16(0x0128), tiff.U16(3), tiff.U32(1), tiff.U16(2), tiff.U16(0);
    tiff.U16(0x0112), tiff.U16(3), tiff.U32(1), tiff.U16(uint32_t(orientation)), tiff.U16(0);
    tiff.U32(0);
    vmtest::ByteWriter out(true); // after SOI, the segment; JPEG's own numbers are big-endian
    out.insert(out.end(), jpeg.begin(), jpeg.begin() + 2);
    out.U16(0xFFE1);
    out.U16(uint32_t(2 + 6 + tiff.size()));
    out.Str(std::string("Exif\0\0", 6));
    out.Add(tiff);
    out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
    return out;
}

} // namespace codectest
