#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMenuBar>
#include <QMimeData>
#include <QSignalSpy>
#include <QUrl>
#include <filesystem>
#include <gtest/gtest.h>

#include "document/layer.h"
#include "gui_support.h"
#include "imaging/codec.h"
#include "shell/image_view.h"
#include "shell/main_frame.h"
#include "shell/shell_app.h"
#include "shell/skin.h"
#include "shell/splash.h"

using namespace vmtest;

namespace {

// A picture file of the given size whose first pixel names it.
std::string MakePicture(const TempDir& dir, const std::string& name, uint32_t w, uint32_t h, uint8_t tag)
{
    return SavePicture(dir.File(name),
                       Picture(w, h, [tag](uint32_t x, uint32_t y) { return CPixel::Make(tag, x, y); }));
}

std::vector<std::string> MenuTitles(QMainWindow& w)
{
    std::vector<std::string> titles;
    for (QAction* a : w.menuBar()->actions())
        titles.push_back(a->text().toStdString());
    return titles;
}

class StartUp : public FrameTest {
protected:
    // Drags data over the window and drops it there, as a file manager does; false when the window refuses it.
    bool Drop(const QMimeData& data)
    {
        const QPoint at(m_frame->width() / 2, m_frame->height() / 2);
        QDragEnterEvent enter(at, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_frame, &enter);
        if (!enter.isAccepted()) return false;
        QDropEvent drop(QPointF(at), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_frame, &drop);
        return true;
    }
};

} // namespace

TEST_F(StartUp, WithoutAFileTheSplashShowsUntilTheTimer)
{
    CShellApp shell(m_app, &m_services);
    EXPECT_EQ(shell.Start("", TestOptions(m_dir), 150), 1);
    ASSERT_NE(shell.Frame(), nullptr);
    EXPECT_TRUE(shell.Frame()->isVisible());
    EXPECT_TRUE(shell.Splash()->isVisible()); // nothing to open: the splash stays until the timer
    EXPECT_FALSE(shell.CommandLineHandled());
    ASSERT_TRUE(WaitFor([&] { return shell.CommandLineHandled(); }));
    EXPECT_FALSE(shell.Splash()->isVisible());
    // No document: the short menu bar, no picture, nothing said.
    EXPECT_FALSE(shell.Frame()->IsShowingComposeMenus());
    EXPECT_EQ(MenuTitles(*shell.Frame()).size(), 3u);
    EXPECT_EQ(shell.Frame()->View()->GetSource(), nullptr);
    EXPECT_TRUE(m_services.messages.empty());
    EXPECT_GE(shell.Frame()->minimumWidth(), 640);
    EXPECT_GE(shell.Frame()->minimumHeight(), 500);
}

TEST_F(StartUp, CommandLineOpensAPictureWithASpaceInItsName)
{
    std::filesystem::create_directories(m_dir.File("my photos"));
    const std::string path = MakePicture(m_dir, "my photos/cat one.png", 120, 80, 7);
    CShellApp shell(m_app, &m_services);
    shell.Start(JoinArguments({path, "/ignored/second.png"}), TestOptions(m_dir), 0);
    EXPECT_FALSE(shell.Splash()->isVisible());
    ASSERT_TRUE(WaitFor([&] { return shell.CommandLineHandled(); }));
    CComposeDocument& doc = m_app.Document();
    ASSERT_EQ(doc.GetLayerCount(), 1);
    EXPECT_EQ(vmtest::Size(doc), "120x80");
    EXPECT_EQ(doc.GetLayer(0)->m_image.GetPixel2(0, 0).red, 7);
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), 1); // the log starts with the opening
    EXPECT_TRUE(shell.Frame()->IsShowingComposeMenus());
    EXPECT_EQ(shell.Frame()->View()->GetSource(), &doc);
    EXPECT_EQ(shell.Frame()->windowTitle().toStdString(), "Velmorando - cat one.png");
    EXPECT_EQ(shell.Frame()->HelpText().toStdString(), m_app.GetString("afteropen"));
    EXPECT_TRUE(m_services.messages.empty());
}

TEST_F(StartUp, UnreadableFileSaysSoAndTheEditorCarriesOn)
{
    vmtest::WriteAll(m_dir.File("broken.jpg"), {0xFF, 0xD8, 0xFF, 0xE0, 1, 2, 3});
    ASSERT_NO_FATAL_FAILURE(LaunchWith("\"" + m_dir.File("broken.jpg") + "\"", "zh"));
    ASSERT_EQ(m_services.messages.size(), 1u);
    EXPECT_EQ(m_services.messages[0], "不能打开文件");
    EXPECT_EQ(m_app.Document().GetLayerCount(), 0);
    EXPECT_EQ(m_exits->count(), 0);
    EXPECT_EQ(m_shell->ExitCode(), 0);
    EXPECT_FALSE(m_frame->IsShowingComposeMenus());
}

