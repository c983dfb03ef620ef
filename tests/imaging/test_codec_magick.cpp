// Files we write must open elsewhere: ImageMagick reads them back with the right size, channels and pixels.
// Skipped where ImageMagick is not installed.
#include <gtest/gtest.h>
#include <string>

#include "codec_test_util.h"
#include "imaging/codec.h"
#include "support/test_support.h"

namespace {

#define REQUIRE_IMAGEMAGICK()                                                                                          \
    do {                                                                                                               \
        if (!codectest::HaveImageMagick()) {                                                                           \
            GTEST_SKIP() << "ImageMagick (/usr/bin/identify, /usr/bin/convert) is not installed; install the "         \
                            "Debian package imagemagick to run the interop checks";                                    \
        }                                                                                                              \
    } while (0)

struct Written {
    const char* name;
    const char* format; // as identify names it
    bool alpha;
    int tolerance; // 0: lossless; otherwise ImageMagick's and our decoding of the file may differ by this
};

TEST(CodecImageMagick, ReadsWhatWeWrite)
{
    REQUIRE_IMAGEMAGICK();
    vmtest::TempDir dir;
    COLImage src;
    codectest::MakePattern(src, 45, 31, true);
    COLImageCodec codec;
    const Written files[] = {{"rgba.png", "PNG", true, 0},   {"rgb.png", "PNG", false, 0}, {"a.jpg", "JPEG", false, 1},
                             {"full.jpg", "JPEG", false, 1}, {"a.bmp", "BMP3", false, 0},  {"a.tif", "TIFF", false, 0},
                             {"a.tga", "TGA", false, 0}};
    for (const Written& f : files) {
        SCOPED_TRACE(f.name);
        const std::string path = dir.File(f.name);
        const std::string n = f.name;
        int ok;
        if (n == "rgba.png")
            ok = codec.SaveFileWithAlpha(path.c_str(), &src);
        else if (n == "a.jpg")
            ok = codec.SaveJpegFile(path.c_str(), &src, 90, 72);
        else if (n == "full.jpg")
            ok = codec.SaveJpegFile(path.c_str(), &src, 195, 72);
        else
            ok = codec.SaveFile(path.c_str(), &src);
        ASSERT_EQ(ok, 1);

        std::string out;
        ASSERT_EQ(codectest::Run("/usr/bin/identify -format '%m %w %h %A' " + vmtest::Quote(path), out), 0) << out;
        const bool hasAlpha = out.find("True") != std::string::npos || out.find("Blend") != std::string::npos;
        EXPECT_EQ(out.substr(0, out.find(' ')), f.format) << out;
        EXPECT_NE(out.find(" 45 31 "), std::string::npos) << out;
        EXPECT_EQ(hasAlpha, f.alpha) << out;

        // ImageMagick's pixels: -auto-orient because its TGA reader leaves bottom-up files unflipped.
        const std::string pam = dir.File(std::string(f.name) + ".pam");
        ASSERT_EQ(codectest::Run(
                      "/usr/bin/convert " + vmtest::Quote(path) + " -auto-orient -depth 8 " + vmtest::Quote(pam), out),
                  0)
            << out;
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
    REQUIRE_IMAGEMAGICK();
    vmtest::TempDir dir;
    COLImage src;
    vmtest::FillNoise(src, 900, 1300, 17);
    ASSERT_EQ(COLImageCodec().SaveFileWithAlpha(dir.File("big.png").c_str(), &src), 1);
    std::string out;
    ASSERT_EQ(codectest::Run("/usr/bin/convert " + vmtest::Quote(dir.File("big.png")) + " -depth 8 " +
                                 vmtest::Quote(dir.File("big.pam")),
                             out),
              0)
        << out;
    EXPECT_EQ(out, ""); // no warnings either
    COLImage seen;
    ASSERT_TRUE(codectest::ReadPam(dir.File("big.pam"), seen));
    EXPECT_TRUE(vmtest::SamePixels(src, seen));
}

// Our EXIF handling agrees with ImageMagick's -auto-orient on all eight orientations.
TEST(CodecImageMagick, ExifOrientationAgrees)
{
    REQUIRE_IMAGEMAGICK();
    vmtest::TempDir dir;
    COLImage src;
    codectest::MakePattern(src, 32, 16, false);
    COLImageCodec codec;
    ASSERT_EQ(codec.SaveJpegFile(dir.File("base.jpg").c_str(), &src, 195, 72), 1);
    const std::vector<uint8_t> base = vmtest::ReadAll(dir.File("base.jpg"));
    for (int o = 1; o <= 8; ++o) {
        SCOPED_TRACE("orientation " + std::to_string(o));
        const std::string jpg = dir.File("o" + std::to_string(o) + ".jpg");
        vmtest::WriteAll(jpg, codectest::WithOrientation(base, o, o % 2 == 0));
        std::string out;
        ASSERT_EQ(codectest::Run("/usr/bin/convert " + vmtest::Quote(jpg) + " -auto-orient -depth 8 " +
                                     vmtest::Quote(jpg + ".pam"),
                                 out),
                  0)
            << out;
        COLImage theirs, ours;
        ASSERT_TRUE(codectest::ReadPam(jpg + ".pam", theirs));
        ASSERT_EQ(codec.LoadFile(jpg.c_str(), &ours), 1);
        EXPECT_LE(codectest::MaxColourDifference(theirs, ours, false), 1);
    }
}

} // namespace
