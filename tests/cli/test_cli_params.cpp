// The engines' parameter tables drive the commands' options: refusals name the option, and every default lies in
// its own range (the help pages that show them are checked with the others).
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "filters/resample.h"
#include "matting/chroma_key.h"
#include "matting/gaussian.h"
#include "support/cli_checks.h"

using vmtest::Quote;

namespace {

template <class Settings> void ExpectDefaultsInRange(const vmparam::ParamTable& table)
{
    const Settings fresh{};
    const void* defaults = &fresh;
    for (const vmparam::Param& p : table.params) {
        if (p.required || p.kind == vmparam::Kind::kFlag) continue;
        const double v = p.get(defaults);
        EXPECT_GE(v, p.min) << table.engine << " --" << p.name;
        EXPECT_LE(v, p.max) << table.engine << " --" << p.name;
        if (p.kind == vmparam::Kind::kIntPair) {
            EXPECT_LT(v, p.get2(defaults)) << table.engine << " --" << p.name;
            EXPECT_LE(p.get2(defaults), p.max) << table.engine << " --" << p.name;
        }
        // What the table prints as the default, it takes back as the same value.
        Settings parsed{};
        EXPECT_EQ(vmparam::ParseValue(p, vmparam::FormatValue(p, defaults), &parsed), "") << p.name;
        EXPECT_EQ(p.get(&parsed), v) << p.name;
    }
}

} // namespace

TEST(CliParams, EveryTableDefaultLiesInItsRange)
{
    ExpectDefaultsInRange<ChromaKeySettings>(ChromaKeyParamTable());
    ExpectDefaultsInRange<GaussianSettings>(GaussianParamTable());
    ExpectDefaultsInRange<ResampleSettings>(ResampleParamTable());
}

TEST(CliParams, BadValuesAreRefusedWithTheOptionNamed)
{
    vmtest::TempDir dir;
    COLImage img = vmtest::Noise(8, 8, 1);
    ASSERT_EQ(img.SaveToFile(dir.File("in.bmp").c_str()), kOk);
    const std::string in = Quote(dir.File("in.bmp")), out = Quote(dir.File("out.png"));
    vmtest::ExpectCli({
        {"key " + in + " -o " + out + " --strength 101", 2, "--strength takes a whole number from 0 to 100, not '101'"},
        {"key " + in + " -o " + out + " --levels 40,40", 2,
         "--levels takes LO,HI with 0 <= LO < HI <= 255, not '40,40'"},
        {"key " + in + " -o " + out + " --feather=1", 2, "unknown option --feather"},
        {"blur " + in + " -o " + out, 2, "needs --sigma"},
        {"blur " + in + " -o " + out + " --sigma 2x", 2, "--sigma takes a number from 0 to 1000, not '2x'"},
        {"resample " + in + " 4x4 -o " + out + " --method cubic", 2,
         "--method takes bilinear, area or twopoint, not 'cubic'"},
    });
    EXPECT_FALSE(std::filesystem::exists(dir.File("out.png")));
    // A value at the end of its range is taken.
    vmtest::RunOk("resample " + in + " 4x4 -o " + out + " --method=twopoint");
}
