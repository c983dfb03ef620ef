#include <gtest/gtest.h>

#include "document/layer.h"
#include "document/layer_stack.h"
#include "document/selection_document.h"
#include "support/engine_checks.h"
#include "support/test_support.h"

namespace {

// Base of 20 x 12 and an upper layer of 8 x 6 at (5, 3); the upper one is current.
struct Stack {
    CLayerStack stack;
    Stack()
    {
        stack.NewDocument(20, 12, 0xFF102030);
        CLayer* upper = stack.AddLayer(0, 0);
        upper->m_image = vmtest::Noise(8, 6, 3);
        upper->m_x = 5;
        upper->m_y = 3;
        stack.SetCurrentIndex(1);
    }
};

// The colours of a picture with a plane for its alpha.
COLImage WithAlpha(const COLImage& image, const COLChannel& alpha)
{
    return vmtest::Picture(image.GetWidth(), image.GetHeight(), [&](uint32_t x, uint32_t y) {
        CPixel p = image.GetPixel2(x, y);
        p.alpha = alpha.GetValue(x, y);
        return p;
    });
}

// A selection begun on the upper layer of that stack.
class BegunSelection : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_doc.Begin(m_s.stack)); }
    Stack m_s;
    CSelectionDocument m_doc;
};

} // namespace

TEST_F(BegunSelection, BeginCopiesTheCurrentLayerAndClearFreesAll)
{
    EXPECT_EQ(m_doc.GetSourceImage(), &m_s.stack.GetLayer(1)->m_image);
    EXPECT_TRUE(vmtest::SamePixels(*m_doc.GetWorkingImage(), m_s.stack.GetLayer(1)->m_image));
    int w = 0, h = 0;
    m_doc.GetSize(w, h);
    EXPECT_EQ(std::make_pair(w, h), std::make_pair(8, 6));
    vmtest::FillNoise(*m_doc.GetOuterPlane(), 8, 6, 1);
    m_doc.Clear();
    m_doc.GetSize(w, h);
    EXPECT_EQ(w, 0);
    EXPECT_TRUE(m_doc.GetOuterPlane()->IsNull());
}

TEST(SelectionDocument, CheckerboardIsAnchoredToTheDocument)
{
    CSelectionDocument doc;
    doc.SetDisplayMode(kShowChecker);
    for (int style : {0, 1}) {
        doc.SetCheckerStyle(style);
        COLImage whole, part;
        whole.Create(64, 48);
        part.Create(20, 10);
        ASSERT_EQ(doc.FillBackground(whole, {0, 0, 64, 48}), 1);
        ASSERT_EQ(doc.FillBackground(part, {13, 29, 33, 39}), 1);
        const auto anchored = [&](uint32_t x, uint32_t y) { return whole.GetPixel2(x + 13, y + 29); };
        EXPECT_TRUE(vmtest::SamePixels(part, vmtest::Picture(20, 10, anchored))) << "style " << style;
        EXPECT_EQ(whole.GetPixel(0, 0), style ? 0xFFC0C0C0u : 0xFFFFFFFFu);
        EXPECT_EQ(whole.GetPixel(16, 0), style ? 0xFF606060u : 0xFF000000u);
        EXPECT_EQ(whole.GetPixel(16, 16), whole.GetPixel(0, 0));
    }
    doc.SetDisplayMode(kShowPicture);
    COLImage untouched = vmtest::Solid(4, 4, CPixel::FromWord(0x07070707));
    EXPECT_EQ(doc.FillBackground(untouched, {0, 0, 4, 4}), 0) << "mode 3 without a picture";
    EXPECT_EQ(untouched.GetPixel(2, 2), 0x07070707u);
}

TEST_F(BegunSelection, LargerBackgroundPictureShowsItsCentreUnscaled)
{
    *m_doc.GetBackgroundPicture() = vmtest::Noise(30, 20, 9);
    m_doc.SetDisplayMode(kShowPicture);
    COLImage out;
    out.Create(5, 4);
    ASSERT_EQ(m_doc.FillBackground(out, {2, 1, 7, 5}), 1);
    for (uint32_t y = 0; y < 4; ++y)
        for (uint32_t x = 0; x < 5; ++x)
            ASSERT_EQ(out.GetPixel(x, y), m_doc.GetBackgroundPicture()->GetPixel((30 - 8) / 2 + 2 + x, (20 - 6) / 2 + 1 + y));
}

