#include "filters/resample.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "imaging/halving_avx2.h"
#include "imaging/result.h"
#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"

#if VM_SIMD_X86
#include <immintrin.h>
#endif

namespace {

struct Rect {
    uint32_t x, y, w, h;
};

template <typename Picture>
bool IsEmptyPicture(const Picture& p)
{
    return p.IsNull();
}

template <typename Picture>
uint8_t* BytesOf(const Picture& p)
{
    return reinterpret_cast<uint8_t*>(p.GetBuffer());
}

template <typename Picture>
bool ResolveRect(const Picture* src, int srcX, int srcY, int srcWidth, int srcHeight, Rect& r)
{
    if (!src || IsEmptyPicture(*src)) return false;
    const int64_t iw = src->GetWidth(), ih = src->GetHeight();
    if (srcX < 0 || srcY < 0 || srcX >= iw || srcY >= ih) return false;
    const int64_t w = srcWidth == -1 ? iw - srcX : srcWidth;
    const int64_t h = srcHeight == -1 ? ih - srcY : srcHeight;
    if (w < 1 || h < 1 || srcX + w > iw || srcY + h > ih) return false;
    r = Rect{uint32_t(srcX), uint32_t(srcY), uint32_t(w), uint32_t(h)};
    return true;
}

bool ValidSize(int w, int h) { return w >= 1 && h >= 1 && unsigned(w) <= kMaxImageSide && unsigned(h) <= kMaxImageSide; }

// Runs fn(source) with a source that is not the destination, copying it first when the caller passed one object.
template <typename Picture, typename Fn>
int WithSeparateSource(const Picture* src, Picture* dst, Fn fn)
{
    if (src != dst) return fn(src);
    Picture copy;
    if (!copy.DuplicateFrom(src)) return 0;
    return fn(static_cast<const Picture*>(&copy));
}

// Rows handed to one part of a parallel loop: enough work that a thread is worth starting.
size_t MinRowsPerPart(size_t bytesPerRow) { return std::max<size_t>(4, (size_t(1) << 16) / std::max<size_t>(1, bytesPerRow)); }

// ---------------------------------------------------------------------------------------------------------------
// Box mean, used by the bilinear functions when a side is 1. Source index r of s touches destination cells
// r * d / s up to (r * d + d) / s, at least one; each cell is the mean of everything that touched it.

void BoxCells(uint32_t r, uint32_t s, uint32_t d, uint32_t& first, uint32_t& end)
{
    first = uint32_t(uint64_t(r) * d / s);
    end = uint32_t((uint64_t(r) * d + d) / s);
    if (end <= first) end = first + 1;
}

template <int Bpp, typename Picture>
void BoxMean(const Picture& src, const Rect& r, Picture& dst, uint32_t dw, uint32_t dh)
{
    const uint32_t srcStride = src.GetWidth() * Bpp;
    std::vector<uint32_t> colFirst(r.w), colEnd(r.w), rowFirst(r.h), rowEnd(r.h);
    for (uint32_t c = 0; c < r.w; ++c) BoxCells(c, r.w, dw, colFirst[c], colEnd[c]);
    for (uint32_t y = 0; y < r.h; ++y) BoxCells(y, r.h, dh, rowFirst[y], rowEnd[y]);
    std::vector<uint64_t> sums(size_t(dw) * Bpp), counts(dw);
    uint32_t firstRow = 0;   // first source row that can still touch the current destination row
    for (uint32_t j = 0; j < dh; ++j) {
        std::fill(sums.begin(), sums.end(), 0);
        std::fill(counts.begin(), counts.end(), 0);
        while (firstRow < r.h && rowEnd[firstRow] <= j) ++firstRow;
        for (uint32_t y = firstRow; y < r.h && rowFirst[y] <= j; ++y) {
            const uint8_t* row = BytesOf(src) + size_t(r.y + y) * srcStride + size_t(r.x) * Bpp;
            for (uint32_t c = 0; c < r.w; ++c)
                for (uint32_t cell = colFirst[c]; cell < colEnd[c]; ++cell) {
                    for (int b = 0; b < Bpp; ++b) sums[size_t(cell) * Bpp + b] += row[size_t(c) * Bpp + b];
                    ++counts[cell];
                }
        }
        uint8_t* out = BytesOf(dst) + size_t(j) * dw * Bpp;
        for (uint32_t i = 0; i < dw; ++i)
            for (int b = 0; b < Bpp; ++b) out[size_t(i) * Bpp + b] = uint8_t(sums[size_t(i) * Bpp + b] / counts[i]);
    }
}

// ---------------------------------------------------------------------------------------------------------------
// Bilinear position tables: destination index i of d maps to i * (s - 1) / (d - 1) with the next 8 bits of the
// same fraction as weight. The image variant pulls the last position in by one with weight 0.

struct Axis {
    std::vector<uint32_t> pos;
    std::vector<uint16_t> frac;
};

Axis MakeAxis(uint32_t s, uint32_t d, bool pullInLast)
{
    Axis a;
    a.pos.resize(d);
    a.frac.resize(d);
    for (uint32_t i = 0; i < d; ++i) {
        const uint64_t num = uint64_t(i) * (s - 1);
        uint32_t pos = uint32_t(num / (d - 1));
        uint16_t f = uint16_t((num * 256 / (d - 1)) & 255);
        if (pullInLast && pos == s - 1) {
            pos = s - 2;
            f = 0;
        }
        a.pos[i] = pos;
        a.frac[i] = f;
    }
    return a;
}

// Two horizontally interpolated source rows held per part: consecutive destination rows share them.
class RowCache {
public:
    explicit RowCache(size_t values) : m_rows{std::vector<uint16_t>(values), std::vector<uint16_t>(values)} {}