TEST_F(StartUp, BrokenHostFileEndsTheProgramWithMinusOne)
{
    const std::string path = m_dir.File("host.raw");
    vmtest::WriteAll(path, {1, 2, 3});
    ASSERT_NO_FATAL_FAILURE(LaunchWith("-i1 \"" + path + "\"", "zh"));
    ASSERT_EQ(m_exits->count(), 1);
    EXPECT_EQ(m_exits->front().front().toInt(), -1);
    EXPECT_EQ(m_services.messages, std::vector<std::string>{"不能打开文件"});
    EXPECT_FALSE(std::filesystem::exists(path)); // removed whatever happened
}

TEST_F(StartUp, SkinColoursComeFromTheProfileAsBgr)
{
    m_app.Init(TestOptions(m_dir));
    CSkin skin;
    skin.Load();
    EXPECT_EQ(skin.m_backColor, QColor(0xD2, 0xD2, 0xD2)); // an empty profile gives the defaults
    EXPECT_EQ(skin.m_backLightColor, QColor(0xF0, 0xF0, 0xF0));
    WriteText(m_dir.File("config/Velmorando.ini"), "[Int]\nBackColor=255\n");
    m_app.Init(TestOptions(m_dir));
    skin.Load();
    EXPECT_EQ(skin.m_backColor, QColor(255, 0, 0)); // 0x0000FF is red in the profile's byte order
}

TEST_F(StartUp, DropOfThreeFilesOpensTheFirstAndADropOnAChangedDocumentAsksFirst)
{
    const std::string a = MakePicture(m_dir, "a.png", 40, 30, 1);
    const std::string b = MakePicture(m_dir, "b.png", 50, 20, 2);
    const std::string c = MakePicture(m_dir, "c.png", 60, 10, 3);
    ASSERT_NO_FATAL_FAILURE(Launch("zh"));
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(QString::fromStdString(a)), QUrl::fromLocalFile(QString::fromStdString(b)),
                  QUrl::fromLocalFile(QString::fromStdString(c))});
    ASSERT_TRUE(Drop(data));
    ASSERT_TRUE(WaitFor([&] { return m_app.Document().GetLayerCount() == 1; }));
    EXPECT_EQ(vmtest::Size(m_app.Document()), "40x30");
    EXPECT_EQ(m_frame->DocumentPath(), a);

    // A drop of something that is not a file is refused.
    QMimeData text;
    text.setText(QStringLiteral("hello"));
    EXPECT_FALSE(Drop(text));

    // Once the picture is changed, a drop asks first, and Cancel keeps it.
    ASSERT_EQ(m_frame->RunCommand("Doc_FlipH"), 0);
    ASSERT_TRUE(m_frame->IsModified());
    m_services.answers.push_back(EMsgResult::kCancel);
    QMimeData second;
    second.setUrls({QUrl::fromLocalFile(QString::fromStdString(b))});
    ASSERT_TRUE(Drop(second));
    ASSERT_TRUE(WaitFor([&] { return !m_services.messages.empty(); }));
    EXPECT_EQ(m_services.messages.back(), "此操作将放弃现在的编辑结果，继续吗？");
    QApplication::processEvents();
    EXPECT_EQ(m_app.Document().GetWidth(), 40); // still the first picture
}

TEST(StartUpEnd, ACleanEndRemovesBothLogs)
{
    TempDir dir;
    CFakeServices services;
    std::string composeLog, selectionLog;
    {
        CAppGlobals app;
        CShellApp shell(app, &services);
        shell.Start("", TestOptions(dir), 0);
        ASSERT_TRUE(WaitFor([&] { return shell.CommandLineHandled(); }));
        ASSERT_NE(app.ComposeHistory(), nullptr);
        composeLog = app.ComposeHistory()->GetLogPath();
        selectionLog = app.SelectionHistory()->GetLogPath();
        EXPECT_TRUE(std::filesystem::exists(composeLog));
        EXPECT_TRUE(std::filesystem::exists(selectionLog));
        EXPECT_NE(composeLog, selectionLog);
    }
    EXPECT_FALSE(std::filesystem::exists(composeLog));
    EXPECT_FALSE(std::filesystem::exists(selectionLog));
}
