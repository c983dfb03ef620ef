#include "matting/snake.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "matting/gaussian.h"

namespace {

double Distance(const SnakePoint& a, const SnakePoint& b)
{
    const double dx = double(a.x) - double(b.x), dy = double(a.y) - double(b.y);
    return std::sqrt(dx * dx + dy * dy);
}

// A guard on the spacing repair, which settles in a few passes for any sensible spacing; a spacing too small to
// settle (points put between are dropped again) stops here instead of looping.
constexpr int kMaxRedistributePasses = 1000;

// Even-odd fill of a closed point list into a plane with 4 x 4 sampled edge pixels; bits already set stay.
// Kept private to the snake until the shared polygon fill of the selection tools is there to call instead.
struct FillEdge {
    int32_t x1, y1, x2, y2;
    int32_t low, high;
    bool vertical;
    int64_t slope;   // 1/256 units, truncated
};

bool Crosses(const std::vector<FillEdge>& edges, int32_t x, int32_t y)
{
    int count = 0;
    for (const FillEdge& e : edges) {
        if (y < e.low || y >= e.high) continue;
        if (e.vertical) {
            count += x > e.x1;
            continue;
        }
        const int64_t v = int64_t(e.x1 - x) * e.slope + int64_t(y - e.y1) * 256;
        if (e.slope < 0 ? v > 0 : (e.slope >= 1 && v < 0)) ++count;
    }
    return count & 1;
}

bool CrossesAt(const std::vector<FillEdge>& edges, double x, double y)
{
    int count = 0;
    for (const FillEdge& e : edges) {
        if (y < e.low || y >= e.high) continue;
        if (e.vertical) {
            count += x > e.x1;
            continue;
        }
        const double slope = double(e.y1 - e.y2) * 256.0 / double(e.x1 - e.x2);
        const double v = (e.x1 - x) * slope + (y - e.y1) * 256.0;
        if (slope < 0 ? v > 0 : (slope > 0 && v < 0)) ++count;
    }
    return count & 1;
}

long FillClosedPolygon(const std::vector<SnakePoint>& points, COLChannel& plane)
{
    if (points.size() < 3 || plane.IsNull()) return kFail;
    const int32_t w = int32_t(plane.GetWidth()), h = int32_t(plane.GetHeight());
    int32_t x0 = points[0].x, x1 = x0, y0 = points[0].y, y1 = y0;
    for (const SnakePoint& p : points) {
        x0 = std::min(x0, p.x);
        x1 = std::max(x1, p.x);
        y0 = std::min(y0, p.y);
        y1 = std::max(y1, p.y);
    }
    x0 = std::max(x0, 0);
    y0 = std::max(y0, 0);
    x1 = std::min(x1, w - 1);
    y1 = std::min(y1, h - 1);
    if (x0 > x1 || y0 > y1) return kOk;

    std::vector<FillEdge> edges;
    for (size_t k = 0; k + 1 < points.size(); ++k) {
        const SnakePoint a = points[k], b = points[k + 1];
        FillEdge e{a.x, a.y, b.x, b.y, std::min(a.y, b.y), std::max(a.y, b.y), a.x == b.x, 0};
        if (!e.vertical) e.slope = int64_t(a.y - b.y) * 256 / int64_t(a.x - b.x);
        edges.push_back(e);
    }
    const int32_t bw = x1 - x0 + 1, bh = y1 - y0 + 1;
    std::vector<uint8_t> box(size_t(bw) * bh);
    for (int32_t y = 0; y < bh; ++y)
        for (int32_t x = 0; x < bw; ++x) box[size_t(y) * bw + x] = Crosses(edges, x + x0, y + y0) ? 255 : 0;
    std::vector<uint8_t> out = box;
    for (int32_t y = 1; y + 1 < bh; ++y)
        for (int32_t x = 1; x + 1 < bw; ++x) {
            const uint8_t v = box[size_t(y) * bw + x];
            bool edge = false;
            for (int dy = -1; dy <= 1 && !edge; ++dy)
                for (int dx = -1; dx <= 1; ++dx)
                    if (box[size_t(y + dy) * bw + x + dx] != v) edge = true;
            if (!edge) continue;
            int inside = 0;
            for (int j = 0; j < 4; ++j)
                for (int i = 0; i < 4; ++i)
                    inside += CrossesAt(edges, x + x0 - 0.375 + 0.25 * i, y + y0 - 0.375 + 0.25 * j);
            out[size_t(y) * bw + x] = inside == 16 ? 255 : uint8_t(16 * inside);
        }
    for (int32_t y = 0; y < bh; ++y) {
        uint8_t* row = plane.GetBuffer(uint32_t(x0), uint32_t(y + y0));
        for (int32_t x = 0; x < bw; ++x) row[x] |= out[size_t(y) * bw + x];
    }
    return kOk;
}

} // namespace

