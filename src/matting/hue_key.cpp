#include "matting/hue_key.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <mutex>
#include <vector>

#include "imaging/codec.h"
#include "matting/gaussian.h"
#include "matting/key_math.h"
#include "matting/key_rows.h"
#include "runtime/parallel_for.h"

namespace {

using keymath::CircularDiff;

constexpr int kBandRows = 128;

long BlurPlane(const COLChannel& source, COLChannel& blurred, double sigma)
{
    CGaussianProcess blur;
    blur.SetChannels(const_cast<COLChannel*>(&source), &blurred);
    return blur.ProcessChannel(&sigma);
}

// Progress of a pass that reports every `stride` units of `total`, for the units a band has covered, so the
// values come out as a plain loop would give them.
template <typename Report>
void ReportStrides(int64_t from, int64_t to, int64_t stride, Report report)
{
    int64_t first = (from + stride - 1) / stride * stride;
    for (int64_t i = first; i < to; i += stride) report(i);
}

} // namespace

void CHueKeyProcess::SetParamsForSteps(const ChromaKeyParams& params)
{
    m_params = params;
    m_params.strength = std::clamp(m_params.strength, 0, 100);
    m_backdropHSB = m_params.backdrop;
    COLImageCodec().RGB2HSB(&m_backdropHSB, 1);
}

long CHueKeyProcess::Process(const void* params)
{
    return vmrt::GuardExhaustion([&] { return Key(params); });
}

long CHueKeyProcess::Key(const void* params)
{
    if (CImageProcess::Process(params) != kOk || params == nullptr) return kFail;
    SetParamsForSteps(*static_cast<const ChromaKeyParams*>(params));

    const COLImage* source = m_pSrcImage;
    COLImage ownSource;   // keying in place would read pixels already keyed
    if (m_pSrcImage == m_pDstImage && !m_params.jpegChroma) {
        if (!ownSource.DuplicateFrom(m_pSrcImage)) return kFail;
        source = &ownSource;
    }
    if (m_params.jpegChroma) {
        if (SmoothChroma() != kOk) return kFail;
        source = &m_smoothed;
    }
    BuildTables();
    if (BuildKey(*source) != kOk) return kFail;
    ReportProgress(35);

    if (m_params.featherSelection) {
        COLChannel blurred;
        if (BlurPlane(m_keyChannel, blurred, 1.5) != kOk) return kFail;
        const uint32_t w = m_keyChannel.GetWidth();
        keyrows::ForRows(0, int(m_keyChannel.GetHeight()), w, [&](int y0, int y1) {
            uint8_t* k = m_keyChannel.GetBuffer(0, uint32_t(y0));
            const uint8_t* b = blurred.GetBuffer(0, uint32_t(y0));
            for (size_t i = 0, n = size_t(y1 - y0) * w; i < n; ++i) k[i] = std::min(k[i], b[i]);
        });
    }
    ReportProgress(45);

    MixColours(*source);
    ReportProgress(65);

    if (RefineEdges(*source) != kOk) return kFail;
    ReportProgress(90);

    CChromaKeyProcess::ApplyAlphaLevels(*m_pDstImage, m_params.levelLow, m_params.levelHigh);
    ReportProgress(95);

    RestoreInterior(*source);
    ReportProgress(100);
    return kOk;
}

namespace {

// The odd chroma samples of the row pair starting at row0 (row2 is the next even row), rebuilt from the even ones.
void InterpolatePair(CPixel* row0, CPixel* row1, const CPixel* row2, int w)
{
    for (int x = 0; x < w - 2; x += 2) {
        for (uint8_t CPixel::*c : {&CPixel::blue, &CPixel::green}) {
            const int pv = row0[x].*c, q = row0[x + 2].*c, r = row2[x].*c, s = row2[x + 2].*c;
            row0[x + 1].*c = static_cast<uint8_t>((pv + q) >> 1);
            row1[x].*c = static_cast<uint8_t>((pv + r) >> 1);
            row1[x + 1].*c = static_cast<uint8_t>((pv + q + r + s) >> 2);
        }
    }
}

} // namespace

