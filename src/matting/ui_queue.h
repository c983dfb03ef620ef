#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

// How the core hands work to the user-interface thread. The Qt shell implements IUiPoster with a queued call;
// CUiQueue is a plain implementation for the command line and tests, drained by whichever thread plays the UI.
class IUiPoster {
public:
    virtual ~IUiPoster() = default;
    // Queues task for the user-interface thread and returns at once, from any thread.
    virtual void Post(std::function<void()> task) = 0;
};

class CUiQueue : public IUiPoster {
public:
    void Post(std::function<void()> task) override;
    // Runs everything queued so far on the calling thread; returns how many tasks ran.
    size_t RunPending();
    // Runs tasks as they arrive until done() holds (checked after each task and at the start) or the time is up.
    bool RunUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);

private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
    std::deque<std::function<void()>> m_tasks;
};
