#include <gtest/gtest.h>

#include <map>

#include "imaging/codec.h"
#include "matting/blue_matting_logic.h"
#include "support/test_support.h"

namespace {

using vmtest::Rgb;

// Some colour whose hue in the codec's HSB form is exactly `hue`.
CPixel ColourOfHue(int hue)
{
    static std::map<int, CPixel> found;
    if (found.empty()) {
        COLImageCodec codec;
        for (int r = 0; r < 256; r += 3)
            for (int g = 0; g < 256; g += 3)
                for (int b = 0; b < 256; b += 3) {
                    CPixel c = Rgb(r, g, b), hsb = c;
                    codec.RGB2HSB(&hsb, 1);
                    if (hsb.green > 100 && hsb.blue > 60) found.emplace(hsb.red, c);
                }
    }
    return found.at(hue);
}

int DifferingColumns(const CBlueMattingLogic& logic)
{
    int n = 0;
    for (uint32_t x = 0; x < 256; ++x)
        n += logic.GetStripPicture().GetPixel(x, 0) != logic.GetHueStrip().GetPixel(x, 0);
    return n;
}

} // namespace

TEST(BlueMattingLogic, HueStripRunsRoundTheColourCircle)
{
    CBlueMattingLogic logic;
    const COLImage& strip = logic.GetHueStrip();
    ASSERT_EQ(vmtest::Size(strip), "256x20");
    EXPECT_EQ(strip.GetPixel(0, 0), 0xFF800000u);   // red at brightness 128
    EXPECT_EQ(strip.GetPixel(0, 19), 0xFF800000u);
    // Every column holds its own hue (within the codec's rounding) and is opaque.
    COLImageCodec codec;
    for (uint32_t x = 0; x < 256; ++x) {
        CPixel p = strip.GetPixel2(x, 7);
        EXPECT_EQ(p.alpha, 255);
        codec.RGB2HSB(&p, 1);
        const int d = std::abs(int(p.red) - int(x));
        EXPECT_LE(std::min(d, 256 - d), 2) << x;
    }
}

TEST(BlueMattingLogic, FirstPickOfARedOrPurpleBackdropLowersTheStrength)
{
    // Hues 0..47 and 193..255 lower it to 20; those between leave it at 50.
    for (int hue : {0, 47, 193, 255, 48, 85, 171, 192}) {
        const bool lowered = hue < 48 || hue > 192;
        CBlueMattingLogic logic;
        EXPECT_EQ(logic.ApplyFirstPickRule(ColourOfHue(hue)), lowered) << hue;
        EXPECT_EQ(logic.slider, lowered ? 20 : 50) << hue;
        EXPECT_EQ(logic.GetParams()->strength, lowered ? 20 : 50) << hue;
    }
}

TEST(BlueMattingLogic, OnlyTheFirstPickCounts)
{
    CBlueMattingLogic logic;
    EXPECT_FALSE(logic.ApplyFirstPickRule(Rgb(46, 168, 72)));
    EXPECT_FALSE(logic.IsFirstPick());
    EXPECT_FALSE(logic.ApplyFirstPickRule(Rgb(200, 20, 20)));   // red, but too late
    EXPECT_EQ(logic.slider, 50);

    CBlueMattingLogic red;
    EXPECT_TRUE(red.ApplyFirstPickRule(Rgb(200, 20, 20)));
    red.slider = 35;
    EXPECT_FALSE(red.ApplyFirstPickRule(Rgb(200, 20, 20)));
    EXPECT_EQ(red.slider, 35);
}

TEST(BlueMattingLogic, ResetPutsBackOnlySliderAndFeather)
{
    CBlueMattingLogic logic;
    logic.slider = 80;
    logic.levelLow = 10;
    logic.includeShadow = 0;
    logic.featherSelection = 1;
    logic.Reset();
    EXPECT_EQ(logic.GetParams()->strength, 50);
    EXPECT_EQ(logic.GetParams()->featherSelection, 0u);
    EXPECT_EQ(logic.GetParams()->levelLow, 10);
    EXPECT_EQ(logic.GetParams()->includeShadow, 0u);
}

