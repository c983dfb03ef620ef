#include "interchange/packbits.h"

#include <bit>
#include <cstring>

size_t DecodePackBits(uint8_t* dst, size_t dstSize, const uint8_t* src, size_t srcSize)
{
    size_t in = 0, out = 0;
    while (in < srcSize && out < dstSize) {
        const int n = static_cast<int8_t>(src[in++]);
        if (n == -128) continue;
        if (n >= 0) {
            size_t count = static_cast<size_t>(n) + 1;
            if (count > srcSize - in) count = srcSize - in;
            if (count > dstSize - out) count = dstSize - out;
            std::memcpy(dst + out, src + in, count);
            in += count;
            out += count;
        } else {
            if (in >= srcSize) break;
            size_t count = static_cast<size_t>(1 - n);
            if (count > dstSize - out) count = dstSize - out;
            std::memset(dst + out, src[in++], count);
            out += count;
        }
    }
    return out;
}

namespace {

// The first position j >= from with src[j] == src[j + 1] == src[j + 2], or n when there is none. Eight positions
// are tested at once: a byte of (a ^ b) | (b ^ c) is zero exactly where three equal bytes begin.
size_t FindRun(const uint8_t* src, size_t from, size_t n)
{
    size_t j = from;
    if constexpr (std::endian::native == std::endian::little) {
        constexpr uint64_t kOnes = 0x0101010101010101ull, kHigh = 0x8080808080808080ull;
        while (j + 10 <= n) {
            uint64_t a, b, c;
            std::memcpy(&a, src + j, 8);
            std::memcpy(&b, src + j + 1, 8);
            std::memcpy(&c, src + j + 2, 8);
            const uint64_t x = (a ^ b) | (b ^ c);
            // The lowest flagged byte is exactly the lowest zero byte; higher flags may be false.
            const uint64_t zero = (x - kOnes) & ~x & kHigh;
            if (zero) return j + static_cast<size_t>(std::countr_zero(zero) / 8);
            j += 8;
        }
    }
    for (; j + 2 < n; ++j)
        if (src[j] == src[j + 1] && src[j] == src[j + 2]) return j;
    return n;
}

} // namespace

size_t EncodePackBits(uint8_t* dst, const uint8_t* src, size_t n)
{
    uint8_t* out = dst;
    size_t i = 0;
    while (i < n) {
        const size_t run = FindRun(src, i, n);
        while (i < run) { // literals in pieces of at most 128
            const size_t count = run - i < 128 ? run - i : 128;
            *out++ = static_cast<uint8_t>(count - 1);
            std::memcpy(out, src + i, count);
            out += count;
            i += count;
        }
        if (run >= n) break;
        const uint8_t v = src[run];
        size_t end = run + 3;
        while (end < n && end - run < 128 && src[end] == v)
            ++end;
        *out++ = static_cast<uint8_t>(257 - (end - run));
        *out++ = v;
        i = end;
    }
    return static_cast<size_t>(out - dst);
}
