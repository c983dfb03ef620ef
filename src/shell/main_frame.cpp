#include "shell/main_frame.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QGridLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMimeData>
#include <QProgressBar>
#include <QStatusBar>
#include <QTextBrowser>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>
#include <cstdlib>
#include <strings.h>

#include "document/compositor.h"
#include "document/layer.h"
#include "imaging/codec.h"
#include "interchange/export.h"
#include "shell/app_globals.h"
#include "shell/background_bar.h"
#include "shell/batch_review.h"
#include "shell/contour_cutout.h"
#include "shell/file_filter.h"
#include "shell/image_view.h"
#include "shell/key_map.h"
#include "shell/new_picture_dlg.h"
#include "shell/panels.h"
#include "shell/ruler.h"
#include "shell/save_dlg.h"
#include "shell/save_flows.h"
#include "shell/save_paths.h"
#include "shell/companion_round_trip.h"
#include "shell/print_support.h"
#include "shell/settings_dlg.h"
#include "shell/skin.h"
#include "shell/smart_inpaint_dlg.h"
#include "shell/canvas_size_dlg.h"
#include "shell/image_size_dlg.h"
#include "shell/lens_blur_dlg.h"
#include "shell/selection_mode.h"
#include "shell/side_bar.h"
#include "shell/tab_blue_matting.h"
#include "shell/splash.h"
#include "shell/tab_inout.h"
#include "shell/tool_bar.h"

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

// Menu items whose work belongs to parts of the program that are not in it yet: they stay grey.
bool IsBuilt(int id)
{
    switch (id) {
    case cmd::kCut:
    case cmd::kCopy:
    case cmd::kPaste:
        return false;
    default:
        return true;
    }
}

bool IsDocCommand(const std::string& text)
{
    return text.size() >= 3 && strncasecmp(text.c_str(), "Doc", 3) == 0;
}

} // namespace

CMainFrame::CMainFrame(CAppGlobals& app, IUiServices* services)
    : m_app(app), m_session(app, *this), m_pView(new CImageView(this))
{
    if (services) {
        m_pServices = services;
    } else {
        m_ownServices = std::make_unique<CQtUiServices>(this);
        m_pServices = m_ownServices.get();
    }
    m_execute = [this](const std::string& text) { return ExecuteCommand(m_app.CommandContext(), text.c_str()); };
    m_app.CommandContext().host = this;
    m_refinedEdges = m_app.GetProfileInt("RefinedEdges", 0) != 0;

    setWindowTitle(Text("Tittle"));
    setMinimumSize(640, 500);
    setAcceptDrops(true);
    const QImage icon = LoadSkinPicture("icons/velmorando.png");
    if (!icon.isNull()) setWindowIcon(QIcon(QPixmap::fromImage(icon)));

    setCentralWidget(BuildWorkArea());
    BuildStatusBar();
    BuildTopBar();
    BuildMenus(false);
    connect(m_pView, &CImageView::ViewChanged, this, [this] {
        if (m_pView->GetSource()) m_pProgress->setToolTip(QString::asprintf("%.1f%%", m_pView->GetZoom() * 100.0));
    });
    if (CProcessThread* worker = m_app.Worker()) worker->SetStatusProgress(this);
    UpdatePanels();
}

CMainFrame::~CMainFrame()
{
    if (CProcessThread* worker = m_app.Worker()) worker->SetStatusProgress(nullptr);
    if (m_app.CommandContext().host == this) m_app.CommandContext().host = nullptr;
    m_pView->SetSource(nullptr);
    // The bar and the canvas outlive this body for a moment (Qt deletes the children later): they must not call
    // back. The current tool lets go first, while the frame it reports to is whole (the transform frame, say,
    // moves the view and sets the status as it goes).
    if (m_pToolBar) {
        m_pToolBar->Manager().SetCurrentTool(nullptr);
        m_pToolBar->onBarsChanged = nullptr;
        m_pToolBar->onHelp = nullptr;
        m_pToolBar->onStatus = nullptr;
        m_pToolBar->onMode = nullptr;
        m_pToolBar->onMessage = nullptr;
    }
    disconnect(m_pView, nullptr, this, nullptr);
}

QWidget* CMainFrame::BuildWorkArea()
{
    m_pWorkArea = new CWorkArea(this);
    BuildToolStrip(m_pWorkArea);
    QWidget* canvas = BuildCanvasArea(m_pWorkArea);
    BuildSidePanels();
    m_pWorkArea->SetParts(m_pToolStrip, canvas);
    return m_pWorkArea;
}

