#include <gtest/gtest.h>
#include <string>

#include "effects/exemplar_inpaint.h"
#include "support/engine_checks.h"
#include "support/pictures.h"

using vmtest::CliResult;
using vmtest::Quote;
using vmtest::RunCli;

namespace {

constexpr int kW = 80, kH = 60;

// Diagonal stripes with a little noise, and a mask picture with a block of hole at (30, 20)..(46, 36).
struct RefineFiles {
    vmtest::TempDir dir;
    COLImage picture;

    RefineFiles()
    {
        COLImage noise = vmtest::Noise(kW, kH, 5);
        picture = vmtest::Picture(kW, kH, [&](uint32_t x, uint32_t y) {
            const int band = ((x + 2 * y) / 9) % 2 ? 180 : 60;
            return vmtest::Rgb(band + noise.GetBuffer(x, y)->red / 16, band / 2, 255 - band);
        });
        vmtest::SavePicture(dir.File("in.png"), picture);
        vmtest::SavePicture(dir.File("mask.png"), vmtest::Picture(kW, kH, [](int x, int y) {
                                return InHole(x, y) ? vmtest::Rgb(255, 255, 255) : vmtest::Rgb(0, 0, 0);
                            }));
    }
    static bool InHole(int x, int y) { return x >= 30 && x < 46 && y >= 20 && y < 36; }
    std::string Command(const std::string& extra) const
    {
        return "inpaint " + Quote(dir.File("in.png")) + " --mask " + Quote(dir.File("mask.png")) + " -o " +
               Quote(dir.File("out.png")) + extra;
    }
};

} // namespace

TEST(CmdInpaintRefine, WritesTheStructureAwareEnginesBytes)
{
    RefineFiles f;
    const CliResult r = RunCli(f.Command(" --refine"));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    EXPECT_NE(r.output.find("structure-aware"), std::string::npos) << r.output;
    // The file holds the structure-aware engine's bytes for the marked hole, at its default settings.
    const COLChannel mask = vmtest::PlaneOf(kW, kH, [](int x, int y) { return RefineFiles::InHole(x, y) ? 255 : 0; });
    COLImage expected;
    ASSERT_EQ(ExemplarInpaint(f.picture, mask, expected, ExemplarInpaintParams{}), kOk);
    EXPECT_EQ(vmtest::Bytes(vmtest::Load(f.dir.File("out.png"))), vmtest::Bytes(expected));
    EXPECT_FALSE(vmtest::SamePixels(expected, f.picture));
}

TEST(CmdInpaintRefine, RefusesBlockQuiltingsOptions)
{
    RefineFiles f;
    vmtest::WriteAll(f.dir.File("out.png"), {'k', 'e', 'e', 'p'});
    for (const char* extra : {" --refine --block 16", " --refine --exact", " --refine --nofeather"}) {
        const CliResult r = RunCli(f.Command(extra));
        EXPECT_EQ(r.exitCode, 2) << extra << ": " << r.output;
        EXPECT_NE(r.output.find("--refine"), std::string::npos) << r.output;
        EXPECT_EQ(vmtest::ReadAll(f.dir.File("out.png")), (std::vector<uint8_t>{'k', 'e', 'e', 'p'}));
    }
}
