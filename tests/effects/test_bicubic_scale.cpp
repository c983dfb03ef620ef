#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "effects/bicubic_scale.h"
#include "effects/image_size.h"
#include "filters/resample.h"
#include "imaging/codec.h"
#include "support/engine_checks.h"
#include "support/matting_checks.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

using Line = std::vector<uint8_t>;

// The scaling written out line by line, the way the filter is described: taps, two groups, pairwise merging
// with 8-bit ratios, the final float combination.
float Kernel(float x, float b, float c)
{
    if (x < 1.0f) return (12 - 9 * b - 6 * c) * x * x * x + (-18 + 12 * b + 6 * c) * x * x + (6 - 2 * b);
    if (x < 2.0f)
        return (-b - 6 * c) * x * x * x + (6 * b + 30 * c) * x * x + (-12 * b - 48 * c) * x + (8 * b + 24 * c);
    return 0.0f;
}

Line Blend(const Line& a, const Line& b, int p)
{
    Line out(a.size());
    for (size_t i = 0; i < a.size(); ++i)
        out[i] = uint8_t((a[i] * p + b[i] * (256 - p)) >> 8);
    return out;
}

struct Merged {
    Line line;
    int weight;
};

Merged MergeAll(const std::vector<Line>& lines, const std::vector<float>& weights)
{
    std::vector<Merged> level;
    for (size_t k = 0; k < lines.size(); k += 2) {
        if (k + 1 < lines.size()) {
            const float s = weights[k] + weights[k + 1];
            const int p = s > 0.0f ? int(256.0f * weights[k] / s) : 256;
            level.push_back({Blend(lines[k], lines[k + 1], p), int(s * 256.0f)});
        } else {
            level.push_back({lines[k], int(weights[k] * 256.0f)});
        }
    }
    while (level.size() > 1) {
        std::vector<Merged> next;
        for (size_t k = 0; k < level.size(); k += 2) {
            if (k + 1 < level.size()) {
                const int s = level[k].weight + level[k + 1].weight;
                const int p = s > 0 ? 256 * level[k].weight / s : 256;
                next.push_back({Blend(level[k].line, level[k + 1].line, p), s});
            } else {
                next.push_back(level[k]);
            }
        }
        level = std::move(next);
    }
    return level[0];
}

std::vector<Line> RefScaleLines(const std::vector<Line>& src, uint32_t dstLines, float b, float c)
{
    const uint32_t srcLines = uint32_t(src.size());
    const float r = float(srcLines) / float(dstLines);
    const float w = r > 1.0f ? 1.05f * r : 1.0f;
    std::vector<Line> out;
    for (uint32_t i = 0; i < dstLines; ++i) {
        const float centre = r * float(i);
        const int lo = int(std::max(centre - 2.0f * w, 0.0f)),
                  hi = int(std::min(centre + 2.0f * w, float(srcLines - 1)));
        if (hi - lo + 1 < 2) {
            out.push_back(src[size_t(lo)]);
            continue;
        }
        std::vector<Line> pl, nl;
        std::vector<float> pw, nw;
        for (int t = lo; t <= hi; ++t) {
            const float k = Kernel(std::fabs(float(t) - centre) / w, b, c);
            if (k > 0.0f) {
                pl.push_back(src[size_t(t)]);
                pw.push_back(k);
            } else {
                nl.push_back(src[size_t(t)]);
                nw.push_back(-k);
            }
        }
        const Merged p = MergeAll(pl, pw);
        if (nl.empty()) {
            out.push_back(p.line);
            continue;
        }
        const Merged n = MergeAll(nl, nw);
        const float fp = float(p.weight) / float(p.weight - n.weight),
                    fn = float(n.weight) / float(p.weight - n.weight);
        Line o(p.line.size());
        for (size_t j = 0; j < o.size(); ++j) {
            const int v = int(float(p.line[j]) * fp - float(n.line[j]) * fn + 0.5f);
            o[j] = uint8_t(std::clamp(v, 0, 255));
        }
        out.push_back(o);
    }
    return out;
}

// Whole picture: rows, then columns, with the filter chosen by the widths.
COLImage RefBicubic(const COLImage& src, uint32_t w, uint32_t h)
{
    const uint32_t sw = src.GetWidth(), sh = src.GetHeight();
    const bool narrower = w < sw;
    const float b = narrower ? 0.13f : 0.33f, c = narrower ? 1.25f : 0.73f;
    std::vector<Line> rows(sh);
    for (uint32_t y = 0; y < sh; ++y) {
        const uint8_t* p = reinterpret_cast<const uint8_t*>(src.GetBuffer(0, y));
        rows[y].assign(p, p + size_t(sw) * 4);
    }
    const std::vector<Line> vertical = RefScaleLines(rows, h, b, c);
    std::vector<Line> columns(sw, Line(size_t(h) * 4));
    for (uint32_t x = 0; x < sw; ++x)
        for (uint32_t y = 0; y < h; ++y)
            std::memcpy(&columns[x][size_t(y) * 4], &vertical[y][size_t(x) * 4], 4);
    const std::vector<Line> horizontal = RefScaleLines(columns, w, b, c);
    COLImage out;
    out.Create(w, h);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            std::memcpy(out.GetBuffer(x, y), &horizontal[x][size_t(y) * 4], 4);
    return out;
}

