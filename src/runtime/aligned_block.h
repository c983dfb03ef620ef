#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>

#include "runtime/status.h"

// Raw block with the 16-byte alignment rule shared by images and planes:
// buffer = allocation - (allocation mod 16) + 16, so 16 spare bytes are always allocated.
struct AlignedBlock {
    static bool Allocate(size_t bytes, void*& allocation, uint8_t*& buffer)
    {
        allocation = std::malloc(bytes + 16);
        if (!allocation) {
            vmrt::NoteExhaustion();   // so that a front end can say "not enough memory"
            buffer = nullptr;
            return false;
        }
        const uintptr_t a = reinterpret_cast<uintptr_t>(allocation);
        buffer = reinterpret_cast<uint8_t*>(a - (a % 16) + 16);
        return true;
    }
    static void Release(void*& allocation)
    {
        std::free(allocation);
        allocation = nullptr;
    }
};

namespace vmrt {

inline constexpr size_t kHugePage = size_t(2) << 20;

// Asks for huge pages over the whole 2 MiB pages inside [p, p + bytes), where the system gives them. For buffers of
// tens of megabytes filled once: small pages would cost a fault each, two when first read.
inline void PreferHugePages(void* p, size_t bytes)
{
#ifdef MADV_HUGEPAGE
    const uintptr_t a = reinterpret_cast<uintptr_t>(p);
    const uintptr_t first = (a + kHugePage - 1) & ~uintptr_t(kHugePage - 1);
    const uintptr_t last = (a + bytes) & ~uintptr_t(kHugePage - 1);
    if (last > first) madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
#else
    (void)p;
    (void)bytes;
#endif
}

} // namespace vmrt
