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
    // The colour bytes of a picture file, blue, green, red for each pixel.
    static std::vector<uint8_t> Rgb(const std::string& path)
    {
        const COLImage image = vmtest::Load(path);
        EXPECT_FALSE(image.IsNull()) << path;
        std::vector<uint8_t> out;
        for (size_t i = 0; i < image.GetPixelCount(); ++i) {
            const CPixel p = image.GetBuffer()[i];
            out.insert(out.end(), {p.blue, p.green, p.red});
        }
        return out;
    }
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
    std::vector<uint8_t> expected;
    const uint8_t fg[3] = {0xff, 0xa0, 0x20};
    for (size_t i = 0; i < m_picture.GetPixelCount(); ++i) {
        const CPixel p = m_picture.GetBuffer()[i];
        const int grey = (p.blue + 3 * p.red + 6 * p.green) / 10;
        const uint8_t c[3] = {p.blue, p.green, p.red};
        for (int k = 0; k < 3; ++k) {
            const int d = (grey * desat[i] + c[k] * (255 - desat[i])) / 255;
            expected.push_back(uint8_t((fg[k] * erase[i] + d * (255 - erase[i])) / 255));
        }
    }
    EXPECT_EQ(Rgb(out), expected);
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
    EXPECT_EQ(Rgb(undone), Rgb(m_in)) << "undo takes the whole stroke back";
    const auto s = plainbrush::Frames(plainbrush::MakeStamp(3, 0), 255, W, H, {{20, 10}, {30, 14}, {34, 20}}).back().s;
    const std::vector<uint8_t> original = Rgb(m_in), cloned = Rgb(out);
    int covered = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const size_t i = size_t(y) * W + x, from = size_t(y - 8) * W + (x - 18);
            if (s[i] == 255) {
                // Fully covered: the pixel of the source 18 left and 8 up, exactly.
                ++covered;
                for (int k = 0; k < 3; ++k) ASSERT_EQ(cloned[i * 3 + k], original[from * 3 + k]) << x << "," << y;
            } else if (s[i] == 0) {
                for (int k = 0; k < 3; ++k) ASSERT_EQ(cloned[i * 3 + k], original[i * 3 + k]) << x << "," << y;
            }
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
