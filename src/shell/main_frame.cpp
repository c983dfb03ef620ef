#include "shell/main_frame.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QStatusBar>
#include <QTextBrowser>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>
#include <strings.h>

#include "commands/project_stream.h"
#include "document/compositor.h"
#include "document/layer.h"
#include "shell/ruler.h"
#include "imaging/codec.h"
#include "interchange/export.h"
#include "shell/app_globals.h"
#include "shell/command_line.h"
#include "shell/image_view.h"
#include "shell/key_map.h"
#include "shell/panels.h"
#include "shell/skin.h"
#include "shell/splash.h"

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

// Menu items whose work belongs to parts of the program that are not in it yet: they stay grey.
bool IsBuilt(int id)
{
    switch (id) {
    case cmd::kPrint:
    case cmd::kCut:
    case cmd::kCopy:
    case cmd::kPaste:
    case cmd::kImageSize:
    case cmd::kCanvasSize:
    case cmd::kLensBlur:
    case cmd::kFeather:
    case cmd::kExpand:
    case cmd::kShrink:
    case cmd::kFill:
    case cmd::kStroke:
    case cmd::kInpaint:
        return false;
    default:
        return true;
    }
}

bool IsDocCommand(const std::string& text)
{
    return text.size() >= 3 && strncasecmp(text.c_str(), "Doc", 3) == 0;
}

QImage ComposeForExport(CComposeDocument& doc, COLImage& out)
{
    CStackLock lock(doc);
    if (!MergeLayers(&doc, &out, 0)) return {};
    return ToQImage(out, true);
}

} // namespace

CMainFrame::CMainFrame(CAppGlobals& app, IUiServices* services) : m_app(app), m_pView(new CImageView(this))
{
    if (services) {
        m_pServices = services;
    } else {
        m_ownServices = std::make_unique<CQtUiServices>(this);
        m_pServices = m_ownServices.get();
    }
    m_execute = [this](const std::string& text) { return ExecuteCommand(m_app.CommandContext(), text.c_str()); };
    m_app.CommandContext().host = this;

    setWindowTitle(Text("Tittle"));
    setMinimumSize(640, 500);
    setAcceptDrops(true);
    const QImage icon = LoadSkinPicture("icons/velmorando.png");
    if (!icon.isNull()) setWindowIcon(QIcon(QPixmap::fromImage(icon)));

    // Work area: tool strip, canvas, side panels.
    auto* work = new QWidget(this);
    auto* row = new QHBoxLayout(work);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(0);
    m_pToolStrip = new QWidget(work);
    m_pToolStrip->setFixedWidth(70);
    auto* strip = new QVBoxLayout(m_pToolStrip);
    strip->setContentsMargins(5, 5, 5, 5);
    m_pCreateSel = new QToolButton(m_pToolStrip);
    const QImage createSel = LoadSkinPicture("icons/createsel.png");
    if (!createSel.isNull()) m_pCreateSel->setIcon(QIcon(QPixmap::fromImage(createSel)));
    m_pCreateSel->setIconSize(QSize(32, 32));
    m_pCreateSel->setFixedSize(60, 60);
    m_pCreateSel->setToolTip(Text("createsel"));
    // Selection mode comes with the matting methods; until then the entry stays grey.
    m_pCreateSel->setEnabled(false);
    strip->addWidget(m_pCreateSel);
    strip->addStretch(1);
    row->addWidget(m_pToolStrip);
    // The canvas with its rulers along the top and left.
    auto* canvasArea = new QWidget(work);
    auto* grid = new QGridLayout(canvasArea);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setSpacing(0);
    m_pRulerCorner = new QWidget(canvasArea);
    m_pRulerCorner->setFixedSize(CRuler::kThickness, CRuler::kThickness);
    m_pRulerCorner->setAutoFillBackground(true);
    m_pHRuler = new CRuler(m_pView, Qt::Horizontal, canvasArea);
    m_pVRuler = new CRuler(m_pView, Qt::Vertical, canvasArea);
    grid->addWidget(m_pRulerCorner, 0, 0);
    grid->addWidget(m_pHRuler, 0, 1);
    grid->addWidget(m_pVRuler, 1, 0);
    grid->addWidget(m_pView, 1, 1);
    grid->setRowStretch(1, 1);
    grid->setColumnStretch(1, 1);
    row->addWidget(canvasArea, 1);
    BuildSidePanels();
    row->addWidget(m_pSide);
    setCentralWidget(work);
    m_pToolStrip->hide();

    // Status bar: the tip text and a progress bar for long work.
    m_pTip = new QLabel(this);
    m_pProgress = new QProgressBar(this);
    m_pProgress->setMaximumWidth(160);
    m_pProgress->setRange(0, 100);
    m_pProgress->hide();
    statusBar()->addWidget(m_pTip, 1);
    statusBar()->addPermanentWidget(m_pProgress);

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
    m_pSide = new QWidget(this);
    m_pSide->setFixedWidth(230);
    auto* col = new QVBoxLayout(m_pSide);
    col->setContentsMargins(0, 0, 0, 0);
    col->setSpacing(0);
    m_pLayers = new CLayersPanel(m_pSide);
    m_pHistory = new CHistoryPanel(m_pSide);
    m_pHelp = new QTextBrowser(m_pSide);
    m_pHelp->setOpenExternalLinks(false);
    col->addWidget(new CPanelTitle(Text("tablayer"), m_pSide));
    col->addWidget(m_pLayers, 3);
    col->addWidget(new CPanelTitle(Text("tabhistory"), m_pSide));
    col->addWidget(m_pHistory, 2);
    col->addWidget(new CPanelTitle(Text("tabwizard"), m_pSide));
    col->addWidget(m_pHelp, 1);
    m_pHelp->setPlainText(Text("nohelp"));
    connect(m_pLayers, &CLayersPanel::Command, this, [this](const QString& text) { RunCommand(text.toStdString()); });
    connect(m_pLayers, &CLayersPanel::OpenLayerRequested, this, [this] { OnOpenLayer(); });
    connect(m_pHistory, &CHistoryPanel::Command, this, [this](const QString& text) { RunCommand(text.toStdString()); });
}

