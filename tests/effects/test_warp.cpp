#include <cmath>
#include <gtest/gtest.h>
#include <limits>

#include "matting/warp.h"
#include "support/pictures.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

double P(const double (&c)[6], double a, double b)
{
    return c[0] * a * a + c[1] * b * b + c[2] * a * b + c[3] * a + c[4] * b + c[5];
}

// Mode 0, one pixel, straight from the rules.
CPixel RefNormalised(const COLImage& s, const WarpParams& p, int x, int y)
{
    const double X = P(p.xCoef, double(x) / p.width, double(y) / p.height);
    const double Y = P(p.yCoef, double(x) / p.width, double(y) / p.height);
    const int ix = int(X), iy = int(Y);
    CPixel q[4] = {p.fillColour, p.fillColour, p.fillColour, p.fillColour};
    if (ix >= 0 && ix <= int(s.GetWidth()) - 2 && iy >= 0 && iy <= int(s.GetHeight()) - 2) {
        q[0] = s.GetPixel2(ix, iy);
        q[1] = s.GetPixel2(ix + 1, iy);
        q[2] = s.GetPixel2(ix, iy + 1);
        q[3] = s.GetPixel2(ix + 1, iy + 1);
    }
    const int fx = int((X - ix) * 255.0), fy = int((Y - iy) * 255.0);
    uint8_t v[3];
    for (int c = 0; c < 3; ++c) {
        const int a = (&q[0].blue)[c], b = (&q[1].blue)[c], d = (&q[2].blue)[c], e = (&q[3].blue)[c];
        const int top = (a * (255 - fx) + b * fx) >> 8, bottom = (d * (255 - fx) + e * fx) >> 8;
        v[c] = uint8_t((top * (255 - fy) + bottom * fy) >> 8);
    }
    return CPixel{v[0], v[1], v[2], 255};
}

// The other mode: floor (a whole value of 0 or below one lower), nearest edge pixel with alpha 0 outside.
CPixel RefPixel(const COLImage& s, const WarpParams& p, int x, int y)
{
    const int sw = int(s.GetWidth()), sh = int(s.GetHeight());
    const double a = x + p.originX, b = y + p.originY;
    const double X = sw * P(p.xCoef, a, b), Y = sh * P(p.yCoef, a, b);
    const int ix = int(X) - (X <= 0 ? 1 : 0), iy = int(Y) - (Y <= 0 ? 1 : 0);
    auto get = [&](int px, int py) {
        if (px >= 0 && px < sw && py >= 0 && py < sh) return s.GetPixel2(px, py);
        CPixel e = s.GetPixel2(std::clamp(px, 0, sw - 1), std::clamp(py, 0, sh - 1));
        e.alpha = 0;
        return e;
    };
    const CPixel q[4] = {get(ix, iy), get(ix + 1, iy), get(ix, iy + 1), get(ix + 1, iy + 1)};
    const int fx = int((X - ix) * 255.0), fy = int((Y - iy) * 255.0);
    uint8_t v[4];
    for (int c = 0; c < 4; ++c) {
        const int t = ((&q[0].blue)[c] * (255 - fx) + (&q[1].blue)[c] * fx) / 255;
        const int u = ((&q[2].blue)[c] * (255 - fx) + (&q[3].blue)[c] * fx) / 255;
        v[c] = uint8_t((t * (255 - fy) + u * fy) / 255);
    }
    return CPixel{v[0], v[1], v[2], v[3]};
}

WarpParams Params(int w, int h, uint32_t mode)
{
    WarpParams p{};
    p.width = w;
    p.height = h;
    p.mode = mode;
    p.fillColour = CPixel::Make(10, 200, 30, 77);
    return p;
}

void ExpectMatches(const COLImage& src, const WarpParams& p)
{
    const COLImage expected = vmtest::Picture(uint32_t(p.width), uint32_t(p.height), [&](uint32_t x, uint32_t y) {
        return p.mode ? RefPixel(src, p, int(x), int(y)) : RefNormalised(src, p, int(x), int(y));
    });
    for (unsigned threads : vmtest::kThreadCounts) {
        vmtest::ThreadCount tc(threads);
        CWarpProcess warp;
        COLImage out;
        warp.SetImages(const_cast<COLImage*>(&src), &out);
        ASSERT_EQ(warp.Process(&p), kOk);
        EXPECT_TRUE(vmtest::SamePixels(out, expected)) << "mode " << p.mode << " threads " << threads;
    }
}

