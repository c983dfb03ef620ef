#include <gtest/gtest.h>

#include "shell/side_bar_layout.h"

namespace {

SideBarPage Page(int minHeight, int open = 1, int visible = 1, int minWidth = 160)
{
    SideBarPage p;
    p.open = open;
    p.visible = visible;
    p.minWidth = minWidth;
    p.minHeight = minHeight;
    p.height = minHeight;
    return p;
}

// One field of every page, in order: which are open and how high they are is what the layout decides.
std::vector<int> Field(const std::vector<SideBarPage>& pages, int SideBarPage::*field)
{
    std::vector<int> values;
    for (const SideBarPage& p : pages)
        values.push_back(p.*field);
    return values;
}

} // namespace

TEST(SideBarLayout, TitlesStackOverTheVisiblePagesOnly)
{
    // An open page of 100, a hidden one, a folded one, an open one of 50.
    const std::vector<SideBarPage> pages = {Page(100), Page(300, 1, 0), Page(80, 0), Page(50)};
    EXPECT_EQ(TitleRect(pages, 0, 200), (CRect{1, 1, 199, 21}));
    EXPECT_EQ(TitleRect(pages, 1, 200).top, 1 + 20 + 100 + 4);
    EXPECT_EQ(TitleRect(pages, 2, 200).top, 125); // the hidden page takes no room
    EXPECT_EQ(TitleRect(pages, 3, 200).top, 145); // the folded one only its title
    EXPECT_EQ(TitleRect(pages, 4, 200).top, 145 + 20 + 50 + 4);
    // The body stands one pixel under its title.
    EXPECT_EQ(BodyRect(pages, 0, 200), (CRect{1, 22, 199, 122}));
    EXPECT_EQ(BodyRect(pages, 3, 200), (CRect{1, 166, 199, 216}));
}

TEST(SideBarLayout, PagesThatFitAreLeftAlone)
{
    std::vector<SideBarPage> pages = {Page(198), Page(200), Page(199)};
    // The place under the last page: 1 + 3 * 20 + 198 + 200 + 199 + 3 * 4 = 670.
    ASSERT_EQ(TitleRect(pages, 3, 200).top, 670);
    LayoutPages(pages, -1, 671);
    EXPECT_EQ(Field(pages, &SideBarPage::open), (std::vector<int>{1, 1, 1}));
    EXPECT_EQ(Field(pages, &SideBarPage::height), (std::vector<int>{198, 200, 199}));
}

TEST(SideBarLayout, TheSmallestPageFoldsFirstButNeverTheKeptOne)
{
    // Layers 198, history 200, help 199 and the two hidden method pages of a 620-pixel bar. The estimate counts all
    // five titles: 100 + 202 + 204 + 203 = 709 does not fit, the layers page (smallest) folds; 507 fits.
    std::vector<SideBarPage> pages = {Page(198), Page(200), Page(199), Page(90, 1, 0), Page(120, 1, 0)};
    LayoutPages(pages, -1, 620);
    EXPECT_EQ(Field(pages, &SideBarPage::open), (std::vector<int>{0, 1, 1, 1, 1}));
    EXPECT_EQ(pages[0].folded, 1);
    // Nothing overflows any more: the heights stay.
    EXPECT_EQ(Field(pages, &SideBarPage::height), (std::vector<int>{198, 200, 199, 90, 120}));

    // The user opens the layers page again. The estimate leaves the kept page's body out (100 + 204 + 203 fits),
    // so nothing folds; the overflow of 670 - 620 = 50 is shared by the three open pages: 16, plus one each.
    pages[0].open = 1;
    pages[0].folded = 0;
    LayoutPages(pages, 0, 620);
    EXPECT_EQ(Field(pages, &SideBarPage::open), (std::vector<int>{1, 1, 1, 1, 1}));
    EXPECT_EQ(Field(pages, &SideBarPage::height), (std::vector<int>{181, 183, 182, 90, 120}));
    EXPECT_LT(TitleRect(pages, 5, 200).top, 620);

    // Of equal minimum heights the first folds, unless it is the page just clicked: then the next one does.
    std::vector<SideBarPage> equal = {Page(150), Page(150), Page(150)};
    LayoutPages(equal, -1, 400);
    EXPECT_EQ(Field(equal, &SideBarPage::open), (std::vector<int>{0, 1, 1}));
    std::vector<SideBarPage> clicked = {Page(150), Page(150), Page(150), Page(150)};
    LayoutPages(clicked, 0, 400);
    EXPECT_EQ(Field(clicked, &SideBarPage::open), (std::vector<int>{1, 0, 1, 1}));
    // 80 + 3 * 154 = 542 did not fit, 388 does; the place 543 is 143 too low: 47 a page, plus one.
    EXPECT_EQ(Field(clicked, &SideBarPage::height), (std::vector<int>{102, 150, 102, 102}));
}

