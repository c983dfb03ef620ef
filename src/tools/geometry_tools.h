#pragma once

#include <cstdint>
#include <string>

#include "imaging/image.h"
#include "matting/warp.h"
#include "matting/warp_fit.h"
#include "tools/tool_base.h"

class CLayer;
class CCropTool;

// The frame of the crop and transform tools. The frame is kept without its rotation (`unrotated`: centre, then
// the corners top-left, top-right, bottom-right, bottom-left) and turned by `angle` about `centre` to give the
// corners shown (`corners`, rounded with + 0.5). Handles act on the unrotated frame.
struct CropShape {
    CViewPoint centre;
    CViewPoint corners[4];
    CViewPoint unrotated[5];
    double angle = 0.0;  // radians
    int32_t rotated = 0;   // the frame may turn and leave the picture
    int32_t freeShape = 0; // corners move one by one
    int32_t keepRatio = 0;
    double ratio = 1.0;    // width / height
    int32_t handle = 0;    // 0 none, 1..4 the corner being dragged
    int32_t imageWidth = 0;
    int32_t imageHeight = 0;

    // A frame of the rectangle (right and bottom are the far edges, one past the last pixel), without rotation.
    void SetRect(int left, int top, int right, int bottom);
    // The corners from the unrotated frame, angle and centre.
    void UpdateCorners();
    // Turns a point of the picture into the unrotated frame (rounded with + 0.5).
    CViewPoint Unrotate(CViewPoint p) const;
    // The four corners of the shape as shown.
    void GetCorners(WarpCorner (&out)[4]) const;
    // Even-odd test of a point against the four edges as shown.
    bool Contains(double x, double y) const;
    // The shape has not folded: both diagonals' midpoints lie inside it, and it has an area.
    bool IsSound() const;
};

// Settings of the crop and transform tools, shown by their option panel: the free-shape check box and the ratio
// choice. The check box disables the ratio choice and a ratio other than "no lock" disables the check box;
// changing either clears the tool's frame.
class CPropCrop : public CToolOptions {
public:
    enum Ratio : int { kRatioNone = 0, kRatioOriginal, kRatio4x3, kRatio3x4, kRatio3x2, kRatio2x3, kRatioCustom };

    void Attach(CCropTool* owner) { m_pOwner = owner; }
    // False when the ratio choice forbids the free shape (the check box is disabled then).
    bool SetFreeShape(bool on);
    // False for a choice outside 0..6, or any choice but "no lock" while the free shape is on.
    bool SetRatioChoice(int choice);
    // The last custom ratio, width / height; both from 1 to 20000. Chooses it.
    bool SetCustomRatio(int width, int height);
    bool GetFreeShape() const { return m_freeShape; }
    int GetRatioChoice() const { return m_choice; }
    int GetCustomWidth() const { return m_customWidth; }
    int GetCustomHeight() const { return m_customHeight; }
    bool IsRatioEnabled() const { return !m_freeShape; }
    bool IsFreeShapeEnabled() const { return m_choice == kRatioNone; }
    // The ratio locked by the choice, with "original" the ratio of the given size; 0 when nothing is locked.
    double LockedRatio(int originalWidth, int originalHeight) const;

private:
    void Apply();
    CCropTool* m_pOwner = nullptr;
    bool m_freeShape = false;
    int m_choice = kRatioNone;
    int m_customWidth = 1;
    int m_customHeight = 1;
};

// Crop: a rubber band makes a frame; its corners and inside are handles; a double click (or Return) applies it.
// A rectangle cuts the document to it; a free shape (perspective) flattens the document and straightens the shape
// into a rectangle through the warp. One history step of the whole document; the tool is left afterwards.
class CCropTool : public CToolBase {
public:
    explicit CCropTool(CToolContext* context, const char* tipKey = "croptip", const char* helpKey = "helpcrop",
                       uint32_t iconId = 149);

    int OnActivate() override;
    int OnDeactivate() override;
    int DrawOverlay(IOverlayDC& dc, bool repainted) override;
    int OnLButtonDown(uint32_t flags, int x, int y) override;
    int OnMouseMove(uint32_t flags, int x, int y) override;
    int OnLButtonUp(uint32_t flags, int x, int y) override;
    int OnLButtonDblClk(uint32_t flags, int x, int y) override;
    int OnKeyDown(uint32_t key, uint32_t flags) override;
    int OnSetCursor(int, int, int, int, int, int) override;
    int OnTimer() override;
    int OnFrameDone() override;

