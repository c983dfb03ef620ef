#include <QTest>
#include <gtest/gtest.h>

#include "gui_support.h"
#include "shell/main_frame.h"
#include "shell/menu_table.h"
#include "shell/panels.h"
#include "shell/selection_mode.h"
#include "shell/side_bar.h"
#include "shell/tab_blue_matting.h"
#include "shell/tab_inout.h"

using namespace vmtest;

namespace {

class SideBarInFrame : public FrameTest {
protected:
    // Tall enough for the three pages of compose mode to stand open.
    void SetUp() override { StartFrame(1000, 820); }

    CWorkArea& Area() { return *m_frame->WorkArea(); }
    CSideBar& Bar() { return *Area().SideBar(); }
    QWidget* Layers() { return m_frame->LayersPanel(); }
    QWidget* History() { return m_frame->HistoryPanel(); }
    // The canvas with its rulers: the part of the work area between the tool bar and the hide button.
    QWidget* Canvas() { return m_frame->View()->parentWidget(); }

    void Click(QWidget* w) { QTest::mouseClick(w, Qt::LeftButton, Qt::NoModifier, QPoint(w->width() / 2, 10)); }
};

} // namespace

TEST_F(SideBarInFrame, AClickOnATitleFoldsThePageAndThePagesBelowMoveUp)
{
    OpenPicture(Gradient(160, 120));
    ASSERT_TRUE(Layers()->isVisible());
    ASSERT_TRUE(History()->isVisible());
    CSideBarTitle* layersTitle = Bar().TitleOf(Layers());
    CSideBarTitle* historyTitle = Bar().TitleOf(History());
    ASSERT_NE(layersTitle, nullptr);
    EXPECT_EQ(layersTitle->Title(), QStringLiteral("Layers"));
    // Title bars 20 high, one pixel in from the bar's edges; the body one pixel under its title.
    EXPECT_EQ(layersTitle->geometry(), QRect(1, 1, Bar().width() - 2, 20));
    EXPECT_EQ(Layers()->y(), 22);
    const int historyTop = historyTitle->y();
    const int layersHeight = Layers()->height();
    const QPoint historyBody = History()->pos();

    Click(layersTitle);
    EXPECT_FALSE(Bar().IsPageOpen(Layers()));
    EXPECT_FALSE(Layers()->isVisible());
    EXPECT_TRUE(layersTitle->isVisible());
    EXPECT_FALSE(layersTitle->IsOpen());
    // The history page moved up by the layers' body and its gap.
    EXPECT_EQ(historyTitle->y(), historyTop - layersHeight - 4);
    EXPECT_EQ(History()->pos(), historyBody - QPoint(0, layersHeight + 4));
    EXPECT_TRUE(History()->isVisible());

    // A press on the title released outside it changes nothing.
    QTest::mousePress(layersTitle, Qt::LeftButton, Qt::NoModifier, QPoint(30, 10));
    QTest::mouseRelease(layersTitle, Qt::LeftButton, Qt::NoModifier, QPoint(30, 40));
    EXPECT_FALSE(Bar().IsPageOpen(Layers()));

    // A second click brings the page back where it was.
    Click(layersTitle);
    EXPECT_TRUE(Layers()->isVisible());
    EXPECT_EQ(historyTitle->y(), historyTop);
    EXPECT_EQ(History()->pos(), historyBody);
}

TEST_F(SideBarInFrame, TheHideButtonGivesTheCanvasTheBarsRoomAndTheStripSizesTheBar)
{
    OpenPicture(Gradient(160, 120));
    ASSERT_TRUE(Bar().isVisible());
    const int barWidth = Area().BarWidth();
    EXPECT_EQ(barWidth, 200);
    EXPECT_EQ(Bar().width(), barWidth);
    const int canvasWidth = Canvas()->width();
    CHideBarButton* hide = Area().HideButton();
    EXPECT_EQ(hide->size(), QSize(8, 64));
    EXPECT_EQ(hide->toolTip(), QString::fromStdString(GetString("hideview")));

    hide->click();
    EXPECT_FALSE(Bar().isVisible());
    EXPECT_FALSE(Area().IsBarOpen());
    EXPECT_EQ(Canvas()->width(), canvasWidth + barWidth);
    EXPECT_EQ(Area().Strip()->x(), Area().width() - 8);

    hide->click();
    EXPECT_TRUE(Bar().isVisible());
    EXPECT_EQ(Canvas()->width(), canvasWidth);

    // Dragging the strip left widens the bar by as much (width = right - x - 4), up to 300.
    QWidget* strip = Area().Strip();
    const int stripX = strip->x();
    QTest::mousePress(strip, Qt::LeftButton, Qt::NoModifier, QPoint(4, 20));
    QTest::mouseMove(strip, QPoint(4 - 40, 20));
    EXPECT_EQ(Area().BarWidth(), Area().width() - (stripX - 36) - 4);
    QTest::mouseMove(strip, QPoint(-500, 20));
    EXPECT_EQ(Area().BarWidth(), 300);
    QTest::mouseRelease(strip, Qt::LeftButton, Qt::NoModifier, QPoint(-500, 20));
    EXPECT_EQ(Bar().width(), 300);
    EXPECT_EQ(Canvas()->width(), canvasWidth - 100);

    // Narrower than the widest page's need it does not go.
    QWidget* movedStrip = Area().Strip();
    QTest::mousePress(movedStrip, Qt::LeftButton, Qt::NoModifier, QPoint(4, 20));
    QTest::mouseMove(movedStrip, QPoint(4 + 250, 20));
    QTest::mouseRelease(movedStrip, Qt::LeftButton, Qt::NoModifier, QPoint(4 + 250, 20));
    EXPECT_EQ(Area().BarWidth(), Bar().GetMinWidth());
    EXPECT_EQ(Bar().GetMinWidth(), 200);
}

