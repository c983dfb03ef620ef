#pragma once

#include <cstdint>
#include <string>

#include "document/canvas_source.h"
#include "imaging/image.h"

// What the canvas and the tools say to each other (the canvas itself is ICanvasView, beside the picture sources in
// document/canvas_source.h). No window library here: tools include this header without depending on the toolkit.

// Key-state flags passed with pointer events.
inline constexpr uint32_t kMkLButton = 0x0001;
inline constexpr uint32_t kMkRButton = 0x0002;
inline constexpr uint32_t kMkShift = 0x0004;
inline constexpr uint32_t kMkControl = 0x0008;
inline constexpr uint32_t kMkMButton = 0x0010;
// Alt held (the clone brush takes its source point with Alt and a click).
inline constexpr uint32_t kMkAlt = 0x0020;

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
