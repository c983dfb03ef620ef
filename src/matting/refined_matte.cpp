#include "matting/refined_matte.h"

#include <Eigen/IterativeLinearSolvers>
#include <Eigen/SparseCore>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"

#if VM_SIMD_X86
#include <emmintrin.h>
#endif

namespace {

// Pixel classes of one level.
constexpr uint8_t kBack = 0;
constexpr uint8_t kFore = 1;
constexpr uint8_t kUnknown = 2;
constexpr uint32_t kNone = 0xFFFFFFFFu;

// Weight of the pull towards the sampled estimate, relative to the matting energy. Small: it mostly decides where
// the colour-line model has little to say (flat colour, wide bands, a band island without known neighbours).
constexpr double kPriorWeight = 0.0005;
// Squared colour residual (0..1 scale) at which the sampled estimate's trust falls to 1/e.
constexpr float kResidualScale = 0.002f;
// Floor of the diagonal so that the system stays positive definite on any band.
constexpr double kDiagonalFloor = 1e-6;
// A level is solved from a half-size start when its band holds more unknowns than this.
constexpr size_t kCoarseAbove = 8000;
constexpr int kMaxLevels = 5;
// Conjugate-gradient stop: the relative residual and the iteration cap per level come with the parameters (the
// coarse start makes the fine level's work small; the cap keeps a pathological band from running for minutes).
constexpr int kChunk = 50;
// Colour estimation: the smoothness weights (a floor plus the alpha difference to the neighbour); the number of
// Jacobi sweeps comes with the parameters.
constexpr float kColourFloor = 1e-4f;
constexpr float kColourGradient = 1.0f;

class CCancelled {};

// Progress and cancel, either through an owning process (its range, its flag) or a bare callback.
struct Reporter {
    ProgressCallback callback;
    CImageProcess* owner = nullptr;

    void Report(int32_t percent) const
    {
        if (owner)
            owner->ReportProgress(percent);
        else if (callback)
            callback(1, percent);
    }
    void CheckCancel() const
    {
        if (owner && owner->TestAndClearCancel()) throw CCancelled();
    }
};

// A pixel's colour on the 0..1 scale.
struct Rgb {
    float c[3];
    float operator[](int k) const { return c[k]; }
};

// One level of the pyramid: colours in 0..1 and pixel classes. The full-size level reads its colours from the
// picture's bytes as they are asked for (the band is a few per cent of the picture, so a float copy of the whole
// picture would mostly go unread); the half-size levels keep their averaged colours.
struct Level {
    uint32_t width = 0, height = 0;
    const CPixel* bytes = nullptr;   // the full-size level's picture
    std::vector<float> rgb;          // half-size levels: 3 per pixel
    std::vector<uint8_t> cls;        // kBack, kFore, kUnknown
    std::vector<uint32_t> band;      // pixel index of each unknown, raster order
    std::vector<int32_t> var;        // per pixel: its position in band, or -1

