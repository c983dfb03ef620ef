#pragma once

#include "imaging/rect.h"

class COLImage;

struct CViewPoint {
    int x = 0;
    int y = 0;
};

class ICanvasSource;
class IViewSink;
class IOverlayDrawer;

// What a document needs from the canvas that shows it. The Qt view implements this.
class ICanvasView {
public:
    virtual double GetZoom() const = 0;
    // The document pixel shown at the view's top-left corner.
    virtual CViewPoint GetOrigin() const = 0;
    // Repaint now, on the user-interface thread.
    virtual void Redraw() = 0;
    // Called on the merge thread when a new composite is ready. It must only queue a repaint to the
    // user-interface thread (a queued call, no waiting): it runs while the merge thread holds its state lock.
    virtual void PostMergeDone() = 0;

    // The rest is what the frame and the tools use; the editor's canvas (shell/image_view.h) implements all of
    // it. A view that only shows a document need not: the defaults describe a canvas with nothing laid out.
    virtual void SetSource(ICanvasSource*) {}
    virtual ICanvasSource* GetSource() { return nullptr; }
    virtual void SetSink(IViewSink*) {}
    virtual void SetOverlay(IOverlayDrawer*) {}
    virtual void DrawOverlayNow() {}
    // 0 when laid out, 0x80004005 when the layout has no room.
    virtual long SetZoom(double, bool) { return static_cast<long>(0x80004005L); }
    // Stores the image point shown at the top-left corner; out (when given) gets the origin after clamping.
    virtual long SetOrigin(CViewPoint* out, int, int, bool)
    {
        if (out) *out = GetOrigin();
        return static_cast<long>(0x80004005L);
    }
    // Width and height of the rectangle that shows the picture, and that rectangle in client pixels.
    virtual CViewPoint GetViewSize() { return {}; }
    virtual CRect GetImageRect() { return {}; }
    virtual CViewPoint ClientToImage(int x, int y) { return {x, y}; }
    virtual CViewPoint ImageToClient(int x, int y) { return {x, y}; }
    // The window that holds the pointer during a drag, as an opaque handle.
    virtual void* GetWindowHandle() { return nullptr; }
    virtual void Refresh() {}
    virtual COLImage* GetDisplayBuffer() { return nullptr; }
    virtual void SetDisplayOverride(COLImage*) {}
    // One zoom stop in or out about the client point (x, y), as the wheel does.
    virtual void ZoomStep(bool, int, int) {}

protected:
    ~ICanvasView() = default;
};

// What the canvas paints from; both the compose document and the selection document implement it.
class ICanvasSource {
public:
    virtual int SetView(ICanvasView* view) = 0;
    // Fills the whole target with the part of the picture the view shows at its zoom and origin.
    virtual int Render(COLImage* target) = 0;
    virtual void GetSize(int& width, int& height) = 0;
    // Scales the whole picture into target at width x height (thumbnails).
    virtual int RenderWhole(COLImage* target, int width, int height) = 0;
    virtual ~ICanvasSource() = default;
};
