#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "imaging/codec.h"
#include "imaging/codec_formats.h"
#include "runtime/parallel_for.h"
#include "runtime/status.h"

// Resampling works one axis at a time from tables of taps (source index and weight). Weights of each output
// sample are 14-bit fixed point and sum to exactly 1 << 14, so flat areas stay exactly flat and a resample to
// the same size is exact. Between the two passes values keep 6 extra bits.

namespace {

constexpr int kWeightBits = 14;
constexpr int kOne = 1 << kWeightBits;
constexpr int kMidBits = 6; // extra precision kept between the passes

struct Taps {
    std::vector<uint32_t> start;  // first source index of each output
    std::vector<uint32_t> offset; // where each output's weights begin in weights
    std::vector<int32_t> weights;
};

// Area average: output i covers source [i * src / dst, (i + 1) * src / dst), each source pixel weighted by
// how much of it lies inside. Exact integers in units of 1 / dst.
// Bilinear (when the side grows): centres aligned, clamped at the edges.
Taps MakeTaps(uint32_t src, uint32_t dst)
{
    Taps t;
    t.start.resize(dst);
    t.offset.resize(dst + 1);
    std::vector<int64_t> raw;
    for (uint32_t i = 0; i < dst; ++i) {
        t.offset[i] = static_cast<uint32_t>(t.weights.size());
        raw.clear();
        int64_t total;
        if (dst <= src) {
            const uint64_t lo = uint64_t(i) * src, hi = uint64_t(i + 1) * src; // in units of 1 / dst
            const uint32_t first = static_cast<uint32_t>(lo / dst);
            const uint32_t last = static_cast<uint32_t>((hi - 1) / dst);
            t.start[i] = first;
            for (uint32_t j = first; j <= last; ++j) {
                const uint64_t a = std::max<uint64_t>(lo, uint64_t(j) * dst);
                const uint64_t b = std::min<uint64_t>(hi, uint64_t(j + 1) * dst);
                raw.push_back(int64_t(b - a));
            }
            total = int64_t(src);
        } else {
            // Source position of the output centre, in units of 1 / (2 dst).
            const int64_t pos = std::max<int64_t>(0, int64_t(2 * i + 1) * src - dst);
            const uint32_t j = static_cast<uint32_t>(std::min<int64_t>(pos / (2 * int64_t(dst)), src - 1));
            const int64_t frac = j == src - 1 ? 0 : pos - int64_t(j) * 2 * dst;
            t.start[i] = j;
            raw.push_back(2 * int64_t(dst) - frac);
            if (frac) raw.push_back(frac);
            total = 2 * int64_t(dst);
        }
        // Quantise, then give the rounding remainder to the heaviest tap so the sum is exact.
        int32_t sum = 0;
        size_t heaviest = 0;
        for (size_t k = 0; k < raw.size(); ++k) {
            const int32_t w = static_cast<int32_t>((raw[k] * kOne + total / 2) / total);
            t.weights.push_back(w);
            sum += w;
            if (raw[k] > raw[heaviest]) heaviest = k;
        }
        t.weights[t.offset[i] + heaviest] += kOne - sum;
    }
    t.offset[dst] = static_cast<uint32_t>(t.weights.size());
    return t;
}

// Runs body(begin, end) over [0, count) on the pool when the work is large; each part writes its own rows, so
// the result does not depend on the split.
template <class Body> void ForRows(uint32_t count, size_t workPerRow, Body body)
{
    if (count < 2 || size_t(count) * workPerRow < (size_t(1) << 20)) {
        body(0u, count);
        return;
    }
    vmpar::ParallelFor(count, 2, [&](size_t b, size_t e, unsigned) { body(uint32_t(b), uint32_t(e)); });
}

} // namespace