    Rgb At(size_t i) const
    {
        if (bytes)
            return {{bytes[i].red * (1.0f / 255.0f), bytes[i].green * (1.0f / 255.0f),
                     bytes[i].blue * (1.0f / 255.0f)}};
        return {{rgb[i * 3], rgb[i * 3 + 1], rgb[i * 3 + 2]}};
    }
};

// Band positions in raster order. Rows are counted across cores, then each row range fills its own stretch of
// the list, so the order (and every result after it) is the same on any number of cores.
void IndexBand(Level& l)
{
    const size_t n = size_t(l.width) * l.height;
    const size_t rows = l.height, stride = l.width;
    l.var.resize(n);
    std::vector<uint32_t> perRow(rows + 1, 0);
    const size_t minRows = std::max<size_t>(1, 16384 / std::max<size_t>(1, stride));
    vmpar::ParallelFor(rows, minRows, [&](size_t b, size_t e, unsigned) {
        for (size_t y = b; y < e; ++y) {
            uint32_t count = 0;
            for (size_t i = y * stride, end = i + stride; i < end; ++i) count += l.cls[i] == kUnknown;
            perRow[y + 1] = count;
        }
    });
    for (size_t y = 0; y < rows; ++y) perRow[y + 1] += perRow[y];
    l.band.resize(perRow[rows]);
    vmpar::ParallelFor(rows, minRows, [&](size_t b, size_t e, unsigned) {
        for (size_t y = b; y < e; ++y) {
            uint32_t at = perRow[y];
            for (size_t i = y * stride, end = i + stride; i < end; ++i)
                if (l.cls[i] == kUnknown) {
                    l.var[i] = int32_t(at);
                    l.band[at++] = uint32_t(i);
                } else {
                    l.var[i] = -1;
                }
        }
    });
}

void FromImage(const COLImage& src, const COLChannel& trimap, Level& l)
{
    l.width = src.GetWidth();
    l.height = src.GetHeight();
    const size_t n = size_t(l.width) * l.height;
    l.bytes = src.GetBuffer();
    l.cls.resize(n);
    const uint8_t* t = trimap.GetBuffer();
    vmpar::ParallelFor(n, 65536, [&](size_t b, size_t e, unsigned) {
        for (size_t i = b; i < e; ++i) l.cls[i] = t[i] == 0 ? kBack : (t[i] == 255 ? kFore : kUnknown);
    });
    IndexBand(l);
}

// Half size: colours averaged over 2 x 2, a pixel known only when all its fine pixels agree.
void Downsample(const Level& f, Level& c)
{
    c.width = (f.width + 1) / 2;
    c.height = (f.height + 1) / 2;
    c.rgb.resize(size_t(c.width) * c.height * 3);
    c.cls.resize(size_t(c.width) * c.height);
    const size_t minRows = std::max<size_t>(1, 8192 / std::max<uint32_t>(1, c.width));
    vmpar::ParallelFor(c.height, minRows, [&](size_t y0, size_t y1, unsigned) {
        for (uint32_t y = uint32_t(y0); y < uint32_t(y1); ++y)
            for (uint32_t x = 0; x < c.width; ++x) {
                float sum[3] = {0, 0, 0};
                int count = 0, fore = 0, back = 0;
                for (uint32_t dy = 0; dy < 2; ++dy)
                    for (uint32_t dx = 0; dx < 2; ++dx) {
                        const uint32_t fx = 2 * x + dx, fy = 2 * y + dy;
                        if (fx >= f.width || fy >= f.height) continue;
                        const size_t i = size_t(fy) * f.width + fx;
                        const Rgb fine = f.At(i);
                        for (int k = 0; k < 3; ++k) sum[k] += fine[k];
                        ++count;
                        fore += f.cls[i] == kFore;
                        back += f.cls[i] == kBack;
                    }
                const size_t o = size_t(y) * c.width + x;
                for (int k = 0; k < 3; ++k) c.rgb[o * 3 + k] = sum[k] / float(count);
                c.cls[o] = fore == count ? kFore : (back == count ? kBack : kUnknown);
            }
    });
    IndexBand(c);
}

// For each band pixel, the nearest pixel of class `from` (walking 8-connected through the band), or kNone.
std::vector<uint32_t> NearestKnown(const Level& l, uint8_t from)
{
    std::vector<uint32_t> nearest(l.band.size(), kNone);
    std::vector<uint32_t> queue;   // band positions, in the order reached
    queue.reserve(l.band.size());
    const int w = int(l.width), h = int(l.height);
    // Seeds: band pixels touching a known pixel of the class; they take the first such neighbour in scan order.
    for (size_t v = 0; v < l.band.size(); ++v) {
        const int x = int(l.band[v] % l.width), y = int(l.band[v] / l.width);
        for (int dy = -1; dy <= 1 && nearest[v] == kNone; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                const int nx = x + dx, ny = y + dy;
                if (nx < 0 || ny < 0 || nx >= w || ny >= h) continue;
                const size_t n = size_t(ny) * l.width + nx;
                if (l.cls[n] == from) {
                    nearest[v] = uint32_t(n);
                    queue.push_back(uint32_t(v));
                    break;
                }
            }
    }
    for (size_t head = 0; head < queue.size(); ++head) {
        const uint32_t v = queue[head];
        const int x = int(l.band[v] % l.width), y = int(l.band[v] / l.width);
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                const int nx = x + dx, ny = y + dy;
                if (nx < 0 || ny < 0 || nx >= w || ny >= h) continue;
                const int32_t nv = l.var[size_t(ny) * l.width + nx];
                if (nv < 0 || nearest[size_t(nv)] != kNone) continue;
                nearest[size_t(nv)] = nearest[v];
                queue.push_back(uint32_t(nv));
            }
    }
    return nearest;
}

// The projection estimate and how far to trust it (0..1, by the distance of the two known colours).
void Projection(const Level& l, const std::vector<uint32_t>& nf, const std::vector<uint32_t>& nb,
                std::vector<float>& prior, std::vector<float>& trust)
{
    prior.resize(l.band.size());
    trust.resize(l.band.size());
    vmpar::ParallelFor(l.band.size(), 16384, [&](size_t b, size_t e, unsigned) {
        for (size_t v = b; v < e; ++v) {
            if (nf[v] == kNone || nb[v] == kNone) {
                // Only one side is reachable: the band island belongs to it.
                prior[v] = nf[v] == kNone && nb[v] == kNone ? 0.5f : (nf[v] == kNone ? 0.0f : 1.0f);
                trust[v] = nf[v] == kNone && nb[v] == kNone ? 0.0f : 1.0f;
                continue;
            }
            const Rgb i = l.At(l.band[v]), f = l.At(nf[v]), k = l.At(nb[v]);
            float dot = 0, d2 = 0;
            for (int c = 0; c < 3; ++c) {
                dot += (i[c] - k[c]) * (f[c] - k[c]);
                d2 += (f[c] - k[c]) * (f[c] - k[c]);
            }
            prior[v] = d2 > 1e-6f ? std::clamp(dot / d2, 0.0f, 1.0f) : 0.5f;
            trust[v] = d2 / (d2 + 0.01f);
        }
    });
}

// Candidate pairs of the sampled estimate: one subject colour f against `count` background colours (k0, k1, k2
// side by side, room for a multiple of 4). For each pair, the blend's alpha, the squared residual of the pixel's
// colour i against the blend (1e30 where the two colours are too close to tell apart) and their squared
// separation. The SSE2 twin does the same arithmetic in the same order on four pairs at once, so both give the
// same bits.
constexpr int kPairRoom = 20;

void BlendPairsPlain(const float i[3], const float f[3], const float* k0, const float* k1, const float* k2, int count,
                     float* r2Out, float* alphaOut, float* sepOut)
{
    for (int bi = 0; bi < count; ++bi) {
        float dot = 0, d2 = 0;
        dot += (i[0] - k0[bi]) * (f[0] - k0[bi]);
        d2 += (f[0] - k0[bi]) * (f[0] - k0[bi]);
        dot += (i[1] - k1[bi]) * (f[1] - k1[bi]);
        d2 += (f[1] - k1[bi]) * (f[1] - k1[bi]);
        dot += (i[2] - k2[bi]) * (f[2] - k2[bi]);
        d2 += (f[2] - k2[bi]) * (f[2] - k2[bi]);
        const float q = dot / d2;
        const float a = q < 0.0f ? 0.0f : (1.0f < q ? 1.0f : q);
        const float r0 = i[0] - (a * f[0] + (1.0f - a) * k0[bi]);
        const float r1 = i[1] - (a * f[1] + (1.0f - a) * k1[bi]);
        const float rb = i[2] - (a * f[2] + (1.0f - a) * k2[bi]);
        float r2 = 0;
        r2 += r0 * r0;
        r2 += r1 * r1;
        r2 += rb * rb;
        r2Out[bi] = d2 < 1e-4f ? 1e30f : r2;
        alphaOut[bi] = a;
        sepOut[bi] = d2;
    }
}

