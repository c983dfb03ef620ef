#include "matting/segment.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <mutex>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include "matting/gaussian.h"
#include "runtime/parallel_for.h"
#include "filters/resample.h"

namespace {

constexpr uint32_t kLabelMask = 0xFFFFFFu;

// Truncated square root of every value below 2^16 (larger squares are capped at 255 anyway).
struct RootTable {
    uint8_t value[65536];
    RootTable()
    {
        for (uint32_t i = 0; i < 65536; ++i) {
            uint32_t r = uint32_t(std::sqrt(double(i)));
            while (r * r > i) --r;
            while ((r + 1) * (r + 1) <= i) ++r;
            value[i] = uint8_t(std::min<uint32_t>(r, 255));
        }
    }
};

const RootTable& Roots()
{
    static const RootTable table;
    return table;
}

// Adds, for x from 1 to w - 2, the squared differences of the four opposed pairs of three-pixel group means of
// one channel (rows above, at and below x) to the four sums. Group means truncate: sums of three bytes (at most
// 765) times 43691, shifted right by 17, is the exact quotient by 3 in that range.
void AddSquaredPairs(const uint16_t* up, const uint16_t* mid, const uint16_t* dn, uint32_t w, int32_t* s0, int32_t* s1,
                     int32_t* s2, int32_t* s3)
{
    uint32_t x = 1;
#if defined(__SSE2__)
    const __m128i third = _mm_set1_epi16(int16_t(0xAAAB));
    const __m128i zero = _mm_setzero_si128();
    auto load = [](const uint16_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); };
    auto mean = [&](__m128i a, __m128i b, __m128i c) {
        return _mm_srli_epi16(_mm_mulhi_epu16(_mm_add_epi16(_mm_add_epi16(a, b), c), third), 1);
    };
    auto add = [&](int32_t* sum, __m128i a, __m128i b) {
        const __m128i d = _mm_sub_epi16(a, b);
        const __m128i sq = _mm_mullo_epi16(d, d);   // below 65536: the low half is the whole square
        __m128i* lo = reinterpret_cast<__m128i*>(sum);
        _mm_storeu_si128(lo, _mm_add_epi32(_mm_loadu_si128(lo), _mm_unpacklo_epi16(sq, zero)));
        _mm_storeu_si128(lo + 1, _mm_add_epi32(_mm_loadu_si128(lo + 1), _mm_unpackhi_epi16(sq, zero)));
    };
    for (; x + 8 < w; x += 8) {
        const __m128i ul = load(up + x - 1), u = load(up + x), ur = load(up + x + 1);
        const __m128i l = load(mid + x - 1), r = load(mid + x + 1);
        const __m128i dl = load(dn + x - 1), d = load(dn + x), dr = load(dn + x + 1);
        add(s0 + x, mean(u, l, ul), mean(r, dr, d));
        add(s1 + x, mean(ur, u, ul), mean(dr, d, dl));
        add(s2 + x, mean(r, ur, u), mean(d, dl, l));
        add(s3 + x, mean(r, dr, ur), mean(dl, l, ul));
    }
#endif
    for (; x + 1 < w; ++x) {
        const int ul = up[x - 1], u = up[x], ur = up[x + 1];
        const int l = mid[x - 1], r = mid[x + 1];
        const int dl = dn[x - 1], d = dn[x], dr = dn[x + 1];
        const int d0 = (u + l + ul) / 3 - (r + dr + d) / 3;
        const int d1 = (ur + u + ul) / 3 - (dr + d + dl) / 3;
        const int d2 = (r + ur + u) / 3 - (d + dl + l) / 3;
        const int d3 = (r + dr + ur) / 3 - (dl + l + ul) / 3;
        s0[x] += d0 * d0;
        s1[x] += d1 * d1;
        s2[x] += d2 * d2;
        s3[x] += d3 * d3;
    }
}

} // namespace

