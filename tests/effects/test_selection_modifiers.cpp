#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "effects/selection_modifiers.h"
#include "matting/gaussian.h"
#include "runtime/status.h"
#include "support/engine_checks.h"
#include "support/plain_masks.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;

// The square scan as written: every result byte the maximum (or minimum) over the clipped square around it. The
// minimum is the shared plain expansion of the inverted plane, inverted back.
Bytes PlainSquare(const COLChannel& src, int r, bool expand)
{
    const int w = int(src.GetWidth()), h = int(src.GetHeight());
    if (expand) return vmtest::PlainExpand(vmtest::Bytes(src), w, h, r);
    Bytes inverse = vmtest::Bytes(src);
    for (uint8_t& v : inverse)
        v = uint8_t(255 - v);
    Bytes out = vmtest::PlainExpand(inverse, w, h, r);
    for (uint8_t& v : out)
        v = uint8_t(255 - v);
    return out;
}

// Noise thinned into blobs, so that both directions see edges and flat parts.
COLChannel Blobs(uint32_t w, uint32_t h, uint32_t seed)
{
    COLChannel c = vmtest::NoisePlane(w, h, seed);
    uint8_t* p = c.GetBuffer();
    for (size_t i = 0; i < c.GetAreaByteSize(); ++i)
        p[i] = p[i] < 100 ? 0 : p[i] > 180 ? 255 : p[i];
    return c;
}

long Expand(const COLChannel& src, COLChannel& dst, int32_t amount)
{
    CExpandProcess process;
    process.SetChannels(const_cast<COLChannel*>(&src), &dst);
    return process.ProcessChannel(&amount);
}

Bytes Blurred(const COLChannel& src, double sigma)
{
    return vmtest::Bytes(vmtest::Blurred(src, sigma));
}

} // namespace

TEST(ExpandProcess, MatchesTheSquareScanAtEverySizeRadiusLevelAndSplit)
{
    const struct {
        uint32_t w, h;
        int r;
    } cases[] = {{1, 1, 1}, {7, 5, 1}, {7, 5, 3}, {40, 33, 2}, {40, 33, 10}, {300, 7, 32}, {9, 260, 5}, {5, 4, 100}};
    for (const auto& c : cases) {
        COLChannel src = Blobs(c.w, c.h, c.w * 31 + c.h);
        for (bool expand : {true, false}) {
            const Bytes expected = PlainSquare(src, c.r, expand);
            vmtest::ForEachLevelAndSplit([&](const std::string& label) {
                COLChannel dst;
                ASSERT_EQ(Expand(src, dst, expand ? c.r : -c.r), kOk);
                EXPECT_EQ(vmtest::Bytes(dst), expected)
                    << c.w << "x" << c.h << " r " << c.r << (expand ? " expand, " : " shrink, ") << label;
            });
        }
    }
}

TEST(ExpandProcess, WorksInPlaceAndCopiesForAmountZero)
{
    COLChannel plane = Blobs(33, 21, 4), copy = vmtest::Copy(plane);
    const Bytes expected = PlainSquare(copy, 4, false);
    ASSERT_EQ(Expand(plane, plane, -4), kOk);
    EXPECT_EQ(vmtest::Bytes(plane), expected);

    COLChannel zero;
    ASSERT_EQ(Expand(copy, zero, 0), kOk);
    EXPECT_EQ(vmtest::Bytes(zero), vmtest::Bytes(copy));
    COLChannel empty;
    EXPECT_EQ(Expand(empty, zero, 3), kFail) << "a source without pixels";
}

TEST(ExpandProcess, SquareCornersAndNoShrinkFromThePlaneEdge)
{
    const COLChannel dot = vmtest::PlaneOf(9, 9, [](uint32_t x, uint32_t y) { return x == 4 && y == 4 ? 255 : 0; });
    COLChannel grown;
    ASSERT_EQ(Expand(dot, grown, 2), kOk);
    const COLChannel square =
        vmtest::PlaneOf(9, 9, [](uint32_t x, uint32_t y) { return x >= 2 && x <= 6 && y >= 2 && y <= 6 ? 255 : 0; });
    EXPECT_EQ(vmtest::Bytes(grown), vmtest::Bytes(square));

    // The left half selected: shrinking moves only the inner edge.
    const COLChannel half = vmtest::PlaneOf(10, 4, [](uint32_t x, uint32_t) { return x < 5 ? 255 : 0; });
    COLChannel shrunk;
    ASSERT_EQ(Expand(half, shrunk, -2), kOk);
    const COLChannel inner = vmtest::PlaneOf(10, 4, [](uint32_t x, uint32_t) { return x < 3 ? 255 : 0; });
    EXPECT_EQ(vmtest::Bytes(shrunk), vmtest::Bytes(inner));
}