long CHueKeyProcess::SmoothChroma()
{
    const COLImage& src = *m_pSrcImage;
    const uint32_t w = src.GetWidth(), h = src.GetHeight();
    if (m_smoothed.Create(w, h) != kOk) return kFail;
    // Bands of 32 rows, each with the next even row as well, go to YUV, get their chroma rebuilt and go back,
    // while they are in the cache. The codec converts pixel by pixel, so a band converts as the whole picture
    // would; the extra row is only read.
    constexpr uint32_t kBand = 32;
    const size_t bands = (h + kBand - 1) / kBand;
    std::atomic<bool> failed{false};
    vmpar::ParallelFor(bands, std::max<size_t>(1, (size_t(1) << 16) / (size_t(w) * kBand + 1)),
                       [&](size_t b0, size_t b1, unsigned) {
        COLImageCodec codec;
        COLImage band;
        for (size_t b = b0; b < b1 && !failed; ++b) {
            const uint32_t y0 = uint32_t(b) * kBand, y1 = std::min(h, y0 + kBand);
            const uint32_t rows = std::min(h, y1 + 1) - y0;
            if (band.Create(w, rows) != kOk) {
                failed = true;
                return;
            }
            std::memcpy(band.GetBuffer(), src.GetBuffer(0, y0), size_t(rows) * w * sizeof(CPixel));
            if (!codec.RGBToYUV(&band)) {
                failed = true;
                return;
            }
            for (uint32_t y = y0; y < y1 && y + 2 < h; y += 2)
                InterpolatePair(band.GetBuffer(0, y - y0), band.GetBuffer(0, y - y0 + 1),
                                band.GetBuffer(0, y - y0 + 2), int(w));
            if (!codec.YUVToRGB(&band)) {
                failed = true;
                return;
            }
            std::memcpy(m_smoothed.GetBuffer(0, y0), band.GetBuffer(), size_t(y1 - y0) * w * sizeof(CPixel));
        }
    });
    return failed ? kFail : kOk;
}

void CHueKeyProcess::InterpolateChroma(COLImage& yuv)
{
    const int w = static_cast<int>(yuv.GetWidth());
    const int h = static_cast<int>(yuv.GetHeight());
    // Every row pair reads even positions only and writes odd ones, so the pairs are independent.
    const int pairs = h > 2 ? (h - 1) / 2 : 0;
    keyrows::ForRows(0, pairs, size_t(w) * 2, [&](int p0, int p1) {
        for (int p = p0; p < p1; ++p)
            InterpolatePair(yuv.GetBuffer(0, uint32_t(2 * p)), yuv.GetBuffer(0, uint32_t(2 * p + 1)),
                            yuv.GetBuffer(0, uint32_t(2 * p + 2)), w);
    });
}

void CHueKeyProcess::BuildTables()
{
    keymath::BuildAlphaMap(m_alphaMap);
    keymath::BuildHueWeight(m_params.strength, m_hueWeight);
}

