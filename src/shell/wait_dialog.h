#pragma once

#include <QDialog>
#include <atomic>
#include <functional>

#include "matting/process_thread.h"
#include "matting/ui_queue.h"

class QLabel;
class QProgressBar;

// The worker's wait dialog in the window: small, borderless and modal, with the engine's progress in a bar. Esc
// asks the run to stop and keeps the dialog up until the engine has returned (CProcessWaitDlg::OnEscape), so a
// run never goes on in the background with pictures the window is about to use again.
class CWaitDialog : public QDialog, public IWaitDialogHost {
    Q_OBJECT
public:
    explicit CWaitDialog(QWidget* parent);

    // IWaitDialogHost: on the interface thread, and from any thread.
    void RunModal(CProcessWaitDlg& dialog) override;
    void EndModal() override;
    // A progress report from any thread.
    void PostProgress(int percent);

    QProgressBar* ProgressBar() const { return m_pBar; }
    // Called once the dialog is up, on the interface thread (tests press Esc from here).
    std::function<void(CWaitDialog&)> onShown;

protected:
    void reject() override;   // Esc
    void closeEvent(QCloseEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    std::atomic<CProcessWaitDlg*> m_pLogic{nullptr};
    QLabel* m_pText;
    QProgressBar* m_pBar;
};

// How the window runs a process on the worker: the wait dialog while it works, its progress in the dialog and in
// the status bar (status, may be null, is reset at the end). Answers the process's result; cancelled (may be
// null) tells whether Esc ended the wait. Blocks until the worker has let go of the process and its params.
long RunProcessWithWait(CProcessThread& worker, CImageProcess& process, const void* params, QWidget* parent,
                        IStatusProgress* status = nullptr, bool* cancelled = nullptr,
                        const std::function<void(CWaitDialog&)>& onShown = {});

// Tasks for the interface thread, queued through Qt's event loop (what dialog logic in the core posts to).
class CQtUiPoster : public IUiPoster {
public:
    void Post(std::function<void()> task) override;
};
