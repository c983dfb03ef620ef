#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>
#include <QTimer>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <mutex>

#include "commands/project_stream.h"
#include "document/compositor.h"
#include "document/layer.h"
#include "gui_support.h"
#include "imaging/codec.h"
#include "imaging/gbk_text.h"
#include "shell/image_view.h"
#include "shell/main_frame.h"
#include "shell/panels.h"
#include "shell/ruler.h"
#include "shell/shell_app.h"

using namespace vmtest;

namespace {

class Frame : public FrameTest {
protected:
    void SetUp() override { Launch("zh"); }

    CComposeDocument& Doc() { return m_app.Document(); }

    // From now on commands are recorded as the texts they would run, instead of being run.
    void RecordCommands()
    {
        m_frame->SetExecutor([this](const std::string& text) {
            m_sent.push_back(text);
            return 0;
        });
    }
    std::vector<std::string> m_sent;

    // An open dialog's filter: all pictures first, then the table's own entries word for word.
    ::testing::AssertionResult OffersTheTableFilter(const std::string& filter, const char* key)
    {
        std::string own = m_app.GetString(key);
        own.resize(own.size() - 2); // without the closing "||"
        if (filter.rfind(m_app.GetString("allpictures") + "|", 0) != 0)
            return ::testing::AssertionFailure() << "no all-pictures entry first: " << filter;
        if (filter.find("|" + own + "|") == std::string::npos)
            return ::testing::AssertionFailure() << "the table's filter is not there as written: " << filter;
        return ::testing::AssertionSuccess();
    }
};

} // namespace

TEST_F(Frame, KeysBecomeCommandTexts)
{
    OpenPicture(Gradient(64, 48));
    RecordCommands();
    Key(Qt::Key_Z, Qt::ControlModifier);
    Key(Qt::Key_Y, Qt::ControlModifier);
    Key(Qt::Key_A, Qt::ControlModifier);
    Key(Qt::Key_0, Qt::ControlModifier);
    Key(Qt::Key_Equal, Qt::ControlModifier);
    Key(Qt::Key_Minus, Qt::ControlModifier);
    Key(Qt::Key_2, Qt::ShiftModifier);
    Key(Qt::Key_D, Qt::ControlModifier); // no selection: the item is grey, so the key does nothing
    Key(Qt::Key_Delete);
    EXPECT_EQ(m_sent, (std::vector<std::string>{"UI_HistoryBackward", "UI_HistoryForward", "Doc_SelectAll",
                                                "UI_ZoomFit", "UI_ZoomIn", "UI_ZoomOut", "Doc_SelectLayer('2')"}));

    // With a selection the selection keys act.
    Doc().GetSelectionMask().Create(64, 48);
    m_sent.clear();
    Key(Qt::Key_D, Qt::ControlModifier);
    Key(Qt::Key_I, Qt::ControlModifier | Qt::ShiftModifier);
    Key(Qt::Key_Delete);
    Key(Qt::Key_Delete, Qt::ControlModifier);
    EXPECT_EQ(m_sent, (std::vector<std::string>{"Doc_SelectNone", "Doc_SelectInverse", "Doc_Delect", "Doc_DelectInv"}));

    // A text field keeps its keys.
    m_sent.clear();
    auto* field = new QLineEdit(m_frame);
    field->show();
    field->setFocus();
    QTest::keyClick(field, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(field, Qt::Key_Delete);
    EXPECT_TRUE(m_sent.empty());
    delete field;
}

TEST_F(Frame, LayerMenuEditsTheDocumentAndUndoRedoWalkTheHistory)
{
    OpenPicture(Gradient(64, 48));
    const CPixel corner = Doc().GetLayer(0)->m_image.GetPixel2(63, 0);
    m_frame->OnCommand(cmd::kNewLayer);
    ASSERT_EQ(Doc().GetLayerCount(), 2);
    EXPECT_EQ(FromGbk(Doc().GetLayer(1)->m_name).toStdString(), "图层1");
    EXPECT_EQ(m_frame->LayersPanel()->List()->count(), 2);
    EXPECT_EQ(m_frame->LayersPanel()->List()->item(0)->text().toStdString(), "图层1"); // top layer first

    // The new layer lies above the current one and becomes current; choosing the base again is a step.
    ASSERT_EQ(Doc().GetCurrentIndex(), 1);
    EXPECT_EQ(m_frame->LayersPanel()->List()->currentRow(), 0);
    m_frame->LayersPanel()->List()->setCurrentRow(1);
    ASSERT_EQ(Doc().GetCurrentIndex(), 0);
    m_frame->OnCommand(cmd::kFlipH);
    EXPECT_EQ(Doc().GetLayer(0)->m_image.GetPixel2(0, 0).Word(), corner.Word());
    EXPECT_FALSE(m_frame->IsCommandAvailable(cmd::kRotateLeft)); // not on the base

    // History: open, new layer, current layer, flip.
    ASSERT_NE(m_app.ComposeHistory(), nullptr);
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), 4);
    EXPECT_EQ(m_frame->HistoryPanel()->List()->count(), 4);
    EXPECT_EQ(m_frame->HistoryPanel()->List()->item(3)->text().toStdString(), "水平翻转");

    Key(Qt::Key_Z, Qt::ControlModifier);
    EXPECT_NE(Doc().GetLayer(0)->m_image.GetPixel2(0, 0).Word(), corner.Word()); // the flip undone
    Key(Qt::Key_Y, Qt::ControlModifier);
    EXPECT_EQ(Doc().GetLayer(0)->m_image.GetPixel2(0, 0).Word(), corner.Word());

    // Rotate, merge and delete act on the upper layer.
    m_frame->LayersPanel()->List()->setCurrentRow(0);
    ASSERT_EQ(Doc().GetCurrentIndex(), 1);
    m_frame->OnCommand(cmd::kRotateRight);
    m_frame->OnCommand(cmd::kNewLayer);
    ASSERT_EQ(Doc().GetLayerCount(), 3);
    ASSERT_EQ(Doc().GetCurrentIndex(), 2);
    m_frame->OnCommand(cmd::kDeleteLayer);
    EXPECT_EQ(Doc().GetLayerCount(), 2);
    Doc().SetCurrentIndex(1);
    m_frame->OnCommand(cmd::kMergeDown);
    EXPECT_EQ(Doc().GetLayerCount(), 1);
    EXPECT_EQ(Doc().GetCurrentIndex(), 0);
    EXPECT_FALSE(m_frame->IsCommandAvailable(cmd::kMergeDown));
    EXPECT_FALSE(m_frame->IsCommandAvailable(cmd::kDeleteLayer));

    // Undo all the way back to the opened picture.
    int presses = 0;
    for (; presses < 200 && m_app.ComposeHistory()->CanBackward(); ++presses)
        Key(Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(presses, 8);
    EXPECT_FALSE(m_app.ComposeHistory()->CanBackward());
    EXPECT_EQ(Doc().GetLayerCount(), 1);
    EXPECT_NE(Doc().GetLayer(0)->m_image.GetPixel2(0, 0).Word(), corner.Word());
    EXPECT_TRUE(m_services.messages.empty());
}

