#include "matting/image_process.h"

void CImageProcess::ReportProgress(int32_t percent)
{
    if (!m_progress) return;
    // Signed and truncating, as every engine's nested range expects; 64-bit so wide ranges cannot overflow.
    const int64_t span = int64_t(m_progressHigh) - m_progressLow;
    m_progress(1, static_cast<int32_t>(m_progressLow + int64_t(percent) * span / 100));
}

long CImageProcess::Process(const void*)
{
    if (!m_pSrcImage || !m_pDstImage || m_pSrcImage->IsNull()) return kFail;
    return kOk;
}

long CImageProcess::ProcessChannel(const void*)
{
    if (!m_pSrcChannel || !m_pDstChannel || m_pSrcChannel->IsNull()) return kFail;
    return kOk;
}

int CImageProcess::CopySourceToResult()
{
    if (!m_pSrcImage || !m_pDstImage || m_pSrcImage->IsNull()) return 0;
    if (m_pSrcImage == m_pDstImage) return 1;
    return m_pDstImage->DuplicateFrom(m_pSrcImage);
}
