#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <random>

#include "effects/tolerance_fill.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "imaging/result.h"
#include "support/engine_checks.h"
#include "support/pictures.h"
#include "support/test_support.h"

namespace {

// Breadth-first reachability with the same moves, membership written as "dist < tol or dist == 0".
std::vector<uint8_t> PlainFlood(const COLImage& layer, int ox, int oy, int sx, int sy, int tol, int cw, int ch)
{
    std::vector<uint8_t> out(size_t(cw * ch), 0);
    std::vector<uint8_t> seen(size_t(layer.GetWidth() * layer.GetHeight()), 0);
    const int lw = int(layer.GetWidth()), lh = int(layer.GetHeight());
    const CPixel ref = layer.GetPixel2(uint32_t(sx), uint32_t(sy));
    auto member = [&](int x, int y) {
        const CPixel p = layer.GetPixel2(uint32_t(x), uint32_t(y));
        const int d = std::abs(p.red - ref.red) + std::abs(p.green - ref.green) + std::abs(p.blue - ref.blue);
        return d < tol || d == 0;
    };
    std::deque<std::pair<int, int>> queue{{sx, sy}};
    seen[size_t(sy * lw + sx)] = 1;
    while (!queue.empty()) {
        auto [x, y] = queue.front();
        queue.pop_front();
        const int cx = x + ox, cy = y + oy;
        if (cx >= 0 && cy >= 0 && cx < cw && cy < ch) out[size_t(cy * cw + cx)] = 255;
        if (!(cx >= 0 && cx < cw && cy >= 0 && ox + y <= ch - 1)) continue;
        const std::pair<int, int> next[4] = {{x - 1, y}, {x, y - 1}, {x + 1, y}, {x, y + 1}};
        const bool allowed[4] = {cx > 1, cy > 1, x < lw - ox - 1, y < lh - oy - 1};
        for (int k = 0; k < 4; ++k) {
            auto [nx, ny] = next[k];
            if (!allowed[k] || nx < 0 || ny < 0 || nx >= lw || ny >= lh) continue;
            if (nx + ox < 0 || ny + oy < 0 || nx + ox >= cw || ny + oy >= ch) continue;
            if (seen[size_t(ny * lw + nx)] || !member(nx, ny)) continue;
            seen[size_t(ny * lw + nx)] = 1;
            queue.push_back({nx, ny});
        }
    }
    return out;
}

// The flood into an empty canvas plane of cw x ch, against the plain walk.
void ExpectSameAsPlainWalk(const COLImage& layer, int ox, int oy, int sx, int sy, int tol, uint32_t cw, uint32_t ch)
{
    COLChannel plane = vmtest::Plane(cw, ch, 0);
    ASSERT_EQ(ToleranceFlood(layer, ox, oy, sx, sy, tol, plane), kOk);
    EXPECT_EQ(vmtest::Bytes(plane), PlainFlood(layer, ox, oy, sx, sy, tol, int(cw), int(ch)));
}

} // namespace

TEST(ToleranceFlood, ExactColoursOnlyAtToleranceZeroAndOne)
{
    for (int tol : {0, 1}) {
        COLImage image = vmtest::Solid(6, 4, CPixel::Make(100, 100, 100));
        image.PutPixel(3, 2, CPixel::Make(101, 100, 100));   // distance 1
        COLChannel plane = vmtest::Plane(6, 4, 0);
        ASSERT_EQ(ToleranceFlood(image, 0, 0, 2, 2, tol, plane), kOk);
        EXPECT_EQ(plane.GetValue(3, 2), 0) << "tolerance " << tol;
        EXPECT_EQ(plane.GetValue(4, 2), 255);
    }
}

TEST(ToleranceFlood, JoinsBelowTheToleranceAndNotAtIt)
{
    COLImage image = vmtest::Solid(8, 3, CPixel::Make(50, 50, 50));
    image.PutPixel(5, 1, CPixel::Make(56, 53, 50));   // distance 9
    image.PutPixel(6, 1, CPixel::Make(60, 50, 50));   // distance 10
    COLChannel plane = vmtest::Plane(8, 3, 0);
    ASSERT_EQ(ToleranceFlood(image, 0, 0, 3, 1, 10, plane), kOk);
    EXPECT_EQ(plane.GetValue(5, 1), 255);
    EXPECT_EQ(plane.GetValue(6, 1), 0);
    EXPECT_EQ(plane.GetValue(7, 1), 255) << "reached round the far pixel through the rows above and below";
}

TEST(ToleranceFlood, ColumnAndRowZeroAreReachedOnlyByTheSeed)
{
    COLImage image = vmtest::Solid(5, 5, CPixel::Make(9, 9, 9));
    COLChannel plane = vmtest::Plane(5, 5, 0);
    ASSERT_EQ(ToleranceFlood(image, 0, 0, 2, 2, 5, plane), kOk);
    const COLChannel expected = vmtest::PlaneOf(5, 5, [](uint32_t x, uint32_t y) { return x && y ? 255 : 0; });
    EXPECT_EQ(vmtest::Bytes(plane), vmtest::Bytes(expected));
    COLChannel seeded = vmtest::Plane(5, 5, 0);
    ASSERT_EQ(ToleranceFlood(image, 0, 0, 0, 0, 5, seeded), kOk);
    EXPECT_EQ(seeded.GetValue(0, 0), 255);
}

