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
    // {strength, entry, weight}. Strength 50 is width 17, 100 width 33, 0 width 1. Here base 2.7188282 and e
    // part: e would give 16 at (50, 40) and 136 at (100, 37).
    const int rows[][3] = {{50, 0, 255}, {50, 17, 154}, {50, 40, 15}, {50, 255, 0},
                           {100, 37, 135}, {0, 1, 154},  {0, 2, 34},   {0, 6, 0}};
    for (auto& r : rows) {
        BuildHueWeight(r[0], w);
        EXPECT_EQ(w[r[1]], r[2]) << "strength " << r[0] << ", entry " << r[1];
    }
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
    // {strength, threshold}: at 53 and 47, 3 / 4 and -3 / 4 truncate to 0.
    const int strengths[][2] = {{50, 101}, {100, 113}, {0, 89}, {53, 101}, {47, 101}};
    for (auto& s : strengths) EXPECT_EQ(KeyThreshold(h, 1000, s[0]), s[1]) << s[0];

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
    // {low, high, entry, value}; handles that meet (90, 90) give a step, not a crash.
    const int rows[][4] = {{32, 255, 31, 0}, {32, 255, 32, 0},   {32, 255, 100, 77}, {32, 255, 255, 255},
                           {0, 128, 64, 127}, {0, 128, 128, 255}, {0, 128, 129, 255}, {90, 90, 89, 0},
                           {90, 90, 90, 0},   {90, 90, 91, 255}};
    for (auto& r : rows) {
        ASSERT_TRUE(BuildLevelsTable(r[0], r[1], t));
        EXPECT_EQ(t[r[2]], r[3]) << "levels " << r[0] << ".." << r[1] << ", entry " << r[2];
    }
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
