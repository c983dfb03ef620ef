#include <gtest/gtest.h>

#include "matting/key_math.h"

using namespace keymath;

TEST(KeyMath, AlphaMapLiftsTheMiddleAndKeepsTheEnds)
{
    uint8_t map[256];
    BuildAlphaMap(map);
    EXPECT_EQ(map[0], 0);
    EXPECT_EQ(map[255], 255);
    // Reference values worked out by hand in double precision.
    EXPECT_EQ(map[1], 15);
    EXPECT_EQ(map[16], 60);
    EXPECT_EQ(map[64], 111);
    EXPECT_EQ(map[128], 154);
    EXPECT_EQ(map[200], 205);
    EXPECT_EQ(map[254], 254);
    for (int i = 1; i < 256; ++i) {
        EXPECT_GE(map[i], map[i - 1]) << i;
        EXPECT_GE(map[i], i) << i;
    }
}

TEST(KeyMath, HueWeightUsesTheSystemBaseNotE)
{
    int w[256];
    BuildHueWeight(50, w);   // width 17
    EXPECT_EQ(w[0], 255);
    EXPECT_EQ(w[17], 154);
    // Here base 2.7188282 and e part: e would give 16.
    EXPECT_EQ(w[40], 15);
    EXPECT_EQ(w[255], 0);
    BuildHueWeight(100, w);  // width 33
    EXPECT_EQ(w[37], 135);   // e: 136
    BuildHueWeight(0, w);    // width 1
    EXPECT_EQ(w[1], 154);
    EXPECT_EQ(w[2], 34);
    EXPECT_EQ(w[6], 0);
}

TEST(KeyMath, KeyHueTruncatesTowardZeroAndWraps)
{
    EXPECT_EQ(KeyHue(255, 0, 0), 0);
    EXPECT_EQ(KeyHue(0, 255, 0), 85);
    EXPECT_EQ(KeyHue(0, 0, 255), 170);   // -86 wraps
    EXPECT_EQ(KeyHue(255, 255, 0), 42);  // red is the largest first: 255 * 255 / 1530
    EXPECT_EQ(KeyHue(90, 90, 90), 0);
    // Red largest, green just under blue: -10 * 255 / 1200 truncates to -2, not -3, and wraps.
    EXPECT_EQ(KeyHue(200, 0, 10), 254);
    // -1 * 255 / 1200 truncates to 0.
    EXPECT_EQ(KeyHue(200, 0, 1), 0);
    EXPECT_EQ(KeyHue(11, 10, 11), 214);  // red and blue tie: red wins
}

TEST(KeyMath, CircularDiffTakesTheShortWayRound)
{
    EXPECT_EQ(CircularDiff(10, 250), 16);
    EXPECT_EQ(CircularDiff(250, 10), 16);
    EXPECT_EQ(CircularDiff(0, 128), 128);
    EXPECT_EQ(CircularDiff(0, 129), 127);
    EXPECT_EQ(CircularDiff(77, 77), 0);
}

TEST(KeyMath, LumaThresholdFollowsTheSlider)
{
    EXPECT_EQ(LumaThreshold(0), 17);
    EXPECT_EQ(LumaThreshold(32), 38);
    EXPECT_EQ(LumaThreshold(100), 83);
    EXPECT_EQ(LumaThreshold(-1), 38);
    EXPECT_EQ(LumaThreshold(1), 18);   // (2 - 100) / 3 truncates toward zero: -32
}

TEST(KeyMath, KeyThresholdCountsBinsToATenth)
{
    uint64_t h[256] = {};
    h[100] = 1000;
    EXPECT_EQ(KeyThreshold(h, 1000, 50), 101);
    EXPECT_EQ(KeyThreshold(h, 1000, 100), 113);
    EXPECT_EQ(KeyThreshold(h, 1000, 0), 89);
    EXPECT_EQ(KeyThreshold(h, 1000, 53), 101);   // 3 / 4 truncates to 0
    EXPECT_EQ(KeyThreshold(h, 1000, 47), 101);   // -3 / 4 truncates to 0

    uint64_t split[256] = {};
    split[3] = 9;      // not yet a tenth of 100
    split[7] = 1;      // reaches it
    split[200] = 90;
    EXPECT_EQ(KeyThreshold(split, 100, 50), 8);

    uint64_t few[256] = {};
    few[40] = 9;       // 9 / 10 is 0: no bin is needed
    EXPECT_EQ(KeyThreshold(few, 9, 50), 0);
    EXPECT_EQ(KeyThreshold(few, 9, 0), -12);

    uint64_t top[256] = {};
    top[255] = 50;
    EXPECT_EQ(KeyThreshold(top, 50, 100), 250);
}

