// Selection mode's panels: the inner-outer page (show boxes, the contour snap on the worker), the history panel
// following the log of the mode, and the background buttons of the left bar agreeing with the Background menu.
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QListWidget>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>

#include "commands/history_log.h"
#include "gui_support.h"
#include "matting/contour_optimise.h"
#include "shell/background_bar.h"
#include "shell/image_view.h"
#include "shell/main_frame.h"
#include "shell/panels.h"
#include "shell/shell_app.h"
#include "shell/tab_inout.h"
#include "shell/tool_bar.h"
#include "shell/wait_dialog.h"

using namespace vmtest;

namespace {

class InoutPage : public FrameTest {
protected:
    void SetUp() override { StartFrame(1000, 720); }

    void OpenSynthetic(uint32_t w, uint32_t h) { OpenPicture(DiscPicture(w, h), "disc.png"); }
    CTabInout& Page() { return *m_frame->InoutPage(); }
    CSelectionHistory& Log() { return *Bar().SelectionLog(); }


    // Pixels of the canvas in one exact colour: the ants of a contour use colours no pixel of the picture has.
    int CountOnCanvas(QRgb colour)
    {
        QTest::qWait(50);
        const QImage shot = m_frame->View()->grab().toImage().convertToFormat(QImage::Format_RGB32);
        int n = 0;
        for (int y = 0; y < shot.height(); ++y)
            for (int x = 0; x < shot.width(); ++x)
                n += (shot.pixel(x, y) & 0xFFFFFF) == (colour & 0xFFFFFF);
        return n;
    }
};

} // namespace

TEST_F(InoutPage, TheButtonGivesTheCoreOptimisersPlanesAsOneStepThatUndoTakesBack)
{
    OpenSynthetic(200, 160);
    EnterSelectionMode(); // the side bar's tests show the page in place of the layers
    EXPECT_FALSE(Page().OptimiseButton()->isEnabled());
    DrawOuter();
    // One contour alone: the button rests, and a run is refused with a word and changes nothing.
    Page().SyncControls();
    EXPECT_FALSE(Page().OptimiseButton()->isEnabled());
    EXPECT_TRUE(Page().ShowOuterBox()->isEnabled());
    EXPECT_FALSE(Page().ShowInnerBox()->isEnabled());
    const std::vector<uint8_t> outerOnly = Bytes(*Sel().GetOuterPlane());
    const int outerSteps = Log().GetCount();
    EXPECT_EQ(Page().OptimiseContours(), CTabInout::EOptimiseOutcome::kEmpty);
    EXPECT_EQ(m_services.messages, std::vector<std::string>{GetString("optimizeempty")});
    EXPECT_EQ(Bytes(*Sel().GetOuterPlane()), outerOnly);
    EXPECT_TRUE(Sel().GetInnerPlane()->IsAllZero());
    EXPECT_EQ(Log().GetCount(), outerSteps);
    m_services.messages.clear();
    DrawInner();
    Page().SyncControls();
    ASSERT_TRUE(Page().OptimiseButton()->isEnabled());

    const std::vector<uint8_t> innerDrawn = Bytes(*Sel().GetInnerPlane());
    const std::vector<uint8_t> outerDrawn = Bytes(*Sel().GetOuterPlane());
    COLImage source = Copy(*Sel().GetWorkingImage());
    COLChannel inner = Copy(*Sel().GetInnerPlane()), outer = Copy(*Sel().GetOuterPlane());
    const int32_t detail = CTabInout::kDetail;
    ASSERT_EQ(OptimiseContoursNow(&source, &inner, &outer, &detail), kOk);
    // Both planes move, or the comparisons below could not tell a snap from no run at all.
    ASSERT_NE(Bytes(inner), innerDrawn);
    ASSERT_NE(Bytes(outer), outerDrawn);
    const int steps = Log().GetCount();

    QTest::mouseClick(Page().OptimiseButton(), Qt::LeftButton); // the wait dialog is modal: done on return

    EXPECT_EQ(Bytes(*Sel().GetInnerPlane()), Bytes(inner));
    EXPECT_EQ(Bytes(*Sel().GetOuterPlane()), Bytes(outer));
    ASSERT_EQ(Log().GetCount(), steps + 1);
    const CHistoryRecord* step = Log().GetRecord(steps);
    EXPECT_EQ(step->kind, 5);
    EXPECT_EQ(step->arg, int32_t(kPlaneInner | kPlaneOuter));
    EXPECT_STREQ(step->label, "inoutoptimize");
    EXPECT_EQ(m_frame->HelpText(), QString::fromStdString(GetString("afterinoutoptimize")));
    EXPECT_TRUE(m_services.messages.empty());
    EXPECT_TRUE(m_frame->IsCommandAvailable(cmd::kBuildSelection));

    m_frame->OnCommand(cmd::kUndo);
    EXPECT_EQ(Bytes(*Sel().GetInnerPlane()), innerDrawn);
    EXPECT_EQ(Bytes(*Sel().GetOuterPlane()), outerDrawn);
    m_frame->OnCommand(cmd::kRedo);
    EXPECT_EQ(Bytes(*Sel().GetInnerPlane()), Bytes(inner));
    EXPECT_EQ(Bytes(*Sel().GetOuterPlane()), Bytes(outer));

    // Once a result exists the contours are done with: the page's controls rest.
    m_frame->OnCommand(cmd::kBuildSelection);
    ASSERT_FALSE(Sel().GetResultMask()->IsNull());
    EXPECT_FALSE(Page().OptimiseButton()->isEnabled());
    EXPECT_FALSE(Page().ShowInnerBox()->isEnabled());
    EXPECT_EQ(Page().OptimiseContours(), CTabInout::EOptimiseOutcome::kNotReady);
}

