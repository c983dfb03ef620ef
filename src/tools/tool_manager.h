#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/bk_picker_tool.h"
#include "tools/contour_tools.h"
#include "tools/geometry_tools.h"
#include "tools/paint_tools.h"
#include "tools/selection_tools.h"
#include "tools/smart_adjust_tool.h"
#include "tools/tool_base.h"

// What the tool bar needs from the window around it. The editor implements it; the command line's replay has a
// small one of its own.
class IToolBarHost {
public:
    // Help panel slot 0, shown at once.
    virtual void ShowHelp(const std::string& text) = 0;
    // Shows the option panel of the current tool (null: none).
    virtual void ShowOptionPanel(CToolOptions* panel) = 0;
    // The tool bar's look changed.
    virtual void RedrawBar() = 0;
    // The canvas shows the selection document (true) or the compose document again, with the menus of the mode.
    virtual void OnModeChanged(bool selectionMode) = 0;
    // The result dialog of selection mode; its choices bring the result back. True when it ended with OK.
    virtual bool RunResultWizard() = 0;

protected:
    ~IToolBarHost() = default;
};

// Lists of buttons.
enum ToolList : int { kListCompose = 0, kListChroma = 1, kListInOut = 2 };

// Matting methods of selection mode.
enum SelectionMethod : int { kMethodChroma = 1, kMethodInOut = 2, kMethodDirect = 4 };

// Owns every tool, keeps the lists of buttons, the current tool and the mode; the only way to change the tool.
class CToolManager {
public:
    explicit CToolManager(CToolContext& context);
    CToolManager(const CToolManager&) = delete;
    CToolManager& operator=(const CToolManager&) = delete;

    void SetHost(IToolBarHost* host) { m_pHost = host; }
    // The canvas that the current tool gets as its view.
    void SetView(ICanvasView* view) { m_pView = view; }

    // Deactivates the current tool (which may forbid the next one), hands the new one to the view, shows its
    // help and panel, then activates it; a refused activation leaves no tool. The same tool again does nothing.
    void SetCurrentTool(CToolBase* next);
    CToolBase* GetCurrentTool() const { return m_pCurrent; }

    // Selection mode. Entering copies the current layer into the selection document, starts its history with
    // the step "createsel" and shows the list of the method. Leaving runs the result dialog, returns the canvas
    // to the compose document and records "His_selandproc" when the dialog ended with OK. False when entering
    // is not possible (no layer, no memory) or the mode is already the one asked for.
    bool EnterOrLeaveSelectionMode(bool enter, int32_t method, bool withHistory);
    bool IsSelectionMode() const { return m_selectionMode != 0; }
    uint32_t GetMethod() const { return m_method; }

    // Appends a tool to a list (at most once); a tool added to the inner-outer list that is already in the
    // chroma list joins the common list too.
    void AddTool(CToolBase* tool, int list);
    // The buttons shown now: compose list, or in selection mode the list of the method.
    const std::vector<CToolBase*>& GetShownTools() const;
    const std::vector<CToolBase*>& GetList(int list) const;
    const std::vector<CToolBase*>& GetCommonTools() const { return m_commonTools; }

    // Button cells: three columns of 20 pixels from x = 5; rows start at 75, or 95 in inner-outer selection
    // mode, where the "buildseltip" button takes the room above.
    CRect GetButtonRect(int index) const;
    // The shown tool whose cell holds the point; null when none (or the tool is disabled).
    CToolBase* HitTest(int x, int y) const;
    CToolBase* GetHotTool() const { return m_pHot; }
    void SetHotTool(CToolBase* tool) { m_pHot = tool; }
    void UpdateBars();

    // Tools by their short name, as scripts and the command line call them.
    struct NamedTool {
        const char* name;
        CToolBase* tool;
        const char* summary;
    };
    const std::vector<NamedTool>& GetNamedTools() const { return m_named; }
    CToolBase* FindTool(const std::string& name) const;

