#include "effects/polygon_fill.h"

#include <algorithm>
#include <cstring>

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

// The crossing rule of one edge in floating point at a sample point.
inline bool SampleCounts(const Edge& e, double sx, double sy)
{
    if (!(static_cast<double>(e.ymin) <= sy && sy < static_cast<double>(e.ymax))) return false;
    if (e.vertical) return sx > static_cast<double>(e.x1);
    if (e.slope == 0) return false;
    const double v = (static_cast<double>(e.x1) - sx) * static_cast<double>(e.slope) +
                     (sy - static_cast<double>(e.y1)) * 256.0;
    return e.slope < 0 ? v > 0.0 : v < 0.0;
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
    if (left >= right || top >= bottom) return kOk;   // the box misses the plane

    std::vector<Edge> edges;
    std::vector<int64_t> thresholds;
    std::vector<uint32_t> border;
    try {
        edges.reserve(count - 1);
        for (size_t i = 0; i + 1 < count; ++i) {
            const int64_t x1 = points[i].x, y1 = points[i].y, x2 = points[i + 1].x, y2 = points[i + 1].y;
            Edge e{x1, y1, std::min(y1, y2), std::max(y1, y2), 0, x1 == x2};
            if (!e.vertical) e.slope = ((y1 - y2) * 256) / (x1 - x2);
            // Horizontal edges and edges whose slope truncated to 0 never count.
            if (e.ymin == e.ymax || (!e.vertical && e.slope == 0)) continue;
            edges.push_back(e);
        }
        thresholds.reserve(edges.size());
    } catch (const std::bad_alloc&) {
        return kFail;
    }

    // Integer pass. Each counting edge counts for every x from a threshold on, so a row is the parity of the
    // thresholds at or left of each pixel: spans between sorted thresholds alternate.
    for (int64_t y = top; y < bottom; ++y) {
        thresholds.clear();
        for (const Edge& e : edges) {
            if (y < e.ymin || y >= e.ymax) continue;
            if (e.vertical) {
                thresholds.push_back(e.x1 + 1);
                continue;
            }
            const int64_t c = (y - e.y1) * 256;
            // slope < 0: (x1 - x) * s + c > 0  <=>  -s * x > -s * x1 - c.
            // slope > 0: (x1 - x) * s + c < 0  <=>   s * x >  s * x1 + c.
            const int64_t a = e.slope < 0 ? -e.slope : e.slope;
            const int64_t k = e.slope < 0 ? a * e.x1 - c : a * e.x1 + c;
            thresholds.push_back(FloorDiv(k, a) + 1);
        }
        if (thresholds.empty()) continue;
        std::sort(thresholds.begin(), thresholds.end());
        // An odd count (an edge whose partner never counts) leaves the row inside up to the box's right side.
        if (thresholds.size() & 1) thresholds.push_back(right);
        uint8_t* row = plane->GetBuffer(0, uint32_t(y));
        for (size_t i = 0; i + 1 < thresholds.size(); i += 2) {
            const int64_t from = std::max(thresholds[i], left), to = std::min(thresholds[i + 1], right);
            if (from < to) std::memset(row + from, 255, size_t(to - from));
        }
    }

    // Pixels of the box, without its outer ring, that differ from a neighbour. Eight at a time are skipped
    // when all their neighbours hold one value.
    const size_t stride = size_t(width);
    try {
        for (int64_t y = top + 1; y <= bottom - 2; ++y) {
            const uint8_t* row = plane->GetBuffer(0, uint32_t(y));
            int64_t x = left + 1;
            const int64_t last = right - 2;
            while (x <= last) {
                const uint8_t* p = row + x;
                if (x + 8 <= last + 1) {
                    const uint64_t w = Load8(p);
                    const uint64_t same = 0x0101010101010101ull * (w & 0xFF);
                    if (w == same && Load8(p - 1) == same && Load8(p + 1) == same && Load8(p - stride - 1) == same &&
                        Load8(p - stride) == same && Load8(p - stride + 1) == same &&
                        Load8(p + stride - 1) == same && Load8(p + stride) == same &&
                        Load8(p + stride + 1) == same) {
                        x += 8;
                        continue;
                    }
                }
                if (DiffersFromNeighbours(p, stride)) border.push_back(uint32_t(y) << 16 | uint32_t(x));
                ++x;
            }
        }
    } catch (const std::bad_alloc&) {
        return kFail;
    }

    // Antialiasing of the border pixels, row by row. For each of the four sample rows the edges that reach it
    // are sorted by where they cross it: an edge crossing more than a pixel left of a sample counts for it, one
    // crossing more than a pixel right does not, whatever the rounding; only the edges crossing near the pixel
    // are tested with the exact rule.
    struct Crossing {
        double x;
        const Edge* edge;
    };
    std::vector<Crossing> rows[4];
    std::vector<double> keys[4];
    int64_t sampledRow = -1;
    for (const uint32_t packed : border) {
        const int64_t x = packed & 0xFFFF, y = packed >> 16;
        if (y != sampledRow) {
            sampledRow = y;
            for (int j = 0; j < 4; ++j) {
                const double sy = static_cast<double>(y) - 0.375 + 0.25 * j;
                rows[j].clear();
                for (const Edge& e : edges) {
                    if (!(static_cast<double>(e.ymin) <= sy && sy < static_cast<double>(e.ymax))) continue;
                    const double at = e.vertical ? static_cast<double>(e.x1)
                                                 : static_cast<double>(e.x1) +
                                                       (sy - static_cast<double>(e.y1)) * 256.0 / static_cast<double>(e.slope);
                    rows[j].push_back({at, &e});
                }
                std::sort(rows[j].begin(), rows[j].end(), [](const Crossing& a, const Crossing& b) { return a.x < b.x; });
                keys[j].clear();
                for (const Crossing& c : rows[j]) keys[j].push_back(c.x);
            }
        }
        int inside = 0;
        for (int j = 0; j < 4; ++j) {
            const double sy = static_cast<double>(y) - 0.375 + 0.25 * j;
            const double lo = static_cast<double>(x) - 1.0, hi = static_cast<double>(x) + 1.0;
            const size_t first = size_t(std::lower_bound(keys[j].begin(), keys[j].end(), lo) - keys[j].begin());
            size_t last = first;
            while (last < keys[j].size() && keys[j][last] <= hi) ++last;
            for (int i = 0; i < 4; ++i) {
                const double sx = static_cast<double>(x) - 0.375 + 0.25 * i;
                int crossings = int(first);
                for (size_t k = first; k < last; ++k) crossings += SampleCounts(*rows[j][k].edge, sx, sy);
                inside += crossings & 1;
            }
        }
        plane->SetValue(uint32_t(x), uint32_t(y), inside == 16 ? 255 : static_cast<uint8_t>(16 * inside));
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