    template <typename Make>
    const uint16_t* Get(uint32_t row, uint32_t keep, Make make)
    {
        for (int s = 0; s < 2; ++s)
            if (m_key[s] == int64_t(row)) return m_rows[s].data();
        const int s = m_key[0] == int64_t(keep) ? 1 : 0;
        make(row, m_rows[s].data());
        m_key[s] = row;
        return m_rows[s].data();
    }

private:
    std::vector<uint16_t> m_rows[2];
    int64_t m_key[2] = {-1, -1};
};

// Image: per byte h = 2 * (((a * g) >> 9) + ((b * f) >> 9)) with g = 255 - f, a and b being the pixels at pos and
// pos + 1. Every product fits 16 bits, so a pixel's four bytes go through 16-bit lanes of one word.
struct ImageColumns {
    std::vector<uint32_t> pos;
    std::vector<uint16_t> weights;   // per column g, g, g, g, f, f, f, f: the lanes of the two pixels
    // Per group of four columns from a multiple of 4: 1 when their pixel pairs lie back to back in the source
    // (pos rising by 2 each, as in halving), so that one load fetches all four pairs.
    std::vector<uint8_t> backToBack;
};

ImageColumns MakeImageColumns(const Axis& ax)
{
    ImageColumns c;
    c.pos = ax.pos;
    c.weights.resize(ax.pos.size() * 8);
    for (size_t i = 0; i < ax.pos.size(); ++i)
        for (int k = 0; k < 4; ++k) {
            c.weights[i * 8 + k] = uint16_t(255 - ax.frac[i]);
            c.weights[i * 8 + 4 + k] = ax.frac[i];
        }
    c.backToBack.resize(ax.pos.size() / 4);
    for (size_t g = 0; g < c.backToBack.size(); ++g) {
        const uint32_t* p = &c.pos[g * 4];
        c.backToBack[g] = p[1] == p[0] + 2 && p[2] == p[0] + 4 && p[3] == p[0] + 6;
    }
    return c;
}

// Spreads the four bytes of a pixel into the 16-bit lanes of a 64-bit word.
inline uint64_t SpreadLanes(uint32_t p)
{
    uint64_t x = p;
    x = (x | (x << 16)) & 0x0000FFFF0000FFFFull;
    return (x | (x << 8)) & 0x00FF00FF00FF00FFull;
}

void ImageRowHPlain(const uint8_t* row, const ImageColumns& c, uint16_t* out, size_t first, size_t end)
{
    const uint64_t low7 = 0x007F007F007F007Full;   // what survives of each lane after >> 9
    for (size_t i = first; i < end; ++i) {
        uint32_t a, b;
        std::memcpy(&a, row + size_t(c.pos[i]) * 4, 4);
        std::memcpy(&b, row + size_t(c.pos[i]) * 4 + 4, 4);
        const uint64_t g = c.weights[i * 8], f = c.weights[i * 8 + 4];
        const uint64_t h = ((((SpreadLanes(a) * g) >> 9) & low7) + (((SpreadLanes(b) * f) >> 9) & low7)) << 1;
        for (int k = 0; k < 4; ++k) out[i * 4 + k] = uint16_t(h >> (16 * k));
    }
}

#if VM_SIMD_X86
// Two destination pixels per step: each reads its pixel pair as eight bytes and weighs them lane by lane.
void ImageRowHSse2(const uint8_t* row, const ImageColumns& c, uint16_t* out, size_t dw)
{
    const __m128i zero = _mm_setzero_si128();
    const uint32_t* pos = c.pos.data();
    const uint16_t* weights = c.weights.data();
    size_t i = 0;
    for (; i + 2 <= dw; i += 2) {
        const uint8_t* pa = row + size_t(pos[i]) * 4;
        // The source streams in from memory: ask for it a few cache lines ahead (running on into the next row is
        // what a shrink reads next; a prefetch never faults).
        if (i % 8 == 0) _mm_prefetch(reinterpret_cast<const char*>(pa + 2048), _MM_HINT_T0);
        __m128i a = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(pa)), zero);
        __m128i b = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(row + size_t(pos[i + 1]) * 4)), zero);
        a = _mm_srli_epi16(_mm_mullo_epi16(a, _mm_loadu_si128(reinterpret_cast<const __m128i*>(weights + i * 8))), 9);
        b = _mm_srli_epi16(_mm_mullo_epi16(b, _mm_loadu_si128(reinterpret_cast<const __m128i*>(weights + i * 8 + 8))), 9);
        const __m128i sum = _mm_add_epi16(_mm_unpacklo_epi64(a, b), _mm_unpackhi_epi64(a, b));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i * 4), _mm_add_epi16(sum, sum));
    }
    ImageRowHPlain(row, c, out, i, dw);
}

// Four destination pixels per step: two pixel pairs in each 128-bit half, so one multiply serves four pixels.
VM_TARGET_AVX2 void ImageRowHAvx2(const uint8_t* row, const ImageColumns& c, uint16_t* out, size_t dw)
{
    const uint32_t* pos = c.pos.data();
    const uint16_t* weights = c.weights.data();
    auto pairs = [&](size_t k) {
        const __m128i lo = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(row + size_t(pos[k]) * 4));
        return _mm_castpd_si128(
            _mm_loadh_pd(_mm_castsi128_pd(lo), reinterpret_cast<const double*>(row + size_t(pos[k + 1]) * 4)));
    };
    size_t i = 0;
    for (; i + 4 <= dw; i += 4) {
        const uint8_t* first = row + size_t(pos[i]) * 4;
        if (i % 8 == 0) _mm_prefetch(reinterpret_cast<const char*>(first + 2048), _MM_HINT_T0);
        __m256i a, b;   // pixels i, i + 1 and i + 2, i + 3: the bytes at pos and pos + 1 of each
        if (c.backToBack[i / 4]) {
            a = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(first)));
            b = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(first + 16)));
        } else {
            a = _mm256_cvtepu8_epi16(pairs(i));
            b = _mm256_cvtepu8_epi16(pairs(i + 2));
        }
        a = _mm256_srli_epi16(_mm256_mullo_epi16(a, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(weights + i * 8))), 9);
        b = _mm256_srli_epi16(_mm256_mullo_epi16(b, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(weights + i * 8 + 16))), 9);
        // In each half the four lanes of pos and of pos + 1 add up; the halves then go back into pixel order.
        a = _mm256_add_epi16(a, _mm256_srli_si256(a, 8));
        b = _mm256_add_epi16(b, _mm256_srli_si256(b, 8));
        const __m256i sum = _mm256_permute4x64_epi64(_mm256_unpacklo_epi64(a, b), 0xD8);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i * 4), _mm256_add_epi16(sum, sum));
    }
    _mm256_zeroupper(); // the compiler leaves it out before a tail call, and the plain step may use SSE
    ImageRowHPlain(row, c, out, i, dw);
}
#endif

void ImageRowH(const uint8_t* row, const ImageColumns& c, uint16_t* out, uint32_t dw)
{
#if VM_SIMD_X86
    if (vmsimd::CurrentLevel() >= vmsimd::kAvx2) return ImageRowHAvx2(row, c, out, dw);
    if (vmsimd::CurrentLevel() >= vmsimd::kSse2) return ImageRowHSse2(row, c, out, dw);
#endif
    ImageRowHPlain(row, c, out, 0, dw);
}

// Then v = 2 * (((top * gy) >> 9) + ((bottom * fy) >> 9)), and blue, green and red get +2 to make up for the
// truncations; alpha doesn't (bias holds 2, 2, 2, 0 per pixel). Both steps saturate at 255 in principle, but top
// and bottom never exceed 254, so v never exceeds 252 and v + 2 fits a byte (tests check every input).
// The loop is left to the compiler, once for the baseline and once with AVX2.
__attribute__((always_inline)) inline void ImageRowVBody(const uint16_t* __restrict top, const uint16_t* __restrict bottom,
                                                         const uint8_t* __restrict bias, uint16_t fy,
                                                         uint8_t* __restrict out, size_t count)
{
    const uint16_t gy = uint16_t(255 - fy);
    for (size_t i = 0; i < count; ++i)
        out[i] = uint8_t(2 * (uint16_t(uint16_t(top[i] * gy) >> 9) + uint16_t(uint16_t(bottom[i] * fy) >> 9)) + bias[i]);
}

