#include <algorithm>
#include <QTest>
#include <QToolButton>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

#include "document/layer.h"
#include "effects/polygon_fill.h"
#include "gui_support.h"
#include "imaging/codec.h"
#include "shell/image_view.h"
#include "shell/main_frame.h"
#include "shell/shell_app.h"
#include "shell/tool_bar.h"

using namespace vmtest;

namespace {

class ToolsInFrame : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_shell = std::make_unique<CShellApp>(m_app, &m_services);
        m_shell->Start("", TestOptions(m_dir), 0);
        ASSERT_TRUE(WaitFor([&] { return m_shell->CommandLineHandled(); }));
        m_frame = m_shell->Frame();
        COLImage img;
        img.Create(80, 60);
        for (uint32_t y = 0; y < 60; ++y)
            for (uint32_t x = 0; x < 80; ++x) img.PutPixel(x, y, CPixel::Make(uint8_t(x * 3), uint8_t(y * 4), 90, 255));
        const std::string path = m_dir.File("p.png");
        ASSERT_NE(COLImageCodec().SaveFileWithAlpha(path.c_str(), &img), 0);
        m_services.openPaths.push_back(path);
        m_frame->OnCommand(cmd::kOpen);
        ASSERT_EQ(m_app.Document().GetLayerCount(), 1);
    }

    // A press, moves and a release on the canvas at image points, through the widget's own events.
    void Mouse(QTest::MouseAction action, int x, int y)
    {
        CImageView* view = m_frame->View();
        const CViewPoint c = view->ImageToClient(x, y);
        if (action == QTest::MousePress)
            QTest::mousePress(view, Qt::LeftButton, Qt::NoModifier, QPoint(c.x, c.y));
        else
            QTest::mouseRelease(view, Qt::LeftButton, Qt::NoModifier, QPoint(c.x, c.y));
    }
    void Move(int x, int y)
    {
        CImageView* view = m_frame->View();
        const CViewPoint c = view->ImageToClient(x, y);
        QTest::mouseMove(view, QPoint(c.x, c.y));
    }

    TempDir m_dir;
    CFakeServices m_services;
    CAppGlobals m_app;
    std::unique_ptr<CShellApp> m_shell;
    CMainFrame* m_frame = nullptr;
};

} // namespace

TEST_F(ToolsInFrame, RectangleThenOuterPolygonInSelectionMode)
{
    CToolBar* bar = m_frame->ToolBar();
    ASSERT_NE(bar, nullptr);
    CToolManager& manager = bar->Manager();
    // The rectangle button, pressed as a user does, wherever the compose list puts it.
    const auto& shown = manager.GetShownTools();
    const int rectIndex = int(std::find(shown.begin(), shown.end(), &manager.GetRectTool()) - shown.begin());
    const CRect cell = manager.GetButtonRect(rectIndex);
    QTest::mouseClick(bar, Qt::LeftButton, Qt::NoModifier, QPoint(cell.left + 5, cell.top - 71 + 5));
    ASSERT_EQ(manager.GetCurrentTool(), &manager.GetRectTool());
    EXPECT_NE(m_frame->HelpText().toStdString().find(GetString("helprectsel")), std::string::npos);

    // The canvas maps client to image pixels itself; both ends are mapped back to check.
    Mouse(QTest::MousePress, 10, 8);
    Move(40, 30);
    Mouse(QTest::MouseRelease, 50, 40);
    const CViewPoint a = m_frame->View()->ClientToImage(m_frame->View()->ImageToClient(10, 8).x,
                                                        m_frame->View()->ImageToClient(10, 8).y);
    const CViewPoint b = m_frame->View()->ClientToImage(m_frame->View()->ImageToClient(50, 40).x,
                                                        m_frame->View()->ImageToClient(50, 40).y);
    COLChannel expected;
    expected.Create(80, 60);
    std::memset(expected.GetBuffer(), 0, expected.GetAreaByteSize());
    const std::vector<CPolyPoint> rect = {{a.x, a.y}, {b.x, a.y}, {b.x, b.y}, {a.x, b.y}, {a.x, a.y}};
    FillPolygon(rect.data(), rect.size(), &expected);
    EXPECT_EQ(Bytes(m_app.Document().GetSelectionMask()), Bytes(expected));

    // The large button enters selection mode: the canvas shows the selection document, the bar its tools.
    auto* createSel = m_frame->findChild<QToolButton*>(QStringLiteral("createsel"));
    ASSERT_NE(createSel, nullptr);
    ASSERT_TRUE(createSel->isEnabled());
    QTest::mouseClick(createSel, Qt::LeftButton);
    ASSERT_TRUE(m_frame->IsSelectionMode());
    EXPECT_EQ(m_frame->View()->GetSource(), static_cast<ICanvasSource*>(&bar->Selection()));
    EXPECT_EQ(manager.GetShownTools(), manager.GetList(kListInOut));
    ASSERT_EQ(m_app.SelectionHistory()->GetCount(), 1);

    manager.SetCurrentTool(&manager.GetOutPolygonTool());
    const std::vector<CViewPoint> corners = {{5, 5}, {70, 6}, {60, 50}};
    std::vector<CPolyPoint> outline;
    Mouse(QTest::MousePress, 5, 5);
    for (const CViewPoint& p : corners) {
        Move(p.x, p.y);
        Mouse(QTest::MouseRelease, p.x, p.y);
        const CViewPoint back = m_frame->View()->ClientToImage(m_frame->View()->ImageToClient(p.x, p.y).x,
                                                               m_frame->View()->ImageToClient(p.x, p.y).y);
        outline.push_back({back.x, back.y});
    }
    const CViewPoint last = m_frame->View()->ImageToClient(60, 50);
    QTest::mouseDClick(m_frame->View(), Qt::LeftButton, Qt::NoModifier, QPoint(last.x, last.y));
    outline.push_back(outline.front());
    COLChannel outer;
    outer.Create(80, 60);
    std::memset(outer.GetBuffer(), 0, outer.GetAreaByteSize());
    FillPolygon(outline.data(), outline.size(), &outer);
    EXPECT_EQ(Bytes(*bar->Selection().GetOuterPlane()), Bytes(outer));
    EXPECT_GE(m_app.SelectionHistory()->GetCount(), 3);
    EXPECT_EQ(m_app.SelectionHistory()->GetRecord(2)->arg, int32_t(kPlaneOuter));
}
