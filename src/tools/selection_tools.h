#pragma once

#include <string>

#include "effects/polygon_fill.h"
#include "tools/tool_base.h"

class COLChannel;

// Combination of a new outline with the selection.
enum SelectionMode : uint32_t { kSelNew = 0, kSelAdd = 1, kSelSubtract = 2 };

// The settings of the selection tools: the combination mode, shown as three toggle buttons (New, Add,
// Subtract). With New not allowed, the neutral mode is Subtract.
class CPropSel : public CToolOptions {
public:
    // A non-zero mode is stored as it is; 0 stores New, or Subtract when New is not allowed.
    void SetMode(int mode)
    {
        m_mode = mode != 0 ? uint32_t(mode) : (m_allowNew ? kSelNew : kSelSubtract);
        Changed();
    }
    uint32_t GetMode() const { return m_mode; }
    void SetAllowNew(uint32_t allow) { m_allowNew = allow; }
    uint32_t GetAllowNew() const { return m_allowNew; }

private:
    uint32_t m_mode = kSelNew;
    uint32_t m_allowNew = 1;
};

// The tolerance tool's settings: the mode and the tolerance as the user typed it (two digits, default "10").
class CPropMagicSel : public CPropSel {
public:
    void SetTolerance(const std::string& text)
    {
        m_tolerance = text.substr(0, 2);
        Changed();
    }
    const std::string& GetToleranceText() const { return m_tolerance; }
    // The text read as a number: leading digits only, 0 when there are none, at most 99.
    int GetTolerance() const;

private:
    std::string m_tolerance = "10";
};

// Base of the selection tools: the mask it edits, the mode keys (Shift adds, Ctrl subtracts, Space is a
// close-up lens, arrows nudge the selection), the scroll during a drag, and the shared rasterise and commit.
class CNormalSelTool : public CToolBase {
public:
    CNormalSelTool(CToolContext* context, const char* tipKey, const char* helpKey, uint32_t iconId);

    int OnActivate() override;
    int OnDeactivate() override;
    std::string GetHelpText() override;
    int OnKeyDown(uint32_t key, uint32_t flags) override;
    int OnKeyUp(uint32_t key, uint32_t flags) override;
    int OnMouseMove(uint32_t flags, int x, int y) override;
    int OnTimer() override;
    // The role follows the panel's mode, which its buttons may have changed since the last event.
    int OnSetCursor(int, int, int, int, int, int) override
    {
        UpdateCursor();
        return 1;
    }

    CPropSel& GetPanel() { return *m_pPanel; }
    uint32_t GetKeyMode() const { return m_keyMode; }
    bool IsDragging() const { return m_dragging != 0; }
    // Moves the selection by whole image pixels; the step is recorded when the tool is left.
    void Nudge(int dx, int dy);
    void SpaceLens(bool on);

    virtual void OnAutoScrollTick();
    virtual void OnMaskChanged();
    virtual COLChannel* GetMask();
    virtual void CommitNudge();
    virtual void CommitSelection();
    virtual void BuildOutline() {}
    // Writes the outline into the mask by the panel's mode; false when the mask cannot be made.
    virtual bool Rasterise();

protected:
    // The plane (of document size) cleared, and the outline filled into it.
    virtual long FillShape(COLChannel& plane) { return m_outline.ClearAndFillInto(&plane); }
    virtual void UpdateCursor() {}
    // Document size: the compose document's, or the working image's in selection mode.
    bool GetDocumentSize(int& width, int& height);
    bool MaskHasPixels();
    // The start-of-drag rule: a new outline in New mode replaces the selection at once.
    bool DropSelectionForNewOutline();
    void Lock(bool enter);
    int PanelMode() const { return int(m_pPanel->GetMode()); }

    CPropSel m_panel;
    CPropSel* m_pPanel = &m_panel;
    COLChannel* m_pMask = nullptr;
    uint32_t m_maskMoved = 0;
    uint32_t m_uncommitted = 0;
    uint32_t m_canNudge = 1;
    std::string m_helpText;
    uint32_t m_dragging = 0;
    uint32_t m_autoScroll = 0;
    uint32_t m_keyMode = 0;
    uint8_t m_keyBits = 0;
    uint32_t m_scrollX = 0, m_scrollY = 0;
    int32_t m_lastX = 0, m_lastY = 0;
    int32_t m_scrolledX = -1, m_scrolledY = -1;
    CPolygonMask m_outline;
};

