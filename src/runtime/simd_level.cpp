#include "runtime/simd_level.h"

#include <algorithm>
#include <atomic>

namespace vmsimd {

namespace {

std::atomic<int> g_limit{-1};

Level Detect()
{
#if defined(__GNUC__) && defined(__x86_64__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2")) return kAvx2;
    return kSse2;
#else
    return kPlain;
#endif
}

} // namespace

Level CurrentLevel()
{
    static const Level best = Detect();
    const int limit = g_limit.load(std::memory_order_relaxed);
    return limit < 0 ? best : Level(std::min<int>(best, limit));
}

void LimitLevel(int level) { g_limit.store(level, std::memory_order_relaxed); }

} // namespace vmsimd
