#pragma once

#include <cstdint>

#include "imaging/channel.h"
#include "imaging/image.h"

// Fill and stroke of a selection: the pixels of the temporary layer that is merged onto the current layer, and
// the settings of the two dialogs.

// The fill dialog: a colour (alpha 255 once chosen in the colour dialog) and an opacity 0..100 percent.
struct FillSettings {
    static constexpr int32_t kMinOpacity = 0;
    static constexpr int32_t kMaxOpacity = 100;
    uint32_t colour = 0xFF000000; // a CPixel word
    int32_t opacity = 100;

    static bool IsValid(const FillSettings& s) { return s.opacity >= kMinOpacity && s.opacity <= kMaxOpacity; }
    // The text beside the slider: "%d%%".
    static void OpacityText(int32_t opacity, char (&text)[16]);
};

// The stroke dialog: width 1..16 pixels, opacity 1..100 percent, a colour.
struct StrokeSettings {
    static constexpr int32_t kMinWidth = 1;
    static constexpr int32_t kMaxWidth = 16;
    static constexpr int32_t kMinOpacity = 1;
    static constexpr int32_t kMaxOpacity = 100;
    uint32_t colour = 0xFF000000;
    int32_t opacity = 100;
    int32_t width = 1;

    static bool IsValid(const StrokeSettings& s)
    {
        return s.width >= kMinWidth && s.width <= kMaxWidth && s.opacity >= kMinOpacity && s.opacity <= kMaxOpacity;
    }
};

// The fill layer: where the mask byte m is not 0, the colour with alpha opacity x m / 100, truncated; other pixels
// stay as they are (a new layer is transparent). layer and mask have one size; false otherwise.
bool PaintFillLayer(COLImage& layer, const COLChannel& mask, uint32_t colour, int32_t opacity);

// The stroke layer: every pixel gets the colour with alpha opacity x a / 100, truncated, where a = e - m (at least
// 0), e the byte of the expanded mask and m that of the mask: a band wholly outside the selection, as soft on
// its inner edge as the selection is. All three have one size; false otherwise.
bool PaintStrokeLayer(COLImage& layer, const COLChannel& mask, const COLChannel& expanded, uint32_t colour,
                      int32_t opacity);
