#include "effects/polygon_fill.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "imaging/channel.h"
#include "imaging/result.h"
#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"

#if VM_SIMD_X86
#include <emmintrin.h>
#endif

namespace {

// Rows below which a band is not worth a thread of its own.
constexpr size_t kMinBandRows = 64;

struct Edge {
    int64_t x1, y1;
    int64_t ymin, ymax;
    int64_t slope;   // (y1 - y2) * 256 / (x1 - x2), truncated; unused when vertical
    bool vertical;
};

int64_t FloorDiv(int64_t a, int64_t b)   // b > 0
{
    int64_t q = a / b;
    if ((a % b) != 0 && a < 0) --q;
    return q;
}

inline uint64_t Load8(const uint8_t* p)
{
    uint64_t w;
    std::memcpy(&w, p, 8);
    return w;
}

// The edges that take part, in the order of their top rows; horizontal edges and edges whose slope truncated to
// 0 never count.
std::vector<Edge> MakeEdges(const CPolyPoint* points, size_t count)
{
    std::vector<Edge> edges;
    edges.reserve(count - 1);
    for (size_t i = 0; i + 1 < count; ++i) {
        const int64_t x1 = points[i].x, y1 = points[i].y, x2 = points[i + 1].x, y2 = points[i + 1].y;
        Edge e{x1, y1, std::min(y1, y2), std::max(y1, y2), 0, x1 == x2};
        if (!e.vertical) e.slope = ((y1 - y2) * 256) / (x1 - x2);
        if (e.ymin == e.ymax || (!e.vertical && e.slope == 0)) continue;
        edges.push_back(e);
    }
    std::stable_sort(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) { return a.ymin < b.ymin; });
    return edges;
}

// Where an edge starts to count along a row: for every column at or right of `t`. Both rules reduce to
// t = base + floor(num / div), and num moves by a fixed step from one row to the next, so t follows with a
// quotient and a remainder, without a division per row.
struct Crossing {
    int64_t t;
    int64_t rem; // num - (t - base) * div, in [0, div)
    int64_t div;
    int64_t stepQ, stepRem;
    int64_t end; // the first row where the edge no longer takes part

    void Start(int64_t base, int64_t num, int64_t d, int64_t step, int64_t endRow)
    {
        const int64_t q = FloorDiv(num, d);
        t = base + q;
        rem = num - q * d;
        div = d;
        stepQ = FloorDiv(step, d);
        stepRem = step - stepQ * d;
        end = endRow;
    }
    void Step()
    {
        t += stepQ;
        rem += stepRem;
        const bool carry = rem >= div;
        t += carry;
        rem -= carry ? div : 0;
    }
};

// Two kinds of rows: pixel rows y for the integer rule, and quarter-pixel sample rows r at height (r + 0.5) / 4
// for the sampled rule, where columns are sample columns q at (q + 0.5) / 4; pixel x holds the samples
// q = 4x - 2 .. 4x + 1.
//
// Integer rule at pixel (x, y): v = (x1 - x) * s + (y - y1) * 256; s > 0 counts for v < 0, that is for
// x >= x1 + 1 + floor((y - y1) * 256 / s); s < 0 counts for v > 0, x >= x1 + 1 + floor(-(y - y1) * 256 / -s);
// a vertical edge for x >= x1 + 1.
// Sampled rule: times 8, v = (8 x1 - 2q - 1) * s + C with C = (2r + 1 - 8 y1) * 256, every term an integer. In
// floating point the same products are exact while coordinates stay within a million pixels, so the signs agree;
// beyond that the integers hold. s > 0 counts for q >= 4 x1 + 1 + floor((C - s) / 2s), s < 0 for
// q >= 4 x1 + 1 + floor((s - C) / -2s), a vertical edge for q >= 4 x1. Every quantity stays far inside 64 bits
// for any 32-bit outline.

// Pixel row after pixel row, the crossings of the edges that take part, sorted.
class CSweep {
public:
    explicit CSweep(const std::vector<Edge>& edges) : m_edges(edges) {}

    // The next call of Next gives `row`.
    void Begin(int64_t row)
    {
        m_row = row - 1;
        m_next = 0;
        m_nextEnd = INT64_MAX;
        m_active.clear();
    }

