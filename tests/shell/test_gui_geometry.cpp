#include <QCheckBox>
#include <QComboBox>
#include <gtest/gtest.h>

#include "document/layer.h"
#include "gui_support.h"
#include "shell/crop_panel.h"

using namespace vmtest;

namespace {

class GeometryInFrame : public FrameTest {
protected:
    void SetUp() override { Launch(); }
    // A drag in four steps between image points.
    void DragThrough(int x0, int y0, int x1, int y1)
    {
        std::vector<CViewPoint> points{{x0, y0}};
        for (int k = 1; k <= 4; ++k)
            points.push_back({x0 + (x1 - x0) * k / 4, y0 + (y1 - y0) * k / 4});
        Drag(points);
    }
};

} // namespace

TEST_F(GeometryInFrame, TransformFromTheToolBarAppliesWithADoubleClick)
{
    Open(AssetPath("samples/chelsea.png"));
    CComposeDocument& doc = m_app.Document();
    const int w = doc.GetWidth(), h = doc.GetHeight();
    // A second layer: a disc of warm colour in the middle, as pasted.
    CLayer* layer = doc.AddLayer(0, kLayerKindRaster);
    ASSERT_NE(layer, nullptr);
    const int r = std::min(w, h) / 5;
    layer->m_image = Picture(2 * r, 2 * r, [r](int x, int y) {
        const bool in = (x - r) * (x - r) + (y - r) * (y - r) < r * r;
        return CPixel::Make(uint8_t(200 + x % 50), uint8_t(90 + y % 60), 40, in ? 255 : 0);
    });
    layer->m_x = w / 2 - r;
    layer->m_y = h / 2 - r;
    doc.SetCurrentIndex(1);
    m_app.ComposeHistory()->AddStep(&doc, kStepWholeDocument, 0, "His_open");
    doc.Refresh();
    m_frame->UpdatePanels();
    COLImage source = vmtest::Copy(layer->m_image);

    CToolManager& manager = Manager();
    PressButton(&manager.GetTransformTool());
    ASSERT_EQ(manager.GetCurrentTool(), &manager.GetTransformTool());
    // The panel of the frame tools shows the transform's settings: the layer's own ratio, no free shape.
    CCropOptionsPanel* panel = Bar().CropPanel();
    ASSERT_TRUE(panel->isVisible());
    EXPECT_EQ(panel->RatioList()->currentIndex(), int(CPropCrop::kRatioOriginal));
    // The narrow bar still shows the whole name of every ratio in the closed list.
    EXPECT_LE(panel->RatioList()->sizeHint().width(), panel->RatioList()->width());
    EXPECT_FALSE(panel->FreeShapeBox()->isEnabled());
    EXPECT_EQ(layer->m_visible, 0);

    // The pointer tells what a press would take: a handle, the inside, or (outside) a turn.
    const CropShape& s = manager.GetTransformTool().GetShape();
    CImageView* view = m_frame->View();
    QTest::mouseMove(view, Client(s.corners[2].x, s.corners[2].y));
    EXPECT_EQ(view->CursorRole(), kCursorCornerNwSe);
    QTest::mouseMove(view, Client(s.corners[1].x, s.corners[1].y));
    EXPECT_EQ(view->CursorRole(), kCursorCornerNeSw);
    QTest::mouseMove(view, Client(s.centre.x, s.centre.y));
    EXPECT_EQ(view->CursorRole(), kCursorMoveFrame);
    QTest::mouseMove(view, Client(s.corners[2].x + 8, s.centre.y));
    EXPECT_EQ(view->CursorRole(), kCursorRotate);

    // The bottom-right handle out by a quarter, then a turn from outside the frame.
    const CViewPoint corner = s.corners[2];
    DragThrough(corner.x, corner.y, corner.x + r / 2, corner.y + r / 2);
    EXPECT_GT(s.corners[2].x, corner.x);
    DragThrough(s.corners[2].x + 10, s.centre.y, s.corners[2].x + 10, s.centre.y + r);
    EXPECT_GT(s.angle, 0.05);
    QTest::mouseMove(m_frame->View(), Client(s.centre.x, s.centre.y));
    Shot(m_frame, "transform.png", 150);

    const int steps = m_app.ComposeHistory()->GetCount();
    QTest::mouseDClick(m_frame->View(), Qt::LeftButton, Qt::NoModifier, Client(s.centre.x, s.centre.y));
    ASSERT_EQ(m_app.ComposeHistory()->GetCount(), steps + 1);
    EXPECT_EQ(layer->m_visible, 1);
    // The frame's map is applied (its bytes are the tool's, checked against the warp with the tool): the layer
    // grew with the corner and turned.
    EXPECT_GT(layer->m_image.GetWidth(), source.GetWidth());
    EXPECT_NE(Bytes(layer->m_image), Bytes(source));

    m_frame->OnCommand(cmd::kUndo);
    ASSERT_TRUE(WaitFor([&] { return doc.GetLayerCount() == 2; }));
    EXPECT_EQ(Bytes(doc.GetLayer(1)->m_image), Bytes(source));

    // Saving while a frame is up first puts the hidden layer back on show: it is never written hidden.
    EXPECT_EQ(manager.GetCurrentTool(), nullptr) << "undo leaves the tool";
    PressButton(&manager.GetTransformTool());
    ASSERT_TRUE(manager.IsTransforming());
    EXPECT_EQ(doc.GetLayer(1)->m_visible, 0);
    // The save dialog is cancelled once it is up; by then the layer must show again.
    int visibleAtDialog = -1;
    OnDialogShown<QDialog>([&](QDialog* d) {
        visibleAtDialog = doc.GetLayer(1)->m_visible;
        d->reject();
    });
    m_frame->OnCommand(cmd::kSave);
    EXPECT_EQ(visibleAtDialog, 1);
    EXPECT_EQ(manager.GetCurrentTool(), nullptr);
    EXPECT_EQ(doc.GetLayer(1)->m_visible, 1);
}
