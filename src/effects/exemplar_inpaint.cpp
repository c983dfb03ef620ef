#include "effects/exemplar_inpaint.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <vector>

#include "effects/frequency_extrapolation.h"
#include "runtime/parallel_for.h"
#include "runtime/status.h"

namespace {

// The coarsest level is reached when the hole is at most half a patch thick (every hole pixel within half a patch
// side of a known one), or when halving again would leave fewer than kMinLevelPatches patch sides on a side. A
// thin scratch is thus filled at full size, a large hole from a level where it spans a few patches.
constexpr int kMinLevelPatches = 4;
constexpr int kMaxLevels = 12;
// Rows per band of the parallel PatchMatch passes. Fixed, so the result does not depend on the thread count.
constexpr int kBandRows = 32;
// Random search at finer levels starts at this many patch sides: the coarser field already places the match.
constexpr int kFineSearchPatches = 6;
// The priority fill searches its whole level for each patch when the level holds at most this many known
// patches; otherwise (a thin hole filled at full size) it searches a window of four patch sides around the patch,
// widened until it holds a known patch.
constexpr size_t kMaxCoarseCandidates = 40000;
// Rounds of (PatchMatch, vote) per level, and PatchMatch passes per round (one forward, one backward).
constexpr int kCoarsestRounds = 4;
constexpr int kMiddleRounds = 2;
constexpr int kFinestRounds = 1;
constexpr int kPassesPerRound = 2;
// A patch's say in the vote falls by this factor per pixel of its centre's distance into the hole.
constexpr float kConfidenceBase = 1.3f;
// Fine detail fades towards a low-pass of the fill with depth into the hole: the low-pass is two box blurs of
// kFadeRadius, and the detail's share (whole on the hole's outermost ring) halves every kFadeHalving pixels inwards.
constexpr int kFadeRadius = 4;
constexpr double kFadeHalving = 3.0;
// Beyond eight halvings into the hole the detail's share is below 1/256, and the low-pass there reads pixels at
// most 2 x kFadeRadius deeper: at full size the rounds skip patches centred deeper than that, and those pixels keep
// the coarser level's colours.
constexpr int kDeepestRefined = int(kFadeHalving) * 8 + 1 + 2 * kFadeRadius;
// The first guess at the coarsest level: the smooth fill's share, out of 256, against the priority fill's.
constexpr int kFirstGuessSmooth = 200;
// The luma extrapolated from the rim's frequencies replaces the fill's on the hole's outer rings (chessboard depth up
// to kExtrapolatedRing), its share falls linearly to kExtrapolatedDeep at depth kExtrapolatedFade and stays there
// wherever the passes reached.
constexpr int kExtrapolatedRing = 2;
constexpr int kExtrapolatedFade = 8;
constexpr float kExtrapolatedDeep = 0.25f;

class CCancelled {};

struct Reporter {
    CImageProcess* owner = nullptr;
    bool* cancelled = nullptr;

