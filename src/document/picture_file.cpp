#include "document/picture_file.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>

#include "imaging/image.h"
#include "imaging/safe_file.h"

// Until the image codec is available only uncompressed BMP goes in and out here.

namespace {

bool ReadHead(const char* path, uint8_t* head, size_t size, size_t& got)
{
    FILE* f = path ? std::fopen(path, "rb") : nullptr;
    if (!f) return false;
    got = std::fread(head, 1, size, f);
    std::fclose(f);
    return true;
}

uint32_t Le32(const uint8_t* p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24; }

bool EndsWithNoCase(const std::string& s, const char* suffix)
{
    const size_t n = std::strlen(suffix);
    if (s.size() < n) return false;
    for (size_t i = 0; i < n; ++i)
        if (std::tolower(static_cast<unsigned char>(s[s.size() - n + i])) != suffix[i]) return false;
    return true;
}

} // namespace

uint32_t GetPictureFileType(const char* path)
{
    uint8_t head[54] = {};
    size_t got = 0;
    if (!ReadHead(path, head, sizeof head, got)) return kFileTypeUnusable;
    if (got >= 4 && std::memcmp(head, "VMPD", 4) == 0) return kFileTypeProject;
    if (got >= 4 && std::memcmp(head, "8BPS", 4) == 0) return kFileTypePsd;
    if (got == sizeof head && head[0] == 'B' && head[1] == 'M') {
        const uint32_t bits = head[28] | head[29] << 8;
        if (Le32(head + 30) == 0 && (bits == 1 || bits == 4 || bits == 8 || bits == 24)) return kFileTypeBmp;
    }
    return kFileTypeUnusable;
}

int LoadPictureFile(const char* path, COLImage* image)
{
    if (!image || GetPictureFileType(path) != kFileTypeBmp) return 0;
    uint8_t head[54] = {};
    size_t got = 0;
    if (!ReadHead(path, head, sizeof head, got) || got != sizeof head) return 0;
    const int32_t w = static_cast<int32_t>(Le32(head + 18));
    int32_t h = static_cast<int32_t>(Le32(head + 22));
    if (h < 0) h = -h;
    if (w < 1 || h < 1 || w > static_cast<int32_t>(kMaxImageSide) || h > static_cast<int32_t>(kMaxImageSide))
        return 0;
    if (image->LoadFromFile(path) != kOk) {
        image->Free();
        return 0;
    }
    const size_t n = image->GetPixelCount();
    CPixel* p = image->GetBuffer();
    for (size_t i = 0; i < n; ++i) p[i].alpha = 255;
    return 1;
}

int SavePictureFile(const char* path, const COLImage* image)
{
    if (!path || !image || image->IsEmpty() || !EndsWithNoCase(path, ".bmp")) return 0;
    // 24-bit BMP, rows bottom-up as every reader expects.
    const uint32_t w = image->GetWidth(), h = image->GetHeight();
    const uint32_t stride = (w * 3 + 3) & ~3u;
    const uint64_t dataBytes = uint64_t(stride) * h;
    if (dataBytes + 54 > 0xFFFFFFFFull) return 0;
    uint8_t head[54] = {'B', 'M'};
    auto put = [&](int at, uint32_t v) {
        head[at] = uint8_t(v);
        head[at + 1] = uint8_t(v >> 8);
        head[at + 2] = uint8_t(v >> 16);
        head[at + 3] = uint8_t(v >> 24);
    };
    put(2, static_cast<uint32_t>(dataBytes + 54));
    put(10, 54);
    put(14, 40);
    put(18, w);
    put(22, h);
    head[26] = 1;
    head[28] = 24;
    put(34, static_cast<uint32_t>(dataBytes));
    put(38, 2835);
    put(42, 2835);
    CSafeFileWriter out;
    if (!out.Open(path) || !out.Write(head, sizeof head)) return 0;
    std::string row(stride, '\0');
    for (uint32_t y = h; y-- > 0;) {
        const CPixel* src = image->GetBuffer(0, y);
        for (uint32_t x = 0; x < w; ++x) {
            row[3 * x] = static_cast<char>(src[x].blue);
            row[3 * x + 1] = static_cast<char>(src[x].green);
            row[3 * x + 2] = static_cast<char>(src[x].red);
        }
        if (!out.Write(row.data(), row.size())) return 0;
    }
    return out.Commit() ? 1 : 0;
}
