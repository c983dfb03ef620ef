#include <gtest/gtest.h>

#include "document/compose_document.h"
#include "document/layer.h"
#include "fake_view.h"
#include "support/pictures.h"
#include "support/test_support.h"

TEST(ComposeDocument, RenderPaintsWhiteBeforeAnyMerge)
{
    CComposeDocument doc(0);
    COLImage target;
    target.Create(7, 5);
    EXPECT_EQ(doc.Render(&target), 0);
    for (size_t i = 0; i < target.GetPixelCount(); ++i)
        ASSERT_EQ(target.GetBuffer()[i].Word(), 0xFFFFFFFFu);
    int w = -1, h = -1;
    doc.GetSize(w, h);
    EXPECT_EQ(w, 0);
}

TEST(ComposeDocument, RenderShowsThePartAtTheViewsOrigin)
{
    CComposeDocument doc(0);
    ASSERT_EQ(doc.NewDocument(40, 20, 0xFFFF0000), 1); // red, with a blue right half
    CLayer* base = doc.GetLayer(0);
    for (uint32_t y = 0; y < 20; ++y)
        for (uint32_t x = 20; x < 40; ++x)
            base->m_image.PutPixel(x, y, CPixel::Make(0, 0, 255, 255));
    ASSERT_EQ(doc.MergeNow(), 1);
    CFakeView view;
    doc.SetView(&view);
    COLImage target;
    target.Create(8, 8);
    view.origin = {24, 4};
    doc.Render(&target);
    for (size_t i = 0; i < target.GetPixelCount(); ++i) {
        ASSERT_GE(target.GetBuffer()[i].blue, 250);
        ASSERT_LE(target.GetBuffer()[i].red, 5);
    }
    view.origin = {0, 0};
    view.zoom = 0.25; // 32 x 32 document pixels into 8 x 8: the red half on the left, blue on the right
    doc.Render(&target);
    EXPECT_GE(target.GetPixel2(0, 3).red, 250);
    EXPECT_GE(target.GetPixel2(7, 3).blue, 250);

    COLImage thumb;
    ASSERT_EQ(doc.RenderWhole(&thumb, 4, 2), 1);
    EXPECT_EQ(thumb.GetWidth(), 4u);
    EXPECT_GE(thumb.GetPixel2(0, 0).red, 250);
    EXPECT_GE(thumb.GetPixel2(3, 1).blue, 250);
}

TEST(ComposeDocument, MergeRectWritesBlocksAndKeepsTheSelection)
{
    CComposeDocument doc(0);
    ASSERT_EQ(doc.NewDocument(12, 10, 0xFF000000), 1);
    doc.GetSelectionMask() = vmtest::Plane(12, 10, 99);
    ASSERT_EQ(doc.MergeNow(), 1);
    CLayer* top = doc.AddLayer(0, 0);
    top->m_image =
        vmtest::Picture(12, 10, [](uint32_t x, uint32_t) { return CPixel::Make(uint8_t(20 * x), 0, 0, 255); });
    CFakeView view;
    doc.SetView(&view);
    ASSERT_EQ(doc.MergeRect(9, 8, 3, -5, 2), 1); // normalised and clamped to (3, 0, 9, 8)
    EXPECT_EQ(view.redraws, 1);
    const COLImage& c = *doc.GetComposite();
    EXPECT_EQ(c.GetPixel2(2, 0).red, 0) << "left of the rectangle";
    EXPECT_EQ(c.GetPixel2(9, 0).red, 0) << "right of the rectangle";
    EXPECT_EQ(c.GetPixel2(3, 8).red, 0) << "below the rectangle";
    // Samples at x 3, 5, 7 of the fast merge: (20 * x * 254) >> 8; pixel 4 repeats pixel 3's sample.
    EXPECT_EQ(c.GetPixel2(3, 0).red, (60 * 254) >> 8);
    EXPECT_EQ(c.GetPixel2(4, 0).red, (60 * 254) >> 8);
    EXPECT_EQ(c.GetPixel2(5, 7).red, (100 * 254) >> 8);
    EXPECT_EQ(c.GetPixel2(8, 7).red, (140 * 254) >> 8);
    for (size_t i = 0; i < c.GetPixelCount(); ++i)
        ASSERT_EQ(c.GetBuffer()[i].alpha, 99);
    EXPECT_EQ(doc.MergeRect(0, 0, 5, 5, 0), 0);
    EXPECT_EQ(doc.MergeRect(0, 0, 1, 1, 2), 1) << "a rectangle smaller than the step changes nothing";
}

