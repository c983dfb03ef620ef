#include "document/render_scale.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "imaging/image.h"
#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"

#if VM_SIMD_X86
#include <immintrin.h>
#endif

namespace {

// The source pixels one destination pixel covers along one axis, with their weights in 1/256 of a pixel.
struct Span {
    uint32_t first = 0;
    uint32_t count = 0;
    uint32_t weightsAt = 0; // index of the first weight
    uint32_t total = 0;     // sum of the weights
};

struct Axis {
    std::vector<Span> spans;
    std::vector<uint32_t> weights;
    bool unit = true; // every span is one pixel of weight 1
};

void BuildAxis(Axis& axis, int dstCount, double start, double step, int srcCount)
{
    axis.spans.assign(size_t(dstCount), Span{});
    axis.weights.clear();
    axis.unit = step <= 1.0;
    const long long last = srcCount - 1;
    for (int d = 0; d < dstCount; ++d) {
        Span& s = axis.spans[size_t(d)];
        s.weightsAt = uint32_t(axis.weights.size());
        if (axis.unit) {
            // Enlarged: the pixel under the centre of the destination pixel.
            const long long p =
                std::clamp<long long>(static_cast<long long>(std::floor(start + (d + 0.5) * step)), 0, last);
            s.first = uint32_t(p);
            s.count = 1;
            s.total = 1;
            axis.weights.push_back(1);
            continue;
        }
        const long long end = static_cast<long long>(srcCount) * 256;
        long long a = static_cast<long long>(std::floor((start + d * step) * 256.0));
        long long b = static_cast<long long>(std::floor((start + (d + 1) * step) * 256.0));
        a = std::clamp<long long>(a, 0, end - 1);
        b = std::clamp<long long>(b, a + 1, end);
        const long long first = a >> 8, lastCovered = (b - 1) >> 8;
        s.first = uint32_t(first);
        s.count = uint32_t(lastCovered - first + 1);
        for (long long p = first; p <= lastCovered; ++p) {
            const uint32_t w = uint32_t(std::min(b, (p + 1) * 256) - std::max(a, p * 256));
            axis.weights.push_back(w);
            s.total += w;
        }
    }
}

// Exact division of n by d for n < 256 * d, by one multiplication: with m = ceil(2^64 / d) = (2^64 + e) / d,
// e < d, n * m / 2^64 = n / d + n * e / (d * 2^64), and the second term stays below 1 / d while n * e < 2^64,
// which n < 2^8 * d and d < 2^28 make sure of. The fraction of n / d is at most (d - 1) / d, so the floor is the
// same. Larger divisors (reductions of thousands of pixels into one) divide plainly.
struct Divider {
    uint64_t d = 1;
    uint64_t m = 0; // 0: divide plainly

    explicit Divider(uint64_t divisor = 1) : d(divisor)
    {
        if (d >= 2 && d < (uint64_t(1) << 28)) m = UINT64_MAX / d + 1;
    }
    uint64_t operator()(uint64_t n) const
    {
        return m ? uint64_t((static_cast<unsigned __int128>(n) * m) >> 64) : n / d;
    }
};

// Sums `count` rows down each of `width` columns with the rows' weights, into the packed halves of br (blue,
// red) and ga (green, alpha). Integer sums, so every form below gives the same words.
void SumColumns(const CPixel* const* lines, const uint32_t* wy, uint32_t count, uint32_t width, uint64_t* br,
                uint64_t* ga, uint32_t from = 0)
{
    for (uint32_t x = from; x < width; ++x) {
        uint64_t sumBr = 0, sumGa = 0;
        for (uint32_t k = 0; k < count; ++k) {
            const uint64_t v = lines[k][x].Word();
            sumBr += ((v & 0xFF) | ((v & 0xFF0000) << 16)) * wy[k];
            sumGa += (((v >> 8) & 0xFF) | ((v & 0xFF000000) << 8)) * wy[k];
        }
        br[x] = sumBr;
        ga[x] = sumGa;
    }
}

#if VM_SIMD_X86
// Four columns at a time: masking a pixel's word to bytes 0 and 2 and widening its 16-bit halves to 32 bits lays
// blue and red (or, shifted by a byte first, green and alpha) out exactly as the packed 64-bit words hold them.
VM_TARGET_AVX2 void SumColumnsAvx2(const CPixel* const* lines, const uint32_t* wy, uint32_t count, uint32_t width,
                                   uint64_t* br, uint64_t* ga)
{
    const __m128i mask = _mm_set1_epi32(0x00FF00FF);
    uint32_t x = 0;
    for (; x + 4 <= width; x += 4) {
        __m256i sumBr = _mm256_setzero_si256(), sumGa = _mm256_setzero_si256();
        for (uint32_t k = 0; k < count; ++k) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lines[k] + x));
            const __m256i w = _mm256_set1_epi32(int(wy[k]));
            const __m256i brWide = _mm256_cvtepu16_epi32(_mm_and_si128(v, mask));
            const __m256i gaWide = _mm256_cvtepu16_epi32(_mm_and_si128(_mm_srli_epi32(v, 8), mask));
            sumBr = _mm256_add_epi32(sumBr, _mm256_mullo_epi32(brWide, w));
            sumGa = _mm256_add_epi32(sumGa, _mm256_mullo_epi32(gaWide, w));
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(br + x), sumBr);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(ga + x), sumGa);
    }
    _mm256_zeroupper(); // before the plain step, which the compiler may vectorise with SSE
    SumColumns(lines, wy, count, width, br, ga, x);
}
#endif

