#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "imaging/codec.h"
#include "matting/hue_key.h"
#include "runtime/parallel_for.h"
#include "support/engine_checks.h"
#include "support/matting_checks.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

using vmtest::Rgb;
using vmtest::Row;

const CPixel kGreen = Rgb(46, 168, 72);

// The key's first steps by hand, without chroma smoothing: tables, key, colour mixing.
void KeyAndMix(CHueKeyProcess& hue, const COLImage& src, ChromaKeyParams p)
{
    p.jpegChroma = 0;
    hue.SetParamsForSteps(p);
    hue.BuildTables();
    ASSERT_EQ(hue.BuildKey(src), kOk);
    hue.MixColours(src);
}

// A picture with a key process writing beside it, and the green backdrop's settings.
struct Keying {
    explicit Keying(COLImage picture) : src(std::move(picture)) { hue.SetImages(&src, &dst); }
    COLImage src, dst;
    CHueKeyProcess hue;
    ChromaKeyParams p{kGreen};
};

} // namespace

TEST(HueKey, KeyThresholdAndMixByHand)
{
    // Six backdrop pixels (hue 94, key 162) make the tenth of ten pixels: threshold 163.
    auto [src, dst, hue, p] = Keying(Row({kGreen, kGreen, kGreen, kGreen, kGreen, kGreen, Rgb(90, 150, 85),
                                          Rgb(60, 140, 80), Rgb(120, 120, 120), Rgb(200, 120, 90)}));
    hue.SetParamsForSteps(p);
    hue.BuildTables();
    ASSERT_EQ(hue.BuildKey(src), kOk);
    EXPECT_EQ(hue.GetThreshold(), 163);
    EXPECT_EQ(vmtest::Bytes(hue.GetHueChannel()), (std::vector<uint8_t>{94, 94, 94, 94, 94, 94, 82, 95, 0, 11}));
    // 214 -> (214 - 163) * 255 / 89, 196 -> 94; gray and orange are far from the backdrop's hue.
    EXPECT_EQ(vmtest::Bytes(hue.GetKeyChannel()), (std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 146, 94, 255, 255}));

    hue.MixColours(src);
    for (uint32_t x = 0; x < 6; ++x) EXPECT_EQ(dst.GetPixel(x, 0), 0u);
    // Both greenish pixels lie within the spill range of the backdrop's hue: their solved colour goes to gray.
    // (90,150,85) at 146 solves to (122,136,94), gray 127; (60,140,80) at 94 to (83,92,93), gray 89.
    EXPECT_EQ(dst.GetPixel(6, 0), 0xA67F7F7Fu);   // alpha lifted 146 -> 166
    EXPECT_EQ(dst.GetPixel(7, 0), 0x84595959u);   // 94 -> 132
    EXPECT_EQ(dst.GetPixel(8, 0), 0xFF787878u);
    EXPECT_EQ(dst.GetPixel(9, 0), 0xFFC8785Au);
    EXPECT_EQ(hue.GetKeyChannel().GetValue(6, 0), 166);
}

TEST(HueKey, StrengthMovesTheThreshold)
{
    auto [src, dst, hue, p] = Keying(vmtest::KeyScene(kGreen, 120, 90, 1));
    p.jpegChroma = 0;
    ASSERT_EQ(hue.Process(&p), kOk);
    const int base = hue.GetThreshold();
    p.strength = 100;
    ASSERT_EQ(hue.Process(&p), kOk);
    EXPECT_EQ(hue.GetThreshold(), base + 12);
    p.strength = 0;
    ASSERT_EQ(hue.Process(&p), kOk);
    EXPECT_EQ(hue.GetThreshold(), base - 12);
}

TEST(HueKey, AllBackdropKeysToNothing)
{
    auto [src, dst, hue, p] = Keying(vmtest::Solid(40, 30, kGreen));
    p.jpegChroma = 0;
    ASSERT_EQ(hue.Process(&p), kOk);
    EXPECT_EQ(hue.GetThreshold(), 163);   // one past the common key 162
    for (uint32_t i = 0; i < dst.GetPixelCount(); ++i) ASSERT_EQ(dst.GetBuffer()[i].Word(), 0u) << i;
}

TEST(HueKey, InterpolateChromaRebuildsOddSamples)
{
    COLImage yuv = vmtest::Noise(7, 6, 21);
    COLImage before = vmtest::Copy(yuv);
    CHueKeyProcess::InterpolateChroma(yuv);
    auto at = [&](const COLImage& img, uint32_t x, uint32_t y) { return img.GetPixel2(x, y); };
    // Y (red byte) and alpha never change; the even samples stay, and so do the last column and row, which
    // have no even sample beyond them.
    for (uint32_t y = 0; y < 6; ++y)
        for (uint32_t x = 0; x < 7; ++x) {
            EXPECT_EQ(at(yuv, x, y).red, at(before, x, y).red);
            EXPECT_EQ(at(yuv, x, y).alpha, at(before, x, y).alpha);
            if ((x % 2 == 0 && y % 2 == 0) || x == 6 || y == 5) {
                EXPECT_EQ(at(yuv, x, y).Word(), at(before, x, y).Word()) << x << "," << y;
            }
        }
    // (3, 2): between (2, 2) and (4, 2). (2, 3): between (2, 2) and (2, 4). (1, 1): the four corners.
    EXPECT_EQ(at(yuv, 3, 2).blue, (at(before, 2, 2).blue + at(before, 4, 2).blue) >> 1);
    EXPECT_EQ(at(yuv, 2, 3).green, (at(before, 2, 2).green + at(before, 2, 4).green) >> 1);
    EXPECT_EQ(at(yuv, 1, 1).blue,
              (at(before, 0, 0).blue + at(before, 2, 0).blue + at(before, 0, 2).blue + at(before, 2, 2).blue) >> 2);
}

