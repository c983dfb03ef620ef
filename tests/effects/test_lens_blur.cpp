#include <cmath>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "effects/lens_blur.h"
#include "effects/lens_blur_dialog.h"
#include "filters/resample.h"
#include "imaging/codec.h"
#include "matting/gaussian.h"
#include "support/engine_checks.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

// The lens blur written out tap by tap, the way it is described, on small pictures.
struct RefLensBlur {
    bool sticky = false; // the half-size pass, once needed

    COLImage Run(const COLImage& src, const COLChannel& depth, const COLChannel* mask, const COLChannel& aperture,
                 double radius, int threshold, int amplitude)
    {
        const int W = int(src.GetWidth()), H = int(src.GetHeight());
        COLImage dst = vmtest::Copy(src);
        uint8_t table[256];
        for (int v = 0; v < 256; ++v) {
            const int d = int(2 * radius * std::pow(v * 0.00392156862745098, 1.5));
            if (d > 63) sticky = true;
            table[v] = uint8_t(std::min(d, 255));
        }
        COLImage filled;
        const COLImage* run = &src;
        if (mask) {
            for (int i = 0; i < W * H; ++i) {
                CPixel q = src.GetBuffer()[i];
                q.alpha = 255;
                dst.GetBuffer()[i] = mask->GetBuffer()[i] <= 64 ? q : CPixel{0, 0, 0, 0};
            }
            filled = vmtest::Blurred(dst, radius * 1.25);
            for (int i = 0; i < W * H; ++i) {
                CPixel& f = filled.GetBuffer()[i];
                if (mask->GetBuffer()[i] > 64 && f.alpha > 16) {
                    f.red = uint8_t(std::min(f.red * 255 / f.alpha, 255));
                    f.green = uint8_t(std::min(f.green * 255 / f.alpha, 255));
                    f.blue = uint8_t(std::min(f.blue * 255 / f.alpha, 255));
                } else {
                    f = src.GetBuffer()[i];
                }
            }
            run = &filled;
        }
        std::vector<uint8_t> kernels(64 * 64 * 64, 0);
        COLImage shape, sized;
        shape.Create(64, 64);
        for (int i = 0; i < 64 * 64; ++i) {
            const uint8_t v = aperture.GetBuffer()[i];
            shape.GetBuffer()[i] = CPixel{v, v, v, v};
        }
        COLImageCodec codec;
        for (int n = 2; n <= 64; ++n) {
            codec.Resample(&shape, &sized, n, n, 1);
            for (int y = 0; y < n; ++y)
                for (int x = 0; x < n; ++x)
                    kernels[size_t(n - 1) * 4096 + size_t((64 - n) / 2 + y) * 64 + (64 - n) / 2 + x] =
                        sized.GetPixel2(x, y).red;
        }
        int curve[256];
        for (int i = 0; i < 256; ++i)
            curve[i] = i;
        if (threshold <= 254) {
            const int k = amplitude * 32 / (255 - threshold);
            for (int i = threshold; i < 256; ++i)
                curve[i] = (i - threshold) * k + i;
        }
        COLImage half;
        if (sticky) {
            COLImage hs;
            COLChannel hd;
            const int hw = (W + 1) / 2, hh = (H + 1) / 2;
            codec.Resample(run, &hs, hw, hh, 1);
            ShrinkChannelArea(&depth, &hd, hw, hh);
            RefLensBlur inner;
            half = inner.Run(hs, hd, nullptr, aperture, radius * 0.5, threshold, amplitude);
        }
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) {
                const int d = table[depth.GetValue(x, y)];
                if (d == 0) {
                    dst.PutPixel(x, y, run->GetPixel2(x, y));
                } else if (d >= 64) {
                    dst.PutPixel(x, y, half.GetPixel2(x / 2, y / 2));
                } else {
                    const uint8_t* plane = kernels.data() + size_t(d) * 4096;
                    const int r0 = std::max(32 - d, y < 32 ? 32 - y : 0), r1 = std::min({32 + d, 64, H + 32 - y});
                    const int c0 = std::max(32 - d, x < 32 ? 32 - x : 0), c1 = std::min({32 + d, 64, W + 32 - x});
                    long long s[3] = {0, 0, 0}, ws = 0;
                    for (int r = r0; r < r1; ++r)
                        for (int c = c0; c < c1; ++c) {
                            const int w = plane[r * 64 + c];
                            if (!w) continue;
                            const CPixel q = run->GetPixel2(x - 32 + c, y - 32 + r);
                            const bool bright = (3 * q.red + 6 * q.green + q.blue) / 10 > 220;
                            s[0] += w * (bright ? curve[q.blue] : q.blue);
                            s[1] += w * (bright ? curve[q.green] : q.green);
                            s[2] += w * (bright ? curve[q.red] : q.red);
                            ws += w;
                        }
                    if (ws)
                        dst.PutPixel(x, y,
                                     CPixel{uint8_t(std::min(s[0] / ws, 255LL)), uint8_t(std::min(s[1] / ws, 255LL)),
                                            uint8_t(std::min(s[2] / ws, 255LL)), 255});
                }
            }
        for (size_t i = 0; i < dst.GetPixelCount(); ++i)
            dst.GetBuffer()[i].alpha = 255;
        return dst;
    }
};

