#include "tool_fixture.h"

#include "matting/refined_key.h"
#include "support/pictures.h"

using vmtest::Bytes;
using vmtest::SquaredAlpha;
using vmtest::ToolTest;

namespace {

// A green screen with a reddish square in the middle, opaque.
COLImage GreenScreen(int w, int h)
{
    return vmtest::Picture(w, h, [&](int x, int y) {
        const bool subject = x >= w / 3 && x < 2 * w / 3 && y >= h / 3 && y < 2 * h / 3;
        // A little variation per pixel, so the four-pixel mean is not any single pixel.
        const uint8_t n = uint8_t((x * 7 + y * 13) % 9);
        return subject ? CPixel{uint8_t(40 + n), uint8_t(60 + n), uint8_t(190 - n), 255}
                       : CPixel{uint8_t(30 + n), uint8_t(170 - n), uint8_t(20 + n), 255};
    });
}

class ContourToolTest : public ToolTest {
protected:
    // The picture on the base layer, in selection mode's backdrop method with the picker taken.
    void EnterChroma(COLImage picture = GreenScreen(W, H))
    {
        doc.GetLayer(0)->m_image = std::move(picture);
        ASSERT_TRUE(manager->EnterOrLeaveSelectionMode(true, kMethodChroma, true));
        manager->SetCurrentTool(&manager->GetBkPickerTool());
        ASSERT_EQ(manager->GetCurrentTool(), &manager->GetBkPickerTool());
    }
    // What the engine makes of the layer's picture when called directly, with this backdrop and strengths.
    COLImage DirectKey(CPixel backdrop, int strength = -1, int lumaStrength = -1)
    {
        ChromaKeySettings settings;
        settings.params.backdrop = backdrop;
        if (strength >= 0) settings.params.strength = strength;
        if (lumaStrength >= 0) settings.lumaStrength = lumaStrength;
        COLImage source = vmtest::Copy(doc.GetLayer(0)->m_image), result;
        EXPECT_EQ(RunBackdropKey(settings, source, result), kOk);
        return result;
    }
};

} // namespace

TEST(BkPicker, ColourIsTheTruncatedMeanOfFourPixelsClampedAtTheEdge)
{
    const COLImage image = vmtest::Picture(4, 3, [](uint32_t x, uint32_t y) {
        return CPixel{uint8_t(10 * x + y), uint8_t(50 + 3 * x * y), uint8_t(200 - 7 * x), uint8_t(100 + x)};
    });
    // (2, 1): itself, (1, 0), (3, 2), (1, 2). Blue 21 + 10 + 32 + 12 = 75 -> 18; green 56 + 50 + 68 + 56 = 230 -> 57;
    // red 186 + 193 + 179 + 193 = 751 -> 187; alpha of (2, 1) itself.
    EXPECT_EQ(CBkPickerTool::PickColour(image, 2, 1).Word(), (CPixel{18, 57, 187, 102}).Word());
    // (0, 0): x - 1 and y - 1 read column and row 0. Points: (0,0), (0,0), (1,1), (0,1).
    // Blue 0 + 0 + 11 + 1 = 12 -> 3; green 50 + 50 + 53 + 50 = 203 -> 50; red 200 + 200 + 193 + 200 = 793 -> 198.
    EXPECT_EQ(CBkPickerTool::PickColour(image, 0, 0).Word(), (CPixel{3, 50, 198, 100}).Word());
}

TEST_F(ContourToolTest, PickerKeysTheWorkingImageIntoTheResultWithOneStep)
{
    EnterChroma();
    const int before = selectionLog.GetCount();
    const COLImage& layer = doc.GetLayer(0)->m_image;
    Click(3, 4);
    ASSERT_EQ(manager->GetBkPickerTool().GetPicked().size(), 1u);
    const CPixel picked = CPixel::FromWord(manager->GetBkPickerTool().GetPicked()[0]);
    EXPECT_EQ(picked.Word(), CBkPickerTool::PickColour(layer, 3, 4).Word());

    const COLImage expected = DirectKey(picked);
    ASSERT_FALSE(selection.GetResultMask()->IsNull());
    EXPECT_EQ(Bytes(*selection.GetWorkingImage()), Bytes(expected));
    EXPECT_EQ(Bytes(*selection.GetResultMask()), SquaredAlpha(expected));
    // The backdrop went (its slight noise keeps a trace), the subject stayed.
    EXPECT_LT(selection.GetResultMask()->GetValue(2, 2), 8);
    EXPECT_EQ(selection.GetResultMask()->GetValue(W / 2, H / 2), 255);

    ASSERT_EQ(selectionLog.GetCount(), before + 1);
    EXPECT_EQ(LastLabel(selectionLog), "His_bkpicker");
    EXPECT_EQ(selectionLog.GetRecord(selectionLog.GetCount() - 1)->kind, 255);
    // Undo takes the key away: the working image is the layer's picture again.
    ASSERT_EQ(selectionLog.Backward(), 1);
    EXPECT_TRUE(selection.GetResultMask()->IsNull() || selection.GetResultMask()->IsAllZero());
    EXPECT_EQ(Bytes(*selection.GetWorkingImage()), Bytes(layer));
}

