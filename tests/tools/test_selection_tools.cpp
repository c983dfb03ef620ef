#include "support/engine_checks.h"
#include "tool_fixture.h"

using vmtest::CommandTest;
using vmtest::Filled;
using vmtest::PlainAdd;
using vmtest::PlainSubtract;
using vmtest::ToolTest;

namespace {

std::vector<CPolyPoint> RectOutline(int x0, int y0, int x1, int y1)
{
    return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}, {x0, y0}};
}

std::vector<uint8_t> Ellipse(int x0, int y0, int x1, int y1, int w, int h)
{
    COLChannel c = vmtest::Plane(uint32_t(w), uint32_t(h), 0);
    FillEllipse(x0, y0, x1, y1, &c);
    return vmtest::Bytes(c);
}

} // namespace

TEST_F(ToolTest, RectangleDragSelectsItsOutlineAndAClickWithoutMovingDeselects)
{
    manager->SetCurrentTool(&manager->GetRectTool());
    const int before = composeLog.GetCount();
    Drag(3, 4, 20, 15);
    EXPECT_EQ(Mask(), Filled(RectOutline(3, 4, 20, 15), W, H));
    ExpectOneStep(before, kStepChannel, -1, "rectseltip");
    Click(8, 8);
    EXPECT_TRUE(doc.GetSelectionMask().IsNull());
    EXPECT_EQ(LastLabel(composeLog), std::string("His_selectnone"));
}

TEST_F(CommandTest, ShiftAddsAnEllipseCtrlSubtractsARectangleAndTheHistoryCommandsUndoThem)
{
    const std::vector<uint8_t> rect = SelectRect(2, 2, 18, 14);

    manager->SetCurrentTool(&manager->GetRoundTool());
    Sink().OnKeyDown(kKeyShift, 0);
    EXPECT_EQ(manager->GetRoundTool().GetPanel().GetMode(), uint32_t(kSelAdd));
    Drag(10, 8, 33, 27);
    Sink().OnKeyUp(kKeyShift, 0);
    const std::vector<uint8_t> added = PlainAdd(rect, Ellipse(10, 8, 33, 27, W, H));
    EXPECT_EQ(Mask(), added);

    manager->SetCurrentTool(&manager->GetRectTool());
    Sink().OnKeyDown(kKeyControl, 0);
    Drag(5, 5, 25, 20);
    Sink().OnKeyUp(kKeyControl, 0);
    const std::vector<uint8_t> subtracted = PlainSubtract(added, Filled(RectOutline(5, 5, 25, 20), W, H));
    EXPECT_EQ(Mask(), subtracted);
    EXPECT_EQ(manager->GetRectTool().GetPanel().GetMode(), uint32_t(kSelNew)) << "releasing a key returns to New";

    // Undo, with the tool still taken, steps back through each mask; redo forward again.
    for (const std::vector<uint8_t>* mask : {&added, &rect}) {
        ASSERT_EQ(Run("UI_HistoryBackward"), kCommandDone);
        EXPECT_EQ(Mask(), *mask);
    }
    ASSERT_EQ(Run("UI_HistoryBackward"), kCommandDone);
    EXPECT_TRUE(doc.GetSelectionMask().IsNull());
    ASSERT_EQ(Run("UI_HistoryForward"), kCommandDone);
    ASSERT_EQ(Run("UI_HistoryForward"), kCommandDone);
    EXPECT_EQ(Mask(), added);
    ASSERT_EQ(Run("UI_HistoryForward"), kCommandDone);
    EXPECT_EQ(Mask(), subtracted);
}

TEST_F(ToolTest, CtrlStaysArmedUntilShiftIsReleased)
{
    SelectRect(2, 2, 18, 14);
    CRectSelTool& tool = manager->GetRectTool();
    Sink().OnKeyDown(kKeyControl, 0);
    Sink().OnKeyUp(kKeyControl, 0);
    // An arrow press after Ctrl was used selects Subtract; its release sets New again.
    Sink().OnKeyDown(kKeyRight, 0);
    EXPECT_EQ(tool.GetPanel().GetMode(), uint32_t(kSelSubtract));
    Sink().OnKeyUp(kKeyRight, 0);
    EXPECT_EQ(tool.GetPanel().GetMode(), uint32_t(kSelNew));
    Sink().OnKeyDown(kKeyShift, 0);
    Sink().OnKeyUp(kKeyShift, 0);
    Sink().OnKeyDown(kKeyLeft, 0);
    EXPECT_EQ(tool.GetPanel().GetMode(), uint32_t(kSelNew)) << "the Shift release disarmed Ctrl";
}

