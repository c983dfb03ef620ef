#include <cmath>

#include "plain_brush.h"
#include "tool_fixture.h"

using plainbrush::Frames;
using plainbrush::MakeStamp;
using vmtest::ToolTest;

namespace {

using vmtest::Path;

class SmartAdjustTest : public ToolTest {
protected:
    static constexpr int kInnerEnd = 10, kOuterStart = 30;
    void SetUp() override
    {
        ToolTest::SetUp();
        ASSERT_TRUE(manager->EnterOrLeaveSelectionMode(true, kMethodInOut, true));
        // Inner contour on the left, outer on the right, a soft contour pixel inside the band, and a result
        // whose working alpha is the mask.
        COLChannel* inner = selection.GetInnerPlane();
        *inner = vmtest::PlaneOf(W, H, [](uint32_t x, uint32_t) { return x < kInnerEnd ? 255 : 0; });
        *selection.GetOuterPlane() =
            vmtest::PlaneOf(W, H, [](uint32_t x, uint32_t) { return x >= kOuterStart ? 255 : 0; });
        const COLChannel& mask = *selection.GetResultMask() = vmtest::PlaneOf(W, H, [](uint32_t x, uint32_t y) {
            return x < kInnerEnd ? 255 : x >= kOuterStart ? 0 : (x * 37 + y * 11) % 256;
        });
        CPixel* working = selection.GetWorkingImage()->GetBuffer();
        for (size_t i = 0; i < mask.GetAreaByteSize(); ++i)
            working[i].alpha = mask.GetBuffer()[i];
        inner->SetValue(20, 14, 90);
        selectionLog.AddStep(&selection, kStepWholeDocument, 0, "modifypolygonseltip");
        manager->UpdateBars();
        tool = &manager->GetSmartAdjustTool();
        ASSERT_NO_FATAL_FAILURE(Take(*tool, 4, 40, 90));
        picture = vmtest::Bytes(*selection.GetSourceImage());
    }
    // The mask after a stroke of the tool's brush along the path in the given mode.
    std::vector<uint8_t> Expected(const std::vector<uint8_t>& m, const Path& path, int mode,
                                  const std::vector<uint8_t>& f, const std::vector<uint8_t>& b,
                                  const std::vector<uint8_t>& alpha = {})
    {
        return plainbrush::SmartStroke(m, Frames(MakeStamp(4, 40), 90 * 255 / 100, W, H, path), mode,
                                       vmtest::Bytes(*selection.GetInnerPlane()),
                                       vmtest::Bytes(*selection.GetOuterPlane()), picture, f, b, alpha);
    }
    std::vector<uint8_t> WorkingAlpha()
    {
        COLChannel alpha;
        alpha.ExtractFrom(selection.GetWorkingImage(), 3);
        return vmtest::Bytes(alpha);
    }

    CSmartAdjustTool* tool = nullptr;
    std::vector<uint8_t> picture;
};

const Path kBand = {{12, 4}, {18, 10}, {27, 10}, {27, 24}, {14, 20}, {21, 14}};

} // namespace

TEST(SmartAdjustMath, PositionOnTheLineBetweenTheReferences)
{
    const CPixel f{0, 200, 0, 255}, b{0, 0, 200, 255};
    EXPECT_EQ(CSmartAdjustTool::PositionBetween(f, f, b), 255);
    EXPECT_EQ(CSmartAdjustTool::PositionBetween(b, f, b), 0);
    // Halfway: d1 = d2 = 141, d0 = 282: 255 x 282^2 / (2 x 282^2) = 127.
    EXPECT_EQ(CSmartAdjustTool::PositionBetween(CPixel{0, 100, 100, 255}, f, b), 127);
    // Beyond the background reference the projection is negative; its size counts: d0 = 253, d1 = 100,
    // d2 = 324, 255 x (10000 - 104976 + 64009) / 128018 = -61.
    EXPECT_EQ(CSmartAdjustTool::PositionBetween(CPixel{0, 0, 255, 255}, f, CPixel{0, 0, 155, 255}), 61);
    // Far past the foreground it is clamped.
    EXPECT_EQ(CSmartAdjustTool::PositionBetween(CPixel{0, 255, 0, 255}, CPixel{0, 100, 0, 255}, b), 255);
    // References closer than 16: the ratio of the distances (d1 = 3, d2 = 5).
    EXPECT_EQ(CSmartAdjustTool::PositionBetween(CPixel{2, 2, 2, 255}, CPixel{5, 5, 5, 255}, CPixel{0, 0, 0, 255}), 95);
    // Equal references and the picture on them: fully foreground.
    EXPECT_EQ(CSmartAdjustTool::PositionBetween(f, f, f), 255);
}

