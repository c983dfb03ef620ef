#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "imaging/image.h"
#include "replay_test.h"
#include "tools/plain_brush.h"

namespace {

class CliReplayPaint : public vmtest::ReplayTest {
protected:
    CliReplayPaint() : ReplayTest(33) {}
};

} // namespace

TEST_F(CliReplayPaint, DesaturateThenEraseTheBaseWithAColourAreExact)
{
    // Two strokes, each with its own brush; the eraser on the base layer paints the foreground colour.
    const std::string out = m_dir.File("out.png");
    ASSERT_TRUE(ReplayOk("tool desaturate\n"
                         "option size 4\noption soft 40\noption alpha 90\n"
                         "down 3 3\ndrag 20 12\nup 36 12\n"
                         "tool eraser\n"
                         "option color 20a0ff\n"
                         "option size 2\noption soft 0\n"
                         "down 30 2\nup 8 27\n",
                         out));

    using plainbrush::Frames;
    using plainbrush::MakeStamp;
    const auto desat = Frames(MakeStamp(4, 40), 90 * 255 / 100, W, H, {{3, 3}, {20, 12}, {36, 12}}).back().s;
    const auto erase = Frames(MakeStamp(2, 0), 255, W, H, {{30, 2}, {8, 27}}).back().s;
    const COLImage expected = vmtest::Picture(W, H, [&](uint32_t x, uint32_t y) {
        const size_t i = size_t(y) * W + x;
        const CPixel p = m_picture.GetPixel2(x, y);
        const int grey = (p.blue + 3 * p.red + 6 * p.green) / 10;
        auto paint = [&](int fore, int c) {
            const int d = (grey * desat[i] + c * (255 - desat[i])) / 255;
            return uint8_t((fore * erase[i] + d * (255 - erase[i])) / 255);
        };
        return CPixel::Make(paint(0x20, p.red), paint(0xa0, p.green), paint(0xff, p.blue));
    });
    EXPECT_TRUE(vmtest::SameColours(vmtest::Load(out), expected));
}

TEST_F(CliReplayPaint, CloneFromAnAltClickAndUndoOfTheStroke)
{
    const std::string out = m_dir.File("out.png"), undone = m_dir.File("undone.png");
    ASSERT_TRUE(ReplayOk("tool clone\n"
                         "option size 3\noption soft 0\n"
                         "down 2 2 alt\nup 2 2\n"
                         "down 20 10\ndrag 30 14\nup 34 20\n"
                         "save " + out + "\n"
                         "command UI_HistoryBackward\n",
                         undone));
    EXPECT_TRUE(vmtest::SameColours(vmtest::Load(undone), m_picture)) << "undo takes the whole stroke back";
    const auto s = plainbrush::Frames(plainbrush::MakeStamp(3, 0), 255, W, H, {{20, 10}, {30, 14}, {34, 20}}).back().s;
    const COLImage cloned = vmtest::Load(out);
    ASSERT_EQ(vmtest::Size(cloned), vmtest::Size(m_picture));
    int covered = 0;
    for (uint32_t y = 0; y < H; ++y)
        for (uint32_t x = 0; x < W; ++x) {
            // Fully covered: the pixel of the source 18 left and 8 up, exactly; not touched: the pixel itself.
            const uint8_t v = s[size_t(y) * W + x];
            covered += v == 255;
            if (v != 255 && v != 0) continue;
            ASSERT_TRUE(cloned.GetPixel2(x, y) == m_picture.GetPixel2(v ? x - 18 : x, v ? y - 8 : y)) << x << "," << y;
        }
    EXPECT_GT(covered, 20);
}

TEST_F(CliReplayPaint, SelectionModeBrushesAndOptionRefusals)
{
    const std::string out = m_dir.File("out.png"), inner = m_dir.File("inner.png");
    ASSERT_TRUE(ReplayOk("mode select\n"
                         "tool innerbrush\noption size 5\noption soft 0\n"
                         "down 10 10\nup 25 10\n"
                         "save-mask inner " + inner + "\n"
                         "mode compose cancel\n",
                         out));
    const auto s = plainbrush::Frames(plainbrush::MakeStamp(5, 0), 255, W, H, {{10, 10}, {25, 10}}).back().s;
    EXPECT_EQ(vmtest::GrayBytes(inner), s);

    // Out-of-range brush values are refused before anything runs, and nothing is written.
    std::vector<std::pair<std::string, std::string>> refused;
    for (const char* bad : {"option size 0", "option size 256", "option soft 101", "option alpha -1",
                            "option color 12345g"})
        refused.push_back({std::string("tool brush\n") + bad + "\ndown 5 5\nup 9 9\n", ":2:"});
    refused.push_back({"tool rect\noption size 5\n", "no brush"});
    refused.push_back({"tool restore\n", "not offered in compose mode"});
    ExpectRefused(refused);
}