    // States: 0 none, 1 dragging out a first rectangle, 2 frame present, 3 moving or reshaping the frame.
    int GetState() const { return m_state; }
    const CropShape& GetShape() const { return m_shape; }
    CPropCrop& GetOptions() { return m_options; }
    // The panel changed: the frame is dropped (the transform tool takes its layer's frame again).
    virtual void OnOptionsChanged();
    // Applies the frame now, as a double click does. False when there is no frame or it was refused.
    virtual bool ApplyFrame();
    // The text of the status bar for a frame: size and the distances to the picture's edges.
    std::string SizeText() const;
    // Sets the corners as shown, without rotation (a frame computed elsewhere, such as a script's), and the
    // frame is there. Corners that cross are taken as they are: applying them is refused. False without a
    // document.
    virtual bool SetCorners(const CViewPoint (&corners)[4]);

protected:
    enum Grab : int { kGrabNone = 0, kGrabCorner, kGrabInside, kGrabRotate };

    bool DocumentSize(int& width, int& height) const;
    void TakeOptions();
    // What a press at an image point takes hold of.
    int HitTest(CViewPoint image, CViewPoint client, int& corner) const;
    void DragCorner(int corner, CViewPoint p);
    void DragFreeCorner(int corner, CViewPoint p);
    void MoveFrame(int dx, int dy);
    void ClipToImage(CViewPoint& p) const;
    // After a change of the frame: the dimmed copy, the status text and the overlay.
    void FrameChanged();
    void ClearFrame();
    void UpdateCursorAt(CViewPoint client);
    virtual void BuildPreview();
    bool ApplyRectangle();
    bool ApplyFreeShape();

    CPropCrop m_options;
    CropShape m_shape;
    int m_state = 0;
    CViewPoint m_start, m_end;
    CViewPoint m_grabPoint;     // image point of the press that took hold of the frame
    CViewPoint m_grabCentre;
    CViewPoint m_grabUnrotated[5];
    double m_grabAngle = 0.0;
    int m_grab = kGrabNone;
    COLImage m_dimmed;          // the view's picture with the outside of the frame at half brightness
    CWarpProcess m_warp;
    WarpParams m_params{};
    int m_lastClientX = 0, m_lastClientY = 0;
    bool m_rotateOutside = false; // a press outside the frame turns it (transform) rather than starting anew
};

// Transform: the frame of the current layer (never the base), with the crop tool's handles; the frame may turn
// (drag outside it) and leave the picture, the ratio is locked to the layer's unless the panel says otherwise,
// and the free shape moves each corner alone. While the frame is up the layer is hidden and drawn through the
// map over the view. A double click warps the layer through the inverse fit into its new box, trims it and
// records one step of the layer (header and pixels).
class CTransformTool : public CCropTool {
public:
    explicit CTransformTool(CToolContext* context);

    int OnActivate() override;
    int OnDeactivate() override;
    int OnLButtonDown(uint32_t flags, int x, int y) override;
    void OnOptionsChanged() override;
    bool ApplyFrame() override;
    CLayer* GetLayer() const { return m_pLayer; }
    // False, and nothing changed, while no layer is held.
    bool SetCorners(const CViewPoint (&corners)[4]) override;

protected:
    // Takes the current layer: trim, frame, hide. False (with the message) on the base layer.
    bool Begin(bool showMessage);
    // Puts the layer back on show and drops the frame.
    void End();
    // The layer is still the one taken, in the document, and nothing else changed the document since.
    bool StillHeld() const;
    void BuildPreview() override;
    void Hide(bool hidden);

    CLayer* m_pLayer = nullptr;
    uint32_t m_generation = 0;
    double m_uCoef[6] = {}, m_vCoef[6] = {};
    bool m_fitted = false;
};

// Move: moves the current layer (never the base), or lifts the selected pixels onto a layer of their own and moves
// that. Arrow keys nudge by one screen pixel in image pixels (at least 1). Moves gather into one step of the
// layer's header, written when the tool is left, another layer is taken, or every 30th tick of the view's timer.
class CMoveTool : public CToolBase {
public:
    explicit CMoveTool(CToolContext* context);

    int OnActivate() override;
    int OnDeactivate() override;
    int OnLButtonDown(uint32_t flags, int x, int y) override;
    int OnMouseMove(uint32_t flags, int x, int y) override;
    int OnLButtonUp(uint32_t flags, int x, int y) override;
    int OnKeyDown(uint32_t key, uint32_t flags) override;
    int OnSetCursor(int, int, int, int, int, int) override;
    int OnTimer() override;

    // Moves the layer being moved (taking one first) by whole document pixels.
    void MoveBy(int dx, int dy);
    // Writes the step of the gathered moves, if any.
    void FlushMove();
    CLayer* GetMoving() const { return m_pMoving; }
    bool IsDirty() const { return m_dirty; }

private:
    bool TakeLayer();
    bool LiftSelection();
    bool HasSelection() const;
    void NoteGeneration();

    CNullNormalProperty m_panel;
    CLayer* m_pMoving = nullptr;
    uint32_t m_generation = 0;
    CViewPoint m_last;
    bool m_dragging = false;
    bool m_dirty = false;
    int m_ticks = 0;
};