TEST_F(ContourToolTest, SecondClickTakesTheResultAwayAndPicksNothing)
{
    EnterChroma();
    Click(3, 4);
    ASSERT_FALSE(selection.GetResultMask()->IsNull());
    const int steps = selectionLog.GetCount();
    Click(W / 2, H / 2);
    EXPECT_TRUE(selection.GetResultMask()->IsNull());
    EXPECT_TRUE(manager->GetBkPickerTool().GetPicked().empty());
    EXPECT_EQ(Bytes(*selection.GetWorkingImage()), Bytes(doc.GetLayer(0)->m_image));
    EXPECT_EQ(selectionLog.GetCount(), steps) << "taking the result away records nothing";
    // The third click picks again.
    Click(3, 4);
    EXPECT_FALSE(selection.GetResultMask()->IsNull());
}

TEST_F(ContourToolTest, FirstPickOfARedBackdropLowersTheStrengthOnce)
{
    // A red backdrop, a blue subject.
    EnterChroma(vmtest::Picture(
        W, H, [](int x, int) { return x > W / 3 ? CPixel{200, 40, 30, 255} : CPixel{20, 30, 180, 255}; }));
    Click(2, 2);
    EXPECT_EQ(manager->GetBkPickerTool().CurrentSettings().params.strength, 20);
    EXPECT_EQ(Bytes(*selection.GetWorkingImage()), Bytes(DirectKey(CPixel{20, 30, 180, 255}, 20)));
}

TEST_F(ContourToolTest, PanelSliderBecomesTheLumaStrengthOfTheNextRun)
{
    // A gray backdrop goes the luma way, which the panel's slider steers.
    EnterChroma(vmtest::Picture(W, H, [](int x, int y) {
        const uint8_t v = x < W / 2 ? uint8_t(128 + x % 3) : uint8_t(150 + y % 40);
        return CPixel{v, v, v, 255};
    }));
    CBkPickerTool& picker = manager->GetBkPickerTool();
    EXPECT_EQ(host.panels.back(), &picker.GetPanel());
    Click(5, 5);
    const CPixel backdrop = CPixel::FromWord(picker.GetPicked()[0]);
    const std::vector<uint8_t> at32 = Bytes(DirectKey(backdrop));
    EXPECT_EQ(Bytes(*selection.GetWorkingImage()), at32) << "the picker starts at luma strength 32";

    picker.GetPanel().SetSlider(100);
    EXPECT_EQ(picker.GetLumaStrength(), 32) << "the slider alone changes nothing";
    const int steps = selectionLog.GetCount();
    picker.ApplyPanel();
    EXPECT_EQ(picker.GetLumaStrength(), 100);
    const std::vector<uint8_t> at100 = Bytes(DirectKey(backdrop, -1, 100));
    ASSERT_NE(at100, at32);
    EXPECT_EQ(Bytes(*selection.GetWorkingImage()), at100) << "the run keys the picture before the key";
    EXPECT_EQ(selectionLog.GetCount(), steps + 1);
}

TEST_F(ContourToolTest, InjectAddsOnePointOfTheInnerContourWhereAllowed)
{
    ASSERT_TRUE(manager->EnterOrLeaveSelectionMode(true, kMethodInOut, true));
    CInjectTool& inject = manager->GetInjectTool();
    manager->SetCurrentTool(&inject);
    EXPECT_EQ(manager->GetCurrentTool(), nullptr) << "no inner contour yet";
    EXPECT_EQ(messages, std::vector<std::string>{"injecterr"});

    COLChannel& inner = *selection.GetInnerPlane();
    COLChannel& outer = *selection.GetOuterPlane();
    inner = vmtest::Plane(W, H, 0);
    outer = vmtest::Plane(W, H, 255);
    inner.SetValue(20, 15, 255);
    outer.SetValue(10, 10, 0);   // outside the outer contour
    outer.SetValue(12, 10, 254);
    manager->SetCurrentTool(&inject);
    ASSERT_EQ(manager->GetCurrentTool(), &inject);

    std::vector<uint8_t> expected = Bytes(inner);
    const int steps = selectionLog.GetCount();
    for (const auto& p : {std::array<int, 2>{0, 5}, {5, 0}, {10, 10}, {12, 10}, {W, 5}}) {
        Click(p[0], p[1]);
        EXPECT_EQ(Bytes(inner), expected) << "refused at " << p[0] << "," << p[1];
    }
    EXPECT_EQ(selectionLog.GetCount(), steps);

    Click(1, 1);
    Click(7, 9);
    expected[size_t(1) * W + 1] = 255;
    expected[size_t(9) * W + 7] = 255;
    EXPECT_EQ(Bytes(inner), expected);
    EXPECT_EQ(selectionLog.GetCount(), steps + 2);
    EXPECT_EQ(LastLabel(selectionLog), "injecttip");
    // The cursor: a cross where a click adds, the arrow where it would not (refused or already inner).
    for (const auto& [x, cursor] : {std::pair{8, kCursorCross}, {7, kCursorDefault}, {0, kCursorDefault}}) {
        Sink().OnSetCursor(0, 0, 0, 0, x, 9);
        EXPECT_EQ(inject.GetCursor(), cursor) << "at " << x << ",9";
    }

    // Without outer contour pixels the outer plane does not limit.
    std::memset(outer.GetBuffer(), 0, outer.GetAreaByteSize());
    Click(10, 10);
    EXPECT_EQ(inner.GetValue(10, 10), 255);
    // Undo takes the last point back.
    ASSERT_EQ(selectionLog.Backward(), 1);
    EXPECT_EQ(inner.GetValue(10, 10), 0);
    EXPECT_EQ(inner.GetValue(7, 9), 255);
}

