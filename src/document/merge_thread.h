#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

class CLayerStack;
class COLImage;
class ICanvasView;

// Merges the document into its composite in the background whenever asked. Requests coalesce: however many
// arrive, at most one merge runs and one waits. A request made while a merge runs is never lost, because the
// pending flag is cleared before the merge starts. The document lock lives here; the merge holds it throughout.
class CMergeThread {
public:
    CMergeThread() = default;
    ~CMergeThread();
    CMergeThread(const CMergeThread&) = delete;
    CMergeThread& operator=(const CMergeThread&) = delete;

    void Start();
    // Ends the thread after the merge in progress; a waiting request is dropped. Safe to call twice.
    void Stop();

    // Tells the thread what to merge and whom to notify; a null view stops notifications at once.
    void Handover(const CLayerStack* source, COLImage* target, ICanvasView* view);
    // Asks for a merge.
    void Request();

    // The document's re-entrant lock.
    void EnterLock() { m_lock.lock(); }
    void LeaveLock() { m_lock.unlock(); }

    // True while a merge runs or waits.
    bool IsBusy() const;
    // True while a merge runs (it may be waiting for the document lock).
    bool IsMerging() const;
    // Waits until nothing runs or waits; false on timeout.
    bool WaitIdle(std::chrono::milliseconds timeout) const;
    // Merges finished since the start.
    uint64_t GetMergeCount() const;

private:
    void Run();

    mutable std::mutex m_stateMutex;
    mutable std::condition_variable m_wake;
    mutable std::condition_variable m_idle;
    bool m_pending = false;
    bool m_running = false;
    bool m_stop = false;
    uint64_t m_mergeCount = 0;
    ICanvasView* m_pView = nullptr;
    COLImage* m_pTarget = nullptr;
    const CLayerStack* m_pSource = nullptr;
    std::recursive_mutex m_lock;
    std::thread m_thread;
};
