#include "interchange/packbits.h"

#include <bit>
#include <cstring>

#include "runtime/simd_level.h"

#if VM_SIMD_X86
#include <immintrin.h>
#endif

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

// A row is scanned for the first run of three equal bytes, and a run found is followed to its end (at most 128
// bytes from its start). Both scans exist once per instruction set; every one returns the same positions, and
// each vector scan leaves the last few bytes of a row to the one below it, so no load reaches past the row.

namespace plain {

// The first position j >= from with src[j] == src[j + 1] == src[j + 2], or n when there is none. Eight positions
// are tested at once: a byte of (a ^ b) | (b ^ c) is zero exactly where three equal bytes begin.
inline size_t FindRun(const uint8_t* src, size_t from, size_t n)
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

// The first position from `from` on whose byte differs from v, or limit.
inline size_t RunEnd(const uint8_t* src, size_t from, size_t limit, uint8_t v)
{
    while (from < limit && src[from] == v)
        ++from;
    return from;
}

} // namespace plain

#if VM_SIMD_X86
namespace sse2 {

// Sixteen positions at a time: a set bit of the mask marks a position where three equal bytes begin.
VM_TARGET_SSE2 inline size_t FindRun(const uint8_t* src, size_t from, size_t n)
{
    size_t j = from;
    for (; j + 18 <= n; j += 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + j));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + j + 1));
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + j + 2));
        const unsigned m = unsigned(_mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(a, b), _mm_cmpeq_epi8(b, c))));
        if (m) return j + static_cast<size_t>(std::countr_zero(m));
    }
    return plain::FindRun(src, j, n);
}

VM_TARGET_SSE2 inline size_t RunEnd(const uint8_t* src, size_t from, size_t limit, uint8_t v)
{
    const __m128i value = _mm_set1_epi8(static_cast<char>(v));
    for (; from + 16 <= limit; from += 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + from));
        const unsigned differ = ~unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(x, value))) & 0xFFFFu;
        if (differ) return from + static_cast<size_t>(std::countr_zero(differ));
    }
    return plain::RunEnd(src, from, limit, v);
}

} // namespace sse2

namespace avx2 {

VM_TARGET_AVX2 inline size_t FindRun(const uint8_t* src, size_t from, size_t n)
{
    size_t j = from;
    for (; j + 34 <= n; j += 32) {
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + j));
        const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + j + 1));
        const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + j + 2));
        const auto m =
            uint32_t(_mm256_movemask_epi8(_mm256_and_si256(_mm256_cmpeq_epi8(a, b), _mm256_cmpeq_epi8(b, c))));
        if (m) return j + static_cast<size_t>(std::countr_zero(m));
    }
    return sse2::FindRun(src, j, n);
}

VM_TARGET_AVX2 inline size_t RunEnd(const uint8_t* src, size_t from, size_t limit, uint8_t v)
{
    const __m256i value = _mm256_set1_epi8(static_cast<char>(v));
    for (; from + 32 <= limit; from += 32) {
        const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + from));
        const uint32_t differ = ~uint32_t(_mm256_movemask_epi8(_mm256_cmpeq_epi8(x, value)));
        if (differ) return from + static_cast<size_t>(std::countr_zero(differ));
    }
    return sse2::RunEnd(src, from, limit, v);
}

} // namespace avx2
#endif

// Copies 1 to 127 bytes with a few fixed-size moves that may overlap one another, never past either end: a
// general memcpy or a string move costs more to start than such a copy takes.
inline void CopyShort(uint8_t* __restrict dst, const uint8_t* __restrict src, size_t count)
{
    if (count >= 16) {
        for (size_t k = 0; k + 16 < count; k += 16)
            std::memcpy(dst + k, src + k, 16);
        std::memcpy(dst + count - 16, src + count - 16, 16);
    } else if (count >= 8) {
        std::memcpy(dst, src, 8);
        std::memcpy(dst + count - 8, src + count - 8, 8);
    } else if (count >= 4) {
        std::memcpy(dst, src, 4);
        std::memcpy(dst + count - 4, src + count - 4, 4);
    } else {
        dst[0] = src[0];
        dst[count / 2] = src[count / 2];
        dst[count - 1] = src[count - 1];
    }
}

// The encoder, written once and inlined into one function per instruction set so that the scans inline too.
template <size_t (*FindRun)(const uint8_t*, size_t, size_t), size_t (*RunEnd)(const uint8_t*, size_t, size_t, uint8_t)>
[[gnu::always_inline]] inline size_t Encode(uint8_t* dst, const uint8_t* src, size_t n)
{
    uint8_t* out = dst;
    size_t i = 0;
    while (i < n) {
        const size_t run = FindRun(src, i, n);
        for (; run - i >= 128; i += 128, out += 128) { // literals in pieces of at most 128
            *out++ = 127;
            std::memcpy(out, src + i, 128);
        }
        if (i < run) {
            const size_t count = run - i;
            *out++ = static_cast<uint8_t>(count - 1);
            CopyShort(out, src + i, count);
            out += count;
            i = run;
        }
        if (run >= n) break;
        const uint8_t v = src[run];
        const size_t end = RunEnd(src, run + 3, n - run < 128 ? n : run + 128, v);
        *out++ = static_cast<uint8_t>(257 - (end - run));
        *out++ = v;
        i = end;
    }
    return static_cast<size_t>(out - dst);
}

size_t EncodePlain(uint8_t* dst, const uint8_t* src, size_t n)
{
    return Encode<plain::FindRun, plain::RunEnd>(dst, src, n);
}

#if VM_SIMD_X86
VM_TARGET_SSE2 size_t EncodeSse2(uint8_t* dst, const uint8_t* src, size_t n)
{
    return Encode<sse2::FindRun, sse2::RunEnd>(dst, src, n);
}

VM_TARGET_AVX2 size_t EncodeAvx2(uint8_t* dst, const uint8_t* src, size_t n)
{
    return Encode<avx2::FindRun, avx2::RunEnd>(dst, src, n);
}
#endif

} // namespace

size_t EncodePackBits(uint8_t* dst, const uint8_t* src, size_t n)
{
#if VM_SIMD_X86
    switch (vmsimd::CurrentLevel()) {
    case vmsimd::kAvx2: return EncodeAvx2(dst, src, n);
    case vmsimd::kSse2: return EncodeSse2(dst, src, n);
    default: break;
    }
#endif
    return EncodePlain(dst, src, n);
}
