#include "matting/process_wait.h"

#include "matting/process_thread.h"

void CProcessWaitDlg::SetHost(IWaitDialogHost* host)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_pHost = host;
}

void CProcessWaitDlg::Arm(uint64_t run)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_run = run;
    m_ended = false;
    m_escaping = false;
    m_result = 0;
}

int CProcessWaitDlg::DoModal(uint64_t run)
{
    IWaitDialogHost* host;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        host = m_pHost;
    }
    if (host) host->RunModal(*this);
    std::unique_lock<std::mutex> lock(m_mutex);
    // With a host its loop has ended by now; without one this is the modal wait itself.
    m_cv.wait(lock, [&] { return m_ended || m_run != run; });
    return m_run == run ? m_result : kEndedByRun;
}

void CProcessWaitDlg::OnCloseWait(uint64_t run)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (run != m_run || m_ended || m_escaping) return;
    }
    End(kEndedByRun);
}

void CProcessWaitDlg::OnEscape()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_ended) return;
        m_escaping = true;
    }
    if (m_thread.IsBusy()) m_thread.CancelRunning();
    // An engine that does not look at its cancel flag runs to its end: the dialog stays until then.
    m_thread.WaitIdle();
    End(kEndedByEscape);
}

bool CProcessWaitDlg::IsOpen() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_run != 0 && !m_ended;
}

void CProcessWaitDlg::End(int result)
{
    IWaitDialogHost* host;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_ended) return;
        m_ended = true;
        m_result = result;
        host = m_pHost;
    }
    m_cv.notify_all();
    if (host) host->EndModal();
}
