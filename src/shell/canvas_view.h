#pragma once

#include <cstdint>
#include <string>

#include "imaging/image.h"
#include "shell/view_geometry.h"

// What the canvas, its picture sources and the tools say to each other. No window library here: tools and
// documents include this header without depending on the toolkit.

class ICanvasView;

// Key-state flags passed with pointer events.
inline constexpr uint32_t kMkLButton = 0x0001;
inline constexpr uint32_t kMkRButton = 0x0002;
inline constexpr uint32_t kMkShift = 0x0004;
inline constexpr uint32_t kMkControl = 0x0008;
inline constexpr uint32_t kMkMButton = 0x0010;

// Where an overlay draws: canvas client pixels. Lines invert what lies under them, so drawing a line twice
// leaves the picture as it was.
class IOverlayDC {
public:
    virtual ~IOverlayDC() = default;
    virtual void DrawLine(int x0, int y0, int x1, int y1) = 0;
};

// The throw-away drawing of the current tool on top of the picture.
class IOverlayDrawer {
public:
    virtual int SetView(ICanvasView* view) = 0;
    // repainted: the picture was just painted again, so nothing of an earlier overlay is left on screen.
    virtual int DrawOverlay(IOverlayDC& dc, bool repainted) = 0;
    virtual ~IOverlayDrawer() = default;
    virtual int IsSelectionModeTool() { return 0; }
    virtual std::string GetHelpText() { return {}; }
    virtual int OnActivate() { return 1; }
    virtual int OnDeactivate() { return 1; }
};

// The input of the canvas, handed to the current tool. Points are canvas client pixels. Every operation answers
// 0 unless a tool overrides it.
class IViewSink {
public:
    virtual ~IViewSink() = default;
    virtual int SetView(ICanvasView*) { return 0; }
    virtual int OnMouseMove(uint32_t, int, int) { return 0; }
    virtual int OnLButtonDown(uint32_t, int, int) { return 0; }
    virtual int OnLButtonUp(uint32_t, int, int) { return 0; }
    virtual int OnRButtonDown(uint32_t, int, int) { return 0; }
    virtual int OnRButtonUp(uint32_t, int, int) { return 0; }
    virtual int OnKeyDown(uint32_t, uint32_t) { return 0; }
    virtual int OnChar(uint32_t, uint32_t) { return 0; }
    virtual int OnKeyUp(uint32_t, uint32_t) { return 0; }
    // A non-zero answer stops the canvas's own wheel zoom.
    virtual int OnMouseWheel(uint32_t, int, int, int) { return 0; }
    // Non-zero: the tool has set the cursor itself.
    virtual int OnSetCursor(int, int, int, int, int, int) { return 0; }
    virtual int OnTimer() { return 0; }
    virtual int OnLButtonDblClk(uint32_t, int, int) { return 0; }
    virtual int OnRButtonDblClk(uint32_t, int, int) { return 0; }
    virtual int OnFrameDone() { return 0; }
};

// What the canvas paints from: a document renders the visible part of its picture at the canvas's zoom and origin.
class ICanvasSource {
public:
    virtual int SetView(ICanvasView* view) = 0;
    // Fills target (already sized to the visible rectangle) from the view's origin at its zoom.
    virtual int Render(COLImage* target) = 0;
    virtual void GetSize(int& width, int& height) = 0;
    // The whole picture scaled into target at width x height, for thumbnails.
    virtual int RenderWhole(COLImage* target, int width, int height) = 0;
    virtual ~ICanvasSource() = default;
};

// The canvas as the rest of the program sees it.
class ICanvasView {
public:
    virtual ~ICanvasView() = default;
    virtual void SetSource(ICanvasSource* source) = 0;
    virtual ICanvasSource* GetSource() = 0;
    virtual void SetSink(IViewSink* sink) = 0;
    virtual void SetOverlay(IOverlayDrawer* overlay) = 0;
    virtual void Redraw() = 0;
    virtual void DrawOverlayNow() = 0;
    // kOk, or kFail when the layout has no room.
    virtual long SetZoom(double zoom, bool redraw) = 0;
    virtual double GetZoom() = 0;
    // Stores the image point shown at the top-left corner; out gets the origin after clamping.
    virtual long SetOrigin(VPoint* out, int x, int y, bool redraw) = 0;
    virtual VPoint GetOrigin() = 0;
    virtual VPoint GetViewSize() = 0;
    virtual VRect GetImageRect() = 0;
    virtual VPoint ClientToImage(int x, int y) = 0;
    virtual VPoint ImageToClient(int x, int y) = 0;
    // The window that takes the pointer during a drag (an opaque handle).
    virtual void* GetWindowHandle() = 0;
    virtual void Refresh() = 0;
    virtual COLImage* GetDisplayBuffer() = 0;
    virtual void SetDisplayOverride(COLImage* image) = 0;
    // Safe from any thread: asks for a Refresh on the interface thread (a finished merge uses it).
    virtual void PostRefresh() = 0;
    // Zoom commands of the view: one stop in or out about the middle, or fit the picture.
    virtual void ZoomIn() = 0;
    virtual void ZoomOut() = 0;
    virtual void ZoomFit() = 0;
};