namespace {

int ResampleOrThrow(const COLImage* source, COLImage* destination, int width, int height, int method)
{
    if (!source || !destination || source->IsNull() || method != 1) return 0;
    if (width < 1 || height < 1 || uint32_t(width) > kMaxImageSide || uint32_t(height) > kMaxImageSide) return 0;
    const uint32_t sw = source->GetWidth(), sh = source->GetHeight();
    const uint32_t dw = uint32_t(width), dh = uint32_t(height);
    const Taps tx = MakeTaps(sw, dw), ty = MakeTaps(sh, dh);

    // Horizontal pass into 16-bit samples with kMidBits extra bits.
    std::vector<uint16_t> mid(size_t(dw) * sh * 4);
    const size_t hWork = tx.weights.size() * 4;
    ForRows(sh, hWork, [&](uint32_t y0, uint32_t y1) {
        for (uint32_t y = y0; y < y1; ++y) {
            const uint8_t* row = reinterpret_cast<const uint8_t*>(source->GetBuffer(0, y));
            uint16_t* out = mid.data() + size_t(y) * dw * 4;
            for (uint32_t x = 0; x < dw; ++x) {
                const uint8_t* s = row + size_t(tx.start[x]) * 4;
                int32_t a0 = 0, a1 = 0, a2 = 0, a3 = 0;
                for (uint32_t k = tx.offset[x]; k < tx.offset[x + 1]; ++k, s += 4) {
                    const int32_t w = tx.weights[k];
                    a0 += w * s[0];
                    a1 += w * s[1];
                    a2 += w * s[2];
                    a3 += w * s[3];
                }
                constexpr int shift = kWeightBits - kMidBits, round = 1 << (shift - 1);
                out[4 * x] = static_cast<uint16_t>((a0 + round) >> shift);
                out[4 * x + 1] = static_cast<uint16_t>((a1 + round) >> shift);
                out[4 * x + 2] = static_cast<uint16_t>((a2 + round) >> shift);
                out[4 * x + 3] = static_cast<uint16_t>((a3 + round) >> shift);
            }
        }
    });

    // Vertical pass into a fresh image, so that source and destination may be the same object.
    COLImage result;
    if (result.Create(dw, dh) != kOk) return 0;
    const size_t vWork = size_t(dw) * 4 * (ty.weights.size() / dh + 1);
    ForRows(dh, vWork, [&](uint32_t y0, uint32_t y1) {
        std::vector<int32_t> acc(size_t(dw) * 4);
        for (uint32_t y = y0; y < y1; ++y) {
            std::fill(acc.begin(), acc.end(), 0);
            const uint16_t* s = mid.data() + size_t(ty.start[y]) * dw * 4;
            for (uint32_t k = ty.offset[y]; k < ty.offset[y + 1]; ++k, s += size_t(dw) * 4) {
                const int32_t w = ty.weights[k];
                for (size_t i = 0; i < acc.size(); ++i)
                    acc[i] += w * s[i];
            }
            uint8_t* out = reinterpret_cast<uint8_t*>(result.GetBuffer(0, y));
            constexpr int shift = kWeightBits + kMidBits, round = 1 << (shift - 1);
            for (size_t i = 0; i < acc.size(); ++i)
                out[i] = static_cast<uint8_t>((acc[i] + round) >> shift);
        }
    });
    *destination = std::move(result);
    return 1;
}

} // namespace

int COLImageCodec::Resample(const COLImage* source, COLImage* destination, int width, int height, int method)
{
    try {
        return ResampleOrThrow(source, destination, width, height, method);
    } catch (const std::bad_alloc&) { // out of memory: a failed resample, not an exception for the caller
        vmrt::NoteExhaustion();
        return 0;
    } catch (const std::exception&) {
        return 0;
    }
}

int COLImageCodec::Rotate(const COLImage* source, COLImage* destination, float angle)
{
    if (!source || !destination || source->IsNull() || !std::isfinite(angle)) return 0;
    double a = std::fmod(double(angle), 360.0);
    if (a < 0) a += 360.0;
    const uint32_t w = source->GetWidth(), h = source->GetHeight();
    COLImage result;
    // Quarter turns move pixels without touching them.
    const double quarter = a / 90.0;
    const double nearest = std::round(quarter);
    if (std::fabs(quarter - nearest) < 1e-9) {
        static const int kOrientation[4] = {1, 6, 3, 8}; // none, 90, 180, 270 degrees clockwise
        if (result.DuplicateFrom(source) == 0) return 0;
        if (!codec::ApplyOrientation(result, kOrientation[int(nearest) % 4])) return 0;
        *destination = std::move(result);
        return 1;
    }
    const double rad = a * 3.14159265358979323846 / 180.0, c = std::cos(rad), s = std::sin(rad);
    const double fw = std::fabs(w * c) + std::fabs(h * s), fh = std::fabs(w * s) + std::fabs(h * c);
    const uint32_t dw = static_cast<uint32_t>(std::ceil(fw - 1e-6)), dh = static_cast<uint32_t>(std::ceil(fh - 1e-6));
    if (!codec::SidesOk(dw, dh) || result.Create(dw, dh) != kOk) return 0;
    // Each output centre is turned back into the source; the four neighbours are blended with their alpha as
    // weight, so that the transparent outside does not darken the edges.
    for (uint32_t y = 0; y < dh; ++y) {
        CPixel* out = result.GetBuffer(0, y);
        for (uint32_t x = 0; x < dw; ++x) {
            const double dx = x + 0.5 - dw / 2.0, dy = y + 0.5 - dh / 2.0;
            const double sx = c * dx + s * dy + w / 2.0 - 0.5, sy = -s * dx + c * dy + h / 2.0 - 0.5;
            const double fx = std::floor(sx), fy = std::floor(sy);
            const double ux = sx - fx, uy = sy - fy;
            double acc[4] = {0, 0, 0, 0};
            for (int k = 0; k < 4; ++k) {
                const int64_t px = int64_t(fx) + (k & 1), py = int64_t(fy) + (k >> 1);
                if (px < 0 || py < 0 || px >= int64_t(w) || py >= int64_t(h)) continue;
                const double wt = ((k & 1) ? ux : 1 - ux) * ((k >> 1) ? uy : 1 - uy);
                const CPixel p = source->GetPixel2(uint32_t(px), uint32_t(py));
                const double wa = wt * p.alpha;
                acc[0] += wa * p.blue;
                acc[1] += wa * p.green;
                acc[2] += wa * p.red;
                acc[3] += wa;
            }
            if (acc[3] <= 0) {
                out[x] = CPixel{0, 0, 0, 0};
                continue;
            }
            auto ch = [&](double v) { return static_cast<uint8_t>(std::min(255.0, v / acc[3] + 0.5)); };
            out[x] = CPixel{ch(acc[0]), ch(acc[1]), ch(acc[2]), static_cast<uint8_t>(std::min(255.0, acc[3] + 0.5))};
        }
    }
    *destination = std::move(result);
    return 1;
}