class CRectSelTool : public CNormalSelTool {
public:
    explicit CRectSelTool(CToolContext* context, const char* tipKey = "rectseltip",
                          const char* helpKey = "helprectsel", uint32_t iconId = 170);
    int DrawOverlay(IOverlayDC& dc, bool repainted) override;
    int OnLButtonDown(uint32_t flags, int x, int y) override;
    int OnMouseMove(uint32_t flags, int x, int y) override;
    int OnLButtonUp(uint32_t flags, int x, int y) override;
    void BuildOutline() override;
    void OnAutoScrollTick() override;

protected:
    void UpdateCursor() override;
    CViewPoint m_start, m_end;
};

// The ellipse inscribed in the dragged rectangle; its outline only serves the rubber band.
class CRoundSelTool : public CRectSelTool {
public:
    explicit CRoundSelTool(CToolContext* context);
    int DrawOverlay(IOverlayDC& dc, bool repainted) override;
    void BuildOutline() override;

protected:
    long FillShape(COLChannel& plane) override;
};

// Free-hand outline (lasso).
class CFreeSelTool : public CNormalSelTool {
public:
    explicit CFreeSelTool(CToolContext* context);
    int DrawOverlay(IOverlayDC& dc, bool repainted) override;
    int OnLButtonDown(uint32_t flags, int x, int y) override;
    int OnMouseMove(uint32_t flags, int x, int y) override;
    int OnLButtonUp(uint32_t flags, int x, int y) override;
    void OnAutoScrollTick() override;
    // The rasteriser takes at most this many points; longer outlines are thinned first.
    static constexpr size_t kMaxPoints = 1000;

protected:
    void UpdateCursor() override;
    size_t m_drawn = 0;   // points already drawn as overlay segments
};

// Polygon by clicks: a click adds a corner, a click on the first point, a double click or the right button
// (which takes the last corner back) shape it; closing rasterises.
class CPolygonSelTool : public CNormalSelTool {
public:
    explicit CPolygonSelTool(CToolContext* context, const char* tipKey = "polygonseltip", uint32_t iconId = 153);
    int DrawOverlay(IOverlayDC& dc, bool repainted) override;
    int OnLButtonDown(uint32_t flags, int x, int y) override;
    int OnLButtonUp(uint32_t flags, int x, int y) override;
    int OnMouseMove(uint32_t flags, int x, int y) override;
    int OnRButtonUp(uint32_t flags, int x, int y) override;
    int OnLButtonDblClk(uint32_t flags, int x, int y) override;
    void OnAutoScrollTick() override;
    void FinishPolygon();
    const CPolygonMask& GetOutline() const { return m_outline; }
    // The last outline rasterised in New mode, closing point included.
    const CPolygonMask& GetLastNewOutline() const { return m_lastNew; }

protected:
    // What follows the rasterising, before the commit.
    virtual void AfterPolygon() { OnMaskChanged(); }
    void UpdateCursor() override;
    bool m_rubber = false;
    CViewPoint m_rubberEnd;
    CPolygonMask m_lastNew;
    CViewPoint m_lastOrigin{-1, -1};
};

// Polygon on a plane of the selection document; records to the selection history.
class CPlanePolygonTool : public CPolygonSelTool {
public:
    CPlanePolygonTool(CToolContext* context, const char* tipKey, uint32_t iconId, uint32_t planeBit);
    int IsSelectionModeTool() override { return 1; }
    void OnMaskChanged() override;
    COLChannel* GetMask() override;
    void CommitSelection() override;

protected:
    void AfterPolygon() override;
    uint32_t m_planeBit;
};

class COutPolygonTool : public CPlanePolygonTool {
public:
    explicit COutPolygonTool(CToolContext* context);
};

class CInPolygonTool : public CPlanePolygonTool {
public:
    explicit CInPolygonTool(CToolContext* context);
};

// Polygon on the result mask. Where the mask rises above the working image's alpha, the colour is taken back
// from the untouched layer picture in proportion, and the alpha follows the mask.
class CModifyPolygonTool : public CPlanePolygonTool {
public:
    explicit CModifyPolygonTool(CToolContext* context);

protected:
    void AfterPolygon() override;
};

// Tolerance (magic wand): floods from the pressed pixel.
class CMagicSelTool : public CNormalSelTool {
public:
    explicit CMagicSelTool(CToolContext* context);
    int OnLButtonDown(uint32_t flags, int x, int y) override;
    // Selects from the seed (canvas pixels) by the panel's mode; false when memory runs out.
    bool Fill(int seedX, int seedY);
    CPropMagicSel& GetMagicPanel() { return m_magicPanel; }

protected:
    void UpdateCursor() override;
    CPropMagicSel m_magicPanel;
};