TEST_F(SideBarInFrame, SelectionModeHidesTheLayersAndGivesTheBarBackAsItWas)
{
    OpenPicture(Gradient(160, 120));
    // The user folds the help page (the third) before entering the mode.
    ASSERT_EQ(Bar().PageCount(), 5);
    auto* helpTitle = Bar().findChild<CSideBarTitle*>(QStringLiteral("sidebartitle2"));
    ASSERT_NE(helpTitle, nullptr);
    EXPECT_EQ(helpTitle->Title(), QStringLiteral("Help"));
    Click(helpTitle);
    ASSERT_EQ(Bar().Pages()[2].open, 0);
    QWidget* inout = m_frame->InoutPage();
    EXPECT_FALSE(Bar().IsPageVisible(inout));

    ASSERT_TRUE(selmode::Toggle(m_frame, *m_frame->ToolBar(), m_services));
    ASSERT_TRUE(m_frame->IsSelectionMode());
    EXPECT_FALSE(Bar().IsPageVisible(Layers()));
    EXPECT_FALSE(Layers()->isVisible());
    EXPECT_FALSE(Bar().TitleOf(Layers())->isVisible());
    EXPECT_TRUE(History()->isVisible());
    // History now stands first.
    EXPECT_EQ(Bar().TitleOf(History())->y(), 1);
    EXPECT_TRUE(inout->isVisible());
    EXPECT_EQ(Bar().TitleOf(inout)->Title(), QString::fromStdString(GetString("algorithm")));
    EXPECT_FALSE(m_frame->BlueTab()->isVisible());

    // Folding in the mode is forgotten when it ends.
    Click(Bar().TitleOf(History()));
    EXPECT_FALSE(History()->isVisible());

    ASSERT_TRUE(selmode::Toggle(m_frame, *m_frame->ToolBar(), m_services));
    ASSERT_FALSE(m_frame->IsSelectionMode());
    EXPECT_TRUE(Layers()->isVisible());
    EXPECT_TRUE(History()->isVisible());
    EXPECT_FALSE(inout->isVisible());
    EXPECT_FALSE(Bar().TitleOf(inout)->isVisible());
    EXPECT_EQ(Bar().TitleOf(Layers())->y(), 1);
    EXPECT_EQ(Bar().Pages()[2].open, 0);
    EXPECT_FALSE(helpTitle->IsOpen());
}

TEST_F(SideBarInFrame, ScreenshotOfComposeModeWithAFoldedPage)
{
    // The coffee photo with the cat on a layer above it, moved, a little transparent and named; the history page
    // folded, so that the help page moves up under the layers.
    Open(AssetPath("samples/coffee.png"));
    m_services.openPaths.push_back(AssetPath("samples/chelsea.png"));
    m_frame->OnCommand(cmd::kOpenLayer);
    ASSERT_EQ(m_app.Document().GetLayerCount(), 2);
    for (const char* command : {"Doc_LayerPropertyChange('1','0','250,150')", "Doc_LayerPropertyChange('1','3','235')",
                                "Doc_LayerPropertyChange('1','2','Cat')", "Doc_LayerPropertyChange('0','2','Coffee')"})
        ASSERT_EQ(m_frame->RunCommand(command), 0) << command;
    Click(Bar().TitleOf(History()));
    ASSERT_FALSE(History()->isVisible());
    // The help page's title follows the folded history title at once.
    auto* helpTitle = Bar().findChild<CSideBarTitle*>(QStringLiteral("sidebartitle2"));
    ASSERT_NE(helpTitle, nullptr);
    EXPECT_EQ(helpTitle->y(), Bar().TitleOf(History())->y() + 20);
    Shot(m_frame, "compose.png");
}
