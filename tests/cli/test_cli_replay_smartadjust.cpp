#include <gtest/gtest.h>
#include <string>

#include "imaging/image.h"
#include "replay_test.h"
#include "tools/plain_brush.h"

using vmtest::GrayBytes;

namespace {

class CliReplaySmartAdjust : public vmtest::ReplayTest {
protected:
    CliReplaySmartAdjust() : ReplayTest(71) {}
};

} // namespace

TEST_F(CliReplaySmartAdjust, PicksTheReferencesInTheContoursAndBrushesTheBand)
{
    const std::string inner = m_dir.File("inner.png"), outer = m_dir.File("outer.png"),
                      before = m_dir.File("before.png"), after = m_dir.File("after.png");
    ASSERT_TRUE(ReplayOk("mode select inout\n"
                         "tool innerbrush\noption size 3\noption soft 0\ndown 4 3\nup 4 27\n"
                         "tool outerbrush\noption size 3\noption soft 0\ndown 35 3\nup 35 27\n"
                         "tool modifypolygon\ndown 0 0\nup 0 0\nup 20 0\nup 20 29\nup 0 29\nmove 0 0\nup 0 0\n"
                         "tool none\n"
                         "save-mask inner " +
                             inner + "\nsave-mask outer " + outer + "\nsave-mask result " + before +
                             "\n"
                             "tool smartadjust\n"
                             "down 4 15\nup 4 15\n"   // inside the inner contour: the foreground colour
                             "down 35 15\nup 35 15\n" // inside the outer contour: the background colour
                             "option size 4\noption soft 30\n"
                             "down 12 5\ndrag 20 14\nup 28 24\n"
                             "save-mask result " +
                             after + "\nmode compose cancel\n",
                         m_dir.File("out.png")));

    const std::vector<uint8_t> i = GrayBytes(inner), o = GrayBytes(outer), m0 = GrayBytes(before);
    ASSERT_EQ(i[15 * W + 4], 255);
    ASSERT_EQ(o[15 * W + 35], 255);
    const auto frames = plainbrush::Frames(plainbrush::MakeStamp(4, 30), 255, W, H, {{12, 5}, {20, 14}, {28, 24}});
    const std::vector<uint8_t> m =
        plainbrush::SmartStroke(m0, frames, 0, i, o, vmtest::Bytes(m_picture), plainbrush::Mean3x3(m_picture, 4, 15),
                                plainbrush::Mean3x3(m_picture, 35, 15));
    ASSERT_NE(m, m0);
    EXPECT_EQ(GrayBytes(after), m);
}

TEST_F(CliReplaySmartAdjust, ItsOptionsBelongToIt)
{
    ExpectRefused({
        {"tool brush\noption adjust raise\n", "belongs to the smartadjust tool"},
        {"option adjust sideways\n", ":1: adjust is both, raise or lower"},
    });
}