TEST_F(Frame, ARefusedEditShowsTheExceptionTextAndChangesNothing)
{
    OpenPicture(Gradient(16, 16));
    m_frame->SetExecutor([](const std::string&) { return kCommandRefused; });
    m_frame->OnCommand(cmd::kFlipV);
    ASSERT_EQ(m_services.messages.size(), 1u);
    EXPECT_EQ(m_services.messages[0], "发生异常，操作失败");
    // Undo at the first step is refused too, but that is no failure to report.
    m_frame->OnCommand(cmd::kUndo);
    EXPECT_EQ(m_services.messages.size(), 1u);
}

TEST_F(Frame, OpenToNewLayerAndACancelledDialogSaysNothing)
{
    OpenPicture(Gradient(40, 30));
    m_frame->OnCommand(cmd::kOpenLayer); // no path queued: cancelled
    EXPECT_EQ(Doc().GetLayerCount(), 1);
    EXPECT_TRUE(m_services.messages.empty());
    m_services.openPaths.push_back(SavePicture(m_dir.File("q.png"), Gradient(10, 10)));
    m_frame->OnCommand(cmd::kOpenLayer);
    ASSERT_EQ(Doc().GetLayerCount(), 2);
    EXPECT_EQ(Doc().GetCurrentIndex(), 1);
    EXPECT_EQ(Doc().GetLayer(1)->m_image.GetWidth(), 10u);
    EXPECT_TRUE(OffersTheTableFilter(m_services.filters.back(), "openflatfiletype"));
    m_services.openPaths.push_back(m_dir.File("missing.png"));
    m_frame->OnCommand(cmd::kOpenLayer);
    EXPECT_EQ(m_services.messages, std::vector<std::string>{"不能打开文件"});
    EXPECT_EQ(Doc().GetLayerCount(), 2);
}

