#include "matting/warp.h"

#include <algorithm>
#include <cmath>

#include "runtime/parallel_for.h"

namespace {

// Truncation toward zero that stays defined far outside any picture; every value clamped here lies outside the
// source either way, so the result does not change.
int Trunc(double v)
{
    return static_cast<int>(std::clamp(v, -1.0e9, 1.0e9));
}

// The blend weight of a coordinate's fraction, in 255ths. Beyond one whole pixel the coordinate was clamped far
// outside the source, where both neighbours of a pair are the same colour and the weight cannot change the blend;
// holding it to one pixel keeps the products within int.
int Fraction(double d)
{
    return std::clamp(Trunc(d * 255.0), -255, 255);
}

bool Finite(const double (&c)[6])
{
    return std::all_of(c, c + 6, [](double v) { return std::isfinite(v); });
}

void NormalisedRow(const COLImage& src, CPixel* out, uint32_t y, const WarpParams& p)
{
    const int sw = int(src.GetWidth()), sh = int(src.GetHeight());
    const double t = double(y) / p.height;
    for (int x = 0; x < p.width; ++x) {
        const double u = double(x) / p.width;
        const double X = EvaluateWarpPolynomial(p.xCoef, u, t), Y = EvaluateWarpPolynomial(p.yCoef, u, t);
        const int ix = Trunc(X), iy = Trunc(Y);
        CPixel q[4];
        if (ix >= 0 && ix <= sw - 2 && iy >= 0 && iy <= sh - 2) {
            q[0] = src.GetPixel2(uint32_t(ix), uint32_t(iy));
            q[1] = src.GetPixel2(uint32_t(ix + 1), uint32_t(iy));
            q[2] = src.GetPixel2(uint32_t(ix), uint32_t(iy + 1));
            q[3] = src.GetPixel2(uint32_t(ix + 1), uint32_t(iy + 1));
        } else {
            q[0] = q[1] = q[2] = q[3] = p.fillColour;
        }
        // A point just left of or above the source (-1 < X < 0) truncates to 0 and gets a negative fraction:
        // the blend then extrapolates, and the byte keeps the low bits of the result.
        const int fx = Fraction(X - ix), fy = Fraction(Y - iy);
        auto channel = [&](int c) {
            const uint8_t* b0 = &q[0].blue + c;
            const uint8_t* b1 = &q[1].blue + c;
            const uint8_t* b2 = &q[2].blue + c;
            const uint8_t* b3 = &q[3].blue + c;
            const int top = (*b0 * (255 - fx) + *b1 * fx) >> 8;
            const int bottom = (*b2 * (255 - fx) + *b3 * fx) >> 8;
            return static_cast<uint8_t>((top * (255 - fy) + bottom * fy) >> 8);
        };
        out[x] = CPixel{channel(0), channel(1), channel(2), 255};
    }
}

// Floor as the pixel-coordinate mode takes it: a value of 0 or below that is whole counts one lower, with a
// fraction of 255.
int FloorAtZero(double v)
{
    int i = Trunc(v);
    if (v <= 0.0) i -= 1;
    return i;
}

void PixelRow(const COLImage& src, CPixel* out, uint32_t y, const WarpParams& p)
{
    const int sw = int(src.GetWidth()), sh = int(src.GetHeight());
    const double b = double(int64_t(y) + p.originY);
    auto at = [&](int x, int yy) {
        if (x >= 0 && x < sw && yy >= 0 && yy < sh) return src.GetPixel2(uint32_t(x), uint32_t(yy));
        CPixel edge = src.GetPixel2(uint32_t(std::clamp(x, 0, sw - 1)), uint32_t(std::clamp(yy, 0, sh - 1)));
        edge.alpha = 0;
        return edge;
    };
    for (int x = 0; x < p.width; ++x) {
        const double a = double(int64_t(x) + p.originX);
        const double X = sw * EvaluateWarpPolynomial(p.xCoef, a, b), Y = sh * EvaluateWarpPolynomial(p.yCoef, a, b);
        const int ix = FloorAtZero(X), iy = FloorAtZero(Y);
        const int fx = Fraction(X - ix), fy = Fraction(Y - iy);
        const CPixel q[4] = {at(ix, iy), at(ix + 1, iy), at(ix, iy + 1), at(ix + 1, iy + 1)};
        uint8_t v[4];
        for (int c = 0; c < 4; ++c) {
            const int b0 = (&q[0].blue)[c], b1 = (&q[1].blue)[c], b2 = (&q[2].blue)[c], b3 = (&q[3].blue)[c];
            const int top = (b0 * (255 - fx) + b1 * fx) / 255;
            const int bottom = (b2 * (255 - fx) + b3 * fx) / 255;
            v[c] = static_cast<uint8_t>((top * (255 - fy) + bottom * fy) / 255);
        }
        out[x] = CPixel{v[0], v[1], v[2], v[3]};
    }
}

} // namespace

double EvaluateWarpPolynomial(const double (&c)[6], double a, double b)
{
    return c[0] * a * a + c[1] * b * b + c[2] * a * b + c[3] * a + c[4] * b + c[5];
}

long CWarpProcess::Process(const void* params)
{
    if (CImageProcess::Process(params) != kOk || !params || m_pSrcImage == m_pDstImage) return kFail;
    const WarpParams p = *static_cast<const WarpParams*>(params);
    if (p.width < 1 || p.height < 1 || uint32_t(p.width) > kMaxImageSide || uint32_t(p.height) > kMaxImageSide)
        return kFail;
    if (!Finite(p.xCoef) || !Finite(p.yCoef)) return kFail;
    if (m_pDstImage->Create(uint32_t(p.width), uint32_t(p.height)) != kOk) return kFail;
    const COLImage& src = *m_pSrcImage;
    COLImage& dst = *m_pDstImage;
    vmpar::ParallelFor(size_t(p.height), 16, [&](size_t begin, size_t end, unsigned) {
        for (size_t y = begin; y < end; ++y) {
            if (p.mode == 0)
                NormalisedRow(src, dst.GetBuffer(0, uint32_t(y)), uint32_t(y), p);
            else
                PixelRow(src, dst.GetBuffer(0, uint32_t(y)), uint32_t(y), p);
        }
    });
    return kOk;
}