long CSegmentProcess::Process(const void* params)
{
    if (CImageProcess::Process(params) != kOk) return kFail;
    detail = params ? *static_cast<const int32_t*>(params) : kDefaultDetail;
    if (detail < 1) return kFail;
    m_width = m_pSrcImage->GetWidth();
    m_height = m_pSrcImage->GetHeight();
    regions.clear();

    // A failed blur is not fatal: the gradient is then taken from the picture itself.
    const double sigma = double(std::max(m_width, m_height)) / (detail * 20.0);
    CGaussianProcess gauss;
    gauss.SetImages(m_pSrcImage, &smooth);
    if (gauss.Process(&sigma) != kOk && !smooth.DuplicateFrom(m_pSrcImage)) return kFail;

    ReportProgress(10);
    if (!BuildGradient()) return kFail;
    ReportProgress(15);
    if (TestAndClearCancel()) return kFail;

    // The reduced picture keeps the long side at 800; a picture so thin that its short side would fall below 2
    // is cheap at full size and has no inner pixels to carry labels with, so it stays there.
    const uint32_t longSide = std::max(m_width, m_height);
    uint32_t sw = m_width, sh = m_height;
    if (m_height >= m_width) {
        sh = kCoarseSide;
        sw = uint32_t(uint64_t(m_width) * kCoarseSide / m_height);
    } else {
        sw = kCoarseSide;
        sh = uint32_t(uint64_t(m_height) * kCoarseSide / m_width);
    }
    bool merge;
    if (longSide > kCoarseSide && !isChild && sw >= 2 && sh >= 2) {
        if (SegmentCoarse(sw, sh) != kOk) return kFail;
        ReportProgress(65);
        merge = false;   // the small picture's regions were merged already
    } else {
        IndexUnlabelled();
        level = 8;
        m_pending.clear();
        for (uint32_t g = 0; g < uint32_t(level); ++g)
            m_pending.insert(m_pending.end(), m_byGradient.begin() + m_gradientStart[g],
                             m_byGradient.begin() + m_gradientStart[g + 1]);
        std::sort(m_pending.begin(), m_pending.end());
        SeedBasins();
        ReportProgress(35);
        if (TestAndClearCancel()) return kFail;
        merge = true;
    }

    while (level < seedEnd) {
        ++level;
        RaiseLevel();
        Grow();
        SeedRemaining();
        ReportProgress(level * 30 / seedEnd + 35);
        if (TestAndClearCancel()) return kFail;
    }
    while (level < 256) {
        ++level;
        RaiseLevel();
        if (histogram[level - 1] != 0) Grow();
        ReportProgress(level * 25 / 256 + 65);
        if (TestAndClearCancel()) return kFail;
    }
    if (merge) {
        BuildAdjacency();
        ReportProgress(95);
        MergeRegions();
        Relabel();
    }
    m_byGradient = {};
    m_pending = {};
    ReportProgress(100);
    return kOk;
}