#if VM_SIMD_X86
VM_TARGET_SSE2 void BlendPairsSse2(const float i[3], const float f[3], const float* k0, const float* k1,
                                   const float* k2, int count, float* r2Out, float* alphaOut, float* sepOut)
{
    const __m128 zero = _mm_setzero_ps(), one = _mm_set1_ps(1.0f);
    const __m128 i0 = _mm_set1_ps(i[0]), i1 = _mm_set1_ps(i[1]), i2 = _mm_set1_ps(i[2]);
    const __m128 f0 = _mm_set1_ps(f[0]), f1 = _mm_set1_ps(f[1]), f2 = _mm_set1_ps(f[2]);
    const __m128 tooClose = _mm_set1_ps(1e-4f), never = _mm_set1_ps(1e30f);
    for (int bi = 0; bi < count; bi += 4) {
        const __m128 b0 = _mm_loadu_ps(k0 + bi), b1 = _mm_loadu_ps(k1 + bi), b2 = _mm_loadu_ps(k2 + bi);
        const __m128 s0 = _mm_sub_ps(f0, b0), s1 = _mm_sub_ps(f1, b1), s2 = _mm_sub_ps(f2, b2);
        __m128 dot = _mm_add_ps(zero, _mm_mul_ps(_mm_sub_ps(i0, b0), s0));
        __m128 d2 = _mm_add_ps(zero, _mm_mul_ps(s0, s0));
        dot = _mm_add_ps(dot, _mm_mul_ps(_mm_sub_ps(i1, b1), s1));
        d2 = _mm_add_ps(d2, _mm_mul_ps(s1, s1));
        dot = _mm_add_ps(dot, _mm_mul_ps(_mm_sub_ps(i2, b2), s2));
        d2 = _mm_add_ps(d2, _mm_mul_ps(s2, s2));
        const __m128 q = _mm_div_ps(dot, d2);
        const __m128 above = _mm_cmplt_ps(one, q), below = _mm_cmplt_ps(q, zero);
        const __m128 a = _mm_andnot_ps(below, _mm_or_ps(_mm_and_ps(above, one), _mm_andnot_ps(above, q)));
        const __m128 rest = _mm_sub_ps(one, a);
        const __m128 r0 = _mm_sub_ps(i0, _mm_add_ps(_mm_mul_ps(a, f0), _mm_mul_ps(rest, b0)));
        const __m128 r1 = _mm_sub_ps(i1, _mm_add_ps(_mm_mul_ps(a, f1), _mm_mul_ps(rest, b1)));
        const __m128 rb = _mm_sub_ps(i2, _mm_add_ps(_mm_mul_ps(a, f2), _mm_mul_ps(rest, b2)));
        __m128 r2 = _mm_add_ps(zero, _mm_mul_ps(r0, r0));
        r2 = _mm_add_ps(r2, _mm_mul_ps(r1, r1));
        r2 = _mm_add_ps(r2, _mm_mul_ps(rb, rb));
        const __m128 close = _mm_cmplt_ps(d2, tooClose);
        _mm_storeu_ps(r2Out + bi, _mm_or_ps(_mm_and_ps(close, never), _mm_andnot_ps(close, r2)));
        _mm_storeu_ps(alphaOut + bi, a);
        _mm_storeu_ps(sepOut + bi, d2);
    }
}
#endif

