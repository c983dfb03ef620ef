#include <QCheckBox>
#include <QDialog>
#include <QLabel>
#include <QProgressBar>
#include <QTest>
#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

#include "commands/history_log.h"
#include "commands/history_sink.h"
#include "document/layer.h"
#include "gui_support.h"
#include "shell/wait_dialog.h"

using namespace vmtest;

namespace {

class InpaintInFrame : public FrameTest {
protected:
    void SetUp() override { Launch(); }

    // Runs the item, its dialog answered once it is up: the feather box as given, then OK or Cancel.
    void Inpaint(bool ok, bool feather = true)
    {
        AnswerDialog("smartinpaint", [this, ok, feather](QDialog& dialog) {
            auto* box = dialog.findChild<QCheckBox*>(QStringLiteral("inpaintfeather"));
            m_dialogText = box ? box->text().toStdString() : std::string();
            m_wasChecked = box && box->isChecked();
            if (box) box->setChecked(feather);
            if (ok)
                dialog.accept();
            else
                dialog.reject();
        });
        m_frame->OnCommand(cmd::kInpaint);
    }

    // Runs the item; once its dialog is up: ticks "Structure-aware fill", notes what the dialog shows, takes its
    // picture, OK.
    void InpaintRefined()
    {
        AnswerDialog("smartinpaint", [this](QDialog& dialog) {
            auto* refine = dialog.findChild<QCheckBox*>(QStringLiteral("inpaintrefine"));
            auto* feather = dialog.findChild<QCheckBox*>(QStringLiteral("inpaintfeather"));
            auto* note = dialog.findChild<QLabel*>(QStringLiteral("inpaintrefinenote"));
            m_dialogText = refine ? refine->text().toStdString() : std::string();
            m_wasChecked = refine && refine->isChecked();
            m_noteShown = note && !note->text().isEmpty();
            if (refine) QTest::mouseClick(refine, Qt::LeftButton, Qt::NoModifier, QPoint(8, refine->height() / 2));
            m_featherEnabled = feather && feather->isEnabled();
            Shot(&dialog, "inpaint-refine-dialog.png", 0);
            dialog.accept();
        });
        m_frame->OnCommand(cmd::kInpaint);
    }

    void ShotOfTheWindow(const char* name)
    {
        Manager().SetCurrentTool(nullptr);
        Shot(m_frame, name);
    }

    const COLImage& Layer() { return m_app.Document().GetLayer(0)->m_image; }

    // The astronaut photo in a window large enough to show it, the mission patch selected.
    void SelectThePatch()
    {
        ASSERT_NO_FATAL_FAILURE(Open(AssetPath("samples/astronaut.png")));
        m_frame->resize(1000, 720);
        m_before.DuplicateFrom(&Layer());
        ASSERT_NO_FATAL_FAILURE(SelectRectangle(128, 342, 214, 428));
    }

    // The patch's dark blue is gone when few pixels of its middle are bluer than red.
    int BluePixelsOfThePatch()
    {
        int blue = 0;
        for (int y = 350; y < 420; ++y)
            for (int x = 136; x < 206; ++x) blue += Layer().GetBuffer(x, y)->blue > Layer().GetBuffer(x, y)->red;
        return blue;
    }

    // Pixels changed farther than margin from the selected rectangle.
    int ChangedBeyond(int margin)
    {
        const COLChannel& mask = m_app.Document().GetSelectionMask();
        int left = 1 << 30, top = 1 << 30, right = -1, bottom = -1, changed = 0;
        for (int y = 0; y < int(mask.GetHeight()); ++y)
            for (int x = 0; x < int(mask.GetWidth()); ++x)
                if (mask.GetValue(x, y) > 127) {
                    left = std::min(left, x), top = std::min(top, y);
                    right = std::max(right, x), bottom = std::max(bottom, y);
                }
        for (int y = 0; y < int(Layer().GetHeight()); ++y)
            for (int x = 0; x < int(Layer().GetWidth()); ++x) {
                const bool near = x >= left - margin && x <= right + margin && y >= top - margin && y <= bottom + margin;
                changed += !near && Layer().GetBuffer(x, y)->Word() != m_before.GetBuffer(x, y)->Word();
            }
        return changed;
    }

    COLImage m_before;
    std::string m_dialogText;
    bool m_wasChecked = false, m_featherEnabled = true, m_noteShown = false;
};

// A patterned picture with a red square, the object to remove, at (34, 24)..(46, 36).
COLImage Scene()
{
    return Picture(80, 60, [](uint32_t x, uint32_t y) {
        if (x >= 34 && x < 46 && y >= 24 && y < 36) return CPixel::Make(250, 10, 10, 255);
        return CPixel::Make(uint8_t(60 + (x * 7 + y * 3) % 50), uint8_t(90 + (y * 5) % 40), 70, 255);
    });
}

} // namespace

