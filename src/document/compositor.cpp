#include "document/compositor.h"

#include <algorithm>
#include <cstring>

#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/image.h"
#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"

#if VM_SIMD_X86
#include <immintrin.h>
#endif

namespace {

// Modes without a formula of their own blend as normal.
int EffectiveMode(int mode)
{
    switch (mode) {
    case kBlendDarken:
    case kBlendLighten:
    case kBlendMultiply:
    case kBlendScreen:
    case kBlendDifference:
        return mode;
    default:
        return kBlendNormal;
    }
}

// ---- plain path -------------------------------------------------------------------------------------------

template <int Mode> inline uint32_t ModeColour(uint32_t d, uint32_t s)
{
    if constexpr (Mode == kBlendDarken)
        return d < s ? d : s;
    else if constexpr (Mode == kBlendLighten)
        return d > s ? d : s;
    else if constexpr (Mode == kBlendMultiply)
        return Div255(d * s + 127);
    else if constexpr (Mode == kBlendScreen)
        return 255 - Div255((255 - d) * (255 - s) + 127);
    else if constexpr (Mode == kBlendDifference)
        return d > s ? d - s : s - d;
    else
        return s;
}

template <int Mode> void BlendRowPlain(CPixel* d, const CPixel* s, size_t n, uint32_t opacity)
{
    for (size_t i = 0; i < n; ++i) {
        const uint32_t a = Div255(s[i].alpha * opacity + 127);
        const uint32_t ia = 255 - a;
        CPixel& o = d[i];
        o.blue = static_cast<uint8_t>(Div255(o.blue * ia + ModeColour<Mode>(o.blue, s[i].blue) * a + 127));
        o.green = static_cast<uint8_t>(Div255(o.green * ia + ModeColour<Mode>(o.green, s[i].green) * a + 127));
        o.red = static_cast<uint8_t>(Div255(o.red * ia + ModeColour<Mode>(o.red, s[i].red) * a + 127));
    }
}

void BlendRowPlainAny(CPixel* d, const CPixel* s, size_t n, uint32_t opacity, int mode)
{
    switch (mode) {
    case kBlendDarken:
        BlendRowPlain<kBlendDarken>(d, s, n, opacity);
        break;
    case kBlendLighten:
        BlendRowPlain<kBlendLighten>(d, s, n, opacity);
        break;
    case kBlendMultiply:
        BlendRowPlain<kBlendMultiply>(d, s, n, opacity);
        break;
    case kBlendScreen:
        BlendRowPlain<kBlendScreen>(d, s, n, opacity);
        break;
    case kBlendDifference:
        BlendRowPlain<kBlendDifference>(d, s, n, opacity);
        break;
    default:
        BlendRowPlain<kBlendNormal>(d, s, n, opacity);
        break;
    }
}

// ---- AVX2 path: eight pixels at a time in 16-bit lanes ------------------------------------------------------

#if VM_SIMD_X86
#define VM_AVX2 VM_TARGET_AVX2

// x / 255 for every 16-bit x: (x * 0x8081) >> 23.
VM_AVX2 inline __m256i Div255x16(__m256i x)
{
    return _mm256_srli_epi16(_mm256_mulhi_epu16(x, _mm256_set1_epi16(static_cast<short>(0x8081))), 7);
}

template <int Mode>
VM_AVX2 inline void ModeColours(__m256i d, __m256i s, __m256i dl, __m256i dh, __m256i& rl, __m256i& rh)
{
    const __m256i z = _mm256_setzero_si256();
    if constexpr (Mode == kBlendMultiply || Mode == kBlendScreen) {
        __m256i sl = _mm256_unpacklo_epi8(s, z), sh = _mm256_unpackhi_epi8(s, z);
        const __m256i c127 = _mm256_set1_epi16(127);
        if constexpr (Mode == kBlendMultiply) {
            rl = Div255x16(_mm256_add_epi16(_mm256_mullo_epi16(dl, sl), c127));
            rh = Div255x16(_mm256_add_epi16(_mm256_mullo_epi16(dh, sh), c127));
        } else {
            const __m256i c255 = _mm256_set1_epi16(255);
            const __m256i pl = _mm256_mullo_epi16(_mm256_sub_epi16(c255, dl), _mm256_sub_epi16(c255, sl));
            const __m256i ph = _mm256_mullo_epi16(_mm256_sub_epi16(c255, dh), _mm256_sub_epi16(c255, sh));
            rl = _mm256_sub_epi16(c255, Div255x16(_mm256_add_epi16(pl, c127)));
            rh = _mm256_sub_epi16(c255, Div255x16(_mm256_add_epi16(ph, c127)));
        }
    } else {
        __m256i r8;
        if constexpr (Mode == kBlendDarken)
            r8 = _mm256_min_epu8(d, s);
        else if constexpr (Mode == kBlendLighten)
            r8 = _mm256_max_epu8(d, s);
        else if constexpr (Mode == kBlendDifference)
            r8 = _mm256_or_si256(_mm256_subs_epu8(d, s), _mm256_subs_epu8(s, d));
        else
            r8 = s;
        rl = _mm256_unpacklo_epi8(r8, z);
        rh = _mm256_unpackhi_epi8(r8, z);
    }
}

template <int Mode> VM_AVX2 void BlendRowAvx2(CPixel* dst, const CPixel* src, size_t n, uint32_t opacity)
{
    const __m256i z = _mm256_setzero_si256();
    const __m256i alphaBytes = _mm256_set1_epi32(static_cast<int>(0xFF000000u));
    const __m256i op = _mm256_set1_epi32(static_cast<int>(opacity));
    const __m256i c127 = _mm256_set1_epi16(127);
    const __m256i c127d = _mm256_set1_epi32(127);
    const __m256i c255 = _mm256_set1_epi16(255);
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        __m256i* pd = reinterpret_cast<__m256i*>(dst + i);
        const __m256i s = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
        if (_mm256_testz_si256(s, alphaBytes)) continue; // all transparent: a is 0, nothing changes
        const __m256i d = _mm256_loadu_si256(pd);
        if (Mode == kBlendNormal && opacity == 255 && _mm256_testc_si256(s, alphaBytes)) {
            // all opaque at full opacity: a is 255 and the colour is the layer's
            _mm256_storeu_si256(pd, _mm256_blendv_epi8(s, d, alphaBytes));
            continue;
        }
        // a = (alpha * opacity + 127) / 255 per pixel; products stay below 2^16 inside each 32-bit lane.
        const __m256i t = _mm256_add_epi32(_mm256_mullo_epi16(_mm256_srli_epi32(s, 24), op), c127d);
        const __m256i a32 = Div255x16(t);
        const __m256i a16 = _mm256_or_si256(a32, _mm256_slli_epi32(a32, 16));
        const __m256i al = _mm256_unpacklo_epi32(a16, a16), ah = _mm256_unpackhi_epi32(a16, a16);
        const __m256i il = _mm256_sub_epi16(c255, al), ih = _mm256_sub_epi16(c255, ah);
        const __m256i dl = _mm256_unpacklo_epi8(d, z), dh = _mm256_unpackhi_epi8(d, z);
        __m256i rl, rh;
        ModeColours<Mode>(d, s, dl, dh, rl, rh);
        // d * (255 - a) + res * a + 127 <= 65152: exact in unsigned 16-bit lanes.
        const __m256i ol =
            Div255x16(_mm256_add_epi16(_mm256_add_epi16(_mm256_mullo_epi16(dl, il), _mm256_mullo_epi16(rl, al)), c127));
        const __m256i oh =
            Div255x16(_mm256_add_epi16(_mm256_add_epi16(_mm256_mullo_epi16(dh, ih), _mm256_mullo_epi16(rh, ah)), c127));
        _mm256_storeu_si256(pd, _mm256_blendv_epi8(_mm256_packus_epi16(ol, oh), d, alphaBytes));
    }
    if (i < n) BlendRowPlain<Mode>(dst + i, src + i, n - i, opacity);
}

