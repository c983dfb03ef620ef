#pragma once

#include <cstdint>

#include "imaging/image.h"
#include "imaging/pixel.h"
#include "tools/paint_tool.h"

// Ways the smart-adjust brush may change the result mask.
enum SmartAdjustMode : uint32_t {
    kAdjustBoth = 0,  // raise or lower, whatever the colours say
    kAdjustRaise = 1, // only where the colours ask for more opacity than there is (Shift held)
    kAdjustLower = 2, // only where they ask for less (Ctrl held)
};

// The option panel of the smart-adjust brush: the brush itself, the mode and the two reference colours. A colour
// counts as picked when its alpha is 255; an unpicked swatch shows grey with a "?".
class CPropSmartAdj : public CNullProperty {
public:
    CPropSmartAdj() : CNullProperty("SmartAdjustTool") {}

    uint32_t GetMode() const { return m_adjustMode; }
    int32_t GetKeyHeld() const { return m_keyHeld; }
    // The mode buttons: a mode chosen by hand is not undone by a key release.
    void SetMode(uint32_t mode);
    // Shift or Ctrl pressed: from "both ways" only, and remembered as forced by the key.
    void ForceByKey(uint32_t mode);
    // Shift or Ctrl released: back to "both ways" when a key had forced the mode.
    void ReleaseKey();

    CPixel GetForeColor() const { return m_foreColor; }
    CPixel GetBackColor() const { return m_backColor; }
    bool IsForePicked() const { return m_foreColor.alpha == 255; }
    bool IsBackPicked() const { return m_backColor.alpha == 255; }
    // A colour from the picture or the colour dialog; stored as picked (alpha 255).
    void SetForeColor(CPixel colour);
    void SetBackColor(CPixel colour);
    // A new face of the panel starts over: both colours unpicked, both ways.
    void ResetFace();

private:
    uint32_t m_adjustMode = kAdjustBoth;
    int32_t m_keyHeld = -1;
    CPixel m_foreColor{0x80, 0x80, 0x80, 0};
    CPixel m_backColor{0x80, 0x80, 0x80, 0};
};

// Selection mode, inner-outer method: repairs the band between the two contours by colour. The user picks a
// foreground reference inside the inner contour and a background reference inside the outer one (a click there
// takes the mean of the 3 x 3 pixels of the picture); a stroke over the band then moves each touched pixel of the
// result mask, by the stroke's strength, towards the opacity its colour implies: its position on the line from
// the background colour to the foreground colour, through a curve that is 0 up to 32 and 255 from 224. Pixels of
// either contour keep their value. While the tool is current the canvas shows both contour areas as the plain
// picture, where the colours are picked from, and the band as the result.
class CSmartAdjustTool : public CPaintTool {
public:
    explicit CSmartAdjustTool(CToolContext* context);

    int IsSelectionModeTool() override { return 1; }
    int DrawOverlay(IOverlayDC& dc, bool repainted) override;
    int OnActivate() override;
    int OnDeactivate() override;
    int OnLButtonDown(uint32_t flags, int x, int y) override;
    int OnMouseMove(uint32_t flags, int x, int y) override;
    int OnLButtonUp(uint32_t flags, int x, int y) override;
    int OnKeyDown(uint32_t key, uint32_t flags) override;
    int OnKeyUp(uint32_t key, uint32_t flags) override;
    int OnSetCursor(int, int, int, int, int, int) override;
    int OnFrameDone() override;

    void OnStrokeBegin() override;
    void OnStrokeUpdate() override;
    void OnStrokeEnd() override;

    CPropSmartAdj& GetPanel() { return m_prop; }
    bool IsInBand() const { return m_inBand != 0; }
    const uint8_t* GetCurve() const { return m_curve; }
    // The opacity a picture colour implies between the references: 0 at the background colour, 255 at the
    // foreground colour, before the curve.
    static int PositionBetween(CPixel picture, CPixel fore, CPixel back);

private:
    // The image point under client (x, y), clamped to the planes.
    CViewPoint PlanePoint(int x, int y);
    // The mean of the 3 x 3 picture pixels around p, edge pixels repeated; alpha 255.
    CPixel MeanAround(CViewPoint p) const;

    CPropSmartAdj m_prop;
    COLImage m_overlay;
    uint32_t m_painting2 = 0;
    uint32_t m_inBand = 0;
    uint8_t m_curve[256] = {};
    bool m_active = false;
};