TEST_F(InpaintInFrame, MenuRemovesTheSelectedObjectAndUndoBringsItBack)
{
    OpenPicture(Scene());
    m_before.DuplicateFrom(&Layer());
    SelectRectangle(31, 21, 49, 39);
    ASSERT_TRUE(m_frame->IsCommandAvailable(cmd::kInpaint));
    const int steps = m_app.ComposeHistory()->GetCount();

    // Cancel in the dialog: nothing happens and nothing is said.
    Inpaint(false);
    EXPECT_TRUE(m_services.messages.empty());
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), steps);
    EXPECT_EQ(m_dialogText, "Feather the selection for a natural transition");
    EXPECT_TRUE(m_wasChecked);

    Inpaint(true);
    EXPECT_TRUE(m_services.messages.empty()) << m_services.messages.front();
    ASSERT_EQ(m_app.ComposeHistory()->GetCount(), steps + 1);
    EXPECT_EQ(m_app.ComposeHistory()->GetRecord(steps)->kind, kStepLayerHeaderRegion);
    for (int y = 24; y < 36; ++y)
        for (int x = 34; x < 46; ++x)
            ASSERT_LT(Layer().GetBuffer(x, y)->red, 200) << "the object is still there at " << x << "," << y;
    EXPECT_FALSE(m_app.Document().GetSelectionMask().IsAllZero()) << "the selection stays";
    EXPECT_EQ(m_frame->ProgressShown(), -1) << "the status bar is reset";

    m_frame->OnCommand(cmd::kUndo);
    EXPECT_TRUE(SamePixels(Layer(), m_before));
}

TEST_F(InpaintInFrame, RefusalsSayWhyAndKeepTheLayer)
{
    OpenPicture(Scene());
    // A hole larger than a fifth of the picture: the run fails, the layer is as it was.
    SelectRectangle(5, 5, 70, 50);
    m_before.DuplicateFrom(&Layer());
    const int steps = m_app.ComposeHistory()->GetCount();
    Inpaint(true);
    ASSERT_EQ(m_services.messages.size(), 1u);
    EXPECT_EQ(m_services.messages[0], GetString("inpainterr"));
    EXPECT_TRUE(SamePixels(Layer(), m_before));
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), steps);

    // Not on the base layer: the command itself says so (the menu item is grey there).
    m_services.messages.clear();
    m_frame->OnCommand(cmd::kNewLayer);
    ASSERT_EQ(m_app.Document().GetCurrentIndex(), 1);
    EXPECT_FALSE(m_frame->IsCommandAvailable(cmd::kInpaint));
    m_frame->RunCommand("Doc_SmartInpaint");
    ASSERT_EQ(m_services.messages.size(), 1u);
    EXPECT_EQ(m_services.messages[0], GetString("onlybaselayer"));
}

TEST_F(InpaintInFrame, WaitDialogShowsProgressAndEscapeStopsTheRun)
{
    CProcessThread& worker = *m_app.Worker();
    CHeldProcess process;
    bool cancelled = false;
    int seen = -1;
    const long r = RunProcessWithWait(worker, process, &process, m_frame, m_frame, &cancelled, [&](CWaitDialog& d) {
        EXPECT_TRUE(d.isModal());
        EXPECT_TRUE(d.windowFlags() & Qt::FramelessWindowHint);
        WaitFor([&] { return d.ProgressBar()->value() > 0; }, 1000);
        seen = d.ProgressBar()->value();
        QTest::keyClick(&d, Qt::Key_Escape);
    });
    EXPECT_GT(seen, 0) << "the bar follows the run";
    EXPECT_TRUE(cancelled);
    EXPECT_EQ(r, 7) << "the process saw the request and returned";
    EXPECT_FALSE(worker.IsBusy());

    // A run that ends by itself closes the dialog without Esc.
    CHeldProcess quick;
    quick.Release();
    EXPECT_EQ(RunProcessWithWait(worker, quick, &quick, m_frame, nullptr, &cancelled), 0);
    EXPECT_FALSE(cancelled);
}

TEST_F(InpaintInFrame, RemovesTheMissionPatchFromAPhoto)
{
    SelectThePatch();
    ShotOfTheWindow("inpaint-before.png");
    Inpaint(true);
    ASSERT_TRUE(m_services.messages.empty()) << m_services.messages.front();
    // The hole now holds the suit's orange; the feathered edge reaches less than 28 pixels out.
    EXPECT_LT(BluePixelsOfThePatch(), 70 * 70 / 50);
    EXPECT_EQ(ChangedBeyond(28), 0);
    m_frame->OnCommand(cmd::kSelectNone);
    ShotOfTheWindow("inpaint-after.png");
}

TEST_F(InpaintInFrame, StructureAwareFillRemovesTheMissionPatchWithOneUndoableStep)
{
    SelectThePatch();
    const int steps = m_app.ComposeHistory()->GetCount();
    InpaintRefined();
    ASSERT_TRUE(m_services.messages.empty()) << m_services.messages.front();
    EXPECT_EQ(m_dialogText, "Structure-aware fill");
    EXPECT_FALSE(m_wasChecked) << "block quilting stays the default";
    EXPECT_FALSE(m_featherEnabled) << "feathering belongs to block quilting";
    EXPECT_TRUE(m_noteShown);
    ASSERT_EQ(m_app.ComposeHistory()->GetCount(), steps + 1);
    EXPECT_EQ(m_app.ComposeHistory()->GetRecord(steps)->kind, kStepLayerHeaderRegion);
    EXPECT_EQ(m_frame->ProgressShown(), -1) << "the status bar is reset";

    // Nothing beyond the selection and its one-pixel seam changed.
    EXPECT_LT(BluePixelsOfThePatch(), 70 * 70 / 50);
    EXPECT_EQ(ChangedBeyond(1), 0);
    COLImage filled = vmtest::Copy(Layer());
    m_frame->OnCommand(cmd::kUndo);
    EXPECT_TRUE(SamePixels(Layer(), m_before));
    m_frame->OnCommand(cmd::kRedo);
    EXPECT_TRUE(SamePixels(Layer(), filled));
    m_frame->OnCommand(cmd::kSelectNone);
    ShotOfTheWindow("inpaint-refine-after.png");
}
