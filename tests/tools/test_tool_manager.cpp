#include "tool_fixture.h"

#include <algorithm>

#include "commands/command.h"
#include "support/engine_checks.h"

using vmtest::Filled;
using vmtest::Bytes;
using vmtest::CommandTest;
using vmtest::ToolTest;

namespace {

// A tool that counts its lifecycle calls and can refuse either change.
class ProbeTool final : public CToolBase {
public:
    explicit ProbeTool(CToolContext* context) : CToolBase(context, "probetip", "probehelp", 1) {}
    int OnActivate() override
    {
        ++activations;
        return allowActivate;
    }
    int OnDeactivate() override
    {
        ++deactivations;
        return allowDeactivate;
    }
    int activations = 0, deactivations = 0, allowActivate = 1, allowDeactivate = 1;
};

} // namespace

TEST_F(ToolTest, SwitchOrderAndRefusals)
{
    ProbeTool a(&context), b(&context);
    manager->SetCurrentTool(&a);
    EXPECT_EQ(manager->GetCurrentTool(), &a);
    EXPECT_EQ(view.sink, &a);
    EXPECT_EQ(host.help.back(), "probehelp") << "an empty help text is looked up by key";
    manager->SetCurrentTool(&a);
    EXPECT_EQ(a.activations, 1) << "the same tool again changes nothing";
    EXPECT_EQ(a.deactivations, 0);

    a.allowDeactivate = 0;
    manager->SetCurrentTool(&b);
    EXPECT_EQ(manager->GetCurrentTool(), nullptr) << "a refused deactivation leaves no tool, not the old one";
    EXPECT_EQ(b.activations, 0);
    EXPECT_EQ(view.sink, nullptr);
    EXPECT_EQ(view.overlay, nullptr);

    b.allowActivate = 0;
    manager->SetCurrentTool(&b);
    EXPECT_EQ(manager->GetCurrentTool(), nullptr);
    EXPECT_EQ(b.activations, 1);
    // The overlay is given before the sink, both times.
    const std::vector<std::string> tail(view.calls.end() - 4, view.calls.end());
    EXPECT_EQ(tail, (std::vector<std::string>{"overlay", "sink", "null overlay", "null sink"}));
}

TEST_F(ToolTest, ListsAndButtonCells)
{
    // The tools every selection mode shows, in the order of their cells.
    const std::vector<CToolBase*> common{&manager->GetModifyPolygonTool(), &manager->GetForePaintTool(),
                                         &manager->GetEraseSelTool(), &manager->GetZoomTool()};
    EXPECT_EQ(manager->GetCommonTools(), common);
    manager->AddTool(&manager->GetModifyPolygonTool(), kListInOut);
    EXPECT_EQ(manager->GetCommonTools(), common) << "a tool stands once in a list";

    EXPECT_EQ(manager->GetButtonRect(4), (CRect{25, 95, 44, 114})) << "cell 4: column 1, row 1";
    EXPECT_EQ(manager->HitTest(26, 96), &manager->GetRectTool());
    EXPECT_EQ(manager->HitTest(4, 80), nullptr);
    manager->GetRectTool().SetEnabled(0);
    EXPECT_EQ(manager->HitTest(26, 96), nullptr) << "a disabled tool cannot be hit";
    ASSERT_TRUE(manager->EnterOrLeaveSelectionMode(true, kMethodInOut, true));
    EXPECT_EQ(manager->GetButtonRect(0).top, 95) << "room for the build button in inner-outer mode";
    EXPECT_EQ(manager->GetShownTools(), manager->GetList(kListInOut));
}

