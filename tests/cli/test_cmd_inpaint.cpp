#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "effects/patch_inpaint.h"
#include "support/engine_checks.h"
#include "support/pictures.h"

using vmtest::CliResult;
using vmtest::Quote;
using vmtest::RunCli;

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

COLImage Expected(const COLImage& picture, int w, int h, int x0, int y0, int x1, int y1, int feather, int exact)
{
    COLChannel mask =
        vmtest::PlaneOf(w, h, [&](int x, int y) { return x >= x0 && x < x1 && y >= y0 && y < y1 ? 255 : 0; });
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
        const CliResult r = RunCli(f.Command(mask, c.options));
        ASSERT_EQ(r.exitCode, 0) << c.options << ": " << r.output;
        const COLImage out = vmtest::Load(f.dir.File("out.png"));
        const COLImage expected = Expected(f.picture, 64, 48, 26, 18, 38, 30, c.feather, c.exact);
        EXPECT_EQ(vmtest::Bytes(out), vmtest::Bytes(expected)) << c.options;
        EXPECT_FALSE(vmtest::SamePixels(out, f.picture)) << c.options;
    }
}

TEST(CmdInpaint, EmptyMaskGivesAnUnchangedCopy)
{
    InpaintFiles f(40, 30);
    const CliResult r = RunCli(f.Command(f.Mask(40, 30, 0, 0, 0, 0)));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    EXPECT_TRUE(vmtest::SamePixels(vmtest::Load(f.dir.File("out.png")), f.picture));
}

TEST(CmdInpaint, BadInputWritesNothing)
{
    InpaintFiles f(40, 30);
    const std::string out = f.dir.File("out.png");
    // A good file where the output goes must survive every refusal.
    vmtest::WriteAll(out, {'k', 'e', 'e', 'p'});
    struct Case {
        std::string command;
        int exit;
        const char* says;
    };
    const Case cases[] = {
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
    };
    for (const Case& c : cases) {
        const CliResult r = RunCli(c.command);
        EXPECT_EQ(r.exitCode, c.exit) << c.command << ": " << r.output;
        EXPECT_NE(r.output.find(c.says), std::string::npos) << r.output;
        EXPECT_EQ(vmtest::ReadAll(out), (std::vector<uint8_t>{'k', 'e', 'e', 'p'})) << c.command;
    }

    // A flat picture: the classic arithmetic finds no sample (exact matches do not count), the editor's fills.
    const COLImage flat = vmtest::Solid(40, 30, vmtest::Rgb(10, 200, 90));
    vmtest::SavePicture(f.dir.File("in.png"), flat);
    const std::string speck = f.Mask(40, 30, 18, 12, 21, 15, "speck.png");
    CliResult r = RunCli(f.Command(speck, " --exact"));
    EXPECT_EQ(r.exitCode, 1) << r.output;
    EXPECT_NE(r.output.find("no sample"), std::string::npos) << r.output;
    EXPECT_EQ(vmtest::ReadAll(out), (std::vector<uint8_t>{'k', 'e', 'e', 'p'}));
    r = RunCli(f.Command(speck));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    EXPECT_TRUE(vmtest::SamePixels(vmtest::Load(out), flat));
}