TEST(BlueMattingLogic, StripShowsWhichHuesGo)
{
    CBlueMattingLogic logic;
    EXPECT_FALSE(logic.RefreshHueStrip());   // no colour yet: nothing to show
    EXPECT_TRUE(logic.GetStripPicture().IsNull());

    logic.colours.push_back(Rgb(46, 168, 72));
    ASSERT_TRUE(logic.RefreshHueStrip());
    CPixel hsb = logic.GetStripBackdrop();
    COLImageCodec().RGB2HSB(&hsb, 1);
    EXPECT_EQ(hsb.blue, 128);
    EXPECT_NEAR(hsb.red, 94, 2);
    // The backdrop's own hue is taken away (checkerboard shows through); the opposite hue stays plain.
    const COLImage& picture = logic.GetStripPicture();
    const COLImage& strip = logic.GetHueStrip();
    EXPECT_NE(picture.GetPixel(94, 10), strip.GetPixel(94, 10));
    EXPECT_EQ(picture.GetPixel(222, 10), strip.GetPixel(222, 10));
    EXPECT_EQ(picture.GetPixel2(94, 10).alpha, 255);

    // A stronger key takes more hues away.
    logic.slider = 0;
    ASSERT_TRUE(logic.RefreshHueStrip());
    const int weak = DifferingColumns(logic);
    logic.slider = 100;
    ASSERT_TRUE(logic.RefreshHueStrip());
    EXPECT_GT(DifferingColumns(logic), weak);

    // The tool's list comes first.
    std::vector<CPixel> tool{Rgb(34, 78, 196)};
    ASSERT_TRUE(logic.RefreshHueStrip(&tool));
    hsb = logic.GetStripBackdrop();
    COLImageCodec().RGB2HSB(&hsb, 1);
    EXPECT_NEAR(hsb.red, 158, 3);
}

TEST(BlueMattingLogic, CheckerboardUnderTransparentHues)
{
    const COLImage plain = vmtest::Solid(12, 6, Rgb(200, 100, 50));
    COLImage keyed = vmtest::Solid(12, 6, CPixel{0, 0, 0, 0}), picture;
    keyed.PutPixel(1, 5, CPixel{0, 0, 0, 128});
    keyed.PutPixel(11, 5, CPixel{0, 0, 0, 255});
    CBlueMattingLogic::DrawOverChecker(plain, keyed, picture);
    // Cells (0, 0) and (1, 1) white, (1, 0) black.
    EXPECT_EQ(std::make_tuple(picture.GetPixel(0, 0), picture.GetPixel(10, 0), picture.GetPixel(10, 5)),
              std::make_tuple(0xFFFFFFFFu, 0xFF000000u, 0xFFFFFFFFu));
    // Half over black: 200 * 128 / 255, 100 * 128 / 255, 50 * 128 / 255.
    EXPECT_EQ(picture.GetPixel(1, 5), 0xFF643219u);
    EXPECT_EQ(picture.GetPixel(11, 5), 0xFFC86432u);   // opaque: the strip itself
}

TEST(BlueMattingLogic, CleaningHistogramLeavesOutTheTransparentFlood)
{
    COLImage result = vmtest::Solid(100, 1, CPixel{0, 0, 0, 0});
    for (uint32_t x = 0; x < 10; ++x) result.GetBuffer(x, 0)->alpha = 10;   // ten pixels at 10
    result.GetBuffer(50, 0)->alpha = 1;
    result.GetBuffer(51, 0)->alpha = 255;
    const std::vector<int> h = CBlueMattingLogic::CleaningHistogram(result);
    ASSERT_EQ(h.size(), 256u);
    // h[0]: bins 1, 2 only, (1 + 0) / 2, the 89 transparent pixels take no part; h[1]: bins 1..3, 1 / 3;
    // h[8]: bins 6..10, 10 / 5; h[255]: bins 253..255, 1 / 3.
    const int bins[][2] = {{0, 0}, {1, 0}, {8, 2}, {10, 2}, {12, 2}, {13, 0}, {255, 0}};
    for (auto& b : bins) EXPECT_EQ(h[size_t(b[0])], b[1]) << b[0];
    EXPECT_EQ(CBlueMattingLogic::BarHeight(25, 100, 117), 50);   // half of the 100 rows above the strip
    EXPECT_EQ(CBlueMattingLogic::BarHeight(100, 100, 117), 100);
    EXPECT_EQ(CBlueMattingLogic::BarHeight(5, 0, 117), 0);
}

TEST(BlueMattingLogic, HandlesKeepTheirOrder)
{
    CBlueMattingLogic logic;
    logic.DragLowHandle(60, 10, 266);    // (50 * 256) / 256
    EXPECT_EQ(logic.levelLow, 50);
    logic.DragHighHandle(40, 10, 266);   // 30 is below the low handle: kept one above it
    EXPECT_EQ(logic.levelHigh, 51);
    logic.DragLowHandle(500, 10, 266);
    EXPECT_EQ(logic.levelLow, 50);       // not past the high handle
    logic.DragHighHandle(500, 10, 266);
    EXPECT_EQ(logic.levelHigh, 255);
    logic.DragLowHandle(-20, 10, 266);
    EXPECT_EQ(logic.levelLow, 0);
}
