#include <gtest/gtest.h>

#include "document/compose_document.h"
#include "document/layer.h"
#include "fake_view.h"
#include "support/pictures.h"
#include "support/test_support.h"

namespace {

// An unthreaded document shown in a fake view: each test makes its picture, merges it and reads the screen back.
class ComposeDocumentTest : public ::testing::Test {
protected:
    // Merges the document and attaches the view, as the editor does once a document is open.
    void Show()
    {
        ASSERT_EQ(doc.MergeNow(), 1);
        doc.SetView(&view);
    }
    // The screen picture of w x h the document renders at the view's zoom and origin.
    COLImage Rendered(uint32_t w, uint32_t h)
    {
        COLImage target;
        target.Create(w, h);
        doc.Render(&target);
        return target;
    }
    CFakeView view;
    CComposeDocument doc{0};
};

} // namespace

TEST_F(ComposeDocumentTest, RenderPaintsWhiteBeforeAnyMerge)
{
    COLImage target;
    target.Create(7, 5);
    EXPECT_EQ(doc.Render(&target), 0);
    EXPECT_TRUE(vmtest::SamePixels(target, vmtest::Solid(7, 5, CPixel::FromWord(0xFFFFFFFF))));
}

TEST_F(ComposeDocumentTest, RenderShowsThePartAtTheViewsOrigin)
{
    ASSERT_EQ(doc.NewDocument(40, 20, 0xFFFF0000), 1); // red, with a blue right half
    doc.GetLayer(0)->m_image = vmtest::Picture(40, 20, [](uint32_t x, uint32_t) {
        return x < 20 ? CPixel::Make(255, 0, 0, 255) : CPixel::Make(0, 0, 255, 255);
    });
    Show();
    view.origin = {24, 4};
    COLImage target = Rendered(8, 8);
    for (size_t i = 0; i < target.GetPixelCount(); ++i) {
        ASSERT_GE(target.GetBuffer()[i].blue, 250);
        ASSERT_LE(target.GetBuffer()[i].red, 5);
    }
    view.origin = {0, 0};
    view.zoom = 0.25; // 32 x 32 document pixels into 8 x 8: the red half on the left, blue on the right
    target = Rendered(8, 8);
    EXPECT_GE(target.GetPixel2(0, 3).red, 250);
    EXPECT_GE(target.GetPixel2(7, 3).blue, 250);

    COLImage thumb;
    ASSERT_EQ(doc.RenderWhole(&thumb, 4, 2), 1);
    EXPECT_EQ(thumb.GetWidth(), 4u);
    EXPECT_GE(thumb.GetPixel2(0, 0).red, 250);
    EXPECT_GE(thumb.GetPixel2(3, 1).blue, 250);
}

TEST_F(ComposeDocumentTest, MergeRectWritesBlocksAndKeepsTheSelection)
{
    ASSERT_EQ(doc.NewDocument(12, 10, 0xFF000000), 1);
    doc.GetSelectionMask() = vmtest::Plane(12, 10, 99);
    Show();
    CLayer* top = doc.AddLayer(0, 0);
    top->m_image =
        vmtest::Picture(12, 10, [](uint32_t x, uint32_t) { return CPixel::Make(uint8_t(20 * x), 0, 0, 255); });
    ASSERT_EQ(doc.MergeRect(9, 8, 3, -5, 2), 1); // normalised and clamped to (3, 0, 9, 8)
    EXPECT_EQ(view.redraws, 1);
    // Inside the rectangle the samples at x 3, 5, 7 of the fast merge, (20 * x * 254) >> 8, each stretched over
    // two columns; black around it; the selection kept in every alpha byte.
    EXPECT_TRUE(vmtest::SamePixels(*doc.GetComposite(), vmtest::Picture(12, 10, [](uint32_t x, uint32_t y) {
        const bool inside = x >= 3 && x < 9 && y < 8;
        return CPixel::Make(inside ? uint8_t((20 * (3 + (x - 3) / 2 * 2) * 254) >> 8) : 0, 0, 0, 99);
    })));
    EXPECT_EQ(doc.MergeRect(0, 0, 5, 5, 0), 0);
    EXPECT_EQ(doc.MergeRect(0, 0, 1, 1, 2), 1) << "a rectangle smaller than the step changes nothing";
}