void ImageRowVPlain(const uint16_t* top, const uint16_t* bottom, const uint8_t* bias, uint16_t fy, uint8_t* out,
                    size_t count)
{
    ImageRowVBody(top, bottom, bias, fy, out, count);
}

#if VM_SIMD_X86
VM_TARGET_AVX2 void ImageRowVAvx2(const uint16_t* top, const uint16_t* bottom, const uint8_t* bias,
                                                   uint16_t fy, uint8_t* out, size_t count)
{
    ImageRowVBody(top, bottom, bias, fy, out, count);
}
#endif

void ImageRowV(const uint16_t* top, const uint16_t* bottom, const uint8_t* bias, uint16_t fy, uint8_t* out,
               size_t count)
{
#if VM_SIMD_X86
    if (vmsimd::CurrentLevel() >= vmsimd::kAvx2) return ImageRowVAvx2(top, bottom, bias, fy, out, count);
#endif
    ImageRowVPlain(top, bottom, bias, fy, out, count);
}

// Plane: h = a * g + b * f (at most 255 * 255), v = ((top * gy) >> 16) + ((bottom * fy) >> 16).
void ChannelRowH(const uint8_t* row, const uint32_t* pos, const uint16_t* frac, uint16_t* out, uint32_t dw, uint32_t sw)
{
    for (uint32_t i = 0; i < dw; ++i) {
        const uint32_t p = pos[i];
        const uint16_t f = frac[i], g = uint16_t(255 - f);
        // At the last column f is 0 and the pixel to the right has no weight; it is not read.
        const uint8_t b = p + 1 < sw ? row[p + 1] : 0;
        out[i] = uint16_t(row[p] * g + b * f);
    }
}

void ChannelRowV(const uint16_t* __restrict top, const uint16_t* __restrict bottom, uint16_t fy, uint8_t* __restrict out,
                 size_t count)
{
    const uint32_t gy = 255u - fy;
    for (size_t i = 0; i < count; ++i) out[i] = uint8_t(((top[i] * gy) >> 16) + ((bottom[i] * uint32_t(fy)) >> 16));
}

template <int Bpp, typename Picture>
void Bilinear(const Picture& src, const Rect& r, Picture& dst, uint32_t dw, uint32_t dh)
{
    const Axis ax = MakeAxis(r.w, dw, Bpp == 4);
    const ImageColumns columns = Bpp == 4 ? MakeImageColumns(ax) : ImageColumns{};
    // Rows reach the last source row; there (weight 0 below) the row beneath is not read.
    const Axis ay = MakeAxis(r.h, dh, false);
    const size_t srcStride = size_t(src.GetWidth()) * Bpp;
    const uint8_t* base = BytesOf(src) + size_t(r.y) * srcStride + size_t(r.x) * Bpp;
    const size_t values = size_t(dw) * Bpp;
    std::vector<uint8_t> bias(Bpp == 4 ? values : 0);
    for (size_t i = 0; i < bias.size(); ++i) bias[i] = i % 4 == 3 ? 0 : 2;
    vmpar::ParallelFor(dh, MinRowsPerPart(values), [&](size_t j0, size_t j1, unsigned) {
        RowCache cache(values);
        auto make = [&](uint32_t y, uint16_t* out) {
            if constexpr (Bpp == 4)
                ImageRowH(base + y * srcStride, columns, out, dw);
            else
                ChannelRowH(base + y * srcStride, ax.pos.data(), ax.frac.data(), out, dw, r.w);
        };
        for (size_t j = j0; j < j1; ++j) {
            const uint32_t p = ay.pos[j];
            const bool lastRow = p + 1 >= r.h;
            const uint16_t* top = cache.Get(p, lastRow ? p : p + 1, make);
            const uint16_t* bottom = lastRow ? top : cache.Get(p + 1, p, make);
            const uint16_t fy = lastRow ? 0 : ay.frac[j];
            uint8_t* out = BytesOf(dst) + j * values;
            if constexpr (Bpp == 4)
                ImageRowV(top, bottom, bias.data(), fy, out, values);
            else
                ChannelRowV(top, bottom, fy, out, values);
        }
    });
}

template <int Bpp, typename Picture>
int ResampleAny(const Picture* src, Picture* dst, int dstWidth, int dstHeight, int srcX, int srcY, int srcWidth,
                int srcHeight)
{
    if (!dst) return 0;
    if (dstWidth == 0 || dstHeight == 0) {
        if (dst->Create(1, 1) != kOk) return 0;
        std::memset(BytesOf(*dst), 0xFF, Bpp);
        return 1;
    }
    Rect r;
    if (!ValidSize(dstWidth, dstHeight) || !ResolveRect(src, srcX, srcY, srcWidth, srcHeight, r)) return 0;
    return WithSeparateSource(src, dst, [&](const Picture* s) {
        const uint32_t dw = uint32_t(dstWidth), dh = uint32_t(dstHeight);
        if (dst->Create(dw, dh) != kOk) return 0;
        // A shrinking pre-pass would be overwritten in full by the bilinear pass, so there is none. Images take
        // the box mean for a side of 1 anywhere; planes only where the position tables would divide by zero.
        if (dw == 1 || dh == 1 || (Bpp == 4 && (r.w == 1 || r.h == 1)))
            BoxMean<Bpp>(*s, r, *dst, dw, dh);
        else
            Bilinear<Bpp>(*s, r, *dst, dw, dh);
        return 1;
    });
}

// ---------------------------------------------------------------------------------------------------------------
// Area average. Cell i of an axis ends at (i + 1) * ratio (single precision; the last cell at the source's edge).
// A source index that lies wholly in one cell weighs 1024 there; one that straddles a boundary gives
// 1024 - t to its cell and t = trunc(overlap * 1024) to the next, the overlap being the part beyond the boundary.

struct AreaAxis {
    std::vector<uint32_t> cell;      // the cell each source index starts in
    std::vector<uint16_t> inCell;    // its weight there
    std::vector<uint16_t> toNext;    // its weight in the next cell (0 when it lies wholly inside)
};

AreaAxis MakeAreaAxis(uint32_t s, uint32_t d, float ratio)
{
    AreaAxis a;
    a.cell.resize(s);
    a.inCell.resize(s);
    a.toNext.resize(s);
    auto boundary = [&](uint32_t i) { return i + 1 >= d ? float(s) : float(i + 1) * ratio; };
    uint32_t c = 0;
    for (uint32_t x = 0; x < s; ++x) {
        while (c + 1 < d && boundary(c) <= float(x)) ++c;
        const float b = boundary(c);
        uint32_t t = 0;
        if (float(x + 1) > b) t = std::min<uint32_t>(1024, uint32_t(std::max(0.0f, (float(x + 1) - b) * 1024.0f)));
        a.cell[x] = c;
        a.inCell[x] = uint16_t(1024 - t);
        a.toNext[x] = uint16_t(t);
    }
    return a;
}