TEST_F(ContourToolTest, ZoomClicksStepAndPanFollowsTheDragInImagePixels)
{
    CZoomTool& zoom = manager->GetZoomTool();
    manager->SetCurrentTool(&zoom);
    Click(10, 20);
    zoom.GetPanel().SetMode(CPropZoom::kZoomOut);
    Click(30, 5);
    ASSERT_EQ(view.zoomSteps.size(), 2u);
    EXPECT_EQ(view.zoomSteps[0], (std::array<int, 3>{1, 10, 20}));
    EXPECT_EQ(view.zoomSteps[1], (std::array<int, 3>{0, 30, 5}));

    // Pan at zoom 2.5 from origin (40, 50): a drag of (-7, 12) client pixels moves by trunc(-2.8) = -2 and
    // trunc(4.8) = 4 image pixels, the other way.
    view.SetZoom(2.5, false);
    view.SetOrigin(nullptr, 40, 50, false);
    zoom.GetPanel().SetMode(CPropZoom::kPan);
    Sink().OnLButtonDown(kMkLButton, 100, 100);
    EXPECT_TRUE(zoom.IsPanning());
    Sink().OnMouseMove(kMkLButton, 93, 112);
    EXPECT_EQ(view.GetOrigin().x, 42);
    EXPECT_EQ(view.GetOrigin().y, 46);
    Sink().OnMouseMove(kMkLButton, 100, 100);
    EXPECT_EQ(view.GetOrigin().x, 40) << "offsets are from the press, not summed";
    Sink().OnLButtonUp(0, 100, 100);
    EXPECT_FALSE(zoom.IsPanning());
    Sink().OnMouseMove(0, 0, 0);
    EXPECT_EQ(view.GetOrigin().x, 40);
    EXPECT_EQ(view.zoomSteps.size(), 2u) << "a pan press does not zoom";
}

TEST_F(ContourToolTest, ZoomKeysHoldAModeUntilAnyKeyIsReleased)
{
    CZoomTool& zoom = manager->GetZoomTool();
    manager->SetCurrentTool(&zoom);
    Sink().OnSetCursor(0, 0, 0, 0, 1, 1);
    EXPECT_EQ(zoom.GetCursor(), kCursorZoomIn);
    Sink().OnKeyDown(kKeyControl, 0);
    EXPECT_EQ(zoom.GetPanel().GetMode(), CPropZoom::kPan);
    EXPECT_EQ(zoom.GetCursor(), kCursorPan);
    Sink().OnKeyDown(kKeyShift, 0);
    EXPECT_EQ(zoom.GetPanel().GetMode(), CPropZoom::kPan) << "a second key while one is held changes nothing";
    Sink().OnKeyUp('A', 0);
    EXPECT_EQ(zoom.GetPanel().GetMode(), CPropZoom::kZoomIn) << "any key released ends the held mode";
    EXPECT_EQ(zoom.GetCursor(), kCursorZoomIn);

    zoom.GetPanel().SetMode(CPropZoom::kPan);
    Sink().OnKeyDown(kKeyShift, 0);
    EXPECT_EQ(zoom.GetCursor(), kCursorZoomOut);
    Click(4, 4);
    ASSERT_EQ(view.zoomSteps.size(), 1u);
    EXPECT_EQ(view.zoomSteps[0][0], 0) << "shift zooms out";
    Sink().OnKeyUp(kKeyShift, 0);
    EXPECT_EQ(zoom.GetPanel().GetMode(), CPropZoom::kPan) << "the mode from before the key comes back";
}
