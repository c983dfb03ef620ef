#include <gtest/gtest.h>

#include "document/render_scale.h"
#include "imaging/image.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

struct Case {
    double x0, y0, fx, fy;
    int width, height;
};

} // namespace

TEST(RenderScale, TheQuickPathGivesThePlainBytesAtEveryZoomLevelAndSplit)
{
    // Noise in all four bytes, sides that divide by nothing handy; destination widths that leave a tail after
    // groups of four columns, origins off the grid, views that run past the picture's edge, enlargements, and
    // reductions so strong that the weights' total no longer fits the quick division.
    COLImage src = vmtest::Noise(1031, 777, 5);
    const Case cases[] = {
        {0, 0, 3.7174, 3.7174, 277, 209}, {0, 0, 2, 2, 515, 388},
        {13.25, 7.5, 1.5, 1.5, 301, 211}, {5, 3, 1.0 / 0.777, 1.0 / 0.777, 7, 5},
        {0, 0, 0.25, 0.25, 123, 97},      {900, 700, 2.5, 1.25, 101, 89},
        {0, 0, 63.9, 64.1, 17, 13},       {0, 0, 333.4, 260, 3, 3},
        {-4, -2, 1.1, 3.3, 333, 99},      {0, 0, 0.5, 4.01, 61, 150},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "fx " << c.fx << ", fy " << c.fy << ", at " << c.x0 << "," << c.y0);
        COLImage plain;
        ASSERT_EQ(ScaleForScreenPlain(&src, &plain, c.width, c.height, c.x0, c.y0, c.fx, c.fy), 1);
        vmtest::ForEachLevelAndSplit([&](const std::string& label) {
            COLImage quick;
            ASSERT_EQ(ScaleForScreen(&src, &quick, c.width, c.height, c.x0, c.y0, c.fx, c.fy), 1);
            EXPECT_TRUE(vmtest::SamePixels(plain, quick)) << label;
        });
    }
}

TEST(RenderScale, AKeptViewIsBroughtUpToDateOnlyWhereTheChangeReaches)
{
    COLImage src = vmtest::Noise(640, 480, 9);
    struct Change {
        int left, top, right, bottom;
    };
    // A block inside, one over the bottom-right edge, one a single pixel wide.
    const Change changes[] = {{100, 50, 180, 90}, {600, 450, 700, 520}, {321, 0, 322, 480}};
    for (double f : {3.7, 2.0, 1.0, 0.4}) {
        for (const Change& ch : changes) {
            SCOPED_TRACE(testing::Message() << "f " << f << ", change at " << ch.left << "," << ch.top);
            COLImage changed = vmtest::Copy(src);
            const int dw = std::min(200, int(640 / f)), dh = std::min(150, int(480 / f));
            const double x0 = f < 1 ? 90 : 0, y0 = f < 1 ? 40 : 0;
            COLImage kept;
            ASSERT_EQ(ScaleForScreen(&changed, &kept, dw, dh, x0, y0, f, f), 1);
            // A pixel far from every change that the update must leave alone: a marker no scaling produces.
            kept.PutPixel(0, 0, CPixel::FromWord(0x12345678));
            for (int y = ch.top; y < std::min(ch.bottom, 480); ++y)
                for (int x = ch.left; x < std::min(ch.right, 640); ++x)
                    changed.PutPixel(uint32_t(x), uint32_t(y), CPixel::FromWord(0xFF10E0F0u ^ uint32_t(x * y)));
            ASSERT_EQ(ScaleForScreenChanged(&changed, &kept, x0, y0, f, f, ch.left, ch.top, ch.right, ch.bottom), 1);
            COLImage whole;
            ASSERT_EQ(ScaleForScreen(&changed, &whole, dw, dh, x0, y0, f, f), 1);
            EXPECT_EQ(kept.GetPixel2(0, 0).Word(), 0x12345678u);
            kept.PutPixel(0, 0, whole.GetPixel2(0, 0));
            EXPECT_TRUE(vmtest::SamePixels(kept, whole));
        }
    }
    // A change outside the picture leaves the view as it is; an empty view is refused.
    COLImage kept;
    ASSERT_EQ(ScaleForScreen(&src, &kept, 50, 40, 0, 0, 2, 2), 1);
    const COLImage before = vmtest::Copy(kept);
    EXPECT_EQ(ScaleForScreenChanged(&src, &kept, 0, 0, 2, 2, 700, 0, 800, 10), 1);
    EXPECT_TRUE(vmtest::SamePixels(kept, before));
    COLImage empty;
    EXPECT_EQ(ScaleForScreenChanged(&src, &empty, 0, 0, 2, 2, 0, 0, 10, 10), 0);
}