TEST(Warp, NormalisedModeFollowsTheMapAndFillsOutside)
{
    COLImage src = vmtest::Noise(21, 17, 11);
    // A turn with a little bend, reaching outside the source at the corners (negative X just left of the picture
    // included, which extrapolates).
    WarpParams p = Params(25, 19, 0);
    const double x[6] = {3.0, -2.0, 1.5, 19.0, 4.0, -0.7}, y[6] = {-1.0, 2.5, -3.0, -3.5, 16.0, 1.2};
    std::copy(x, x + 6, p.xCoef);
    std::copy(y, y + 6, p.yCoef);
    ExpectMatches(src, p);
}

TEST(Warp, NormalisedIdentityLosesALittleAndFillsTheLastColumnAndRow)
{
    COLImage src = vmtest::Noise(12, 9, 3);
    for (size_t i = 0; i < src.GetPixelCount(); ++i)
        src.GetBuffer()[i].alpha = 0; // mode 0 is opaque anyway
    WarpParams p = Params(12, 9, 0);
    p.xCoef[3] = 12;
    p.yCoef[4] = 9;
    CWarpProcess warp;
    COLImage out;
    warp.SetImages(&src, &out);
    ASSERT_EQ(warp.Process(&p), kOk);
    for (uint32_t y = 0; y < 9; ++y)
        for (uint32_t x = 0; x < 12; ++x) {
            const CPixel o = out.GetPixel2(x, y), s = src.GetPixel2(x, y);
            EXPECT_EQ(o.alpha, 255);
            if (x == 11 || y == 8) { // the fill colour, through the same 255/256 losses
                auto lossy = [](int v) { return ((v * 255 >> 8) * 255) >> 8; };
                EXPECT_EQ(o.red, lossy(p.fillColour.red)) << x << "," << y;
                EXPECT_EQ(o.green, lossy(p.fillColour.green)) << x << "," << y;
            } else { // 255/256 twice: at most 2 below the source
                EXPECT_LE(s.red - o.red, 2);
                EXPECT_GE(s.red - o.red, 0);
            }
        }
}

TEST(Warp, PixelModeFadesOutAtTheEdges)
{
    COLImage src = vmtest::Noise(16, 12, 5);
    WarpParams p = Params(30, 22, 1);
    p.originX = -5;
    p.originY = -4;
    // Source fraction = pixel / 20 with a slight shear: the picture sits inside a border that fades out.
    p.xCoef[3] = 1.0 / 20;
    p.xCoef[4] = 0.004;
    p.yCoef[4] = 1.0 / 16;
    p.yCoef[0] = 0.0003;
    ExpectMatches(src, p);

    // X exactly 0 counts as floor -1 with a fraction of 255: the pixel is the edge pixel itself, fully.
    WarpParams edge = Params(1, 1, 1);
    edge.yCoef[5] = 0.5;
    ExpectMatches(src, edge);
    EXPECT_EQ(RefPixel(src, edge, 0, 0).red, src.GetPixel2(0, 6).red);
}

TEST(Warp, DegenerateRequestsAreRefused)
{
    COLImage src = vmtest::Noise(4, 4, 1), out;
    CWarpProcess warp;
    warp.SetImages(&src, &out);
    WarpParams p = Params(0, 4, 0);
    EXPECT_EQ(warp.Process(&p), kFail);
    p = Params(4, 20001, 0);
    EXPECT_EQ(warp.Process(&p), kFail);
    p = Params(4, 4, 0);
    p.xCoef[2] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(warp.Process(&p), kFail);
    p.xCoef[2] = std::numeric_limits<double>::infinity();
    EXPECT_EQ(warp.Process(&p), kFail);
    EXPECT_EQ(warp.Process(nullptr), kFail);
    warp.SetImages(&src, &src);
    p = Params(4, 4, 0);
    EXPECT_EQ(warp.Process(&p), kFail);
    EXPECT_EQ(src.GetWidth(), 4u);
    // Far outside is no failure: the fill colour, or the faded edge.
    warp.SetImages(&src, &out);
    p.xCoef[5] = 1e300;
    EXPECT_EQ(warp.Process(&p), kOk);
    EXPECT_EQ(out.GetPixel2(0, 0).green, ((200 * 255 >> 8) * 255) >> 8);
}

} // namespace
