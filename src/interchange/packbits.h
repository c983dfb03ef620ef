#pragma once

#include <cstddef>
#include <cstdint>

// PackBits, the run-length code of PSD channel data. A header byte n (signed) is followed by n + 1 literal bytes
// when n >= 0, or by one byte to repeat 1 - n times when n < 0; -128 is a no-op.

// Decodes src into dst and stops at whichever end comes first: the input, or dstSize bytes of output. A literal
// that runs past the input copies what there is. Returns the number of bytes written.
size_t DecodePackBits(uint8_t* dst, size_t dstSize, const uint8_t* src, size_t srcSize);

// The most bytes EncodePackBits writes for n input bytes.
inline size_t PackBitsBound(size_t n)
{
    return n + (n + 127) / 128;
}

// Encodes one row: runs of three or more equal bytes become repeats, everything else literals of up to 128.
// dst must hold PackBitsBound(n) bytes. Returns the number of bytes written.
size_t EncodePackBits(uint8_t* dst, const uint8_t* src, size_t n);
