// The chroma-key page and the backdrop picker in the window: a pick keys the picture exactly as the engine does,
// the page's controls preview live on the worker (a change during a run runs once more afterwards), Revert puts
// back what was applied, and the result is what the bring-back uses.
#include <QCheckBox>
#include <QPushButton>
#include <QSlider>
#include <QTest>
#include <gtest/gtest.h>

#include "gui_support.h"
#include "document/layer.h"
#include "imaging/codec.h"
#include "matting/refined_key.h"
#include "shell/image_view.h"
#include "shell/main_frame.h"
#include "shell/selection_mode.h"
#include "shell/shell_app.h"
#include "shell/tab_blue_matting.h"
#include "shell/tool_bar.h"

using namespace vmtest;

namespace {

class BlueTab : public FrameTest {
protected:
    void SetUp() override { StartFrame(1000, 720); }

    // The green-screen photo of the evaluation set, lossless, on the chroma-key page.
    void OpenGreenScreen()
    {
        Open(DataPath("matting/key_green.png"));
        ASSERT_TRUE(m_frame->IsCommandAvailable(cmd::kChromaKey));
        m_frame->OnCommand(cmd::kChromaKey);
        ASSERT_TRUE(m_frame->IsSelectionMode());
        ASSERT_EQ(Manager().GetMethod(), uint32_t(kMethodChroma));
        ASSERT_TRUE(Page().isVisible());
        ASSERT_EQ(Manager().GetCurrentTool(), &Manager().GetBkPickerTool());
    }

    // A click on the picture at image point (x, y), through the canvas.
    void ClickImage(int x, int y)
    {
        QTest::mouseMove(m_frame->View(), Client(x, y));
        QTest::mouseClick(m_frame->View(), Qt::LeftButton, Qt::NoModifier, Client(x, y));
    }

    // The engine called directly on the layer's picture, and the mask the cut-out takes from it.
    struct Expected {
        std::vector<uint8_t> working, mask;
    };
    Expected Engine(ChromaKeySettings settings)
    {
        settings.params.backdrop = Backdrop();
        COLImage source = Copy(m_app.Document().GetLayer(0)->m_image), result;
        EXPECT_EQ(RunBackdropKey(settings, source, result), kOk);
        return Expected{Bytes(result), SquaredAlpha(result)};
    }
    CPixel Backdrop() { return CBkPickerTool::PickColour(m_app.Document().GetLayer(0)->m_image, 12, 10); }
    void ExpectShows(const Expected& e)
    {
        EXPECT_EQ(Bytes(*Sel().GetWorkingImage()), e.working);
        EXPECT_EQ(Bytes(*Sel().GetResultMask()), e.mask);
    }
    // Waits until the preview has finished the given number of runs and is idle.
    bool WaitPreview(int finished)
    {
        return WaitFor([&] { return Page().Preview().FinishedRuns() >= finished && !Page().Preview().IsRunning(); },
                       20000);
    }

    CTabBlueMatting& Page() { return *m_frame->BlueTab(); }
    int Steps() { return m_frame->ToolBar()->SelectionLog()->GetCount(); }

};

} // namespace

TEST_F(BlueTab, PickFromTheCanvasGivesTheEnginesBytesClassicAndRefined)
{
    OpenGreenScreen();
    const int steps = Steps();
    ClickImage(12, 10);
    ASSERT_FALSE(Sel().GetResultMask()->IsNull());
    EXPECT_EQ(Manager().GetBkPickerTool().GetPicked().at(0), Backdrop().Word());
    ExpectShows(Engine(ChromaKeySettings{}));
    EXPECT_EQ(Steps(), steps + 1);
    EXPECT_FALSE(Page().ApplyButton()->isEnabled()) << "nothing to apply right after a pick";
    // The green screen is gone at the corner (its noise keeps a trace).
    EXPECT_LT(Sel().GetResultMask()->GetValue(2, 2), 16);

    // The refined key from its check box: previewed live, then applied with its step.
    const int finished = Page().Preview().FinishedRuns();
    Page().RefineBox()->setChecked(true);
    ASSERT_TRUE(WaitPreview(finished + 1));
    ChromaKeySettings refined;
    refined.refine = 1;
    const Expected expected = Engine(refined);
    ExpectShows(expected);
    EXPECT_EQ(Steps(), steps + 1) << "a preview records nothing";
    ASSERT_TRUE(Page().ApplyButton()->isEnabled());
    QTest::mouseClick(Page().ApplyButton(), Qt::LeftButton);
    ExpectShows(expected);
    EXPECT_EQ(Steps(), steps + 2);
    EXPECT_FALSE(Page().ApplyButton()->isEnabled());
}