// Fills the destination pixels [dxBegin, dxEnd) x [dyBegin, dyEnd) of dst, which has the axes' size. Every pixel
// depends only on its own spans, so any part gives the same bytes as the whole, and rows may be split freely.
// fast: divides through Divider tables instead of dividing each channel (the same quotients).
void ScaleArea(const COLImage* src, COLImage* dst, const Axis& xs, const Axis& ys, int dxBegin, int dxEnd, int dyBegin,
               int dyEnd, bool fast)
{
    if (dxBegin >= dxEnd || dyBegin >= dyEnd) return;
    // The source columns the destination columns read.
    const uint32_t xFirst = xs.spans[size_t(dxBegin)].first;
    const uint32_t xEnd = xs.spans[size_t(dxEnd - 1)].first + xs.spans[size_t(dxEnd - 1)].count;
    const bool copy = xs.unit && ys.unit;
    [[maybe_unused]] const bool avx2 = fast && vmsimd::CurrentLevel() >= vmsimd::kAvx2;

    // The column weights' totals take few values (two neighbours and the edges'): one divider per value and row.
    std::vector<uint32_t> totals, totalIndex(size_t(dxEnd - dxBegin));
    if (fast && !copy)
        for (int dx = dxBegin; dx < dxEnd; ++dx) {
            const uint32_t t = xs.spans[size_t(dx)].total;
            auto it = std::find(totals.begin(), totals.end(), t);
            if (it == totals.end()) it = totals.insert(totals.end(), t);
            totalIndex[size_t(dx - dxBegin)] = uint32_t(it - totals.begin());
        }

    // Rows are independent, so the result does not depend on how they are split.
    vmpar::ParallelFor(size_t(dyEnd - dyBegin), 16, [&](size_t begin, size_t end, unsigned) {
        // Per source column, the rows of one destination row summed with their weights, two channels in each
        // word's 32-bit halves (blue and red, green and alpha): a span weighs at most 256 per pixel times 20000
        // pixels, so a half stays below 255 * 5120000 < 2^32 and never carries into the other.
        std::vector<uint64_t> columnsBr(copy ? 0 : xEnd - xFirst), columnsGa(copy ? 0 : xEnd - xFirst);
        std::vector<Divider> dividers(totals.size());
        std::vector<const CPixel*> lines;
        for (size_t row = begin; row < end; ++row) {
            const size_t dy = size_t(dyBegin) + row;
            CPixel* out = dst->GetBuffer(0, uint32_t(dy));
            const Span& sy = ys.spans[dy];
            if (copy) {
                const CPixel* line = src->GetBuffer(0, sy.first);
                for (int dx = dxBegin; dx < dxEnd; ++dx)
                    out[dx] = line[xs.spans[size_t(dx)].first];
                continue;
            }
            // Down the columns first, one weight per source row. Each column's sum stays in registers while
            // its few rows are read, so the sums are written once per destination row.
            const uint32_t width = xEnd - xFirst;
            uint64_t* br = columnsBr.data();
            uint64_t* ga = columnsGa.data();
            if (fast) {
                lines.resize(sy.count);
                for (uint32_t k = 0; k < sy.count; ++k)
                    lines[k] = src->GetBuffer(xFirst, sy.first + k);
                const uint32_t* wy = &ys.weights[sy.weightsAt];
#if VM_SIMD_X86
                if (avx2)
                    SumColumnsAvx2(lines.data(), wy, sy.count, width, br, ga);
                else
#endif
                    SumColumns(lines.data(), wy, sy.count, width, br, ga);
            } else {
                std::fill(columnsBr.begin(), columnsBr.end(), 0);
                std::fill(columnsGa.begin(), columnsGa.end(), 0);
                for (uint32_t k = 0; k < sy.count; ++k) {
                    const uint64_t wy = ys.weights[sy.weightsAt + k];
                    const CPixel* line = src->GetBuffer(xFirst, sy.first + k);
                    for (uint32_t x = 0; x < width; ++x) {
                        const uint64_t v = line[x].Word();
                        br[x] += ((v & 0xFF) | ((v & 0xFF0000) << 16)) * wy;
                        ga[x] += (((v >> 8) & 0xFF) | ((v & 0xFF000000) << 8)) * wy;
                    }
                }
            }
            for (size_t i = 0; i < totals.size(); ++i)
                dividers[i] = Divider(uint64_t(totals[i]) * sy.total);
            // Then across: each destination pixel weighs the columns it covers.
            for (int dx = dxBegin; dx < dxEnd; ++dx) {
                const Span& sx = xs.spans[size_t(dx)];
                const uint32_t* wx = &xs.weights[sx.weightsAt];
                const uint64_t* cbr = &br[sx.first - xFirst];
                const uint64_t* cga = &ga[sx.first - xFirst];
                uint64_t b = 0, g = 0, r = 0, a = 0;
                for (uint32_t i = 0; i < sx.count; ++i) {
                    b += (cbr[i] & 0xFFFFFFFFu) * wx[i];
                    r += (cbr[i] >> 32) * wx[i];
                    g += (cga[i] & 0xFFFFFFFFu) * wx[i];
                    a += (cga[i] >> 32) * wx[i];
                }
                // Dividing by the weights actually used keeps a flat colour exact; + total / 2 rounds.
                const uint64_t total = uint64_t(sx.total) * sy.total;
                const uint64_t half = total / 2;
                if (fast) {
                    const Divider& div = dividers[totalIndex[size_t(dx - dxBegin)]];
                    out[dx].blue = uint8_t(div(b + half));
                    out[dx].green = uint8_t(div(g + half));
                    out[dx].red = uint8_t(div(r + half));
                    out[dx].alpha = uint8_t(div(a + half));
                } else {
                    out[dx].blue = uint8_t((b + half) / total);
                    out[dx].green = uint8_t((g + half) / total);
                    out[dx].red = uint8_t((r + half) / total);
                    out[dx].alpha = uint8_t((a + half) / total);
                }
            }
        }
    });
}

