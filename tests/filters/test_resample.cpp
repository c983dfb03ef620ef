#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "filters/resample.h"
#include "support/pictures.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

using vmtest::Bytes;
using vmtest::SimdCap;
using vmtest::ThreadCount;

uint8_t Byte(const COLImage& img, uint32_t x, uint32_t y, int c)
{
    return reinterpret_cast<const uint8_t*>(img.GetBuffer(x, y))[c];
}

// Plain renderings, one destination pixel at a time, straight from the arithmetic the functions promise.

// Box mean: a source index touches cells r*d/s .. (r*d+d)/s - 1, at least one.
bool Touches(int r, int s, int d, int cell)
{
    int first = r * d / s, end = (r * d + d) / s;
    if (end <= first) end = first + 1;
    return cell >= first && cell < end;
}

template <int Bpp>
std::vector<uint8_t> RefBox(const uint8_t* src, int stride, int sx, int sy, int sw, int sh, int dw, int dh)
{
    std::vector<uint8_t> out(size_t(dw) * dh * Bpp);
    for (int j = 0; j < dh; ++j)
        for (int i = 0; i < dw; ++i) {
            long sum[Bpp] = {}, n = 0;
            for (int y = 0; y < sh; ++y)
                for (int x = 0; x < sw; ++x)
                    if (Touches(y, sh, dh, j) && Touches(x, sw, dw, i)) {
                        for (int c = 0; c < Bpp; ++c) sum[c] += src[(sy + y) * stride + (sx + x) * Bpp + c];
                        ++n;
                    }
            for (int c = 0; c < Bpp; ++c) out[(size_t(j) * dw + i) * Bpp + c] = uint8_t(sum[c] / n);
        }
    return out;
}

std::vector<uint8_t> RefResampleImage(const COLImage& src, int sx, int sy, int sw, int sh, int dw, int dh)
{
    const uint8_t* s = reinterpret_cast<const uint8_t*>(src.GetBuffer());
    const int stride = int(src.GetWidth()) * 4;
    if (dw == 1 || dh == 1 || sw == 1 || sh == 1) return RefBox<4>(s, stride, sx, sy, sw, sh, dw, dh);
    std::vector<uint8_t> out(size_t(dw) * dh * 4);
    for (int j = 0; j < dh; ++j)
        for (int i = 0; i < dw; ++i) {
            long px = long(i) * (sw - 1) / (dw - 1), fx = (long(i) * (sw - 1) * 256 / (dw - 1)) & 255;
            if (px == sw - 1) {
                px = sw - 2;
                fx = 0;
            }
            const long py = long(j) * (sh - 1) / (dh - 1), fy = (long(j) * (sh - 1) * 256 / (dh - 1)) & 255;
            const bool lastRow = py == sh - 1;
            for (int c = 0; c < 4; ++c) {
                auto at = [&](long x, long y) { return long(s[(sy + y) * stride + (sx + x) * 4 + c]); };
                const long top = 2 * (((at(px, py) * (255 - fx)) >> 9) + ((at(px + 1, py) * fx) >> 9));
                long v;
                if (lastRow) {
                    v = 2 * ((top * (255 - fy)) >> 9);
                } else {
                    const long bottom = 2 * (((at(px, py + 1) * (255 - fx)) >> 9) + ((at(px + 1, py + 1) * fx) >> 9));
                    v = 2 * (((top * (255 - fy)) >> 9) + ((bottom * fy) >> 9));
                }
                v = std::min(v, 255L);
                if (c != 3) v = std::min(v + 2, 255L);
                out[(size_t(j) * dw + i) * 4 + c] = uint8_t(v);
            }
        }
    return out;
}