    CRectSelTool& GetRectTool() { return m_rect; }
    CRoundSelTool& GetRoundTool() { return m_round; }
    CFreeSelTool& GetFreeTool() { return m_free; }
    CPolygonSelTool& GetPolygonTool() { return m_polygon; }
    CMagicSelTool& GetMagicTool() { return m_magic; }
    COutPolygonTool& GetOutPolygonTool() { return m_outPolygon; }
    CInPolygonTool& GetInPolygonTool() { return m_inPolygon; }
    CModifyPolygonTool& GetModifyPolygonTool() { return m_modifyPolygon; }
    CEraseLayerTool& GetEraseLayerTool() { return m_eraseLayer; }
    CFreePaintTool& GetFreePaintTool() { return m_freePaint; }
    CCameraTool& GetCameraTool() { return m_camera; }
    CDesatTool& GetDesatTool() { return m_desat; }
    CPickerTool& GetPickerTool() { return m_picker; }
    CForePaintTool& GetForePaintTool() { return m_forePaint; }
    CEraseSelTool& GetEraseSelTool() { return m_eraseSel; }
    CPlaneBrushTool& GetInnerBrushTool() { return m_innerBrush; }
    CPlaneBrushTool& GetOuterBrushTool() { return m_outerBrush; }
    CBkPickerTool& GetBkPickerTool() { return m_bkPicker; }
    CInjectTool& GetInjectTool() { return m_inject; }
    CZoomTool& GetZoomTool() { return m_zoom; }
    CSmartAdjustTool& GetSmartAdjustTool() { return m_smartAdjust; }
    CCropTool& GetCropTool() { return m_crop; }
    CTransformTool& GetTransformTool() { return m_transform; }
    CMoveTool& GetMoveTool() { return m_move; }
    // A transform frame is up: its layer is hidden while the frame shows it, so whatever writes or prints the
    // document leaves the tool first (which shows the layer again).
    bool IsTransforming() const { return m_pCurrent == &m_transform && m_transform.GetState() != 0; }
    // Every brush tool, for the option panels and the settings.
    std::vector<CPaintTool*> GetPaintTools();
    // The option panels in the order they were registered.
    const std::vector<CToolOptions*>& GetOptionPanels() const { return m_panels; }

private:
    void RegisterPanel(CToolBase* tool);

    CToolContext& m_context;
    IToolBarHost* m_pHost = nullptr;
    ICanvasView* m_pView = nullptr;
    std::vector<CToolBase*> m_composeTools;
    std::vector<CToolBase*> m_inOutTools;
    std::vector<CToolBase*> m_chromaTools;
    std::vector<CToolBase*> m_commonTools;
    std::vector<CToolOptions*> m_panels;
    CToolBase* m_pCurrent = nullptr;
    CToolBase* m_pHot = nullptr;
    uint32_t m_selectionMode = 0;
    uint32_t m_method = 0;

    CPolygonSelTool m_polygon;
    CFreeSelTool m_free;
    CRectSelTool m_rect;
    CRoundSelTool m_round;
    CMagicSelTool m_magic;
    COutPolygonTool m_outPolygon;
    CInPolygonTool m_inPolygon;
    CModifyPolygonTool m_modifyPolygon;
    CEraseLayerTool m_eraseLayer;
    CFreePaintTool m_freePaint;
    CCameraTool m_camera;
    CDesatTool m_desat;
    CPickerTool m_picker;
    CForePaintTool m_forePaint;
    CEraseSelTool m_eraseSel;
    CPlaneBrushTool m_innerBrush;
    CPlaneBrushTool m_outerBrush;
    CBkPickerTool m_bkPicker;
    CInjectTool m_inject;
    CZoomTool m_zoom;
    CSmartAdjustTool m_smartAdjust;
    CCropTool m_crop;
    CTransformTool m_transform;
    CMoveTool m_move;
    std::vector<NamedTool> m_named;
};