void BlendRowAvx2Any(CPixel* d, const CPixel* s, size_t n, uint32_t opacity, int mode)
{
    switch (mode) {
    case kBlendDarken:
        BlendRowAvx2<kBlendDarken>(d, s, n, opacity);
        break;
    case kBlendLighten:
        BlendRowAvx2<kBlendLighten>(d, s, n, opacity);
        break;
    case kBlendMultiply:
        BlendRowAvx2<kBlendMultiply>(d, s, n, opacity);
        break;
    case kBlendScreen:
        BlendRowAvx2<kBlendScreen>(d, s, n, opacity);
        break;
    case kBlendDifference:
        BlendRowAvx2<kBlendDifference>(d, s, n, opacity);
        break;
    default:
        BlendRowAvx2<kBlendNormal>(d, s, n, opacity);
        break;
    }
}
#endif

#if VM_SIMD_X86
// The quick preview's normal blend of `cols` samples taken every `step` pixels of s, eight at a time; answers
// how many were done (a multiple of 8), the rest is left to the plain loop. Same shifts as the plain loop:
// (s x a + d x (255 - a)) >> 8 never exceeds 16 bits.
// Eight samples every `step` pixels from s. The coarse update of a brush uses step 2, where two loads and a
// shuffle are much cheaper than a gather; they read s[0..15], so `avail` (the pixels left in the row from s)
// must be at least 16 for that.
VM_AVX2 inline __m256i LoadSamples8(const CPixel* s, int step, int avail, __m256i index)
{
    if (step == 2 && avail >= 16) {
        const __m256i evens = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
        const __m256i a = _mm256_permutevar8x32_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s)), evens);
        const __m256i b =
            _mm256_permutevar8x32_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 8)), evens);
        return _mm256_permute2x128_si256(a, b, 0x20);
    }
    return _mm256_i32gather_epi32(reinterpret_cast<const int*>(s), index, 4);
}