std::vector<uint8_t> RefResampleChannel(const COLChannel& src, int sx, int sy, int sw, int sh, int dw, int dh)
{
    const uint8_t* s = src.GetBuffer();
    const int stride = int(src.GetWidth());
    if (dw == 1 || dh == 1) return RefBox<1>(s, stride, sx, sy, sw, sh, dw, dh);
    std::vector<uint8_t> out(size_t(dw) * dh);
    for (int j = 0; j < dh; ++j)
        for (int i = 0; i < dw; ++i) {
            const long px = long(i) * (sw - 1) / (dw - 1), f = (long(i) * (sw - 1) * 256 / (dw - 1)) & 255;
            const long py = long(j) * (sh - 1) / (dh - 1), fy = (long(j) * (sh - 1) * 256 / (dh - 1)) & 255;
            auto at = [&](long x, long y) {
                // Beyond the rectangle's right edge the weight is 0; read inside so nothing leaves the picture.
                return long(s[(sy + y) * stride + sx + std::min(x, long(sw - 1))]);
            };
            long v = (((at(px, py) * (255 - f) + at(px + 1, py) * f) * (255 - fy)) >> 16);
            if (py != sh - 1) v += (((at(px, py + 1) * (255 - f) + at(px + 1, py + 1) * f) * fy) >> 16);
            out[size_t(j) * dw + i] = uint8_t(v);
        }
    return out;
}

// Area shrink: cell i of an axis ends at float(i + 1) * float(s / d), the last at s. A source index that ends
// beyond its cell's end gives t = trunc((end - boundary) * 1024) to the next cell and 1024 - t to its own.
struct RefAreaWeights {
    std::vector<std::vector<int>> w;   // w[cell][index]
};

RefAreaWeights RefAreaAxis(int s, int d)
{
    const float ratio = float(s) / float(d);
    std::vector<float> end(d);
    for (int i = 0; i < d; ++i) end[i] = i == d - 1 ? float(s) : float(i + 1) * ratio;
    RefAreaWeights r;
    r.w.assign(d, std::vector<int>(s, 0));
    for (int x = 0; x < s; ++x) {
        int c = 0;
        while (c < d - 1 && end[c] <= float(x)) ++c;
        int t = 0;
        if (float(x + 1) > end[c] && c < d - 1) t = int((float(x + 1) - end[c]) * 1024.0f);
        r.w[c][x] += 1024 - t;
        if (t) r.w[c + 1][x] += t;
    }
    return r;
}

template <int Bpp>
std::vector<uint8_t> RefShrink(const uint8_t* src, int stride, int sx, int sy, int sw, int sh, int dw, int dh)
{
    const RefAreaWeights wx = RefAreaAxis(sw, dw), wy = RefAreaAxis(sh, dh);
    const float rx = float(sw) / float(dw), ry = float(sh) / float(dh);
    const uint64_t divisor = uint64_t(rx * ry * 1024.0f);
    std::vector<uint8_t> out(size_t(dw) * dh * Bpp);
    for (int j = 0; j < dh; ++j)
        for (int i = 0; i < dw; ++i)
            for (int c = 0; c < Bpp; ++c) {
                uint64_t acc = 0;
                for (int y = 0; y < sh; ++y) {
                    if (!wy.w[j][y]) continue;
                    uint64_t row = 0;
                    for (int x = 0; x < sw; ++x) row += uint64_t(src[(sy + y) * stride + (sx + x) * Bpp + c]) * wx.w[i][x];
                    acc += (row * wy.w[j][y]) >> 10;
                }
                out[(size_t(j) * dw + i) * Bpp + c] = uint8_t(std::min<uint64_t>(acc / divisor, 255));
            }
    return out;
}

// A picture of the given rows, each value in all four bytes of its pixel.
COLImage Gray(std::initializer_list<std::initializer_list<int>> rows)
{
    const std::vector<std::vector<int>> v(rows.begin(), rows.end());
    return vmtest::Picture(uint32_t(v[0].size()), uint32_t(v.size()), [&](uint32_t x, uint32_t y) {
        const uint8_t g = uint8_t(v[y][x]);
        return CPixel{g, g, g, g};
    });
}

} // namespace

TEST(ResampleImage, HandComputedEnlargement)
{
    // Columns: 0 -> pos 0; 1 -> pos 0 with f 128; 2 -> pos 1 is the last column, pulled in to 0 with f 0.
    // Rows: 0 -> 0; 1 -> 0 with fy 128; 2 -> the last source row on its own.
    COLImage src = Gray({{100, 200}, {50, 250}}), dst;
    ASSERT_EQ(ResampleImage(&src, &dst, 3, 3), 1);
    const int colour[3][3] = {{98, 148, 98}, {74, 148, 74}, {48, 148, 48}};
    const int alpha[3][3] = {{96, 146, 96}, {72, 146, 72}, {46, 146, 46}};
    EXPECT_TRUE(vmtest::SamePixels(dst, vmtest::Picture(3, 3, [&](uint32_t x, uint32_t y) {
        const uint8_t c = uint8_t(colour[y][x]);
        return CPixel{c, c, c, uint8_t(alpha[y][x])};
    })));
}