void CMainFrame::BuildMenus(bool compose)
{
    m_composeMenus = compose;
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
                if (id == cmd::kStatusBar || id == cmd::kToolBar) a->setCheckable(true);
                connect(a, &QAction::triggered, this, [this, id] { OnCommand(id); });
                m_actions[id] = a;
            }
        }
    };
    for (const MenuDef& def : compose ? ComposeMenus() : EmptyMenus()) {
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
    return s;
}

bool CMainFrame::IsCommandAvailable(int id)
{
    if (!IsBuilt(id)) return false;
    // The round trip through the companion editor is not built; only its "not installed" answer is.
    if (id == cmd::kCompanion && !m_app.m_companionExe.empty()) return false;
    return IsCommandEnabled(id, CurrentState());
}

void CMainFrame::UpdateMenuState()
{
    for (auto& [id, action] : m_actions)
        action->setEnabled(IsCommandAvailable(id));
    if (QAction* a = Action(cmd::kStatusBar)) a->setChecked(statusBar()->isVisible());
    if (QAction* a = Action(cmd::kToolBar)) a->setChecked(m_pTopBar->isVisible());
}

void CMainFrame::UpdateTitle()
{
    const std::string& path = DocumentPath();
    if (m_app.Document().GetLayerCount() > 0 && !path.empty())
        setWindowTitle(Text("Tittle") + QStringLiteral(" - ") + QFileInfo(QString::fromStdString(path)).fileName());
    else
        setWindowTitle(Text("Tittle"));
}

const std::string& CMainFrame::DocumentPath() const
{
    return m_app.CommandContext().documentPath;
}