TEST_F(Frame, OpenedSavedAsAProjectClosedAndOpenedAgainWithItsLayersAndHistory)
{
    // Ctrl+O asks for a picture with the table's filter.
    m_services.openPaths.push_back(SavePicture(m_dir.File("p.png"), Gradient(50, 40)));
    Key(Qt::Key_O, Qt::ControlModifier);
    ASSERT_EQ(Doc().GetLayerCount(), 1);
    EXPECT_TRUE(OffersTheTableFilter(m_services.filters.back(), "openfiletype"));
    m_frame->OnCommand(cmd::kNewLayer);
    Doc().SetCurrentIndex(0); // the flip acts on the base
    m_frame->OnCommand(cmd::kFlipV);
    ASSERT_TRUE(m_frame->IsModified());
    const std::string project = m_dir.File("work.vmpd");
    // The project button, with its history.
    SaveThrough(cmd::kSave, ESaveChoice::kProject, project,
                [](CSaveDlg* d) { d->findChild<QCheckBox*>()->setChecked(true); });
    ASSERT_TRUE(std::filesystem::exists(project));
    EXPECT_FALSE(m_frame->IsModified());
    EXPECT_EQ(m_services.filters.back(), m_app.GetString("vmdoc"));

    Key(Qt::Key_W, Qt::ControlModifier); // saved: closes without a question
    EXPECT_TRUE(m_services.messages.empty());
    ASSERT_EQ(Doc().GetLayerCount(), 0);
    EXPECT_EQ(m_frame->View()->GetSource(), nullptr);
    EXPECT_FALSE(m_frame->IsShowingComposeMenus());
    EXPECT_EQ(m_frame->windowTitle().toStdString(), "Velmorando");

    m_services.openPaths.push_back(project);
    m_frame->OnCommand(cmd::kOpen);
    ASSERT_EQ(Doc().GetLayerCount(), 2);
    EXPECT_EQ(Doc().GetWidth(), 50);
    EXPECT_EQ(FromGbk(Doc().GetLayer(1)->m_name).toStdString(), "图层1");
    EXPECT_EQ(m_frame->windowTitle().toStdString(), "Velmorando - work.vmpd");
    // The history came along: three steps, and undo goes on where it was.
    ASSERT_EQ(m_app.ComposeHistory()->GetCount(), 3);
    EXPECT_FALSE(m_frame->IsModified());
    const uint32_t flipped = Doc().GetLayer(0)->m_image.GetPixel(0, 0);
    Key(Qt::Key_Z, Qt::ControlModifier);
    EXPECT_NE(Doc().GetLayer(0)->m_image.GetPixel(0, 0), flipped);
    EXPECT_TRUE(m_services.messages.empty());
}

TEST_F(Frame, CloseAsksAboutChangesCancelKeepsTheWindowAndSaveWritesTheProjectFirst)
{
    OpenPicture(Gradient(20, 20));
    m_frame->OnCommand(cmd::kFlipH);
    m_services.answers.push_back(EMsgResult::kCancel);
    EXPECT_FALSE(m_frame->close());
    EXPECT_TRUE(m_frame->isVisible());
    EXPECT_EQ(m_services.messages.back(), "此操作将放弃现在的编辑结果，继续吗？");
    ASSERT_EQ(Doc().GetLayerCount(), 1);

    m_services.answers.push_back(EMsgResult::kSave);
    m_services.savePaths.push_back(m_dir.File("kept.vmpd"));
    Key(Qt::Key_W, Qt::ControlModifier);
    EXPECT_EQ(COLImageCodec::GetFileType(m_dir.File("kept.vmpd").c_str()), kFileProject);
    EXPECT_EQ(m_services.filters.back(), m_app.GetString("vmdoc"));
    EXPECT_EQ(Doc().GetLayerCount(), 0);
}

TEST_F(Frame, ABigPhotoOpensWholeInTheWindow)
{
    m_frame->resize(1024, 700);
    m_frame->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(m_frame));
    // The size of a 20-megapixel camera's photo; the session makes it as opening a file would.
    ASSERT_TRUE(m_frame->Session().NewPicture(5472, 3648));
    m_frame->AfterOpen();
    QApplication::processEvents();
    const CViewGeometry& g = m_frame->View()->Geometry();
    ASSERT_EQ(g.ImageWidth(), 5472);
    EXPECT_FALSE(g.HasHBar());
    EXPECT_FALSE(g.HasVBar());
    EXPECT_EQ(g.GetOrigin().x, 0);
}

