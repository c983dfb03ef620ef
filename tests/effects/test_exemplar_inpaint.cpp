#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "effects/exemplar_inpaint.h"
#include "support/engine_checks.h"
#include "support/matting_checks.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

constexpr int kSide = 96;

// Two textured tones split by a straight diagonal edge (y = 0.6 x + 20), with a little fine noise: the case block
// quilting and diffusion both get wrong. Alpha varies so that its preservation is visible.
COLImage EdgePicture()
{
    uint32_t state = 12345;
    return vmtest::Picture(kSide, kSide, [&](uint32_t px, uint32_t py) {
        const int x = int(px), y = int(py);
        state = state * 1664525u + 1013904223u;
        const int noise = int(state >> 28) - 8;
        const bool upper = y < 0.6 * x + 20;
        const int base = upper ? 200 : 60;
        const int stripe = ((x + y) / 3) % 2 ? 10 : -10;
        const int v = std::clamp(base + stripe + noise, 0, 255);
        return vmtest::Rgb(v, upper ? v - 40 : v + 20, upper ? 60 : 150, 200 + (x + y) % 50);
    });
}

// A disc of hole over the picture's centre, on the edge.
COLChannel DiscMask(int side, int cx, int cy, int radius)
{
    return vmtest::PlaneOf(uint32_t(side), uint32_t(side), [&](int x, int y) {
        return (x - cx) * (x - cx) + (y - cy) * (y - cy) <= radius * radius ? 255 : 0;
    });
}

// The picture with the colour of every hole pixel painted magenta, which must not survive the fill; alpha stays.
COLImage Damaged(const COLImage& truth, const COLChannel& mask)
{
    COLImage damaged = vmtest::Copy(truth);
    for (uint32_t i = 0; i < damaged.GetPixelCount(); ++i)
        if (mask.GetBuffer()[i] > 127) damaged.GetBuffer()[i] = vmtest::Rgb(255, 0, 255, damaged.GetBuffer()[i].alpha);
    return damaged;
}

// The plain fill a structure-aware method must beat: every hole pixel relaxed to the mean of its four neighbours
// until it settles (a discrete Laplace equation with the known rim as boundary).
void DiffusionFill(const COLImage& src, const COLChannel& mask, COLImage& out)
{
    out.DuplicateFrom(&src);
    const int w = int(src.GetWidth()), h = int(src.GetHeight());
    for (int sweep = 0; sweep < 3000; ++sweep)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                if (mask.GetValue(uint32_t(x), uint32_t(y)) <= 127) continue;
                int sum[3] = {0, 0, 0}, n = 0;
                const int nb[4][2] = {{x - 1, y}, {x + 1, y}, {x, y - 1}, {x, y + 1}};
                for (const auto& p : nb) {
                    if (p[0] < 0 || p[1] < 0 || p[0] >= w || p[1] >= h) continue;
                    const CPixel q = out.GetPixel2(uint32_t(p[0]), uint32_t(p[1]));
                    sum[0] += q.blue;
                    sum[1] += q.green;
                    sum[2] += q.red;
                    ++n;
                }
                CPixel* o = out.GetBuffer(uint32_t(x), uint32_t(y));
                o->blue = uint8_t((sum[0] + n / 2) / n);
                o->green = uint8_t((sum[1] + n / 2) / n);
                o->red = uint8_t((sum[2] + n / 2) / n);
            }
}

double HoleError(const COLImage& a, const COLImage& truth, const COLChannel& mask)
{
    double sum = 0;
    int n = 0;
    for (uint32_t y = 0; y < a.GetHeight(); ++y)
        for (uint32_t x = 0; x < a.GetWidth(); ++x)
            if (mask.GetValue(x, y) > 127) {
                sum += a.GetPixel2(x, y) - truth.GetPixel2(x, y);
                ++n;
            }
    return sum / n;
}

// Chessboard distance of (x, y) to the nearest hole pixel, capped at cap.
int DistanceToHole(const COLChannel& mask, int x, int y, int cap)
{
    for (int d = 0; d < cap; ++d)
        for (int dy = -d; dy <= d; ++dy)
            for (int dx = -d; dx <= d; ++dx) {
                const int px = x + dx, py = y + dy;
                if (px >= 0 && py >= 0 && px < int(mask.GetWidth()) && py < int(mask.GetHeight()) &&
                    mask.GetValue(uint32_t(px), uint32_t(py)) > 127)
                    return d;
            }
    return cap;
}

