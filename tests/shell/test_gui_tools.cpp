#include <gtest/gtest.h>

#include "document/layer.h"
#include "effects/polygon_fill.h"
#include "gui_support.h"
#include "imaging/codec.h"
#include "shell/image_view.h"
#include "shell/main_frame.h"
#include "shell/shell_app.h"
#include "shell/tool_bar.h"
#include "tools/tool_fixture.h"

using namespace vmtest;

namespace {

class ToolsInFrame : public FrameTest {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(Launch("zh"));
        OpenPicture(Picture(80, 60, [](uint32_t x, uint32_t y) { return CPixel::Make(x * 3, y * 4, 90, 255); }));
    }
};

} // namespace

TEST_F(ToolsInFrame, RectangleThenOuterPolygonInSelectionMode)
{
    // The rectangle button, pressed as a user does, wherever the compose list puts it.
    PressButton(&Manager().GetRectTool());
    ASSERT_EQ(Manager().GetCurrentTool(), &Manager().GetRectTool());
    EXPECT_NE(m_frame->HelpText().toStdString().find(GetString("helprectsel")), std::string::npos);

    // The canvas maps client to image pixels itself: each point the selection takes is the client point mapped
    // back.
    auto back = [&](int x, int y) {
        const CViewPoint c = m_frame->View()->ClientToImage(Client(x, y).x(), Client(x, y).y());
        return CPolyPoint{c.x, c.y};
    };
    Drag({{10, 8}, {40, 30}, {50, 40}});
    const CPolyPoint a = back(10, 8), b = back(50, 40);
    EXPECT_EQ(Bytes(m_app.Document().GetSelectionMask()), Filled({a, {b.x, a.y}, b, {a.x, b.y}, a}, 80, 60));

    // The large button enters selection mode: the canvas shows the selection document, the bar its tools.
    EnterSelectionMode();
    EXPECT_EQ(m_frame->View()->GetSource(), static_cast<ICanvasSource*>(&Sel()));
    EXPECT_EQ(Manager().GetShownTools(), Manager().GetList(kListInOut));
    ASSERT_EQ(m_app.SelectionHistory()->GetCount(), 1);

    Polygon(Manager().GetOutPolygonTool(), {{5, 5}, {70, 6}, {60, 50}});
    EXPECT_EQ(Bytes(*Sel().GetOuterPlane()), Filled({back(5, 5), back(70, 6), back(60, 50), back(5, 5)}, 80, 60));
    EXPECT_GE(m_app.SelectionHistory()->GetCount(), 3);
    EXPECT_EQ(m_app.SelectionHistory()->GetRecord(2)->arg, int32_t(kPlaneOuter));
}
