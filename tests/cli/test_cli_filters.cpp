#include <gtest/gtest.h>

#include <string>

#include "filters/resample.h"
#include "imaging/channel.h"
#include "matting/gaussian.h"
#include "support/cli_checks.h"
#include "support/engine_checks.h"
#include "support/pictures.h"

using vmtest::Load;
using vmtest::Quote;
using vmtest::RunOk;

TEST(CliFilters, BlurWritesWhatTheProcessComputes)
{
    vmtest::TempDir dir;
    COLImage src = vmtest::Noise(41, 29, 6);
    for (size_t i = 0; i < 100; ++i) src.GetBuffer()[i].alpha = 0;   // some transparency, kept and blurred
    vmtest::SavePicture(dir.File("in.png"), src);
    for (const char* sigma : {"1.5", "4"}) {
        RunOk("blur " + Quote(dir.File("in.png")) + " --sigma " + sigma + " -o " + Quote(dir.File("out.png")),
              "blur: 100%");
        const COLImage expected = vmtest::Blurred(src, std::stod(sigma));
        ASSERT_FALSE(expected.IsNull());
        EXPECT_TRUE(vmtest::SamePixels(Load(dir.File("out.png")), expected)) << sigma;
    }
}

TEST(CliFilters, BlurKeepsAnOpaquePictureOpaque)
{
    vmtest::TempDir dir;
    const std::string out = dir.File("cat.png");
    RunOk("blur " + Quote(vmtest::AssetPath("samples/chelsea.png")) + " --sigma 17 -o " + Quote(out),
          "worked as 2 at 1/6 size");
    // The size of the photograph and opaque everywhere: no alpha differs from that of an opaque picture.
    const COLImage opaque = vmtest::Solid(451, 300, vmtest::Rgb(0, 0, 0));
    EXPECT_EQ(vmtest::MaxAlphaDifference(opaque, Load(out)), 0);
}

TEST(CliFilters, BlurOfTheGrayPlane)
{
    vmtest::TempDir dir;
    COLChannel plane = vmtest::NoisePlane(33, 20, 4);
    vmtest::SavePicture(dir.File("gray.bmp"), vmtest::GrayPicture(plane));
    RunOk("blur " + Quote(dir.File("gray.bmp")) + " --channel --sigma=2 -o " + Quote(dir.File("out.bmp")));
    const COLChannel expected = vmtest::Blurred(plane, 2.0);
    ASSERT_FALSE(expected.IsNull());
    EXPECT_TRUE(vmtest::SameColours(Load(dir.File("out.bmp")), vmtest::GrayPicture(expected)));
}

TEST(CliFilters, ResampleToAGivenSize)
{
    vmtest::TempDir dir;
    const COLImage src = Load(vmtest::AssetPath("samples/coffee.png"));
    struct Case {
        const char* size;
        const char* method;
        int w, h;
        int (*scale)(const COLImage*, COLImage*, int, int, int, int, int, int);
    } cases[] = {{"150x100", "", 150, 100, ResampleImage},
                 {"1000X700", "", 1000, 700, ResampleImage},
                 {"77x51", " --method area", 77, 51, ShrinkImageArea},
                 {"77x51", " --method twopoint", 77, 51, SampleImageTwoPoint}};
    for (const Case& c : cases) {
        const std::string out = dir.File("out.png");
        RunOk("resample " + Quote(vmtest::AssetPath("samples/coffee.png")) + " " + c.size + c.method + " -o " +
              Quote(out));
        COLImage expected;
        ASSERT_EQ(c.scale(&src, &expected, c.w, c.h, 0, 0, -1, -1), 1);
        EXPECT_TRUE(vmtest::SamePixels(Load(out), expected)) << c.size << c.method;
    }
}

TEST(CliFilters, BadRequestsFailClearlyAndWriteNothing)
{
    vmtest::TempDir dir;
    const std::string in = Quote(vmtest::AssetPath("samples/sample.jpg"));
    const std::string out = dir.File("out.png");
    vmtest::ExpectCli({
        {"blur " + in + " --sigma 2", 2, "needs -o"},
        {"blur " + in + " --sigma lots -o " + Quote(out), 2, "--sigma takes"},
        {"blur " + in + " --sigma -1 -o " + Quote(out), 2, "--sigma takes"},
        {"blur " + Quote(dir.File("missing.png")) + " --sigma 2 -o " + Quote(out), 1, "cannot read"},
        {"blur " + in + " --sigma 2 -o " + Quote(dir.File("out.xyz")), 1, "cannot write 'xyz'"},
        {"blur " + in + " --sigma 2 -o " + Quote(dir.File("no/such/folder/out.png")), 1, "cannot write"},
        {"resample " + in + " 0x10 -o " + Quote(out), 2, "WxH"},
        {"resample " + in + " 20001x10 -o " + Quote(out), 2, "WxH"},
        {"resample " + in + " 10by10 -o " + Quote(out), 2, "WxH"},
        {"resample " + in + " 10x10", 2, "needs -o"},
    });
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_FALSE(std::filesystem::exists(dir.File("out.xyz")));
}
