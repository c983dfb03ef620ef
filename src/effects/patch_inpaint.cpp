#include "effects/patch_inpaint.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "filters/resample.h"
#include "matting/gaussian.h"
#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"
#include "runtime/status.h"

#if VM_SIMD_X86
#include <emmintrin.h>
#endif

namespace {

// A plane blurred by the shared Gaussian in plane mode.
bool BlurPlane(const COLChannel& src, COLChannel& dst, double sigma)
{
    CGaussianProcess blur;
    blur.SetChannels(const_cast<COLChannel*>(&src), &dst);
    return blur.ProcessChannel(&sigma) == kOk;
}

bool AnyAtLeast(const COLChannel& plane, uint8_t value)
{
    const uint8_t* p = plane.GetBuffer();
    const size_t n = size_t(plane.GetWidth()) * plane.GetHeight();
    for (size_t i = 0; i < n; ++i)
        if (p[i] >= value) return true;
    return false;
}

inline uint8_t Blend(uint8_t sample, uint8_t target, uint32_t a)
{
    return uint8_t((sample * a + target * (255 - a)) / 255);
}

// A template laid out for the cost: rows of `padded` pixels (a multiple of four), colour bytes of the compared
// pixels (alpha above 254) in `colour` and 0xFF in `mask`, every other byte 0 in both.
struct CostTemplate {
    int side = 0;
    int padded = 0;
    std::vector<uint8_t> colour;
    std::vector<uint8_t> mask;

    void From(const COLImage& t)
    {
        side = int(t.GetWidth());
        padded = (side + 3) & ~3;
        colour.assign(size_t(padded) * side * 4, 0);
        mask.assign(colour.size(), 0);
        for (int r = 0; r < side; ++r)
            for (int c = 0; c < side; ++c) {
                const CPixel p = *t.GetBuffer(uint32_t(c), uint32_t(r));
                if (p.alpha <= 254) continue;
                const size_t i = (size_t(r) * padded + c) * 4;
                colour[i] = p.blue, colour[i + 1] = p.green, colour[i + 2] = p.red;
                mask[i] = mask[i + 1] = mask[i + 2] = 0xFF;
            }
    }
};

// Sum of absolute colour differences between the template and the picture at (x, y). Once the sum passes limit
// after a row, that partial sum is returned: the caller only needs to know it is above the best so far.
uint32_t CostPlain(const CostTemplate& t, const COLImage& picture, int x, int y, uint32_t limit)
{
    uint32_t sum = 0;
    const int bytes = t.side * 4;
    for (int r = 0; r < t.side; ++r) {
        const uint8_t* s = reinterpret_cast<const uint8_t*>(picture.GetBuffer(uint32_t(x), uint32_t(y + r)));
        const uint8_t* c = t.colour.data() + size_t(r) * t.padded * 4;
        const uint8_t* m = t.mask.data() + size_t(r) * t.padded * 4;
        for (int i = 0; i < bytes; ++i)
            sum += uint32_t(std::abs(int(c[i]) - int(s[i] & m[i])));
        if (sum > limit) return sum;
    }
    return sum;
}

#if VM_SIMD_X86
// The same sum four pixels at a time; it reads t.padded pixels of each row, which the caller keeps inside the
// picture's buffer (the bytes beyond the template's side are masked out).
VM_TARGET_SSE2 uint32_t CostSse2(const CostTemplate& t, const COLImage& picture, int x, int y, uint32_t limit)
{
    uint32_t sum = 0;
    const int vectors = t.padded / 4;
    for (int r = 0; r < t.side; ++r) {
        const uint8_t* s = reinterpret_cast<const uint8_t*>(picture.GetBuffer(uint32_t(x), uint32_t(y + r)));
        const uint8_t* c = t.colour.data() + size_t(r) * t.padded * 4;
        const uint8_t* m = t.mask.data() + size_t(r) * t.padded * 4;
        __m128i acc = _mm_setzero_si128();
        for (int v = 0; v < vectors; ++v) {
            const __m128i sv = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + v * 16));
            const __m128i mv = _mm_loadu_si128(reinterpret_cast<const __m128i*>(m + v * 16));
            const __m128i cv = _mm_loadu_si128(reinterpret_cast<const __m128i*>(c + v * 16));
            acc = _mm_add_epi64(acc, _mm_sad_epu8(_mm_and_si128(sv, mv), cv));
        }
        sum += uint32_t(_mm_cvtsi128_si32(acc)) + uint32_t(_mm_cvtsi128_si32(_mm_srli_si128(acc, 8)));
        if (sum > limit) return sum;
    }
    return sum;
}
#endif

