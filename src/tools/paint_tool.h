#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "imaging/channel.h"
#include "imaging/rect.h"
#include "tools/tool_base.h"

class CPaintTool;

// Brush limits as the brush dialog offers them.
inline constexpr int kBrushSizeMin = 1;
inline constexpr int kBrushSizeMax = 255;
inline constexpr int kBrushPercentMax = 100;

// Builds a brush stamp: a disc whose radius is `size` (the dialog calls it a diameter, so a brush is twice as
// wide as its number says; users know their brushes by that number), antialiased by 4 x 4 samples where the
// band rule finds an edge, blurred by soft percent of a third of the size, cropped to its non-zero pixels and
// stretched so that the peak is 255. `planeSide` is the side of the scratch plane the disc is drawn on (512 for
// tools, 62 for the thumbnails of the brush list). kOk, or kFail when memory runs out or nothing is left; the
// stamp is only replaced on success.
long BuildBrushStamp(int size, int soft, int planeSide, COLChannel& stamp);

// The greatest truncated distance from the stamp's centre (width / 2, height / 2) of a stamp pixel above 128:
// the radius of the circle that shows the brush on the canvas.
int StampRadius(const COLChannel& stamp);

// The size slider of the brush dialog runs 0..100 and is finer for small brushes.
int BrushSliderToSize(int position);
int BrushSizeToSlider(int size);

// The 42 entries of the brush list: 14 sizes, each hard, half soft and soft (hardness 100, 50, 0).
struct BrushPreset {
    int size;
    int hardness;
};
const BrushPreset* BrushPresets(int& count);

// The settings of a brush tool, which its option panel shows and the brush dialog edits: size 1..255, softness
// and opacity in percent, and the stamp built from them. The three values come from the profile when the panel
// is made (keys "<name>_BrushSize", "<name>_BrushSoft", "<name>_BrushAlpha") and are never written back: values
// chosen in the dialog last until the program ends.
class CNullProperty : public CToolOptions {
public:
    explicit CNullProperty(const char* settingsName = "DefPaint");

    const std::string& GetSettingsName() const { return m_settingsName; }
    void SetSettingsName(const char* name) { m_settingsName = name ? name : ""; }
    // Reads the three values with their defaults (9, 50, 100) and rebuilds the stamp; values outside their ranges
    // are brought into them.
    void LoadSettings(const std::function<int(const std::string& key, int def)>& profileInt);

    // The tool whose stamp and opacity this panel writes.
    void Attach(CPaintTool* owner, COLChannel* stamp, uint8_t* alpha);
    // Takes new values (clamped to their ranges), rebuilds the stamp and tells the owner. False when the stamp
    // could not be rebuilt: the values are kept and the old stamp stays.
    bool SetValues(int size, int soft, int alphaPercent);
    int GetSize() const { return m_size; }
    int GetSoft() const { return m_soft; }
    int GetAlphaPercent() const { return m_alphaPercent; }
    int RebuildStamp();
    // The stamp the panel writes (the tool's); null before Attach.
    const COLChannel* GetStamp() const { return m_pStamp; }

private:
    COLChannel* m_pStamp = nullptr;
    uint8_t* m_pAlpha = nullptr;
    int m_size = 9;
    int m_soft = 50;
    int m_alphaPercent = 100;
    CPaintTool* m_pOwner = nullptr;
    std::string m_settingsName;
};

// The brush engine. A stroke runs from press to release; every pointer step stamps the segment from the last
// point into the stroke mask (canvas size, each byte the strongest coverage so far, never a sum), and the
// derived tool turns the mask into its effect in OnStrokeUpdate. The derived tool also records the one history
// step of the stroke in OnStrokeEnd.
class CPaintTool : public CToolBase {
public:
    CPaintTool(CToolContext* context, const char* tipKey, const char* helpKey, uint32_t iconId,
               const char* settingsName);

    int DrawOverlay(IOverlayDC& dc, bool repainted) override;
    int OnActivate() override;
    int OnDeactivate() override;
    int OnLButtonDown(uint32_t flags, int x, int y) override;
    int OnMouseMove(uint32_t flags, int x, int y) override;
    int OnLButtonUp(uint32_t flags, int x, int y) override;
    int OnSetCursor(int, int, int, int, int, int) override;

