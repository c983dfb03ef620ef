#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <tuple>

#include "effects/polygon_fill.h"
#include "effects/selection_modifiers.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "matting/gaussian.h"
#include "replay_test.h"
#include "support/plain_masks.h"

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

TEST_F(CliReplay, ExpandFeatherAndFillThroughCommandLines)
{
    const std::string out = m_dir.File("filled.png"), soft = m_dir.File("soft.png");
    const CliResult r = Replay("tool rect\n"
                               "down 4 5\n"
                               "up 30 22\n"
                               "tool none\n"
                               "command Doc_SelectExpand('2')\n"
                               "command Doc_SelectFeather('3')\n"
                               "save-mask selection " +
                                   soft +
                                   "\n"
                                   "command Doc_FillSelection('60','FF0000')\n",
                               out);
    ASSERT_EQ(r.exitCode, 0) << r.output;
    // The rectangle grown by a 5 x 5 square, then blurred at sigma 1.5.
    const std::vector<uint8_t> rect = Rectangle();
    COLChannel grown = vmtest::Plane(40, 30, 0);
    const std::vector<uint8_t> expanded = vmtest::PlainExpand(rect, 40, 30, 2);
    std::copy(expanded.begin(), expanded.end(), grown.GetBuffer());
    COLChannel feathered;
    CGaussianProcess blur;
    blur.SetChannels(&grown, &feathered);
    const double sigma = 1.5;
    ASSERT_EQ(blur.ProcessChannel(&sigma), 0);
    const std::vector<uint8_t> mask = vmtest::Bytes(feathered);
    EXPECT_EQ(GrayBytes(soft), mask);

    const COLImage written = vmtest::Load(out);
    ASSERT_EQ(written.GetPixelCount(), mask.size());
    for (size_t i = 0; i < mask.size(); ++i) {
        const CPixel p = m_picture.GetBuffer()[i], q = written.GetBuffer()[i];
        const int a = 60 * mask[i] / 100;
        auto over = [a](int c, int below) { return a ? int(vmtest::OverOpaque(c, below, a)) : below; };
        ASSERT_EQ(std::make_tuple(int(q.red), int(q.green), int(q.blue)),
                  std::make_tuple(over(255, p.red), over(0, p.green), over(0, p.blue)))
            << "pixel " << i << " mask " << int(mask[i]);
    }
}

TEST_F(CliReplay, SelectionModeFeatherOfTheResultMaskUndoesAndRedoes)
{
    const std::string out = m_dir.File("out.png"), before = m_dir.File("before.png"), after = m_dir.File("after.png"),
                      undone = m_dir.File("undone.png"), redone = m_dir.File("redone.png");
    const CliResult r = Replay("mode select\n"
                               "tool modifypolygon\n"
                               "down 5 5\nup 5 5\nup 30 6\nup 28 24\nmove 5 5\nup 5 5\n"
                               "tool none\n"
                               "save-mask result " +
                                   before +
                                   "\n"
                                   "command Doc_SelectFeatherResult('2','1','1')\n"
                                   "save-mask result " +
                                   after +
                                   "\n"
                                   "command UI_HistoryBackward\n"
                                   "save-mask result " +
                                   undone +
                                   "\n"
                                   "command UI_HistoryForward\n"
                                   "save-mask result " +
                                   redone +
                                   "\n"
                                   "mode compose keep\n",
                               out);
    ASSERT_EQ(r.exitCode, 0) << r.output;
    const std::vector<uint8_t> mask = GrayBytes(before);
    COLChannel src, dst;
    src.Create(40, 30);
    std::memcpy(src.GetBuffer(), mask.data(), mask.size());
    CFeatherProcess feather;
    feather.SetChannels(&src, &dst);
    const FeatherRecord record{2, 1, 1};
    ASSERT_EQ(feather.ProcessChannel(&record), 0);
    EXPECT_EQ(GrayBytes(after), vmtest::Bytes(dst));
    EXPECT_EQ(GrayBytes(undone), mask);
    EXPECT_EQ(GrayBytes(redone), vmtest::Bytes(dst));
    // Outside selection mode the command is refused.
    EXPECT_NE(Replay("command Doc_SelectFeatherResult('2')\n", out).exitCode, 0);
}