TEST(ResampleImage, ZeroSideGivesOneWhitePixelWhateverTheSource)
{
    COLImage src = vmtest::Noise(5, 5, 1), dst;
    ASSERT_EQ(ResampleImage(&src, &dst, 4, 0), 1);
    ASSERT_EQ(vmtest::Size(dst), "1x1");
    EXPECT_EQ(dst.GetPixel(0, 0), 0xFFFFFFFFu);
    COLImage none;
    EXPECT_EQ(ResampleImage(nullptr, &dst, 0, 3), 1);
    EXPECT_EQ(ResampleImage(&none, &dst, 0, 0), 1);
    EXPECT_EQ(dst.GetPixel(0, 0), 0xFFFFFFFFu);
}

TEST(ResampleImage, BoxMeanWhenASideIsOne)
{
    // 5 -> 2: sources 0, 1, 2 land in cell 0 and 3, 4 in cell 1. 2 -> 5: source 0 covers cells 0-1, 1 covers 2-4.
    COLImage row = Gray({{10, 20, 31, 100, 201}}), dst;
    ASSERT_EQ(ResampleImage(&row, &dst, 2, 1), 1);
    EXPECT_TRUE(vmtest::SamePixels(dst, Gray({{(10 + 20 + 31) / 3, (100 + 201) / 2}})));
    COLImage two = Gray({{10, 200}});
    ASSERT_EQ(ResampleImage(&two, &dst, 5, 1), 1);
    EXPECT_TRUE(vmtest::SamePixels(dst, Gray({{10, 10, 200, 200, 200}})));
    // A single pixel fills any size exactly (alpha included: the box mean has no compensation).
    COLImage one = Gray({{77}});
    ASSERT_EQ(ResampleImage(&one, &dst, 4, 3), 1);
    EXPECT_TRUE(vmtest::SamePixels(dst, vmtest::Solid(4, 3, CPixel::FromWord(0x4D4D4D4D))));
}

TEST(ResampleImage, MatchesThePlainComputation)
{
    const int cases[][8] = {
        // src w, h, rect x, y, w, h, dst w, h
        {9, 7, 0, 0, -1, -1, 20, 15},   {9, 7, 0, 0, -1, -1, 4, 3},   {40, 30, 0, 0, -1, -1, 13, 29},
        {40, 30, 5, 3, 20, 11, 33, 7},  {40, 30, 5, 3, -1, -1, 9, 40}, {2, 2, 0, 0, -1, -1, 2, 2},
        {31, 17, 0, 0, -1, -1, 1, 9},   {31, 17, 3, 4, 1, 10, 6, 5},  {31, 17, 0, 16, -1, 1, 7, 3},
        {64, 48, 0, 0, -1, -1, 32, 24}, {50, 50, 10, 10, 30, 30, 100, 90},
    };
    uint32_t seed = 100;
    for (unsigned threads : {1u, 3u}) {
        ThreadCount tc(threads);
        for (int level = vmsimd::kPlain; level <= vmsimd::CurrentLevel(); ++level) {
        SimdCap cap(level);
        for (auto& c : cases) {
            COLImage src = vmtest::Noise(c[0], c[1], seed++), dst;
            ASSERT_EQ(ResampleImage(&src, &dst, c[6], c[7], c[2], c[3], c[4], c[5]), 1);
            const int sw = c[4] == -1 ? c[0] - c[2] : c[4], sh = c[5] == -1 ? c[1] - c[3] : c[5];
            ASSERT_EQ(Bytes(dst), RefResampleImage(src, c[2], c[3], sw, sh, c[6], c[7]))
                << c[0] << "x" << c[1] << " -> " << c[6] << "x" << c[7] << " threads " << threads << " level " << level;
        }
        }
    }
}

