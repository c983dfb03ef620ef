#include <algorithm>
#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <thread>

#include "commands/history_log.h"
#include "commands/history_sink.h"
#include "document/layer.h"
#include "gui_support.h"
#include "imaging/codec.h"
#include "shell/image_view.h"
#include "shell/main_frame.h"
#include "shell/shell_app.h"
#include "shell/tool_bar.h"
#include "shell/wait_dialog.h"

using namespace vmtest;

namespace {

class InpaintInFrame : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_shell = std::make_unique<CShellApp>(m_app, &m_services);
        m_shell->Start("", TestOptions(m_dir, "en"), 0);
        ASSERT_TRUE(WaitFor([&] { return m_shell->CommandLineHandled(); }));
        m_frame = m_shell->Frame();
    }

    void Open(const std::string& path)
    {
        m_services.openPaths.push_back(path);
        m_frame->OnCommand(cmd::kOpen);
        ASSERT_EQ(m_app.Document().GetLayerCount(), 1);
    }

    // The rectangle tool, taken from the tool bar and dragged over the canvas as a user does.
    void SelectRectangle(int x0, int y0, int x1, int y1)
    {
        CToolBar* bar = m_frame->ToolBar();
        CToolManager& manager = bar->Manager();
        // The rectangle's cell, wherever the list puts it.
        const auto& shown = manager.GetShownTools();
        const int rectIndex = int(std::find(shown.begin(), shown.end(), &manager.GetRectTool()) - shown.begin());
        const CRect cell = manager.GetButtonRect(rectIndex);
        QTest::mouseClick(bar, Qt::LeftButton, Qt::NoModifier, QPoint(cell.left + 5, cell.top - 71 + 5));
        ASSERT_EQ(manager.GetCurrentTool(), &manager.GetRectTool());
        CImageView* view = m_frame->View();
        const CViewPoint a = view->ImageToClient(x0, y0), b = view->ImageToClient(x1, y1);
        QTest::mousePress(view, Qt::LeftButton, Qt::NoModifier, QPoint(a.x, a.y));
        QTest::mouseMove(view, QPoint((a.x + b.x) / 2, (a.y + b.y) / 2));
        QTest::mouseRelease(view, Qt::LeftButton, Qt::NoModifier, QPoint(b.x, b.y));
        ASSERT_FALSE(m_app.Document().GetSelectionMask().IsAllZero());
    }

    // Answers the inpaint dialog once it is up: the check box as given, then OK or Cancel.
    void AnswerDialog(bool ok, bool feather = true)
    {
        QTimer::singleShot(0, [this, ok, feather] {
            for (QWidget* w : QApplication::topLevelWidgets())
                if (auto* dialog = qobject_cast<QDialog*>(w);
                    dialog && dialog->isVisible() && dialog->objectName() == QStringLiteral("smartinpaint")) {
                    auto* box = dialog->findChild<QCheckBox*>(QStringLiteral("inpaintfeather"));
                    m_dialogText = box ? box->text().toStdString() : std::string();
                    m_wasChecked = box && box->isChecked();
                    if (box) box->setChecked(feather);
                    if (ok)
                        dialog->accept();
                    else
                        dialog->reject();
                    return;
                }
        });
    }

    void Shot(const char* name)
    {
        const char* dir = std::getenv("VM_SCREENSHOT_DIR");
        if (!dir) return;
        m_frame->ToolBar()->Manager().SetCurrentTool(nullptr);
        QTest::qWait(300); // the canvas repaints on a timer
        m_frame->grab().save(QString::fromUtf8(dir) + QLatin1Char('/') + QString::fromLatin1(name));
    }

    TempDir m_dir;
    CFakeServices m_services;
    CAppGlobals m_app;
    std::unique_ptr<CShellApp> m_shell;
    CMainFrame* m_frame = nullptr;
    std::string m_dialogText;
    bool m_wasChecked = false;
};

