#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "imaging/image.h"
#include "support/pictures.h"

using vmtest::CliResult;
using vmtest::Load;
using vmtest::Quote;
using vmtest::RunCli;

TEST(CliRun, RunsCommandsAndWritesTheComposite)
{
    vmtest::TempDir dir;
    const COLImage picture = vmtest::OpaqueNoise(31, 17, 4);
    const std::string in = vmtest::SavePicture(dir.File("in.bmp"), picture), out = dir.File("out.bmp");
    CliResult r =
        RunCli("run " + Quote(in) + " " + Quote("Doc_NewLayer('0')") + " " + Quote("Doc_FlipH") + " -o " + Quote(out));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    EXPECT_TRUE(vmtest::Mirrored(Load(out), picture)) << "the base is mirrored";

    // A second picture on a new layer, moved and at half opacity, then everything flattened.
    vmtest::SavePicture(dir.File("w.bmp"), vmtest::Solid(4, 4, CPixel::Make(255, 255, 255)));
    r = RunCli("run " + Quote(in) + " --file " + Quote(dir.File("w.bmp")) + " " + Quote("Doc_OpenLayer('1')") + " " +
               Quote("Doc_LayerPropertyChange('1','0','2,3')") + " " + Quote("Doc_LayerPropertyChange('1','3','128')") +
               " " + Quote("Doc_LayerPropertyChange('1','2','前景')") + " " + Quote("Doc_FlatImage") + " -o " +
               Quote(out) + " -v");
    ASSERT_EQ(r.exitCode, 0) << r.output;
    EXPECT_NE(r.output.find("layer 0: 图层2"), std::string::npos) << r.output;
    const COLImage merged = Load(out);
    const CPixel was = picture.GetPixel2(3, 4), now = merged.GetPixel2(3, 4);
    EXPECT_EQ(now.red, (was.red * 127 + 255 * 128 + 127) / 255);
    EXPECT_EQ(merged.GetPixel(1, 1), picture.GetPixel(1, 1));
}

TEST(CliRun, FailuresAreClearAndWriteNothing)
{
    vmtest::TempDir dir;
    const std::string in = vmtest::SavePicture(dir.File("in.bmp"), vmtest::OpaqueNoise(8, 8, 1));
    const std::string out = dir.File("out.bmp");
    const std::string run = "run " + Quote(in) + " ", to = " -o " + Quote(out);
    struct Case {
        std::string args;
        int exitCode;
        const char* says;
    };
    const Case cases[] = {
        {run + Quote("Doc_DeleteLayer('0')") + to, 1, "Doc_DeleteLayer('0')\" failed"},
        {run + Quote("Doc_FlipH(") + to, 1, "could not be parsed"},
        {run + Quote("Doc_OpenLayer('1')") + to, 1, "--file"},
        {run + "UI_Copy" + to, 1, "clipboard"},
        {"run " + Quote(dir.File("missing.bmp")) + " Doc_FlipH" + to, 1, "cannot open"},
        {run + "Doc_FlipH", 2, ""}, // no output named
        {"run" + to, 2, ""},
        {run + "--bogus" + to, 2, ""},
    };
    for (const Case& c : cases) {
        const CliResult r = RunCli(c.args);
        EXPECT_EQ(r.exitCode, c.exitCode) << c.args << "\n" << r.output;
        EXPECT_NE(r.output.find(c.says), std::string::npos) << c.args << "\n" << r.output;
    }
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
    // The flattened result is the photo mirrored, and opaque (the composite's own alpha is the selection).
    const COLImage original = Load(photo);
    EXPECT_TRUE(vmtest::Mirrored(Load(png), original));
    r = RunCli("run " + Quote(photo) + " Doc_FlipH -o " + Quote(jpg));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    EXPECT_EQ(Load(jpg).GetWidth(), original.GetWidth());

    r = RunCli("run " + Quote(photo) + " Doc_FlipH -o " + Quote(dir.File("out.xyz")));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.output.find("cannot write 'xyz' files"), std::string::npos) << r.output;
    EXPECT_FALSE(std::filesystem::exists(dir.File("out.xyz")));
}
