#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "effects/patch_inpaint.h"
#include "filters/resample.h"
#include "matting/gaussian.h"
#include "runtime/status.h"
#include "support/engine_checks.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

using vmtest::Bytes;

// The classic block quilting written out step by step as it is told, without any of the engine's shortcuts
// (no summed table for the known test, no split, the early exit returning twice the best).
struct RefInpaint {
    struct Tile {
        int left, top, right, bottom, done, score;
    };
    int W = 0, H = 0, bs = 8, overlap = 0, ts = 0, step = 1;
    int left = 0, top = 0, right = 0, bottom = 0, count = 0;
    COLChannel known, hole, ring, feather;
    COLImage coarseSource;
    std::vector<Tile> tiles;
    bool cancelAfterFirst = false;

    long Run(const COLImage& src, COLChannel& mask, int blockSize, int featherMask, COLImage& dst)
    {
        W = int(src.GetWidth()), H = int(src.GetHeight()), bs = blockSize;
        left = W, top = H, right = 0, bottom = 0, count = 0;
        for (int y = 0; y < int(mask.GetHeight()); ++y)
            for (int x = 0; x < int(mask.GetWidth()); ++x)
                if (mask.GetValue(x, y)) {
                    ++count;
                    left = std::min(left, x), right = std::max(right, x);
                    top = std::min(top, y), bottom = std::max(bottom, y);
                }
        overlap = bs / 4;
        if (int(mask.GetWidth()) != W || int(mask.GetHeight()) != H || W * H < 5 * count) return 13;
        for (int i = 0; i < W * H; ++i)
            if (src.GetBuffer()[i].alpha == 0) return 13;
        const int m = bs / 2 + overlap;
        if (!(left >= m && right <= W - m && top >= m && bottom <= H - m)) return Padded(src, mask, featherMask, dst);
        if (featherMask) {
            mask = vmtest::Blurred(mask, bs * 0.16666666666666666);
        }
        overlap = std::min(std::max(overlap, 2), 8);
        ts = bs + 2 * overlap;
        known.Create(W, H), hole.Create(W, H);
        for (int i = 0; i < W * H; ++i) {
            known.GetBuffer()[i] = mask.GetBuffer()[i] < 128 ? 255 : 0;
            hole.GetBuffer()[i] = mask.GetBuffer()[i] < 128 ? 0 : 255;
        }
        ring = vmtest::Blurred(hole, overlap * 0.7692307692307692);
        for (int i = 0; i < W * H; ++i)
            ring.GetBuffer()[i] = hole.GetBuffer()[i] ? 0 : (ring.GetBuffer()[i] ? 255 : 0);
        dst.DuplicateFrom(&src);
        step = bs < 12 ? 1 : (bs <= 24 ? 2 : 3);
        if (step > 1) {
            EXPECT_EQ(ShrinkImageArea(&src, &coarseSource, W / step, H / step), 1);
        }
        tiles.clear();
        const int bw = right - left, bh = bottom - top;
        const int nx = (bs + bw - 1) / bs, ny = (bs + bh - 1) / bs;
        const int x0 = left - (bs * nx - bw) / 2, y0 = top - (bs * ny - bh) / 2;
        for (int j = 0; j < ny; ++j)
            for (int i = 0; i < nx; ++i)
                tiles.push_back({x0 + bs * i, y0 + bs * j, x0 + bs * i + bs, y0 + bs * j + bs, 0, 0});
        auto ramp = [&](int t) {
            if (t < overlap) return t * 255 / overlap;
            if (t > overlap + bs) return (ts * 255 - t * 255) / overlap;
            return 255;
        };
        feather.Create(ts, ts);
        for (int y = 0; y < ts; ++y)
            for (int x = 0; x < ts; ++x)
                feather.SetValue(x, y, uint8_t(ramp(x) * ramp(y) / 255));

        int tile = Pick(true);
        if (tile < 0) return 0;
        for (;;) {
            if (!Fill(tiles[tile], mask, dst)) return 13;
            tiles[tile].done = 1;
            if (cancelAfterFirst) return 0;
            tile = Pick(false);
            if (tile < 0) tile = Pick(true);
            if (tile < 0) return 0;
        }
    }

