#include <cstdint>
#include <cstdio>
#include <fstream>

#include "cli/cli.h"
#include "imaging/image.h"

namespace {

int RunInfo(const std::vector<std::string>& args)
{
    cli::Args a(args, {});
    if (!a.Ok()) return cli::Usage("info", a.Error());
    if (a.Positional().size() != 1) return cli::Usage("info", "expects exactly one file");
    const std::string& path = a.Positional()[0];

    std::ifstream in(path, std::ios::binary);
    if (!in) return cli::Fail("cannot open " + path);
    uint8_t header[30] = {};
    in.read(reinterpret_cast<char*>(header), sizeof header);
    if (in.gcount() < 30 || header[0] != 'B' || header[1] != 'M') return cli::Fail(path + ": not a BMP file");
    const int bits = header[28] | header[29] << 8;

    COLImage image;
    const long r = image.LoadFromFile(path.c_str());
    if (r != kOk) return cli::Fail(path + ": damaged or unsupported BMP (code " + std::to_string(r) + ")");
    std::printf("%s: BMP, %u x %u, %d bit\n", path.c_str(), image.GetWidth(), image.GetHeight(), bits);
    return cli::kExitOk;
}

cli::CliRegistrar reg("info", "info FILE", "print a picture's type, size and depth", RunInfo);

} // namespace
