// The refined matte: quality on composites whose alpha we know (tests/data/matting, refine_*), the colour
// estimate, determinism across thread counts, the coarse-to-fine path, refusals, cancel and progress.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "imaging/codec.h"
#include "runtime/parallel_for.h"
#include "matting/refined_matte.h"
#include "support/engine_checks.h"
#include "support/matting_checks.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

struct Case {
    std::string name, subject;
    uint32_t sx = 0, sy = 0;
};

std::vector<Case> LoadSet()
{
    std::vector<Case> cases;
    std::ifstream in(vmtest::DataPath("matting/refine_set.txt"));
    std::string line, bg;
    uint32_t bx = 0, by = 0;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        Case c;
        fields >> c.name >> c.subject >> c.sx >> c.sy >> bg >> bx >> by;
        cases.push_back(c);
    }
    return cases;
}

bool LoadGray(const std::string& path, COLChannel& out)
{
    const COLImage image = vmtest::Load(path);
    return !image.IsNull() && out.ExtractFrom(&image, 2);
}

struct Input {
    COLImage shot, subject;   // the composite; the subject photo (true colours at the crop)
    COLChannel truth, trimap;
};

bool LoadCase(const Case& c, int radius, Input& in)
{
    COLImageCodec codec;
    const std::string base = vmtest::DataPath("matting/refine_" + c.name);
    return codec.LoadFile((base + ".png").c_str(), &in.shot) && LoadGray(base + "_alpha.png", in.truth) &&
           LoadGray(base + "_t" + std::to_string(radius) + ".png", in.trimap) &&
           codec.LoadFile(vmtest::AssetPath("samples/" + c.subject).c_str(), &in.subject);
}

// Sum of |alpha - truth| / 255 over the picture, in whole pixels (the usual SAD of matting benchmarks).
double Sad(const COLChannel& a, const COLChannel& truth)
{
    double sum = 0;
    for (uint32_t i = 0; i < a.GetAreaByteSize(); ++i) sum += std::abs(int(a.GetBuffer()[i]) - truth.GetBuffer()[i]);
    return sum / 255.0;
}

// The solve gives the same alpha and colours at every vector level on one core and on several cores.
void ExpectSameBytesEverywhere(const Input& in, const RefinedMatteParams& params)
{
    std::vector<uint8_t> firstAlpha;
    COLImage firstFore;
    vmtest::ForEachLevelAndSplit([&](const std::string& label) {
        COLChannel alpha;
        COLImage fore;
        ASSERT_EQ(SolveRefinedMatte(in.shot, in.trimap, alpha, &fore, params), kOk) << label;
        if (firstAlpha.empty()) {
            firstAlpha = vmtest::Bytes(alpha);
            firstFore = vmtest::Copy(fore);
        }
        EXPECT_EQ(firstAlpha, vmtest::Bytes(alpha)) << label;
        EXPECT_TRUE(vmtest::SamePixels(firstFore, fore)) << label;
    });
}

const int kRadii[] = {3, 10, 24};
// Mean SAD per band width over the four pictures, a little above what the solver reaches today (about 323, 694
// and 2247), so that a change that makes mattes worse fails here. OpenCV's information-flow matting reaches 403,
// 1068 and 3579 on the same set (bench/eval_refine).
const double kCeiling[] = {360, 780, 2500};