    // Applies the stroke mask to the target.
    virtual void OnStrokeUpdate() {}
    virtual void OnStrokeReserved() {}
    virtual void OnStrokeEnd() {}
    // At least clears the stroke.
    virtual void OnStrokeBegin() { ClearStroke(); }

    // Zeroes the stroke planes.
    void ClearStroke();
    // Stamps the segment between two client points into the stroke mask and sets the dirty rectangle.
    void StampSegment(int x1, int y1, int x2, int y2);
    // The circle's radius from the stamp, after a change of the brush.
    void RecomputeRadius() { m_radius = StampRadius(m_stamp); }

    CNullProperty& GetBrush() { return *m_pBrush; }
    const COLChannel& GetStroke() const { return m_stroke; }
    const COLChannel& GetStamp() const { return m_stamp; }
    uint8_t GetAlpha() const { return m_alpha; }
    int GetRadius() const { return m_radius; }
    // What the last stamping touched, canvas pixels (right and bottom exclusive, one pixel of margin).
    CRect GetDirty() const { return m_dirty; }
    // The columns [left, right) of canvas row y whose stroke value the last stamping raised; false when it
    // raised none there. Only these pixels can differ from what the stroke made of them before, since every
    // tool's result is a function of the stroke value and of what lay under the press.
    bool GetRaisedSpan(int y, int& left, int& right) const;
    bool IsPainting() const { return m_painting != 0; }
    // The pause that keeps a stroke at 20 frames a second on screen; 0 (scripts, tests) paints at once.
    void SetFramePacing(int milliseconds) { m_frameMs = milliseconds; }

protected:
    // Canvas size: the view's source, else the document the tool works on.
    bool GetCanvasSize(int& width, int& height);
    // The compose history step of a stroke (kind 4, current layer); nothing for selection-mode tools.
    void RecordStroke();
    // Where any stamp of this stroke has landed, clipped to the canvas: outside it the stroke mask is 0.
    CRect StrokeBounds() const;
    // A coarse composite of the dirty rectangle while painting in compose mode.
    void MergeDirty();
    // A tool whose panel carries more than the brush hands its own panel in; it then writes the stamp.
    void UseBrush(CNullProperty* brush);

    uint32_t m_painting = 0;
    COLChannel m_stroke;
    COLChannel m_strokeCopy;
    COLChannel m_stamp;
    uint8_t m_alpha = 255;
    int32_t m_lastX = 0, m_lastY = 0;
    uint8_t m_falloff[300] = {};   // 100 weights by distance from the stroke axis, then a zeroed guard
    int32_t m_pointerX = 0, m_pointerY = 0;
    int32_t m_radius = 0;
    CRect m_dirty;
    CRect m_strokeBox;             // union of the dirty rectangles of this stroke
    bool m_hasPointer = false;
    int m_frameMs = 50;
    // The last stamp placed (image pixel and its coverage scale): stamping it again changes nothing.
    // Per stamp row, its non-zero columns [first, end): the disc's corners are zero and need no pass.
    std::vector<int32_t> m_footFirst;
    std::vector<int32_t> m_footEnd;
    // For a stamp one pixel from the last one (direction (dy + 1) x 3 + dx + 1) and no stronger, the columns
    // where the stamp exceeds the last one's value at the same pixel: only those can raise the stroke.
    std::vector<int32_t> m_stepFirst[9];
    std::vector<int32_t> m_stepEnd[9];
    void MeasureFootprint();
    void MeasureStepFootprint(int dir);
    // Per canvas row, the columns the last stamping raised: [m_raisedLeft, m_raisedRight), empty when equal.
    std::vector<int32_t> m_raisedLeft;
    std::vector<int32_t> m_raisedRight;
    int32_t m_lastStampX = 0, m_lastStampY = 0;
    uint32_t m_lastStampWeight = 0;
    bool m_hasLastStamp = false;
    CNullProperty m_brush;
    CNullProperty* m_pBrush = &m_brush;
};