// Whole ratios on both axes: every weight is 1024, no share is ever cut, so each cell's sum is its block's plain
// sum times 1024. Summing the block's rows first keeps the loops contiguous.
template <int Bpp, typename Picture>
void AreaShrinkWhole(const Picture& src, const Rect& r, Picture& dst, uint32_t dw, uint32_t dh, uint64_t divisor)
{
    const uint32_t fx = r.w / dw, fy = r.h / dh;
    const size_t srcStride = size_t(src.GetWidth()) * Bpp;
    const uint8_t* base = BytesOf(src) + size_t(r.y) * srcStride + size_t(r.x) * Bpp;
    const size_t used = size_t(r.w) * Bpp;
    vmpar::ParallelFor(dh, MinRowsPerPart(used * fy), [&](size_t j0, size_t j1, unsigned) {
        std::vector<uint32_t> columns(used);
        for (size_t j = j0; j < j1; ++j) {
            std::fill(columns.begin(), columns.end(), 0u);
            for (uint32_t k = 0; k < fy; ++k) {
                const uint8_t* row = base + (j * fy + k) * srcStride;
                uint32_t* c = columns.data();
                for (size_t i = 0; i < used; ++i) c[i] += row[i];
            }
            uint8_t* out = BytesOf(dst) + j * size_t(dw) * Bpp;
            for (uint32_t i = 0; i < dw; ++i) {
                uint64_t sum[Bpp] = {};
                const uint32_t* c = columns.data() + size_t(i) * fx * Bpp;
                for (uint32_t x = 0; x < fx; ++x)
                    for (int b = 0; b < Bpp; ++b) sum[b] += c[size_t(x) * Bpp + b];
                for (int b = 0; b < Bpp; ++b) out[size_t(i) * Bpp + b] = uint8_t(std::min<uint64_t>((sum[b] << 10) / divisor, 255));
            }
        }
    });
}

template <int Bpp, typename Picture>
void AreaShrink(const Picture& src, const Rect& r, Picture& dst, uint32_t dw, uint32_t dh)
{
    const float rx = float(r.w) / float(dw), ry = float(r.h) / float(dh);
    const uint64_t divisor = std::max<uint64_t>(1, uint64_t(rx * ry * 1024.0f));
    if (r.w % dw == 0 && r.h % dh == 0) return AreaShrinkWhole<Bpp>(src, r, dst, dw, dh, divisor);
    const AreaAxis ax = MakeAreaAxis(r.w, dw, rx), ay = MakeAreaAxis(r.h, dh, ry);
    const size_t srcStride = size_t(src.GetWidth()) * Bpp;
    const uint8_t* base = BytesOf(src) + size_t(r.y) * srcStride + size_t(r.x) * Bpp;
    const size_t values = size_t(dw) * Bpp;
    // First source row of each destination row: the one that starts in it or straddles into it from above.
    std::vector<uint32_t> firstRow(dh + 1, r.h);
    for (uint32_t y = r.h; y-- > 0;) {
        firstRow[ay.cell[y]] = y;
        if (ay.toNext[y] && ay.cell[y] + 1 < dh) firstRow[ay.cell[y] + 1] = y;
    }
    for (uint32_t j = dh; j-- > 0;) firstRow[j] = std::min(firstRow[j], firstRow[j + 1]);
    // First source column that starts in each destination column.
    std::vector<uint32_t> cellStart(dw + 1, r.w);
    for (uint32_t x = r.w; x-- > 0;) cellStart[ax.cell[x]] = x;
    for (uint32_t i = dw; i-- > 0;) cellStart[i] = std::min(cellStart[i], cellStart[i + 1]);

    vmpar::ParallelFor(dh, MinRowsPerPart(size_t(r.w) * Bpp * size_t(std::ceil(ry))), [&](size_t j0, size_t j1, unsigned) {
        std::vector<uint64_t> rowSum(values), cur(values), next(values);
        size_t j = j0;
        auto finish = [&]() {
            uint8_t* out = BytesOf(dst) + j * values;
            for (size_t i = 0; i < values; ++i) out[i] = uint8_t(std::min<uint64_t>(cur[i] / divisor, 255));
            cur.swap(next);
            std::fill(next.begin(), next.end(), 0);
            ++j;
        };
        for (uint32_t y = firstRow[j0]; y < r.h && j < j1; ++y) {
            const uint32_t cell = ay.cell[y];
            while (j < cell && j < j1) finish();
            if (j >= j1) break;
            // The row's own sums across each cell, weighted in x: the pixels that start in the cell, and the one
            // that straddles into it from the left.
            const uint8_t* row = base + y * srcStride;
            for (uint32_t i = 0; i < dw; ++i) {
                uint64_t sum[Bpp] = {};
                const uint32_t x0 = cellStart[i], x1 = cellStart[i + 1];
                if (x0 > 0 && ax.toNext[x0 - 1] && ax.cell[x0 - 1] + 1 == i)
                    for (int b = 0; b < Bpp; ++b) sum[b] += uint64_t(row[size_t(x0 - 1) * Bpp + b]) * ax.toNext[x0 - 1];
                for (uint32_t x = x0; x < x1; ++x) {
                    const uint32_t w = ax.inCell[x];
                    for (int b = 0; b < Bpp; ++b) sum[b] += uint32_t(row[size_t(x) * Bpp + b]) * w;
                }
                for (int b = 0; b < Bpp; ++b) rowSum[size_t(i) * Bpp + b] = sum[b];
            }
            // Then weighted in y: a row inside one cell adds unsplit, a straddling one splits 1024-based.
            const uint64_t wa = ay.inCell[y], wb = ay.toNext[y];
            if (cell == j && wa == 1024) {
                for (size_t i = 0; i < values; ++i) cur[i] += rowSum[i];
            } else if (cell == j) {
                for (size_t i = 0; i < values; ++i) cur[i] += (rowSum[i] * wa) >> 10;
                if (wb)
                    for (size_t i = 0; i < values; ++i) next[i] += (rowSum[i] * wb) >> 10;
            } else if (cell + 1 == j && wb) {
                for (size_t i = 0; i < values; ++i) cur[i] += (rowSum[i] * wb) >> 10;
            }
        }
        while (j < j1) finish();
    });
}

template <int Bpp, typename Picture>
int ShrinkAny(const Picture* src, Picture* dst, int dstWidth, int dstHeight, int srcX, int srcY, int srcWidth,
              int srcHeight)
{
    Rect r;
    if (!dst || !ValidSize(dstWidth, dstHeight) || !ResolveRect(src, srcX, srcY, srcWidth, srcHeight, r)) return 0;
    if (uint32_t(dstWidth) > r.w || uint32_t(dstHeight) > r.h)
        return ResampleAny<Bpp>(src, dst, dstWidth, dstHeight, srcX, srcY, srcWidth, srcHeight);
    return WithSeparateSource(src, dst, [&](const Picture* s) {
        if (dst->Create(uint32_t(dstWidth), uint32_t(dstHeight)) != kOk) return 0;
        AreaShrink<Bpp>(*s, r, *dst, uint32_t(dstWidth), uint32_t(dstHeight));
        return 1;
    });
}

} // namespace

