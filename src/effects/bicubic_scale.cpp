#include "effects/bicubic_scale.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <immintrin.h>
#include <new>
#include <stdexcept>
#include <vector>

#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"
#include "runtime/status.h"

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
    // The compiler leaves the upper register halves dirty here; legacy SSE code after that stalls on every call,
    // which costs more than the work itself on the short lines of a band.
    _mm256_zeroupper();
    if (i < n) BlendSse2(out + i, a + i, b + i, n - i, p);
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

VM_TARGET_AVX2 inline __m256i CombineEight(const uint8_t* p, const uint8_t* q, __m256 fp, __m256 fn, __m256 half)
{
    const __m256i p32 = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
    const __m256i n32 = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(q)));
    const __m256 x = _mm256_add_ps(
        _mm256_sub_ps(_mm256_mul_ps(_mm256_cvtepi32_ps(p32), fp), _mm256_mul_ps(_mm256_cvtepi32_ps(n32), fn)), half);
    return _mm256_cvttps_epi32(x);
}

VM_TARGET_AVX2 void CombineAvx2(uint8_t* out, const uint8_t* pos, const uint8_t* neg, size_t n, float fp, float fn)
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
    _mm256_zeroupper(); // as in BlendAvx2
    if (i < n) CombineSse2(out + i, pos + i, neg + i, n - i, fp, fn);
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

// The merge tree of one group of taps. The ratios are worked out level by level, pairs in tap order, the way the
// filter is defined; only the order the merges are carried out in is free, and it is chosen to need few lines.
struct TreeNode {
    int32_t left, right; // children, or -1 in a leaf
    int32_t p;           // the left child's share in 1/256
    int32_t line;        // a leaf's source line
};

struct GroupItem {
    int32_t node;
    float weight; // first level: the filter weight (by magnitude in the negative group)
    int scaled;   // after the first level: weight x 256 as an integer
};

// Builds the tree of a group (items in tap order) into nodes; returns the root and its integer weight.
int32_t BuildGroup(std::vector<GroupItem>& items, std::vector<TreeNode>& nodes, int& weight)
{
    size_t n = items.size(), m = 0;
    // First level: float weights, the pair's weight kept as an integer multiple of 1/256.
    for (size_t k = 0; k < n; k += 2) {
        if (k + 1 < n) {
            const GroupItem& a = items[k];
            const GroupItem& b = items[k + 1];
            const float sum = a.weight + b.weight;
            const int p = sum > 0.0f ? static_cast<int>(256.0f * a.weight / sum) : 256;
            nodes.push_back(TreeNode{a.node, b.node, p, -1});
            items[m++] = GroupItem{int32_t(nodes.size() - 1), 0.0f, static_cast<int>(sum * 256.0f)};
        } else {
            items[m++] = GroupItem{items[k].node, 0.0f, static_cast<int>(items[k].weight * 256.0f)};
        }
    }
    n = m;
    // Further levels: integer weights.
    while (n > 1) {
        m = 0;
        for (size_t k = 0; k < n; k += 2) {
            if (k + 1 < n) {
                const GroupItem& a = items[k];
                const GroupItem& b = items[k + 1];
                const int sum = a.scaled + b.scaled;
                const int p = sum > 0 ? 256 * a.scaled / sum : 256;
                nodes.push_back(TreeNode{a.node, b.node, p, -1});
                items[m++] = GroupItem{int32_t(nodes.size() - 1), 0.0f, sum};
            } else {
                items[m++] = items[k];
            }
        }
        n = m;
    }
    weight = items[0].scaled;
    return items[0].node;
}

// Emits the merges of a tree depth first, so that a group of n taps needs about log2(n) scratch lines instead of
// n / 2: a merge writes over one of its inputs when that is scratch (the blends read and write byte by byte),
// and a line is given back as soon as it is read. References: below 0 scratch line ~ref, else a source line.
class CMergeEmitter {
public:
    template <class Merge> int32_t Emit(const std::vector<TreeNode>& nodes, int32_t node, std::vector<Merge>& out)
    {
        const TreeNode& t = nodes[size_t(node)];
        if (t.left < 0) return t.line;
        const int32_t a = Emit(nodes, t.left, out);
        const int32_t b = Emit(nodes, t.right, out);
        int32_t target;
        if (a < 0) {
            target = a;
            if (b < 0) m_free.push_back(b);
        } else if (b < 0) {
            target = b;
        } else {
            target = Take();
        }
        out.push_back(Merge{target, a, b, t.p});
        return target;
    }
    size_t Used() const { return m_used; }

private:
    int32_t Take()
    {
        if (!m_free.empty()) {
            const int32_t ref = m_free.back();
            m_free.pop_back();
            return ref;
        }
        return ~int32_t(m_used++);
    }