void CMainFrame::BuildToolStrip(QWidget* parent)
{
    // The left bar, shown with a document: the mode button ("createsel" in compose mode) at the top, where the
    // help texts send the user, and the tools of the current mode stacked below it in m_pToolLayout.
    m_pToolStrip = new QWidget(parent);
    m_pToolStrip->setFixedWidth(70);
    auto* strip = new QVBoxLayout(m_pToolStrip);
    strip->setContentsMargins(5, 5, 5, 5);
    m_pToolLayout = new QVBoxLayout;
    m_pToolLayout->setContentsMargins(0, 0, 0, 0);
    m_pCreateSel = new QToolButton(m_pToolStrip);
    const QImage createSel = LoadSkinPicture("icons/createsel.png");
    if (!createSel.isNull()) m_pCreateSel->setIcon(QIcon(QPixmap::fromImage(createSel)));
    m_pCreateSel->setIconSize(QSize(32, 32));
    m_pCreateSel->setFixedSize(60, 60);
    m_pCreateSel->setToolTip(Text("createsel"));
    m_pCreateSel->setObjectName(QStringLiteral("createsel"));
    strip->addWidget(m_pCreateSel);
    // Selection mode's inner-outer method: computing the cut-out is the step after drawing both contours, so its
    // button stands right under the mode button.
    m_pBuildSel = new QToolButton(m_pToolStrip);
    {
        // The strip is narrow: the label goes on two lines, broken at the space nearest its middle.
        QString label = Text("buildseltext");
        int best = -1;
        for (int i = 0; i < label.size(); ++i)
            if (label[i] == QLatin1Char(' ') &&
                (best < 0 || std::abs(i - label.size() / 2) < std::abs(best - label.size() / 2)))
                best = i;
        if (best >= 0) label[best] = QLatin1Char('\n');
        m_pBuildSel->setText(label);
    }
    m_pBuildSel->setToolTip(Text("buildseltip"));
    m_pBuildSel->setStatusTip(Text("buildseltip"));
    m_pBuildSel->setObjectName(QStringLiteral("buildseltip"));
    m_pBuildSel->setFixedWidth(60);
    m_pBuildSel->setToolButtonStyle(Qt::ToolButtonTextOnly);
    m_pBuildSel->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    {
        QFont font = m_pBuildSel->font();
        font.setPointSizeF(font.pointSizeF() * 0.75);
        m_pBuildSel->setFont(font);
    }
    m_pBuildSel->hide();
    connect(m_pBuildSel, &QToolButton::clicked, this, [this] { OnCommand(cmd::kBuildSelection); });
    strip->addWidget(m_pBuildSel);
    strip->addLayout(m_pToolLayout, 1);
    // The tools, and the way in and out of selection mode.
    m_pToolBar = new CToolBar(m_app, m_pView, m_pToolStrip);
    m_pToolBar->onHelp = [this](const QString& text) { SetTip(text); };
    m_pToolBar->onStatus = [this](const QString& text) { m_pTip->setText(text); };
    m_pToolBar->onMode = [this](bool selection) { OnSelectionMode(selection); };
    m_pToolBar->onMessage = [this](const char* key) { ShowMessage(key); };
    // A contour drawn or erased changes whether the cut-out can be built.
    m_pToolBar->onBarsChanged = [this] { UpdateMenuState(); };
    connect(m_pCreateSel, &QToolButton::clicked, this, [this] { OnCommand(cmd::kConfirmReturn); });
    m_pToolLayout->addWidget(m_pToolBar, 1);
    // Selection mode's backgrounds, at the foot of the bar.
    m_pBackBar = new CBackgroundBar(m_app, *m_pToolBar, *m_pServices, m_pToolStrip);
    m_pBackBar->hide();
    connect(m_pBackBar, &CBackgroundBar::Changed, this, [this] { UpdateMenuState(); });
    m_pToolLayout->addWidget(m_pBackBar, 0, Qt::AlignLeft);
    m_pToolStrip->hide();
}

QWidget* CMainFrame::BuildCanvasArea(QWidget* parent)
{
    // The canvas with its rulers along the top and left.
    auto* canvasArea = new QWidget(parent);
    auto* grid = new QGridLayout(canvasArea);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setSpacing(0);
    m_pRulerCorner = new QWidget(canvasArea);
    m_pRulerCorner->setFixedSize(CRuler::kThickness, CRuler::kThickness);
    m_pRulerCorner->setAutoFillBackground(true);
    m_pHRuler = new CRuler(m_pView, Qt::Horizontal, canvasArea);
    m_pVRuler = new CRuler(m_pView, Qt::Vertical, canvasArea);
    m_pView->setParent(canvasArea);
    grid->addWidget(m_pRulerCorner, 0, 0);
    grid->addWidget(m_pHRuler, 0, 1);
    grid->addWidget(m_pVRuler, 1, 0);
    grid->addWidget(m_pView, 1, 1);
    grid->setRowStretch(1, 1);
    grid->setColumnStretch(1, 1);
    return canvasArea;
}

void CMainFrame::BuildStatusBar()
{
    // The tip text and a progress bar for long work.
    m_pTip = new QLabel(this);
    m_pProgress = new QProgressBar(this);
    m_pProgress->setMaximumWidth(160);
    m_pProgress->setRange(0, 100);
    m_pProgress->hide();
    statusBar()->addWidget(m_pTip, 1);
    statusBar()->addPermanentWidget(m_pProgress);
}