VM_AVX2 int PreviewNormalAvx2(CPixel* d, const CPixel* s, int step, int cols, int avail, uint32_t opacity)
{
    const __m256i index = _mm256_mullo_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), _mm256_set1_epi32(step));
    const __m256i op = _mm256_set1_epi32(static_cast<int>(opacity)), c127 = _mm256_set1_epi32(127);
    const __m256i c255 = _mm256_set1_epi16(255), alpha = _mm256_set1_epi32(static_cast<int>(0xFF000000u));
    const __m256i z = _mm256_setzero_si256();
    int k = 0;
    for (; k + 8 <= cols; k += 8) {
        const __m256i sp = LoadSamples8(s + static_cast<size_t>(k) * step, step, avail - k * step, index);
        __m256i* dp = reinterpret_cast<__m256i*>(d + k);
        const __m256i dv = _mm256_loadu_si256(dp);
        // a per pixel, spread over the pixel's four 16-bit lanes.
        const __m256i a32 =
            _mm256_srli_epi32(_mm256_add_epi32(_mm256_mullo_epi32(_mm256_srli_epi32(sp, 24), op), c127), 8);
        const __m256i a16 = _mm256_or_si256(a32, _mm256_slli_epi32(a32, 16));
        const __m256i al = _mm256_unpacklo_epi32(a16, a16), ah = _mm256_unpackhi_epi32(a16, a16);
        const __m256i sl = _mm256_unpacklo_epi8(sp, z), sh = _mm256_unpackhi_epi8(sp, z);
        const __m256i dl = _mm256_unpacklo_epi8(dv, z), dh = _mm256_unpackhi_epi8(dv, z);
        const __m256i rl = _mm256_srli_epi16(
            _mm256_add_epi16(_mm256_mullo_epi16(sl, al), _mm256_mullo_epi16(dl, _mm256_sub_epi16(c255, al))), 8);
        const __m256i rh = _mm256_srli_epi16(
            _mm256_add_epi16(_mm256_mullo_epi16(sh, ah), _mm256_mullo_epi16(dh, _mm256_sub_epi16(c255, ah))), 8);
        _mm256_storeu_si256(dp, _mm256_blendv_epi8(_mm256_packus_epi16(rl, rh), dv, alpha));
    }
    return k;
}

// The quick preview's base samples of one row, eight at a time while all eight are opaque; answers how many
// were done, the rest (and any group with a see-through pixel) is left to the plain loop.
VM_AVX2 int SampleOpaqueAvx2(CPixel* d, const CPixel* s, int step, int cols, int avail)
{
    const __m256i index = _mm256_mullo_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), _mm256_set1_epi32(step));
    const __m256i alpha = _mm256_set1_epi32(static_cast<int>(0xFF000000u));
    int k = 0;
    for (; k + 8 <= cols; k += 8) {
        const __m256i sp = LoadSamples8(s + static_cast<size_t>(k) * step, step, avail - k * step, index);
        if (_mm256_movemask_epi8(_mm256_cmpeq_epi32(_mm256_and_si256(sp, alpha), alpha)) != -1) break;
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + k), sp);
    }
    return k;
}
#endif

using BlendRowFn = void (*)(CPixel*, const CPixel*, size_t, uint32_t, int);

BlendRowFn ChooseBlendRow()
{
#if VM_SIMD_X86
    if (vmsimd::CurrentLevel() >= vmsimd::kAvx2) return BlendRowAvx2Any;
#endif
    return BlendRowPlainAny;
}

