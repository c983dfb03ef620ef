#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "imaging/codec.h"
#include "imaging/image.h"
#include "matting/batch_key.h"
#include "matting/chroma_key.h"
#include "matting/refined_key.h"
#include "support/cli_checks.h"
#include "support/pictures.h"

using vmtest::ExpectCli;
using vmtest::Load;
using vmtest::Quote;
using vmtest::RunOk;

namespace {

// An orange block on a green backdrop, or on gray.
void WriteShot(const std::string& path, bool green)
{
    const CPixel back = green ? CPixel::Make(46, 168, 72) : CPixel::Make(128, 128, 128);
    vmtest::SavePicture(path, vmtest::Picture(96, 64, [&](uint32_t x, uint32_t y) {
                            return x >= 32 && x < 64 && y >= 20 ? CPixel::Make(210, 120, 60) : back;
                        }));
}

} // namespace

TEST(CliKey, KeysAGreenScreenShot)
{
    vmtest::TempDir dir;
    WriteShot(dir.File("shot.bmp"), true);
    const std::string out = dir.File("cut.png");
    RunOk("key " + Quote(dir.File("shot.bmp")) + " -o " + Quote(out), "backdrop 2EA848, hue key");
    COLImage img = Load(out);
    ASSERT_EQ(img.GetWidth(), 96u);
    EXPECT_EQ(img.GetPixel2(5, 5).alpha, 0);
    EXPECT_EQ(img.GetPixel(48, 50), 0xFFD2783Cu);

    // A gray backdrop given by hand goes the luma way; a picked point reads the backdrop there.
    WriteShot(dir.File("gray.bmp"), false);
    RunOk("key " + Quote(dir.File("gray.bmp")) + " -o " + Quote(out) + " --backdrop 5%,5% --levels 0,255",
          "backdrop 808080, luma key");
    RunOk("key " + Quote(dir.File("gray.bmp")) + " -o " + Quote(out) + " --backdrop '#d2783c' --shadow",
          "backdrop D2783C, hue key");
}

TEST(CliKey, RefusesBadArguments)
{
    vmtest::TempDir dir;
    WriteShot(dir.File("shot.bmp"), true);
    const std::string in = Quote(dir.File("shot.bmp"));
    const std::string out = Quote(dir.File("o.png"));
    // Out-of-range table values are refused with their option named (CliParams); here the key's own forms.
    for (const char* bad : {"--levels 300,310", "--backdrop red", "--backdrop 50%", "--luma-strength -1", "--bogus"})
        ExpectCli("key " + in + " -o " + out + " " + std::string(bad), 2);
    ExpectCli("key " + in, 2);                                    // no -o
    ExpectCli("key " + in + " -o " + Quote(dir.File("o.jpg")), 2);   // not a PNG
    vmtest::WriteAll(dir.File("broken.jpg"), {0xFF, 0xD8, 0xFF});
    ExpectCli("key " + Quote(dir.File("broken.jpg")) + " -o " + out, 1, "cannot read");
    EXPECT_FALSE(std::filesystem::exists(dir.File("o.png")));
}

TEST(CliBatchKey, GoesOnPastABrokenFileAndListsIt)
{
    vmtest::TempDir dir;
    std::filesystem::create_directory(dir.Path() / "in");
    WriteShot(dir.File("in/a.bmp"), true);
    WriteShot(dir.File("in/c.jpg"), true);
    vmtest::WriteAll(dir.File("in/b.jpg"), {0xFF, 0xD8, 0xFF, 0xE0});
    const std::string out = dir.File("out");
    const std::string said = ExpectCli("batch-key " + Quote(dir.File("in")) + " -o " + Quote(out) + " --suffix _cut", 1,
                                       "2 of 3 pictures keyed")
                                 .output;
    for (const char* text : {"[1/3]", "[3/3]", "1 failed", "b.jpg"})
        EXPECT_NE(said.find(text), std::string::npos) << text << "\n" << said;
    EXPECT_TRUE(std::filesystem::exists(out + "/a_cut.png"));
    EXPECT_TRUE(std::filesystem::exists(out + "/c_cut.png"));
    EXPECT_FALSE(std::filesystem::exists(out + "/b_cut.png"));

    // All good: exit 0, and a second run overwrites without asking.
    std::filesystem::remove(dir.File("in/b.jpg"));
    // Listed twice, keyed once.
    RunOk("batch-key " + Quote(dir.File("in/a.bmp")) + " " + Quote(dir.File("in/a.bmp")) + " -o " + Quote(out) +
              " --prefix x- --colour 2EA848",
          "1 of 1 pictures keyed");
    const COLImage keyed = Load(out + "/x-a.png");
    const int trace = keyed.GetPixel2(5, 5).alpha;   // the unattended strength of 32 leaves a faint trace
    EXPECT_TRUE(trace > 0 && trace < 16) << trace;
    EXPECT_EQ(keyed.GetPixel(48, 50), 0xFFD2783Cu);
}

