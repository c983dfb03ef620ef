#include "effects/bicubic_scale.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <memory>
#include <immintrin.h>
#include <new>
#include <vector>

#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"

namespace vmscale {

namespace {

// ---- whole-line primitives, one per instruction set; all give the same bytes ------------------------------

// out = (a * p + b * (256 - p)) >> 8 per byte; p is 0..256, and the sum never leaves 16 bits.
void BlendPlain(uint8_t* out, const uint8_t* a, const uint8_t* b, size_t n, int p)
{
    const int q = 256 - p;
    for (size_t i = 0; i < n; ++i)
        out[i] = static_cast<uint8_t>((a[i] * p + b[i] * q) >> 8);
}

void BlendSse2(uint8_t* out, const uint8_t* a, const uint8_t* b, size_t n, int p)
{
    const __m128i vp = _mm_set1_epi16(static_cast<short>(p)), vq = _mm_set1_epi16(static_cast<short>(256 - p));
    const __m128i zero = _mm_setzero_si128();
    size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + i));
        const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i));
        const __m128i lo = _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(va, zero), vp),
                                                        _mm_mullo_epi16(_mm_unpacklo_epi8(vb, zero), vq)),
                                          8);
        const __m128i hi = _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(_mm_unpackhi_epi8(va, zero), vp),
                                                        _mm_mullo_epi16(_mm_unpackhi_epi8(vb, zero), vq)),
                                          8);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(lo, hi));
    }
    BlendPlain(out + i, a + i, b + i, n - i, p);
}

VM_TARGET_AVX2 void BlendAvx2(uint8_t* out, const uint8_t* a, const uint8_t* b, size_t n, int p)
{
    const __m256i vp = _mm256_set1_epi16(static_cast<short>(p)), vq = _mm256_set1_epi16(static_cast<short>(256 - p));
    const __m256i zero = _mm256_setzero_si256();
    size_t i = 0;
    for (; i + 32 <= n; i += 32) {
        const __m256i va = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(a + i));
        const __m256i vb = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(b + i));
        const __m256i lo = _mm256_srli_epi16(_mm256_add_epi16(_mm256_mullo_epi16(_mm256_unpacklo_epi8(va, zero), vp),
                                                              _mm256_mullo_epi16(_mm256_unpacklo_epi8(vb, zero), vq)),
                                             8);
        const __m256i hi = _mm256_srli_epi16(_mm256_add_epi16(_mm256_mullo_epi16(_mm256_unpackhi_epi8(va, zero), vp),
                                                              _mm256_mullo_epi16(_mm256_unpackhi_epi8(vb, zero), vq)),
                                             8);
        // The unpacks work within 128-bit halves, and so does the pack: the bytes come back in order.
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), _mm256_packus_epi16(lo, hi));
    }
    BlendSse2(out + i, a + i, b + i, n - i, p);
}

// out = clamp(trunc(P * fp - N * fn + 0.5)) per byte, in single precision, the products formed apart.
void CombinePlain(uint8_t* out, const uint8_t* pos, const uint8_t* neg, size_t n, float fp, float fn)
{
    for (size_t i = 0; i < n; ++i) {
        const float x = float(pos[i]) * fp - float(neg[i]) * fn + 0.5f;
        const int v = static_cast<int>(x);
        out[i] = static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
    }
}

void CombineSse2(uint8_t* out, const uint8_t* pos, const uint8_t* neg, size_t n, float fp, float fn)
{
    const __m128 vfp = _mm_set1_ps(fp), vfn = _mm_set1_ps(fn), half = _mm_set1_ps(0.5f);
    const __m128i zero = _mm_setzero_si128();
    size_t i = 0;
    auto four = [&](__m128i p16, __m128i n16, bool high) {
        const __m128i p32 = high ? _mm_unpackhi_epi16(p16, zero) : _mm_unpacklo_epi16(p16, zero);
        const __m128i n32 = high ? _mm_unpackhi_epi16(n16, zero) : _mm_unpacklo_epi16(n16, zero);
        const __m128 x =
            _mm_add_ps(_mm_sub_ps(_mm_mul_ps(_mm_cvtepi32_ps(p32), vfp), _mm_mul_ps(_mm_cvtepi32_ps(n32), vfn)), half);
        return _mm_cvttps_epi32(x);
    };
    for (; i + 16 <= n; i += 16) {
        const __m128i vp = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pos + i));
        const __m128i vn = _mm_loadu_si128(reinterpret_cast<const __m128i*>(neg + i));
        const __m128i plo = _mm_unpacklo_epi8(vp, zero), phi = _mm_unpackhi_epi8(vp, zero);
        const __m128i nlo = _mm_unpacklo_epi8(vn, zero), nhi = _mm_unpackhi_epi8(vn, zero);
        const __m128i a = _mm_packs_epi32(four(plo, nlo, false), four(plo, nlo, true));
        const __m128i b = _mm_packs_epi32(four(phi, nhi, false), four(phi, nhi, true));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(a, b));
    }
    CombinePlain(out + i, pos + i, neg + i, n - i, fp, fn);
}

