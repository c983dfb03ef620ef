#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "imaging/image.h"
#include "support/cli_checks.h"
#include "support/pictures.h"

using vmtest::Load;
using vmtest::Quote;
using vmtest::RunOk;

TEST(CliRun, RunsCommandsAndWritesTheComposite)
{
    vmtest::TempDir dir;
    const COLImage picture = vmtest::OpaqueNoise(31, 17, 4);
    const std::string in = vmtest::SavePicture(dir.File("in.bmp"), picture), out = dir.File("out.png");
    RunOk("run " + Quote(in) + " " + Quote("Doc_NewLayer('0')") + " " + Quote("Doc_FlipH") + " -o " + Quote(out));
    // The base mirrored, and opaque: the composite's own alpha bytes hold the selection, not coverage.
    EXPECT_TRUE(vmtest::Mirrored(Load(out), picture));

    // A second picture on a new layer, moved and at half opacity, then everything flattened.
    vmtest::SavePicture(dir.File("w.bmp"), vmtest::Solid(4, 4, CPixel::Make(255, 255, 255)));
    RunOk("run " + Quote(in) + " --file " + Quote(dir.File("w.bmp")) + " " + Quote("Doc_OpenLayer('1')") + " " +
              Quote("Doc_LayerPropertyChange('1','0','2,3')") + " " + Quote("Doc_LayerPropertyChange('1','3','128')") +
              " " + Quote("Doc_LayerPropertyChange('1','2','前景')") + " " + Quote("Doc_FlatImage") + " -o " +
              Quote(out) + " -v",
          "layer 0: 图层2");
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
    vmtest::ExpectCli({
        {run + Quote("Doc_DeleteLayer('0')") + to, 1, "Doc_DeleteLayer('0')\" failed"},
        {run + Quote("Doc_FlipH(") + to, 1, "could not be parsed"},
        {run + Quote("Doc_OpenLayer('1')") + to, 1, "--file"},
        {run + "UI_Copy" + to, 1, "clipboard"},
        {run + "Doc_FlipH -o " + Quote(dir.File("out.xyz")), 1, "cannot write 'xyz' files"},
        {run + Quote("Doc_ImageSize('20001','10')") + to, 1, "Doc_ImageSize('20001','10')\" failed"},
        {"run " + Quote(dir.File("missing.bmp")) + " Doc_FlipH" + to, 1, "cannot open"},
        {run + "Doc_FlipH", 2, ""}, // no output named
        {"run" + to, 2, ""},
        {run + "--bogus" + to, 2, ""},
    });
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_FALSE(std::filesystem::exists(dir.File("out.xyz")));
}
