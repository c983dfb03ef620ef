#include "effects/flip_rotate.h"

#include <algorithm>
#include <vector>

#include "imaging/image.h"

void FlipImage(COLImage& image, bool horizontal)
{
    if (image.IsNull()) return;
    const uint32_t w = image.GetWidth(), h = image.GetHeight();
    if (horizontal) {
        for (uint32_t y = 0; y < h; ++y)
            std::reverse(image.GetBuffer(0, y), image.GetBuffer(0, y) + w);
        return;
    }
    for (uint32_t top = 0, bottom = h ? h - 1 : 0; top < bottom; ++top, --bottom)
        std::swap_ranges(image.GetBuffer(0, top), image.GetBuffer(0, top) + w, image.GetBuffer(0, bottom));
}

int RotateImageQuarter(const COLImage& source, COLImage& destination, bool left)
{
    if (source.IsNull() || &source == &destination) return 0;
    const uint32_t w = source.GetWidth(), h = source.GetHeight();
    if (destination.Create(h, w) != kOk) return 0;
    // Target pixel (column c, row r): turning left reads (w - 1 - r, c), turning right reads (r, h - 1 - c).
    for (uint32_t r = 0; r < w; ++r) {
        CPixel* out = destination.GetBuffer(0, r);
        if (left)
            for (uint32_t c = 0; c < h; ++c)
                out[c] = source.GetPixel2(w - 1 - r, c);
        else
            for (uint32_t c = 0; c < h; ++c)
                out[c] = source.GetPixel2(r, h - 1 - c);
    }
    return 1;
}