bool CSegmentProcess::BuildGradient()
{
    const uint32_t w = m_width, h = m_height;
    if (gray.Create(w, h) != kOk || m_pDstImage->Create(w, h) != kOk) return false;
    const CPixel* src = m_pSrcImage->GetBuffer();
    uint8_t* g = gray.GetBuffer();
    m_labels = reinterpret_cast<uint32_t*>(m_pDstImage->GetBuffer());
    uint32_t* out = m_labels;
    const CPixel* s = smooth.GetBuffer();
    const RootTable& roots = Roots();

    // The largest of the four distances is the root of the largest squared distance, so the four pairs only
    // compare squares. Each channel goes through planar rows, a loop the compiler vectorises across x.
    std::atomic<uint64_t> counts[256];
    for (auto& c : counts) c = 0;
    vmpar::ParallelFor(h, 64, [&](size_t y0, size_t y1, unsigned) {
        uint32_t local[256] = {};
        std::vector<uint16_t> planar(size_t(9) * w);   // [row above, row, row below][red, green, blue]
        std::vector<int32_t> sq(size_t(4) * w);
        for (size_t y = y0; y < y1; ++y) {
            const size_t row = y * w;
            for (uint32_t x = 0; x < w; ++x) g[row + x] = src[row + x].GetGray2();
            const bool inner = y > 0 && y + 1 < h && w > 2;
            if (inner) {
                for (int r = 0; r < 3; ++r) {
                    const CPixel* line = s + (y + size_t(r) - 1) * w;
                    uint16_t* pr = planar.data() + size_t(r * 3 + 0) * w;
                    uint16_t* pg = planar.data() + size_t(r * 3 + 1) * w;
                    uint16_t* pb = planar.data() + size_t(r * 3 + 2) * w;
                    for (uint32_t x = 0; x < w; ++x) {
                        pr[x] = line[x].red;
                        pg[x] = line[x].green;
                        pb[x] = line[x].blue;
                    }
                }
                std::fill(sq.begin(), sq.end(), 0);
                int32_t* __restrict s0 = sq.data();
                int32_t* __restrict s1 = s0 + w;
                int32_t* __restrict s2 = s1 + w;
                int32_t* __restrict s3 = s2 + w;
                for (int c = 0; c < 3; ++c)
                    AddSquaredPairs(planar.data() + size_t(c) * w, planar.data() + size_t(3 + c) * w,
                                    planar.data() + size_t(6 + c) * w, w, s0, s1, s2, s3);
            }
            for (uint32_t x = 0; x < w; ++x) {
                uint32_t grad = 255;
                if (inner && x > 0 && x + 1 < w) {
                    const int32_t m = std::max(std::max(sq[x], sq[w + x]), std::max(sq[2 * size_t(w) + x], sq[3 * size_t(w) + x]));
                    grad = m >= 65536 ? 255u : roots.value[m];
                }
                out[row + x] = grad << 24;   // label 0
                ++local[grad];
            }
        }
        for (int i = 0; i < 256; ++i)
            if (local[i]) counts[i] += local[i];
    });
    for (int i = 0; i < 256; ++i) histogram[i] = int32_t(counts[i].load());

    // seedEnd is a count of bins: the levels up to it hold more than a tenth of the picture.
    const uint64_t tenth = uint64_t(w) * h / 10;
    uint64_t sum = 0;
    seedEnd = 256;
    for (int b = 0; b < 256; ++b) {
        sum += uint64_t(histogram[b]);
        if (sum > tenth) {
            seedEnd = b + 1;
            break;
        }
    }
    seedEnd = std::max(seedEnd, 16);
    level = 8;
    return true;
}

void CSegmentProcess::IndexUnlabelled()
{
    const size_t n = size_t(m_width) * m_height;
    uint32_t count[257] = {};
    for (size_t i = 0; i < n; ++i)
        if ((m_labels[i] & kLabelMask) == 0) ++count[(m_labels[i] >> 24) + 1];
    for (int g = 0; g < 256; ++g) count[g + 1] += count[g];
    std::memcpy(m_gradientStart, count, sizeof count);
    m_byGradient.resize(count[256]);
    for (size_t i = 0; i < n; ++i)
        if ((m_labels[i] & kLabelMask) == 0) m_byGradient[count[m_labels[i] >> 24]++] = uint32_t(i);
}

// The pixels of the gradient just below the new level join the candidates, in scan order.
void CSegmentProcess::RaiseLevel()
{
    const uint32_t g = uint32_t(level - 1);
    const auto first = m_byGradient.begin() + m_gradientStart[g], last = m_byGradient.begin() + m_gradientStart[g + 1];
    if (first == last) return;
    m_merged.clear();
    m_merged.reserve(m_pending.size() + size_t(last - first));
    std::merge(m_pending.begin(), m_pending.end(), first, last, std::back_inserter(m_merged));
    m_pending.swap(m_merged);
}

void CSegmentProcess::SeedBasins()
{
    regions.clear();
    SeedRemaining();
}

void CSegmentProcess::SeedRemaining()
{
    for (uint32_t p : m_pending)
        if ((m_labels[p] & kLabelMask) == 0) FloodRegion(p);
    m_pending.clear();   // every candidate has a label now
}