    std::vector<int32_t> m_free;
    size_t m_used = 0;
};

} // namespace

CLineScaler::CLineScaler(uint32_t srcLines, uint32_t dstLines, const CubicFilter& filter)
    : m_srcLines(srcLines), m_dstLines(dstLines)
{
    if (!srcLines || !dstLines) return;
    const float r = float(srcLines) / float(dstLines);
    const float w = r > 1.0f ? 1.05f * r : 1.0f;
    m_recipes.reserve(dstLines);
    std::vector<GroupItem> pos, neg;
    std::vector<TreeNode> nodes;
    for (uint32_t i = 0; i < dstLines; ++i) {
        Recipe recipe{uint32_t(m_merges.size()), 0, 0, 0, 0.0f, 0.0f, false};
        const float c = r * float(i);
        const int lo = static_cast<int>(std::max(c - 2.0f * w, 0.0f));
        const int hi = static_cast<int>(std::min(c + 2.0f * w, float(srcLines - 1)));
        recipe.pos = lo;
        if (hi - lo + 1 >= 2) {
            pos.clear();
            neg.clear();
            nodes.clear();
            for (int t = lo; t <= hi; ++t) {
                const float k = CubicWeight(std::fabs(float(t) - c) / w, filter);
                nodes.push_back(TreeNode{-1, -1, 0, t});
                if (k > 0.0f)
                    pos.push_back(GroupItem{int32_t(nodes.size() - 1), k, 0});
                else
                    neg.push_back(GroupItem{int32_t(nodes.size() - 1), -k, 0});
            }
            // An empty positive group cannot happen with these filters (the centre tap always weighs); it would
            // keep the copy of line lo. Without a negative lobe, or when the lobes cancel, the positive line
            // stands alone.
            if (!pos.empty()) {
                int wp = 0, wn = 0;
                const int32_t posRoot = BuildGroup(pos, nodes, wp);
                const int32_t negRoot = neg.empty() ? -1 : BuildGroup(neg, nodes, wn);
                CMergeEmitter emitter;
                recipe.pos = emitter.Emit(nodes, posRoot, m_merges);
                if (negRoot >= 0 && wp - wn != 0) {
                    recipe.neg = emitter.Emit(nodes, negRoot, m_merges);
                    recipe.combine = true;
                    recipe.fp = float(wp) / float(wp - wn);
                    recipe.fn = float(wn) / float(wp - wn);
                }
                m_scratchLines = std::max(m_scratchLines, emitter.Used());
            }
        }
        recipe.mergeCount = uint32_t(m_merges.size()) - recipe.firstMerge;
        m_recipes.push_back(recipe);
    }
}

void CLineScaler::Run(uint8_t* dst, const uint8_t* src, size_t lineBytes, size_t begin, size_t end,
                      uint8_t* scratch) const
{
    const LineOps ops = PickOps();
    auto line = [&](int32_t ref) -> const uint8_t* {
        return ref < 0 ? scratch + lineBytes * size_t(~ref) : src + lineBytes * size_t(ref);
    };
    for (size_t i = begin; i < end; ++i, dst += lineBytes) {
        const Recipe& recipe = m_recipes[i];
        const Merge* merge = m_merges.data() + recipe.firstMerge;
        for (uint32_t k = 0; k < recipe.mergeCount; ++k, ++merge)
            ops.blend(scratch + lineBytes * size_t(~merge->out), line(merge->a), line(merge->b), lineBytes, merge->p);
        if (recipe.combine)
            ops.combine(dst, line(recipe.pos), line(recipe.neg), lineBytes, recipe.fp, recipe.fn);
        else
            std::memcpy(dst, line(recipe.pos), lineBytes);
    }
}

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
    try {
        const CLineScaler scaler(srcLines, dstLines, filter);
        vmpar::ParallelFor(dstLines, 4, [&](size_t begin, size_t end, unsigned) {
            std::vector<uint8_t> scratch(lineBytes * scaler.ScratchLines());
            scaler.Run(dst + lineBytes * begin, src, lineBytes, begin, end, scratch.data());
        });
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
    return true;
}

