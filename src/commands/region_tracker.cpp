#include "commands/region_tracker.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "runtime/simd_level.h"

#if VM_SIMD_X86
#include <immintrin.h>
#endif

// The tracker runs over the whole plane at every recorded step, so its pass is written to keep up with memory:
// one vector pass per row that adds the folded values into the column sums and into a row accumulator.
// Integer sums are exact, so every variant gives the same numbers as the plain loop.

namespace {

inline uint32_t FoldPixel(uint32_t word)
{
    const uint32_t v = (word & 0xFF) + ((word >> 8) & 0xFF) + ((word >> 16) & 0xFF) + (word >> 24);
    return v > 257 ? v - 257 : v;
}

inline uint32_t FoldByte(uint32_t v) { return v >= 130 ? v - 129 : v; }

uint32_t ImageRowScalar(const uint8_t* row, uint32_t from, uint32_t width, uint32_t* columns)
{
    uint32_t sum = 0;
    for (uint32_t x = from; x < width; ++x) {
        const uint8_t* p = row + size_t(x) * 4;
        const uint32_t v = FoldPixel(uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 |
                                     uint32_t(p[3]) << 24);
        columns[x] += v;
        sum += v;
    }
    return sum;
}

uint32_t ChannelRowScalar(const uint8_t* row, uint32_t from, uint32_t width, uint32_t* columns)
{
    uint32_t sum = 0;
    for (uint32_t x = from; x < width; ++x) {
        const uint32_t v = FoldByte(row[x]);
        columns[x] += v;
        sum += v;
    }
    return sum;
}

#if VM_SIMD_X86

uint32_t ImageRowSse2(const uint8_t* row, uint32_t width, uint32_t* columns)
{
    const __m128i lowBytes = _mm_set1_epi16(0x00FF);
    const __m128i ones16 = _mm_set1_epi16(1);
    const __m128i limit = _mm_set1_epi32(257);
    __m128i acc = _mm_setzero_si128();
    uint32_t x = 0;
    for (; x + 4 <= width; x += 4) {
        const __m128i px = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + size_t(x) * 4));
        // 16-bit lanes: blue + green, red + alpha; then pairs of lanes summed into 32 bits.
        const __m128i pairs = _mm_add_epi16(_mm_and_si128(px, lowBytes), _mm_srli_epi16(px, 8));
        __m128i v = _mm_madd_epi16(pairs, ones16);
        v = _mm_sub_epi32(v, _mm_and_si128(_mm_cmpgt_epi32(v, limit), limit));
        __m128i* col = reinterpret_cast<__m128i*>(columns + x);
        _mm_storeu_si128(col, _mm_add_epi32(_mm_loadu_si128(col), v));
        acc = _mm_add_epi32(acc, v);
    }
    acc = _mm_add_epi32(acc, _mm_shuffle_epi32(acc, 0x4E));
    acc = _mm_add_epi32(acc, _mm_shuffle_epi32(acc, 0xB1));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(acc)) + ImageRowScalar(row, x, width, columns);
}

uint32_t ChannelRowSse2(const uint8_t* row, uint32_t width, uint32_t* columns)
{
    const __m128i threshold = _mm_set1_epi8(static_cast<char>(130));
    const __m128i fold = _mm_set1_epi8(static_cast<char>(129));
    const __m128i zero = _mm_setzero_si128();
    __m128i acc = _mm_setzero_si128();
    uint32_t x = 0;
    for (; x + 16 <= width; x += 16) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + x));
        const __m128i atLeast = _mm_cmpeq_epi8(_mm_max_epu8(v, threshold), v);
        v = _mm_sub_epi8(v, _mm_and_si128(atLeast, fold));
        acc = _mm_add_epi64(acc, _mm_sad_epu8(v, zero));
        const __m128i lo = _mm_unpacklo_epi8(v, zero), hi = _mm_unpackhi_epi8(v, zero);
        const __m128i parts[4] = {_mm_unpacklo_epi16(lo, zero), _mm_unpackhi_epi16(lo, zero),
                                  _mm_unpacklo_epi16(hi, zero), _mm_unpackhi_epi16(hi, zero)};
        for (int k = 0; k < 4; ++k) {
            __m128i* col = reinterpret_cast<__m128i*>(columns + x + 4 * k);
            _mm_storeu_si128(col, _mm_add_epi32(_mm_loadu_si128(col), parts[k]));
        }
    }
    acc = _mm_add_epi64(acc, _mm_unpackhi_epi64(acc, acc));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(acc)) + ChannelRowScalar(row, x, width, columns);
}

