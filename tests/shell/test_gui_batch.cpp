#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "document/layer.h"
#include "gui_support.h"
#include "matting/batch_key.h"
#include "matting/refined_key.h"
#include "shell/batch_dlg.h"
#include "shell/batch_review.h"

using namespace vmtest;
namespace fs = std::filesystem;

namespace {

// A photo of a subject on a green screen: a lit, slightly noisy backdrop and a reddish disc whose place and size
// differ from photo to photo.
COLImage GreenScreen(int seed)
{
    const int cx = 20 + seed * 9, cy = 22 + seed * 3, r = 10 + seed * 2;
    return Picture(64, 48, [&](int x, int y) {
        const int n = (x * 7 + y * 13 + seed * 31) % 9;
        const int d2 = (x - cx) * (x - cx) + (y - cy) * (y - cy);
        if (d2 < r * r) return CPixel::Make(uint8_t(200 - n * 3), uint8_t(90 + y), uint8_t(70 + n * 5));
        if (d2 < (r + 1) * (r + 1)) return CPixel::Make(120, 130, 65); // a mixed rim
        return CPixel::Make(uint8_t(40 + n), uint8_t(170 + x / 4 + n), uint8_t(60 + n));
    });
}

class BatchInFrame : public FrameTest {
protected:
    void SetUp() override
    {
        fs::create_directories(m_dir.File("shots"));
        for (int i = 0; i < 3; ++i) {
            const std::string name = std::string("shots/photo") + char('a' + i) + (i == 2 ? ".bmp" : ".png");
            m_photos.push_back(SavePicture(m_dir.File(name), GreenScreen(i)));
        }
        // A file that claims to be a photo and is not one.
        m_broken = m_dir.File("shots/broken.jpg");
        std::ofstream(m_broken, std::ios::binary) << "\xFF\xD8\xFF\xE0 this is not a picture";
        ASSERT_NO_FATAL_FAILURE(Launch());
        ASSERT_NO_FATAL_FAILURE(Open(m_photos[0]));
        m_before = Bytes(m_app.Document().GetLayer(0)->m_image);
    }
    void TearDown() override { SetBatchDialogHook(nullptr); }
    // The list the tests run: the open photo first, the damaged file in the middle.
    std::vector<std::string> List() const { return {m_photos[0], m_photos[1], m_broken, m_photos[2]}; }

    // The end of a run over List(): the report names the damaged file, every photo has its file in out and the
    // damaged one none.
    void ExpectTheRunsEnd(const std::string& out, const char* affix, bool prefix)
    {
        ASSERT_FALSE(m_services.messages.empty());
        EXPECT_NE(m_services.messages.back().find("The batch is done"), std::string::npos);
        EXPECT_NE(m_services.messages.back().find("broken.jpg"), std::string::npos);
        for (const std::string& photo : m_photos)
            EXPECT_TRUE(fs::exists(batchkey::OutputPath(out, photo, affix, prefix))) << photo;
        EXPECT_FALSE(fs::exists(batchkey::OutputPath(out, m_broken, affix, prefix)));
    }

    std::vector<std::string> m_photos;
    std::string m_broken;
    std::vector<uint8_t> m_before;
};

} // namespace

