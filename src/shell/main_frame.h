#pragma once

#include <QMainWindow>
#include <functional>
#include <map>
#include <string>

#include "commands/command.h"
#include "matting/process_thread.h"
#include "shell/document_session.h"
#include "shell/menu_table.h"
#include "shell/ui_services.h"

class CAppGlobals;
class COLImage;
class CImageView;
class CRuler;
class CToolBar;
class CTabBlueMatting;
class CLayersPanel;
class CHistoryPanel;
class CTabInout;
class CBackgroundBar;
class CWorkArea;
class CHistoryLog;
class QLabel;
class QProgressBar;
class QTextBrowser;
class QToolBar;
class QToolButton;
class QVBoxLayout;
class QWidget;

// The one top-level window. It lays out the top bar, the left tool bar, the canvas with its rulers and the side
// panels; turns menu items, buttons and keys into command texts; and shows what the document session did. The
// document's file life (open, new, close, save, the discard question) is CDocumentSession's; the dialogs live in
// their own files.
//
// Layout, left to right: the tool bar of the current mode (m_pToolStrip: its tools stand above the mode button),
// the canvas area, the side panels. Modes show themselves through UpdateBars.
class CMainFrame : public QMainWindow, public ICommandHost, public IStatusProgress, public ISessionPrompts {
    Q_OBJECT
public:
    // services may be null: the real dialogs are used.
    CMainFrame(CAppGlobals& app, IUiServices* services = nullptr);
    ~CMainFrame() override;

    // ICommandHost
    bool CopyToClipboard(CComposeDocument& document) override;
    bool PasteFromClipboard(CComposeDocument& document, IHistorySink* history) override;
    bool AskOpenPath(bool documentFilter, std::string& path) override;
    bool RunFillDialog() override;
    bool RunInpaintDialog() override;
    void ShowMessage(const char* key) override; // also ISessionPrompts
    bool Zoom(int direction) override;
    void CancelTool() override;
    bool IsSelectionMode() override;
    IHistoryNavigator* GetSelectionHistory() override;
    void RefreshSelectionDocument() override;
    void UpdatePanels() override;
    CSelectionDocument* GetSelectionDocument() override;

    // ISessionPrompts
    EDiscardChoice AskDiscard() override;
    bool AskProjectPath(std::string& path) override;

    // What the rest of the program calls.
    void AfterOpen();
    void UpdateBars();
    // 1 when the document may be replaced: nothing to lose, saved, or the user chose to discard it.
    int CheckDiscard();
    // Opens a picture or a project as the document (no discard question here). False after the "can't open"
    // message; an unreadable picture leaves the open document.
    bool OpenDocumentAt(const std::string& path);
    // The host plug-in's exchange file as the document ("-i" on the command line).
    bool LoadHostImage(const std::string& path);

    // A menu item or button by its command number.
    void OnCommand(int id);
    // Runs a command text as a menu item or key does: a refused document command shows "except" unless its
    // handler already said why. Returns the executor's result.
    int RunCommand(const std::string& text);
    // A key of the shortcut table; false when it is not one (the key then goes to the focused window).
    bool HandleShortcut(int key, bool ctrl, bool shift);

    FrameState CurrentState();
    bool IsCommandAvailable(int id); // enabled now, and built
    bool IsModified() const { return m_session.IsModified(); }
    void MarkUnmodified() { m_session.MarkUnmodified(); }
    CDocumentSession& Session() { return m_session; }

    CImageView* View() const { return m_pView; }
    CRuler* HorizontalRuler() const { return m_pHRuler; }
    CRuler* VerticalRuler() const { return m_pVRuler; }
    CLayersPanel* LayersPanel() const { return m_pLayers; }
    // Tool bar, canvas, hide button and side bar with its pages.
    CWorkArea* WorkArea() const { return m_pWorkArea; }
    CHistoryPanel* HistoryPanel() const { return m_pHistory; }
    CToolBar* ToolBar() const { return m_pToolBar; }
    // Selection mode's side page of the inner-outer method, and the background buttons of the left bar.
    CTabInout* InoutPage() const { return m_pInout; }
    CBackgroundBar* BackgroundBar() const { return m_pBackBar; }
    // The log the history panel shows: the selection log in selection mode, else the compose log.
    const CHistoryLog* HistoryOfMode();
    // The chroma-key page of the side panel (selection mode, chroma-key method).
    CTabBlueMatting* BlueTab() const { return m_pBlueTab; }
    QAction* Action(int id) const;
    QString StatusText() const;
    QString HelpText() const;
    bool IsShowingComposeMenus() const { return m_composeMenus; }
    bool IsShowingSelectionMenus() const { return m_selectionMenus; }
    IUiServices& Services() { return *m_pServices; }
    const std::string& DocumentPath() const { return m_session.Path(); }