VM_TARGET_AVX2 inline __m256i CombineEight(const uint8_t* p, const uint8_t* q, __m256 fp, __m256 fn,
                                                            __m256 half)
{
    const __m256i p32 = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
    const __m256i n32 = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(q)));
    const __m256 x = _mm256_add_ps(
        _mm256_sub_ps(_mm256_mul_ps(_mm256_cvtepi32_ps(p32), fp), _mm256_mul_ps(_mm256_cvtepi32_ps(n32), fn)), half);
    return _mm256_cvttps_epi32(x);
}

VM_TARGET_AVX2 void CombineAvx2(uint8_t* out, const uint8_t* pos, const uint8_t* neg, size_t n,
                                                 float fp, float fn)
{
    const __m256 vfp = _mm256_set1_ps(fp), vfn = _mm256_set1_ps(fn), half = _mm256_set1_ps(0.5f);
    size_t i = 0;
    for (; i + 32 <= n; i += 32) {
        const __m256i a = _mm256_packs_epi32(CombineEight(pos + i, neg + i, vfp, vfn, half),
                                             CombineEight(pos + i + 8, neg + i + 8, vfp, vfn, half));
        const __m256i b = _mm256_packs_epi32(CombineEight(pos + i + 16, neg + i + 16, vfp, vfn, half),
                                             CombineEight(pos + i + 24, neg + i + 24, vfp, vfn, half));
        // packs interleaves the 128-bit halves; one permute puts the four groups of eight back in order.
        const __m256i bytes = _mm256_packus_epi16(a, b);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i),
                            _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7)));
    }
    CombineSse2(out + i, pos + i, neg + i, n - i, fp, fn);
}

using BlendFn = void (*)(uint8_t*, const uint8_t*, const uint8_t*, size_t, int);
using CombineFn = void (*)(uint8_t*, const uint8_t*, const uint8_t*, size_t, float, float);

struct LineOps {
    BlendFn blend;
    CombineFn combine;
};

LineOps PickOps()
{
    switch (vmsimd::CurrentLevel()) {
    case vmsimd::kAvx2:
        return {BlendAvx2, CombineAvx2};
    case vmsimd::kSse2:
        return {BlendSse2, CombineSse2};
    default:
        return {BlendPlain, CombinePlain};
    }
}

// One line of a group while it is merged: where its bytes are and its weight.
struct Item {
    const uint8_t* line;
    float weight; // first level: the filter weight (by magnitude in the negative group)
    int scaled;   // after the first level: weight x 256 as an integer
};

// Merges a group into one line, pairwise and level by level. Returns the merged line (which may be a source line
// when the group holds one tap) and its integer weight; scratch holds one line per tap.
const uint8_t* MergeGroup(std::vector<Item>& items, uint8_t* scratch, size_t scratchLines, size_t lineBytes,
                          const LineOps& ops, int& weight)
{
    size_t n = items.size(), slot = 0;
    // First level: float weights, the pair's weight kept as an integer multiple of 1/256.
    size_t m = 0;
    for (size_t k = 0; k < n; k += 2) {
        if (k + 1 < n) {
            const Item& a = items[k];
            const Item& b = items[k + 1];
            const float sum = a.weight + b.weight;
            const int p = sum > 0.0f ? static_cast<int>(256.0f * a.weight / sum) : 256;
            uint8_t* out = scratch + lineBytes * slot++;
            ops.blend(out, a.line, b.line, lineBytes, p);
            items[m++] = Item{out, 0.0f, static_cast<int>(sum * 256.0f)};
        } else {
            items[m++] = Item{items[k].line, 0.0f, static_cast<int>(items[k].weight * 256.0f)};
        }
    }
    n = m;
    // Further levels: integer weights; a merged line is written over the first of its pair when that is scratch.
    while (n > 1) {
        m = 0;
        for (size_t k = 0; k < n; k += 2) {
            if (k + 1 < n) {
                const Item& a = items[k];
                const Item& b = items[k + 1];
                const int sum = a.scaled + b.scaled;
                const int p = sum > 0 ? 256 * a.scaled / sum : 256;
                uint8_t* out;
                if (a.line >= scratch && a.line < scratch + lineBytes * scratchLines)
                    out = const_cast<uint8_t*>(a.line);
                else
                    out = scratch + lineBytes * slot++;
                ops.blend(out, a.line, b.line, lineBytes, p);
                items[m++] = Item{out, 0.0f, sum};
            } else {
                items[m++] = items[k];
            }
        }
        n = m;
    }
    weight = items[0].scaled;
    return items[0].line;
}

} // namespace