long CSnakeProcess::Rasterise(const std::vector<SnakePoint>& points, COLChannel& plane)
{
    return FillClosedPolygon(points, plane);
}

void CSnakeProcess::BuildEdgeMap(COLImage& image)
{
    const uint32_t w = image.GetWidth(), h = image.GetHeight();
    CPixel* p = image.GetBuffer();
    const size_t n = image.GetPixelCount();
    for (size_t i = 0; i < n; ++i)
        if (p[i].alpha == 0) p[i] = CPixel{0, 0, 0, 0};
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            CPixel& px = p[size_t(y) * w + x];
            if (x == 0 || y == 0 || x + 1 == w || y + 1 == h) {
                px.alpha = 255;
                continue;
            }
            const CPixel* up = p + size_t(y - 1) * w + x;
            const CPixel* mid = p + size_t(y) * w + x;
            const CPixel* dn = p + size_t(y + 1) * w + x;
            auto strength = [&](auto channel) {
                const int gx = channel(up[-1]) + channel(mid[-1]) + channel(dn[-1]) - channel(up[1]) - channel(mid[1]) -
                               channel(dn[1]);
                const int gy = channel(up[-1]) + channel(up[0]) + channel(up[1]) - channel(dn[-1]) - channel(dn[0]) -
                               channel(dn[1]);
                return std::max(std::abs(gx), std::abs(gy));
            };
            const int s = (strength([](const CPixel& q) { return int(q.red); }) +
                           strength([](const CPixel& q) { return int(q.green); }) +
                           strength([](const CPixel& q) { return int(q.blue); })) /
                          3;
            px.alpha = uint8_t(std::min(255, s * s / 256));
        }
}

bool CSnakeProcess::Redistribute(std::vector<SnakePoint>& points, int32_t spacing)
{
    const size_t n = points.size();
    if (n < 2) return true;
    std::vector<SnakePoint> out;
    out.reserve(n + n / 2 + 1);
    size_t changes = 0;
    for (size_t i = 0; i + 1 < n; ++i) {
        // The gap is measured to the previous point of the old list, so a row of close points all vanish.
        if (i > 0 && Distance(points[i], points[i - 1]) < 3.0) {
            ++changes;
            continue;
        }
        out.push_back(points[i]);
        if (Distance(points[i], points[i + 1]) > 2.0 * spacing) {
            out.push_back(SnakePoint{(points[i].x + points[i + 1].x) / 2, (points[i].y + points[i + 1].y) / 2});
            ++changes;
        }
    }
    if (!out.empty()) out.push_back(out.front());
    points.swap(out);
    return changes == 0;
}

void CSnakeProcess::RedistributeFully()
{
    for (int pass = 0; pass < kMaxRedistributePasses; ++pass)
        if (Redistribute(contour, m_params.spacing)) return;
}

bool CSnakeProcess::Iterate()
{
    const size_t n = contour.size();
    if (n < 2) return false;
    double length = 0.0, sx = 0.0, sy = 0.0;
    for (size_t i = 0; i + 1 < n; ++i) {
        length += Distance(contour[i], contour[i + 1]);
        sx += contour[i].x;
        sy += contour[i].y;
    }
    meanSpacing = length / double(n - 1);   // kept for inspection; no energy reads it
    centroidX = sx / double(n - 1);
    centroidY = sy / double(n - 1);
    int moved = 0;
    for (size_t i = 0; i + 1 < n; ++i) {
        moved += Move(i);
        contour[n - 1] = contour[0];
    }
    if (moved == 0) return false;
    RedistributeFully();
    return true;
}