    void Report(int percent) const
    {
        if (owner) owner->ReportProgress(percent);
    }
    void CheckCancel() const
    {
        if (owner && owner->TestAndClearCancel()) {
            if (cancelled) *cancelled = true;
            throw CCancelled();
        }
    }
};

uint32_t Hash(uint32_t a, uint32_t b, uint32_t c, uint32_t d)
{
    uint64_t x = (uint64_t(a) << 32 | b) * 0x9E3779B97F4A7C15ull ^ (uint64_t(c) << 32 | d);
    x ^= x >> 30;
    x *= 0xBF58476D1CE4E5B9ull;
    x ^= x >> 27;
    x *= 0x94D049BB133111EBull;
    x ^= x >> 31;
    return uint32_t(x);
}

// One level of the pyramid over the working box. Pixels are 4 bytes, blue, green, red and a zero, so that patch
// distances run over whole words.
struct Level {
    int w = 0, h = 0;
    std::vector<uint8_t> px;     // 4 per pixel
    std::vector<uint8_t> hole;   // 1 in the hole
    std::vector<uint8_t> valid;  // 1 where a patch centred here is inside the level and wholly known
    std::vector<uint8_t> active; // 1 where a patch centred here touches the hole
    std::vector<int32_t> validList;
    std::vector<int32_t> nnf;               // per active pixel: centre of its best known patch
    std::vector<int32_t> dist;              // and the patch distance to it
    std::vector<float> conf;                // per pixel: weight of a patch centred here in the vote
    int ax0 = 0, ay0 = 0, ax1 = 0, ay1 = 0; // box of active pixels, exclusive ends
};

// Sum of the hole map over a box, from a summed-area table of (w + 1) x (h + 1).
struct HoleSums {
    int w = 0, h = 0;
    std::vector<int32_t> s;
    void Build(const Level& l)
    {
        w = l.w;
        h = l.h;
        s.assign(size_t(w + 1) * (h + 1), 0);
        for (int y = 0; y < h; ++y) {
            int32_t row = 0;
            for (int x = 0; x < w; ++x) {
                row += l.hole[size_t(y) * w + x];
                s[size_t(y + 1) * (w + 1) + x + 1] = s[size_t(y) * (w + 1) + x + 1] + row;
            }
        }
    }
    // Box [x0, x1] x [y0, y1] inclusive, clipped to the level.
    int32_t Box(int x0, int y0, int x1, int y1) const
    {
        x0 = std::max(x0, 0);
        y0 = std::max(y0, 0);
        x1 = std::min(x1, w - 1);
        y1 = std::min(y1, h - 1);
        if (x0 > x1 || y0 > y1) return 0;
        return s[size_t(y1 + 1) * (w + 1) + x1 + 1] - s[size_t(y0) * (w + 1) + x1 + 1] -
               s[size_t(y1 + 1) * (w + 1) + x0] + s[size_t(y0) * (w + 1) + x0];
    }
};

void BuildMaps(Level& l, int r)
{
    HoleSums sums;
    sums.Build(l);
    const size_t n = size_t(l.w) * l.h;
    l.valid.assign(n, 0);
    l.active.assign(n, 0);
    l.validList.clear();
    l.ax0 = l.w;
    l.ay0 = l.h;
    l.ax1 = l.ay1 = 0;
    for (int y = 0; y < l.h; ++y)
        for (int x = 0; x < l.w; ++x) {
            const size_t i = size_t(y) * l.w + x;
            const bool touches = sums.Box(x - r, y - r, x + r, y + r) > 0;
            if (touches) {
                l.active[i] = 1;
                l.ax0 = std::min(l.ax0, x);
                l.ay0 = std::min(l.ay0, y);
                l.ax1 = std::max(l.ax1, x + 1);
                l.ay1 = std::max(l.ay1, y + 1);
            } else if (x >= r && y >= r && x < l.w - r && y < l.h - r) {
                l.valid[i] = 1;
                l.validList.push_back(int32_t(i));
            }
        }
    l.nnf.assign(n, -1);
    l.dist.assign(n, INT32_MAX);
}

// Half size: a pixel is in the hole when any of its (up to four) sources is; otherwise it is their mean.
void Downsample(const Level& f, Level& c)
{
    c.w = (f.w + 1) / 2;
    c.h = (f.h + 1) / 2;
    c.px.assign(size_t(c.w) * c.h * 4, 0);
    c.hole.assign(size_t(c.w) * c.h, 0);
    for (int y = 0; y < c.h; ++y)
        for (int x = 0; x < c.w; ++x) {
            int sum[3] = {0, 0, 0}, count = 0, hole = 0;
            for (int dy = 0; dy < 2; ++dy)
                for (int dx = 0; dx < 2; ++dx) {
                    const int fx = 2 * x + dx, fy = 2 * y + dy;
                    if (fx >= f.w || fy >= f.h) continue;
                    const size_t i = size_t(fy) * f.w + fx;
                    hole |= f.hole[i];
                    for (int k = 0; k < 3; ++k)
                        sum[k] += f.px[i * 4 + k];
                    ++count;
                }
            const size_t o = size_t(y) * c.w + x;
            c.hole[o] = uint8_t(hole);
            if (!hole)
                for (int k = 0; k < 3; ++k)
                    c.px[o * 4 + k] = uint8_t((sum[k] + count / 2) / count);
        }
}

// Squared colour distance of the patches at q and t, over the part of q's patch inside the level (t's patch is
// always inside). Stops as soon as the sum reaches bound.
int32_t PatchDistance(const Level& l, int r, int qx, int qy, int tx, int ty, int32_t bound)
{
    const int x0 = std::max(-r, -qx), x1 = std::min(r, l.w - 1 - qx);
    const int y0 = std::max(-r, -qy), y1 = std::min(r, l.h - 1 - qy);
    const int bytes = (x1 - x0 + 1) * 4;
    int32_t sum = 0;
    for (int dy = y0; dy <= y1; ++dy) {
        const uint8_t* a = &l.px[(size_t(qy + dy) * l.w + qx + x0) * 4];
        const uint8_t* b = &l.px[(size_t(ty + dy) * l.w + tx + x0) * 4];
        int32_t row = 0;
        for (int k = 0; k < bytes; ++k) {
            const int32_t d = int32_t(a[k]) - int32_t(b[k]);
            row += d * d;
        }
        sum += row;
        if (sum >= bound) return sum;
    }
    return sum;
}

int PatchPixels(const Level& l, int r, int qx, int qy)
{
    const int x0 = std::max(-r, -qx), x1 = std::min(r, l.w - 1 - qx);
    const int y0 = std::max(-r, -qy), y1 = std::min(r, l.h - 1 - qy);
    return (x1 - x0 + 1) * (y1 - y0 + 1);
}

int32_t RandomValid(const Level& l, uint32_t seed, uint32_t salt, int32_t i)
{
    return l.validList[Hash(seed, salt, uint32_t(i), 0x5EEDu) % l.validList.size()];
}

// ---------------------------------------------------------------------------------------------------------------
// Coarsest level: greedy fill in priority order.

uint8_t Gray(const uint8_t* p)
{
    return uint8_t((3 * p[2] + 6 * p[1] + p[0]) / 10);
}

void PriorityFill(Level& l, int r, const Reporter& reporter, int progressLow, int progressHigh)
{
    const int w = l.w, h = l.h;
    const size_t n = size_t(w) * h;
    std::vector<uint8_t> unfilled(l.hole);
    std::vector<float> confidence(n), priority(n, -1.0f);
    std::vector<int32_t> sourceOf(n, -1);
    std::vector<int32_t> open; // unfilled pixels, raster order; compacted as they fill
    for (size_t i = 0; i < n; ++i) {
        confidence[i] = unfilled[i] ? 0.0f : 1.0f;
        if (unfilled[i]) open.push_back(int32_t(i));
    }
    const size_t total = open.size();
    size_t remaining = total;
    // A small level is searched whole; a large one (a thin hole filled at full size) in a window around the patch.
    const bool searchAll = l.validList.size() <= kMaxCoarseCandidates;
    const float patchArea = float((2 * r + 1) * (2 * r + 1));
    auto filled = [&](int x, int y) { return x >= 0 && y >= 0 && x < w && y < h && !unfilled[size_t(y) * w + x]; };

    // Priority of an unfilled pixel: -1 off the front (no filled 4-neighbour), else confidence x data term.
    auto computePriority = [&](int x, int y) -> float {
        if (!filled(x - 1, y) && !filled(x + 1, y) && !filled(x, y - 1) && !filled(x, y + 1)) return -1.0f;
        float c = 0.0f;
        for (int dy = -r; dy <= r; ++dy)
            for (int dx = -r; dx <= r; ++dx)
                if (filled(x + dx, y + dy)) c += confidence[size_t(y + dy) * w + x + dx];
        c /= patchArea;
        // Normal of the front: gradient of the filled indicator (Sobel).
        float nx = 0.0f, ny = 0.0f;
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                if (!filled(x + dx, y + dy)) continue;
                nx += float(dx * (dy == 0 ? 2 : 1));
                ny += float(dy * (dx == 0 ? 2 : 1));
            }
        const float nlen = std::sqrt(nx * nx + ny * ny);
        if (nlen > 0.0f) {
            nx /= nlen;
            ny /= nlen;
        }
        // Strongest isophote among known pixels next to p (central differences where both sides are known).
        float gxBest = 0.0f, gyBest = 0.0f, gBest = -1.0f;
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                const int sx = x + dx, sy = y + dy;
                if (!filled(sx, sy)) continue;
                float gx = 0.0f, gy = 0.0f;
                if (filled(sx - 1, sy) && filled(sx + 1, sy))
                    gx = (float(Gray(&l.px[(size_t(sy) * w + sx + 1) * 4])) -
                          float(Gray(&l.px[(size_t(sy) * w + sx - 1) * 4]))) *
                         0.5f;
                if (filled(sx, sy - 1) && filled(sx, sy + 1))
                    gy = (float(Gray(&l.px[(size_t(sy + 1) * w + sx) * 4])) -
                          float(Gray(&l.px[(size_t(sy - 1) * w + sx) * 4]))) *
                         0.5f;
                const float g = gx * gx + gy * gy;
                if (g > gBest) {
                    gBest = g;
                    gxBest = gx;
                    gyBest = gy;
                }
            }
        // Data term: the isophote (-gy, gx) across the front's normal; a floor lets flat areas proceed by
        // confidence alone.
        const float data = std::fabs(-gyBest * nx + gxBest * ny) / 255.0f + 0.001f;
        return c * data;
    };
    for (int32_t i : open)
        priority[size_t(i)] = computePriority(i % w, i / w);

    // Squared distance over the filled part of the patch at (bx, by) to the valid patch at t; stops at bound.
    auto cost = [&](int bx, int by, int32_t t, int64_t bound) {
        const int tx = t % w, ty = t / w;
        int64_t sum = 0;
        for (int dy = -r; dy <= r && sum < bound; ++dy)
            for (int dx = -r; dx <= r; ++dx) {
                if (!filled(bx + dx, by + dy)) continue;
                const uint8_t* a = &l.px[(size_t(by + dy) * w + bx + dx) * 4];
                const uint8_t* b = &l.px[(size_t(ty + dy) * w + tx + dx) * 4];
                for (int k = 0; k < 3; ++k)
                    sum += (int(a[k]) - int(b[k])) * (int(a[k]) - int(b[k]));
            }
        return sum;
    };

    int steps = 0;
    while (remaining > 0) {
        // The front pixel of highest priority, first in raster order among equals.
        float bestPriority = -1.0f;
        int32_t pick = -1;
        size_t kept = 0;
        for (int32_t i : open) {
            if (!unfilled[size_t(i)]) continue;
            open[kept++] = i;
            if (priority[size_t(i)] > bestPriority) {
                bestPriority = priority[size_t(i)];
                pick = i;
            }
        }
        open.resize(kept);
        if (pick < 0) break;
        const int bx = pick % w, by = pick / w;
        // Best known patch for the filled part of the chosen patch.
        int64_t bestDist = INT64_MAX;
        int32_t best = -1;
        if (searchAll) {
            for (int32_t t : l.validList) {
                const int64_t d = cost(bx, by, t, bestDist);
                if (d < bestDist) {
                    bestDist = d;
                    best = t;
                }
            }
        } else {
            for (int radius = 4 * (2 * r + 1); best < 0; radius *= 2) {
                const int x0 = std::max(bx - radius, r), x1 = std::min(bx + radius, w - 1 - r);
                const int y0 = std::max(by - radius, r), y1 = std::min(by + radius, h - 1 - r);
                for (int ty = y0; ty <= y1; ++ty)
                    for (int tx = x0; tx <= x1; ++tx) {
                        const int32_t t = ty * w + tx;
                        if (!l.valid[size_t(t)]) continue;
                        const int64_t d = cost(bx, by, t, bestDist);
                        if (d < bestDist) {
                            bestDist = d;
                            best = t;
                        }
                    }
                if (radius > w + h) break;
            }
        }
        if (best < 0) break;
        const int tx = best % w, ty = best / w;
        float c = 0.0f;
        for (int dy = -r; dy <= r; ++dy)
            for (int dx = -r; dx <= r; ++dx)
                if (filled(bx + dx, by + dy)) c += confidence[size_t(by + dy) * w + bx + dx];
        c /= patchArea;
        for (int dy = -r; dy <= r; ++dy)
            for (int dx = -r; dx <= r; ++dx) {
                const int x = bx + dx, y = by + dy;
                if (x < 0 || y < 0 || x >= w || y >= h) continue;
                const size_t i = size_t(y) * w + x;
                if (!unfilled[i]) continue;
                const size_t s = size_t(ty + dy) * w + tx + dx;
                std::memcpy(&l.px[i * 4], &l.px[s * 4], 4);
                unfilled[i] = 0;
                confidence[i] = c;
                sourceOf[i] = int32_t(s);
                --remaining;
            }
        // Priorities change only within reach of the patch just filled.
        const int reach = 2 * r + 2;
        for (int y = std::max(by - reach, 0); y <= std::min(by + reach, h - 1); ++y)
            for (int x = std::max(bx - reach, 0); x <= std::min(bx + reach, w - 1); ++x)
                if (unfilled[size_t(y) * w + x]) priority[size_t(y) * w + x] = computePriority(x, y);
        if (++steps % 16 == 0) {
            reporter.CheckCancel();
            reporter.Report(progressLow +
                            int((progressHigh - progressLow) * int64_t(total - remaining) / int64_t(total)));
        }
    }
    // Start of the field: where a pixel was copied, the patch around its source when that is a valid one.
    for (int y = l.ay0; y < l.ay1; ++y)
        for (int x = l.ax0; x < l.ax1; ++x) {
            const size_t i = size_t(y) * w + x;
            if (!l.active[i]) continue;
            const int32_t s = sourceOf[i];
            l.nnf[i] = (s >= 0 && l.valid[size_t(s)]) ? s : -1;
        }
}

