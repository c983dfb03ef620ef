#pragma once

#include <QDialog>
#include <QImage>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "imaging/image.h"
#include "matting/batch_file_process.h"
#include "matting/batch_key.h"
#include "matting/process_thread.h"

class IUiServices;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QProgressBar;
class QPushButton;

// The preview pane of the batch dialog: the open photo stretched into the pane. In the point mode a white
// crosshair of 7 x 7 with a gap at its centre marks the point; in the colour mode a patch of the colour stands
// in its corner, framed in white. With either mode a click on the picture takes the mean of the four pixels left,
// right, below and above it as the colour, and its place in percent as the point.
class CBatchPreview : public QWidget {
    Q_OBJECT
public:
    explicit CBatchPreview(QWidget* parent = nullptr);
    void SetPicture(const COLImage* picture);
    void SetMode(int colourMode, int pickX, int pickY, CPixel colour);
    // The widget point that shows image pixel (x, y), and back (null point outside the picture).
    QPoint ImageToWidget(int x, int y) const;
    bool WidgetToImage(const QPoint& p, int& x, int& y) const;
    QSize sizeHint() const override { return {240, 180}; }

Q_SIGNALS:
    void Picked(int x, int y);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;

private:
    QRect PictureRect() const;
    const COLImage* m_pPicture = nullptr;
    QImage m_image;
    int m_mode = 0;
    int m_pickX = 10, m_pickY = 10;
    CPixel m_colour{0, 0, 0, 255};
};

// "Batch chroma key": the photos of one shoot, how each one's backdrop colour is found, where the cut-outs go and
// what they are called, and then either the unattended run inside the dialog or the review of each result in
// selection mode. The unattended run keys one photo at a time on the worker (reading, keying and writing all
// happen there), so the window stays free; its bar shows the progress over all photos. Cancel, Esc or closing
// the window stop it after the photo under way, whose result is then not written; the photos done stay. A photo
// that cannot be read is skipped and named at the end with the others that failed.
class CBatchDlg : public QDialog, public IProcessNotify {
    Q_OBJECT
public:
    // How the dialog ended.
    enum EOutcome { kCancelled = 0, kReview = 1, kFinished = 2 };

    // picture: the open photo (preview and the default colour), documentPath its file; worker may be null (the
    // run then happens on the calling thread, for tests of the window alone).
    CBatchDlg(QWidget* parent, IUiServices& services, CProcessThread* worker, const COLImage* picture,
              const std::string& documentPath);
    ~CBatchDlg() override;

    // The list: duplicates (the same file by its resolved path) are refused; removing never empties the list.
    void AddFiles(const std::vector<std::string>& paths);
    void RemoveSelected();
    const std::vector<std::string>& Files() const { return m_files; }
    // The settings as the controls show them.
    batchkey::Settings GetSettings() const;
    bool IsReview() const;
    EOutcome Outcome() const { return m_outcome; }
    bool IsRunning() const { return m_running; }
    const std::vector<batchkey::Failure>& Failures() const { return m_failures; }
    // The last run's written files, in order.
    const std::vector<std::string>& Written() const { return m_written; }

    // Test and window hooks: what "加" and "..." ask (defaults: the file dialogs).
    std::function<std::vector<std::string>()> chooseFiles;
    std::function<std::string()> chooseFolder;

    QListWidget* List() const { return m_pList; }
    CBatchPreview* Preview() const { return m_pPreview; }
    QComboBox* ColourMode() const { return m_pMode; }
    QCheckBox* ReviewBox() const { return m_pReview; }
    QCheckBox* RefineBox() const { return m_pRefine; }
    QLineEdit* FolderEdit() const { return m_pFolder; }
    QLineEdit* AffixEdit() const { return m_pAffix; }
    QCheckBox* PrefixBox() const { return m_pPrefix; }
    QProgressBar* Progress() const { return m_pProgress; }
    QPushButton* ContinueButton() const { return m_pContinue; }
    QPushButton* CancelButton() const { return m_pCancel; }
    CPixel FixedColour() const { return m_fixedColour; }
    int PickX() const { return m_pickX; }
    int PickY() const { return m_pickY; }

    // IProcessNotify: from the worker thread.
    void PostProcessEvent(uint32_t first, int32_t second) override;

public Q_SLOTS:
    // "继续 >": review closes the dialog for selection mode; otherwise the unattended run starts.
    void Continue();

protected:
    void reject() override; // Cancel and Esc
    void closeEvent(QCloseEvent* event) override;

private:
    void OnPicked(int x, int y);
    void SyncPreview();
    void SetInputsEnabled(bool enabled);
    void StartNext();
    void OnFileDone(uint64_t run);
    void Finish();
    void StopWorker();

    IUiServices& m_services;
    CProcessThread* m_pWorker;
    const COLImage* m_pPicture;
    std::vector<std::string> m_files;
    int m_pickX = 10, m_pickY = 10;
    CPixel m_fixedColour{0, 0, 0, 255};
    size_t m_index = 0;
    batchkey::Settings m_settings; // of the run under way
    std::unique_ptr<CBatchFileProcess> m_pProcess;
    BatchFileParams m_params;
    bool m_running = false;
    bool m_stopping = false;
    EOutcome m_outcome = kCancelled;
    std::atomic<uint64_t> m_runId{0};
    std::vector<batchkey::Failure> m_failures;
    std::vector<std::string> m_written;

    QListWidget* m_pList = nullptr;
    CBatchPreview* m_pPreview = nullptr;
    QLabel* m_pSwatch = nullptr;
    QComboBox* m_pMode = nullptr;
    QCheckBox* m_pReview = nullptr;
    QCheckBox* m_pRefine = nullptr; // the refined key (slower) for every photo
    QLineEdit* m_pFolder = nullptr;
    QLineEdit* m_pAffix = nullptr;
    QCheckBox* m_pPrefix = nullptr;
    QProgressBar* m_pProgress = nullptr;
    QPushButton* m_pAdd = nullptr;
    QPushButton* m_pRemove = nullptr;
    QPushButton* m_pBrowse = nullptr;
    QPushButton* m_pContinue = nullptr;
    QPushButton* m_pCancel = nullptr;
    QLabel* m_pStatus = nullptr;
};