    // Moves one row down and gives the crossings of that row in increasing order, followed by INT64_MAX.
    void Next(std::vector<int64_t>& out)
    {
        const int64_t row = ++m_row;
        for (Crossing& c : m_active) c.Step();
        if (row >= m_nextEnd) {
            size_t kept = 0;
            m_nextEnd = INT64_MAX;
            for (const Crossing& c : m_active)
                if (c.end > row) {
                    m_active[kept++] = c;
                    m_nextEnd = std::min(m_nextEnd, c.end);
                }
            m_active.resize(kept);
        }
        while (m_next < m_edges.size() && m_edges[m_next].ymin <= row) {
            const Edge& e = m_edges[m_next++];
            if (e.ymax <= row) continue;
            m_active.push_back(Start(e, row));
            m_nextEnd = std::min(m_nextEnd, m_active.back().end);
        }
        // The order changes only where edges cross, so the list from the row before is nearly sorted.
        for (size_t i = 1; i < m_active.size(); ++i) {
            if (m_active[i - 1].t <= m_active[i].t) continue;
            const Crossing c = m_active[i];
            size_t j = i;
            for (; j > 0 && m_active[j - 1].t > c.t; --j) m_active[j] = m_active[j - 1];
            m_active[j] = c;
        }
        out.resize(m_active.size() + 1);
        for (size_t i = 0; i < m_active.size(); ++i) out[i] = m_active[i].t;
        out.back() = INT64_MAX;
    }

private:
    Crossing Start(const Edge& e, int64_t row) const
    {
        Crossing c;
        if (e.vertical) c.Start(e.x1 + 1, 0, 1, 0, e.ymax);
        else if (e.slope > 0) c.Start(e.x1 + 1, (row - e.y1) * 256, e.slope, 256, e.ymax);
        else c.Start(e.x1 + 1, -(row - e.y1) * 256, -e.slope, -256, e.ymax);
        return c;
    }

    const std::vector<Edge>& m_edges;
    std::vector<Crossing> m_active;
    size_t m_next = 0;
    int64_t m_row = 0;
    int64_t m_nextEnd = INT64_MAX; // the first row where an active edge ends
};

// The spans of one pixel row as sorted [from, to) bounds, clipped to the box, touching spans joined, followed by
// INT64_MAX; `t` are the row's crossings with their end mark.
void RowSpans(const std::vector<int64_t>& t, int64_t left, int64_t right, std::vector<int64_t>& bounds)
{
    bounds.clear();
    const size_t n = t.size() - 1;
    for (size_t i = 0; i < n; i += 2) {
        // An odd count (an edge whose partner never counts) leaves the row inside up to the box's right side.
        const int64_t from = std::clamp(t[i], left, right);
        const int64_t to = i + 1 < n ? std::clamp(t[i + 1], left, right) : right;
        if (from >= to) continue;
        if (!bounds.empty() && bounds.back() == from) bounds.back() = to;
        else {
            bounds.push_back(from);
            bounds.push_back(to);
        }
    }
    bounds.push_back(INT64_MAX);
}

// True when the row holds only zeros in [from, to). Whole cache lines are tested at a time, and the test stops
// at the first line that holds anything.
bool IsZero(const uint8_t* row, int64_t from, int64_t to)
{
    int64_t x = from;
    for (; x + 64 <= to; x += 64) {
        uint64_t w[8];
        std::memcpy(w, row + x, 64);
        if ((w[0] | w[1] | w[2] | w[3] | w[4] | w[5] | w[6] | w[7]) != 0) return false;
    }
    uint64_t any = 0;
    for (; x + 8 <= to; x += 8) any |= Load8(row + x);
    for (; x < to; ++x) any |= row[x];
    return any == 0;
}

// Adds [from, to) to sorted, merged ranges; starts never decrease between calls.
inline void AddRange(std::vector<int64_t>& ranges, int64_t from, int64_t to)
{
    if (!ranges.empty() && from <= ranges.back()) ranges.back() = std::max(ranges.back(), to);
    else {
        ranges.push_back(from);
        ranges.push_back(to);
    }
}

// The set bits of four.
constexpr uint8_t kBits[16] = {0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4};

// The value of a border pixel with n of its 16 samples inside: 16 n, and 255 for all 16.
constexpr uint8_t kValue[17] = {0, 16, 32, 48, 64, 80, 96, 112, 128, 144, 160, 176, 192, 208, 224, 240, 255};

inline uint8_t Value(int64_t n)
{
    return kValue[n];
}

// One edge around pixel row y: its crossings in the three pixel rows y - 1, y, y + 1 (integer rule) and in the
// four sample rows 4y - 2 .. 4y + 1 (sampled rule), and the pixels they can change. A crossing t of a pixel row
// decides pixels t - 1 and t (whether they differ from a neighbour), a crossing s of a sample row the count of
// pixel (s + 2) >> 2; between the crossings of the three pixel rows those rows differ.
struct EdgeNear {
    Crossing rows;    // the integer rule, at the pixel row after t[2]
    Crossing samples; // the sampled rule, at the sample row after s[3]
    int64_t t[3];
    int64_t s[4];
    int64_t lo, hi; // the pixels the crossings reach, [lo, hi]
    int64_t ymin, ymax;
    unsigned present; // bits 0-2: the edge takes part in the pixel rows; bits 3-6: in the sample rows
};

// Row after row, the border pixels of rows whose three pixel rows hold 255 in their spans and 0 elsewhere, and
// the number of inside samples of each, without merging whole rows: the edges are kept in the order of the first
// pixel they reach, and edges whose pixels overlap form a cluster. Between clusters nothing changes along the
// row, so a pixel there is a border pixel when the three pixel rows hold different values, and its count follows
// from the sample rows' values. Each cluster is worked out apart, starting from the values the rows hold on its
// left. Most clusters are one edge that takes part in all seven rows: its border pixels run between its crossings
// and its counts are ramps.
class CBorderSweep {
public:
    // `limit` is the length of the rows the values are written to.
    CBorderSweep(const std::vector<Edge>& edges, int64_t left, int64_t right, int64_t limit)
        : m_edges(edges), m_from(left + 1), m_to(right - 1), m_limit(limit),
          m_sse2(VM_SIMD_X86 && vmsimd::CurrentLevel() >= vmsimd::kSse2)
    {}