// ---------------------------------------------------------------------------------------------------------------
// Refinement: PatchMatch and the vote.

void ComputeDistances(Level& l, int r)
{
    const int rows = l.ay1 - l.ay0;
    vmpar::ParallelFor(size_t(std::max(rows, 0)), 8, [&](size_t begin, size_t end, unsigned) {
        for (size_t row = begin; row < end; ++row) {
            const int y = l.ay0 + int(row);
            for (int x = l.ax0; x < l.ax1; ++x) {
                const size_t i = size_t(y) * l.w + x;
                if (!l.active[i]) continue;
                const int32_t t = l.nnf[i];
                l.dist[i] = PatchDistance(l, r, x, y, t % l.w, t / l.w, INT32_MAX);
            }
        }
    });
}

// Gives every active pixel without a field entry a random valid patch.
void FillMissingField(Level& l, uint32_t seed, uint32_t salt)
{
    for (int y = l.ay0; y < l.ay1; ++y)
        for (int x = l.ax0; x < l.ax1; ++x) {
            const size_t i = size_t(y) * l.w + x;
            if (l.active[i] && l.nnf[i] < 0) l.nnf[i] = RandomValid(l, seed, salt, int32_t(i));
        }
}

// One PatchMatch pass: forward passes propagate from the left and upper neighbours, backward passes from the right
// and lower ones, then each pixel tries random patches around its best at halving radii. Bands of kBandRows rows
// run in parallel, each in scan order; a neighbour in another band is read as it was before the pass.
void PatchMatchPass(Level& l, int r, uint32_t seed, uint32_t salt, bool forward, int searchRadius)
{
    const std::vector<int32_t> prevNnf(l.nnf);
    const int w = l.w;
    const int bandCount = (l.ay1 - l.ay0 + kBandRows - 1) / kBandRows;
    const int step = forward ? -1 : 1; // where the neighbours lie
    vmpar::ParallelFor(size_t(std::max(bandCount, 0)), 1, [&](size_t begin, size_t end, unsigned) {
        for (size_t band = begin; band < end; ++band) {
            const int by0 = l.ay0 + int(band) * kBandRows, by1 = std::min(by0 + kBandRows, l.ay1);
            for (int k = 0; k < by1 - by0; ++k) {
                const int y = forward ? by0 + k : by1 - 1 - k;
                for (int j = 0; j < l.ax1 - l.ax0; ++j) {
                    const int x = forward ? l.ax0 + j : l.ax1 - 1 - j;
                    const size_t i = size_t(y) * w + x;
                    if (!l.active[i]) continue;
                    int32_t best = l.nnf[i], bestDist = l.dist[i];
                    auto tryCentre = [&](int tx, int ty) {
                        if (tx < 0 || ty < 0 || tx >= w || ty >= l.h) return;
                        const int32_t t = ty * w + tx;
                        if (t == best || !l.valid[size_t(t)]) return;
                        const int32_t d = PatchDistance(l, r, x, y, tx, ty, bestDist);
                        if (d < bestDist) {
                            bestDist = d;
                            best = t;
                        }
                    };
                    // Horizontal neighbour: same row, same band.
                    const int nx = x + step;
                    if (nx >= 0 && nx < w && l.active[size_t(y) * w + nx]) {
                        const int32_t t = l.nnf[size_t(y) * w + nx];
                        tryCentre(t % w - step, t / w);
                    }
                    // Vertical neighbour: in this band it has been visited already; across the band's edge it is
                    // read from before the pass.
                    const int ny = y + step;
                    if (ny >= 0 && ny < l.h && l.active[size_t(ny) * w + x]) {
                        const bool inBand = ny >= by0 && ny < by1;
                        const int32_t t = inBand ? l.nnf[size_t(ny) * w + x] : prevNnf[size_t(ny) * w + x];
                        tryCentre(t % w, t / w - step);
                    }
                    // Random search around the best.
                    uint32_t k2 = 0;
                    for (int radius = searchRadius; radius >= 1; radius /= 2, ++k2) {
                        const uint32_t hsh = Hash(seed, salt, uint32_t(i), k2);
                        const int span = 2 * radius + 1;
                        const int cx = best % w, cy = best / w;
                        const int tx = std::clamp(cx + int(hsh % uint32_t(span)) - radius, r, w - 1 - r);
                        const int ty = std::clamp(cy + int((hsh >> 16) % uint32_t(span)) - radius, r, l.h - 1 - r);
                        tryCentre(tx, ty);
                    }
                    l.nnf[i] = best;
                    l.dist[i] = bestDist;
                }
            }
        }
    });
}

