#pragma once

#include <vector>

#include "imaging/rect.h"

// The arithmetic of the window's right side, without a window: where the side bar's title bars and page bodies
// stand, which pages fold when the bar is too short for all of them, how far the bar may be dragged, and how the
// work area shares its width between the tool bar, the canvas, the hide button and the side bar. CSideBar and
// CWorkArea (side_bar.h) only place widgets where these functions say.

inline constexpr int kTitleBarHeight = 20;   // every page has a title bar of this height
inline constexpr int kPageGap = 4;           // below an open page's body, before the next title
inline constexpr int kToolBarWidth = 70;     // the left tool bar
inline constexpr int kHideButtonWidth = 8;   // the button between canvas and side bar, and its strip
inline constexpr int kHideButtonHeight = 64;
inline constexpr int kStartBarWidth = 200;   // the side bar's width when the program starts
inline constexpr int kMaxBarWidth = 300;     // a drag never makes the bar wider
inline constexpr int kMinDragOpenWidth = 11; // a drag opens a closed bar only from this width on

// One page of the side bar as the layout sees it.
struct SideBarPage {
    int open = 1;      // 1: the body shows; 0: only the title bar
    int visible = 1;   // 0: neither title nor body (a page of the other mode)
    int height = 0;    // the body's height; starts as minHeight, and the layout may make it smaller
    int minWidth = 0;  // what the page needs
    int minHeight = 0;
    int folded = 0;    // 1: folded by the layout for want of room (not by the user)
};

// The title bar of page index (index == pages.size() gives the place below the last page): 1 pixel from the top,
// then for each visible page before it its title and, when open, its body and the gap. 20 high, the client width
// less 1 pixel on each side.
CRect TitleRect(const std::vector<SideBarPage>& pages, int index, int clientWidth);

// The body of page index: 1 pixel below its title bar, the title's width, the page's height.
CRect BodyRect(const std::vector<SideBarPage>& pages, int index, int clientWidth);

// Makes the pages fit a bar of clientHeight. Nothing changes while the place below the last page lies inside the
// bar. Otherwise open pages other than keep (-1: none) are folded, the one with the smallest minimum height first
// (the first of equals), until the titles of all pages and the minimum bodies of the open ones fit; a page folded
// here is marked folded. Whatever still overflows is taken from the visible open pages' heights in equal
// truncated shares (one pixel more each). Heights never go below 0.
void LayoutPages(std::vector<SideBarPage>& pages, int keep, int clientHeight);

// Gives back what the layout took for want of room: pages it folded open again and every body its minimum
// height. A bar that changed its height runs this before LayoutPages, so that room a larger window gives back is
// used again, while the pages the user folded stay folded.
void RegainRoom(std::vector<SideBarPage>& pages);

// The widest minimum width among the visible pages (0 when none is visible).
int MinBarWidth(const std::vector<SideBarPage>& pages);

// Where each page stands once laid out: its title bar and its body; a body is shown only for a visible, open page.
// The last visible page's body, when it is open, reaches down to 1 pixel above the bar's bottom, so that no room is
// left empty under it.
struct PagePlacement {
    bool titleShown = false;
    bool bodyShown = false;
    CRect title;
    CRect body;
};
std::vector<PagePlacement> ArrangePages(const std::vector<SideBarPage>& pages, int clientWidth, int clientHeight);

// The bar's state after the pointer, dragging the strip left of the bar, reached x in the work area whose client
// is clientWidth wide. The width asked for is clientWidth - x - 4. A closed bar opens only when that is at least
// 11; the width is then held to at least minWidth and at most 300.
struct BarState {
    bool open = true;
    int width = kStartBarWidth;
    bool operator==(const BarState&) const = default;
};
BarState DragBar(const BarState& bar, int clientWidth, int x, int minWidth);

// The width the bar takes when set directly: at least minWidth, at most 300.
int ClampBarWidth(int width, int minWidth);

// The work area of clientWidth x clientHeight. The tool bar (when shown) takes the left 70 pixels; the side bar
// (when open) the right barWidth pixels; the hide button stands in an 8-pixel strip left of the side bar, or at the
// right edge when the bar is closed, centred in height; the canvas takes what is between.
struct WorkAreaPlacement {
    bool toolBarShown = false;
    bool sideBarShown = false;
    CRect toolBar;
    CRect canvas;
    CRect strip;      // the column of the hide button: a drag here resizes the bar
    CRect hideButton; // inside the strip
    CRect sideBar;
};
WorkAreaPlacement LayoutWorkArea(int clientWidth, int clientHeight, bool toolBarShown, const BarState& bar);