TEST(ComposeDocument, AFlatColourKeepsItsValueAtEveryZoom)
{
    // The screen must not darken or stripe: one colour comes out as exactly that colour, whatever the zoom.
    CComposeDocument doc(0);
    ASSERT_EQ(doc.NewDocument(997, 613, 0xFF808080), 1); // 128 gray, sides that divide by nothing handy
    ASSERT_EQ(doc.MergeNow(), 1);
    CFakeView view;
    doc.SetView(&view);
    for (double zoom : {0.1, 0.2, 1.0 / 3.0, 0.5, 2.0 / 3.0, 1.0, 1.5, 2.0, 3.0, 7.0, 10.0, 0.1234, 0.777}) {
        SCOPED_TRACE(zoom);
        view.zoom = zoom;
        for (CViewPoint origin : {CViewPoint{0, 0}, CViewPoint{3, 7}}) {
            view.origin = origin;
            COLImage target;
            target.Create(std::min(301u, uint32_t(997 * zoom)), std::min(211u, uint32_t(613 * zoom)));
            doc.Render(&target);
            for (size_t i = 0; i < target.GetPixelCount(); ++i) {
                const CPixel p = target.GetBuffer()[i];
                ASSERT_TRUE(p.red == 128 && p.green == 128 && p.blue == 128) << "pixel " << i;
            }
        }
    }
}

TEST(ComposeDocument, ReducedViewsAverageWhatEachScreenPixelCovers)
{
    // At one half every screen pixel covers a 2 x 2 block: its value is the rounded mean of the block.
    CComposeDocument doc(0);
    ASSERT_EQ(doc.NewDocument(8, 6, 0xFF000000), 1);
    COLImage& img = doc.GetLayer(0)->m_image;
    img = vmtest::OpaqueNoise(8, 6, 11);
    ASSERT_EQ(doc.MergeNow(), 1);
    CFakeView view;
    view.zoom = 0.5;
    doc.SetView(&view);
    COLImage target;
    target.Create(4, 3);
    doc.Render(&target);
    for (uint32_t y = 0; y < 3; ++y)
        for (uint32_t x = 0; x < 4; ++x) {
            int sum[3] = {};
            for (uint32_t k = 0; k < 4; ++k) {
                const CPixel p = img.GetPixel2(2 * x + k % 2, 2 * y + k / 2);
                sum[0] += p.red, sum[1] += p.green, sum[2] += p.blue;
            }
            EXPECT_TRUE(target.GetPixel2(x, y) == CPixel::Make((sum[0] + 2) / 4, (sum[1] + 2) / 4, (sum[2] + 2) / 4))
                << x << "," << y;
        }
    // Enlarged, each document pixel becomes a block of its own colour.
    view.zoom = 3;
    target.Create(24, 18);
    doc.Render(&target);
    for (uint32_t y = 0; y < 18; ++y)
        for (uint32_t x = 0; x < 24; ++x)
            ASSERT_EQ(target.GetPixel2(x, y).Word() & 0xFFFFFF, img.GetPixel2(x / 3, y / 3).Word() & 0xFFFFFF);
}

TEST(ComposeDocument, SeeThroughPartsShowTheCheckerboard)
{
    CComposeDocument doc(0);
    ASSERT_EQ(doc.NewDocument(32, 16, 0xFF204060), 1);
    COLImage& base = doc.GetLayer(0)->m_image;
    for (uint32_t y = 0; y < 16; ++y)
        for (uint32_t x = 16; x < 32; ++x)
            base.PutPixel(x, y, CPixel::Make(0, 0, 0, 0)); // the right half is transparent black
    // An upper layer covers the top-right quarter opaquely, at half opacity the bottom-right one.
    CLayer* top = doc.AddLayer(0, 0);
    ASSERT_NE(top, nullptr);
    for (uint32_t y = 0; y < 8; ++y)
        for (uint32_t x = 16; x < 32; ++x)
            top->m_image.PutPixel(x, y, CPixel::Make(200, 10, 10, 255));
    ASSERT_EQ(doc.MergeNow(), 1);
    CFakeView view;
    doc.SetView(&view);
    COLImage target;
    target.Create(32, 16);
    doc.Render(&target);
    EXPECT_EQ(target.GetPixel2(3, 12).Word() & 0xFFFFFF, 0x204060u); // opaque base: as it is
    EXPECT_EQ(target.GetPixel2(20, 3).red, 200);                     // covered by the layer: the layer
    // Uncovered and transparent: the light and the white cells, never black.
    const CPixel light = target.GetPixel2(16, 8), white = target.GetPixel2(24, 8);
    // The selection byte is left to the view: no selection, no alpha.
    EXPECT_EQ(light.Word(), 0x00CCCCCCu);
    EXPECT_TRUE(white == CPixel::Make(255, 255, 255));
}
