#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "effects/polygon_fill.h"
#include "imaging/channel.h"
#include "imaging/result.h"
#include "support/engine_checks.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

// The fill as written out in the rules, pixel by pixel over every edge: slow, plain, and independent of the
// span walk of the product.
struct PlainEdge {
    long long x1, y1, x2, y2, slope;
    bool vertical;
};

std::vector<PlainEdge> PlainEdges(const std::vector<CPolyPoint>& p)
{
    std::vector<PlainEdge> edges;
    for (size_t i = 0; i + 1 < p.size(); ++i) {
        PlainEdge e{p[i].x, p[i].y, p[i + 1].x, p[i + 1].y, 0, p[i].x == p[i + 1].x};
        if (!e.vertical) e.slope = ((e.y1 - e.y2) * 256) / (e.x1 - e.x2);
        edges.push_back(e);
    }
    return edges;
}

// The edges crossed left of (x, y): at pixel positions in whole numbers (T = long long), at the sixteen sample
// points of a border pixel in doubles.
template <class T> int PlainCount(const std::vector<PlainEdge>& edges, T x, T y)
{
    int count = 0;
    for (const PlainEdge& e : edges) {
        const T lo = T(std::min(e.y1, e.y2)), hi = T(std::max(e.y1, e.y2));
        if (!(lo <= y && y < hi)) continue;
        if (e.vertical) {
            count += x > T(e.x1);
            continue;
        }
        const T v = (T(e.x1) - x) * T(e.slope) + (y - T(e.y1)) * T(256);
        if (e.slope < 0) count += v > T(0);
        else if (e.slope >= 1) count += v < T(0);
    }
    return count;
}

std::vector<uint8_t> PlainFill(const std::vector<CPolyPoint>& p, int w, int h, std::vector<uint8_t> plane)
{
    long long l = p[0].x, r = p[0].x, t = p[0].y, b = p[0].y;
    for (const CPolyPoint& q : p) {
        l = std::min<long long>(l, q.x);
        r = std::max<long long>(r, q.x);
        t = std::min<long long>(t, q.y);
        b = std::max<long long>(b, q.y);
    }
    l = std::max(l, 0LL);
    t = std::max(t, 0LL);
    r = std::min<long long>(r, w);
    b = std::min<long long>(b, h);
    if (l >= r || t >= b) return plane;
    const std::vector<PlainEdge> edges = PlainEdges(p);
    for (long long y = t; y < b; ++y)
        for (long long x = l; x < r; ++x)
            if (PlainCount<long long>(edges, x, y) & 1) plane[size_t(y * w + x)] = 255;
    std::vector<std::pair<int, int>> border;
    for (long long y = t + 1; y <= b - 2; ++y)
        for (long long x = l + 1; x <= r - 2; ++x) {
            bool differs = false;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx)
                    differs |= plane[size_t((y + dy) * w + x + dx)] != plane[size_t(y * w + x)];
            if (differs) border.push_back({int(x), int(y)});
        }
    for (auto [x, y] : border) {
        int inside = 0;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                inside += PlainCount<double>(edges, x - 0.375 + 0.25 * i, y - 0.375 + 0.25 * j) & 1;
        plane[size_t(y * w + x)] = inside == 16 ? 255 : uint8_t(16 * inside);
    }
    return plane;
}

// The fill from a given plane, compared with the plain fill byte for byte.
void ExpectSameFromPlane(const std::vector<CPolyPoint>& points, int w, int h, const std::vector<uint8_t>& before)
{
    const std::vector<uint8_t> expected = PlainFill(points, w, h, before);
    COLChannel plane = vmtest::PlaneOf(w, h, [&](uint32_t x, uint32_t y) { return before[size_t(y) * w + x]; });
    ASSERT_EQ(FillPolygon(points.data(), points.size(), &plane), kOk);
    ASSERT_EQ(vmtest::Bytes(plane), expected);
}

// From an empty plane, or with a seed from one that already holds a selection: it must stay where the fill does
// not reach.
void ExpectSameAsPlain(const std::vector<CPolyPoint>& points, int w, int h, uint32_t seed = 0)
{
    std::mt19937 rng(seed);
    std::vector<uint8_t> before(size_t(w * h));
    for (uint8_t& v : before) v = seed ? uint8_t(rng() % 3 * 100) : 0;
    ExpectSameFromPlane(points, w, h, before);
}

} // namespace