    // The next call of Next gives pixel row `row`.
    void Begin(int64_t row)
    {
        m_row = row - 1;
        m_next = 0;
        m_lastRow = INT64_MAX;
        m_near.clear();
    }

    // Moves one pixel row down.
    void Next()
    {
        const int64_t y = ++m_row;
        if (y > m_lastRow) { // an edge no longer takes part in any of the seven rows
            size_t kept = 0;
            m_lastRow = INT64_MAX;
            for (size_t i = 0; i < m_near.size(); ++i) {
                if (m_near[i].ymax < y) continue;
                if (kept != i) m_near[kept] = m_near[i];
                m_lastRow = std::min(m_lastRow, m_near[kept++].ymax);
            }
            m_near.resize(kept);
        }
        for (EdgeNear& e : m_near) Step(e, y);
        while (m_next < m_edges.size() && m_edges[m_next].ymin <= y + 1) {
            const Edge& e = m_edges[m_next++];
            if (e.ymax < y) continue;
            m_near.push_back(Enter(e, y));
            m_lastRow = std::min(m_lastRow, e.ymax);
        }
        // The order moves only where edges meet, so the list from the row before is nearly sorted.
        for (size_t i = 1; i < m_near.size(); ++i) {
            if (m_near[i - 1].lo <= m_near[i].lo) continue;
            const EdgeNear e = m_near[i];
            size_t j = i;
            for (; j > 0 && m_near[j - 1].lo > e.lo; --j) m_near[j] = m_near[j - 1];
            m_near[j] = e;
        }
    }

    // The crossings of the pixel row, sorted and followed by INT64_MAX.
    void Crossings(std::vector<int64_t>& out) const
    {
        out.clear();
        for (const EdgeNear& e : m_near) {
            if (!(e.present & 2)) continue;
            // Nearly in order already: the edges are in the order of their first pixels.
            size_t j = out.size();
            out.push_back(e.t[1]);
            for (; j > 0 && out[j - 1] > e.t[1]; --j) out[j] = out[j - 1];
            out[j] = e.t[1];
        }
        out.push_back(INT64_MAX);
    }

    // The crossings of the four sample rows, each sorted and followed by INT64_MAX.
    void SampleCrossings(std::vector<int64_t> (&out)[4]) const
    {
        for (int r = 0; r < 4; ++r) {
            out[r].clear();
            for (const EdgeNear& e : m_near)
                if (e.present & (8u << r)) out[r].push_back(e.s[r]);
            std::sort(out[r].begin(), out[r].end());
            out[r].push_back(INT64_MAX);
        }
    }

    // The border pixels of the row in [left + 1, right - 1): their values go to values[x], and with `ranges`
    // the pixels themselves as sorted [from, to) pairs.
    void Border(std::vector<int64_t>* ranges, uint8_t* values)
    {
        if (ranges) ranges->clear();
        unsigned rows = 0, samples = 0; // the values left of the next cluster
        int64_t x = m_from;             // the first pixel not yet looked at
        const size_t n = m_near.size();
        for (size_t k = 0; k < n && x < m_to;) {
            int64_t lo = m_near[k].lo, hi = m_near[k].hi;
            size_t k1 = k + 1;
            for (; k1 < n && m_near[k1].lo <= hi; ++k1) hi = std::max(hi, m_near[k1].hi);
            Flat(x, lo, rows, samples, ranges, values);
            if (k1 == k + 1 && m_near[k].present == 0x7F && (rows == 0 || rows == 7))
                Single(m_near[k], samples, ranges, values);
            else Cluster(k, k1, lo, hi, rows, samples, ranges, values);
            for (; k < k1; ++k) {
                rows ^= m_near[k].present & 7;
                samples ^= m_near[k].present >> 3;
            }
            x = std::max(x, hi + 1);
        }
        Flat(x, m_to, rows, samples, ranges, values);
    }

private:
    EdgeNear Enter(const Edge& e, int64_t y) const
    {
        EdgeNear n;
        n.ymin = e.ymin;
        n.ymax = e.ymax;
        const int64_t row = y - 1, C = (8 * y - 3 - 8 * e.y1) * 256; // pixel row y - 1, sample row 4y - 2
        if (e.vertical) {
            n.rows.Start(e.x1 + 1, 0, 1, 0, 0);
            n.samples.Start(4 * e.x1, 0, 1, 0, 0);
        } else if (e.slope > 0) {
            n.rows.Start(e.x1 + 1, (row - e.y1) * 256, e.slope, 256, 0);
            n.samples.Start(4 * e.x1 + 1, C - e.slope, 2 * e.slope, 512, 0);
        } else {
            n.rows.Start(e.x1 + 1, -(row - e.y1) * 256, -e.slope, -256, 0);
            n.samples.Start(4 * e.x1 + 1, e.slope - C, -2 * e.slope, -512, 0);
        }
        n.t[1] = n.rows.t;
        n.rows.Step();
        n.t[2] = n.rows.t;
        n.rows.Step();
        Step(n, y);
        return n;
    }