// The sampled estimate the solver leans on where colours speak clearly: for each band pixel, candidate subject and
// background colours are the nearest known pixels of band pixels around it (a sparse star of offsets), and the
// pair whose blend explains the pixel's colour best gives alpha. Trust falls with the blend's residual and with
// how close the two colours are.
void SampledPrior(const Level& l, const std::vector<uint32_t>& nf, const std::vector<uint32_t>& nb,
                  std::vector<float>& prior, std::vector<float>& trust)
{
    static constexpr int kDirs[8][2] = {{1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {1, -1}};
    static constexpr int kReach[] = {0, 4, 12};
    static constexpr int kMaxCandidates = 17;
    static_assert(kMaxCandidates <= kPairRoom && kPairRoom % 4 == 0);
    const int w = int(l.width), h = int(l.height);
#if VM_SIMD_X86
    const bool sse2 = vmsimd::CurrentLevel() >= vmsimd::kSse2;
#endif
    vmpar::ParallelFor(l.band.size(), 4096, [&](size_t b, size_t e, unsigned) {
        for (size_t v = b; v < e; ++v) {
            if (nf[v] == kNone || nb[v] == kNone) continue;   // the projection's one-sided answer stands
            const int x = int(l.band[v] % l.width), y = int(l.band[v] / l.width);
            uint32_t fc[kMaxCandidates], bc[kMaxCandidates];
            int nfc = 0, nbc = 0;
            auto add = [](uint32_t* list, int& count, uint32_t p) {
                if (p == kNone) return;
                for (int k = 0; k < count; ++k)
                    if (list[k] == p) return;
                if (count < kMaxCandidates) list[count++] = p;
            };
            for (int reach : kReach)
                for (const auto& d : kDirs) {
                    const int px = x + d[0] * reach, py = y + d[1] * reach;
                    if (px < 0 || py < 0 || px >= w || py >= h) continue;
                    const size_t p = size_t(py) * l.width + size_t(px);
                    const int32_t pv = l.var[p];
                    if (pv >= 0) {
                        add(fc, nfc, nf[size_t(pv)]);
                        add(bc, nbc, nb[size_t(pv)]);
                    }
                    if (reach == 0) break;
                }
            const Rgb i = l.At(l.band[v]);
            // The background candidates' colours side by side, so that each subject candidate is tried against
            // all of them at once; the best pair is then picked in order (the first of equals).
            float k0[kPairRoom] = {}, k1[kPairRoom] = {}, k2[kPairRoom] = {};
            for (int bi = 0; bi < nbc; ++bi) {
                const Rgb k = l.At(bc[bi]);
                k0[bi] = k[0];
                k1[bi] = k[1];
                k2[bi] = k[2];
            }
            float best = 1e30f, bestAlpha = prior[v], bestSep = 0.0f;
            for (int fi = 0; fi < nfc; ++fi) {
                const Rgb f = l.At(fc[fi]);
                float pairR2[kPairRoom], pairAlpha[kPairRoom], pairSep[kPairRoom];
#if VM_SIMD_X86
                if (sse2)
                    BlendPairsSse2(i.c, f.c, k0, k1, k2, nbc, pairR2, pairAlpha, pairSep);
                else
#endif
                    BlendPairsPlain(i.c, f.c, k0, k1, k2, nbc, pairR2, pairAlpha, pairSep);
                for (int bi = 0; bi < nbc; ++bi)
                    if (pairR2[bi] < best) {
                        best = pairR2[bi];
                        bestAlpha = pairAlpha[bi];
                        bestSep = pairSep[bi];
                    }
            }
            if (best >= 1e30f) continue;
            prior[v] = bestAlpha;
            trust[v] = std::exp(-best / kResidualScale) * bestSep / (bestSep + 0.01f);
        }
    });
}

// Mean and inverse regularised covariance of the 3 x 3 window centred at (cx, cy).
struct Window {
    double mean[3];
    double inv[3][3];
};

void WindowStats(const Level& l, int cx, int cy, double eps, Window& win)
{
    double s[3] = {0, 0, 0}, ss[3][3] = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}};
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
            const Rgb p = l.At(size_t(cy + dy) * l.width + size_t(cx + dx));
            for (int a = 0; a < 3; ++a) {
                s[a] += p[a];
                for (int b = a; b < 3; ++b) ss[a][b] += double(p[a]) * p[b];
            }
        }
    double c[3][3];
    for (int a = 0; a < 3; ++a) win.mean[a] = s[a] / 9.0;
    for (int a = 0; a < 3; ++a)
        for (int b = a; b < 3; ++b) {
            c[a][b] = ss[a][b] / 9.0 - win.mean[a] * win.mean[b] + (a == b ? eps / 9.0 : 0.0);
            c[b][a] = c[a][b];
        }
    const double m00 = c[1][1] * c[2][2] - c[1][2] * c[2][1];
    const double m01 = c[1][2] * c[2][0] - c[1][0] * c[2][2];
    const double m02 = c[1][0] * c[2][1] - c[1][1] * c[2][0];
    const double det = c[0][0] * m00 + c[0][1] * m01 + c[0][2] * m02;
    const double r = 1.0 / det;
    win.inv[0][0] = m00 * r;
    win.inv[0][1] = (c[0][2] * c[2][1] - c[0][1] * c[2][2]) * r;
    win.inv[0][2] = (c[0][1] * c[1][2] - c[0][2] * c[1][1]) * r;
    win.inv[1][0] = m01 * r;
    win.inv[1][1] = (c[0][0] * c[2][2] - c[0][2] * c[2][0]) * r;
    win.inv[1][2] = (c[0][2] * c[1][0] - c[0][0] * c[1][2]) * r;
    win.inv[2][0] = m02 * r;
    win.inv[2][1] = (c[0][1] * c[2][0] - c[0][0] * c[2][1]) * r;
    win.inv[2][2] = (c[0][0] * c[1][1] - c[0][1] * c[1][0]) * r;
}

// Single precision: the solve is bound by memory traffic, and alpha needs far less than float's precision.
using Real = float;
using SparseRows = Eigen::SparseMatrix<Real, Eigen::RowMajor, int32_t>;
using Vector = Eigen::Matrix<Real, Eigen::Dynamic, 1>;

