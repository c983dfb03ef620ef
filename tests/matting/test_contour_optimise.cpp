#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "matting/contour_optimise.h"
#include "matting/snake.h"
#include "support/engine_checks.h"
#include "support/test_support.h"

namespace {

// A disc of one colour on a background of another, with a little noise, and planes of the disc's size.
COLImage Disc(uint32_t w, uint32_t h, double radius)
{
    COLImage img = vmtest::Noise(w, h, 9);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            CPixel& p = img.GetBuffer()[size_t(y) * w + x];
            const double r = std::hypot(x - w / 2.0, y - h / 2.0);
            const uint8_t n = uint8_t(p.red / 32);
            p = r < radius ? CPixel::Make(uint8_t(200 + n), uint8_t(120 + n), 40) : CPixel::Make(30, uint8_t(60 + n), uint8_t(150 + n));
        }
    return img;
}

// The snake from a list of points over a picture, into result; the source plane only gives the picture's size,
// and the process does not keep it past the run.
long RunSnake(CSnakeProcess& snake, const COLImage& img, const std::vector<SnakePoint>& points, COLChannel& result)
{
    COLChannel mask;
    mask.Create(img.GetWidth(), img.GetHeight());
    SnakeParams params;
    params.points = points.data();
    params.count = int32_t(points.size());
    params.image = &img;
    snake.SetChannels(&mask, &result);
    return snake.ProcessChannel(&params);
}

COLChannel DiscPlane(uint32_t w, uint32_t h, double radius)
{
    return vmtest::PlaneOf(
        w, h, [&](uint32_t x, uint32_t y) { return std::hypot(x - w / 2.0, y - h / 2.0) < radius ? 255 : 0; });
}

} // namespace

// Four regions in vertical stripes: one touching the inner contour and wholly inside the outer joins the inner
// plane; one partly outside and away from the inner leaves the outer plane; one touching both and one touching
// neither stay. Then the inner plane shrinks and the outer grows by a pixel, square corners and all.
TEST(ContourOptimise, SnapsRegionsThenShrinksInnerAndGrowsOuter)
{
    const uint32_t w = 12, h = 8;
    const uint32_t stripe[4] = {2, 4, 1, 3};
    const COLImage labels =
        vmtest::Picture(w, h, [&](uint32_t x, uint32_t) { return CPixel::FromWord(0x40000000u | stripe[x / 3]); });
    COLChannel inner = vmtest::PlaneOf(w, h, [](uint32_t x, uint32_t) { return x == 7 || x == 11 ? 255 : 0; });
    COLChannel outer =
        vmtest::PlaneOf(w, h, [](uint32_t x, uint32_t y) { return x >= 1 && !(x == 11 && y == 0) ? 255 : 0; });
    ASSERT_EQ(CContourOptimiser::SnapToRegions(labels, 4, inner, outer), kOk);
    // Inner after the snap: columns 6-8 and 11; the shrink keeps column 7 only.
    const COLChannel innerAfter = vmtest::PlaneOf(w, h, [](uint32_t x, uint32_t) { return x == 7 ? 255 : 0; });
    EXPECT_EQ(vmtest::Bytes(inner), vmtest::Bytes(innerAfter));
    // Outer after the snap: columns 3-11 but (11, 0); the grow gives columns 2-11.
    const COLChannel outerAfter = vmtest::PlaneOf(w, h, [](uint32_t x, uint32_t) { return x >= 2 ? 255 : 0; });
    EXPECT_EQ(vmtest::Bytes(outer), vmtest::Bytes(outerAfter));

    COLChannel wrong;
    wrong.Create(w, h + 1);
    EXPECT_EQ(CContourOptimiser::SnapToRegions(labels, 4, inner, wrong), kFail);
}

// Rough contours 8 pixels either side of a disc's edge come within a couple of pixels of it, and never cross it.
TEST(ContourOptimise, BringsRoughContoursToTheEdge)
{
    const uint32_t w = 160, h = 120;
    const double radius = 40;
    COLImage img = Disc(w, h, radius);
    COLChannel inner = DiscPlane(w, h, radius - 8), outer = DiscPlane(w, h, radius + 8);
    auto band = [&] {
        size_t n = 0;
        for (size_t i = 0; i < size_t(w) * h; ++i) n += inner.GetBuffer()[i] == 0 && outer.GetBuffer()[i] != 0;
        return n;
    };
    const size_t before = band();
    const int32_t detail = CContourOptimiser::kPanelDetail;
    ASSERT_EQ(OptimiseContoursNow(&img, &inner, &outer, &detail), kOk);
    EXPECT_LT(band() * 3, before);
    // No pixel well inside the disc is left out of the outer contour, none well outside is in the inner one.
    size_t crossings = 0;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            const double r = std::hypot(x - w / 2.0, y - h / 2.0);
            crossings += (r < radius - 3 && outer.GetValue(x, y) == 0) || (r > radius + 3 && inner.GetValue(x, y));
        }
    EXPECT_EQ(crossings, 0u);

    COLChannel empty = vmtest::Plane(w, h, 0);
    EXPECT_FALSE(CContourOptimiser::CanOptimise(&empty, &outer));
    EXPECT_FALSE(CContourOptimiser::CanOptimise(&inner, nullptr));
    EXPECT_EQ(OptimiseContoursNow(&img, &empty, &outer), kFail);
}