    static void Step(EdgeNear& e, int64_t y)
    {
        e.t[0] = e.t[1];
        e.t[1] = e.t[2];
        e.t[2] = e.rows.t;
        e.rows.Step();
        for (int64_t& s : e.s) {
            s = e.samples.t;
            e.samples.Step();
        }
        // Pixel row R takes part for ymin <= R < ymax; sample rows 4y - 2 and 4y - 1 as pixel row y - 1, sample
        // rows 4y and 4y + 1 as pixel row y.
        if (e.ymin <= y - 1 && e.ymax >= y + 2) {
            e.present = 0x7F;
            // Crossings move one way along an edge, so the outer rows hold the extremes.
            e.lo = std::min(std::min(e.t[0], e.t[2]) - 1, (std::min(e.s[0], e.s[3]) + 2) >> 2);
            e.hi = std::max(std::max(e.t[0], e.t[2]), (std::max(e.s[0], e.s[3]) + 2) >> 2);
            return;
        }
        const unsigned up = e.ymin <= y - 1 && e.ymax >= y, mid = e.ymin <= y && e.ymax >= y + 1,
                       down = e.ymin <= y + 1 && e.ymax >= y + 2;
        e.present = up | mid << 1 | down << 2 | (up * 3u) << 3 | (mid * 3u) << 5;
        e.lo = INT64_MAX;
        e.hi = INT64_MIN;
        for (int r = 0; r < 3; ++r)
            if (e.present & (1u << r)) {
                e.lo = std::min(e.lo, e.t[r] - 1);
                e.hi = std::max(e.hi, e.t[r]);
            }
        for (int r = 0; r < 4; ++r)
            if (e.present & (8u << r)) {
                e.lo = std::min(e.lo, (e.s[r] + 2) >> 2);
                e.hi = std::max(e.hi, (e.s[r] + 2) >> 2);
            }
    }

    // Border pixels [from, to) that all hold the values `rows` (bit r: pixel row y - 1 + r is inside) and
    // `samples` (bit r: sample row 4y - 2 + r is inside).
    void Flat(int64_t from, int64_t to, unsigned rows, unsigned samples, std::vector<int64_t>* ranges,
              uint8_t* values) const
    {
        from = std::max(from, m_from);
        to = std::min(to, m_to);
        if (from >= to || rows == 0 || rows == 7) return;
        if (ranges) AddRange(*ranges, from, to);
        std::memset(values + from, Value(4 * kBits[samples]), size_t(to - from));
    }