// Patch weights for the vote: exp(-d / (2 s^2)) of the per-pixel distance, s^2 its 75th percentile over the field.
std::vector<float> VoteWeights(const Level& l, int r)
{
    std::vector<float> weights(size_t(l.w) * l.h, 0.0f);
    std::vector<float> normalised;
    for (int y = l.ay0; y < l.ay1; ++y)
        for (int x = l.ax0; x < l.ax1; ++x) {
            const size_t i = size_t(y) * l.w + x;
            if (!l.active[i]) continue;
            const float d = float(l.dist[i]) / float(PatchPixels(l, r, x, y));
            weights[i] = d;
            normalised.push_back(d);
        }
    float scale = 0.0f;
    if (!normalised.empty()) {
        auto mid = normalised.begin() + std::ptrdiff_t(normalised.size() * 3 / 4);
        std::nth_element(normalised.begin(), mid, normalised.end());
        scale = *mid;
    }
    for (int y = l.ay0; y < l.ay1; ++y)
        for (int x = l.ax0; x < l.ax1; ++x) {
            const size_t i = size_t(y) * l.w + x;
            if (!l.active[i]) continue;
            // The floor keeps a pixel covered only by poor matches from losing every weight to underflow.
            weights[i] = scale > 0.0f ? std::max(std::exp(-weights[i] / (2.0f * scale)), 1e-30f) : 1.0f;
            weights[i] *= l.conf[i];
        }
    return weights;
}

