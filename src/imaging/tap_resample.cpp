#include "imaging/tap_resample.h"

#include <algorithm>
#include <vector>

#include "imaging/halving_avx2.h"
#include "imaging/image.h"
#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"

#if VM_SIMD_X86
#include <immintrin.h>
#endif

namespace vmresample {

namespace {

constexpr int kWeightBits = 14;
constexpr int kOne = 1 << kWeightBits;
constexpr int kMidBits = 6;                        // extra precision kept between the passes
constexpr int kHShift = kWeightBits - kMidBits;    // horizontal sums to the middle precision
constexpr int kVShift = kWeightBits + kMidBits;    // vertical sums to bytes

// Per output sample: the first source index and the weights of the run of source samples it reads.
struct Taps {
    std::vector<uint32_t> start;
    std::vector<uint32_t> offset; // where each output's weights begin in weights
    std::vector<int32_t> weights;
    std::vector<uint32_t> pairs; // Pair(i) of every output
    uint32_t most = 0;           // the longest run
    // Outputs before pairSafe read their source sample and the one after it inside the line, so a kernel may
    // load both even when the second has no weight.
    uint32_t pairSafe = 0;

    uint32_t Count(uint32_t i) const { return offset[i + 1] - offset[i]; }
    // The first two weights of output i as one word, low half first (0 in the high half for a single tap): the
    // 16-bit lanes a multiply-add pairs with a sample and its neighbour. Every weight fits: at most 1 << 14.
    uint32_t Pair(uint32_t i) const { return pairs[i]; }
};

// Area average: output i covers source [i * src / dst, (i + 1) * src / dst), each source pixel weighted by
// how much of it lies inside. Exact integers in units of 1 / dst.
// Bilinear (when the side grows): centres aligned, clamped at the edges.
Taps MakeTaps(uint32_t src, uint32_t dst)
{
    Taps t;
    t.start.resize(dst);
    t.offset.resize(dst + 1);
    std::vector<int64_t> raw;
    for (uint32_t i = 0; i < dst; ++i) {
        t.offset[i] = static_cast<uint32_t>(t.weights.size());
        raw.clear();
        int64_t total;
        if (dst <= src) {
            const uint64_t lo = uint64_t(i) * src, hi = uint64_t(i + 1) * src; // in units of 1 / dst
            const uint32_t first = static_cast<uint32_t>(lo / dst);
            const uint32_t last = static_cast<uint32_t>((hi - 1) / dst);
            t.start[i] = first;
            for (uint32_t j = first; j <= last; ++j) {
                const uint64_t a = std::max<uint64_t>(lo, uint64_t(j) * dst);
                const uint64_t b = std::min<uint64_t>(hi, uint64_t(j + 1) * dst);
                raw.push_back(int64_t(b - a));
            }
            total = int64_t(src);
        } else {
            // Source position of the output centre, in units of 1 / (2 dst).
            const int64_t pos = std::max<int64_t>(0, int64_t(2 * i + 1) * src - dst);
            const uint32_t j = static_cast<uint32_t>(std::min<int64_t>(pos / (2 * int64_t(dst)), src - 1));
            const int64_t frac = j == src - 1 ? 0 : pos - int64_t(j) * 2 * dst;
            t.start[i] = j;
            raw.push_back(2 * int64_t(dst) - frac);
            if (frac) raw.push_back(frac);
            total = 2 * int64_t(dst);
        }
        // Quantise, then give the rounding remainder to the heaviest tap so the sum is exact.
        int32_t sum = 0;
        size_t heaviest = 0;
        for (size_t k = 0; k < raw.size(); ++k) {
            const int32_t w = static_cast<int32_t>((raw[k] * kOne + total / 2) / total);
            t.weights.push_back(w);
            sum += w;
            if (raw[k] > raw[heaviest]) heaviest = k;
        }
        t.weights[t.offset[i] + heaviest] += kOne - sum;
        t.most = std::max(t.most, static_cast<uint32_t>(raw.size()));
    }
    t.offset[dst] = static_cast<uint32_t>(t.weights.size());
    t.pairs.resize(dst);
    for (uint32_t i = 0; i < dst; ++i)
        t.pairs[i] = uint32_t(t.weights[t.offset[i]]) | (t.Count(i) > 1 ? uint32_t(t.weights[t.offset[i] + 1]) << 16 : 0);
    while (t.pairSafe < dst && t.start[t.pairSafe] + 1 < src)
        ++t.pairSafe; // starts never fall, so the outputs that may load a pair come first
    return t;
}

// ---- horizontal pass: one source row into dw pixels of 16-bit samples --------------------------------------

void RowHPlain(const uint8_t* row, const Taps& t, uint16_t* out, uint32_t first, uint32_t end)
{
    for (uint32_t x = first; x < end; ++x) {
        const uint8_t* s = row + size_t(t.start[x]) * 4;
        int32_t a0 = 0, a1 = 0, a2 = 0, a3 = 0;
        for (uint32_t k = t.offset[x]; k < t.offset[x + 1]; ++k, s += 4) {
            const int32_t w = t.weights[k];
            a0 += w * s[0];
            a1 += w * s[1];
            a2 += w * s[2];
            a3 += w * s[3];
        }
        constexpr int round = 1 << (kHShift - 1);
        out[4 * x] = static_cast<uint16_t>((a0 + round) >> kHShift);
        out[4 * x + 1] = static_cast<uint16_t>((a1 + round) >> kHShift);
        out[4 * x + 2] = static_cast<uint16_t>((a2 + round) >> kHShift);
        out[4 * x + 3] = static_cast<uint16_t>((a3 + round) >> kHShift);
    }
}

// ---- vertical pass: output row from the horizontal rows ----------------------------------------------------

void RowVPairPlain(const uint16_t* top, const uint16_t* bottom, uint32_t pair, uint8_t* out, size_t first,
                   size_t count)
{
    const int32_t w0 = int32_t(pair & 0xFFFF), w1 = int32_t(pair >> 16);
    constexpr int32_t round = 1 << (kVShift - 1);
    for (size_t i = first; i < count; ++i)
        out[i] = static_cast<uint8_t>((w0 * top[i] + w1 * bottom[i] + round) >> kVShift);
}

#if VM_SIMD_X86
// Up to two taps per output: the pixel at the start and the one after it (with weight 0 for a single tap) come
// in as eight bytes, their channels go into pairs of 16-bit lanes, and one multiply-add weighs all four.
__m128i PairSse2(const uint8_t* pixels, uint32_t pair)
{
    const __m128i p = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(pixels)), _mm_setzero_si128());
    const __m128i lanes = _mm_unpacklo_epi16(p, _mm_srli_si128(p, 8)); // b0 b1 g0 g1 r0 r1 a0 a1
    const __m128i sum = _mm_madd_epi16(lanes, _mm_set1_epi32(int(pair)));
    return _mm_srai_epi32(_mm_add_epi32(sum, _mm_set1_epi32(1 << (kHShift - 1))), kHShift);
}

