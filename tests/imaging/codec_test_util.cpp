#include "codec_test_util.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "support/engine_checks.h"

namespace codectest {

bool ReadPam(const std::string& path, COLImage& image)
{
    std::ifstream in(path, std::ios::binary);
    std::string line;
    if (!std::getline(in, line) || line != "P7") return false;
    uint32_t w = 0, h = 0, depth = 0, maxval = 0;
    while (std::getline(in, line) && line != "ENDHDR") {
        std::istringstream s(line);
        std::string key;
        s >> key;
        if (key == "WIDTH")
            s >> w;
        else if (key == "HEIGHT")
            s >> h;
        else if (key == "DEPTH")
            s >> depth;
        else if (key == "MAXVAL")
            s >> maxval;
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

// Inserts an APP1 Exif segment holding only an orientation tag right after SOI.
std::vector<uint8_t> WithOrientation(const std::vector<uint8_t>& jpeg, int orientation, bool bigEndian)
{
    std::vector<uint8_t> tiff;
    auto p16 = [&](uint32_t v) {
        if (bigEndian) {
            tiff.push_back(uint8_t(v >> 8));
            tiff.push_back(uint8_t(v));
        } else {
            tiff.push_back(uint8_t(v));
            tiff.push_back(uint8_t(v >> 8));
        }
    };
    auto p32 = [&](uint32_t v) {
        if (bigEndian) {
            p16(v >> 16);
            p16(v & 0xFFFF);
        } else {
            p16(v & 0xFFFF);
            p16(v >> 16);
        }
    };
    tiff.push_back(bigEndian ? 'M' : 'I');
    tiff.push_back(bigEndian ? 'M' : 'I');
    p16(42);
    p32(8);
    p16(2); // two entries: a resolution unit first, then the orientation
    p16(0x0128), p16(3), p32(1), p16(2), p16(0);
    p16(0x0112), p16(3), p32(1), p16(uint32_t(orientation)), p16(0);
    p32(0);
    std::vector<uint8_t> seg = {0xFF, 0xE1};
    const size_t len = 2 + 6 + tiff.size();
    seg.push_back(uint8_t(len >> 8));
    seg.push_back(uint8_t(len));
    for (char c : std::string("Exif\0\0", 6))
        seg.push_back(uint8_t(c));
    seg.insert(seg.end(), tiff.begin(), tiff.end());
    std::vector<uint8_t> out(jpeg.begin(), jpeg.begin() + 2);
    out.insert(out.end(), seg.begin(), seg.end());
    out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
    return out;
}

} // namespace codectest