void CMainFrame::UpdatePanels()
{
    CComposeDocument& doc = m_app.Document();
    m_pLayers->Rebuild(doc);
    m_pHistory->Rebuild(m_app.ComposeHistory());
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
    const QString chosen =
        m_pServices->GetOpenFileName(GetString(documentFilter ? "openfiletype" : "openflatfiletype"));
    if (chosen.isEmpty()) return false;
    path = chosen.toStdString();
    return true;
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

void CMainFrame::CancelTool()
{
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
    case cmd::kClose:
        OnClose();
        break;
    case cmd::kExit:
        close();
        break;
    case cmd::kOpenLayer:
        OnOpenLayer();
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
        OnSettings();
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

int CMainFrame::CheckDiscard()
{
    if (m_app.Document().GetLayerCount() < 1 || !IsModified()) return 1;
    return m_pServices->MessageBox(Text("savewar"), EMsgButtons::kYesNo, EMsgIcon::kQuestion, QString()) ==
                   EMsgResult::kNo
               ? 0
               : 1;
}

bool CMainFrame::IsModified()
{
    const CComposeHistory* h = m_app.ComposeHistory();
    if (!h) return m_app.Document().GetModificationCount() != m_markOffset;
    const int step = h->GetCurrentStep();
    const CHistoryRecord* r = step > 0 ? h->GetRecord(step - 1) : nullptr;
    // A step made after an undo lands at a new place in the log, so the same step number with another
    // offset is another state.
    return step != m_markStep || (r ? r->offset : 0) != m_markOffset;
}

void CMainFrame::MarkUnmodified()
{
    const CComposeHistory* h = m_app.ComposeHistory();
    if (!h) {
        m_markStep = 0;
        m_markOffset = m_app.Document().GetModificationCount();
        return;
    }
    m_markStep = h->GetCurrentStep();
    const CHistoryRecord* r = m_markStep > 0 ? h->GetRecord(m_markStep - 1) : nullptr;
    m_markOffset = r ? r->offset : 0;
}

bool CMainFrame::OpenDocumentAt(const std::string& path)
{
    CComposeDocument& doc = m_app.Document();
    CCommandContext& context = m_app.CommandContext();
    const uint32_t type = COLImageCodec::GetFileType(path.c_str());
    m_messageShown = false;
    // Opening a picture clears the document first; a picture that turns out unreadable must not cost the open
    // one. (The project reader checks the whole file before it replaces anything.)
    if (type != kFileProject && doc.GetLayerCount() > 0) {
        COLImage probe;
        if (!COLImageCodec().LoadFile(path.c_str(), &probe)) {
            ShowMessage("can't open");
            return false;
        }
    }
    const bool ok = OpenDocumentFile(context, path.c_str()) == kCommandDone;
    if (ok) context.documentPath = path;
    if (!ok) {
        if (doc.GetLayerCount() == 0) {
            m_pView->SetSource(nullptr);
            BuildMenus(false);
        }
        UpdatePanels();
        return false;
    }
    MarkUnmodified();
    AfterOpen();
    return true;
}

bool CMainFrame::LoadHostImage(const std::string& path)
{
    CComposeDocument& doc = m_app.Document();
    COLImage picture;
    uint32_t bytesPerPixel = 3;
    const bool read = ReadHostImage(path, picture, m_app.m_foreColor.Word(), bytesPerPixel);
    std::remove(path.c_str()); // the host's exchange file goes whatever happened
    if (!read) return false;
    {
        CStackLock lock(doc);
        doc.Clear();
        if (!doc.NewDocument(int(picture.GetWidth()), int(picture.GetHeight()), m_app.m_foreColor.Word())) return false;
        doc.GetLayer(0)->m_image = std::move(picture);
        doc.SyncSizeToBase();
    }
    m_app.CommandContext().documentPath.clear();
    if (CComposeHistory* h = m_app.ComposeHistory()) {
        h->Reset();
        h->AddStep(&doc, kStepWholeDocument, 0, "His_open");
    }
    doc.Refresh();
    MarkUnmodified();
    AfterOpen();
    return true;
}

void CMainFrame::AfterOpen()
{
    CComposeDocument& doc = m_app.Document();
    if (m_pView->GetSource() != &doc) m_pView->SetSource(&doc);
    // A new picture is shown whole; a small one at its own size.
    m_pView->SetOrigin(nullptr, 0, 0, false);
    m_pView->SetZoom(m_pView->FitZoom(1.0), true);
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

void CMainFrame::OnClose()
{
    if (!CheckDiscard()) return;
    CComposeDocument& doc = m_app.Document();
    {
        CStackLock lock(doc);
        doc.Clear();
    }
    doc.Refresh();
    if (CComposeHistory* h = m_app.ComposeHistory()) h->Reset();
    if (CSelectionHistory* h = m_app.SelectionHistory()) h->Reset();
    m_app.CommandContext().documentPath.clear();
    CancelTool();
    m_pView->SetSource(nullptr);
    BuildMenus(false);
    MarkUnmodified();
    SetTip(QString());
    UpdatePanels();
}

void CMainFrame::OnNewPicture()
{
    if (!CheckDiscard()) return;
    QDialog dialog(this);
    dialog.setWindowTitle(Text("newpicture"));
    auto* form = new QFormLayout(&dialog);
    auto* w = new QSpinBox(&dialog);
    auto* h = new QSpinBox(&dialog);
    for (QSpinBox* s : {w, h})
        s->setRange(1, int(kMaxImageSide));
    w->setValue(800);
    h->setValue(600);
    form->addRow(Text("picwidth"), w);
    form->addRow(Text("picheight"), h);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    form->addRow(buttons);
    if (dialog.exec() != QDialog::Accepted) return;
    CComposeDocument& doc = m_app.Document();
    bool ok;
    {
        CStackLock lock(doc);
        doc.Clear();
        ok = doc.NewDocument(w->value(), h->value(), 0xFFFFFFFFu) == 1;
    }
    if (!ok) {
        ShowMessage("except");
        m_pView->SetSource(nullptr);
        BuildMenus(false);
        UpdatePanels();
        return;
    }
    m_app.CommandContext().documentPath.clear();
    if (CComposeHistory* hist = m_app.ComposeHistory()) {
        hist->Reset();
        hist->AddStep(&doc, kStepWholeDocument, 0, "His_open");
    }
    doc.Refresh();
    MarkUnmodified();
    AfterOpen();
}

bool CMainFrame::SaveProjectTo(const std::string& path, bool withHistory)
{
    if (SaveProject(m_app.Document(), m_app.ComposeHistory(), path.c_str(), withHistory ? 1 : 0) != 1) {
        ShowMessage("saveerr");
        return false;
    }
    m_app.CommandContext().documentPath = path;
    MarkUnmodified();
    UpdateTitle();
    return true;
}

bool CMainFrame::ExportPictureTo(const std::string& path, const COLImage& picture, const char* extension)
{
    const ExportFormat* format = FindExportFormat(std::string("x.") + extension);
    if (!format) return false;
    ExportOptions options;
    // The quality the JPEG dialog starts with, in full colour.
    options.jpegQuality = 180;
    if (ExportPicture(WithExportExtension(path, *format), picture, options) != EExportResult::kOk) {
        ShowMessage("saveerr");
        return false;
    }
    return true;
}

bool CMainFrame::ExportComposite(const std::string& path, const char* extension)
{
    COLImage composite;
    if (ComposeForExport(m_app.Document(), composite).isNull()) {
        ShowMessage("except");
        return false;
    }
    return ExportPictureTo(path, composite, extension);
}

void CMainFrame::OnSave()
{
    CComposeDocument& doc = m_app.Document();
    if (doc.GetLayerCount() < 1 || IsSelectionMode()) return;
    QDialog dialog(this);
    dialog.setWindowTitle(Text("save"));
    auto* col = new QVBoxLayout(&dialog);

    auto* project = new QGroupBox(Text("saveproject"), &dialog);
    auto* projectRow = new QHBoxLayout(project);
    auto* projectButton = new QPushButton(Text("saveprojectbtn"), project);
    auto* withHistory = new QCheckBox(Text("withhistory"), project);
    projectRow->addWidget(projectButton);
    projectRow->addWidget(withHistory);
    projectRow->addStretch(1);
    col->addWidget(project);

    auto* flat = new QGroupBox(Text("savecomposite"), &dialog);
    auto* flatRow = new QHBoxLayout(flat);
    struct Export {
        const char* label;
        const char* filter;
        const char* extension;
    };
    const Export exports[] = {{"JPEG...", "Jpeg File(*.jpg)|*.jpg||", "jpg"},
                              {"Bitmap...", "Bitmap File(*.bmp)|*.bmp||", "bmp"},
                              {"TIFF...", "Tiff File(*.tif)|*.tif||", "tif"},
                              {"TGA...", "TGA File(*.tga)|*.tga||", "tga"}};
    for (const Export& e : exports) {
        auto* b = new QPushButton(QString::fromLatin1(e.label), flat);
        flatRow->addWidget(b);
        connect(b, &QPushButton::clicked, &dialog, [this, &dialog, e] {
            const QString path = m_pServices->GetSaveFileName(e.filter);
            if (path.isEmpty()) return;
            ExportComposite(path.toStdString(), e.extension);
            dialog.accept();
        });
    }
    col->addWidget(flat);

    auto* layer = new QGroupBox(Text("savelayer"), &dialog);
    auto* layerRow = new QHBoxLayout(layer);
    auto* png = new QPushButton(QStringLiteral("PNG..."), layer);
    layerRow->addWidget(png);
    layerRow->addStretch(1);
    // The layer export is meant for the layers above the background.
    layer->setEnabled(doc.GetCurrentIndex() > 0);
    col->addWidget(layer);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, &dialog);
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    col->addWidget(buttons);

    connect(projectButton, &QPushButton::clicked, &dialog, [this, &dialog, withHistory] {
        const QString path = m_pServices->GetSaveFileName(GetString("vmdoc"));
        if (path.isEmpty()) return;
        if (SaveProjectTo(path.toStdString(), withHistory->isChecked()))
            dialog.accept();
        else
            dialog.reject();
    });
    connect(png, &QPushButton::clicked, &dialog, [this, &dialog] {
        OnExportLayer();
        dialog.accept();
    });
    dialog.exec();
}

void CMainFrame::OnExportLayer()
{
    const CLayer* layer = m_app.Document().GetCurrentLayer();
    if (!layer || layer->m_image.IsNull()) return;
    const QString path = m_pServices->GetSaveFileName("PNG File(*.png)|*.png||");
    if (path.isEmpty()) return;
    ExportPictureTo(path.toStdString(), layer->m_image, "png");
}

void CMainFrame::OnSettings()
{
    struct Option {
        const char* key;       // profile key
        const char* textKey;   // string key of the check box
    };
    const Option options[] = {
        {"AfterOpenWizard", "setafteropen"},
        {"PureBk", "setpurebk"},
        {"DbSel", "setdbsel"},
        {"Check Result", "setcheckresult"},
    };
    QDialog dialog(this);
    dialog.setWindowTitle(Text("settings"));
    auto* col = new QVBoxLayout(&dialog);
    std::vector<QCheckBox*> boxes;
    for (const Option& o : options) {
        auto* box = new QCheckBox(Text(o.textKey), &dialog);
        box->setChecked(m_app.GetProfileInt(o.key) != 0);
        col->addWidget(box);
        boxes.push_back(box);
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    col->addWidget(buttons);
    if (dialog.exec() != QDialog::Accepted) return;
    for (size_t i = 0; i < boxes.size(); ++i)
        m_app.SetProfileInt(options[i].key, boxes[i]->isChecked() ? 1 : 0);
}

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
    if (!m_app.m_companionExe.empty()) return;
    if (m_pServices->MessageBox(Text("olnotfound"), EMsgButtons::kYesNo, EMsgIcon::kQuestion, QString()) ==
        EMsgResult::kYes)
        m_pServices->OpenAddress(Text("oldwonload"));
}

// ---- Window events ------------------------------------------------------------------------------------------

void CMainFrame::closeEvent(QCloseEvent* event)
{
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
