#pragma once

#include <cstdint>

#include "imaging/pixel.h"
#include "matting/image_process.h"

// A second-order polynomial map from destination to source pixels. Each polynomial P applies its six
// coefficients as P(a, b) = c0 a a + c1 b b + c2 a b + c3 a + c4 b + c5.
struct WarpParams {
    double xCoef[6]; // polynomial for the source x
    double yCoef[6]; // polynomial for the source y
    int32_t width;   // destination size
    int32_t height;
    CPixel fillColour; // outside the source, mode 0
    uint32_t mode;     // 0: normalised destination coordinates; else pixel coordinates plus the origin
    int32_t originX;   // added to x and y in the second mode
    int32_t originY;
};

// Makes a new picture by looking every destination pixel up in the source through the map, blending the four
// neighbours. Mode 0 works on normalised destination coordinates, takes the fill colour outside the source and
// makes an opaque picture. The other mode maps pixel coordinates (plus the origin) into fractions of the source
// size and fades the picture out at the source's edges: a neighbour outside is the nearest edge pixel with alpha 0.
// No progress and no cancel: a warp is one quick pass.
class CWarpProcess : public CImageProcess {
public:
    // kOk; kFail when an input is missing, the size is below 1 or above the picture limit, a coefficient is not
    // a finite number, or the destination cannot be created. The destination may not be the source.
    long Process(const void* params) override;
};

// Evaluates P(a, b) with the coefficients in their order.
double EvaluateWarpPolynomial(const double (&c)[6], double a, double b);
