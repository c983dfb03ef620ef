#pragma once

#include <cstdint>

#include "matting/image_process.h"

// Operations that change a selection plane as a whole: expand and shrink by a square window, the feather of
// composition (a Gaussian of the whole plane) and the feather of selection mode (with its optional one-pixel
// shrink and its protection of fine detail), and the limits of the dialogs that set them.

// Expand (amount above 0) or shrink (amount 0 or below, by its absolute value). Each result byte is the maximum
// (expand) or minimum (shrink) of the source bytes in the square of side 2r + 1 around it, clipped to the plane:
// there is no disc, so a hard-edged shape grows with square corners, and the border of the plane does not count
// as unselected, so a selection touching an edge does not shrink from it.
//
// params: a pointer to one int32, the amount. Channel mode; source and destination may be one plane. The square's
// maximum is taken as a maximum over rows of a maximum over columns, each a running maximum over blocks of 2r + 1
// (two reads and one comparison per byte whatever r is), split over the runtime pool; the bytes are those of the
// square scan. Cancel is polled once a row and fails the run; progress goes out every 100 rows.
class CExpandProcess : public CImageProcess {
public:
    long ProcessChannel(const void* params) override;

    int32_t GetRadius() const { return m_radius; }
    bool IsExpanding() const { return m_expand; }

private:
    int32_t m_radius = 0;
    bool m_expand = false;
};

// The record of CFeatherProcess, three 32-bit words in this order.
struct FeatherRecord {
    int32_t radius = 1;      // 0..8: the sigma of the blur; 0 blurs nothing
    int32_t keepDetail = 0;  // leave thin structures outside the solid part of the selection as they are
    int32_t shrinkFirst = 0; // shrink by one pixel before the blur
};

// The feather of selection mode, in four steps: T = the source shrunk by one (shrinkFirst) or a copy; the
// result = T blurred at sigma radius (or T itself for radius 0); T = the source blurred at sigma 4; with
// keepDetail, result = ((256 - w) s + w r) >> 8 per pixel, where w is 0 for t up to 64, (t - 64) x 4 up to 127
// and 256 from 128. Channel mode; source and destination must be different planes. kOk or kFail.
class CFeatherProcess : public CImageProcess {
public:
    static constexpr int32_t kMaxRadius = 8;
    long ProcessChannel(const void* params) override;
};

// The feather of composition: the plane blurred by the shared Gaussian at sigma value x 0.5 into a new plane,
// which replaces the plane only when the blur succeeded. kOk or kFail (the plane is then unchanged).
long FeatherPlane(COLChannel& plane, int32_t value, CImageProcess* progressParent = nullptr);

// ---- What the dialogs allow --------------------------------------------------------------------------------

// Expand and shrink: one dialog for both directions; the amount runs 1..32.
struct ExpandSettings {
    static constexpr int32_t kMinAmount = 1;
    static constexpr int32_t kMaxAmount = 32;
    int32_t expand = 1; // 0: the dialog shrinks
    int32_t amount = 1;

    // The amount the spin control leaves: clamped to the range, 0 becoming 1.
    static int32_t ClampAmount(int64_t amount);
    // The record of CExpandProcess: negative when shrinking.
    int32_t ProcessAmount() const { return expand ? amount : -amount; }
    // The string key of the caption and of the history step: "expanddlg" or "selshink".
    const char* CaptionKey() const { return expand ? "expanddlg" : "selshink"; }
};

// The feather of composition: the field takes three digits (1..999), the slider shows 0..256.
struct FeatherSettings {
    static constexpr int32_t kMinValue = 1;
    static constexpr int32_t kMaxValue = 999;
    static constexpr int32_t kSliderMax = 256;
    static constexpr int32_t kSliderPage = 4;
    static constexpr int32_t kSliderTick = 8;
    int32_t value = 8;

    static bool IsValid(int64_t value) { return value >= kMinValue && value <= kMaxValue; }
    // Where the slider stands for a value: at most its end.
    static int32_t SliderPosition(int32_t value) { return value < 0 ? 0 : value > kSliderMax ? kSliderMax : value; }
    double Sigma() const { return value * 0.5; }
};

// The feather of selection mode: radius 0..8 and the two flags.
struct SelFeatherSettings {
    FeatherRecord record;
    static bool IsValid(const FeatherRecord& r) { return r.radius >= 0 && r.radius <= CFeatherProcess::kMaxRadius; }
};
