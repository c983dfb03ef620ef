#include "matting/chroma_key.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "imaging/codec.h"
#include "matting/gaussian.h"
#include "matting/hue_key.h"
#include "matting/key_math.h"
#include "matting/key_rows.h"

namespace {

long BlurPlane(const COLChannel& source, COLChannel& blurred, double sigma)
{
    CGaussianProcess blur;
    blur.SetChannels(const_cast<COLChannel*>(&source), &blurred);
    return blur.ProcessChannel(&sigma);
}

bool InRing(int x, int y, int w, int h, int depth)
{
    return x < depth || y < depth || y > h - depth || x > w - depth;
}

} // namespace

bool CChromaKeyProcess::IsChromatic(CPixel backdrop)
{
    CPixel hsb = backdrop;
    COLImageCodec().RGB2HSB(&hsb, 1);
    return hsb.green >= 13 && hsb.blue >= 33 && hsb.blue < 220;
}

const vmparam::ParamTable& ChromaKeyParamTable()
{
    using S = ChromaKeySettings;
    using P = ChromaKeyParams;
    using vmparam::At;
    static const vmparam::ParamTable table{
        "key",
        {vmparam::Int("strength", At<&S::params, &P::strength>(), 0, 100, "how much of the backdrop's hue range goes"),
         vmparam::IntPair("levels", At<&S::params, &P::levelLow>(), At<&S::params, &P::levelHigh>(), 0, 255,
                          "alpha levels: alpha LO and below becomes 0, HI and above 255"),
         vmparam::Flag("shadow", At<&S::params, &P::includeShadow>(), 0, "remove the backdrop's shadow too"),
         vmparam::Flag("no-recover", At<&S::params, &P::recoverColour>(), 0,
                       "keep the edge colours as they are instead of taking the backdrop's tint out"),
         vmparam::Flag("no-jpeg-chroma", At<&S::params, &P::jpegChroma>(), 0,
                       "do not smooth JPEG colour blocks first"),
         vmparam::Flag("feather", At<&S::params, &P::featherSelection>(), 1, "soften the key's edge"),
         vmparam::Int("luma-strength", At<&S::lumaStrength>(), 0, 100,
                      "strength of the key on a gray, white or black backdrop"),
         vmparam::Flag("refine", At<&S::refine>(), 1,
                       "solve the edge where the classic key is unsure: strands, soft edges, white, gray and "
                       "black backdrops; slower")}};
    return table;
}

long CChromaKeyProcess::Process(const void* params)
{
    // Running out of memory fails the run like any refusal. A run in place that fails half-way puts the picture
    // back from its private copy, so the caller's picture is as it was.
    COLImage ownSource;
    const long result = vmrt::GuardExhaustion([&] { return Key(params, ownSource); });
    if (result != kOk && m_pSrcImage == m_pDstImage && !ownSource.IsNull()) *m_pDstImage = std::move(ownSource);
    return result;
}

long CChromaKeyProcess::Key(const void* params, COLImage& ownSource)
{
    if (CImageProcess::Process(params) != kOk || params == nullptr) return kFail;
    m_params = *static_cast<const ChromaKeyParams*>(params);
    // The slider's range; anything else would make the tables meaningless.
    m_params.strength = std::clamp(m_params.strength, 0, 100);
    m_params.levelLow = std::clamp(m_params.levelLow, 0, 255);
    m_params.levelHigh = std::clamp(m_params.levelHigh, 0, 255);

    // Working in place would read pixels already keyed: key a private copy instead.
    COLImage* source = m_pSrcImage;
    if (m_pSrcImage == m_pDstImage) {
        if (!ownSource.DuplicateFrom(m_pSrcImage)) return kFail;
        source = &ownSource;
    }
    if (!m_pDstImage->DuplicateFrom(source)) return kFail;
    keymath::BuildAlphaMap(m_alphaMap);
    m_chromatic = IsChromatic(m_params.backdrop);

    if (!m_chromatic) return RunLumaPath(*source);

    CHueKeyProcess hue;
    hue.SetImages(source, m_pDstImage);
    hue.SetProgressCallback(GetProgressCallback());
    hue.SetProgressRange(0, m_params.includeShadow ? 100 : 80);
    if (hue.Process(&m_params) != kOk) return kFail;
    if (!m_alpha.DuplicateFrom(&hue.GetKeyChannel())) return kFail;
    if (!m_params.includeShadow && RemoveShadow() != kOk) return kFail;
    ReportProgress(100);
    return kOk;
}

