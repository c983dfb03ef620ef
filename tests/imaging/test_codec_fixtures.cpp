// Pictures written by another program (ImageMagick, see tests/data/codec/README.md) must decode to what that
// program itself reads from them.
#include <gtest/gtest.h>
#include <string>

#include "codec_test_util.h"
#include "imaging/codec.h"
#include "support/test_support.h"

namespace {

struct Fixture {
    const char* name;
    uint32_t type;
    int colourTolerance; // lossy formats only
    bool transparent;    // some pixels are expected to have alpha below 255
};

const Fixture kFixtures[] = {
    {"png16-rgb.png", kFilePng, 0, false},
    {"png16-rgba.png", kFilePng, 0, true},
    {"png-palette-trns.png", kFilePng, 0, true},
    {"png-interlaced.png", kFilePng, 0, true},
    {"png-gray4.png", kFilePng, 0, false},
    {"jpeg-progressive.jpg", kFileJpeg, 1, false},
    {"jpeg-cmyk.jpg", kFileJpeg, 2, false},
    {"jpeg-gray.jpg", kFileJpeg, 1, false},
    {"tiff-tiled-lzw.tif", kFileTiff, 0, true},
    {"tiff-deflate16.tif", kFileTiff, 0, false},
    {"tiff-packbits-gray.tif", kFileTiff, 0, false},
    {"tiff-palette.tif", kFileTiff, 0, false},
    {"tiff-planar.tif", kFileTiff, 0, false},
    {"tga-rle32.tga", kFileTga, 0, true},
    {"tga-top24.tga", kFileTga, 0, false},
    {"tga-gray8-rle.tga", kFileTga, 0, false},
    {"tga-palette8.tga", kFileTga, 0, false},
    {"pcx-rgb24.pcx", kFilePcx, 0, false},
    {"pcx-palette8.pcx", kFilePcx, 0, false},
    {"gif-transparent.gif", kFileGif, 0, true},
    {"gif-interlaced.gif", kFileGif, 0, false},
    {"bmp-rgb24.bmp", kFileBmp, 0, false},
    {"bmp-palette8.bmp", kFileBmp, 0, false},
    {"bmp-palette4.bmp", kFileBmp, 0, false},
    {"bmp-mono1.bmp", kFileBmp, 0, false},
    {"bmp-rle8.bmp", kFileBmp, 0, false},
    {"bmp-argb32.bmp", kFileBmp, 0, true},
    {"bmp-rgb565.bmp", kFileBmp, 0, false},
    {"bmp-os2.bmp", kFileBmp, 0, false},
};

class CodecFixture : public ::testing::TestWithParam<Fixture> {};

TEST_P(CodecFixture, DecodesAsImageMagickReadsIt)
{
    const Fixture& f = GetParam();
    const std::string path = vmtest::DataPath(std::string("codec/") + f.name);
    COLImage expected;
    ASSERT_TRUE(codectest::ReadPam(path + ".pam", expected)) << "reference missing for " << f.name;

    EXPECT_EQ(COLImageCodec::GetFileType(path.c_str()), f.type);
    COLImageCodec codec;
    COLImage image;
    ASSERT_EQ(codec.LoadFile(path.c_str(), &image), 1) << f.name;
    ASSERT_EQ(vmtest::Size(image), "32x24");
    // Colour under fully transparent pixels is not defined by GIF or palette PNG files; compare it elsewhere.
    EXPECT_LE(codectest::MaxColourDifference(expected, image, true), f.colourTolerance) << f.name;
    EXPECT_EQ(codectest::MaxAlphaDifference(expected, image), 0) << f.name;
    bool anyTransparent = false;
    for (size_t i = 0; i < image.GetPixelCount(); ++i)
        anyTransparent |= image.GetBuffer()[i].alpha != 255;
    EXPECT_EQ(anyTransparent, f.transparent) << f.name;
}

INSTANTIATE_TEST_SUITE_P(ImageMagickFiles, CodecFixture, ::testing::ValuesIn(kFixtures),
                         [](const ::testing::TestParamInfo<Fixture>& info) {
                             std::string n = info.param.name;
                             for (char& c : n)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return n;
                         });

} // namespace