// Colours of the base, the destination's alpha kept.
void CopyColoursRow(CPixel* d, const CPixel* s, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        uint32_t dw, sw;
        std::memcpy(&dw, d + i, 4);
        std::memcpy(&sw, s + i, 4);
        dw = (dw & 0xFF000000u) | (sw & 0x00FFFFFFu);
        std::memcpy(d + i, &dw, 4);
    }
}

// Colours of the base with alpha from the mask bytes (the first `fromMask` pixels), 0 for the rest.
void CopyColoursWithAlphaRow(CPixel* d, const CPixel* s, const uint8_t* mask, size_t fromMask, size_t n)
{
    for (size_t i = 0; i < fromMask; ++i) {
        uint32_t sw;
        std::memcpy(&sw, s + i, 4);
        sw = (sw & 0x00FFFFFFu) | static_cast<uint32_t>(mask[i]) << 24;
        std::memcpy(d + i, &sw, 4);
    }
    for (size_t i = fromMask; i < n; ++i) {
        uint32_t sw;
        std::memcpy(&sw, s + i, 4);
        sw &= 0x00FFFFFFu;
        std::memcpy(d + i, &sw, 4);
    }
}

// Blends the rows y0..y1 (destination coordinates) of one layer.
void BlendLayerRows(COLImage* dst, const CLayer* layer, int y0, int y1, BlendRowFn blendRow)
{
    if (!layer->m_visible || layer->m_image.IsNull()) return;
    const long long dw = dst->GetWidth(), dh = dst->GetHeight();
    const long long lx = layer->m_x, ly = layer->m_y;
    const long long lw = layer->m_image.GetWidth(), lh = layer->m_image.GetHeight();
    const long long x0 = std::max(lx, 0LL), x1 = std::min(lx + lw, dw);
    const long long ya = std::max({ly, 0LL, static_cast<long long>(y0)});
    const long long yb = std::min({ly + lh, dh, static_cast<long long>(y1)});
    if (x0 >= x1 || ya >= yb) return;
    const int mode = EffectiveMode(layer->m_blendMode);
    const uint32_t opacity = layer->m_opacity;
    if (opacity == 0) return; // a is 0 everywhere: nothing changes
    for (long long y = ya; y < yb; ++y)
        blendRow(dst->GetBuffer(static_cast<uint32_t>(x0), static_cast<uint32_t>(y)),
                 layer->m_image.GetBuffer(static_cast<uint32_t>(x0 - lx), static_cast<uint32_t>(y - ly)),
                 static_cast<size_t>(x1 - x0), opacity, mode);
}

// The preview blend of one layer: rows y from sy below ey in steps, `cols` samples per row from sx, written to
// the preview at (sx / step + k, y / step). Shifts stand in for the divisions: it is only a preview.
template <int Mode>
void PreviewLayerT(COLImage& dst, const CLayer& layer, int l, int t, int sx, int sy, int ey, int step, int cols)
{
    const uint32_t opacity = layer.m_opacity;
#if VM_SIMD_X86
    const bool avx2 = Mode == kBlendNormal && vmsimd::CurrentLevel() >= vmsimd::kAvx2;
#endif
    for (int y = sy; y < ey; y += step) {
        CPixel* d = dst.GetBuffer(static_cast<uint32_t>(sx / step), static_cast<uint32_t>(y / step));
        const CPixel* s = layer.m_image.GetBuffer(static_cast<uint32_t>(sx - l), static_cast<uint32_t>(y - t));
        int k = 0;
#if VM_SIMD_X86
        if (avx2) {
            k = PreviewNormalAvx2(d, s, step, cols, static_cast<int>(layer.m_image.GetWidth()) - (sx - l), opacity);
            d += k;
            s += static_cast<size_t>(k) * step;
        }
#endif
        for (; k < cols; ++k, ++d, s += step) {
            const uint32_t a = (s->alpha * opacity + 127) >> 8;
            const uint32_t ia = 255 - a;
            d->blue = static_cast<uint8_t>((ModeColour<Mode>(d->blue, s->blue) * a + d->blue * ia) >> 8);
            d->green = static_cast<uint8_t>((ModeColour<Mode>(d->green, s->green) * a + d->green * ia) >> 8);
            d->red = static_cast<uint8_t>((ModeColour<Mode>(d->red, s->red) * a + d->red * ia) >> 8);
        }
    }
}

