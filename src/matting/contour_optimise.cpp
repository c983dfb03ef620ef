#include "matting/contour_optimise.h"

#include <algorithm>
#include <vector>

namespace {

// Each pixel becomes the maximum (grow) or minimum (shrink) of the 3 x 3 square around it, clipped to the plane:
// a one-pixel expand or shrink of a selection plane, square corners included.
bool ExpandByOne(const COLChannel& src, COLChannel& dst, bool grow)
{
    const uint32_t w = src.GetWidth(), h = src.GetHeight();
    if (dst.Create(w, h) != kOk) return false;
    for (uint32_t y = 0; y < h; ++y) {
        const uint32_t ya = y > 0 ? y - 1 : 0, yb = std::min(y + 1, h - 1);
        uint8_t* out = dst.GetBuffer(0, y);
        for (uint32_t x = 0; x < w; ++x) {
            const uint32_t xa = x > 0 ? x - 1 : 0, xb = std::min(x + 1, w - 1);
            uint8_t v = src.GetValue(x, y);
            for (uint32_t yy = ya; yy <= yb; ++yy)
                for (uint32_t xx = xa; xx <= xb; ++xx) v = grow ? std::max(v, src.GetValue(xx, yy)) : std::min(v, src.GetValue(xx, yy));
            out[x] = v;
        }
    }
    return true;
}

} // namespace

bool CContourOptimiser::CanOptimise(const COLChannel* inner, const COLChannel* outer)
{
    return inner && outer && !inner->IsNull() && !outer->IsNull() && !inner->IsAllZero() && !outer->IsAllZero();
}

long CContourOptimiser::Prepare(COLImage* source, const COLChannel* inner, const COLChannel* outer)
{
    if (!source || source->IsNull() || !CanOptimise(inner, outer)) return kFail;
    m_segment.SetImages(source, &m_labels);
    return kOk;
}

long CContourOptimiser::Finish(long segmentResult, COLChannel* inner, COLChannel* outer)
{
    if (segmentResult != kOk || !inner || !outer || inner->IsNull() || outer->IsNull()) return kFail;
    return SnapToRegions(m_labels, m_segment.GetRegionCount(), *inner, *outer);
}

long CContourOptimiser::SnapToRegions(const COLImage& labels, uint32_t regionCount, COLChannel& inner,
                                      COLChannel& outer)
{
    const uint32_t w = labels.GetWidth(), h = labels.GetHeight();
    if (labels.IsNull() || inner.GetWidth() != w || inner.GetHeight() != h || outer.GetWidth() != w ||
        outer.GetHeight() != h)
        return kFail;
    const size_t n = size_t(w) * h;
    const CPixel* l = labels.GetBuffer();
    uint8_t* in = inner.GetBuffer();
    uint8_t* out = outer.GetBuffer();
    // Bit 1: the region touches the inner contour. Bit 2: some of it lies outside the outer contour.
    std::vector<uint8_t> flags(size_t(regionCount) + 1, 0);
    for (size_t i = 0; i < n; ++i) {
        const uint32_t label = CSegmentProcess::Label(l[i]);
        if (label == 0 || label > regionCount) continue;
        if (in[i]) flags[label] |= 1;
        if (!out[i]) flags[label] |= 2;
    }
    for (size_t i = 0; i < n; ++i) {
        const uint32_t label = CSegmentProcess::Label(l[i]);
        if (label == 0 || label > regionCount) continue;
        if (flags[label] == 1) in[i] = 255;
        if (flags[label] == 2) out[i] = 0;
    }
    COLChannel temp;
    if (!ExpandByOne(inner, temp, false) || !inner.DuplicateFrom(&temp)) return kFail;
    if (!ExpandByOne(outer, temp, true) || !outer.DuplicateFrom(&temp)) return kFail;
    return kOk;
}

long OptimiseContoursNow(COLImage* source, COLChannel* inner, COLChannel* outer, const int32_t* detail)
{
    CContourOptimiser optimiser;
    if (optimiser.Prepare(source, inner, outer) != kOk) return kFail;
    const long r = optimiser.GetProcess().Process(detail);
    return optimiser.Finish(r, inner, outer);
}
