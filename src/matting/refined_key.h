#pragma once

#include <cstdint>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "matting/chroma_key.h"
#include "matting/image_process.h"

// The refined backdrop key: the classic key's answer where it is sure, a matting solve where it is not.
//
// The classic key decides each pixel on its own from its distance to one backdrop colour. That is exact and fast,
// and clean on a green or blue screen; on a white, gray or black backdrop the distance is a luma difference, so
// every subject colour of about the backdrop's brightness turns partly transparent, a shadow on the backdrop
// stays, and a thin strand is as opaque as its luma step happens to be.
//
// The refined key finds the sure backdrop and the sure subject and solves only the band between them:
// - The backdrop is what can be reached from the picture's border (or from a large patch of backdrop colour)
//   through backdrop-coloured pixels in small colour steps. Its colour may vary along the way (uneven light, a
//   shadow: the same colour scaled darker), but it never crosses the subject's edge, whose step is large. The
//   backdrop's local colour then corrects it: pixels that differ from it by more than noise leave (strands),
//   unreached pixels that match it join (backdrop between strands).
// - Sure subject lies beyond a few pixels from the backdrop; everything between is the band, and on a colourful
//   backdrop so is what the classic key leaves below opaque close to the backdrop.
// - The band's alpha comes from the refined matting solver (closed-form colour-line model, coarse to fine, see
//   refined_matte.h); its colour from the compositing equation with the backdrop's local colour, leaning on the
//   solver's colour estimate where alpha is small. So the cut-out's edge carries no backdrop tint (spill on a
//   green screen, a light or dark fringe on white, gray and black ones).
//
// The work follows the band, not the picture: on a 12-megapixel photo the band is a few per cent of the pixels.
// The result is the same bytes at every thread count.

// Tuning of the refined key. The defaults suit photos; the tests and the evaluation use them as they stand.
struct RefinedKeyOptions {
    // Half-width in pixels of the band left to the solver on the subject's side of the backdrop (1..80).
    int32_t bandRadius = 3;
    // Regularisation of the colour-line model and the solver's stop (see RefinedMatteParams). The band of a key
    // is narrow and its sure backdrop close, so a looser stop than the solver's default loses nothing measurable
    // on the evaluation set and saves most of the iterations.
    double epsilon = 1e-7;
    double tolerance = 3e-3;
    int32_t iterationCap = 150;
    // Sweeps of the solver's colour estimate. The key's own colour step decides where alpha is large and leans on
    // the estimate only where it is small; there a few sweeps from the nearest subject colour keep the colour
    // closer to the subject's than the solver's default of 60, which smooths it along the band.
    int32_t colourSweeps = 20;
};

// Runs on the worker like every engine. Process takes the key's settings (const ChromaKeySettings*: the
// record, whose backdrop colour the caller has set); neither the `refine` field nor the luma strength (which
// steers only the classic key's gray path) has an effect here. On a colourful backdrop the record's strength and
// JPEG chroma smoothing steer the classic run; its levels, feather and shadow pass do not apply to the result
// (the alpha is solved, not thresholded), and colour is always recovered. The destination gets the source's
// pixels with the new alpha; band pixels carry the estimated subject colour, pixels of alpha 0 are 0 in all four
// bytes. Progress 0..100 in the caller's range; a cancel request ends the run with kFail. Returns kOk or kFail
// (bad input, cancel, out of memory); on failure the destination is as it was.
class CRefinedKeyProcess : public CImageProcess {
public:
    long Process(const void* params) override;

    void SetOptions(const RefinedKeyOptions& options) { m_options = options; }

    // The trimap of the last run (0 backdrop, 255 subject, 128 band) and whether the classic key took the hue
    // path; for the tests and for a panel that wants to show the band.
    const COLChannel& GetTrimap() const { return m_trimap; }
    bool WasChromatic() const { return m_chromatic; }

private:
    long Run(const ChromaKeySettings& settings);

    RefinedKeyOptions m_options;
    COLChannel m_trimap;
    bool m_chromatic = false;
};

// The classic key or the refined one, as settings.refine asks: the one entry for the CLI, the batch and the
// panel. The process runs directly on the calling thread with the given progress callback and range.
long RunBackdropKey(const ChromaKeySettings& settings, COLImage& source, COLImage& result,
                    ProgressCallback progress = {}, bool* chromatic = nullptr);