TEST_F(SmartAdjustTest, CurveIsZeroToThirtyTwoThenARampToTwoHundredTwentyFour)
{
    const uint8_t* curve = tool->GetCurve();
    // {position, value}: 33 gives 255 / 192.
    const int at[][2] = {{0, 0}, {32, 0}, {33, 1}, {128, 127}, {223, 253}, {224, 255}, {255, 255}};
    for (const auto& c : at) EXPECT_EQ(curve[c[0]], c[1]) << c[0];
}

TEST_F(SmartAdjustTest, ClicksInTheContoursPickTheReferencesThenAStrokeFollowsTheColours)
{
    CPropSmartAdj& panel = tool->GetPanel();
    const std::vector<uint8_t> before = vmtest::Bytes(*selection.GetResultMask());
    // Before both colours are picked a press in the band is refused and changes nothing.
    Click(20, 10);
    ASSERT_EQ(messages, std::vector<std::string>{"smartadjerr"});
    Click(4, 6); // inner contour: the foreground reference
    EXPECT_TRUE(panel.IsForePicked());
    EXPECT_FALSE(panel.IsBackPicked());
    Click(20, 10);
    EXPECT_EQ(messages.size(), 2u);
    Click(39, 29); // outer contour, at the corner: edge pixels stand in for those beyond it
    ASSERT_TRUE(panel.IsBackPicked());
    EXPECT_EQ(vmtest::Bytes(*selection.GetResultMask()), before);
    const COLImage& source = *selection.GetSourceImage();
    const std::vector<uint8_t> f = plainbrush::Mean3x3(source, 4, 6), b = plainbrush::Mean3x3(source, 39, 29);
    const auto bgr = [](CPixel p) { return std::vector<uint8_t>{p.blue, p.green, p.red}; };
    EXPECT_EQ(bgr(panel.GetForeColor()), f);
    EXPECT_EQ(bgr(panel.GetBackColor()), b);
    const size_t steps = selectionLog.GetCount();

    Paint(kBand);
    const std::vector<uint8_t> expected = Expected(before, kBand, 0, f, b);
    ASSERT_NE(expected, before);
    EXPECT_EQ(vmtest::Bytes(*selection.GetResultMask()), expected);
    EXPECT_EQ(WorkingAlpha(), expected);
    EXPECT_EQ(selection.GetResultMask()->GetValue(20, 14), before[14 * W + 20])
        << "a soft contour pixel keeps its value";
    ASSERT_EQ(selectionLog.GetCount(), steps + 1);
    EXPECT_EQ(LastLabel(selectionLog), "smartadjtip");
    EXPECT_EQ(selectionLog.GetRecord(selectionLog.GetCount() - 1)->arg, kPlaneResult);
    ASSERT_EQ(selectionLog.Backward(), 1);
    EXPECT_EQ(vmtest::Bytes(*selection.GetResultMask()), before);
    EXPECT_EQ(WorkingAlpha(), before);
}

