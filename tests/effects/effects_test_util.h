#pragma once

#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"

namespace vmtest {

// Thread count and instruction set for the life of a scope; the engines must give the same bytes under each.
struct ThreadCount {
    explicit ThreadCount(unsigned n) { vmpar::SetWorkerCount(n); }
    ~ThreadCount() { vmpar::SetWorkerCount(0); }
};

struct SimdCap {
    explicit SimdCap(int level) { vmsimd::LimitLevel(level); }
    ~SimdCap() { vmsimd::LimitLevel(-1); }
};

inline constexpr unsigned kThreadCounts[] = {1, 2, 3, 5};

} // namespace vmtest