namespace {

// Rows [rowBegin, rowEnd) of src in 32 x 32 tiles, each moved as 4 x 4 blocks in registers: a tile's source rows and
// destination rows stay in the first-level cache, and every load and store is a whole 16-byte run.
void TransposeRows(const uint32_t* src, uint32_t* dst, uint32_t width, uint32_t height, uint32_t rowBegin,
                   uint32_t rowEnd)
{
    constexpr uint32_t kTile = 32;
    for (uint32_t y0 = rowBegin; y0 < rowEnd; y0 += kTile) {
        const uint32_t y1 = std::min(rowEnd, y0 + kTile);
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
                        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + size_t(c) * height + y), _mm_castps_si128(v));
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
}

} // namespace

void Transpose(const uint32_t* src, uint32_t* dst, uint32_t width, uint32_t height)
{
    constexpr uint32_t kTile = 32;
    const uint32_t tileRows = (height + kTile - 1) / kTile;
    vmpar::ParallelFor(tileRows, 1, [&](size_t begin, size_t end, unsigned) {
        TransposeRows(src, dst, width, height, uint32_t(begin) * kTile, std::min(height, uint32_t(end) * kTile));
    });
}

void TransposeSerial(const uint32_t* src, uint32_t* dst, uint32_t width, uint32_t height)
{
    TransposeRows(src, dst, width, height, 0, height);
}

} // namespace vmscale

namespace {

// Result rows per band. A band of a 4000-wide picture doubled holds 16 rows of the vertical pass (256 KB), the
// same turned, and 8000 scaled columns of 16 pixels (512 KB): about the second-level cache. 32 rows measured the
// same; 8 rows spend more on the per-line steps of the short columns than the cache saves.
constexpr uint32_t kBandRows = 16;

} // namespace

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
    const long done = vmrt::GuardExhaustion([&]() -> long {
        const vmscale::CLineScaler rows(sh, p.height, filter), columns(sw, p.width, filter);
        COLImage fresh;
        COLImage& result = m_pDstImage != m_pSrcImage ? *m_pDstImage : fresh;
        if (result.Create(p.width, p.height) != kOk) return kFail;
        const uint8_t* source = reinterpret_cast<const uint8_t*>(src.GetBuffer());
        // Bands of result rows in parallel. A band computes its rows of the vertical pass at the source's width,
        // turns them (source columns become lines of the band's height), scales those lines to the target width and
        // turns the result back into its own rows of the picture. The vertical taps of neighbouring bands reach some
        // of the same source rows, which are only read; every result row is written by one band.
        const uint32_t bands = (p.height + kBandRows - 1) / kBandRows;
        vmpar::ParallelFor(bands, 1, [&](size_t first, size_t last, unsigned part) {
            // One band's lines: its rows of the vertical pass (B x sw), then its scaled columns (p.width lines of
            // B pixels); the turned rows between them (sw lines of B pixels) have their own block.
            const size_t longest = std::max(sw, p.width);
            std::vector<uint32_t> lines(longest * kBandRows), turned(size_t(sw) * kBandRows);
            std::vector<uint8_t> rowScratch(size_t(sw) * 4 * rows.ScratchLines()),
                columnScratch(size_t(kBandRows) * 4 * columns.ScratchLines());
            int reported = -1;
            for (size_t band = first; band < last; ++band) {
                if (part == 0) {
                    const int percent = int(100 * (band - first) / (last - first));
                    if (percent != reported) ReportProgress(reported = percent);
                }
                const uint32_t y0 = uint32_t(band) * kBandRows, n = std::min(kBandRows, p.height - y0);
                uint8_t* bytes = reinterpret_cast<uint8_t*>(lines.data());
                rows.Run(bytes, source, size_t(sw) * 4, y0, y0 + n, rowScratch.data());
                vmscale::TransposeSerial(lines.data(), turned.data(), sw, n);
                columns.Run(bytes, reinterpret_cast<const uint8_t*>(turned.data()), size_t(n) * 4, 0, p.width,
                            columnScratch.data());
                vmscale::TransposeSerial(lines.data(), reinterpret_cast<uint32_t*>(result.GetBuffer(0, y0)), n,
                                         p.width);
            }
        });
        if (&result == &fresh) *m_pDstImage = std::move(fresh); // source and destination are one image
        return kOk;
    });
    if (done != kOk) return kFail;
    ReportProgress(100);
    return kOk;
}
