#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "imaging/image.h"
#include "support/cli_checks.h"
#include "support/pictures.h"

using vmtest::ExpectCli;
using vmtest::Load;
using vmtest::Quote;
using vmtest::RunOk;

TEST(CliProject, ConvertMakesAOneLayerProjectAndFlattensItBack)
{
    vmtest::TempDir dir;
    const std::string photo = vmtest::AssetPath("samples/chelsea.png");
    const std::string project = dir.File("chelsea.vmpd"), back = dir.File("back.png");
    RunOk("convert " + Quote(photo) + " " + Quote(project));
    const COLImage original = Load(photo);
    const uint64_t w = original.GetWidth(), h = original.GetHeight();
    EXPECT_EQ(std::filesystem::file_size(project), 24 + 20 + 8 + 56 + 4 + w * h * 4 + 8 + 2);

    const std::string info = RunOk("info " + Quote(project), "1 layer(s)").output;
    EXPECT_NE(info.find("layer 0: \"背景\" at (0, 0), " + std::to_string(w) + " x " + std::to_string(h) +
                        ", opacity 255, mode 0 (bm_normal), visible"),
              std::string::npos)
        << info;
    EXPECT_NE(info.find("history: not saved"), std::string::npos) << info;

    RunOk("convert " + Quote(project) + " " + Quote(back));
    EXPECT_TRUE(vmtest::SamePixels(Load(back), original));
}

TEST(CliProject, RunScriptsAnEditWithUndoIntoAProject)
{
    vmtest::TempDir dir;
    const std::string in = vmtest::SavePicture(dir.File("in.bmp"), vmtest::OpaqueNoise(29, 13, 8));
    const std::string project = dir.File("edit.vmpd");
    const COLImage base = Load(in);

    RunOk("run " + Quote(in) + " " + Quote("Doc_NewLayer('0')") + " " + Quote("Doc_FlipH") + " " +
          Quote("UI_HistoryBackward") + " -o " + Quote(project));
    const std::string info = RunOk("info " + Quote(project), "2 layer(s)").output;
    EXPECT_NE(info.find("history: 3 step(s), at step 2"), std::string::npos) << info;
    EXPECT_NE(info.find(">2: His_newlayer (kind 8, arg 0)"), std::string::npos) << info;

    // The flip was undone before saving...
    const std::string flat = dir.File("flat.bmp");
    RunOk("convert " + Quote(project) + " " + Quote(flat));
    EXPECT_TRUE(vmtest::SamePixels(Load(flat), base));
    // ...and the reopened project can redo it.
    const std::string redone = dir.File("redone.bmp");
    RunOk("run " + Quote(project) + " " + Quote("UI_HistoryForward") + " -o " + Quote(redone));
    EXPECT_TRUE(vmtest::Mirrored(Load(redone), base));
    // The first step cannot be undone.
    ExpectCli("run " + Quote(project) + " " + Quote("UI_HistoryBackward") + " " + Quote("UI_HistoryBackward") +
                  " -o " + Quote(redone),
              1);

    const std::string plain = dir.File("plain.vmpd");
    RunOk("run " + Quote(in) + " " + Quote("Doc_FlipV") + " --no-history -o " + Quote(plain));
    RunOk("info " + Quote(plain), "history: not saved");
}

TEST(CliProject, DamagedProjectsFailClearly)
{
    vmtest::TempDir dir;
    const std::string in = vmtest::SavePicture(dir.File("in.bmp"), vmtest::OpaqueNoise(9, 9, 1));
    const std::string project = dir.File("p.vmpd"), cut = dir.File("cut.vmpd");
    RunOk("convert " + Quote(in) + " " + Quote(project));
    auto bytes = vmtest::ReadAll(project);
    bytes.resize(bytes.size() / 2);
    vmtest::WriteAll(cut, bytes);
    for (const std::string& command : {"info " + Quote(cut), "convert " + Quote(cut) + " " + Quote(dir.File("o.png")),
                                       "run " + Quote(cut) + " -o " + Quote(dir.File("o.bmp"))})
        ExpectCli(command, 1, "error:");
    EXPECT_FALSE(std::filesystem::exists(dir.File("o.png")));
    EXPECT_FALSE(std::filesystem::exists(dir.File("o.bmp")));
}