// Builds the band's system: rows of the matting Laplacian restricted to the unknowns, the known neighbours moved
// to the right-hand side, and the prior on the diagonal. Each row is summed in one fixed order by one thread.
void BuildSystem(const Level& l, double eps, const std::vector<float>& prior, const std::vector<float>& trust,
                 SparseRows& a, Vector& rhs)
{
    const size_t n = l.band.size();
    constexpr int kSpan = 25;   // a row reaches 2 pixels each way
    std::vector<Real> values(n * kSpan);
    std::vector<int32_t> cols(n * kSpan);
    std::vector<int32_t> counts(n);
    rhs.resize(Eigen::Index(n));
    const int w = int(l.width), h = int(l.height);

    // A window serves the rows of up to nine unknowns. Each part keeps the windows of a run of unknowns (in
    // raster order, so a run spans neighbouring rows) in a small table and works each out once; a window's
    // figures do not depend on when they are worked out, so the rows come out the same.
    // The table (open addressing) has room for the 9 * kRun windows a run can touch at most, at a load below 0.6.
    constexpr size_t kRun = 2048, kTable = 32768;
    vmpar::ParallelFor(n, 2048, [&](size_t b, size_t e, unsigned) {
        std::vector<uint32_t> keys(kTable);
        std::vector<Window> cache(kTable);
        const size_t mask = kTable - 1;
        for (size_t v = b; v < e; ++v) {
            if ((v - b) % kRun == 0) std::fill(keys.begin(), keys.end(), kNone);
            const int x = int(l.band[v] % l.width), y = int(l.band[v] / l.width);
            double row[kSpan] = {};
            const Rgb pi = l.At(l.band[v]);
            for (int wy = y - 1; wy <= y + 1; ++wy)
                for (int wx = x - 1; wx <= x + 1; ++wx) {
                    if (wx < 1 || wy < 1 || wx > w - 2 || wy > h - 2) continue;   // windows lie inside
                    const uint32_t centre = uint32_t(size_t(wy) * l.width + size_t(wx));
                    size_t at = (size_t(centre) * 2654435761u) & mask;
                    while (keys[at] != kNone && keys[at] != centre) at = (at + 1) & mask;
                    if (keys[at] == kNone) {
                        keys[at] = centre;
                        WindowStats(l, wx, wy, eps, cache[at]);
                    }
                    const Window& win = cache[at];
                    double di[3], vi[3];
                    for (int c = 0; c < 3; ++c) di[c] = pi[c] - win.mean[c];
                    for (int c = 0; c < 3; ++c)
                        vi[c] = win.inv[c][0] * di[0] + win.inv[c][1] * di[1] + win.inv[c][2] * di[2];
                    for (int jy = wy - 1; jy <= wy + 1; ++jy)
                        for (int jx = wx - 1; jx <= wx + 1; ++jx) {
                            const Rgb pj = l.At(size_t(jy) * l.width + size_t(jx));
                            const double g = vi[0] * (pj[0] - win.mean[0]) + vi[1] * (pj[1] - win.mean[1]) +
                                             vi[2] * (pj[2] - win.mean[2]);
                            const int slot = (jy - y + 2) * 5 + (jx - x + 2);
                            row[slot] += (slot == 12 ? 1.0 : 0.0) - (1.0 + g) / 9.0;
                        }
                }
            const double pw = kPriorWeight * trust[v];
            double r = pw * prior[v];
            int32_t count = 0;
            for (int slot = 0; slot < kSpan; ++slot) {
                const int jx = x + slot % 5 - 2, jy = y + slot / 5 - 2;
                if (jx < 0 || jy < 0 || jx >= w || jy >= h) continue;
                const size_t j = size_t(jy) * l.width + size_t(jx);
                if (l.cls[j] == kUnknown) {
                    values[v * kSpan + size_t(count)] = Real(row[slot] + (slot == 12 ? pw + kDiagonalFloor : 0.0));
                    cols[v * kSpan + size_t(count)] = l.var[j];
                    ++count;
                } else if (l.cls[j] == kFore) {
                    r -= row[slot];
                }
            }
            counts[v] = count;
            rhs[Eigen::Index(v)] = Real(r);
        }
    });

    size_t nnz = 0;
    for (size_t v = 0; v < n; ++v) nnz += size_t(counts[v]);
    a.resize(Eigen::Index(n), Eigen::Index(n));
    a.resizeNonZeros(Eigen::Index(nnz));
    int32_t* outer = a.outerIndexPtr();
    size_t at = 0;
    for (size_t v = 0; v < n; ++v) {
        outer[v] = int32_t(at);
        std::memcpy(a.innerIndexPtr() + at, &cols[v * kSpan], sizeof(int32_t) * size_t(counts[v]));
        std::memcpy(a.valuePtr() + at, &values[v * kSpan], sizeof(Real) * size_t(counts[v]));
        at += size_t(counts[v]);
    }
    outer[n] = int32_t(at);
}

// Conjugate gradients with the Jacobi preconditioner (the same iteration as the default solver's), with the
// matrix-vector product and the vector updates split across cores. Sums run over fixed blocks of unknowns, in
// double, and the blocks' sums are added in order, so the result does not depend on the number of cores. The
// iteration runs through without restarts until the relative residual falls below tolerance or the cap.
void SolveSplit(const SparseRows& a, const Vector& rhs, Vector& solution, double tolerance, int iterationCap,
                const Reporter& rep, int lo, int hi)
{
    const size_t n = size_t(rhs.size());
    constexpr size_t kBlock = 4096;
    const size_t blocks = (n + kBlock - 1) / kBlock;
    const int32_t* outer = a.outerIndexPtr();
    const int32_t* inner = a.innerIndexPtr();
    const Real* values = a.valuePtr();
    const Real* b = rhs.data();
    Real* x = solution.data();
    std::vector<Real> invDiag(n), r(n), z(n), p(n), q(n);
    std::vector<double> sum0(blocks), sum1(blocks), sum2(blocks);
    auto forBlocks = [&](const auto& fn) {
        vmpar::ParallelFor(blocks, 1, [&](size_t k0, size_t k1, unsigned) {
            for (size_t k = k0; k < k1; ++k) fn(k, k * kBlock, std::min(n, (k + 1) * kBlock));
        });
    };
    auto total = [](const std::vector<double>& parts) {
        double t = 0;
        for (double v : parts) t += v;
        return t;
    };
    auto product = [&](const Real* v, size_t i) {
        Real s = 0;
        for (int32_t j = outer[i]; j < outer[i + 1]; ++j) s += values[j] * v[inner[j]];
        return s;
    };
    forBlocks([&](size_t k, size_t i0, size_t i1) {
        double rr = 0, rz = 0, bb = 0;
        for (size_t i = i0; i < i1; ++i) {
            Real d = 0;
            for (int32_t j = outer[i]; j < outer[i + 1]; ++j)
                if (size_t(inner[j]) == i) d = values[j];
            invDiag[i] = d != 0 ? Real(1) / d : Real(1);
            r[i] = b[i] - product(x, i);
            z[i] = r[i] * invDiag[i];
            rr += double(r[i]) * r[i];
            rz += double(r[i]) * z[i];
            bb += double(b[i]) * b[i];
        }
        sum0[k] = rr;
        sum1[k] = rz;
        sum2[k] = bb;
    });
    const double rhsNorm2 = total(sum2);
    if (rhsNorm2 == 0) {
        solution.setZero();
        return;
    }
    const double threshold = std::max(tolerance * tolerance * rhsNorm2, 1e-30);
    double rz = total(sum1);
    if (total(sum0) < threshold) return;
    double beta = 0;
    for (int it = 0; it < iterationCap; ++it) {
        // p = z + beta p and q = A p, the latter as A z + beta q so that one pass does both.
        forBlocks([&](size_t k, size_t i0, size_t i1) {
            double pq = 0;
            for (size_t i = i0; i < i1; ++i) {
                p[i] = z[i] + Real(beta) * p[i];
                q[i] = product(z.data(), i) + Real(beta) * q[i];
                pq += double(p[i]) * q[i];
            }
            sum0[k] = pq;
        });
        const double pq = total(sum0);
        if (!(pq > 0)) break;
        const Real step = Real(rz / pq);
        forBlocks([&](size_t k, size_t i0, size_t i1) {
            double rr = 0, rzNew = 0;
            for (size_t i = i0; i < i1; ++i) {
                x[i] += step * p[i];
                r[i] -= step * q[i];
                z[i] = r[i] * invDiag[i];
                rr += double(r[i]) * r[i];
                rzNew += double(r[i]) * z[i];
            }
            sum0[k] = rr;
            sum1[k] = rzNew;
        });
        if ((it + 1) % kChunk == 0) {
            rep.CheckCancel();
            rep.Report(lo + (hi - lo) * std::min(it + 1, iterationCap) / iterationCap);
        }
        if (total(sum0) < threshold) break;
        const double rzNew = total(sum1);
        beta = rzNew / rz;
        rz = rzNew;
    }
}

