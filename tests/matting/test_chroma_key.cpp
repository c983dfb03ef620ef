#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "imaging/codec.h"
#include "matting/chroma_key.h"
#include "matting/key_math.h"
#include "runtime/parallel_for.h"
#include "support/engine_checks.h"
#include "support/matting_checks.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

using vmtest::Rgb;
using vmtest::Row;

// The key of src, into a picture of its own; the process keeps what it learnt of the run (the path it took).
COLImage Keyed(const COLImage& src, const ChromaKeyParams& params, CChromaKeyProcess& process)
{
    COLImage out;
    process.SetImages(const_cast<COLImage*>(&src), &out);
    EXPECT_EQ(process.Process(&params), kOk);
    return out;
}

} // namespace

TEST(ChromaKey, BackdropClassification)
{
    // Colourful and mid-bright: the hue way.
    EXPECT_TRUE(CChromaKeyProcess::IsChromatic(Rgb(46, 168, 72)));
    EXPECT_TRUE(CChromaKeyProcess::IsChromatic(Rgb(34, 78, 196)));
    EXPECT_TRUE(CChromaKeyProcess::IsChromatic(Rgb(33, 0, 0)));      // brightness 33
    EXPECT_TRUE(CChromaKeyProcess::IsChromatic(Rgb(219, 0, 219)));   // brightness 219
    // Gray, white, black, or just outside the bounds: the luma way, whatever the hue.
    EXPECT_FALSE(CChromaKeyProcess::IsChromatic(Rgb(128, 128, 128)));
    EXPECT_FALSE(CChromaKeyProcess::IsChromatic(Rgb(244, 244, 242)));
    EXPECT_FALSE(CChromaKeyProcess::IsChromatic(Rgb(32, 0, 0)));     // brightness 32
    EXPECT_FALSE(CChromaKeyProcess::IsChromatic(Rgb(0, 220, 0)));    // brightness 220
    EXPECT_FALSE(CChromaKeyProcess::IsChromatic(Rgb(200, 194, 200)));  // saturation 8
    EXPECT_TRUE(CChromaKeyProcess::IsChromatic(Rgb(200, 190, 200)));   // saturation 13
}

TEST(ChromaKey, LumaPathByHand)
{
    // Backdrop gray 128 (Y 128), picker strength 32: T = 38.
    COLImage src = Row({Rgb(128, 128, 128), Rgb(147, 147, 147), Rgb(110, 110, 110), Rgb(200, 200, 200)});
    COLImage dst;
    CChromaKeyProcess process;
    process.SetImages(&src, &dst);
    ChromaKeyParams params{Rgb(128, 128, 128)};
    ASSERT_EQ(process.Process(&params), kOk);
    EXPECT_FALSE(process.WasChromatic());
    // The backdrop itself: nothing left, all four bytes.
    EXPECT_EQ(dst.GetPixel(0, 0), 0u);
    // 19 steps away: key 127, lifted to 153, levels 32..255 give 138; colour solved: (147*255-128*128)/127.
    EXPECT_EQ(dst.GetPixel(1, 0), Rgb(166, 166, 166, 138).Word());
    // 18 steps below: key 120, lifted to 149, levels give 133; (110*255-128*135)/120 = 89.
    EXPECT_EQ(dst.GetPixel2(2, 0).green, 89);
    EXPECT_EQ(dst.GetPixel2(2, 0).alpha, 133);
    // Far away: opaque and unchanged.
    EXPECT_EQ(dst.GetPixel(3, 0), 0xFFC8C8C8u);
    // The working plane holds the lifted alpha before the levels.
    EXPECT_EQ(process.GetAlphaPlane().GetValue(1, 0), 153);

    // Without colour recovery the colour is the source's; the backdrop pixel is still cleared.
    params.recoverColour = 0;
    ASSERT_EQ(process.Process(&params), kOk);
    EXPECT_EQ(dst.GetPixel(0, 0), 0u);
    EXPECT_EQ(dst.GetPixel2(1, 0).red, 147);
    EXPECT_EQ(dst.GetPixel2(1, 0).alpha, 138);
}

