#pragma once

#include "imaging/channel.h"
#include "imaging/image.h"
#include "tools/lazy_snapshot.h"
#include "tools/paint_tool.h"

class CLayer;

// The brushes. s is the stroke mask's byte at a pixel. In compose mode the document's selection, when it has
// pixels, limits the tools that honour it: pixels outside it (mask 0) are skipped, and inside s counts as
// s x mask / 255. Each stroke is one history step.

// Erases the result mask of selection mode: mask = (255 - s) x mask at the press / 255. Without a mask there is
// nothing to erase. Selection history, planes 4.
class CEraseSelTool : public CPaintTool {
public:
    explicit CEraseSelTool(CToolContext* context, const char* tipKey = "erasesel",
                           const char* helpKey = "eraseseltip", uint32_t iconId = 162);
    int IsSelectionModeTool() override { return 1; }
    void OnStrokeBegin() override;
    void OnStrokeUpdate() override;
    void OnStrokeEnd() override;

protected:
    COLChannel m_maskSnapshot;
};

// Erases the current layer. On the base layer, which has no transparency, the erased part takes the foreground
// colour; on any other layer its alpha goes down. A hidden layer is refused with "erasewar".
class CEraseLayerTool : public CEraseSelTool {
public:
    explicit CEraseLayerTool(CToolContext* context);
    int IsSelectionModeTool() override { return 0; }
    int OnActivate() override;
    int OnDeactivate() override;
    void OnStrokeBegin() override;
    void OnStrokeUpdate() override;
    void OnStrokeEnd() override;

private:
    CLayer* m_pTarget = nullptr;
    CLazySnapshot m_snapshot;
    bool m_useMask = false;
    bool m_baseDone = false;   // the base has been made opaque in this stroke
};

// Selection mode: puts the untouched picture back where the matting removed too much. The working image's
// colours move towards the picture by s, and the result mask (and the working alpha with it) rises by s.
// Selection history, planes 4 + 8.
class CForePaintTool : public CPaintTool {
public:
    explicit CForePaintTool(CToolContext* context);
    int IsSelectionModeTool() override { return 1; }
    void OnStrokeBegin() override;
    void OnStrokeUpdate() override;
    void OnStrokeEnd() override;

private:
    COLChannel m_maskSnapshot;
};

// Paints the foreground colour. The paint goes on a new layer above the current one while the stroke lasts, and
// is merged down at its end, so that a stroke never builds up where it crosses itself.
class CFreePaintTool : public CPaintTool {
public:
    explicit CFreePaintTool(CToolContext* context, const char* tipKey = "freepaint",
                            const char* helpKey = "freepainthelp", uint32_t iconId = 180,
                            const char* settingsName = "SelEraseTool");
    void OnStrokeBegin() override;
    void OnStrokeUpdate() override;
    void OnStrokeEnd() override;

protected:
    // The new layer's pixel for a stroke value (already limited by the selection), at canvas point (x, y).
    virtual CPixel PaintPixel(uint32_t value, int x, int y);
    CLayer* m_pPaintLayer = nullptr;
    bool m_useMask = false;
};

// Clone brush: copies the current layer from the source point to where the stroke runs. The first click after
// the tool is taken up (or after a right click, or any click with Alt or Ctrl held) sets the source point and paints
// nothing; the first stroke then fixes the offset, which later strokes keep.
class CCameraTool : public CFreePaintTool {
public:
    explicit CCameraTool(CToolContext* context);
    int OnActivate() override;
    int OnLButtonDown(uint32_t flags, int x, int y) override;
    int OnRButtonDown(uint32_t flags, int x, int y) override;
    int OnLButtonUp(uint32_t flags, int x, int y) override;
    int OnSetCursor(int, int, int, int, int, int) override;
    void OnStrokeBegin() override;
    bool IsSampling() const { return m_sampling != 0; }
    CViewPoint GetSamplePoint() const { return m_sample; }
    CViewPoint GetOffset() const { return m_offset; }

protected:
    CPixel PaintPixel(uint32_t value, int x, int y) override;

private:
    uint32_t m_sampling = 1;
    CViewPoint m_sample;
    CViewPoint m_offset;
    CLayer* m_pSource = nullptr;
    int m_sourceX = 0, m_sourceY = 0;
};

// Desaturates the current layer under the brush: each colour moves towards the gray (B + 3 R + 6 G) / 10 by s.
class CDesatTool : public CPaintTool {
public:
    explicit CDesatTool(CToolContext* context);
    int OnDeactivate() override;
    void OnStrokeBegin() override;
    void OnStrokeUpdate() override;
    void OnStrokeEnd() override;

private:
    CLayer* m_pTarget = nullptr;
    CLazySnapshot m_snapshot;
    bool m_useMask = false;
};

// Selection mode, inner-outer method: paints the inner (sure foreground) or the outer (sure background) contour
// plane by hand, for the parts a polygon draws badly (hair, thin gaps). Ctrl held at the press erases instead.
// plane = (plane x (255 - s) + 255 x s) / 255 painting, (255 - s) x plane / 255 erasing. Selection history with
// the plane's bit.
class CPlaneBrushTool : public CPaintTool {
public:
    CPlaneBrushTool(CToolContext* context, const char* tipKey, const char* helpKey, uint32_t iconId,
                    uint32_t planeBit);
    int IsSelectionModeTool() override { return 1; }
    int OnLButtonDown(uint32_t flags, int x, int y) override;
    void OnStrokeBegin() override;
    void OnStrokeUpdate() override;
    void OnStrokeEnd() override;

private:
    COLChannel* GetPlane();
    uint32_t m_planeBit;
    bool m_erasing = false;
    bool m_ready = false;
    COLChannel m_snapshot;
};

// Picks the colour under the pointer into the foreground colour: the mean of four pixels of the composite.
class CPickerTool : public CToolBase {
public:
    explicit CPickerTool(CToolContext* context);
    int OnLButtonDown(uint32_t flags, int x, int y) override;
    int OnSetCursor(int, int, int, int, int, int) override;

private:
    CNullNormalProperty m_panel;
};
