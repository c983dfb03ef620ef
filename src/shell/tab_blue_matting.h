#pragma once

#include <QPointer>
#include <QWidget>
#include <memory>

#include "matting/backdrop_key_run.h"
#include "matting/blue_matting_logic.h"
#include "matting/default_proc_dlg.h"
#include "shell/wait_dialog.h"
#include "tools/bk_picker_tool.h"

class CAppGlobals;
class CToolBar;
class IUiServices;
class QCheckBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QSlider;
class QTabWidget;
class CTabBlueMatting;

// The cleaning page's histogram of the cut-out's alpha with the two level handles.
class CAlphaHistogram : public QWidget {
    Q_OBJECT
public:
    CAlphaHistogram(CBlueMattingLogic& logic, QWidget* parent);
    // Recounts from the picture whose alpha is the cut-out's (null: "nomask").
    void SetResult(const COLImage* result);
    // Left and right of the bars, in widget pixels.
    int Left() const { return 2; }
    int Right() const { return width() - 2; }
    // A handle was released: the levels changed.
    std::function<void()> onLevelsChanged;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    CBlueMattingLogic& m_logic;
    std::vector<int> m_bins;
    int m_dragging = 0; // 1 low handle, 2 high handle
};

// The live preview behind the page's controls: a change while a cut-out stands keys the picture again on the
// worker, without a wait dialog (progress in the page and the status bar); a change during a run cancels it and
// runs once more afterwards. Close puts back the cut-out as it was last applied.
class CBlueMattingPreview : public DefaultProcDlg {
public:
    CBlueMattingPreview(CTabBlueMatting& page, CProcessThread& thread, IUiPoster& ui)
        : DefaultProcDlg(thread, ui), m_page(page)
    {
    }
    void StartProcess() override;
    void OnProcessFinished(uint32_t userValue, long result) override;
    void OnProcessProgress(int percent) override;
    // Forgets a pending restart and waits for the worker: a pick or Apply takes over.
    void Abandon();
    // The baseline Close goes back to.
    void Keep(COLImage* working, COLChannel* mask)
    {
        SaveImage(working);
        SaveChannel(mask);
    }
    int FinishedRuns() const { return m_finished; }
    int StartedRuns() const { return m_started; }
    bool IsRunning() const { return m_running; }

protected:
    void OnClosed() override;

private:
    CTabBlueMatting& m_page;
    CBackdropKeyRun m_run;
    COLImage m_result;
    int m_generation = 0;
    int m_started = 0;
    int m_finished = 0;
    bool m_running = false;
};

// The chroma-key page of the side panel: strength, cleaning levels with the alpha histogram, the check boxes
// (feather, shadow, colour recovery, JPEG chroma, refined key), the hue strip, Apply and Revert. It serves the
// backdrop picker tool: picks run behind the wait dialog, control changes preview live.
class CTabBlueMatting : public QWidget, public IBkPickerPage {
    Q_OBJECT
public:
    CTabBlueMatting(CAppGlobals& app, CToolBar& bar, QWidget* parent);
    ~CTabBlueMatting() override;

    // IBkPickerPage
    CBlueMattingLogic& Logic() override { return m_logic; }
    bool IsRefined() const override;
    void ShowPage(bool show) override;
    void OnPicked() override;
    void OnResult() override;
    void OnReset() override;
    long RunKey(CImageProcess& process, const void* params, bool& cancelled) override;
    void WaitIdle() override;

    // The status bar's progress during runs (may be null).
    void SetStatusProgress(IStatusProgress* status) { m_pStatus = status; }
    // Entering the chroma method: no colour, strength back at 50, the picker current.
    void Enter();

    // Apply: the current settings become the cut-out, with its history step. Revert: the last applied cut-out
    // and settings come back.
    void Apply();
    void Revert();

    CBlueMattingPreview& Preview() { return *m_pPreview; }
    CBkPickerTool& Picker();
    QSlider* StrengthSlider() const { return m_pStrength; }
    QCheckBox* FeatherBox() const { return m_pFeather; }
    QCheckBox* ShadowBox() const { return m_pShadow; }
    QCheckBox* RecoverBox() const { return m_pRecover; }
    QCheckBox* JpegBox() const { return m_pJpeg; }
    QCheckBox* RefineBox() const { return m_pRefine; }
    QPushButton* ApplyButton() const { return m_pApply; }
    QPushButton* RevertButton() const { return m_pRevert; }
    QTabWidget* Tabs() const { return m_pTabs; }
    CAlphaHistogram* Histogram() const { return m_pHistogram; }
    QLabel* Strip() const { return m_pStrip; }

private:
    friend class CBlueMattingPreview;
    struct Controls {
        int slider = 50, levelLow = 32, levelHigh = 255;
        uint32_t includeShadow = 1, recoverColour = 1, jpegChroma = 1, featherSelection = 0;
        bool refine = false;
    };
    Controls Read() const;
    void Write(const Controls& c);
    void SyncWidgets();
    // A control changed: the logic follows, and a standing cut-out is keyed again.
    void OnControlChanged();
    void RefreshStrip();
    void SetPending(bool pending);
    // The preview's result stands: the buttons offer Apply and Revert.
    void OnPreviewShown();

    CAppGlobals& m_app;
    CToolBar& m_bar;
    QPointer<CToolBar> m_pBarAlive; // the bar may go first when the window closes
    CBlueMattingLogic m_logic;
    CQtUiPoster m_poster;
    std::unique_ptr<CProcessThread> m_pOwnThread; // only when the application has no worker
    std::unique_ptr<CBlueMattingPreview> m_pPreview;
    IStatusProgress* m_pStatus = nullptr;
    Controls m_applied;
    int m_generation = 0;      // goes up at every pick, apply, revert and reset: older previews are stale
    bool m_taking = false;     // the preview is putting its result in place
    bool m_syncing = false;    // widgets are being set from the logic
    QTabWidget* m_pTabs = nullptr;
    QSlider* m_pStrength = nullptr;
    QCheckBox* m_pFeather = nullptr;
    QCheckBox* m_pShadow = nullptr;
    QCheckBox* m_pRecover = nullptr;
    QCheckBox* m_pJpeg = nullptr;
    QCheckBox* m_pRefine = nullptr;
    QPushButton* m_pApply = nullptr;
    QPushButton* m_pRevert = nullptr;
    QProgressBar* m_pProgress = nullptr;
    CAlphaHistogram* m_pHistogram = nullptr;
    QLabel* m_pStrip = nullptr;
};

namespace selmode {

// Selection mode with the chroma-key method on the current layer (the menu item): refused with "cantsel" on a
// layer with transparency. The page shows and the backdrop picker is current. True when the mode was entered.
bool EnterChromaKey(CToolBar& bar, CTabBlueMatting& page, IUiServices& services);

} // namespace selmode