TEST_F(Frame, LayersAreRenamedReorderedAndBlendedThroughTheHistory)
{
    OpenPicture(Gradient(30, 20));
    m_frame->OnCommand(cmd::kNewLayer);
    m_frame->OnCommand(cmd::kNewLayer);
    ASSERT_EQ(Doc().GetLayerCount(), 3);
    CLayersPanel* panel = m_frame->LayersPanel();
    QListWidget* list = panel->List();
    const int steps = m_app.ComposeHistory()->GetCount();

    // A double-click opens the name for editing; what is typed becomes the name.
    // (The first click gives the list the focus, as the user's hand on the mouse does before a double-click.)
    const QRect row = list->visualItemRect(list->item(0));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier, row.center());
    QTest::mouseDClick(list->viewport(), Qt::LeftButton, Qt::NoModifier, row.center());
    const QLineEdit* editor = list->findChild<QLineEdit*>();
    ASSERT_NE(editor, nullptr);
    EXPECT_TRUE(editor->isVisible());
    EXPECT_EQ(editor->text().toStdString(), FromGbk(Doc().GetLayer(2)->m_name).toStdString());
    list->item(0)->setText(QStringLiteral("天空"));
    QApplication::processEvents();
    EXPECT_EQ(FromGbk(Doc().GetLayer(2)->m_name).toStdString(), "天空");
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), steps + 1);
    // 31 bytes fit, 32 do not (a Chinese character is two).
    list->item(0)->setText(QStringLiteral("a") + QString(15, QChar(0x5929)));
    QApplication::processEvents();
    EXPECT_EQ(std::strlen(Doc().GetLayer(2)->m_name), 31u);
    list->item(0)->setText(QString(16, QChar(0x5929)));
    QApplication::processEvents();
    EXPECT_EQ(m_services.messages, std::vector<std::string>{m_app.GetString("Ciop_namelimit")});
    EXPECT_EQ(std::strlen(Doc().GetLayer(2)->m_name), 31u);
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), steps + 2);

    // Opacity and blend mode of the current layer, the top one.
    ASSERT_EQ(Doc().GetCurrentIndex(), 2);
    panel->OpacityBox()->setValue(128);
    EXPECT_EQ(Doc().GetLayer(2)->m_opacity, 128);
    const int multiply = panel->BlendBox()->findData(int(kBlendMultiply));
    ASSERT_GE(multiply, 0);
    Q_EMIT panel->BlendBox()->activated(multiply);
    EXPECT_EQ(Doc().GetLayer(2)->m_blendMode, kBlendMultiply);
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), steps + 4);
    // The base has neither.
    list->setCurrentRow(2);
    EXPECT_FALSE(panel->OpacityBox()->isEnabled());
    EXPECT_FALSE(panel->BlendBox()->isEnabled());

    // Dragging the second row to the top swaps the two upper layers; the base cannot be passed.
    const std::string topName = FromGbk(Doc().GetLayer(2)->m_name).toStdString();
    ASSERT_TRUE(list->model()->moveRow(QModelIndex(), 1, QModelIndex(), 0));
    QApplication::processEvents();
    EXPECT_EQ(FromGbk(Doc().GetLayer(1)->m_name).toStdString(), topName);
    const int afterMove = m_app.ComposeHistory()->GetCount();
    ASSERT_TRUE(list->model()->moveRow(QModelIndex(), 0, QModelIndex(), 3));
    QApplication::processEvents();
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), afterMove);
    EXPECT_EQ(list->count(), 3);
    EXPECT_EQ(list->item(2)->text().toStdString(), "背景"); // the list shows the document again
    EXPECT_EQ(m_services.messages.size(), 1u);

    // Every step undoes: back to two fresh layers on the base.
    while (m_app.ComposeHistory()->GetCurrentStep() > steps)
        Key(Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(FromGbk(Doc().GetLayer(2)->m_name).toStdString(), "图层2");
    EXPECT_EQ(Doc().GetLayer(2)->m_opacity, 255);
}

using FrameEnglish = FrameTest;

TEST_F(FrameEnglish, NewLayersAreNamedInEnglish)
{
    ASSERT_NO_FATAL_FAILURE(Launch());
    ASSERT_TRUE(m_frame->Session().NewPicture(40, 30));
    m_frame->AfterOpen();
    m_frame->OnCommand(cmd::kNewLayer);
    ASSERT_EQ(m_app.Document().GetLayerCount(), 2);
    EXPECT_EQ(std::string(m_app.Document().GetLayer(0)->m_name), "Background");
    EXPECT_EQ(std::string(m_app.Document().GetLayer(1)->m_name), "Layer 1");
    EXPECT_EQ(m_app.Document().GetCurrentIndex(), 1); // the new layer is the current one
}