// Nothing beyond the seam band changes, and alpha changes nowhere.
void ExpectConfined(const COLImage& result, const COLImage& src, const COLChannel& mask)
{
    const int seam = CExemplarInpaintProcess::kSeamWidth;
    int changedOutside = 0, alphaChanged = 0;
    for (uint32_t y = 0; y < src.GetHeight(); ++y)
        for (uint32_t x = 0; x < src.GetWidth(); ++x) {
            const CPixel a = result.GetPixel2(x, y), b = src.GetPixel2(x, y);
            alphaChanged += a.alpha != b.alpha;
            if (a != b && DistanceToHole(mask, int(x), int(y), seam + 1) > seam) ++changedOutside;
        }
    EXPECT_EQ(changedOutside, 0);
    EXPECT_EQ(alphaChanged, 0);
}

// The hole cut into the truth and filled with the default settings, which must change nothing beyond the seam band.
void FillHole(const COLImage& truth, const COLChannel& mask, COLImage& result)
{
    const COLImage damaged = Damaged(truth, mask);
    ExemplarInpaintParams params;
    params.mask = &mask;
    ASSERT_EQ(ExemplarInpaint(damaged, mask, result, params), kOk);
    ExpectConfined(result, damaged, mask);
}

TEST(ExemplarInpaint, RestoresAStraightEdgeBetterThanDiffusion)
{
    const COLImage truth = EdgePicture();
    COLImage result, diffused;
    const COLChannel mask = DiscMask(kSide, 48, 49, 13);
    COLImage damaged = Damaged(truth, mask);

    ExemplarInpaintParams params;
    params.mask = &mask;
    CExemplarInpaintProcess process;
    process.SetImages(&damaged, &result);
    ASSERT_EQ(process.Process(&params), kOk);
    DiffusionFill(damaged, mask, diffused);

    // Deep in the hole the stripes fade towards their mean, so the error is not near zero; a fill that lost the edge
    // as diffusion does would be near the diffusion's error.
    const double refined = HoleError(result, truth, mask), plain = HoleError(diffused, truth, mask);
    EXPECT_LT(refined, 0.45 * plain) << "refined " << refined << ", diffusion " << plain;
    ExpectConfined(result, damaged, mask);

    // The edge itself: along each column through the hole, the rows where the colour turns from upper to lower
    // tone sit within two pixels of the true line.
    int misplaced = 0, columns = 0;
    for (int x = 38; x <= 58; ++x) {
        const int line = int(std::ceil(0.6 * x + 20));
        int turn = -1;
        for (int y = 30; y < 70; ++y)
            if (result.GetPixel2(uint32_t(x), uint32_t(y)).blue > 105) { // lower tone's blue is 150, upper's 60
                turn = y;
                break;
            }
        ++columns;
        misplaced += std::abs(turn - line) > 2;
    }
    EXPECT_LE(misplaced, columns / 5);
}

// A smooth shading, as of a sky, has nothing for patches to copy but itself: no known patch has the hole's exact
// levels, so the patches' levels must be evened out rather than copied as steps from the nearest rim.
TEST(ExemplarInpaint, FillsASmoothGradientClosely)
{
    const COLImage truth = vmtest::Picture(kSide, kSide, [](uint32_t x, uint32_t y) {
        return vmtest::Rgb(90 + int(x) / 2, 120 + int(y) / 2, 220 - int(x + y) / 3);
    });
    COLImage result;
    const COLChannel mask = DiscMask(kSide, 45, 50, 15);
    ASSERT_NO_FATAL_FAILURE(FillHole(truth, mask, result));
    int worst = 0;
    for (uint32_t y = 0; y < kSide; ++y)
        for (uint32_t x = 0; x < kSide; ++x) {
            if (mask.GetValue(x, y) <= 127) continue;
            const CPixel a = result.GetPixel2(x, y), b = truth.GetPixel2(x, y);
            worst = std::max({worst, std::abs(a.red - b.red), std::abs(a.green - b.green), std::abs(a.blue - b.blue)});
        }
    EXPECT_LT(HoleError(result, truth, mask), 9.0); // summed over the three channels
    EXPECT_LE(worst, 6);
}

// Fine oblique stripes (periods of 7 and 11 pixels, so no patch of the picture repeats exactly one pixel over) cut
// by a straight scratch 5 pixels wide: the fill must carry them across in phase, where diffusion can only grey them.
TEST(ExemplarInpaint, CarriesAFineTextureAcrossAScratchInPhase)
{
    const COLImage truth = vmtest::Picture(kSide, kSide, [](uint32_t x, uint32_t y) {
        const int v = int(128.0 + 60.0 * std::sin(6.283185307 * (x / 7.0 + y / 11.0)));
        return vmtest::Rgb(v, v, v / 2 + 60);
    });
    COLImage result, diffused;
    const COLChannel mask = vmtest::PlaneOf(kSide, kSide, [](int x, int) { return x >= 46 && x < 51 ? 255 : 0; });
    FillHole(truth, mask, result);
    DiffusionFill(Damaged(truth, mask), mask, diffused);
    const double refined = HoleError(result, truth, mask), plain = HoleError(diffused, truth, mask);
    // Patches alone leave about a seventh of diffusion's error here (the vote averages a little off phase); the
    // rim's extrapolated frequencies bring it to about a twentieth.
    EXPECT_LT(refined, 0.08 * plain) << refined << " against " << plain;
}