TEST_F(ToolTest, ArrowsNudgeTheMaskAndLeavingTheToolRecordsIt)
{
    const std::vector<uint8_t> before = SelectRect(2, 2, 18, 14);
    const int steps = composeLog.GetCount();
    Sink().OnKeyDown(kKeyRight, 0);
    Sink().OnKeyUp(kKeyRight, 0);
    Sink().OnKeyDown(kKeyDown, 0);
    Sink().OnKeyUp(kKeyDown, 0);
    EXPECT_EQ(Mask(), vmtest::Bytes(vmtest::PlaneOf(W, H, [&](uint32_t x, uint32_t y) {
                  return x > 0 && y > 0 ? before[(y - 1) * W + x - 1] : 0;   // one right, one down
              })));
    EXPECT_EQ(composeLog.GetCount(), steps) << "no step until the tool is left";
    manager->SetCurrentTool(nullptr);
    EXPECT_EQ(composeLog.GetCount(), steps + 1);
    EXPECT_EQ(LastLabel(composeLog), std::string("movesel"));
}

TEST_F(ToolTest, LassoClosesItsOutlineAndThinsLongOnes)
{
    manager->SetCurrentTool(&manager->GetFreeTool());
    Sink().OnLButtonDown(kMkLButton, 5, 5);
    std::vector<CPolyPoint> outline = {{5, 5}};
    for (int i = 0; i < 2000; ++i) {
        // A square walked in small steps, 2001 points in all.
        const int side = i / 500, t = (i % 500) * 25 / 500;
        const CPolyPoint p = side == 0 ? CPolyPoint{5 + t, 5} : side == 1 ? CPolyPoint{30, 5 + t}
                           : side == 2 ? CPolyPoint{30 - t, 25} : CPolyPoint{5, 25 - t};
        outline.push_back(p);
        Sink().OnMouseMove(kMkLButton, p.x, p.y);
    }
    Sink().OnLButtonUp(0, 5, 20);
    CPolygonMask expected;
    for (const CPolyPoint& p : outline) expected.Add(p.x, p.y);
    expected.Close();
    expected.Thin(1000);
    EXPECT_LE(expected.GetCount(), 1000u);
    EXPECT_EQ(Mask(), Filled(expected.Points(), W, H));
    EXPECT_EQ(LastLabel(composeLog), std::string("freeseltip"));
}

TEST_F(ToolTest, PolygonClosesOnItsFirstPoint)
{
    manager->SetCurrentTool(&manager->GetPolygonTool());
    const std::vector<CPolyPoint> corners = {{4, 3}, {30, 6}, {22, 26}, {6, 20}};
    Sink().OnMouseMove(0, 4, 3);
    Sink().OnLButtonDown(kMkLButton, 4, 3);
    for (const CPolyPoint& p : corners) {
        Sink().OnMouseMove(kMkLButton, p.x, p.y);
        Sink().OnLButtonUp(0, p.x, p.y);
        Sink().OnLButtonDown(kMkLButton, p.x, p.y);   // a press while the polygon is open does nothing
    }
    Sink().OnMouseMove(0, 5, 5);   // within 3 pixels of the first corner
    EXPECT_EQ(manager->GetPolygonTool().GetCursor(), kCursorPolygonClose);
    Sink().OnLButtonUp(0, 5, 5);
    std::vector<CPolyPoint> closed = corners;
    closed.push_back(corners.front());
    EXPECT_EQ(Mask(), Filled(closed, W, H));
    EXPECT_EQ(manager->GetPolygonTool().GetLastNewOutline().Points(), closed);
    EXPECT_EQ(LastLabel(composeLog), std::string("polygonseltip"));
}

TEST_F(ToolTest, RightButtonTakesTheLastCornerBack)
{
    manager->SetCurrentTool(&manager->GetPolygonTool());
    Sink().OnLButtonDown(kMkLButton, 4, 3);
    for (CPolyPoint p : {CPolyPoint{4, 3}, CPolyPoint{30, 6}, CPolyPoint{38, 29}}) Sink().OnLButtonUp(0, p.x, p.y);
    Sink().OnRButtonUp(0, 0, 0);
    Sink().OnLButtonUp(0, 10, 25);
    Sink().OnLButtonDblClk(kMkLButton, 10, 25);
    EXPECT_EQ(Mask(), Filled({{4, 3}, {30, 6}, {10, 25}, {4, 3}}, W, H));
}