// Points closer than 3 to the previous point of the old list vanish, several in a row too; a gap above twice
// the spacing gets its midpoint; the list is closed again.
TEST(Snake, RedistributeDropsCloseAndSplitsLongGaps)
{
    std::vector<SnakePoint> pts = {{0, 0}, {1, 0}, {2, 0}, {10, 0}, {10, 40}, {0, 0}};
    EXPECT_FALSE(CSnakeProcess::Redistribute(pts, 16));
    const std::vector<SnakePoint> expected = {{0, 0}, {10, 0}, {10, 20}, {10, 40}, {5, 20}, {0, 0}};
    EXPECT_EQ(pts, expected);
    std::vector<SnakePoint> settled = {{0, 0}, {20, 0}, {20, 20}, {0, 0}};
    const std::vector<SnakePoint> copy = settled;
    EXPECT_TRUE(CSnakeProcess::Redistribute(settled, 16));
    EXPECT_EQ(settled, copy);
}

TEST(Snake, EdgeMapIsSquaredStrengthWithAStrongBorder)
{
    COLImage img =
        vmtest::Picture(5, 4, [](uint32_t x, uint32_t) { return CPixel::Make(x < 2 ? 0 : 90, 10, x < 2 ? 0 : 30); });
    img.PutPixel(4, 3, CPixel{50, 50, 50, 0});
    CSnakeProcess::BuildEdgeMap(img);
    // (1, 1): red gx = 0 - 270, green 0, blue 0 - 90; gy 0: s = (270 + 0 + 90) / 3 = 120, alpha 120^2 / 256 = 56.
    EXPECT_EQ(img.GetPixel2(1, 1).alpha, 56);
    EXPECT_EQ(img.GetPixel2(3, 1).alpha, 0);   // flat to the right
    EXPECT_EQ(img.GetPixel2(0, 2).alpha, 255);
    EXPECT_EQ(img.GetPixel2(4, 3).Word(), 0xFF000000u);   // cleared, then the border's 255
}

TEST(Snake, ShrinksOntoASubjectAndFillsIt)
{
    const uint32_t w = 120, h = 100;
    const double radius = 25;
    const COLImage img = Disc(w, h, radius);
    COLChannel result;
    CSnakeProcess snake;
    ASSERT_EQ(RunSnake(snake, img, {{20, 10}, {100, 10}, {100, 90}, {20, 90}, {20, 10}}, result), kOk);
    const auto& contour = snake.GetContour();
    ASSERT_GE(contour.size(), 8u);
    EXPECT_EQ(contour.front(), contour.back());
    for (const SnakePoint& p : contour) {
        const double r = std::hypot(p.x - w / 2.0, p.y - h / 2.0);
        EXPECT_NEAR(r, radius, 3.0) << p.x << "," << p.y;
    }
    size_t outsideSet = 0, inside = 0, insideSet = 0;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            const double r = std::hypot(x - w / 2.0, y - h / 2.0);
            outsideSet += r > radius + 4 && result.GetValue(x, y) != 0;
            inside += r < radius - 4;
            insideSet += r < radius - 4 && result.GetValue(x, y) == 255;
        }
    EXPECT_EQ(outsideSet, 0u);
    EXPECT_GT(insideSet * 100, inside * 95);
}

// On a flat picture nothing holds the contour: it shrinks until fewer than 4 points are left, and the run fails
// with an empty plane. An open list fails at once.
TEST(Snake, FailsOnAFlatPictureAndOnAnOpenList)
{
    const COLImage img = vmtest::Solid(60, 50, CPixel::Make(100, 100, 100));
    COLChannel result;
    CSnakeProcess snake;
    EXPECT_EQ(RunSnake(snake, img, {{10, 10}, {50, 10}, {50, 40}, {10, 40}, {10, 10}}, result), kFail);
    EXPECT_LT(snake.GetContour().size(), 4u);
    EXPECT_EQ(vmtest::Bytes(result), vmtest::Bytes(vmtest::Plane(60, 50, 0))) << "an empty plane of the picture's size";

    EXPECT_EQ(RunSnake(snake, img, {{10, 10}, {50, 10}, {50, 40}, {10, 40}, {11, 10}}, result), kFail);
}
