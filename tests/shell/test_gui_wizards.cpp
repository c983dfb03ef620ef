#include <QCheckBox>
#include <QLineEdit>
#include <QPushButton>
#include <QSlider>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>

#include "document/layer.h"
#include "gui_support.h"
#include "matting/refined_key.h"
#include "shell/batch_dlg.h"
#include "shell/batch_review.h"
#include "shell/menu_table.h"
#include "shell/selection_mode.h"
#include "shell/tab_blue_matting.h"
#include "shell/wizards.h"
#include "support/engine_checks.h"

using namespace vmtest;

namespace {

// The large button's two questions, answered through their real dialogs.
class WizardsInFrame : public FrameTest {
protected:
    void SetUp() override
    {
        StartFrame(900, 700);
        selmode::SetMethodChooser(nullptr);
    }
    void TearDown() override
    {
        selmode::SetMethodChooser([](QWidget*) { return uint32_t(kMethodInOut); });
        selmode::SetBringBackChooser(nullptr);
        SetBatchDialogHook(nullptr);
        SetAfterOpenHook([](CAfterOpenDlg&) {});
    }

    void OpenPicture()
    {
        ASSERT_NO_FATAL_FAILURE(FrameTest::OpenPicture(OpaqueNoise(120, 90, 4), "photo.png"));
        m_photo.DuplicateFrom(&m_app.Document().GetLayer(0)->m_image);
    }
    // Through the method dialog's button of `method`.
    void EnterWith(uint32_t method)
    {
        OnDialogShown<CMethodDlg>([method](CMethodDlg* d) {
            Shot(d, "method-dialog.png", 0);
            d->Button(method)->click();
        });
        m_frame->OnCommand(cmd::kConfirmReturn);
    }
    // The photo in selection mode with the contour method and a result: the left half kept, the right half gone.
    void EnterWithResult()
    {
        ASSERT_NO_FATAL_FAILURE(OpenPicture());
        EnterWith(kMethodInOut);
        ASSERT_TRUE(m_frame->IsSelectionMode());
        COLChannel& mask = *Sel().GetResultMask();
        mask = PlaneOf(120, 90, [](int x, int) { return x < 60 ? 255 : 0; });
        m_mask = Bytes(mask);
        Manager().UpdateBars();
    }
    // The wizard's button of `action`, with the keep box as given.
    void Leave(EBringBack action, bool keep = false)
    {
        OnDialogShown<CResultWizard>([action, keep](CResultWizard* w) {
            Shot(w, "result-wizard.png", 0);
            w->KeepBox()->setChecked(keep);
            w->Button(action)->click();
        });
        m_frame->OnCommand(cmd::kConfirmReturn);
    }

    // The copy of the cut-out as the history stores it, trimmed to what it shows: the photo's kept left half,
    // opaque, at (x, y).
    void ExpectKeptHalf(const CLayer& copy, int x, int y)
    {
        EXPECT_EQ(std::make_pair(copy.m_x, copy.m_y), std::make_pair(x, y));
        const COLImage leftHalf =
            Picture(60, 90, [this](uint32_t px, uint32_t py) { return m_photo.GetPixel2(px, py); });
        EXPECT_TRUE(SamePixels(copy.m_image, leftHalf)) << Size(copy.m_image);
    }

    std::vector<uint8_t> m_mask;
    COLImage m_photo;
};

} // namespace

TEST_F(WizardsInFrame, TheMethodDialogChoosesTheWayIn)
{
    OpenPicture();
    // Cancel stays in compose mode.
    OnDialogShown<CMethodDlg>([](CMethodDlg* d) { d->reject(); });
    m_frame->OnCommand(cmd::kConfirmReturn);
    EXPECT_FALSE(m_frame->IsSelectionMode());

    EnterWith(kMethodChroma);
    ASSERT_TRUE(m_frame->IsSelectionMode());
    EXPECT_EQ(Manager().GetMethod(), uint32_t(kMethodChroma));
    EXPECT_TRUE(m_frame->BlueTab()->isVisible());
    EXPECT_EQ(Manager().GetCurrentTool(), &Manager().GetBkPickerTool());
    ASSERT_TRUE(selmode::CancelReturn(Bar(), m_services));

    EnterWith(kMethodDirect);
    ASSERT_TRUE(m_frame->IsSelectionMode());
    EXPECT_EQ(Manager().GetMethod(), uint32_t(kMethodDirect));
    ASSERT_TRUE(selmode::CancelReturn(Bar(), m_services));

    // The batch choice opens the batch dialog over the photo; closing it leaves the document in compose mode.
    bool batchShown = false;
    SetBatchDialogHook([&](CBatchDlg& dlg) {
        batchShown = true;
        QTimer::singleShot(0, &dlg, [d = &dlg] { d->close(); });
    });
    EnterWith(CMethodDlg::kBatch);
    EXPECT_TRUE(batchShown);
    EXPECT_FALSE(m_frame->IsSelectionMode());
}

