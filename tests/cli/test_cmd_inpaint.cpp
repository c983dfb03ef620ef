#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "effects/exemplar_inpaint.h"
#include "effects/patch_inpaint.h"
#include "support/cli_checks.h"
#include "support/engine_checks.h"
#include "support/pictures.h"

using vmtest::ExpectCli;
using vmtest::Quote;
using vmtest::RunOk;

namespace {

// A textured opaque picture and a mask picture whose given rectangle is a gray that is not black.
struct InpaintFiles {
    vmtest::TempDir dir;
    COLImage picture;

    InpaintFiles(int w, int h)
    {
        COLImage noise = vmtest::Noise(w, h, 21);
        picture = vmtest::Picture(w, h, [&](uint32_t x, uint32_t y) {
            const CPixel n = *noise.GetBuffer(x, y);
            return vmtest::Rgb((x * 4) % 90 + n.red / 8, 100 + n.green / 4, (y * 5) % 70 + 60);
        });
        vmtest::SavePicture(dir.File("in.png"), picture);
    }

    std::string Mask(int w, int h, int x0, int y0, int x1, int y1, const char* name = "mask.png")
    {
        return vmtest::SavePicture(dir.File(name), vmtest::Picture(w, h, [&](int x, int y) {
                                       const bool hole = x >= x0 && x < x1 && y >= y0 && y < y1;
                                       return hole ? vmtest::Rgb(3, 3, 3) : vmtest::Rgb(0, 0, 0);
                                   }));
    }

    std::string Command(const std::string& mask, const std::string& extra = "")
    {
        return "inpaint " + Quote(dir.File("in.png")) + " --mask " + Quote(mask) + " -o " + Quote(dir.File("out.png")) +
               extra;
    }
};

// The hole of InpaintFiles::Mask as the engines take it.
COLChannel HolePlane(int w, int h, int x0, int y0, int x1, int y1)
{
    return vmtest::PlaneOf(w, h, [&](int x, int y) { return x >= x0 && x < x1 && y >= y0 && y < y1 ? 255 : 0; });
}

COLImage Expected(const COLImage& picture, int w, int h, int x0, int y0, int x1, int y1, int feather, int exact)
{
    COLChannel mask = HolePlane(w, h, x0, y0, x1, y1);
    InpaintParams p;
    p.mask = &mask;
    p.blockSize = CPatchInpaintProcess::EstimateBlockSize(mask);
    p.featherMask = feather;
    p.exact = exact;
    CPatchInpaintProcess process;
    COLImage out;
    process.SetImages(const_cast<COLImage*>(&picture), &out);
    EXPECT_EQ(process.Process(&p), kOk);
    return out;
}

} // namespace

TEST(CmdInpaint, WritesTheEnginesBytesForEachFeatherAndArithmetic)
{
    InpaintFiles f(64, 48);
    const std::string mask = f.Mask(64, 48, 26, 18, 38, 30);
    struct Case {
        const char* options;
        int feather, exact;
    };
    for (const Case& c : {Case{"", 1, 0}, Case{" --nofeather", 0, 0}, Case{" --exact", 1, 1},
                          Case{" --exact --nofeather", 0, 1}}) {
        std::filesystem::remove(f.dir.File("out.png"));
        RunOk(f.Command(mask, c.options));
        const COLImage out = vmtest::Load(f.dir.File("out.png"));
        const COLImage expected = Expected(f.picture, 64, 48, 26, 18, 38, 30, c.feather, c.exact);
        EXPECT_EQ(vmtest::Bytes(out), vmtest::Bytes(expected)) << c.options;
        EXPECT_FALSE(vmtest::SamePixels(out, f.picture)) << c.options;
    }
    // An empty mask gives an unchanged copy.
    RunOk(f.Command(f.Mask(64, 48, 0, 0, 0, 0, "empty.png")));
    EXPECT_TRUE(vmtest::SamePixels(vmtest::Load(f.dir.File("out.png")), f.picture));
}

TEST(CmdInpaint, BadInputWritesNothing)
{
    InpaintFiles f(40, 30);
    const std::string out = f.dir.File("out.png");
    // A good file where the output goes must survive every refusal.
    const std::vector<uint8_t> keep{'k', 'e', 'e', 'p'};
    vmtest::WriteAll(out, keep);
    const vmtest::CliCase cases[] = {
        {f.Command(f.Mask(41, 30, 5, 5, 10, 10, "wide.png")), 1, "41 x 30"},
        {f.Command(f.Mask(40, 30, 0, 0, 40, 30, "all.png")), 1, "fifth"},
        {f.Command(f.Mask(40, 30, 10, 5, 26, 21, "big.png")), 1, "fifth"},   // 256 > 240 pixels
        {f.Command(f.dir.File("missing.png")), 1, ""},
        {"inpaint " + Quote(f.dir.File("missing.png")) + " --mask " + Quote(f.Mask(40, 30, 5, 5, 9, 9)) + " -o " +
             Quote(out),
         1, ""},
        {f.Command(f.Mask(40, 30, 5, 5, 9, 9), " --block 5"), 2, "--block"},
        {f.Command(f.Mask(40, 30, 5, 5, 9, 9), " --block 65"), 2, "--block"},
        {"inpaint " + Quote(f.dir.File("in.png")) + " -o " + Quote(out), 2, "--mask"},
        // The structure-aware engine takes none of block quilting's options.
        {f.Command(f.Mask(40, 30, 5, 5, 9, 9), " --refine --block 16"), 2, "--refine"},
        {f.Command(f.Mask(40, 30, 5, 5, 9, 9), " --refine --exact"), 2, "--refine"},
        {f.Command(f.Mask(40, 30, 5, 5, 9, 9), " --refine --nofeather"), 2, "--refine"},
    };
    for (const vmtest::CliCase& c : cases) {
        ExpectCli(c.arguments, c.exitCode, c.says);
        EXPECT_EQ(vmtest::ReadAll(out), keep) << c.arguments;
    }

    // A flat picture: the classic arithmetic finds no sample (exact matches do not count), the editor's fills.
    const COLImage flat = vmtest::Solid(40, 30, vmtest::Rgb(10, 200, 90));
    vmtest::SavePicture(f.dir.File("in.png"), flat);
    const std::string speck = f.Mask(40, 30, 18, 12, 21, 15, "speck.png");
    ExpectCli(f.Command(speck, " --exact"), 1, "no sample");
    EXPECT_EQ(vmtest::ReadAll(out), keep);
    RunOk(f.Command(speck));
    EXPECT_TRUE(vmtest::SamePixels(vmtest::Load(out), flat));
}

TEST(CmdInpaint, RefineWritesTheStructureAwareEnginesBytes)
{
    InpaintFiles f(80, 60);
    RunOk(f.Command(f.Mask(80, 60, 30, 20, 46, 36), " --refine"), "structure-aware");
    // The file holds the structure-aware engine's bytes for the marked hole, at its default settings.
    COLImage expected;
    ASSERT_EQ(ExemplarInpaint(f.picture, HolePlane(80, 60, 30, 20, 46, 36), expected, ExemplarInpaintParams{}), kOk);
    EXPECT_EQ(vmtest::Bytes(vmtest::Load(f.dir.File("out.png"))), vmtest::Bytes(expected));
    EXPECT_FALSE(vmtest::SamePixels(expected, f.picture));
}
