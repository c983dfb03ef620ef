#pragma once

#include <cstdint>

#include "imaging/pixel.h"
#include "imaging/rect.h"

class COLImage;
class CLayer;
class CLayerStack;

// Blend modes as stored in a layer. Only darken, lighten, multiply, screen and difference have formulas of their
// own; every other value blends as normal.
enum : uint8_t {
    kBlendNormal = 0,
    kBlendDarken = 1,
    kBlendLighten = 2,
    kBlendColor = 3,
    kBlendLuminosity = 4,
    kBlendMultiply = 5,
    kBlendScreen = 6,
    kBlendOverlay = 7,
    kBlendHardLight = 8,
    kBlendSoftLight = 9,
    kBlendDifference = 10,
};

// String key of a mode's label; modes without a formula of their own are named "bm_normal".
const char* BlendModeKey(int mode);

// d is the pixel below, s the layer's pixel. Modes that blend as normal copy all four bytes of s to out; the
// others write the three colours and leave out's alpha alone. Alpha plays no part in the formula.
void BlendPixel(CPixel d, CPixel s, CPixel* out, int mode);

// Blends a visible layer onto the destination at its position with its opacity and mode. The destination's
// alpha bytes stay. 0 for a hidden layer, else 1.
int BlendLayer(COLImage* destination, const CLayer* layer);

// Merges the whole stack into destination at the base's size: the base's colours (always opaque, at the
// origin), then each upper layer. With maskFlag 1 the alpha bytes become the selection mask (0 without one);
// with 0 they are left as they were. 0 without layers or when the destination cannot be created.
// Takes no lock: the caller holds the document lock when another thread may change the stack.
int MergeLayers(const CLayerStack* stack, COLImage* destination, int maskFlag);

// Quick preview: samples one pixel in step x step of the rectangle and blends with shifts instead of divisions.
// A rectangle smaller than step frees the destination (result 1). step must be at least 1.
int MergeFast(const CLayerStack* stack, COLImage* destination, CRect rect, int step);

// Exact division by 255 for 0 <= x <= 65535 (the merge never exceeds 255 * 255 + 127): the same multiply and
// shift that the vector path does in 16-bit lanes.
inline uint32_t Div255(uint32_t x)
{
    return (x * 0x8081u) >> 23;
}

// The compositor uses the vector level of vmsimd::CurrentLevel() and the threads of vmpar::ParallelFor; results
// are the same at every level and split (vmsimd::LimitLevel and vmpar::SetWorkerCount choose them in tests).