int ResampleImage(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, int srcX, int srcY, int srcWidth,
                  int srcHeight)
{
    return ResampleAny<4>(src, dst, dstWidth, dstHeight, srcX, srcY, srcWidth, srcHeight);
}

int ResampleChannel(const COLChannel* src, COLChannel* dst, int dstWidth, int dstHeight, int srcX, int srcY,
                    int srcWidth, int srcHeight)
{
    return ResampleAny<1>(src, dst, dstWidth, dstHeight, srcX, srcY, srcWidth, srcHeight);
}

namespace {

// The chosen byte of each of count pixels into a line of bytes.
void TakeBytes(const uint8_t* pixels, int byteIndex, uint8_t* line, uint32_t count)
{
    uint32_t x = 0;
#if VM_SIMD_X86
    if (vmsimd::CurrentLevel() >= vmsimd::kSse2) {
        const __m128i low = _mm_set1_epi32(0xFF);
        const int shift = 8 * byteIndex;
        auto four = [&](uint32_t i) {
            const __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels + size_t(i) * 4));
            return _mm_and_si128(_mm_srl_epi32(p, _mm_cvtsi32_si128(shift)), low);
        };
        for (; x + 16 <= count; x += 16) {
            const __m128i lo = _mm_packs_epi32(four(x), four(x + 4)), hi = _mm_packs_epi32(four(x + 8), four(x + 12));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(line + x), _mm_packus_epi16(lo, hi));
        }
    }
#endif
    for (; x < count; ++x) line[x] = pixels[size_t(x) * 4 + byteIndex];
}

// How the vector path fetches the samples of a group of eight output columns.
enum GroupKind : uint8_t {
    kByOne,    // one column at a time, from the pixels
    kShuffle,  // all pairs lie in 16 bytes of the line: one load and two shuffles
    kStrideTwo // the pairs are sixteen pixels in a row (a halving): two such groups back to back are loaded as
               // pixels, sixteen columns at once, with no line needed; a lone one goes one by one
};

// ChannelRowH reading the chosen byte straight from the pixels.
void PlaneRowHFromPixels(const uint8_t* pixels, int byteIndex, const uint32_t* pos, const uint16_t* frac, uint16_t* out,
                         uint32_t count, uint32_t sw)
{
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t p = pos[i];
        const uint16_t f = frac[i], g = uint16_t(255 - f);
        const uint8_t b = p + 1 < sw ? pixels[size_t(p + 1) * 4 + byteIndex] : 0;
        out[i] = uint16_t(pixels[size_t(p) * 4 + byteIndex] * g + b * f);
    }
}

#if VM_SIMD_X86
struct PlaneRowHTables {
    const uint32_t* pos;
    const uint16_t* g;
    const uint16_t* f;
    const uint32_t* weights;
    const uint8_t* kinds;
    const uint8_t* shuffles;
    const uint32_t* bases;
};

// The chosen bytes of sixteen pixels as 16-bit lanes: pixels 0-3 and 8-11 | 4-7 and 12-15.
VM_TARGET_AVX2 inline __m256i ChosenBytesAvx2(const uint8_t* from, __m256i intoLow, __m256i intoHigh)
{
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + 32));
    return _mm256_or_si256(_mm256_shuffle_epi8(a, intoLow), _mm256_shuffle_epi8(b, intoHigh));
}

VM_TARGET_AVX2 inline __m256i PermutedAvx2(const uint32_t* words, __m256i order)
{
    return _mm256_permutevar8x32_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(words)), order);
}

// The shuffles and orders of the sixteen-column step of a halving, for one chosen byte.
struct StrideTwoAvx2 {
    __m256i intoLow, intoHigh, weightOrder, outputOrder;

    VM_TARGET_AVX2 explicit StrideTwoAvx2(int byteIndex)
    {
        // Shuffles that take the chosen byte of four pixels into four 16-bit lanes of one half of a lane.
        const char b = char(byteIndex), no = char(-1);
        intoLow = _mm256_setr_epi8(b, no, char(b + 4), no, char(b + 8), no, char(b + 12), no, no, no, no, no, no, no,
                                   no, no, b, no, char(b + 4), no, char(b + 8), no, char(b + 12), no, no, no, no, no,
                                   no, no, no, no);
        intoHigh = _mm256_setr_epi8(no, no, no, no, no, no, no, no, b, no, char(b + 4), no, char(b + 8), no,
                                    char(b + 12), no, no, no, no, no, no, no, no, no, b, no, char(b + 4), no,
                                    char(b + 8), no, char(b + 12), no);
        weightOrder = _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7);
        outputOrder = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    }

    // Sixteen columns i.. whose pairs are the 32 pixels from `from`: g * a + f * b in column order. Each 32-byte
    // load gives four chosen bytes per half, put as pairs (a, b) in 16-bit lanes: columns 0 1 4 5 | 2 3 6 7 of
    // each eight, weighed in that order and put back in order by the last permute.
    VM_TARGET_AVX2 __m256i Sixteen(const uint8_t* from, const uint32_t* weights) const
    {
        const __m256i first = ChosenBytesAvx2(from, intoLow, intoHigh);
        const __m256i second = ChosenBytesAvx2(from + 64, intoLow, intoHigh);
        const __m256i packed = _mm256_packus_epi32(_mm256_madd_epi16(first, PermutedAvx2(weights, weightOrder)),
                                                   _mm256_madd_epi16(second, PermutedAvx2(weights + 8, weightOrder)));
        return _mm256_permutevar8x32_epi32(packed, outputOrder);
    }
};

// Whether the sixteen columns from i take 32 pixels in a row (two groups of a halving, back to back).
inline bool SixteenInARow(const PlaneRowHTables& t, uint32_t i, uint32_t dw)
{
    return i + 16 <= dw && t.kinds[i / 8] == kStrideTwo && t.kinds[i / 8 + 1] == kStrideTwo &&
           t.pos[i + 8] == t.pos[i] + 16;
}

// v = ((top * gy) >> 16) + ((bottom * fy) >> 16) is two high halves of 16-bit products; the sixteen bytes then go
// into the chosen byte of sixteen pixels. The values are put in the order of the pixels' two halves first, since
// the 16-to-32-bit unpacks work within 128-bit halves.
VM_TARGET_AVX2 inline void MergeSixteenAvx2(__m256i top, __m256i bottom, uint16_t fy, uint8_t* pixels, int byteIndex)
{
    const __m256i gy = _mm256_set1_epi16(short(255 - fy)), vf = _mm256_set1_epi16(short(fy));
    const __m256i zero = _mm256_setzero_si256(), keep = _mm256_set1_epi32(~(0xFF << (8 * byteIndex)));
    const __m128i shift = _mm_cvtsi32_si128(8 * byteIndex);
    const __m256i v = _mm256_permute4x64_epi64(
        _mm256_add_epi16(_mm256_mulhi_epu16(top, gy), _mm256_mulhi_epu16(bottom, vf)), 0xD8); // 0-3 8-11 | 4-7 12-15
    for (int half = 0; half < 2; ++half) {
        __m256i* at = reinterpret_cast<__m256i*>(pixels + size_t(8 * half) * 4);
        const __m256i lanes = half ? _mm256_unpackhi_epi16(v, zero) : _mm256_unpacklo_epi16(v, zero);
        const __m256i p = _mm256_and_si256(_mm256_loadu_si256(at), keep);
        _mm256_storeu_si256(at, _mm256_or_si256(p, _mm256_sll_epi32(lanes, shift)));
    }
}