TEST_F(BatchInFrame, ListPreviewCrosshairAndClickToPick)
{
    const COLImage& picture = m_app.Document().GetLayer(0)->m_image;
    CBatchDlg dlg(m_frame, m_services, m_app.Worker(), &picture, m_photos[0]);
    dlg.resize(640, 520);
    dlg.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&dlg));
    // The open photo stands in the list; its folder is the output folder; its border gives the colour.
    ASSERT_EQ(dlg.Files(), std::vector<std::string>{m_photos[0]});
    EXPECT_EQ(dlg.FolderEdit()->text().toStdString(), m_dir.File("shots"));
    EXPECT_EQ(dlg.FixedColour().Word(), CChromaKeyProcess::EstimateBackdropColour(picture).Word());
    EXPECT_TRUE(dlg.ReviewBox()->isChecked());
    EXPECT_EQ(dlg.findChild<QPushButton*>(QStringLiteral("add"))->text(), QStringLiteral("Add..."));
    EXPECT_EQ(dlg.findChild<QPushButton*>(QStringLiteral("remove"))->text(), QStringLiteral("Remove"));

    // "减" never empties the list; "加" takes several files and refuses one listed already.
    dlg.List()->setCurrentRow(0);
    dlg.RemoveSelected();
    EXPECT_EQ(dlg.Files().size(), 1u);
    dlg.chooseFiles = [&] {
        return std::vector<std::string>{m_photos[1], m_dir.File("shots/./photoa.png"), m_photos[2]};
    };
    QTest::mouseClick(dlg.findChild<QPushButton*>(QStringLiteral("add")), Qt::LeftButton);
    EXPECT_EQ(dlg.Files(), (std::vector<std::string>{m_photos[0], m_photos[1], m_photos[2]}));
    EXPECT_EQ(dlg.List()->count(), 3);
    EXPECT_EQ(dlg.List()->item(2)->text(), QStringLiteral("photoc.bmp"));
    dlg.List()->clearSelection();
    dlg.List()->setCurrentRow(1);
    QTest::mouseClick(dlg.findChild<QPushButton*>(QStringLiteral("remove")), Qt::LeftButton);
    EXPECT_EQ(dlg.Files(), (std::vector<std::string>{m_photos[0], m_photos[2]}));
    // All of them selected: one stays.
    dlg.List()->selectAll();
    dlg.RemoveSelected();
    EXPECT_EQ(dlg.Files().size(), 1u);
    EXPECT_EQ(dlg.List()->count(), 1);
    dlg.AddFiles({m_photos[2]});

    // In the automatic mode a click picks nothing.
    CBatchPreview* preview = dlg.Preview();
    const CPixel estimated = dlg.FixedColour();
    QTest::mouseClick(preview, Qt::LeftButton, Qt::NoModifier, preview->ImageToWidget(40, 30) + QPoint(1, 1));
    EXPECT_EQ(dlg.FixedColour().Word(), estimated.Word());

    // The point mode: a click sets the point in percent and the colour to the mean of the four neighbours.
    dlg.ColourMode()->setCurrentIndex(batchkey::kColourAtPoint);
    int x = -1, y = -1;
    const QPoint at = preview->ImageToWidget(20, 22) + QPoint(1, 1);
    ASSERT_TRUE(preview->WidgetToImage(at, x, y));
    QTest::mouseClick(preview, Qt::LeftButton, Qt::NoModifier, at);
    const CPixel n[4] = {
        picture.GetPixel2(uint32_t(x - 1), uint32_t(y)), picture.GetPixel2(uint32_t(x + 1), uint32_t(y)),
        picture.GetPixel2(uint32_t(x), uint32_t(y + 1)), picture.GetPixel2(uint32_t(x), uint32_t(y - 1))};
    const CPixel picked = dlg.FixedColour();
    EXPECT_EQ(picked.green, (n[0].green + n[1].green + n[2].green + n[3].green) / 4);
    EXPECT_EQ(picked.red, (n[0].red + n[1].red + n[2].red + n[3].red) / 4);
    EXPECT_EQ(picked.blue, (n[0].blue + n[1].blue + n[2].blue + n[3].blue) / 4);
    EXPECT_EQ(dlg.PickX(), x * 100 / 64);
    EXPECT_EQ(dlg.PickY(), y * 100 / 48);
    EXPECT_EQ(dlg.GetSettings().colourMode, int(batchkey::kColourAtPoint));

    // The crosshair: white arms of three pixels around the point, and a gap at its centre.
    QTest::qWait(50);
    const QImage shown = preview->grab().toImage();
    const QPoint c = preview->ImageToWidget(dlg.PickX() * 64 / 100, dlg.PickY() * 48 / 100);
    for (int d = 1; d <= 3; ++d) {
        EXPECT_EQ(shown.pixel(c + QPoint(d, 0)) & 0xFFFFFF, 0xFFFFFFu) << d;
        EXPECT_EQ(shown.pixel(c - QPoint(0, d)) & 0xFFFFFF, 0xFFFFFFu) << d;
    }
    EXPECT_NE(shown.pixel(c) & 0xFFFFFF, 0xFFFFFFu);
    EXPECT_NE(shown.pixel(c + QPoint(4, 0)) & 0xFFFFFF, 0xFFFFFFu);
    // The colour mode shows the colour as a patch framed in white, and no crosshair.
    dlg.ColourMode()->setCurrentIndex(batchkey::kColourFixed);
    QTest::qWait(50);
    const QImage patch = preview->grab().toImage();
    EXPECT_EQ(patch.pixel(10, 10) & 0xFFFFFF, uint32_t(picked.red << 16 | picked.green << 8 | picked.blue));
    EXPECT_EQ(patch.pixel(4, 10) & 0xFFFFFF, 0xFFFFFFu);
    EXPECT_NE(patch.pixel(c + QPoint(2, 0)) & 0xFFFFFF, 0xFFFFFFu);
}

