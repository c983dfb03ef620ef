#include <QSlider>
#include <QTest>
#include <QToolButton>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

#include "document/layer.h"
#include "gui_support.h"
#include "imaging/codec.h"
#include "shell/brush_panel.h"
#include "shell/image_view.h"
#include "shell/main_frame.h"
#include "shell/menu_table.h"
#include "shell/shell_app.h"
#include "shell/tool_bar.h"

using namespace vmtest;

namespace {

class PaintInFrame : public ::testing::Test {
protected:
    void Open(const std::string& path)
    {
        m_shell = std::make_unique<CShellApp>(m_app, &m_services);
        m_shell->Start("", TestOptions(m_dir, "en"), 0);
        ASSERT_TRUE(WaitFor([&] { return m_shell->CommandLineHandled(); }));
        m_frame = m_shell->Frame();
        m_services.openPaths.push_back(path);
        m_frame->OnCommand(cmd::kOpen);
        ASSERT_EQ(m_app.Document().GetLayerCount(), 1);
        m_bar = m_frame->ToolBar();
        ASSERT_NE(m_bar, nullptr);
    }
    // Presses the button of a tool in the shown list, as a user does.
    void PressButton(CToolBase* tool)
    {
        const auto& shown = m_bar->Manager().GetShownTools();
        for (size_t i = 0; i < shown.size(); ++i)
            if (shown[i] == tool) {
                const CRect cell = m_bar->Manager().GetButtonRect(int(i));
                // The bar's cells count from below the frame's large button: 71 pixels up.
                const int top = cell.top - 71;
                QTest::mouseClick(m_bar, Qt::LeftButton, Qt::NoModifier, QPoint(cell.left + 5, top + 5));
                return;
            }
        ADD_FAILURE() << "the tool has no button in this list";
    }
    // A stroke through the canvas's own events, at image points.
    void StrokeThrough(const std::vector<CViewPoint>& points)
    {
        CImageView* view = m_frame->View();
        auto client = [&](const CViewPoint& p) {
            const CViewPoint c = view->ImageToClient(p.x, p.y);
            return QPoint(c.x, c.y);
        };
        QTest::mouseMove(view, client(points.front()));
        QTest::mousePress(view, Qt::LeftButton, Qt::NoModifier, client(points.front()));
        for (size_t i = 1; i < points.size(); ++i) {
            QMouseEvent move(QEvent::MouseMove, client(points[i]), view->mapToGlobal(client(points[i])),
                             Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(view, &move);
        }
        QTest::mouseRelease(view, Qt::LeftButton, Qt::NoModifier, client(points.back()));
    }

    TempDir m_dir;
    CFakeServices m_services;
    CAppGlobals m_app;
    std::unique_ptr<CShellApp> m_shell;
    CMainFrame* m_frame = nullptr;
    CToolBar* m_bar = nullptr;
};

void Shot(QWidget* window, const char* name)
{
    const char* dir = std::getenv("VM_SCREENSHOT_DIR");
    if (!dir) return;
    QTest::qWait(150);
    window->grab().save(QString::fromUtf8(dir) + QLatin1Char('/') + QString::fromLatin1(name));
}

} // namespace

TEST_F(PaintInFrame, BrushStrokeOnTheLayerAndUndoFromTheWindow)
{
    COLImage img;
    img.Create(80, 60);
    for (uint32_t y = 0; y < 60; ++y)
        for (uint32_t x = 0; x < 80; ++x) img.PutPixel(x, y, CPixel::Make(uint8_t(x * 3), uint8_t(y * 4), 90, 255));
    const std::string path = m_dir.File("p.png");
    ASSERT_NE(COLImageCodec().SaveFileWithAlpha(path.c_str(), &img), 0);
    Open(path);
    CToolManager& manager = m_bar->Manager();
    manager.GetFreePaintTool().SetFramePacing(0);
    PressButton(&manager.GetFreePaintTool());
    ASSERT_EQ(manager.GetCurrentTool(), &manager.GetFreePaintTool());

    // The panel shows the brush; its size slider changes the brush.
    CBrushOptionsPanel* panel = m_bar->BrushPanel();
    ASSERT_TRUE(panel->isVisible());
    EXPECT_EQ(panel->Current(), &manager.GetFreePaintTool().GetBrush());
    panel->SizeSlider()->setValue(BrushSizeToSlider(6));
    EXPECT_EQ(manager.GetFreePaintTool().GetBrush().GetSize(), 6);

    const std::vector<uint8_t> before = Bytes(m_app.Document().GetLayer(0)->m_image);
    const int steps = m_app.ComposeHistory()->GetCount();
    StrokeThrough({{10, 10}, {30, 20}, {60, 40}});
    EXPECT_NE(Bytes(m_app.Document().GetLayer(0)->m_image), before);
    EXPECT_EQ(m_app.Document().GetLayerCount(), 1) << "the paint layer was merged down";
    ASSERT_EQ(m_app.ComposeHistory()->GetCount(), steps + 1);

    m_frame->OnCommand(cmd::kUndo);
    EXPECT_EQ(Bytes(m_app.Document().GetLayer(0)->m_image), before);
}

TEST_F(PaintInFrame, ErasingAStrayPatchOfTheCutOutInSelectionMode)
{
    Open(AssetPath("samples/chelsea.png"));
    CToolManager& manager = m_bar->Manager();
    auto* createSel = m_frame->findChild<QToolButton*>(QStringLiteral("createsel"));
    ASSERT_NE(createSel, nullptr);
    QTest::mouseClick(createSel, Qt::LeftButton);
    ASSERT_TRUE(m_frame->IsSelectionMode());

    // A cut-out as a matting method leaves it: an ellipse kept, and a stray patch of background kept by mistake.
    CSelectionDocument& selection = m_bar->Selection();
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
    StrokeThrough(zigzag);
    EXPECT_EQ(mask->GetValue(uint32_t(px), uint32_t(py)), 0) << "the patch is gone";
    EXPECT_EQ(mask->GetValue(uint32_t(w * 0.4), uint32_t(h * 0.55)), 255) << "the subject stays";
    ASSERT_EQ(m_app.SelectionHistory()->GetCount(), steps + 1);
    EXPECT_EQ(m_app.SelectionHistory()->GetRecord(steps)->arg, int32_t(kPlaneResult));
    // The pointer rests over the canvas, so the brush's circle shows in the picture.
    const CViewPoint rest = m_frame->View()->ImageToClient(px + pr, py + pr);
    QTest::mouseMove(m_frame->View(), QPoint(rest.x, rest.y));
    Shot(m_frame, "brush-correction.png");
}
