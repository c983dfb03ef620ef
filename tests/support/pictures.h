#pragma once

// Picture makers and picture files shared by the tests of the document, the commands, the command line and the
// editor: the same few shapes of input were written out again in nearly every file.

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "imaging/codec.h"
#include "imaging/image.h"
#include "support/test_support.h"

namespace vmtest {

// A picture whose pixels the function gives, from their column and row.
inline COLImage Picture(uint32_t width, uint32_t height, const std::function<CPixel(uint32_t x, uint32_t y)>& at)
{
    COLImage image;
    EXPECT_EQ(image.Create(width, height), kOk);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            image.PutPixel(x, y, at(x, y));
    return image;
}

// Noise in every colour byte and alpha 255: the usual input of a command, since most files keep no alpha.
inline COLImage OpaqueNoise(uint32_t width, uint32_t height, uint32_t seed)
{
    COLImage image;
    FillNoise(image, width, height, seed);
    for (size_t i = 0; i < image.GetPixelCount(); ++i)
        image.GetBuffer()[i].alpha = 255;
    return image;
}

// Writes a picture and gives its path back. A ".png" keeps its alpha; other names take the format of their
// extension without alpha, as the editor's own writer does.
inline std::string SavePicture(const std::string& path, const COLImage& image)
{
    COLImageCodec codec;
    const bool png = path.size() > 4 && path.compare(path.size() - 4, 4, ".png") == 0;
    EXPECT_NE(png ? codec.SaveFileWithAlpha(path.c_str(), &image) : codec.SaveFile(path.c_str(), &image), 0) << path;
    return path;
}

// The red byte of every pixel of a picture file: a gray mask as the tools write one.
inline std::vector<uint8_t> GrayBytes(const std::string& path)
{
    const COLImage image = Load(path);
    EXPECT_FALSE(image.IsNull()) << path;
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < image.GetPixelCount(); ++i)
        bytes.push_back(image.GetBuffer()[i].red);
    return bytes;
}

// A gray picture of a plane: each sample in all three colours.
inline COLImage GrayPicture(const COLChannel& plane)
{
    return Picture(plane.GetWidth(), plane.GetHeight(), [&](uint32_t x, uint32_t y) {
        const uint8_t v = plane.GetValue(x, y);
        return CPixel::Make(v, v, v, 255);
    });
}

// True when b holds a's pixels (all four bytes) mirrored left to right.
inline bool Mirrored(const COLImage& a, const COLImage& b)
{
    if (a.IsNull() || b.IsNull() || a.GetWidth() != b.GetWidth() || a.GetHeight() != b.GetHeight()) return false;
    for (uint32_t y = 0; y < a.GetHeight(); ++y)
        for (uint32_t x = 0; x < a.GetWidth(); ++x)
            if (a.GetPixel(x, y) != b.GetPixel(a.GetWidth() - 1 - x, y)) return false;
    return true;
}

// The mask a cut-out takes from a keyed or matted picture: each alpha squared, over 255.
inline std::vector<uint8_t> SquaredAlpha(const COLImage& keyed)
{
    std::vector<uint8_t> mask;
    for (size_t i = 0; i < keyed.GetPixelCount(); ++i) {
        const unsigned a = keyed.GetBuffer()[i].alpha;
        mask.push_back(uint8_t(a * a / 255));
    }
    return mask;
}

} // namespace vmtest