// The nearest known subject and background pixel of each band pixel (NearestKnown), kept from the solve for the
// colour estimate of the same level.
struct NearestPair {
    std::vector<uint32_t> fore, back;
};

// Alpha of the band of one level, 0..1 per band pixel; larger bands start from the half-size solution.
// Progress runs from lo to hi. When keep is given, it receives the level's nearest known pixels.
std::vector<double> SolveLevel(const Level& l, const RefinedMatteParams& params, int depth, const Reporter& rep, int lo,
                               int hi, NearestPair* keep = nullptr)
{
    const double eps = params.epsilon;
    const int iterationCap = std::max(kChunk, int(params.iterationCap));
    const size_t n = l.band.size();
    std::vector<uint32_t> nf = NearestKnown(l, kFore);
    std::vector<uint32_t> nb = NearestKnown(l, kBack);
    std::vector<float> prior, trust;
    Projection(l, nf, nb, prior, trust);
    SampledPrior(l, nf, nb, prior, trust);
    rep.CheckCancel();

    Vector x(static_cast<Eigen::Index>(n));
    int mid = lo;
    if (n > kCoarseAbove && depth + 1 < kMaxLevels && l.width >= 16 && l.height >= 16) {
        Level coarse;
        Downsample(l, coarse);
        mid = lo + (hi - lo) / 3;
        const std::vector<double> cx = SolveLevel(coarse, params, depth + 1, rep, lo, mid);
        // Bilinear from the half-size alpha (coarse pixel centres sit at fine 2c + 0.5).
        auto at = [&](int cx0, int cy0) {
            cx0 = std::clamp(cx0, 0, int(coarse.width) - 1);
            cy0 = std::clamp(cy0, 0, int(coarse.height) - 1);
            const size_t c = size_t(cy0) * coarse.width + size_t(cx0);
            return coarse.cls[c] == kUnknown ? cx[size_t(coarse.var[c])] : double(coarse.cls[c] == kFore);
        };
        for (size_t v = 0; v < n; ++v) {
            const int px = int(l.band[v] % l.width), py = int(l.band[v] / l.width);
            const int x0 = (px - 1) >> 1, y0 = (py - 1) >> 1;   // the coarse pixel up and left of this one
            const double fx = (px & 1) ? 0.25 : 0.75, fy = (py & 1) ? 0.25 : 0.75;
            const double top = at(x0, y0) * (1 - fx) + at(x0 + 1, y0) * fx;
            const double bottom = at(x0, y0 + 1) * (1 - fx) + at(x0 + 1, y0 + 1) * fx;
            x[Eigen::Index(v)] = Real(top * (1 - fy) + bottom * fy);
        }
    } else {
        for (size_t v = 0; v < n; ++v) x[Eigen::Index(v)] = Real(prior[v]);
    }

    SparseRows a;
    Vector rhs;
    BuildSystem(l, eps, prior, trust, a, rhs);
    rep.CheckCancel();

    auto run = [&](auto& cg) {
        cg.setTolerance(params.tolerance);
        cg.setMaxIterations(kChunk);
        cg.compute(a);
        if (cg.info() != Eigen::Success) throw std::bad_alloc();
        for (int done = 0; done < iterationCap; done += kChunk) {
            x = cg.solveWithGuess(rhs, x);
            rep.CheckCancel();
            rep.Report(mid + (hi - mid) * std::min(done + kChunk, iterationCap) / iterationCap);
            if (cg.info() == Eigen::Success) break;
        }
    };
    if (params.splitSolve) {
        SolveSplit(a, rhs, x, params.tolerance, iterationCap, rep, mid, hi);
    } else {
        Eigen::ConjugateGradient<SparseRows, Eigen::Lower | Eigen::Upper> cg;   // Jacobi-preconditioned
        run(cg);
    }
    std::vector<double> out(n);
    for (size_t v = 0; v < n; ++v) out[v] = std::clamp(double(x[Eigen::Index(v)]), 0.0, 1.0);
    if (keep) {
        keep->fore = std::move(nf);
        keep->back = std::move(nb);
    }
    rep.Report(hi);
    return out;
}