TEST_F(ComposeDocumentTest, AFlatColourKeepsItsValueAtEveryZoom)
{
    // The screen must not darken or stripe: one colour comes out as exactly that colour, whatever the zoom.
    ASSERT_EQ(doc.NewDocument(997, 613, 0xFF808080), 1); // 128 gray, sides that divide by nothing handy
    Show();
    for (double zoom : {0.1, 0.2, 1.0 / 3.0, 0.5, 2.0 / 3.0, 1.0, 1.5, 2.0, 3.0, 7.0, 10.0, 0.1234, 0.777}) {
        SCOPED_TRACE(zoom);
        view.zoom = zoom;
        for (CViewPoint origin : {CViewPoint{0, 0}, CViewPoint{3, 7}}) {
            view.origin = origin;
            const uint32_t w = std::min(301u, uint32_t(997 * zoom)), h = std::min(211u, uint32_t(613 * zoom));
            ASSERT_TRUE(vmtest::SameColours(Rendered(w, h), vmtest::Solid(w, h, CPixel::Make(128, 128, 128))));
        }
    }
}

TEST_F(ComposeDocumentTest, ReducedViewsAverageWhatEachScreenPixelCovers)
{
    // At one half every screen pixel covers a 2 x 2 block: its value is the rounded mean of the block.
    ASSERT_EQ(doc.NewDocument(8, 6, 0xFF000000), 1);
    COLImage& img = doc.GetLayer(0)->m_image;
    img = vmtest::OpaqueNoise(8, 6, 11);
    Show();
    view.zoom = 0.5;
    EXPECT_TRUE(vmtest::SameColours(Rendered(4, 3), vmtest::Picture(4, 3, [&](uint32_t x, uint32_t y) {
                                        int sum[3] = {};
                                        for (uint32_t k = 0; k < 4; ++k) {
                                            const CPixel p = img.GetPixel2(2 * x + k % 2, 2 * y + k / 2);
                                            sum[0] += p.red, sum[1] += p.green, sum[2] += p.blue;
                                        }
                                        return CPixel::Make((sum[0] + 2) / 4, (sum[1] + 2) / 4, (sum[2] + 2) / 4);
                                    })));
    // Enlarged, each document pixel becomes a block of its own colour.
    view.zoom = 3;
    const auto block = [&](uint32_t x, uint32_t y) { return img.GetPixel2(x / 3, y / 3); };
    EXPECT_TRUE(vmtest::SameColours(Rendered(24, 18), vmtest::Picture(24, 18, block)));
}

TEST_F(ComposeDocumentTest, SeeThroughPartsShowTheCheckerboard)
{
    ASSERT_EQ(doc.NewDocument(32, 16, 0xFF204060), 1);
    // The right half of the base is transparent black.
    doc.GetLayer(0)->m_image = vmtest::Picture(32, 16, [](uint32_t x, uint32_t) {
        return x < 16 ? CPixel::FromWord(0xFF204060) : CPixel{0, 0, 0, 0};
    });
    // An upper layer covers the top-right quarter opaquely.
    CLayer* top = doc.AddLayer(0, 0);
    ASSERT_NE(top, nullptr);
    top->m_image = vmtest::Picture(32, 16, [](uint32_t x, uint32_t y) {
        return x >= 16 && y < 8 ? CPixel::Make(200, 10, 10, 255) : CPixel{0, 0, 0, 0};
    });
    Show();
    const COLImage target = Rendered(32, 16);
    EXPECT_EQ(target.GetPixel2(3, 12).Word() & 0xFFFFFF, 0x204060u); // opaque base: as it is
    EXPECT_EQ(target.GetPixel2(20, 3).red, 200);                     // covered by the layer: the layer
    // Uncovered and transparent: the light and the white cells, never black.
    const CPixel light = target.GetPixel2(16, 8), white = target.GetPixel2(24, 8);
    // The selection byte is left to the view: no selection, no alpha.
    EXPECT_EQ(light.Word(), 0x00CCCCCCu);
    EXPECT_TRUE(white == CPixel::Make(255, 255, 255));
}
