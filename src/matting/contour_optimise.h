#pragma once

#include <cstdint>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "matting/segment.h"

// Snapping of a roughly drawn inner and outer contour to the edges of the picture: the picture is segmented, and
// a region that the inner contour touches while lying wholly inside the outer one joins the inner plane; a
// region that lies partly outside the outer contour and nowhere touches the inner one leaves the outer plane.
// Regions that touch both, or neither, stay as drawn. Then the inner plane shrinks by one pixel and the outer
// plane grows by one, so the band between them keeps the boundary pixels. Only the two planes change.
class CContourOptimiser {
public:
    // The detail the panel's button segments with; a direct call without a record uses the engine's default.
    static constexpr int32_t kPanelDetail = 50;

    // Both planes there and holding data: the only state in which the button is offered.
    static bool CanOptimise(const COLChannel* inner, const COLChannel* outer);

    // Readies a run of the segmentation of source into the label image; the caller starts GetProcess() on the
    // worker with a record holding kPanelDetail and calls Finish on completion. kFail when there is nothing to do.
    long Prepare(COLImage* source, const COLChannel* inner, const COLChannel* outer);
    CSegmentProcess& GetProcess() { return m_segment; }
    const COLImage& GetLabels() const { return m_labels; }

    // The second half, after the segmentation: nothing unless it succeeded and both planes are still there.
    long Finish(long segmentResult, COLChannel* inner, COLChannel* outer);

    // Flag and snap by a finished label image (labels above regionCount are ignored), then shrink the inner and
    // grow the outer plane by one pixel. kFail for planes of another size (nothing changed) or no memory.
    static long SnapToRegions(const COLImage& labels, uint32_t regionCount, COLChannel& inner, COLChannel& outer);

private:
    CSegmentProcess m_segment;
    COLImage m_labels;
};

// The whole of it run directly, segmenting with detail (null: the engine's default of 10).
long OptimiseContoursNow(COLImage* source, COLChannel* inner, COLChannel* outer, const int32_t* detail = nullptr);