TEST(RefinedMatte, QualityOnTheEvaluationSet)
{
    const auto cases = LoadSet();
    ASSERT_EQ(cases.size(), 4u);
    for (size_t r = 0; r < std::size(kRadii); ++r) {
        double ours = 0, nearest = 0;
        for (const Case& c : cases) {
            Input in;
            ASSERT_TRUE(LoadCase(c, kRadii[r], in)) << c.name;
            COLChannel alpha, base;
            ASSERT_EQ(SolveRefinedMatte(in.shot, in.trimap, alpha, nullptr, RefinedMatteParams{}), kOk);
            ASSERT_EQ(refinedmatte::NearestColourAlpha(in.shot, in.trimap, base), kOk);
            const double s = Sad(alpha, in.truth), b = Sad(base, in.truth);
            // Far better than projecting between the nearest known colours, on every picture.
            EXPECT_LT(s, b * 0.6) << c.name << " band " << kRadii[r];
            ours += s / double(cases.size());
            nearest += b / double(cases.size());
        }
        std::printf("band %2d: mean SAD %7.1f (nearest colour %7.1f)\n", kRadii[r], ours, nearest);
        EXPECT_LT(ours, kCeiling[r]) << "band " << kRadii[r];
    }
}

// Decontamination: where the subject is partly see-through (true alpha a quarter to three quarters), the estimated
// colour is much closer to the subject's true colour than the composite's is.
TEST(RefinedMatte, EstimatedColoursAreTheSubjectsNotTheBackgrounds)
{
    for (const Case& c : LoadSet()) {
        Input in;
        ASSERT_TRUE(LoadCase(c, 10, in)) << c.name;
        COLChannel alpha;
        COLImage fore;
        ASSERT_EQ(SolveRefinedMatte(in.shot, in.trimap, alpha, &fore, RefinedMatteParams{}), kOk);
        ASSERT_EQ(fore.GetWidth(), in.shot.GetWidth());
        double estimated = 0, composite = 0;
        size_t count = 0;
        for (uint32_t y = 0; y < in.shot.GetHeight(); ++y)
            for (uint32_t x = 0; x < in.shot.GetWidth(); ++x) {
                const int t = in.truth.GetValue(x, y), tri = in.trimap.GetValue(x, y);
                const CPixel f = fore.GetPixel2(x, y);
                EXPECT_EQ(f.alpha, alpha.GetValue(x, y));
                if (tri == 0 || tri == 255) {
                    // Known pixels keep the source's colour.
                    EXPECT_TRUE(f == in.shot.GetPixel2(x, y));
                    continue;
                }
                if (t < 64 || t > 191) continue;
                const CPixel truth = in.subject.GetPixel2(c.sx + x, c.sy + y), i = in.shot.GetPixel2(x, y);
                estimated += std::abs(f.red - truth.red) + std::abs(f.green - truth.green) +
                             std::abs(f.blue - truth.blue);
                composite += std::abs(i.red - truth.red) + std::abs(i.green - truth.green) +
                             std::abs(i.blue - truth.blue);
                ++count;
            }
        ASSERT_GT(count, 200u);
        std::printf("%-10s colour error per channel: estimated %.1f, composite %.1f\n", c.name.c_str(),
                    estimated / count / 3, composite / count / 3);
        EXPECT_LT(estimated, composite * 0.8) << c.name;
    }
}

// Two flat colours blended by a ramp across the band: the colour-line model holds exactly, so alpha is the ramp.
TEST(RefinedMatte, RecoversALinearBlendOfTwoColours)
{
    const uint32_t w = 64, h = 24;
    const int fr = 210, fg = 60, fb = 40, br = 30, bg = 90, bb = 200;
    // Subject on the left, background on the right, a 40-pixel ramp between.
    auto coverage = [](uint32_t x) { return std::clamp((52.0 - x) / 40.0, 0.0, 1.0); };
    const COLImage image = vmtest::Picture(w, h, [&](uint32_t x, uint32_t) {
        auto mix = [a = coverage(x)](int f, int b) { return uint8_t(a * f + (1 - a) * b + 0.5); };
        return CPixel::Make(mix(fr, br), mix(fg, bg), mix(fb, bb), 255);
    });
    const COLChannel truth = vmtest::PlaneOf(w, h, [&](uint32_t x, uint32_t) { return coverage(x) * 255 + 0.5; });
    const COLChannel trimap =
        vmtest::PlaneOf(w, h, [](uint32_t x, uint32_t) { return x < 8 ? 255 : (x >= 56 ? 0 : 128); });
    COLChannel alpha;
    COLImage fore;
    ASSERT_EQ(SolveRefinedMatte(image, trimap, alpha, &fore, RefinedMatteParams{}), kOk);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 8; x < 56; ++x) {
            ASSERT_NEAR(alpha.GetValue(x, y), truth.GetValue(x, y), 3) << x << "," << y;
            // and where the subject shows, its colour comes back
            if (truth.GetValue(x, y) >= 64) {
                const CPixel f = fore.GetPixel2(x, y);
                EXPECT_NEAR(f.red, fr, 12) << x;
                EXPECT_NEAR(f.blue, fb, 12) << x;
            }
        }
}

