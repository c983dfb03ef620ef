#include "effects/lens_blur.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <new>

#include "imaging/codec.h"
#include "matting/gaussian.h"
#include "matting/parallel_for.h"
#include "matting/resample.h"

namespace {

constexpr int kSide = CLensBlurProcess::kApertureSide;
constexpr int kCentre = kSide / 2;      // the kernel byte that stands over the pixel itself
constexpr int kGrayHighlight = 220;     // only pixels brighter than this go through the highlight curve
constexpr int kBlockRows = 32;          // output rows that share one set of row prefix sums

// A run of equal non-zero kernel weight along one kernel row, as offsets from the pixel: it covers the image
// columns x + c0 .. x + c1 - 1 on image row y + dy.
struct Run {
    int16_t dy;
    int16_t c0;
    int16_t c1;
    int16_t unused;
    uint32_t weight;
};

// The runs of one kernel plane inside its window: rows and columns max(32 - d, 0) up to (not including)
// min(32 + d, 64).
struct PlaneRuns {
    std::vector<Run> runs;
    int lo = 0, hi = 0;     // the window, in kernel coordinates, for rows and columns alike
    uint32_t total = 0;     // weight sum of the whole window
};

PlaneRuns MakeRuns(const uint8_t* plane, int d)
{
    PlaneRuns p;
    p.lo = std::max(kCentre - d, 0);
    p.hi = std::min(kCentre + d, kSide);
    for (int r = p.lo; r < p.hi; ++r) {
        const uint8_t* row = plane + r * kSide;
        for (int c = p.lo; c < p.hi;) {
            const uint8_t w = row[c];
            int e = c + 1;
            while (e < p.hi && row[e] == w) ++e;
            if (w) {
                p.runs.push_back(Run{int16_t(r - kCentre), int16_t(c - kCentre), int16_t(e - kCentre), 0, w});
                p.total += uint32_t(w) * uint32_t(e - c);
            }
            c = e;
        }
    }
    return p;
}

} // namespace

CLensBlurProcess::CLensBlurProcess() : m_kernels(size_t(kKernelPlanes) * kSide * kSide, 0) {}

CLensBlurProcess::~CLensBlurProcess() = default;

bool CLensBlurProcess::BuildDiameterTable(double radius, uint8_t (&table)[256])
{
    bool half = false;
    for (int v = 0; v < 256; ++v) {
        const double d = 2.0 * radius * std::pow(v * 0.00392156862745098, 1.5);
        if (d >= 64.0) half = true;   // the truncated diameter is above 63
        table[v] = d >= 255.0 ? 255 : (d > 0.0 ? static_cast<uint8_t>(d) : 0);
    }
    return half;
}

void CLensBlurProcess::BuildHighlightCurve(int32_t threshold, int32_t amplitude, int32_t (&curve)[256])
{
    const int t = std::clamp(threshold, 0, 256);
    for (int i = 0; i < 256; ++i) curve[i] = i;
    if (t > 254) {
        curve[255] = 255;
        return;
    }
    const int32_t k = amplitude * 32 / (255 - t);
    for (int i = t; i < 256; ++i) curve[i] = (i - t) * k + i;
}

bool CLensBlurProcess::BuildKernels(const COLChannel& aperture, uint8_t* planes)
{
    std::memset(planes, 0, size_t(kKernelPlanes) * kSide * kSide);
    if (aperture.IsNull() || aperture.GetWidth() != uint32_t(kSide) || aperture.GetHeight() != uint32_t(kSide))
        return true;   // a shape of another size leaves the kernels empty
    COLImage shape, sized;
    if (shape.Create(kSide, kSide) != kOk) return false;
    for (int i = 0; i < kSide * kSide; ++i) {
        const uint8_t v = aperture.GetBuffer()[i];
        shape.GetBuffer()[i] = CPixel{v, v, v, v};
    }
    COLImageCodec codec;
    for (int n = 2; n <= kSide; ++n) {
        if (!codec.Resample(&shape, &sized, n, n, 1)) return false;
        uint8_t* plane = planes + size_t(n - 1) * kSide * kSide;
        const int offset = (kSide - n) / 2;
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x) plane[(offset + y) * kSide + offset + x] = sized.GetPixel2(uint32_t(x), uint32_t(y)).red;
    }
    return true;
}