TEST_F(BlueTab, ChangesDuringARunRestartOnceAndRevertRestoresTheAppliedCutOut)
{
    OpenGreenScreen();
    ClickImage(12, 10);
    const Expected picked = Engine(ChromaKeySettings{});
    ExpectShows(picked);
    const int steps = Steps();
    const int started = Page().Preview().StartedRuns(), finished = Page().Preview().FinishedRuns();

    // The second change comes while the first run is on the worker: it cancels it and asks for one more run.
    Page().StrengthSlider()->setValue(30);
    EXPECT_EQ(Page().Preview().StartedRuns(), started + 1);
    Page().StrengthSlider()->setValue(70);
    Page().ShadowBox()->setChecked(false);
    EXPECT_EQ(Page().Preview().IsRestartPending(), 1u) << "the worker was busy: the change waits";
    EXPECT_EQ(Page().Preview().StartedRuns(), started + 1);
    ASSERT_TRUE(WaitPreview(finished + 2));
    EXPECT_EQ(Page().Preview().StartedRuns(), started + 2) << "two changes during one run make one more run";
    ChromaKeySettings changed;
    changed.params.strength = 70;
    changed.params.includeShadow = 0;
    const Expected preview = Engine(changed);
    ASSERT_NE(preview.mask, picked.mask);
    ExpectShows(preview);
    EXPECT_TRUE(Page().RevertButton()->isEnabled());

    // Revert: the pick's cut-out and its settings come back, nothing recorded.
    QTest::mouseClick(Page().RevertButton(), Qt::LeftButton);
    ExpectShows(picked);
    EXPECT_EQ(Page().StrengthSlider()->value(), 50);
    EXPECT_TRUE(Page().ShadowBox()->isChecked());
    EXPECT_FALSE(Page().RevertButton()->isEnabled());
    EXPECT_EQ(Steps(), steps);
}

TEST_F(BlueTab, SecondClickTakesTheCutOutAwayAndTheResultComesBackAsTheLayersAlpha)
{
    OpenGreenScreen();
    ClickImage(12, 10);
    const std::vector<uint8_t> mask = Bytes(*Sel().GetResultMask());
    ClickImage(100, 100);
    EXPECT_TRUE(Sel().GetResultMask()->IsNull()) << "a click while a result stands takes it away";
    EXPECT_EQ(Bytes(*Sel().GetWorkingImage()), Bytes(m_app.Document().GetLayer(0)->m_image));
    ClickImage(12, 10);
    ASSERT_EQ(Bytes(*Sel().GetResultMask()), mask);

    // The bring-back: the layer's alpha becomes the result mask.
    selmode::SetBringBackChooser([](QWidget*) { return selmode::EBringBack::kKeep; });
    m_frame->OnCommand(cmd::kConfirmReturn);
    selmode::SetBringBackChooser(nullptr);
    ASSERT_FALSE(m_frame->IsSelectionMode());
    EXPECT_FALSE(Page().isVisible());
    EXPECT_EQ(Bytes(m_app.Document().GetSelectionMask()), mask);
}

TEST_F(BlueTab, ScreenshotOfTheGreenScreenOverANewBackground)
{
    OpenGreenScreen();
    ClickImage(12, 10);
    ASSERT_FALSE(Sel().GetResultMask()->IsNull());
    // A picture as the new background, chosen as the menu does.
    m_services.openPaths.push_back(AssetPath("samples/coffee.png"));
    m_frame->OnCommand(cmd::kBackPicture);
    EXPECT_EQ(Sel().GetDisplayMode(), kShowPicture);
    m_frame->View()->SetZoom(2.0, true);
    Shot(m_frame, "chroma-key-panel.png");
}