// The best candidate of one part of the search: least cost, first in scan order among equals.
struct Best {
    uint32_t cost = 0x7FFFFFFF;
    size_t index = SIZE_MAX;
};

} // namespace

int32_t CPatchInpaintProcess::EstimateBlockSize(const COLChannel& mask)
{
    if (mask.IsNull()) return 8;
    COLChannel hard, blurred;
    if (!hard.DuplicateFrom(&mask)) return 8;
    uint8_t* p = hard.GetBuffer();
    for (size_t i = 0, n = size_t(hard.GetWidth()) * hard.GetHeight(); i < n; ++i)
        p[i] = p[i] < 128 ? 0 : 255;
    int32_t sigma = 8;
    if (!BlurPlane(hard, blurred, sigma)) return sigma;
    while (AnyAtLeast(blurred, 230)) {
        sigma *= 2;
        if (sigma >= 64) break;
        if (!BlurPlane(hard, blurred, sigma)) return sigma;
    }
    if (sigma == 8) return 8;
    int32_t low = sigma / 2, high = sigma, mid = (low + high) / 2;
    for (;;) {
        if (!BlurPlane(hard, blurred, mid)) return mid;
        if (AnyAtLeast(blurred, 230))
            low = mid;
        else
            high = mid;
        mid = (low + high) / 2;
        if (high - low < 2) return mid;
    }
}

long CPatchInpaintProcess::Process(const void* params)
{
    if (CImageProcess::Process(params) != kOk || !params || m_pSrcImage == m_pDstImage) return kFail;
    const InpaintParams& p = *static_cast<const InpaintParams*>(params);
    if (!p.mask || p.mask->IsNull() || p.blockSize < kMinBlockSize || p.blockSize > kMaxBlockSize) return kFail;
    return vmrt::GuardExhaustion([&] { return Run(p); });
}

bool CPatchInpaintProcess::CancelRequested()
{
    const bool own = TestAndClearCancel() != 0;
    const bool outer = m_pOuter && m_pOuter->TestAndClearCancel() != 0;
    return own || outer;
}

long CPatchInpaintProcess::Run(const InpaintParams& params)
{
    m_params = params;
    m_tiles.clear();
    const COLChannel& mask = *m_params.mask;
    const int32_t w = int32_t(m_pSrcImage->GetWidth()), h = int32_t(m_pSrcImage->GetHeight());
    const int32_t mw = int32_t(mask.GetWidth()), mh = int32_t(mask.GetHeight());

    // The box of the non-zero mask bytes; right and bottom inclusive. Empty: the box stays inverted.
    m_holeLeft = mw, m_holeTop = mh, m_holeRight = 0, m_holeBottom = 0, m_holeCount = 0;
    for (int32_t y = 0; y < mh; ++y) {
        const uint8_t* row = mask.GetBuffer(0, uint32_t(y));
        for (int32_t x = 0; x < mw; ++x) {
            if (!row[x]) continue;
            ++m_holeCount;
            m_holeLeft = std::min(m_holeLeft, x), m_holeRight = std::max(m_holeRight, x);
            m_holeTop = std::min(m_holeTop, y), m_holeBottom = std::max(m_holeBottom, y);
        }
    }
    // The classic scan starts from the picture's size; with a mask of the picture's size they are the same.
    if (m_holeCount == 0) m_holeLeft = w, m_holeTop = h;
    m_overlap = m_params.blockSize / 4;

    if (mw != w || mh != h || int64_t(w) * h < 5 * int64_t(m_holeCount)) return kInpaintNoSample;
    for (size_t i = 0, n = m_pSrcImage->GetPixelCount(); i < n; ++i)
        if (m_pSrcImage->GetBuffer()[i].alpha == 0) return kInpaintNoSample;

    const int32_t margin = m_params.blockSize / 2 + m_overlap;
    if (m_holeLeft < margin || m_holeRight > w - margin || m_holeTop < margin || m_holeBottom > h - margin)
        return RunPadded(m_params);

    ReportProgress(1);
    if (!BuildMaps(mask)) return kFail;
    ReportProgress(3);
    if (!CopySourceToResult()) return kFail;
    ReportProgress(4);

    const int32_t bs = m_params.blockSize;
    m_sampleStep = bs < 12 ? 1 : (bs <= 24 ? 2 : 3);
    if (m_sampleStep > 1 && !ShrinkImageArea(m_pSrcImage, &m_coarseSource, w / m_sampleStep, h / m_sampleStep))
        return kFail;
    if (!BuildTiles()) return kFail;
    ReportProgress(5);
    const long result = FillLoop();
    if (result == kOk && !m_params.exact && m_params.featherMask) BlendRim();
    return result;
}

