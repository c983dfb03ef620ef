#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "imaging/channel.h"
#include "imaging/image.h"

namespace vmtest {

// A fresh folder under the system temporary folder, removed with everything in it at the end of the test.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::filesystem::path& Path() const { return m_path; }
    std::string File(const std::string& name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

std::vector<uint8_t> ReadAll(const std::string& path);
void WriteAll(const std::string& path, const std::vector<uint8_t>& bytes);

// Deterministic pseudo-random picture (fixed seed), alpha included.
void FillNoise(COLImage& image, uint32_t width, uint32_t height, uint32_t seed);
void FillNoise(COLChannel& channel, uint32_t width, uint32_t height, uint32_t seed);
// The same noise as a new picture or plane.
COLImage Noise(uint32_t width, uint32_t height, uint32_t seed);
COLChannel NoisePlane(uint32_t width, uint32_t height, uint32_t seed);
// A copy of a picture or a plane, as a value.
template <class P> P Copy(const P& picture)
{
    P copy;
    copy.DuplicateFrom(&picture);
    return copy;
}
bool SameColours(const COLImage& a, const COLImage& b);   // size and RGB of every pixel
bool SamePixels(const COLImage& a, const COLImage& b);    // size and all four bytes
// Largest difference of any colour byte between two pictures of the same size, counting only pixels whose
// alpha in `expected` is not 0 when onlyVisible is set; -1 when the sizes differ or an image is missing.
int MaxColourDifference(const COLImage& expected, const COLImage& actual, bool onlyVisible = false);
int MaxAlphaDifference(const COLImage& expected, const COLImage& actual);

// An opaque (or given-alpha) colour from its red, green and blue, and a one-row picture of the given pixels.
inline CPixel Rgb(int r, int g, int b, int a = 255)
{
    return CPixel::Make(uint8_t(r), uint8_t(g), uint8_t(b), uint8_t(a));
}
COLImage Row(const std::vector<CPixel>& pixels);
// A picture of one colour, and a plane of one value.
COLImage Solid(uint32_t width, uint32_t height, CPixel colour);
COLChannel Plane(uint32_t width, uint32_t height, uint8_t value);

// "WxH" of a picture, plane or document, and "x,y" of a layer: one comparison that names both numbers.
template <class T> std::string Size(const T& t)
{
    return std::to_string(t.GetWidth()) + "x" + std::to_string(t.GetHeight());
}
template <class L> std::string Place(const L& layer)
{
    return std::to_string(layer.m_x) + "," + std::to_string(layer.m_y);
}

// A picture file through the codec; an empty image when it does not load.
COLImage Load(const std::string& path);
// The bytes of a picture's pixels or a plane's samples, for byte-exact comparisons that name the first difference.
std::vector<uint8_t> Bytes(const COLImage& image);
std::vector<uint8_t> Bytes(const COLChannel& channel);

// Runs a shell command, returning its exit status and its stdout and stderr together.
int Run(const std::string& command, std::string& output);
bool HaveImageMagick();   // /usr/bin/identify and convert, for the interoperability checks

// Runs velmorando-cli with the given (shell-quoted) arguments; stdout and stderr together.
struct CliResult {
    int exitCode;
    std::string output;
};
CliResult RunCli(const std::string& arguments);
std::string Quote(const std::string& text);   // single-quoted for the shell

std::string AssetPath(const std::string& relative);   // under assets/
std::string DataPath(const std::string& relative);    // under tests/data/

} // namespace vmtest
