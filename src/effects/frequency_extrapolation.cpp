#include "effects/frequency_extrapolation.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "runtime/parallel_for.h"

namespace {

constexpr int kN = FrequencyExtrapolation::kWindow;
constexpr int kCells = kN * kN;

// Complex values as separate real and imaginary planes of kCells, row by row.
struct Spectrum {
    float re[kCells];
    float im[kCells];
};

struct Twiddles {
    float c[kN / 2], s[kN / 2];
    int reversed[kN];
    Twiddles()
    {
        const double pi = 3.14159265358979323846;
        for (int k = 0; k < kN / 2; ++k) {
            c[k] = float(std::cos(2.0 * pi * k / kN));
            s[k] = float(std::sin(2.0 * pi * k / kN));
        }
        int bits = 0;
        while ((1 << bits) < kN)
            ++bits;
        for (int i = 0; i < kN; ++i) {
            int r = 0;
            for (int b = 0; b < bits; ++b)
                if (i & (1 << b)) r |= 1 << (bits - 1 - b);
            reversed[i] = r;
        }
    }
};

const Twiddles& GetTwiddles()
{
    static const Twiddles t;
    return t;
}

// In-place radix-2 transform of kN values spaced by stride: sign -1 forward, +1 inverse (not normalised).
void Fft1(float* re, float* im, int stride, int sign, const Twiddles& t)
{
    for (int i = 0; i < kN; ++i) {
        const int j = t.reversed[i];
        if (j > i) {
            std::swap(re[i * stride], re[j * stride]);
            std::swap(im[i * stride], im[j * stride]);
        }
    }
    for (int len = 2; len <= kN; len *= 2) {
        const int half = len / 2, step = kN / len;
        for (int start = 0; start < kN; start += len)
            for (int k = 0; k < half; ++k) {
                const float wr = t.c[k * step], wi = float(sign) * t.s[k * step];
                float& ar = re[(start + k) * stride];
                float& ai = im[(start + k) * stride];
                float& br = re[(start + k + half) * stride];
                float& bi = im[(start + k + half) * stride];
                const float xr = br * wr - bi * wi, xi = br * wi + bi * wr;
                br = ar - xr;
                bi = ai - xi;
                ar += xr;
                ai += xi;
            }
    }
}

void Fft2(Spectrum& s, int sign)
{
    const Twiddles& t = GetTwiddles();
    for (int y = 0; y < kN; ++y)
        Fft1(s.re + y * kN, s.im + y * kN, 1, sign, t);
    for (int x = 0; x < kN; ++x)
        Fft1(s.re + x, s.im + x, kN, sign, t);
}

// Scratch of one worker.
struct Scratch {
    float weight[kCells];
    float value[kCells];
    Spectrum w, r, model;
    // The weights' spectrum with every row written twice over, so that a row shifted by any frequency is one
    // contiguous run of kN values.
    float wre[2 * kCells], wim[2 * kCells];
};

// The residual of a real signal has a spectrum with R(-k) = conj(R(k)): the rows 0..kN/2 hold every frequency, and
// only they are searched and updated.
constexpr int kHalfRows = kN / 2 + 1;

// Preference of low frequencies in the choice of the next basis function: natural pictures hold most of their energy
// there, and a high frequency fitted to the known cells alone is usually noise that the extrapolation would carry
// on. The factor is (1 - |f| / sqrt(2))^4 of the frequency f normalised to 1 at the Nyquist limit on each axis: 1 at
// the mean, 0 at the highest diagonal frequency.
struct Prior {
    float f[kHalfRows * kN];
    Prior()
    {
        for (int y = 0; y < kHalfRows; ++y)
            for (int x = 0; x < kN; ++x) {
                const float fx = float(std::min(x, kN - x)) / float(kN / 2), fy = float(y) / float(kN / 2);
                const float v = 1.0f - 0.70710678f * std::sqrt(fx * fx + fy * fy);
                f[y * kN + x] = v * v * v * v;
            }
    }
};

const Prior& GetPrior()
{
    static const Prior p;
    return p;
}

// Fits the model to one channel of a window whose weights' spectrum is in s.w (and s.wre / s.wim), and leaves it
// transformed back in s.model.re.
void FitWindow(Scratch& s, const FrequencyExtrapolation& p)
{
    for (int i = 0; i < kCells; ++i) {
        s.r.re[i] = s.weight[i] * s.value[i];
        s.r.im[i] = 0.0f;
        s.model.re[i] = 0.0f;
        s.model.im[i] = 0.0f;
    }
    Fft2(s.r, -1);
    const float total = s.w.re[0];
    const float* prior = GetPrior().f;
    for (int it = 0; it < p.iterations; ++it) {
        int best = 0;
        float bestEnergy = -1.0f;
        for (int i = 0; i < kHalfRows * kN; ++i) {
            const float e = prior[i] * (s.r.re[i] * s.r.re[i] + s.r.im[i] * s.r.im[i]);
            if (e > bestEnergy) {
                bestEnergy = e;
                best = i;
            }
        }
        if (bestEnergy <= 0.0f) break;
        const int kx = best % kN, ky = best / kN;
        const int cx = (kN - kx) % kN, cy = (kN - ky) % kN; // the conjugate frequency
        const int partner = cy * kN + cx;
        float cr = p.gamma * s.r.re[best] / total, ci = p.gamma * s.r.im[best] / total;
        if (partner == best) ci = 0.0f; // its own conjugate: the coefficient is real
        s.model.re[best] += cr;
        s.model.im[best] += ci;
        if (partner != best) {
            s.model.re[partner] += cr;
            s.model.im[partner] -= ci;
        } else {
            // Its partner is itself: the update below adds the same term twice.
            cr *= 0.5f;
        }
        // R(m) -= c W(m - k) + conj(c) W(m - k'), complex products written out.
        for (int my = 0; my < kHalfRows; ++my) {
            const float* wr = s.wre + ((my - ky) & (kN - 1)) * 2 * kN + kN - kx;
            const float* wi = s.wim + ((my - ky) & (kN - 1)) * 2 * kN + kN - kx;
            const float* vr = s.wre + ((my - cy) & (kN - 1)) * 2 * kN + kN - cx;
            const float* vi = s.wim + ((my - cy) & (kN - 1)) * 2 * kN + kN - cx;
            float* rr = s.r.re + my * kN;
            float* ri = s.r.im + my * kN;
            for (int mx = 0; mx < kN; ++mx) {
                rr[mx] -= cr * (wr[mx] + vr[mx]) - ci * (wi[mx] - vi[mx]);
                ri[mx] -= cr * (wi[mx] + vi[mx]) + ci * (wr[mx] - vr[mx]);
            }
        }
    }
    Fft2(s.model, 1);
}

} // namespace