TEST(ChromaKey, LumaStrengthSetsTheOpaqueDistance)
{
    COLImage src = Row({Rgb(100, 100, 100), Rgb(117, 117, 117), Rgb(116, 116, 116)});
    COLImage dst;
    CChromaKeyProcess process;
    process.SetLumaStrength(0);   // T = 17
    process.SetImages(&src, &dst);
    ChromaKeyParams params{Rgb(100, 100, 100)};
    params.levelLow = 0;
    ASSERT_EQ(process.Process(&params), kOk);
    EXPECT_EQ(dst.GetPixel2(1, 0).alpha, 255);   // 17 steps: opaque
    EXPECT_LT(dst.GetPixel2(2, 0).alpha, 255);   // 16 steps: not quite
}

TEST(ChromaKey, LumaPathIgnoresShadowAndChromaSwitches)
{
    const COLImage src = vmtest::KeyScene(Rgb(240, 240, 238), 64, 48, 3);
    CChromaKeyProcess process;
    ChromaKeyParams params{Rgb(240, 240, 238)};
    const COLImage a = Keyed(src, params, process);
    params.includeShadow = 0;
    params.jpegChroma = 0;
    EXPECT_TRUE(vmtest::SamePixels(a, Keyed(src, params, process)));
}

TEST(ChromaKey, FeatherOnlyTakesAlphaAway)
{
    for (CPixel backdrop : {Rgb(128, 128, 128), Rgb(46, 168, 72)}) {
        const COLImage src = vmtest::KeyScene(backdrop, 80, 60, 5);
        CChromaKeyProcess process;
        ChromaKeyParams params{backdrop};
        params.levelLow = 0;
        const COLImage plain = Keyed(src, params, process);
        params.featherSelection = 1;
        const COLImage feathered = Keyed(src, params, process);
        int lowered = 0;
        for (uint32_t i = 0; i < plain.GetPixelCount(); ++i) {
            if (backdrop.red == 128) {
                // The luma path feathers the key itself: never more than without.
                EXPECT_LE(feathered.GetBuffer()[i].alpha, plain.GetBuffer()[i].alpha) << i;
            }
            lowered += feathered.GetBuffer()[i].alpha < plain.GetBuffer()[i].alpha;
        }
        EXPECT_GT(lowered, 0);
    }
}

TEST(ChromaKey, LevelsMapAlphaOnly)
{
    COLImage img = Row({Rgb(1, 2, 3, 0), Rgb(4, 5, 6, 31), Rgb(7, 8, 9, 32), Rgb(10, 11, 12, 100),
                        Rgb(13, 14, 15, 255)});
    COLImage copy = vmtest::Copy(img);
    CChromaKeyProcess::ApplyAlphaLevels(img, 0, 255);
    EXPECT_TRUE(vmtest::SamePixels(img, copy));
    CChromaKeyProcess::ApplyAlphaLevels(img, 32, 255);
    const COLImage levelled = Row({Rgb(1, 2, 3, 0), Rgb(4, 5, 6, 0), Rgb(7, 8, 9, 0), Rgb(10, 11, 12, 77),
                                   Rgb(13, 14, 15, 255)});
    EXPECT_TRUE(vmtest::SamePixels(img, levelled));
}

