#include <algorithm>
#include <QCheckBox>
#include <QDialog>
#include <QLabel>
#include <QTest>
#include <QTimer>
#include <cstdlib>
#include <gtest/gtest.h>

#include "commands/history_log.h"
#include "commands/history_sink.h"
#include "document/layer.h"
#include "gui_support.h"
#include "shell/image_view.h"
#include "shell/main_frame.h"
#include "shell/shell_app.h"
#include "shell/tool_bar.h"

using namespace vmtest;

namespace {

class RefineInFrame : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_shell = std::make_unique<CShellApp>(m_app, &m_services);
        m_shell->Start("", TestOptions(m_dir, "en"), 0);
        ASSERT_TRUE(WaitFor([&] { return m_shell->CommandLineHandled(); }));
        m_frame = m_shell->Frame();
    }

    // The rectangle tool, dragged over the canvas as a user does.
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

    // Once the dialog is up: ticks "Structure-aware fill", notes what the dialog shows, takes its picture, OK.
    void ChooseRefine()
    {
        QTimer::singleShot(0, [this] {
            for (QWidget* w : QApplication::topLevelWidgets())
                if (auto* dialog = qobject_cast<QDialog*>(w);
                    dialog && dialog->isVisible() && dialog->objectName() == QStringLiteral("smartinpaint")) {
                    auto* refine = dialog->findChild<QCheckBox*>(QStringLiteral("inpaintrefine"));
                    auto* feather = dialog->findChild<QCheckBox*>(QStringLiteral("inpaintfeather"));
                    auto* note = dialog->findChild<QLabel*>(QStringLiteral("inpaintrefinenote"));
                    m_refineText = refine ? refine->text().toStdString() : std::string();
                    m_refineWasChecked = refine && refine->isChecked();
                    m_noteShown = note && !note->text().isEmpty();
                    if (refine)
                        QTest::mouseClick(refine, Qt::LeftButton, Qt::NoModifier, QPoint(8, refine->height() / 2));
                    m_featherEnabled = feather && feather->isEnabled();
                    if (const char* dir = std::getenv("VM_SCREENSHOT_DIR"))
                        dialog->grab().save(QString::fromUtf8(dir) + QStringLiteral("/inpaint-refine-dialog.png"));
                    dialog->accept();
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
    std::string m_refineText;
    bool m_refineWasChecked = true, m_featherEnabled = true, m_noteShown = false;
};

} // namespace

TEST_F(RefineInFrame, StructureAwareFillRemovesTheMissionPatchWithOneUndoableStep)
{
    m_services.openPaths.push_back(AssetPath("samples/astronaut.png"));
    m_frame->OnCommand(cmd::kOpen);
    ASSERT_EQ(m_app.Document().GetLayerCount(), 1);
    m_frame->resize(1000, 720);
    COLImage before;
    before.DuplicateFrom(&m_app.Document().GetLayer(0)->m_image);
    SelectRectangle(128, 342, 214, 428);
    const int steps = m_app.ComposeHistory()->GetCount();

    ChooseRefine();
    m_frame->OnCommand(cmd::kInpaint);
    ASSERT_TRUE(m_services.messages.empty()) << m_services.messages.front();
    EXPECT_EQ(m_refineText, "Structure-aware fill");
    EXPECT_FALSE(m_refineWasChecked) << "block quilting stays the default";
    EXPECT_FALSE(m_featherEnabled) << "feathering belongs to block quilting";
    EXPECT_TRUE(m_noteShown);
    ASSERT_EQ(m_app.ComposeHistory()->GetCount(), steps + 1);
    EXPECT_EQ(m_app.ComposeHistory()->GetRecord(steps)->kind, kStepLayerHeaderRegion);
    EXPECT_EQ(m_frame->ProgressShown(), -1) << "the status bar is reset";

    // The patch's dark blue is gone, and nothing beyond the selection and its one-pixel seam changed.
    const COLImage& after = m_app.Document().GetLayer(0)->m_image;
    int blue = 0, changedOutside = 0;
    for (int y = 350; y < 420; ++y)
        for (int x = 136; x < 206; ++x)
            blue += after.GetBuffer(x, y)->blue > after.GetBuffer(x, y)->red;
    EXPECT_LT(blue, 70 * 70 / 50);
    const COLChannel& mask = m_app.Document().GetSelectionMask();
    for (int y = 1; y < 511; ++y)
        for (int x = 1; x < 511; ++x) {
            bool near = false;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx)
                    near = near || mask.GetValue(x + dx, y + dy) > 127;
            changedOutside += !near && after.GetBuffer(x, y)->Word() != before.GetBuffer(x, y)->Word();
        }
    EXPECT_EQ(changedOutside, 0);
    COLImage filled;
    filled.DuplicateFrom(&after);

    m_frame->OnCommand(cmd::kUndo);
    EXPECT_TRUE(SamePixels(m_app.Document().GetLayer(0)->m_image, before));
    m_frame->OnCommand(cmd::kRedo);
    EXPECT_TRUE(SamePixels(m_app.Document().GetLayer(0)->m_image, filled));
    m_frame->OnCommand(cmd::kSelectNone);
    Shot("inpaint-refine-after.png");
}
