#include "document/merge_thread.h"

#include "document/canvas_source.h"
#include "document/compositor.h"
#include "document/layer_stack.h"

CMergeThread::~CMergeThread()
{
    Stop();
}

void CMergeThread::Start()
{
    std::lock_guard<std::mutex> state(m_stateMutex);
    if (m_thread.joinable()) return;
    m_stop = false;
    m_thread = std::thread([this] { Run(); });
}

void CMergeThread::Stop()
{
    {
        std::lock_guard<std::mutex> state(m_stateMutex);
        if (!m_thread.joinable()) return;
        m_stop = true;
    }
    m_wake.notify_all();
    m_thread.join();
    std::lock_guard<std::mutex> state(m_stateMutex);
    m_thread = std::thread();
    m_pending = false;
    m_idle.notify_all();
}

void CMergeThread::Handover(const CLayerStack* source, COLImage* target, ICanvasView* view)
{
    std::lock_guard<std::mutex> state(m_stateMutex);
    m_pSource = source;
    m_pTarget = target;
    m_pView = view;
}

void CMergeThread::Request()
{
    {
        std::lock_guard<std::mutex> state(m_stateMutex);
        if (!m_thread.joinable() || m_stop) return;
        m_pending = true;
    }
    m_wake.notify_one();
}

bool CMergeThread::IsBusy() const
{
    std::lock_guard<std::mutex> state(m_stateMutex);
    return m_pending || m_running;
}

bool CMergeThread::IsMerging() const
{
    std::lock_guard<std::mutex> state(m_stateMutex);
    return m_running;
}

bool CMergeThread::WaitIdle(std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> state(m_stateMutex);
    return m_idle.wait_for(state, timeout, [this] { return !m_pending && !m_running; });
}

uint64_t CMergeThread::GetMergeCount() const
{
    std::lock_guard<std::mutex> state(m_stateMutex);
    return m_mergeCount;
}

void CMergeThread::Run()
{
    std::unique_lock<std::mutex> state(m_stateMutex);
    for (;;) {
        m_wake.wait(state, [this] { return m_pending || m_stop; });
        if (m_stop) break;
        // Cleared before the merge starts: a request that arrives during the merge causes one more.
        m_pending = false;
        m_running = true;
        const CLayerStack* source = m_pSource;
        COLImage* target = m_pTarget;
        state.unlock();
        if (source && target) {
            std::lock_guard<std::recursive_mutex> document(m_lock);
            MergeLayers(source, target, 1);
        }
        state.lock();
        m_running = false;
        ++m_mergeCount;
        // Posted whatever the merge gave: the view repaints from what the composite holds.
        if (m_pView) m_pView->PostMergeDone();
        if (!m_pending) m_idle.notify_all();
    }
}
