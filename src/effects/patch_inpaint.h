#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "matting/image_process.h"

// Returned by CPatchInpaintProcess when the hole cannot be filled: a mask of another size, a fully transparent
// pixel, a hole larger than a fifth of the picture, or a tile for which no sample was found.
inline constexpr long kInpaintNoSample = 13;

// What an inpaint run is given.
struct InpaintParams {
    // The hole: bytes above 127. Only read; the softening of the feather works on a private copy, so the
    // document's selection is never changed by a run.
    const COLChannel* mask = nullptr;
    int32_t blockSize = 8;   // tile edge, kMinBlockSize..kMaxBlockSize; EstimateBlockSize measures it
    int32_t reserved0 = 0;   // kept for the record's layout, never read
    int32_t reserved1 = 1;   // likewise
    int32_t featherMask = 1; // soften the transition between the filled hole and the picture around it
    // 0: the editor's fill (below). 1: the classic arithmetic, byte for byte: the softened mask blends the samples
    // with what the hole held before, an exact match (cost 0) never counts, the padded border is black picture.
    int32_t exact = 0;
};

// Greedy block quilting. The hole's bounding box is cut into square tiles of blockSize; tiles with the most known
// pixels around them go first; each tile's neighbourhood (the tile grown by a seam of `overlap` pixels) is matched
// against every fully known square within four tile edges by the sum of absolute colour differences, at full
// size for small blocks and on a grid of 2 or 3 pixels (pictures shrunk by the same factor) for larger ones; the
// best square is pasted over the tile through a weight map that ramps across the seam. What was pasted counts as
// known picture from then on. A hole too close to the picture's edge runs on a copy padded by blockSize.
//
// The editor's fill (exact 0) differs from the classic one where the classic one shows the user the removed
// object again or refuses easy holes:
// - the tiles cover the whole bounding box (the classic grid can leave its last row and column out);
// - the hole is the hard mask: a hole pixel takes its first sample whole, so nothing of the old content
//   survives inside the hole, and later samples blend over earlier ones along the seams;
// - with featherMask, pixels just outside the hole take the samples that reach over them into a separate
//   picture, which is then blended over the original with a weight that falls from 255 at the hole's border to 0
//   (twice the mask blurred at sigma blockSize / 6): the transition lies wholly outside the hole, and nothing
//   outside the hole and that rim changes;
// - an exact match (cost 0) is the best match there is: it is taken at once, so a speck on a flat sky fills;
// - the padded border of a hole near the edge is not picture: it is neither sampled nor compared.
//
// The candidate search is split across cores: the winner is the first square in scan order among those of least
// cost, which each part finds on its own (its early exits only skip squares that cannot win), so the bytes do
// not depend on the split or on the instruction set.
class CPatchInpaintProcess : public CImageProcess {
public:
    static constexpr int32_t kMinBlockSize = 8;
    static constexpr int32_t kMaxBlockSize = 64;

    // One tile of the hole's box: right and bottom exclusive.
    struct InpaintTile {
        int32_t left = 0, top = 0, right = 0, bottom = 0;
        int32_t done = 0;
        int32_t score = 0;
    };

    // The tile edge for a hole: grows with the hole's thickness, 8..63. Blurs the hard mask at sigma 8 and looks
    // for a byte of 230 or more; doubles the sigma while there is one (up to 64), then bisects between the last
    // two sigmas. A blur that fails answers the sigma reached.
    static int32_t EstimateBlockSize(const COLChannel& mask);

    // params points to InpaintParams. kOk (an empty mask gives a copy of the source), kInpaintNoSample, or kFail
    // (missing or identical images, a block size out of range, memory, or a failed padded run). The source is
    // only read. Progress: 1 once checked, 5 when the tiles are ready, then after each tile; the cancel request
    // is looked at after each tile and leaves what has been filled.
    long Process(const void* params) override;

    const std::vector<InpaintTile>& GetTiles() const { return m_tiles; }
    int32_t GetSampleStep() const { return m_sampleStep; }
    int32_t GetOverlap() const { return m_overlap; }

private:
    long Run(const InpaintParams& params);
    long RunPadded(const InpaintParams& params);
    bool BuildMaps(const COLChannel& mask);
    bool BuildTiles();
    int PickTile(bool update);
    long FillLoop();
    bool FillTile(const InpaintTile& tile);
    bool FindSample(const InpaintTile& tile, int32_t& bestX, int32_t& bestY);
    void Paste(const InpaintTile& tile, int32_t bx, int32_t by);
    void BlendRim();
    bool CancelRequested();

    InpaintParams m_params;
    int32_t m_holeLeft = 0, m_holeTop = 0, m_holeRight = 0, m_holeBottom = 0;
    int32_t m_holeCount = 0;
    int32_t m_overlap = 0;
    int32_t m_templateSize = 0;
    int32_t m_sampleStep = 1;
    COLChannel m_workMask;   // the mask the run pastes through: softened (classic) or the hard mask
    COLChannel m_softMask;   // the blurred mask, for the rim of the editor's fill
    COLChannel m_knownMap;   // 255 where a pixel may serve as a sample
    COLChannel m_holeMap;    // 255 in the hole as it was at the start
    COLChannel m_ringMap;    // 255 on known pixels near the hole and on everything pasted
    COLChannel m_featherMap; // paste weights, templateSize x templateSize
    COLChannel m_rimMap;     // editor's fill: 255 where the rim picture holds a sample
    COLImage m_rimImage;     // editor's fill: samples that reached over the rim
    std::vector<InpaintTile> m_tiles;
    COLImage m_template;
    COLImage m_coarseTemplate;
    COLImage m_coarseSource;
    std::vector<uint32_t> m_unknownSums; // summed-area table of unfilled pixels over one tile's search area
    // In a padded run of the editor's fill: the width of the border that is not picture.
    int32_t m_border = 0;
    // In a padded run: the run that started it, whose cancel request counts too.
    CPatchInpaintProcess* m_pOuter = nullptr;
};