TEST_F(BegunSelection, WorkingImageOverBackgroundWithAndWithoutMask)
{
    COLImage& working = *m_doc.GetWorkingImage();
    for (size_t i = 0; i < working.GetPixelCount(); ++i) working.GetBuffer()[i].alpha = uint8_t(i * 37);
    m_doc.SetBackgroundColour(0xFF204060);
    const CRect rect{1, 1, 7, 5};
    // Without a result mask the working image lies over the colour by its alpha; with one, by the smaller of its
    // alpha and the mask, and the mask view shows the mask over black. The screen's alpha byte stays 0.
    for (int mode : {kShowColour, kShowColour, kShowMask}) {
        const bool masked = !m_doc.GetResultMask()->IsNull();
        SCOPED_TRACE(testing::Message() << "mode " << mode << (masked ? " with" : " without") << " a mask");
        m_doc.SetDisplayMode(mode);
        COLImage out;
        out.Create(6, 4);
        m_doc.FillBackground(out, rect);
        m_doc.DrawWorking(out, rect);
        EXPECT_TRUE(vmtest::SamePixels(out, vmtest::Picture(6, 4, [&](uint32_t x, uint32_t y) {
            const CPixel w = working.GetPixel2(x + 1, y + 1);
            const uint32_t m = masked ? m_doc.GetResultMask()->GetValue(x + 1, y + 1) : 255;
            const uint32_t a = std::min<uint32_t>(w.alpha, m);
            auto over = [&](uint32_t colour, uint32_t bg) {
                bg = mode == kShowMask ? 0 : bg;
                return uint8_t(!m ? bg : mode == kShowMask ? m : (colour * a + bg * (255 - a)) / 255);
            };
            return CPixel::Make(over(w.red, 0x20), over(w.green, 0x40), over(w.blue, 0x60), 0);
        })));
        vmtest::FillNoise(*m_doc.GetResultMask(), 8, 6, 4);
    }
}

TEST_F(BegunSelection, ContourOverlayXorsInnerIntoOuter)
{
    vmtest::FillNoise(*m_doc.GetOuterPlane(), 8, 6, 5);
    vmtest::FillNoise(*m_doc.GetInnerPlane(), 8, 6, 6);
    m_doc.GetInnerPlane()->SetValue(0, 0, 0);
    COLImage out;
    out.Create(8, 6);
    m_doc.DrawContours(out, {0, 0, 8, 6});
    for (uint32_t y = 0; y < 6; ++y)
        for (uint32_t x = 0; x < 8; ++x)
            ASSERT_EQ(out.GetPixel2(x, y).alpha, m_doc.GetOuterPlane()->GetValue(x, y) ^ m_doc.GetInnerPlane()->GetValue(x, y));
    m_doc.SetShowOuter(0);
    m_doc.DrawContours(out, {0, 0, 8, 6});
    EXPECT_EQ(out.GetPixel2(3, 3).alpha, m_doc.GetInnerPlane()->GetValue(3, 3));
    m_doc.SetShowInner(0);
    m_doc.DrawContours(out, {0, 0, 8, 6});
    EXPECT_EQ(out.GetPixel2(3, 3).alpha, 0);
}