bool ValidArguments(const COLImage* src, const COLImage* dst, int dstWidth, int dstHeight, double x0, double y0,
                    double fx, double fy)
{
    return src && dst && !src->IsNull() && dstWidth >= 1 && dstHeight >= 1 && fx > 0 && fy > 0 && std::isfinite(x0) &&
           std::isfinite(y0) && std::isfinite(fx) && std::isfinite(fy);
}

int ScaleWhole(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, double x0, double y0, double fx,
               double fy, bool fast)
{
    if (!ValidArguments(src, dst, dstWidth, dstHeight, x0, y0, fx, fy)) return 0;
    if (dst->Create(uint32_t(dstWidth), uint32_t(dstHeight)) != kOk) return 0;
    const int sw = int(src->GetWidth()), sh = int(src->GetHeight());
    Axis xs, ys;
    BuildAxis(xs, dstWidth, x0, fx, sw);
    BuildAxis(ys, dstHeight, y0, fy, sh);
    ScaleArea(src, dst, xs, ys, 0, dstWidth, 0, dstHeight, fast);
    return 1;
}

// The destination indices [begin, end) whose spans read any of the source pixels [from, to). Spans move forward
// with the destination index, so the ones that touch form one run.
void TouchedRange(const Axis& axis, long long from, long long to, int& begin, int& end)
{
    begin = end = 0;
    const int n = int(axis.spans.size());
    int d = 0;
    while (d < n && axis.spans[size_t(d)].first + axis.spans[size_t(d)].count <= from)
        ++d;
    begin = d;
    while (d < n && axis.spans[size_t(d)].first < to)
        ++d;
    end = d;
}

} // namespace

int ScaleForScreen(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, double x0, double y0, double fx,
                   double fy)
{
    return ScaleWhole(src, dst, dstWidth, dstHeight, x0, y0, fx, fy, true);
}

int ScaleForScreenPlain(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, double x0, double y0,
                        double fx, double fy)
{
    return ScaleWhole(src, dst, dstWidth, dstHeight, x0, y0, fx, fy, false);
}

int ScaleForScreenChanged(const COLImage* src, COLImage* dst, double x0, double y0, double fx, double fy, int left,
                          int top, int right, int bottom)
{
    if (!dst || dst->IsNull()) return 0;
    const int dw = int(dst->GetWidth()), dh = int(dst->GetHeight());
    if (!ValidArguments(src, dst, dw, dh, x0, y0, fx, fy)) return 0;
    const int sw = int(src->GetWidth()), sh = int(src->GetHeight());
    left = std::max(left, 0), top = std::max(top, 0);
    right = std::min(right, sw), bottom = std::min(bottom, sh);
    if (left >= right || top >= bottom) return 1;
    Axis xs, ys;
    BuildAxis(xs, dw, x0, fx, sw);
    BuildAxis(ys, dh, y0, fy, sh);
    int dxBegin, dxEnd, dyBegin, dyEnd;
    TouchedRange(xs, left, right, dxBegin, dxEnd);
    TouchedRange(ys, top, bottom, dyBegin, dyEnd);
    ScaleArea(src, dst, xs, ys, dxBegin, dxEnd, dyBegin, dyEnd, true);
    return 1;
}

int ScaleForRender(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, int srcX, int srcY, int srcWidth,
                   int srcHeight)
{
    if (!src || src->IsNull() || dstWidth < 1 || dstHeight < 1) return 0;
    if (srcWidth < 0) srcWidth = int(src->GetWidth()) - srcX;
    if (srcHeight < 0) srcHeight = int(src->GetHeight()) - srcY;
    if (srcWidth < 1 || srcHeight < 1) return 0;
    return ScaleForScreen(src, dst, dstWidth, dstHeight, srcX, srcY, double(srcWidth) / dstWidth,
                          double(srcHeight) / dstHeight);
}
