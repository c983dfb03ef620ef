#pragma once

class COLChannel;

// Planes whose outlines the canvas animates as marching ants, each in its own colours, in place of the selection
// it finds in the rendered alpha bytes. A picture source that has such planes implements this beside
// ICanvasSource (document/canvas_source.h).
enum EOutlineStyle : int {
    kOutlineSelection = 0, // the selection: black and white
    kOutlineOuter = 1,     // the outer contour: red and white
    kOutlineInner = 2,     // the inner contour: green and white
    kOutlineResult = 3,    // the result mask: black and white
};
inline constexpr int kOutlineStyles = 4;

struct OutlinePlane {
    const COLChannel* plane = nullptr;
    int style = kOutlineSelection;
};

class IOutlineSource {
public:
    // Fills at most max entries; answers how many. The planes have the size of the picture.
    virtual int GetOutlinePlanes(OutlinePlane* planes, int max) = 0;
    // Changes whenever the picture or a plane changes, so that the canvas renders and traces again only then.
    virtual int GetOutlineVersion() const = 0;

protected:
    ~IOutlineSource() = default;
};