VM_TARGET_AVX2 uint32_t ImageRowAvx2(const uint8_t* row, uint32_t width, uint32_t* columns)
{
    const __m256i ones8 = _mm256_set1_epi8(1);
    const __m256i ones16 = _mm256_set1_epi16(1);
    const __m256i limit = _mm256_set1_epi32(257);
    __m256i acc = _mm256_setzero_si256();
    uint32_t x = 0;
    for (; x + 8 <= width; x += 8) {
        const __m256i px = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + size_t(x) * 4));
        __m256i v = _mm256_madd_epi16(_mm256_maddubs_epi16(px, ones8), ones16);
        v = _mm256_sub_epi32(v, _mm256_and_si256(_mm256_cmpgt_epi32(v, limit), limit));
        __m256i* col = reinterpret_cast<__m256i*>(columns + x);
        _mm256_storeu_si256(col, _mm256_add_epi32(_mm256_loadu_si256(col), v));
        acc = _mm256_add_epi32(acc, v);
    }
    __m128i s = _mm_add_epi32(_mm256_castsi256_si128(acc), _mm256_extracti128_si256(acc, 1));
    s = _mm_add_epi32(s, _mm_shuffle_epi32(s, 0x4E));
    s = _mm_add_epi32(s, _mm_shuffle_epi32(s, 0xB1));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(s)) + ImageRowScalar(row, x, width, columns);
}

// Eight pixels' folded sums.
VM_TARGET_AVX2 __attribute__((always_inline)) inline __m256i FoldEight(const uint8_t* p)
{
    const __m256i limit = _mm256_set1_epi32(257);
    const __m256i px = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i v = _mm256_madd_epi16(_mm256_maddubs_epi16(px, _mm256_set1_epi8(1)), _mm256_set1_epi16(1));
    return _mm256_sub_epi32(v, _mm256_and_si256(_mm256_cmpgt_epi32(v, limit), limit));
}

// Four rows at once: the column sums are loaded and stored once per four rows instead of once per row.
VM_TARGET_AVX2 void ImageRowsAvx2x4(const uint8_t* row, size_t stride, uint32_t width,
                                                     uint32_t* columns, uint32_t* rowSums)
{
    const auto fold = FoldEight;
    __m256i acc0 = _mm256_setzero_si256(), acc1 = acc0, acc2 = acc0, acc3 = acc0;
    uint32_t x = 0;
    for (; x + 8 <= width; x += 8) {
        const size_t at = size_t(x) * 4;
        const __m256i v0 = fold(row + at), v1 = fold(row + stride + at), v2 = fold(row + 2 * stride + at),
                      v3 = fold(row + 3 * stride + at);
        acc0 = _mm256_add_epi32(acc0, v0);
        acc1 = _mm256_add_epi32(acc1, v1);
        acc2 = _mm256_add_epi32(acc2, v2);
        acc3 = _mm256_add_epi32(acc3, v3);
        __m256i* col = reinterpret_cast<__m256i*>(columns + x);
        const __m256i sum = _mm256_add_epi32(_mm256_add_epi32(v0, v1), _mm256_add_epi32(v2, v3));
        _mm256_storeu_si256(col, _mm256_add_epi32(_mm256_loadu_si256(col), sum));
    }
    const __m256i accs[4] = {acc0, acc1, acc2, acc3};
    for (int k = 0; k < 4; ++k) {
        __m128i s = _mm_add_epi32(_mm256_castsi256_si128(accs[k]), _mm256_extracti128_si256(accs[k], 1));
        s = _mm_add_epi32(s, _mm_shuffle_epi32(s, 0x4E));
        s = _mm_add_epi32(s, _mm_shuffle_epi32(s, 0xB1));
        rowSums[k] = static_cast<uint32_t>(_mm_cvtsi128_si32(s)) + ImageRowScalar(row + k * stride, x, width, columns);
    }
}

