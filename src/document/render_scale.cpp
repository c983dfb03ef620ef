#include "document/render_scale.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "imaging/image.h"
#include "runtime/parallel_for.h"

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

} // namespace

int ScaleForScreen(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, double x0, double y0, double fx,
                   double fy)
{
    if (!src || !dst || src->IsNull() || dstWidth < 1 || dstHeight < 1 || !(fx > 0) || !(fy > 0) ||
        !std::isfinite(x0) || !std::isfinite(y0))
        return 0;
    if (dst->Create(uint32_t(dstWidth), uint32_t(dstHeight)) != kOk) return 0;
    const int sw = int(src->GetWidth()), sh = int(src->GetHeight());
    Axis xs, ys;
    BuildAxis(xs, dstWidth, x0, fx, sw);
    BuildAxis(ys, dstHeight, y0, fy, sh);

    // The source columns any destination pixel reads.
    const uint32_t xFirst = xs.spans.front().first;
    const uint32_t xEnd = xs.spans.back().first + xs.spans.back().count;

    // Rows are independent, so the result does not depend on how they are split.
    vmpar::ParallelFor(size_t(dstHeight), 16, [&](size_t begin, size_t end, unsigned) {
        const bool copy = xs.unit && ys.unit;
        // Per source column, the rows of one destination row summed with their weights, two channels in each
        // word's 32-bit halves (blue and red, green and alpha): a span weighs at most 256 per pixel times 20000
        // pixels, so a half stays below 255 * 5120000 < 2^32 and never carries into the other.
        std::vector<uint64_t> columnsBr(copy ? 0 : xEnd - xFirst), columnsGa(copy ? 0 : xEnd - xFirst);
        for (size_t dy = begin; dy < end; ++dy) {
            CPixel* out = dst->GetBuffer(0, uint32_t(dy));
            const Span& sy = ys.spans[dy];
            if (copy) {
                const CPixel* row = src->GetBuffer(0, sy.first);
                for (int dx = 0; dx < dstWidth; ++dx)
                    out[dx] = row[xs.spans[size_t(dx)].first];
                continue;
            }
            // Down the columns first: one weight per source row, a plain loop over the row.
            std::fill(columnsBr.begin(), columnsBr.end(), 0);
            std::fill(columnsGa.begin(), columnsGa.end(), 0);
            for (uint32_t k = 0; k < sy.count; ++k) {
                const uint64_t wy = ys.weights[sy.weightsAt + k];
                const CPixel* row = src->GetBuffer(xFirst, sy.first + k);
                for (uint32_t x = 0; x < xEnd - xFirst; ++x) {
                    const uint64_t v = row[x].Word();
                    columnsBr[x] += ((v & 0xFF) | ((v & 0xFF0000) << 16)) * wy;
                    columnsGa[x] += (((v >> 8) & 0xFF) | ((v & 0xFF000000) << 8)) * wy;
                }
            }
            // Then across: each destination pixel weighs the columns it covers.
            for (int dx = 0; dx < dstWidth; ++dx) {
                const Span& sx = xs.spans[size_t(dx)];
                const uint32_t* wx = &xs.weights[sx.weightsAt];
                uint64_t b = 0, g = 0, r = 0, a = 0;
                for (uint32_t i = 0; i < sx.count; ++i) {
                    const uint64_t br = columnsBr[sx.first - xFirst + i], ga = columnsGa[sx.first - xFirst + i];
                    b += (br & 0xFFFFFFFFu) * wx[i];
                    r += (br >> 32) * wx[i];
                    g += (ga & 0xFFFFFFFFu) * wx[i];
                    a += (ga >> 32) * wx[i];
                }
                // Dividing by the weights actually used keeps a flat colour exact; + total / 2 rounds.
                const uint64_t total = uint64_t(sx.total) * sy.total;
                out[dx].blue = uint8_t((b + total / 2) / total);
                out[dx].green = uint8_t((g + total / 2) / total);
                out[dx].red = uint8_t((r + total / 2) / total);
                out[dx].alpha = uint8_t((a + total / 2) / total);
            }
        }
    });
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
