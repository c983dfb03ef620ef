#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>

#include "shell/view_geometry.h"

namespace {

CViewGeometry Make(int clientW, int clientH, int imageW, int imageH, double zoom)
{
    CViewGeometry g;
    g.SetClientSize(clientW, clientH);
    g.SetImageSize(imageW, imageH);
    g.SetZoom(zoom);
    return g;
}

} // namespace

TEST(ZoomStops, StepsAndEnds)
{
    EXPECT_EQ(NextZoomStop(0.1, false), 0.1); // stays at the smallest
    EXPECT_EQ(NextZoomStop(10, true), 10.0);  // stays at the largest
    EXPECT_EQ(NextZoomStop(0.1, true), 0.2);
    EXPECT_EQ(NextZoomStop(1, true), 1.5);
    EXPECT_EQ(NextZoomStop(1, false), 2.0 / 3.0);
    EXPECT_EQ(NextZoomStop(0.5, false), 1.0 / 3.0);
    EXPECT_EQ(NextZoomStop(1.0 / 3.0, true), 0.5);
    EXPECT_EQ(NextZoomStop(4.0, true), 5.0); // a stop goes to its neighbour
    EXPECT_EQ(NextZoomStop(4.0, false), 3.0);
    EXPECT_EQ(NextZoomStop(1.23, true), 1.5); // not a stop: the next one above or below
    EXPECT_EQ(NextZoomStop(1.23, false), 1.0);
    EXPECT_EQ(NextZoomStop(0.05, true), 0.1);
    EXPECT_EQ(NextZoomStop(0.05, false), 0.1);
    EXPECT_EQ(NextZoomStop(12, false), 10.0);
    EXPECT_EQ(NextZoomStop(12, true), 10.0);
}

TEST(ViewLayout, SmallPictureSitsInTheMiddleWithoutBars)
{
    CViewGeometry g = Make(800, 600, 300, 200, 1.0);
    EXPECT_FALSE(g.HasHBar());
    EXPECT_FALSE(g.HasVBar());
    EXPECT_EQ(g.GetImageArea(), (VRect{1, 1, 799, 599}));
    EXPECT_EQ(g.GetImageRect(), (VRect{1 + (798 - 300) / 2, 1 + (598 - 200) / 2, 1 + 249 + 300, 1 + 199 + 200}));
    EXPECT_LT(g.GetImageRect().Width(), g.GetImageArea().Width()); // back colour around it
    EXPECT_EQ(g.GetOrigin(), (VPoint{0, 0}));
}

TEST(ViewLayout, BarsAppearWhenThePictureReachesTheirStrip)
{
    // Area width 798: the bar is needed from 798 - 16 = 782 zoomed pixels on.
    EXPECT_FALSE(Make(800, 600, 781, 100, 1.0).HasHBar());
    EXPECT_TRUE(Make(800, 600, 782, 100, 1.0).HasHBar());
    // 781.5 rounds to 782 with the + 0.5.
    EXPECT_TRUE(Make(800, 600, 1563, 100, 0.5).HasHBar());
    CViewGeometry g = Make(800, 600, 4000, 3000, 1.0);
    ASSERT_TRUE(g.HasHBar());
    ASSERT_TRUE(g.HasVBar());
    EXPECT_EQ(g.GetImageArea(), (VRect{1, 1, 799 - 16, 599 - 16}));
    EXPECT_EQ(g.GetImageRect(), g.GetImageArea());
    const ScrollBarLayout h = g.HBar(), v = g.VBar();
    EXPECT_EQ(h.rect, (VRect{1, 583, 734, 599}));
    EXPECT_EQ(v.rect, (VRect{783, 1, 799, 584}));
    EXPECT_EQ(h.maximum, 3999);
    EXPECT_EQ(h.page, 780); // (782 - 2) / 1 + 0.5
    EXPECT_EQ(v.page, 580);
}

TEST(ViewLayout, OriginIsClampedToThePicture)
{
    CViewGeometry g = Make(800, 600, 4000, 3000, 1.0);
    EXPECT_EQ(g.SetOrigin(100000, 100000), (VPoint{4000 - 780, 3000 - 580}));
    EXPECT_EQ(g.SetOrigin(-5, -7), (VPoint{0, 0}));
    EXPECT_EQ(g.SetOrigin(1000, 2000), (VPoint{1000, 2000}));
    // Zooming out so the picture fits drops the origin to 0.
    g.SetZoom(0.1);
    EXPECT_EQ(g.GetOrigin(), (VPoint{0, 0}));
    EXPECT_FALSE(g.HasHBar());
    // At 2x the visible part is half as many pixels.
    g.SetZoom(2.0);
    EXPECT_EQ(g.SetOrigin(100000, 0).x, 4000 - 390);
}

