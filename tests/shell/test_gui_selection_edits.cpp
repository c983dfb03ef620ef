#include <QAction>
#include <QCheckBox>
#include <QDialog>
#include <QMenu>
#include <QSlider>
#include <QSpinBox>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>

#include "document/layer.h"
#include "document/selection_document.h"
#include "effects/selection_modifiers.h"
#include "gui_support.h"
#include "imaging/codec.h"
#include "shell/image_view.h"
#include "shell/main_frame.h"
#include "shell/shell_app.h"
#include "shell/tool_bar.h"

using namespace vmtest;

namespace {

// Expand, fill and stroke reached through the menu items, their dialogs answered as a user would.
class SelectionEdits : public ::testing::Test {
protected:
    static constexpr int kW = 320, kH = 240;
    // The selected rectangle [kL, kR) x [kT, kB) before it is grown.
    static constexpr uint32_t kL = 80, kR = 220, kT = 60, kB = 170;
    void SetUp() override
    {
        m_shell = std::make_unique<CShellApp>(m_app, &m_services);
        m_shell->Start("", TestOptions(m_dir, "en"), 0);
        ASSERT_TRUE(WaitFor([&] { return m_shell->CommandLineHandled(); }));
        m_frame = m_shell->Frame();
        COLImage img;
        img.Create(kW, kH);
        for (uint32_t y = 0; y < kH; ++y)
            for (uint32_t x = 0; x < kW; ++x)
                img.PutPixel(x, y, CPixel::Make(uint8_t(60 + x / 2), uint8_t(90 + y / 2), 200, 255));
        const std::string path = m_dir.File("p.png");
        ASSERT_NE(COLImageCodec().SaveFileWithAlpha(path.c_str(), &img), 0);
        m_services.openPaths.push_back(path);
        m_frame->OnCommand(cmd::kOpen);
        ASSERT_EQ(m_app.Document().GetLayerCount(), 1);
        m_app.CommandContext().foreground = 0xFFF08020;
    }
    // Answers the next modal dialog: set runs on it, then OK.
    void Answer(std::function<void(QDialog&)> set)
    {
        QTimer::singleShot(0, [set] {
            for (QWidget* w : QApplication::topLevelWidgets())
                if (auto* dialog = qobject_cast<QDialog*>(w); dialog && dialog->isVisible()) {
                    set(*dialog);
                    dialog->accept();
                    return;
                }
        });
    }
    void Trigger(int id)
    {
        QAction* a = m_frame->Action(id);
        ASSERT_NE(a, nullptr) << id;
        m_frame->UpdateBars();
        ASSERT_TRUE(a->isEnabled()) << id;
        a->trigger();
    }
    std::vector<uint8_t> Base() { return Bytes(m_app.Document().GetLayer(0)->m_image); }

    TempDir m_dir;
    CFakeServices m_services;
    CAppGlobals m_app;
    std::unique_ptr<CShellApp> m_shell;
    CMainFrame* m_frame = nullptr;
};

uint8_t Over(int c, int p, int a)
{
    return uint8_t((c * a + p * (255 - a) + 127) / 255);
}

} // namespace

