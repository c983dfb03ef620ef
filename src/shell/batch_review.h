#pragma once

#include <QPointer>
#include <QToolBar>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "imaging/image.h"
#include "matting/batch_file_process.h"
#include "matting/batch_key.h"
#include "matting/process_thread.h"

class CAppGlobals;
class CBatchDlg;
class CImageView;
class CToolBar;
class IUiServices;
class QLabel;
class QMainWindow;
class QToolButton;

// The review way of the batch: selection mode (chroma-key method) shows each photo's cut-out in turn, where the
// tools of the mode correct it; the bar's button writes it ("(2/5)Next >", at the last photo "Finish the batch")
// and goes on with the next photo. The photo is read and keyed on the worker, with the chroma-key panel's record
// (the chroma-key page's, read again for every photo, so that a change on the page holds for the photos that
// follow). A photo that cannot be read
// is named on the bar and skipped. After the last one the message "batover" comes, and selection mode ends without
// touching the open document. Leaving selection mode any other way ends the batch there.
class CBatchReview : public QToolBar, public IProcessNotify {
    Q_OBJECT
public:
    CBatchReview(QMainWindow* frame, CAppGlobals& app, CToolBar& bar, CImageView* view, IUiServices& services,
                 std::vector<std::string> files, batchkey::Settings settings);
    ~CBatchReview() override;

    // Enters selection mode and starts the first photo. False when selection mode cannot be entered.
    bool Start();
    // The bar's button: writes the current result and goes on.
    void Next();
    bool IsBatch() const { return !m_files.empty(); }
    size_t Index() const { return m_index; }
    bool IsKeying() const { return m_keying; }
    QToolButton* NextButton() const { return m_pNext; }
    const std::vector<batchkey::Failure>& Failures() const { return m_failures; }
    // What the key of each photo runs with; the backdrop is the photo's colour by the batch's mode.
    std::function<ChromaKeySettings()> reviewSettings;

    // IProcessNotify: from the worker thread.
    void PostProcessEvent(uint32_t first, int32_t second) override;

private:
    void ProcessBatchFile();
    void OnKeyed(uint64_t run);
    void UpdateButton();
    void End(bool finished);

    CAppGlobals& m_app;
    CToolBar& m_bar;
    QPointer<QWidget> m_pBarAlive; // the frame deletes the bar before this one
    CImageView* m_pView;
    IUiServices& m_services;
    std::vector<std::string> m_files;
    batchkey::Settings m_settings;
    size_t m_index = 0;
    COLImage m_source; // the photo under review: the selection document's untouched picture
    std::unique_ptr<CBatchFileProcess> m_pProcess;
    BatchFileParams m_params;
    bool m_keying = false;
    bool m_ended = false;
    std::atomic<uint64_t> m_runId{0};
    std::vector<batchkey::Failure> m_failures;
    QLabel* m_pLabel = nullptr;
    QToolButton* m_pNext = nullptr;
};

// The menu item "Batch chroma key...": the dialog over the open photo, then the review when it was asked for.
// Tests see the dialog before it runs through the hook (null: none) and may drive it from there.
// The review keys each photo with what reviewSettings gives (the chroma-key page's record); null: the defaults.
void RunBatchKey(QMainWindow* frame, CAppGlobals& app, CToolBar& bar, CImageView* view, IUiServices& services,
                 const std::string& documentPath, std::function<ChromaKeySettings()> reviewSettings = nullptr);
void SetBatchDialogHook(std::function<void(CBatchDlg&)> hook);
// The review under way, null when none.
CBatchReview* CurrentBatchReview();