TEST_F(InoutPage, EscInTheWaitDialogChangesNothing)
{
    // Large enough that the segmentation is still running when Esc comes.
    DiscWithContours(1600, 1200);
    const std::vector<uint8_t> outer = Bytes(*Sel().GetOuterPlane());
    const std::vector<uint8_t> inner = Bytes(*Sel().GetInnerPlane());
    const int drawnSteps = Log().GetCount();
    CEscapeWait escape;
    const CTabInout::EOptimiseOutcome outcome = Page().OptimiseContours();
    ASSERT_TRUE(escape.pressed);
    EXPECT_EQ(outcome, CTabInout::EOptimiseOutcome::kCancelled);
    EXPECT_EQ(Bytes(*Sel().GetInnerPlane()), inner);
    EXPECT_EQ(Bytes(*Sel().GetOuterPlane()), outer);
    EXPECT_EQ(Log().GetCount(), drawnSteps);
    EXPECT_TRUE(m_services.messages.empty());
}

TEST_F(InoutPage, TheShowBoxesChangeWhatTheCanvasDraws)
{
    DiscWithContours();
    Manager().SetCurrentTool(nullptr);
    Page().SyncControls();
    const QRgb red = 0xE01818, green = 0x00A000; // the dark stripes of the outer and the inner contour's ants
    ASSERT_TRUE(WaitFor([&] { return CountOnCanvas(red) > 0 && CountOnCanvas(green) > 0; }));

    QTest::mouseClick(Page().ShowInnerBox(), Qt::LeftButton);
    EXPECT_EQ(Sel().GetShowInner(), 0);
    EXPECT_TRUE(WaitFor([&] { return CountOnCanvas(green) == 0; }));
    EXPECT_GT(CountOnCanvas(red), 0);

    QTest::mouseClick(Page().ShowOuterBox(), Qt::LeftButton);
    EXPECT_EQ(Sel().GetShowOuter(), 0);
    EXPECT_TRUE(WaitFor([&] { return CountOnCanvas(red) == 0; }));
    EXPECT_EQ(CountOnCanvas(green), 0);

    // Hidden is only not drawn: the planes are still there and come back.
    EXPECT_FALSE(Sel().GetInnerPlane()->IsAllZero());
    QTest::mouseClick(Page().ShowInnerBox(), Qt::LeftButton);
    QTest::mouseClick(Page().ShowOuterBox(), Qt::LeftButton);
    EXPECT_TRUE(WaitFor([&] { return CountOnCanvas(red) > 0 && CountOnCanvas(green) > 0; }));
}

