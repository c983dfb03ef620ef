#include <QCloseEvent>
#include <QListWidget>
#include <QPushButton>
#include <QTest>
#include <QToolButton>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

#include "document/layer.h"
#include "gui_support.h"
#include "shell/ants_outline.h"
#include "shell/image_view.h"
#include "shell/main_frame.h"
#include "shell/panels.h"
#include "shell/selection_mode.h"
#include "shell/shell_app.h"
#include "shell/tool_bar.h"
#include "shell/tool_cursors.h"

using namespace vmtest;

namespace {

// The outline rule written out pixel by pixel, independent of the tracer.
std::vector<uint32_t> PlainOutline(const std::vector<uint8_t>& m, int w, int h, const AntsBorders& b)
{
    std::vector<uint32_t> out;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            if (m[size_t(y * w + x)] < 127) continue;
            bool on;
            if (x == 0 || y == 0 || x == w - 1 || y == h - 1) {
                on = (x == 0 && b.left) || (y == 0 && b.top) || (x == w - 1 && b.right) || (y == h - 1 && b.bottom);
            } else {
                on = false;
                const int dx[4] = {-1, 1, 0, 0}, dy[4] = {0, 0, -1, 1};
                for (int k = 0; k < 4; ++k) on |= m[size_t((y + dy[k]) * w + x + dx[k])] <= 127;
            }
            if (on) out.push_back(uint32_t(y * w + x));
        }
    return out;
}

class SelectionModeInFrame : public FrameTest {
protected:
    void SetUp() override { StartFrame(900, 700); }
    void TearDown() override { selmode::SetBringBackChooser(nullptr); }

    // A gradient with one pixel of the given alpha, so that an alpha below 255 makes the layer transparent.
    void OpenGradient(uint8_t alpha = 255)
    {
        COLImage img = Gradient(160, 120);
        img.PutPixel(3, 3, CPixel::Make(10, 10, 10, alpha));
        OpenPicture(img, alpha == 255 ? "p.png" : "t.png");
    }
    // The gradient opened, then selection mode through its command.
    void OpenInSelectionMode()
    {
        ASSERT_NO_FATAL_FAILURE(OpenGradient());
        ASSERT_TRUE(selmode::Toggle(m_frame, Bar(), m_services));
    }
    bool Enabled(int id) { return m_frame->IsCommandAvailable(id); }
    // A few steps of the ants before the picture.
    void Shot(const char* name) { vmtest::Shot(m_frame, name, 500); }
};

} // namespace

TEST(AntsOutline, TracerMatchesThePlainRuleOnRandomMasks)
{
    std::srand(4);
    for (int round = 0; round < 30; ++round) {
        const int w = 1 + std::rand() % 40, h = 1 + std::rand() % 30;
        std::vector<uint8_t> mask(size_t(w * h));
        // Blobs with soft values around the threshold, 126 to 128 included.
        for (auto& v : mask) v = uint8_t(std::rand() % 4 == 0 ? 126 + std::rand() % 3 : (std::rand() % 3) * 127);
        const AntsBorders borders{round % 2 == 0, round % 3 == 0, round % 5 != 0, round % 7 != 0};
        std::vector<uint32_t> ants;
        const AntsBox box = TraceOutline(mask.data(), w, h, 1, w, borders, ants);
        std::vector<uint32_t> indices;
        for (uint32_t a : ants) {
            indices.push_back(AntIndex(a));
            const int x = int(AntIndex(a)) % w, y = int(AntIndex(a)) / w;
            EXPECT_EQ(AntPhase(a), uint32_t((x + y) % 8));
            EXPECT_TRUE(x >= box.left && x < box.right && y >= box.top && y < box.bottom);
        }
        ASSERT_EQ(indices, PlainOutline(mask, w, h, borders)) << "round " << round;
        // The same mask as the alpha byte of 32-bit pixels.
        std::vector<uint8_t> pixels(mask.size() * 4, 9);
        for (size_t i = 0; i < mask.size(); ++i) pixels[i * 4 + 3] = mask[i];
        std::vector<uint32_t> fromAlpha;
        TraceOutline(pixels.data() + 3, w, h, 4, w * 4, borders, fromAlpha);
        EXPECT_EQ(fromAlpha, ants);
    }
}

