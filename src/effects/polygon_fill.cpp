#include "effects/polygon_fill.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "imaging/channel.h"
#include "imaging/result.h"

namespace {

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

// True when the byte at p differs from one of its eight neighbours; stride is the row length.
inline bool DiffersFromNeighbours(const uint8_t* p, size_t stride)
{
    const uint8_t v = *p;
    const uint8_t* up = p - stride;
    const uint8_t* down = p + stride;
    return up[-1] != v || up[0] != v || up[1] != v || p[-1] != v || p[1] != v || down[-1] != v || down[0] != v ||
           down[1] != v;
}

inline uint64_t Load8(const uint8_t* p)
{
    uint64_t w;
    std::memcpy(&w, p, 8);
    return w;
}

// The edges that take part, in the order of the points; horizontal edges and edges whose slope truncated to 0
// never count.
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
    return edges;
}

// The column from which an edge counts in row y: the integer rule holds for every x at or right of it.
int64_t Threshold(const Edge& e, int64_t y)
{
    if (e.vertical) return e.x1 + 1;
    const int64_t c = (y - e.y1) * 256;
    // slope < 0: (x1 - x) * s + c > 0  <=>  -s * x > -s * x1 - c.
    // slope > 0: (x1 - x) * s + c < 0  <=>   s * x >  s * x1 + c.
    const int64_t a = e.slope < 0 ? -e.slope : e.slope;
    const int64_t k = e.slope < 0 ? a * e.x1 - c : a * e.x1 + c;
    return FloorDiv(k, a) + 1;
}

// Edges in the order of their top row, handed out as the rows go down: an active-edge list.
class CActiveEdges {
public:
    explicit CActiveEdges(const std::vector<Edge>& edges)
    {
        m_order.reserve(edges.size());
        for (const Edge& e : edges) m_order.push_back(&e);
        std::sort(m_order.begin(), m_order.end(), [](const Edge* a, const Edge* b) { return a->ymin < b->ymin; });
    }
    // The edges with ymin <= y and y < ymax (inclusive: y <= ymax); y never goes back.
    const std::vector<const Edge*>& At(int64_t y, bool inclusive)
    {
        while (m_next < m_order.size() && m_order[m_next]->ymin <= y) m_active.push_back(m_order[m_next++]);
        size_t kept = 0;
        for (const Edge* e : m_active)
            if (inclusive ? y <= e->ymax : y < e->ymax) m_active[kept++] = e;
        m_active.resize(kept);
        return m_active;
    }

private:
    std::vector<const Edge*> m_order;
    std::vector<const Edge*> m_active;
    size_t m_next = 0;
};

// Antialiasing of the border pixels of one row at a time. For each of the four sample rows the edges that reach
// it are sorted by where they cross it: an edge crossing more than a pixel left of a sample counts for it, one
// crossing more than a pixel right does not, whatever the rounding; only the edges crossing near the pixel are
// tested with the exact rule. Pixels of a row come in increasing x, so the window of near edges only moves right.
class CEdgeSampler {
public:
    explicit CEdgeSampler(const std::vector<Edge>& edges) : m_active(edges) {}

    // Rows go down; every edge that may reach a sample row of pixel row y has ymin <= y <= ymax.
    void SetRow(int64_t y)
    {
        const std::vector<const Edge*>& candidates = m_active.At(y, true);
        for (int j = 0; j < 4; ++j) {
            const double sy = static_cast<double>(y) - 0.375 + 0.25 * j;
            std::vector<Crossing>& row = m_rows[j];
            row.clear();
            for (const Edge* e : candidates) {
                if (!(static_cast<double>(e->ymin) <= sy && sy < static_cast<double>(e->ymax))) continue;
                Crossing c;
                c.x1 = static_cast<double>(e->x1);
                c.slope = static_cast<double>(e->slope);
                c.kind = e->vertical ? 0 : e->slope < 0 ? 1 : 2;
                // The row's part of the rule, (sy - y1) * 256, the same product the rule forms at each sample.
                c.offset = (sy - static_cast<double>(e->y1)) * 256.0;
                c.x = e->vertical ? c.x1 : c.x1 + (sy - static_cast<double>(e->y1)) * 256.0 / c.slope;
                row.push_back(c);
            }
            std::sort(row.begin(), row.end(), [](const Crossing& a, const Crossing& b) { return a.x < b.x; });
            m_first[j] = m_last[j] = 0;
        }
    }

