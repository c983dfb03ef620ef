#pragma once

#include <QDialog>
#include <QImage>
#include <atomic>

#include "effects/lens_blur_dialog.h"
#include "matting/process_thread.h"

class CAppGlobals;
class CSelectionDocument;
class IStatusProgress;
class IUiServices;
class QComboBox;
class QLabel;
class QSlider;
class QTimer;

// The depth panel: the panel rectangle of the dialog logic (kDepthPanel) in this widget's own pixels, so that a
// click here is a click of the logic's dialog coordinates. Flat depth shows a grid; the tunnel and the horizon
// show the picture, lightened, with the perspective figure drawn over it in inverting ink.
class CDepthPanel : public QWidget {
    Q_OBJECT
public:
    CDepthPanel(CLensBlurDlgLogic& logic, QWidget* parent);
    void SetThumbnail(const QImage& picture) { m_thumbnail = picture; }
    QSize sizeHint() const override;

Q_SIGNALS:
    void Clicked(int x, int y);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;

private:
    CLensBlurDlgLogic& m_logic;
    QImage m_thumbnail;
};

// The picture of the reduced preview document, letterboxed on dark gray, with the run's progress at its bottom.
class CLensPreview : public QWidget {
    Q_OBJECT
public:
    explicit CLensPreview(QWidget* parent);
    void SetPicture(const QImage& picture);
    void SetProgress(int percent); // -1: no run
    int Progress() const { return m_progress; }
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QImage m_picture;
    int m_progress = -1;
};

// The lens blur dialog in the window. Every change of a control restarts the preview on the worker (a run that is
// going is asked to stop first), so the window never waits for it. OK runs the blur on the document's current
// layer behind the wait dialog (Esc stops it and returns here with the document unchanged); Cancel leaves the
// document as it was, since only the preview document was touched.
class CLensBlurDlg : public QDialog, public IProcessNotify {
    Q_OBJECT
public:
    // settings: the entry's (MenuEntrySettings or WizardEntrySettings).
    CLensBlurDlg(QWidget* parent, CAppGlobals& app, IUiServices& services, IStatusProgress* status,
                 const LensBlurSettings& settings);
    ~CLensBlurDlg() override;

    // False when the preview or the aperture picture cannot be had: the dialog is not shown then.
    bool Init();

    // IProcessNotify: from the worker.
    void PostProcessEvent(uint32_t first, int32_t second) override;

    CLensBlurDlgLogic& Logic() { return m_logic; }
    bool IsPreviewRunning() const { return m_running; }
    int PreviewsFinished() const { return m_previewsFinished; }
    // Reads the controls into the settings.
    void ReadControls();

public:
    void accept() override; // OK: the final run
    void reject() override;

private:
    void StartPreview();
    void OnRunEnded();
    void StopPreview();
    void UpdateControls();
    void ShowPreview();

    CAppGlobals& m_app;
    IUiServices& m_services;
    IStatusProgress* m_pStatus;
    CLensBlurDlgLogic m_logic;
    LensBlurParams m_params;
    CDepthPanel* m_pDepth = nullptr;
    CLensPreview* m_pPreview = nullptr;
    QComboBox* m_pMode = nullptr;
    QComboBox* m_pShape = nullptr;
    QSlider* m_pFocus = nullptr;
    QSlider* m_pAmplitude = nullptr;
    QSlider* m_pRadius = nullptr;
    QSlider* m_pThreshold = nullptr;
    QLabel* m_pHint = nullptr;
    QTimer* m_pRestart = nullptr;
    bool m_running = false;
    bool m_rerunPending = false;
    bool m_finalRunning = false;
    int m_previewsFinished = 0;
    std::atomic<int> m_lastProgress{0};
};

// The menu entry: blurs the current layer and records the step "lensblur". True when the layer was blurred.
bool RunLensBlurDialog(QWidget* parent, CAppGlobals& app, IUiServices& services, IStatusProgress* status);

// The blur-background entry after a cut-out, called while selection mode brings its result back: the result
// becomes the document's selection, a copy of the layer with the cut-out as its alpha goes above it and becomes
// current, then the dialog blurs the layer below with the selection as the foreground mask (the subject's colours
// are kept out of the blur) and records nothing of its own; the selection is cleared and the copy is current
// again. The caller records the step. False (the document as it was) when the result could not be brought back.
bool BlurBackgroundAfterCutout(QWidget* parent, CAppGlobals& app, IUiServices& services, CSelectionDocument& selection,
                               IStatusProgress* status);