TEST(FillPolygon, RectangleTriangleAndStarMatchThePlainFill)
{
    ExpectSameAsPlain({{2, 2}, {9, 2}, {9, 7}, {2, 7}, {2, 2}}, 12, 10);
    ExpectSameAsPlain({{1, 1}, {14, 4}, {5, 12}, {1, 1}}, 16, 14);
    // A self-crossing star: the even-odd rule leaves its centre empty.
    ExpectSameAsPlain({{10, 0}, {16, 19}, {0, 7}, {20, 7}, {4, 19}, {10, 0}}, 21, 21);
}

TEST(FillPolygon, VeryFlatEdgesCountForNothing)
{
    // The long bottom edge rises one pixel over 300: its slope truncates to 0, so it never crosses, and the
    // rows it spans take their parity from the other edges alone.
    const std::vector<CPolyPoint> p = {{0, 0}, {300, 1}, {300, 6}, {0, 5}, {0, 0}};
    ExpectSameAsPlain(p, 310, 8);
    COLChannel plane = vmtest::Plane(310, 8, 0);
    ASSERT_EQ(FillPolygon(p.data(), p.size(), &plane), kOk);
    EXPECT_EQ(plane.GetValue(150, 3), 255);
}

TEST(FillPolygon, FlatEdgesFarCornersAndNarrowPlanesMatchThePlainFill)
{
    // Edges rising a few pixels over hundreds: long runs of border pixels, each sample row crossed once in them.
    ExpectSameAsPlain({{-50, 10}, {400, 14}, {410, 40}, {-40, 37}, {-50, 10}}, 300, 50);
    ExpectSameAsPlain({{0, 30}, {290, 3}, {299, 3}, {10, 31}, {0, 30}}, 300, 40);
    // Corners a million pixels off the plane: steep slopes, crossings far outside the box.
    ExpectSameAsPlain({{-1000000, -900000}, {1000000, 20}, {30, 1000000}, {-1000000, -900000}}, 64, 48);
    ExpectSameAsPlain({{-999999, 5}, {40, -999999}, {999999, 999999}, {-999999, 5}}, 50, 50);
    // A bow tie crossing itself inside a row, and a polygon that retraces an edge.
    ExpectSameAsPlain({{2, 2}, {40, 30}, {40, 2}, {2, 30}, {2, 2}}, 44, 34);
    ExpectSameAsPlain({{3, 3}, {30, 20}, {3, 3}, {30, 3}, {30, 20}, {3, 3}}, 34, 24);
    // Planes one or two pixels across: no border pixels, or a box with no inner part.
    for (auto [w, h] : std::vector<std::pair<int, int>>{{1, 40}, {40, 1}, {2, 2}, {3, 3}, {2, 30}, {30, 3}}) {
        SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
        ExpectSameAsPlain({{-3, -2}, {w + 4, 1}, {w / 2, h + 5}, {-3, -2}}, w, h);
        ExpectSameAsPlain({{0, 0}, {w, 0}, {w, h}, {0, h}, {0, 0}}, w, h, 5);
    }
}

TEST(FillPolygon, BandsOfRowsGiveTheSameBytesAtEveryThreadCount)
{
    // Tall enough for several bands. The plane holds a few marks on some rows only, so rows told from their
    // spans alone and rows that must be looked at lie next to each other, also across the bands' seams.
    const int w = 230, h = 420;
    std::vector<CPolyPoint> star;
    for (int i = 0; i < 90; ++i) {
        const double a = 6.2831853 * i / 90, r = (i % 2 ? 0.3 : 0.49) * h;
        star.push_back({int(w / 2 + r * 0.6 * std::cos(a)), int(h / 2 + r * std::sin(a))});
    }
    star.push_back(star.front());
    std::vector<uint8_t> empty(size_t(w * h), 0), marked = empty;
    std::mt19937 rng(19);
    for (int k = 0; k < 40; ++k) marked[size_t(rng() % uint32_t(h / 3)) * 3 * w + rng() % uint32_t(w)] = 77;
    for (unsigned threads : {1u, 2u, 3u, 7u}) {
        vmtest::ThreadCount tc(threads);
        SCOPED_TRACE(threads);
        ExpectSameFromPlane(star, w, h, empty);
        ExpectSameFromPlane(star, w, h, marked);
    }
}

