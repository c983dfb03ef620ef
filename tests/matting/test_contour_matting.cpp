#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <vector>

#include "matting/contour_matting.h"
#include "matting/gaussian.h"
#include "runtime/parallel_for.h"
#include "support/engine_checks.h"
#include "support/matting_checks.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

// ---------------------------------------------------------------------------------------------------------------
// A plain implementation, step by step as the method reads: no fused loops, the known plane kept apart, every
// marking pass done. The blur is the shared Gaussian, which has its own tests.

struct RefResult {
    bool ok = false;
    bool stalled = false;
    COLImage image;
    COLChannel doubt;
};

int Dist(CPixel a, CPixel b)
{
    const double dr = a.red - b.red, dg = a.green - b.green, db = a.blue - b.blue;
    return int(std::floor(std::sqrt(dr * dr + dg * dg + db * db)));
}

// Grows the colours of the known plane; gives up after maxSteps (a step count the method would exceed only by
// running for ever).
bool RefGrow(const COLImage& src, const COLChannel& known, const COLChannel& other, COLImage& result, int maxSteps)
{
    const uint32_t w = src.GetWidth(), h = src.GetHeight();
    const size_t n = size_t(w) * h;
    const double S = std::sqrt(double(w) * h);
    const double sigma = S * 0.007142857142857143, limit = S / 2;
    COLImage W = vmtest::Copy(src);
    COLChannel C = vmtest::Copy(known);
    int s = 0;
    for (int step = 0;; ++step) {
        if (step == maxSteps) return false;
        for (size_t i = 0; i < n; ++i) {
            if (C.GetBuffer()[i] != 0)
                W.GetBuffer()[i].alpha = 255;
            else
                W.GetBuffer()[i] = CPixel{0, 0, 0, 0};
        }
        COLImage R = vmtest::Blurred(W, sigma);
        size_t remaining = 0;
        for (size_t i = 0; i < n; ++i) {
            CPixel& p = R.GetBuffer()[i];
            const int a = p.alpha;
            if (a < 40) {
                p = CPixel{0, 0, 0, 0};
            } else if (C.GetBuffer()[i] >= 254) {
                p = W.GetBuffer()[i];
                p.alpha = 255;
            } else {
                p.red = uint8_t(std::min(255, p.red * 255 / a));
                p.green = uint8_t(std::min(255, p.green * 255 / a));
                p.blue = uint8_t(std::min(255, p.blue * 255 / a));
                p.alpha = 255;
            }
            if (known.GetBuffer()[i] == 0 && other.GetBuffer()[i] == 0 && p.alpha == 0) ++remaining;
        }
        W.DuplicateFrom(&R);
        for (size_t i = 0; i < n; ++i) C.GetBuffer()[i] = R.GetBuffer()[i].alpha;
        s = int(s + sigma);
        if (s > limit || remaining == 0) break;
    }
    result = vmtest::Blurred(W, 0.5);
    return true;
}

RefResult RefMatte(const COLImage& src, const COLChannel& innerPlane, const COLChannel& outerPlane, int maxSteps = 5000)
{
    RefResult r;
    COLChannel inner = vmtest::Copy(innerPlane), outer = vmtest::Copy(outerPlane);
    const size_t n = src.GetPixelCount();
    for (size_t i = 0; i < n; ++i) outer.GetBuffer()[i] = uint8_t(255 - outer.GetBuffer()[i]);
    COLImage F, B;
    if (!RefGrow(src, inner, outer, F, maxSteps) || !RefGrow(src, outer, inner, B, maxSteps)) {
        r.stalled = true;
        return r;
    }
    r.image.DuplicateFrom(&src);
    r.doubt.Create(src.GetWidth(), src.GetHeight());
    std::memset(r.doubt.GetBuffer(), 0, n);
    for (size_t i = 0; i < n; ++i) {
        const CPixel I = src.GetBuffer()[i];
        CPixel& d = r.image.GetBuffer()[i];
        if (inner.GetBuffer()[i]) {
            d = I;
            d.alpha = 255;
            continue;
        }
        if (outer.GetBuffer()[i]) {
            d = CPixel{0, 0, 0, 0};
            continue;
        }
        const int dFB = Dist(F.GetBuffer()[i], B.GetBuffer()[i]);
        const int dIB = Dist(I, B.GetBuffer()[i]);
        const int dIF = Dist(I, F.GetBuffer()[i]);
        int a;
        bool doubt = false;
        if (dIB + dIF == 0) {
            a = 255;
        } else if (dFB < 8) {
            a = dIB * 255 / (dIB + dIF);
            doubt = dIF > dFB;
        } else {
            a = (dIB * dIB - dIF * dIF + dFB * dFB) * 255 / (2 * dFB * dFB);
            if (dIF > dFB || dIB + dIF > 2 * dFB || a < 0) {
                doubt = true;
                a = a < 0 ? -a : a;
            }
        }
        if (doubt) r.doubt.GetBuffer()[i] = uint8_t(a);
        d = I;
        d.alpha = uint8_t(std::clamp(a, 0, 255));
    }
    r.ok = true;
    return r;
}

} // namespace