void RowHPairSse2(const uint8_t* row, const Taps& t, uint16_t* out, uint32_t dw)
{
    uint32_t x = 0;
    for (; x + 2 <= t.pairSafe; x += 2) {
        const __m128i a = PairSse2(row + size_t(t.start[x]) * 4, t.Pair(x));
        const __m128i b = PairSse2(row + size_t(t.start[x + 1]) * 4, t.Pair(x + 1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + size_t(x) * 4), _mm_packs_epi32(a, b));
    }
    RowHPlain(row, t, out, x, dw);
}

// Four outputs per step: two in each 128-bit half, their bytes put into channel pairs by one shuffle.
VM_TARGET_AVX2 inline __m256i TwoPairsAvx2(const uint8_t* row, const Taps& t, uint32_t x)
{
    const __m128i order = _mm_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15);
    const __m128i lo = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(row + size_t(t.start[x]) * 4));
    const __m128i both = _mm_castpd_si128(
        _mm_loadh_pd(_mm_castsi128_pd(lo), reinterpret_cast<const double*>(row + size_t(t.start[x + 1]) * 4)));
    const __m256i lanes = _mm256_cvtepu8_epi16(_mm_shuffle_epi8(both, order));
    // The weight words of x and x + 1, each spread over its half.
    const __m256i words = _mm256_castsi128_si256(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(&t.pairs[x])));
    const __m256i weights = _mm256_permutevar8x32_epi32(words, _mm256_setr_epi32(0, 0, 0, 0, 1, 1, 1, 1));
    const __m256i sum = _mm256_madd_epi16(lanes, weights);
    return _mm256_srai_epi32(_mm256_add_epi32(sum, _mm256_set1_epi32(1 << (kHShift - 1))), kHShift);
}