TEST(AntsOutline, StripesMoveOnePixelAStep)
{
    // Four dark, four light along x + y; one step later the pattern has moved by one pixel.
    for (uint32_t t = 0; t < 16; ++t) {
        int dark = 0;
        for (uint32_t phase = 0; phase < 8; ++phase)
            dark += AntIsDark(phase, t);
        EXPECT_EQ(dark, 4);
        for (uint32_t phase = 0; phase < 8; ++phase)
            EXPECT_EQ(AntIsDark(phase, t), ((phase + t % 4) / 4) % 2 == (t / 4) % 2);
    }
    EXPECT_NE(AntIsDark(3, 0), AntIsDark(3, 1));
}

TEST(AntsOutline, PlaneSampledAtTheZoomKeepsItsShape)
{
    COLChannel plane = Plane(40, 30, 0);
    for (uint32_t y = 10; y < 20; ++y)
        for (uint32_t x = 5; x < 15; ++x) plane.SetValue(x, y, 255);
    std::vector<uint8_t> screen;
    // Twice as large, scrolled by (4, 8): plane pixel (5, 10) lands at screen (2, 4) to (3, 5).
    const AntsBorders b = SamplePlane(plane, 2.0, 4, 8, 30, 30, screen);
    EXPECT_FALSE(b.left);
    EXPECT_FALSE(b.top);
    EXPECT_EQ(screen[size_t(4 * 30 + 2)], 255);
    EXPECT_EQ(screen[size_t(3 * 30 + 2)], 0);
    EXPECT_EQ(screen[size_t(4 * 30 + 1)], 0);
    EXPECT_EQ(screen[size_t(23 * 30 + 21)], 255);
    EXPECT_EQ(screen[size_t(24 * 30 + 21)], 0);
    // Halved from the origin: every other pixel, the picture's borders are the buffer's.
    const AntsBorders whole = SamplePlane(plane, 0.5, 0, 0, 20, 15, screen);
    EXPECT_TRUE(whole.left && whole.top && whole.right && whole.bottom);
    EXPECT_EQ(screen[size_t(5 * 20 + 3)], 255);
    EXPECT_EQ(screen[size_t(4 * 20 + 3)], 0);
}

TEST_F(SelectionModeInFrame, ATransparentLayerCannotBeCutOutWhicheverWayIn)
{
    OpenGradient(254);
    // The large button, then the chroma-key item: each says why, once, and stays in compose mode.
    QTest::mouseClick(m_frame->findChild<QToolButton*>(QStringLiteral("createsel")), Qt::LeftButton);
    EXPECT_FALSE(m_frame->IsSelectionMode());
    EXPECT_EQ(m_services.messages, std::vector<std::string>{GetString("cantsel")});
    m_frame->OnCommand(cmd::kChromaKey);
    EXPECT_FALSE(m_frame->IsSelectionMode());
    EXPECT_EQ(m_services.messages, (std::vector<std::string>{GetString("cantsel"), GetString("cantsel")}));
}