TEST(ExpandProcess, CancelFailsTheRun)
{
    COLChannel src = Blobs(64, 64, 2), dst;
    CExpandProcess process;
    process.SetChannels(&src, &dst);
    process.RequestCancel();
    const int32_t amount = 3;
    EXPECT_EQ(process.ProcessChannel(&amount), kFail);
}

TEST(FeatherProcess, EachStepAgainstItsPlainForm)
{
    COLChannel src = Blobs(37, 29, 8);
    for (int32_t radius : {0, 1, 3, 8})
        for (int32_t keep : {0, 1})
            for (int32_t shrink : {0, 1}) {
                // T: the source, or the source shrunk by one.
                const Bytes tBytes = shrink ? PlainSquare(src, 1, false) : vmtest::Bytes(src);
                const COLChannel t =
                    vmtest::PlaneOf(37, 29, [&](uint32_t x, uint32_t y) { return tBytes[y * 37 + x]; });
                Bytes expected = radius ? Blurred(t, radius) : tBytes;
                if (keep) {
                    const Bytes wide = Blurred(src, 4.0);
                    for (size_t i = 0; i < expected.size(); ++i) {
                        const int tv = wide[i];
                        const int w = tv <= 64 ? 0 : tv <= 127 ? (tv - 64) * 4 : 256;
                        expected[i] = uint8_t(((256 - w) * src.GetBuffer()[i] + w * expected[i]) >> 8);
                    }
                }
                COLChannel dst;
                CFeatherProcess process;
                process.SetChannels(&src, &dst);
                const FeatherRecord record{radius, keep, shrink};
                ASSERT_EQ(process.ProcessChannel(&record), kOk);
                EXPECT_EQ(vmtest::Bytes(dst), expected)
                    << "radius " << radius << " keep " << keep << " shrink " << shrink;
            }
}

TEST(FeatherProcess, RefusesRadiiOutsideItsRangeAndOnePlaneForBoth)
{
    COLChannel src = Blobs(8, 8, 1), dst;
    CFeatherProcess process;
    process.SetChannels(&src, &dst);
    for (int32_t radius : {-1, 9, 1000}) {
        const FeatherRecord record{radius, 0, 0};
        EXPECT_EQ(process.ProcessChannel(&record), kFail) << radius;
        EXPECT_TRUE(dst.IsNull());
    }
    process.SetChannels(&src, &src);
    const FeatherRecord record{2, 0, 0};
    EXPECT_EQ(process.ProcessChannel(&record), kFail);
}

TEST(FeatherPlane, IsTheSharedBlurAtHalfTheValueAndLeavesThePlaneOnRefusal)
{
    COLChannel plane = Blobs(50, 40, 3);
    const Bytes before = vmtest::Bytes(plane);
    for (int32_t bad : {0, -3, 1000}) {
        EXPECT_EQ(FeatherPlane(plane, bad), kFail) << bad;
        EXPECT_EQ(vmtest::Bytes(plane), before);
    }
    for (int32_t value : {1, 7, 20}) {
        COLChannel p = vmtest::Copy(plane);
        ASSERT_EQ(FeatherPlane(p, value), kOk);
        EXPECT_EQ(vmtest::Bytes(p), Blurred(plane, value * 0.5)) << value;
    }
}

TEST(ModifierSettings, DialogLimits)
{
    EXPECT_EQ(ExpandSettings::ClampAmount(0), 1);
    EXPECT_EQ(ExpandSettings::ClampAmount(-7), 1);
    EXPECT_EQ(ExpandSettings::ClampAmount(33), 32);
    EXPECT_EQ(ExpandSettings::ClampAmount(12), 12);
    ExpandSettings shrink{0, 5};
    EXPECT_EQ(shrink.ProcessAmount(), -5);
    EXPECT_STREQ(shrink.CaptionKey(), "selshink");
    EXPECT_STREQ(ExpandSettings{}.CaptionKey(), "expanddlg");
    EXPECT_EQ(FeatherSettings::SliderPosition(300), 256) << "a value above 256 leaves the slider at its end";
    EXPECT_EQ(FeatherSettings::SliderPosition(40), 40);
    EXPECT_FALSE(FeatherSettings::IsValid(1000));
    EXPECT_TRUE(FeatherSettings::IsValid(999));
    EXPECT_DOUBLE_EQ(FeatherSettings{9}.Sigma(), 4.5);
}