CubicFilter ChooseFilter(uint32_t sourceWidth, uint32_t targetWidth)
{
    return targetWidth < sourceWidth ? CubicFilter{0.13f, 1.25f} : CubicFilter{0.33f, 0.73f};
}

float CubicWeight(float x, const CubicFilter& f)
{
    const float b = f.b, c = f.c;
    if (x < 1.0f) return (12 - 9 * b - 6 * c) * x * x * x + (-18 + 12 * b + 6 * c) * x * x + (6 - 2 * b);
    if (x < 2.0f)
        return (-b - 6 * c) * x * x * x + (6 * b + 30 * c) * x * x + (-12 * b - 48 * c) * x + (8 * b + 24 * c);
    return 0.0f;
}

bool ScaleLines(uint8_t* dst, const uint8_t* src, size_t lineBytes, uint32_t srcLines, uint32_t dstLines,
                const CubicFilter& filter)
{
    if (!srcLines || !dstLines) return false;
    const float r = float(srcLines) / float(dstLines);
    const float w = r > 1.0f ? 1.05f * r : 1.0f;
    const size_t maxTaps = static_cast<size_t>(4.0f * w) + 3;
    const LineOps ops = PickOps();
    std::atomic<bool> ok{true};
    vmpar::ParallelFor(dstLines, 4, [&](size_t begin, size_t end, unsigned) {
        std::vector<uint8_t> scratch;
        std::vector<Item> pos, neg;
        try {
            scratch.resize(lineBytes * maxTaps * 2);
            pos.reserve(maxTaps);
            neg.reserve(maxTaps);
        } catch (const std::bad_alloc&) {
            ok = false; // each part writes its own flag value only as false, which is all that is read
            return;
        }
        uint8_t* posScratch = scratch.data();
        uint8_t* negScratch = scratch.data() + lineBytes * maxTaps;
        for (size_t i = begin; i < end; ++i) {
            uint8_t* out = dst + lineBytes * i;
            const float c = r * float(i);
            const int lo = static_cast<int>(std::max(c - 2.0f * w, 0.0f));
            const int hi = static_cast<int>(std::min(c + 2.0f * w, float(srcLines - 1)));
            if (hi - lo + 1 < 2) {
                std::memcpy(out, src + lineBytes * size_t(lo), lineBytes);
                continue;
            }
            pos.clear();
            neg.clear();
            for (int t = lo; t <= hi; ++t) {
                const float k = CubicWeight(std::fabs(float(t) - c) / w, filter);
                const uint8_t* line = src + lineBytes * size_t(t);
                if (k > 0.0f)
                    pos.push_back(Item{line, k, 0});
                else
                    neg.push_back(Item{line, -k, 0});
            }
            if (pos.empty()) { // cannot happen with these filters: the centre tap always weighs
                std::memcpy(out, src + lineBytes * size_t(lo), lineBytes);
                continue;
            }
            int wp = 0, wn = 0;
            const uint8_t* p = MergeGroup(pos, posScratch, maxTaps, lineBytes, ops, wp);
            if (neg.empty()) { // no negative lobe: the positive line stands alone
                std::memcpy(out, p, lineBytes);
                continue;
            }
            const uint8_t* q = MergeGroup(neg, negScratch, maxTaps, lineBytes, ops, wn);
            if (wp - wn == 0) {
                std::memcpy(out, p, lineBytes);
                continue;
            }
            const float fp = float(wp) / float(wp - wn), fn = float(wn) / float(wp - wn);
            ops.combine(out, p, q, lineBytes, fp, fn);
        }
    });
    return ok.load();
}

