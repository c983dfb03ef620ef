#include "matting/contour_matting.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "matting/gaussian.h"
#include "runtime/parallel_for.h"

namespace {

constexpr size_t kMinPerPart = size_t(1) << 16;

// c * 255 / a capped at 255, for every alpha a from 40 up (below 40 a pixel is cleared, not divided).
struct NormaliseTable {
    uint8_t value[256][256];
    NormaliseTable()
    {
        for (int a = 0; a < 256; ++a)
            for (int c = 0; c < 256; ++c) value[a][c] = a < 40 ? 0 : uint8_t(std::min(255, c * 255 / a));
    }
};

const NormaliseTable& Normalise()
{
    static const NormaliseTable table;
    return table;
}

// Euclidean distance in red, green and blue, truncated. Squares are below 2^18, where the double square root of
// a whole number truncates correctly.
int Distance(CPixel p, CPixel q)
{
    const int dr = p.red - q.red, dg = p.green - q.green, db = p.blue - q.blue;
    return int(std::sqrt(double(dr * dr + dg * dg + db * db)));
}

} // namespace

double CContourMattingProcess::GrowSigma(uint32_t width, uint32_t height)
{
    return std::sqrt(double(width) * double(height)) * 0.007142857142857143;
}

double CContourMattingProcess::GrowLimit(uint32_t width, uint32_t height)
{
    return std::sqrt(double(width) * double(height)) / 2;
}

long CContourMattingProcess::Process(const void* params)
{
    m_failure = Failure::kBadInput;
    m_growSteps[0] = m_growSteps[1] = 0;
    if (CImageProcess::Process(params) != kOk || !params) return kFail;
    m_params = *static_cast<const ContourMattingParams*>(params);
    COLChannel* inner = m_params.innerPlane;
    COLChannel* outer = m_params.outerPlane;
    const uint32_t w = m_pSrcImage->GetWidth(), h = m_pSrcImage->GetHeight();
    if (!inner || !outer || inner->IsNull() || outer->IsNull()) return kFail;
    if (inner->GetWidth() != w || inner->GetHeight() != h || outer->GetWidth() != w || outer->GetHeight() != h)
        return kFail;

    m_failure = Failure::kNoMemory;
    if (!CopySourceToResult()) return kFail;
    ReportProgress(2);

    // From here on, not 0 in the outer plane means sure background.
    uint8_t* o = outer->GetBuffer();
    const size_t n = size_t(w) * h;
    for (size_t i = 0; i < n; ++i) o[i] = uint8_t(255 - o[i]);
    ReportProgress(10);

    long r = GrowColours(*inner, *outer, foreground, 15, 35, 0);
    if (r == kOk) {
        ReportProgress(50);
        r = GrowColours(*outer, *inner, background, 50, 30, 1);
    }
    if (r == kOk) {
        ReportProgress(80);
        SolveAlpha();
        ReportProgress(100);
        m_failure = Failure::kNone;
    }
    foreground.Free();
    background.Free();
    return r;
}

