#pragma once

#include <QImage>
#include <QTimer>
#include <QWidget>
#include <atomic>
#include <cstdint>
#include <vector>

#include "imaging/image.h"
#include "document/outline_source.h"
#include "shell/ants_outline.h"
#include "shell/canvas_view.h"
#include "shell/view_geometry.h"

class QScrollBar;
class CNavigator;

// The canvas: shows a source at a zoom with scroll bars, a zoom label and a navigator, animates the selection
// outline, draws the current tool's overlay after the picture, and hands all input to the current tool.
// The picture on screen is one buffer of the visible size, rebuilt only when zoom, origin or content changed.
class CImageView : public QWidget, public ICanvasView {
    Q_OBJECT
public:
    explicit CImageView(QWidget* parent = nullptr);
    ~CImageView() override;

    // ICanvasView
    void SetSource(ICanvasSource* source) override;
    ICanvasSource* GetSource() override { return m_pSource; }
    void SetSink(IViewSink* sink) override;
    void SetOverlay(IOverlayDrawer* overlay) override { m_pOverlay = overlay; }
    void Redraw() override;
    void DrawOverlayNow() override;
    long SetZoom(double zoom, bool redraw) override;
    double GetZoom() const override { return m_geo.GetZoom(); }
    long SetOrigin(VPoint* out, int x, int y, bool redraw) override;
    VPoint GetOrigin() const override { return m_geo.GetOrigin(); }
    VPoint GetViewSize() override { return {m_geo.GetImageRect().Width(), m_geo.GetImageRect().Height()}; }
    VRect GetImageRect() override { return m_geo.GetImageRect(); }
    VPoint ClientToImage(int x, int y) override { return m_geo.ClientToImage(x, y); }
    VPoint ImageToClient(int x, int y) override { return m_geo.ImageToClient(x, y); }
    void* GetWindowHandle() override { return static_cast<QWidget*>(this); }
    void Refresh() override;
    COLImage* GetDisplayBuffer() override { return &m_display; }
    void SetDisplayOverride(COLImage* image) override { m_pOverride = image; }
    // From the merge thread: a Refresh is queued to the interface thread; many in a row make one.
    void PostMergeDone() override;
    // The zoom commands: one stop in or out about the middle of the client area, or fit the picture.
    void ZoomIn() { ZoomStep(true, width() / 2, height() / 2); }
    void ZoomOut() { ZoomStep(false, width() / 2, height() / 2); }
    void ZoomFit();
    // Shows the whole picture, at most at maxZoom, and keeps it whole through size changes of the window until
    // the zoom or the origin is set otherwise.
    void FitWhole(double maxZoom);

    // One zoom stop in or out about a client point; only with a source.
    void ZoomStep(bool in, int x, int y) override;
    // The largest zoom that shows the whole picture without scroll bars (capped at maxZoom).
    double FitZoom(double maxZoom) const;

    // Builds the visible picture again when zoom or origin changed, or always with force. 0 when there is nothing
    // to show or the buffer cannot be made (the old picture then stays), 1 otherwise.
    int Render(bool force);

    const CViewGeometry& Geometry() const { return m_geo; }
    int AntsCount() const { return m_antsCount; }
    // Outline pixels of one style (EOutlineStyle), as indices into the display buffer with their stripe phase.
    const std::vector<uint32_t>& Ants(int style) const { return m_ants[style]; }
    // One step of the marching ants: recolours the outline pixels and asks to repaint only the part of the
    // canvas they cover (client pixels; empty without ants).
    QRect StepAnts();
    uint32_t AntsFrame() const { return m_antsFrame; }
    // The tool cursor shown over the picture (a ToolCursor role; 0 is the arrow). Called on pointer moves and
    // keys with the pointer's client position.
    void UpdateToolCursor(int x, int y);
    int CursorRole() const { return m_cursorRole; }
    bool IsNavigatorVisible() const;
    QScrollBar* HorizontalBar() const { return m_pHBar; }
    QScrollBar* VerticalBar() const { return m_pVBar; }
    uint32_t BackColor() const { return m_backColor; }

Q_SIGNALS:
    // The zoom or the visible part changed (for the navigator and the status bar).
    void ViewChanged();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    void Layout();
    void UpdateBars();
    void OnBarAction(bool horizontal, int action);
    void OnTimer();
    void BuildAnts();
    void DrawAnts();
    // Copies the display buffer to the screen picture; true when any pixel is selected (alpha of 127 or more).
    bool UpdateScreenCopy();
    uint32_t MouseFlags(Qt::MouseButtons buttons, Qt::KeyboardModifiers modifiers) const;

    ICanvasSource* m_pSource = nullptr;
    IViewSink* m_pSink = nullptr;
    IOverlayDrawer* m_pOverlay = nullptr;
    CViewGeometry m_geo;
    COLImage m_display; // the source's rendering, alpha = selection at screen size
    QImage m_screen;    // the same, opaque, with the outline drawn in
    COLImage* m_pOverride = nullptr;
    std::vector<uint32_t> m_ants[kOutlineStyles]; // outline pixels in the display buffer, by style
    AntsBox m_antsBox;                             // what they cover, in display buffer pixels
    std::vector<uint8_t> m_sampled;                // a plane at screen scale, while it is traced
    int m_antsCount = 0;
    int m_outlineVersion = -1;
    int m_cursorRole = 0;
    uint32_t m_antsFrame = 0;
    int m_tick = 0;
    bool m_rendered = false;
    double m_fitMax = 0; // above 0 while the picture is kept whole (FitWhole)
    double m_lastZoom = 0;
    VPoint m_lastOrigin{-1, -1};
    std::atomic<bool> m_pendingRefresh{false};
    int m_wheelRemainder = 0;
    QScrollBar* m_pHBar;
    QScrollBar* m_pVBar;
    CNavigator* m_pNavigator;
    QTimer m_timer;
    uint32_t m_backColor = 0x404040; // 0xRRGGBB, grey either way
};