// The sampled estimate tries its colour pairs four at a time where the processor has the instructions for it,
// with the same arithmetic in the same order: the same bytes as the plain loop, alpha and colours, at every split
// too. Each picture with a band of 10; the last also with a wide band, where the half-size start is used.
TEST(RefinedMatte, SameBytesAtEveryVectorLevelAndThreadCount)
{
    const auto cases = LoadSet();
    ASSERT_EQ(cases.size(), 4u);
    const std::pair<size_t, int> runs[] = {{0, 10}, {1, 10}, {2, 10}, {3, 10}, {3, 24}};
    for (const auto& [index, radius] : runs) {
        const Case& c = cases[index];
        SCOPED_TRACE(c.name + " band " + std::to_string(radius));
        Input in;
        ASSERT_TRUE(LoadCase(c, radius, in));
        ExpectSameBytesEverywhere(in, RefinedMatteParams{});
    }
}

// The conjugate gradients split across cores: the same bytes at every thread count (its sums run over fixed
// blocks), and the same mattes as the default solver within the stop's tolerance, on every picture.
TEST(RefinedMatte, SplitSolveMatchesTheDefaultAndEveryThreadCount)
{
    const auto cases = LoadSet();
    ASSERT_EQ(cases.size(), 4u);
    RefinedMatteParams split;
    split.splitSolve = 1;
    // Both stop at a relative residual, not at the exact minimum, so they differ by a few per cent either way
    // (on a 24-pixel band: -3 % to +6 % per picture, the mean 1 % better when this was written).
    double mineMean = 0, theirsMean = 0;
    for (const Case& c : cases) {
        Input in;
        ASSERT_TRUE(LoadCase(c, 24, in)) << c.name;   // a wide band: the half-size start is used
        COLChannel reference, alpha;
        ASSERT_EQ(SolveRefinedMatte(in.shot, in.trimap, reference, nullptr, RefinedMatteParams{}), kOk);
        ASSERT_EQ(SolveRefinedMatte(in.shot, in.trimap, alpha, nullptr, split), kOk);
        const double mine = Sad(alpha, in.truth), theirs = Sad(reference, in.truth);
        EXPECT_LT(std::abs(mine - theirs), 0.08 * theirs) << c.name;
        EXPECT_LT(Sad(alpha, reference), 0.1 * theirs) << c.name;   // close pixel by pixel too, not just in sum
        mineMean += mine / double(cases.size());
        theirsMean += theirs / double(cases.size());
    }
    EXPECT_LT(mineMean, 1.01 * theirsMean);
    Input in;
    ASSERT_TRUE(LoadCase(cases[3], 24, in));
    ExpectSameBytesEverywhere(in, split);
}