TEST(ToleranceFlood, OffsetLayersOnNoisyPicturesMatchThePlainWalk)
{
    std::mt19937 rng(3);
    for (int round = 0; round < 40; ++round) {
        const uint32_t lw = 5 + rng() % 20, lh = 5 + rng() % 20, cw = 5 + rng() % 20, ch = 5 + rng() % 20;
        // Few colours close together, so that regions form and touch.
        const COLImage layer = vmtest::Picture(lw, lh, [&](uint32_t, uint32_t) {
            return CPixel::Make(uint8_t(100 + rng() % 4 * 3), 100, uint8_t(100 + rng() % 2 * 5));
        });
        const int ox = int(rng() % 9) - 4, oy = int(rng() % 9) - 4, tol = int(rng() % 12);
        const int sx = int(rng() % lw), sy = int(rng() % lh);
        SCOPED_TRACE(round);
        ExpectSameAsPlainWalk(layer, ox, oy, sx, sy, tol, cw, ch);
    }
}

TEST(ToleranceFlood, WideRegionsWithHolesMatchThePlainWalk)
{
    // Larger pictures of blocks and stripes: long runs that the walk takes as spans, rows already taken that it
    // skips eight at a time, regions that wind round holes and reach back into rows done before.
    std::mt19937 rng(5);
    for (int round = 0; round < 16; ++round) {
        const uint32_t lw = 40 + rng() % 120, lh = 30 + rng() % 90;
        const uint32_t cw = lw + rng() % 20 - 10, ch = lh + rng() % 20 - 10;
        const uint32_t block = 2 + rng() % 9;
        const COLImage layer = vmtest::Picture(lw, lh, [&](uint32_t x, uint32_t y) {
            const bool wall = (x / block + y / block) % 3 == 0 && rng() % 5 != 0;
            const uint8_t noise = uint8_t(rng() % 4);
            return wall ? CPixel::Make(200, 30, 30) : CPixel::Make(uint8_t(60 + noise), 90, 120);
        });
        const int ox = int(rng() % 13) - 6, oy = int(rng() % 13) - 6, tol = int(rng() % 40);
        const int sx = int(rng() % lw), sy = int(rng() % lh);
        SCOPED_TRACE(round);
        ExpectSameAsPlainWalk(layer, ox, oy, sx, sy, tol, cw, ch);
    }
}

TEST(ToleranceFlood, RowsAcrossManyWordsMatchThePlainWalk)
{
    // Layers one pixel wide, at the 64-pixel word seams and across several blocks of them, shifted both ways so
    // that the canvas cuts rows short and the columns where steps left and right stop fall inside the layer.
    std::mt19937 rng(8);
    for (uint32_t lw : {1u, 2u, 63u, 64u, 65u, 129u, 300u, 700u}) {
        for (int round = 0; round < 4; ++round) {
            const uint32_t lh = 1 + rng() % 30;
            const COLImage layer = vmtest::Picture(lw, lh, [&](uint32_t x, uint32_t y) {
                const bool wall = (x * 7 + y * 3) % 23 == 0 || rng() % 9 == 0;
                const CPixel open = CPixel::Make(uint8_t(40 + rng() % 3), 90, 90);
                return wall ? CPixel::Make(220, 20, 20) : open;
            });
            const int span = int(lw) / 2 + 3;
            const int ox = round == 0 ? 0 : int(rng() % uint32_t(2 * span)) - span, oy = int(rng() % 7) - 3;
            const uint32_t cw = uint32_t(std::max(1, int(lw) + int(rng() % 9) - 4));
            const uint32_t ch = lh + uint32_t(rng() % 5);
            const int sx = int(rng() % lw), sy = int(rng() % lh);
            SCOPED_TRACE(std::to_string(lw) + " wide, round " + std::to_string(round));
            ExpectSameAsPlainWalk(layer, ox, oy, sx, sy, 10, cw, ch);
        }
    }
}

TEST(ToleranceFlood, UncoveredCanvasIsTheTransparencyCase)
{
    COLImage layer = vmtest::Solid(3, 2, CPixel::Make(1, 2, 3));
    layer.PutPixel(1, 0, CPixel::Make(1, 2, 3, 0));
    COLChannel plane = vmtest::Plane(5, 4, 0);
    SelectUncovered(layer, 1, 1, plane);
    const std::vector<uint8_t> expected = {255, 255, 255, 255, 255, 255, 0, 255, 0, 255,
                                           255, 0,   0,   0,   255, 255, 255, 255, 255, 255};
    EXPECT_EQ(vmtest::Bytes(plane), expected);
}