// The vote at one pixel: the weighted mean of what every active patch covering it proposes. False when no patch
// covers it.
bool VoteAt(const Level& l, int r, const std::vector<float>& weights, int x, int y, uint8_t* out)
{
    float sum[3] = {0.0f, 0.0f, 0.0f}, total = 0.0f;
    const int w = l.w;
    for (int dy = -r; dy <= r; ++dy) {
        const int qy = y + dy;
        if (qy < 0 || qy >= l.h) continue;
        for (int dx = -r; dx <= r; ++dx) {
            const int qx = x + dx;
            if (qx < 0 || qx >= w) continue;
            const size_t q = size_t(qy) * w + qx;
            if (!l.active[q]) continue;
            const int32_t t = l.nnf[q];
            const size_t s = size_t(t / w - dy) * w + size_t(t % w - dx);
            const float wt = weights[q];
            const uint8_t* p = &l.px[s * 4];
            sum[0] += wt * p[0];
            sum[1] += wt * p[1];
            sum[2] += wt * p[2];
            total += wt;
        }
    }
    if (total <= 0.0f) return false;
    for (int k = 0; k < 3; ++k)
        out[k] = uint8_t(std::min(255.0f, sum[k] / total + 0.5f));
    return true;
}

// Rebuilds the hole's pixels of a level from the field. Sources are known pixels only, so the pixels written are
// never read by the same vote.
void VoteHole(Level& l, int r)
{
    const std::vector<float> weights = VoteWeights(l, r);
    const int rows = l.ay1 - l.ay0;
    vmpar::ParallelFor(size_t(std::max(rows, 0)), 8, [&](size_t begin, size_t end, unsigned) {
        for (size_t row = begin; row < end; ++row) {
            const int y = l.ay0 + int(row);
            for (int x = l.ax0; x < l.ax1; ++x) {
                const size_t i = size_t(y) * l.w + x;
                if (l.hole[i]) VoteAt(l, r, weights, x, y, &l.px[i * 4]);
            }
        }
    });
}

// Carries the coarser level's field to this one: offsets doubled, the position within the 2 x 2 block kept.
void UpsampleField(const Level& c, Level& f, uint32_t seed, uint32_t salt)
{
    for (int y = f.ay0; y < f.ay1; ++y)
        for (int x = f.ax0; x < f.ax1; ++x) {
            const size_t i = size_t(y) * f.w + x;
            if (!f.active[i]) continue;
            const int cx = std::min(x / 2, c.w - 1), cy = std::min(y / 2, c.h - 1);
            const size_t ci = size_t(cy) * c.w + cx;
            int32_t t = -1;
            if (c.active[ci] && c.nnf[ci] >= 0) {
                const int tx = 2 * (c.nnf[ci] % c.w) + (x - 2 * cx), ty = 2 * (c.nnf[ci] / c.w) + (y - 2 * cy);
                if (tx >= 0 && ty >= 0 && tx < f.w && ty < f.h && f.valid[size_t(ty) * f.w + tx]) t = ty * f.w + tx;
            }
            f.nnf[i] = t;
        }
    FillMissingField(f, seed, salt);
}

// The hole of a finer level starts as the coarser level's colours (nearest).
void UpsampleHole(const Level& c, Level& f)
{
    for (int y = f.ay0; y < f.ay1; ++y)
        for (int x = f.ax0; x < f.ax1; ++x) {
            const size_t i = size_t(y) * f.w + x;
            if (!f.hole[i]) continue;
            const size_t ci = size_t(std::min(y / 2, c.h - 1)) * c.w + std::min(x / 2, c.w - 1);
            std::memcpy(&f.px[i * 4], &c.px[ci * 4], 4);
        }
}

struct Box {
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0; // exclusive ends
};

// Chessboard distance from each pixel to the nearest known one (0 on known pixels), two passes.
std::vector<int> HoleDistance(const Level& l)
{
    std::vector<int> d(size_t(l.w) * l.h);
    for (size_t i = 0; i < d.size(); ++i)
        d[i] = l.hole[i] ? INT_MAX / 2 : 0;
    auto at = [&](int x, int y) {
        return x < 0 || y < 0 || x >= l.w || y >= l.h ? INT_MAX / 2 : d[size_t(y) * l.w + x];
    };
    for (int y = 0; y < l.h; ++y)
        for (int x = 0; x < l.w; ++x) {
            int& v = d[size_t(y) * l.w + x];
            v = std::min({v, at(x - 1, y) + 1, at(x - 1, y - 1) + 1, at(x, y - 1) + 1, at(x + 1, y - 1) + 1});
        }
    for (int y = l.h - 1; y >= 0; --y)
        for (int x = l.w - 1; x >= 0; --x) {
            int& v = d[size_t(y) * l.w + x];
            v = std::min({v, at(x + 1, y) + 1, at(x + 1, y + 1) + 1, at(x, y + 1) + 1, at(x - 1, y + 1) + 1});
        }
    return d;
}

// The box around the pixels at least minDepth deep, grown by `grow` on every side within the level; empty
// (x0 >= x1) when there are none.
Box DeepBounds(const std::vector<int>& d, const Level& l, int minDepth, int grow)
{
    Box b{l.w, l.h, 0, 0};
    for (int y = 0; y < l.h; ++y)
        for (int x = 0; x < l.w; ++x)
            if (d[size_t(y) * l.w + x] >= minDepth) {
                b.x0 = std::min(b.x0, x);
                b.y0 = std::min(b.y0, y);
                b.x1 = std::max(b.x1, x + 1);
                b.y1 = std::max(b.y1, y + 1);
            }
    if (b.x0 >= b.x1) return b;
    return Box{std::max(b.x0 - grow, 0), std::max(b.y0 - grow, 0), std::min(b.x1 + grow, l.w),
               std::min(b.y1 + grow, l.h)};
}

// Thickness of the hole: the largest distance from a hole pixel to the nearest known one.
int HoleThickness(const Level& l)
{
    const std::vector<int> d = HoleDistance(l);
    return d.empty() ? 0 : *std::max_element(d.begin(), d.end());
}