TEST(ChromaKey, ShadowPassRemovesDarkHazeAwayFromTheSubject)
{
    // A 40 x 40 picture, keyed already: an opaque block on the left, a dark half-transparent haze far to the
    // right, and dark half-transparent pixels touching the block.
    COLImage src = vmtest::Solid(40, 40, Rgb(200, 200, 200, 0)), dst;
    for (uint32_t y = 10; y < 30; ++y) {
        for (uint32_t x = 2; x < 12; ++x) src.PutPixel(x, y, Rgb(5, 5, 5, 255));   // dark but opaque
        src.PutPixel(12, y, Rgb(5, 5, 5, 120));                                    // dark rim next to it
        for (uint32_t x = 30; x < 38; ++x) src.PutPixel(x, y, Rgb(8, 8, 8, 120));  // dark haze far away
    }
    src.PutPixel(34, 5, Rgb(220, 220, 220, 120));   // bright and half-transparent: not a shadow

    CChromaKeyProcess process;
    process.SetImages(&src, &dst);
    dst.DuplicateFrom(&src);
    ASSERT_EQ(process.RemoveShadow(), kOk);
    for (uint32_t y = 13; y < 27; ++y) {
        EXPECT_EQ(dst.GetPixel2(5, y).alpha, 255);
        EXPECT_EQ(dst.GetPixel2(12, y).alpha, 120) << y;
    }
    for (uint32_t y = 10; y < 30; ++y)
        for (uint32_t x = 30; x < 38; ++x) EXPECT_EQ(dst.GetPixel2(x, y).alpha, 0) << x << "," << y;
    EXPECT_EQ(dst.GetPixel2(34, 5).alpha, 120);
    EXPECT_TRUE(vmtest::SameColours(src, dst));
}

TEST(ChromaKey, ShadowOptionRunsThePassOnTheHuePathOnly)
{
    const CPixel green = Rgb(46, 168, 72);
    COLImage src = vmtest::KeyScene(green, 64, 96, 9);
    // Darken a band of the backdrop, well below the subject, into a deep shadow.
    for (uint32_t y = 80; y < 96; ++y)
        for (uint32_t x = 0; x < 64; ++x) src.PutPixel(x, y, Rgb(4, 14, 6));
    CChromaKeyProcess process;
    ChromaKeyParams params{green};
    const COLImage kept = Keyed(src, params, process);
    ASSERT_TRUE(process.WasChromatic());
    params.includeShadow = 0;
    const COLImage removed = Keyed(src, params, process);
    int keptAlpha = 0, removedAlpha = 0;
    for (uint32_t x = 8; x < 56; ++x) {
        keptAlpha += kept.GetPixel2(x, 86).alpha;
        removedAlpha += removed.GetPixel2(x, 86).alpha;
    }
    EXPECT_GT(keptAlpha, 48 * 100);   // dark pixels of little colour stay in the key...
    EXPECT_EQ(removedAlpha, 0);       // ...until the shadow pass takes them out
}

TEST(ChromaKey, EstimateBackdropFromTheBorder)
{
    // A subject in the middle, reaching into the outer 128 but not the outer 16, does not count; a little
    // variation in the border (the top row): the mean follows it.
    const COLImage img = vmtest::Picture(300, 200, [](uint32_t x, uint32_t y) {
        if (y == 0) return Rgb(44, 174, 74);
        return x >= 20 && x < 280 && y >= 20 && y < 180 ? Rgb(200, 100, 50) : Rgb(40, 170, 70);
    });
    EXPECT_EQ(CChromaKeyProcess::EstimateBackdropColour(img).Word(), Rgb(40, 170, 70).Word());

    // Narrower than 32: every pixel is border; a half-and-half picture has a mean that nothing is close to.
    COLImage split =
        vmtest::Picture(20, 10, [](uint32_t x, uint32_t) { return x < 10 ? Rgb(0, 0, 0) : Rgb(200, 200, 200); });
    EXPECT_EQ(CChromaKeyProcess::EstimateBackdropColour(split).Word(), 0xFF000000u);
    split = vmtest::Picture(20, 10, [](uint32_t, uint32_t y) { return y < 9 ? Rgb(100, 100, 100) : Rgb(90, 90, 90); });
    EXPECT_EQ(CChromaKeyProcess::EstimateBackdropColour(split).Word(), 0xFF636363u);   // (9*100 + 90) / 10 = 99
}

TEST(ChromaKey, SameBytesOnOneCoreAndOnAll)
{
    for (CPixel backdrop : {Rgb(46, 168, 72), Rgb(128, 128, 128)}) {
        COLImage src = vmtest::KeyScene(backdrop, 601, 397, 11);
        // A deep shadow with a ragged edge across the lower rows, so that the shadow pass has work everywhere.
        for (uint32_t y = 300; y < 397; ++y)
            for (uint32_t x = 0; x < 601; ++x)
                if ((x * 7 + y * 3) % 11 < 6) src.PutPixel(x, y, Rgb(4, 12 + int(x % 5), 6));
        CChromaKeyProcess process;
        ChromaKeyParams params{backdrop};
        params.includeShadow = 0;
        params.featherSelection = 1;
        COLImage first;
        vmtest::ForEachLevelAndSplit([&](const std::string& label) {
            COLImage keyed = Keyed(src, params, process);
            if (first.IsNull()) first = vmtest::Copy(keyed);
            EXPECT_TRUE(vmtest::SamePixels(first, keyed)) << label;
        });
    }
}

