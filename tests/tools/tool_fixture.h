#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "commands/command.h"
#include "commands/history_log.h"
#include "commands/history_sink.h"
#include "document/compose_document.h"
#include "document/layer.h"
#include "document/selection_document.h"
#include "effects/polygon_fill.h"
#include "imaging/channel.h"
#include "support/engine_checks.h"
#include "support/temp_folder.h"
#include "support/test_support.h"
#include "tools/tool_manager.h"

namespace vmtest {

// A pointer path in client pixels: pressed at the first point, moved through the others.
using Path = std::vector<std::pair<int, int>>;

// A canvas at zoom 1 from the origin (until a test moves it): client pixels are image pixels. A test may give it a
// screen picture, as the editor's canvas has, to read back what a tool puts on screen in its place.
class FakeView final : public ICanvasView {
public:
    double GetZoom() const override { return m_zoom; }
    CViewPoint GetOrigin() const override { return m_origin; }
    void Redraw() override
    {
        ++redraws;
        if (overlay) overlay->DrawOverlay(dc, true);
    }
    void PostMergeDone() override {}
    void SetSink(IViewSink* s) override
    {
        sink = s;
        if (s) s->SetView(this);
        calls.push_back(s ? "sink" : "null sink");
    }
    void SetOverlay(IOverlayDrawer* o) override
    {
        overlay = o;
        calls.push_back(o ? "overlay" : "null overlay");
    }
    void DrawOverlayNow() override
    {
        if (overlay) overlay->DrawOverlay(dc, false);
    }
    long SetZoom(double zoom, bool) override
    {
        m_zoom = zoom;
        return 0;
    }
    long SetOrigin(CViewPoint* out, int x, int y, bool) override
    {
        m_origin = {x, y};
        if (out) *out = m_origin;
        return 0;
    }
    CRect GetImageRect() override { return imageRect; }
    // The canvas's screen picture, when a test gives it one, and what a tool shows in its place.
    COLImage* GetDisplayBuffer() override { return display.IsNull() ? nullptr : &display; }
    void SetDisplayOverride(COLImage* image) override { shown = image; }
    void ZoomStep(bool in, int x, int y) override { zoomSteps.push_back({in ? 1 : 0, x, y}); }
    CViewPoint ClientToImage(int x, int y) override
    {
        return {int(m_origin.x + x / m_zoom), int(m_origin.y + y / m_zoom)};
    }
    CViewPoint ImageToClient(int x, int y) override
    {
        return {int((x - m_origin.x) * m_zoom), int((y - m_origin.y) * m_zoom)};
    }

