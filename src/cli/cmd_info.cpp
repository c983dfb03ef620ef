#include <cstdint>
#include <cstdio>
#include <fstream>

#include "cli/cli.h"
#include "cli/project_cli.h"
#include "imaging/codec.h"
#include "imaging/image.h"

namespace {

bool AnyTransparent(const COLImage& image)
{
    const CPixel* p = image.GetBuffer();
    for (size_t i = 0; i < image.GetPixelCount(); ++i)
        if (p[i].alpha != 255) return true;
    return false;
}

// Size from a PSD header, which the picture loader does not read.
bool PsdSize(const std::string& path, uint32_t& width, uint32_t& height)
{
    std::ifstream in(path, std::ios::binary);
    uint8_t h[26] = {};
    if (!in.read(reinterpret_cast<char*>(h), sizeof h)) return false;
    height = uint32_t(h[14]) << 24 | uint32_t(h[15]) << 16 | uint32_t(h[16]) << 8 | h[17];
    width = uint32_t(h[18]) << 24 | uint32_t(h[19]) << 16 | uint32_t(h[20]) << 8 | h[21];
    return true;
}

int RunInfo(const std::vector<std::string>& args)
{
    cli::Args a(args, {});
    if (!a.Ok()) return cli::Usage("info", a.Error());
    if (a.Positional().size() != 1) return cli::Usage("info", "expects exactly one file");
    const std::string& path = a.Positional()[0];
    if (!std::ifstream(path, std::ios::binary)) return cli::Fail("cannot open " + path);

    const uint32_t type = COLImageCodec::GetFileType(path.c_str());
    if (type == kFileUnusable) return cli::Fail(path + ": not a picture this program reads (type 10)");
    if (type == kFileProject) return cli::PrintProjectInfo(path);
    if (type == kFilePsd) {
        uint32_t w = 0, h = 0;
        if (!PsdSize(path, w, h)) return cli::Fail(path + ": damaged PSD header");
        std::printf("%s: %s (type %u), %u x %u\n", path.c_str(), FileTypeName(type), type, w, h);
        return cli::kExitOk;
    }
    COLImage image;
    COLImageCodec codec;
    if (!codec.LoadFile(path.c_str(), &image))
        return cli::Fail(path + ": damaged or unsupported " + FileTypeName(type) + " file (type " +
                         std::to_string(type) + ")");
    std::printf("%s: %s (type %u), %u x %u, %s\n", path.c_str(), FileTypeName(type), type, image.GetWidth(),
                image.GetHeight(), AnyTransparent(image) ? "with alpha" : "opaque");
    return cli::kExitOk;
}

cli::CliRegistrar reg("info", "info FILE", "print a picture's type code, size and whether it has transparency",
                      RunInfo);

} // namespace