TEST(ChromaKey, InPlaceRunKeysTheOriginal)
{
    const CPixel green = Rgb(46, 168, 72);
    const COLImage src = vmtest::KeyScene(green, 60, 40, 4);
    COLImage inPlace = vmtest::Copy(src);
    CChromaKeyProcess process;
    ChromaKeyParams params{green};
    params.jpegChroma = 0;   // the refinement then reads the source itself, where keyed pixels would show
    const COLImage apart = Keyed(src, params, process);
    process.SetImages(&inPlace, &inPlace);
    ASSERT_EQ(process.Process(&params), kOk);
    EXPECT_TRUE(vmtest::SamePixels(apart, inPlace));
}

TEST(ChromaKey, RefusesMissingInputs)
{
    CChromaKeyProcess process;
    COLImage src = Row({Rgb(1, 2, 3)}), dst, empty;
    ChromaKeyParams params;
    process.SetImages(&src, &dst);
    EXPECT_EQ(process.Process(nullptr), kFail);
    process.SetImages(&empty, &dst);
    EXPECT_EQ(process.Process(&params), kFail);
    process.SetImages(&src, nullptr);
    EXPECT_EQ(process.Process(&params), kFail);
}

TEST(ChromaKey, ProgressStaysInOrderAndEndsAtTheTop)
{
    for (uint32_t shadow : {1u, 0u}) {
        const CPixel green = Rgb(46, 168, 72);
        COLImage src = vmtest::KeyScene(green, 300, 200, 2), dst;
        CChromaKeyProcess process;
        process.SetImages(&src, &dst);
        vmtest::ProgressLog log;
        const std::vector<int>& reports = log.values;
        process.SetProgressCallback(log.Callback());
        process.SetProgressRange(0, 100);
        ChromaKeyParams params{green};
        params.includeShadow = shadow;
        ASSERT_EQ(process.Process(&params), kOk);
        EXPECT_TRUE(vmtest::RisesTo(reports, 0, 100));
        std::vector<int> above80;
        for (int v : reports)
            if (v > 80 && (above80.empty() || above80.back() != v)) above80.push_back(v);
        if (shadow == 0) {
            // The hue key's own 0..100 lands in 0..80; the shadow pass reports 85, 95 and 100 after it.
            EXPECT_NE(std::find(reports.begin(), reports.end(), 80), reports.end());
            EXPECT_EQ(above80, (std::vector<int>{85, 95, 100}));
        } else {
            EXPECT_NE(std::find(above80.begin(), above80.end(), 90), above80.end());
            EXPECT_NE(std::find(above80.begin(), above80.end(), 95), above80.end());
        }
    }
}

TEST(ChromaKey, TinyPicturesGoThroughEveryStep)
{
    // Sizes around the 3-pixel border of the refinement, the 3 x 3 neighbourhoods and the chroma pairs.
    for (uint32_t w : {1u, 2u, 3u, 6u, 7u, 8u})
        for (uint32_t h : {1u, 2u, 7u}) {
            for (CPixel backdrop : {Rgb(46, 168, 72), Rgb(128, 128, 128)}) {
                COLImage src = vmtest::Noise(w, h, w * 10 + h), dst;
                ChromaKeyParams params{backdrop};
                params.includeShadow = 0;
                params.featherSelection = 1;
                CChromaKeyProcess process;
                process.SetImages(&src, &dst);
                ASSERT_EQ(process.Process(&params), kOk) << w << " x " << h;
                EXPECT_EQ(vmtest::Size(dst), vmtest::Size(src));
            }
        }
}