void CMainFrame::BuildTopBar()
{
    m_pTopBar = addToolBar(QStringLiteral("top"));
    m_pTopBar->setMovable(false);
    m_pTopBar->setIconSize(QSize(32, 32));
    auto add = [this](const char* picture, const char* tipKey, int id) {
        const QImage img = LoadSkinPicture(picture);
        QAction* a = m_pTopBar->addAction(img.isNull() ? QIcon() : QIcon(QPixmap::fromImage(img)), Text(tipKey));
        a->setToolTip(Text(tipKey));
        connect(a, &QAction::triggered, this, [this, id] { OnCommand(id); });
        return a;
    };
    add("open.png", "open", cmd::kOpen);
    m_pSaveButton = add("save.png", "save", cmd::kSave);
    add("help.png", "help", cmd::kHelpFile);
}

void CMainFrame::BuildSidePanels()
{
    CSideBar* bar = m_pWorkArea->SideBar();
    m_pLayers = new CLayersPanel(bar);
    m_pHistory = new CHistoryPanel(bar);
    m_pHelp = new QTextBrowser(bar);
    m_pHelp->setOpenExternalLinks(false);
    // Selection mode's pages: the inner-outer method's and the chroma key's (shown by OnSelectionMode).
    m_pInout = new CTabInout(m_app, *m_pToolBar, *m_pServices, this, bar);
    connect(m_pInout, &CTabInout::Changed, this, [this] { UpdatePanels(); });
    connect(m_pInout, &CTabInout::Tip, this, [this](const QString& text) { SetTip(text); });
    m_pHistory->SetLogSource([this] { return HistoryOfMode(); });
    m_pHelp->setPlainText(Text("nohelp"));
    m_pBlueTab = new CTabBlueMatting(m_app, *m_pToolBar, bar);
    m_pBlueTab->SetStatusProgress(this);
    // The pages in their order on the bar, with the room each needs.
    bar->AddPage(m_pLayers, Text("tablayer"), 0, QSize(200, 198));
    bar->AddPage(m_pHistory, Text("tabhistory"), 0, QSize(160, 200));
    bar->AddPage(m_pHelp, Text("tabwizard"), 0, QSize(160, 199));
    bar->AddPage(m_pBlueTab, Text("algorithm"));
    bar->AddPage(m_pInout, Text("algorithm"));
    bar->SetPageVisible(m_pBlueTab, false);
    bar->SetPageVisible(m_pInout, false);
    // Shown by the program, the layers page is the one the layout keeps open: on a short screen the help page
    // folds first, not the page compose mode works with.
    bar->SetPageVisible(m_pLayers, true);
    connect(m_pLayers, &CLayersPanel::Command, this,
            [this](const QByteArray& text) { RunCommand(text.toStdString()); });
    connect(m_pLayers, &CLayersPanel::MessageRequested, this, [this](const char* key) { ShowMessage(key); });
    connect(m_pLayers, &CLayersPanel::OpenLayerRequested, this, [this] { OnCommand(cmd::kOpenLayer); });
    connect(m_pLayers, &CLayersPanel::NewLayerRequested, this, [this] { OnCommand(cmd::kNewLayer); });
    connect(m_pHistory, &CHistoryPanel::Command, this,
            [this](const QByteArray& text) { RunCommand(text.toStdString()); });
}

void CMainFrame::BuildMenus(bool compose)
{
    BuildMenuBar(compose ? ComposeMenus() : EmptyMenus());
    m_composeMenus = compose;
}

void CMainFrame::BuildMenuBar(const std::vector<MenuDef>& menus)
{
    m_composeMenus = false;
    m_selectionMenus = &menus == &SelectionMenus();
    menuBar()->clear();
    m_actions.clear();
    const ETextLanguage lang = m_app.GetLanguage();
    auto addItems = [&](QMenu* menu, const std::vector<int>& items, auto& self) -> void {
        for (int id : items) {
            if (id == cmd::kSeparator) {
                menu->addSeparator();
            } else if (id < 0) {
                const MenuDef& sub = SubMenu(id);
                QMenu* subMenu = menu->addMenu(QString::fromUtf8(MenuTitle(sub, lang)));
                self(subMenu, sub.items, self);
            } else {
                QAction* a = menu->addAction(QString::fromStdString(MenuItemText(id, lang)));
                if (id == cmd::kStatusBar || id == cmd::kToolBar || id == cmd::kRefinedEdges ||
                    BackgroundModeOf(id) != 0)
                    a->setCheckable(true);
                connect(a, &QAction::triggered, this, [this, id] { OnCommand(id); });
                m_actions[id] = a;
            }
        }
    };
    for (const MenuDef& def : menus) {
        QMenu* menu = menuBar()->addMenu(QString::fromUtf8(MenuTitle(def, lang)));
        addItems(menu, def.items, addItems);
        connect(menu, &QMenu::aboutToShow, this, &CMainFrame::UpdateMenuState);
    }
    UpdateMenuState();
}