long CPatchInpaintProcess::RunPadded(const InpaintParams& params)
{
    const int32_t bs = params.blockSize;
    const uint32_t w = m_pSrcImage->GetWidth(), h = m_pSrcImage->GetHeight();
    const uint32_t pw = w + 2 * uint32_t(bs), ph = h + 2 * uint32_t(bs);
    COLImage source;
    COLChannel mask;
    if (source.Create(pw, ph) != kOk || mask.Create(pw, ph) != kOk) return kFail;
    const CPixel black = CPixel::FromWord(0xFF000000u);
    std::fill(source.GetBuffer(), source.GetBuffer() + source.GetPixelCount(), black);
    std::memset(mask.GetBuffer(), 0, size_t(pw) * ph);
    for (uint32_t y = 0; y < h; ++y) {
        std::memcpy(source.GetBuffer(uint32_t(bs), y + uint32_t(bs)), m_pSrcImage->GetBuffer(0, y), size_t(w) * 4);
        std::memcpy(mask.GetBuffer(uint32_t(bs), y + uint32_t(bs)), params.mask->GetBuffer(0, y), w);
    }
    ReportProgress(10);

    CPatchInpaintProcess inner;
    InpaintParams innerParams = params;
    innerParams.mask = &mask;
    inner.m_border = params.exact ? 0 : bs;
    inner.m_pOuter = this;
    inner.SetImages(&source, m_pDstImage);
    inner.SetProgressCallback(m_progress);
    // 10..100 of this run, in the caller's scale.
    const int64_t span = int64_t(m_progressHigh) - m_progressLow;
    inner.SetProgressRange(int32_t(m_progressLow + 10 * span / 100), m_progressHigh);
    const long result = inner.Process(&innerParams);
    // The classic run reports any failure of the padded run as a plain failure; the editor's fill keeps "no
    // sample" apart, so the user is told why.
    if (result != kOk) return params.exact || result != kInpaintNoSample ? kFail : kInpaintNoSample;

    COLImage padded;
    if (!padded.DuplicateFrom(m_pDstImage) || m_pDstImage->Create(w, h) != kOk) return kFail;
    for (uint32_t y = 0; y < h; ++y)
        std::memcpy(m_pDstImage->GetBuffer(0, y), padded.GetBuffer(uint32_t(bs), y + uint32_t(bs)), size_t(w) * 4);
    return kOk;
}

bool CPatchInpaintProcess::BuildMaps(const COLChannel& mask)
{
    const uint32_t w = mask.GetWidth(), h = mask.GetHeight();
    const size_t n = size_t(w) * h;
    const double featherSigma = m_params.blockSize * 0.16666666666666666;
    if (m_params.featherMask) {
        if (!BlurPlane(mask, m_softMask, featherSigma)) return false;
    }
    // The classic run pastes through the softened mask; the editor's fill through the hard one, and keeps the
    // softened one for the rim.
    if (!m_workMask.DuplicateFrom(m_params.exact && m_params.featherMask ? &m_softMask : &mask)) return false;
    m_overlap = std::clamp(m_overlap, 2, 8);
    m_templateSize = m_params.blockSize + 2 * m_overlap;

    if (m_knownMap.Create(w, h) != kOk || m_holeMap.Create(w, h) != kOk) return false;
    const uint8_t* m = m_workMask.GetBuffer();
    uint8_t* known = m_knownMap.GetBuffer();
    uint8_t* hole = m_holeMap.GetBuffer();
    for (size_t i = 0; i < n; ++i) {
        known[i] = m[i] < 128 ? 255 : 0;
        hole[i] = m[i] < 128 ? 0 : 255;
    }
    if (!BlurPlane(m_holeMap, m_ringMap, m_overlap * 0.7692307692307692)) return false;
    uint8_t* ring = m_ringMap.GetBuffer();
    for (size_t i = 0; i < n; ++i)
        ring[i] = hole[i] ? 0 : (ring[i] ? 255 : 0);
    if (m_border > 0) {
        // The padding is not picture: never a sample, never compared.
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x) {
                if (x >= uint32_t(m_border) && x < w - uint32_t(m_border) && y >= uint32_t(m_border) &&
                    y < h - uint32_t(m_border))
                    continue;
                m_knownMap.SetValue(x, y, 0);
                m_ringMap.SetValue(x, y, 0);
            }
    }
    if (!m_params.exact && m_params.featherMask) {
        if (m_rimMap.Create(w, h) != kOk || m_rimImage.Create(w, h) != kOk) return false;
        std::memset(m_rimMap.GetBuffer(), 0, n);
    }
    return true;
}