TEST(ResampleImage, RejectsWhatCannotBeDone)
{
    COLImage src = vmtest::Noise(10, 10, 2), dst, none;
    EXPECT_EQ(ResampleImage(&none, &dst, 5, 5), 0);
    EXPECT_EQ(ResampleImage(nullptr, &dst, 5, 5), 0);
    EXPECT_EQ(ResampleImage(&src, nullptr, 5, 5), 0);
    EXPECT_EQ(ResampleImage(&src, &dst, -3, 5), 0);
    EXPECT_EQ(ResampleImage(&src, &dst, 5, 5, 8, 0, 5, 5), 0);   // rectangle beyond the right edge
    EXPECT_EQ(ResampleImage(&src, &dst, 5, 5, -1, 0, 5, 5), 0);
    EXPECT_EQ(ResampleImage(&src, &dst, 5, 5, 0, 10, -1, -1), 0);
    EXPECT_EQ(ResampleImage(&src, &dst, int(kMaxImageSide) + 1, 5), 0);
    EXPECT_TRUE(dst.IsNull());   // nothing was made along the way
}

TEST(ResampleImage, SourceMayBeTheDestination)
{
    COLImage a = vmtest::Noise(23, 19, 5), b;
    ASSERT_EQ(ResampleImage(&a, &b, 40, 12), 1);
    ASSERT_EQ(ResampleImage(&a, &a, 40, 12), 1);
    EXPECT_TRUE(vmtest::SamePixels(a, b));
}

TEST(ResampleChannel, HandComputedAndMatchesThePlainComputation)
{
    // A plane of 255 comes out at 253 where a row is hit exactly ((255 * 255) * 255) >> 16, and 252 or 253
    // between rows, where two truncated terms add up.
    COLChannel flat, dst;
    flat = vmtest::Plane(4, 4, 255);
    ASSERT_EQ(ResampleChannel(&flat, &dst, 7, 9), 1);
    for (uint32_t i = 0; i < dst.GetAreaByteSize(); ++i) {
        ASSERT_GE(dst.GetBuffer()[i], 252);
        ASSERT_LE(dst.GetBuffer()[i], 253);
    }
    EXPECT_EQ(dst.GetValue(0, 0), 253);
    EXPECT_EQ(dst.GetValue(6, 8), 253);

    // No pull-in on a plane: the last column is the source's last column.
    COLChannel two;
    two.Create(2, 2);
    const uint8_t v[4] = {100, 200, 50, 250};
    std::memcpy(two.GetBuffer(), v, 4);
    ASSERT_EQ(ResampleChannel(&two, &dst, 3, 3), 1);
    EXPECT_EQ(dst.GetValue(2, 0), (200 * 255 * 255) >> 16);
    EXPECT_EQ(dst.GetValue(2, 2), (250 * 255 * 255) >> 16);
    EXPECT_EQ(dst.GetValue(1, 1), ((((100 * 127 + 200 * 128) * 127) >> 16) + (((50 * 127 + 250 * 128) * 128) >> 16)));

    const int cases[][8] = {
        {9, 7, 0, 0, -1, -1, 20, 15}, {40, 30, 0, 0, -1, -1, 13, 29}, {40, 30, 5, 3, 20, 11, 33, 7},
        {31, 17, 0, 0, -1, -1, 1, 9}, {31, 17, 3, 4, 1, 10, 6, 5},    {64, 48, 0, 0, -1, -1, 32, 24},
    };
    uint32_t seed = 7;
    for (unsigned threads : {1u, 4u}) {
        ThreadCount tc(threads);
        for (auto& c : cases) {
            COLChannel src = vmtest::NoisePlane(c[0], c[1], seed++);
            ASSERT_EQ(ResampleChannel(&src, &dst, c[6], c[7], c[2], c[3], c[4], c[5]), 1);
            const int sw = c[4] == -1 ? c[0] - c[2] : c[4], sh = c[5] == -1 ? c[1] - c[3] : c[5];
            ASSERT_EQ(Bytes(dst), RefResampleChannel(src, c[2], c[3], sw, sh, c[6], c[7]))
                << c[0] << "x" << c[1] << " -> " << c[6] << "x" << c[7];
        }
    }
    EXPECT_EQ(ResampleChannel(&two, &dst, 0, 5), 1);
    EXPECT_EQ(dst.GetAreaByteSize(), 1u);
    EXPECT_EQ(dst.GetValue(0, 0), 255);
}