QAction* CMainFrame::Action(int id) const
{
    auto it = m_actions.find(id);
    return it == m_actions.end() ? nullptr : it->second;
}

FrameState CMainFrame::CurrentState()
{
    CComposeDocument& doc = m_app.Document();
    FrameState s;
    s.layerCount = doc.GetLayerCount();
    s.currentIndex = doc.GetCurrentIndex();
    s.hasMask = doc.GetSelectionMask().GetBuffer() != nullptr;
    s.modalEdit = m_app.m_modalEdit != 0;
    s.selectionMode = IsSelectionMode();
    s.clipboardHasImage = false; // the clipboard exchange is not built yet
    s.documentShown = m_pView->GetSource() != nullptr;
    const CLayer* current = doc.GetCurrentLayer();
    s.currentVisible = current && current->m_visible;
    if (m_pToolBar && s.selectionMode) {
        const COLChannel& result = *m_pToolBar->Selection().GetResultMask();
        s.resultExists = !result.IsNull();
        s.resultHasPixels = s.resultExists && !result.IsAllZero();
        s.inoutMethod = m_pToolBar->Manager().GetMethod() == kMethodInOut;
        CSelectionDocument& selection = m_pToolBar->Selection();
        s.contoursDrawn = !selection.GetInnerPlane()->IsAllZero() && !selection.GetOuterPlane()->IsAllZero();
    }
    return s;
}

bool CMainFrame::IsCommandAvailable(int id)
{
    return IsAvailableIn(id, CurrentState());
}

bool CMainFrame::IsAvailableIn(int id, const FrameState& state) const
{
    if (!IsBuilt(id)) return false;
    return IsCommandEnabled(id, state);
}

void CMainFrame::UpdateMenuState()
{
    const FrameState state = CurrentState();
    for (auto& [id, action] : m_actions)
        action->setEnabled(IsAvailableIn(id, state));
    if (QAction* a = Action(cmd::kStatusBar)) a->setChecked(statusBar()->isVisible());
    if (QAction* a = Action(cmd::kToolBar)) a->setChecked(m_pTopBar->isVisible());
    if (QAction* a = Action(cmd::kRefinedEdges)) a->setChecked(m_refinedEdges);
    if (m_pBuildSel) {
        m_pBuildSel->setVisible(state.selectionMode && state.inoutMethod);
        m_pBuildSel->setEnabled(IsAvailableIn(cmd::kBuildSelection, state));
    }
    if (m_selectionMenus)
        for (auto& [id, action] : m_actions)
            if (BackgroundModeOf(id) != 0) action->setChecked(BackgroundModeOf(id) == m_pToolBar->Selection().GetDisplayMode());
    if (m_pBackBar) {
        // The buttons act where the Background menu does: in selection mode, once a result exists.
        m_pBackBar->setVisible(IsAvailableIn(cmd::kBackChecker, state));
        m_pBackBar->Sync();
    }
}

void CMainFrame::UpdateTitle()
{
    const std::string& path = DocumentPath();
    if (m_app.Document().GetLayerCount() > 0 && !path.empty())
        setWindowTitle(Text("Tittle") + QStringLiteral(" - ") + QFileInfo(QString::fromStdString(path)).fileName());
    else
        setWindowTitle(Text("Tittle"));
}

void CMainFrame::UpdatePanels()
{
    CComposeDocument& doc = m_app.Document();
    m_pLayers->Rebuild(doc);
    m_pHistory->Rebuild(HistoryOfMode());
    // The pages of each mode are shown by OnSelectionMode.
    if (IsSelectionMode() && m_pToolBar->Manager().GetMethod() == kMethodInOut) m_pInout->SyncControls();
    m_pSaveButton->setEnabled(doc.GetLayerCount() > 0);
    m_pToolStrip->setVisible(m_pView->GetSource() != nullptr);
    for (QWidget* w : {static_cast<QWidget*>(m_pHRuler), static_cast<QWidget*>(m_pVRuler), m_pRulerCorner})
        w->setVisible(m_pView->GetSource() != nullptr);
    UpdateMenuState();
    UpdateTitle();
}

void CMainFrame::UpdateBars()
{
    UpdatePanels();
}

void CMainFrame::SetTip(const QString& text)
{
    m_pTip->setText(text);
    m_pHelp->setPlainText(text.isEmpty() ? Text("nohelp") : text);
}

bool CMainFrame::IsWorkerBusy() const
{
    const CProcessThread* worker = m_app.Worker();
    return worker && worker->IsBusy();
}

void CMainFrame::PostStatusProgress(int percent)
{
    // From the worker thread: the bar is changed on the interface thread.
    QMetaObject::invokeMethod(
        this,
        [this, percent] {
            m_pProgress->setValue(percent);
            m_pProgress->setVisible(percent > 0 && percent < 100);
        },
        Qt::QueuedConnection);
}