TEST_F(ToolTest, TwoPointPolygonStillRecordsAStep)
{
    const std::vector<uint8_t> rect = SelectRect(2, 2, 18, 14);
    manager->SetCurrentTool(&manager->GetPolygonTool());
    CPolygonSelTool& polygon = manager->GetPolygonTool();

    // A double click right after the first corner: Add leaves the mask untouched, New drops the old selection;
    // either way one step is recorded.
    for (uint32_t mode : {uint32_t(kSelAdd), uint32_t(kSelNew)}) {
        polygon.GetPanel().SetMode(mode);
        const int steps = composeLog.GetCount();
        Sink().OnLButtonDown(kMkLButton, 4, 3);
        Sink().OnLButtonUp(0, 4, 3);
        Sink().OnLButtonDblClk(kMkLButton, 20, 20);
        EXPECT_EQ(composeLog.GetCount(), steps + 1) << mode;
        if (mode == kSelAdd) {
            EXPECT_EQ(Mask(), rect);
        }
    }
    EXPECT_TRUE(doc.GetSelectionMask().IsNull());
}

TEST_F(ToolTest, MagicFloodsFromTheClickAndSelectsUncoveredCanvas)
{
    auto inBlock = [](uint32_t x, uint32_t y) { return x >= 5 && x < 15 && y >= 5 && y < 15; };
    doc.GetLayer(0)->m_image = vmtest::Picture(W, H, [&](uint32_t x, uint32_t y) {
        return inBlock(x, y) ? CPixel::Make(200, 10, 10) : CPixel::Make(10, 10, 10);
    });
    manager->SetCurrentTool(&manager->GetMagicTool());
    manager->GetMagicTool().GetMagicPanel().SetTolerance("30");
    Click(8, 8);
    const COLChannel block = vmtest::PlaneOf(W, H, [&](uint32_t x, uint32_t y) { return inBlock(x, y) ? 255 : 0; });
    EXPECT_EQ(Mask(), vmtest::Bytes(block));
    EXPECT_EQ(LastLabel(composeLog), std::string("magicseltip"));

    // A small upper layer with a transparent hole: a click into the hole selects everything it does not cover.
    ASSERT_NE(doc.AddLayer(0, 0), nullptr);
    doc.SetCurrentIndex(1);
    CLayer* upper = doc.GetLayer(1);
    upper->m_image = vmtest::Solid(6, 4, CPixel::Make(1, 2, 3));
    upper->m_image.PutPixel(2, 1, CPixel::Make(1, 2, 3, 0));
    upper->m_x = 20;
    upper->m_y = 10;
    Click(22, 11);
    EXPECT_EQ(Mask(), vmtest::Bytes(vmtest::PlaneOf(W, H, [](uint32_t x, uint32_t y) {
                  return x >= 20 && x < 26 && y >= 10 && y < 14 && !(x == 22 && y == 11) ? 0 : 255;   // covered
              })));
}

TEST_F(ToolTest, MagicSubtractsWithCtrl)
{
    doc.GetLayer(0)->m_image = vmtest::Picture(
        W, H, [](uint32_t x, uint32_t) { return x == 20 ? CPixel::Make(90, 90, 90) : CPixel::Make(10, 10, 10); });
    const std::vector<uint8_t> rect = SelectRect(2, 2, 38, 28);
    manager->SetCurrentTool(&manager->GetMagicTool());
    manager->GetMagicTool().GetMagicPanel().SetTolerance("5");
    Sink().OnKeyDown(kKeyControl, 0);
    Click(10, 10);
    Sink().OnKeyUp(kKeyControl, 0);
    // The flood covers the dark left part (from column 1; column 0 is out of its reach) up to the gray line.
    const COLChannel flood =
        vmtest::PlaneOf(W, H, [](uint32_t x, uint32_t y) { return x >= 1 && x < 20 && y >= 1 ? 255 : 0; });
    EXPECT_EQ(Mask(), PlainSubtract(rect, vmtest::Bytes(flood)));
}
