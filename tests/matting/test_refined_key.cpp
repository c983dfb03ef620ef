// The refined backdrop key: better than the classic key and a plain colour-distance key on real photographs with
// a known alpha, the classic key untouched when the option is off, and the usual engine duties (same bytes on any
// split, clean failure, cancel).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "imaging/codec.h"
#include "matting/batch_key.h"
#include "matting/chroma_key.h"
#include "matting/refined_key.h"
#include "support/engine_checks.h"
#include "support/engine_checks.h"
#include "support/matting_checks.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

// A plain key to measure against: distance to the backdrop in the HSV cone (hue on a circle scaled by
// saturation and value), linear between 0.16 and 0.24 to alpha, then a 5 x 5 binomial blur. The thresholds are
// the best pair for this key on the whole evaluation set (bench/eval_key --sweep).
void HsvBaseline(const COLImage& shot, CPixel backdrop, std::vector<double>& alpha)
{
    auto cone = [](const CPixel& p, double out[3]) {
        const double r = p.red, g = p.green, b = p.blue;
        const double mx = std::max({r, g, b}), mn = std::min({r, g, b});
        const double v = mx / 255.0, s = mx > 0 ? (mx - mn) / mx : 0.0;
        double hue = 0;
        if (mx > mn)
            hue = mx == r ? std::fmod((g - b) / (mx - mn) + 6.0, 6.0)
                          : (mx == g ? (b - r) / (mx - mn) + 2.0 : (r - g) / (mx - mn) + 4.0);
        out[0] = s * v * std::cos(hue * M_PI / 3.0);
        out[1] = s * v * std::sin(hue * M_PI / 3.0);
        out[2] = v;
    };
    const int w = int(shot.GetWidth()), h = int(shot.GetHeight());
    double b[3];
    cone(backdrop, b);
    std::vector<double> a(size_t(w) * size_t(h)), tmp(a.size());
    for (int i = 0; i < w * h; ++i) {
        double c[3];
        cone(shot.GetBuffer()[i], c);
        const double d = std::hypot(c[0] - b[0], c[1] - b[1], c[2] - b[2]);
        a[size_t(i)] = std::clamp((d - 0.16) / 0.08, 0.0, 1.0);
    }
    const double taps[5] = {1, 4, 6, 4, 1};
    for (int pass = 0; pass < 2; ++pass) {
        const std::vector<double>& in = pass == 0 ? a : tmp;
        std::vector<double>& out = pass == 0 ? tmp : a;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                double sum = 0, weight = 0;
                for (int k = -2; k <= 2; ++k) {
                    const int sx = pass == 0 ? x + k : x, sy = pass == 0 ? y : y + k;
                    if (sx < 0 || sy < 0 || sx >= w || sy >= h) continue;
                    sum += taps[k + 2] * in[size_t(sy) * size_t(w) + size_t(sx)];
                    weight += taps[k + 2];
                }
                out[size_t(y) * size_t(w) + size_t(x)] = sum / weight;
            }
    }
    alpha = std::move(a);
}

// A shot of the evaluation set with its true alpha as numbers and the backdrop picked where a user would click.
struct Shot : vmtest::KeyShot {
    std::vector<int> alpha;
    CPixel backdrop;
};

Shot LoadShot(const std::string& name)
{
    Shot s;
    if (!vmtest::LoadKeyShot(name, s)) return Shot{};
    for (size_t i = 0; i < s.truth.GetPixelCount(); ++i) s.alpha.push_back(s.truth.GetBuffer()[i].red);
    s.backdrop = batchkey::ColourAtPercent(s.picture, 10, 10);
    return s;
}

double SadOfImage(const COLImage& keyed, const std::vector<int>& truth)
{
    double sum = 0;
    for (size_t i = 0; i < truth.size(); ++i) sum += std::abs(int(keyed.GetBuffer()[i].alpha) - truth[i]);
    return sum / 255.0;
}

COLImage Key(const Shot& s, bool refine)
{
    ChromaKeySettings settings;
    settings.params.backdrop = s.backdrop;
    settings.refine = refine;
    COLImage source = vmtest::Copy(s.picture), result;
    EXPECT_EQ(RunBackdropKey(settings, source, result), kOk);
    return result;
}

// Keys a shot taken on a light gray backdrop (240, 240, 240).
void KeyOnLightGray(CRefinedKeyProcess& process, COLImage& shot, COLImage& result)
{
    process.SetImages(&shot, &result);
    ChromaKeySettings settings;
    settings.params.backdrop = CPixel::Make(240, 240, 240);
    ASSERT_EQ(process.Process(&settings), kOk);
}

} // namespace