namespace {

// Outlines of the kinds that make the fill work: many-cornered stars, self-crossing scribbles with axis-parallel
// steps, edges a pixel or two off horizontal or vertical, spikes whose sides run a pixel apart, and corners far
// off the plane.
std::vector<CPolyPoint> RandomOutline(std::mt19937& rng, int w, int h)
{
    std::vector<CPolyPoint> p;
    const int kind = int(rng() % 5);
    const int n = 3 + int(rng() % 60);
    if (kind == 0) {
        const double cx = w / 2.0 + int(rng() % 21) - 10, cy = h / 2.0 + int(rng() % 21) - 10;
        const double r0 = (0.2 + rng() % 60 / 100.0) * h, r1 = (0.2 + rng() % 60 / 100.0) * h;
        const double stretch = 0.3 + rng() % 100 / 60.0;
        for (int i = 0; i < 2 * n; ++i) {
            const double a = 6.2831853 * i / (2 * n), r = i % 2 ? r0 : r1;
            p.push_back({int(cx + r * stretch * std::cos(a)), int(cy + r * std::sin(a))});
        }
    } else if (kind == 1) {
        // Random corners, partly off the plane; some reached by a horizontal and a vertical step.
        for (int i = 0; i < n; ++i) {
            const int x = int(rng() % uint32_t(w + 30)) - 15, y = int(rng() % uint32_t(h + 30)) - 15;
            if (i % 2 && rng() % 2) p.push_back({x, p.back().y});
            p.push_back({x, y});
        }
    } else if (kind == 2) {
        int x = int(rng() % uint32_t(w)), y = int(rng() % uint32_t(h));
        for (int i = 0; i < n; ++i) {
            if (i % 2) {
                x = int(rng() % uint32_t(w + 20)) - 10;
                y += int(rng() % 5) - 2;
            } else {
                y = int(rng() % uint32_t(h + 20)) - 10;
                x += int(rng() % 5) - 2;
            }
            p.push_back({x, y});
        }
    } else if (kind == 3) {
        const int cx = w / 2, cy = h / 2;
        for (int i = 0; i < n; ++i) {
            const double a = 6.2831853 * i / n;
            const int tx = int(cx + 0.7 * w * std::cos(a)), ty = int(cy + 0.7 * h * std::sin(a));
            p.push_back({cx, cy});
            p.push_back({tx, ty});
            p.push_back({tx + int(rng() % 4), ty + int(rng() % 4)});
        }
    } else {
        for (int i = 0; i < 3 + n % 3; ++i)
            p.push_back({int(rng() % 2000001) - 1000000, int(rng() % 2000001) - 1000000});
        p.push_back({int(rng() % uint32_t(w)), int(rng() % uint32_t(h))});
    }
    p.push_back(p.front());
    return p;
}

} // namespace

TEST(FillPolygon, RandomOutlinesMatchThePlainFillAtEveryLevelAndSplit)
{
    // Each outline is filled into a cleared plane and into planes that hold a few marks or noise, at both vector
    // levels and at 1, 2 and 5 workers. Most planes are tall enough for several bands; every fourth is small
    // (8 to 63 rows), where the outline's corners lie mostly off the plane and one band holds the whole.
    std::mt19937 rng(23);
    for (int round = 0; round < 64; ++round) {
        const int w = 8 + int(rng() % 192), h = round % 4 ? 64 + int(rng() % 160) : 8 + int(rng() % 56);
        const std::vector<CPolyPoint> points = RandomOutline(rng, w, h);
        std::vector<uint8_t> before(size_t(w * h), 0);
        if (round % 3 == 1)
            for (int k = 0; k < 12; ++k) before[rng() % before.size()] = 77;
        if (round % 3 == 2)
            for (uint8_t& v : before) v = uint8_t(rng() % 3 * 100);
        const std::vector<uint8_t> cleared = PlainFill(points, w, h, std::vector<uint8_t>(size_t(w * h), 0));
        const std::vector<uint8_t> filled = PlainFill(points, w, h, before);
        for (int level : {vmsimd::kPlain, vmsimd::kSse2})
            for (unsigned workers : {1u, 2u, 5u}) {
                SCOPED_TRACE(testing::Message() << "round " << round << ", level " << level << ", " << workers
                                                << " workers");
                vmtest::RuntimeLimits limits(level, workers);
                COLChannel plane =
                    vmtest::PlaneOf(w, h, [&](uint32_t x, uint32_t y) { return before[size_t(y) * w + x]; });
                ASSERT_EQ(ClearAndFillPolygon(points.data(), points.size(), &plane), kOk);
                ASSERT_EQ(vmtest::Bytes(plane), cleared);
                std::memcpy(plane.GetBuffer(), before.data(), before.size());
                ASSERT_EQ(FillPolygon(points.data(), points.size(), &plane), kOk);
                ASSERT_EQ(vmtest::Bytes(plane), filled);
            }
    }
}