    // One edge alone, taking part in all seven rows, with the pixel rows equal on its left: the border pixels
    // run from one left of its leftmost crossing to its rightmost, and each sample row adds a step to the counts
    // there: part of the samples of the pixel that holds its crossing, all four of those right of it.
    void Single(const EdgeNear& e, unsigned samples, std::vector<int64_t>* ranges, uint8_t* values)
    {
        const int64_t from = std::max(std::min(e.t[0], e.t[2]) - 1, m_from);
        const int64_t to = std::min(std::max(e.t[0], e.t[2]) + 1, m_to);
        if (from >= to) return;
        if (ranges) AddRange(*ranges, from, to);
#if VM_SIMD_X86
        if (m_sse2 && (samples == 0 || samples == 15) && to - from <= 4096) {
            SingleSse2(e, samples != 0, from, to, values);
            return;
        }
#endif
        // step[k] is the change of the count from pixel from + k - 2 to the next; a step left of the border
        // pixels lands in step[0] and step[1], one right of them in the last two, which are not read.
        const size_t w = size_t(to - from);
        if (m_steps.size() < w + 3) m_steps.resize(w + 3);
        int* step = m_steps.data();
        std::fill_n(step, w + 3, 0);
        int n = 0;
        for (int r = 0; r < 4; ++r) {
            // Row r adds to pixel x the samples at or right of s, or those left of it when it was inside before.
            const int inside = (samples >> r) & 1, sign = 1 - 2 * inside;
            n += 4 * inside;
            const int64_t p = (e.s[r] + 2) >> 2, part = 4 * p + 2 - e.s[r]; // part in 1 .. 4
            const size_t k = size_t(std::clamp<int64_t>(p - from + 1, 0, int64_t(w) + 1));
            step[k] += sign * int(part);
            step[k + 1] += sign * int(4 - part);
        }
        n += step[0];
        for (size_t i = 0; i < w; ++i) {
            n += step[i + 1];
            values[from + int64_t(i)] = Value(n);
        }
    }

#if VM_SIMD_X86
    // The same, eight pixels at a time in 16-bit lanes, when the sample rows are all inside or all outside on the
    // edge's left: pixel x has clamp(4x + 2 - s, 0, 4) samples right of the crossing s of each row. Packing 16 n
    // to bytes saturates 256 to 255.
    VM_TARGET_SSE2 void SingleSse2(const EdgeNear& e, bool inside, int64_t from, int64_t to, uint8_t* values) const
    {
        const int64_t w = to - from;
        // Crossings relative to the first pixel's samples; beyond the pixels, any value past them gives the same.
        auto lane = [&](int r) {
            return _mm_set1_epi16(int16_t(std::clamp<int64_t>(e.s[r] - 4 * from, -8, 4 * w + 8)));
        };
        const __m128i s0 = lane(0), s1 = lane(1), s2 = lane(2), s3 = lane(3);
        const __m128i zero = _mm_setzero_si128(), four = _mm_set1_epi16(4);
        // Inside on the left, the count is 16 minus the samples right of the crossings: (g ^ -1) + 17.
        const __m128i flip = inside ? _mm_set1_epi16(-1) : zero, add = inside ? _mm_set1_epi16(17) : zero;
        const __m128i lanes = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
        __m128i x = _mm_setr_epi16(2, 6, 10, 14, 18, 22, 26, 30); // 4x + 2 for the first eight pixels
        for (int64_t i = 0; i < w; i += 8, x = _mm_add_epi16(x, _mm_set1_epi16(32))) {
            __m128i n = _mm_min_epi16(_mm_max_epi16(_mm_sub_epi16(x, s0), zero), four);
            n = _mm_add_epi16(n, _mm_min_epi16(_mm_max_epi16(_mm_sub_epi16(x, s1), zero), four));
            n = _mm_add_epi16(n, _mm_min_epi16(_mm_max_epi16(_mm_sub_epi16(x, s2), zero), four));
            n = _mm_add_epi16(n, _mm_min_epi16(_mm_max_epi16(_mm_sub_epi16(x, s3), zero), four));
            n = _mm_add_epi16(_mm_xor_si128(n, flip), add);
            const __m128i v = _mm_packus_epi16(_mm_slli_epi16(n, 4), _mm_setzero_si128());
            uint8_t* out = values + from + i;
            const int64_t count = std::min<int64_t>(8, w - i);
            if (count == 8) {
                _mm_storel_epi64(reinterpret_cast<__m128i*>(out), v);
            } else if (from + i + 8 <= m_limit) {
                // The bytes after the last pixel are written back as they were.
                const __m128i keep = _mm_cmpgt_epi8(_mm_set1_epi8(int8_t(count)), lanes);
                const __m128i old = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(out));
                _mm_storel_epi64(reinterpret_cast<__m128i*>(out),
                                 _mm_or_si128(_mm_and_si128(keep, v), _mm_andnot_si128(keep, old)));
            } else {
                alignas(16) uint8_t bytes[16];
                _mm_store_si128(reinterpret_cast<__m128i*>(bytes), v);
                std::memcpy(out, bytes, size_t(count));
            }
        }
    }
#endif

    // Any cluster, pixel by pixel over its part of the box: the values of the three pixel rows over the
    // columns around it and those of the four sample rows over its samples, from the values on its left and the
    // cluster's crossings.
    void Cluster(size_t k0, size_t k1, int64_t lo, int64_t hi, unsigned rows, unsigned samples,
                 std::vector<int64_t>* ranges, uint8_t* values)
    {
        const int64_t from = std::max(lo, m_from), to = std::min(hi + 1, m_to);
        if (from >= to) return;
        const size_t w = size_t(to - from);
        // Columns from - 1 .. to, bit r for pixel row y - 1 + r.
        m_cols.assign(w + 2, 0);
        uint8_t* cols = m_cols.data();
        unsigned base = rows;
        for (size_t k = k0; k < k1; ++k) {
            const EdgeNear& e = m_near[k];
            for (int r = 0; r < 3; ++r) {
                if (!(e.present & (1u << r))) continue;
                if (e.t[r] <= from - 1) base ^= 1u << r;
                else if (e.t[r] <= to) cols[e.t[r] - (from - 1)] ^= uint8_t(1u << r);
            }
        }
        uint8_t v = uint8_t(base);
        for (size_t j = 0; j < w + 2; ++j) cols[j] = v ^= cols[j];
        // Samples 4 from - 2 .. 4 to - 3, bit r for sample row 4y - 2 + r.
        m_samples.assign(4 * w, 0);
        uint8_t* in = m_samples.data();
        unsigned sbase = samples;
        const int64_t q0 = 4 * from - 2, q1 = 4 * to - 3;
        for (size_t k = k0; k < k1; ++k) {
            const EdgeNear& e = m_near[k];
            for (int r = 0; r < 4; ++r) {
                if (!(e.present & (8u << r))) continue;
                if (e.s[r] <= q0) sbase ^= 1u << r;
                else if (e.s[r] <= q1) in[e.s[r] - q0] ^= uint8_t(1u << r);
            }
        }
        v = uint8_t(sbase);
        for (size_t j = 0; j < 4 * w; ++j) in[j] = v ^= in[j];
        for (size_t i = 0; i < w; ++i) {
            const uint8_t a = cols[i], b = cols[i + 1], c = cols[i + 2];
            if (a == b && b == c && (a == 0 || a == 7)) continue;
            const uint8_t* q = in + 4 * i;
            if (ranges) AddRange(*ranges, from + int64_t(i), from + int64_t(i) + 1);
            values[from + int64_t(i)] = Value(kBits[q[0]] + kBits[q[1]] + kBits[q[2]] + kBits[q[3]]);
        }
    }

    const std::vector<Edge>& m_edges;
    const int64_t m_from, m_to; // the pixels that may be border pixels
    const int64_t m_limit;
    const bool m_sse2;
    std::vector<EdgeNear> m_near;
    std::vector<uint8_t> m_cols, m_samples;
    std::vector<int> m_steps;
    size_t m_next = 0;
    int64_t m_row = 0;
    int64_t m_lastRow = INT64_MAX; // the last row where every edge in m_near takes part
};