TEST(KeyMath, RemapKeySpreadsAboveTheThreshold)
{
    EXPECT_EQ(RemapKey(99, 100), 0);
    EXPECT_EQ(RemapKey(100, 100), 0);
    EXPECT_EQ(RemapKey(176, 100), 127);
    EXPECT_EQ(RemapKey(252, 100), 255);
    EXPECT_EQ(RemapKey(253, 250), 255);
    EXPECT_EQ(RemapKey(251, 250), 127);
    // A negative threshold keeps the arithmetic valid.
    EXPECT_EQ(RemapKey(0, -11), 10);
}

TEST(KeyMath, SpillWeightRampsBetweenLoAndHi)
{
    EXPECT_EQ(SpillWeight(19, 50), 0);
    EXPECT_EQ(SpillWeight(20, 50), 0);
    EXPECT_EQ(SpillWeight(34, 50), 127);
    EXPECT_EQ(SpillWeight(48, 50), 255);
    // Strength 100: lo 40, hi capped at 64.
    EXPECT_EQ(SpillWeight(63, 100), 244);
    EXPECT_EQ(SpillWeight(64, 100), 255);
    // Strength 0: lo 0, hi 8.
    EXPECT_EQ(SpillWeight(0, 0), 0);
    EXPECT_EQ(SpillWeight(4, 0), 127);
}

TEST(KeyMath, LevelsTable)
{
    uint8_t t[256];
    EXPECT_FALSE(BuildLevelsTable(0, 255, t));
    ASSERT_TRUE(BuildLevelsTable(32, 255, t));
    EXPECT_EQ(t[31], 0);
    EXPECT_EQ(t[32], 0);
    EXPECT_EQ(t[100], 77);
    EXPECT_EQ(t[255], 255);
    ASSERT_TRUE(BuildLevelsTable(0, 128, t));
    EXPECT_EQ(t[64], 127);
    EXPECT_EQ(t[128], 255);
    EXPECT_EQ(t[129], 255);
    // Handles that meet give a step, not a crash.
    ASSERT_TRUE(BuildLevelsTable(90, 90, t));
    EXPECT_EQ(t[89], 0);
    EXPECT_EQ(t[90], 0);
    EXPECT_EQ(t[91], 255);
}

TEST(KeyMath, RecoverChannelUndoesTheMix)
{
    for (int f : {0, 40, 128, 200, 255})
        for (int b : {0, 30, 180, 255})
            for (int a : {1, 20, 128, 254, 255}) {
                const int mixed = (f * a + b * (255 - a)) / 255;
                const int back = RecoverChannel(mixed, b, a);
                // Mixing truncated once; solving it back can be off by up to 255 / a.
                EXPECT_LE(std::abs(back - f), 255 / a + 1) << f << " " << b << " " << a;
            }
    EXPECT_EQ(RecoverChannel(0, 255, 10), 0);     // would be far below 0
    EXPECT_EQ(RecoverChannel(255, 0, 10), 255);   // would be far above 255
    EXPECT_EQ(RecoverChannel(77, 200, 255), 77);  // opaque: the colour itself
}

TEST(KeyMath, FastHueMatchesThePlainFormulaForEveryColour)
{
    int mismatches = 0;
    for (int r = 0; r < 256; ++r)
        for (int g = 0; g < 256; ++g)
            for (int b = 0; b < 256; ++b) mismatches += KeyHueFast(r, g, b) != KeyHue(r, g, b);
    EXPECT_EQ(mismatches, 0);
}

TEST(KeyMath, FastRecoveryMatchesThePlainDivisionEverywhere)
{
    int mismatches = 0;
    for (int a = 1; a < 256; ++a)
        for (int i = 0; i < 256; ++i)
            for (int b = 0; b < 256; ++b) mismatches += RecoverChannelFast(i, b, a) != RecoverChannel(i, b, a);
    EXPECT_EQ(mismatches, 0);
}
