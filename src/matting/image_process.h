#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "imaging/result.h"

// Progress goes out through a plain function and a context word, so that an engine can hand its own callback
// on to a sub-process unchanged and the callee needs no allocation. Code 1 carries a progress value.
struct ProgressCallback {
    using Function = void (*)(void* context, uint32_t code, int32_t value);
    Function function = nullptr;
    void* context = nullptr;

    explicit operator bool() const { return function != nullptr; }
    void operator()(uint32_t code, int32_t value) const { function(context, code, value); }
};

// Told of a worker run: event 0 is progress with a percentage, event 1 completion with the caller's value.
// Events arrive on the worker thread, so an implementation only records or posts.
class IProcessListener {
public:
    virtual ~IProcessListener() = default;
    virtual void OnProcessEvent(uint32_t event, int32_t value) = 0;
};

// Base of every long pixel operation. It owns nothing it is given: the caller keeps sources and destinations
// alive for the run. The same object runs directly on any thread or on the worker (CProcessThread).
class CImageProcess {
public:
    CImageProcess() = default;
    virtual ~CImageProcess() = default;
    CImageProcess(const CImageProcess&) = delete;
    CImageProcess& operator=(const CImageProcess&) = delete;

    virtual ProgressCallback GetProgressCallback() const { return m_progress; }
    virtual void SetProgressRange(int32_t low, int32_t high)
    {
        m_progressLow = low;
        m_progressHigh = high;
    }
    virtual void SetProgressCallback(ProgressCallback callback) { m_progress = callback; }
    // Maps this object's 0..100 into the range the caller gave, so nested engines share one scale.
    virtual void ReportProgress(int32_t percent);
    // 1 when a cancel was requested since the last test (and clears the request), else 0.
    virtual uint32_t TestAndClearCancel() { return m_cancel.exchange(0, std::memory_order_relaxed); }
    // Safe from any thread; the engine notices at its next test.
    virtual void RequestCancel() { m_cancel.store(1, std::memory_order_relaxed); }

    // Image mode. The base only checks the inputs: kOk when source and destination are set and the source has
    // pixels, else kFail. Engines call it first and then work.
    virtual long Process(const void* params);
    virtual void AddImage(COLImage* image) { m_extraImages.push_back(image); }
    virtual void ClearImages() { m_extraImages.clear(); }
    virtual void SetImages(COLImage* src, COLImage* dst)
    {
        m_pSrcImage = src;
        m_pDstImage = dst;
    }

    // Plane mode, checked the same way.
    virtual long ProcessChannel(const void* params);
    virtual void AddChannel(COLChannel* channel) { m_extraChannels.push_back(channel); }
    virtual void ClearChannels() { m_extraChannels.clear(); }
    virtual void SetChannels(COLChannel* src, COLChannel* dst)
    {
        m_pSrcChannel = src;
        m_pDstChannel = dst;
    }

    // Makes the destination a copy of the source: 1, or 0 when it cannot be created.
    int CopySourceToResult();

    COLImage* GetSrcImage() const { return m_pSrcImage; }
    COLImage* GetDstImage() const { return m_pDstImage; }
    COLChannel* GetSrcChannel() const { return m_pSrcChannel; }
    COLChannel* GetDstChannel() const { return m_pDstChannel; }
    const std::vector<COLImage*>& GetExtraImages() const { return m_extraImages; }
    const std::vector<COLChannel*>& GetExtraChannels() const { return m_extraChannels; }
    int32_t GetProgressLow() const { return m_progressLow; }
    int32_t GetProgressHigh() const { return m_progressHigh; }

protected:
    COLImage* m_pSrcImage = nullptr;
    COLImage* m_pDstImage = nullptr;
    std::vector<COLImage*> m_extraImages;
    COLChannel* m_pSrcChannel = nullptr;
    COLChannel* m_pDstChannel = nullptr;
    std::vector<COLChannel*> m_extraChannels;
    ProgressCallback m_progress;
    // Whoever sets a callback also sets the range; zero until then so that a stray report is harmless.
    int32_t m_progressLow = 0;
    int32_t m_progressHigh = 0;
    std::atomic<uint32_t> m_cancel{0};
};