TEST_F(SmartAdjustTest, ShiftRaisesOnlyCtrlLowersOnlyAndTheButtonsHold)
{
    CPropSmartAdj& panel = tool->GetPanel();
    panel.SetForeColor(CPixel{30, 200, 60, 0});
    panel.SetBackColor(CPixel{200, 40, 90, 0});
    const std::vector<uint8_t> f = {30, 200, 60}, b = {200, 40, 90};
    const std::vector<uint8_t> before = vmtest::Bytes(*selection.GetResultMask());
    // The modes compare with the working image's alpha, not with the mask: let them differ before the stroke.
    std::vector<uint8_t> workAlpha = WorkingAlpha();
    for (size_t i = 0; i < workAlpha.size(); ++i) {
        workAlpha[i] = uint8_t(255 - before[i]);
        selection.GetWorkingImage()->GetBuffer()[i].alpha = workAlpha[i];
    }

    Paint(kBand, kMkShift, kKeyShift);
    const std::vector<uint8_t> raised = vmtest::Bytes(*selection.GetResultMask());
    EXPECT_EQ(raised, Expected(before, kBand, 1, f, b, workAlpha));
    EXPECT_EQ(WorkingAlpha(), raised);
    int up = 0;
    for (size_t i = 0; i < raised.size(); ++i) up += raised[i] != before[i];
    EXPECT_GT(up, 10);
    EXPECT_EQ(panel.GetMode(), uint32_t(kAdjustBoth)) << "the key's release ends its mode";

    const Path across = {{11, 27}, {28, 3}};
    Paint(across, kMkControl, kKeyControl);
    const std::vector<uint8_t> lowered = vmtest::Bytes(*selection.GetResultMask());
    EXPECT_EQ(lowered, Expected(raised, across, 2, f, b));
    for (size_t i = 0; i < lowered.size(); ++i)
        EXPECT_LE(lowered[i], raised[i]) << i;
    EXPECT_NE(lowered, raised);

    // A mode from the buttons is not changed by the keys.
    panel.SetMode(kAdjustLower);
    Sink().OnKeyDown(kKeyShift, 0);
    EXPECT_EQ(panel.GetMode(), uint32_t(kAdjustLower));
    Sink().OnKeyUp(kKeyShift, 0);
    EXPECT_EQ(panel.GetMode(), uint32_t(kAdjustLower));
    EXPECT_EQ(panel.GetKeyHeld(), -1);
    panel.ResetFace();
    EXPECT_FALSE(panel.IsForePicked());
    EXPECT_EQ(panel.GetMode(), uint32_t(kAdjustBoth));
}

TEST_F(SmartAdjustTest, TheContoursShowThePlainPictureTheBandTheResult)
{
    // Shown at zoom 0.5 with the picture's top-left corner at client (3, 2).
    vmtest::FakeView screen;
    screen.SetZoom(0.5, false);
    screen.SetOrigin(nullptr, -6, -4, false);
    screen.imageRect = {3, 2, 3 + W / 2, 2 + H / 2};
    screen.display = vmtest::Solid(W / 2, H / 2, CPixel{1, 2, 3, 4});
    tool->GetDrawer()->SetView(&screen);
    tool->OnFrameDone();
    ASSERT_NE(screen.shown, nullptr);
    const COLImage& source = *selection.GetSourceImage();
    EXPECT_TRUE(vmtest::SamePixels(*screen.shown, vmtest::Picture(W / 2, H / 2, [&](uint32_t u, uint32_t v) {
        const uint32_t x = u * 2, y = v * 2;
        const CPixel p = source.GetPixel2(x, y);
        const bool contour = x < kInnerEnd || x >= kOuterStart || (x == 20 && y == 14);
        return contour ? CPixel{p.blue, p.green, p.red, 255} : CPixel{1, 2, 3, 4};
    })));
    // Leaving the tool gives the canvas back its own picture, and a later render does not take it again.
    manager->SetCurrentTool(nullptr);
    tool->GetDrawer()->SetView(&screen);
    screen.shown = &screen.display;
    tool->OnFrameDone();
    EXPECT_EQ(screen.shown, &screen.display);
}

TEST_F(SmartAdjustTest, OnlyOfferedWithAResultAndOverContoursNoBrushCircle)
{
    EXPECT_TRUE(tool->IsEnabled());
    Sink().OnSetCursor(0, 0, W, H, 5, 5);
    EXPECT_FALSE(tool->IsInBand());
    EXPECT_EQ(tool->GetCursor(), kCursorPicker);
    Sink().OnSetCursor(0, 0, W, H, 20, 5);
    EXPECT_TRUE(tool->IsInBand());
    EXPECT_EQ(tool->GetCursor(), kCursorBrush);
    view.dc.lines = 0;
    Sink().OnMouseMove(0, 20, 5);
    EXPECT_GT(view.dc.lines, 0) << "the brush circle in the band";
    const int drawn = view.dc.lines;
    Sink().OnSetCursor(0, 0, W, H, 35, 5);
    view.dc.lines = 0;
    Sink().OnMouseMove(0, 35, 5);
    EXPECT_EQ(view.dc.lines, drawn) << "over the outer contour the old circle is only erased";
    selection.GetResultMask()->Free();
    manager->UpdateBars();
    EXPECT_FALSE(tool->IsEnabled());
}
