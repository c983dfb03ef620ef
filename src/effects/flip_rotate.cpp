#include "effects/flip_rotate.h"

#include <algorithm>
#include <vector>

#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/channel.h"
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

void FlipChannel(COLChannel& channel, bool horizontal)
{
    if (channel.IsNull()) return;
    const uint32_t w = channel.GetWidth(), h = channel.GetHeight();
    if (horizontal) {
        for (uint32_t y = 0; y < h; ++y)
            std::reverse(channel.GetBuffer(0, y), channel.GetBuffer(0, y) + w);
        return;
    }
    for (uint32_t top = 0, bottom = h ? h - 1 : 0; top < bottom; ++top, --bottom)
        std::swap_ranges(channel.GetBuffer(0, top), channel.GetBuffer(0, top) + w, channel.GetBuffer(0, bottom));
}

int RotateChannelQuarter(const COLChannel& source, COLChannel& destination, bool left)
{
    if (source.IsNull() || &source == &destination) return 0;
    const uint32_t w = source.GetWidth(), h = source.GetHeight();
    if (destination.Create(h, w) != kOk) return 0;
    for (uint32_t r = 0; r < w; ++r) {
        uint8_t* out = destination.GetBuffer(0, r);
        for (uint32_t c = 0; c < h; ++c)
            out[c] = left ? source.GetValue(w - 1 - r, c) : source.GetValue(r, h - 1 - c);
    }
    return 1;
}

namespace {

bool DocumentSized(const COLChannel& c, int w, int h)
{
    return !c.IsNull() && c.GetWidth() == uint32_t(w) && c.GetHeight() == uint32_t(h);
}

} // namespace

int RotateDocument(CLayerStack& stack, bool left)
{
    const int count = stack.GetLayerCount();
    if (count == 0 || stack.GetLayer(0)->m_image.IsNull()) return 0;
    const int W = stack.GetWidth(), H = stack.GetHeight();
    std::vector<COLImage> images(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        const COLImage& image = stack.GetLayer(i)->m_image;
        if (!image.IsNull() && !RotateImageQuarter(image, images[size_t(i)], left)) return 0;
    }
    COLChannel mask;
    if (DocumentSized(stack.GetSelectionMask(), W, H) && !RotateChannelQuarter(stack.GetSelectionMask(), mask, left))
        return 0;
    std::vector<COLChannel> channels(static_cast<size_t>(stack.GetChannelCount()));
    for (int i = 0; i < stack.GetChannelCount(); ++i)
        if (DocumentSized(*stack.GetChannel(i), W, H) &&
            !RotateChannelQuarter(*stack.GetChannel(i), channels[size_t(i)], left))
            return 0;
    {
        CStackLock lock(stack);
        for (int i = 0; i < count; ++i) {
            CLayer* layer = stack.GetLayer(i);
            const int w = int(layer->m_image.GetWidth()), h = int(layer->m_image.GetHeight());
            const int x = layer->m_x, y = layer->m_y;
            // The layer's rectangle turns with the document: clockwise (x, y) goes to (H - y - h, x).
            layer->m_x = left ? y : H - (y + h);
            layer->m_y = left ? W - (x + w) : x;
            if (!images[size_t(i)].IsNull()) layer->m_image = std::move(images[size_t(i)]);
        }
        if (!mask.IsNull()) stack.GetSelectionMask() = std::move(mask);
        for (int i = 0; i < stack.GetChannelCount(); ++i)
            if (!channels[size_t(i)].IsNull()) *stack.GetChannel(i) = std::move(channels[size_t(i)]);
    }
    stack.SetSize(H, W);
    return 1;
}

int FlipDocument(CLayerStack& stack, bool horizontal)
{
    const int count = stack.GetLayerCount();
    if (count == 0 || stack.GetLayer(0)->m_image.IsNull()) return 0;
    const int W = stack.GetWidth(), H = stack.GetHeight();
    CStackLock lock(stack);
    for (int i = 0; i < count; ++i) {
        CLayer* layer = stack.GetLayer(i);
        FlipImage(layer->m_image, horizontal);
        if (horizontal)
            layer->m_x = W - (layer->m_x + int(layer->m_image.GetWidth()));
        else
            layer->m_y = H - (layer->m_y + int(layer->m_image.GetHeight()));
    }
    if (DocumentSized(stack.GetSelectionMask(), W, H)) FlipChannel(stack.GetSelectionMask(), horizontal);
    for (int i = 0; i < stack.GetChannelCount(); ++i)
        if (DocumentSized(*stack.GetChannel(i), W, H)) FlipChannel(*stack.GetChannel(i), horizontal);
    return 1;
}