// A thin scratch across a thin bright rim between a dark area and a lit one: the rim must run on through the
// scratch, neither washed out by the averaging of the vote and the fading of detail nor carried into the dark side.
TEST(ExemplarInpaint, AThinScratchKeepsAThinRimAndItsDarkSide)
{
    uint32_t state = 777;
    const COLImage truth = vmtest::Picture(kSide, kSide, [&](uint32_t x, uint32_t y) {
        state = state * 1664525u + 1013904223u;
        const int noise = int(state >> 29) - 4;
        const int rim = 50 + int(y) / 8; // the rim leans a little, as a helmet's edge would
        const int v = int(x) < rim ? 18 + noise : int(x) < rim + 3 ? 235 + noise : 130 + noise + (x % 4) * 6;
        return vmtest::Rgb(v, v, v);
    });
    COLImage result;
    // Five pixels wide, across the rim and well into both sides.
    const COLChannel mask = vmtest::PlaneOf(
        kSide, kSide, [](int x, int y) { return x >= 20 && x < 85 && y >= 40 + x / 10 && y < 45 + x / 10 ? 255 : 0; });
    ASSERT_NO_FATAL_FAILURE(FillHole(truth, mask, result));
    int lightInDark = 0, rimPixels = 0, rimLit = 0;
    for (uint32_t y = 0; y < kSide; ++y) {
        const int rim = 50 + int(y) / 8;
        for (uint32_t x = 0; x < kSide; ++x) {
            if (mask.GetValue(x, y) <= 127) continue;
            const int v = result.GetPixel2(x, y).green;
            if (int(x) < rim - 1 && v > 70) ++lightInDark;
            if (int(x) == rim + 1) { // the rim's middle: the lean may shift the copied rim by a pixel
                ++rimPixels;
                rimLit += v > 170;
            }
        }
    }
    ASSERT_GT(rimPixels, 0);
    EXPECT_EQ(lightInDark, 0);
    EXPECT_EQ(rimLit, rimPixels);
}

// The photograph's case of the same fault: a wavy scratch across the astronaut, whose helmet has a thin white rim
// against black. A fill that carries the rim into the black scores about 12 dB over the scratch; diffusion about 19.
TEST(ExemplarInpaint, AScratchAcrossThePhotographKeepsItsColours)
{
    const COLImage truth = vmtest::Load(vmtest::AssetPath("samples/astronaut.png"));
    ASSERT_FALSE(truth.IsNull());
    const int w = int(truth.GetWidth()), h = int(truth.GetHeight());
    COLChannel mask = vmtest::Plane(uint32_t(w), uint32_t(h), 0);
    const double m = std::min(w, h);
    for (double t = 0; t <= 1.0; t += 0.0005) {
        const int cx = int((0.1 + 0.8 * t) * w), cy = int((0.25 + 0.5 * t) * h + 0.04 * m * std::sin(9 * t));
        for (int dy = -2; dy <= 2; ++dy)
            for (int dx = -2; dx <= 2; ++dx)
                if (cx + dx >= 0 && cy + dy >= 0 && cx + dx < w && cy + dy < h)
                    mask.SetValue(uint32_t(cx + dx), uint32_t(cy + dy), 255);
    }
    COLImage result;
    ASSERT_NO_FATAL_FAILURE(FillHole(truth, mask, result));
    double sum = 0;
    size_t n = 0;
    for (uint32_t y = 0; y < uint32_t(h); ++y)
        for (uint32_t x = 0; x < uint32_t(w); ++x) {
            if (mask.GetValue(x, y) <= 127) continue;
            const CPixel a = result.GetPixel2(x, y), b = truth.GetPixel2(x, y);
            const int d[3] = {a.red - b.red, a.green - b.green, a.blue - b.blue};
            sum += d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
            n += 3;
        }
    const double psnr = 10.0 * std::log10(255.0 * 255.0 / (sum / double(n)));
    EXPECT_GT(psnr, 17.0);
}