TEST(FillPolygon, RefusesTooFewPointsAndMissingPlane)
{
    COLChannel plane;
    const std::vector<CPolyPoint> p = {{0, 0}, {5, 5}, {0, 0}};
    EXPECT_EQ(FillPolygon(p.data(), p.size(), &plane), kFail);
    plane = vmtest::Plane(8, 8, 7);
    EXPECT_EQ(FillPolygon(p.data(), 2, &plane), kFail);
    EXPECT_EQ(plane.GetValue(3, 3), 7) << "a refused fill leaves the plane as it was";
    // An outline wholly off the plane does nothing and is no failure.
    const std::vector<CPolyPoint> off = {{20, 20}, {30, 20}, {30, 30}, {20, 20}};
    EXPECT_EQ(FillPolygon(off.data(), off.size(), &plane), kOk);
    EXPECT_EQ(plane.GetValue(7, 7), 7);
    // Clear-and-fill clears the whole plane, band by band, for a refused outline and one wholly off the plane alike.
    const std::vector<CPolyPoint> beyond = {{180, 5}, {215, 5}, {215, 50}, {180, 5}};
    const std::vector<uint8_t> cleared = vmtest::Bytes(vmtest::Plane(173, 300, 0));
    for (unsigned threads : {1u, 2u, 5u}) {
        vmtest::ThreadCount tc(threads);
        COLChannel tall = vmtest::Plane(173, 300, 80);
        EXPECT_EQ(ClearAndFillPolygon(p.data(), 2, &tall), kFail);
        EXPECT_EQ(vmtest::Bytes(tall), cleared) << threads << " threads";
        tall = vmtest::Plane(173, 300, 80);
        EXPECT_EQ(ClearAndFillPolygon(beyond.data(), beyond.size(), &tall), kOk);
        EXPECT_EQ(vmtest::Bytes(tall), cleared) << threads << " threads";
    }
}

TEST(FillEllipse, MatchesSixteenSamplesPerPixel)
{
    for (auto [x0, y0, x1, y1] : std::vector<std::array<int, 4>>{{2, 3, 17, 12}, {17, 12, 2, 3}, {-4, -2, 9, 7},
                                                                  {1, 1, 1, 9}}) {
        const int w = 20, h = 15;
        COLChannel plane = vmtest::Plane(w, h, 9);
        ASSERT_EQ(FillEllipse(x0, y0, x1, y1, &plane), kOk);
        const double a = std::abs(x1 - x0) / 2, b = std::abs(y1 - y0) / 2;
        const double cx = (x0 + x1) / 2, cy = (y0 + y1) / 2;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                int expected = 9;
                if (x >= std::min(x0, x1) && x <= std::max(x0, x1) && y >= std::min(y0, y1) && y <= std::max(y0, y1)) {
                    int n = 0;
                    for (int i = 0; i < 4 && a > 0 && b > 0; ++i)
                        for (int j = 0; j < 4; ++j) {
                            const double sx = x - 0.375 + 0.25 * i - cx, sy = y - 0.375 + 0.25 * j - cy;
                            n += sx * sx / (a * a) + sy * sy / (b * b) <= 1.0;
                        }
                    expected = n == 16 ? 255 : 16 * n;
                }
                ASSERT_EQ(int(plane.GetValue(uint32_t(x), uint32_t(y))), expected) << x << "," << y;
            }
    }
}

TEST(PolygonMask, ThinningKeepsEndsAndStopsAtTheLimit)
{
    CPolygonMask outline;
    for (int i = 0; i < 2001; ++i) outline.Add(i, (i * 7) % 3);
    outline.Thin(1000);
    ASSERT_LE(outline.GetCount(), 1000u);
    EXPECT_EQ(outline.Front(), (CPolyPoint{0, 0}));
    EXPECT_EQ(outline.Back(), (CPolyPoint{2000, (2000 * 7) % 3}));
    // d = 4 on the first pass: consecutive kept points are more than 4 apart (city-block), but the last.
    for (size_t i = 1; i + 1 < outline.GetCount(); ++i)
        EXPECT_GT(std::abs(outline[i].x - outline[i - 1].x) + std::abs(outline[i].y - outline[i - 1].y), 4);
    CPolygonMask small;
    for (int i = 0; i < 10; ++i) small.Add(i, 0);
    small.Thin(1000);
    EXPECT_EQ(small.GetCount(), 10u) << "a short outline is left alone";
}
