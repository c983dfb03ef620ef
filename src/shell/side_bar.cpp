#include "shell/side_bar.h"

#include <QEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>

#include "shell/app_globals.h"

namespace {

QRect ToQRect(const CRect& r)
{
    return QRect(r.left, r.top, std::max(0, r.Width()), std::max(0, r.Height()));
}

// A filled triangle through three points, for glyphs whose picture is missing from the skin.
QImage Triangle(QSize size, QPointF a, QPointF b, QPointF c, QColor colour)
{
    QImage img(size, QImage::Format_ARGB32_Premultiplied);
    img.fill(Qt::transparent);
    QPainter p(&img);
    p.setRenderHint(QPainter::Antialiasing, true);
    QPainterPath path;
    path.moveTo(a);
    path.lineTo(b);
    path.lineTo(c);
    path.closeSubpath();
    p.fillPath(path, colour);
    return img;
}

QImage SkinOr(const char* name, const QImage& fallback)
{
    const QImage img = LoadSkinPicture(name);
    return img.isNull() ? fallback : img;
}

} // namespace

// ---- CSideBarTitle ------------------------------------------------------------------------------------------

namespace {

struct TitlePictures {
    QImage bar, open, closed;
};

const TitlePictures& Pictures()
{
    // Read once the application's skin folder is known; a title drawn before that (no application) uses the
    // drawn glyphs and a plain bar.
    static TitlePictures pictures;
    static bool loaded = false;
    if (!loaded) {
        pictures.bar = LoadSkinPicture("bar.png");
        pictures.open = SkinOr("icons/pageopen.png",
                               Triangle({16, 16}, {3.5, 5.5}, {12.5, 5.5}, {8, 11.5}, Qt::white));
        pictures.closed = SkinOr("icons/pageclosed.png",
                                 Triangle({16, 16}, {5.5, 3.5}, {11.5, 8}, {5.5, 12.5}, Qt::white));
        loaded = AppGlobals() != nullptr;
    }
    return pictures;
}

} // namespace

CSideBarTitle::CSideBarTitle(int index, QWidget* parent) : QWidget(parent), m_index(index)
{
    setObjectName(QStringLiteral("sidebartitle%1").arg(index));
    setCursor(Qt::PointingHandCursor);
    CSkin skin;
    skin.Load();
    QFont f = skin.m_font;
    f.setBold(false);
    setFont(f);
}

void CSideBarTitle::SetTitle(const QString& title)
{
    m_title = title;
    setToolTip(title);
    update();
}

void CSideBarTitle::SetOpen(bool open)
{
    if (open == m_open) return;
    m_open = open;
    update();
}

void CSideBarTitle::paintEvent(QPaintEvent*)
{
    const TitlePictures& pics = Pictures();
    QPainter p(this);
    if (!pics.bar.isNull())
        p.drawImage(rect(), pics.bar);
    else
        p.fillRect(rect(), QColor(0x2F, 0x5F, 0x98));
    p.drawImage(QRect(4, 2, 16, 16), m_open ? pics.open : pics.closed);
    p.setPen(Qt::white);
    p.drawText(rect().adjusted(24, 0, -4, 0), Qt::AlignVCenter | Qt::AlignLeft, m_title);
}

void CSideBarTitle::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) m_pressed = true;
}

void CSideBarTitle::mouseReleaseEvent(QMouseEvent* event)
{
    // A press and a release inside: a release outside after a press inside changes nothing.
    const bool click = m_pressed && event->button() == Qt::LeftButton && rect().contains(event->position().toPoint());
    m_pressed = false;
    if (click) Q_EMIT Clicked(m_index);
}

// ---- CSideBar -----------------------------------------------------------------------------------------------

CSideBar::CSideBar(QWidget* parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("sidebar"));
    m_skin.Load();
}

int CSideBar::AddPage(QWidget* page, const QString& title, int flag, QSize minimum)
{
    if (!page || PageCount() >= kMaxPages || IndexOf(page) >= 0) return -1;
    const int index = PageCount();
    page->setParent(this);
    if (!minimum.isValid() || minimum.isEmpty()) minimum = page->minimumSizeHint().expandedTo(page->minimumSize());
    auto* bar = new CSideBarTitle(index, this);
    bar->SetTitle(title);
    connect(bar, &CSideBarTitle::Clicked, this, &CSideBar::OnTitleClicked);
    m_records.push_back({page, flag, bar});
    SideBarPage record;
    record.minWidth = minimum.width();
    record.minHeight = minimum.height();
    record.height = record.minHeight;
    // The selection's own page belongs to selection mode.
    record.visible = title == QStringLiteral("选区") || title == QStringLiteral("Selection") ? 0 : 1;
    m_pages.push_back(record);
    Layout(-1);
    Arrange();
    return index;
}

