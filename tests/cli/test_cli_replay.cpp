#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "effects/polygon_fill.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "replay_test.h"
#include "support/cli_checks.h"
#include "tools/tool_fixture.h"

using vmtest::Filled;
using vmtest::GrayBytes;
using vmtest::Quote;

namespace {

class CliReplay : public vmtest::ReplayTest {
protected:
    CliReplay() : ReplayTest(21) {}
};

} // namespace

TEST_F(CliReplay, SelectionToolsAndCommandsEndToEnd)
{
    const std::string out = m_dir.File("out.png"), rect = m_dir.File("rect.png"), inv = m_dir.File("inv.png");
    ASSERT_TRUE(ReplayOk("# a rectangle, written, then inverted by a command\n"
                         "tool rect\n"
                         "down 4 5\n"
                         "drag 10 10   # half way\n"
                         "up 30 22\n"
                         "save-mask selection " + rect + "\n"
                         "command Doc_SelectInverse\n"
                         "save-mask selection " + inv + "\n",
                         out));
    const std::vector<uint8_t> expected = Filled({{4, 5}, {30, 5}, {30, 22}, {4, 22}, {4, 5}}, W, H);
    EXPECT_EQ(GrayBytes(rect), expected);
    std::vector<uint8_t> inverted = expected;
    for (uint8_t& v : inverted) v = uint8_t(255 - v);
    EXPECT_EQ(GrayBytes(inv), inverted);
    EXPECT_TRUE(vmtest::SameColours(vmtest::Load(out), m_picture)) << "selections do not change the picture";
}

TEST_F(CliReplay, SelectionModeWithPolygonsAndUndoWritesAProject)
{
    const std::string out = m_dir.File("out.vmpd"), outer = m_dir.File("outer.png");
    ASSERT_TRUE(ReplayOk("mode select\n"
                         "tool outpolygon\n"
                         "down 2 2\nup 2 2\nup 35 4\nup 30 26\ndbl 6 24\n"
                         "save-mask outer " + outer + "\n"
                         "tool modifypolygon\n"
                         "down 5 5\nup 5 5\nup 20 5\nup 20 20\nmove 5 5\nup 5 5\n"
                         "command UI_HistoryBackward\n"
                         "command UI_HistoryForward\n"
                         "mode compose keep\n",
                         out));
    EXPECT_EQ(GrayBytes(outer), Filled({{2, 2}, {35, 4}, {30, 26}, {6, 24}, {2, 2}}, W, H));
    const std::string info = vmtest::RunOk("info " + Quote(out), "with selection").output;
    EXPECT_NE(info.find("His_selandproc (kind 255"), std::string::npos) << info;
}

TEST_F(CliReplay, BadLinesNameTheirLineAndWriteNothing)
{
    const std::string mask = m_dir.File("mask.png");
    ExpectRefused({
        {"tool rect\ndown 1 1\nup 9 9\nsave-mask selection " + mask + "\nwiggle 3 4\n", ":5:"},
        // A well-formed line that fails when it runs: the selection-mode tool is not offered in compose mode.
        {"tool rect\ndown 1 1\nup 9 9\nsave-mask selection " + mask + "\ntool outpolygon\n", "line 5"},
        {"option tolerance 100\n", ":1:"},
        {"mode select\nmode compose apply\n", "line 2"},   // a single layer is the base: apply is refused
    });
    EXPECT_FALSE(std::filesystem::exists(mask));
}