// Against the known alpha: a lower sum of absolute differences than the classic key and a plain HSV key. And the
// fringe a user sees: on the soft rim and strands, the cut-out and the true subject are each put over black and over
// white, and the mean difference per channel is lower for the refined key than for the classic key, by a good margin
// on white where the classic key's edges keep the backdrop's light.
TEST(RefinedKey, BeatsTheClassicKeyAndAPlainHsvKeyAndShowsLessFringe)
{
    for (const char* name : {"white", "green"}) {
        const Shot s = LoadShot(name);
        ASSERT_FALSE(s.picture.IsNull()) << name;
        const COLImage classicImage = Key(s, false), refinedImage = Key(s, true);
        const double classic = SadOfImage(classicImage, s.alpha), refined = SadOfImage(refinedImage, s.alpha);
        std::vector<double> hsv;
        HsvBaseline(s.picture, s.backdrop, hsv);
        double baseline = 0;
        for (size_t i = 0; i < hsv.size(); ++i) baseline += std::abs(hsv[i] * 255.0 - s.alpha[i]) / 255.0;
        std::printf("%s: SAD classic %.1f, HSV baseline %.1f, refined %.1f\n", name, classic, baseline, refined);
        EXPECT_LT(refined, 0.7 * classic) << name;
        EXPECT_LT(refined, baseline) << name;

        const bool white = std::string(name) == "white";
        auto fringe = [&](const COLImage& keyed) {
            double sum = 0;
            size_t count = 0;
            for (uint32_t y = 0; y < keyed.GetHeight(); ++y)
                for (uint32_t x = 0; x < keyed.GetWidth(); ++x) {
                    const int at = s.alpha[size_t(y) * keyed.GetWidth() + x];
                    if (at <= 25 || at >= 230) continue;
                    const CPixel k = keyed.GetPixel2(x, y), t = s.photo.GetPixel2(s.x + x, s.y + y);
                    const double ak = k.alpha / 255.0, a = at / 255.0;
                    const int kc[3] = {k.red, k.green, k.blue}, tc[3] = {t.red, t.green, t.blue};
                    for (double back : {0.0, 255.0})
                        for (int c = 0; c < 3; ++c)
                            sum += std::abs(ak * kc[c] + (1 - ak) * back - (a * tc[c] + (1 - a) * back)) / 6.0;
                    ++count;
                }
            return sum / double(std::max<size_t>(count, 1));
        };
        const double classicFringe = fringe(classicImage), refinedFringe = fringe(refinedImage);
        std::printf("%s: fringe classic %.1f, refined %.1f\n", name, classicFringe, refinedFringe);
        EXPECT_LT(refinedFringe, (white ? 0.8 : 1.0) * classicFringe) << name;
    }
}

TEST(RefinedKey, OffLeavesTheClassicKeysBytes)
{
    // The option off is the classic key itself: the same bytes as the engine run directly, for both paths, the
    // panel's record and the batch's.
    for (const char* name : {"white", "green"}) {
        const Shot s = LoadShot(name);
        ASSERT_FALSE(s.picture.IsNull()) << name;
        for (const ChromaKeyParams& params : {ChromaKeyParams{s.backdrop}, batchkey::UnattendedParams(s.backdrop)}) {
            COLImage source = vmtest::Copy(s.picture), direct, viaOption;
            CChromaKeyProcess process;
            process.SetLumaStrength(20);
            process.SetImages(&source, &direct);
            ASSERT_EQ(process.Process(&params), kOk);
            ChromaKeySettings settings;
            settings.params = params;
            settings.lumaStrength = 20;
            ASSERT_EQ(settings.refine, 0);   // off unless asked
            ASSERT_EQ(RunBackdropKey(settings, source, viaOption), kOk);
            EXPECT_TRUE(vmtest::SamePixels(direct, viaOption)) << name;
        }
    }
}

TEST(RefinedKey, SameBytesOnEverySplit)
{
    // Gray goes without the classic key, green through it (its unsure pixels widen the band).
    for (const char* name : {"gray", "green"}) {
        const Shot s = LoadShot(name);
        ASSERT_FALSE(s.picture.IsNull()) << name;
        COLImage first;
        vmtest::ForEachLevelAndSplit([&](const std::string& label) {
            COLImage keyed = Key(s, true);
            if (first.IsNull()) first = vmtest::Copy(keyed);
            EXPECT_TRUE(vmtest::SamePixels(first, keyed)) << name << ", " << label;
        });
    }
}

