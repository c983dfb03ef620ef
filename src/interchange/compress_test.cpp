#include "interchange/compress_test.h"

#include <vector>

#include "imaging/codec.h"
#include "runtime/status.h"

long CCompressTestProcess::Process(const void* params)
{
    if (CImageProcess::Process(params) != kOk || !params) return kFail;
    m_quality = static_cast<const CompressTestParams*>(params)->quality;
    m_compressedSize = 0;
    std::vector<uint8_t> bytes;
    const std::function<bool()> cancel = [this] { return TestAndClearCancel() != 0; };
    // The resolution is the one the JPEG save stores.
    if (!EncodeJpegToMemory(*m_pSrcImage, m_quality, 72, bytes, &cancel)) return kFail;
    m_compressedSize = bytes.size();
    if (m_onSize) m_onSize(m_compressedSize);
    ReportProgress(50);
    if (m_loadResult) {
        if (TestAndClearCancel()) return kFail;
        if (!DecodeJpegFromMemory(bytes.data(), bytes.size(), *m_pDstImage)) return kFail;
    }
    ReportProgress(100);
    return kOk;
}
