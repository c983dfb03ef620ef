#pragma once

#include <cstddef>
#include <cstdint>

// The columns of a row that a stamping raised: first and last index, or first > last when nothing changed.
struct CStampSpan {
    int32_t first = 1;
    int32_t last = 0;
    bool IsEmpty() const { return first > last; }
};

// The inner loop of the brush: one row of a stamp scaled by a weight and laid into the stroke mask by maximum,
// dst[k] = max(dst[k], src[k] * weight / 255) with truncating division. weight is 0..255. Answers which bytes
// rose, so that the tools redo only those pixels. Every vector level gives the same bytes and the same span.
CStampSpan StampRowMax(uint8_t* dst, const uint8_t* src, size_t count, uint32_t weight);

// x / 255 for 0 <= x <= 65535 without a division.
inline uint32_t Div255(uint32_t x) { return (x + 1 + (x >> 8)) >> 8; }