TEST_F(InoutPage, TheHistoryPanelShowsTheLogOfTheModeAndAClickJumpsThroughIt)
{
    OpenSynthetic(200, 160);
    QListWidget* list = m_frame->HistoryPanel()->List();
    const CComposeHistory& compose = *m_app.ComposeHistory();
    ASSERT_EQ(list->count(), compose.GetCount());

    EnterSelectionMode();
    DrawOuter();
    DrawInner();
    // The double click of the test leaves the button down as the application sees it; a release with no tool
    // lifts it. The panel does not rebuild under a pressed button.
    Manager().SetCurrentTool(nullptr);
    QTest::mouseRelease(m_frame->View(), Qt::LeftButton, Qt::NoModifier, QPoint(2, 2));
    ASSERT_EQ(QApplication::mouseButtons(), Qt::NoButton);
    // "createsel", then two steps for each contour polygon (the tools record one as the polygon is filled and
    // one as it is committed). The tools record them without telling the panels: the panel finds them itself.
    ASSERT_EQ(Log().GetCount(), 5);
    ASSERT_TRUE(WaitFor([&] { return list->count() == 5; }));
    for (int i = 0; i < 5; ++i) {
        char label[33] = {};
        std::memcpy(label, Log().GetRecord(i)->label, 32);
        EXPECT_EQ(list->item(i)->text(), HistoryLabelText(label)) << i;
    }
    EXPECT_EQ(list->item(1)->text(), QString::fromStdString(GetString("outpolygonseltip")));
    EXPECT_EQ(list->currentRow(), 4);
    const std::vector<uint8_t> outer = Bytes(*Sel().GetOuterPlane());

    // A click on the outer contour's last row goes back to just after it: the inner contour is gone.
    QListWidgetItem* row = list->item(2);
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier, list->visualItemRect(row).center());
    EXPECT_EQ(Log().GetCurrentStep(), 3);
    EXPECT_TRUE(Sel().GetInnerPlane()->IsAllZero());
    EXPECT_EQ(Bytes(*Sel().GetOuterPlane()), outer);
    ASSERT_EQ(list->count(), 5); // the undone steps stay in the list, greyed, for redo
    EXPECT_EQ(list->currentRow(), 2);
    EXPECT_NE(list->item(3)->foreground().color(), list->item(0)->foreground().color());
    // And forward again by the last row.
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier, list->visualItemRect(list->item(4)).center());
    EXPECT_EQ(Log().GetCurrentStep(), 5);
    EXPECT_FALSE(Sel().GetInnerPlane()->IsAllZero());

    // Back in compose mode the compose log comes back.
    m_frame->OnCommand(cmd::kCancelReturn);
    ASSERT_FALSE(m_frame->IsSelectionMode());
    ASSERT_EQ(list->count(), compose.GetCount());
    char label[33] = {};
    std::memcpy(label, compose.GetRecord(0)->label, 32);
    EXPECT_EQ(list->item(0)->text(), HistoryLabelText(label));
}

