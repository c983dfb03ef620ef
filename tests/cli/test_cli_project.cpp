#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "imaging/image.h"
#include "support/pictures.h"

using vmtest::CliResult;
using vmtest::Quote;
using vmtest::RunCli;
using vmtest::Load;

TEST(CliProject, ConvertMakesAOneLayerProjectAndFlattensItBack)
{
    vmtest::TempDir dir;
    const std::string photo = vmtest::AssetPath("samples/chelsea.png");
    const std::string project = dir.File("chelsea.vmpd"), back = dir.File("back.png");
    CliResult r = RunCli("convert " + Quote(photo) + " " + Quote(project));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    const COLImage original = Load(photo);
    const uint64_t w = original.GetWidth(), h = original.GetHeight();
    EXPECT_EQ(std::filesystem::file_size(project), 24 + 20 + 8 + 56 + 4 + w * h * 4 + 8 + 2);

    r = RunCli("info " + Quote(project));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    EXPECT_NE(r.output.find("1 layer(s)"), std::string::npos) << r.output;
    EXPECT_NE(r.output.find("layer 0: \"背景\" at (0, 0), " + std::to_string(w) + " x " + std::to_string(h) +
                            ", opacity 255, mode 0 (bm_normal), visible"),
              std::string::npos)
        << r.output;
    EXPECT_NE(r.output.find("history: not saved"), std::string::npos) << r.output;

    r = RunCli("convert " + Quote(project) + " " + Quote(back));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    EXPECT_TRUE(vmtest::SamePixels(Load(back), original));
}

TEST(CliProject, RunScriptsAnEditWithUndoIntoAProject)
{
    vmtest::TempDir dir;
    const std::string in = vmtest::SavePicture(dir.File("in.bmp"), vmtest::OpaqueNoise(29, 13, 8));
    const std::string project = dir.File("edit.vmpd");
    const COLImage base = Load(in);

    CliResult r = RunCli("run " + Quote(in) + " " + Quote("Doc_NewLayer('0')") + " " + Quote("Doc_FlipH") + " " +
                         Quote("UI_HistoryBackward") + " -o " + Quote(project));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    r = RunCli("info " + Quote(project));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    EXPECT_NE(r.output.find("2 layer(s)"), std::string::npos) << r.output;
    EXPECT_NE(r.output.find("history: 3 step(s), at step 2"), std::string::npos) << r.output;
    EXPECT_NE(r.output.find(">2: His_newlayer (kind 8, arg 0)"), std::string::npos) << r.output;

    // The flip was undone before saving...
    const std::string flat = dir.File("flat.bmp");
    r = RunCli("convert " + Quote(project) + " " + Quote(flat));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    EXPECT_TRUE(vmtest::SamePixels(Load(flat), base));
    // ...and the reopened project can redo it.
    const std::string redone = dir.File("redone.bmp");
    r = RunCli("run " + Quote(project) + " " + Quote("UI_HistoryForward") + " -o " + Quote(redone));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    EXPECT_TRUE(vmtest::Mirrored(Load(redone), base));
    r = RunCli("run " + Quote(project) + " " + Quote("UI_HistoryBackward") + " " + Quote("UI_HistoryBackward") +
               " -o " + Quote(redone));
    EXPECT_NE(r.exitCode, 0) << "the first step cannot be undone";

    const std::string plain = dir.File("plain.vmpd");
    r = RunCli("run " + Quote(in) + " " + Quote("Doc_FlipV") + " --no-history -o " + Quote(plain));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    r = RunCli("info " + Quote(plain));
    EXPECT_NE(r.output.find("history: not saved"), std::string::npos) << r.output;
}

TEST(CliProject, DamagedProjectsFailClearly)
{
    vmtest::TempDir dir;
    const std::string in = vmtest::SavePicture(dir.File("in.bmp"), vmtest::OpaqueNoise(9, 9, 1));
    const std::string project = dir.File("p.vmpd"), cut = dir.File("cut.vmpd");
    ASSERT_EQ(RunCli("convert " + Quote(in) + " " + Quote(project)).exitCode, 0);
    auto bytes = vmtest::ReadAll(project);
    bytes.resize(bytes.size() / 2);
    vmtest::WriteAll(cut, bytes);
    for (const std::string& command : {"info " + Quote(cut), "convert " + Quote(cut) + " " + Quote(dir.File("o.png")),
                                       "run " + Quote(cut) + " -o " + Quote(dir.File("o.bmp"))}) {
        const CliResult r = RunCli(command);
        EXPECT_EQ(r.exitCode, 1) << command << "\n" << r.output;
        EXPECT_NE(r.output.find("error:"), std::string::npos) << r.output;
    }
    EXPECT_FALSE(std::filesystem::exists(dir.File("o.png")));
    EXPECT_FALSE(std::filesystem::exists(dir.File("o.bmp")));
}