long CLensBlurProcess::Process(const void* params)
{
    if (CImageProcess::Process(params) != kOk || !params || m_pSrcImage == m_pDstImage) return kFail;
    const LensBlurParams& p = *static_cast<const LensBlurParams*>(params);
    const uint32_t w = m_pSrcImage->GetWidth(), h = m_pSrcImage->GetHeight();
    auto sameSize = [&](const COLChannel* c) { return c->GetWidth() == w && c->GetHeight() == h && !c->IsNull(); };
    if (!p.depth || !sameSize(p.depth)) return kFail;
    try {
        // A shape of another size than 64 x 64 is not taken: the kernels stay empty and the gather keeps pixels.
        if (m_aperture.Create(kSide, kSide) != kOk) return kFail;
        if (!p.aperture.IsNull() && p.aperture.GetWidth() == uint32_t(kSide) && p.aperture.GetHeight() == uint32_t(kSide))
            std::memcpy(m_aperture.GetBuffer(), p.aperture.GetBuffer(), size_t(kSide) * kSide);
        else
            std::memset(m_aperture.GetBuffer(), 0, size_t(kSide) * kSide);
        m_pDepth = p.depth;
        m_pMask = p.mask;
        m_radius = p.radius;
        m_highlightThreshold = p.highlightThreshold;
        m_highlightAmplitude = p.highlightAmplitude;
        m_pixelCount = int32_t(w * h);

        if (!CopySourceToResult()) return kFail;
        uint8_t table[256];
        if (BuildDiameterTable(m_radius, table)) m_needsHalfPass = 1;
        if (m_diameterMap.Create(w, h) != kOk) return kFail;
        const uint8_t* depth = m_pDepth->GetBuffer();
        uint8_t* diameter = m_diameterMap.GetBuffer();
        for (size_t i = 0, n = size_t(w) * h; i < n; ++i) diameter[i] = table[depth[i]];

        ReportProgress(3);
        const COLImage* source = m_pSrcImage;
        if (m_pMask && sameSize(m_pMask) && RemoveForeground()) source = &m_filledSource;

        ReportProgress(8);
        if (!BuildKernels(m_aperture, m_kernels.data())) return kFail;
        BuildHighlightCurve(m_highlightThreshold, m_highlightAmplitude, m_highlightCurve);
        ReportProgress(10);

        if (m_needsHalfPass && !HalfSizePass(*source)) return kFail;
        ReportProgress(30);
        Gather(*source);
        m_filledSource.Free();
        m_halfResult.Free();
    } catch (const std::bad_alloc&) {
        return kFail;
    }
    ReportProgress(100);
    return kOk;
}

bool CLensBlurProcess::RemoveForeground()
{
    const COLImage& src = *m_pSrcImage;
    COLImage& dst = *m_pDstImage;
    const uint8_t* mask = m_pMask->GetBuffer();
    const size_t n = src.GetPixelCount();
    // The foreground becomes zero, which the blur treats as premultiplied transparency.
    for (size_t i = 0; i < n; ++i) {
        CPixel q = src.GetBuffer()[i];
        q.alpha = 255;
        dst.GetBuffer()[i] = mask[i] <= 64 ? q : CPixel{0, 0, 0, 0};
    }
    ReportProgress(4);
    CGaussianProcess gauss;
    const double sigma = m_radius * 1.25;
    gauss.SetImages(&dst, &m_filledSource);
    if (gauss.Process(&sigma) != kOk) return false;
    ReportProgress(7);
    // Where enough surrounding colour arrived, un-premultiply it; elsewhere keep the source pixel.
    CPixel* f = m_filledSource.GetBuffer();
    for (size_t i = 0; i < n; ++i) {
        if (mask[i] > 64 && f[i].alpha > 16) {
            const uint32_t a = f[i].alpha;
            f[i].blue = uint8_t(std::min<uint32_t>(f[i].blue * 255u / a, 255));
            f[i].green = uint8_t(std::min<uint32_t>(f[i].green * 255u / a, 255));
            f[i].red = uint8_t(std::min<uint32_t>(f[i].red * 255u / a, 255));
        } else {
            f[i] = src.GetBuffer()[i];
        }
    }
    return true;
}

