#pragma once

#include <cstddef>
#include <functional>

// Splitting of pixel loops across the processor's cores. Every filter that uses it produces the same bytes
// whatever the split, so the thread count is a matter of speed only.
namespace vmpar {

// Threads that a pixel loop uses: the hardware's count (at most 16) unless set otherwise.
unsigned WorkerCount();
// 0 restores the automatic count. For tests that compare splits, and for callers that want one core.
void SetWorkerCount(unsigned count);

// Calls fn(begin, end, part) on consecutive disjoint ranges covering [0, count), one per thread, and returns when
// all are done. Part 0 runs on the calling thread (so it may report progress). Fewer threads are used when a
// range would hold less than minPerPart items; with one part everything runs on the calling thread.
void ParallelFor(size_t count, size_t minPerPart, const std::function<void(size_t begin, size_t end, unsigned part)>& fn);

} // namespace vmpar