TEST(ViewLayout, NoSourceAndNoClient)
{
    CViewGeometry g;
    EXPECT_FALSE(g.Layout());
    EXPECT_FALSE(g.IsLaidOut());
    g.SetClientSize(640, 480);
    EXPECT_TRUE(g.Layout());
    EXPECT_FALSE(g.HasHBar());
    EXPECT_FALSE(g.HasVBar());
    EXPECT_EQ(g.GetImageRect().Width(), 0);
}

TEST(ViewCoordinates, ClientToImageAndBack)
{
    CViewGeometry g = Make(800, 600, 4000, 3000, 0.5);
    g.SetOrigin(100, 40);
    const VRect r = g.GetImageRect();
    ASSERT_EQ(r.left, 1);
    // trunc((x - L) / z + 0.5) + origin
    EXPECT_EQ(g.ClientToImage(1, 1), (VPoint{100, 40}));
    EXPECT_EQ(g.ClientToImage(11, 21), (VPoint{100 + 20, 40 + 40}));
    EXPECT_EQ(g.ClientToImage(0, 0), (VPoint{100 - 1, 40 - 1})); // -2 + 0.5 truncates toward zero
    // trunc((x - origin) * z + 0.5) + L
    EXPECT_EQ(g.ImageToClient(100, 40), (VPoint{1, 1}));
    EXPECT_EQ(g.ImageToClient(103, 40), (VPoint{1 + 2, 1})); // 1.5 + 0.5 = 2
    EXPECT_EQ(g.ImageToClient(99, 39), (VPoint{1, 1}));      // -0.5 + 0.5 = 0
}

TEST(ViewCoordinates, RoundTripIsExactAtWholeZoomsAndWithinOnePixelBelowOne)
{
    for (double z : {0.1, 0.2, 1.0 / 3.0, 0.5, 2.0 / 3.0, 1.0, 2.0, 3.0, 7.0}) {
        CViewGeometry g = Make(900, 700, 5000, 4000, z);
        g.SetOrigin(123, 77);
        int worst = 0;
        for (int x = 1; x < 880; x += 7) {
            const VPoint img = g.ClientToImage(x, x / 2 + 1);
            const VPoint back = g.ImageToClient(img.x, img.y);
            if (z >= 1.0) {
                // Each image pixel covers z client pixels; back lands on the pixel's first client column.
                EXPECT_LE(std::abs(back.x - x), int(z)) << z;
            } else {
                worst = std::max(worst, std::abs(back.x - x));
            }
        }
        if (z < 1.0) {
            EXPECT_LE(worst, int(std::ceil(1.0 / z / 2.0)) + 1) << z;
        }
        // From the image side the trip is exact at every zoom of at least 1.
        if (z >= 1.0) {
            for (int ix = 123; ix < 200; ++ix)
                EXPECT_EQ(g.ClientToImage(g.ImageToClient(ix, 80).x, 10).x, ix);
        }
    }
}

TEST(ViewZoom, StepAboutAPointBringsItToTheMiddle)
{
    CViewGeometry g = Make(1000, 800, 6000, 4000, 0.5);
    g.SetOrigin(1000, 1000);
    const int cx = 300, cy = 250;
    const VPoint target = g.ClientToImage(cx, cy);
    const CViewGeometry::ZoomStepResult step = g.ComputeZoomStep(true, cx, cy);
    EXPECT_EQ(step.zoom, 2.0 / 3.0);
    ASSERT_TRUE(step.recentre);
    const VRect r = g.GetImageRect();
    EXPECT_EQ(step.origin.x, int(target.x - r.Width() * 0.5 / step.zoom));
    EXPECT_EQ(step.origin.y, int(target.y - r.Height() * 0.5 / step.zoom));
    g.SetZoom(step.zoom);
    g.SetOrigin(step.origin.x, step.origin.y);
    const VRect r2 = g.GetImageRect();
    const VPoint middle = g.ClientToImage(r2.left + r2.Width() / 2, r2.top + r2.Height() / 2);
    EXPECT_LE(std::abs(middle.x - target.x), 2);
    EXPECT_LE(std::abs(middle.y - target.y), 2);
}

