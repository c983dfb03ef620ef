#include <gtest/gtest.h>

#include "matting/key_math.h"

using namespace keymath;

TEST(KeyMath, AlphaMapLiftsTheMiddleAndKeepsTheEnds)
{
    uint8_t map[256];
    BuildAlphaMap(map);
    // The ends, and reference values worked out by hand in double precision.
    const int at[][2] = {{0, 0}, {255, 255}, {1, 15}, {16, 60}, {64, 111}, {128, 154}, {200, 205}, {254, 254}};
    for (auto& c : at) EXPECT_EQ(map[c[0]], c[1]) << c[0];
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

// Each row is {arguments..., expected}; the comments say which truncation or limit a row pins.
TEST(KeyMath, ScalarFormulasTruncateTowardZero)
{
    const int hue[][4] = {
        {255, 0, 0, 0}, {0, 255, 0, 85}, {0, 0, 255, 170},   // -86 wraps
        {255, 255, 0, 42},                                    // red is the largest first: 255 * 255 / 1530
        {90, 90, 90, 0},
        {200, 0, 10, 254},   // red largest, green just under blue: -10 * 255 / 1200 truncates to -2, and wraps
        {200, 0, 1, 0},      // -1 * 255 / 1200 truncates to 0
        {11, 10, 11, 214},   // red and blue tie: red wins
    };
    for (auto& c : hue) EXPECT_EQ(KeyHue(c[0], c[1], c[2]), c[3]) << c[0] << "," << c[1] << "," << c[2];
    const int circular[][3] = {{10, 250, 16}, {250, 10, 16}, {0, 128, 128}, {0, 129, 127}, {77, 77, 0}};
    for (auto& c : circular) EXPECT_EQ(CircularDiff(c[0], c[1]), c[2]) << c[0] << "," << c[1];
    const int luma[][2] = {{0, 17}, {32, 38}, {100, 83}, {-1, 38}, {1, 18}};   // (2 - 100) / 3 truncates to -32
    for (auto& c : luma) EXPECT_EQ(LumaThreshold(c[0]), c[1]) << c[0];
    const int remap[][3] = {{99, 100, 0},   {100, 100, 0},   {176, 100, 127}, {252, 100, 255},
                            {253, 250, 255}, {251, 250, 127}, {0, -11, 10}};   // a negative threshold stays valid
    for (auto& c : remap) EXPECT_EQ(RemapKey(c[0], c[1]), c[2]) << c[0] << "," << c[1];
    const int spill[][3] = {
        {19, 50, 0}, {20, 50, 0}, {34, 50, 127}, {48, 50, 255},
        {63, 100, 244}, {64, 100, 255},   // strength 100: lo 40, hi capped at 64
        {0, 0, 0}, {4, 0, 127},           // strength 0: lo 0, hi 8
    };
    for (auto& c : spill) EXPECT_EQ(SpillWeight(c[0], c[1]), c[2]) << c[0] << "," << c[1];
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
