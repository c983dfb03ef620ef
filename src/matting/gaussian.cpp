#include "matting/gaussian.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "filters/resample.h"
#include "matting/exact_divider.h"
#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"

#if VM_SIMD_X86
#include <immintrin.h>
#endif

// ---------------------------------------------------------------------------------------------------------------
// Kernel

GaussianKernel GaussianKernel::Make(double sigma)
{
    GaussianKernel k;
    const double q = 2.0 * sigma * sigma;
    uint32_t sum = 0;
    int n = kMaxTaps;
    for (int i = 0; i < kMaxTaps; ++i) {
        const double v = std::pow(kBase, -double(i * i) / q) * 1024.0;
        const uint32_t w = static_cast<uint32_t>(std::trunc(v));
        if (w == 0) {
            n = i;
            break;
        }
        k.raw[i] = w;
        sum += i == 0 ? w : 2 * w;
    }
    k.taps = n;
    k.rawSum = sum;
    for (int i = 0; i < n; ++i) k.weight[i] = static_cast<uint16_t>((k.raw[i] << 11) / sum);
    return k;
}

uint32_t GaussianKernel::Sum(int lo, int hi) const
{
    uint32_t s = 0;
    for (int d = lo; d < hi; ++d) s += weight[d < 0 ? -d : d];
    return s;
}

// ---------------------------------------------------------------------------------------------------------------
// Line passes. The interior of a line, where the whole kernel fits, has one constant divisor: those loops are
// specialised on the tap count so that the compiler unrolls the taps and vectorises across bytes. Borders, where
// the kernel is cut and renormalised, take the general path.

namespace {

// Where the taps of one output run come from: a centre and, for the column pass, the rows k above and below;
// the row pass finds them at a fixed byte stride from the centre instead.
struct Taps {
    const uint8_t* centre = nullptr;
    const uint8_t* up[GaussianKernel::kMaxTaps] = {};
    const uint8_t* down[GaussianKernel::kMaxTaps] = {};
};

using InteriorFn = void (*)(const Taps& taps, uint8_t* out, size_t count, const uint16_t* weights, uint32_t magic);

namespace plain {

template <int N, int Stride>
void Interior(const Taps& t, uint8_t* __restrict out, size_t count, const uint16_t* weights, uint32_t magic)
{
    uint16_t w[N];
    const uint8_t* up[N];
    const uint8_t* down[N];
    for (int k = 0; k < N; ++k) {
        w[k] = weights[k];
        up[k] = Stride ? t.centre - Stride * k : t.up[k];
        down[k] = Stride ? t.centre + Stride * k : t.down[k];
    }
    for (size_t i = 0; i < count; ++i) {
        uint32_t acc = uint32_t(w[0]) * t.centre[i];
        for (int k = 1; k < N; ++k) acc += uint32_t(w[k]) * uint32_t(uint16_t(up[k][i] + down[k][i]));
        out[i] = static_cast<uint8_t>((uint64_t(acc) * magic) >> 32);
    }
}

template <int Stride, size_t... I>
constexpr std::array<InteriorFn, GaussianKernel::kMaxTaps + 1> MakeTable(std::index_sequence<I...>)
{
    return {nullptr, &Interior<int(I) + 1, Stride>...};
}

constexpr auto kRows = MakeTable<0>(std::make_index_sequence<GaussianKernel::kMaxTaps>());
constexpr auto kStride1 = MakeTable<1>(std::make_index_sequence<GaussianKernel::kMaxTaps>());
constexpr auto kStride4 = MakeTable<4>(std::make_index_sequence<GaussianKernel::kMaxTaps>());

} // namespace plain

#if VM_SIMD_X86
namespace sse2 {

struct Isa {
    using V = __m128i;
    static constexpr size_t kStep = 8;
    static V Zero() { return _mm_setzero_si128(); }
    static V Set32(uint32_t v) { return _mm_set1_epi32(int(v)); }
    static V Widen(const uint8_t* p) { return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)), Zero()); }
    static V Add16(V a, V b) { return _mm_add_epi16(a, b); }
    static V Add32(V a, V b) { return _mm_add_epi32(a, b); }
    static V UnpackLo16(V a, V b) { return _mm_unpacklo_epi16(a, b); }
    static V UnpackHi16(V a, V b) { return _mm_unpackhi_epi16(a, b); }
    static V MulAddPairs(V a, V b) { return _mm_madd_epi16(a, b); }
    static V MulHigh32(V a, V m)
    {
        const V even = _mm_srli_epi64(_mm_mul_epu32(a, m), 32);
        const V odd = _mm_mul_epu32(_mm_srli_epi64(a, 32), m);
        return _mm_or_si128(even, _mm_and_si128(odd, _mm_set_epi32(-1, 0, -1, 0)));
    }
    // Lanes hold byte values already, so the signed packs cannot saturate.
    static void StoreNarrow(uint8_t* out, V lo, V hi)
    {
        const V words = _mm_packs_epi32(lo, hi);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(words, words));
    }
};