// The border pixels of a row by looking at the plane, for rows that held something before the fill. Eight pixels at a
// time are skipped when all their neighbours hold one value.
void BorderFromPlane(const uint8_t* row, size_t stride, int64_t first, int64_t last, std::vector<int64_t>& ranges)
{
    ranges.clear();
    int64_t x = first;
    while (x <= last) {
        const uint8_t* p = row + x;
        if (x + 8 <= last + 1) {
            const uint64_t w = Load8(p);
            const uint64_t same = 0x0101010101010101ull * (w & 0xFF);
            if (w == same && Load8(p - 1) == same && Load8(p + 1) == same && Load8(p - stride - 1) == same &&
                Load8(p - stride) == same && Load8(p - stride + 1) == same && Load8(p + stride - 1) == same &&
                Load8(p + stride) == same && Load8(p + stride + 1) == same) {
                x += 8;
                continue;
            }
        }
        const uint8_t v = *p;
        const uint8_t* up = p - stride;
        const uint8_t* down = p + stride;
        if (up[-1] != v || up[0] != v || up[1] != v || p[-1] != v || p[1] != v || down[-1] != v || down[0] != v ||
            down[1] != v)
            AddRange(ranges, x, x + 1);
        ++x;
    }
}

// Adds, for one sample row, the number of inside samples to the count of every pixel of `ranges` (sorted
// [from, to) pairs; counts holds one byte per pixel of them, in order). The row's sorted crossings split it into
// runs of equal parity: each inside run adds to the pixels it covers, 4 to those it covers whole.
void AddSampleRow(const std::vector<int64_t>& crossings, const std::vector<int64_t>& ranges, uint8_t* counts)
{
    const int64_t* t = crossings.data(); // ends with INT64_MAX
    size_t k = 0;
    for (size_t i = 0; i < ranges.size(); i += 2) {
        const int64_t q0 = 4 * ranges[i] - 2, q1 = 4 * ranges[i + 1] - 2; // the samples of the range
        while (t[k] <= q0) ++k;
        bool inside = k & 1;
        int64_t from = 0; // the current run, in samples from q0
        auto addRun = [counts](int64_t s, int64_t e) {
            const int64_t first = s >> 2, last = e >> 2;
            if (first == last) {
                counts[first] = uint8_t(counts[first] + (e - s));
                return;
            }
            counts[first] = uint8_t(counts[first] + 4 - (s & 3));
            for (int64_t p = first + 1; p < last; ++p) counts[p] = uint8_t(counts[p] + 4);
            if (e & 3) counts[last] = uint8_t(counts[last] + (e & 3));
        };
        for (; t[k] < q1; ++k) {
            const int64_t at = t[k] - q0;
            if (inside && at > from) addRun(from, at);
            from = at;
            inside = !inside;
        }
        if (inside) addRun(from, q1 - q0);
        counts += ranges[i + 1] - ranges[i];
    }
}

} // namespace

