#include "effects/segment_deflate.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "document/compositor.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "matting/segment.h"
#include "runtime/status.h"

bool BuildDeflatePicture(const CLayerStack& document, COLImage& picture)
{
    const CLayer* layer = document.GetCurrentLayer();
    const int w = document.GetWidth(), h = document.GetHeight();
    if (!layer || w <= 0 || h <= 0) return false;
    if (!layer->m_visible) return MergeLayers(&document, &picture, 0) != 0;
    if (picture.Create(uint32_t(w), uint32_t(h)) != kOk) return false;
    std::memset(picture.GetBuffer(), 0, picture.GetAreaByteSize());
    const COLImage& image = layer->m_image;
    if (image.IsNull()) return true;
    // The base is composited at the origin whatever its position says.
    const bool base = document.GetCurrentIndex() == 0;
    const long long lx = base ? 0 : layer->m_x, ly = base ? 0 : layer->m_y;
    const long long x0 = std::max<long long>(0, lx), x1 = std::min<long long>(w, lx + image.GetWidth());
    const long long y0 = std::max<long long>(0, ly), y1 = std::min<long long>(h, ly + image.GetHeight());
    for (long long y = y0; y < y1; ++y) {
        const CPixel* in = image.GetBuffer(uint32_t(x0 - lx), uint32_t(y - ly));
        CPixel* out = picture.GetBuffer(uint32_t(x0), uint32_t(y));
        for (long long x = x0; x < x1; ++x, ++in, ++out)
            if (in->alpha) *out = CPixel::FromWord((in->Word() & 0x00FFFFFFu) | 0xFF000000u);
    }
    return true;
}

bool DeflateMask(const COLChannel& mask, const COLImage& labels, COLChannel& result)
{
    if (mask.IsNull() || labels.IsNull() || mask.GetWidth() != labels.GetWidth() ||
        mask.GetHeight() != labels.GetHeight())
        return false;
    return vmrt::GuardExhaustion([&]() -> long {
               const size_t n = mask.GetAreaByteSize();
               const CPixel* lab = labels.GetBuffer();
               const uint8_t* m = mask.GetBuffer();
               uint32_t top = 0;
               for (size_t i = 0; i < n; ++i)
                   top = std::max(top, CSegmentProcess::Label(lab[i]));
               // One flag per region: set when the region sticks out of the selection.
               std::vector<uint8_t> out(size_t(top) + 1, 0);
               for (size_t i = 0; i < n; ++i)
                   if (const uint32_t l = CSegmentProcess::Label(lab[i]); l && m[i] < 128) out[l] = 1;
               if (result.Create(mask.GetWidth(), mask.GetHeight()) != kOk) return kFail;
               uint8_t* r = result.GetBuffer();
               for (size_t i = 0; i < n; ++i) {
                   const uint32_t l = CSegmentProcess::Label(lab[i]);
                   r[i] = l && !out[l] ? 255 : 0;
               }
               return kOk;
           }) == kOk;
}

long SelectSegmentDeflate(CLayerStack& document, CSegmentProcess* engine)
{
    COLChannel& mask = document.GetSelectionMask();
    if (mask.IsNull() || mask.GetWidth() != uint32_t(document.GetWidth()) ||
        mask.GetHeight() != uint32_t(document.GetHeight()))
        return kFail;
    return vmrt::GuardExhaustion([&]() -> long {
        COLImage picture, labels;
        {
            CStackLock lock(document);
            if (!BuildDeflatePicture(document, picture)) return kFail;
        }
        CSegmentProcess own;
        CSegmentProcess& segment = engine ? *engine : own;
        segment.SetImages(&picture, &labels);
        const long result = segment.Process(nullptr);
        segment.SetImages(nullptr, nullptr);
        if (result != kOk) return kFail;
        COLChannel deflated;
        if (!DeflateMask(mask, labels, deflated)) return kFail;
        {
            CStackLock lock(document);
            std::memcpy(mask.GetBuffer(), deflated.GetBuffer(), mask.GetAreaByteSize());
        }
        document.Refresh();
        return kOk;
    });
}