void PreviewLayer(COLImage& dst, const CLayer& layer, int l, int t, int sx, int sy, int ey, int step, int cols)
{
    switch (EffectiveMode(layer.m_blendMode)) {
    case kBlendDarken:
        PreviewLayerT<kBlendDarken>(dst, layer, l, t, sx, sy, ey, step, cols);
        break;
    case kBlendLighten:
        PreviewLayerT<kBlendLighten>(dst, layer, l, t, sx, sy, ey, step, cols);
        break;
    case kBlendMultiply:
        PreviewLayerT<kBlendMultiply>(dst, layer, l, t, sx, sy, ey, step, cols);
        break;
    case kBlendScreen:
        PreviewLayerT<kBlendScreen>(dst, layer, l, t, sx, sy, ey, step, cols);
        break;
    case kBlendDifference:
        PreviewLayerT<kBlendDifference>(dst, layer, l, t, sx, sy, ey, step, cols);
        break;
    default:
        PreviewLayerT<kBlendNormal>(dst, layer, l, t, sx, sy, ey, step, cols);
        break;
    }
}

// Runs fn(y0, y1) over 0..height, split in bands over the pool's threads when the picture is large enough to
// gain. Rows are blended independently, so the split never changes a byte.
template <class Fn> void RunBands(int height, size_t pixels, Fn fn)
{
    if (height < 2 || pixels < (size_t(1) << 18)) {
        fn(0, height);
        return;
    }
    vmpar::ParallelFor(size_t(height), 1, [&](size_t y0, size_t y1, unsigned) { fn(int(y0), int(y1)); });
}

} // namespace

const char* BlendModeKey(int mode)
{
    switch (mode) {
    case kBlendDarken:
        return "bm_darken";
    case kBlendLighten:
        return "bm_lighten";
    case kBlendMultiply:
        return "bm_mul";
    case kBlendScreen:
        return "bm_screen";
    case kBlendDifference:
        return "bm_dif";
    default:
        return "bm_normal";
    }
}

void BlendPixel(CPixel d, CPixel s, CPixel* out, int mode)
{
    auto each = [&](auto f) {
        out->blue = static_cast<uint8_t>(f(d.blue, s.blue));
        out->green = static_cast<uint8_t>(f(d.green, s.green));
        out->red = static_cast<uint8_t>(f(d.red, s.red));
    };
    switch (EffectiveMode(mode)) {
    case kBlendDarken:
        each([](int a, int b) { return std::min(a, b); });
        break;
    case kBlendLighten:
        each([](int a, int b) { return std::max(a, b); });
        break;
    case kBlendMultiply:
        each([](int a, int b) { return (a * b + 127) / 255; });
        break;
    case kBlendScreen:
        each([](int a, int b) { return 255 - ((255 - a) * (255 - b) + 127) / 255; });
        break;
    case kBlendDifference:
        each([](int a, int b) { return a > b ? a - b : b - a; });
        break;
    default:
        *out = s;
        break;
    }
}

int BlendLayer(COLImage* destination, const CLayer* layer)
{
    if (!layer || !layer->m_visible) return 0;
    if (!destination || destination->IsNull()) return 1;
    const BlendRowFn blendRow = ChooseBlendRow();
    RunBands(static_cast<int>(destination->GetHeight()), layer->m_image.GetPixelCount(),
             [&](int y0, int y1) { BlendLayerRows(destination, layer, y0, y1, blendRow); });
    return 1;
}

int MergeLayers(const CLayerStack* stack, COLImage* destination, int maskFlag)
{
    if (!stack || !destination || stack->GetLayerCount() == 0) return 0;
    const CLayer* base = stack->GetLayer(0);
    if (base->m_image.IsNull()) return 0;
    const uint32_t w = base->m_image.GetWidth(), h = base->m_image.GetHeight();
    if (destination->Create(w, h) != kOk) return 0;
    const BlendRowFn blendRow = ChooseBlendRow();
    const int count = stack->GetLayerCount();
    const COLChannel& mask = stack->GetSelectionMask();
    const size_t maskBytes = mask.IsNull() ? 0 : mask.GetAreaByteSize();

    // Strips of rows small enough to stay in the core's cache while every layer is blended onto them, so the
    // composite goes through memory once instead of once per layer.
    const int stripRows = static_cast<int>(std::max<uint32_t>(1, (256u * 1024u) / (w * 4u + 1u)));
    RunBands(static_cast<int>(h), size_t(w) * h * static_cast<size_t>(count), [&](int y0, int y1) {
        for (int s0 = y0; s0 < y1; s0 += stripRows) {
            const int s1 = std::min(y1, s0 + stripRows);
            for (int y = s0; y < s1; ++y) {
                CPixel* row = destination->GetBuffer(0, static_cast<uint32_t>(y));
                const CPixel* baseRow = base->m_image.GetBuffer(0, static_cast<uint32_t>(y));
                if (maskFlag != 1) {
                    CopyColoursRow(row, baseRow, w);
                    continue;
                }
                // The composite's alpha carries the selection: the mask's bytes in order, 0 where there are none.
                // Blending never touches alpha, so it is set together with the base's colours.
                const size_t first = size_t(y) * w;
                const size_t fromMask = first >= maskBytes ? 0 : std::min<size_t>(w, maskBytes - first);
                CopyColoursWithAlphaRow(row, baseRow, fromMask ? mask.GetBuffer() + first : nullptr, fromMask, w);
            }
            for (int i = 1; i < count; ++i)
                BlendLayerRows(destination, stack->GetLayer(i), s0, s1, blendRow);
        }
    });
    return 1;
}