// The engine against the plain version, at two thread counts: large enough that the walk advances (sigma above
// 1), and a middle size where only a filled band ends the walk. A second case leaves the inner plane empty, so
// the subject's colours never arrive and the walk ends by its length.
TEST(ContourMatting, MatchesThePlainMethodByteForByte)
{
    struct Case {
        uint32_t w, h;
        int band;
        bool emptyInner;
    };
    for (const Case c : {Case{170, 150, 6, false}, Case{116, 100, 4, false}, Case{150, 140, 5, true}}) {
        vmtest::ContourScene s = vmtest::EllipseScene(c.w, c.h, c.band);
        if (c.emptyInner) std::memset(s.inner.GetBuffer(), 0, s.inner.GetAreaByteSize());
        const RefResult ref = RefMatte(s.photo, s.inner, s.outer);
        ASSERT_TRUE(ref.ok) << c.w;
        for (unsigned threads : {1u, 2u}) {
            vmtest::ThreadCount tc(threads);
            const vmtest::ContourMatteRun got = vmtest::ContourMatte(s.photo, s.inner, s.outer);
            ASSERT_EQ(got.code, kOk) << c.w;
            EXPECT_TRUE(vmtest::SamePixels(got.image, ref.image)) << c.w << " threads " << threads;
            EXPECT_EQ(vmtest::Bytes(got.doubt), vmtest::Bytes(ref.doubt)) << c.w << " threads " << threads;
        }
    }
}

// A subject of one colour on a background of another, the band holding pixels of either: the grown colours are
// those two but for the truncations of the normalising division, so band pixels come out nearly opaque or nearly
// clear, and their colours stay.
TEST(ContourMatting, BandPixelsOfTheTwoColoursBecomeOpaqueOrClear)
{
    const uint32_t w = 160, h = 150;
    const CPixel red = CPixel::Make(200, 30, 20), blue = CPixel::Make(20, 40, 210);
    const COLImage img = vmtest::Picture(w, h, [&](uint32_t x, uint32_t) { return x < 80 ? red : blue; });
    const COLChannel inner = vmtest::PlaneOf(w, h, [](uint32_t x, uint32_t) { return x < 70 ? 255 : 0; });
    const COLChannel outer = vmtest::PlaneOf(w, h, [](uint32_t x, uint32_t) { return x < 90 ? 255 : 0; });
    const vmtest::ContourMatteRun r = vmtest::ContourMatte(img, inner, outer);
    ASSERT_EQ(r.code, kOk);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            const size_t i = size_t(y) * w + x;
            const CPixel p = r.image.GetBuffer()[i];
            if (x >= 90) {
                EXPECT_EQ(p.Word(), 0u) << x << "," << y;
                continue;
            }
            EXPECT_TRUE(p == img.GetBuffer()[i]) << x << "," << y;
            if (x < 80)
                EXPECT_GE(p.alpha, 240) << x << "," << y;
            else
                EXPECT_LE(p.alpha, 15) << x << "," << y;
        }
}

TEST(ContourMatting, RefusesPlanesOfAnotherSizeAndAnEmptyBand)
{
    vmtest::ContourScene s = vmtest::EllipseScene(150, 140, 5);
    COLChannel small = vmtest::Plane(150, 139, 0);
    COLImage out;
    CContourMattingProcess p;
    p.SetImages(&s.photo, &out);
    ContourMattingParams params;
    params.innerPlane = &s.inner;
    params.outerPlane = &small;
    EXPECT_EQ(p.Process(&params), kFail);
    EXPECT_EQ(p.GetFailure(), CContourMattingProcess::Failure::kBadInput);
    params.outerPlane = nullptr;
    EXPECT_EQ(p.Process(&params), kFail);

    // Outer contour equal to the inner one: no unknown pixel. The outer plane has been inverted by then.
    COLChannel same = vmtest::Copy(s.inner);
    params.outerPlane = &same;
    EXPECT_EQ(p.Process(&params), kFail);
    EXPECT_EQ(p.GetFailure(), CContourMattingProcess::Failure::kNoBand);
    for (size_t i = 0; i < same.GetAreaByteSize(); ++i) ASSERT_EQ(same.GetBuffer()[i], 255 - s.inner.GetBuffer()[i]);
}

// Below about 140 x 140 the walk counter cannot advance. On a small picture nothing reaches alpha 40, and with an
// empty inner plane on a middle-sized one the subject's colours never come: either way the method would loop for
// ever, and the engine stops at the first step that changes nothing.
TEST(ContourMatting, EndsWhereTheWalkCannotAdvance)
{
    struct Case {
        uint32_t w, h;
        bool emptyInner;
    };
    for (const Case c : {Case{48, 36, false}, Case{90, 70, false}, Case{120, 110, true}}) {
        vmtest::ContourScene s = vmtest::EllipseScene(c.w, c.h, 4);
        if (c.emptyInner) std::memset(s.inner.GetBuffer(), 0, s.inner.GetAreaByteSize());
        // The plain method makes no progress here: it is still running after many steps.
        EXPECT_TRUE(RefMatte(s.photo, s.inner, s.outer, 300).stalled) << c.w;
        const auto start = std::chrono::steady_clock::now();
        const vmtest::ContourMatteRun r = vmtest::ContourMatte(s.photo, s.inner, s.outer);
        EXPECT_EQ(r.code, kFail) << c.w;
        EXPECT_EQ(r.failure, CContourMattingProcess::Failure::kStalled) << c.w;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    }
}

TEST(ContourMatting, ReportsItsProgressPointsInOrder)
{
    const vmtest::ContourScene s = vmtest::EllipseScene(170, 150, 6);
    vmtest::ProgressLog log;
    const std::vector<int>& seen = log.values;
    const vmtest::ContourMatteRun r = vmtest::ContourMatte(s.photo, s.inner, s.outer, &log);
    ASSERT_EQ(r.code, kOk);
    ASSERT_GE(seen.size(), 7u);
    EXPECT_EQ(std::vector<int>(seen.begin(), seen.begin() + 3), (std::vector<int>{2, 10, 15}));
    EXPECT_TRUE(vmtest::RisesTo(seen, 0, 100));
    for (int fixed : {50, 80}) EXPECT_NE(std::find(seen.begin(), seen.end(), fixed), seen.end()) << fixed;
    EXPECT_GT(r.growSteps[0], 0);
    EXPECT_GT(r.growSteps[1], 0);
}
