#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "matting/image_process.h"
#include "tools/view_sink.h"

class CComposeDocument;
class CSelectionDocument;
class CSelectionHistory;
class IHistorySink;

// Key codes the tools look at (the canvas translates its toolkit's keys into these).
inline constexpr uint32_t kKeyReturn = 13;
inline constexpr uint32_t kKeyShift = 16;
inline constexpr uint32_t kKeyControl = 17;
inline constexpr uint32_t kKeyEscape = 27;
inline constexpr uint32_t kKeySpace = 32;
inline constexpr uint32_t kKeyLeft = 37;
inline constexpr uint32_t kKeyUp = 38;
inline constexpr uint32_t kKeyRight = 39;
inline constexpr uint32_t kKeyDown = 40;
// Key flag: the press is an auto-repeat of a key held down.
inline constexpr uint32_t kKeyRepeat = 1u << 30;

// Cursor roles a tool asks for; the canvas maps them to its toolkit's cursors.
enum ToolCursor : int {
    kCursorDefault = 0,
    kCursorCross,          // rectangle and ellipse, New
    kCursorRectAdd,
    kCursorRectSubtract,
    kCursorLasso,
    kCursorLassoAdd,
    kCursorLassoSubtract,
    kCursorPolygon,
    kCursorPolygonAdd,
    kCursorPolygonSubtract,
    kCursorPolygonClose,   // the pointer is on the first point: a click closes the polygon
    kCursorMagic,
    kCursorMagicAdd,
    kCursorMagicSubtract,
    kCursorBrush,          // paint tools: the canvas draws the brush circle, the pointer is a small cross
    kCursorCloneSource,    // the clone brush waits for its source point
    kCursorPicker,
    kCursorZoomIn,         // the zoom tool, by its panel's mode
    kCursorZoomOut,
    kCursorPan,
    kCursorCrop,           // crop and transform: a crosshair with the crop angles
    kCursorMoveFrame,      // the pointer is inside a crop or transform frame: a drag moves it
    kCursorCornerNwSe,     // on the top-left or bottom-right handle of a frame (as shown on screen)
    kCursorCornerNeSw,     // on the top-right or bottom-left handle
    kCursorRotate,         // the transform tool outside its frame: a drag turns it
    kCursorMove,           // the move tool
};

// Everything a tool works on: the two documents and their undo logs, and the string table. Owned by the
// application; tools keep a pointer for their whole life.
struct CToolContext {
    CComposeDocument* document = nullptr;
    IHistorySink* composeHistory = nullptr;
    CSelectionDocument* selection = nullptr;
    CSelectionHistory* selectionHistory = nullptr;
    // Text of a string key; without it the key itself is shown.
    std::function<std::string(const char* key)> text;
    // Redraws the tool bar and the background buttons after a contour changed.
    std::function<void()> updateBars;
    // The foreground colour (paint, erasing the base layer) and the picker's way to set it.
    std::function<CPixel()> foreground;
    std::function<void(CPixel)> setForeground;
    // Shows the text of a string key in a message box (a tool that refuses to start says why).
    std::function<void(const char* key)> message;
    // A number of the profile's "Int" section with its default; the brushes read their settings through it.
    std::function<int(const std::string& key, int def)> profileInt;
    // Pane 0 of the status bar (the crop tool shows the frame's size there while it is dragged).
    std::function<void(const std::string& text)> status;
    // Leaves the current tool, as a finished crop does; the tool manager sets it.
    std::function<void()> leaveTool;

    std::string Text(const char* key) const { return text ? text(key) : std::string(key ? key : ""); }
    CPixel Foreground() const { return foreground ? foreground() : CPixel{0, 0, 0, 255}; }
    void Message(const char* key) const
    {
        if (message) message(key);
    }
    void Status(const std::string& text) const
    {
        if (status) status(text);
    }
};

// Settings of a tool that its option panel shows and edits. The panel registers for changes.
class CToolOptions {
public:
    virtual ~CToolOptions() = default;
    std::function<void()> onChanged;

protected:
    void Changed()
    {
        if (onChanged) onChanged();
    }
};

// The panel of a tool that has no settings (move, colour picker, inject): an empty form, so that choosing the tool
// clears the option area of the previous tool's controls.
class CNullNormalProperty : public CToolOptions {};

// A line of the overlay, in canvas client pixels.
struct OverlayLine {
    int32_t x0, y0, x1, y1;
};

// Base of every tool: an overlay drawer (the main face, with the lifecycle), a sink of the canvas's pointer and
// key events, and a listener of the worker thread. Tools work in image coordinates through the view's mapping.
class CToolBase : public IOverlayDrawer, public IViewSink, public IProcessListener {
public:
    CToolBase(CToolContext* context, const char* tipKey, const char* helpKey, uint32_t iconId);
    ~CToolBase() override = default;
    CToolBase(const CToolBase&) = delete;
    CToolBase& operator=(const CToolBase&) = delete;

    // One operation serves both faces.
    int SetView(ICanvasView* view) override;
    int DrawOverlay(IOverlayDC& dc, bool repainted) override;
    void OnProcessEvent(uint32_t, int32_t) override {}

    IOverlayDrawer* GetDrawer() { return m_pDrawer; }
    IViewSink* GetSink() { return m_pSink; }
    CToolOptions* GetOptionPanel() const { return m_pOptionPanel; }
    const char* GetTipKey() const { return m_tipKey; }
    const char* GetHelpKey() const { return m_helpKey; }
    uint32_t GetIconId() const { return m_iconId; }
    uint32_t IsEnabled() const { return m_enabled; }
    void SetEnabled(uint32_t enabled) { m_enabled = enabled; }
    // The cursor the tool wants over the picture.
    int GetCursor() const { return m_cursor; }
    ICanvasView* GetView() const { return m_pView; }
    const std::vector<OverlayLine>& GetOverlayLines() const { return m_overlayLines; }

protected:
    // Inverting-line helpers: drawing a stored line again removes it.
    void EraseOverlay(IOverlayDC& dc);
    void AddOverlayLine(IOverlayDC& dc, int x0, int y0, int x1, int y1);
    void AddOverlayRect(IOverlayDC& dc, int l, int t, int r, int b);
    CViewPoint ToImage(int x, int y) const { return m_pView ? m_pView->ClientToImage(x, y) : CViewPoint{x, y}; }
    CViewPoint ToClient(int x, int y) const { return m_pView ? m_pView->ImageToClient(x, y) : CViewPoint{x, y}; }
    void SetCursorRole(int cursor) { m_cursor = cursor; }

    std::vector<OverlayLine> m_overlayLines;
    ICanvasView* m_pView = nullptr;
    CToolOptions* m_pOptionPanel = nullptr;
    IOverlayDrawer* m_pDrawer;
    IViewSink* m_pSink;
    const char* m_helpKey;
    uint32_t m_iconId;
    const char* m_tipKey;
    uint32_t m_enabled = 1;
    CToolContext* m_pContext;
    int m_cursor = kCursorDefault;
};