VM_TARGET_AVX2 uint32_t ChannelRowAvx2(const uint8_t* row, uint32_t width, uint32_t* columns)
{
    const __m256i threshold = _mm256_set1_epi8(static_cast<char>(130));
    const __m256i fold = _mm256_set1_epi8(static_cast<char>(129));
    const __m256i zero = _mm256_setzero_si256();
    __m256i acc = _mm256_setzero_si256();
    uint32_t x = 0;
    for (; x + 32 <= width; x += 32) {
        __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + x));
        const __m256i atLeast = _mm256_cmpeq_epi8(_mm256_max_epu8(v, threshold), v);
        v = _mm256_sub_epi8(v, _mm256_and_si256(atLeast, fold));
        acc = _mm256_add_epi64(acc, _mm256_sad_epu8(v, zero));
        const __m128i lo = _mm256_castsi256_si128(v), hi = _mm256_extracti128_si256(v, 1);
        const __m256i parts[4] = {_mm256_cvtepu8_epi32(lo), _mm256_cvtepu8_epi32(_mm_srli_si128(lo, 8)),
                                  _mm256_cvtepu8_epi32(hi), _mm256_cvtepu8_epi32(_mm_srli_si128(hi, 8))};
        for (int k = 0; k < 4; ++k) {
            __m256i* col = reinterpret_cast<__m256i*>(columns + x + 8 * k);
            _mm256_storeu_si256(col, _mm256_add_epi32(_mm256_loadu_si256(col), parts[k]));
        }
    }
    __m128i s = _mm_add_epi64(_mm256_castsi256_si128(acc), _mm256_extracti128_si256(acc, 1));
    s = _mm_add_epi64(s, _mm_unpackhi_epi64(s, s));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(s)) + ChannelRowScalar(row, x, width, columns);
}

#endif

uint32_t ImageRowPlain(const uint8_t* row, uint32_t width, uint32_t* columns)
{
    return ImageRowScalar(row, 0, width, columns);
}
uint32_t ChannelRowPlain(const uint8_t* row, uint32_t width, uint32_t* columns)
{
    return ChannelRowScalar(row, 0, width, columns);
}

using RowPass = uint32_t (*)(const uint8_t*, uint32_t, uint32_t*);

using FourRowPass = void (*)(const uint8_t*, size_t, uint32_t, uint32_t*, uint32_t*);

struct Passes {
    RowPass image;
    RowPass channel;
    FourRowPass imageFour;   // null where only single rows are done
    int level;
};

Passes PassesFor(int level)
{
#if VM_SIMD_X86
    if (level >= vmsimd::kAvx2) return {ImageRowAvx2, ChannelRowAvx2, ImageRowsAvx2x4, 2};
    if (level >= 1) return {ImageRowSse2, ChannelRowSse2, nullptr, 1};
#else
    (void)level;
#endif
    return {ImageRowPlain, ChannelRowPlain, nullptr, 0};
}

// Follows vmsimd::LimitLevel at every call, like every other vector loop.
Passes CurrentPasses()
{
    return PassesFor(vmsimd::CurrentLevel());
}

} // namespace

void ComputeFoldedSums(const COLImage& image, uint32_t* rows, uint32_t* columns)
{
    const uint32_t width = image.GetWidth(), height = image.GetHeight();
    std::fill(columns, columns + width, 0u);
    const uint8_t* base = reinterpret_cast<const uint8_t*>(image.GetBuffer());
    const Passes passes = CurrentPasses();
    const size_t stride = size_t(width) * 4;
    uint32_t y = 0;
    if (passes.imageFour)
        for (; y + 4 <= height; y += 4) passes.imageFour(base + y * stride, stride, width, columns, rows + y);
    for (; y < height; ++y) rows[y] = passes.image(base + y * stride, width, columns);
}

void ComputeFoldedSums(const COLChannel& channel, uint32_t* rows, uint32_t* columns)
{
    const uint32_t width = channel.GetWidth(), height = channel.GetHeight();
    std::fill(columns, columns + width, 0u);
    const uint8_t* base = channel.GetBuffer();
    const RowPass pass = CurrentPasses().channel;
    for (uint32_t y = 0; y < height; ++y) rows[y] = pass(base + size_t(y) * width, width, columns);
}

