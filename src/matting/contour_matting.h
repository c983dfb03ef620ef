#pragma once

#include <cstdint>

#include "matting/image_process.h"

// Record of CContourMattingProcess::Process. Both planes have the source's size. innerPlane: not 0 where the
// subject surely is. outerPlane: not 0 inside the outer contour; the run inverts it in place, so the caller hands
// over a plane it can spare (or restores it). The two reserved words are copied and not read.
struct ContourMattingParams {
    COLChannel* innerPlane = nullptr;
    COLChannel* outerPlane = nullptr;
    uint32_t reserved0 = 0;
    uint32_t reserved1 = 0;
};

// Inner-outer contour matting: the colours of the sure subject and of the sure background are grown across the
// unknown band between the two contours by repeated normalised blurring (every blur through CGaussianProcess),
// and each band pixel's alpha is its position between the two grown colours. The destination becomes the
// source's colours with the new alpha: 255 inside the inner contour, fully clear (all four bytes 0) outside the
// outer one. The first plane given by AddChannel, if any, is the doubt plane: zeroed before the solve, and it
// receives the alpha of every band pixel whose colour fell off the line between the two grown colours.
// Progress: 2, 10, 15..50 (subject colours), 50..80 (background colours), 80..100 (solve). No cancel points.
class CContourMattingProcess : public CImageProcess {
public:
    // Why the last run failed, for messages; kNone after a success.
    enum class Failure { kNone, kBadInput, kNoBand, kStalled, kNoMemory };

    long Process(const void* params) override;

    Failure GetFailure() const { return m_failure; }
    // Growing steps the last run took for the subject and the background colours.
    int GetGrowSteps(int which) const { return m_growSteps[which & 1]; }

    // The distances of a run: sigma of each growing step (side / 140, side = sqrt(width * height)) and how far
    // the walk may go (side / 2).
    static double GrowSigma(uint32_t width, uint32_t height);
    static double GrowLimit(uint32_t width, uint32_t height);

    // The two growing passes and the solve, public so that tests and tools can run them one by one. known and
    // other are the two planes of the run (other only counts the band); the result is a colour for every pixel
    // growing reached, 0 elsewhere.
    long GrowColours(const COLChannel& known, const COLChannel& other, COLImage& result, int progressBase,
                     int progressSpan, int which);
    void SolveAlpha();

    COLImage foreground;   // grown subject colours, during a run
    COLImage background;   // grown background colours, during a run

private:
    ContourMattingParams m_params;
    Failure m_failure = Failure::kNone;
    int m_growSteps[2] = {0, 0};
};