TEST(ViewZoom, StepOutsideThePictureKeepsTheOrigin)
{
    CViewGeometry g = Make(1000, 800, 300, 200, 1.0);
    const CViewGeometry::ZoomStepResult step = g.ComputeZoomStep(false, 2, 2); // in the back colour
    EXPECT_FALSE(step.recentre);
    EXPECT_EQ(step.zoom, 2.0 / 3.0);
}

TEST(ViewScroll, LinePageAndTrack)
{
    CViewGeometry g = Make(800, 600, 4000, 3000, 1.0);
    g.SetOrigin(500, 500);
    EXPECT_EQ(g.ScrollTarget(true, EScrollKind::kLineDown, 0), 500 + 80); // 4000 / 50
    EXPECT_EQ(g.ScrollTarget(false, EScrollKind::kLineUp, 0), 500 - 60);  // 3000 / 50
    EXPECT_EQ(g.ScrollTarget(true, EScrollKind::kPageDown, 0), 500 + 780);
    EXPECT_EQ(g.ScrollTarget(true, EScrollKind::kPageUp, 0), 0);            // clamped at 0
    EXPECT_EQ(g.ScrollTarget(true, EScrollKind::kTrack, 3900), 4000 - 780); // clamped at the end
    EXPECT_EQ(g.ScrollTarget(true, EScrollKind::kTrack, 1234), 1234);
    // A small picture scrolls by at least one pixel.
    CViewGeometry s = Make(30, 30, 40, 40, 1.0);
    EXPECT_EQ(s.ScrollTarget(true, EScrollKind::kLineDown, 0), 1);
}

TEST(ViewZoom, FitShowsTheWholePictureWithoutBars)
{
    // Photos of every common shape in windows of many sizes: after a fit nothing is cut off and no bar shows.
    const int images[][2] = {{5472, 3648}, {3648, 5472}, {4000, 4000}, {20000, 3}, {3, 20000}, {1, 1}, {640, 480}};
    for (const auto& image : images)
        for (int cw = 130; cw < 2600; cw += 97)
            for (int ch = 130; ch < 1700; ch += 89) {
                CViewGeometry g;
                g.SetClientSize(cw, ch);
                g.SetImageSize(image[0], image[1]);
                const double z = g.FitZoom(1.0);
                if (z <= 0.01) continue; // the smallest zoom: a 20000-pixel strip is wider than a small window
                ASSERT_TRUE(g.SetZoom(z));
                SCOPED_TRACE(::testing::Message() << image[0] << "x" << image[1] << " in " << cw << "x" << ch);
                ASSERT_FALSE(g.HasHBar());
                ASSERT_FALSE(g.HasVBar());
                // Every image pixel maps into the image rectangle, which lies inside the client area.
                const VRect& r = g.GetImageRect();
                const VPoint last = g.ImageToClient(image[0], image[1]);
                ASSERT_LE(last.x, r.right);
                ASSERT_LE(last.y, r.bottom);
                ASSERT_GE(r.left, 1);
                ASSERT_LE(r.right, cw - 1);
                ASSERT_LE(r.bottom, ch - 1);
                // And it is tight: 2 % more and the picture no longer fits (unless the fit stopped at 100 %).
                if (z < 1.0 && z > 0.01) {
                    const CViewGeometry bigger = Make(cw, ch, image[0], image[1], z * 1.02);
                    EXPECT_TRUE(bigger.HasHBar() || bigger.HasVBar());
                }
            }
}

TEST(ViewLayout, TheZoomLabelTakesItsRoomFromTheBar)
{
    CViewGeometry g = Make(400, 300, 2000, 2000, 1.0);
    ASSERT_TRUE(g.HasHBar());
    EXPECT_EQ(g.ZoomLabelRect().Width(), 49); // as wide as "100.0%" needs at the least
    EXPECT_EQ(g.HBar().rect.right, g.ZoomLabelRect().left);
    g.SetZoomLabelWidth(70);
    EXPECT_EQ(g.ZoomLabelRect().Width(), 70);
    EXPECT_EQ(g.ZoomLabelRect().right, 400 - 17);
    EXPECT_EQ(g.HBar().rect.right, g.ZoomLabelRect().left); // the bar ends where the label begins
}
