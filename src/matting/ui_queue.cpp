#include "matting/ui_queue.h"

void CUiQueue::Post(std::function<void()> task)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_tasks.push_back(std::move(task));
    }
    m_cv.notify_all();
}

size_t CUiQueue::RunPending()
{
    std::deque<std::function<void()>> tasks;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        tasks.swap(m_tasks);
    }
    for (auto& t : tasks) t();
    return tasks.size();
}

bool CUiQueue::RunUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        std::function<void()> task;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            if (!m_cv.wait_until(lock, deadline, [&] { return !m_tasks.empty(); })) return done();
            task = std::move(m_tasks.front());
            m_tasks.pop_front();
        }
        task();
    }
    return true;
}