    long Padded(const COLImage& src, const COLChannel& mask, int featherMask, COLImage& dst)
    {
        const int pw = W + 2 * bs, ph = H + 2 * bs, w = W, h = H, b = bs;
        auto inside = [&](int x, int y) { return x >= b && y >= b && x < b + w && y < b + h; };
        const COLImage psrc = vmtest::Picture(pw, ph, [&](int x, int y) {
            return inside(x, y) ? *src.GetBuffer(x - b, y - b) : CPixel::FromWord(0xFF000000u);
        });
        COLChannel pmask =
            vmtest::PlaneOf(pw, ph, [&](int x, int y) { return inside(x, y) ? mask.GetValue(x - b, y - b) : 0; });
        COLImage pdst;
        RefInpaint inner;
        if (inner.Run(psrc, pmask, b, featherMask, pdst) != 0) return long(0x80004005L);
        dst = vmtest::Picture(w, h, [&](int x, int y) { return *pdst.GetBuffer(x + b, y + b); });
        return 0;
    }

    int Pick(bool update)
    {
        int best = -1, bestScore = 0;
        for (size_t i = 0; i < tiles.size(); ++i) {
            Tile& t = tiles[i];
            if (t.done) continue;
            if (update) {
                int score = 0;
                bool allKnown = true;
                for (int y = t.top - overlap; y < t.bottom + overlap; ++y)
                    for (int x = t.left - overlap; x < t.right + overlap; ++x) {
                        if (ring.GetValue(x, y)) ++score;
                        if (!known.GetValue(x, y)) allKnown = false;
                    }
                t.score = score;
                if (allKnown) t.done = 1, t.score = 0;
            }
            if (t.score > bestScore) best = int(i), bestScore = t.score;
        }
        return best;
    }

    bool Fill(const Tile& t, const COLChannel& mask, COLImage& dst)
    {
        COLImage templ, coarse;
        templ.Create(ts, ts);
        for (int r = 0; r < ts; ++r)
            for (int c = 0; c < ts; ++c) {
                const int x = t.left - overlap + c, y = t.top - overlap + r;
                CPixel p = *dst.GetBuffer(x, y);
                if (ring.GetValue(x, y))
                    p.alpha = 255;
                else if (!known.GetValue(x, y))
                    p.alpha = 128;
                templ.PutPixel(c, r, p);
            }
        if (step > 1) {
            EXPECT_EQ(ShrinkImageArea(&templ, &coarse, ts / step, ts / step), 1);
        }
        const COLImage& a = step > 1 ? coarse : templ;
        const COLImage& b = step > 1 ? coarseSource : dst;
        const int sx = std::max(t.left - 4 * bs, 0), sy = std::max(t.top - 4 * bs, 0);
        const int xl = std::min(t.right + 4 * bs, W) - ts, yl = std::min(t.bottom + 4 * bs, H) - ts;
        int64_t best = 0x7FFFFFFF;
        int bx = -1, by = -1;
        for (int y = sy; y < yl; y += step)
            for (int x = sx; x < xl; x += step) {
                int64_t cost = 0;
                for (int j = 0; j < ts && cost == 0; ++j)
                    for (int i = 0; i < ts; ++i)
                        if (!known.GetValue(x + i, y + j)) cost = -1;
                if (cost == 0) {
                    for (int j = 0; j < int(a.GetHeight()) && cost <= best; ++j)
                        for (int i = 0; i < int(a.GetWidth()); ++i) {
                            const CPixel p = *a.GetBuffer(i, j);
                            if (p.alpha <= 254) continue;
                            const CPixel q = *b.GetBuffer(x / step + i, y / step + j);
                            cost += std::abs(p.blue - q.blue) + std::abs(p.green - q.green) + std::abs(p.red - q.red);
                        }
                    if (cost > best) cost = 2 * best;
                } else {
                    cost = 0;
                }
                if (cost < best && cost != 0) best = cost, bx = x, by = y;
            }
        if (bx < 0) return false;
        for (int r = 0; r < ts; ++r)
            for (int c = 0; c < ts; ++c) {
                const int tx = t.left - overlap + c, ty = t.top - overlap + r;
                const CPixel s = *dst.GetBuffer(bx + c, by + r);
                CPixel& d = *dst.GetBuffer(tx, ty);
                const int m = mask.GetValue(tx, ty);
                if (!m) continue;
                const int w = feather.GetValue(c, r) * m / 255;
                if (!w) continue;
                d.blue = uint8_t((s.blue * w + d.blue * (255 - w)) / 255);
                d.green = uint8_t((s.green * w + d.green * (255 - w)) / 255);
                d.red = uint8_t((s.red * w + d.red * (255 - w)) / 255);
                known.SetValue(tx, ty, 255);
                ring.SetValue(tx, ty, 255);
            }
        return true;
    }
};

