#pragma once

#include <QAbstractButton>
#include <QImage>
#include <QWidget>
#include <vector>

#include "shell/side_bar_layout.h"
#include "shell/skin.h"

// The title bar of one side-bar page: the skin's "bar.png" stretched, a 16 x 16 glyph at (4, 2) that shows
// whether the page is open, and the title. A press and release inside it toggles the page.
class CSideBarTitle : public QWidget {
    Q_OBJECT
public:
    CSideBarTitle(int index, QWidget* parent);
    void SetTitle(const QString& title);
    void SetOpen(bool open);
    const QString& Title() const { return m_title; }
    bool IsOpen() const { return m_open; }

Q_SIGNALS:
    void Clicked(int index);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    int m_index;
    QString m_title;
    bool m_open = true;
    bool m_pressed = false;
};

// The right side of the window: pages stacked under their title bars. A click on a title folds the page to its
// title or opens it again; when the bar is too short for every open page, pages are folded (never the one just
// clicked) and what still overflows is taken from the bodies (side_bar_layout.h has the arithmetic). Pages of the
// other mode are hidden with their titles. The pages are the callers'; the bar only places and shows them.
class CSideBar : public QWidget {
    Q_OBJECT
public:
    // Title bars the bar makes; AddPage refuses more pages.
    static constexpr int kMaxPages = 16;

    explicit CSideBar(QWidget* parent);

    // Adds page (made a child of the bar) below the others, open, with its title. minimum is the room the page
    // needs; an empty size takes the page's own minimum size. flag is kept with the page for its owner. A page
    // whose title is "选区" or "Selection" starts hidden. Returns the page's index, -1 when the bar is full.
    int AddPage(QWidget* page, const QString& title, int flag = 0, QSize minimum = QSize());

    // Shows or hides a page with its title bar. A page shown, or opened, here is kept open by the layout that
    // follows: the program asked for it, so another page folds if room is short.
    void SetPageVisible(QWidget* page, bool visible);
    // Opens or folds a visible page whose state differs; anything else is left alone.
    void SetPageOpen(QWidget* page, bool open);
    // What a click on the page's title does.
    void TogglePage(QWidget* page);

    // Remembers every page's state, and puts it back (selection mode changes the pages and gives them back).
    void SaveLayout();
    void RestoreLayout();

    // Fits the pages to the bar's height, keeping page index keep (-1: none) open; then places the windows.
    void Layout(int keep);
    void Arrange();

    // The narrowest the bar may be dragged: what its widest visible page needs.
    virtual int GetMinWidth() const;

    int PageCount() const { return int(m_records.size()); }
    int IndexOf(const QWidget* page) const;
    bool IsPageVisible(const QWidget* page) const;
    bool IsPageOpen(const QWidget* page) const;
    CSideBarTitle* TitleOf(const QWidget* page) const;
    const std::vector<SideBarPage>& Pages() const { return m_pages; }

protected:
    void resizeEvent(QResizeEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    struct Record {
        QWidget* page = nullptr; // not owned
        int flag = 0;
        CSideBarTitle* title = nullptr;
    };

    void OnTitleClicked(int index);

    std::vector<Record> m_records;
    std::vector<SideBarPage> m_pages; // the layout's view of the same pages, index for index
    std::vector<SideBarPage> m_saved; // the saved set
    int m_lastOpened = -1;            // the page last opened by a click or the program: a resize keeps it open
    CSkin m_skin;
};

// The 8 x 64 button between canvas and side bar that hides and shows the bar: an arrow that points the way the
// bar will go.
class CHideBarButton : public QAbstractButton {
    Q_OBJECT
public:
    explicit CHideBarButton(QWidget* parent);
    void SetBarOpen(bool open);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool m_barOpen = true;
    QImage m_hide, m_show;
    CSkin m_skin;
};

class CWorkArea;

// The column of the hide button. Dragging it sizes the side bar; it is painted in the skin's colour, with the
// bar's frame line at its right edge while the bar is open.
class CBarStrip : public QWidget {
    Q_OBJECT
public:
    CBarStrip(CWorkArea& area, QWidget* parent);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    CWorkArea& m_area;
    CSkin m_skin;
};

// The frame's central area: the tool bar at the left (while a document is open), the canvas, the hide button in
// its strip, and the side bar at the right, 200 pixels wide at start.
class CWorkArea : public QWidget {
    Q_OBJECT
public:
    explicit CWorkArea(QWidget* parent);

    // The left tool bar and the canvas (with whatever surrounds it); the area places them. The tool bar takes its
    // room only while it is shown.
    void SetParts(QWidget* toolBar, QWidget* canvas);

    CSideBar* SideBar() const { return m_pSideBar; }
    CHideBarButton* HideButton() const { return m_pHideButton; }
    QWidget* Strip() const { return m_pStrip; }
    bool IsBarOpen() const { return m_barOpen != 0; }
    int BarWidth() const { return m_barWidth; }

    // The hide button's work: the side bar goes or comes back.
    void OnToggleBar();
    // Places every part for the current size and state.
    void Relayout();
    // The bar's width, held between the widest page's need and 300.
    void SetBarWidth(int width);

    // The strip's drag, in the area's coordinates.
    void BeginSizing();
    void SizeTo(int x);
    void EndSizing();
    bool IsSizing() const { return m_sizing != 0; }

protected:
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    CHideBarButton* m_pHideButton;
    uint32_t m_barOpen = 1;
    int32_t m_barWidth = kStartBarWidth;
    uint32_t m_sizing = 0;
    CSideBar* m_pSideBar;
    CBarStrip* m_pStrip;
    QWidget* m_pToolBar = nullptr;
    QWidget* m_pCanvas = nullptr;
};