TEST_F(BegunSelection, BringBackToTheLayer)
{
    vmtest::FillNoise(*m_doc.GetResultMask(), 8, 6, 8);
    const COLChannel& mask = *m_doc.GetResultMask();

    ASSERT_EQ(m_doc.KeepAsSelection(m_s.stack), kBringBackDone);
    const COLChannel& selection = m_s.stack.GetSelectionMask();
    EXPECT_EQ(vmtest::Bytes(selection), vmtest::Bytes(vmtest::PlaneOf(20, 12, [&](uint32_t x, uint32_t y) {
                  return x >= 5 && x < 13 && y >= 3 && y < 9 ? mask.GetValue(x - 5, y - 3) : 0;
              })));

    ASSERT_EQ(m_doc.SeparateToLayer(m_s.stack), kBringBackDone);
    ASSERT_EQ(m_s.stack.GetLayerCount(), 3);
    EXPECT_EQ(m_s.stack.GetCurrentIndex(), 2);
    // The separated part and what stays behind both carry the mask as alpha.
    const std::vector<uint8_t> cut = vmtest::Bytes(WithAlpha(*m_doc.GetWorkingImage(), mask));
    EXPECT_EQ(vmtest::Bytes(m_s.stack.GetLayer(2)->m_image), cut);
    EXPECT_EQ(vmtest::Bytes(m_s.stack.GetLayer(1)->m_image), cut);

    // The base cannot take a result as a layer.
    m_s.stack.SetCurrentIndex(0);
    CSelectionDocument onBase;
    ASSERT_TRUE(onBase.Begin(m_s.stack));
    vmtest::FillNoise(*onBase.GetResultMask(), 20, 12, 2);
    EXPECT_EQ(onBase.ApplyToLayer(m_s.stack), kBringBackIsBase);
    EXPECT_EQ(onBase.SeparateToLayer(m_s.stack), kBringBackIsBase);
    EXPECT_EQ(onBase.KeepAsSelection(m_s.stack), kBringBackDone);
}

TEST(SelectionDocument, CopyToLayerWorksOnTheBaseAndStandsAside)
{
    Stack s;
    s.stack.SetCurrentIndex(0);
    CSelectionDocument doc;
    ASSERT_TRUE(doc.Begin(s.stack));
    vmtest::FillNoise(*doc.GetResultMask(), 20, 12, 5);
    const COLImage baseBefore = vmtest::Copy(s.stack.GetLayer(0)->m_image);
    ASSERT_EQ(doc.CopyToLayer(s.stack, true), kBringBackDone);
    ASSERT_EQ(s.stack.GetLayerCount(), 3);
    EXPECT_EQ(s.stack.GetCurrentIndex(), 1);
    const CLayer* copy = s.stack.GetLayer(1);
    EXPECT_EQ(std::make_pair(copy->m_x, copy->m_y), std::make_pair(10, 10));
    EXPECT_TRUE(vmtest::SamePixels(copy->m_image, WithAlpha(*doc.GetWorkingImage(), *doc.GetResultMask())));
    EXPECT_TRUE(vmtest::SamePixels(s.stack.GetLayer(0)->m_image, baseBefore)); // the base keeps its pixels
    ASSERT_EQ(doc.CopyToLayer(s.stack, false), kBringBackDone);
    EXPECT_EQ(std::make_pair(s.stack.GetLayer(1)->m_x, s.stack.GetLayer(1)->m_y), std::make_pair(0, 0));
}

TEST_F(BegunSelection, ChangeBackgroundPutsTheCutOutOverThePicture)
{
    vmtest::FillNoise(*m_doc.GetResultMask(), 8, 6, 6);
    const COLImage picture = vmtest::Noise(30, 16, 9);
    ASSERT_EQ(m_doc.ChangeBackground(m_s.stack, picture, 0xFF0000FF), kBringBackDone);
    EXPECT_EQ(std::make_pair(m_s.stack.GetWidth(), m_s.stack.GetHeight()), std::make_pair(30, 16));
    EXPECT_TRUE(vmtest::SamePixels(m_s.stack.GetLayer(0)->m_image, picture));
    ASSERT_EQ(m_s.stack.GetLayerCount(), 3);
    // The canvas grew by (10, 4) around the middle: every layer moved by (5, 2), and the copy stands 10 aside.
    EXPECT_EQ(std::make_pair(m_s.stack.GetLayer(1)->m_x, m_s.stack.GetLayer(1)->m_y), std::make_pair(10, 5));
    EXPECT_EQ(std::make_pair(m_s.stack.GetLayer(2)->m_x, m_s.stack.GetLayer(2)->m_y), std::make_pair(20, 15));
    EXPECT_EQ(m_s.stack.GetCurrentIndex(), 2);
    EXPECT_EQ(m_s.stack.GetLayer(2)->m_image.GetPixel2(4, 2).alpha, m_doc.GetResultMask()->GetValue(4, 2));

    COLImage empty;
    EXPECT_EQ(m_doc.ChangeBackground(m_s.stack, empty, 0), kBringBackFailed);
    EXPECT_EQ(m_s.stack.GetLayerCount(), 3); // refused before anything changed
}
