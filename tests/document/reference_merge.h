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
    case 1:
        return std::min(d, s);
    case 2:
        return std::max(d, s);
    case 5:
        return (d * s + 127) / 255;
    case 6:
        return 255 - ((255 - d) * (255 - s) + 127) / 255;
    case 10:
        return std::abs(d - s);
    default:
        return s;
    }
}

inline void BlendOnto(COLImage& dst, const CLayer& layer)
{
    if (!layer.m_visible || layer.m_image.IsNull()) return;
    for (long y = 0; y < long(dst.GetHeight()); ++y)
        for (long x = 0; x < long(dst.GetWidth()); ++x) {
            const long lx = x - layer.m_x, ly = y - layer.m_y;
            if (lx < 0 || ly < 0 || lx >= long(layer.m_image.GetWidth()) || ly >= long(layer.m_image.GetHeight()))
                continue;
            CPixel& d = *dst.GetBuffer(uint32_t(x), uint32_t(y));
            const CPixel s = layer.m_image.GetPixel2(uint32_t(lx), uint32_t(ly));
            const int a = (s.alpha * layer.m_opacity + 127) / 255;
            for (int k = 0; k < 3; ++k) {   // blue, green, red
                uint8_t& c = (&d.blue)[k];
                const int r = ModeColour(layer.m_blendMode, c, (&s.blue)[k]);
                c = uint8_t(a == 255 ? r : (c * (255 - a) + r * a + 127) / 255);
            }
        }
}

// The whole merge; the destination's alpha is set as the mask flag says, or left from `alphaBefore`.
inline void Merge(const CLayerStack& stack, COLImage& dst, int maskFlag)
{
    const COLImage& base = stack.GetLayer(0)->m_image;
    dst.Create(base.GetWidth(), base.GetHeight());
    for (size_t i = 0; i < base.GetPixelCount(); ++i) {
        const CPixel b = base.GetBuffer()[i];
        dst.GetBuffer()[i] = CPixel{b.blue, b.green, b.red, dst.GetBuffer()[i].alpha};
    }
    for (int i = 1; i < stack.GetLayerCount(); ++i)
        BlendOnto(dst, *stack.GetLayer(i));
    if (maskFlag != 1) return;
    const COLChannel& mask = stack.GetSelectionMask();
    for (size_t i = 0; i < dst.GetPixelCount(); ++i)
        dst.GetBuffer()[i].alpha = mask.IsNull() ? 0 : mask.GetBuffer()[i];
}

// The preview merge step by step as described: sample, draw the base on white, blend with shifts. Writes that
// would fall outside the preview are skipped.
inline void MergeFast(const CLayerStack& stack, COLImage& dst, int left, int top, int right, int bottom, int step)
{
    const COLImage& base = stack.GetLayer(0)->m_image;
    const int W = int(base.GetWidth()), H = int(base.GetHeight());
    left = std::clamp(left, 0, W), right = std::clamp(right, 0, W);
    top = std::clamp(top, 0, H), bottom = std::clamp(bottom, 0, H);
    const int rw = right - left, rh = bottom - top;
    int ow = rw / step + 1, oh = rh / step + 1;
    if (oh * step + top > H) --oh;
    if (ow * step + left > W) --ow;
    dst.Create(uint32_t(ow), uint32_t(oh));
    for (int j = 0; j < oh; ++j)
        for (int i = 0; i < ow; ++i) {
            CPixel p = base.GetPixel2(uint32_t(left + i * step), uint32_t(top + j * step));
            if (p.alpha != 255) {
                for (int k = 0; k < 3; ++k)
                    (&p.blue)[k] = uint8_t((((&p.blue)[k] - 255) * p.alpha + 65025) >> 8);
                p.alpha = 255;
            }
            dst.PutPixel(uint32_t(i), uint32_t(j), p);
        }
    for (int k = 1; k < stack.GetLayerCount(); ++k) {
        const CLayer& layer = *stack.GetLayer(k);
        if (!layer.m_visible) continue;
        const int l = layer.m_x - left, t = layer.m_y - top;
        const int sx = std::max(l, 0), sy = std::max(t, 0);
        const int ex = std::min({l + int(layer.m_image.GetWidth()), rw, ow * step + sx});
        const int ey = std::min({t + int(layer.m_image.GetHeight()), rh, oh * step + sy});
        for (int y = sy; y < ey; y += step)
            for (int x = sx; x < ex; x += step) {
                if (x / step >= ow || y / step >= oh) continue;
                CPixel& d = *dst.GetBuffer(uint32_t(x / step), uint32_t(y / step));
                const CPixel s = layer.m_image.GetPixel2(uint32_t(x - l), uint32_t(y - t));
                const int a = (s.alpha * layer.m_opacity + 127) >> 8;
                for (int k = 0; k < 3; ++k) {   // blue, green, red
                    uint8_t& c = (&d.blue)[k];
                    c = uint8_t((ModeColour(layer.m_blendMode, c, (&s.blue)[k]) * a + c * (255 - a)) >> 8);
                }
            }
    }
}

} // namespace reftest