void CRegionTracker::Drop()
{
    m_rowSums.clear();
    m_rowSums.shrink_to_fit();
    m_columnSums.clear();
    m_columnSums.shrink_to_fit();
    m_width = m_height = 0;
    m_valid = 0;
}

bool CRegionTracker::Allocate(uint32_t width, uint32_t height)
{
    m_valid = 0;
    if (width == m_width && height == m_height && m_rowSums.size() == size_t(height) * 2 &&
        m_columnSums.size() == size_t(width) * 2)
        return true;
    Drop();
    try {
        m_rowSums.resize(size_t(height) * 2);
        m_columnSums.resize(size_t(width) * 2);
    } catch (const std::bad_alloc&) {
        Drop();
        return false;
    }
    m_width = width;
    m_height = height;
    return true;
}

CChangeRect CRegionTracker::Compare()
{
    // 20000 and -1 start the limits: above and below any legal index.
    int32_t top = 20000, bottom = -1, left = 20000, right = -1;
    uint32_t* stored = m_rowSums.data();
    const uint32_t* fresh = stored + m_height;
    for (uint32_t y = 0; y < m_height; ++y) {
        if (stored[y] != fresh[y]) {
            stored[y] = fresh[y];
            top = std::min<int32_t>(top, static_cast<int32_t>(y));
            bottom = static_cast<int32_t>(y) + 1;
        }
    }
    stored = m_columnSums.data();
    fresh = stored + m_width;
    for (uint32_t x = 0; x < m_width; ++x) {
        if (stored[x] != fresh[x]) {
            stored[x] = fresh[x];
            left = std::min<int32_t>(left, static_cast<int32_t>(x));
            right = static_cast<int32_t>(x) + 1;
        }
    }
    const bool rowsChanged = bottom != -1, columnsChanged = right != -1;
    if (!rowsChanged && !columnsChanged) return {};
    if (!columnsChanged) return {0, top, static_cast<int32_t>(m_width), bottom};
    if (!rowsChanged) return {left, 0, right, static_cast<int32_t>(m_height)};
    return {left, top, right, bottom};
}

int BuildTracker(CRegionTracker& tracker, const COLImage& image)
{
    if (image.IsNull() || !tracker.Allocate(image.GetWidth(), image.GetHeight())) {
        tracker.Drop();
        return 0;
    }
    ComputeFoldedSums(image, tracker.m_rowSums.data(), tracker.m_columnSums.data());
    tracker.m_valid = 1;
    return 1;
}

int BuildTracker(CRegionTracker& tracker, const COLChannel& channel)
{
    if (channel.IsNull() || !tracker.Allocate(channel.GetWidth(), channel.GetHeight())) {
        tracker.Drop();
        return 0;
    }
    ComputeFoldedSums(channel, tracker.m_rowSums.data(), tracker.m_columnSums.data());
    tracker.m_valid = 1;
    return 1;
}

CChangeRect TrackChanges(CRegionTracker& tracker, const COLImage& image)
{
    if (!tracker.IsValid() || image.IsNull() || image.GetWidth() != tracker.m_width ||
        image.GetHeight() != tracker.m_height) {
        BuildTracker(tracker, image);
        return {-1, 0, 0, 0};
    }
    ComputeFoldedSums(image, tracker.m_rowSums.data() + tracker.m_height,
                      tracker.m_columnSums.data() + tracker.m_width);
    return tracker.Compare();
}

CChangeRect TrackChanges(CRegionTracker& tracker, const COLChannel& channel)
{
    if (!tracker.IsValid() || channel.IsNull() || channel.GetWidth() != tracker.m_width ||
        channel.GetHeight() != tracker.m_height) {
        BuildTracker(tracker, channel);
        return {-1, 0, 0, 0};
    }
    ComputeFoldedSums(channel, tracker.m_rowSums.data() + tracker.m_height,
                      tracker.m_columnSums.data() + tracker.m_width);
    return tracker.Compare();
}