int MergeFast(const CLayerStack* stack, COLImage* destination, CRect rect, int step)
{
    if (!stack || !destination || stack->GetLayerCount() == 0 || step < 1) return 0;
    const CLayer* base = stack->GetLayer(0);
    if (base->m_image.IsNull()) return 0;
    const int W = static_cast<int>(base->m_image.GetWidth()), H = static_cast<int>(base->m_image.GetHeight());
    rect.Normalize();
    rect.left = std::clamp(rect.left, 0, W);
    rect.right = std::clamp(rect.right, 0, W);
    rect.top = std::clamp(rect.top, 0, H);
    rect.bottom = std::clamp(rect.bottom, 0, H);
    const int rw = rect.Width(), rh = rect.Height();
    if (rw < step || rh < step) {
        destination->Free();
        return 1;
    }
    int ow = rw / step + 1, oh = rh / step + 1;
    if (oh * step + rect.top > H) --oh;
    if (ow * step + rect.left > W) --ow;
    if (destination->Create(static_cast<uint32_t>(ow), static_cast<uint32_t>(oh)) != kOk) return 0;

    // Base: sampled, and drawn on white where it is not opaque.
#if VM_SIMD_X86
    const bool avx2 = vmsimd::CurrentLevel() >= vmsimd::kAvx2;
#endif
    for (int j = 0; j < oh; ++j) {
        int i = 0;
#if VM_SIMD_X86
        if (avx2)
            i = SampleOpaqueAvx2(
                destination->GetBuffer(0, static_cast<uint32_t>(j)),
                base->m_image.GetBuffer(static_cast<uint32_t>(rect.left), static_cast<uint32_t>(rect.top + j * step)),
                step, ow, W - rect.left);
#endif
        for (; i < ow; ++i) {
            CPixel p = base->m_image.GetPixel2(static_cast<uint32_t>(rect.left + i * step),
                                               static_cast<uint32_t>(rect.top + j * step));
            if (p.alpha != 255) {
                const int32_t a = p.alpha;
                p.blue = static_cast<uint8_t>(((p.blue - 255) * a + 65025) >> 8);
                p.green = static_cast<uint8_t>(((p.green - 255) * a + 65025) >> 8);
                p.red = static_cast<uint8_t>(((p.red - 255) * a + 65025) >> 8);
                p.alpha = 255;
            }
            destination->PutPixel(static_cast<uint32_t>(i), static_cast<uint32_t>(j), p);
        }
    }

    for (int k = 1; k < stack->GetLayerCount(); ++k) {
        const CLayer* layer = stack->GetLayer(k);
        if (!layer->m_visible || layer->m_image.IsNull()) continue;
        const int l = layer->m_x - rect.left, t = layer->m_y - rect.top;
        const int lw = static_cast<int>(layer->m_image.GetWidth()), lh = static_cast<int>(layer->m_image.GetHeight());
        const int sx = std::max(l, 0), sy = std::max(t, 0);
        const int ex = std::min({l + lw, rw, ow * step + sx});
        const int ey = std::min({t + lh, rh, oh * step + sy});
        if (sx >= ex || sy >= ey) continue;
        const int last = std::min(oh - 1, (ey - 1) / step); // a start off the sampling grid can reach one
        const int cols = std::min(ow - sx / step, (ex - sx + step - 1) / step); // row or column past the preview
        PreviewLayer(*destination, *layer, l, t, sx, sy, std::min(ey, last * step + step), step, cols);
    }
    return 1;
}