// Sixteen columns at a time where they take 32 pixels in a row, else eight by one shuffle, else one by one.
// g * a + f * b stays below 65536, so 16-bit lanes (and unsigned packing) hold it.
VM_TARGET_AVX2 void PlaneRowHAvx2(const uint8_t* pixels, int byteIndex, const uint8_t* line, const PlaneRowHTables& t,
                                  uint16_t* out, uint32_t dw, uint32_t sw)
{
    const __m128i zero = _mm_setzero_si128(), one = _mm_set1_epi8(1);
    const StrideTwoAvx2 strideTwo(byteIndex);
    uint32_t i = 0;
    for (; i + 8 <= dw; i += 8) {
        const uint32_t group = i / 8;
        if (SixteenInARow(t, i, dw)) {
            const __m256i sums = strideTwo.Sixteen(pixels + size_t(t.pos[i]) * 4, t.weights + i);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), sums);
            i += 8;
        } else if (t.kinds[group] == kShuffle) {
            const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(line + t.bases[group]));
            const __m128i left = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(t.shuffles + size_t(group) * 8));
            const __m128i a = _mm_unpacklo_epi8(_mm_shuffle_epi8(bytes, left), zero);
            const __m128i b = _mm_unpacklo_epi8(_mm_shuffle_epi8(bytes, _mm_add_epi8(left, one)), zero);
            const __m128i wg = _mm_loadu_si128(reinterpret_cast<const __m128i*>(t.g + i));
            const __m128i wf = _mm_loadu_si128(reinterpret_cast<const __m128i*>(t.f + i));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i),
                             _mm_add_epi16(_mm_mullo_epi16(a, wg), _mm_mullo_epi16(b, wf)));
        } else {
            PlaneRowHFromPixels(pixels, byteIndex, t.pos + i, t.f + i, out + i, 8, sw);
        }
    }
    PlaneRowHFromPixels(pixels, byteIndex, t.pos + i, t.f + i, out + i, dw - i, sw);
}

// v = ((top * gy) >> 16) + ((bottom * fy) >> 16) is two high halves of 16-bit products; the bytes then go into
// the chosen byte of sixteen pixels at a time. The values are put in the order of the pixels' two halves first,
// since the 16-to-32-bit unpacks work within 128-bit halves.
VM_TARGET_AVX2 void PlaneRowVIntoPixelsAvx2(const uint16_t* top, const uint16_t* bottom, uint16_t fy, uint8_t* pixels,
                                            int byteIndex, uint32_t dw, uint32_t& done)
{
    uint32_t x = 0;
    for (; x + 16 <= dw; x += 16)
        MergeSixteenAvx2(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(top + x)),
                         _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bottom + x)), fy, pixels + size_t(x) * 4,
                         byteIndex);
    done = x;
}

// One destination column i of a row from its two source rows, one at a time: both rows along x, then
// ((top * gy) >> 16) + ((bottom * fy) >> 16) into the chosen byte of pixel i.
inline void PlaneColumnFromRows(const uint8_t* row0, const uint8_t* row1, int byteIndex, const PlaneRowHTables& t,
                                uint32_t i, uint16_t fy, uint8_t* pixels, uint32_t sw)
{
    uint16_t top, bottom;
    PlaneRowHFromPixels(row0, byteIndex, t.pos + i, t.f + i, &top, 1, sw);
    PlaneRowHFromPixels(row1, byteIndex, t.pos + i, t.f + i, &bottom, 1, sw);
    pixels[size_t(i) * 4 + size_t(byteIndex)] = uint8_t(((top * (255u - fy)) >> 16) + ((bottom * uint32_t(fy)) >> 16));
}

// A whole destination row of a vertical reduction by two or more, where no two destination rows share a source
// row: both source rows are worked out along x and combined in registers, sixteen columns at a time where they
// lie in a row, one at a time elsewhere, with no rows kept in between.
VM_TARGET_AVX2 void PlaneRowFusedAvx2(const uint8_t* row0, const uint8_t* row1, int byteIndex, const PlaneRowHTables& t,
                                      uint16_t fy, uint8_t* pixels, uint32_t dw, uint32_t sw)
{
    const StrideTwoAvx2 strideTwo(byteIndex);
    for (uint32_t i = 0; i < dw;) {
        if (SixteenInARow(t, i, dw)) {
            const size_t at = size_t(t.pos[i]) * 4;
            MergeSixteenAvx2(strideTwo.Sixteen(row0 + at, t.weights + i), strideTwo.Sixteen(row1 + at, t.weights + i),
                             fy, pixels + size_t(i) * 4, byteIndex);
            i += 16;
            continue;
        }
        PlaneColumnFromRows(row0, row1, byteIndex, t, i, fy, pixels, sw);
        ++i;
    }
}

// g * a + f * b of the alpha of pixels 2i and 2i + 1 for the sixteen columns from the 32 pixels in r, in the order
// 0 1 4 5 8 9 12 13 | 2 3 6 7 10 11 14 15; w0, w1 hold the columns' weights in the order 0 1 4 5 | 2 3 6 7 of each
// eight. The sums stay below 65536.
VM_TARGET_AVX2 inline __m256i AlphaAlongAvx2(const __m256i* r, __m256i w0, __m256i w1)
{
    const __m256i first = _mm256_packus_epi32(_mm256_srli_epi32(r[0], 24), _mm256_srli_epi32(r[1], 24));
    const __m256i second = _mm256_packus_epi32(_mm256_srli_epi32(r[2], 24), _mm256_srli_epi32(r[3], 24));
    return _mm256_packus_epi32(_mm256_madd_epi16(first, w0), _mm256_madd_epi16(second, w1));
}

