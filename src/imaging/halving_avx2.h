#pragma once

// The 2 x 2 means of an exact halving, shared by the codec's resample and by the plane filter's halving that
// writes colours and alpha from one read of the source rows, so that both give the same colours.
//
// Exactly half along both axes, every output byte of the codec's resample is (a + b + c + d + 2) >> 2: the
// weights are 8192 and 8192 on each axis, the horizontal pass gives 32 (a + b) exactly and the vertical
// (2^18 (a + b + c + d) + 2^19) >> 20.

#include <cstdint>

#include "runtime/simd_level.h"

#if VM_SIMD_X86
#include <immintrin.h>

namespace vmresample {

// The means of four output pixels from eight source pixels of each row (one 32-byte load each), in 16-bit lanes,
// outputs 0 1 | 2 3: a shuffle puts the two pixels' bytes of each channel side by side and a multiply-add with
// ones sums them.
VM_TARGET_AVX2 inline __m256i PairMeansAvx2(__m256i top, __m256i bottom)
{
    const __m256i order = _mm256_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15, //
                                           0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15);
    const __m256i ones = _mm256_set1_epi8(1);
    const __m256i t = _mm256_shuffle_epi8(top, order), b = _mm256_shuffle_epi8(bottom, order);
    const __m256i sum = _mm256_add_epi16(_mm256_maddubs_epi16(t, ones), _mm256_maddubs_epi16(b, ones));
    return _mm256_srli_epi16(_mm256_add_epi16(sum, _mm256_set1_epi16(2)), 2);
}

// Eight output pixels from sixteen source pixels of each row (two loads each, the second 32 bytes on). They come
// packed as the pixels 0 1 4 5 | 2 3 6 7; HalvedInOrderAvx2 puts them in order.
VM_TARGET_AVX2 inline __m256i HalvedEightAvx2(const uint8_t* top, const uint8_t* bottom)
{
    const __m256i* t = reinterpret_cast<const __m256i*>(top);
    const __m256i* b = reinterpret_cast<const __m256i*>(bottom);
    return _mm256_packus_epi16(PairMeansAvx2(_mm256_loadu_si256(t), _mm256_loadu_si256(b)),
                               PairMeansAvx2(_mm256_loadu_si256(t + 1), _mm256_loadu_si256(b + 1)));
}

VM_TARGET_AVX2 inline __m256i HalvedInOrderAvx2(__m256i eight)
{
    return _mm256_permute4x64_epi64(eight, 0xD8);
}

// One output pixel, for the columns the vector steps leave.
inline void HalvedPixel(const uint8_t* top, const uint8_t* bottom, uint8_t* out)
{
    for (int c = 0; c < 4; ++c)
        out[c] = uint8_t((top[c] + top[c + 4] + bottom[c] + bottom[c + 4] + 2) >> 2);
}

} // namespace vmresample

#endif
