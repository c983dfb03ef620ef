#pragma once

#include <cstdint>

// Division by a divisor fixed for a whole loop, done as a multiply and a shift so that the loop vectorises.
// With m = ceil(2^32 / d) = (2^32 + e) / d, 0 <= e < d, and x = q d + r:
//   x m / 2^32 = q + r / d + x e / (d 2^32),
// which stays below q + 1 as long as x e < 2^32. For x < 256 d (every 8-bit mean of weights summing to d)
// and d <= 4096 that holds, so the result is exactly x / d. Tests check every quotient boundary.
struct ExactDivider {
    static constexpr uint32_t kMaxDivisor = 4096;

    uint32_t magic = 0;

    ExactDivider() = default;
    // d in [2, kMaxDivisor]; valid for dividends below 256 * d.
    explicit ExactDivider(uint32_t d) : magic(static_cast<uint32_t>(((uint64_t(1) << 32) + d - 1) / d)) {}

    uint32_t operator()(uint32_t x) const { return static_cast<uint32_t>((uint64_t(x) * magic) >> 32); }
};
