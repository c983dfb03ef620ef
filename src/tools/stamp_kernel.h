#pragma once

#include <cstddef>
#include <cstdint>

// The inner loop of the brush: one row of a stamp scaled by a weight and laid into the stroke mask by maximum,
// dst[k] = max(dst[k], src[k] * weight / 255) with truncating division. weight is 0..255. Every vector level
// gives the same bytes.
void StampRowMax(uint8_t* dst, const uint8_t* src, size_t count, uint32_t weight);

// x / 255 for 0 <= x <= 65535 without a division.
inline uint32_t Div255(uint32_t x) { return (x + 1 + (x >> 8)) >> 8; }