int CMainFrame::ProgressShown() const
{
    return m_pProgress->isVisible() ? m_pProgress->value() : -1;
}

void CMainFrame::ShowTopBar(bool show)
{
    m_pTopBar->setVisible(show);
}
bool CMainFrame::IsTopBarShown() const
{
    return m_pTopBar->isVisible();
}

QString CMainFrame::StatusText() const
{
    return m_pTip->text();
}
QString CMainFrame::HelpText() const
{
    return m_pHelp->toPlainText();
}

// ---- ICommandHost -------------------------------------------------------------------------------------------

bool CMainFrame::CopyToClipboard(CComposeDocument&)
{
    return false;
}
bool CMainFrame::PasteFromClipboard(CComposeDocument&, IHistorySink*)
{
    return false;
}

bool CMainFrame::AskOpenPath(bool documentFilter, std::string& path)
{
    if (!m_presetOpenPath.empty()) {
        path = m_presetOpenPath;
        m_presetOpenPath.clear();
        return true;
    }
    // The table's filter as it stands, with an entry for every picture the program reads before it.
    const std::string filter = OpenDialogFilter(GetString(documentFilter ? "openfiletype" : "openflatfiletype"),
                                                GetString("allpictures"), GetString("allfiles"), documentFilter);
    const QString chosen = m_pServices->GetOpenFileName(filter);
    if (chosen.isEmpty()) return false;
    path = chosen.toStdString();
    return true;
}

bool CMainFrame::RunInpaintDialog()
{
    const bool done = RunSmartInpaintDialog(this, m_app, *m_pServices, this);
    // The dialog has said what went wrong; a cancel needs no message either.
    if (!done) m_messageShown = true;
    return done;
}