VM_TARGET_AVX2 void RowHPairAvx2(const uint8_t* row, const Taps& t, uint16_t* out, uint32_t dw)
{
    uint32_t x = 0;
    for (; x + 4 <= t.pairSafe; x += 4) {
        // Packing works within halves: x, x + 2 | x + 1, x + 3, put back in order by the permute.
        const __m256i packed = _mm256_packs_epi32(TwoPairsAvx2(row, t, x), TwoPairsAvx2(row, t, x + 2));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + size_t(x) * 4), _mm256_permute4x64_epi64(packed, 0xD8));
    }
    RowHPlain(row, t, out, x, dw);
}

// Eight samples of each row become eight pairs; the middle values fit 14 bits, the weights 15, so a signed
// multiply-add is exact.
void RowVPairSse2(const uint16_t* top, const uint16_t* bottom, uint32_t pair, uint8_t* out, size_t count)
{
    const __m128i w = _mm_set1_epi32(int(pair)), round = _mm_set1_epi32(1 << (kVShift - 1));
    auto eight = [&](size_t i) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(top + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bottom + i));
        const __m128i lo = _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(a, b), w), round), kVShift);
        const __m128i hi = _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(a, b), w), round), kVShift);
        return _mm_packs_epi32(lo, hi);
    };
    size_t i = 0;
    for (; i + 16 <= count; i += 16)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(eight(i), eight(i + 8)));
    RowVPairPlain(top, bottom, pair, out, i, count);
}

// The unpacks and the pack all work within halves, so sixteen values come out in order.
VM_TARGET_AVX2 inline __m256i SixteenAvx2(const uint16_t* top, const uint16_t* bottom, __m256i w)
{
    const __m256i round = _mm256_set1_epi32(1 << (kVShift - 1));
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(top));
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bottom));
    const __m256i lo = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), w), round), kVShift);
    const __m256i hi = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), w), round), kVShift);
    return _mm256_packs_epi32(lo, hi);
}

VM_TARGET_AVX2 void RowVPairAvx2(const uint16_t* top, const uint16_t* bottom, uint32_t pair, uint8_t* out,
                                 size_t count)
{
    const __m256i w = _mm256_set1_epi32(int(pair));
    size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        const __m256i bytes = _mm256_packus_epi16(SixteenAvx2(top + i, bottom + i, w),
                                                  SixteenAvx2(top + i + 16, bottom + i + 16, w)); // 0-7, 16-23 | 8-15, 24-31
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), _mm256_permute4x64_epi64(bytes, 0xD8));
    }
    RowVPairPlain(top, bottom, pair, out, i, count);
}

VM_TARGET_AVX2 void HalveRowAvx2(const uint8_t* top, const uint8_t* bottom, const uint8_t* next, uint8_t* out,
                                 uint32_t dw)
{
    const size_t stride = size_t(bottom - top);
    uint32_t x = 0;
    for (; x + 8 <= dw; x += 8) {
        const uint8_t* t = top + size_t(x) * 8;
        const uint8_t* b = bottom + size_t(x) * 8;
        if (next) {
            _mm_prefetch(reinterpret_cast<const char*>(next + size_t(x) * 8), _MM_HINT_T0);
            _mm_prefetch(reinterpret_cast<const char*>(next + stride + size_t(x) * 8), _MM_HINT_T0);
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + size_t(x) * 4), HalvedInOrderAvx2(HalvedEightAvx2(t, b)));
    }
    for (; x < dw; ++x)
        HalvedPixel(top + size_t(x) * 8, bottom + size_t(x) * 8, out + size_t(x) * 4);
}
#endif

} // namespace