bool CLensBlurProcess::HalfSizePass(const COLImage& source)
{
    const uint32_t hw = (source.GetWidth() + 1) >> 1, hh = (source.GetHeight() + 1) >> 1;
    COLImageCodec codec;
    if (!codec.Resample(&source, &m_halfSource, int(hw), int(hh), 1)) return false;
    if (!ShrinkChannelArea(m_pDepth, &m_halfDepth, int(hw), int(hh))) return false;
    auto half = std::make_unique<CLensBlurProcess>();
    half->SetImages(&m_halfSource, &m_halfResult);
    half->SetProgressCallback(GetProgressCallback());
    const int64_t span = int64_t(m_progressHigh) - m_progressLow;
    half->SetProgressRange(int32_t(m_progressLow + 10 * span / 100), int32_t(m_progressLow + 30 * span / 100));
    LensBlurParams params;
    if (!params.aperture.DuplicateFrom(&m_aperture)) return false;
    params.depth = &m_halfDepth;
    params.radius = m_radius * 0.5;
    params.highlightThreshold = m_highlightThreshold;
    params.highlightAmplitude = m_highlightAmplitude;
    if (half->Process(&params) != kOk) return false;
    m_halfSource.Free();
    m_halfDepth.Free();
    return true;
}

void CLensBlurProcess::Gather(const COLImage& source)
{
    const int W = int(source.GetWidth()), H = int(source.GetHeight());
    std::vector<PlaneRuns> planes(kKernelPlanes);
    for (int d = 1; d < kKernelPlanes; ++d) planes[size_t(d)] = MakeRuns(GetKernel(d), d);
    const size_t stride = size_t(W + 1) * 3;
    const uint8_t* diameter = m_diameterMap.GetBuffer();
    const int32_t* curve = m_highlightCurve;
    const int base = m_needsHalfPass ? 30 : 10, span = m_needsHalfPass ? 70 : 90;
    const int blocks = (H + kBlockRows - 1) / kBlockRows;
    std::atomic<int> rowsDone{0};

    vmpar::ParallelFor(size_t(blocks), 1, [&](size_t begin, size_t end, unsigned part) {
        std::vector<uint32_t> prefix;
        for (size_t b = begin; b < end; ++b) {
            const int y0 = int(b) * kBlockRows, y1 = std::min(H, y0 + kBlockRows);
            bool gathers = false;
            for (size_t i = size_t(y0) * W; i < size_t(y1) * W && !gathers; ++i) gathers = diameter[i] && diameter[i] < 64;
            // Row prefix sums of the values the gather adds: colour, or the highlight curve of a bright pixel.
            const int py0 = std::max(0, y0 - kCentre), py1 = std::min(H, y1 + kCentre);
            if (gathers) {
                prefix.resize(stride * size_t(py1 - py0));
                for (int y = py0; y < py1; ++y) {
                    uint32_t* out = prefix.data() + stride * size_t(y - py0);
                    const CPixel* in = source.GetBuffer(0, uint32_t(y));
                    uint32_t s0 = 0, s1 = 0, s2 = 0;
                    out[0] = out[1] = out[2] = 0;
                    for (int x = 0; x < W; ++x) {
                        const CPixel q = in[x];
                        if (q.GetGray2() > kGrayHighlight) {
                            s0 += uint32_t(curve[q.blue]);
                            s1 += uint32_t(curve[q.green]);
                            s2 += uint32_t(curve[q.red]);
                        } else {
                            s0 += q.blue;
                            s1 += q.green;
                            s2 += q.red;
                        }
                        out[3 * x + 3] = s0;
                        out[3 * x + 4] = s1;
                        out[3 * x + 5] = s2;
                    }
                }
            }
            for (int y = y0; y < y1; ++y) {
                const uint8_t* dRow = diameter + size_t(y) * W;
                const CPixel* sRow = source.GetBuffer(0, uint32_t(y));
                CPixel* out = m_pDstImage->GetBuffer(0, uint32_t(y));
                for (int x = 0; x < W; ++x) {
                    const int d = dRow[x];
                    if (d == 0) {
                        out[x] = sRow[x];
                        out[x].alpha = 255;
                        continue;
                    }
                    if (d >= 64) {
                        out[x] = m_halfResult.GetPixel2(uint32_t(x / 2), uint32_t(y / 2));
                        out[x].alpha = 255;
                        continue;
                    }
                    const PlaneRuns& plane = planes[size_t(d)];
                    // The window, cut to the picture: kernel rows and columns lo .. hi - 1.
                    const int rLo = std::max(plane.lo, kCentre - y), rHi = std::min(plane.hi, H + kCentre - y);
                    const int cLo = std::max(plane.lo, kCentre - x), cHi = std::min(plane.hi, W + kCentre - x);
                    uint32_t s0 = 0, s1 = 0, s2 = 0, weight = 0;
                    const uint32_t* rows = prefix.data() + stride * size_t(y - py0) + size_t(x) * 3;
                    if (rLo == plane.lo && rHi == plane.hi && cLo == plane.lo && cHi == plane.hi) {
                        for (const Run& r : plane.runs) {
                            const uint32_t* row = rows + std::ptrdiff_t(r.dy) * std::ptrdiff_t(stride);
                            const uint32_t* a = row + 3 * r.c0;
                            const uint32_t* e = row + 3 * r.c1;
                            s0 += r.weight * (e[0] - a[0]);
                            s1 += r.weight * (e[1] - a[1]);
                            s2 += r.weight * (e[2] - a[2]);
                        }
                        weight = plane.total;
                    } else {
                        for (const Run& r : plane.runs) {
                            if (r.dy + kCentre < rLo || r.dy + kCentre >= rHi) continue;
                            const int c0 = std::max<int>(r.c0, cLo - kCentre), c1 = std::min<int>(r.c1, cHi - kCentre);
                            if (c0 >= c1) continue;
                            const uint32_t* row = rows + std::ptrdiff_t(r.dy) * std::ptrdiff_t(stride);
                            const uint32_t* a = row + 3 * c0;
                            const uint32_t* e = row + 3 * c1;
                            s0 += r.weight * (e[0] - a[0]);
                            s1 += r.weight * (e[1] - a[1]);
                            s2 += r.weight * (e[2] - a[2]);
                            weight += r.weight * uint32_t(c1 - c0);
                        }
                    }
                    if (weight == 0) continue;   // nothing of the aperture falls on the picture: keep the pixel
                    out[x] = CPixel{uint8_t(std::min<uint32_t>(s0 / weight, 255)), uint8_t(std::min<uint32_t>(s1 / weight, 255)),
                                    uint8_t(std::min<uint32_t>(s2 / weight, 255)), 255};
                }
            }
            const int done = rowsDone.fetch_add(y1 - y0) + (y1 - y0);
            if (part == 0) ReportProgress(base + span * done / H);
        }
    });
    // Kept pixels (an empty aperture, or one that misses the picture) become opaque too.
    CPixel* out = m_pDstImage->GetBuffer();
    for (size_t i = 0, n = m_pDstImage->GetPixelCount(); i < n; ++i) out[i].alpha = 255;
}
