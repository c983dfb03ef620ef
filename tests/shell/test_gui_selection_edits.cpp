#include <QAction>
#include <QCheckBox>
#include <QDialog>
#include <QMenu>
#include <QSlider>
#include <QSpinBox>
#include <QTest>
#include <QTimer>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>

#include "commands/history_sink.h"
#include "document/layer.h"
#include "effects/selection_modifiers.h"
#include "gui_support.h"
#include "support/plain_masks.h"

using namespace vmtest;

namespace {

// Expand, fill and stroke reached through the menu items, their dialogs answered as a user would.
class SelectionEdits : public FrameTest {
protected:
    static constexpr int kW = 320, kH = 240;
    // The selected rectangle [kL, kR) x [kT, kB) before it is grown.
    static constexpr uint32_t kL = 80, kR = 220, kT = 60, kB = 170;
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(Launch());
        OpenPicture(Gradient(kW, kH));
        m_app.CommandContext().foreground = 0xFFF08020;
    }
    // Answers the next modal dialog: set runs on it, then OK.
    static void Answer(std::function<void(QDialog&)> set)
    {
        AnswerDialog(nullptr, [set](QDialog& dialog) {
            set(dialog);
            dialog.accept();
        });
    }
    // The selected rectangle, as a plane.
    static void SelectTheRectangle(COLChannel& mask)
    {
        mask = PlaneOf(kW, kH, [](uint32_t x, uint32_t y) { return x >= kL && x < kR && y >= kT && y < kB ? 255 : 0; });
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
};

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
        SelectTheRectangle(doc.GetSelectionMask());
    }
    const std::vector<uint8_t> rectangle = Bytes(doc.GetSelectionMask());
    Answer([](QDialog& d) { d.findChild<QSpinBox*>(QStringLiteral("amount"))->setValue(3); });
    Trigger(cmd::kExpand);
    const COLChannel& mask = doc.GetSelectionMask();
    EXPECT_EQ(Bytes(mask), PlainExpand(rectangle, kW, kH, 3));

    // Fill at 60 % with the foreground colour.
    const std::vector<uint8_t> before = Base();
    Answer([](QDialog& d) { d.findChild<QSlider*>(QStringLiteral("opacity"))->setValue(60); });
    Trigger(cmd::kFill);
    std::vector<uint8_t> expected = before;
    const int a = 60 * 255 / 100;
    for (size_t i = 0; i < mask.GetAreaByteSize(); ++i)
        if (mask.GetBuffer()[i]) {
            expected[i * 4 + 0] = OverOpaque(0x20, before[i * 4 + 0], a);
            expected[i * 4 + 1] = OverOpaque(0x80, before[i * 4 + 1], a);
            expected[i * 4 + 2] = OverOpaque(0xF0, before[i * 4 + 2], a);
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

    if (std::getenv("VM_SCREENSHOT_DIR")) m_frame->View()->ZoomFit();
    Shot(m_frame, "fill-stroke.png");
}

TEST_F(SelectionEdits, FeatherOfTheResultMaskInSelectionMode)
{
    EnterSelectionMode();
    QAction* feather = m_frame->Action(cmd::kFeatherShrink);
    ASSERT_NE(feather, nullptr);
    EXPECT_FALSE(feather->isEnabled()) << "no result mask yet";

    CSelectionDocument& selection = Sel();
    COLChannel& mask = *selection.GetResultMask();
    SelectTheRectangle(mask);
    m_app.SelectionHistory()->AddStep(&selection, kStepChannel, kPlaneResult, "modifypolygonseltip");
    COLChannel before = Copy(mask), expected;
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
    m_frame->OnCommand(cmd::kUndo);
    EXPECT_EQ(Bytes(*selection.GetResultMask()), Bytes(before));
    m_frame->OnCommand(cmd::kRedo);
    EXPECT_EQ(Bytes(*selection.GetResultMask()), Bytes(expected));
}