COLChannel ApertureFromSkin(int shape)
{
    COLImage picture;
    EXPECT_EQ(LoadAperturePicture(vmtest::AssetPath("skin/lenblur.png"), picture), "");
    COLChannel a;
    EXPECT_TRUE(ApertureShape(picture, shape, a));
    return a;
}

// A picture with bright spots, so that the highlight curve has work.
COLImage Photo(uint32_t w, uint32_t h, uint32_t seed)
{
    COLImage img = vmtest::Noise(w, h, seed);
    for (uint32_t i = 0; i < img.GetPixelCount(); i += 7)
        img.GetBuffer()[i] = CPixel::Make(250, 240, 235 - uint8_t(i % 20), 9);
    return img;
}

long RunProcess(CLensBlurProcess& p, const COLImage& src, COLImage& out, const COLChannel& depth,
                const COLChannel* mask, const COLChannel& aperture, double radius, int threshold, int amplitude)
{
    LensBlurParams params;
    params.aperture.DuplicateFrom(&aperture);
    params.depth = &depth;
    params.mask = mask;
    params.radius = radius;
    params.highlightThreshold = threshold;
    params.highlightAmplitude = amplitude;
    p.SetImages(const_cast<COLImage*>(&src), &out);
    return p.Process(&params);
}

// Runs the blur at the plain and the AVX2 level and at every thread count, and compares with the reference.
template <class Run>
void ExpectAtEveryLevelAndThreadCount(const COLImage& expected, Run run)
{
    for (int level : {0, 2})
        for (unsigned threads : vmtest::kThreadCounts) {
            vmtest::SimdCap cap(level);
            vmtest::ThreadCount tc(threads);
            CLensBlurProcess p;
            COLImage out;
            ASSERT_EQ(run(p, out), kOk);
            EXPECT_TRUE(vmtest::SamePixels(out, expected)) << "level " << level << " threads " << threads;
        }
}

TEST(LensBlur, GatherMatchesTheTapByTapSumAtEveryThreadCountAndInstructionSet)
{
    const COLImage src = Photo(120, 90, 3);
    // Depth: random (a new diameter at nearly every pixel), and a ramp down the rows with a flat stretch in each
    // row, where eight neighbours of one diameter are gathered together.
    const COLChannel noisy = vmtest::NoisePlane(120, 90, 4),
                     ramp = vmtest::PlaneOf(120, 90, [](uint32_t x, uint32_t y) { return x < 100 ? 255 - y : x; });
    COLChannel random = vmtest::NoisePlane(64, 64, 5); // a ragged aperture: many short runs of weight
    struct Case {
        COLChannel aperture;
        const COLChannel* depth;
        double radius;
        int threshold, amplitude;
    };
    std::vector<Case> cases;
    cases.push_back({ApertureFromSkin(kApertureHexagon), &noisy, 10, 250, 40});
    cases.push_back({ApertureFromSkin(kApertureHexagon), &ramp, 13, 250, 40});
    cases.push_back({ApertureFromSkin(kApertureOctagon), &ramp, 6.5, 200, 100});
    cases.push_back({ApertureFromSkin(kApertureCircle), &ramp, 20, 230, 10});
    cases.push_back({std::move(random), &ramp, 12, 255, 100});
    for (const Case& c : cases) {
        RefLensBlur ref;
        const COLImage expected = ref.Run(src, *c.depth, nullptr, c.aperture, c.radius, c.threshold, c.amplitude);
        SCOPED_TRACE(testing::Message() << "radius " << c.radius);
        ExpectAtEveryLevelAndThreadCount(expected, [&](CLensBlurProcess& p, COLImage& out) {
            return RunProcess(p, src, out, *c.depth, nullptr, c.aperture, c.radius, c.threshold, c.amplitude);
        });
    }
}