TEST(ExemplarInpaint, SameBytesAtEverySplitAndInPlace)
{
    COLImage src = vmtest::Noise(120, 90, 7), first;
    // Smooth the noise into blobs so that patches have something to match.
    for (int pass = 0; pass < 3; ++pass)
        for (uint32_t y = 1; y + 1 < 90; ++y)
            for (uint32_t x = 1; x + 1 < 120; ++x) {
                CPixel* p = src.GetBuffer(x, y);
                const CPixel l = src.GetPixel2(x - 1, y), u = src.GetPixel2(x, y - 1);
                p->red = uint8_t((p->red + l.red + u.red) / 3);
                p->green = uint8_t((p->green + l.green + u.green) / 3);
                p->blue = uint8_t((p->blue + l.blue + u.blue) / 3);
            }
    const COLChannel mask = vmtest::PlaneOf(
        120, 90, [](uint32_t x, uint32_t y) { return x >= 40 && x < 85 && y >= 30 && y < 62 ? 200 : 0; });
    ExemplarInpaintParams params;
    params.mask = &mask;
    params.seed = 99;
    ASSERT_EQ(ExemplarInpaint(src, mask, first, params), kOk);
    EXPECT_FALSE(vmtest::SamePixels(first, src));
    vmtest::ForEachLevelAndSplit([&](const std::string& label) {
        COLImage again;
        ASSERT_EQ(ExemplarInpaint(src, mask, again, params), kOk);
        EXPECT_TRUE(vmtest::SamePixels(again, first)) << label;
    });
    COLImage inPlace = vmtest::Copy(src);
    ASSERT_EQ(ExemplarInpaint(inPlace, mask, inPlace, params), kOk);
    EXPECT_TRUE(vmtest::SamePixels(inPlace, first));
}

TEST(ExemplarInpaint, HoleOnTheBorderIsFilledFromThePicture)
{
    const COLImage truth = EdgePicture();
    COLImage result;
    const COLChannel mask = DiscMask(kSide, 0, 70, 16); // cut by the left edge
    ASSERT_NO_FATAL_FAILURE(FillHole(truth, mask, result));
    const CPixel* pixels = result.GetBuffer();
    EXPECT_EQ(std::count(pixels, pixels + result.GetPixelCount(), vmtest::Rgb(255, 0, 255)), 0); // colours only
    EXPECT_LT(HoleError(result, truth, mask), 60.0);
}

TEST(ExemplarInpaint, RefusesWhatItCannotFillAndLeavesTheDestination)
{
    COLImage src = vmtest::Noise(40, 30, 3), dst = vmtest::Noise(5, 5, 4);
    COLImage before = vmtest::Copy(dst);
    COLChannel mask;
    ExemplarInpaintParams params;
    params.mask = &mask;
    CExemplarInpaintProcess process;
    process.SetImages(&src, &dst);

    mask = vmtest::Plane(41, 30, 0); // another size
    EXPECT_EQ(process.Process(&params), kExemplarCannotFill);

    mask = vmtest::Plane(40, 30, 0); // a hole of more than a fifth: 241 of 1200 pixels
    std::memset(mask.GetBuffer(), 255, 241);
    EXPECT_EQ(process.Process(&params), kExemplarCannotFill);
    std::memset(mask.GetBuffer(), 128, mask.GetAreaByteSize()); // the whole picture
    EXPECT_EQ(process.Process(&params), kExemplarCannotFill);
    EXPECT_TRUE(vmtest::SamePixels(dst, before));

    params.patchRadius = 0;
    std::memset(mask.GetBuffer(), 127, mask.GetAreaByteSize()); // 127 is not a hole
    EXPECT_EQ(process.Process(&params), kFail);
    params.patchRadius = 3;
    EXPECT_EQ(process.Process(nullptr), kFail);
    ExemplarInpaintParams noMask;
    EXPECT_EQ(process.Process(&noMask), kFail);
    EXPECT_TRUE(vmtest::SamePixels(dst, before));

    // An empty hole is a copy.
    EXPECT_EQ(process.Process(&params), kOk);
    EXPECT_TRUE(vmtest::SamePixels(dst, src));
}

TEST(ExemplarInpaint, ReportsProgressAndStopsOnCancel)
{
    COLImage src = EdgePicture(), dst;
    const COLChannel mask = DiscMask(kSide, 50, 40, 10);
    ExemplarInpaintParams params;
    params.mask = &mask;
    vmtest::ProgressLog log;
    const std::vector<int>& progress = log.values;
    CExemplarInpaintProcess process;
    process.SetImages(&src, &dst);
    process.SetProgressCallback(log.Callback());
    process.SetProgressRange(10, 30);
    ASSERT_EQ(process.Process(&params), kOk);
    ASSERT_GE(progress.size(), 4u);
    EXPECT_TRUE(vmtest::RisesTo(progress, 10, 30));
    EXPECT_FALSE(process.WasCancelled());

    COLImage untouched = vmtest::Noise(3, 3, 1);
    COLImage before = vmtest::Copy(untouched);
    process.SetImages(&src, &untouched);
    process.RequestCancel();
    EXPECT_EQ(process.Process(&params), kFail);
    EXPECT_TRUE(process.WasCancelled());
    EXPECT_TRUE(vmtest::SamePixels(untouched, before));
}

} // namespace