TEST_F(CommandTest, SelectionModePolygonsUndoOnTheSelectionLog)
{
    ASSERT_TRUE(manager->EnterOrLeaveSelectionMode(true, kMethodInOut, true));
    EXPECT_EQ(host.modes, (std::vector<bool>{true}));
    ASSERT_EQ(selectionLog.GetCount(), 1);
    EXPECT_EQ(LastLabel(selectionLog), std::string("createsel"));
    const int composeSteps = composeLog.GetCount();

    manager->SetCurrentTool(&manager->GetOutPolygonTool());
    const std::vector<CPolyPoint> outer = {{2, 2}, {36, 3}, {30, 27}, {2, 2}};
    ClickPolygon(outer);
    EXPECT_EQ(Bytes(*selection.GetOuterPlane()), Filled(outer, W, H));
    // Two steps for one polygon, both of the outer plane; the compose log is not touched.
    ASSERT_EQ(selectionLog.GetCount(), 3);
    EXPECT_EQ(selectionLog.GetRecord(2)->arg, int32_t(kPlaneOuter));
    EXPECT_EQ(composeLog.GetCount(), composeSteps);

    manager->SetCurrentTool(&manager->GetInPolygonTool());
    const std::vector<CPolyPoint> inner = {{10, 8}, {25, 9}, {20, 20}, {10, 8}};
    ClickPolygon(inner);
    EXPECT_EQ(Bytes(*selection.GetInnerPlane()), Filled(inner, W, H));

    ASSERT_EQ(Run("UI_HistoryJumpTo('3')"), kCommandDone);
    EXPECT_TRUE(selection.GetInnerPlane()->IsNull());
    EXPECT_EQ(Bytes(*selection.GetOuterPlane()), Filled(outer, W, H));
    ASSERT_EQ(Run("UI_HistoryJumpTo('1')"), kCommandDone);
    EXPECT_TRUE(selection.GetOuterPlane()->IsNull());
    ASSERT_EQ(Run("UI_HistoryJumpTo('5')"), kCommandDone);
    EXPECT_EQ(Bytes(*selection.GetInnerPlane()), Filled(inner, W, H));
    EXPECT_EQ(composeLog.GetCount(), composeSteps) << "history moves in selection mode stay on its own log";
}

TEST_F(CommandTest, ModifyPolygonTakesColourBackAndLeavingKeepsTheResult)
{
    ASSERT_NE(doc.AddLayer(0, 0), nullptr);
    doc.SetCurrentIndex(1);
    CLayer* layer = doc.GetLayer(1);
    vmtest::FillNoise(layer->m_image, W, H, 5);
    layer->m_x = 0;
    ASSERT_TRUE(manager->EnterOrLeaveSelectionMode(true, kMethodChroma, true));
    // As after a matting run: the working image has lost its alpha and its colours were changed.
    COLImage& working = *selection.GetWorkingImage();
    for (size_t i = 0; i < working.GetPixelCount(); ++i) working.GetBuffer()[i] = CPixel::Make(0, 0, 0, 40);
    const COLImage before = vmtest::Copy(working);
    selectionLog.AddStep(&selection, kStepLayerRegion, 0, "matting");

    manager->SetCurrentTool(&manager->GetModifyPolygonTool());
    const std::vector<CPolyPoint> outline = {{5, 5}, {30, 5}, {30, 25}, {5, 25}, {5, 5}};
    ClickPolygon(outline);
    const std::vector<uint8_t> mask = Filled(outline, W, H);
    ASSERT_EQ(Bytes(*selection.GetResultMask()), mask);
    for (size_t i = 0; i < working.GetPixelCount(); ++i) {
        const CPixel w = working.GetBuffer()[i], src = layer->m_image.GetBuffer()[i], old = before.GetBuffer()[i];
        ASSERT_EQ(w.alpha, mask[i]);
        const uint32_t d = mask[i] > old.alpha ? mask[i] - old.alpha : 0;
        ASSERT_EQ(w.red, uint8_t((src.red * d + old.red * (255 - d)) / 255)) << i;
        ASSERT_EQ(w.blue, uint8_t((src.blue * d + old.blue * (255 - d)) / 255)) << i;
    }

    // Undo brings the colours back as well as the mask.
    ASSERT_EQ(selectionLog.GetCount(), 4);
    ASSERT_EQ(Run("UI_HistoryJumpTo('2')"), kCommandDone);
    EXPECT_TRUE(vmtest::SameColours(working, before));
    ASSERT_EQ(Run("UI_HistoryForward"), kCommandDone);
    ASSERT_EQ(Run("UI_HistoryForward"), kCommandDone);

    // Leaving with OK: the wizard keeps the result as the document's selection, and the step is recorded.
    host.wizardAnswer = [this] { return selection.KeepAsSelection(doc) == kBringBackDone; };
    ASSERT_TRUE(manager->EnterOrLeaveSelectionMode(false, 0, true));
    EXPECT_EQ(Bytes(doc.GetSelectionMask()), mask);
    EXPECT_EQ(LastLabel(composeLog), std::string("His_selandproc"));
    EXPECT_FALSE(selection.IsActive());
    EXPECT_EQ(selectionLog.GetCount(), 0);
}
