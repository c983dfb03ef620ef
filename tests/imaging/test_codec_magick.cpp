// Files we write must open elsewhere: ImageMagick reads them back with the right size, channels and pixels.
// Skipped where ImageMagick is not installed.
#include <gtest/gtest.h>
#include <string>

#include "codec_test_util.h"
#include "imaging/codec.h"
#include "support/magick.h"
#include "support/test_support.h"

namespace {

const char* const kNoImageMagick = "ImageMagick (/usr/bin/identify, /usr/bin/convert) is not installed; install the "
                                   "Debian package imagemagick to run the interop checks";

struct Written {
    const char* name;
    const char* format; // as identify names it
    bool alpha;    // written with its alpha
    int tolerance; // 0: lossless; otherwise ImageMagick's and our decoding of the file may differ by this
    int quality;   // a JPEG written at this quality
};

TEST(CodecImageMagick, ReadsWhatWeWrite)
{
    if (!codectest::HaveImageMagick()) GTEST_SKIP() << kNoImageMagick;
    vmtest::TempDir dir;
    const COLImage src = codectest::Pattern(45, 31, true);
    COLImageCodec codec;
    const Written files[] = {{"rgba.png", "PNG", true, 0, 0},     {"rgb.png", "PNG", false, 0, 0},
                             {"a.jpg", "JPEG", false, 1, 90},     {"full.jpg", "JPEG", false, 1, 195},
                             {"a.bmp", "BMP3", false, 0, 0},      {"a.tif", "TIFF", false, 0, 0},
                             {"a.tga", "TGA", false, 0, 0}};
    for (const Written& f : files) {
        SCOPED_TRACE(f.name);
        const std::string path = dir.File(f.name);
        ASSERT_EQ(f.alpha     ? codec.SaveFileWithAlpha(path.c_str(), &src)
                  : f.quality ? codec.SaveJpegFile(path.c_str(), &src, f.quality, 72)
                              : codec.SaveFile(path.c_str(), &src),
                  1);

        const std::string out = vmtest::MagickIdentify("%m %w %h %A", path);
        const bool hasAlpha = out.find("True") != std::string::npos || out.find("Blend") != std::string::npos;
        EXPECT_EQ(out.substr(0, out.find(' ')), f.format) << out;
        EXPECT_NE(out.find(" 45 31 "), std::string::npos) << out;
        EXPECT_EQ(hasAlpha, f.alpha) << out;

        // ImageMagick's pixels: -auto-orient because its TGA reader leaves bottom-up files unflipped.
        const std::string pam = dir.File(std::string(f.name) + ".pam");
        std::string said;
        ASSERT_TRUE(vmtest::MagickConvert(path, pam, said, "-auto-orient -depth 8")) << said;
        COLImage seen;
        ASSERT_TRUE(codectest::ReadPam(pam, seen));
        EXPECT_EQ(codectest::MaxColourDifference(src, seen, false) == 0, f.tolerance == 0);
        // A lossy file: both programs must decode the same pixels from it.
        COLImage ours;
        ASSERT_EQ(codec.LoadFile(path.c_str(), &ours), 1);
        EXPECT_LE(codectest::MaxColourDifference(ours, seen, false), f.tolerance);
        if (f.alpha) {
            EXPECT_EQ(codectest::MaxAlphaDifference(src, seen), 0);
        }
    }
}

TEST(CodecImageMagick, ReadsALargePngWrittenInBands)
{
    if (!codectest::HaveImageMagick()) GTEST_SKIP() << kNoImageMagick;
    vmtest::TempDir dir;
    COLImage src = vmtest::Noise(900, 1300, 17);
    ASSERT_EQ(COLImageCodec().SaveFileWithAlpha(dir.File("big.png").c_str(), &src), 1);
    std::string out;
    ASSERT_TRUE(vmtest::MagickConvert(dir.File("big.png"), dir.File("big.pam"), out, "-depth 8")) << out;
    EXPECT_EQ(out, ""); // no warnings either
    COLImage seen;
    ASSERT_TRUE(codectest::ReadPam(dir.File("big.pam"), seen));
    EXPECT_TRUE(vmtest::SamePixels(src, seen));
}

} // namespace