// A textured opaque picture: a few soft stripes under noise, so that matches differ but are not random.
COLImage Texture(int w, int h, uint32_t seed)
{
    const COLImage noise = vmtest::Noise(w, h, seed);
    return vmtest::Picture(w, h, [&](int x, int y) {
        const CPixel n = *noise.GetBuffer(x, y);
        return vmtest::Rgb(((x * 5 + y * 3) % 64) + n.red / 4, 80 + ((y * 7) % 48) + n.green / 8,
                           120 + ((x * 3) % 40) + n.blue / 8);
    });
}

COLChannel Hole(int w, int h, int x0, int y0, int x1, int y1, uint8_t value = 255)
{
    return vmtest::PlaneOf(w, h, [&](int x, int y) { return x >= x0 && x < x1 && y >= y0 && y < y1 ? value : 0; });
}

long Inpaint(const COLImage& src, const COLChannel& mask, int bs, int feather, int exact, COLImage& dst,
             CPatchInpaintProcess* process = nullptr)
{
    CPatchInpaintProcess own;
    CPatchInpaintProcess& p = process ? *process : own;
    InpaintParams params;
    params.mask = &mask;
    params.blockSize = bs;
    params.featherMask = feather;
    params.exact = exact;
    p.SetImages(const_cast<COLImage*>(&src), &dst);
    return p.Process(&params);
}

struct ExactCase {
    int w, h, x0, y0, x1, y1, bs, feather;
};

} // namespace

TEST(PatchInpaint, ClassicArithmeticMatchesThePlainQuiltingAtEveryStepSplitAndLevel)
{
    // Block sizes 8 and 10 compare at full size, 12 and 20 on a grid of 2, 26 on a grid of 3; the last two
    // cases touch the picture's edge and go through the black-padded copy.
    const ExactCase cases[] = {{64, 48, 24, 18, 37, 29, 8, 1}, {64, 48, 24, 18, 37, 29, 8, 0},
                               {72, 60, 30, 20, 41, 35, 10, 1}, {96, 80, 40, 30, 62, 47, 12, 1},
                               {120, 100, 50, 40, 70, 61, 20, 0}, {200, 160, 80, 60, 131, 97, 26, 1},
                               {64, 48, 0, 20, 9, 30, 8, 1},    {96, 80, 70, 60, 96, 80, 12, 1}};
    for (const ExactCase& c : cases) {
        SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << " hole " << c.x0 << "," << c.y0 << " block " << c.bs
                                        << " feather " << c.feather);
        const COLImage src = Texture(c.w, c.h, uint32_t(c.w * 31 + c.bs));
        const COLChannel mask = Hole(c.w, c.h, c.x0, c.y0, c.x1, c.y1);
        COLChannel refMask = vmtest::Copy(mask);
        COLImage expected;
        RefInpaint ref;
        ASSERT_EQ(ref.Run(src, refMask, c.bs, c.feather, expected), 0);
        ASSERT_FALSE(vmtest::SamePixels(expected, src)) << "the case fills nothing";
        vmtest::ForEachLevelAndSplit([&](const std::string& label) {
            COLImage dst;
            ASSERT_EQ(Inpaint(src, mask, c.bs, c.feather, 1, dst), kOk) << label;
            EXPECT_EQ(Bytes(dst), Bytes(expected)) << label;
        });
        COLChannel fresh = Hole(c.w, c.h, c.x0, c.y0, c.x1, c.y1);
        EXPECT_EQ(Bytes(mask), Bytes(fresh)) << "the caller's mask is only read";
    }
}

