#include "shell/command_line.h"

#include <cstdio>
#include <memory>
#include <sys/stat.h>
#include <vector>

ShellCommandLine ParseCommandLine(const std::string& text)
{
    ShellCommandLine r;
    size_t i = 0;
    while (i < text.size() && text[i] == ' ')
        ++i;
    if (i + 1 < text.size() && text[i] == '-' && (text[i + 1] == 'i' || text[i + 1] == 'I')) {
        r.pluginMode = true;
        r.methodDigit = (i + 2 < text.size()) ? text[i + 2] - '0' : -'0';
        i = std::min(text.size(), i + 3);
        while (i < text.size() && text[i] == ' ')
            ++i;
    }
    std::string rest = text.substr(i);
    if (!rest.empty() && rest[0] == '"') {
        size_t close = rest.find('"', 1);
        rest = rest.substr(1, close == std::string::npos ? std::string::npos : close - 1);
    }
    if (rest.empty()) {
        r.pluginMode = false;
        return r;
    }
    r.path = rest;
    return r;
}

std::string JoinArguments(const std::vector<std::string>& arguments)
{
    auto quoted = [](const std::string& a) { return a.find(' ') != std::string::npos ? "\"" + a + "\"" : a; };
    if (arguments.empty()) return {};
    const std::string& first = arguments[0];
    if (first.size() >= 2 && first[0] == '-' && (first[1] == 'i' || first[1] == 'I')) {
        // "-i0 path" as one word or two.
        if (first.size() > 3) return first.substr(0, 3) + " " + quoted(first.substr(3));
        return arguments.size() > 1 ? first + " " + quoted(arguments[1]) : first;
    }
    return quoted(first);
}

namespace {
struct FileCloser {
    void operator()(FILE* f) const { std::fclose(f); }
};
uint32_t ReadLe32(const uint8_t* p)
{
    return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24;
}
} // namespace

bool ReadHostImage(const std::string& path, COLImage& image, uint32_t fill, uint32_t& bytesPerPixel)
{
    std::unique_ptr<FILE, FileCloser> f(std::fopen(path.c_str(), "rb"));
    if (!f) return false;
    uint8_t header[8];
    if (std::fread(header, 1, 8, f.get()) != 8) return false;
    const int32_t width = static_cast<int32_t>(ReadLe32(header));
    const int32_t height = static_cast<int32_t>(ReadLe32(header + 4));
    if (width < 1 || height < 1 || uint32_t(width) > kMaxImageSide || uint32_t(height) > kMaxImageSide) return false;
    struct stat st {};
    if (fstat(fileno(f.get()), &st) != 0) return false;
    const uint64_t payload = st.st_size > 8 ? uint64_t(st.st_size) - 8 : 0;
    bytesPerPixel = payload > uint64_t(width) * uint64_t(height) * 3 ? 4 : 3;
    if (image.Create(uint32_t(width), uint32_t(height)) != kOk) return false;
    const CPixel fillPixel = CPixel::FromWord(fill);
    for (size_t i = 0; i < image.GetPixelCount(); ++i)
        image.GetBuffer()[i] = fillPixel;
    std::vector<uint8_t> row(size_t(width) * bytesPerPixel);
    for (int32_t y = 0; y < height; ++y) {
        if (std::fread(row.data(), 1, row.size(), f.get()) != row.size()) break;
        CPixel* dst = image.GetBuffer(0, uint32_t(y));
        for (int32_t x = 0; x < width; ++x) {
            const uint8_t* s = row.data() + size_t(x) * bytesPerPixel;
            dst[x] = CPixel::Make(s[0], s[1], s[2], 255);
        }
    }
    return true;
}