// Subject colour F and background colour B of each band pixel: minimises |aF + (1-a)B - I|^2 plus smoothness of
// F and B between 4-neighbours, weighted by how little alpha changes between them. Known subject neighbours lend
// their colour to F, known background neighbours to B. Jacobi sweeps from the nearest known colours.
void EstimateColours(const Level& l, const std::vector<double>& alpha, const NearestPair& nearest,
                     std::vector<float>& fore, int sweeps, const Reporter& rep, int lo, int hi)
{
    const size_t n = l.band.size();
    const std::vector<uint32_t>& nf = nearest.fore;
    const std::vector<uint32_t>& nb = nearest.back;
    std::vector<float> cur(n * 6), next(n * 6);
    for (size_t v = 0; v < n; ++v)
        for (int c = 0; c < 3; ++c) {
            const float own = l.At(l.band[v])[c];
            cur[v * 6 + c] = nf[v] == kNone ? own : l.At(nf[v])[c];
            cur[v * 6 + 3 + c] = nb[v] == kNone ? own : l.At(nb[v])[c];
        }
    const int w = int(l.width), h = int(l.height);
    static constexpr int kDx[4] = {-1, 1, 0, 0}, kDy[4] = {0, 0, -1, 1};
    // What a sweep needs of each band pixel does not change between sweeps: the 2 x 2 system's coefficients and,
    // per 4-neighbour in a fixed order, either the band neighbour and its weight or the known neighbour's weighted
    // colour. Worked out once, added in the same order as before, so the sums are the same.
    struct Neighbour {
        int32_t var;   // band neighbour, or kKnownFore / kKnownBack / kOutside
        float d;
        float colour[3];   // d times the known neighbour's colour
    };
    constexpr int32_t kKnownFore = -1, kKnownBack = -2, kOutside = -3;
    std::vector<Neighbour> around(n * 4);
    std::vector<float> fixed(n * 7);   // a0 * I (3), a1 * I (3), 1 / det (or 0)
    std::vector<float> coef(n * 3);  // a00, a01, a11
    vmpar::ParallelFor(n, 4096, [&](size_t b, size_t e, unsigned) {
        for (size_t v = b; v < e; ++v) {
            const int x = int(l.band[v] % l.width), y = int(l.band[v] / l.width);
            const float a0 = float(alpha[v]), a1 = 1.0f - a0;
            float a00 = a0 * a0, a01 = a0 * a1, a11 = a1 * a1;
            const Rgb img = l.At(l.band[v]);
            for (int c = 0; c < 3; ++c) {
                fixed[v * 7 + size_t(c)] = a0 * img[c];
                fixed[v * 7 + 3 + size_t(c)] = a1 * img[c];
            }
            for (int k = 0; k < 4; ++k) {
                Neighbour& side = around[v * 4 + size_t(k)];
                side.var = kOutside;
                const int nx = x + kDx[k], ny = y + kDy[k];
                if (nx < 0 || ny < 0 || nx >= w || ny >= h) continue;
                const size_t j = size_t(ny) * l.width + size_t(nx);
                const int32_t nv = l.var[j];
                if (nv >= 0) {
                    const float d = kColourFloor + kColourGradient * std::fabs(a0 - float(alpha[size_t(nv)]));
                    a00 += d;
                    a11 += d;
                    side.var = nv;
                    side.d = d;
                } else if (l.cls[j] == kFore) {
                    const float d = kColourFloor + kColourGradient * a1;
                    a00 += d;
                    side.var = kKnownFore;
                    for (int c = 0; c < 3; ++c) side.colour[c] = d * l.At(j)[c];
                } else {
                    const float d = kColourFloor + kColourGradient * a0;
                    a11 += d;
                    side.var = kKnownBack;
                    for (int c = 0; c < 3; ++c) side.colour[c] = d * l.At(j)[c];
                }
            }
            const float det = a00 * a11 - a01 * a01;
            fixed[v * 7 + 6] = det > 1e-12f ? 1.0f / det : 0.0f;
            coef[v * 3 + 0] = a00;
            coef[v * 3 + 1] = a01;
            coef[v * 3 + 2] = a11;
        }
    });
    for (int sweep = 0; sweep < sweeps; ++sweep) {
        vmpar::ParallelFor(n, 4096, [&](size_t b, size_t e, unsigned) {
            for (size_t v = b; v < e; ++v) {
                const float* o = &fixed[v * 7];
                float b0[3] = {o[0], o[1], o[2]}, b1[3] = {o[3], o[4], o[5]};
                for (int k = 0; k < 4; ++k) {
                    const Neighbour& side = around[v * 4 + size_t(k)];
                    if (side.var >= 0) {
                        const float* nc = &cur[size_t(side.var) * 6];
                        for (int c = 0; c < 3; ++c) {
                            b0[c] += side.d * nc[c];
                            b1[c] += side.d * nc[3 + c];
                        }
                    } else if (side.var == kKnownFore) {
                        for (int c = 0; c < 3; ++c) b0[c] += side.colour[c];
                    } else if (side.var == kKnownBack) {
                        for (int c = 0; c < 3; ++c) b1[c] += side.colour[c];
                    }
                }
                const float a00 = coef[v * 3 + 0], a01 = coef[v * 3 + 1], a11 = coef[v * 3 + 2], r = o[6];
                for (int c = 0; c < 3; ++c) {
                    float f = r > 0 ? (a11 * b0[c] - a01 * b1[c]) * r : cur[v * 6 + c];
                    float k = r > 0 ? (a00 * b1[c] - a01 * b0[c]) * r : cur[v * 6 + 3 + c];
                    next[v * 6 + c] = std::clamp(f, 0.0f, 1.0f);
                    next[v * 6 + 3 + c] = std::clamp(k, 0.0f, 1.0f);
                }
            }
        });
        cur.swap(next);
        if ((sweep & 7) == 7) {
            rep.CheckCancel();
            rep.Report(lo + (hi - lo) * (sweep + 1) / sweeps);
        }
    }
    fore.resize(n * 3);
    for (size_t v = 0; v < n; ++v)
        for (int c = 0; c < 3; ++c) fore[v * 3 + c] = cur[v * 6 + c];
}