bool CPatchInpaintProcess::BuildTiles()
{
    const int32_t bs = m_params.blockSize;
    // The classic grid spans right - left, one pixel short of the box; the editor's fill covers all of it.
    const int32_t extra = m_params.exact ? 0 : 1;
    const int32_t bw = m_holeRight - m_holeLeft + extra, bh = m_holeBottom - m_holeTop + extra;
    const int32_t nx = (bs + bw - 1) / bs, ny = (bs + bh - 1) / bs;
    const int32_t x0 = m_holeLeft - (bs * nx - bw) / 2, y0 = m_holeTop - (bs * ny - bh) / 2;
    if (m_holeCount > 0)
        for (int32_t j = 0; j < ny; ++j)
            for (int32_t i = 0; i < nx; ++i) {
                InpaintTile t;
                t.left = x0 + bs * i, t.top = y0 + bs * j;
                t.right = t.left + bs, t.bottom = t.top + bs;
                m_tiles.push_back(t);
            }

    const int32_t ts = m_templateSize, ov = m_overlap;
    auto ramp = [&](int32_t t) -> int32_t {
        if (t < ov) return t * 255 / ov;
        if (t > ov + bs) return (ts * 255 - t * 255) / ov;
        return 255;
    };
    if (m_featherMap.Create(uint32_t(ts), uint32_t(ts)) != kOk) return false;
    for (int32_t y = 0; y < ts; ++y)
        for (int32_t x = 0; x < ts; ++x)
            m_featherMap.SetValue(uint32_t(x), uint32_t(y), uint8_t(ramp(x) * ramp(y) / 255));
    return true;
}

int CPatchInpaintProcess::PickTile(bool update)
{
    const int32_t w = int32_t(m_knownMap.GetWidth()), h = int32_t(m_knownMap.GetHeight());
    int best = -1;
    int32_t bestScore = 0;
    for (size_t i = 0; i < m_tiles.size(); ++i) {
        InpaintTile& t = m_tiles[i];
        if (t.done) continue;
        if (update) {
            const int32_t x0 = std::max(t.left - m_overlap, 0), x1 = std::min(t.right + m_overlap, w);
            const int32_t y0 = std::max(t.top - m_overlap, 0), y1 = std::min(t.bottom + m_overlap, h);
            int32_t score = 0;
            bool pending = false;
            for (int32_t y = y0; y < y1; ++y) {
                const uint8_t* ring = m_ringMap.GetBuffer(uint32_t(x0), uint32_t(y));
                const uint8_t* known = m_knownMap.GetBuffer(uint32_t(x0), uint32_t(y));
                const uint8_t* hole = m_holeMap.GetBuffer(uint32_t(x0), uint32_t(y));
                for (int32_t x = 0; x < x1 - x0; ++x) {
                    score += ring[x] != 0;
                    // A pixel still to fill. In the classic run every pixel not known is one; the padding of the
                    // editor's fill is not known but has nothing to fill.
                    pending |= !known[x] && hole[x];
                }
            }
            t.score = score;
            if (!pending) t.done = 1, t.score = 0;
        }
        if (t.score > bestScore) best = int(i), bestScore = t.score;
    }
    return best;
}

long CPatchInpaintProcess::FillLoop()
{
    const int32_t n = int32_t(m_tiles.size());
    int32_t filled = 0;
    int tile = PickTile(true);
    if (tile < 0) return kOk;
    for (;;) {
        if (!FillTile(m_tiles[size_t(tile)])) return kInpaintNoSample;
        m_tiles[size_t(tile)].done = 1;
        ++filled;
        ReportProgress(5 + 95 * filled / n);
        if (CancelRequested()) return kOk;
        tile = PickTile(false);
        if (tile < 0) tile = PickTile(true);
        if (tile < 0) return kOk;
    }
}

