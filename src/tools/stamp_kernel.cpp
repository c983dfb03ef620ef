#include "tools/stamp_kernel.h"

#include "runtime/simd_level.h"

#if VM_SIMD_X86
#include <immintrin.h>
#endif

namespace {

// Adds the columns from..to (inclusive) to a span.
inline void Widen(CStampSpan& span, int32_t from, int32_t to)
{
    if (span.IsEmpty()) span.first = from;
    span.last = to;
}

void StampRowPlain(uint8_t* dst, const uint8_t* src, size_t count, uint32_t weight, size_t k, CStampSpan& span)
{
    for (; k < count; ++k) {
        const uint8_t t = uint8_t(src[k] * weight / 255);
        if (dst[k] < t) {
            dst[k] = t;
            Widen(span, int32_t(k), int32_t(k));
        }
    }
}

// Bit i of `raised` set: byte k + i rose.
inline void WidenByMask(CStampSpan& span, size_t k, uint32_t raised)
{
    if (raised) Widen(span, int32_t(k) + __builtin_ctz(raised), int32_t(k) + 31 - __builtin_clz(raised));
}

#if VM_SIMD_X86
// 16 bytes at a time: widen to 16 bits, multiply, divide by 255 as (x + 1 + (x >> 8)) >> 8 (exact for products
// of two bytes), pack and take the maximum.
VM_TARGET_SSE2 CStampSpan StampRowSse2(uint8_t* dst, const uint8_t* src, size_t count, uint32_t weight)
{
    CStampSpan span;
    const __m128i w = _mm_set1_epi16(short(weight)), one = _mm_set1_epi16(1), zero = _mm_setzero_si128();
    size_t k = 0;
    for (; k + 16 <= count; k += 16) {
        const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + k));
        __m128i lo = _mm_mullo_epi16(_mm_unpacklo_epi8(s, zero), w);
        __m128i hi = _mm_mullo_epi16(_mm_unpackhi_epi8(s, zero), w);
        lo = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(lo, one), _mm_srli_epi16(lo, 8)), 8);
        hi = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(hi, one), _mm_srli_epi16(hi, 8)), 8);
        const __m128i t = _mm_packus_epi16(lo, hi);
        __m128i* d = reinterpret_cast<__m128i*>(dst + k);
        const __m128i old = _mm_loadu_si128(d), raised = _mm_max_epu8(old, t);
        _mm_storeu_si128(d, raised);
        WidenByMask(span, k, uint32_t(~_mm_movemask_epi8(_mm_cmpeq_epi8(raised, old))) & 0xFFFFu);
    }
    StampRowPlain(dst, src, count, weight, k, span);
    return span;
}

VM_TARGET_AVX2 CStampSpan StampRowAvx2(uint8_t* dst, const uint8_t* src, size_t count, uint32_t weight)
{
    CStampSpan span;
    const __m256i w = _mm256_set1_epi16(short(weight)), one = _mm256_set1_epi16(1);
    size_t k = 0;
    for (; k + 16 <= count; k += 16) {
        const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + k));
        __m256i x = _mm256_mullo_epi16(_mm256_cvtepu8_epi16(s), w);
        x = _mm256_srli_epi16(_mm256_add_epi16(_mm256_add_epi16(x, one), _mm256_srli_epi16(x, 8)), 8);
        const __m128i t = _mm_packus_epi16(_mm256_castsi256_si128(x), _mm256_extracti128_si256(x, 1));
        __m128i* d = reinterpret_cast<__m128i*>(dst + k);
        const __m128i old = _mm_loadu_si128(d), raised = _mm_max_epu8(old, t);
        _mm_storeu_si128(d, raised);
        WidenByMask(span, k, uint32_t(~_mm_movemask_epi8(_mm_cmpeq_epi8(raised, old))) & 0xFFFFu);
    }
    StampRowPlain(dst, src, count, weight, k, span);
    return span;
}
#endif

} // namespace

CStampSpan StampRowMax(uint8_t* dst, const uint8_t* src, size_t count, uint32_t weight)
{
#if VM_SIMD_X86
    switch (vmsimd::CurrentLevel()) {
    case vmsimd::kAvx2:
        return StampRowAvx2(dst, src, count, weight);
    case vmsimd::kSse2:
        return StampRowSse2(dst, src, count, weight);
    default: break;
    }
#endif
    CStampSpan span;
    StampRowPlain(dst, src, count, weight, 0, span);
    return span;
}
