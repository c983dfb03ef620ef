#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

class CProcessThread;
class CProcessWaitDlg;

// The window side of the wait dialog, implemented by the shell: a borderless dialog and a modal loop.
class IWaitDialogHost {
public:
    virtual ~IWaitDialogHost() = default;
    // Shows the dialog and runs a modal loop on the calling (user-interface) thread until EndModal. ESC in the
    // dialog calls dialog.OnEscape().
    virtual void RunModal(CProcessWaitDlg& dialog) = 0;
    // Ends the modal loop. Comes from any thread, the worker included, so it posts; it may arrive before RunModal
    // has started, and RunModal must then return at once.
    virtual void EndModal() = 0;
};

// The logic of the modal wait shown during a worker run: it closes when the run ends, and ESC cancels the run and
// keeps the dialog up until the engine has returned, so a run is never abandoned while it still uses its images.
// Without a host the modal wait simply blocks the calling thread (the command line and tests).
class CProcessWaitDlg {
public:
    // What DoModal returns.
    static constexpr int kEndedByRun = 1;
    static constexpr int kEndedByEscape = 2;

    explicit CProcessWaitDlg(CProcessThread& thread) : m_thread(thread) {}
    CProcessWaitDlg(const CProcessWaitDlg&) = delete;
    CProcessWaitDlg& operator=(const CProcessWaitDlg&) = delete;

    void SetHost(IWaitDialogHost* host);

    // Prepares the dialog for the given run before its start is posted, so an early end is not missed. Starts with
    // the wait dialog come from one thread, the user interface's.
    void Arm(uint64_t run);
    // The modal wait for that run: kEndedByRun or kEndedByEscape.
    int DoModal(uint64_t run);
    // The worker's close message for a run; messages of other runs are ignored.
    void OnCloseWait(uint64_t run);
    // ESC: cancel the run if there is one, wait until the worker is idle, then close.
    void OnEscape();
    bool IsOpen() const;

private:
    void End(int result);

    CProcessThread& m_thread;
    IWaitDialogHost* m_pHost = nullptr;
    mutable std::mutex m_mutex;
    std::condition_variable m_cv;
    uint64_t m_run = 0;        // the run the dialog waits for; 0 when not armed
    bool m_ended = true;
    bool m_escaping = false;   // ESC is waiting for the worker: its close message must not end the dialog first
    int m_result = 0;
};