void CSegmentProcess::FloodRegion(uint32_t index)
{
    SegmentRegion region;
    region.id = uint32_t(regions.size() + 1);
    region.seedLevel = uint32_t(level);
    const uint32_t label = region.id;
    const uint32_t w = m_width, h = m_height;
    const uint32_t lim = uint32_t(level);
    uint32_t* L = m_labels;
    auto open = [&](size_t i) { return (L[i] & kLabelMask) == 0 && (L[i] >> 24) < lim; };

    // Stack of seed points; each is widened to its whole run on its row, and the rows above and below push one
    // seed per run of candidates between the run's ends.
    m_stack.clear();
    m_stack.push_back(index);
    int32_t size = 0;
    while (!m_stack.empty()) {
        const uint32_t p = m_stack.back();
        m_stack.pop_back();
        if (!open(p)) continue;
        const uint32_t y = p / w;
        const size_t row = size_t(y) * w;
        uint32_t x0 = p % w, x1 = x0;
        while (x0 > 0 && open(row + x0 - 1)) --x0;
        while (x1 + 1 < w && open(row + x1 + 1)) ++x1;
        for (uint32_t x = x0; x <= x1; ++x) L[row + x] = (L[row + x] & ~kLabelMask) | label;
        size += int32_t(x1 - x0 + 1);
        for (int dir = -1; dir <= 1; dir += 2) {
            if ((dir < 0 && y == 0) || (dir > 0 && y + 1 >= h)) continue;
            const size_t other = size_t(int64_t(row) + int64_t(dir) * w);
            bool inRun = false;
            for (uint32_t x = x0; x <= x1; ++x) {
                const bool c = open(other + x);
                if (c && !inRun) m_stack.push_back(uint32_t(other + x));
                inRun = c;
            }
        }
    }
    region.size = size;
    regions.push_back(region);
}

bool CSegmentProcess::Adopt(uint32_t index)
{
    const uint32_t w = m_width;
    const uint32_t x = index % w, y = index / w;
    const uint8_t* g = gray.GetBuffer();
    const int own = g[index];
    uint32_t best = 0;
    int bestD = 255;
    // The left neighbour is taken at once when it has a label; the others win only when strictly nearer in gray.
    if (x > 0) {
        const uint32_t l = m_labels[index - 1] & kLabelMask;
        if (l) {
            best = l;
            bestD = std::abs(own - g[index - 1]);
        }
    }
    const bool has[3] = {x + 1 < w, y > 0, y + 1 < m_height};
    const size_t at[3] = {size_t(index) + 1, size_t(index) - w, size_t(index) + w};
    for (int k = 0; k < 3; ++k) {
        if (!has[k]) continue;
        const uint32_t l = m_labels[at[k]] & kLabelMask;
        if (!l) continue;
        const int d = std::abs(own - g[at[k]]);
        if (d < bestD) {
            best = l;
            bestD = d;
        }
    }
    if (!best) return false;
    m_labels[index] = (m_labels[index] & ~kLabelMask) | best;
    ++regions[best - 1].size;
    return true;
}

// One level of growing. Candidates are visited in scan order and labelled at once, so a run of them fills from
// its labelled end in one scan; those that find no labelled neighbour wait in a queue of at most 20,000, which is
// swept until a sweep adopts nothing. The border takes part like any pixel: its gradient of 255 lets it in at
// the last level only.
void CSegmentProcess::Grow()
{
    for (;;) {
        // Scan: labelled pixels leave the candidates here.
        m_queue.clear();
        size_t kept = 0;
        for (size_t i = 0; i < m_pending.size(); ++i) {
            const uint32_t p = m_pending[i];
            if (m_labels[p] & kLabelMask) continue;
            if (Adopt(p)) continue;
            m_pending[kept++] = p;
            if (m_queue.size() < kQueueLimit) m_queue.push_back(p);
        }
        m_pending.resize(kept);
        if (m_queue.empty()) return;
        for (;;) {
            size_t adopted = 0;
            m_nextQueue.clear();
            for (uint32_t p : m_queue) {
                if (Adopt(p))
                    ++adopted;
                else
                    m_nextQueue.push_back(p);
            }
            m_queue.swap(m_nextQueue);
            if (adopted == 0) return;
            if (m_queue.empty()) break;   // scan again
        }
    }
}