bool CPatchInpaintProcess::FillTile(const InpaintTile& tile)
{
    const int32_t ts = m_templateSize, ov = m_overlap;
    if (m_template.Create(uint32_t(ts), uint32_t(ts)) != kOk) throw std::bad_alloc();
    for (int32_t r = 0; r < ts; ++r)
        for (int32_t c = 0; c < ts; ++c) {
            const uint32_t x = uint32_t(tile.left - ov + c), y = uint32_t(tile.top - ov + r);
            CPixel p = *m_pDstImage->GetBuffer(x, y);
            if (m_ringMap.GetValue(x, y))
                p.alpha = 255;
            else if (!m_knownMap.GetValue(x, y))
                p.alpha = 128;
            m_template.PutPixel(uint32_t(c), uint32_t(r), p);
        }
    if (m_sampleStep > 1 &&
        !ShrinkImageArea(&m_template, &m_coarseTemplate, ts / m_sampleStep, ts / m_sampleStep))
        throw std::bad_alloc();
    int32_t bx = 0, by = 0;
    if (!FindSample(tile, bx, by)) return false;
    Paste(tile, bx, by);
    return true;
}

bool CPatchInpaintProcess::FindSample(const InpaintTile& tile, int32_t& bestX, int32_t& bestY)
{
    const int32_t w = int32_t(m_pDstImage->GetWidth()), h = int32_t(m_pDstImage->GetHeight());
    const int32_t bs = m_params.blockSize, ts = m_templateSize, step = m_sampleStep;
    const int32_t sx0 = std::max(tile.left - 4 * bs, 0), sy0 = std::max(tile.top - 4 * bs, 0);
    const int32_t sx1 = std::min(tile.right + 4 * bs, w), sy1 = std::min(tile.bottom + 4 * bs, h);
    const int32_t xLimit = sx1 - ts, yLimit = sy1 - ts;
    if (xLimit <= sx0 || yLimit <= sy0) return false;

    // Unfilled pixels summed over the search area, so that "the whole square is known" is four reads.
    const int32_t aw = sx1 - sx0, ah = sy1 - sy0;
    const size_t stride = size_t(aw) + 1;
    m_unknownSums.assign(stride * (size_t(ah) + 1), 0);
    for (int32_t y = 0; y < ah; ++y) {
        const uint8_t* known = m_knownMap.GetBuffer(uint32_t(sx0), uint32_t(sy0 + y));
        uint32_t run = 0;
        uint32_t* above = m_unknownSums.data() + size_t(y) * stride;
        uint32_t* row = above + stride;
        for (int32_t x = 0; x < aw; ++x) {
            run += known[x] == 0;
            row[x + 1] = above[x + 1] + run;
        }
    }
    auto fullyKnown = [&](int32_t x, int32_t y) {
        const uint32_t* top = m_unknownSums.data() + size_t(y - sy0) * stride + size_t(x - sx0);
        const uint32_t* bottom = top + size_t(ts) * stride;
        return bottom[ts] - bottom[0] - top[ts] + top[0] == 0;
    };

    CostTemplate templ;
    templ.From(step > 1 ? m_coarseTemplate : m_template);
    const COLImage& picture = step > 1 ? m_coarseSource : *m_pDstImage;
    const size_t pictureEnd = picture.GetPixelCount();
    const bool sse2 = VM_SIMD_X86 && vmsimd::CurrentLevel() >= vmsimd::kSse2;
    const bool acceptZero = !m_params.exact;

    const size_t cols = size_t((xLimit - sx0 + step - 1) / step);
    const size_t rows = size_t((yLimit - sy0 + step - 1) / step);
    std::vector<Best> parts(vmpar::WorkerCount() + 1);
    vmpar::ParallelFor(rows, 2, [&](size_t begin, size_t end, unsigned part) {
        Best best;
        for (size_t ry = begin; ry < end; ++ry) {
            const int32_t y = sy0 + int32_t(ry) * step;
            for (size_t cx = 0; cx < cols; ++cx) {
                const int32_t x = sx0 + int32_t(cx) * step;
                if (!fullyKnown(x, y)) continue;   // cost 0: no candidate
                const int px = x / step, py = y / step;
                uint32_t cost;
#if VM_SIMD_X86
                if (sse2 && size_t(py + templ.side - 1) * picture.GetWidth() + size_t(px) + size_t(templ.padded) <=
                                pictureEnd)
                    cost = CostSse2(templ, picture, px, py, best.cost);
                else
#endif
                    cost = CostPlain(templ, picture, px, py, best.cost);
                if (cost < best.cost && (cost != 0 || acceptZero)) {
                    best.cost = cost;
                    best.index = ry * cols + cx;
                    if (cost == 0) break;   // the editor's fill: nothing beats an exact match
                }
            }
            if (acceptZero && best.cost == 0) break;
        }
        parts[part] = best;
    });
    (void)sse2;
    (void)pictureEnd;
    Best best;
    for (const Best& b : parts)
        if (b.index != SIZE_MAX && (b.cost < best.cost || (b.cost == best.cost && b.index < best.index))) best = b;
    if (best.index == SIZE_MAX) return false;
    bestX = sx0 + int32_t(best.index % cols) * step;
    bestY = sy0 + int32_t(best.index / cols) * step;
    return true;
}

