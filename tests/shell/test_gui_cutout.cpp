// The cut-out from the inner and outer contours, built from the window: the result must be the engine's, the
// item and button must follow the enabling rule, undo must take the result away and a failed or cancelled run
// must change nothing.
#include <QAction>
#include <QApplication>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>

#include "gui_support.h"
#include "imaging/codec.h"
#include "matting/contour_matting.h"
#include "matting/refined_matte.h"
#include "shell/image_view.h"
#include "shell/main_frame.h"
#include "shell/selection_mode.h"
#include "shell/shell_app.h"
#include "shell/tool_bar.h"
#include "shell/wait_dialog.h"

using namespace vmtest;

namespace {

class ContourCutOut : public FrameTest {
protected:
    void SetUp() override { StartFrame(900, 700); }

    void OpenSynthetic(uint32_t w, uint32_t h) { OpenPicture(DiscPicture(w, h), "disc.png"); }
    bool Enabled(int id) { return m_frame->IsCommandAvailable(id); }

    struct Expected {
        std::vector<uint8_t> mask, working;
    };
    // The classic engine run directly on copies of the document's planes; the mask is the squared alpha.
    Expected Classic()
    {
        COLImage source = Copy(*Sel().GetWorkingImage()), result;
        COLChannel inner = Copy(*Sel().GetInnerPlane()), outer = Copy(*Sel().GetOuterPlane()), doubt = Copy(inner);
        CContourMattingProcess engine;
        engine.SetImages(&source, &result);
        engine.AddChannel(&doubt);
        ContourMattingParams params;
        params.innerPlane = &inner;
        params.outerPlane = &outer;
        EXPECT_EQ(engine.Process(&params), kOk);
        return Expected{SquaredAlpha(result), Bytes(result)};
    }

    Expected Refined()
    {
        COLImage source = Copy(*Sel().GetWorkingImage()), result;
        const COLChannel& inner = *Sel().GetInnerPlane();
        const COLChannel& outer = *Sel().GetOuterPlane();
        COLChannel trimap = PlaneOf(inner.GetWidth(), inner.GetHeight(), [&](uint32_t x, uint32_t y) {
            return inner.GetValue(x, y) ? 255 : (outer.GetValue(x, y) ? 128 : 0);
        });
        CRefinedMatteProcess engine;
        engine.SetImages(&source, &result);
        RefinedMatteParams params;
        params.trimap = &trimap;
        EXPECT_EQ(engine.Process(&params), kOk);
        return Expected{SquaredAlpha(result), Bytes(result)};
    }
};

} // namespace

TEST_F(ContourCutOut, TheMenuItemBuildsTheEnginesResultAndUndoTakesItAway)
{
    OpenSynthetic(200, 160);
    EnterSelectionMode();
    QToolButton* button = m_frame->BuildSelectionButton();
    ASSERT_NE(button, nullptr);
    EXPECT_TRUE(button->isVisible());
    // Nothing drawn, then only the outer contour: not yet.
    EXPECT_FALSE(Enabled(cmd::kBuildSelection));
    DrawOuter();
    EXPECT_FALSE(Enabled(cmd::kBuildSelection));
    EXPECT_FALSE(button->isEnabled());
    DrawInner();
    EXPECT_TRUE(Enabled(cmd::kBuildSelection));
    EXPECT_TRUE(button->isEnabled()); // followed the drawing without a menu being opened
    const Expected expected = Classic();
    const std::vector<uint8_t> outerBefore = Bytes(*Sel().GetOuterPlane());
    const std::vector<uint8_t> workingBefore = Bytes(*Sel().GetWorkingImage());
    const int stepsBefore = Bar().SelectionLog()->GetCount();

    QAction* item = m_frame->Action(cmd::kBuildSelection);
    ASSERT_NE(item, nullptr);
    EXPECT_TRUE(item->text().startsWith(QStringLiteral("Create the cut-out")));
    item->trigger(); // the wait dialog is modal: the run is over when this returns

    EXPECT_EQ(Bytes(*Sel().GetResultMask()), expected.mask);
    EXPECT_EQ(Bytes(*Sel().GetWorkingImage()), expected.working);
    // The document's outer contour is left as drawn (the engine's inversion happens on a copy).
    EXPECT_EQ(Bytes(*Sel().GetOuterPlane()), outerBefore);
    ASSERT_EQ(Bar().SelectionLog()->GetCount(), stepsBefore + 1);
    const CHistoryRecord* step = Bar().SelectionLog()->GetRecord(stepsBefore);
    ASSERT_NE(step, nullptr);
    EXPECT_EQ(step->kind, 255);
    EXPECT_STREQ(step->label, "His_inout");
    // A result exists: no second build, the contour tools rest, the backgrounds act, the help shows the check page.
    EXPECT_FALSE(Enabled(cmd::kBuildSelection));
    EXPECT_FALSE(button->isEnabled());
    EXPECT_FALSE(Manager().GetOutPolygonTool().IsEnabled());
    EXPECT_TRUE(Enabled(cmd::kBackChecker));
    EXPECT_EQ(Manager().GetCurrentTool(), nullptr);
    EXPECT_NE(m_frame->HelpText(), QString::fromStdString(GetString("nohelp")));
    EXPECT_TRUE(m_services.messages.empty());

    m_frame->OnCommand(cmd::kUndo);
    EXPECT_TRUE(Sel().GetResultMask()->IsNull());
    EXPECT_EQ(Bytes(*Sel().GetWorkingImage()), workingBefore);
    EXPECT_EQ(Bytes(*Sel().GetOuterPlane()), outerBefore);
    EXPECT_TRUE(Enabled(cmd::kBuildSelection));
    EXPECT_TRUE(button->isEnabled());
    EXPECT_TRUE(Manager().GetOutPolygonTool().IsEnabled());
}