// Confidence of each patch centre for the vote: falls by kConfidenceBase per pixel into the hole, so that near
// the rim the patches that overlap the known picture (and were matched against it) outweigh guesses from deeper in.
void BuildConfidence(Level& l)
{
    const std::vector<int> d = HoleDistance(l);
    l.conf.assign(d.size(), 1.0f);
    for (size_t i = 0; i < d.size(); ++i)
        if (d[i] > 0) l.conf[i] = std::pow(kConfidenceBase, -float(d[i]));
}

// A smooth guess for the hole, peeled from the rim inwards: ring by ring each pixel takes the mean of its known
// (or earlier filled) 8-neighbours. Right in the mean, with no structure of its own.
void SmoothFill(Level& l)
{
    const int w = l.w, h = l.h;
    std::vector<uint8_t> known(l.hole.size());
    std::vector<int32_t> pending, ring;
    for (size_t i = 0; i < known.size(); ++i) {
        known[i] = !l.hole[i];
        if (l.hole[i]) pending.push_back(int32_t(i));
    }
    std::vector<uint8_t> values;
    while (!pending.empty()) {
        ring.clear();
        values.clear();
        size_t kept = 0;
        for (int32_t i : pending) {
            const int x = i % w, y = i / w;
            int sum[3] = {0, 0, 0}, count = 0;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) {
                    const int sx = x + dx, sy = y + dy;
                    if (sx < 0 || sy < 0 || sx >= w || sy >= h || !known[size_t(sy) * w + sx]) continue;
                    const uint8_t* p = &l.px[(size_t(sy) * w + sx) * 4];
                    sum[0] += p[0];
                    sum[1] += p[1];
                    sum[2] += p[2];
                    ++count;
                }
            if (count == 0) {
                pending[kept++] = i;
                continue;
            }
            ring.push_back(i);
            for (int k = 0; k < 3; ++k)
                values.push_back(uint8_t((sum[k] + count / 2) / count));
        }
        pending.resize(kept);
        if (ring.empty()) break; // nothing known at all: the pixels stay as they are
        for (size_t n = 0; n < ring.size(); ++n) {
            std::memcpy(&l.px[size_t(ring[n]) * 4], &values[n * 3], 3);
            known[size_t(ring[n])] = 1;
        }
    }
}

// One box blur of radius kFadeRadius over the rows [y0, y1) and columns [x0, x1) of src (4 bytes a pixel), into dst;
// the window is cut at the box's edges and the mean taken over what is left. Horizontal, then vertical.
void BoxBlur(const std::vector<uint8_t>& src, std::vector<uint8_t>& dst, int w, int x0, int y0, int x1, int y1)
{
    constexpr int R = kFadeRadius;
    std::vector<uint16_t> across(src.size());
    vmpar::ParallelFor(size_t(y1 - y0), 8, [&](size_t begin, size_t end, unsigned) {
        for (size_t row = begin; row < end; ++row) {
            const size_t base = size_t(y0 + int(row)) * w;
            for (int x = x0; x < x1; ++x) {
                const int a = std::max(x - R, x0), b = std::min(x + R, x1 - 1);
                for (int c = 0; c < 3; ++c) {
                    int sum = 0;
                    for (int k = a; k <= b; ++k)
                        sum += src[(base + k) * 4 + c];
                    across[(base + x) * 4 + c] = uint16_t(sum);
                }
                across[(base + x) * 4 + 3] = uint16_t(b - a + 1);
            }
        }
    });
    vmpar::ParallelFor(size_t(y1 - y0), 8, [&](size_t begin, size_t end, unsigned) {
        for (size_t row = begin; row < end; ++row) {
            const int y = y0 + int(row);
            const int a = std::max(y - R, y0), b = std::min(y + R, y1 - 1);
            for (int x = x0; x < x1; ++x) {
                const int count = (b - a + 1) * across[(size_t(y) * w + x) * 4 + 3];
                for (int c = 0; c < 3; ++c) {
                    int sum = 0;
                    for (int k = a; k <= b; ++k)
                        sum += across[(size_t(k) * w + x) * 4 + c];
                    dst[(size_t(y) * w + x) * 4 + c] = uint8_t((sum + count / 2) / count);
                }
            }
        }
    });
}

// Full size, below a coarser level: patches centred deeper than kDeepestRefined take no part in the rounds.
void SkipDeepPatches(Level& l)
{
    const std::vector<int> d = HoleDistance(l);
    for (size_t i = 0; i < d.size(); ++i)
        if (d[i] > kDeepestRefined) l.active[i] = 0;
}

// Deep in a large hole nothing pins down the phase of a texture: the copied detail is one guess among many, and
// its mean (a low-pass) is the better estimate. The fill keeps its full detail on the hole's outer ring, where the
// patches were matched against the known picture, and fades towards the low-pass inwards. Edges that the patches
// carried across stay, softened where they run deep; so does a regular texture, which is the price of the rule.
void FadeDetail(Level& l)
{
    const std::vector<int> d = HoleDistance(l);
    // The blurred value at a hole pixel reads pixels within two radii of it.
    const auto [x0, y0, x1, y1] = DeepBounds(d, l, 2, 2 * kFadeRadius);
    if (x0 >= x1) return; // no pixel deeper than the outer ring
    std::vector<uint8_t> once(l.px.size()), twice(l.px.size());
    BoxBlur(l.px, once, l.w, x0, y0, x1, y1);
    BoxBlur(once, twice, l.w, x0, y0, x1, y1);
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x) {
            const size_t i = size_t(y) * l.w + x;
            if (d[i] < 2) continue;
            const int detail = int(256.0 * std::exp2(-double(d[i] - 1) / kFadeHalving) + 0.5); // out of 256
            for (int c = 0; c < 3; ++c)
                l.px[i * 4 + c] = uint8_t((l.px[i * 4 + c] * detail + twice[i * 4 + c] * (256 - detail) + 128) >> 8);
        }
}