// A destination row of an exact halving of the alpha byte: the colours' 2 x 2 means and the plane's bytes from the
// same loads, sixteen columns at a time while column i reads source pixels 2i and 2i + 1 (all but the last), the
// rest one at a time. The plane's columns are worked out in the order in which the colours' means come packed
// (0 1 4 5 | 2 3 6 7 of each eight), so the alpha bytes go in before the one permute that puts both in order.
VM_TARGET_AVX2 void HalvedRowAvx2(const uint8_t* top, const uint8_t* bottom, const uint8_t* next,
                                  const PlaneRowHTables& t, uint16_t fy, uint8_t* out, uint32_t dw, uint32_t sw)
{
    const size_t stride = size_t(bottom - top);
    const __m256i weightOrder = _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7);
    const __m256i gy = _mm256_set1_epi16(short(255 - fy)), vf = _mm256_set1_epi16(short(fy));
    const __m256i colours = _mm256_set1_epi32(0x00FFFFFF), zero = _mm256_setzero_si256();
    uint32_t x = 0;
    for (; x + 16 < dw; x += 16) {
        const size_t at = size_t(x) * 8;
        if (next) {
            for (size_t line = 0; line < 128; line += 64) {
                _mm_prefetch(reinterpret_cast<const char*>(next + at + line), _MM_HINT_T0);
                _mm_prefetch(reinterpret_cast<const char*>(next + stride + at + line), _MM_HINT_T0);
            }
        }
        __m256i rows[2][4];
        for (int k = 0; k < 4; ++k) {
            rows[0][k] = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(top + at) + k);
            rows[1][k] = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bottom + at) + k);
        }
        const __m256i w0 = PermutedAvx2(t.weights + x, weightOrder);
        const __m256i w1 = PermutedAvx2(t.weights + x + 8, weightOrder);
        const __m256i v = _mm256_add_epi16(_mm256_mulhi_epu16(AlphaAlongAvx2(rows[0], w0, w1), gy),
                                           _mm256_mulhi_epu16(AlphaAlongAvx2(rows[1], w0, w1), vf));
        for (int half = 0; half < 2; ++half) {
            const __m256i means =
                _mm256_packus_epi16(vmresample::PairMeansAvx2(rows[0][2 * half], rows[1][2 * half]),
                                    vmresample::PairMeansAvx2(rows[0][2 * half + 1], rows[1][2 * half + 1]));
            const __m256i lanes = half ? _mm256_unpackhi_epi16(v, zero) : _mm256_unpacklo_epi16(v, zero);
            const __m256i both = _mm256_or_si256(_mm256_and_si256(means, colours), _mm256_slli_epi32(lanes, 24));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + size_t(x + 8 * half) * 4),
                                vmresample::HalvedInOrderAvx2(both));
        }
    }
    for (; x < dw; ++x) {
        vmresample::HalvedPixel(top + size_t(x) * 8, bottom + size_t(x) * 8, out + size_t(x) * 4);
        PlaneColumnFromRows(top, bottom, 3, t, x, fy, out, sw);
    }
}

#endif

} // namespace

CPixelByteRows::CPixelByteRows(const COLImage& source, int byteIndex, uint32_t dstWidth, uint32_t dstHeight)
    : m_source(source), m_byte(byteIndex), m_dstWidth(dstWidth)
{
    Axis ax = MakeAxis(source.GetWidth(), dstWidth, false), ay = MakeAxis(source.GetHeight(), dstHeight, false);
    m_xPos = std::move(ax.pos);
    m_xFrac = std::move(ax.frac);
    m_yPos = std::move(ay.pos);
    m_yFrac = std::move(ay.frac);
    m_xG.resize(dstWidth);
    m_xWeights.resize(dstWidth);
    for (uint32_t i = 0; i < dstWidth; ++i) {
        m_xG[i] = uint16_t(255 - m_xFrac[i]);
        m_xWeights[i] = uint32_t(m_xG[i]) | uint32_t(m_xFrac[i]) << 16;
    }
    const uint32_t sw = source.GetWidth(), sh = source.GetHeight();
    m_halving = byteIndex == 3 && sw == 2 * dstWidth && sh == 2 * dstHeight && dstWidth >= 2 && dstHeight >= 2;
    for (uint32_t i = 0; m_halving && i + 1 < dstWidth; ++i)
        m_halving = m_xPos[i] == 2 * i;
    for (uint32_t y = 0; m_halving && y + 1 < dstHeight; ++y)
        m_halving = m_yPos[y] == 2 * y;
    // Reducing rows by two or more, no two destination rows share a source row, so keeping rows gains nothing.
    m_noSharedRows = sh - 1 >= 2 * (dstHeight - 1);
    const uint32_t groups = dstWidth / 8;
    m_groupKind.assign(groups, kByOne);
    m_groupShuffle.resize(size_t(groups) * 8);
    m_groupBase.resize(groups);
    for (uint32_t g = 0; g < groups; ++g) {
        const uint32_t* pos = &m_xPos[g * 8];
        bool strideTwo = pos[0] + 16 <= sw;
        for (uint32_t k = 1; k < 8 && strideTwo; ++k) strideTwo = pos[k] == pos[0] + 2 * k;
        if (strideTwo) {
            m_groupKind[g] = kStrideTwo;
        } else if (pos[7] + 1 - pos[0] < 16) { // the right sample of the last column must fall in the 16 bytes
            m_groupKind[g] = kShuffle;
            m_groupBase[g] = pos[0];
            for (uint32_t k = 0; k < 8; ++k) m_groupShuffle[size_t(g) * 8 + k] = uint8_t(pos[k] - pos[0]);
            m_lineNeeded = true;
        }
    }
}

CPixelByteRows::Work CPixelByteRows::MakeWork() const
{
    Work work;
    for (auto& row : work.rows) row.resize(m_dstWidth);
    work.line.resize(size_t(m_source.GetWidth()) + 16);
    return work;
}

const uint16_t* CPixelByteRows::SourceRow(Work& work, uint32_t row, int64_t keep) const
{
    for (int s = 0; s < 2; ++s)
        if (work.key[s] == int64_t(row)) return work.rows[s].data();
    const int s = work.key[0] == keep ? 1 : 0;
    const uint32_t sw = m_source.GetWidth();
    const uint8_t* pixels = reinterpret_cast<const uint8_t*>(m_source.GetBuffer(0, row));
    uint16_t* out = work.rows[s].data();
#if VM_SIMD_X86
    if (vmsimd::CurrentLevel() >= vmsimd::kAvx2) {
        if (m_lineNeeded) TakeBytes(pixels, m_byte, work.line.data(), sw);
        const PlaneRowHTables tables{m_xPos.data(),      m_xG.data(),           m_xFrac.data(),    m_xWeights.data(),
                                     m_groupKind.data(), m_groupShuffle.data(), m_groupBase.data()};
        PlaneRowHAvx2(pixels, m_byte, work.line.data(), tables, out, m_dstWidth, sw);
    } else
#endif
    {
        TakeBytes(pixels, m_byte, work.line.data(), sw);
        ChannelRowH(work.line.data(), m_xPos.data(), m_xFrac.data(), out, m_dstWidth, sw);
    }
    work.key[s] = row;
    return out;
}