TEST_F(ContourCutOut, TheRefinedChoiceGivesTheRefinedEnginesBytesAndIsRemembered)
{
    DiscWithContours();
    QAction* refined = m_frame->Action(cmd::kRefinedEdges);
    ASSERT_NE(refined, nullptr);
    EXPECT_TRUE(refined->isCheckable());
    EXPECT_FALSE(refined->isChecked()); // the classic solver is the default
    refined->trigger();
    EXPECT_TRUE(m_frame->IsRefinedEdges());
    EXPECT_EQ(m_app.GetProfileInt("RefinedEdges", 0), 1);
    const Expected expected = Refined();
    const Expected classic = Classic();
    ASSERT_NE(expected.mask, classic.mask); // otherwise the check below would not tell the solvers apart

    QTest::mouseClick(m_frame->BuildSelectionButton(), Qt::LeftButton);
    EXPECT_EQ(Bytes(*Sel().GetResultMask()), expected.mask);
    EXPECT_EQ(Bytes(*Sel().GetWorkingImage()), expected.working);
}

TEST_F(ContourCutOut, AFailedOrCancelledRunChangesNothing)
{
    DiscWithContours();
    const std::vector<uint8_t> working = Bytes(*Sel().GetWorkingImage());
    const std::vector<uint8_t> outer = Bytes(*Sel().GetOuterPlane());
    const int steps = Bar().SelectionLog()->GetCount();

    // Esc in the wait dialog: the run's result is dropped, and nothing is said.
    CEscapeWait escape;
    m_frame->OnCommand(cmd::kBuildSelection);
    ASSERT_TRUE(escape.pressed);
    EXPECT_TRUE(Sel().GetResultMask()->IsNull());
    EXPECT_EQ(Bytes(*Sel().GetWorkingImage()), working);
    EXPECT_EQ(Bytes(*Sel().GetOuterPlane()), outer);
    EXPECT_EQ(Bar().SelectionLog()->GetCount(), steps);
    EXPECT_TRUE(m_services.messages.empty());
    EXPECT_TRUE(Enabled(cmd::kBuildSelection));
}

TEST_F(ContourCutOut, AnEmptyBandSaysSoAndKeepsTheContours)
{
    OpenSynthetic(200, 160);
    EnterSelectionMode();
    // The inner contour covers the whole outer one: there is nothing left to solve.
    Polygon(Manager().GetOutPolygonTool(), {{80, 60}, {120, 60}, {120, 100}, {80, 100}});
    Polygon(Manager().GetInPolygonTool(), {{60, 40}, {140, 40}, {140, 120}, {60, 120}});
    ASSERT_TRUE(Enabled(cmd::kBuildSelection));
    const std::vector<uint8_t> working = Bytes(*Sel().GetWorkingImage());
    const std::vector<uint8_t> inner = Bytes(*Sel().GetInnerPlane());
    const int steps = Bar().SelectionLog()->GetCount();
    m_frame->OnCommand(cmd::kBuildSelection);
    ASSERT_EQ(m_services.messages.size(), 1u);
    EXPECT_EQ(m_services.messages.back(), GetString("buildselfail"));
    EXPECT_TRUE(Sel().GetResultMask()->IsNull());
    EXPECT_EQ(Bytes(*Sel().GetWorkingImage()), working);
    EXPECT_EQ(Bytes(*Sel().GetInnerPlane()), inner);
    EXPECT_EQ(Bar().SelectionLog()->GetCount(), steps);
}

TEST_F(ContourCutOut, CtrlBBuildsAndTheScreenshotShowsTheCutOutOverTheCheckerboard)
{
    OutlineTheCup();
    ASSERT_TRUE(m_frame->HandleShortcut('B', true, false));
    ASSERT_FALSE(Sel().GetResultMask()->IsNull());
    EXPECT_EQ(Sel().GetDisplayMode(), kShowChecker);
    // The corner is far outside the outer contour, the saucer's middle inside the inner one.
    EXPECT_EQ(Sel().GetResultMask()->GetValue(2, 398), 0);
    EXPECT_EQ(Sel().GetResultMask()->GetValue(300, 300), 255);
    Shot(m_frame, "contour-cutout.png");
}
