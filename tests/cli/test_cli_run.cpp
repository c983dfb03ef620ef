#include <gtest/gtest.h>
#include <string>

#include "imaging/codec.h"
#include "imaging/image.h"
#include "support/test_support.h"

using vmtest::CliResult;
using vmtest::Quote;
using vmtest::RunCli;

namespace {

COLImage Load(const std::string& path)
{
    COLImage image;
    EXPECT_NE(COLImageCodec().LoadFile(path.c_str(), &image), 0) << path;
    return image;
}

} // namespace

TEST(CliRun, RunsCommandsAndWritesTheComposite)
{
    vmtest::TempDir dir;
    COLImage picture;
    vmtest::FillNoise(picture, 31, 17, 4);
    const std::string in = dir.File("in.bmp"), out = dir.File("out.bmp");
    ASSERT_NE(COLImageCodec().SaveFile(in.c_str(), &picture), 0);
    CliResult r =
        RunCli("run " + Quote(in) + " " + Quote("Doc_NewLayer('0')") + " " + Quote("Doc_FlipH") + " -o " + Quote(out));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    const COLImage written = Load(out);
    ASSERT_EQ(written.GetWidth(), 31u);
    for (uint32_t y = 0; y < 17; ++y)
        for (uint32_t x = 0; x < 31; ++x)
            ASSERT_TRUE(written.GetPixel2(x, y) == picture.GetPixel2(30 - x, y)) << "the base is mirrored";

    // A second picture on a new layer, moved and at half opacity, then everything flattened.
    COLImage white;
    white.Create(4, 4);
    for (size_t i = 0; i < 16; ++i)
        white.GetBuffer()[i] = CPixel::Make(255, 255, 255);
    ASSERT_NE(COLImageCodec().SaveFile(dir.File("w.bmp").c_str(), &white), 0);
    r = RunCli("run " + Quote(in) + " --file " + Quote(dir.File("w.bmp")) + " " + Quote("Doc_OpenLayer('1')") + " " +
               Quote("Doc_LayerPropertyChange('1','0','2,3')") + " " + Quote("Doc_LayerPropertyChange('1','3','128')") +
               " " + Quote("Doc_LayerPropertyChange('1','2','前景')") + " " + Quote("Doc_FlatImage") + " -o " +
               Quote(out) + " -v");
    ASSERT_EQ(r.exitCode, 0) << r.output;
    EXPECT_NE(r.output.find("layer 0: 图层2"), std::string::npos) << r.output;
    const COLImage merged = Load(out);
    const CPixel was = picture.GetPixel2(3, 4), now = merged.GetPixel2(3, 4);
    EXPECT_EQ(now.red, (was.red * 127 + 255 * 128 + 127) / 255);
    EXPECT_TRUE(merged.GetPixel2(1, 1) == picture.GetPixel2(1, 1));
}

TEST(CliRun, FailuresAreClearAndWriteNothing)
{
    vmtest::TempDir dir;
    COLImage picture;
    vmtest::FillNoise(picture, 8, 8, 1);
    const std::string in = dir.File("in.bmp"), out = dir.File("out.bmp");
    ASSERT_NE(COLImageCodec().SaveFile(in.c_str(), &picture), 0);

    CliResult r = RunCli("run " + Quote(in) + " " + Quote("Doc_DeleteLayer('0')") + " -o " + Quote(out));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.output.find("Doc_DeleteLayer('0')\" failed"), std::string::npos) << r.output;
    r = RunCli("run " + Quote(in) + " " + Quote("Doc_FlipH(") + " -o " + Quote(out));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.output.find("could not be parsed"), std::string::npos) << r.output;
    r = RunCli("run " + Quote(in) + " " + Quote("Doc_OpenLayer('1')") + " -o " + Quote(out));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.output.find("--file"), std::string::npos) << r.output;
    r = RunCli("run " + Quote(in) + " UI_Copy -o " + Quote(out));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.output.find("clipboard"), std::string::npos) << r.output;
    r = RunCli("run " + Quote(dir.File("missing.bmp")) + " Doc_FlipH -o " + Quote(out));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.output.find("cannot open"), std::string::npos) << r.output;
    EXPECT_FALSE(std::filesystem::exists(out));

    r = RunCli("run " + Quote(in) + " Doc_FlipH");
    EXPECT_EQ(r.exitCode, 2) << "no output named";
    r = RunCli("run -o " + Quote(out));
    EXPECT_EQ(r.exitCode, 2);
    r = RunCli("run " + Quote(in) + " --bogus -o " + Quote(out));
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_FALSE(std::filesystem::exists(out));
}

TEST(CliRun, APhotoRunsThroughToAPngOrJpeg)
{
    // The everyday case: a JPEG photo in, a flipped composite out as PNG (with alpha) or JPEG.
    vmtest::TempDir dir;
    const std::string photo = vmtest::AssetPath("samples/sample.jpg");
    const std::string png = dir.File("out.png"), jpg = dir.File("out.jpg");
    CliResult r = RunCli("run " + Quote(photo) + " " + Quote("Doc_NewLayer('0')") + " Doc_FlipH -o " + Quote(png));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    const COLImage original = Load(photo), flipped = Load(png);
    ASSERT_EQ(flipped.GetWidth(), original.GetWidth());
    ASSERT_EQ(flipped.GetHeight(), original.GetHeight());
    // The flattened result is the photo mirrored, and opaque (the composite's own alpha is the selection).
    const uint32_t w = original.GetWidth();
    for (uint32_t y = 0; y < original.GetHeight(); ++y)
        for (uint32_t x = 0; x < w; ++x) {
            ASSERT_TRUE(flipped.GetPixel2(x, y) == original.GetPixel2(w - 1 - x, y)) << x << "," << y;
            ASSERT_EQ(flipped.GetPixel2(x, y).alpha, 255);
        }
    r = RunCli("run " + Quote(photo) + " Doc_FlipH -o " + Quote(jpg));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    EXPECT_EQ(Load(jpg).GetWidth(), original.GetWidth());

    r = RunCli("run " + Quote(photo) + " Doc_FlipH -o " + Quote(dir.File("out.xyz")));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.output.find("cannot write 'xyz' files"), std::string::npos) << r.output;
    EXPECT_FALSE(std::filesystem::exists(dir.File("out.xyz")));
}