void ResampleInto(const COLImage& source, COLImage& target, const RowFinisherFactory* finishers)
{
    const uint32_t sw = source.GetWidth(), sh = source.GetHeight();
    const uint32_t dw = target.GetWidth(), dh = target.GetHeight();
    const Taps tx = MakeTaps(sw, dw), ty = MakeTaps(sh, dh);
    const size_t values = size_t(dw) * 4;
    const vmsimd::Level level = vmsimd::CurrentLevel();

    auto rowH = [&](uint32_t y, uint16_t* out) {
        const uint8_t* row = reinterpret_cast<const uint8_t*>(source.GetBuffer(0, y));
#if VM_SIMD_X86
        if (tx.most <= 2 && level >= vmsimd::kAvx2) return RowHPairAvx2(row, tx, out, dw);
        if (tx.most <= 2 && level >= vmsimd::kSse2) return RowHPairSse2(row, tx, out, dw);
#endif
        RowHPlain(row, tx, out, 0, dw);
    };
    auto rowVPair = [&](const uint16_t* top, const uint16_t* bottom, uint32_t pair, uint8_t* out) {
#if VM_SIMD_X86
        if (level >= vmsimd::kAvx2) return RowVPairAvx2(top, bottom, pair, out, values);
        if (level >= vmsimd::kSse2) return RowVPairSse2(top, bottom, pair, out, values);
#endif
        RowVPairPlain(top, bottom, pair, out, 0, values);
    };

    // Enough rows in a part that the thread is worth starting: about a million values of work.
    const size_t perRow = values * (ty.most + (sh + dh - 1) / dh);
    const size_t minRows = std::max<size_t>(2, (size_t(1) << 20) / std::max<size_t>(1, perRow));
#if VM_SIMD_X86
    if (sw == 2 * dw && sh == 2 * dh && level >= vmsimd::kAvx2) {
        vmpar::ParallelFor(dh, minRows, [&](size_t y0, size_t y1, unsigned) {
            const RowFinisher finish = finishers && *finishers ? (*finishers)() : RowFinisher{};
            for (size_t y = y0; y < y1; ++y) {
                const uint8_t* next =
                    y + 1 < y1 ? reinterpret_cast<const uint8_t*>(source.GetBuffer(0, uint32_t(2 * y + 2))) : nullptr;
                HalveRowAvx2(reinterpret_cast<const uint8_t*>(source.GetBuffer(0, uint32_t(2 * y))),
                             reinterpret_cast<const uint8_t*>(source.GetBuffer(0, uint32_t(2 * y + 1))), next,
                             reinterpret_cast<uint8_t*>(target.GetBuffer(0, uint32_t(y))), dw);
                if (finish) finish(uint32_t(y), target.GetBuffer(0, uint32_t(y)));
            }
        });
        return;
    }
#endif
    vmpar::ParallelFor(dh, minRows, [&](size_t y0, size_t y1, unsigned) {
        const RowFinisher finish = finishers && *finishers ? (*finishers)() : RowFinisher{};
        // The last two horizontal rows worked out: consecutive output rows share their source rows.
        std::vector<uint16_t> rows[2] = {std::vector<uint16_t>(values), std::vector<uint16_t>(values)};
        int64_t key[2] = {-1, -1};
        auto get = [&](uint32_t row, int64_t keep) -> const uint16_t* {
            for (int s = 0; s < 2; ++s)
                if (key[s] == int64_t(row)) return rows[s].data();
            const int s = key[0] == keep ? 1 : 0;
            rowH(row, rows[s].data());
            key[s] = row;
            return rows[s].data();
        };
        std::vector<int32_t> acc; // outputs of more than two taps
        for (size_t y = y0; y < y1; ++y) {
            const uint32_t first = ty.start[y], count = ty.Count(uint32_t(y));
            uint8_t* out = reinterpret_cast<uint8_t*>(target.GetBuffer(0, uint32_t(y)));
            if (count <= 2) {
                const uint16_t* top = get(first, count == 2 ? int64_t(first) + 1 : -1);
                const uint16_t* bottom = count == 2 ? get(first + 1, first) : top;
                rowVPair(top, bottom, ty.Pair(uint32_t(y)), out);
            } else {
                acc.assign(values, 0);
                int64_t previous = -1;
                for (uint32_t k = 0; k < count; ++k) {
                    const uint16_t* s = get(first + k, previous);
                    previous = first + k;
                    const int32_t w = ty.weights[ty.offset[y] + k];
                    for (size_t i = 0; i < values; ++i)
                        acc[i] += w * s[i];
                }
                constexpr int32_t round = 1 << (kVShift - 1);
                for (size_t i = 0; i < values; ++i)
                    out[i] = static_cast<uint8_t>((acc[i] + round) >> kVShift);
            }
            if (finish) finish(uint32_t(y), target.GetBuffer(0, uint32_t(y)));
        }
    });
}

} // namespace vmresample
