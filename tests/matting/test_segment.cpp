#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <vector>

#include "matting/gaussian.h"
#include "filters/resample.h"
#include "matting/segment.h"
#include "support/engine_checks.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

// ---------------------------------------------------------------------------------------------------------------
// A plain segmentation that scans the whole picture at every level, as the method reads. Where the method leaves
// room, it reduces the blurred picture, merges by truncated edge means and counts seedEnd in bins; each other
// choice changes the labels of the pictures below.

struct Ref {
    uint32_t w = 0, h = 0;
    std::vector<uint32_t> lab;
    std::vector<uint8_t> grad, gray;
    std::vector<SegmentRegion> regions;
    int hist[256] = {};
    int seedEnd = 0, level = 0;

    bool Adopt(uint32_t i)
    {
        const uint32_t x = i % w, y = i / w;
        uint32_t best = 0;
        int bestD = 255;
        if (x > 0 && lab[i - 1]) {
            best = lab[i - 1];
            bestD = std::abs(gray[i] - gray[i - 1]);
        }
        const int64_t others[3] = {x + 1 < w ? int64_t(i) + 1 : -1, y > 0 ? int64_t(i) - w : -1,
                                   y + 1 < h ? int64_t(i) + w : -1};
        for (int64_t o : others) {
            if (o < 0 || !lab[size_t(o)]) continue;
            const int d = std::abs(gray[i] - gray[size_t(o)]);
            if (d < bestD) {
                bestD = d;
                best = lab[size_t(o)];
            }
        }
        if (!best) return false;
        lab[i] = best;
        ++regions[best - 1].size;
        return true;
    }

    void Flood(uint32_t start)
    {
        SegmentRegion r;
        r.id = uint32_t(regions.size() + 1);
        r.seedLevel = uint32_t(level);
        std::deque<uint32_t> q{start};
        lab[start] = r.id;
        while (!q.empty()) {
            const uint32_t i = q.front();
            q.pop_front();
            ++r.size;
            const uint32_t x = i % w, y = i / w;
            const int64_t nb[4] = {x > 0 ? int64_t(i) - 1 : -1, x + 1 < w ? int64_t(i) + 1 : -1,
                                   y > 0 ? int64_t(i) - w : -1, y + 1 < h ? int64_t(i) + w : -1};
            for (int64_t n : nb)
                if (n >= 0 && lab[size_t(n)] == 0 && grad[size_t(n)] < level) {
                    lab[size_t(n)] = r.id;
                    q.push_back(uint32_t(n));
                }
        }
        regions.push_back(r);
    }

    void Seed()
    {
        for (uint32_t i = 0; i < w * h; ++i)
            if (grad[i] < level && lab[i] == 0) Flood(i);
    }

    void Grow()
    {
        std::vector<uint32_t> queue;
        for (;;) {
            for (uint32_t i = 0; i < w * h; ++i)
                if (grad[i] < level && lab[i] == 0 && !Adopt(i) && queue.size() < 20000) queue.push_back(i);
            if (queue.empty()) return;
            for (;;) {
                std::vector<uint32_t> left;
                size_t adopted = 0;
                for (uint32_t i : queue) {
                    if (Adopt(i))
                        ++adopted;
                    else
                        left.push_back(i);
                }
                queue = left;
                if (adopted == 0) return;
                if (queue.empty()) break;
            }
        }
    }

    void Adjacency()
    {
        for (uint32_t y = 1; y + 1 < h; ++y)
            for (uint32_t x = 1; x + 1 < w; ++x) {
                const uint32_t i = y * w + x, l = lab[i];
                if (!l || regions[l - 1].neighbourCount >= 5) continue;
                for (uint32_t a : {i - w, i - 1, i + 1, i + w}) {
                    const uint32_t m = lab[a];
                    if (!m || m == l) continue;
                    SegmentRegion& r = regions[l - 1];
                    int k = 0;
                    while (k < r.neighbourCount && r.neighbours[k] != m) ++k;
                    if (k < r.neighbourCount) {
                        r.edgeSum[k] += grad[i];
                        ++r.edgeLength[k];
                    } else if (r.neighbourCount < 5) {
                        r.neighbours[k] = m;
                        r.edgeSum[k] = grad[i];
                        r.edgeLength[k] = 1;
                        ++r.neighbourCount;
                    }
                }
            }
    }

    uint32_t Mean(const SegmentRegion& r, int k) const { return r.edgeSum[k] / r.edgeLength[k]; }