TEST_F(WizardsInFrame, ClosingTheWizardStaysAndDiscardLeavesWithoutAStep)
{
    EnterWithResult();
    const int steps = m_app.ComposeHistory()->GetCount();
    OnDialogShown<CResultWizard>([](CResultWizard* w) { w->reject(); });
    m_frame->OnCommand(cmd::kConfirmReturn);
    EXPECT_TRUE(m_frame->IsSelectionMode());
    EXPECT_EQ(Bytes(*Sel().GetResultMask()), m_mask);

    OnDialogShown<CResultWizard>(
        [](CResultWizard* w) { w->findChild<QPushButton*>(QStringLiteral("wizdiscard"))->click(); });
    m_frame->OnCommand(cmd::kConfirmReturn);
    EXPECT_FALSE(m_frame->IsSelectionMode());
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), steps);
    EXPECT_EQ(AlphaBytes(m_app.Document().GetLayer(0)->m_image), std::vector<uint8_t>(120 * 90, 255));
}

TEST_F(WizardsInFrame, OnTheBaseDeletingTheBackgroundWarnsAndCopies)
{
    EnterWithResult();
    const int steps = m_app.ComposeHistory()->GetCount();
    m_services.messages.clear();
    Leave(EBringBack::kApply, true);
    ASSERT_FALSE(m_frame->IsSelectionMode());
    EXPECT_EQ(m_services.messages, std::vector<std::string>{GetString("isbkwarning")});
    CComposeDocument& doc = m_app.Document();
    ASSERT_EQ(doc.GetLayerCount(), 2);
    EXPECT_EQ(doc.GetCurrentIndex(), 1);
    ExpectKeptHalf(*doc.GetLayer(1), 10, 10);
    EXPECT_EQ(AlphaBytes(doc.GetLayer(0)->m_image), std::vector<uint8_t>(120 * 90, 255)); // the base keeps its pixels
    EXPECT_EQ(Bytes(doc.GetSelectionMask()), m_mask); // "Keep the selection" was ticked
    // One step holds it all.
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), steps + 1);
    m_frame->OnCommand(cmd::kUndo);
    EXPECT_EQ(doc.GetLayerCount(), 1);
}

TEST_F(WizardsInFrame, ChangeBackgroundAsksForAPictureAndHandsOverToTheTransformTool)
{
    EnterWithResult();
    // A cancelled file dialog and an unreadable file keep the wizard up; the third answer is a picture.
    const std::string broken = m_dir.File("broken.png");
    WriteText(broken, "not a picture");
    const std::string backdrop = SavePicture(m_dir.File("backdrop.png"), OpaqueNoise(200, 150, 8));
    int shown = 0;
    OnDialogShown<CResultWizard>([&](CResultWizard* w) {
        QToolButton* change = w->Button(EBringBack::kChangeBackground);
        change->click(); // cancelled
        ++shown;
        m_services.openPaths.push_back(broken);
        change->click();
        shown += w->isVisible();
        m_services.openPaths.push_back(backdrop);
        change->click();
    });
    m_services.messages.clear();
    m_frame->OnCommand(cmd::kConfirmReturn);
    EXPECT_EQ(shown, 2);
    EXPECT_EQ(m_services.messages, std::vector<std::string>{GetString("can't open")});
    ASSERT_FALSE(m_frame->IsSelectionMode());
    CComposeDocument& doc = m_app.Document();
    EXPECT_EQ(std::make_pair(doc.GetWidth(), doc.GetHeight()), std::make_pair(200, 150));
    EXPECT_EQ(Bytes(doc.GetLayer(0)->m_image), Bytes(Load(backdrop)));
    ASSERT_EQ(doc.GetLayerCount(), 2);
    ExpectKeptHalf(*doc.GetLayer(1), 40 + 10, 30 + 10); // centred on the grown canvas, then 10 aside
    EXPECT_EQ(Manager().GetCurrentTool(), &Manager().GetTransformTool());
}

TEST_F(WizardsInFrame, AResultThatKeepsEverythingLeavesWithoutAsking)
{
    OpenPicture();
    EnterWith(kMethodInOut);
    *Sel().GetResultMask() = Plane(120, 90, 255);
    const int steps = m_app.ComposeHistory()->GetCount();
    m_frame->OnCommand(cmd::kConfirmReturn); // a wizard would block here
    EXPECT_FALSE(m_frame->IsSelectionMode());
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), steps);
    EXPECT_EQ(m_app.Document().GetLayerCount(), 1);
}