int CSideBar::IndexOf(const QWidget* page) const
{
    for (int i = 0; i < PageCount(); ++i)
        if (m_records[size_t(i)].page == page) return i;
    return -1;
}

bool CSideBar::IsPageVisible(const QWidget* page) const
{
    const int i = IndexOf(page);
    return i >= 0 && m_pages[size_t(i)].visible;
}

bool CSideBar::IsPageOpen(const QWidget* page) const
{
    const int i = IndexOf(page);
    return i >= 0 && m_pages[size_t(i)].open;
}

CSideBarTitle* CSideBar::TitleOf(const QWidget* page) const
{
    const int i = IndexOf(page);
    return i >= 0 ? m_records[size_t(i)].title : nullptr;
}

void CSideBar::SetPageVisible(QWidget* page, bool visible)
{
    const int i = IndexOf(page);
    if (i < 0) return;
    m_pages[size_t(i)].visible = visible ? 1 : 0;
    const bool keep = visible && m_pages[size_t(i)].open;
    if (keep) m_lastOpened = i;
    Layout(keep ? i : -1);
    Arrange();
}

void CSideBar::SetPageOpen(QWidget* page, bool open)
{
    const int i = IndexOf(page);
    if (i < 0) return;
    SideBarPage& record = m_pages[size_t(i)];
    const bool change = record.visible && (record.open != 0) != open;
    if (change) {
        record.open = open ? 1 : 0;
        record.folded = 0;
        if (open) m_lastOpened = i;
    }
    Layout(change && open ? i : -1);
    Arrange();
}

void CSideBar::TogglePage(QWidget* page)
{
    const int i = IndexOf(page);
    if (i < 0) return;
    SideBarPage& record = m_pages[size_t(i)];
    record.open = record.open ? 0 : 1;
    record.folded = 0; // the user's choice from now on
    if (record.open) m_lastOpened = i;
    Layout(i);
    Arrange();
}

void CSideBar::OnTitleClicked(int index)
{
    if (index >= 0 && index < PageCount()) TogglePage(m_records[size_t(index)].page);
}

void CSideBar::SaveLayout()
{
    m_saved = m_pages;
}

void CSideBar::RestoreLayout()
{
    if (m_saved.size() != m_pages.size()) return; // nothing saved since the pages changed
    m_pages = m_saved;
    // The bar may have changed its height meanwhile.
    Layout(-1);
    Arrange();
}

void CSideBar::Layout(int keep)
{
    // Before the bar has its size there is nothing to fit into.
    if (!testAttribute(Qt::WA_Resized) && !isVisible()) return;
    LayoutPages(m_pages, keep, height());
}

void CSideBar::Arrange()
{
    const std::vector<PagePlacement> placed = ArrangePages(m_pages, width(), height());
    for (size_t i = 0; i < m_records.size(); ++i) {
        const Record& r = m_records[i];
        const PagePlacement& p = placed[i];
        r.title->SetOpen(m_pages[i].open != 0);
        if (p.titleShown) r.title->setGeometry(ToQRect(p.title));
        r.title->setVisible(p.titleShown);
        if (p.bodyShown) r.page->setGeometry(ToQRect(p.body));
        r.page->setVisible(p.bodyShown);
    }
}

int CSideBar::GetMinWidth() const
{
    return MinBarWidth(m_pages);
}

void CSideBar::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    if (event->size().height() != event->oldSize().height()) {
        // Pages folded for want of room open again when there is room: a window shown small for a moment (as it
        // is while it is being maximised) must not leave them folded.
        RegainRoom(m_pages);
        const bool keep = m_lastOpened >= 0 && m_lastOpened < PageCount() && m_pages[size_t(m_lastOpened)].visible &&
                          m_pages[size_t(m_lastOpened)].open;
        LayoutPages(m_pages, keep ? m_lastOpened : -1, height());
    }
    Arrange();
}

void CSideBar::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.fillRect(rect(), m_skin.m_backColor);
}

// ---- CHideBarButton -----------------------------------------------------------------------------------------

CHideBarButton::CHideBarButton(QWidget* parent) : QAbstractButton(parent)
{
    setObjectName(QStringLiteral("hideview"));
    setToolTip(QString::fromStdString(GetString("hideview")));
    setCursor(Qt::ArrowCursor);
    setFixedSize(kHideButtonWidth, kHideButtonHeight);
    m_skin.Load();
    m_hide = SkinOr("icons/barhide.png", Triangle({8, 16}, {2, 4}, {6, 8}, {2, 12}, QColor(0x40, 0x40, 0x40)));
    m_show = SkinOr("icons/barshow.png", Triangle({8, 16}, {6, 4}, {2, 8}, {6, 12}, QColor(0x40, 0x40, 0x40)));
}