    void MergeInto(size_t idx, uint32_t label)
    {
        if (label == idx + 1 || label < 1 || label > regions.size() || regions[label - 1].mergedInto) return;
        SegmentRegion& r = regions[idx];
        SegmentRegion& t = regions[label - 1];
        r.mergedInto = int32_t(label);
        t.size += r.size;
        r.size = 0;
        std::vector<int> keep;
        for (int k = 0; k < t.neighbourCount; ++k)
            if (t.neighbours[k] != idx + 1) keep.push_back(k);
        if (int(keep.size()) == t.neighbourCount) return;
        SegmentRegion copy = t;
        for (size_t j = 0; j < keep.size(); ++j) {
            t.neighbours[j] = copy.neighbours[keep[j]];
            t.edgeLength[j] = copy.edgeLength[keep[j]];
            t.edgeSum[j] = copy.edgeSum[keep[j]];
        }
        t.neighbourCount = uint8_t(keep.size());
    }

    void Merge()
    {
        for (size_t i = 0; i < regions.size(); ++i) {
            const SegmentRegion r = regions[i];
            if (r.size <= 0 || r.size >= 400) continue;
            if (r.neighbourCount == 1 && Mean(r, 0) < 16) {
                MergeInto(i, r.neighbours[0]);
                continue;
            }
            int best = -1;
            for (int k = 0; k < r.neighbourCount; ++k)
                if (best < 0 || Mean(r, k) < Mean(r, best)) best = k;
            if (best >= 0 && Mean(r, best) < 8) MergeInto(i, r.neighbours[best]);
        }
    }

    void Relabel()
    {
        const uint32_t count = uint32_t(regions.size());
        for (uint32_t& l : lab) {
            if (!l) continue;
            int32_t p = regions[l - 1].mergedInto;
            if (p < 1 || uint32_t(p) >= count) continue;
            uint32_t t = uint32_t(p);
            for (;;) {
                p = regions[t - 1].mergedInto;
                if (p < 1 || uint32_t(p) >= count) break;
                t = uint32_t(p);
            }
            l = t;
        }
    }
};

int Root(int v)
{
    int r = int(std::sqrt(double(v)));
    while (r * r > v) --r;
    while ((r + 1) * (r + 1) <= v) ++r;
    return r;
}

Ref RefSegment(const COLImage& src, int detail, bool child = false)
{
    Ref s;
    s.w = src.GetWidth();
    s.h = src.GetHeight();
    const uint32_t w = s.w, h = s.h;
    const COLImage smooth = vmtest::Blurred(src, double(std::max(w, h)) / (detail * 20.0));
    s.lab.assign(size_t(w) * h, 0);
    s.grad.assign(size_t(w) * h, 255);
    s.gray.resize(size_t(w) * h);
    for (size_t i = 0; i < s.gray.size(); ++i) {
        const CPixel p = src.GetBuffer()[i];
        s.gray[i] = uint8_t((3 * p.red + 6 * p.green + p.blue) / 10);
    }
    // Pairs of groups as offsets (dx, dy).
    static const int pairs[4][2][3][2] = {
        {{{0, -1}, {-1, 0}, {-1, -1}}, {{1, 0}, {1, 1}, {0, 1}}},
        {{{1, -1}, {0, -1}, {-1, -1}}, {{1, 1}, {0, 1}, {-1, 1}}},
        {{{1, 0}, {1, -1}, {0, -1}}, {{0, 1}, {-1, 1}, {-1, 0}}},
        {{{1, 0}, {1, 1}, {1, -1}}, {{-1, 1}, {-1, 0}, {-1, -1}}},
    };
    for (uint32_t y = 1; y + 1 < h; ++y)
        for (uint32_t x = 1; x + 1 < w; ++x) {
            int best = 0;
            for (const auto& pair : pairs) {
                int mean[2][3];
                for (int side = 0; side < 2; ++side) {
                    int r = 0, gg = 0, b = 0;
                    for (const auto& o : pair[side]) {
                        const CPixel p = smooth.GetPixel2(x + o[0], y + o[1]);
                        r += p.red;
                        gg += p.green;
                        b += p.blue;
                    }
                    mean[side][0] = r / 3;
                    mean[side][1] = gg / 3;
                    mean[side][2] = b / 3;
                }
                int sq = 0;
                for (int c = 0; c < 3; ++c) sq += (mean[0][c] - mean[1][c]) * (mean[0][c] - mean[1][c]);
                best = std::max(best, std::min(255, Root(sq)));
            }
            s.grad[size_t(y) * w + x] = uint8_t(best);
        }
    for (uint8_t v : s.grad) ++s.hist[v];
    int sum = 0;
    s.seedEnd = 256;
    for (int b = 0; b < 256; ++b) {
        sum += s.hist[b];
        if (sum > int(w * h / 10)) {
            s.seedEnd = b + 1;
            break;
        }
    }
    s.seedEnd = std::max(s.seedEnd, 16);
    s.level = 8;

    uint32_t sw, sh;
    if (h >= w) {
        sh = 800;
        sw = w * 800 / h;
    } else {
        sw = 800;
        sh = h * 800 / w;
    }
    bool merge = true;
    if ((w > 800 || h > 800) && !child && sw >= 2 && sh >= 2) {
        COLImage small;
        EXPECT_TRUE(SampleImageTwoPoint(&smooth, &small, int(sw), int(sh)));
        const Ref c = RefSegment(small, detail, true);
        s.regions = c.regions;
        for (SegmentRegion& r : s.regions) {
            r.seedLevel = 4;
            r.size = 0;
            r.mergedInto = 0;
        }
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x) {
                const uint32_t sx = x * sw / w, sy = y * sh / h;
                if (sx >= sw - 1 || sy >= sh - 1) continue;
                const uint32_t a = c.lab[sy * sw + sx];
                if (a == c.lab[sy * sw + sx + 1] && a == c.lab[(sy + 1) * sw + sx] && a == c.lab[(sy + 1) * sw + sx + 1] && a) {
                    s.lab[size_t(y) * w + x] = a;
                    ++s.regions[a - 1].size;
                }
            }
        s.level = s.seedEnd = c.seedEnd;
        merge = false;
    } else {
        s.Seed();
    }
    while (s.level < s.seedEnd) {
        ++s.level;
        s.Grow();
        s.Seed();
    }
    while (s.level < 256) {
        ++s.level;
        if (s.hist[s.level - 1]) s.Grow();
    }
    if (merge) {
        s.Adjacency();
        s.Merge();
        s.Relabel();
    }
    return s;
}