TEST_F(SelectionModeInFrame, ItemsFollowTheResultAndEveryPlaneHasItsAnts)
{
    OpenInSelectionMode();
    ASSERT_TRUE(m_frame->IsShowingSelectionMenus());
    EXPECT_EQ(m_frame->Action(cmd::kOpen), nullptr);
    ASSERT_NE(m_frame->Action(cmd::kConfirmReturn), nullptr);
    // Contours only: return, undo and redo act; feathering and the backgrounds cannot.
    for (int id : {cmd::kConfirmReturn, cmd::kCancelReturn, cmd::kUndo})
        EXPECT_TRUE(Enabled(id)) << id;
    EXPECT_FALSE(Enabled(cmd::kBackMask) || Enabled(cmd::kFeatherShrink));
    EXPECT_TRUE(Manager().GetOutPolygonTool().IsEnabled());

    Polygon(Manager().GetOutPolygonTool(), {{4, 4}, {150, 6}, {140, 110}, {8, 100}});
    Polygon(Manager().GetInPolygonTool(), {{40, 30}, {100, 32}, {90, 80}, {45, 75}});
    ASSERT_FALSE(Sel().GetOuterPlane()->IsNull());
    ASSERT_FALSE(Sel().GetInnerPlane()->IsNull());
    ASSERT_TRUE(WaitFor([&] { return !m_frame->View()->Ants(kOutlineInner).empty(); }));
    EXPECT_FALSE(m_frame->View()->Ants(kOutlineOuter).empty());
    EXPECT_TRUE(m_frame->View()->Ants(kOutlineResult).empty());

    // A result: the backgrounds act, the contour tools are disabled.
    Polygon(Manager().GetModifyPolygonTool(), {{30, 20}, {120, 25}, {110, 95}, {35, 90}});
    ASSERT_FALSE(Sel().GetResultMask()->IsNull());
    EXPECT_TRUE(Enabled(cmd::kBackMask));
    EXPECT_FALSE(Manager().GetOutPolygonTool().IsEnabled());
    EXPECT_FALSE(Manager().GetInPolygonTool().IsEnabled());
    EXPECT_TRUE(Manager().GetModifyPolygonTool().IsEnabled());
    ASSERT_TRUE(WaitFor([&] { return !m_frame->View()->Ants(kOutlineResult).empty(); }));
    // Each plane's outline is traced in its own style, and one step of the ants repaints only what they cover.
    CImageView* view = m_frame->View();
    const QRect changed = view->StepAnts();
    EXPECT_FALSE(changed.isEmpty());
    const VRect image = view->GetImageRect();
    EXPECT_TRUE(QRect(image.left, image.top, image.Width(), image.Height()).contains(changed));
    Shot("tools-selection.png");

    // Undo takes the result away again, and with it the backgrounds.
    m_frame->OnCommand(cmd::kUndo);
    m_frame->OnCommand(cmd::kUndo);
    EXPECT_TRUE(Sel().GetResultMask()->IsNull());
    EXPECT_FALSE(Enabled(cmd::kBackMask));
    EXPECT_TRUE(Manager().GetOutPolygonTool().IsEnabled());
}

TEST_F(SelectionModeInFrame, LeavingAsksAndCancelKeepsEverything)
{
    OpenInSelectionMode();
    Polygon(Manager().GetOutPolygonTool(), {{4, 4}, {150, 6}, {140, 110}});
    const int steps = m_app.ComposeHistory()->GetCount();

    // Contours without a result: the question, and No stays.
    m_services.answers.push_back(EMsgResult::kNo);
    m_frame->OnCommand(cmd::kConfirmReturn);
    EXPECT_TRUE(m_frame->IsSelectionMode());
    EXPECT_EQ(m_services.messages.back(), GetString("dropcontours"));
    EXPECT_FALSE(Sel().GetOuterPlane()->IsNull());

    // With a result the bring-back dialog asks; Cancel stays in the mode with the result.
    Polygon(Manager().GetModifyPolygonTool(), {{30, 20}, {120, 25}, {110, 95}});
    selmode::SetBringBackChooser([](QWidget*) { return selmode::EBringBack::kCancel; });
    m_frame->OnCommand(cmd::kConfirmReturn);
    EXPECT_TRUE(m_frame->IsSelectionMode());
    EXPECT_FALSE(Sel().GetResultMask()->IsNull());

    // "Cancel and return": No keeps the mode, Yes leaves without a step in the compose history.
    m_services.answers.push_back(EMsgResult::kNo);
    m_frame->OnCommand(cmd::kCancelReturn);
    EXPECT_TRUE(m_frame->IsSelectionMode());
    EXPECT_EQ(m_services.messages.back(), GetString("dropcutout"));
    m_services.answers.push_back(EMsgResult::kYes);
    m_frame->OnCommand(cmd::kCancelReturn);
    EXPECT_FALSE(m_frame->IsSelectionMode());
    EXPECT_TRUE(m_frame->IsShowingComposeMenus());
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), steps);
    EXPECT_TRUE(m_app.Document().GetSelectionMask().IsNull());
}