long CHueKeyProcess::BuildKey(const COLImage& source)
{
    const uint32_t w = source.GetWidth(), h = source.GetHeight();
    if (m_hueChannel.Create(w, h) != kOk || m_keyChannel.Create(w, h) != kOk) return kFail;
    ReportProgress(5);

    const int hb = m_backdropHSB.red;
    const int64_t n = int64_t(w) * h;
    std::vector<uint64_t> histograms(256, 0);
    std::mutex histogramLock;

    keyrows::ForBands(static_cast<int>(h), kBandRows, w,
        [&](int y0, int y1) {
            uint64_t local[256] = {};
            for (int y = y0; y < y1; ++y) {
                const CPixel* s = source.GetBuffer(0, y);
                uint8_t* hue = m_hueChannel.GetBuffer(0, y);
                uint8_t* key = m_keyChannel.GetBuffer(0, y);
                for (uint32_t x = 0; x < w; ++x) {
                    const int r = s[x].red, g = s[x].green, b = s[x].blue;
                    const uint8_t hv = keymath::KeyHueFast(r, g, b);
                    hue[x] = hv;
                    const int wt = m_hueWeight[CircularDiff(hv, hb)];
                    int k = 255;
                    if (wt != 0) {   // a foreign hue keeps its full key without the square root
                        const int mx = std::max(r, std::max(g, b)), mn = std::min(r, std::min(g, b));
                        const int l = (mx + mn) / 2;
                        const int d2 = (r - l) * (r - l) + (g - l) * (g - l) + (b - l) * (b - l);
                        const double dist = std::sqrt(static_cast<double>(d2));
                        k = 255 - static_cast<int>(dist * wt / 255.0);
                        if (k < 0) k = 0;
                    }
                    key[x] = static_cast<uint8_t>(k);
                    ++local[k];
                }
            }
            std::lock_guard<std::mutex> guard(histogramLock);
            for (int i = 0; i < 256; ++i) histograms[size_t(i)] += local[i];
        },
        [&](int y0, int y1) {
            ReportStrides(int64_t(y0) * w, int64_t(y1) * w, 40000,
                          [&](int64_t i) { ReportProgress(static_cast<int>(i * 20 / n + 5)); });
        });

    m_threshold = keymath::KeyThreshold(histograms.data(), static_cast<uint64_t>(n), m_params.strength);
    uint8_t remap[256];
    for (int k = 0; k < 256; ++k) remap[k] = static_cast<uint8_t>(keymath::RemapKey(k, m_threshold));

    keyrows::ForBands(static_cast<int>(h), kBandRows, w,
        [&](int y0, int y1) {
            uint8_t* key = m_keyChannel.GetBuffer(0, y0);
            const size_t count = size_t(y1 - y0) * w;
            for (size_t i = 0; i < count; ++i) key[i] = remap[key[i]];
        },
        [&](int y0, int y1) {
            ReportStrides(int64_t(y0) * w, int64_t(y1) * w, 40000,
                          [&](int64_t i) { ReportProgress(static_cast<int>(i * 10 / n + 25)); });
        });

    if (!m_pDstImage->DuplicateFrom(&source)) return kFail;
    return kOk;
}

void CHueKeyProcess::MixColours(const COLImage& source)
{
    const uint32_t w = source.GetWidth(), h = source.GetHeight();
    const CPixel bd = m_params.backdrop;
    const int hb = m_backdropHSB.red;
    const bool recover = m_params.recoverColour != 0;
    // Spill weight by the pixel's own hue.
    int spill[256];
    for (int v = 0; v < 256; ++v) spill[v] = keymath::SpillWeight(CircularDiff(v, hb), m_params.strength);

    keyrows::ForBands(static_cast<int>(h), kBandRows, w,
        [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y) {
                const CPixel* s = source.GetBuffer(0, y);
                CPixel* d = m_pDstImage->GetBuffer(0, y);
                uint8_t* key = m_keyChannel.GetBuffer(0, y);
                const uint8_t* hue = m_hueChannel.GetBuffer(0, y);
                for (uint32_t x = 0; x < w; ++x) {
                    const int a = key[x];
                    if (a == 0) {
                        d[x] = CPixel{0, 0, 0, 0};
                        continue;
                    }
                    if (recover) {
                        const int fr = keymath::RecoverChannelFast(s[x].red, bd.red, a);
                        const int fg = keymath::RecoverChannelFast(s[x].green, bd.green, a);
                        const int fb = keymath::RecoverChannelFast(s[x].blue, bd.blue, a);
                        const int gray = keymath::Luma(fr, fg, fb);
                        const int sw = spill[hue[x]] * a / 255;
                        d[x].red = static_cast<uint8_t>((sw * fr + (255 - sw) * gray) / 255);
                        d[x].green = static_cast<uint8_t>((sw * fg + (255 - sw) * gray) / 255);
                        d[x].blue = static_cast<uint8_t>((sw * fb + (255 - sw) * gray) / 255);
                    }
                    const uint8_t alpha = m_alphaMap[a];
                    key[x] = alpha;
                    d[x].alpha = alpha;
                }
            }
        },
        [&](int y0, int y1) {
            ReportStrides(y0, y1, 40, [&](int64_t y) { ReportProgress(static_cast<int>(y * 20 / h + 45)); });
        });
}