#define VM_KERNEL VM_TARGET_SSE2
#include "matting/gaussian_simd.inl"
#undef VM_KERNEL

} // namespace sse2

namespace avx2 {

struct Isa {
    using V = __m256i;
    static constexpr size_t kStep = 16;
    VM_TARGET_AVX2 static V Zero() { return _mm256_setzero_si256(); }
    VM_TARGET_AVX2 static V Set32(uint32_t v) { return _mm256_set1_epi32(int(v)); }
    VM_TARGET_AVX2 static V Widen(const uint8_t* p) { return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))); }
    VM_TARGET_AVX2 static V Add16(V a, V b) { return _mm256_add_epi16(a, b); }
    VM_TARGET_AVX2 static V Add32(V a, V b) { return _mm256_add_epi32(a, b); }
    // Unpacking and packing both work within 128-bit halves, so the pack at the end restores the order.
    VM_TARGET_AVX2 static V UnpackLo16(V a, V b) { return _mm256_unpacklo_epi16(a, b); }
    VM_TARGET_AVX2 static V UnpackHi16(V a, V b) { return _mm256_unpackhi_epi16(a, b); }
    VM_TARGET_AVX2 static V MulAddPairs(V a, V b) { return _mm256_madd_epi16(a, b); }
    VM_TARGET_AVX2 static V MulHigh32(V a, V m)
    {
        const V even = _mm256_srli_epi64(_mm256_mul_epu32(a, m), 32);
        const V odd = _mm256_mul_epu32(_mm256_srli_epi64(a, 32), m);
        return _mm256_blend_epi32(even, odd, 0xAA);
    }
    VM_TARGET_AVX2 static void StoreNarrow(uint8_t* out, V lo, V hi)
    {
        const V words = _mm256_packs_epi32(lo, hi);
        const V bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(words, words), 0x08);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(bytes));
    }
};

#define VM_KERNEL VM_TARGET_AVX2
#include "matting/gaussian_simd.inl"
#undef VM_KERNEL

} // namespace avx2
#endif

// The loop for a tap count and stride (0: rows given one by one) at the instruction set in use.
InteriorFn PickInterior(int taps, int stride)
{
    const auto pick = [&](const auto& rows, const auto& s1, const auto& s4) {
        return stride == 0 ? rows[taps] : stride == 1 ? s1[taps] : s4[taps];
    };
#if VM_SIMD_X86
    switch (vmsimd::CurrentLevel()) {
    case vmsimd::kAvx2: return pick(avx2::kRows, avx2::kStride1, avx2::kStride4);
    case vmsimd::kSse2: return pick(sse2::kRows, sse2::kStride1, sse2::kStride4);
    default: break;
    }
#endif
    return pick(plain::kRows, plain::kStride1, plain::kStride4);
}

