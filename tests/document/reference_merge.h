#pragma once

// The merge arithmetic written out the slow, obvious way, with true divisions: the oracle the fast paths are
// checked against.

#include <algorithm>
#include <cstdlib>

#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/channel.h"
#include "imaging/image.h"

namespace reftest {

inline int ModeColour(int mode, int d, int s)
{
    switch (mode) {
    case 1: return std::min(d, s);
    case 2: return std::max(d, s);
    case 5: return (d * s + 127) / 255;
    case 6: return 255 - ((255 - d) * (255 - s) + 127) / 255;
    case 10: return std::abs(d - s);
    default: return s;
    }
}

inline void BlendOnto(COLImage& dst, const CLayer& layer)
{
    if (!layer.m_visible || layer.m_image.IsEmpty()) return;
    for (long y = 0; y < long(dst.GetHeight()); ++y)
        for (long x = 0; x < long(dst.GetWidth()); ++x) {
            const long lx = x - layer.m_x, ly = y - layer.m_y;
            if (lx < 0 || ly < 0 || lx >= long(layer.m_image.GetWidth()) || ly >= long(layer.m_image.GetHeight()))
                continue;
            CPixel& d = *dst.GetBuffer(uint32_t(x), uint32_t(y));
            const CPixel s = layer.m_image.GetPixel2(uint32_t(lx), uint32_t(ly));
            const int a = (s.alpha * layer.m_opacity + 127) / 255;
            const int rb = ModeColour(layer.m_blendMode, d.blue, s.blue);
            const int rg = ModeColour(layer.m_blendMode, d.green, s.green);
            const int rr = ModeColour(layer.m_blendMode, d.red, s.red);
            if (a == 255) {
                d.blue = uint8_t(rb), d.green = uint8_t(rg), d.red = uint8_t(rr);
            } else {
                d.blue = uint8_t((d.blue * (255 - a) + rb * a + 127) / 255);
                d.green = uint8_t((d.green * (255 - a) + rg * a + 127) / 255);
                d.red = uint8_t((d.red * (255 - a) + rr * a + 127) / 255);
            }
        }
}

// The whole merge; the destination's alpha is set as the mask flag says, or left from `alphaBefore`.
inline void Merge(const CLayerStack& stack, COLImage& dst, int maskFlag)
{
    const COLImage& base = stack.GetLayer(0)->m_image;
    dst.Create(base.GetWidth(), base.GetHeight());
    for (size_t i = 0; i < base.GetPixelCount(); ++i) {
        CPixel& d = dst.GetBuffer()[i];
        d.blue = base.GetBuffer()[i].blue;
        d.green = base.GetBuffer()[i].green;
        d.red = base.GetBuffer()[i].red;
    }
    for (int i = 1; i < stack.GetLayerCount(); ++i) BlendOnto(dst, *stack.GetLayer(i));
    if (maskFlag != 1) return;
    const COLChannel& mask = stack.GetSelectionMask();
    for (size_t i = 0; i < dst.GetPixelCount(); ++i)
        dst.GetBuffer()[i].alpha = mask.IsNull() ? 0 : mask.GetBuffer()[i];
}

} // namespace reftest
