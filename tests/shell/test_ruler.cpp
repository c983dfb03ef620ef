#include <gtest/gtest.h>

#include "shell/ruler_ticks.h"
#include "shell/view_geometry.h"

TEST(RulerTicks, MajorStepIsTheSmallestNiceStepThatKeepsItsSpacing)
{
    EXPECT_EQ(RulerMajorStep(1.0, 60), 100);
    EXPECT_EQ(RulerMajorStep(1.0, 50), 50);
    EXPECT_EQ(RulerMajorStep(0.25, 60), 500);   // 200 would be 50 pixels apart
    EXPECT_EQ(RulerMajorStep(16.0, 60), 5);
    EXPECT_EQ(RulerMajorStep(64.0, 60), 1);
    EXPECT_EQ(RulerMajorStep(0.0, 60), 1);
}

TEST(RulerTicks, MarksSitWhereTheCanvasDrawsThoseImageCoordinates)
{
    for (double zoom : {0.1, 0.33, 1.0, 3.0, 16.0}) {
        const int origin = 37, offset = 12, imageSize = 5000;
        const std::vector<RulerTick> ticks = ComputeRulerTicks(zoom, origin, offset, imageSize, 0, 999);
        ASSERT_FALSE(ticks.empty()) << zoom;
        const int major = RulerMajorStep(zoom, 60);
        int lastMajor = -100000;
        for (const RulerTick& t : ticks) {
            EXPECT_EQ(t.client, TruncToInt((t.value - origin) * zoom + 0.5) + offset) << zoom;
            EXPECT_GE(t.client, 0);
            EXPECT_LE(t.client, 999);
            EXPECT_GE(t.value, 0);
            EXPECT_LE(t.value, imageSize);
            EXPECT_EQ(t.major, t.value % major == 0);
            if (t.major) {
                EXPECT_GE(t.client - lastMajor, 59) << zoom;
                lastMajor = t.client;
            }
        }
        // No labelled mark is missing: every multiple of the step inside the range appears.
        int expected = 0;
        for (int v = 0; v <= imageSize; v += major) {
            const int c = TruncToInt((v - origin) * zoom + 0.5) + offset;
            expected += c >= 0 && c <= 999;
        }
        int majors = 0;
        for (const RulerTick& t : ticks) majors += t.major;
        EXPECT_EQ(majors, expected) << zoom;
    }
}

TEST(RulerTicks, NothingOutsideThePictureOrForNoPicture)
{
    // A small picture in the middle of a wide canvas: no marks left of 0 or right of its width.
    const std::vector<RulerTick> ticks = ComputeRulerTicks(1.0, 0, 400, 120, 0, 1199);
    ASSERT_FALSE(ticks.empty());
    EXPECT_EQ(ticks.front().value, 0);
    EXPECT_EQ(ticks.front().client, 400);
    EXPECT_EQ(ticks.back().value, 120);
    EXPECT_TRUE(ComputeRulerTicks(1.0, 0, 0, 0, 0, 100).empty());
    EXPECT_TRUE(ComputeRulerTicks(0.0, 0, 0, 100, 0, 100).empty());
}