TEST(ShrinkArea, HandComputedWeights)
{
    // 3 -> 2: the cell boundary is at 1.5, so pixel 1 splits 512 / 512; the divisor is trunc(1.5 * 1024) = 1536.
    COLImage row = Gray({{90, 30, 240}}), dst;
    ASSERT_EQ(ShrinkImageArea(&row, &dst, 2, 1), 1);
    EXPECT_TRUE(vmtest::SamePixels(dst, Gray({{(90 * 1024 + 30 * 512) / 1536, (30 * 512 + 240 * 1024) / 1536}})));
    // A whole factor is the plain block mean.
    COLImage block = Gray({{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}, {13, 14, 15, 16}});
    ASSERT_EQ(ShrinkImageArea(&block, &dst, 2, 2), 1);
    EXPECT_EQ(Byte(dst, 0, 0, 1), (1 + 2 + 5 + 6) / 4);
    EXPECT_EQ(Byte(dst, 1, 1, 3), (11 + 12 + 15 + 16) / 4);
    // Rows split the same way: 3 rows -> 2, the middle row halves between them.
    COLChannel col, out;
    col.Create(1, 3);
    const uint8_t v[3] = {200, 100, 0};
    std::memcpy(col.GetBuffer(), v, 3);
    ASSERT_EQ(ShrinkChannelArea(&col, &out, 1, 2), 1);
    EXPECT_EQ(out.GetValue(0, 0), ((200 * 1024) + ((100 * 1024 * 512) >> 10)) / 1536);
    EXPECT_EQ(out.GetValue(0, 1), ((100 * 1024 * 512) >> 10) / 1536);
}

TEST(ShrinkArea, MatchesThePlainComputation)
{
    const int cases[][8] = {
        {40, 30, 0, 0, -1, -1, 13, 7}, {40, 30, 0, 0, -1, -1, 40, 30}, {40, 30, 3, 2, 30, 21, 7, 9},
        {97, 61, 0, 0, -1, -1, 23, 19}, {64, 64, 0, 0, -1, -1, 16, 16}, {33, 45, 0, 0, -1, -1, 1, 1},
        {33, 45, 0, 0, -1, -1, 32, 44}, {120, 90, 0, 0, -1, -1, 37, 11}, {120, 90, 4, 6, 100, 72, 25, 12},
        {120, 90, 0, 0, -1, -1, 1, 90},  {120, 90, 1, 1, 117, 88, 39, 88},
    };
    uint32_t seed = 40;
    for (unsigned threads : {1u, 3u}) {
        ThreadCount tc(threads);
        for (auto& c : cases) {
            COLImage src = vmtest::Noise(c[0], c[1], seed), dst;
            COLChannel csrc = vmtest::NoisePlane(c[0], c[1], seed++), cdst;
            const int sw = c[4] == -1 ? c[0] - c[2] : c[4], sh = c[5] == -1 ? c[1] - c[3] : c[5];
            ASSERT_EQ(ShrinkImageArea(&src, &dst, c[6], c[7], c[2], c[3], c[4], c[5]), 1);
            ASSERT_EQ(Bytes(dst), RefShrink<4>(reinterpret_cast<const uint8_t*>(src.GetBuffer()), c[0] * 4, c[2], c[3],
                                               sw, sh, c[6], c[7]))
                << c[0] << "x" << c[1] << " -> " << c[6] << "x" << c[7] << " threads " << threads;
            ASSERT_EQ(ShrinkChannelArea(&csrc, &cdst, c[6], c[7], c[2], c[3], c[4], c[5]), 1);
            ASSERT_EQ(Bytes(cdst), RefShrink<1>(csrc.GetBuffer(), c[0], c[2], c[3], sw, sh, c[6], c[7]))
                << c[0] << "x" << c[1] << " -> " << c[6] << "x" << c[7] << " plane";
        }
    }
}