long CHueKeyProcess::BuildEdgeMask(const COLImage& source, COLChannel& mask)
{
    const int w = static_cast<int>(m_keyChannel.GetWidth()), h = static_cast<int>(m_keyChannel.GetHeight());
    if (mask.Create(uint32_t(w), uint32_t(h)) != kOk) return kFail;
    std::memset(mask.GetBuffer(), 0, mask.GetAreaByteSize());
    const COLImage& dst = *m_pDstImage;

    // Alpha gradient of the destination, from three rows of its alpha gathered into byte rows.
    keyrows::ForRows(1, h - 1, size_t(w), [&](int y0, int y1) {
        std::vector<uint8_t> rows(size_t(w) * 3);
        auto gather = [&](int y, uint8_t* to) {
            const CPixel* p = dst.GetBuffer(0, uint32_t(y));
            for (int x = 0; x < w; ++x) to[x] = p[x].alpha;
        };
        uint8_t* up = rows.data();
        uint8_t* mid = up + w;
        uint8_t* down = mid + w;
        gather(y0 - 1, up);
        gather(y0, mid);
        for (int y = y0; y < y1; ++y) {
            gather(y + 1, down);
            uint8_t* m = mask.GetBuffer(0, uint32_t(y));
            for (int x = 1; x < w - 1; ++x) {
                const int gy = up[x - 1] + up[x] + up[x + 1] - down[x - 1] - down[x] - down[x + 1];
                const int gx = up[x - 1] + mid[x - 1] + down[x - 1] - up[x + 1] - mid[x + 1] - down[x + 1];
                const int v = std::max(std::abs(gx), std::abs(gy)) / 2;   // max(|gx| / 2, |gy| / 2)
                m[x] = static_cast<uint8_t>(v > 255 ? 255 : v);
            }
            uint8_t* oldUp = up;
            up = mid;
            mid = down;
            down = oldUp;
        }
    });
    ReportProgress(70);

    // Damped where the hue is flat or the picture is dark.
    keyrows::ForRows(1, h - 1, size_t(w), [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const uint8_t* up = m_hueChannel.GetBuffer(0, y - 1);
            const uint8_t* mid = m_hueChannel.GetBuffer(0, y);
            const uint8_t* down = m_hueChannel.GetBuffer(0, y + 1);
            const CPixel* s = source.GetBuffer(0, y);
            uint8_t* m = mask.GetBuffer(0, y);
            for (int x = 1; x < w - 1; ++x) {
                if (m[x] == 0) continue;   // stays 0 whatever q is
                const int a = CircularDiff(up[x - 1], down[x - 1]) + CircularDiff(up[x], down[x]) +
                              CircularDiff(up[x + 1], down[x + 1]);
                const int c = CircularDiff(up[x - 1], up[x + 1]) + CircularDiff(mid[x - 1], mid[x + 1]) +
                              CircularDiff(down[x - 1], down[x + 1]);
                const int g = std::max(a, c);
                int q = keymath::Luma(s[x]) * g / 64;
                if (q > 255) q = 255;
                m[x] = static_cast<uint8_t>(m[x] * q / 255);
            }
        }
    });

    COLChannel blurred;
    if (BlurPlane(mask, blurred, 0.5) != kOk) return kFail;
    keyrows::ForRows(0, h, size_t(w), [&](int y0, int y1) {
        uint8_t* m = mask.GetBuffer(0, uint32_t(y0));
        const uint8_t* b = blurred.GetBuffer(0, uint32_t(y0));
        for (size_t i = 0, n = size_t(y1 - y0) * size_t(w); i < n; ++i)
            m[i] = static_cast<uint8_t>(std::min(255, 2 * b[i]));
    });
    ReportProgress(75);
    return kOk;
}