TEST_F(Frame, MenusFollowTheDocument)
{
    EXPECT_NE(m_frame->Action(cmd::kOpen), nullptr);
    EXPECT_EQ(m_frame->Action(cmd::kFlipH), nullptr); // no document: the short menu bar
    OpenPicture(Gradient(20, 20));
    ASSERT_NE(m_frame->Action(cmd::kOpenProject), nullptr);
    EXPECT_FALSE(m_frame->IsCommandAvailable(cmd::kOpenProject));
    EXPECT_TRUE(m_frame->IsCommandAvailable(cmd::kSave));
    EXPECT_FALSE(m_frame->IsCommandAvailable(cmd::kFlatten)); // one layer
    m_frame->OnCommand(cmd::kNewLayer);
    EXPECT_TRUE(m_frame->IsCommandAvailable(cmd::kFlatten));
    m_frame->OnCommand(cmd::kFlatten);
    EXPECT_EQ(Doc().GetLayerCount(), 1);
    // Help items open the pages of the table.
    m_frame->OnCommand(cmd::kTutorialBlue);
    m_frame->OnCommand(cmd::kHelpFile);
    EXPECT_EQ(m_services.addresses, (std::vector<std::string>{"help/tutorial_blue.htm", "help/index.htm"}));
    // The companion editor is not installed here: the question, then its page.
    m_app.m_companionExe.clear();
    m_frame->OnCommand(cmd::kCompanion);
    EXPECT_EQ(m_services.messages.back(), m_app.GetString("olnotfound"));
    EXPECT_EQ(m_services.addresses.back(), "help/companion.htm");
}

TEST_F(Frame, RulersFollowTheDocumentAndThePointer)
{
    m_frame->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(m_frame));
    EXPECT_FALSE(m_frame->HorizontalRuler()->isVisible()); // nothing to measure yet
    OpenPicture(Gradient(300, 200), "r.png");
    ASSERT_TRUE(m_frame->HorizontalRuler()->isVisible());
    ASSERT_TRUE(m_frame->VerticalRuler()->isVisible());
    CImageView* view = m_frame->View();
    // The rulers line up with the canvas.
    EXPECT_EQ(m_frame->HorizontalRuler()->mapToGlobal(QPoint(0, 0)).x(), view->mapToGlobal(QPoint(0, 0)).x());
    EXPECT_EQ(m_frame->VerticalRuler()->mapToGlobal(QPoint(0, 0)).y(), view->mapToGlobal(QPoint(0, 0)).y());
    QTest::mouseMove(view, QPoint(123, 77));
    QApplication::processEvents();
    EXPECT_EQ(m_frame->HorizontalRuler()->MarkerPosition(), 123);
    EXPECT_EQ(m_frame->VerticalRuler()->MarkerPosition(), 77);
    const QImage shot = m_frame->HorizontalRuler()->grab().toImage();
    EXPECT_EQ(shot.pixelColor(123, 2), QColor(0xD0, 0x30, 0x30)); // the pointer's mark is drawn
}

TEST_F(Frame, ShortcutsWaitWhileTheWorkerRunsAndItsProgressShows)
{
    OpenPicture(Gradient(20, 20));
    RecordCommands();
    ASSERT_NE(m_app.Worker(), nullptr);
    CHeldProcess process;
    COLImage src, dst;
    src.Create(4, 4);
    process.SetImages(&src, &dst);
    struct : IProcessNotify {
        void PostProcessEvent(uint32_t, int32_t) override {}
    } window; // a run needs someone to report to
    m_app.Worker()->StartImageProcess(&window, &process, nullptr, 0, 0, 100, 1);
    ASSERT_TRUE(WaitFor([&] { return m_frame->ProgressShown() == 50; }));
    EXPECT_TRUE(m_frame->IsWorkerBusy());
    Key(Qt::Key_Z, Qt::ControlModifier);
    EXPECT_TRUE(m_sent.empty());
    process.Release();
    m_app.Worker()->WaitDone();
    ASSERT_TRUE(WaitFor([&] { return m_frame->ProgressShown() == -1; }));
    Key(Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(m_sent, std::vector<std::string>{"UI_HistoryBackward"});
}

TEST(HistoryLabels, KeysTranslateButTextsStayAsTheyAre)
{
    TempDir dir;
    CAppGlobals app;
    app.Init(TestOptions(dir, "en"));
    EXPECT_EQ(HistoryLabelText("His_open").toStdString(), "Open");
    EXPECT_EQ(HistoryLabelText("Open").toStdString(), "Open"); // a text, although "open" is a key
    std::string gbk;
    ASSERT_TRUE(Utf8ToGbk("水平翻转", gbk));
    EXPECT_EQ(HistoryLabelText(gbk.c_str()).toStdString(), "水平翻转");
}