// Border pixels of a row: the kernel is cut at the line's ends and renormalised by what is left of it.
void HorizontalBorderPixel(const uint8_t* in, uint8_t* out, uint32_t width, int bpp, const GaussianKernel& k,
                           uint32_t i)
{
    const int n = k.taps;
    const int64_t lo = std::max<int64_t>(0, int64_t(i) - n + 1);
    const int64_t hi = std::min<int64_t>(width, int64_t(i) + n);
    const uint32_t sum = k.Sum(int(lo - i), int(hi - i));
    for (int c = 0; c < bpp; ++c) {
        uint32_t acc = 0;
        for (int64_t j = lo; j < hi; ++j) acc += uint32_t(in[j * bpp + c]) * k.weight[std::abs(int(j - i))];
        out[size_t(i) * bpp + c] = static_cast<uint8_t>(acc / sum);
    }
}

void HorizontalRow(const uint8_t* in, uint8_t* out, uint32_t width, int bpp, const GaussianKernel& k)
{
    const uint32_t n = uint32_t(k.taps);
    if (width >= 2 * n - 1) {
        const ExactDivider divide(k.Sum(1 - int(n), int(n)));
        const size_t first = size_t(n - 1) * bpp;
        const size_t count = size_t(width - 2 * (n - 1)) * bpp;
        Taps taps;
        taps.centre = in + first;
        PickInterior(int(n), bpp)(taps, out + first, count, k.weight, divide.magic);
        for (uint32_t i = 0; i < n - 1; ++i) HorizontalBorderPixel(in, out, width, bpp, k, i);
        for (uint32_t i = width - (n - 1); i < width; ++i) HorizontalBorderPixel(in, out, width, bpp, k, i);
    } else {
        for (uint32_t i = 0; i < width; ++i) HorizontalBorderPixel(in, out, width, bpp, k, i);
    }
}

// Output row y from the horizontally blurred rows, handed over by a lookup of row index to its buffer.
template <typename RowOf>
void VerticalRow(RowOf rowOf, uint8_t* out, size_t count, uint32_t height, uint32_t y, const GaussianKernel& k,
                 std::vector<uint32_t>& acc)
{
    const int n = k.taps;
    const int64_t lo = std::max<int64_t>(0, int64_t(y) - n + 1);
    const int64_t hi = std::min<int64_t>(height, int64_t(y) + n);
    if (lo == int64_t(y) - n + 1 && hi == int64_t(y) + n) {
        Taps taps;
        taps.centre = rowOf(y);
        for (int d = 0; d < n; ++d) {
            taps.up[d] = rowOf(y - uint32_t(d));
            taps.down[d] = rowOf(y + uint32_t(d));
        }
        PickInterior(n, 0)(taps, out, count, k.weight, ExactDivider(k.Sum(1 - n, n)).magic);
        return;
    }
    // A row near the top or bottom: the kernel is cut there and renormalised.
    acc.assign(count, 0);
    uint32_t* a = acc.data();
    for (int64_t j = lo; j < hi; ++j) {
        const uint32_t w = k.weight[std::abs(int(j - int64_t(y)))];
        const uint8_t* r = rowOf(uint32_t(j));
        for (size_t i = 0; i < count; ++i) a[i] += w * r[i];
    }
    const ExactDivider divide(k.Sum(int(lo - y), int(hi - y)));
    for (size_t i = 0; i < count; ++i) out[i] = static_cast<uint8_t>(divide(a[i]));
}

} // namespace