void Transpose(const uint32_t* src, uint32_t* dst, uint32_t width, uint32_t height)
{
    // 32 x 32 tiles, each moved as 4 x 4 blocks in registers: a tile's source rows and destination rows stay in
    // the first-level cache, and every load and store is a whole 16-byte run.
    constexpr uint32_t kTile = 32;
    const uint32_t tileRows = (height + kTile - 1) / kTile;
    vmpar::ParallelFor(tileRows, 1, [&](size_t begin, size_t end, unsigned) {
        for (size_t tr = begin; tr < end; ++tr) {
            const uint32_t y0 = uint32_t(tr) * kTile, y1 = std::min(height, y0 + kTile);
            for (uint32_t x0 = 0; x0 < width; x0 += kTile) {
                const uint32_t x1 = std::min(width, x0 + kTile);
                uint32_t y = y0;
                for (; y + 4 <= y1; y += 4) {
                    uint32_t x = x0;
                    for (; x + 4 <= x1; x += 4) {
                        auto load = [&](uint32_t r) {
                            return _mm_castsi128_ps(
                                _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + size_t(r) * width + x)));
                        };
                        __m128 r0 = load(y), r1 = load(y + 1), r2 = load(y + 2), r3 = load(y + 3);
                        _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
                        auto store = [&](uint32_t c, __m128 v) {
                            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + size_t(c) * height + y),
                                             _mm_castps_si128(v));
                        };
                        store(x, r0);
                        store(x + 1, r1);
                        store(x + 2, r2);
                        store(x + 3, r3);
                    }
                    for (; x < x1; ++x)
                        for (uint32_t k = 0; k < 4; ++k)
                            dst[size_t(x) * height + y + k] = src[size_t(y + k) * width + x];
                }
                for (; y < y1; ++y)
                    for (uint32_t x = x0; x < x1; ++x)
                        dst[size_t(x) * height + y] = src[size_t(y) * width + x];
            }
        }
    });
}

} // namespace vmscale

long CBicubicScaleProcess::Process(const void* params)
{
    if (CImageProcess::Process(params) != kOk || !params) return kFail;
    const BicubicScaleParams p = *static_cast<const BicubicScaleParams*>(params);
    if (p.width < 1 || p.height < 1 || p.width > kMaxImageSide || p.height > kMaxImageSide) return kFail;
    const COLImage& src = *m_pSrcImage;
    const uint32_t sw = src.GetWidth(), sh = src.GetHeight();
    if (p.width == sw && p.height == sh) {
        const int copied = CopySourceToResult();
        ReportProgress(100);
        return copied ? kOk : kFail;
    }
    const vmscale::CubicFilter filter = vmscale::ChooseFilter(sw, p.width);
    try {
        // Rows first, at the source's width; then columns as rows of the transposed picture. The first pass's
        // lines and the third's share one block, so the third writes mostly into memory already in use instead of
        // fresh pages (on a 12-megapixel picture that is a sizeable part of the time); the last writes into the
        // destination itself unless it is the source.
        const size_t verticalBytes = size_t(sw) * p.height * 4, horizontalBytes = size_t(p.height) * p.width * 4;
        std::unique_ptr<uint8_t[]> lines(new uint8_t[std::max(verticalBytes, horizontalBytes)]);
        if (!vmscale::ScaleLines(lines.get(), reinterpret_cast<const uint8_t*>(src.GetBuffer()), size_t(sw) * 4, sh,
                                 p.height, filter))
            return kFail;
        ReportProgress(40);
        std::unique_ptr<uint32_t[]> turned(new uint32_t[size_t(p.height) * sw]);
        vmscale::Transpose(reinterpret_cast<const uint32_t*>(lines.get()), turned.get(), sw, p.height);
        ReportProgress(50);
        if (!vmscale::ScaleLines(lines.get(), reinterpret_cast<const uint8_t*>(turned.get()), size_t(p.height) * 4, sw,
                                 p.width, filter))
            return kFail;
        turned.reset();
        ReportProgress(90);
        COLImage fresh;
        COLImage& result = m_pDstImage != m_pSrcImage ? *m_pDstImage : fresh;
        if (result.Create(p.width, p.height) != kOk) return kFail;
        vmscale::Transpose(reinterpret_cast<const uint32_t*>(lines.get()), reinterpret_cast<uint32_t*>(result.GetBuffer()),
                           p.height, p.width);
        if (&result == &fresh) *m_pDstImage = std::move(fresh); // source and destination are one image
    } catch (const std::bad_alloc&) {
        return kFail;
    }
    ReportProgress(100);
    return kOk;
}
