#pragma once

#include <cstddef>
#include <cstdint>

#include "matting/image_process.h"

// Target size of a bicubic scaling run.
struct BicubicScaleParams {
    uint32_t width;
    uint32_t height;
};

// Separable scaling with the Mitchell-Netravali family of cubic filters. Each pass works on whole lines: the
// vertical pass blends source rows, the horizontal one runs the same line code on the transposed picture. Taps
// are merged two lines at a time with an 8-bit ratio, positive and negative lobes apart, and the two merged lines
// are combined in floating point at the end; those truncations are part of the result. Alpha is filtered like
// colour. The filter is chosen by the width alone: a narrower target takes the sharper reduction filter.
class CBicubicScaleProcess : public CImageProcess {
public:
    // kOk, or kFail when an input is missing, a side is 0 or above the picture limit, or memory runs out.
    // A target of the source's own size gives a copy of the source.
    long Process(const void* params) override;
};

namespace vmscale {

// The two filter parameters of a run.
struct CubicFilter {
    float b;
    float c;
};
CubicFilter ChooseFilter(uint32_t sourceWidth, uint32_t targetWidth);

// The cubic weight of a tap at distance x (in filter units): the unnormalised Mitchell-Netravali polynomial.
float CubicWeight(float x, const CubicFilter& filter);

// Scales dstLines lines of lineBytes bytes from srcLines lines: the building block of both passes.
// False when memory runs out.
bool ScaleLines(uint8_t* dst, const uint8_t* src, size_t lineBytes, uint32_t srcLines, uint32_t dstLines,
                const CubicFilter& filter);

// dst (height x width pixels) becomes the transpose of src (width x height pixels).
void Transpose(const uint32_t* src, uint32_t* dst, uint32_t width, uint32_t height);

} // namespace vmscale
