#include "matting/process_thread.h"

CProcessThread::CProcessThread() : m_waitDlg(*this), m_worker([this] { WorkerLoop(); }) {}

CProcessThread::~CProcessThread()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
        // Only the running process is sure to be alive still; processes of earlier runs may be gone.
        if (const Job* job = m_pCurrent.load(std::memory_order_acquire)) job->process->RequestCancel();
    }
    m_cv.notify_all();
    m_worker.join();
}

uint64_t CProcessThread::Enqueue(uint32_t mode, IProcessNotify* notifyWindow, CImageProcess* process,
                                 const void* params, uint32_t userValue, int32_t progressLow, int32_t progressHigh,
                                 bool armWaitDialog)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    // One slot: a second start waits here until the first run is over.
    m_cv.wait(lock, [&] { return !m_slotTaken || m_stop; });
    if (m_stop) return 0;
    m_slotTaken = true;
    m_busy.store(1, std::memory_order_release);

    Job job;
    job.mode = mode;
    job.process = process;
    job.params = params;
    job.userValue = userValue;
    job.notify = notifyWindow;
    // A listener serves one run: this start takes it, so a listener set for a later run cannot be taken by this one,
    // nor this one's by a later start.
    job.listener = m_pListener.exchange(nullptr, std::memory_order_acq_rel);
    job.run = ++m_lastRun;
    m_hNotify.store(notifyWindow, std::memory_order_release);
    (mode == 0 ? m_pImageProcess : m_pChannelProcess).store(process, std::memory_order_release);
    if (process) {
        // A cancel left over from an earlier run (one that ended before it looked) must not stop this one.
        process->TestAndClearCancel();
        process->SetProgressRange(progressLow, progressHigh);
        process->SetProgressCallback({&CProcessThread::ThreadProgress, this});
    }
    if (armWaitDialog) m_waitDlg.Arm(job.run);
    m_queue.push_back(job);
    lock.unlock();
    m_cv.notify_all();
    return job.run;
}

long CProcessThread::StartImageProcess(IProcessNotify* notifyWindow, CImageProcess* process, const void* params,
                                       uint32_t userValue, int32_t progressLow, int32_t progressHigh, int noWaitDialog)
{
    const uint64_t run = Enqueue(0, notifyWindow, process, params, userValue, progressLow, progressHigh, noWaitDialog == 0);
    if (!run) return kFail;
    if (noWaitDialog != 0) return noWaitDialog;
    return m_waitDlg.DoModal(run);
}

void CProcessThread::StartChannelProcess(IProcessNotify* notifyWindow, CImageProcess* process, const void* params,
                                         uint32_t userValue, int32_t progressLow, int32_t progressHigh,
                                         int noWaitDialog)
{
    const uint64_t run = Enqueue(1, notifyWindow, process, params, userValue, progressLow, progressHigh, noWaitDialog == 0);
    if (run && noWaitDialog == 0) m_waitDlg.DoModal(run);
}

void CProcessThread::CancelRunning()
{
    if (CImageProcess* p = m_pImageProcess.load(std::memory_order_acquire)) p->RequestCancel();
    if (CImageProcess* p = m_pChannelProcess.load(std::memory_order_acquire)) p->RequestCancel();
}

void CProcessThread::WaitIdle() const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_cv.wait(lock, [&] { return m_busy.load(std::memory_order_relaxed) == 0; });
}

void CProcessThread::WaitDone() const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_cv.wait(lock, [&] { return m_queue.empty() && !m_handling; });
}

void CProcessThread::SetIdle()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_busy.store(0, std::memory_order_release);
    }
    m_cv.notify_all();
}

void CProcessThread::Handled()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_handling = false;
    }
    m_cv.notify_all();
}

void CProcessThread::ReleaseSlot()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_slotTaken = false;
    }
    m_cv.notify_all();
}

void CProcessThread::WorkerLoop()
{
    for (;;) {
        Job job;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_cv.wait(lock, [&] { return m_stop || !m_queue.empty(); });
            if (m_queue.empty()) return;   // stopping, and nothing was left to run
            job = m_queue.front();
            m_queue.pop_front();
            m_handling = true;
            if (m_stop) {
                // Shutting down: a queued run is not started, but nobody may be left waiting for it.
                lock.unlock();
                SetIdle();
                m_waitDlg.OnCloseWait(job.run);
                ReleaseSlot();
                Handled();
                continue;
            }
        }
        HandleStart(job);
        Handled();
    }
}

void CProcessThread::HandleStart(const Job& job)
{
    // A start must name a window or have a listener; otherwise nothing runs and nothing is reported. The wait
    // dialog is still closed, so that the caller is not left standing in front of a run that never comes.
    if (!job.notify && !job.listener) {
        SetIdle();
        m_waitDlg.OnCloseWait(job.run);
        ReleaseSlot();
        return;
    }
    if (job.process && (job.mode == 0 || job.mode == 1)) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_pCurrent.store(&job, std::memory_order_release);
        }
        // Nothing an engine throws may end the worker (and with it the program): the run simply failed.
        long result = kFail;
        try {
            result = job.mode == 0 ? job.process->Process(job.params) : job.process->ProcessChannel(job.params);
        } catch (const std::bad_alloc&) {
            vmrt::NoteExhaustion();
        } catch (...) {
        }
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_pCurrent.store(nullptr, std::memory_order_release);
        }
        m_lastResult.store(result, std::memory_order_release);
    }
    SetIdle();
    m_waitDlg.OnCloseWait(job.run);
    ReleaseSlot();
    if (job.notify) job.notify->PostProcessEvent(1, int32_t(job.userValue));
    if (job.listener) job.listener->OnProcessEvent(1, int32_t(job.userValue));
}

void CProcessThread::ThreadProgress(void* self, uint32_t code, int32_t value)
{
    if (code != 1) return;
    CProcessThread* thread = static_cast<CProcessThread*>(self);
    if (const Job* job = thread->m_pCurrent.load(std::memory_order_acquire)) {
        if (job->notify) job->notify->PostProcessEvent(0, value);
        if (job->listener) job->listener->OnProcessEvent(0, value);
    }
    if (IStatusProgress* status = thread->m_pStatus.load(std::memory_order_acquire))
        status->PostStatusProgress(value < 0 || value > 100 ? 100 : value);
}
