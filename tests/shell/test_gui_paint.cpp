#include <QSlider>
#include <gtest/gtest.h>

#include "document/layer.h"
#include "gui_support.h"
#include "shell/brush_panel.h"

using namespace vmtest;

namespace {

class PaintInFrame : public FrameTest {
protected:
    void SetUp() override { Launch(); }
};

} // namespace

TEST_F(PaintInFrame, BrushStrokeOnTheLayerAndUndoFromTheWindow)
{
    OpenPicture(Picture(80, 60, [](uint32_t x, uint32_t y) { return CPixel::Make(x * 3, y * 4, 90, 255); }));
    CToolManager& manager = Manager();
    manager.GetFreePaintTool().SetFramePacing(0);
    PressButton(&manager.GetFreePaintTool());
    ASSERT_EQ(manager.GetCurrentTool(), &manager.GetFreePaintTool());

    // The panel shows the brush; its size slider changes the brush.
    CBrushOptionsPanel* panel = Bar().BrushPanel();
    ASSERT_TRUE(panel->isVisible());
    EXPECT_EQ(panel->Current(), &manager.GetFreePaintTool().GetBrush());
    panel->SizeSlider()->setValue(BrushSizeToSlider(6));
    EXPECT_EQ(manager.GetFreePaintTool().GetBrush().GetSize(), 6);

    const std::vector<uint8_t> before = Bytes(m_app.Document().GetLayer(0)->m_image);
    const int steps = m_app.ComposeHistory()->GetCount();
    Drag({{10, 10}, {30, 20}, {60, 40}});
    EXPECT_NE(Bytes(m_app.Document().GetLayer(0)->m_image), before);
    EXPECT_EQ(m_app.Document().GetLayerCount(), 1) << "the paint layer was merged down";
    ASSERT_EQ(m_app.ComposeHistory()->GetCount(), steps + 1);

    m_frame->OnCommand(cmd::kUndo);
    EXPECT_EQ(Bytes(m_app.Document().GetLayer(0)->m_image), before);
}

TEST_F(PaintInFrame, ErasingAStrayPatchOfTheCutOutInSelectionMode)
{
    Open(AssetPath("samples/chelsea.png"));
    CToolManager& manager = Manager();
    EnterSelectionMode();

    // A cut-out as a matting method leaves it: an ellipse kept, and a stray patch of background kept by mistake.
    CSelectionDocument& selection = Sel();
    COLImage* working = selection.GetWorkingImage();
    const int w = int(working->GetWidth()), h = int(working->GetHeight());
    COLChannel* mask = selection.GetResultMask();
    ASSERT_EQ(mask->Create(uint32_t(w), uint32_t(h)), kOk);
    const int px = w * 3 / 4, py = h / 6, pr = std::min(w, h) / 12;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double ex = (x - w * 0.4) / (w * 0.3), ey = (y - h * 0.55) / (h * 0.42);
            const bool inEllipse = ex * ex + ey * ey < 1.0;
            const bool inPatch = std::abs(x - px) < pr && std::abs(y - py) < pr;
            const uint8_t m = inEllipse || inPatch ? 255 : 0;
            mask->SetValue(uint32_t(x), uint32_t(y), m);
            working->GetBuffer()[size_t(y) * w + x].alpha = m;
        }
    selection.RefreshPreview();

    manager.GetEraseSelTool().SetFramePacing(0);
    PressButton(&manager.GetEraseSelTool());
    ASSERT_EQ(manager.GetCurrentTool(), &manager.GetEraseSelTool());
    ASSERT_TRUE(manager.GetEraseSelTool().GetBrush().SetValues(pr / 2 + 4, 30, 100));
    const int steps = m_app.SelectionHistory()->GetCount();
    std::vector<CViewPoint> zigzag;
    for (int k = 0; k <= 6; ++k) zigzag.push_back({px - pr + k * pr / 3, py + (k % 2 ? -pr / 2 : pr / 2)});
    Drag(zigzag);
    EXPECT_EQ(mask->GetValue(uint32_t(px), uint32_t(py)), 0) << "the patch is gone";
    EXPECT_EQ(mask->GetValue(uint32_t(w * 0.4), uint32_t(h * 0.55)), 255) << "the subject stays";
    ASSERT_EQ(m_app.SelectionHistory()->GetCount(), steps + 1);
    EXPECT_EQ(m_app.SelectionHistory()->GetRecord(steps)->arg, int32_t(kPlaneResult));
    // The pointer rests over the canvas, so the brush's circle shows in the picture.
    QTest::mouseMove(m_frame->View(), Client(px + pr, py + pr));
    Shot(m_frame, "brush-correction.png", 150);
}