// The patches near the rim are matched against the known picture, but a vote averages several of them and a texture's
// phase still drifts a few pixels in. The rim's own frequencies, fitted block by block and extrapolated, carry the
// texture and the shading on with their phase for as far as the known pixels around reach. Only the luma is
// extrapolated (the colours keep the fill's chroma): it carries the structure, at a third of the work.
void ExtrapolateRim(Level& l)
{
    const std::vector<int> d = HoleDistance(l);
    // Half a window around the hole, so that the rim's blocks see every known pixel their windows hold.
    const Box box = DeepBounds(d, l, 1, FrequencyExtrapolation::kWindow / 2);
    if (box.x0 >= box.x1) return;
    // Plain copies: the row loop below runs in a lambda, which may not capture structured bindings.
    const int x0 = box.x0, y0 = box.y0;
    FrequencyGrid grid;
    grid.w = box.x1 - x0;
    grid.h = box.y1 - y0;
    grid.channels = 1;
    grid.values.resize(size_t(grid.w) * grid.h);
    grid.known.resize(size_t(grid.w) * grid.h);
    auto luma = [](const uint8_t* p) { return 0.114f * float(p[0]) + 0.587f * float(p[1]) + 0.299f * float(p[2]); };
    for (int y = 0; y < grid.h; ++y)
        for (int x = 0; x < grid.w; ++x) {
            const size_t i = size_t(y + y0) * l.w + x + x0, o = size_t(y) * grid.w + x;
            grid.known[o] = !l.hole[i];
            grid.values[o] = grid.known[o] ? luma(&l.px[i * 4]) : 0.0f;
        }
    const std::vector<uint8_t> reached = ExtrapolateFrequencies(grid, FrequencyExtrapolation{});
    vmpar::ParallelFor(size_t(grid.h), 8, [&](size_t begin, size_t end, unsigned) {
        for (size_t row = begin; row < end; ++row) {
            const int y = int(row);
            for (int x = 0; x < grid.w; ++x) {
                const size_t o = size_t(y) * grid.w + x, i = size_t(y + y0) * l.w + x + x0;
                if (!reached[o]) continue;
                const int depth = d[i];
                const float share = depth <= kExtrapolatedRing ? 1.0f
                                    : depth >= kExtrapolatedFade
                                        ? kExtrapolatedDeep
                                        : kExtrapolatedDeep + (1.0f - kExtrapolatedDeep) *
                                                                  float(kExtrapolatedFade - depth) /
                                                                  float(kExtrapolatedFade - kExtrapolatedRing);
                uint8_t* p = &l.px[i * 4];
                const float shift = share * (grid.values[o] - luma(p));
                for (int c = 0; c < 3; ++c)
                    p[c] = uint8_t(std::clamp(float(p[c]) + shift + 0.5f, 0.0f, 255.0f));
            }
        }
    });
}