long CChromaKeyProcess::RunLumaPath(const COLImage& source)
{
    if (!m_alpha.ExtractFrom(m_pDstImage, 3)) return kFail;
    RunLumaKey(source);
    if (!m_pDstImage->DuplicateFrom(&source)) return kFail;
    ReportProgress(60);

    if (m_params.featherSelection) {
        COLChannel blurred;
        if (BlurPlane(m_alpha, blurred, 1.0) != kOk) return kFail;
        const uint32_t w = m_alpha.GetWidth();
        keyrows::ForRows(0, int(m_alpha.GetHeight()), w, [&](int y0, int y1) {
            uint8_t* a = m_alpha.GetBuffer(0, uint32_t(y0));
            const uint8_t* b = blurred.GetBuffer(0, uint32_t(y0));
            for (size_t i = 0, n = size_t(y1 - y0) * w; i < n; ++i) a[i] = std::min(a[i], b[i]);
        });
    }
    MixColours(source);
    ApplyAlphaLevels(*m_pDstImage, m_params.levelLow, m_params.levelHigh);
    ReportProgress(100);
    return kOk;
}

void CChromaKeyProcess::RunLumaKey(const COLImage& source)
{
    const int t = keymath::LumaThreshold(m_lumaStrength);
    COLImageCodec codec;
    CPixel b = m_params.backdrop;
    codec.RGB2YUV(&b, 1);
    const int yb = b.red;
    const uint32_t w = source.GetWidth();
    keyrows::ForRows(0, static_cast<int>(source.GetHeight()), w, [&](int y0, int y1) {
        COLImageCodec rowCodec;
        std::vector<CPixel> row(w);
        for (int y = y0; y < y1; ++y) {
            std::memcpy(row.data(), source.GetBuffer(0, y), w * sizeof(CPixel));
            rowCodec.RGB2YUV(row.data(), static_cast<int>(w));
            uint8_t* a = m_alpha.GetBuffer(0, y);
            for (uint32_t x = 0; x < w; ++x) {
                int key = std::abs(row[x].red - yb);
                if (key > 255) key = 255;
                if (key < 255) {
                    // t is at least 17 for any slider value the panel offers; guard the rest.
                    int v = t > 0 ? key * 255 / t : 255;
                    key = v > 255 ? 255 : v;
                }
                a[x] = static_cast<uint8_t>(key);
            }
        }
    });
}

void CChromaKeyProcess::MixColours(const COLImage& source)
{
    const uint32_t w = source.GetWidth(), h = source.GetHeight();
    const CPixel bd = m_params.backdrop;
    const bool recover = m_params.recoverColour != 0;
    keyrows::ForBands(static_cast<int>(h), 120, w,
        [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y) {
                const CPixel* s = source.GetBuffer(0, y);
                CPixel* d = m_pDstImage->GetBuffer(0, y);
                uint8_t* plane = m_alpha.GetBuffer(0, y);
                for (uint32_t x = 0; x < w; ++x) {
                    const int a = plane[x];
                    if (a == 0) {
                        d[x] = CPixel{0, 0, 0, 0};
                        continue;
                    }
                    if (recover) {
                        d[x].red = static_cast<uint8_t>(keymath::RecoverChannelFast(s[x].red, bd.red, a));
                        d[x].green = static_cast<uint8_t>(keymath::RecoverChannelFast(s[x].green, bd.green, a));
                        d[x].blue = static_cast<uint8_t>(keymath::RecoverChannelFast(s[x].blue, bd.blue, a));
                    }
                    plane[x] = m_alphaMap[a];
                    d[x].alpha = m_alphaMap[a];
                }
            }
        },
        [&](int y0, int y1) {
            for (int y = (y0 + 39) / 40 * 40; y < y1; y += 40) ReportProgress(int(int64_t(y) * 20 / h + 60));
        });
}