std::vector<uint8_t> ExtrapolateFrequencies(FrequencyGrid& grid, const FrequencyExtrapolation& params)
{
    const int B = std::clamp(params.block, 1, kN);
    const int border = (kN - B) / 2;
    const int w = grid.w, h = grid.h, ch = grid.channels;
    const int passes = std::clamp(params.passes, 0, 255), tilings = std::clamp(params.tilings, 1, 2);
    std::vector<uint8_t> estimated(size_t(std::max(w, 0)) * std::max(h, 0), 0);
    if (w <= 0 || h <= 0 || ch <= 0 || grid.known.size() != estimated.size() ||
        grid.values.size() != estimated.size() * size_t(ch))
        return estimated;
    // Weight of each window cell by its distance from the block's centre.
    std::vector<float> falloff(kCells);
    float whole = 0.0f;
    for (int y = 0; y < kN; ++y)
        for (int x = 0; x < kN; ++x) {
            const float dx = float(x - border) - float(B - 1) * 0.5f, dy = float(y - border) - float(B - 1) * 0.5f;
            falloff[size_t(y) * kN + x] = std::pow(params.rho, std::sqrt(dx * dx + dy * dy));
            whole += falloff[size_t(y) * kN + x];
        }
    // Trust of each cell in the fit: 1 where known, params.reuse where an earlier pass estimated it.
    std::vector<float> trust(size_t(w) * h);
    for (size_t i = 0; i < trust.size(); ++i)
        trust[i] = grid.known[i] ? 1.0f : 0.0f;
    // A block's say in a cell falls towards its edges, so that where the tilings overlap the seams blend away.
    auto taper = [B](int inside) { return float(std::min(inside + 1, B - inside)); };
    std::vector<float> sum, total;
    std::vector<int32_t> trusted; // summed-area table of the cells with trust, (w + 1) x (h + 1)
    for (int pass = 1; pass <= passes; ++pass) {
        // The estimates of a pass are gathered apart, so that no block reads another's from the same pass.
        sum.assign(grid.values.size(), 0.0f);
        total.assign(trust.size(), 0.0f);
        trusted.assign(size_t(w + 1) * (h + 1), 0);
        for (int y = 0; y < h; ++y) {
            int32_t row = 0;
            for (int x = 0; x < w; ++x) {
                row += trust[size_t(y) * w + x] > 0.0f;
                trusted[size_t(y + 1) * (w + 1) + x + 1] = trusted[size_t(y) * (w + 1) + x + 1] + row;
            }
        }
        // Whether the window with its corner at (ox, oy) holds a trusted cell; most deep blocks hold none.
        auto anyTrusted = [&](int ox, int oy) {
            const int x0 = std::clamp(ox, 0, w), y0 = std::clamp(oy, 0, h);
            const int x1 = std::clamp(ox + kN, 0, w), y1 = std::clamp(oy + kN, 0, h);
            return trusted[size_t(y1) * (w + 1) + x1] - trusted[size_t(y0) * (w + 1) + x1] -
                       trusted[size_t(y1) * (w + 1) + x0] + trusted[size_t(y0) * (w + 1) + x0] >
                   0;
        };
        for (int tiling = 0; tiling < tilings; ++tiling) {
            const int shift = tiling * B / 2; // the second tiling is offset by half a block both ways
            const int blocksX = (w + shift + B - 1) / B, blocksY = (h + shift + B - 1) / B;
            vmpar::ParallelFor(size_t(blocksX) * blocksY, 1, [&](size_t begin, size_t end, unsigned) {
                auto s = std::make_unique<Scratch>();
                for (size_t b = begin; b < end; ++b) {
                    const int bx = int(b % size_t(blocksX)) * B - shift, by = int(b / size_t(blocksX)) * B - shift;
                    const int x0 = std::max(bx, 0), y0 = std::max(by, 0);
                    const int x1 = std::min(bx + B, w), y1 = std::min(by + B, h);
                    bool any = false;
                    for (int y = y0; y < y1 && !any; ++y)
                        for (int x = x0; x < x1; ++x)
                            if (trust[size_t(y) * w + x] <= 0.0f) {
                                any = true;
                                break;
                            }
                    const int ox = bx - border, oy = by - border;
                    if (!any || !anyTrusted(ox, oy)) continue;
                    float known = 0.0f;
                    for (int y = 0; y < kN; ++y)
                        for (int x = 0; x < kN; ++x) {
                            const int gx = ox + x, gy = oy + y;
                            const float t = gx >= 0 && gy >= 0 && gx < w && gy < h ? trust[size_t(gy) * w + gx] : 0.0f;
                            s->weight[y * kN + x] = t * falloff[size_t(y) * kN + x];
                            known += s->weight[y * kN + x];
                        }
                    if (known < params.minKnownWeight * whole) continue;
                    for (int i = 0; i < kCells; ++i) {
                        s->w.re[i] = s->weight[i];
                        s->w.im[i] = 0.0f;
                    }
                    Fft2(s->w, -1);
                    for (int y = 0; y < kN; ++y)
                        for (int x = 0; x < 2 * kN; ++x) {
                            s->wre[y * 2 * kN + x] = s->w.re[y * kN + (x & (kN - 1))];
                            s->wim[y * 2 * kN + x] = s->w.im[y * kN + (x & (kN - 1))];
                        }
                    for (int k = 0; k < ch; ++k) {
                        for (int y = 0; y < kN; ++y)
                            for (int x = 0; x < kN; ++x) {
                                const int gx = ox + x, gy = oy + y;
                                s->value[y * kN + x] =
                                    s->weight[y * kN + x] > 0.0f ? grid.values[(size_t(gy) * w + gx) * ch + k] : 0.0f;
                            }
                        FitWindow(*s, params);
                        for (int y = y0; y < y1; ++y)
                            for (int x = x0; x < x1; ++x) {
                                const size_t i = size_t(y) * w + x;
                                if (trust[i] > 0.0f) continue;
                                sum[i * ch + k] +=
                                    taper(x - bx) * taper(y - by) * s->model.re[(y - oy) * kN + (x - ox)];
                            }
                    }
                    for (int y = y0; y < y1; ++y)
                        for (int x = x0; x < x1; ++x)
                            if (trust[size_t(y) * w + x] <= 0.0f)
                                total[size_t(y) * w + x] += taper(x - bx) * taper(y - by);
                }
            });
        }
        bool progressed = false;
        for (size_t i = 0; i < trust.size(); ++i)
            if (total[i] > 0.0f) {
                for (int k = 0; k < ch; ++k)
                    grid.values[i * ch + k] = sum[i * ch + k] / total[i];
                estimated[i] = uint8_t(pass);
                trust[i] = params.reuse;
                progressed = true;
            }
        if (!progressed) break;
    }
    return estimated;
}
