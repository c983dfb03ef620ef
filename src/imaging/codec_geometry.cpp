#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "imaging/codec.h"
#include "imaging/codec_formats.h"
#include "imaging/tap_resample.h"
#include "runtime/status.h"

namespace {

int ResampleOrThrow(const COLImage* source, COLImage* destination, int width, int height, int method)
{
    if (!source || !destination || source->IsNull() || method != 1) return 0;
    if (width < 1 || height < 1 || uint32_t(width) > kMaxImageSide || uint32_t(height) > kMaxImageSide) return 0;
    // Into a fresh image, so that source and destination may be the same object.
    COLImage result;
    if (result.Create(uint32_t(width), uint32_t(height)) != kOk) return 0;
    vmresample::ResampleInto(*source, result);
    *destination = std::move(result);
    return 1;
}

} // namespace

int COLImageCodec::Resample(const COLImage* source, COLImage* destination, int width, int height, int method)
{
    try {
        return ResampleOrThrow(source, destination, width, height, method);
    } catch (const std::bad_alloc&) { // out of memory: a failed resample, not an exception for the caller
        vmrt::NoteExhaustion();
        return 0;
    } catch (const std::exception&) {
        return 0;
    }
}

int COLImageCodec::Rotate(const COLImage* source, COLImage* destination, float angle)
{
    if (!source || !destination || source->IsNull() || !std::isfinite(angle)) return 0;
    double a = std::fmod(double(angle), 360.0);
    if (a < 0) a += 360.0;
    const uint32_t w = source->GetWidth(), h = source->GetHeight();
    COLImage result;
    // Quarter turns move pixels without touching them.
    const double quarter = a / 90.0;
    const double nearest = std::round(quarter);
    if (std::fabs(quarter - nearest) < 1e-9) {
        static const int kOrientation[4] = {1, 6, 3, 8}; // none, 90, 180, 270 degrees clockwise
        if (result.DuplicateFrom(source) == 0) return 0;
        if (!codec::ApplyOrientation(result, kOrientation[int(nearest) % 4])) return 0;
        *destination = std::move(result);
        return 1;
    }
    const double rad = a * 3.14159265358979323846 / 180.0, c = std::cos(rad), s = std::sin(rad);
    const double fw = std::fabs(w * c) + std::fabs(h * s), fh = std::fabs(w * s) + std::fabs(h * c);
    const uint32_t dw = static_cast<uint32_t>(std::ceil(fw - 1e-6)), dh = static_cast<uint32_t>(std::ceil(fh - 1e-6));
    if (!codec::SidesOk(dw, dh) || result.Create(dw, dh) != kOk) return 0;
    // Each output centre is turned back into the source; the four neighbours are blended with their alpha as
    // weight, so that the transparent outside does not darken the edges.
    for (uint32_t y = 0; y < dh; ++y) {
        CPixel* out = result.GetBuffer(0, y);
        for (uint32_t x = 0; x < dw; ++x) {
            const double dx = x + 0.5 - dw / 2.0, dy = y + 0.5 - dh / 2.0;
            const double sx = c * dx + s * dy + w / 2.0 - 0.5, sy = -s * dx + c * dy + h / 2.0 - 0.5;
            const double fx = std::floor(sx), fy = std::floor(sy);
            const double ux = sx - fx, uy = sy - fy;
            double acc[4] = {0, 0, 0, 0};
            for (int k = 0; k < 4; ++k) {
                const int64_t px = int64_t(fx) + (k & 1), py = int64_t(fy) + (k >> 1);
                if (px < 0 || py < 0 || px >= int64_t(w) || py >= int64_t(h)) continue;
                const double wt = ((k & 1) ? ux : 1 - ux) * ((k >> 1) ? uy : 1 - uy);
                const CPixel p = source->GetPixel2(uint32_t(px), uint32_t(py));
                const double wa = wt * p.alpha;
                acc[0] += wa * p.blue;
                acc[1] += wa * p.green;
                acc[2] += wa * p.red;
                acc[3] += wa;
            }
            if (acc[3] <= 0) {
                out[x] = CPixel{0, 0, 0, 0};
                continue;
            }
            auto ch = [&](double v) { return static_cast<uint8_t>(std::min(255.0, v / acc[3] + 0.5)); };
            out[x] = CPixel{ch(acc[0]), ch(acc[1]), ch(acc[2]), static_cast<uint8_t>(std::min(255.0, acc[3] + 0.5))};
        }
    }
    *destination = std::move(result);
    return 1;
}