struct Got {
    long code;
    COLImage labels;
    std::vector<SegmentRegion> regions;
    int seedEnd;
};

Got RunSegment(const COLImage& src, const int32_t* detail)
{
    Got g;
    CSegmentProcess p;
    p.SetImages(const_cast<COLImage*>(&src), &g.labels);
    g.code = p.Process(detail);
    g.regions = p.regions;
    g.seedEnd = p.seedEnd;
    return g;
}

// Same labels, gradients and region records.
::testing::AssertionResult Same(const Got& got, const Ref& ref)
{
    if (got.labels.GetWidth() != ref.w || got.labels.GetHeight() != ref.h) return ::testing::AssertionFailure() << "size";
    for (size_t i = 0; i < ref.lab.size(); ++i) {
        const CPixel p = got.labels.GetBuffer()[i];
        if (CSegmentProcess::Label(p) != ref.lab[i] || p.alpha != ref.grad[i])
            return ::testing::AssertionFailure() << "pixel " << i % ref.w << "," << i / ref.w << ": label "
                                                 << CSegmentProcess::Label(p) << " vs " << ref.lab[i] << ", gradient "
                                                 << int(p.alpha) << " vs " << int(ref.grad[i]);
    }
    if (got.seedEnd != ref.seedEnd) return ::testing::AssertionFailure() << "seedEnd " << got.seedEnd << " vs " << ref.seedEnd;
    if (got.regions.size() != ref.regions.size())
        return ::testing::AssertionFailure() << "regions " << got.regions.size() << " vs " << ref.regions.size();
    for (size_t i = 0; i < ref.regions.size(); ++i) {
        const SegmentRegion &a = got.regions[i], &b = ref.regions[i];
        bool same = a.id == b.id && a.seedLevel == b.seedLevel && a.size == b.size && a.mergedInto == b.mergedInto &&
                    a.neighbourCount == b.neighbourCount;
        for (int k = 0; same && k < a.neighbourCount; ++k)
            same = a.neighbours[k] == b.neighbours[k] && a.edgeLength[k] == b.edgeLength[k] && a.edgeSum[k] == b.edgeSum[k];
        if (!same) return ::testing::AssertionFailure() << "region " << i + 1;
    }
    return ::testing::AssertionSuccess();
}

// Soft shapes over noise: basins, edges and plenty of small regions to merge. With ramp, a gentle ramp under fine
// noise instead: many basins separated by weak boundaries, so many small regions merge.
COLImage MakeScene(uint32_t w, uint32_t h, uint32_t seed, bool ramp = false)
{
    COLImage img = vmtest::Noise(w, h, seed);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            CPixel& p = img.GetBuffer()[size_t(y) * w + x];
            const int band = int((x * 5 / w + y * 3 / h) % 4);
            p = ramp ? CPixel::Make(uint8_t(x * 2 + p.red / 16), uint8_t(y * 3 + p.green / 16),
                                    uint8_t(100 + p.blue / 16))
                     : CPixel::Make(uint8_t(band * 60 + p.red / 8), uint8_t((x * 7 + y * 3) % 200 + p.green / 10),
                                    uint8_t(((x / 9 + y / 7) % 2) * 120 + p.blue / 6));
        }
    return img;
}

} // namespace