// The run works in bands of result rows, split over the pool: heights on and beside multiples of the band, one row,
// one column, strong reductions (deep merge trees whose scratch lines are reused) and enlargements.
TEST(BicubicScale, MatchesThePlainFilterAtEverySizeSplitAndInstructionSet)
{
    COLImage small = vmtest::Noise(37, 29, 7), large = vmtest::Noise(61, 45, 11);
    const struct {
        COLImage* src;
        uint32_t w, h;
    } cases[] = {{&small, 18, 14}, {&small, 80, 61}, {&small, 37, 60},  {&small, 20, 29}, {&small, 100, 9},
                 {&small, 1, 1},   {&small, 2, 70},  {&large, 130, 32}, {&large, 20, 33}, {&large, 1, 16},
                 {&large, 61, 1},  {&large, 7, 97},  {&large, 3, 2}};
    for (const auto& [src, w, h] : cases) {
        const COLImage expected = RefBicubic(*src, w, h);
        for (int level : {0, 1, 2})
            for (unsigned threads : {1u, 2u, 3u, 5u, 7u}) {
                vmtest::SimdCap cap(level);
                vmtest::ThreadCount tc(threads);
                CBicubicScaleProcess process;
                COLImage out;
                process.SetImages(src, &out);
                const BicubicScaleParams params{w, h};
                ASSERT_EQ(process.Process(&params), kOk);
                EXPECT_TRUE(vmtest::SamePixels(out, expected))
                    << w << "x" << h << " level " << level << " threads " << threads;
            }
    }
}

TEST(BicubicScale, WidthAloneChoosesTheFilter)
{
    // Halving the width while doubling the height takes the reduction filter for both passes.
    COLImage src = vmtest::Noise(40, 20, 3);
    const COLImage expected = RefBicubic(src, 20, 40);
    COLImage out;
    ASSERT_EQ(ScaleImage(src, out, 20, 40, kScaleBicubic), 1);
    EXPECT_TRUE(vmtest::SamePixels(out, expected));
    // Again into the target that now has the size, and in place.
    vmtest::FillNoise(out, 20, 40, 8);
    ASSERT_EQ(ScaleImage(src, out, 20, 40, kScaleBicubic), 1);
    EXPECT_TRUE(vmtest::SamePixels(out, expected));
    ASSERT_EQ(ScaleImage(src, src, 20, 40, kScaleBicubic), 1);
    EXPECT_TRUE(vmtest::SamePixels(src, expected));
}

TEST(BicubicScale, OwnSizeCopiesAndBadTargetsAreRefused)
{
    COLImage src = vmtest::Noise(9, 5, 1), out;
    CBicubicScaleProcess process;
    process.SetImages(&src, &out);
    BicubicScaleParams same{9, 5};
    ASSERT_EQ(process.Process(&same), kOk);
    EXPECT_TRUE(vmtest::SamePixels(out, src));
    BicubicScaleParams zero{0, 5}, huge{20001, 5};
    EXPECT_EQ(process.Process(&zero), kFail);
    EXPECT_EQ(process.Process(&huge), kFail);
    EXPECT_EQ(process.Process(nullptr), kFail);
}

// Bands run in parallel; only the calling thread's part reports, so the values climb to 100 and never go back.
TEST(BicubicScale, ProgressClimbsToTheEnd)
{
    COLImage src = vmtest::Noise(40, 30, 2);
    for (unsigned threads : {1u, 3u}) {
        vmtest::ThreadCount tc(threads);
        vmtest::ProgressLog log;
        CBicubicScaleProcess process;
        process.SetProgressCallback(log.Callback());
        process.SetProgressRange(0, 100);
        COLImage out;
        process.SetImages(&src, &out);
        const BicubicScaleParams params{70, 200};
        ASSERT_EQ(process.Process(&params), kOk);
        ASSERT_GE(log.values.size(), 3u) << threads;
        EXPECT_EQ(log.values.front(), 0);
        EXPECT_TRUE(vmtest::RisesTo(log.values, 0, 100)) << threads;
    }
}