void CPatchInpaintProcess::Paste(const InpaintTile& tile, int32_t bx, int32_t by)
{
    const int32_t ts = m_templateSize, ov = m_overlap;
    COLImage& dst = *m_pDstImage;
    const bool rim = !m_params.exact && m_params.featherMask;
    for (int32_t r = 0; r < ts; ++r)
        for (int32_t c = 0; c < ts; ++c) {
            const uint32_t tx = uint32_t(tile.left - ov + c), ty = uint32_t(tile.top - ov + r);
            const CPixel sample = *dst.GetBuffer(uint32_t(bx + c), uint32_t(by + r));
            CPixel& target = *dst.GetBuffer(tx, ty);
            const uint32_t weight = m_featherMap.GetValue(uint32_t(c), uint32_t(r));
            if (m_params.exact) {
                const uint32_t m = m_workMask.GetValue(tx, ty);
                if (!m) continue;
                const uint32_t a = weight * m / 255;
                if (!a) continue;
                target.blue = Blend(sample.blue, target.blue, a);
                target.green = Blend(sample.green, target.green, a);
                target.red = Blend(sample.red, target.red, a);
            } else if (m_holeMap.GetValue(tx, ty)) {
                if (!weight) continue;
                // A hole pixel takes its first sample whole: what the hole held before never shows.
                const uint32_t a = m_knownMap.GetValue(tx, ty) ? weight : 255;
                target.blue = Blend(sample.blue, target.blue, a);
                target.green = Blend(sample.green, target.green, a);
                target.red = Blend(sample.red, target.red, a);
            } else {
                // Outside the hole the picture stays as it is while tiles are matched; samples reaching over the
                // rim go to the rim picture, blended in at the end.
                if (rim && weight && m_softMask.GetValue(tx, ty)) {
                    CPixel& q = *m_rimImage.GetBuffer(tx, ty);
                    const uint32_t a = m_rimMap.GetValue(tx, ty) ? weight : 255;
                    q.blue = Blend(sample.blue, q.blue, a);
                    q.green = Blend(sample.green, q.green, a);
                    q.red = Blend(sample.red, q.red, a);
                    m_rimMap.SetValue(tx, ty, 255);
                }
                continue;
            }
            m_knownMap.SetValue(tx, ty, 255);
            m_ringMap.SetValue(tx, ty, 255);
        }
}

void CPatchInpaintProcess::BlendRim()
{
    COLImage& dst = *m_pDstImage;
    const uint32_t w = dst.GetWidth(), h = dst.GetHeight();
    for (uint32_t y = 0; y < h; ++y) {
        const uint8_t* set = m_rimMap.GetBuffer(0, y);
        const uint8_t* soft = m_softMask.GetBuffer(0, y);
        for (uint32_t x = 0; x < w; ++x) {
            if (!set[x]) continue;
            // Full weight at the hole's border, falling to none where the blurred mask ends.
            const uint32_t a = std::min<uint32_t>(255, 2u * soft[x]);
            CPixel& t = *dst.GetBuffer(x, y);
            const CPixel q = *m_rimImage.GetBuffer(x, y);
            t.blue = Blend(q.blue, t.blue, a);
            t.green = Blend(q.green, t.green, a);
            t.red = Blend(q.red, t.red, a);
        }
    }
}