TEST_F(InoutPage, TheBackgroundButtonsAndTheMenuAgree)
{
    OpenSynthetic(200, 160);
    CBackgroundBar& buttons = *m_frame->BackgroundBar();
    EXPECT_FALSE(buttons.isVisible());
    EnterSelectionMode();
    DrawOuter();
    DrawInner();
    EXPECT_FALSE(buttons.isVisible()); // nothing to see behind the opaque working copy yet
    m_frame->OnCommand(cmd::kBuildSelection);
    ASSERT_FALSE(Sel().GetResultMask()->IsNull());
    ASSERT_TRUE(buttons.isVisible());

    // The menu's checked item and the pressed button are the display mode, whichever way it was chosen.
    auto agree = [&](int mode) {
        EXPECT_EQ(Sel().GetDisplayMode(), mode);
        for (int id : {cmd::kBackColour, cmd::kBackChecker, cmd::kBackPicture, cmd::kBackMask, cmd::kBackOriginal}) {
            QAction* item = m_frame->Action(id);
            EXPECT_EQ(item && item->isChecked(), BackgroundModeOf(id) == mode) << id;
        }
        for (int m = 1; m <= 4; ++m)
            EXPECT_EQ(buttons.ModeButton(m)->isChecked(), m == mode) << m;
    };
    agree(kShowChecker);
    Shot(m_frame, "background-buttons.png");
    QTest::mouseClick(buttons.ModeButton(kShowMask), Qt::LeftButton);
    agree(kShowMask);
    m_frame->Action(cmd::kBackChecker)->trigger();
    agree(kShowChecker);
    QTest::mouseClick(buttons.ModeButton(kShowChecker), Qt::LeftButton); // pressing the pressed one keeps it
    agree(kShowChecker);
    m_frame->Action(cmd::kBackOriginal)->trigger();
    agree(kShowSource);

    // Plain colour: the button takes the colour as it stands (the profile's gray), the helper asks for one.
    QTest::mouseClick(buttons.ModeButton(kShowColour), Qt::LeftButton);
    agree(kShowColour);
    EXPECT_EQ(Sel().GetBackgroundColour(), 0xFF808080u);
    buttons.chooseColour = [](const QColor&, QWidget*) { return QColor(10, 20, 30); };
    m_frame->Action(cmd::kBackMask)->trigger();
    QTest::mouseClick(buttons.ColourHelper(), Qt::LeftButton);
    agree(kShowColour);
    EXPECT_EQ(Sel().GetBackgroundColour(), 0xFF0A141Eu);
    buttons.chooseColour = [](const QColor&, QWidget*) { return QColor(); }; // cancelled
    QTest::mouseClick(buttons.ColourHelper(), Qt::LeftButton);
    EXPECT_EQ(Sel().GetBackgroundColour(), 0xFF0A141Eu);

    // The picture button without a picture asks for one; a cancelled dialog changes nothing.
    QTest::mouseClick(buttons.ModeButton(kShowPicture), Qt::LeftButton);
    agree(kShowColour);
    m_services.openPaths.push_back(SavePicture(m_dir.File("back.png"), Solid(30, 20, CPixel::Make(200, 10, 10, 255))));
    QTest::mouseClick(buttons.ModeButton(kShowPicture), Qt::LeftButton);
    agree(kShowPicture);
    EXPECT_EQ(Sel().GetBackgroundPicture()->GetWidth(), 30u);

    // The checkerboard helper switches light and dark.
    const int style = Sel().GetCheckerStyle();
    QTest::mouseClick(buttons.CheckerHelper(), Qt::LeftButton);
    EXPECT_EQ(Sel().GetCheckerStyle(), style ? 0 : 1);

    // "Original" shows the source only while held.
    QTest::mousePress(buttons.OriginalButton(), Qt::LeftButton);
    EXPECT_EQ(Sel().GetDisplayMode(), kShowSource);
    EXPECT_TRUE(buttons.ModeButton(kShowPicture)->isChecked());
    QTest::mouseRelease(buttons.OriginalButton(), Qt::LeftButton);
    agree(kShowPicture);

    // Undo takes the result away, and the buttons with it.
    m_frame->OnCommand(cmd::kUndo);
    ASSERT_TRUE(Sel().GetResultMask()->IsNull());
    EXPECT_FALSE(buttons.isVisible());
}

TEST_F(InoutPage, ScreenshotOfThePageWithBothContours)
{
    OutlineTheCup();
    Manager().SetCurrentTool(nullptr);
    m_frame->UpdateBars();
    EXPECT_TRUE(Page().isVisible());
    EXPECT_TRUE(Page().OptimiseButton()->isEnabled());
    EXPECT_TRUE(Page().ShowInnerBox()->isChecked());
    EXPECT_TRUE(Page().ShowOuterBox()->isChecked());
    Shot(m_frame, "inout-page.png");
}