TEST(HueKey, SmoothingInBandsEqualsTheWholePictureRoute)
{
    // Odd sizes, and band edges that fall on odd and even rows, on one core and several.
    for (uint32_t h : {1u, 2u, 3u, 33u, 34u, 97u}) {
        COLImage src = vmtest::Noise(131, h, h);
        COLImage expected = vmtest::Copy(src);
        COLImageCodec codec;
        ASSERT_TRUE(codec.RGBToYUV(&expected));
        CHueKeyProcess::InterpolateChroma(expected);
        ASSERT_TRUE(codec.YUVToRGB(&expected));
        for (unsigned workers : {1u, 3u}) {
            vmtest::ThreadCount tc(workers);
            COLImage dst;
            CHueKeyProcess hue;
            hue.SetImages(&src, &dst);
            ASSERT_EQ(hue.SmoothChroma(), kOk);
            EXPECT_TRUE(vmtest::SamePixels(hue.GetSmoothed(), expected)) << h << " rows, " << workers;
        }
    }
}

TEST(HueKey, SmoothedPicturesInteriorIsWhatComesOut)
{
    auto [src, dst, hue, p] = Keying(vmtest::KeyScene(kGreen, 90, 70, 2));
    ASSERT_EQ(hue.Process(&p), kOk);
    const COLImage& smooth = hue.GetSmoothed();
    // The subject's centre is restored from the smoothed copy, not from the file's own pixels.
    int differFromFile = 0;
    for (uint32_t y = 30; y < 40; ++y)
        for (uint32_t x = 40; x < 50; ++x) {
            EXPECT_EQ(dst.GetPixel(x, y), smooth.GetPixel(x, y));
            differFromFile += dst.GetPixel(x, y) != src.GetPixel(x, y);
        }
    EXPECT_GT(differFromFile, 0);
}

TEST(HueKey, WithoutRecoveryTheColourIsTheSources)
{
    auto [src, dst, hue, p] = Keying(vmtest::KeyScene(kGreen, 60, 50, 3));
    p.recoverColour = 0;
    KeyAndMix(hue, src, p);
    int soft = 0;
    for (uint32_t i = 0; i < src.GetPixelCount(); ++i) {
        const CPixel d = dst.GetBuffer()[i];
        if (d.alpha == 0) continue;
        EXPECT_TRUE(d == src.GetBuffer()[i]) << i;
        soft += d.alpha < 255;
    }
    EXPECT_GT(soft, 0);   // the rim was keyed softly and kept its colour all the same
}

TEST(HueKey, RefinementStaysOffTheOuterThreeRowsAndColumns)
{
    auto [src, dst, hue, p] = Keying(vmtest::KeyScene(kGreen, 48, 40, 4));
    // Put the subject's rim right on the picture's edge.
    for (uint32_t i = 0; i < src.GetPixelCount(); ++i)
        if ((i % 48 + i / 48) % 5 < 2) src.GetBuffer()[i] = Rgb(200, 90, 60);
    KeyAndMix(hue, src, p);
    COLImage before = vmtest::Copy(dst);
    ASSERT_EQ(hue.RefineEdges(src), kOk);
    int changedInside = 0;
    for (uint32_t y = 0; y < 40; ++y)
        for (uint32_t x = 0; x < 48; ++x) {
            const bool outer = x < 3 || y < 3 || x >= 45 || y >= 37;
            if (outer) EXPECT_EQ(dst.GetPixel(x, y), before.GetPixel(x, y)) << x << "," << y;
            else changedInside += dst.GetPixel(x, y) != before.GetPixel(x, y);
        }
    EXPECT_GT(changedInside, 0);
}

TEST(HueKey, RefinementPullsEdgeAlphaTowardTheMixingLine)
{
    // Left half orange, right half green, and a column between them that is an exact 50 % mix: the refined
    // alpha there lands near half.
    const CPixel orange = Rgb(220, 120, 40);
    auto [src, dst, hue, p] = Keying(vmtest::Picture(21, 15, [&](uint32_t x, uint32_t) {
        return x == 10 ? Rgb((220 + 46) / 2, (120 + 168) / 2, (40 + 72) / 2) : x < 10 ? orange : kGreen;
    }));
    p.jpegChroma = 0;
    p.levelLow = 0;
    ASSERT_EQ(hue.Process(&p), kOk);
    for (uint32_t y = 4; y < 11; ++y) {
        EXPECT_EQ(dst.GetPixel2(5, y).Word(), orange.Word());
        EXPECT_EQ(dst.GetPixel2(15, y).Word(), 0u);
        EXPECT_NEAR(dst.GetPixel2(10, y).alpha, 128, 40) << y;
    }
}

TEST(HueKey, InPlaceEqualsApart)
{
    for (uint32_t smooth : {0u, 1u}) {
        COLImage src = vmtest::KeyScene(kGreen, 64, 48, 8), apart, inPlace = vmtest::Copy(src);
        ChromaKeyParams p{kGreen};
        p.jpegChroma = smooth;
        CHueKeyProcess hue;
        hue.SetImages(&src, &apart);
        ASSERT_EQ(hue.Process(&p), kOk);
        hue.SetImages(&inPlace, &inPlace);
        ASSERT_EQ(hue.Process(&p), kOk);
        EXPECT_TRUE(vmtest::SamePixels(apart, inPlace)) << smooth;
    }
}