// The gather builds prefix sums tile by tile. Wide discs straddle the inner tile edges and the picture's right
// and bottom edges, on a picture whose size is no multiple of the tile; between them small discs and runs of
// one diameter that a tile edge cuts.
TEST(LensBlur, TilesGiveTheBytesOfOneWholePicture)
{
    const int tw = CLensBlurProcess::kTileColumns, th = CLensBlurProcess::kTileRows;
    const uint32_t W = uint32_t(tw + 45), H = uint32_t(th + 21);
    const COLImage src = Photo(W, H, 31);
    COLChannel noise = vmtest::NoisePlane(W, H, 32);
    const COLChannel depth = vmtest::PlaneOf(W, H, [&](uint32_t x, uint32_t y) -> uint32_t {
        const bool wide = std::abs(int(x) - tw) < 40 || x + 30 >= W || std::abs(int(y) - th) < 12 || y + 6 >= H;
        if (!wide) return y % 3 ? 80 : noise.GetValue(x, y) / 4;
        return y % 5 ? 255 : noise.GetValue(x, y); // radius 31: diameter 62, or anything up to it
    });
    const COLChannel aperture = ApertureFromSkin(kApertureOctagon);
    RefLensBlur ref;
    const COLImage expected = ref.Run(src, depth, nullptr, aperture, 31, 240, 50);
    ExpectAtEveryLevelAndThreadCount(expected, [&](CLensBlurProcess& p, COLImage& out) {
        return RunProcess(p, src, out, depth, nullptr, aperture, 31, 240, 50);
    });
}

TEST(LensBlur, WideDiscsComeFromHalfSizePassesAndTheFlagSticks)
{
    const COLImage src = Photo(41, 29, 8);
    COLChannel depth = vmtest::NoisePlane(41, 29, 9);
    const COLChannel aperture = ApertureFromSkin(kApertureCircle);
    // Radius 64 reaches diameter 128: its half pass at 32 still exceeds 63 and recurses once more.
    for (double radius : {40.0, 64.0}) {
        RefLensBlur ref;
        const COLImage expected = ref.Run(src, depth, nullptr, aperture, radius, 230, 60);
        for (unsigned threads : {1u, 3u}) {
            vmtest::ThreadCount tc(threads);
            CLensBlurProcess p;
            COLImage out;
            ASSERT_EQ(RunProcess(p, src, out, depth, nullptr, aperture, radius, 230, 60), kOk);
            EXPECT_TRUE(p.NeedsHalfPass());
            EXPECT_TRUE(vmtest::SamePixels(out, expected)) << radius;
            // A later small run of the same object still makes the pass; the bytes do not change.
            COLImage small, fresh;
            ASSERT_EQ(RunProcess(p, src, small, depth, nullptr, aperture, 3, 230, 60), kOk);
            EXPECT_TRUE(p.NeedsHalfPass());
            CLensBlurProcess q;
            ASSERT_EQ(RunProcess(q, src, fresh, depth, nullptr, aperture, 3, 230, 60), kOk);
            EXPECT_FALSE(q.NeedsHalfPass());
            EXPECT_TRUE(vmtest::SamePixels(small, fresh));
        }
    }
}