    // x must not decrease between calls for one row.
    uint8_t Sample(int64_t x)
    {
        int inside = 0;
        const double lo = static_cast<double>(x) - 1.0, hi = static_cast<double>(x) + 1.0;
        for (int j = 0; j < 4; ++j) {
            const std::vector<Crossing>& row = m_rows[j];
            size_t first = m_first[j], last = m_last[j];
            while (first < row.size() && row[first].x < lo) ++first;
            if (last < first) last = first;
            while (last < row.size() && row[last].x <= hi) ++last;
            m_first[j] = first;
            m_last[j] = last;
            for (int i = 0; i < 4; ++i) {
                const double sx = static_cast<double>(x) - 0.375 + 0.25 * i;
                int crossings = int(first);
                for (size_t k = first; k < last; ++k) {
                    const Crossing& c = row[k];
                    if (c.kind == 0) {
                        crossings += sx > c.x1;
                    } else {
                        const double v = (c.x1 - sx) * c.slope + c.offset;
                        crossings += c.kind == 1 ? v > 0.0 : v < 0.0;
                    }
                }
                inside += crossings & 1;
            }
        }
        return inside == 16 ? 255 : static_cast<uint8_t>(16 * inside);
    }

private:
    struct Crossing {
        double x;      // where the edge crosses the sample row
        double x1, slope, offset;
        int kind;      // 0 vertical, 1 slope below 0, 2 slope above 0
    };
    CActiveEdges m_active;
    std::vector<Crossing> m_rows[4];
    size_t m_first[4] = {}, m_last[4] = {};
};

// True when the plane holds only zeros in the box.
bool BoxIsZero(const COLChannel& plane, int64_t left, int64_t top, int64_t right, int64_t bottom)
{
    for (int64_t y = top; y < bottom; ++y) {
        const uint8_t* row = plane.GetBuffer(0, uint32_t(y));
        int64_t x = left;
        uint64_t any = 0;
        for (; x + 8 <= right; x += 8) any |= Load8(row + x);
        for (; x < right; ++x) any |= row[x];
        if (any) return false;
    }
    return true;
}

// Positions where a row's value changes, from the bounds of its spans ([from, to) pairs, sorted): a bound
// shared by two touching spans is no change.
void Changes(const int64_t* bounds, size_t n, std::vector<int64_t>& out)
{
    out.clear();
    for (size_t i = 0; i < n; ++i) {
        if (i + 1 < n && bounds[i] == bounds[i + 1]) {
            ++i;
            continue;
        }
        out.push_back(bounds[i]);
    }
}

// The columns where two rows differ, as [from, to) pairs: the merged change lists with shared positions dropped.
void Differences(const std::vector<int64_t>& a, const std::vector<int64_t>& b, std::vector<int64_t>& out)
{
    out.clear();
    size_t i = 0, j = 0;
    while (i < a.size() || j < b.size()) {
        if (j == b.size() || (i < a.size() && a[i] < b[j])) {
            out.push_back(a[i++]);
        } else if (i == a.size() || b[j] < a[i]) {
            out.push_back(b[j++]);
        } else {
            ++i;
            ++j;
        }
    }
}

} // namespace