int CSnakeProcess::Move(size_t i)
{
    const size_t n = contour.size();
    const SnakePoint prev = i == 0 ? contour[n - 2] : contour[i - 1];
    const SnakePoint cur = contour[i];
    const SnakePoint next = i == n - 2 ? contour[0] : contour[i + 1];
    const double cx = std::trunc(centroidX), cy = std::trunc(centroidY);
    double cont[9], curv[9], image[9], centre[9];
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
            const int k = (dy + 1) * 3 + dx + 1;
            const double x = double(cur.x + dx), y = double(cur.y + dy);
            const double ax = x - prev.x, ay = y - prev.y, bx = next.x - x, by = next.y - y;
            const double la = std::sqrt(ax * ax + ay * ay), lb = std::sqrt(bx * bx + by * by);
            cont[k] = la;
            curv[k] = (la == 0.0 || lb == 0.0) ? 1.0 : 1.0 - (ax * bx + ay * by) / (la * lb);
            image[k] = double(edgeImage.GetSafePixel(cur.x + dx, cur.y + dy).alpha);
            centre[k] = std::sqrt((x - cx) * (x - cx) + (y - cy) * (y - cy));
        }
    auto normalise = [](double* v, bool damped) {
        double lo = v[0], hi = v[0];
        for (int k = 1; k < 9; ++k) {
            lo = std::min(lo, v[k]);
            hi = std::max(hi, v[k]);
        }
        if (damped && lo > hi - 5) lo = hi - 5;   // a weak neighbourhood moves little
        for (int k = 0; k < 9; ++k) v[k] = damped ? -((v[k] - lo) / (hi - lo)) : (v[k] - lo) / (hi - lo);
    };
    normalise(cont, false);
    normalise(curv, false);
    normalise(image, true);
    normalise(centre, false);
    const double centreWeight = m_params.shrinkHard ? 4.8 : 2.0;
    // A degenerate energy (all nine equal) gives not-a-number totals, which never win.
    double best = 100000.0;
    int win = 4;
    for (int k = 0; k < 9; ++k) {
        const double total = 1.5 * cont[k] + 1.0 * curv[k] + 4.9 * image[k] + centreWeight * centre[k];
        if (total < best) {
            best = total;
            win = k;
        }
    }
    if (win == 4) return 0;
    const int32_t nx = cur.x + win % 3 - 1, ny = cur.y + win / 3 - 1;
    if (nx < 0 || ny < 0 || nx >= int32_t(edgeImage.GetWidth()) || ny >= int32_t(edgeImage.GetHeight())) return 0;
    contour[i] = SnakePoint{nx, ny};
    return 1;
}

long CSnakeProcess::ProcessChannel(const void* params)
{
    if (CImageProcess::ProcessChannel(params) != kOk || !params) return kFail;
    m_params = *static_cast<const SnakeParams*>(params);
    if (!m_params.points || m_params.count < 1 || !m_params.image || m_params.image->IsNull()) return kFail;
    if (!(m_params.points[0] == m_params.points[m_params.count - 1])) return kFail;

    CGaussianProcess gauss;
    gauss.SetImages(const_cast<COLImage*>(m_params.image), &edgeImage);
    const double sigma = 0.5;
    if (gauss.Process(&sigma) != kOk) return kFail;
    BuildEdgeMap(edgeImage);
    // The edge plane is not dumped to a file: a fixed path is no place to write behind a user's back.

    contour.assign(m_params.points, m_params.points + m_params.count);
    RedistributeFully();
    size_t limit = contour.size() * 64;
    bool moved = Iterate();
    while (moved && limit != 0) {
        --limit;
        moved = Iterate();
    }

    COLChannel& dst = *m_pDstChannel;
    if (dst.Create(m_pSrcChannel->GetWidth(), m_pSrcChannel->GetHeight()) != kOk) return kFail;
    std::memset(dst.GetBuffer(), 0, dst.GetAreaByteSize());
    if (contour.size() < 4) return kFail;
    return Rasterise(contour, dst);
}