TEST_F(BatchInFrame, UnattendedRunFromTheMenuWritesWhatTheCoreBatchWritesAndSkipsADamagedFile)
{
    QAction* item = m_frame->Action(cmd::kBatchKey);
    ASSERT_NE(item, nullptr);
    EXPECT_TRUE(item->isEnabled());
    EXPECT_EQ(item->text(), QStringLiteral("&Batch chroma key..."));
    const std::string out = m_dir.File("keyed");
    int maxProgress = 0;
    batchkey::Settings used;
    std::vector<std::string> written;
    std::vector<batchkey::Failure> failures;
    SetBatchDialogHook([&](CBatchDlg& dlg) {
        dlg.AddFiles({m_photos[1], m_broken, m_photos[2]});
        dlg.ReviewBox()->setChecked(false);
        dlg.FolderEdit()->setText(QString::fromStdString(out));
        dlg.AffixEdit()->setText(QStringLiteral("_cut"));
        dlg.ColourMode()->setCurrentIndex(batchkey::kColourAtPoint);
        QObject::connect(dlg.Progress(), &QProgressBar::valueChanged,
                         [&](int v) { maxProgress = std::max(maxProgress, v); });
        QObject::connect(&dlg, &QDialog::finished, [&, d = &dlg] {
            used = d->GetSettings();
            written = d->Written();
            failures = d->Failures();
        });
        QTimer::singleShot(0, &dlg, [d = &dlg] { d->Continue(); });
    });
    m_frame->OnCommand(cmd::kBatchKey);

    EXPECT_EQ(maxProgress, 100);
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].path, m_broken);
    ASSERT_EQ(written.size(), 3u);
    ExpectTheRunsEnd(out, "_cut", false);
    // The core's unattended run on the same list and settings writes the same bytes.
    batchkey::Settings core = used;
    core.outputDir = m_dir.File("core");
    EXPECT_EQ(core.pickX, 10);
    EXPECT_EQ(batchkey::Run(List(), core).size(), 1u);
    for (const std::string& photo : m_photos) {
        const std::vector<uint8_t> bytes = ReadAll(batchkey::OutputPath(out, photo, "_cut", false));
        EXPECT_GT(bytes.size(), 100u);
        EXPECT_EQ(bytes, ReadAll(batchkey::OutputPath(core.outputDir, photo, "_cut", false))) << photo;
    }
    // The document stays as it was, in compose mode.
    EXPECT_FALSE(m_frame->IsSelectionMode());
    EXPECT_EQ(Bytes(m_app.Document().GetLayer(0)->m_image), m_before);
}

TEST_F(BatchInFrame, CancelStopsTheRunAfterThePhotoUnderWay)
{
    std::vector<std::string> many;
    for (int i = 0; i < 12; ++i) {
        const std::string copy = m_dir.File("shots/many" + std::to_string(i) + ".png");
        fs::copy_file(m_photos[i % 3 == 2 ? 2 : i % 3], copy);
        many.push_back(copy);
    }
    m_services.messages.clear();
    const COLImage& picture = m_app.Document().GetLayer(0)->m_image;
    CBatchDlg dlg(m_frame, m_services, m_app.Worker(), &picture, "");
    dlg.AddFiles(many);
    dlg.ReviewBox()->setChecked(false);
    dlg.FolderEdit()->setText(QString::fromStdString(m_dir.File("stopped")));
    dlg.show();
    dlg.Continue();
    ASSERT_TRUE(dlg.IsRunning());
    EXPECT_FALSE(dlg.ContinueButton()->isEnabled());
    QTest::keyClick(&dlg, Qt::Key_Escape);
    EXPECT_TRUE(dlg.isVisible()) << "the dialog waits for the photo under way";
    ASSERT_TRUE(WaitFor([&] { return !dlg.isVisible(); }));
    EXPECT_EQ(dlg.Outcome(), CBatchDlg::kCancelled);
    EXPECT_FALSE(m_app.Worker()->IsBusy());
    EXPECT_LE(dlg.Written().size(), 1u);
    // Whatever is in the folder is a whole result.
    size_t files = 0;
    for (const auto& entry : fs::directory_iterator(m_dir.File("stopped"))) {
        ++files;
        EXPECT_FALSE(Load(entry.path().string()).IsNull()) << entry.path();
    }
    EXPECT_EQ(files, dlg.Written().size());
    EXPECT_TRUE(m_services.messages.empty()) << "a cancelled run says nothing";
}

