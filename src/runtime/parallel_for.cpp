#include "runtime/parallel_for.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace vmpar {

namespace {

std::atomic<unsigned> g_workerOverride{0};

// One call's ranges. It lives on the caller's stack; everything in it is touched under the pool's lock, and the
// caller returns only when every range is done, after which no worker looks at it again.
struct Job {
    const std::function<void(size_t, size_t, unsigned)>* fn = nullptr;
    size_t count = 0;
    size_t parts = 0;
    size_t next = 1;        // part 0 belongs to the caller
    size_t completed = 0;
    std::exception_ptr error;   // the first exception a range threw, passed on to the caller
};

// Threads that sleep until a call has ranges to hand out. They are made once and kept: a thread woken from sleep
// gets a core at once on a busy machine, where a newly started one waits its turn behind everything else.
class Pool {
public:
    ~Pool()
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_stop = true;
        }
        m_cv.notify_all();
        for (std::thread& t : m_threads) t.join();
    }

    void Run(Job& job)
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            // Helpers are started as calls first need them (and never more than the largest split asked for).
            while (m_threads.size() + 1 < job.parts) {
                try {
                    m_threads.emplace_back([this] { WorkerLoop(); });
                } catch (...) {
                    break;   // no thread to spare: the caller does the remaining ranges itself
                }
            }
            m_jobs.push_back(&job);
        }
        m_cv.notify_all();

        RunPart(job, 0);
        std::unique_lock<std::mutex> lock(m_mutex);
        // Ranges nobody has taken yet are done here too, so a call never waits on a busy pool.
        while (job.next < job.parts) {
            const size_t part = Claim(job);
            lock.unlock();
            RunPart(job, part);
            lock.lock();
        }
        m_cv.wait(lock, [&] { return job.completed == job.parts; });
        if (job.error) std::rethrow_exception(job.error);
    }

private:
    size_t Claim(Job& job)
    {
        const size_t part = job.next++;
        if (job.next == job.parts) m_jobs.erase(std::find(m_jobs.begin(), m_jobs.end(), &job));
        return part;
    }

    void RunPart(Job& job, size_t part)
    {
        std::exception_ptr error;
        try {
            (*job.fn)(job.count * part / job.parts, job.count * (part + 1) / job.parts, static_cast<unsigned>(part));
        } catch (...) {
            error = std::current_exception();
        }
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (error && !job.error) job.error = error;
            ++job.completed;
        }
        m_cv.notify_all();
    }

    void WorkerLoop()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_cv.wait(lock, [&] { return m_stop || !m_jobs.empty(); });
            if (m_stop) return;
            Job& job = *m_jobs.front();
            const size_t part = Claim(job);
            lock.unlock();
            RunPart(job, part);
            lock.lock();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_cv;
    std::deque<Job*> m_jobs;
    std::vector<std::thread> m_threads;
    bool m_stop = false;
};

Pool& ThePool()
{
    static Pool pool;
    return pool;
}

} // namespace

unsigned WorkerCount()
{
    const unsigned forced = g_workerOverride.load(std::memory_order_relaxed);
    if (forced) return forced;
    const unsigned hw = std::thread::hardware_concurrency();
    return std::clamp(hw, 1u, 16u);
}

void SetWorkerCount(unsigned count) { g_workerOverride.store(count, std::memory_order_relaxed); }

void ParallelFor(size_t count, size_t minPerPart, const std::function<void(size_t, size_t, unsigned)>& fn)
{
    if (count == 0) return;
    size_t parts = WorkerCount();
    if (minPerPart > 0) parts = std::min(parts, std::max<size_t>(1, count / minPerPart));
    parts = std::min(parts, count);
    if (parts <= 1) {
        fn(0, count, 0);
        return;
    }
    Job job;
    job.fn = &fn;
    job.count = count;
    job.parts = parts;
    ThePool().Run(job);
}

} // namespace vmpar