TEST(ShrinkArea, FlatPictureStaysFlatAndEnlargingFallsBackToBilinear)
{
    COLChannel flat, dst;
    flat = vmtest::Plane(101, 77, 180);
    ASSERT_EQ(ShrinkChannelArea(&flat, &dst, 30, 29), 1);
    for (uint32_t i = 0; i < dst.GetAreaByteSize(); ++i) {
        ASSERT_GE(dst.GetBuffer()[i], 179);
        ASSERT_LE(dst.GetBuffer()[i], 181);
    }
    COLImage src = vmtest::Noise(10, 10, 9), a, b;
    ASSERT_EQ(ShrinkImageArea(&src, &a, 20, 5), 1);
    ASSERT_EQ(ResampleImage(&src, &b, 20, 5), 1);
    EXPECT_TRUE(vmtest::SamePixels(a, b));
    EXPECT_EQ(ShrinkImageArea(&src, &a, 0, 5), 0);
}

TEST(SampleImageTwoPoint, FollowsTheFootprintEnds)
{
    // 4 -> 3 columns: footprints [0, 1.33), [1.33, 2.67), [2.67, 4); the right sample's weight is the fraction at
    // the right end, and the last column's right end lies beyond the source, so it is the last column alone.
    COLImage row = Gray({{0, 90, 180, 240}}), dst;
    ASSERT_EQ(SampleImageTwoPoint(&row, &dst, 3, 1), 1);
    const double rx = 4.0 / 3;
    const int w1a = int((rx - 1) * 256), w1b = int((2 * rx - 2) * 256);
    // The last column: x0 = 2 with weight 256, x1 clamped with weight 0.
    const int first = (0 * (256 - w1a) + 90 * w1a) >> 8, second = (90 * (256 - w1b) + 180 * w1b) >> 8;
    EXPECT_TRUE(vmtest::SamePixels(dst, Gray({{first, second, 180}})));

    // Rows: the top sample weighs what is left of the first row, trunc((1 - (p0 - y0)) * 256).
    COLImage col = Gray({{0}, {100}, {200}}), out;
    ASSERT_EQ(SampleImageTwoPoint(&col, &out, 1, 2), 1);
    // Row 0: p0 = 0, y0 = 0, y1 = 1, w0 = 256: the top sample alone. Row 1: p0 = 1.5, y0 = 1, y1 = 3 -> last
    // row 2, w0 = 128.
    EXPECT_TRUE(vmtest::SamePixels(out, Gray({{0}, {(200 * 128 + 100 * 128) >> 8}})));

    // Every pixel against the formula taken one pixel at a time: a whole factor (which picks the first pixel of
    // each block), a rectangle at a whole factor, odd ratios with and without a rectangle.
    const int cases[][8] = {{8, 6, 0, 0, 8, 6, 4, 3},
                            {8, 6, 4, 2, 4, 4, 2, 2},
                            {29, 23, 0, 0, 29, 23, 7, 3},
                            {29, 23, 4, 5, 20, 17, 9, 8},
                            {12, 9, 1, 1, 10, 7, 25, 20}};
    COLImage src;
    for (auto& c : cases) {
        vmtest::FillNoise(src, c[0], c[1], 12);
        ASSERT_EQ(SampleImageTwoPoint(&src, &dst, c[6], c[7], c[2], c[3], c[4], c[5]), 1);
        const double rx = double(c[4]) / c[6], ry = double(c[5]) / c[7];
        for (int j = 0; j < c[7]; ++j)
            for (int i = 0; i < c[6]; ++i) {
                const double px0 = i * rx + c[2], px1 = (i + 1) * rx + c[2];
                const double py0 = j * ry + c[3], py1 = (j + 1) * ry + c[3];
                int x0 = int(px0), x1 = int(px1), w1 = int((px1 - x1) * 256);
                if (x1 > c[2] + c[4] - 1) {
                    x1 = c[2] + c[4] - 1;
                    w1 = 0;
                }
                const int y0 = int(py0), y1 = std::min(int(py1), c[3] + c[5] - 1);
                const int w0 = int((1 - (py0 - y0)) * 256);
                for (int k = 0; k < 4; ++k) {
                    const int t = (Byte(src, x0, y0, k) * (256 - w1) + Byte(src, x1, y0, k) * w1) >> 8;
                    const int b = (Byte(src, x0, y1, k) * (256 - w1) + Byte(src, x1, y1, k) * w1) >> 8;
                    ASSERT_EQ(Byte(dst, i, j, k), (b * (256 - w0) + t * w0) >> 8) << i << "," << j;
                }
            }
    }
}