TEST(SideBarLayout, APageTooTallForTheBarFoldsOrIfKeptIsShortened)
{
    // 20 + 504 does not fit 300: a page nobody asked for folds.
    std::vector<SideBarPage> pages = {Page(500)};
    LayoutPages(pages, -1, 300);
    EXPECT_EQ(pages[0].open, 0);
    EXPECT_EQ(pages[0].height, 500);

    // The page just opened is not folded: the overflow comes out of its height. Place under it:
    // 1 + 20 + 500 + 4 = 525 against 300; excess 225, one open page, share 225, the height loses 226.
    pages[0].open = 1;
    LayoutPages(pages, 0, 300);
    EXPECT_EQ(pages[0].open, 1);
    EXPECT_EQ(pages[0].height, 274);
    EXPECT_LT(TitleRect(pages, 1, 200).top, 300);

    // The estimate leaves the kept page's own body out: a 600-pixel page kept in a 400-pixel bar with two pages of
    // 100 gives 3 * 20 + 104 + 104 = 268, which fits, so nothing folds; the excess
    // 1 + 60 + 604 + 104 + 104 - 400 = 473 is shared by three, 157 each, and every page loses 158, down to 0 at most.
    std::vector<SideBarPage> kept = {Page(100), Page(600), Page(100)};
    LayoutPages(kept, 1, 400);
    EXPECT_EQ(Field(kept, &SideBarPage::open), (std::vector<int>{1, 1, 1}));
    EXPECT_EQ(Field(kept, &SideBarPage::height), (std::vector<int>{0, 442, 0}));
}

TEST(SideBarLayout, ShareTruncatesAndHiddenPagesKeepTheirHeight)
{
    // Two open pages of 100 and a hidden one in a bar of 230: place 1 + 40 + 208 = 249, excess 19, share 9, each
    // open visible page loses 10; the hidden page keeps its height and is never folded.
    std::vector<SideBarPage> pages = {Page(100), Page(100, 1, 0), Page(100)};
    LayoutPages(pages, 0, 230);
    EXPECT_EQ(Field(pages, &SideBarPage::open), (std::vector<int>{1, 1, 1}));
    EXPECT_EQ(Field(pages, &SideBarPage::height), (std::vector<int>{90, 100, 90}));

    // An excess smaller than the number of open pages gives a share of 0: nothing changes.
    std::vector<SideBarPage> tight = {Page(100), Page(100)};
    LayoutPages(tight, 0, 249 - 1);
    EXPECT_EQ(Field(tight, &SideBarPage::height), (std::vector<int>{100, 100}));
}

TEST(SideBarLayout, RoomGivenBackOpensWhatTheLayoutFolded)
{
    std::vector<SideBarPage> pages = {Page(198), Page(200), Page(199)};
    pages[1].open = 0; // folded by the user
    LayoutPages(pages, -1, 300);
    ASSERT_EQ(Field(pages, &SideBarPage::open), (std::vector<int>{0, 0, 1}));
    RegainRoom(pages);
    EXPECT_EQ(Field(pages, &SideBarPage::open), (std::vector<int>{1, 0, 1}));
    EXPECT_EQ(Field(pages, &SideBarPage::height), (std::vector<int>{198, 200, 199}));
    EXPECT_EQ(pages[0].folded, 0);
}

