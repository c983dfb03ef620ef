#pragma once

#include <cstdint>

#include "tools/tool_base.h"

// Two small tools of selection mode and the view: single points of the inner contour, and zoom and pan.

// Adds single pixels to the inner contour (sure subject); the next matting run grows them. A click is refused
// on the picture's first row and column and wherever the outer contour holds the pixel short of 255.
class CInjectTool : public CToolBase {
public:
    explicit CInjectTool(CToolContext* context);
    int IsSelectionModeTool() override { return 1; }
    // Refused with "injecterr" while the inner contour has no pixel.
    int OnActivate() override;
    int OnLButtonDown(uint32_t flags, int x, int y) override;
    int OnSetCursor(int, int, int, int, int x, int y) override;

    // Whether a click at the image point would add it (inner(p) already 255 counts as accepted).
    bool Accepts(int x, int y) const;

private:
    CNullNormalProperty m_panel;
};

// The zoom tool's setting: what a click does.
class CPropZoom : public CToolOptions {
public:
    enum : uint32_t { kZoomIn = 0, kZoomOut = 1, kPan = 2 };
    void SetMode(uint32_t mode)
    {
        m_mode = mode <= kPan ? mode : kZoomIn;
        Changed();
    }
    uint32_t GetMode() const { return m_mode; }

private:
    uint32_t m_mode = kZoomIn;
};

// Zooms in or out by one stop about the click, or pans by dragging. Ctrl held pans and Shift held zooms out
// while the key is down; any key released brings the panel's mode back.
class CZoomTool : public CToolBase {
public:
    explicit CZoomTool(CToolContext* context);
    int OnLButtonDown(uint32_t flags, int x, int y) override;
    int OnMouseMove(uint32_t flags, int x, int y) override;
    int OnLButtonUp(uint32_t flags, int x, int y) override;
    int OnKeyDown(uint32_t key, uint32_t flags) override;
    int OnKeyUp(uint32_t key, uint32_t flags) override;
    int OnSetCursor(int, int, int, int, int, int) override;

    CPropZoom& GetPanel() { return m_panel; }
    bool IsPanning() const { return m_panning != 0; }

private:
    void UpdateCursor();

    CPropZoom m_panel;
    uint32_t m_keyHeld = 0;
    uint32_t m_savedMode = 0;
    uint32_t m_panning = 0;
    int32_t m_startX = 0, m_startY = 0;             // client pixels of the press
    int32_t m_startOriginX = 0, m_startOriginY = 0; // image pixel at the view's corner then
};