long Run(const COLImage& src, const COLChannel& mask, COLImage& dst, const ExemplarInpaintParams& params,
         const Reporter& reporter)
{
    const int width = int(src.GetWidth()), height = int(src.GetHeight());
    if (int(mask.GetWidth()) != width || int(mask.GetHeight()) != height) return kExemplarCannotFill;
    const int r = params.patchRadius;
    if (r < 1 || r > CExemplarInpaintProcess::kMaxPatchRadius) return kFail;

    // Hole box and count.
    Box hole{width, height, 0, 0};
    size_t holeCount = 0;
    for (int y = 0; y < height; ++y) {
        const uint8_t* m = mask.GetBuffer(0, uint32_t(y));
        for (int x = 0; x < width; ++x)
            if (m[x] > 127) {
                ++holeCount;
                hole.x0 = std::min(hole.x0, x);
                hole.y0 = std::min(hole.y0, y);
                hole.x1 = std::max(hole.x1, x + 1);
                hole.y1 = std::max(hole.y1, y + 1);
            }
    }
    if (holeCount * 5 > size_t(width) * height) return kExemplarCannotFill;
    reporter.Report(1);

    // Working box: the hole's box grown by half its larger side.
    Box work;
    std::vector<Level> levels(1);
    if (holeCount > 0) {
        const int margin =
            std::max(CExemplarInpaintProcess::kMinMargin, std::max(hole.x1 - hole.x0, hole.y1 - hole.y0) / 2);
        work = Box{std::max(hole.x0 - margin, 0), std::max(hole.y0 - margin, 0), std::min(hole.x1 + margin, width),
                   std::min(hole.y1 + margin, height)};
        Level& l0 = levels[0];
        l0.w = work.x1 - work.x0;
        l0.h = work.y1 - work.y0;
        l0.px.assign(size_t(l0.w) * l0.h * 4, 0);
        l0.hole.assign(size_t(l0.w) * l0.h, 0);
        for (int y = 0; y < l0.h; ++y) {
            const CPixel* s = src.GetBuffer(uint32_t(work.x0), uint32_t(work.y0 + y));
            const uint8_t* m = mask.GetBuffer(uint32_t(work.x0), uint32_t(work.y0 + y));
            for (int x = 0; x < l0.w; ++x) {
                const size_t i = size_t(y) * l0.w + x;
                l0.hole[i] = m[x] > 127;
                if (!l0.hole[i]) {
                    l0.px[i * 4] = s[x].blue;
                    l0.px[i * 4 + 1] = s[x].green;
                    l0.px[i * 4 + 2] = s[x].red;
                }
            }
        }
        BuildMaps(l0, r);
        if (l0.validList.empty()) return kExemplarCannotFill;

        // The pyramid, down to a hole of about half a patch's thickness.
        const int side = 2 * r + 1;
        int thickness = HoleThickness(l0);
        while (int(levels.size()) < kMaxLevels) {
            const Level& f = levels.back();
            if (thickness <= side / 2) break;
            thickness = (thickness + 1) / 2;
            if (std::min((f.w + 1) / 2, (f.h + 1) / 2) < kMinLevelPatches * side) break;
            Level c;
            Downsample(f, c);
            BuildMaps(c, r);
            if (c.validList.empty()) break;
            levels.push_back(std::move(c));
        }
    }
    reporter.CheckCancel();
    reporter.Report(5);

    if (holeCount > 0) {
        // Work per level grows fourfold per step towards full size; progress follows that.
        const int count = int(levels.size());
        std::vector<int> progressAt(size_t(count) + 1);
        {
            double total = 0.0;
            for (int k = 0; k < count; ++k)
                total += std::ldexp(1.0, -2 * k);
            double done = 0.0;
            progressAt[size_t(count)] = 5;
            for (int k = count - 1; k >= 0; --k) {
                done += std::ldexp(1.0, -2 * k);
                progressAt[size_t(k)] = 5 + int(90.0 * done / total);
            }
        }
        for (int k = count - 1; k >= 0; --k) {
            Level& l = levels[size_t(k)];
            const uint32_t salt = uint32_t(k) * 1000u;
            const int low = progressAt[size_t(k) + 1], high = progressAt[size_t(k)];
            int searchRadius = std::max(l.w, l.h);
            int emRounds = 0, emLow = low;
            BuildConfidence(l);
            if (k == count - 1) {
                emLow = low + (high - low) / 2;
                // The first guess blends two: the patches placed in isophote order (sharp, continues edges, but a
                // wrong pick is carried on) and the smooth fill from the rim (right in the mean, no structure), the
                // latter weighing more. Where they agree the blend keeps the structure; where they do not, the rounds
                // below decide.
                Level smooth = l;
                SmoothFill(smooth);
                PriorityFill(l, r, reporter, low, emLow);
                for (size_t i = 0; i < l.hole.size(); ++i)
                    if (l.hole[i])
                        for (int c = 0; c < 3; ++c)
                            l.px[i * 4 + c] = uint8_t((l.px[i * 4 + c] * (256 - kFirstGuessSmooth) +
                                                       smooth.px[i * 4 + c] * kFirstGuessSmooth + 128) >>
                                                      8);
                FillMissingField(l, params.seed, salt + 1);
                emRounds = kCoarsestRounds;
            } else {
                if (k == 0) SkipDeepPatches(l);
                UpsampleField(levels[size_t(k) + 1], l, params.seed, salt + 1);
                UpsampleHole(levels[size_t(k) + 1], l);
                searchRadius = std::min(searchRadius, kFineSearchPatches * (2 * r + 1));
                emRounds = k == 0 ? kFinestRounds : kMiddleRounds;
                ComputeDistances(l, r);
                VoteHole(l, r);
            }
            for (int round = 0; round < emRounds; ++round) {
                ComputeDistances(l, r);
                for (int pass = 0; pass < kPassesPerRound; ++pass)
                    PatchMatchPass(l, r, params.seed, salt + 10 + uint32_t(round * kPassesPerRound + pass),
                                   pass % 2 == 0, searchRadius);
                VoteHole(l, r);
                reporter.CheckCancel();
                reporter.Report(emLow + (high - emLow) * (round + 1) / emRounds);
            }
        }
        FadeDetail(levels[0]);
        reporter.CheckCancel();
        ExtrapolateRim(levels[0]);
    }

    // The result: the source with the hole's pixels, and the seam band blended on a ramp.
    // Everything that allocates comes first, so that a failure leaves the destination as it was.
    std::vector<float> weights;
    HoleSums sums;
    if (holeCount > 0) {
        ComputeDistances(levels[0], r);
        weights = VoteWeights(levels[0], r);
        sums.Build(levels[0]);
    }
    if (&dst != &src && !dst.DuplicateFrom(&src)) return kFail;
    if (holeCount > 0) {
        const Level& l = levels[0];
        constexpr int seam = CExemplarInpaintProcess::kSeamWidth;
        const int y0 = std::max(l.ay0 - seam, 0), y1 = std::min(l.ay1 + seam, l.h);
        vmpar::ParallelFor(size_t(std::max(y1 - y0, 0)), 8, [&](size_t begin, size_t end, unsigned) {
            for (size_t row = begin; row < end; ++row) {
                const int y = y0 + int(row);
                for (int x = std::max(l.ax0 - seam, 0); x < std::min(l.ax1 + seam, l.w); ++x) {
                    const size_t i = size_t(y) * l.w + x;
                    CPixel* out = dst.GetBuffer(uint32_t(work.x0 + x), uint32_t(work.y0 + y));
                    if (l.hole[i]) {
                        out->blue = l.px[i * 4];
                        out->green = l.px[i * 4 + 1];
                        out->red = l.px[i * 4 + 2];
                        continue;
                    }
                    int d = 0; // chessboard distance to the hole, 1..seam, or 0 beyond
                    for (int k = 1; k <= seam && d == 0; ++k)
                        if (sums.Box(x - k, y - k, x + k, y + k) > 0) d = k;
                    if (d == 0) continue;
                    uint8_t v[3];
                    if (!VoteAt(l, r, weights, x, y, v)) continue;
                    const int a = seam + 1 - d, b = d; // weights of the vote and of the pixel, out of seam + 1
                    const int div = seam + 1, half = div / 2;
                    out->blue = uint8_t((v[0] * a + out->blue * b + half) / div);
                    out->green = uint8_t((v[1] * a + out->green * b + half) / div);
                    out->red = uint8_t((v[2] * a + out->red * b + half) / div);
                }
            }
        });
    }
    reporter.Report(100);
    return kOk;
}

} // namespace

long ExemplarInpaint(const COLImage& src, const COLChannel& mask, COLImage& dst, const ExemplarInpaintParams& params,
                     CImageProcess* owner, bool* cancelled)
{
    if (cancelled) *cancelled = false;
    if (src.IsNull() || mask.IsNull()) return kFail;
    const Reporter reporter{owner, cancelled};
    return vmrt::GuardExhaustion([&]() -> long {
        try {
            return Run(src, mask, dst, params, reporter);
        } catch (const CCancelled&) {
            return kFail;
        }
    });
}

long CExemplarInpaintProcess::Process(const void* params)
{
    m_cancelled = false;
    const long base = CImageProcess::Process(params);
    if (base != kOk) return base;
    if (!params) return kFail;
    const ExemplarInpaintParams copy = *static_cast<const ExemplarInpaintParams*>(params);
    if (!copy.mask) return kFail;
    return ExemplarInpaint(*m_pSrcImage, *copy.mask, *m_pDstImage, copy, this, &m_cancelled);
}