TEST(CliBatchKey, FolderGivesEveryPictureButNotTheResultsItHolds)
{
    vmtest::TempDir dir;
    const std::string in = Quote(dir.Path().string());
    WriteShot(dir.File("a.PNG"), true);
    WriteShot(dir.File("b.bmp"), true);
    RunOk("batch-key " + in + " -o " + in + " --suffix _cut", "2 of 2 pictures keyed");
    // The backdrop corner of a result: keyed away but for a faint trace; -1 when there is no result.
    auto cornerAlpha = [&](const char* name) {
        const COLImage img = Load(dir.File(name));
        return img.IsNull() ? -1 : int(img.GetPixel2(5, 5).alpha);
    };
    EXPECT_TRUE(cornerAlpha("a_cut.png") >= 0 && cornerAlpha("a_cut.png") < 16);

    // Into the same folder again without a suffix: every file named like its own result is left alone.
    WriteShot(dir.File("c.png"), true);
    RunOk("batch-key " + in + " -o " + in, "2 of 2 pictures keyed");   // a.PNG and b.bmp
    EXPECT_EQ(cornerAlpha("c.png"), 255);
    EXPECT_TRUE(cornerAlpha("b.png") >= 0 && cornerAlpha("b.png") < 16);
}

TEST(CliBatchKey, RefusesBadArguments)
{
    vmtest::TempDir dir;
    WriteShot(dir.File("a.bmp"), true);
    const std::string in = Quote(dir.File("a.bmp"));
    const std::string out = " -o " + Quote(dir.File("o"));
    for (const std::string& args : {in, out, in + out + " --prefix a --suffix b", in + out + " --colour 120%,3%",
                                    in + out + " --suffix a/b"})
        ExpectCli("batch-key " + args, 2);
    EXPECT_FALSE(std::filesystem::exists(dir.File("o")));
}

TEST(CliKey, RefineSolvesTheEdgeAndLeavesTheClassicOutputAlone)
{
    vmtest::TempDir dir;
    const std::string shot = dir.File("white.png");
    const std::string data = vmtest::DataPath("matting/key_white.jpg");
    std::filesystem::copy_file(data, shot);
    const COLImage source = Load(shot);
    ASSERT_FALSE(source.IsNull());

    // Without the option: the classic key's bytes, as the engine gives them.
    const std::string said =
        RunOk("key " + Quote(shot) + " -o " + Quote(dir.File("classic.png")) + " --backdrop 10%,10%").output;
    EXPECT_EQ(said.find("refined"), std::string::npos) << said;
    ChromaKeySettings settings;
    settings.params.backdrop = batchkey::ColourAtPercent(source, 10, 10);
    COLImage copy = vmtest::Copy(source), classic, refined;
    CChromaKeyProcess process;
    process.SetImages(&copy, &classic);
    ASSERT_EQ(process.Process(&settings.params), kOk);
    EXPECT_EQ(vmtest::Bytes(Load(dir.File("classic.png"))), vmtest::Bytes(classic));

    // With it: the refined key's bytes, which differ from the classic ones.
    RunOk("key " + Quote(shot) + " -o " + Quote(dir.File("refined.png")) + " --backdrop 10%,10% --refine",
          "luma key, refined");
    settings.refine = 1;
    ASSERT_EQ(RunBackdropKey(settings, copy, refined), kOk);
    EXPECT_EQ(vmtest::Bytes(Load(dir.File("refined.png"))), vmtest::Bytes(refined));
    EXPECT_NE(vmtest::Bytes(refined), vmtest::Bytes(classic));
}

TEST(CliBatchKey, RefineTakesTheBackdropAwayCompletely)
{
    // The unattended classic key leaves a faint trace on a flat backdrop (see above); the refined one none.
    vmtest::TempDir dir;
    std::filesystem::create_directories(dir.File("in"));
    WriteShot(dir.File("in/a.bmp"), true);
    const std::string out = dir.File("out");
    RunOk("batch-key " + Quote(dir.File("in")) + " -o " + Quote(out) + " --colour 2EA848 --refine",
          "1 of 1 pictures keyed");
    const COLImage keyed = Load(out + "/a.png");
    ASSERT_FALSE(keyed.IsNull());
    EXPECT_EQ(keyed.GetPixel2(5, 5).Word(), 0u);
    EXPECT_EQ(keyed.GetPixel(48, 50), 0xFFD2783Cu);
}