void CHideBarButton::SetBarOpen(bool open)
{
    if (open == m_barOpen) return;
    m_barOpen = open;
    update();
}

void CHideBarButton::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.fillRect(rect(), isDown() ? m_skin.m_backColor : underMouse() ? m_skin.m_lightColor : m_skin.m_backLightColor);
    p.setPen(m_skin.m_backDarkColor);
    p.drawRect(rect().adjusted(0, 0, -1, -1));
    const QImage& glyph = m_barOpen ? m_hide : m_show;
    p.drawImage(QPoint((width() - glyph.width()) / 2, (height() - glyph.height()) / 2), glyph);
}

// ---- CBarStrip ----------------------------------------------------------------------------------------------

CBarStrip::CBarStrip(CWorkArea& area, QWidget* parent) : QWidget(parent), m_area(area)
{
    setObjectName(QStringLiteral("sidebarstrip"));
    setCursor(Qt::SizeHorCursor);
    m_skin.Load();
}

void CBarStrip::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.fillRect(rect(), m_skin.m_backColor);
    // The side bar's frame, one pixel outside it.
    if (m_area.IsBarOpen()) p.fillRect(QRect(width() - 1, 0, 1, height()), m_skin.m_backDarkColor);
}

void CBarStrip::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) m_area.BeginSizing();
}

void CBarStrip::mouseMoveEvent(QMouseEvent* event)
{
    if (m_area.IsSizing()) m_area.SizeTo(mapTo(&m_area, event->position().toPoint()).x());
}

void CBarStrip::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) m_area.EndSizing();
}

// ---- CWorkArea ----------------------------------------------------------------------------------------------

CWorkArea::CWorkArea(QWidget* parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("workarea"));
    m_pSideBar = new CSideBar(this);
    m_pStrip = new CBarStrip(*this, this);
    m_pHideButton = new CHideBarButton(m_pStrip);
    connect(m_pHideButton, &QAbstractButton::clicked, this, [this] { OnToggleBar(); });
}

void CWorkArea::SetParts(QWidget* toolBar, QWidget* canvas)
{
    if (m_pToolBar) m_pToolBar->removeEventFilter(this);
    m_pToolBar = toolBar;
    m_pCanvas = canvas;
    for (QWidget* w : {toolBar, canvas})
        if (w) w->setParent(this);
    // The tool bar comes and goes with the document: the canvas takes or gives back its room.
    if (m_pToolBar) m_pToolBar->installEventFilter(this);
    m_pStrip->raise();
    Relayout();
}

bool CWorkArea::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_pToolBar && (event->type() == QEvent::ShowToParent || event->type() == QEvent::HideToParent))
        Relayout();
    return QWidget::eventFilter(watched, event);
}

void CWorkArea::Relayout()
{
    const bool toolBar = m_pToolBar && m_pToolBar->isVisibleTo(this);
    const WorkAreaPlacement p = LayoutWorkArea(width(), height(), toolBar, {m_barOpen != 0, m_barWidth});
    if (toolBar) m_pToolBar->setGeometry(ToQRect(p.toolBar));
    if (m_pCanvas) m_pCanvas->setGeometry(ToQRect(p.canvas));
    m_pStrip->setGeometry(ToQRect(p.strip));
    m_pHideButton->move(0, p.hideButton.top - p.strip.top);
    m_pHideButton->SetBarOpen(p.sideBarShown);
    if (p.sideBarShown) m_pSideBar->setGeometry(ToQRect(p.sideBar));
    m_pSideBar->setVisible(p.sideBarShown);
    m_pStrip->update();
}

void CWorkArea::OnToggleBar()
{
    m_barOpen = m_barOpen ? 0 : 1;
    Relayout();
}

void CWorkArea::SetBarWidth(int width)
{
    m_barWidth = ClampBarWidth(width, m_pSideBar->GetMinWidth());
    Relayout();
}

void CWorkArea::BeginSizing()
{
    m_sizing = 1;
}

void CWorkArea::SizeTo(int x)
{
    if (!m_sizing) return;
    const BarState next = DragBar({m_barOpen != 0, m_barWidth}, width(), x, m_pSideBar->GetMinWidth());
    if (next == BarState{m_barOpen != 0, m_barWidth}) return;
    m_barOpen = next.open ? 1 : 0;
    m_barWidth = next.width;
    Relayout();
}

void CWorkArea::EndSizing()
{
    m_sizing = 0;
}

void CWorkArea::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    Relayout();
}