void CMainFrame::ShowMessage(const char* key)
{
    m_messageShown = true;
    m_pServices->MessageBox(Text(key), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
}

bool CMainFrame::Zoom(int direction)
{
    if (!m_pView->GetSource()) return false;
    if (direction > 0)
        m_pView->ZoomIn();
    else if (direction < 0)
        m_pView->ZoomOut();
    else
        m_pView->ZoomFit();
    return true;
}

void CMainFrame::OnSelectionMode(bool selection)
{
    CComposeDocument& doc = m_app.Document();
    m_pView->SetSource(selection ? static_cast<ICanvasSource*>(&m_pToolBar->Selection()) : &doc);
    if (selection)
        BuildMenuBar(SelectionMenus());
    else
        BuildMenus(true);
    m_pCreateSel->setToolTip(Text(selection ? "leavesel" : "createsel"));
    // A live preview must be done with the pictures before the mode lets go of them.
    if (!selection) m_pBlueTab->WaitIdle();
    ShowPagesOfMode(selection);
    m_pView->ZoomFit();
    UpdatePanels();
}

void CMainFrame::ShowPagesOfMode(bool selection)
{
    // Selection mode keeps the side bar as the user left it and gives it back afterwards: the layers page goes,
    // the method's page comes (open, whatever it was before).
    CSideBar* bar = m_pWorkArea->SideBar();
    if (selection) {
        bar->SaveLayout();
        bar->SetPageVisible(m_pLayers, false);
        const uint32_t method = m_pToolBar->Manager().GetMethod();
        QWidget* page = method == kMethodChroma  ? static_cast<QWidget*>(m_pBlueTab)
                        : method == kMethodInOut ? static_cast<QWidget*>(m_pInout)
                                                 : nullptr;
        if (page) {
            bar->SetPageVisible(page, true);
            bar->SetPageOpen(page, true);
        }
    } else {
        bar->RestoreLayout();
        bar->SetPageVisible(m_pBlueTab, false);
        bar->SetPageVisible(m_pInout, false);
        bar->SetPageVisible(m_pLayers, true);
    }
}

IHistoryNavigator* CMainFrame::GetSelectionHistory() { return m_app.SelectionHistory(); }

const CHistoryLog* CMainFrame::HistoryOfMode()
{
    if (IsSelectionMode()) return m_app.SelectionHistory();
    return m_app.ComposeHistory();
}

void CMainFrame::RefreshSelectionDocument()
{
    if (!m_pToolBar) return;
    // Undo or redo replaced the planes: a chroma-key preview still on the worker must not overwrite them.
    if (m_pBlueTab) m_pBlueTab->WaitIdle();
    m_pToolBar->Selection().RefreshPreview();
    m_pToolBar->Manager().UpdateBars(); // undo may take the result away, or bring it back
}

void CMainFrame::CancelTool()
{
    if (m_pToolBar) m_pToolBar->Manager().SetCurrentTool(nullptr);
    // No current tool: the canvas draws no overlay and hands input to nobody.
    m_pView->SetOverlay(nullptr);
    m_pView->SetSink(nullptr);
    m_pView->DrawOverlayNow();
}

bool CMainFrame::IsSelectionMode()
{
    ICanvasSource* source = m_pView->GetSource();
    return source && source != static_cast<ICanvasSource*>(&m_app.Document());
}

// ---- Commands -----------------------------------------------------------------------------------------------

int CMainFrame::RunCommand(const std::string& text)
{
    m_messageShown = false;
    const int result = m_execute(text);
    // A refused edit says so, unless its handler already told why; undo and zoom at their ends stay quiet.
    if (result != kCommandDone && IsDocCommand(text) && !m_messageShown) ShowMessage("except");
    UpdatePanels();
    return result;
}

bool CMainFrame::HandleShortcut(int key, bool ctrl, bool shift)
{
    const KeyDecision d = MapShortcut(key, ctrl, shift, IsSelectionMode());
    switch (d.action) {
    case EKeyAction::kNone:
        return false;
    case EKeyAction::kOpen:
        OnCommand(cmd::kOpen);
        return true;
    case EKeyAction::kPrint:
        OnCommand(cmd::kPrint);
        return true;
    case EKeyAction::kSave:
        OnCommand(cmd::kSave);
        return true;
    case EKeyAction::kClose:
        OnCommand(cmd::kClose);
        return true;
    case EKeyAction::kCancelTool:
        CancelTool();
        return true;
    case EKeyAction::kConfirmReturn:
        OnCommand(cmd::kConfirmReturn);
        return true;
    case EKeyAction::kBuildSelection:
        // A grey item does nothing from its key either.
        if (IsCommandAvailable(cmd::kBuildSelection)) OnCommand(cmd::kBuildSelection);
        return true;
    case EKeyAction::kCommand:
        break;
    }
    // A key whose menu item is grey does nothing, as the item would.
    const int current = m_app.Document().GetCurrentIndex();
    for (const MenuDef& menu : ComposeMenus())
        for (int id : menu.items)
            if (id > 0 && CommandTextFor(id, current) == d.command && !IsCommandAvailable(id)) return true;
    RunCommand(d.command);
    return true;
}

void CMainFrame::OnCommand(int id)
{
    if (!IsCommandAvailable(id)) return;
    switch (id) {
    case cmd::kNew:
        OnNewPicture();
        break;
    case cmd::kOpen:
        OnOpen();
        break;
    case cmd::kSave:
        OnSave();
        break;
    case cmd::kPrint:
        OnPrint();
        break;
    case cmd::kClose:
        OnClose();
        break;
    case cmd::kExit:
        close();
        break;
    case cmd::kOpenLayer:
        OnOpenLayer();
        break;
    case cmd::kNewLayer:
        OnNewLayer();
        break;
    case cmd::kExportLayer:
        OnExportLayer();
        break;
    case cmd::kStatusBar:
        statusBar()->setVisible(!statusBar()->isVisible());
        break;
    case cmd::kToolBar:
        m_pTopBar->setVisible(!m_pTopBar->isVisible());
        break;
    case cmd::kSettings:
        RunSettingsDialog(this, m_app);
        break;
    case cmd::kHelpFile:
        m_pServices->OpenAddress(QStringLiteral("help/index.htm"));
        break;
    case cmd::kAbout:
        OnAbout();
        break;
    case cmd::kCompanion:
        OnCompanion();
        break;
    case cmd::kImageSize:
        RunImageSizeDialog(this, m_app.Document(), *m_pServices, [this](const std::string& t) { return RunCommand(t); });
        break;
    case cmd::kCanvasSize:
        RunCanvasSizeDialog(this, m_app.Document(), m_app.CommandContext().foreground, *m_pServices,
                            [this](const std::string& t) { return RunCommand(t); });
        break;
    case cmd::kLensBlur:
        RunLensBlurDialog(this, m_app, *m_pServices, this);
        UpdatePanels();
        break;
    case cmd::kExpand:
    case cmd::kShrink:
        OnExpand(id == cmd::kExpand);
        break;
    case cmd::kFeather:
        OnFeather();
        break;
    case cmd::kStroke:
        OnStroke();
        break;
    case cmd::kSegmentDeflate:
        OnSegmentDeflate();
        break;
    case cmd::kConfirmReturn:
        // For a host the end of the selection work is the end of its visit.
        if (m_hostMode && IsSelectionMode()) {
            OnHostReturn(true);
            break;
        }
        if (!IsSelectionMode()) {
            OnCreateSelection();
            UpdatePanels();
            break;
        }
        // The way back records its step after the canvas has changed source: the panels follow it here.
        selmode::Toggle(this, *m_pToolBar, *m_pServices);
        UpdatePanels();
        break;
    case cmd::kCancelReturn:
        if (m_hostMode && IsSelectionMode()) {
            OnHostReturn(false);
            break;
        }
        selmode::CancelReturn(*m_pToolBar, *m_pServices);
        UpdatePanels();
        break;
    case cmd::kChromaKey:
        selmode::EnterChromaKey(*m_pToolBar, *m_pBlueTab, *m_pServices);
        UpdatePanels();
        break;
    case cmd::kBatchKey:
        OnBatchKey();
        UpdatePanels();
        break;
    case cmd::kBackColour:
    case cmd::kBackChecker:
    case cmd::kBackPicture:
    case cmd::kBackMask:
    case cmd::kBackOriginal:
        selmode::ChooseBackground(this, *m_pToolBar, *m_pServices, id);
        break;
    case cmd::kFeatherShrink:
        OnSelectionFeather();
        break;
    case cmd::kBuildSelection:
        OnBuildSelection();
        break;
    case cmd::kRefinedEdges:
        OnRefinedEdges();
        break;
    case cmd::kTutorialCompose:
    case cmd::kTutorialBlue:
    case cmd::kTutorialInout:
    case cmd::kTutorialLensBlur:
    case cmd::kTutorialSmartErase:
    case cmd::kHomeSite:
        m_pServices->OpenAddress(Text(TutorialKey(id)));
        break;
    default: {
        const std::string text = CommandTextFor(id, m_app.Document().GetCurrentIndex());
        if (!text.empty()) RunCommand(text);
        break;
    }
    }
    UpdateMenuState();
}

// ---- ISessionPrompts ---------------------------------------------------------------------------------------------

EDiscardChoice CMainFrame::AskDiscard()
{
    switch (m_pServices->MessageBox(Text("savewar"), EMsgButtons::kSaveDiscardCancel, EMsgIcon::kQuestion, QString())) {
    case EMsgResult::kSave:
        return EDiscardChoice::kSave;
    case EMsgResult::kDiscard:
        return EDiscardChoice::kDiscard;
    default:
        return EDiscardChoice::kCancel;
    }
}

bool CMainFrame::AskProjectPath(std::string& path)
{
    const QString chosen = m_pServices->GetSaveFileName(GetString("vmdoc"));
    if (chosen.isEmpty()) return false;
    path = chosen.toStdString();
    return true;
}

// ---- The document's file life --------------------------------------------------------------------------------

int CMainFrame::CheckDiscard()
{
    const bool ok = m_session.CheckDiscard();
    UpdateTitle(); // a save from the question names the document
    return ok ? 1 : 0;
}

void CMainFrame::ShowEmpty()
{
    CancelTool();
    m_pView->SetSource(nullptr);
    BuildMenus(false);
    SetTip(QString());
    UpdatePanels();
}

bool CMainFrame::OpenDocumentAt(const std::string& path)
{
    m_messageShown = false;
    if (!m_session.Open(path)) {
        if (m_session.HasDocument())
            UpdatePanels();
        else
            ShowEmpty();
        return false;
    }
    AfterOpen();
    // Asked once the window shows the picture, so that the question stands over it.
    QTimer::singleShot(0, this, [this] { RunAfterOpenWizard(); });
    return true;
}

bool CMainFrame::LoadHostImage(const std::string& path)
{
    if (!m_session.OpenHostImage(path, &m_hostChannels)) return false;
    m_hostPath = path; // the result goes back where the picture came from
    AfterOpen();
    return true;
}

void CMainFrame::AfterOpen()
{
    CComposeDocument& doc = m_app.Document();
    if (m_pView->GetSource() != &doc) m_pView->SetSource(&doc);
    // A new picture is shown whole, a small one at its own size; it stays whole while the window settles
    // around it (the tool bar and the rulers appear below).
    m_pView->FitWhole(1.0);
    m_pView->Refresh();
    CancelTool();
    BuildMenus(true);
    SetTip(Text("afteropen"));
    QTimer::singleShot(20000, this, [this, text = Text("afteropen")] {
        if (m_pTip->text() == text) SetTip(QString());
    });
    UpdatePanels();
}

void CMainFrame::OnOpen()
{
    if (IsSelectionMode() || !CheckDiscard()) return;
    std::string path;
    if (!AskOpenPath(true, path)) return;
    OpenDocumentAt(path);
}

void CMainFrame::OnClose()
{
    if (!CheckDiscard()) return;
    m_session.Close();
    ShowEmpty();
}

void CMainFrame::OnNewPicture()
{
    if (!CheckDiscard()) return;
    int width = 0, height = 0;
    if (!AskNewPictureSize(this, width, height)) return;
    if (m_session.NewPicture(width, height))
        AfterOpen();
    else
        ShowEmpty();
}

void CMainFrame::OnSave()
{
    if (m_pToolBar && m_pToolBar->Manager().IsTransforming()) CancelTool();
    CComposeDocument& doc = m_app.Document();
    if (doc.GetLayerCount() < 1) return;
    if (IsSelectionMode()) {
        // With a result, the save dialog's layer exports write the cut-out.
        selmode::Save(
            *m_pToolBar, *m_pServices,
            [this] {
                RunSaveDialog(this, m_app, m_session, *m_pServices, ESaveDialogUse::kCutout, &m_pToolBar->Selection());
            },
            [this] { OnCommand(cmd::kConfirmReturn); });
        return;
    }
    RunSaveDialog(this, m_app, m_session, *m_pServices, ESaveDialogUse::kDocument);
    UpdateTitle();
}

void CMainFrame::OnExportLayer()
{
    const CLayer* layer = m_app.Document().GetCurrentLayer();
    if (!layer || layer->m_image.IsNull()) return;
    RunSaveDialog(this, m_app, m_session, *m_pServices, ESaveDialogUse::kLayer);
}

// ---- Layers -------------------------------------------------------------------------------------------------

void CMainFrame::OnNewLayer()
{
    CComposeDocument& doc = m_app.Document();
    // The new layer goes above the current one, or above the base when none is current, and becomes current so
    // that what comes next (a picture, a paint stroke) lands on it.
    const int current = doc.GetCurrentIndex();
    const int at = current >= 0 && current < doc.GetLayerCount() ? current : 0;
    if (RunCommand(CommandTextFor(cmd::kNewLayer, at)) != kCommandDone) return;
    if (at + 1 < doc.GetLayerCount()) doc.SetCurrentIndex(at + 1);
    UpdatePanels();
}

void CMainFrame::OnOpenLayer()
{
    CComposeDocument& doc = m_app.Document();
    if (doc.GetLayerCount() < 1) return;
    std::string path;
    if (!AskOpenPath(false, path)) return; // cancelled: nothing to say
    m_presetOpenPath = path;
    RunCommand(CommandTextFor(cmd::kOpenLayer, doc.GetCurrentIndex()));
    m_presetOpenPath.clear();
}

// ---- Other menu items ---------------------------------------------------------------------------------------

void CMainFrame::OnAbout()
{
    auto* splash = new CSplashWindow(this);
    splash->setAttribute(Qt::WA_DeleteOnClose);
    splash->SetClickToClose(true);
    if (splash->LoadPicture(m_app.GetSkinPath("start.lgb")))
        splash->ShowCentred();
    else
        delete splash;
}

void CMainFrame::OnCompanion()
{
    // Without the editor the answer is where to get it; the round trip is not tried (it could only fail).
    if (m_app.m_companionExe.empty()) {
        if (m_pServices->MessageBox(Text("olnotfound"), EMsgButtons::kYesNo, EMsgIcon::kQuestion, QString()) ==
            EMsgResult::kYes)
            m_pServices->OpenAddress(Text("oldwonload"));
        return;
    }
    CancelTool();
    RunCompanionRoundTrip(m_app, m_app.m_companionExe, this, *m_pServices);
    m_pView->Refresh();
    UpdatePanels();
}

void CMainFrame::OnPrint()
{
    if (m_pToolBar && m_pToolBar->Manager().IsTransforming()) CancelTool();
    COLImage composite;
    {
        CStackLock lock(m_app.Document());
        if (!MergeLayers(&m_app.Document(), &composite, 0)) return;
    }
    QString error;
    if (!RunPrint(this, composite, error))
        m_pServices->MessageBox(error, EMsgButtons::kOk, EMsgIcon::kWarning, QString());
}

// ---- Window events ------------------------------------------------------------------------------------------

void CMainFrame::closeEvent(QCloseEvent* event)
{
    // For a host, closing ends its visit: the result goes back, or not, as the user answers.
    if (m_hostMode && IsSelectionMode()) {
        if (OnHostReturn(true))
            event->accept();
        else
            event->ignore();
        return;
    }
    // Work in selection mode is not part of the document yet: it is brought back or dropped first.
    if (IsSelectionMode() && !selmode::AllowClose(this, *m_pToolBar, *m_pServices)) {
        event->ignore();
        return;
    }
    if (CheckDiscard())
        event->accept();
    else
        event->ignore();
}

void CMainFrame::dragEnterEvent(QDragEnterEvent* event)
{
    const QMimeData* data = event->mimeData();
    if (data && data->hasUrls())
        for (const QUrl& url : data->urls())
            if (url.isLocalFile()) {
                event->acceptProposedAction();
                return;
            }
    event->ignore();
}

void CMainFrame::dropEvent(QDropEvent* event)
{
    const QMimeData* data = event->mimeData();
    if (!data || !data->hasUrls()) return;
    // Only the first file of a drop is taken.
    QString first;
    for (const QUrl& url : data->urls())
        if (url.isLocalFile()) {
            first = url.toLocalFile();
            break;
        }
    if (first.isEmpty()) return;
    event->acceptProposedAction();
    // Opened once the drop is over, so that no question waits inside the drag.
    QTimer::singleShot(0, this, [this, first] {
        if (IsSelectionMode() || !CheckDiscard()) return;
        OpenDocumentAt(first.toStdString());
    });
}
