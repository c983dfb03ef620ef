#pragma once

#include "matting/warp.h"

// The coefficients of the warp for a four-cornered shape. Corners are in the order top-left, top-right,
// bottom-right, bottom-left, in document pixels. Both fits pass through six point pairs: the four corners with
// (u, v) = (0, 0), (1, 0), (1, 1), (0, 1), the midpoint of the top side with (0.5, 0) and the midpoint of the left
// side with (0, 0.5); midpoints are taken in integers, (a + b) / 2.

struct WarpCorner {
    int x = 0;
    int y = 0;
};

// The direct map, for mode 0: the unit square of the result onto the shape, in closed form.
void FitDirectWarp(const WarpCorner (&corners)[4], double (&xCoef)[6], double (&yCoef)[6]);

// The inverse map, for the pixel mode: shape points onto the unit square, solved by Gaussian elimination in the
// order of the six pairs. A pivot of exactly 0 takes the next row below that has a non-zero entry in its column
// (a shape with its first corner on x = 0 would otherwise never fit). False, with the coefficients 0, when the
// six points leave the system singular (a shape that has folded or has no area).
bool FitInverseWarp(const WarpCorner (&corners)[4], double (&uCoef)[6], double (&vCoef)[6]);