long CSegmentProcess::SegmentCoarse(uint32_t sw, uint32_t sh)
{
    // The blurred picture is the one reduced: two-point sampling of the raw picture would alias its noise.
    COLImage small, smallLabels;
    if (!SampleImageTwoPoint(&smooth, &small, int(sw), int(sh))) return kFail;
    ReportProgress(20);

    CSegmentProcess child;
    child.isChild = 1;
    child.SetProgressCallback(GetProgressCallback());
    const int32_t span = m_progressHigh - m_progressLow;
    child.SetProgressRange(m_progressLow + 20 * span / 100, m_progressLow + 55 * span / 100);
    child.SetImages(&small, &smallLabels);
    if (child.Process(&detail) != kOk) return kFail;

    regions = child.regions;
    for (SegmentRegion& r : regions) {
        r.seedLevel = 4;
        r.size = 0;
        r.mergedInto = 0;
    }

    // A full-size pixel takes a label only where the four small pixels around its position agree; where they
    // differ a band stays open and grows at full size.
    const uint32_t w = m_width, h = m_height;
    const uint32_t* small32 = reinterpret_cast<const uint32_t*>(smallLabels.GetBuffer());
    const size_t count = regions.size();
    std::mutex sizeLock;
    vmpar::ParallelFor(h, 16, [&](size_t y0, size_t y1, unsigned) {
        std::vector<int32_t> sizes(count + 1, 0);
        for (size_t y = y0; y < y1; ++y) {
            const uint32_t sy = uint32_t(y * sh / h);
            uint32_t* row = m_labels + y * w;
            for (uint32_t x = 0; x < w; ++x) {
                const uint32_t sx = uint32_t(uint64_t(x) * sw / w);
                uint32_t label = 0;
                if (sx < sw - 1 && sy < sh - 1) {
                    const uint32_t* s = small32 + size_t(sy) * sw + sx;
                    const uint32_t a = s[0] & kLabelMask;
                    if (a == (s[1] & kLabelMask) && a == (s[sw] & kLabelMask) && a == (s[sw + 1] & kLabelMask)) label = a;
                }
                row[x] = (row[x] & ~kLabelMask) | label;
                if (label && label <= count) ++sizes[label];
            }
        }
        const std::lock_guard<std::mutex> hold(sizeLock);
        for (size_t l = 1; l <= count; ++l) regions[l - 1].size += sizes[l];
    });

    level = seedEnd = child.seedEnd;
    IndexUnlabelled();
    m_pending.clear();
    for (uint32_t g = 0; g < uint32_t(level); ++g)
        m_pending.insert(m_pending.end(), m_byGradient.begin() + m_gradientStart[g],
                         m_byGradient.begin() + m_gradientStart[g + 1]);
    std::sort(m_pending.begin(), m_pending.end());
    return kOk;
}

void CSegmentProcess::BuildAdjacency()
{
    const uint32_t w = m_width, h = m_height;
    for (uint32_t y = 1; y + 1 < h; ++y)
        for (uint32_t x = 1; x + 1 < w; ++x) {
            const size_t i = size_t(y) * w + x;
            const uint32_t l = m_labels[i] & kLabelMask;
            if (!l || regions[l - 1].neighbourCount >= SegmentRegion::kMaxNeighbours) continue;
            const uint32_t gradient = m_labels[i] >> 24;
            const size_t around[4] = {i - w, i - 1, i + 1, i + w};
            for (size_t a : around) {
                const uint32_t m = m_labels[a] & kLabelMask;
                if (m && m != l) AddNeighbour(l, m, gradient);
            }
        }
}

