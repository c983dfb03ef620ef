#pragma once

#include <cstdint>

#include "matting/image_process.h"

// Refined matte: alpha and subject colour of an unknown band from a trimap, for edges that the contour method's
// straight-line projection gets wrong (hair, fur, motion blur, semi-transparent cloth).
//
// Alpha minimises the closed-form matting energy (the colour-line model: in every 3 x 3 window alpha is an affine
// function of the colour) over the band, with the known pixels as boundary values and a weak pull towards the
// projection of each pixel between its nearest known subject and background colours. The sparse system is solved
// by conjugate gradients on the band only, started from a solution at half size when the band is large, so work
// and memory follow the band's size, not the picture's. Then each band pixel's subject and background colours are
// solved together (compositing equation plus smoothness along the band), so band pixels carry the subject's colour
// rather than the old background's.
//
// Trimap values: 0 sure background, 255 sure subject, anything else unknown. The result is the same bytes at
// every thread count: the parallel passes write disjoint pixels, the solver runs in one fixed order.

struct RefinedMatteParams {
    // Process only (SolveRefinedMatte takes it directly): the trimap, the source's size.
    const COLChannel* trimap = nullptr;
    // Process only: 1 writes the estimated subject colour into band pixels of the result, 0 keeps the source's.
    int32_t decontaminate = 1;
    // Regularisation of the colour-line model (1e-9..1e-2, colours on a 0..1 scale). Larger values give softer,
    // smoother alpha; smaller ones follow fine detail (and noise) more closely.
    double epsilon = 1e-7;
    // Where the conjugate gradients stop on each level: the relative residual (0..1, exclusive), and at most this
    // many iterations (whole chunks of 50). A caller that solves many narrow bands can trade a little precision
    // for time; the defaults give the documented figures.
    double tolerance = 1e-4;
    int32_t iterationCap = 1500;
    // 1 spreads the conjugate gradients over the cores (sums in fixed blocks, so still the same bytes at every
    // thread count) and runs them without the default solver's restart every 50 iterations. The answer agrees
    // with the default within the stop's tolerance but not to the byte, so the default (0) keeps the documented
    // figures; a caller with a large band that wants the time back sets it.
    int32_t splitSolve = 0;
    // Jacobi sweeps of the band's colour estimate (at least 1). A caller that leans on the estimate only where
    // alpha is small can take fewer; the default gives the documented figures.
    int32_t colourSweeps = 60;
};

// The engine for the worker thread. Image mode: the destination becomes the source with the new alpha, its band
// colours decontaminated unless switched off. Progress 0..100 in the caller's range; a cancel request stops the run
// with kFail and leaves the destination as it was. Answers kFail on a missing or mis-sized trimap, an empty source
// and when memory runs out.
class CRefinedMatteProcess : public CImageProcess {
public:
    long Process(const void* params) override;
};

// The same solve for other engines. alpha is (re)created at the source's size. foreground, if not null, is
// (re)created and receives the source with estimated subject colours in the band and the new alpha. When owner is
// given, progress goes through its ReportProgress (so its range applies) and its cancel flag is polled; otherwise
// progress, if set, gets code 1 with 0..100.
long SolveRefinedMatte(const COLImage& src, const COLChannel& trimap, COLChannel& alpha, COLImage* foreground,
                       const RefinedMatteParams& params, ProgressCallback progress = {},
                       CImageProcess* owner = nullptr);

namespace refinedmatte {

// The simple estimate the solver starts from, kept public as a baseline for evaluation: each band pixel's alpha
// is its colour projected on the line between the nearest known subject and background colours (nearest along
// the band, 8-connected). Same contract as SolveRefinedMatte for alpha; no colour estimate.
long NearestColourAlpha(const COLImage& src, const COLChannel& trimap, COLChannel& alpha);

} // namespace refinedmatte