long FillPolygon(const CPolyPoint* points, size_t count, COLChannel* plane)
{
    if (!points || count < 3 || !plane || plane->IsNull()) return kFail;
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
    if (left >= right || top >= bottom) return kOk; // the box misses the plane

    try {
        const std::vector<Edge> edges = MakeEdges(points, count);
        // On a plane that is empty in the box (the tools' case) the pixels that differ from a neighbour follow
        // from the spans alone; otherwise they are found by looking at the plane.
        const bool empty = BoxIsZero(*plane, left, top, right, bottom);

        // Integer pass. Each counting edge counts for every x from a threshold on, so a row is the parity of the
        // thresholds at or left of each pixel: spans between sorted thresholds alternate.
        std::vector<int64_t> bounds;          // the spans of every row, [from, to) pairs
        std::vector<size_t> rowStart(size_t(bottom - top) + 1, 0);
        std::vector<int64_t> thresholds;
        CActiveEdges active(edges);
        for (int64_t y = top; y < bottom; ++y) {
            rowStart[size_t(y - top)] = bounds.size();
            thresholds.clear();
            for (const Edge* e : active.At(y, false)) thresholds.push_back(Threshold(*e, y));
            if (thresholds.empty()) continue;
            std::sort(thresholds.begin(), thresholds.end());
            // An odd count (an edge whose partner never counts) leaves the row inside up to the box's right side.
            if (thresholds.size() & 1) thresholds.push_back(right);
            uint8_t* row = plane->GetBuffer(0, uint32_t(y));
            for (size_t i = 0; i + 1 < thresholds.size(); i += 2) {
                const int64_t from = std::max(thresholds[i], left), to = std::min(thresholds[i + 1], right);
                if (from >= to) continue;
                std::memset(row + from, 255, size_t(to - from));
                if (empty) {
                    bounds.push_back(from);
                    bounds.push_back(to);
                }
            }
        }
        rowStart[size_t(bottom - top)] = bounds.size();

        CEdgeSampler sampler(edges);
        const size_t stride = size_t(width);
        if (!empty) {
            // Pixels of the box, without its outer ring, that differ from a neighbour, all found before any is
            // changed. Eight at a time are skipped when all their neighbours hold one value.
            std::vector<uint32_t> border;
            for (int64_t y = top + 1; y <= bottom - 2; ++y) {
                const uint8_t* row = plane->GetBuffer(0, uint32_t(y));
                int64_t x = left + 1;
                const int64_t last = right - 2;
                while (x <= last) {
                    const uint8_t* p = row + x;
                    if (x + 8 <= last + 1) {
                        const uint64_t w = Load8(p);
                        const uint64_t same = 0x0101010101010101ull * (w & 0xFF);
                        if (w == same && Load8(p - 1) == same && Load8(p + 1) == same &&
                            Load8(p - stride - 1) == same && Load8(p - stride) == same &&
                            Load8(p - stride + 1) == same && Load8(p + stride - 1) == same &&
                            Load8(p + stride) == same && Load8(p + stride + 1) == same) {
                            x += 8;
                            continue;
                        }
                    }
                    if (DiffersFromNeighbours(p, stride)) border.push_back(uint32_t(y) << 16 | uint32_t(x));
                    ++x;
                }
            }
            int64_t sampledRow = -1;
            for (const uint32_t packed : border) {
                const int64_t x = packed & 0xFFFF, y = packed >> 16;
                if (y != sampledRow) sampler.SetRow(sampledRow = y);
                plane->SetValue(uint32_t(x), uint32_t(y), sampler.Sample(x));
            }
            return kOk;
        }

        // The plane was empty: a pixel differs from one of its eight neighbours exactly when one of the three
        // rows around it changes value at its column or the next, or when the rows differ at its column. Those
        // columns come from the spans as intervals, so only the pixels near an edge are visited.
        std::vector<int64_t> changes[3], diff, ranges;
        std::vector<std::pair<int64_t, int64_t>> spans;
        auto changesOf = [&](int64_t y, std::vector<int64_t>& out) {
            const size_t i = size_t(y - top);
            Changes(bounds.data() + rowStart[i], rowStart[i + 1] - rowStart[i], out);
        };
        if (bottom - top >= 3) {
            changesOf(top, changes[1]);
            changesOf(top + 1, changes[2]);
        }
        for (int64_t y = top + 1; y <= bottom - 2; ++y) {
            std::swap(changes[0], changes[1]);
            std::swap(changes[1], changes[2]);
            changesOf(y + 1, changes[2]);
            ranges.clear();
            for (const auto& c : changes)
                for (const int64_t t : c) {
                    ranges.push_back(t - 1);
                    ranges.push_back(t + 1);
                }
            for (int k : {0, 2}) {
                Differences(changes[1], changes[k], diff);
                ranges.insert(ranges.end(), diff.begin(), diff.end());
            }
            if (ranges.empty()) continue;
            // Pairs sorted by their start, then walked as one union, clipped to the columns the rule looks at.
            const size_t pairs = ranges.size() / 2;
            spans.resize(pairs);
            for (size_t i = 0; i < pairs; ++i) spans[i] = {ranges[2 * i], ranges[2 * i + 1]};
            std::sort(spans.begin(), spans.end());
            sampler.SetRow(y);
            uint8_t* row = plane->GetBuffer(0, uint32_t(y));
            int64_t done = left + 1; // every column left of this one is handled
            for (size_t i = 0; i < pairs; ++i) {
                const int64_t from = std::max(spans[i].first, done), to = std::min(spans[i].second, right - 1);
                for (int64_t x = from; x < to; ++x) row[x] = sampler.Sample(x);
                done = std::max(done, to);
            }
        }
    } catch (const std::bad_alloc&) {
        return kFail;
    }
    return kOk;
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