    // Counts the inverted lines: a line drawn twice is gone.
    struct CountingDC final : IOverlayDC {
        int lines = 0;
        void DrawLine(int, int, int, int) override { ++lines; }
    } dc;
    IViewSink* sink = nullptr;
    IOverlayDrawer* overlay = nullptr;
    std::vector<std::string> calls;
    int redraws = 0;
    std::vector<std::array<int, 3>> zoomSteps;   // in (1) or out (0), client x, y
    CRect imageRect{0, 0, 10000, 10000};
    COLImage display;
    COLImage* shown = nullptr;

private:
    double m_zoom = 1.0;
    CViewPoint m_origin;
};

class FakeBarHost final : public IToolBarHost {
public:
    void ShowHelp(const std::string& text) override { help.push_back(text); }
    void ShowOptionPanel(CToolOptions* panel) override { panels.push_back(panel); }
    void RedrawBar() override { ++barRedraws; }
    void OnModeChanged(bool selectionMode) override { modes.push_back(selectionMode); }
    bool RunResultWizard() override { return wizardAnswer(); }
    std::vector<std::string> help;
    std::vector<CToolOptions*> panels;
    std::vector<bool> modes;
    int barRedraws = 0;
    std::function<bool()> wizardAnswer = [] { return true; };
};

// The polygon fill of a closed outline into a zeroed plane of the given size.
inline std::vector<uint8_t> Filled(const std::vector<CPolyPoint>& outline, int w, int h)
{
    COLChannel c = Plane(uint32_t(w), uint32_t(h), 0);
    FillPolygon(outline.data(), outline.size(), &c);
    return Bytes(c);
}

// Soft union and difference written out byte by byte.
inline std::vector<uint8_t> PlainAdd(std::vector<uint8_t> a, const std::vector<uint8_t>& b)
{
    for (size_t i = 0; i < a.size(); ++i)
        a[i] = b[i] == 255 ? 255 : b[i] ? uint8_t(((255 - b[i]) * a[i] + 255 * b[i]) / 255) : a[i];
    return a;
}
inline std::vector<uint8_t> PlainSubtract(std::vector<uint8_t> a, const std::vector<uint8_t>& b)
{
    for (size_t i = 0; i < a.size(); ++i) a[i] = b[i] == 255 ? 0 : b[i] ? uint8_t((255 - b[i]) * a[i] / 255) : a[i];
    return a;
}

// A document of W x H noise with the two histories, the selection document and the tool manager wired up as
// the editor does.
class ToolTest : public ::testing::Test {
protected:
    static constexpr int W = 40, H = 30;
    void SetUp() override
    {
        ASSERT_EQ(doc.NewDocument(W, H, 0xFF808080), 1);
        doc.GetLayer(0)->m_image = OpaqueNoise(W, H, 11);
        ASSERT_EQ(composeLog.Init(), 1);
        ASSERT_EQ(selectionLog.Init(), 1);
        composeLog.AddStep(&doc, kStepWholeDocument, 0, "His_open");
        context.message = [this](const char* key) { messages.push_back(key); };
        context.document = &doc;
        context.composeHistory = &composeLog;
        context.selection = &selection;
        context.selectionHistory = &selectionLog;
        manager = std::make_unique<CToolManager>(context);
        manager->SetView(&view);
        manager->SetHost(&host);
        selection.SetView(&view);
    }
    void TearDown() override { manager.reset(); }
    IViewSink& Sink() { return *view.sink; }
    void Drag(int x0, int y0, int x1, int y1)
    {
        Sink().OnMouseMove(0, x0, y0);
        Sink().OnLButtonDown(kMkLButton, x0, y0);
        Sink().OnMouseMove(kMkLButton, (x0 + x1) / 2, (y0 + y1) / 2);
        Sink().OnMouseMove(kMkLButton, x1, y1);
        Sink().OnLButtonUp(0, x1, y1);
    }
    void Click(int x, int y)
    {
        Sink().OnMouseMove(0, x, y);
        Sink().OnLButtonDown(kMkLButton, x, y);
        Sink().OnLButtonUp(0, x, y);
    }
    // Presses at the first point of the path, moves through the others with the button held and releases at the
    // last, with `flags` (Shift, Ctrl) held throughout and `key` pressed around the stroke when given; frame(i)
    // runs after the press (0) and after each move.
    void Paint(const Path& path, uint32_t flags = 0, uint32_t key = 0, const std::function<void(size_t)>& frame = {})
    {
        if (key) Sink().OnKeyDown(key, 0);
        Sink().OnMouseMove(flags, path[0].first, path[0].second);
        Sink().OnLButtonDown(kMkLButton | flags, path[0].first, path[0].second);
        for (size_t i = 0; i < path.size(); ++i) {
            if (i) Sink().OnMouseMove(kMkLButton | flags, path[i].first, path[i].second);
            if (frame) frame(i);
        }
        Sink().OnLButtonUp(flags, path.back().first, path.back().second);
        if (key) Sink().OnKeyUp(key, 0);
    }
    // Clicks the corners of a closed outline (its last point repeats the first) and ends it with a double click
    // on the last corner.
    void ClickPolygon(const std::vector<CPolyPoint>& outline)
    {
        Sink().OnLButtonDown(kMkLButton, outline[0].x, outline[0].y);
        for (size_t i = 0; i + 1 < outline.size(); ++i) Sink().OnLButtonUp(0, outline[i].x, outline[i].y);
        Sink().OnLButtonDblClk(kMkLButton, outline[outline.size() - 2].x, outline[outline.size() - 2].y);
    }
    std::string LastLabel(const CHistoryLog& log) const
    {
        const CHistoryRecord* r = log.GetRecord(log.GetCount() - 1);
        return r ? r->label : "";
    }
    std::vector<uint8_t> Mask() { return Bytes(doc.GetSelectionMask()); }
    // Drags a rectangle with the rectangle tool, which stays taken; the selection mask it leaves.
    std::vector<uint8_t> SelectRect(int x0, int y0, int x1, int y1)
    {
        manager->SetCurrentTool(&manager->GetRectTool());
        Drag(x0, y0, x1, y1);
        return Mask();
    }
    // A paint tool taken with these brush values, drawing every frame at once.
    void Take(CPaintTool& tool, int size, int soft, int alpha)
    {
        tool.SetFramePacing(0);
        ASSERT_TRUE(tool.GetBrush().SetValues(size, soft, alpha));
        manager->SetCurrentTool(&tool);
        ASSERT_EQ(manager->GetCurrentTool(), &tool);
    }
    // An upper layer holding `image` at (x, y), made current and recorded as the editor's open step would.
    CLayer* AddUpperLayer(int x, int y, COLImage image)
    {
        CLayer* layer = doc.AddLayer(0, kLayerKindRaster);
        layer->m_image = std::move(image);
        layer->m_x = x;
        layer->m_y = y;
        doc.SetCurrentIndex(1);
        composeLog.AddStep(&doc, kStepWholeDocument, 0, "His_open");
        return layer;
    }
    // One step was added to the compose log since it held `steps`, of this kind, argument and label.
    void ExpectOneStep(int steps, int32_t kind, int32_t arg, const std::string& label)
    {
        ASSERT_EQ(composeLog.GetCount(), steps + 1);
        EXPECT_EQ(composeLog.GetRecord(steps)->kind, kind);
        EXPECT_EQ(composeLog.GetRecord(steps)->arg, arg);
        EXPECT_EQ(LastLabel(composeLog), label);
    }

