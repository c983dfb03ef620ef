#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

#include "matting/image_process.h"
#include "matting/process_wait.h"

// The window a run reports to. Calls come on the worker thread; an implementation posts the event to its own
// thread and returns at once (first 0: progress with the percentage; 1: done with the caller's value).
class IProcessNotify {
public:
    virtual ~IProcessNotify() = default;
    virtual void PostProcessEvent(uint32_t first, int32_t second) = 0;
};

// The status bar's progress, posted the same way; the value is already clamped to 0..100.
class IStatusProgress {
public:
    virtual ~IStatusProgress() = default;
    virtual void PostStatusProgress(int percent) = 0;
};

// The single worker: runs one process at a time from its own queue while the user interface waits in a modal
// dialog or shows a live preview. A second start waits until the first run has finished. Completion reaches the
// notify window (posted) and the listener (on the worker thread) exactly once per run.
class CProcessThread {
public:
    CProcessThread();
    // Asks a running process to stop, lets it return, and ends the thread. Whatever a run was given (process,
    // notify window, listener) must outlive the thread or at least that run.
    ~CProcessThread();
    CProcessThread(const CProcessThread&) = delete;
    CProcessThread& operator=(const CProcessThread&) = delete;

    // Hands process a run in image mode. params must outlive the run. With noWaitDialog 0 the call shows the wait
    // dialog and returns its result (CProcessWaitDlg::kEndedBy...); otherwise it returns noWaitDialog at once.
    long StartImageProcess(IProcessNotify* notifyWindow, CImageProcess* process, const void* params, uint32_t userValue,
                           int32_t progressLow, int32_t progressHigh, int noWaitDialog);
    // The same in channel mode.
    void StartChannelProcess(IProcessNotify* notifyWindow, CImageProcess* process, const void* params,
                             uint32_t userValue, int32_t progressLow, int32_t progressHigh, int noWaitDialog);

    // True from a start until its process has returned (a start still in the queue counts as busy).
    bool IsBusy() const { return m_busy.load(std::memory_order_acquire) != 0; }
    long GetLastResult() const { return m_lastResult.load(std::memory_order_acquire); }
    IProcessNotify* GetNotifyWindow() const { return m_hNotify.load(std::memory_order_acquire); }
    // The listener is taken (and the field cleared) by the next start, and serves that one run.
    void SetListener(IProcessListener* listener) { m_pListener.store(listener, std::memory_order_release); }
    IProcessListener* GetListener() const { return m_pListener.load(std::memory_order_acquire); }
    void SetStatusProgress(IStatusProgress* status) { m_pStatus.store(status, std::memory_order_release); }

    // Requests cancel of the last image-mode and the last channel-mode process, running or not.
    void CancelRunning();
    // Blocks until the worker is idle: what callers do before they touch the images a process was given.
    void WaitIdle() const;
    // Blocks until everything queued has run and its completion has gone out to window and listener: after this
    // the worker no longer holds on to any of them.
    void WaitDone() const;

    CProcessWaitDlg& GetWaitDialog() { return m_waitDlg; }

private:
    // Everything a start hands over (params, user value, notify window, listener) travels with its queue entry,
    // so a later start or SetListener cannot change a run that is already queued.
    struct Job {
        uint32_t mode = 0;   // 0 image, 1 channel
        CImageProcess* process = nullptr;
        const void* params = nullptr;
        uint32_t userValue = 0;
        IProcessNotify* notify = nullptr;
        IProcessListener* listener = nullptr;
        uint64_t run = 0;
    };

    uint64_t Enqueue(uint32_t mode, IProcessNotify* notifyWindow, CImageProcess* process, const void* params,
                     uint32_t userValue, int32_t progressLow, int32_t progressHigh, bool armWaitDialog);
    void WorkerLoop();
    void HandleStart(const Job& job);
    void SetIdle();
    void ReleaseSlot();
    void Handled();
    static void ThreadProgress(void* self, uint32_t code, int32_t value);

    std::atomic<IProcessNotify*> m_hNotify{nullptr};
    std::atomic<uint32_t> m_busy{0};
    std::atomic<long> m_lastResult{0};
    std::atomic<CImageProcess*> m_pImageProcess{nullptr};
    std::atomic<CImageProcess*> m_pChannelProcess{nullptr};
    std::atomic<IProcessListener*> m_pListener{nullptr};
    std::atomic<IStatusProgress*> m_pStatus{nullptr};
    std::atomic<const Job*> m_pCurrent{nullptr};   // the job being run, for progress

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_cv;   // queue changes, stop, idle
    std::deque<Job> m_queue;
    uint64_t m_lastRun = 0;
    // Taken by a start and given back once its run's wait dialog has been closed; IsBusy ends a little earlier,
    // when the process returns.
    bool m_slotTaken = false;
    bool m_handling = false;   // a job has left the queue and its completion is not yet out
    bool m_stop = false;

    CProcessWaitDlg m_waitDlg;
    std::thread m_worker;   // last: it starts once everything above exists
};