namespace vmfilter {

void GaussianBlurBuffer(const uint8_t* src, uint8_t* dst, uint32_t width, uint32_t height, int bytesPerPixel,
                        const GaussianKernel& kernel, CImageProcess* progress)
{
    if (width == 0 || height == 0) return;
    const size_t rowBytes = size_t(width) * bytesPerPixel;
    const uint32_t ringRows = uint32_t(2 * kernel.taps - 1);
    // Each part works on a band of output rows with its own ring of horizontally blurred rows, so the
    // intermediate picture never goes through memory as a whole.
    const size_t minRows = std::max<size_t>(8, (size_t(1) << 17) / rowBytes);
    vmpar::ParallelFor(height, minRows, [&](size_t y0, size_t y1, unsigned part) {
        std::vector<uint8_t> ring(size_t(ringRows) * rowBytes);
        std::vector<uint32_t> acc;
        auto rowOf = [&](uint32_t r) { return ring.data() + size_t(r % ringRows) * rowBytes; };
        const uint32_t n = uint32_t(kernel.taps);
        uint32_t next = uint32_t(y0 >= n - 1 ? y0 - (n - 1) : 0);   // first horizontal row not yet made
        for (size_t y = y0; y < y1; ++y) {
            const uint32_t need = uint32_t(std::min<size_t>(height, y + n));
            for (; next < need; ++next) HorizontalRow(src + next * rowBytes, rowOf(next), width, bytesPerPixel, kernel);
            VerticalRow(rowOf, dst + y * rowBytes, rowBytes, height, uint32_t(y), kernel, acc);
            if (progress && part == 0 && (y - y0) % 64 == 63) progress->ReportProgress(int((y - y0) * 100 / (y1 - y0)));
        }
    });
}

void ShrinkByBlocks(const uint8_t* src, uint8_t* dst, uint32_t width, uint32_t height, int bytesPerPixel,
                    uint32_t factor)
{
    const uint32_t dw = width / factor, dh = height / factor;
    if (dw == 0 || dh == 0) return;
    const size_t srcRow = size_t(width) * bytesPerPixel;
    const size_t dstRow = size_t(dw) * bytesPerPixel;
    const uint64_t area = uint64_t(factor) * factor;
    vmpar::ParallelFor(dh, std::max<size_t>(1, (size_t(1) << 17) / (srcRow * factor)), [&](size_t y0, size_t y1, unsigned) {
        // Column sums over the block's rows first (contiguous, vectorises), then sums across each block.
        std::vector<uint32_t> columns(dstRow * factor);
        const size_t used = columns.size();
        for (size_t y = y0; y < y1; ++y) {
            std::fill(columns.begin(), columns.end(), 0u);
            for (uint32_t r = 0; r < factor; ++r) {
                const uint8_t* s = src + (y * factor + r) * srcRow;
                uint32_t* c = columns.data();
                for (size_t i = 0; i < used; ++i) c[i] += s[i];
            }
            uint8_t* d = dst + y * dstRow;
            for (uint32_t x = 0; x < dw; ++x)
                for (int ch = 0; ch < bytesPerPixel; ++ch) {
                    uint64_t sum = 0;
                    for (uint32_t i = 0; i < factor; ++i) sum += columns[(size_t(x) * factor + i) * bytesPerPixel + ch];
                    d[size_t(x) * bytesPerPixel + ch] = static_cast<uint8_t>(sum / area);
                }
        }
    });
}

} // namespace vmfilter

// ---------------------------------------------------------------------------------------------------------------
// The process

int CGaussianProcess::PlanScale(double sigma, uint32_t maxScale, double& workSigma)
{
    int scale = 1;
    workSigma = sigma;
    if (sigma > 2.5) {
        double c = std::trunc(sigma);
        while (c > 2.5 && uint32_t(scale) < maxScale) {
            ++scale;
            c = std::trunc(sigma / scale);
        }
        workSigma = c;
    }
    return scale;
}

const vmparam::ParamTable& GaussianParamTable()
{
    static const vmparam::ParamTable table = [] {
        vmparam::ParamTable t{"blur", {vmparam::Real("sigma", vmparam::At<&GaussianSettings::sigma>(), 0, 1000,
                                                     "spread of the blur in pixels", true)}};
        t.params[0].metavar = "S";
        return t;
    }();
    return table;
}

long CGaussianProcess::Process(const void* params)
{
    if (CImageProcess::Process(params) != kOk) return kFail;
    return vmrt::GuardExhaustion([&] { return Run(params, false); });
}

