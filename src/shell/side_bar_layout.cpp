#include "shell/side_bar_layout.h"

#include <algorithm>

namespace {

bool TakesRoom(const SideBarPage& page)
{
    return page.visible && page.open;
}

} // namespace

CRect TitleRect(const std::vector<SideBarPage>& pages, int index, int clientWidth)
{
    int top = 1;
    const int end = std::clamp(index, 0, int(pages.size()));
    for (int i = 0; i < end; ++i) {
        if (!pages[size_t(i)].visible) continue;
        top += kTitleBarHeight;
        if (pages[size_t(i)].open) top += pages[size_t(i)].height + kPageGap;
    }
    return {1, top, clientWidth - 1, top + kTitleBarHeight};
}

CRect BodyRect(const std::vector<SideBarPage>& pages, int index, int clientWidth)
{
    const CRect title = TitleRect(pages, index, clientWidth);
    const int height = index >= 0 && index < int(pages.size()) ? pages[size_t(index)].height : 0;
    return {title.left, title.bottom + 1, title.right, title.bottom + 1 + std::max(0, height)};
}

void LayoutPages(std::vector<SideBarPage>& pages, int keep, int clientHeight)
{
    const int count = int(pages.size());
    if (TitleRect(pages, count, 0).top < clientHeight) return;

    // Fold pages until the titles and the smallest bodies of the pages left open fit. Every page's title counts
    // here, the hidden ones' too: the estimate keeps room for the pages of the other mode.
    for (;;) {
        int need = count * kTitleBarHeight;
        int noted = -1;
        for (int i = 0; i < count; ++i) {
            const SideBarPage& page = pages[size_t(i)];
            if (i == keep || !TakesRoom(page)) continue;
            need += page.minHeight + kPageGap;
            if (noted < 0 || page.minHeight < pages[size_t(noted)].minHeight) noted = i;
        }
        if (need <= clientHeight || noted < 0) break;
        pages[size_t(noted)].open = 0;
        pages[size_t(noted)].folded = 1;
    }

    // What still overflows comes out of the open bodies, in equal shares. Only pages that take room share it:
    // shrinking a hidden page would not bring the bottom up.
    const int excess = TitleRect(pages, count, 0).top - clientHeight;
    const int open = int(std::count_if(pages.begin(), pages.end(), TakesRoom));
    if (open <= 0) return;
    const int share = excess / open;
    if (share <= 0) return;
    for (SideBarPage& page : pages)
        if (TakesRoom(page)) page.height = std::max(0, page.height - (share + 1));
}

void RegainRoom(std::vector<SideBarPage>& pages)
{
    for (SideBarPage& page : pages) {
        if (page.folded) page.open = 1;
        page.folded = 0;
        page.height = page.minHeight;
    }
}

int MinBarWidth(const std::vector<SideBarPage>& pages)
{
    int width = 0;
    for (const SideBarPage& page : pages)
        if (page.visible) width = std::max(width, page.minWidth);
    return width;
}

std::vector<PagePlacement> ArrangePages(const std::vector<SideBarPage>& pages, int clientWidth, int clientHeight)
{
    std::vector<PagePlacement> placed(pages.size());
    int last = -1;
    for (int i = 0; i < int(pages.size()); ++i) {
        const SideBarPage& page = pages[size_t(i)];
        PagePlacement& p = placed[size_t(i)];
        if (!page.visible) continue;
        last = i;
        p.titleShown = true;
        p.title = TitleRect(pages, i, clientWidth);
        if (page.open) {
            p.bodyShown = true;
            p.body = BodyRect(pages, i, clientWidth);
        }
    }
    if (last >= 0 && placed[size_t(last)].bodyShown) {
        CRect& body = placed[size_t(last)].body;
        body.bottom = std::max(body.bottom, clientHeight - 1);
    }
    return placed;
}

int ClampBarWidth(int width, int minWidth)
{
    // The lower bound first: a page wider than the largest bar still gets no more than 300.
    return std::min(std::max(width, minWidth), kMaxBarWidth);
}

BarState DragBar(const BarState& bar, int clientWidth, int x, int minWidth)
{
    const int wanted = clientWidth - x - 4;
    if (!bar.open && wanted < kMinDragOpenWidth) return bar;
    return {true, ClampBarWidth(wanted, minWidth)};
}

WorkAreaPlacement LayoutWorkArea(int clientWidth, int clientHeight, bool toolBarShown, const BarState& bar)
{
    WorkAreaPlacement p;
    const int w = clientWidth, h = clientHeight;
    p.toolBarShown = toolBarShown;
    const int canvasLeft = toolBarShown ? kToolBarWidth : 0;
    if (toolBarShown) p.toolBar = {0, 0, kToolBarWidth, h};
    p.sideBarShown = bar.open;
    const int stripLeft = bar.open ? w - bar.width - kHideButtonWidth : w - kHideButtonWidth;
    if (bar.open) p.sideBar = {w - bar.width, 0, w, h};
    p.strip = {stripLeft, 0, stripLeft + kHideButtonWidth, h};
    const int buttonTop = h / 2 - kHideButtonHeight / 2;
    p.hideButton = {stripLeft, buttonTop, stripLeft + kHideButtonWidth, buttonTop + kHideButtonHeight};
    p.canvas = {canvasLeft, 0, std::max(canvasLeft, stripLeft), h};
    return p;
}
