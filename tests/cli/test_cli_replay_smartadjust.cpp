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
    const COLImage& picture = m_picture;
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
    auto mean = [&](int cx, int cy, uint8_t* c) {
        for (int k = 0; k < 3; ++k) {
            int sum = 0;
            for (int y = cy - 1; y <= cy + 1; ++y)
                for (int x = cx - 1; x <= cx + 1; ++x) {
                    const CPixel q = picture.GetPixel2(uint32_t(x), uint32_t(y));
                    sum += k == 0 ? q.blue : k == 1 ? q.green : q.red;
                }
            c[k] = uint8_t(sum / 9);
        }
    };
    uint8_t f[3], b[3];
    mean(4, 15, f);
    mean(35, 15, b);
    const auto frames = plainbrush::Frames(plainbrush::MakeStamp(4, 30), 255, W, H, {{12, 5}, {20, 14}, {28, 24}});
    std::vector<uint8_t> m = m0;
    for (const plainbrush::Stroke& frame : frames)
        for (size_t p = 0; p < m.size(); ++p) {
            const int s = frame.s[p];
            if (!s || i[p] || o[p]) continue;
            const CPixel px = picture.GetBuffer()[p];
            const uint8_t c[3] = {px.blue, px.green, px.red};
            const int t = plainbrush::SmartTarget(c, f, b);
            m[p] = uint8_t(((255 - s) * m[p] + t * s) / 255);
        }
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
