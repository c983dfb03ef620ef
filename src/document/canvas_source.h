#pragma once

class COLImage;

struct CViewPoint {
    int x = 0;
    int y = 0;
};

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
