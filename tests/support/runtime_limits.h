#pragma once

#include <functional>
#include <string>

#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"

// Set where the sanitizers reserve address space up front, so that an address-space limit (RLIMIT_AS) cannot be
// used to make allocations fail.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VM_NO_ADDRESS_LIMIT 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VM_NO_ADDRESS_LIMIT 1
#endif
#endif

namespace vmtest {

// Caps the vector level and fixes the pool's split for one scope, then restores the automatic choice (also when
// an assertion leaves the scope early).
class RuntimeLimits {
public:
    RuntimeLimits(int level, unsigned workers)
    {
        vmsimd::LimitLevel(level);
        vmpar::SetWorkerCount(workers);
    }
    ~RuntimeLimits()
    {
        vmsimd::LimitLevel(-1);
        vmpar::SetWorkerCount(0);
    }
    RuntimeLimits(const RuntimeLimits&) = delete;
    RuntimeLimits& operator=(const RuntimeLimits&) = delete;
};

// Thread count or instruction set alone for the life of a scope; the engines must give the same bytes under each.
struct ThreadCount {
    explicit ThreadCount(unsigned n) { vmpar::SetWorkerCount(n); }
    ~ThreadCount() { vmpar::SetWorkerCount(0); }
};

struct SimdCap {
    explicit SimdCap(int level) { vmsimd::LimitLevel(level); }
    ~SimdCap() { vmsimd::LimitLevel(-1); }
};

inline constexpr unsigned kThreadCounts[] = {1, 2, 3, 5};

// Runs fn at every vector level with one worker, then at the best level with splits of 2, 3 and 7 (odd counts
// leave uneven parts). label names the combination for a failure message.
inline void ForEachLevelAndSplit(const std::function<void(const std::string& label)>& fn)
{
    for (int level : {vmsimd::kPlain, vmsimd::kSse2, vmsimd::kAvx2}) {
        RuntimeLimits limits(level, 1);
        fn("level " + std::to_string(int(vmsimd::CurrentLevel())) + ", 1 worker");
    }
    for (unsigned workers : {2u, 3u, 7u}) {
        RuntimeLimits limits(-1, workers);
        fn("level " + std::to_string(int(vmsimd::CurrentLevel())) + ", " + std::to_string(workers) + " workers");
    }
}

} // namespace vmtest