TEST(PatchInpaint, EmptyMaskCopiesAndRefusalsLeaveTheDestination)
{
    const COLImage src = Texture(40, 30, 3);
    COLImage dst;
    for (int exact : {0, 1}) {
        EXPECT_EQ(Inpaint(src, Hole(40, 30, 0, 0, 0, 0), 8, 1, exact, dst), kOk);
        EXPECT_TRUE(vmtest::SamePixels(dst, src));
        // A picture too small for the block goes through the padded copy and still comes back whole.
        const COLImage tiny = Texture(5, 4, 9);
        EXPECT_EQ(Inpaint(tiny, Hole(5, 4, 0, 0, 0, 0), 8, 1, exact, dst), kOk);
        EXPECT_TRUE(vmtest::SamePixels(dst, tiny));
    }

    dst.Free();
    EXPECT_EQ(Inpaint(src, Hole(41, 30, 10, 10, 12, 12), 8, 1, 0, dst), kInpaintNoSample) << "mask of another size";
    // A fifth of 40 x 30 is 240 pixels: 16 x 15 is accepted, 16 x 16 refused.
    EXPECT_EQ(Inpaint(src, Hole(40, 30, 12, 7, 28, 22), 8, 1, 0, dst), kOk);
    dst.Free();
    EXPECT_EQ(Inpaint(src, Hole(40, 30, 12, 7, 28, 23), 8, 1, 0, dst), kInpaintNoSample);
    EXPECT_TRUE(dst.IsNull()) << "a refusal writes nothing";
    COLImage holed = vmtest::Copy(src);
    holed.GetBuffer(3, 3)->alpha = 0;
    EXPECT_EQ(Inpaint(holed, Hole(40, 30, 20, 15, 22, 17), 8, 1, 0, dst), kInpaintNoSample) << "a transparent pixel";

    EXPECT_EQ(Inpaint(src, Hole(40, 30, 20, 15, 22, 17), 7, 1, 0, dst), kFail) << "block below 8";
    EXPECT_EQ(Inpaint(src, Hole(40, 30, 20, 15, 22, 17), 65, 1, 0, dst), kFail) << "block above 64";
    CPatchInpaintProcess p;
    InpaintParams params;
    params.mask = nullptr;
    p.SetImages(const_cast<COLImage*>(&src), &dst);
    EXPECT_EQ(p.Process(&params), kFail) << "no mask";
    COLImage same = vmtest::Copy(src);
    const COLChannel mask = Hole(40, 30, 20, 15, 22, 17);
    params.mask = &mask;
    p.SetImages(&same, &same);
    EXPECT_EQ(p.Process(&params), kFail) << "the destination is the source";
    EXPECT_TRUE(vmtest::SamePixels(same, src));
}