TEST(SideBarLayout, ArrangementShowsTitlesAndBodiesOfVisiblePages)
{
    const std::vector<SideBarPage> pages = {Page(100), Page(300, 1, 0), Page(80, 0), Page(50)};
    const std::vector<PagePlacement> placed = ArrangePages(pages, 200, 600);
    ASSERT_EQ(placed.size(), 4u);
    EXPECT_TRUE(placed[0].titleShown && placed[0].bodyShown);
    EXPECT_FALSE(placed[1].titleShown || placed[1].bodyShown);
    EXPECT_TRUE(placed[2].titleShown);
    EXPECT_FALSE(placed[2].bodyShown);
    EXPECT_EQ(placed[0].body, BodyRect(pages, 0, 200));
    // The last page's body reaches down to the bar's bottom, less a pixel.
    EXPECT_EQ(placed[3].body, (CRect{1, 166, 199, 599}));

    // Without room below, the last body keeps its height; a folded last page gets no body.
    EXPECT_EQ(ArrangePages(pages, 200, 100)[3].body, BodyRect(pages, 3, 200));
    const std::vector<SideBarPage> folded = {Page(100), Page(50, 0)};
    EXPECT_FALSE(ArrangePages(folded, 200, 600)[1].bodyShown);
    EXPECT_EQ(ArrangePages(folded, 200, 600)[0].body, BodyRect(folded, 0, 200));
}

TEST(SideBarLayout, DraggingTheStripSizesTheBar)
{
    const int client = 1000;
    // The width asked for is client - x - 4, held between the minimum and 300.
    EXPECT_EQ(DragBar({true, 200}, client, 746, 160), (BarState{true, 250}));
    EXPECT_EQ(DragBar({true, 200}, client, 900, 160), (BarState{true, 160}));
    EXPECT_EQ(DragBar({true, 200}, client, 100, 160), (BarState{true, 300}));
    // A page wider than 300 still gets 300: the upper bound is applied last.
    EXPECT_EQ(DragBar({true, 200}, client, 500, 320), (BarState{true, 300}));

    // A closed bar stays closed below 11 pixels, and opens at 11, at its minimum width at least.
    EXPECT_EQ(DragBar({false, 230}, client, client - 4 - 10, 160), (BarState{false, 230}));
    EXPECT_EQ(DragBar({false, 230}, client, client - 4 - 11, 160), (BarState{true, 160}));
    EXPECT_EQ(DragBar({false, 230}, client, client - 4 - 180, 160), (BarState{true, 180}));

    EXPECT_EQ(ClampBarWidth(100, 200), 200);
    EXPECT_EQ(ClampBarWidth(400, 200), 300);
}

TEST(SideBarLayout, WorkAreaSharesItsWidth)
{
    // Tool bar shown, bar open at 200 in a 1000 x 601 area.
    WorkAreaPlacement p = LayoutWorkArea(1000, 601, true, {true, 200});
    EXPECT_EQ(p.toolBar, (CRect{0, 0, 70, 601}));
    EXPECT_EQ(p.sideBar, (CRect{800, 0, 1000, 601}));
    EXPECT_EQ(p.hideButton, (CRect{792, 300 - 32, 800, 300 + 32}));
    EXPECT_EQ(p.strip, (CRect{792, 0, 800, 601}));
    EXPECT_EQ(p.canvas, (CRect{70, 0, 792, 601}));
    EXPECT_TRUE(p.sideBarShown);

    // Bar closed, no document (no tool bar): the canvas starts at 0 and ends at the button's strip at the edge.
    p = LayoutWorkArea(1000, 600, false, {false, 200});
    EXPECT_FALSE(p.toolBarShown);
    EXPECT_FALSE(p.sideBarShown);
    EXPECT_EQ(p.hideButton, (CRect{992, 268, 1000, 332}));
    EXPECT_EQ(p.canvas, (CRect{0, 0, 992, 600}));

    // A window narrower than its bars leaves the canvas empty, never inverted.
    p = LayoutWorkArea(250, 300, true, {true, 200});
    EXPECT_EQ(p.canvas.left, 70);
    EXPECT_EQ(p.canvas.right, 70);
}