std::string SavePicture(const TempDir& dir, int w, int h)
{
    COLImage img;
    img.Create(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            img.PutPixel(x, y, CPixel::Make(uint8_t(60 + (x * 7 + y * 3) % 50), uint8_t(90 + (y * 5) % 40), 70, 255));
    for (int y = 24; y < 36; ++y)
        for (int x = 34; x < 46; ++x)
            img.PutPixel(x, y, CPixel::Make(250, 10, 10, 255)); // the object to remove
    const std::string path = dir.File("p.png");
    EXPECT_NE(COLImageCodec().SaveFileWithAlpha(path.c_str(), &img), 0);
    return path;
}

// A process that runs until it is asked to stop (or its steps of 10 ms are done), reporting progress as it goes.
class CWaitingProcess : public CImageProcess {
public:
    explicit CWaitingProcess(int steps = 200) : m_steps(steps) {}
    long Process(const void*) override
    {
        for (int i = 0; i < m_steps; ++i) {
            ReportProgress(i % 100);
            if (TestAndClearCancel()) return 7;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return 0;
    }

private:
    int m_steps;
};

} // namespace

TEST_F(InpaintInFrame, MenuRemovesTheSelectedObjectAndUndoBringsItBack)
{
    Open(SavePicture(m_dir, 80, 60));
    const COLImage before = [&] {
        COLImage copy;
        copy.DuplicateFrom(&m_app.Document().GetLayer(0)->m_image);
        return copy;
    }();
    SelectRectangle(31, 21, 49, 39);
    ASSERT_TRUE(m_frame->IsCommandAvailable(cmd::kInpaint));
    const int steps = m_app.ComposeHistory()->GetCount();

    // Cancel in the dialog: nothing happens and nothing is said.
    AnswerDialog(false);
    m_frame->OnCommand(cmd::kInpaint);
    EXPECT_TRUE(m_services.messages.empty());
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), steps);
    EXPECT_EQ(m_dialogText, "Feather the selection for a natural transition");
    EXPECT_TRUE(m_wasChecked);

    AnswerDialog(true);
    m_frame->OnCommand(cmd::kInpaint);
    EXPECT_TRUE(m_services.messages.empty()) << m_services.messages.front();
    ASSERT_EQ(m_app.ComposeHistory()->GetCount(), steps + 1);
    EXPECT_EQ(m_app.ComposeHistory()->GetRecord(steps)->kind, kStepLayerHeaderRegion);
    const COLImage& after = m_app.Document().GetLayer(0)->m_image;
    for (int y = 24; y < 36; ++y)
        for (int x = 34; x < 46; ++x)
            ASSERT_LT(after.GetBuffer(x, y)->red, 200) << "the object is still there at " << x << "," << y;
    EXPECT_FALSE(m_app.Document().GetSelectionMask().IsAllZero()) << "the selection stays";
    EXPECT_EQ(m_frame->ProgressShown(), -1) << "the status bar is reset";

    m_frame->OnCommand(cmd::kUndo);
    EXPECT_TRUE(SamePixels(m_app.Document().GetLayer(0)->m_image, before));
}

TEST_F(InpaintInFrame, RefusalsSayWhyAndKeepTheLayer)
{
    Open(SavePicture(m_dir, 80, 60));
    // A hole larger than a fifth of the picture: the run fails, the layer is as it was.
    SelectRectangle(5, 5, 70, 50);
    COLImage before;
    before.DuplicateFrom(&m_app.Document().GetLayer(0)->m_image);
    const int steps = m_app.ComposeHistory()->GetCount();
    AnswerDialog(true);
    m_frame->OnCommand(cmd::kInpaint);
    ASSERT_EQ(m_services.messages.size(), 1u);
    EXPECT_EQ(m_services.messages[0], GetString("inpainterr"));
    EXPECT_TRUE(SamePixels(m_app.Document().GetLayer(0)->m_image, before));
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
    CWaitingProcess process;
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
    CWaitingProcess quick(3);
    EXPECT_EQ(RunProcessWithWait(worker, quick, &quick, m_frame, nullptr, &cancelled), 0);
    EXPECT_FALSE(cancelled);
}

TEST_F(InpaintInFrame, RemovesTheMissionPatchFromAPhoto)
{
    Open(AssetPath("samples/astronaut.png"));
    m_frame->resize(1000, 720);
    COLImage before;
    before.DuplicateFrom(&m_app.Document().GetLayer(0)->m_image);
    SelectRectangle(128, 342, 214, 428);
    Shot("inpaint-before.png");
    AnswerDialog(true);
    m_frame->OnCommand(cmd::kInpaint);
    ASSERT_TRUE(m_services.messages.empty()) << m_services.messages.front();
    const COLImage& after = m_app.Document().GetLayer(0)->m_image;
    // The patch's dark blue is gone: the hole now holds the suit's orange.
    int blue = 0;
    for (int y = 350; y < 420; ++y)
        for (int x = 136; x < 206; ++x) {
            const CPixel p = *after.GetBuffer(x, y);
            blue += p.blue > p.red;
        }
    EXPECT_LT(blue, 70 * 70 / 50);
    int changedFar = 0;
    for (int y = 0; y < 512; ++y)
        for (int x = 0; x < 512; ++x)
            if ((x < 100 || x > 242 || y < 314 || y > 456) && after.GetBuffer(x, y)->Word() != before.GetBuffer(x, y)->Word())
                ++changedFar;
    EXPECT_EQ(changedFar, 0);
    m_frame->OnCommand(cmd::kSelectNone);
    Shot("inpaint-after.png");
}