long CContourMattingProcess::GrowColours(const COLChannel& known, const COLChannel& other, COLImage& result,
                                         int progressBase, int progressSpan, int which)
{
    const uint32_t w = m_pSrcImage->GetWidth(), h = m_pSrcImage->GetHeight();
    const size_t n = size_t(w) * h;
    const uint8_t* k = known.GetBuffer();
    const uint8_t* ot = other.GetBuffer();
    m_growSteps[which & 1] = 0;

    // The unknown band, as a list: after each step only its pixels are counted.
    std::vector<uint32_t> band;
    for (size_t i = 0; i < n; ++i)
        if ((k[i] | ot[i]) == 0) band.push_back(uint32_t(i));
    const size_t unknown = band.size();
    if (unknown == 0) {
        m_failure = Failure::kNoBand;
        return kFail;
    }

    m_failure = Failure::kNoMemory;
    COLImage first, second;
    if (!first.DuplicateFrom(m_pSrcImage) || second.Create(w, h) != kOk) return kFail;
    COLImage* work = &first;   // W
    COLImage* blurred = &second;
    CGaussianProcess gauss;
    const double sigma = GrowSigma(w, h);
    const double limit = GrowLimit(w, h);
    const NormaliseTable& table = Normalise();
    ReportProgress(progressBase);

    // Where the walk counter cannot advance (sigma below 1, pictures smaller than about 140 x 140), only a band
    // that fills up ends the loop. A step that changes nothing would be repeated for ever, so it ends the run
    // instead; the step cap is a second guard on top of it.
    const bool walkStuck = sigma < 1.0;
    const size_t stepCap = n + 2;

    // The first step marks the known colours as a premultiplied picture. After any step every pixel is either
    // all 0 or has alpha 255 (see below), so marking again would change nothing: the known plane is the result's
    // alpha from then on.
    {
        CPixel* p = work->GetBuffer();
        vmpar::ParallelFor(n, kMinPerPart, [&](size_t b, size_t e, unsigned) {
            for (size_t i = b; i < e; ++i) {
                if (k[i])
                    p[i].alpha = 255;
                else
                    p[i] = CPixel{0, 0, 0, 0};
            }
        });
    }

    int64_t walked = 0;
    size_t remaining = 0;
    for (size_t step = 0;; ++step) {
        gauss.SetImages(work, blurred);
        if (gauss.Process(&sigma) != kOk) return kFail;

        const CPixel* wp = work->GetBuffer();
        CPixel* rp = blurred->GetBuffer();
        const bool firstStep = step == 0;
        vmpar::ParallelFor(n, kMinPerPart, [&](size_t b, size_t e, unsigned) {
            for (size_t i = b; i < e; ++i) {
                CPixel px = rp[i];
                const unsigned c = firstStep ? k[i] : wp[i].alpha;
                if (px.alpha < 40) {
                    px = CPixel{0, 0, 0, 0};   // too little known colour has reached it
                } else if (c >= 254) {
                    px = wp[i];                // known colours stay exact
                    px.alpha = 255;
                } else {
                    const uint8_t* row = table.value[px.alpha];
                    px = CPixel{row[px.blue], row[px.green], row[px.red], 255};
                }
                rp[i] = px;
            }
        });
        remaining = 0;
        for (uint32_t i : band) remaining += rp[i].alpha == 0;

        bool stalled = false;
        if (walkStuck && !firstStep)
            stalled = std::memcmp(work->GetBuffer(), blurred->GetBuffer(), n * sizeof(CPixel)) == 0 || step >= stepCap;
        std::swap(work, blurred);
        m_growSteps[which & 1] = int(step + 1);
        ReportProgress(int((int64_t(unknown) * progressSpan - int64_t(remaining) * progressSpan) / int64_t(unknown) +
                           progressBase));
        walked = int64_t(double(walked) + sigma);
        if (double(walked) > limit || remaining == 0) break;
        if (stalled) {
            m_failure = Failure::kStalled;
            return kFail;
        }
    }

    const double finalSigma = 0.5;
    gauss.SetImages(work, &result);
    if (gauss.Process(&finalSigma) != kOk) return kFail;
    m_failure = Failure::kNone;
    return kOk;
}

void CContourMattingProcess::SolveAlpha()
{
    const uint32_t w = m_pSrcImage->GetWidth(), h = m_pSrcImage->GetHeight();
    const size_t n = size_t(w) * h;
    COLChannel* doubt = m_extraChannels.empty() ? nullptr : m_extraChannels[0];
    uint8_t* dp = nullptr;
    if (doubt) {
        if (doubt->GetWidth() != w || doubt->GetHeight() != h || doubt->IsNull()) doubt->Create(w, h);
        if (!doubt->IsNull()) {
            dp = doubt->GetBuffer();
            std::memset(dp, 0, n);
        }
    }
    const uint8_t* inner = m_params.innerPlane->GetBuffer();
    const uint8_t* outer = m_params.outerPlane->GetBuffer();
    const CPixel* src = m_pSrcImage->GetBuffer();
    const CPixel* fg = foreground.GetBuffer();
    const CPixel* bg = background.GetBuffer();
    CPixel* dst = m_pDstImage->GetBuffer();

    vmpar::ParallelFor(n, kMinPerPart, [&](size_t b, size_t e, unsigned part) {
        for (size_t i = b; i < e; ++i) {
            CPixel px = src[i];
            if (inner[i]) {
                px.alpha = 255;
            } else if (outer[i]) {
                px = CPixel{0, 0, 0, 0};
            } else {
                const int dFB = Distance(fg[i], bg[i]);
                const int dIB = Distance(px, bg[i]);
                const int dIF = Distance(px, fg[i]);
                int a;
                bool doubtful = false;
                if (dIB + dIF == 0) {
                    a = 255;
                } else if (dFB < 8) {
                    a = dIB * 255 / (dIB + dIF);   // the two colours nearly the same: the ratio of distances
                    doubtful = dIF > dFB;
                } else {
                    // Projection of the pixel on the line from the background to the subject colour.
                    a = (dIB * dIB - dIF * dIF + dFB * dFB) * 255 / (2 * dFB * dFB);
                    if (dIF > dFB || dIB + dIF > 2 * dFB || a < 0) {
                        doubtful = true;
                        a = std::abs(a);
                    }
                }
                // The doubt plane takes the value before it is clamped, as a byte.
                if (doubtful && dp) dp[i] = uint8_t(a);
                px.alpha = uint8_t(std::clamp(a, 0, 255));
            }
            dst[i] = px;
            if (part == 0 && (i - b) % 10000 == 9999) ReportProgress(int(int64_t(i - b) * 20 / int64_t(e - b) + 80));
        }
    });
}
