#include "effects/selection_paint.h"

#include <cstdio>

#include "runtime/parallel_for.h"

void FillSettings::OpacityText(int32_t opacity, char (&text)[16])
{
    std::snprintf(text, sizeof text, "%d%%", int(opacity));
}

namespace {

bool SameSize(const COLImage& layer, const COLChannel& plane)
{
    return !layer.IsNull() && !plane.IsNull() && layer.GetWidth() == plane.GetWidth() &&
           layer.GetHeight() == plane.GetHeight();
}

} // namespace

bool PaintFillLayer(COLImage& layer, const COLChannel& mask, uint32_t colour, int32_t opacity)
{
    if (!SameSize(layer, mask) || opacity < 0 || opacity > 100) return false;
    const uint32_t rgb = colour & 0x00FFFFFFu, o = uint32_t(opacity);
    const uint8_t* m = mask.GetBuffer();
    CPixel* out = layer.GetBuffer();
    vmpar::ParallelFor(layer.GetPixelCount(), 1 << 16, [&](size_t i0, size_t i1, unsigned) {
        for (size_t i = i0; i < i1; ++i)
            if (m[i]) out[i] = CPixel::FromWord(rgb | ((o * m[i] / 100) << 24));
    });
    return true;
}

bool PaintStrokeLayer(COLImage& layer, const COLChannel& mask, const COLChannel& expanded, uint32_t colour,
                      int32_t opacity)
{
    if (!SameSize(layer, mask) || !SameSize(layer, expanded) || opacity < 0 || opacity > 100) return false;
    const uint32_t rgb = colour & 0x00FFFFFFu, o = uint32_t(opacity);
    const uint8_t* m = mask.GetBuffer();
    const uint8_t* e = expanded.GetBuffer();
    CPixel* out = layer.GetBuffer();
    vmpar::ParallelFor(layer.GetPixelCount(), 1 << 16, [&](size_t i0, size_t i1, unsigned) {
        for (size_t i = i0; i < i1; ++i) {
            const uint32_t a = e[i] > m[i] ? uint32_t(e[i] - m[i]) : 0;
            out[i] = CPixel::FromWord(rgb | ((o * a / 100) << 24));
        }
    });
    return true;
}