bool Valid(const COLImage& src, const COLChannel& trimap)
{
    return !src.IsNull() && !trimap.IsNull() && trimap.GetWidth() == src.GetWidth() &&
           trimap.GetHeight() == src.GetHeight() && src.GetWidth() <= kMaxImageSide &&
           src.GetHeight() <= kMaxImageSide;
}

uint8_t ToByte(double v) { return uint8_t(std::clamp(v, 0.0, 1.0) * 255.0 + 0.5); }

// Alpha of known pixels; band pixels are filled in by the caller.
long KnownAlpha(const Level& l, COLChannel& alpha)
{
    if (alpha.Create(l.width, l.height) != kOk) return kFail;
    uint8_t* out = alpha.GetBuffer();
    vmpar::ParallelFor(l.cls.size(), 65536, [&](size_t b, size_t e, unsigned) {
        for (size_t i = b; i < e; ++i) out[i] = l.cls[i] == kFore ? 255 : 0;
    });
    return kOk;
}

long Solve(const COLImage& src, const COLChannel& trimap, COLChannel& alpha, COLImage* foreground,
           const RefinedMatteParams& params, const Reporter& rep)
{
    if (!Valid(src, trimap) || !(params.epsilon >= 1e-9 && params.epsilon <= 1e-2) ||
        !(params.tolerance > 0 && params.tolerance < 1) || params.colourSweeps < 1)
        return kFail;
    try {
        rep.Report(0);
        Level l;
        FromImage(src, trimap, l);
        std::vector<double> a;
        NearestPair nearest;
        if (!l.band.empty()) a = SolveLevel(l, params, 0, rep, 2, 80, &nearest);
        rep.Report(80);
        std::vector<float> fore;
        if (foreground && !l.band.empty()) EstimateColours(l, a, nearest, fore, params.colourSweeps, rep, 80, 98);
        rep.CheckCancel();

        // Write only at the end, so that a failure or cancel leaves the outputs as they were.
        COLChannel outAlpha;
        if (KnownAlpha(l, outAlpha) != kOk) return kFail;
        for (size_t v = 0; v < l.band.size(); ++v) outAlpha.GetBuffer()[l.band[v]] = ToByte(a[v]);
        if (foreground) {
            COLImage out;
            if (!out.DuplicateFrom(&src)) return kFail;
            CPixel* p = out.GetBuffer();
            const uint8_t* av = outAlpha.GetBuffer();
            vmpar::ParallelFor(l.cls.size(), 65536, [&](size_t b, size_t e, unsigned) {
                for (size_t i = b; i < e; ++i) p[i].alpha = av[i];
            });
            for (size_t v = 0; v < l.band.size(); ++v) {
                CPixel& q = p[l.band[v]];
                q.red = ToByte(fore[v * 3 + 0]);
                q.green = ToByte(fore[v * 3 + 1]);
                q.blue = ToByte(fore[v * 3 + 2]);
            }
            *foreground = std::move(out);
        }
        alpha = std::move(outAlpha);
        rep.Report(100);
        return kOk;
    } catch (const std::bad_alloc&) {
        return kFail;
    } catch (const CCancelled&) {
        return kFail;
    }
}

} // namespace

long SolveRefinedMatte(const COLImage& src, const COLChannel& trimap, COLChannel& alpha, COLImage* foreground,
                       const RefinedMatteParams& params, ProgressCallback progress, CImageProcess* owner)
{
    return Solve(src, trimap, alpha, foreground, params, Reporter{progress, owner});
}

long CRefinedMatteProcess::Process(const void* params)
{
    if (CImageProcess::Process(params) != kOk || !params) return kFail;
    const RefinedMatteParams p = *static_cast<const RefinedMatteParams*>(params);
    if (!p.trimap) return kFail;
    const COLImage& src = *m_pSrcImage;
    COLChannel alpha;
    COLImage result;
    const long r = Solve(src, *p.trimap, alpha, p.decontaminate ? &result : nullptr, p, Reporter{{}, this});
    if (r != kOk) return r;
    if (!p.decontaminate) {
        if (!result.DuplicateFrom(&src)) return kFail;
        CPixel* q = result.GetBuffer();
        const uint8_t* av = alpha.GetBuffer();
        for (size_t i = 0; i < result.GetPixelCount(); ++i) q[i].alpha = av[i];
    }
    *m_pDstImage = std::move(result);
    return kOk;
}

namespace refinedmatte {

long NearestColourAlpha(const COLImage& src, const COLChannel& trimap, COLChannel& alpha)
{
    if (!Valid(src, trimap)) return kFail;
    try {
        Level l;
        FromImage(src, trimap, l);
        std::vector<float> prior, trust;
        Projection(l, NearestKnown(l, kFore), NearestKnown(l, kBack), prior, trust);
        COLChannel out;
        if (KnownAlpha(l, out) != kOk) return kFail;
        for (size_t v = 0; v < l.band.size(); ++v) out.GetBuffer()[l.band[v]] = ToByte(prior[v]);
        alpha = std::move(out);
        return kOk;
    } catch (const std::bad_alloc&) {
        return kFail;
    }
}

} // namespace refinedmatte
