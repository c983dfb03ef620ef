#pragma once

#include <algorithm>

// The arithmetic of the canvas: zoom stops, where the picture sits in the client area, which part of the image is
// visible, scroll bars and the two coordinate conversions. No window here, so all of it is tested directly.

#include "document/canvas_source.h"
#include "imaging/rect.h"

// Rectangles are left/top inclusive, right/bottom exclusive; points are pixel positions.
using VRect = CRect;
using VPoint = CViewPoint;
inline bool operator==(const CViewPoint& a, const CViewPoint& b)
{
    return a.x == b.x && a.y == b.y;
}

inline constexpr int kZoomStopCount = 16;
extern const double kZoomStops[kZoomStopCount];
inline constexpr double kMinZoom = 0.1;
inline constexpr double kMaxZoom = 10.0;
inline constexpr int kScrollBarSize = 16;

// The next stop above (in) or below (out) zoom; 10 and 0.1 when there is none.
double NextZoomStop(double zoom, bool in);

// Truncation toward zero as a C cast does it, but safe for any double.
int TruncToInt(double v);

enum class EScrollKind { kLineUp, kLineDown, kPageUp, kPageDown, kTrack };

struct ScrollBarLayout {
    bool visible = false;
    VRect rect;       // in client pixels
    int page = 0;     // visible image pixels
    int maximum = 0;  // image size - 1
    int position = 0; // the origin
};

class CViewGeometry {
public:
    // 0 x 0 means no source.
    void SetImageSize(int width, int height);
    void SetClientSize(int width, int height);
    int ImageWidth() const { return m_imageWidth; }
    int ImageHeight() const { return m_imageHeight; }
    int ClientWidth() const { return m_width; }
    int ClientHeight() const { return m_height; }

    // Recomputes bars, image area, the clamped origin and the image rectangle. False while the client is empty.
    bool Layout();
    bool IsLaidOut() const { return m_area.left >= 0; }

    double GetZoom() const { return m_zoom; }
    // Stores the zoom and lays out again; false when the layout has no room.
    bool SetZoom(double zoom);
    VPoint GetOrigin() const { return {m_originX, m_originY}; }
    // Stores the image point shown at the top-left corner, lays out, and answers the origin after clamping.
    VPoint SetOrigin(int x, int y);

    const VRect& GetImageArea() const { return m_area; }
    const VRect& GetImageRect() const { return m_imageRect; }
    bool HasHBar() const { return m_hBar; }
    bool HasVBar() const { return m_vBar; }
    ScrollBarLayout HBar() const;
    ScrollBarLayout VBar() const;
    // The 16 x 16 box between the bars, and the zoom label at the end of the horizontal bar.
    VRect CornerBox() const { return {m_width - 17, m_height - 17, m_width - 1, m_height - 1}; }
    VRect ZoomLabelRect() const { return {m_width - 17 - m_labelWidth, m_height - 17, m_width - 17, m_height}; }
    // The label is 49 pixels wide unless its widest text needs more; the horizontal bar gives up the room.
    void SetZoomLabelWidth(int width) { m_labelWidth = std::max(49, width); }

    // The largest zoom, up to maxZoom, at which the whole picture shows without scroll bars at the current client
    // size; 1 without a picture.
    double FitZoom(double maxZoom) const;

    // Image pixels visible along each axis, as the origin is clamped with them.
    int VisibleWidth() const;
    int VisibleHeight() const;

    VPoint ClientToImage(int x, int y) const;
    VPoint ImageToClient(int x, int y) const;

    // One zoom step about a client point: the new zoom, and when the point lies on the picture the origin that
    // brings that image point to the middle (before clamping).
    struct ZoomStepResult {
        double zoom;
        bool recentre;
        VPoint origin;
    };
    ZoomStepResult ComputeZoomStep(bool in, int x, int y) const;

    // A scroll bar event: the new origin along that axis (then clamped by SetOrigin).
    int ScrollTarget(bool horizontal, EScrollKind kind, int trackPosition) const;

private:
    int VisibleAlong(int areaSize, bool barPresent) const;

    double m_zoom = 1.0;
    int m_originX = 0;
    int m_originY = 0;
    int m_width = 0;
    int m_height = 0;
    int m_imageWidth = 0;
    int m_imageHeight = 0;
    VRect m_area{-1, -1, -1, -1};
    VRect m_imageRect;
    bool m_hBar = false;
    bool m_vBar = false;
    int m_labelWidth = 49;
};
