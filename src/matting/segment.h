#pragma once

#include <cstdint>
#include <vector>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "matting/image_process.h"

// One region of a segmentation; its label is its index plus 1.
struct SegmentRegion {
    static constexpr int kMaxNeighbours = 5;
    uint32_t id = 0;          // the label
    uint32_t seedLevel = 0;   // gradient level at which it began
    int32_t size = 0;         // pixel count
    uint8_t neighbourCount = 0;
    uint32_t neighbours[kMaxNeighbours] = {};   // labels
    uint32_t edgeLength[kMaxNeighbours] = {};   // boundary pixels counted per neighbour
    uint32_t edgeSum[kMaxNeighbours] = {};      // gradient summed over them
    int32_t mergedInto = 0;                     // 0, or the label it was merged into
};

// Watershed segmentation. The picture is blurred (sigma max(width, height) / (detail * 20)), a colour gradient of
// the blurred picture is taken, and pixels are then taken in order of rising gradient: the low basins (gradient
// below 8, and up to the level below which a tenth of the picture lies) become regions, regions grow level by
// level into the pixels nearest to them in gray, and finally small or weakly bounded regions merge into their
// neighbours. Pictures with a side above 800 are segmented at 800 first and the labels carried up; the band
// where small labels meet is grown at full size.
//
// params: a pointer to one int32, the detail (at least 1); null means 10. The destination is the label image:
// the low 24 bits of each pixel hold its region's label (0: none), the alpha byte its gradient (255 on the
// border). Cancel is polled between levels and makes the run fail.
class CSegmentProcess : public CImageProcess {
public:
    static constexpr int32_t kDefaultDetail = 10;
    static constexpr uint32_t kCoarseSide = 800;
    static constexpr size_t kQueueLimit = 20000;

    long Process(const void* params) override;

    uint32_t GetRegionCount() const { return uint32_t(regions.size()); }
    static uint32_t Label(const CPixel& p) { return p.Word() & 0xFFFFFFu; }

    // Moves the pixels of merged regions to the end of their chain of merges. A link is followed only when it
    // names a label from 1 to below the region count, at every link of the chain.
    static void ApplyMerges(const std::vector<SegmentRegion>& regions, COLImage& labels);

    std::vector<SegmentRegion> regions;
    int32_t level = 0;
    int32_t seedEnd = 0;
    int32_t histogram[256] = {};
    COLChannel gray;   // (3R + 6G + B) / 10 of the source, which growing compares
    COLImage smooth;   // the blurred source the gradient is taken from
    uint32_t isChild = 0;
    int32_t detail = 50;

private:
    bool BuildGradient();
    void SeedBasins();
    void SeedRemaining();
    void FloodRegion(uint32_t index);
    void Grow();
    bool Adopt(uint32_t index);
    long SegmentCoarse(uint32_t smallWidth, uint32_t smallHeight);
    void BuildAdjacency();
    void AddNeighbour(uint32_t label, uint32_t other, uint32_t gradient);
    void MergeRegions();
    void Merge(uint32_t index, uint32_t label);
    void Relabel();

    // Pixels waiting for a label, by gradient: the candidates of a level are the unlabelled pixels below it.
    void IndexUnlabelled();
    void RaiseLevel();

    uint32_t* m_labels = nullptr;   // the destination as words
    uint32_t m_width = 0, m_height = 0;
    std::vector<uint32_t> m_byGradient;   // unlabelled pixels, gradient major, scan order within
    uint32_t m_gradientStart[257] = {};
    std::vector<uint32_t> m_pending;   // unlabelled pixels below the level, scan order (labelled ones dropped lazily)
    std::vector<uint32_t> m_merged;
    std::vector<uint32_t> m_queue, m_nextQueue;
    std::vector<uint32_t> m_stack;
};
