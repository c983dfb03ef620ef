#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

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