TEST(PatchInpaint, UniformBackgroundFailsClassicallyAndFillsInTheEditor)
{
    // Every candidate matches exactly: the classic rule passes over cost 0 and finds nothing.
    const COLImage sky = vmtest::Picture(60, 50, [](int x, int y) { // with a speck
        return x >= 30 && x < 33 && y >= 24 && y < 27 ? vmtest::Rgb(20, 20, 20) : vmtest::Rgb(90, 150, 230);
    });
    const COLChannel mask = Hole(60, 50, 28, 22, 35, 29);
    COLImage dst;
    EXPECT_EQ(Inpaint(sky, mask, 8, 1, 1, dst), kInpaintNoSample);
    COLChannel refMask = vmtest::Copy(mask);
    RefInpaint ref;
    COLImage expected;
    EXPECT_EQ(ref.Run(sky, refMask, 8, 1, expected), 13);

    for (int feather : {0, 1}) {
        ASSERT_EQ(Inpaint(sky, mask, 8, feather, 0, dst), kOk);
        EXPECT_EQ(Bytes(dst), Bytes(vmtest::Solid(60, 50, CPixel::FromWord(0xFF5A96E6u)))) << feather;
    }
}

TEST(PatchInpaint, EditorFillKeepsNoOldContentAndChangesNothingBeyondTheRim)
{
    // Red appears only in the object: whatever red the hole shows afterwards came from the old content.
    const int w = 160, h = 120;
    COLImage src = Texture(w, h, 77);
    for (size_t i = 0; i < src.GetPixelCount(); ++i)
        src.GetBuffer()[i].red = 0;
    const int x0 = 60, y0 = 40, x1 = 95, y1 = 71;
    for (int y = y0 + 2; y < y1 - 2; ++y)
        for (int x = x0 + 2; x < x1 - 2; ++x)
            src.PutPixel(x, y, vmtest::Rgb(255, 0, 0));
    const COLChannel mask = Hole(w, h, x0, y0, x1, y1);
    const int bs = CPatchInpaintProcess::EstimateBlockSize(mask);
    ASSERT_GE(bs, 8);
    // The rim: the blurred mask's reach (sigma bs / 6, cut at 16 taps of the reduced picture) and at most the
    // seam of the outer tiles.
    const int reach = bs / 2 + 8 + 1;

    for (int feather : {1, 0}) {
        SCOPED_TRACE(feather ? "feathered" : "hard");
        COLImage dst;
        ASSERT_EQ(Inpaint(src, mask, bs, feather, 0, dst), kOk);
        int changedOutside = 0;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const CPixel a = *dst.GetBuffer(x, y), b = *src.GetBuffer(x, y);
                const bool inHole = mask.GetValue(x, y) > 127;
                if (inHole) {
                    ASSERT_EQ(a.red, 0) << "old content at " << x << "," << y;
                    continue;
                }
                ASSERT_EQ(a.alpha, b.alpha);
                if (a.Word() == b.Word()) continue;
                ++changedOutside;
                ASSERT_TRUE(feather) << "a hard fill changed " << x << "," << y;
                ASSERT_TRUE(x >= x0 - reach && x < x1 + reach && y >= y0 - reach && y < y1 + reach)
                    << "changed beyond the rim at " << x << "," << y;
            }
        if (feather) {
            EXPECT_GT(changedOutside, 0) << "the rim was not blended";
        }
    }

    // The classic arithmetic lets the object bleed back through the softened mask: the check above can fail.
    COLImage classic;
    ASSERT_EQ(Inpaint(src, mask, bs, 1, 1, classic), kOk);
    int red = 0;
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            red += classic.GetBuffer(x, y)->red != 0;
    EXPECT_GT(red, 0);
}

TEST(PatchInpaint, HoleAtTheEdgeNeverTakesThePaddingInTheEditor)
{
    // The padded copy's border is black; the editor's fill must not paste it in.
    const int w = 90, h = 70;
    COLImage src = Texture(w, h, 5);
    for (size_t i = 0; i < src.GetPixelCount(); ++i) {
        CPixel& p = src.GetBuffer()[i];
        p.red = uint8_t(std::max<int>(p.red, 40)), p.green = uint8_t(std::max<int>(p.green, 40));
        p.blue = uint8_t(std::max<int>(p.blue, 40));
    }
    const COLChannel mask = Hole(w, h, 0, 0, 14, 70);
    for (int feather : {0, 1}) {
        COLImage dst;
        ASSERT_EQ(Inpaint(src, mask, 8, feather, 0, dst), kOk);
        ASSERT_EQ(dst.GetWidth(), uint32_t(w));
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < 14; ++x) {
                const CPixel p = *dst.GetBuffer(x, y);
                ASSERT_GE(std::min({p.red, p.green, p.blue}), 40) << x << "," << y;
            }
    }
}

