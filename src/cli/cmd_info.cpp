#include <cstdint>
#include <cstdio>
#include <fstream>

#include "cli/cli.h"
#include "cli/project_cli.h"
#include "cli/psd_cli.h"
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
    if (type == kFilePsd) return cli::PrintPsdInfo(path);
    COLImage image;
    COLImageCodec codec;
    if (!codec.LoadFile(path.c_str(), &image))
        return cli::Fail(path + ": damaged or unsupported " + FileTypeName(type) + " file (type " +
                         std::to_string(type) + ")");
    std::printf("%s: %s (type %u), %u x %u, %s\n", path.c_str(), FileTypeName(type), type, image.GetWidth(),
                image.GetHeight(), AnyTransparent(image) ? "with alpha" : "opaque");
    return cli::kExitOk;
}

cli::CliRegistrar reg("info", "info FILE", "print a picture's type code, size and whether it has transparency; the layers of a project or PSD",
                      RunInfo);

} // namespace
