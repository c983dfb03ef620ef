#include "support/test_support.h"

#include "imaging/codec.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sys/wait.h>
#include <random>
#include <stdexcept>

namespace vmtest {

TempDir::TempDir()
{
    std::random_device rd;
    for (int attempt = 0; attempt < 100; ++attempt) {
        auto candidate = std::filesystem::temp_directory_path() / ("vmtest-" + std::to_string(rd()));
        if (std::filesystem::create_directory(candidate)) {
            m_path = candidate;
            return;
        }
    }
    throw std::runtime_error("cannot make a temporary folder");
}

TempDir::~TempDir()
{
    std::error_code ec;
    std::filesystem::remove_all(m_path, ec);
}

std::vector<uint8_t> ReadAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

void WriteAll(const std::string& path, const std::vector<uint8_t>& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

void FillNoise(COLImage& image, uint32_t width, uint32_t height, uint32_t seed)
{
    image.Create(width, height);
    std::mt19937 rng(seed);
    CPixel* p = image.GetBuffer();
    for (size_t i = 0; i < image.GetPixelCount(); ++i) p[i] = CPixel::FromWord(rng());
}

void FillNoise(COLChannel& channel, uint32_t width, uint32_t height, uint32_t seed)
{
    channel.Create(width, height);
    std::mt19937 rng(seed);
    uint8_t* p = channel.GetBuffer();
    for (uint32_t i = 0; i < channel.GetAreaByteSize(); ++i) p[i] = static_cast<uint8_t>(rng());
}

COLImage Noise(uint32_t width, uint32_t height, uint32_t seed)
{
    COLImage image;
    FillNoise(image, width, height, seed);
    return image;
}

COLChannel NoisePlane(uint32_t width, uint32_t height, uint32_t seed)
{
    COLChannel plane;
    FillNoise(plane, width, height, seed);
    return plane;
}

namespace {

// Both pictures there and of one size: what every comparison below needs first.
bool SameSize(const COLImage& a, const COLImage& b)
{
    return !a.IsNull() && !b.IsNull() && a.GetWidth() == b.GetWidth() && a.GetHeight() == b.GetHeight();
}

} // namespace

bool SameColours(const COLImage& a, const COLImage& b)
{
    if (!SameSize(a, b)) return false;
    for (size_t i = 0; i < a.GetPixelCount(); ++i)
        if (!(a.GetBuffer()[i] == b.GetBuffer()[i])) return false;
    return true;
}

// Compared in place, without copies: the exhaustion tests compare inside a process that has no memory to spare.
bool SamePixels(const COLImage& a, const COLImage& b)
{
    if (!SameColours(a, b)) return false;
    for (size_t i = 0; i < a.GetPixelCount(); ++i)
        if (a.GetBuffer()[i].alpha != b.GetBuffer()[i].alpha) return false;
    return true;
}

int MaxColourDifference(const COLImage& expected, const COLImage& actual, bool onlyVisible)
{
    if (!SameSize(expected, actual)) return -1;
    int worst = 0;
    for (size_t i = 0; i < expected.GetPixelCount(); ++i) {
        const CPixel e = expected.GetBuffer()[i], a = actual.GetBuffer()[i];
        if (onlyVisible && e.alpha == 0) continue;
        worst = std::max({worst, std::abs(e.red - a.red), std::abs(e.green - a.green), std::abs(e.blue - a.blue)});
    }
    return worst;
}

int MaxAlphaDifference(const COLImage& expected, const COLImage& actual)
{
    if (!SameSize(expected, actual)) return -1;
    int worst = 0;
    for (size_t i = 0; i < expected.GetPixelCount(); ++i)
        worst = std::max(worst, std::abs(expected.GetBuffer()[i].alpha - actual.GetBuffer()[i].alpha));
    return worst;
}

COLImage Row(const std::vector<CPixel>& pixels)
{
    COLImage image;
    image.Create(uint32_t(pixels.size()), 1);
    for (size_t i = 0; i < pixels.size(); ++i) image.PutPixel(uint32_t(i), 0, pixels[i]);
    return image;
}

COLImage Solid(uint32_t width, uint32_t height, CPixel colour)
{
    COLImage image;
    image.Create(width, height);
    std::fill(image.GetBuffer(), image.GetBuffer() + image.GetPixelCount(), colour);
    return image;
}

COLChannel Plane(uint32_t width, uint32_t height, uint8_t value)
{
    COLChannel plane;
    plane.Create(width, height);
    std::fill(plane.GetBuffer(), plane.GetBuffer() + plane.GetAreaByteSize(), value);
    return plane;
}

COLImage Load(const std::string& path)
{
    COLImage image;
    if (!COLImageCodec().LoadFile(path.c_str(), &image)) image.Free();
    return image;
}

std::vector<uint8_t> Bytes(const COLImage& image)
{
    const uint8_t* p = reinterpret_cast<const uint8_t*>(image.GetBuffer());
    return std::vector<uint8_t>(p, p + (image.IsNull() ? 0 : image.GetPixelCount() * 4));
}

std::vector<uint8_t> Bytes(const COLChannel& channel)
{
    const uint8_t* p = channel.GetBuffer();
    return std::vector<uint8_t>(p, p + (p ? channel.GetAreaByteSize() : 0));
}

int Run(const std::string& command, std::string& output)
{
    output.clear();
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (!pipe) return -1;
    std::array<char, 4096> buf{};
    size_t n;
    while ((n = fread(buf.data(), 1, buf.size(), pipe)) > 0) output.append(buf.data(), n);
    const int status = pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool HaveImageMagick()
{
    std::string out;
    return Run("/usr/bin/identify -version", out) == 0 && out.find("ImageMagick") != std::string::npos;
}

CliResult RunCli(const std::string& arguments)
{
    CliResult r{-1, {}};
    r.exitCode = Run(std::string(VM_CLI_PATH) + " " + arguments, r.output);
    return r;
}

std::string Quote(const std::string& text)
{
    std::string q = "'";
    for (char c : text) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

std::string AssetPath(const std::string& relative) { return std::string(VM_ASSETS_DIR) + "/" + relative; }
std::string DataPath(const std::string& relative) { return std::string(VM_TEST_DATA_DIR) + "/" + relative; }

} // namespace vmtest