TEST(PatchInpaint, CancelKeepsWhatWasFilled)
{
    const COLImage src = Texture(96, 80, 11);
    const COLChannel mask = Hole(96, 80, 30, 25, 62, 50);
    for (int exact : {1, 0}) {
        CPatchInpaintProcess p;
        p.RequestCancel(); // noticed after the first tile
        COLImage dst;
        ASSERT_EQ(Inpaint(src, mask, 8, 0, exact, dst, &p), kOk);
        int filled = 0, kept = 0;
        for (int y = 25; y < 50; ++y)
            for (int x = 30; x < 62; ++x)
                (dst.GetBuffer(x, y)->Word() == src.GetBuffer(x, y)->Word() ? kept : filled)++;
        EXPECT_GT(filled, 0);
        EXPECT_GT(kept, 32 * 25 / 2) << "only one tile is filled";
        EXPECT_TRUE(std::any_of(p.GetTiles().begin(), p.GetTiles().end(), [](auto& t) { return t.done != 0; }));
        if (exact) {
            COLChannel refMask = vmtest::Copy(mask);
            RefInpaint ref;
            ref.cancelAfterFirst = true;
            COLImage expected;
            ASSERT_EQ(ref.Run(src, refMask, 8, 0, expected), 0);
            EXPECT_EQ(Bytes(dst), Bytes(expected));
        }
    }
}

TEST(PatchInpaint, BlockSizeFollowsTheHolesThickness)
{
    auto literal = [](const COLChannel& mask) {
        COLChannel hard = vmtest::Copy(mask), blurred;
        for (size_t i = 0; i < size_t(mask.GetWidth()) * mask.GetHeight(); ++i)
            hard.GetBuffer()[i] = hard.GetBuffer()[i] < 128 ? 0 : 255;
        auto high = [&](int s) {
            blurred = vmtest::Blurred(hard, s);
            const uint8_t* p = blurred.GetBuffer();
            return std::any_of(p, p + size_t(mask.GetWidth()) * mask.GetHeight(), [](uint8_t v) { return v >= 230; });
        };
        int s = 8;
        if (!high(8)) return 8;
        for (s = 16; s < 64 && high(s); s *= 2) {
        }
        int lo = s / 2, hi = s, mid = (lo + hi) / 2;
        for (;;) {
            (high(mid) ? lo : hi) = mid;
            mid = (lo + hi) / 2;
            if (hi - lo < 2) return mid;
        }
    };
    EXPECT_EQ(CPatchInpaintProcess::EstimateBlockSize(Hole(100, 100, 0, 0, 0, 0)), 8);
    EXPECT_EQ(CPatchInpaintProcess::EstimateBlockSize(Hole(100, 100, 40, 40, 50, 50)), 8);
    EXPECT_EQ(CPatchInpaintProcess::EstimateBlockSize(Hole(100, 100, 40, 40, 50, 50, 127)), 8) << "127 is no hole";
    int previous = 8;
    for (int side : {40, 70, 120, 220}) {
        const COLChannel mask = Hole(400, 400, 200 - side / 2, 200 - side / 2, 200 + side / 2, 200 + side / 2);
        const int bs = CPatchInpaintProcess::EstimateBlockSize(mask);
        EXPECT_EQ(bs, literal(mask)) << side;
        EXPECT_GE(bs, previous) << side;
        EXPECT_LE(bs, 63);
        previous = bs;
    }
    EXPECT_GT(previous, 16);
}
