#pragma once

#include <cstdint>

#include "commands/history_log.h"
#include "document/canvas_source.h"
#include "document/outline_source.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "imaging/rect.h"

class CLayerStack;

// Backgrounds behind the working image in selection mode.
enum SelectionDisplayMode : int {
    kShowColour = 1,     // the background colour
    kShowChecker = 2,    // 16-pixel squares anchored to document coordinates
    kShowPicture = 3,    // the background picture, centred, stretched only when it is smaller
    kShowMask = 4,       // black, the result mask as gray
    kShowSource = 5,     // the untouched layer picture, no composition
};

// Results of the bring-back operations.
enum BringBackResult : int {
    kBringBackDone = 0,
    kBringBackIsBase = 1,   // the source layer is the base (or unknown): the user is warned with "isbkwarning"
    kBringBackFailed = -1,  // no memory, or nothing to bring back
};

// Selection mode's state: a working copy of the current layer and three planes of its size (result mask, outer
// contour region, inner contour region), rendered over a chosen background. Empty in composition mode. It has no
// lock: a running process blocks the interface while it writes here.
class CSelectionDocument : public ICanvasSource, public ISelectionHistorySource, public IOutlineSource {
public:
    CSelectionDocument() = default;
    ~CSelectionDocument() override = default;
    CSelectionDocument(const CSelectionDocument&) = delete;
    CSelectionDocument& operator=(const CSelectionDocument&) = delete;

    // Clear, then copy the stack's current layer into the working image. False without a layer or memory.
    bool Begin(CLayerStack& stack);
    // Frees the result mask, both contour planes and the working image.
    void Clear();

    // ICanvasSource
    int SetView(ICanvasView* view) override;
    int Render(COLImage* target) override;
    void GetSize(int& width, int& height) override;
    int RenderWhole(COLImage* target, int width, int height) override;

    // IOutlineSource: the outer and inner planes (while shown) and the result mask, each with its own ants.
    int GetOutlinePlanes(OutlinePlane* planes, int max) override;
    int GetOutlineVersion() const override { return m_refreshCount; }

    // Counts and asks the view to repaint.
    void RefreshPreview();
    int GetRefreshCount() const { return m_refreshCount; }

    // ISelectionHistorySource and accessors.
    COLChannel* GetResultMask() override { return &m_resultMask; }
    COLChannel* GetInnerPlane() override { return &m_innerPlane; }
    COLChannel* GetOuterPlane() override { return &m_outerPlane; }
    COLImage* GetWorkingImage() override { return &m_working; }
    COLImage* GetSourceImage() const { return m_pSource; }
    void SetSourceImage(COLImage* image) { m_pSource = image; }
    COLImage* GetAuxiliaryImage() { return &m_auxiliary; }
    bool IsActive() const { return !m_working.IsNull(); }

    int GetDisplayMode() const { return m_displayMode; }
    void SetDisplayMode(int mode) { m_displayMode = mode; }
    uint32_t GetBackgroundColour() const { return m_background; }
    void SetBackgroundColour(uint32_t colour) { m_background = colour; }
    int GetCheckerStyle() const { return m_checkerStyle; }
    void SetCheckerStyle(int style) { m_checkerStyle = style; }
    COLImage* GetBackgroundPicture() { return &m_backgroundPicture; }
    int GetShowInner() const { return m_showInner; }
    int GetShowOuter() const { return m_showOuter; }
    void SetShowInner(int show) { m_showInner = show; }
    void SetShowOuter(int show) { m_showOuter = show; }
    int GetLastWord() const { return m_lastWord; }
    void SetLastWord(int word) { m_lastWord = word; }

    // The three steps of a repaint, on a picture that holds the document rectangle `rect`. Public for the
    // preview panels and the tests. FillBackground answers 0 when the mode has no background (or mode 3 has no
    // picture) and leaves the pixels as they were.
    int FillBackground(COLImage& image, CRect rect) const;
    void DrawWorking(COLImage& image, CRect rect) const;
    // The contour overlay goes into the alpha bytes, where the canvas finds it.
    void DrawContours(COLImage& image, CRect rect) const;

    // Bring-back of the result to the layer the mode was entered from.
    // The layer's alpha becomes the result mask.
    int ApplyToLayer(CLayerStack& stack);
    // A copy of the layer above it with the working colours and the mask as alpha; the lower layer's alpha also
    // becomes the mask; the copy becomes current.
    int SeparateToLayer(CLayerStack& stack);
    // The document's selection mask takes the result mask at the layer's position (0 outside it). Works on any
    // layer, the base too.
    int KeepAsSelection(CLayerStack& stack);
    // A copy of the layer above it with the working colours and the mask as alpha; the layer itself keeps its
    // pixels. With `offset` the copy stands 10 pixels right and down, visibly aside. The copy becomes current.
    // Works on the base too: it is how a base layer's cut-out is brought back.
    int CopyToLayer(CLayerStack& stack, bool offset);
    // A new background under the cut-out: the copy of CopyToLayer (offset), the canvas resized to the picture
    // (centred, new area `fill`), and the base layer's pixels replaced by the picture. A failure after the copy
    // keeps the copy.
    int ChangeBackground(CLayerStack& stack, const COLImage& picture, uint32_t fill);

private:
    COLImage m_working;
    COLImage* m_pSource = nullptr;
    COLImage m_auxiliary;
    COLChannel m_resultMask;
    COLChannel m_outerPlane;
    COLChannel m_innerPlane;
    ICanvasView* m_pView = nullptr;
    int m_refreshCount = 0;
    int m_displayMode = kShowChecker;
    uint32_t m_background = 0xFFFFFFFF;
    int m_checkerStyle = 1;
    COLImage m_backgroundPicture;
    int m_showInner = 1;
    int m_showOuter = 1;
    int m_lastWord = 0;
};