long CHueKeyProcess::RefineEdges(const COLImage& source)
{
    COLChannel mask;
    if (BuildEdgeMask(source, mask) != kOk) return kFail;
    const int w = static_cast<int>(source.GetWidth()), h = static_cast<int>(source.GetHeight());
    const int hb = m_backdropHSB.red;
    const CPixel bd = m_params.backdrop;
    COLImage& dst = *m_pDstImage;

    // Sequential on purpose: each window reads alphas that the pixels before it in this loop have refined.
    for (int y = 3; y < h - 3; ++y) {
        if (y % 32 == 0) ReportProgress(y * 15 / h + 75);
        const uint8_t* mrow = mask.GetBuffer(0, y);
        for (int x = 3; x < w - 3; ++x) {
            const int m = mrow[x];
            if (m == 0) continue;
            int64_t sr = 0, sg = 0, sb = 0, wsum = 0;
            for (int j = y - 3; j <= y + 3; ++j) {
                const uint8_t* hue = m_hueChannel.GetBuffer(0, j);
                const CPixel* d = dst.GetBuffer(0, j);
                const CPixel* s = source.GetBuffer(0, j);
                for (int i = x - 3; i <= x + 3; ++i) {
                    const int diff = CircularDiff(hue[i], hb);
                    const int a = d[i].alpha;
                    if (diff <= 16 || a == 0) continue;
                    const int wt = a * diff;
                    sr += int64_t(wt) * s[i].red;
                    sg += int64_t(wt) * s[i].green;
                    sb += int64_t(wt) * s[i].blue;
                    wsum += wt;
                }
            }
            if (wsum < 1) continue;
            const int fr = int(sr / wsum), fg = int(sg / wsum), fb = int(sb / wsum);
            const CPixel in = source.GetBuffer(0, y)[x];
            auto distance = [](int r0, int g0, int b0, int r1, int g1, int b1) {
                const int d2 = (r0 - r1) * (r0 - r1) + (g0 - g1) * (g0 - g1) + (b0 - b1) * (b0 - b1);
                return static_cast<int>(std::sqrt(static_cast<double>(d2)));
            };
            const int dFB = distance(fr, fg, fb, bd.red, bd.green, bd.blue);
            const int dIB = distance(in.red, in.green, in.blue, bd.red, bd.green, bd.blue);
            const int dIF = distance(in.red, in.green, in.blue, fr, fg, fb);
            if (dIB + dIF == 0 || dFB < 16 || dIF > dFB || dIB + dIF > 2 * dFB) continue;
            int a2 = (dIB * dIB - dIF * dIF + dFB * dFB) * 255 / (2 * dFB * dFB);
            if (a2 < 0) continue;
            if (a2 > 255) a2 = 255;
            CPixel& d = dst.GetBuffer(0, y)[x];
            d.red = static_cast<uint8_t>((d.red * (255 - m) + fr * m) / 255);
            d.green = static_cast<uint8_t>((d.green * (255 - m) + fg * m) / 255);
            d.blue = static_cast<uint8_t>((d.blue * (255 - m) + fb * m) / 255);
            d.alpha = static_cast<uint8_t>((d.alpha * (255 - m) + a2 * m) / 255);
        }
    }
    return kOk;
}

void CHueKeyProcess::RestoreInterior(const COLImage& source)
{
    COLChannel blurred;
    if (BlurPlane(m_keyChannel, blurred, 1.0) != kOk) return;   // the run succeeds without this touch-up
    const uint32_t w = source.GetWidth(), h = source.GetHeight();
    keyrows::ForRows(0, static_cast<int>(h), w, [&](int y0, int y1) {
        const size_t begin = size_t(y0) * w, end = size_t(y1) * w;
        const uint8_t* b = blurred.GetBuffer();
        const CPixel* s = source.GetBuffer();
        CPixel* d = m_pDstImage->GetBuffer();
        for (size_t i = begin; i < end; ++i)
            if (b[i] > 250) d[i] = s[i];
    });
}