TEST(RefinedKey, BandLiesBetweenSureBackdropAndSureSubject)
{
    // A disc of orange on a white backdrop darkened by a soft shadow: the shadow is backdrop, the disc's middle
    // subject, and the band only a few pixels wide around the disc's edge.
    COLImage shot = vmtest::Picture(120, 90, [](uint32_t x, uint32_t y) {
        const double d = std::hypot(x + 0.5 - 50.0, y + 0.5 - 45.0);
        const double a = std::clamp(25.0 - d, 0.0, 1.0);
        const double shade = 1.0 - 0.4 * std::clamp((x - 70.0) / 30.0, 0.0, 1.0);   // darker to the right
        const double back = 240 * shade;
        return CPixel::Make(uint8_t(220 * a + back * (1 - a)), uint8_t(110 * a + back * (1 - a)),
                            uint8_t(40 * a + back * (1 - a)));
    });
    CRefinedKeyProcess process;
    COLImage result;
    ASSERT_NO_FATAL_FAILURE(KeyOnLightGray(process, shot, result));
    EXPECT_FALSE(process.WasChromatic());
    const COLChannel& t = process.GetTrimap();
    ASSERT_EQ(t.GetWidth(), 120u);
    EXPECT_EQ(t.GetValue(110, 45), 0);     // deep in the shadow
    EXPECT_EQ(t.GetValue(50, 45), 255);    // the disc's centre
    EXPECT_EQ(t.GetValue(74, 45), 128);    // its edge, half covered
    const auto band = std::count(t.GetBuffer(), t.GetBuffer() + t.GetAreaByteSize(), 128);
    EXPECT_LT(band, 2 * 3 * 160);   // well under a 6-pixel ring round the disc's 157-pixel rim
    EXPECT_EQ(result.GetPixel2(110, 45).Word(), 0u);
    EXPECT_EQ(result.GetPixel2(50, 45).alpha, 255);
    EXPECT_NEAR(result.GetPixel2(74, 45).alpha, 128, 25);
}

TEST(RefinedKey, BackdropSeenThroughAGapCountsAndASmallPatchDoesNot)
{
    // An orange ring round a hole of backdrop (9 % of the picture, out of the border's reach) and an orange disc
    // with a 4 x 4 speck of backdrop colour at its centre (16 pixels: too small to be backdrop).
    COLImage shot = vmtest::Picture(200, 150, [](uint32_t x, uint32_t y) {
        const double ring = std::hypot(x + 0.5 - 70.0, y + 0.5 - 75.0);
        const double disc = std::hypot(x + 0.5 - 160.0, y + 0.5 - 75.0);
        const bool speck = x >= 158 && x < 162 && y >= 73 && y < 77;
        const bool orange = (ring >= 30 && ring < 50) || (disc < 25 && !speck);
        return orange ? CPixel::Make(220, 110, 40) : CPixel::Make(240, 240, 240);
    });
    CRefinedKeyProcess process;
    COLImage result;
    ASSERT_NO_FATAL_FAILURE(KeyOnLightGray(process, shot, result));
    const COLChannel& t = process.GetTrimap();
    EXPECT_EQ(t.GetValue(70, 75), 0);      // the hole's middle
    EXPECT_EQ(t.GetValue(70, 55), 0);      // ten pixels from the hole's edge
    EXPECT_EQ(t.GetValue(70, 35), 255);    // the ring's body
    EXPECT_EQ(t.GetValue(5, 5), 0);        // the backdrop outside
    EXPECT_NE(t.GetValue(160, 75), 0);     // the speck is left to the solver
    EXPECT_EQ(result.GetPixel2(70, 75).Word(), 0u);
}

TEST(RefinedKey, RefusesBadInputAndStopsOnCancel)
{
    CRefinedKeyProcess process;
    COLImage empty, result;
    ChromaKeySettings settings;
    process.SetImages(&empty, &result);
    EXPECT_EQ(process.Process(&settings), kFail);
    const Shot s = LoadShot("green");
    ASSERT_FALSE(s.picture.IsNull());
    COLImage shot = vmtest::Copy(s.picture);
    process.SetImages(&shot, &result);
    EXPECT_EQ(process.Process(nullptr), kFail);
    EXPECT_TRUE(result.IsNull());

    // A cancel request ends the run at its next test and leaves the destination as it was.
    settings.params.backdrop = s.backdrop;
    process.RequestCancel();
    EXPECT_EQ(process.Process(&settings), kFail);
    EXPECT_TRUE(result.IsNull());

    // Tiny pictures key without trouble, and in place the result is that of a separate destination.
    for (uint32_t side : {1u, 2u, 5u}) {
        COLImage tiny = vmtest::Solid(side, side, CPixel::Make(46, 168, 72));
        process.SetImages(&tiny, &result);
        EXPECT_EQ(process.Process(&settings), kOk) << side;
    }
    COLImage separate;
    process.SetImages(&shot, &separate);
    ASSERT_EQ(process.Process(&settings), kOk);
    process.SetImages(&shot, &shot);
    ASSERT_EQ(process.Process(&settings), kOk);
    EXPECT_TRUE(vmtest::SamePixels(shot, separate));
}