namespace {

// Zeros whole rows [from, to) of the plane, on the pool.
void ClearRows(COLChannel* plane, int64_t from, int64_t to)
{
    if (from >= to) return;
    const size_t stride = plane->GetWidth();
    vmpar::ParallelFor(size_t(to - from), size_t(kMinBandRows), [&](size_t r0, size_t r1, unsigned) {
        std::memset(plane->GetBuffer(0, uint32_t(from + int64_t(r0))), 0, stride * (r1 - r0));
    });
}

// The fill behind both entry points. With `clear`, the plane is taken as all zeros and written whole: every
// byte outside the spans is set to 0 while the spans are laid, so nothing of the old content is read.
long Fill(const CPolyPoint* points, size_t count, COLChannel* plane, bool clear)
{
    if (!plane || plane->IsNull()) return kFail;
    if (!points || count < 3) {
        if (clear) ClearRows(plane, 0, plane->GetHeight());
        return kFail;
    }
    const int64_t width = plane->GetWidth(), height = plane->GetHeight();

    int64_t left = points[0].x, right = points[0].x, top = points[0].y, bottom = points[0].y;
    for (size_t i = 1; i < count; ++i) {
        left = std::min<int64_t>(left, points[i].x);
        right = std::max<int64_t>(right, points[i].x);
        top = std::min<int64_t>(top, points[i].y);
        bottom = std::max<int64_t>(bottom, points[i].y);
    }
    left = std::max<int64_t>(left, 0);
    top = std::max<int64_t>(top, 0);
    right = std::min(right, width);
    bottom = std::min(bottom, height);
    if (left >= right || top >= bottom) { // the box misses the plane
        if (clear) ClearRows(plane, 0, height);
        return kOk;
    }

    try {
        if (clear) {
            ClearRows(plane, 0, top);
            ClearRows(plane, bottom, height);
        }
        const std::vector<Edge> edges = MakeEdges(points, count);
        const size_t stride = size_t(width);
        const size_t rowCount = size_t(bottom - top);

        // Bands of rows are worked on side by side. Each row's bytes follow from the outline and from what the
        // plane held, never from the split: the crossings of a band's first row are worked out directly and
        // match those stepped to from the rows above.
        const size_t bands = std::clamp<size_t>(rowCount / kMinBandRows, 1, std::max(1u, vmpar::WorkerCount()));
        struct Band {
            std::vector<int64_t> ranges; // each row's border pixels as [from, to) pairs
            std::vector<uint8_t> values; // their sampled values, in order
        };
        auto rowsOf = [&](size_t b) {
            return std::pair<size_t, size_t>(rowCount * b / bands, rowCount * (b + 1) / bands);
        };

        if (clear) {
            // Nothing of the old plane is looked at, so each row is done in one go while it is in the cache: its
            // spans are laid and its border pixels written over them. Only the box without its outer ring has
            // border pixels.
            vmpar::ParallelFor(bands, 1, [&](size_t b0, size_t b1, unsigned) {
                std::vector<int64_t> crossings, spans;
                for (size_t b = b0; b < b1; ++b) {
                    const auto [r0, r1] = rowsOf(b);
                    if (r0 == r1) continue;
                    CBorderSweep sweep(edges, left, right, width);
                    sweep.Begin(top + int64_t(r0));
                    for (size_t i = r0; i < r1; ++i) {
                        const int64_t y = top + int64_t(i);
                        sweep.Next();
                        sweep.Crossings(crossings);
                        RowSpans(crossings, left, right, spans);
                        uint8_t* row = plane->GetBuffer(0, uint32_t(y));
                        int64_t x = 0;
                        for (size_t k = 0; k + 1 < spans.size(); k += 2) {
                            std::memset(row + x, 0, size_t(spans[k] - x));
                            std::memset(row + spans[k], 255, size_t(spans[k + 1] - spans[k]));
                            x = spans[k + 1];
                        }
                        std::memset(row + x, 0, size_t(width - x));
                        if (y > top && y < bottom - 1 && right - left >= 3) sweep.Border(nullptr, row);
                    }
                }
            });
            return kOk;
        }

        std::vector<Band> band(bands);
        std::vector<size_t> rangeAt(rowCount, 0), rangeEnd(rowCount, 0), valueAt(rowCount, 0);
        std::vector<uint8_t> clean(rowCount); // the row held zeros outside its spans

        // The integer fill: spans between the sorted crossings of each row, set by memset.
        vmpar::ParallelFor(bands, 1, [&](size_t b0, size_t b1, unsigned) {
            std::vector<int64_t> crossings, spans;
            for (size_t b = b0; b < b1; ++b) {
                const auto [r0, r1] = rowsOf(b);
                if (r0 == r1) continue;
                CSweep rows(edges);
                rows.Begin(top + int64_t(r0));
                for (size_t i = r0; i < r1; ++i) {
                    rows.Next(crossings);
                    RowSpans(crossings, left, right, spans);
                    uint8_t* row = plane->GetBuffer(0, uint32_t(top + int64_t(i)));
                    int64_t x = left;
                    bool zero = true;
                    for (size_t k = 0; k + 1 < spans.size(); k += 2) {
                        zero = zero && IsZero(row, x, spans[k]);
                        std::memset(row + spans[k], 255, size_t(spans[k + 1] - spans[k]));
                        x = spans[k + 1];
                    }
                    clean[i] = zero && IsZero(row, x, right);
                }
            }
        });

        // The pixels of the box without its outer ring that differ from one of their eight neighbours, sampled
        // 4 x 4 each. A row that held something outside its spans, or has such a row next to it, is looked at
        // as the integer fill left it, so nothing is written until every row has found its border pixels.
        vmpar::ParallelFor(bands, 1, [&](size_t b0, size_t b1, unsigned) {
            std::vector<int64_t> ranges, sampleRows[4];
            std::vector<uint8_t> rowCounts, rowValues(stride);
            for (size_t b = b0; b < b1; ++b) {
                const auto [r0, r1] = rowsOf(b);
                const int64_t first = std::max(top + 1, top + int64_t(r0));
                const int64_t last = std::min(bottom - 2, top + int64_t(r1) - 1);
                if (first > last || right - left < 3) continue;
                CBorderSweep sweep(edges, left, right, width);
                sweep.Begin(first);
                Band& out = band[b];
                for (int64_t y = first; y <= last; ++y) {
                    const size_t i = size_t(y - top);
                    size_t pixels = 0;
                    sweep.Next();
                    if (clean[i - 1] && clean[i] && clean[i + 1]) {
                        sweep.Border(&ranges, rowValues.data());
                        for (size_t k = 0; k < ranges.size(); k += 2) pixels += size_t(ranges[k + 1] - ranges[k]);
                        rowCounts.resize(pixels);
                        uint8_t* to = rowCounts.data();
                        for (size_t k = 0; k < ranges.size(); k += 2) {
                            std::memcpy(to, rowValues.data() + ranges[k], size_t(ranges[k + 1] - ranges[k]));
                            to += ranges[k + 1] - ranges[k];
                        }
                    } else {
                        sweep.SampleCrossings(sampleRows);
                        BorderFromPlane(plane->GetBuffer(0, uint32_t(y)), stride, left + 1, right - 2, ranges);
                        for (size_t k = 0; k < ranges.size(); k += 2) pixels += size_t(ranges[k + 1] - ranges[k]);
                        rowCounts.assign(pixels, 0);
                        for (const auto& sampleRow : sampleRows) AddSampleRow(sampleRow, ranges, rowCounts.data());
                        for (uint8_t& v : rowCounts) v = Value(v);
                    }
                    if (ranges.empty()) continue;
                    rangeAt[i] = out.ranges.size();
                    out.ranges.insert(out.ranges.end(), ranges.begin(), ranges.end());
                    rangeEnd[i] = out.ranges.size();
                    valueAt[i] = out.values.size();
                    out.values.insert(out.values.end(), rowCounts.begin(), rowCounts.end());
                }
            }
        });

        vmpar::ParallelFor(bands, 1, [&](size_t b0, size_t b1, unsigned) {
            for (size_t b = b0; b < b1; ++b) {
                const auto [r0, r1] = rowsOf(b);
                for (size_t i = r0; i < r1; ++i) {
                    uint8_t* row = plane->GetBuffer(0, uint32_t(top + int64_t(i)));
                    const uint8_t* value = band[b].values.data() + valueAt[i];
                    for (size_t k = rangeAt[i]; k < rangeEnd[i]; k += 2) {
                        const int64_t from = band[b].ranges[k], to = band[b].ranges[k + 1];
                        std::memcpy(row + from, value, size_t(to - from));
                        value += to - from;
                    }
                }
            }
        });
    } catch (const std::bad_alloc&) {
        return kFail;
    }
    return kOk;
}

} // namespace