TEST_F(BatchInFrame, ReviewStepsWithNextAndFinishesWithFinishTheBatch)
{
    const std::string out = m_dir.File("reviewed");
    fs::create_directories(out);
    SetBatchDialogHook([&](CBatchDlg& dlg) {
        dlg.AddFiles({m_photos[1], m_broken, m_photos[2]});
        dlg.FolderEdit()->setText(QString::fromStdString(out));
        dlg.AffixEdit()->setText(QStringLiteral("cut_"));
        dlg.PrefixBox()->setChecked(true);
        QTimer::singleShot(0, &dlg, [d = &dlg] { d->Continue(); });
    });
    m_frame->OnCommand(cmd::kBatchKey);
    CBatchReview* review = CurrentBatchReview();
    ASSERT_NE(review, nullptr);
    ASSERT_TRUE(m_frame->IsSelectionMode());
    EXPECT_EQ(Manager().GetMethod(), uint32_t(kMethodChroma));
    CSelectionDocument& selection = Sel();
    QToolButton* next = review->NextButton();

    // Each photo as the core keys it with the panel's record (strength 50) and the colour of its border.
    auto expectKeyed = [&](const std::string& photo) {
        COLImage source = Load(photo), result;
        ASSERT_FALSE(source.IsNull());
        ChromaKeySettings key;
        key.params.backdrop = CChromaKeyProcess::EstimateBackdropColour(source);
        ASSERT_EQ(RunBackdropKey(key, source, result), kOk);
        EXPECT_EQ(Bytes(*selection.GetWorkingImage()), Bytes(result)) << photo;
        EXPECT_EQ(Bytes(*selection.GetSourceImage()), Bytes(source)) << photo;
        EXPECT_EQ(Bytes(*selection.GetResultMask()), AlphaBytes(result));
    };
    ASSERT_TRUE(WaitFor([&] { return next->isEnabled(); }));
    EXPECT_EQ(next->text(), QStringLiteral("(1/4)Next >"));
    expectKeyed(m_photos[0]);
    // A correction by hand reaches the file: the mask is the written alpha.
    selection.GetResultMask()->SetValue(0, 0, 77);
    QTest::mouseClick(next, Qt::LeftButton);
    const std::string first = batchkey::OutputPath(out, m_photos[0], "cut_", true);
    ASSERT_TRUE(fs::exists(first));
    EXPECT_EQ(Load(first).GetPixel2(0, 0).alpha, 77);

    ASSERT_TRUE(WaitFor([&] { return next->isEnabled(); }));
    EXPECT_EQ(next->text(), QStringLiteral("(2/4)Next >"));
    expectKeyed(m_photos[1]);
    QTest::mouseClick(next, Qt::LeftButton);
    // The damaged file is skipped: the next stop is the last photo.
    ASSERT_TRUE(WaitFor([&] { return next->isEnabled(); }));
    EXPECT_EQ(review->Index(), 3u);
    EXPECT_EQ(next->text(), QStringLiteral("Finish the batch"));
    expectKeyed(m_photos[2]);
    EXPECT_EQ(review->Failures().size(), 1u);
    QTest::mouseClick(next, Qt::LeftButton);

    ASSERT_TRUE(WaitFor([&] { return CurrentBatchReview() == nullptr; }));
    EXPECT_FALSE(m_frame->IsSelectionMode());
    ExpectTheRunsEnd(out, "cut_", true);
    EXPECT_EQ(m_app.Document().GetLayerCount(), 1);
    EXPECT_EQ(Bytes(m_app.Document().GetLayer(0)->m_image), m_before);
}

TEST_F(BatchInFrame, AGreenScreenPhotoInThePreviewPicksAGreenBackdrop)
{
    const std::string photo = std::string(VM_TEST_DATA_DIR) + "/matting/key_green.png";
    const COLImage picture = Load(photo);
    CBatchDlg dlg(m_frame, m_services, m_app.Worker(), &picture, photo);
    dlg.AddFiles({std::string(VM_TEST_DATA_DIR) + "/matting/key_green.jpg", m_photos[1], m_photos[2]});
    dlg.ReviewBox()->setChecked(false);
    dlg.AffixEdit()->setText(QStringLiteral("_cut"));
    dlg.resize(620, 540);
    dlg.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&dlg));
    dlg.ColourMode()->setCurrentIndex(batchkey::kColourAtPoint);
    // A click near the top left corner of the photo, on the backdrop.
    CBatchPreview* preview = dlg.Preview();
    QTest::mouseClick(preview, Qt::LeftButton, Qt::NoModifier, preview->ImageToWidget(24, 18) + QPoint(1, 1));
    const CPixel c = dlg.FixedColour();
    EXPECT_GT(c.green, c.red + 40);
    EXPECT_GT(c.green, c.blue + 40);
    EXPECT_EQ(dlg.PickX(), 10);
    EXPECT_EQ(dlg.PickY(), 10);
    dlg.List()->setCurrentRow(0);
    dlg.FolderEdit()->setText(QStringLiteral("/home/ana/Pictures/shoot/keyed"));
    Shot(&dlg, "batch-dialog.png");
}
