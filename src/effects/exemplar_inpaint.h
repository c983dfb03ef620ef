#pragma once

#include <cstdint>

#include "matting/image_process.h"

// Structure-aware fill: removes a masked region and rebuilds it from patches of the rest of the picture, carrying
// straight edges and large shapes across the hole where block quilting breaks them.
//
// The method, coarse to fine over a pyramid of the hole's surroundings:
// 1. The coarsest level (where the hole is about half a patch thick; a thin scratch is filled at full size) gets a
//    first guess that blends two fills, mostly the second: patch by patch in the order of a priority, confidence x
//    data term (pixels on the hole's front whose patch is mostly known and that lie where an isophote, a line of
//    equal brightness, runs into the hole go first, so edges are continued before flat areas close over them), and
//    a smooth fill peeled from the rim inwards. Where the two agree the guess keeps the structure; where a patch was
//    a poor pick, the smooth share keeps it from being carried on.
// 2. Every level then alternates, a few rounds each, a nearest-neighbour field (for each patch that touches the
//    hole, the best wholly known patch) refined with PatchMatch (propagation from neighbours and random search at
//    halving radii) and a vote: each hole pixel becomes the mean of all overlapping patches' proposals, weighted by
//    how well each patch matches and by how close its centre lies to the known picture (kConfidenceBase per
//    pixel). Where the proposals agree the structure stays sharp; where they do not, the vote averages. The field
//    is carried to the next finer level by doubling its offsets.
// 3. At full size the fine detail fades, with depth into the hole, towards a low-pass of the fill: nothing pins the
//    phase of a texture far from the rim, and there the mean is a better guess than any one copy.
// 4. Near the rim the luma is extrapolated from the rim's own frequencies (frequency_extrapolation.h), block by
//    block and pass by pass inwards, and replaces the fill's on the outer rings, with a share that falls to a
//    quarter deeper in: a fine texture carries on in phase where the vote, averaging several patches, drifts.
// 5. The vote also runs on the known pixels that touch the hole (kSeamWidth, chessboard distance 1), and each of
//    them becomes the mean of itself and the vote, so that a small colour step at the rim fades out.
//
// Only pixels of the hole and of that seam band change; alpha never changes. The work is confined to the hole's
// box grown by half its larger side (at least kMinMargin pixels), which is also where patches are taken from.
// Runs are reproducible: the random choices come from a hash of the seed and the pixel, and the parallel passes
// work on bands of fixed height, so the bytes do not depend on the number of threads.

struct ExemplarInpaintParams {
    // The hole: a plane of the source's size, a byte above 127 marks a pixel to rebuild. Read only.
    const COLChannel* mask = nullptr;
    // Patch side is 2 x patchRadius + 1 (1..6). Larger patches keep larger structures, smaller ones fit thin holes;
    // the time grows with the patch's area.
    int32_t patchRadius = 4;
    // Seed of the random search; the same seed gives the same bytes.
    uint32_t seed = 1;
};

// Result when the hole cannot be filled: mask and source of different sizes, a hole above a fifth of the picture
// (the same limit as block quilting), or no known patch to copy from.
inline constexpr long kExemplarCannotFill = 13;

// The engine for the worker thread. Image mode: the destination becomes the source with the hole rebuilt (it may be
// the source itself). kOk (an empty mask gives a plain copy), kExemplarCannotFill as above, kFail when source or
// destination are missing, memory runs out or a cancel was requested; on any failure the destination is left as it
// was. Progress 0..100 in the caller's range; the cancel flag is polled between passes.
class CExemplarInpaintProcess : public CImageProcess {
public:
    static constexpr int kSeamWidth = 1;
    static constexpr int kMinMargin = 48;
    static constexpr int kMaxPatchRadius = 6;

    long Process(const void* params) override;
    // True when the last run stopped on a cancel request rather than on a fault.
    bool WasCancelled() const { return m_cancelled; }

private:
    bool m_cancelled = false;
};

// The same fill for other engines and the command line: dst is (re)created at the source's size. When owner is
// given, progress goes through its ReportProgress and its cancel flag is polled.
long ExemplarInpaint(const COLImage& src, const COLChannel& mask, COLImage& dst, const ExemplarInpaintParams& params,
                     CImageProcess* owner = nullptr, bool* cancelled = nullptr);