void CChromaKeyProcess::ApplyAlphaLevels(COLImage& image, int levelLow, int levelHigh)
{
    uint8_t table[256];
    if (image.IsNull() || !keymath::BuildLevelsTable(levelLow, levelHigh, table)) return;
    const uint32_t w = image.GetWidth();
    keyrows::ForRows(0, static_cast<int>(image.GetHeight()), w, [&](int y0, int y1) {
        CPixel* p = image.GetBuffer(0, y0);
        const size_t count = size_t(y1 - y0) * w;
        for (size_t i = 0; i < count; ++i) p[i].alpha = table[p[i].alpha];
    });
}

long CChromaKeyProcess::RemoveShadow()
{
    COLImage& dst = *m_pDstImage;
    const int w = static_cast<int>(dst.GetWidth()), h = static_cast<int>(dst.GetHeight());
    COLChannel p;
    if (!p.ExtractFrom(&dst, 3)) return kFail;
    // Half-transparent pixels next to an opaque one count as subject, all others as away from it.
    keyrows::ForRows(1, h - 1, size_t(w), [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            uint8_t* row = p.GetBuffer(0, y);
            const CPixel* up = dst.GetBuffer(0, y - 1);
            const CPixel* mid = dst.GetBuffer(0, y);
            const CPixel* down = dst.GetBuffer(0, y + 1);
            for (int x = 1; x < w - 1; ++x) {
                if (row[x] == 255) continue;
                const bool nearOpaque = up[x - 1].alpha == 255 || up[x].alpha == 255 || up[x + 1].alpha == 255 ||
                                        mid[x - 1].alpha == 255 || mid[x + 1].alpha == 255 ||
                                        down[x - 1].alpha == 255 || down[x].alpha == 255 ||
                                        down[x + 1].alpha == 255;
                row[x] = nearOpaque ? 255 : 0;
            }
        }
    });
    ReportProgress(85);
    COLChannel q;
    if (BlurPlane(p, q, 2.0) != kOk) return kFail;
    ReportProgress(95);
    keyrows::ForRows(0, h, size_t(w), [&](int y0, int y1) {
        const uint8_t* qv = q.GetBuffer(0, y0);
        CPixel* d = dst.GetBuffer(0, y0);
        const size_t count = size_t(y1 - y0) * size_t(w);
        for (size_t i = 0; i < count; ++i) {
            const int v = 2 * qv[i];
            if (v < 255 && keymath::Luma(d[i]) < 16) {
                const int a = d[i].alpha * v / 255;
                d[i].alpha = static_cast<uint8_t>(a < 16 ? 0 : a);
            }
        }
    });
    ReportProgress(100);
    return kOk;
}

CPixel CChromaKeyProcess::EstimateBackdropColour(const COLImage& image)
{
    CPixel result{0, 0, 0, 255};
    if (image.IsNull()) return result;
    const int w = static_cast<int>(image.GetWidth()), h = static_cast<int>(image.GetHeight());

    // Sums in 64 bits: a 20000 x 20000 picture overflows 32.
    uint64_t sr = 0, sg = 0, sb = 0, n = 0;
    for (int y = 0; y < h; ++y) {
        const CPixel* row = image.GetBuffer(0, uint32_t(y));
        for (int x = 0; x < w; ++x) {
            if (!InRing(x, y, w, h, 16)) {
                x = w - 16;   // jump over the middle of the row
                continue;
            }
            sr += row[x].red;
            sg += row[x].green;
            sb += row[x].blue;
            ++n;
        }
    }
    if (n == 0) n = 1;
    const int mr = int(sr / n), mg = int(sg / n), mb = int(sb / n);

    sr = sg = sb = n = 0;
    for (int y = 0; y < h; ++y) {
        const CPixel* row = image.GetBuffer(0, uint32_t(y));
        for (int x = 0; x < w; ++x) {
            if (!InRing(x, y, w, h, 128)) {
                x = w - 128;
                continue;
            }
            const int dr = row[x].red - mr, dg = row[x].green - mg, db = row[x].blue - mb;
            // trunc(sqrt(d2)) < 32 exactly when d2 < 1024
            if (dr * dr + dg * dg + db * db >= 1024) continue;
            sr += row[x].red;
            sg += row[x].green;
            sb += row[x].blue;
            ++n;
        }
    }
    if (n == 0) return result;
    result.red = static_cast<uint8_t>(sr / n);
    result.green = static_cast<uint8_t>(sg / n);
    result.blue = static_cast<uint8_t>(sb / n);
    return result;
}