void CPixelByteRows::Row(Work& work, uint32_t y, CPixel* out) const
{
    // As Bilinear<1>: rows reach the last source row, and there the row beneath is not read.
    const uint32_t p = m_yPos[y];
    const bool lastRow = p + 1 >= m_source.GetHeight();
#if VM_SIMD_X86
    if (m_noSharedRows && !lastRow && vmsimd::CurrentLevel() >= vmsimd::kAvx2) {
        const PlaneRowHTables tables{m_xPos.data(),      m_xG.data(),           m_xFrac.data(),    m_xWeights.data(),
                                     m_groupKind.data(), m_groupShuffle.data(), m_groupBase.data()};
        PlaneRowFusedAvx2(reinterpret_cast<const uint8_t*>(m_source.GetBuffer(0, p)),
                          reinterpret_cast<const uint8_t*>(m_source.GetBuffer(0, p + 1)), m_byte, tables, m_yFrac[y],
                          reinterpret_cast<uint8_t*>(out), m_dstWidth, m_source.GetWidth());
        return;
    }
#endif
    const uint16_t* top = SourceRow(work, p, lastRow ? p : int64_t(p) + 1);
    const uint16_t* bottom = lastRow ? top : SourceRow(work, p + 1, p);
    const uint16_t fy = lastRow ? 0 : m_yFrac[y];
    uint8_t* pixels = reinterpret_cast<uint8_t*>(out);
    uint32_t x = 0;
#if VM_SIMD_X86
    if (vmsimd::CurrentLevel() >= vmsimd::kAvx2) PlaneRowVIntoPixelsAvx2(top, bottom, fy, pixels, m_byte, m_dstWidth, x);
#endif
    const uint32_t gy = 255u - fy;
    for (; x < m_dstWidth; ++x)
        pixels[size_t(x) * 4 + m_byte] = uint8_t(((top[x] * gy) >> 16) + ((bottom[x] * uint32_t(fy)) >> 16));
}

bool CPixelByteRows::HalvesWithColours() const
{
#if VM_SIMD_X86
    return m_halving && vmsimd::CurrentLevel() >= vmsimd::kAvx2;
#else
    return false;
#endif
}

void CPixelByteRows::HalvedRow(uint32_t y, CPixel* out) const
{
#if VM_SIMD_X86
    const uint32_t sh = m_source.GetHeight();
    const bool lastRow = y + 1 == m_yPos.size();
    const PlaneRowHTables tables{m_xPos.data(),      m_xG.data(),           m_xFrac.data(),    m_xWeights.data(),
                                 m_groupKind.data(), m_groupShuffle.data(), m_groupBase.data()};
    auto row = [&](uint32_t r) { return reinterpret_cast<const uint8_t*>(m_source.GetBuffer(0, r)); };
    HalvedRowAvx2(row(2 * y), row(2 * y + 1), 2 * y + 3 < sh ? row(2 * y + 2) : nullptr, tables,
                  lastRow ? 0 : m_yFrac[y], reinterpret_cast<uint8_t*>(out), m_dstWidth, m_source.GetWidth());
    if (lastRow) { // the plane's last row reads the last source row alone
        Work work = MakeWork();
        Row(work, y, out);
    }
#else
    (void)y;
    (void)out;
#endif
}

int ShrinkImageArea(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, int srcX, int srcY, int srcWidth,
                    int srcHeight)
{
    return ShrinkAny<4>(src, dst, dstWidth, dstHeight, srcX, srcY, srcWidth, srcHeight);
}

int ShrinkChannelArea(const COLChannel* src, COLChannel* dst, int dstWidth, int dstHeight, int srcX, int srcY,
                      int srcWidth, int srcHeight)
{
    return ShrinkAny<1>(src, dst, dstWidth, dstHeight, srcX, srcY, srcWidth, srcHeight);
}

int SampleImageTwoPoint(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, int srcX, int srcY,
                        int srcWidth, int srcHeight)
{
    Rect r;
    if (!dst || !ValidSize(dstWidth, dstHeight) || !ResolveRect(src, srcX, srcY, srcWidth, srcHeight, r)) return 0;
    return WithSeparateSource(src, dst, [&](const COLImage* s) {
        const uint32_t dw = uint32_t(dstWidth), dh = uint32_t(dstHeight);
        if (dst->Create(dw, dh) != kOk) return 0;
        const double rx = double(r.w) / dw, ry = double(r.h) / dh;
        const uint32_t lastX = r.x + r.w - 1, lastY = r.y + r.h - 1;
        // Columns: the right sample carries w1 = the fraction at the footprint's right end.
        std::vector<uint32_t> x0(dw), x1(dw), w1(dw);
        for (uint32_t i = 0; i < dw; ++i) {
            const double p0 = i * rx + r.x, p1 = (i + 1) * rx + r.x;
            x0[i] = uint32_t(p0);
            x1[i] = uint32_t(p1);
            w1[i] = uint32_t((p1 - x1[i]) * 256);
            if (x1[i] > lastX) {
                w1[i] = 0;
                x1[i] = lastX;
            }
        }
        for (uint32_t j = 0; j < dh; ++j) {
            // Rows: the top sample carries w0 = what is left of the footprint's first row.
            const double p0 = j * ry + r.y, p1 = (j + 1) * ry + r.y;
            const uint32_t y0 = uint32_t(p0);
            const uint32_t y1 = std::min(uint32_t(p1), lastY);
            const uint32_t w0 = uint32_t((1 - (p0 - y0)) * 256);
            const CPixel* top = s->GetBuffer(0, y0);
            const CPixel* bottom = s->GetBuffer(0, y1);
            CPixel* out = dst->GetBuffer(0, j);
            for (uint32_t i = 0; i < dw; ++i) {
                const uint8_t* a = reinterpret_cast<const uint8_t*>(top + x0[i]);
                const uint8_t* b = reinterpret_cast<const uint8_t*>(top + x1[i]);
                const uint8_t* c = reinterpret_cast<const uint8_t*>(bottom + x0[i]);
                const uint8_t* d = reinterpret_cast<const uint8_t*>(bottom + x1[i]);
                uint8_t* o = reinterpret_cast<uint8_t*>(out + i);
                for (int k = 0; k < 4; ++k) {
                    const uint32_t t = (a[k] * (256 - w1[i]) + b[k] * w1[i]) >> 8;
                    const uint32_t u = (c[k] * (256 - w1[i]) + d[k] * w1[i]) >> 8;
                    o[k] = uint8_t((u * (256 - w0) + t * w0) >> 8);
                }
            }
        }
        return 1;
    });
}

const vmparam::ParamTable& ResampleParamTable()
{
    static const vmparam::ParamTable table{
        "resample",
        {vmparam::Choice("method", vmparam::At<&ResampleSettings::method>(), "bilinear|area|twopoint",
                         "bilinear; area averages when shrinking; twopoint is quick")}};
    return table;
}

int ResampleWith(const ResampleSettings& settings, const COLImage* src, COLImage* dst, int dstWidth, int dstHeight)
{
    switch (settings.method) {
    case 1:
        return ShrinkImageArea(src, dst, dstWidth, dstHeight);
    case 2:
        return SampleImageTwoPoint(src, dst, dstWidth, dstHeight);
    default:
        return ResampleImage(src, dst, dstWidth, dstHeight);
    }
}