TEST_F(SelectionModeInFrame, KeepAsSelectionRecordsOneStepAndShowsTheAnts)
{
    OpenInSelectionMode();
    Polygon(Manager().GetModifyPolygonTool(), {{30, 20}, {120, 25}, {110, 95}, {35, 90}});
    const std::vector<uint8_t> result = Bytes(*Sel().GetResultMask());
    const int steps = m_app.ComposeHistory()->GetCount();
    selmode::SetBringBackChooser([](QWidget*) { return selmode::EBringBack::kKeep; });
    // Ctrl+Return is "Confirm and return".
    Key(Qt::Key_Return, Qt::ControlModifier);
    ASSERT_FALSE(m_frame->IsSelectionMode());
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), steps + 1);
    EXPECT_EQ(m_frame->HistoryPanel()->List()->count(), steps + 1); // the panel shows the new step
    EXPECT_EQ(Bytes(m_app.Document().GetSelectionMask()), result);
    // Compose mode: the document's selection has black and white ants.
    ASSERT_TRUE(WaitFor([&] { return !m_frame->View()->Ants(kOutlineSelection).empty(); }));
    EXPECT_TRUE(m_frame->View()->Ants(kOutlineOuter).empty());
    Manager().SetCurrentTool(&Manager().GetRectTool());
    Shot("tools-compose.png");
}

TEST_F(SelectionModeInFrame, SavingAsksToReturnWithoutAResultAndClosingAsksToDropIt)
{
    OpenInSelectionMode();
    // Ctrl+S without a result: "backtocompose", No stays and saves nothing.
    m_services.answers.push_back(EMsgResult::kNo);
    Key(Qt::Key_S, Qt::ControlModifier);
    EXPECT_TRUE(m_frame->IsSelectionMode());
    ASSERT_FALSE(m_services.messages.empty());
    EXPECT_EQ(m_services.messages.back(), GetString("backtocompose"));
    EXPECT_TRUE(m_services.filters.size() <= 1); // only the open dialog of the picture

    // With a result the save dialog writes the cut-out (SaveForLayer checks its bytes). Closing in selection mode
    // asks first; Cancel keeps the window and the mode.
    Polygon(Manager().GetModifyPolygonTool(), {{30, 20}, {120, 25}, {110, 95}, {35, 90}});
    m_services.answers.push_back(EMsgResult::kCancel);
    EXPECT_FALSE(CloseAccepted());
    EXPECT_TRUE(m_frame->IsSelectionMode());
    // No drops the cut-out; the document's own question then has nothing to ask.
    m_services.answers.push_back(EMsgResult::kNo);
    EXPECT_TRUE(CloseAccepted());
    EXPECT_FALSE(m_frame->IsSelectionMode());
}

TEST_F(SelectionModeInFrame, EveryToolShowsItsCursorOverThePicture)
{
    OpenGradient();
    CImageView* view = m_frame->View();
    const CViewPoint inside = view->ImageToClient(50, 40);
    const struct {
        CToolBase* tool;
        int role;
    } tools[] = {{&Manager().GetRectTool(), kCursorCross},
                 {&Manager().GetRoundTool(), kCursorCross},
                 {&Manager().GetFreeTool(), kCursorLasso},
                 {&Manager().GetPolygonTool(), kCursorPolygon},
                 {&Manager().GetMagicTool(), kCursorMagic}};
    for (const auto& t : tools) {
        Manager().SetCurrentTool(t.tool);
        QTest::mouseMove(view, QPoint(inside.x, inside.y));
        EXPECT_EQ(view->CursorRole(), t.role) << t.tool->GetTipKey();
        EXPECT_EQ(view->cursor().shape(), Qt::BitmapCursor) << t.tool->GetTipKey();
    }
    // Add mode by the panel: the cursor with its badge, a different picture.
    Manager().SetCurrentTool(&Manager().GetRectTool());
    QTest::mouseMove(view, QPoint(inside.x + 1, inside.y));
    const QImage plain = view->cursor().pixmap().toImage();
    Manager().GetRectTool().GetPanel().SetMode(kSelAdd);
    QTest::mouseMove(view, QPoint(inside.x, inside.y));
    EXPECT_EQ(view->CursorRole(), kCursorRectAdd);
    EXPECT_NE(view->cursor().pixmap().toImage(), plain);
    // Every role has its own picture.
    for (int a = kCursorCross; a <= kCursorMagicSubtract; ++a)
        for (int b = a + 1; b <= kCursorMagicSubtract; ++b)
            EXPECT_NE(ToolCursorFor(a).pixmap().toImage(), ToolCursorFor(b).pixmap().toImage()) << a << " " << b;
    // Without a tool the arrow is back.
    Manager().SetCurrentTool(nullptr);
    QTest::mouseMove(view, QPoint(inside.x, inside.y + 1));
    EXPECT_EQ(view->CursorRole(), 0);
}
