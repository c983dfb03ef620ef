#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "effects/polygon_fill.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "replay_test.h"

using vmtest::CliResult;
using vmtest::GrayBytes;
using vmtest::Quote;
using vmtest::RunCli;

namespace {

class CliReplay : public vmtest::ReplayTest {
protected:
    CliReplay() : ReplayTest(21) {}
};

// The rectangle from (4, 5) to (30, 22) as the selection tools fill it.
std::vector<uint8_t> Rectangle()
{
    COLChannel c = vmtest::Plane(40, 30, 0);
    const CPolyPoint outline[] = {{4, 5}, {30, 5}, {30, 22}, {4, 22}, {4, 5}};
    FillPolygon(outline, 5, &c);
    return vmtest::Bytes(c);
}

} // namespace

TEST_F(CliReplay, SelectionToolsAndCommandsEndToEnd)
{
    const std::string out = m_dir.File("out.png"), rect = m_dir.File("rect.png"), inv = m_dir.File("inv.png");
    const CliResult r = Replay("# a rectangle, written, then inverted by a command\n"
                               "tool rect\n"
                               "down 4 5\n"
                               "drag 10 10   # half way\n"
                               "up 30 22\n"
                               "save-mask selection " + rect + "\n"
                               "command Doc_SelectInverse\n"
                               "save-mask selection " + inv + "\n",
                               out);
    ASSERT_EQ(r.exitCode, 0) << r.output;
    const std::vector<uint8_t> expected = Rectangle();
    EXPECT_EQ(GrayBytes(rect), expected);
    std::vector<uint8_t> inverted = expected;
    for (uint8_t& v : inverted) v = uint8_t(255 - v);
    EXPECT_EQ(GrayBytes(inv), inverted);
    EXPECT_TRUE(vmtest::SameColours(vmtest::Load(out), m_picture)) << "selections do not change the picture";
}

TEST_F(CliReplay, SelectionModeWithPolygonsAndUndoWritesAProject)
{
    const std::string out = m_dir.File("out.vmpd"), outer = m_dir.File("outer.png");
    const CliResult r = Replay("mode select\n"
                               "tool outpolygon\n"
                               "down 2 2\nup 2 2\nup 35 4\nup 30 26\ndbl 6 24\n"
                               "save-mask outer " + outer + "\n"
                               "tool modifypolygon\n"
                               "down 5 5\nup 5 5\nup 20 5\nup 20 20\nmove 5 5\nup 5 5\n"
                               "command UI_HistoryBackward\n"
                               "command UI_HistoryForward\n"
                               "mode compose keep\n",
                               out);
    ASSERT_EQ(r.exitCode, 0) << r.output;
    COLChannel polygon = vmtest::Plane(40, 30, 0);
    const CPolyPoint outline[] = {{2, 2}, {35, 4}, {30, 26}, {6, 24}, {2, 2}};
    FillPolygon(outline, 5, &polygon);
    EXPECT_EQ(GrayBytes(outer), vmtest::Bytes(polygon));
    const CliResult info = RunCli("info " + Quote(out));
    ASSERT_EQ(info.exitCode, 0) << info.output;
    EXPECT_NE(info.output.find("with selection"), std::string::npos) << info.output;
    EXPECT_NE(info.output.find("His_selandproc (kind 255"), std::string::npos) << info.output;
}

TEST_F(CliReplay, BadLinesNameTheirLineAndWriteNothing)
{
    const std::string out = m_dir.File("out.png"), mask = m_dir.File("mask.png");
    CliResult r = Replay("tool rect\ndown 1 1\nup 9 9\nsave-mask selection " + mask + "\nwiggle 3 4\n", out);
    EXPECT_NE(r.exitCode, 0);
    EXPECT_NE(r.output.find(":5:"), std::string::npos) << r.output;
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_FALSE(std::filesystem::exists(mask));

    // A well-formed line that fails when it runs: the selection-mode tool is not offered in compose mode.
    r = Replay("tool rect\ndown 1 1\nup 9 9\nsave-mask selection " + mask + "\ntool outpolygon\n", out);
    EXPECT_NE(r.exitCode, 0);
    EXPECT_NE(r.output.find("line 5"), std::string::npos) << r.output;
    EXPECT_FALSE(std::filesystem::exists(mask));

    r = Replay("option tolerance 100\n", out);
    EXPECT_NE(r.output.find(":1:"), std::string::npos) << r.output;
    r = Replay("mode select\nmode compose apply\n", out);
    EXPECT_NE(r.exitCode, 0) << "a single layer is the base: apply is refused";
    EXPECT_FALSE(std::filesystem::exists(out));
}