long FillPolygon(const CPolyPoint* points, size_t count, COLChannel* plane)
{
    return Fill(points, count, plane, false);
}

long ClearAndFillPolygon(const CPolyPoint* points, size_t count, COLChannel* plane)
{
    return Fill(points, count, plane, true);
}

long FillEllipse(int x0, int y0, int x1, int y1, COLChannel* plane)
{
    if (!plane || plane->IsNull()) return kFail;
    const int a = std::abs(x1 - x0) / 2, b = std::abs(y1 - y0) / 2;
    const int cx = (x0 + x1) / 2, cy = (y0 + y1) / 2;
    const int left = std::max(std::min(x0, x1), 0), right = std::min(std::max(x0, x1), int(plane->GetWidth()) - 1);
    const int top = std::max(std::min(y0, y1), 0), bottom = std::min(std::max(y0, y1), int(plane->GetHeight()) - 1);
    const double aa = double(a) * a, bb = double(b) * b;
    for (int y = top; y <= bottom; ++y) {
        uint8_t* row = plane->GetBuffer(0, uint32_t(y));
        for (int x = left; x <= right; ++x) {
            int inside = 0;
            // A flat ellipse has no inside: every sample lies off its axis.
            if (a > 0 && b > 0) {
                for (int j = 0; j < 4; ++j) {
                    const double dy = y - 0.375 + 0.25 * j - cy;
                    for (int i = 0; i < 4; ++i) {
                        const double dx = x - 0.375 + 0.25 * i - cx;
                        inside += dx * dx / aa + dy * dy / bb <= 1.0;
                    }
                }
            }
            row[x] = inside == 16 ? 255 : static_cast<uint8_t>(16 * inside);
        }
    }
    return kOk;
}

void CPolygonMask::Thin(size_t limit)
{
    int d = 4;
    while (m_points.size() > limit && m_points.size() > 2) {
        std::vector<CPolyPoint> kept;
        kept.reserve(m_points.size());
        kept.push_back(m_points.front());
        for (size_t i = 1; i < m_points.size(); ++i) {
            const CPolyPoint& p = m_points[i];
            const CPolyPoint& k = kept.back();
            if (std::abs(p.x - k.x) + std::abs(p.y - k.y) > d || i + 1 == m_points.size()) kept.push_back(p);
        }
        m_points.swap(kept);
        ++d;
    }
}
