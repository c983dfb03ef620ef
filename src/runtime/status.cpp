#include "runtime/status.h"

#include <atomic>

namespace vmrt {

namespace {
std::atomic<uint64_t> g_exhaustions{0};
}

uint64_t ExhaustionCount() { return g_exhaustions.load(std::memory_order_relaxed); }

void NoteExhaustion() { g_exhaustions.fetch_add(1, std::memory_order_relaxed); }

} // namespace vmrt