TEST(LensBlur, ForegroundColoursAreReplacedBeforeTheBlur)
{
    const COLImage src = Photo(50, 40, 12);
    // Sharp at the left, wide discs at the right.
    const COLChannel depth = vmtest::PlaneOf(50, 40, [](uint32_t x, uint32_t) { return x * 5; });
    const COLChannel mask = vmtest::PlaneOf(
        50, 40, [](uint32_t x, uint32_t y) { return (x > 15 && x < 35 && y > 8) ? 255 : (x == 15 ? 64 : 0); });
    const COLChannel aperture = ApertureFromSkin(kApertureHexagon);
    RefLensBlur ref;
    const COLImage expected = ref.Run(src, depth, &mask, aperture, 8, 250, 20);
    ExpectAtEveryLevelAndThreadCount(expected, [&](CLensBlurProcess& p, COLImage& out) {
        return RunProcess(p, src, out, depth, &mask, aperture, 8, 250, 20);
    });
    // A mask of another size takes no part: the run is the one without it.
    COLChannel other = vmtest::Plane(10, 10, 255);
    CLensBlurProcess p, q;
    COLImage withOther, without;
    ASSERT_EQ(RunProcess(p, src, withOther, depth, &other, aperture, 8, 250, 20), kOk);
    ASSERT_EQ(RunProcess(q, src, without, depth, nullptr, aperture, 8, 250, 20), kOk);
    EXPECT_TRUE(vmtest::SamePixels(withOther, without));
}

// A cancel asked while the half-size pass or the gather runs ends the run with kFail; the request is used up, so
// the next run of the same object gives the full result.
TEST(LensBlur, ACancelEndsTheRunAndTheNextRunIsWhole)
{
    const COLImage src = Photo(64, 48, 21);
    COLChannel depth = vmtest::NoisePlane(64, 48, 22);
    const COLChannel aperture = ApertureFromSkin(kApertureHexagon);
    RefLensBlur ref;
    const COLImage expected = ref.Run(src, depth, nullptr, aperture, 40, 240, 30);
    struct Stopper {
        CLensBlurProcess* process;
        int at;
        int reports = 0;
    };
    // At 12 the half-size pass (10..30) is running, at 40 the gather.
    for (int at : {12, 40}) {
        CLensBlurProcess p;
        Stopper stopper{&p, at};
        p.SetProgressCallback({[](void* c, uint32_t, int32_t value) {
                                   auto* s = static_cast<Stopper*>(c);
                                   ++s->reports;
                                   if (value >= s->at) s->process->RequestCancel();
                               },
                               &stopper});
        p.SetProgressRange(0, 100);
        COLImage out;
        EXPECT_EQ(RunProcess(p, src, out, depth, nullptr, aperture, 40, 240, 30), kFail) << at;
        EXPECT_GT(stopper.reports, 0);
        p.SetProgressCallback({});
        ASSERT_EQ(RunProcess(p, src, out, depth, nullptr, aperture, 40, 240, 30), kOk) << at;
        EXPECT_TRUE(vmtest::SamePixels(out, expected)) << at;
    }
}

TEST(LensBlur, RefusesMissingOrMismatchedInputsAndIgnoresAnApertureOfAnotherSize)
{
    const COLImage src = Photo(30, 20, 2);
    COLImage before = vmtest::Copy(src), out;
    const COLChannel depth = vmtest::Plane(30, 20, 200), small = vmtest::Plane(29, 20, 200);
    const COLChannel aperture = ApertureFromSkin(kApertureCircle);
    CLensBlurProcess p;
    EXPECT_EQ(RunProcess(p, src, out, small, nullptr, aperture, 5, 250, 0), kFail);
    LensBlurParams none;
    p.SetImages(const_cast<COLImage*>(&src), &out);
    EXPECT_EQ(p.Process(&none), kFail); // no depth
    EXPECT_EQ(p.Process(nullptr), kFail);
    ASSERT_EQ(RunProcess(p, src, out, depth, nullptr, aperture, 5, 200, 100), kOk);
    EXPECT_TRUE(vmtest::SamePixels(src, before)); // its alpha too: the gray lives elsewhere

    // An aperture of another size is no failure: the picture is kept, but opaque.
    const COLChannel full = vmtest::Plane(30, 20, 255), wrong = vmtest::Plane(32, 32, 255);
    ASSERT_EQ(RunProcess(p, src, out, full, nullptr, wrong, 10, 250, 0), kOk);
    EXPECT_TRUE(vmtest::SameColours(out, src));
    EXPECT_EQ(vmtest::MaxAlphaDifference(out, vmtest::Solid(30, 20, CPixel::Make(0, 0, 0, 255))), 0);
}

} // namespace
