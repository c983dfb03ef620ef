#include "matting/parallel_for.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace vmpar {

namespace {
std::atomic<unsigned> g_workerOverride{0};
}

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
    auto bound = [&](size_t i) { return count * i / parts; };
    std::vector<std::thread> threads;
    threads.reserve(parts - 1);
    try {
        for (size_t i = 1; i < parts; ++i)
            threads.emplace_back([&fn, b = bound(i), e = bound(i + 1), i] { fn(b, e, static_cast<unsigned>(i)); });
    } catch (...) {
        // No thread to spare: the calling thread does the remaining ranges itself.
        for (size_t i = threads.size() + 1; i < parts; ++i) fn(bound(i), bound(i + 1), static_cast<unsigned>(i));
    }
    fn(0, bound(1), 0);
    for (std::thread& t : threads) t.join();
}

} // namespace vmpar