    ScopedTempFolder m_tmp;   // the logs' folder, first made and last removed
    std::vector<std::string> messages;   // the keys of the messages the tools showed, in order
    CComposeDocument doc;
    CComposeHistory composeLog;
    CSelectionHistory selectionLog;
    CSelectionDocument selection;
    CToolContext context;
    FakeView view;
    FakeBarHost host;
    std::unique_ptr<CToolManager> manager;
};

// What a command needs of the editor, with the mode taken from the tool manager.
class ModeHost final : public ICommandHost {
public:
    ModeHost(CToolManager& m, CSelectionHistory& h, CSelectionDocument& s) : manager(m), history(h), selection(s) {}
    bool CopyToClipboard(CComposeDocument&) override { return false; }
    bool PasteFromClipboard(CComposeDocument&, IHistorySink*) override { return false; }
    bool AskOpenPath(bool, std::string&) override { return false; }
    bool RunFillDialog() override { return false; }
    bool RunInpaintDialog() override { return false; }
    void ShowMessage(const char*) override {}
    bool Zoom(int) override { return true; }
    void CancelTool() override { manager.SetCurrentTool(nullptr); }
    bool IsSelectionMode() override { return manager.IsSelectionMode(); }
    IHistoryNavigator* GetSelectionHistory() override { return &history; }
    void RefreshSelectionDocument() override { selection.RefreshPreview(); }
    void UpdatePanels() override {}
    CToolManager& manager;
    CSelectionHistory& history;
    CSelectionDocument& selection;
};

// History commands as the editor runs them, with the mode taken from the tool manager.
class CommandTest : public ToolTest {
protected:
    int Run(const char* line)
    {
        if (!m_host) m_host = std::make_unique<ModeHost>(*manager, selectionLog, selection);
        CCommandContext command;
        command.document = &doc;
        command.history = &composeLog;
        command.host = m_host.get();
        return ExecuteCommand(command, line);
    }
    std::unique_ptr<ModeHost> m_host;
};

} // namespace vmtest
