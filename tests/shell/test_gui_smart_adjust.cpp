#include <gtest/gtest.h>

#include "document/layer.h"
#include "gui_support.h"
#include "support/engine_checks.h"
#include "shell/smart_adjust_panel.h"

using namespace vmtest;

using SmartAdjustPanel = FrameTest;

TEST_F(SmartAdjustPanel, SwatchesAndModesFollowTheToolInSelectionMode)
{
    ASSERT_NO_FATAL_FAILURE(Launch());
    OpenPicture(Picture(60, 40, [](uint32_t x, uint32_t y) { return CPixel::Make(x * 4, 120, y * 6); }));
    CToolManager& manager = Manager();
    ASSERT_TRUE(manager.EnterOrLeaveSelectionMode(true, kMethodInOut, true));
    CSmartAdjustTool& tool = manager.GetSmartAdjustTool();
    EXPECT_FALSE(tool.IsEnabled()) << "without a result there is nothing to adjust";
    // A result with contours on both sides.
    CSelectionDocument& selection = Bar().Selection();
    *selection.GetInnerPlane() = PlaneOf(60, 40, [](int x, int) { return x < 15 ? 255 : 0; });
    *selection.GetOuterPlane() = PlaneOf(60, 40, [](int x, int) { return x >= 45 ? 255 : 0; });
    *selection.GetResultMask() = PlaneOf(60, 40, [](int x, int) { return x < 30 ? 255 : 0; });
    manager.UpdateBars();
    EXPECT_TRUE(tool.IsEnabled());
    manager.SetCurrentTool(&tool);

    CSmartAdjPanel* panel = Bar().SmartAdjPanel();
    ASSERT_TRUE(panel->isVisible());
    EXPECT_EQ(panel->Current(), &tool.GetPanel());
    EXPECT_EQ(panel->Swatch(0)->text(), QStringLiteral("?"));
    EXPECT_EQ(panel->Swatch(1)->text(), QStringLiteral("?"));
    EXPECT_TRUE(panel->ModeButton(0)->isChecked());

    // The colour dialog of a swatch; a cancel changes nothing.
    panel->chooseColour = [](const QColor&) { return QColor(); };
    QTest::mouseClick(panel->Swatch(0), Qt::LeftButton);
    EXPECT_FALSE(tool.GetPanel().IsForePicked());
    panel->chooseColour = [](const QColor&) { return QColor(10, 200, 30); };
    QTest::mouseClick(panel->Swatch(0), Qt::LeftButton);
    ASSERT_TRUE(tool.GetPanel().IsForePicked());
    EXPECT_EQ(tool.GetPanel().GetForeColor().Word(), CPixel::Make(10, 200, 30).Word());
    EXPECT_EQ(panel->Swatch(0)->text(), QString());
    // A click in the outer contour picks the background there, and the swatch follows.
    const CViewPoint c = m_frame->View()->ImageToClient(52, 20);
    tool.OnLButtonDown(kMkLButton, c.x, c.y);
    tool.OnLButtonUp(0, c.x, c.y);
    EXPECT_TRUE(tool.GetPanel().IsBackPicked());
    EXPECT_EQ(panel->Swatch(1)->text(), QString());

    // Mode buttons, and a key that forces a mode shows on them.
    QTest::mouseClick(panel->ModeButton(2), Qt::LeftButton);
    EXPECT_EQ(tool.GetPanel().GetMode(), uint32_t(kAdjustLower));
    QTest::mouseClick(panel->ModeButton(0), Qt::LeftButton);
    tool.OnKeyDown(kKeyShift, 0);
    EXPECT_TRUE(panel->ModeButton(1)->isChecked());
    tool.OnKeyUp(kKeyShift, 0);
    EXPECT_TRUE(panel->ModeButton(0)->isChecked());

    // Another tool hides the panel; coming back keeps the colours.
    manager.SetCurrentTool(&manager.GetEraseSelTool());
    EXPECT_FALSE(panel->isVisible());
    manager.SetCurrentTool(&tool);
    EXPECT_TRUE(tool.GetPanel().IsForePicked());
    EXPECT_EQ(panel->Swatch(0)->text(), QString());
    manager.SetCurrentTool(nullptr);
}
