#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "runtime/parallel_for.h"
#include "support/runtime_limits.h"

namespace {

// Runs one split and checks that the ranges cover [0, count) once each, in order of part, with part 0 here.
void CheckSplit(size_t count, size_t minPerPart, unsigned expectParts)
{
    std::mutex m;
    std::vector<std::pair<size_t, size_t>> ranges(16, {0, 0});
    std::vector<int> hits(count, 0);
    std::atomic<unsigned> parts{0};
    const std::thread::id caller = std::this_thread::get_id();
    vmpar::ParallelFor(count, minPerPart, [&](size_t b, size_t e, unsigned part) {
        if (part == 0) {
            EXPECT_EQ(std::this_thread::get_id(), caller);
        }
        std::lock_guard<std::mutex> lock(m);
        ranges[part] = {b, e};
        for (size_t i = b; i < e; ++i) ++hits[i];
        ++parts;
    });
    EXPECT_EQ(parts.load(), expectParts);
    for (size_t i = 0; i < count; ++i) ASSERT_EQ(hits[i], 1) << i;
    for (unsigned p = 1; p < parts; ++p) EXPECT_EQ(ranges[p].first, ranges[p - 1].second);
}

} // namespace

TEST(ParallelFor, SplitsCoverEveryIndexOnce)
{
    const vmtest::ThreadCount workers(4);
    CheckSplit(1000, 1, 4);
    CheckSplit(3, 1, 3);        // never more parts than items
    CheckSplit(1000, 400, 2);   // nor parts smaller than asked
    CheckSplit(10, 100, 1);
}

TEST(ParallelFor, ConcurrentAndNestedCallsAllFinish)
{
    const vmtest::ThreadCount workers(3);
    std::atomic<size_t> total{0};
    auto work = [&] {
        for (int r = 0; r < 50; ++r)
            vmpar::ParallelFor(90, 1, [&](size_t b, size_t e, unsigned) {
                // A range that splits again, as an engine calling a filter from inside a band would.
                vmpar::ParallelFor(e - b, 1, [&](size_t b2, size_t e2, unsigned) { total += e2 - b2; });
            });
    };
    std::thread a(work), b(work);
    work();
    a.join();
    b.join();
    EXPECT_EQ(total.load(), size_t(3 * 50 * 90));
    // An exception in any range reaches the caller, after every range has ended.
    EXPECT_THROW(vmpar::ParallelFor(9, 1, [](size_t b, size_t, unsigned) {
                     if (b > 0) throw std::runtime_error("range");
                 }),
                 std::runtime_error);
}