    // Tests replace the executor to see the command texts; by default the command strings run on the document.
    void SetExecutor(std::function<int(const std::string&)> execute) { m_execute = std::move(execute); }
    // The plug-in mode of a host editor's start.
    void SetHostMode(bool host) { m_hostMode = host; }
    bool IsHostMode() const { return m_hostMode; }
    // Plug-in mode: the selection method the host asked for by digit (host_return.cpp); other digits stay in
    // compose mode.
    void EnterHostMethod(int digit);
    const std::string& HostPath() const { return m_hostPath; }
    uint32_t HostChannels() const { return m_hostChannels; }
    // The build button under the mode button (hidden outside inner-outer selection mode).
    QToolButton* BuildSelectionButton() const { return m_pBuildSel; }
    bool IsRefinedEdges() const { return m_refinedEdges; }
    // Shortcuts wait while the worker runs a process.
    bool IsWorkerBusy() const;
    // IStatusProgress: the worker's progress, from its thread, shown in the status bar.
    void PostStatusProgress(int percent) override;
    int ProgressShown() const; // -1 while the bar is hidden

    void SetTip(const QString& text);
    void ShowTopBar(bool show);
    bool IsTopBarShown() const;

Q_SIGNALS:
    // Plug-in mode: the host's visit is over (the result was sent, or the user ended without one); the program
    // is to end with the code.
    void HostFinished(int code);

protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    // Layout.
    QWidget* BuildWorkArea();
    void BuildToolStrip(QWidget* parent);
    QWidget* BuildCanvasArea(QWidget* parent);
    void BuildSidePanels();
    void BuildStatusBar();
    void BuildTopBar();
    void BuildMenus(bool compose);
    void BuildMenuBar(const std::vector<MenuDef>& menus);
    // The canvas shows the selection document (true) or the compose document, with the menus of the mode.
    void OnSelectionMode(bool selection);
    // The side bar's pages of the mode: selection mode hides the layers and shows its method's page.
    void ShowPagesOfMode(bool selection);
    void UpdateMenuState();
    bool IsAvailableIn(int id, const FrameState& state) const;
    void UpdateTitle();
    // The window without a document: empty canvas, short menus.
    void ShowEmpty();

    // Commands the frame serves itself.
    void OnOpen();
    void OnSave();
    void OnClose();
    void OnNewPicture();
    void OnNewLayer();
    void OnExportLayer();
    void OnAbout();
    void OnCompanion();
    void OnPrint();
    void OnOpenLayer();
    // The selection modifiers, stroke and the deflate to segments (selection_actions.cpp).
    void OnExpand(bool expand);
    void OnFeather();
    void OnStroke();
    void OnSegmentDeflate();
    // Selection mode's "feather and shrink" item, added to the first menu of that mode.
    void OnSelectionFeather();
    // Selection mode's cut-out from the inner and outer contours, by the solver the user chose
    // (contour_cutout.cpp runs it).
    void OnBuildSelection();
    // The large button in compose mode: the method question, then the way into selection mode it chose.
    void OnCreateSelection();
    void OnBatchKey();
    // The after-open question for a picture just opened as the first layer (not for a host's picture).
    void RunAfterOpenWizard();
    void OnRefinedEdges();
    // Plug-in mode's end of the selection work, with the result (true) or without; true when the program is to
    // end (host_return.cpp).
    bool OnHostReturn(bool withResult);
    // The help panel shows a page of the program's help folder; false when the page is missing.
    bool ShowHelpPanelPage(const char* file);

    CAppGlobals& m_app;
    std::unique_ptr<IUiServices> m_ownServices;
    IUiServices* m_pServices;
    CDocumentSession m_session;
    std::function<int(const std::string&)> m_execute;
    CImageView* m_pView;
    CLayersPanel* m_pLayers = nullptr;
    CHistoryPanel* m_pHistory = nullptr;
    QTextBrowser* m_pHelp = nullptr;
    CTabInout* m_pInout = nullptr;
    CBackgroundBar* m_pBackBar = nullptr;
    CWorkArea* m_pWorkArea = nullptr;
    QWidget* m_pToolStrip = nullptr;
    QVBoxLayout* m_pToolLayout = nullptr;
    CRuler* m_pHRuler = nullptr;
    CRuler* m_pVRuler = nullptr;
    QWidget* m_pRulerCorner = nullptr;
    QToolButton* m_pCreateSel = nullptr;
    QToolButton* m_pBuildSel = nullptr; // "buildseltip": selection mode, inner-outer method
    CToolBar* m_pToolBar = nullptr;
    CTabBlueMatting* m_pBlueTab = nullptr;
    QToolBar* m_pTopBar = nullptr;
    QAction* m_pSaveButton = nullptr;
    QLabel* m_pTip = nullptr;
    QProgressBar* m_pProgress = nullptr;
    std::map<int, QAction*> m_actions;
    bool m_composeMenus = false;
    bool m_selectionMenus = false;
    bool m_hostMode = false;
    uint32_t m_hostChannels = 3; // bytes a pixel of the host's exchange file
    std::string m_hostPath;      // the host's exchange file, where the result goes back
    bool m_refinedEdges = false; // the build uses the refined solver (profile "RefinedEdges")
    bool m_messageShown = false;
    std::string m_presetOpenPath;
};