TEST(Segment, MatchesThePlainMethodByteForByte)
{
    for (uint32_t seed : {3u, 11u, 103u, 104u}) {
        const COLImage img = MakeScene(71, 53, seed, seed > 100);
        for (int32_t detail : {10, 50, 1000}) {
            const Ref ref = RefSegment(img, detail);
            for (int level : {int(vmsimd::kPlain), -1})
                for (unsigned threads : {1u, 2u}) {
                    vmtest::RuntimeLimits limits(level, threads);
                    const Got got = RunSegment(img, &detail);
                    ASSERT_EQ(got.code, kOk);
                    EXPECT_TRUE(Same(got, ref)) << "seed " << seed << " detail " << detail << " threads " << threads
                                                << " level " << level;
                }
        }
    }
}

// Above 800 the picture is segmented at 800 on its long side, and the band where the small labels disagree is
// grown at full size; no merging follows at full size, and the regions carry the seed level 4.
TEST(Segment, ReducedSizePathMatchesThePlainMethod)
{
    const COLImage img = MakeScene(830, 47, 5);
    const int32_t detail = 50;
    const Ref ref = RefSegment(img, detail);
    const Got got = RunSegment(img, &detail);
    ASSERT_EQ(got.code, kOk);
    EXPECT_TRUE(Same(got, ref));
    ASSERT_FALSE(got.regions.empty());
    for (const SegmentRegion& r : got.regions) EXPECT_EQ(r.seedLevel, 4u);
}

// A flat picture: no gradient inside, one region seeded at level 8; the border (gradient 255) joins it at the
// last level, so every pixel has a label.
TEST(Segment, FlatPictureIsOneRegionBorderIncluded)
{
    COLImage img = vmtest::Solid(40, 30, CPixel::Make(90, 120, 30));
    const Got got = RunSegment(img, nullptr);
    ASSERT_EQ(got.code, kOk);
    ASSERT_EQ(got.regions.size(), 1u);
    EXPECT_EQ(got.regions[0].seedLevel, 8u);
    EXPECT_EQ(got.regions[0].size, 40 * 30);
    // Label 1 everywhere; the gradient, kept in alpha, 255 on the border and 0 inside.
    const COLImage expected = vmtest::Picture(40, 30, [](uint32_t x, uint32_t y) {
        return CPixel::FromWord(x == 0 || y == 0 || x == 39 || y == 29 ? 0xFF000001u : 1u);
    });
    EXPECT_TRUE(vmtest::SamePixels(got.labels, expected));
}

TEST(Segment, DetailSetsTheBlurAndBadInputFails)
{
    COLImage img = MakeScene(20, 12, 1), out;
    CSegmentProcess p;
    p.SetImages(&img, &out);
    const int32_t zero = 0;
    EXPECT_EQ(p.Process(&zero), kFail);
    CSegmentProcess none;
    EXPECT_EQ(none.Process(nullptr), kFail);

    // A requested cancel is noticed at the first cancel point.
    p.RequestCancel();
    EXPECT_EQ(p.Process(nullptr), kFail);
    EXPECT_EQ(p.Process(nullptr), kOk);
    EXPECT_EQ(p.detail, 10);
}

// Merged regions follow their chain of merges while each link names a label below the region count: a chain
// that reaches the last region stops before it, and what was merged along the way ends on one label.
TEST(Segment, MergedLabelsFollowTheirChain)
{
    std::vector<SegmentRegion> regions(5);
    for (uint32_t i = 0; i < 5; ++i) regions[i].id = i + 1;
    regions[0].mergedInto = 2;   // 1 -> 2 -> 3: both end on 3
    regions[1].mergedInto = 3;
    regions[3].mergedInto = 5;   // into the last region: kept
    regions[2].mergedInto = 0;
    // Labels with alpha 0x7F, which the merges keep.
    auto row = [](std::vector<uint32_t> ids) {
        return vmtest::Picture(6, 1, [&](uint32_t x, uint32_t) { return CPixel::FromWord(0x7F000000u | ids[x]); });
    };
    COLImage labels = row({1, 2, 3, 4, 5, 0});
    CSegmentProcess::ApplyMerges(regions, labels);
    EXPECT_TRUE(vmtest::SamePixels(labels, row({3, 3, 3, 4, 5, 0})));
    // A chain 1 -> 4 -> 5 stops at 4 as well.
    regions[0].mergedInto = 4;
    labels.GetBuffer()[0] = CPixel::FromWord(1);
    CSegmentProcess::ApplyMerges(regions, labels);
    EXPECT_EQ(CSegmentProcess::Label(labels.GetBuffer()[0]), 4u);
}