void CSegmentProcess::AddNeighbour(uint32_t label, uint32_t other, uint32_t gradient)
{
    SegmentRegion& r = regions[label - 1];
    for (int k = 0; k < r.neighbourCount; ++k)
        if (r.neighbours[k] == other) {
            r.edgeSum[k] += gradient;
            ++r.edgeLength[k];
            return;
        }
    if (r.neighbourCount >= SegmentRegion::kMaxNeighbours) return;
    const int k = r.neighbourCount++;
    r.neighbours[k] = other;
    r.edgeSum[k] = gradient;
    r.edgeLength[k] = 1;
}

// Small regions (below 400 pixels) go into a neighbour across a weak boundary. The mean gradient along a boundary
// is a whole number (the sum divided by the length, truncated), so of two boundaries of the same whole mean the
// first listed is taken.
void CSegmentProcess::MergeRegions()
{
    for (size_t i = 0; i < regions.size(); ++i) {
        const SegmentRegion& r = regions[i];
        if (r.size <= 0 || r.size >= 400 || r.neighbourCount == 0) continue;
        if (r.neighbourCount == 1) {
            if (r.edgeSum[0] / r.edgeLength[0] < 16) {
                Merge(uint32_t(i), r.neighbours[0]);
                continue;
            }
        }
        int best = 0;
        uint32_t bestMean = r.edgeSum[0] / r.edgeLength[0];
        for (int k = 1; k < r.neighbourCount; ++k) {
            const uint32_t mean = r.edgeSum[k] / r.edgeLength[k];
            if (mean < bestMean) {
                bestMean = mean;
                best = k;
            }
        }
        if (bestMean < 8) Merge(uint32_t(i), r.neighbours[best]);
    }
}

void CSegmentProcess::Merge(uint32_t index, uint32_t label)
{
    SegmentRegion& r = regions[index];
    if (label == index + 1 || label < 1 || label > regions.size()) return;
    SegmentRegion& t = regions[label - 1];
    if (t.mergedInto != 0) return;
    r.mergedInto = int32_t(label);
    t.size += r.size;
    r.size = 0;
    for (int k = 0; k < t.neighbourCount; ++k)
        if (t.neighbours[k] == index + 1) {
            for (int j = k; j + 1 < t.neighbourCount; ++j) {
                t.neighbours[j] = t.neighbours[j + 1];
                t.edgeLength[j] = t.edgeLength[j + 1];
                t.edgeSum[j] = t.edgeSum[j + 1];
            }
            --t.neighbourCount;
            break;
        }
}

// Each merged region's pixels follow its chain of merges. A link is followed only when it names a label from 1
// to below the region count, the same test at every link: a chain that reaches the last region stops before it,
// so every region merged along that chain still ends on one label.
void CSegmentProcess::ApplyMerges(const std::vector<SegmentRegion>& regions, COLImage& labels)
{
    const uint32_t count = uint32_t(regions.size());
    std::vector<uint32_t> target(size_t(count) + 1, 0);
    bool any = false;
    for (uint32_t l = 1; l <= count; ++l) {
        uint32_t t = l;
        for (uint32_t steps = 0; steps < count; ++steps) {
            const int32_t p = regions[t - 1].mergedInto;
            if (p < 1 || uint32_t(p) >= count) break;
            t = uint32_t(p);
        }
        target[l] = t;
        any |= t != l;
    }
    if (!any) return;
    uint32_t* words = reinterpret_cast<uint32_t*>(labels.GetBuffer());
    vmpar::ParallelFor(labels.GetPixelCount(), size_t(1) << 16, [&](size_t b, size_t e, unsigned) {
        for (size_t i = b; i < e; ++i) {
            const uint32_t l = words[i] & kLabelMask;
            if (l && l <= count && target[l] != l) words[i] = (words[i] & ~kLabelMask) | target[l];
        }
    });
}

void CSegmentProcess::Relabel() { ApplyMerges(regions, *m_pDstImage); }