TEST(RefinedMatte, RefusesBadInputAndLeavesOutputsAlone)
{
    COLImage image = vmtest::Noise(20, 10, 7), empty;
    COLChannel trimap = vmtest::NoisePlane(20, 10, 8), small, alpha;
    vmtest::FillNoise(small, 19, 10, 8);
    vmtest::FillNoise(alpha, 5, 5, 9);
    const uint8_t before = alpha.GetValue(2, 2);
    RefinedMatteParams params;
    EXPECT_EQ(SolveRefinedMatte(image, small, alpha, nullptr, params), kFail);
    EXPECT_EQ(SolveRefinedMatte(empty, trimap, alpha, nullptr, params), kFail);
    EXPECT_EQ(refinedmatte::NearestColourAlpha(image, small, alpha), kFail);
    params.epsilon = 0.5;
    EXPECT_EQ(SolveRefinedMatte(image, trimap, alpha, nullptr, params), kFail);
    params = RefinedMatteParams{};
    params.colourSweeps = 0;
    EXPECT_EQ(SolveRefinedMatte(image, trimap, alpha, nullptr, params), kFail);
    EXPECT_EQ(alpha.GetWidth(), 5u);
    EXPECT_EQ(alpha.GetValue(2, 2), before);

    CRefinedMatteProcess process;
    COLImage out;
    process.SetImages(&image, &out);
    RefinedMatteParams none;   // no trimap
    EXPECT_EQ(process.Process(&none), kFail);
    EXPECT_EQ(process.Process(nullptr), kFail);
    EXPECT_TRUE(out.IsNull());
}

// A trimap without unknown pixels is its own answer, and the colours stay the source's.
TEST(RefinedMatte, KnownEverywhereKeepsTrimapAndColours)
{
    COLImage image = vmtest::Noise(16, 12, 3);
    const COLChannel trimap = vmtest::PlaneOf(16, 12, [](uint32_t x, uint32_t y) { return (x + y) % 3 ? 255 : 0; });
    COLChannel alpha;
    COLImage fore;
    ASSERT_EQ(SolveRefinedMatte(image, trimap, alpha, &fore, RefinedMatteParams{}), kOk);
    EXPECT_EQ(0, std::memcmp(alpha.GetBuffer(), trimap.GetBuffer(), trimap.GetAreaByteSize()));
    EXPECT_TRUE(vmtest::SameColours(fore, image));
}

TEST(RefinedMatte, ProcessReportsInItsRangeDecontaminatesOnRequestAndCancels)
{
    const auto cases = LoadSet();
    ASSERT_FALSE(cases.empty());
    Input in;
    ASSERT_TRUE(LoadCase(cases[0], 10, in));
    RefinedMatteParams params;
    params.trimap = &in.trimap;

    vmtest::ProgressLog log;
    CRefinedMatteProcess process;
    process.SetProgressCallback(log.Callback());
    process.SetProgressRange(200, 300);
    COLImage out;
    process.SetImages(&in.shot, &out);
    ASSERT_EQ(process.Process(&params), kOk);
    ASSERT_GE(log.values.size(), 3u);
    EXPECT_TRUE(vmtest::RisesTo(log.values, 200, 300));

    COLChannel alpha;
    COLImage fore;
    ASSERT_EQ(SolveRefinedMatte(in.shot, in.trimap, alpha, &fore, RefinedMatteParams{}), kOk);
    EXPECT_TRUE(vmtest::SamePixels(out, fore));

    // Without decontamination: the same alpha over the source's own colours.
    params.decontaminate = 0;
    COLImage plain;
    process.SetImages(&in.shot, &plain);
    ASSERT_EQ(process.Process(&params), kOk);
    EXPECT_TRUE(vmtest::SameColours(plain, in.shot));
    for (uint32_t y = 0; y < plain.GetHeight(); ++y)
        for (uint32_t x = 0; x < plain.GetWidth(); ++x) ASSERT_EQ(plain.GetPixel2(x, y).alpha, alpha.GetValue(x, y));

    // A cancel stops the run and leaves the destination as it was.
    COLImage untouched = vmtest::Noise(3, 3, 1);
    process.SetImages(&in.shot, &untouched);
    process.RequestCancel();
    EXPECT_EQ(process.Process(&params), kFail);
    EXPECT_EQ(untouched.GetWidth(), 3u);
}

} // namespace