TEST_F(SelectionEdits, ExpandFillAndStrokeThroughTheMenus)
{
    CComposeDocument& doc = m_app.Document();
    m_frame->UpdateBars();
    for (int id : {cmd::kExpand, cmd::kShrink, cmd::kFeather, cmd::kFill, cmd::kStroke, cmd::kSegmentDeflate})
        EXPECT_FALSE(m_frame->Action(id)->isEnabled()) << id << " without a selection";

    // A rectangle selected, then grown by 3 through the dialog.
    {
        CStackLock lock(doc);
        COLChannel& mask = doc.GetSelectionMask();
        mask.Create(kW, kH);
        for (uint32_t y = 0; y < kH; ++y)
            for (uint32_t x = 0; x < kW; ++x)
                mask.SetValue(x, y, x >= kL && x < kR && y >= kT && y < kB ? 255 : 0);
    }
    Answer([](QDialog& d) { d.findChild<QSpinBox*>(QStringLiteral("amount"))->setValue(3); });
    Trigger(cmd::kExpand);
    const COLChannel& mask = doc.GetSelectionMask();
    for (uint32_t y = 0; y < kH; ++y)
        for (uint32_t x = 0; x < kW; ++x)
            ASSERT_EQ(mask.GetValue(x, y), x + 3 >= kL && x < kR + 3 && y + 3 >= kT && y < kB + 3 ? 255 : 0)
                << x << "," << y;

    // Fill at 60 % with the foreground colour.
    const std::vector<uint8_t> before = Base();
    Answer([](QDialog& d) { d.findChild<QSlider*>(QStringLiteral("opacity"))->setValue(60); });
    Trigger(cmd::kFill);
    std::vector<uint8_t> expected = before;
    const int a = 60 * 255 / 100;
    for (size_t i = 0; i < mask.GetAreaByteSize(); ++i)
        if (mask.GetBuffer()[i]) {
            expected[i * 4 + 0] = Over(0x20, before[i * 4 + 0], a);
            expected[i * 4 + 1] = Over(0x80, before[i * 4 + 1], a);
            expected[i * 4 + 2] = Over(0xF0, before[i * 4 + 2], a);
        }
    EXPECT_EQ(Base(), expected);

    // A stroke 4 pixels wide at full opacity in another current colour: the band just outside the selection
    // takes the colour.
    m_app.CommandContext().foreground = 0xFF1E5A28;
    const std::vector<uint8_t> filled = Base();
    Answer([](QDialog& d) { d.findChild<QSpinBox*>(QStringLiteral("width"))->setValue(4); });
    Trigger(cmd::kStroke);
    const std::vector<uint8_t> stroked = Base();
    for (uint32_t y = 0; y < kH; ++y)
        for (uint32_t x = 0; x < kW; ++x) {
            const size_t i = size_t(y) * kW + x;
            const bool band = x + 7 >= kL && x < kR + 7 && y + 7 >= kT && y < kB + 7 && mask.GetValue(x, y) == 0;
            if (band)
                ASSERT_EQ(stroked[i * 4] | stroked[i * 4 + 1] << 8 | stroked[i * 4 + 2] << 16, 0x1E5A28)
                    << x << "," << y;
            else
                ASSERT_EQ(std::memcmp(&stroked[i * 4], &filled[i * 4], 3), 0) << x << "," << y;
        }
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), 4) << "open, expand, fill, stroke";

    if (const char* dir = std::getenv("VM_SCREENSHOT_DIR")) {
        m_frame->View()->ZoomFit();
        QTest::qWait(300);
        m_frame->grab().save(QString::fromUtf8(dir) + QStringLiteral("/fill-stroke.png"));
    }
}

TEST_F(SelectionEdits, FeatherOfTheResultMaskInSelectionMode)
{
    auto* createSel = m_frame->findChild<QToolButton*>(QStringLiteral("createsel"));
    ASSERT_NE(createSel, nullptr);
    QTest::mouseClick(createSel, Qt::LeftButton);
    ASSERT_TRUE(m_frame->IsSelectionMode());
    QAction* feather = m_frame->Action(cmd::kFeatherShrink);
    ASSERT_NE(feather, nullptr);
    EXPECT_FALSE(feather->isEnabled()) << "no result mask yet";

    CSelectionDocument& selection = m_frame->ToolBar()->Selection();
    COLChannel& mask = *selection.GetResultMask();
    mask.Create(kW, kH);
    for (uint32_t y = 0; y < kH; ++y)
        for (uint32_t x = 0; x < kW; ++x)
            mask.SetValue(x, y, x >= kL && x < kR && y >= kT && y < kB ? 255 : 0);
    COLChannel before, expected;
    before.DuplicateFrom(&mask);
    CFeatherProcess process;
    process.SetChannels(&before, &expected);
    const FeatherRecord record{3, 0, 1};
    ASSERT_EQ(process.ProcessChannel(&record), 0);

    const int steps = m_app.SelectionHistory()->GetCount();
    for (QObject* o : feather->associatedObjects())
        if (auto* menu = qobject_cast<QMenu*>(o)) Q_EMIT menu->aboutToShow();
    ASSERT_TRUE(feather->isEnabled());
    Answer([](QDialog& d) {
        d.findChild<QSpinBox*>(QStringLiteral("radius"))->setValue(3);
        d.findChild<QCheckBox*>(QStringLiteral("shrinkFirst"))->setChecked(true);
    });
    feather->trigger();
    EXPECT_EQ(Bytes(*selection.GetResultMask()), Bytes(expected));
    EXPECT_EQ(m_app.SelectionHistory()->GetCount(), steps + 1);
}