TEST(ScaleImage, NearestTakesTheIntegerSourcePosition)
{
    const COLImage src = vmtest::Noise(7, 5, 2);
    COLImage out;
    // The tall one spans several bands of rows, whose rows repeat source rows across the bands' seams.
    for (unsigned threads : {1u, 3u})
        for (const auto& [w, h] : {std::pair{3, 11}, std::pair{14, 2}, std::pair{7, 5}, std::pair{9, 101}}) {
            vmtest::ThreadCount tc(threads);
            ASSERT_EQ(ScaleImage(src, out, w, h, kScaleNearest), 1);
            const COLImage expected = vmtest::Picture(uint32_t(w), uint32_t(h), [&](uint32_t x, uint32_t y) {
                return src.GetPixel2(x * 7 / uint32_t(w), y * 5 / uint32_t(h));
            });
            EXPECT_TRUE(vmtest::SamePixels(out, expected)) << w << "x" << h << ", " << threads << " threads";
        }
    // Sides below 1 are taken as 1.
    ASSERT_EQ(ScaleImage(src, out, 0, -3, kScaleNearest), 1);
    EXPECT_EQ(vmtest::Size(out), "1x1");
    EXPECT_EQ(ScaleImage(src, out, 20001, 4, kScaleNearest), 0);
}

// Colours are the codec's resample and alpha is the plane filter's, whether the two run in one pass (both sides
// at least 2; the large one is split over the pool) or apart, into a target that already has the size, or in
// place.
TEST(ScaleImage, BilinearResizesAlphaAsAPlane)
{
    const COLImage big = vmtest::Noise(230, 170, 4), thin = vmtest::Noise(1, 9, 5);
    const struct {
        const COLImage* src;
        int w, h;
    } cases[] = {{&big, 110, 300}, {&big, 920, 1360}, {&big, 115, 85}, {&big, 97, 170}, {&big, 70, 40},
                 {&big, 1, 9},     {&big, 40, 1},     {&thin, 3, 20},  {&thin, 1, 4}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.src->GetWidth()) + " to " + std::to_string(c.w) + "x" + std::to_string(c.h));
        COLImage expected; // the codec's colours with the plane filter's alpha
        COLImageCodec codec;
        ASSERT_TRUE(codec.Resample(c.src, &expected, c.w, c.h, 1));
        COLChannel alpha, scaled;
        alpha.ExtractFrom(c.src, 3);
        ASSERT_TRUE(ResampleChannel(&alpha, &scaled, c.w, c.h));
        for (size_t i = 0; i < expected.GetPixelCount(); ++i)
            expected.GetBuffer()[i].alpha = scaled.GetBuffer()[i];
        vmtest::ForEachLevelAndSplit([&](const std::string& label) {
            COLImage out;
            vmtest::FillNoise(out, uint32_t(c.w), uint32_t(c.h), 9); // a target of the size keeps its buffer
            ASSERT_EQ(ScaleImage(*c.src, out, c.w, c.h, kScaleBilinear), 1);
            EXPECT_TRUE(vmtest::SamePixels(out, expected)) << label;
        });
        COLImage same = vmtest::Copy(*c.src);
        ASSERT_EQ(ScaleImage(same, same, c.w, c.h, kScaleBilinear), 1);
        EXPECT_TRUE(vmtest::SamePixels(same, expected)) << "in place";
    }
}

TEST(ScaleImage, UnknownMethodLeavesTheTargetAlone)
{
    const COLImage src = vmtest::Noise(4, 4, 5);
    COLImage out = vmtest::Noise(2, 3, 6);
    COLImage before = vmtest::Copy(out);
    EXPECT_EQ(ScaleImage(src, out, 8, 8, 3), 1);
    EXPECT_TRUE(vmtest::SamePixels(out, before));
}

TEST(ImageSizeDialog, LinkedSidesAndCanvasMargins)
{
    EXPECT_EQ(LinkedSide(400, 800, 600, true), 300u);
    EXPECT_EQ(LinkedSide(300, 800, 600, false), 400u);
    EXPECT_EQ(LinkedSide(1, 1000, 10, true), 1u);         // 0 is forced up
    EXPECT_EQ(LinkedSide(20000, 10, 1000, true), 20000u); // and 2,000,000 down
    int w = 0, h = 0;
    CanvasSizeFromMargins(100, 50, 10, -5, 20, 0, w, h);
    EXPECT_EQ(std::make_pair(w, h), std::make_pair(130, 45));
    CanvasSizeFromMargins(100, 50, -60, -30, -60, -30, w, h); // adds up to less than 1
    EXPECT_EQ(std::make_pair(w, h), std::make_pair(1, 1));
}

} // namespace
