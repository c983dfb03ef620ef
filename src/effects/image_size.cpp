#include "effects/image_size.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "document/layer.h"
#include "document/layer_stack.h"
#include "effects/bicubic_scale.h"
#include "filters/resample.h"
#include "imaging/channel.h"
#include "imaging/codec.h"
#include "imaging/image.h"
#include "imaging/tap_resample.h"
#include "matting/image_process.h"
#include "runtime/parallel_for.h"

namespace {

// The picture a method writes: the target itself when it is another image than the source (its buffer is kept
// when it already has the size, which saves touching fresh memory), else a new one moved into place at the end.
class COutput {
public:
    COutput(const COLImage& source, COLImage& target) : m_target(target), m_apart(&source != &target) {}
    COLImage* Create(uint32_t w, uint32_t h)
    {
        COLImage& image = m_apart ? m_target : m_fresh;
        return image.Create(w, h) == kOk ? &image : nullptr;
    }
    void Finish()
    {
        if (!m_apart) m_target = std::move(m_fresh);
    }

private:
    COLImage& m_target;
    COLImage m_fresh;
    bool m_apart;
};

int ScaleNearest(const COLImage& source, COLImage& target, uint32_t w, uint32_t h)
{
    const uint32_t sw = source.GetWidth(), sh = source.GetHeight();
    std::vector<uint32_t> columns(w);
    for (uint32_t x = 0; x < w; ++x)
        columns[x] = static_cast<uint32_t>(uint64_t(x) * sw / w);
    COutput output(source, target);
    COLImage* result = output.Create(w, h);
    if (!result) return 0;
    vmpar::ParallelFor(h, 16, [&](size_t begin, size_t end, unsigned) {
        for (size_t y = begin; y < end; ++y) {
            const uint64_t from = uint64_t(y) * sh / h;
            CPixel* out = result->GetBuffer(0, static_cast<uint32_t>(y));
            // When enlarging, neighbouring rows often take the same source row: copy the one just made.
            if (y > begin && (uint64_t(y) - 1) * sh / h == from) {
                std::memcpy(out, result->GetBuffer(0, static_cast<uint32_t>(y - 1)), size_t(w) * sizeof(CPixel));
                continue;
            }
            const CPixel* row = source.GetBuffer(0, static_cast<uint32_t>(from));
            for (uint32_t x = 0; x < w; ++x)
                out[x] = row[columns[x]];
        }
    });
    output.Finish();
    return 1;
}

int ScaleBilinear(const COLImage& source, COLImage& target, uint32_t w, uint32_t h)
{
    // The codec resamples colour; alpha goes through the plane filter, which keeps hard mask edges crisper.
    if (w < 2 || h < 2) { // the plane filter's box mean
        COLChannel alpha, scaledAlpha;
        if (!alpha.ExtractFrom(&source, 3)) return 0;
        COLImageCodec codec;
        COLImage result;
        if (!codec.Resample(&source, &result, int(w), int(h), 1)) return 0;
        if (!ResampleChannel(&alpha, &scaledAlpha, int(w), int(h))) return 0;
        const uint8_t* a = scaledAlpha.GetBuffer();
        CPixel* p = result.GetBuffer();
        for (size_t i = 0, n = result.GetPixelCount(); i < n; ++i)
            p[i].alpha = a[i];
        target = std::move(result);
        return 1;
    }
    // Otherwise both in one pass: each row's alpha is rewritten while the row is still in the cache.
    const CPixelByteRows alpha(source, 3, w, h);
    COutput output(source, target);
    COLImage* result = output.Create(w, h);
    if (!result) return 0;
    if (alpha.HalvesWithColours()) {
        // An exact halving: both from one read of each pair of source rows, about a megabyte of source a part.
        const size_t minRows = std::max<size_t>(2, (size_t(1) << 20) / (size_t(w) * 16));
        vmpar::ParallelFor(h, minRows, [&](size_t y0, size_t y1, unsigned) {
            for (size_t y = y0; y < y1; ++y)
                alpha.HalvedRow(uint32_t(y), result->GetBuffer(0, uint32_t(y)));
        });
    } else {
        const vmresample::RowFinisherFactory withAlpha = [&alpha]() -> vmresample::RowFinisher {
            auto work = std::make_shared<CPixelByteRows::Work>(alpha.MakeWork());
            return [&alpha, work](uint32_t y, CPixel* row) { alpha.Row(*work, y, row); };
        };
        vmresample::ResampleInto(source, *result, &withAlpha);
    }
    output.Finish();
    return 1;
}

int ScaleBicubic(const COLImage& source, COLImage& target, uint32_t w, uint32_t h)
{
    CBicubicScaleProcess process; // writes into the target, or into a new image when it is the source
    const BicubicScaleParams params{w, h};
    process.SetImages(const_cast<COLImage*>(&source), &target);
    return process.Process(&params) == kOk ? 1 : 0;
}

} // namespace

