#include "matting/default_proc_dlg.h"

DefaultProcDlg::~DefaultProcDlg() { m_thread.WaitDone(); }

void DefaultProcDlg::PostProcessEvent(uint32_t first, int32_t second)
{
    m_ui.Post([this, first, second] { OnProcessEvent(first, second); });
}

void DefaultProcDlg::OnProcessEvent(uint32_t first, int32_t second)
{
    if (first == 0) {
        OnProcessProgress(second >= 100 ? 0 : second);
    } else if (first == 1) {
        OnProcessFinished(uint32_t(second), m_thread.GetLastResult());
    }
}

void DefaultProcDlg::OnProcessFinished(uint32_t, long) { OnFinishedRestart(); }

void DefaultProcDlg::OnProcessProgress(int) {}

void DefaultProcDlg::SaveImage(COLImage* layerImage)
{
    m_pImageTarget = layerImage;
    if (layerImage) m_savedImage.DuplicateFrom(layerImage);
}

void DefaultProcDlg::SaveChannel(COLChannel* selectionPlane)
{
    m_pChannelTarget = selectionPlane;
    if (selectionPlane) m_savedChannel.DuplicateFrom(selectionPlane);
}

void DefaultProcDlg::Restart()
{
    UpdateData();
    if (!m_thread.IsBusy()) {
        // This run has the latest values: a restart asked for during the previous run is served by it.
        m_restartPending = 0;
        StartProcess();
        return;
    }
    // A flag, not a count: any number of changes during one run make one more run.
    m_restartPending = 1;
    m_thread.CancelRunning();
}

void DefaultProcDlg::OnFinishedRestart()
{
    if (!m_restartPending) return;
    m_restartPending = 0;
    Restart();
}

void DefaultProcDlg::Close(bool restoreChannel)
{
    m_thread.WaitIdle();
    m_restartPending = 0;
    if (restoreChannel) {
        if (m_pChannelTarget && !m_savedChannel.IsNull()) m_pChannelTarget->DuplicateFrom(&m_savedChannel);
    } else if (m_pImageTarget && !m_savedImage.IsNull()) {
        m_pImageTarget->DuplicateFrom(&m_savedImage);
    }
    OnClosed();
}
