#pragma once

// Which instruction set the pixel loops use. All levels give the same bytes; tests run each one, and the
// automatic choice takes the best that the processor has.
//
// One way to write a per-level kernel: an ordinary function marked VM_TARGET_AVX2 (or VM_TARGET_SSE2), compiled
// in the same source as its plain twin and chosen at run time with CurrentLevel(). Code that uses intrinsics
// sits under `#if VM_SIMD_X86`. No other detection or target switch exists in the program, so LimitLevel caps
// every loop at once.
#if defined(__GNUC__) && defined(__x86_64__)
#define VM_SIMD_X86 1
#define VM_TARGET_AVX2 __attribute__((target("avx2")))
#define VM_TARGET_SSE2 __attribute__((target("sse2")))
#else
#define VM_SIMD_X86 0
#define VM_TARGET_AVX2
#define VM_TARGET_SSE2
#endif

namespace vmsimd {

enum Level : int { kPlain = 0, kSse2 = 1, kAvx2 = 2 };

// The level in use: the processor's best, capped by LimitLevel.
Level CurrentLevel();
// Caps the level (for tests and comparisons); a negative value removes the cap.
void LimitLevel(int level);

} // namespace vmsimd