int ScaleImage(const COLImage& source, COLImage& target, int width, int height, int method)
{
    if (method < kScaleNearest || method > kScaleBicubic) return 1;
    if (source.IsNull()) return 0;
    const uint32_t w = static_cast<uint32_t>(std::max(width, 1)), h = static_cast<uint32_t>(std::max(height, 1));
    if (w > kMaxImageSide || h > kMaxImageSide) return 0;
    try {
        switch (method) {
        case kScaleNearest:
            return ScaleNearest(source, target, w, h);
        case kScaleBilinear:
            return ScaleBilinear(source, target, w, h);
        default:
            return ScaleBicubic(source, target, w, h);
        }
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

int ResizeAllLayers(CLayerStack& stack, int width, int height, int method, CImageProcess* progress)
{
    const int count = stack.GetLayerCount();
    CLayer* base = stack.GetLayer(0);
    if (!base || base->m_image.IsNull()) return 0;
    if (width < 1 || height < 1 || width > int(kMaxImageSide) || height > int(kMaxImageSide)) return 0;
    const double rx = double(width) / base->m_image.GetWidth(), ry = double(height) / base->m_image.GetHeight();
    struct Scaled {
        COLImage image;
        int x, y;
    };
    std::vector<Scaled> scaled;
    try {
        scaled.resize(size_t(count));
    } catch (const std::bad_alloc&) {
        return 0;
    }
    for (int i = 0; i < count; ++i) {
        const CLayer* layer = stack.GetLayer(i);
        Scaled& s = scaled[size_t(i)];
        s.x = i == 0 ? 0 : static_cast<int>(layer->m_x * rx);
        s.y = i == 0 ? 0 : static_cast<int>(layer->m_y * ry);
        if (!layer->m_image.IsNull()) {
            const int w = i == 0 ? width : static_cast<int>(layer->m_image.GetWidth() * rx);
            const int h = i == 0 ? height : static_cast<int>(layer->m_image.GetHeight() * ry);
            if (!ScaleImage(layer->m_image, s.image, w, h, method)) return 0;
        }
        if (progress) progress->ReportProgress(100 * (i + 1) / count);
    }
    {
        CStackLock lock(stack);
        for (int i = 0; i < count; ++i) {
            CLayer* layer = stack.GetLayer(i);
            Scaled& s = scaled[size_t(i)];
            if (!s.image.IsNull()) layer->m_image = std::move(s.image);
            layer->m_x = s.x;
            layer->m_y = s.y;
        }
        stack.GetSelectionMask().Free();
    }
    stack.SyncSizeToBase();
    return 1;
}

uint32_t LinkedSide(uint32_t edited, uint32_t documentWidth, uint32_t documentHeight, bool heightFromWidth)
{
    const uint32_t from = heightFromWidth ? documentWidth : documentHeight;
    const uint32_t to = heightFromWidth ? documentHeight : documentWidth;
    if (!from) return 1;
    const uint32_t side = edited * to / from; // unsigned 32-bit, as the dialog's fields are
    return std::clamp<uint32_t>(side, 1, kMaxImageSide);
}

void CanvasSizeFromMargins(int documentWidth, int documentHeight, int left, int up, int right, int down, int& width,
                           int& height)
{
    const long long w = 0LL + left + right + documentWidth, h = 0LL + up + down + documentHeight;
    width = static_cast<int>(std::clamp<long long>(w, 1, kMaxImageSide));
    height = static_cast<int>(std::clamp<long long>(h, 1, kMaxImageSide));
}