TEST_F(WizardsInFrame, TheBatchReviewKeysWithThePagesSettings)
{
    // A green backdrop whose hue drifts across the picture, so that the strength decides how much of it goes.
    const COLImage green = Picture(96, 64, [](uint32_t x, uint32_t y) {
        return CPixel::Make(uint8_t(x * 2), uint8_t(200 - y), uint8_t(x < 40 ? 20 : 3 * x - 100), 255);
    });
    FrameTest::OpenPicture(green, "green.png");
    // The open photo comes first, then this.
    const std::vector<std::string> photos = {SavePicture(m_dir.File("green2.png"), green)};
    const std::string out = m_dir.File("reviewed");
    std::filesystem::create_directories(out);
    SetBatchDialogHook([&](CBatchDlg& dlg) {
        dlg.AddFiles(photos);
        dlg.FolderEdit()->setText(QString::fromStdString(out));
        QTimer::singleShot(0, &dlg, [d = &dlg] { d->Continue(); });
    });
    EnterWith(CMethodDlg::kBatch);
    CBatchReview* review = CurrentBatchReview();
    ASSERT_NE(review, nullptr);
    ASSERT_TRUE(WaitFor([&] { return review->NextButton()->isEnabled(); }));
    EXPECT_EQ(Bytes(*Sel().GetSourceImage()), Bytes(m_app.Document().GetLayer(0)->m_image));
    // A change on the page holds for the photos that follow.
    m_frame->BlueTab()->StrengthSlider()->setValue(80);
    ChromaKeySettings page = m_frame->BlueTab()->Picker().CurrentSettings();
    ASSERT_NE(page.params.strength, ChromaKeySettings{}.params.strength);
    ASSERT_TRUE(WaitFor([&] { return !m_frame->BlueTab()->Preview().IsRunning(); }));
    QTest::mouseClick(review->NextButton(), Qt::LeftButton);
    ASSERT_TRUE(WaitFor([&] { return review->Index() == 1 && review->NextButton()->isEnabled(); }));
    COLImage source = Load(photos[0]), expected;
    page.params.backdrop = batchkey::ColourOfFile(source, batchkey::Settings{});
    ASSERT_EQ(RunBackdropKey(page, source, expected), kOk);
    ChromaKeySettings plain;
    plain.params.backdrop = page.params.backdrop;
    COLImage withDefaults;
    ASSERT_EQ(RunBackdropKey(plain, source, withDefaults), kOk);
    ASSERT_NE(Bytes(withDefaults), Bytes(expected)); // the photo tells the two records apart
    EXPECT_EQ(Bytes(*Sel().GetWorkingImage()), Bytes(expected));
}

TEST_F(WizardsInFrame, TheAfterOpenQuestionLeadsOnOrOpensTheForeground)
{
    // "This is the background": a cancelled file dialog keeps the question up; a picture becomes the second layer.
    const std::string foreground = SavePicture(m_dir.File("fore.png"), OpaqueNoise(50, 40, 21));
    int asked = 0;
    SetAfterOpenHook([&](CAfterOpenDlg& d) {
        ++asked;
        d.BackgroundButton()->click();
        EXPECT_EQ(d.Answer(), CAfterOpenDlg::kNone);
        m_services.openPaths.push_back(foreground);
        d.BackgroundButton()->click();
        EXPECT_EQ(d.Answer(), CAfterOpenDlg::kBackground);
    });
    OpenPicture();
    ASSERT_TRUE(WaitFor([&] { return asked == 1; }));
    EXPECT_EQ(m_app.Document().GetLayerCount(), 2);
    EXPECT_EQ(m_services.messages.back(), GetString("isbktip"));

    // "This is the foreground" goes on to the method question and into selection mode.
    selmode::SetMethodChooser([](QWidget*) { return uint32_t(kMethodInOut); });
    SetAfterOpenHook([&](CAfterOpenDlg& d) {
        ++asked;
        d.ForegroundButton()->click();
    });
    OpenPicture();
    ASSERT_TRUE(WaitFor([&] { return m_frame->IsSelectionMode(); }));
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(m_services.messages.back(), GetString("isforetip"));
    ASSERT_TRUE(selmode::CancelReturn(Bar(), m_services));

    // "Don't ask me again" holds for the next picture.
    SetAfterOpenHook([&](CAfterOpenDlg& d) {
        ++asked;
        d.DontAskBox()->click();
    });
    OpenPicture();
    ASSERT_TRUE(WaitFor([&] { return asked == 3; }));
    EXPECT_EQ(m_app.GetProfileInt("AfterOpenWizard"), 0);
    OpenPicture();
    QTest::qWait(50);
    EXPECT_EQ(asked, 3);
}