long CGaussianProcess::ProcessChannel(const void* params)
{
    if (CImageProcess::ProcessChannel(params) != kOk) return kFail;
    return vmrt::GuardExhaustion([&] { return Run(params, true); });
}

namespace {

// The image and plane paths differ only in the pixel type, the byte count per pixel and the resampler.
struct ImageSide {
    using Picture = COLImage;
    static constexpr int kBytes = 4;
    static uint8_t* Bytes(const COLImage& p) { return reinterpret_cast<uint8_t*>(p.GetBuffer()); }
    static bool Empty(const COLImage& p) { return p.IsNull(); }
    static int Resample(const COLImage* s, COLImage* d, int w, int h) { return ResampleImage(s, d, w, h, 0, 0, -1, -1); }
};

struct ChannelSide {
    using Picture = COLChannel;
    static constexpr int kBytes = 1;
    static uint8_t* Bytes(const COLChannel& p) { return p.GetBuffer(); }
    static bool Empty(const COLChannel& p) { return p.IsNull(); }
    static int Resample(const COLChannel* s, COLChannel* d, int w, int h)
    {
        return ResampleChannel(s, d, w, h, 0, 0, -1, -1);
    }
};

template <typename Side>
long BlurPicture(const typename Side::Picture& src, typename Side::Picture& dst, double sigma, int& scaleOut,
                 double& sigmaOut, CImageProcess* progress)
{
    using Picture = typename Side::Picture;
    const uint32_t w = src.GetWidth(), h = src.GetHeight();
    if (sigma < 0.01) {
        if (&src == &dst) return kOk;
        return dst.DuplicateFrom(&src) ? kOk : kFail;
    }
    // At least one whole block must remain at the reduced size, so the factor stays within the shorter side.
    const int scale = CGaussianProcess::PlanScale(sigma, std::max<uint32_t>(1, std::min(w, h)), sigmaOut);
    scaleOut = scale;
    const GaussianKernel kernel = GaussianKernel::Make(sigmaOut);
    if (progress) progress->ReportProgress(0);

    if (scale == 1) {
        // The blur reads rows that are already written when source and destination are one picture.
        Picture copy;
        const Picture* from = &src;
        if (&src == &dst) {
            if (!copy.DuplicateFrom(&src)) return kFail;
            from = &copy;
        }
        if (dst.Create(w, h) != kOk) return kFail;
        vmfilter::GaussianBlurBuffer(Side::Bytes(*from), Side::Bytes(dst), w, h, Side::kBytes, kernel, progress);
    } else {
        const uint32_t sw = w / uint32_t(scale), sh = h / uint32_t(scale);
        Picture small, blurred;
        if (small.Create(sw, sh) != kOk || blurred.Create(sw, sh) != kOk) return kFail;
        vmfilter::ShrinkByBlocks(Side::Bytes(src), Side::Bytes(small), w, h, Side::kBytes, uint32_t(scale));
        if (progress) progress->ReportProgress(30);
        vmfilter::GaussianBlurBuffer(Side::Bytes(small), Side::Bytes(blurred), sw, sh, Side::kBytes, kernel);
        if (progress) progress->ReportProgress(50);
        if (!Side::Resample(&blurred, &dst, int(w), int(h))) return kFail;
    }
    if (progress) progress->ReportProgress(100);
    return kOk;
}

} // namespace

long CGaussianProcess::Run(const void* params, bool channelMode)
{
    if (!params) return kFail;
    const double sigma = *static_cast<const double*>(params);
    if (!std::isfinite(sigma)) return kFail;
    m_sigma = sigma;
    m_scale = 1;
    if (channelMode) return BlurPicture<ChannelSide>(*m_pSrcChannel, *m_pDstChannel, sigma, m_scale, m_sigma, this);
    return BlurPicture<ImageSide>(*m_pSrcImage, *m_pDstImage, sigma, m_scale, m_sigma, this);
}
