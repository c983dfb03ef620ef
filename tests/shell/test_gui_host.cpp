// The plug-in start: a host editor's exchange file opens in the selection method it asked for, and the end of the
// selection work sends the cut-out back through that file.

#include <QCloseEvent>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>
#include <filesystem>
#include <gtest/gtest.h>

#include "document/layer.h"
#include "document/layer_stack.h"
#include "document/selection_document.h"
#include "gui_support.h"
#include "interchange/host_result.h"
#include "interchange/psd_reader.h"
#include "shell/host_return.h"
#include "shell/image_view.h"
#include "shell/main_frame.h"
#include "shell/shell_app.h"
#include "shell/tool_bar.h"

using namespace vmtest;

namespace {

constexpr uint32_t kW = 160, kH = 120;

class HostStart : public FrameTest {
protected:
    // Starts the editor as a host's plug-in does, on a file of the given form, and shows the window.
    void StartFor(const std::string& path, char digit, uint32_t bytesPerPixel)
    {
        WriteAll(path, HostFile(kW, kH, int(bytesPerPixel), kH, GradientAt));
        m_path = path;
        ASSERT_NO_FATAL_FAILURE(StartFrame(900, 700, "en", std::string("-i") + digit + " \"" + path + "\""));
        ASSERT_TRUE(m_frame->IsHostMode());
    }

    // A cut-out drawn with the polygon tool through the canvas, as a user clicks it.
    void CutOut()
    {
        Polygon(Manager().GetModifyPolygonTool(), {{30, 20}, {120, 25}, {110, 95}, {35, 90}});
        ASSERT_TRUE(hostret::HasResult(Sel()));
    }

    // What WriteHostResult itself writes for the current work in a mode, read back.
    std::vector<uint8_t> DirectResult(int mode)
    {
        const std::string path = m_dir.File("direct");
        EXPECT_TRUE(WriteHostResult(path, mode, *Sel().GetWorkingImage(), *Sel().GetResultMask()));
        return ReadAll(HostResultPath(path, mode));
    }

    int Exits() const { return int(m_exits->count()); }

    std::string m_path;
};

} // namespace

TEST_F(HostStart, FourBytesAPixelGetTheRawCutOutBackAfterTheQuestion)
{
    StartFor(m_dir.File("host.raw"), '1', 4);
    EXPECT_TRUE(m_frame->IsSelectionMode());
    EXPECT_EQ(Manager().GetMethod(), uint32_t(kMethodInOut));
    EXPECT_EQ(m_frame->HostChannels(), 4u);
    EXPECT_FALSE(std::filesystem::exists(m_path)); // read and removed
    ASSERT_NO_FATAL_FAILURE(CutOut());

    // Cancel goes on editing: nothing written, the program stays.
    m_services.answers.push_back(EMsgResult::kCancel);
    m_frame->OnCommand(cmd::kConfirmReturn);
    EXPECT_EQ(m_services.messages, std::vector<std::string>{GetString("pluginask")});
    EXPECT_FALSE(std::filesystem::exists(m_path));
    EXPECT_EQ(Exits(), 0);
    EXPECT_TRUE(m_frame->IsSelectionMode());

    // Yes through the large button: the host's file holds the cut-out, and the program ends with 0.
    m_services.answers.push_back(EMsgResult::kYes);
    m_frame->findChild<QToolButton*>(QStringLiteral("createsel"))->click();
    ASSERT_EQ(Exits(), 1);
    EXPECT_EQ(m_exits->front().front().toInt(), 0);
    EXPECT_EQ(m_shell->ExitCode(), 0);
    const std::vector<uint8_t> sent = ReadAll(m_path);
    EXPECT_EQ(sent, DirectResult(4));
    // The form the host reads: the size, then blue, green, red and the mask as alpha, row by row.
    ASSERT_EQ(sent.size(), 8 + size_t(kW) * kH * 4);
    EXPECT_EQ(std::vector<uint8_t>(sent.begin(), sent.begin() + 8), (std::vector<uint8_t>{160, 0, 0, 0, 120, 0, 0, 0}));
    // The host's own picture came back (the byte layout is the writer's, checked with it), with the cut-out as alpha.
    const uint8_t* p = sent.data() + 8 + (size_t(60) * kW + 70) * 4;
    const CPixel sent70 = GradientAt(70, 60);
    EXPECT_EQ(std::vector<uint8_t>(p, p + 4), (std::vector<uint8_t>{sent70.blue, sent70.green, sent70.red, 255}));
    EXPECT_EQ(sent[8 + 3], 0);
}

TEST_F(HostStart, ThreeBytesAPixelGetAOneLayerPsdBeside)
{
    StartFor(m_dir.File("host.raw"), '1', 3);
    EXPECT_EQ(m_frame->HostChannels(), 3u);
    ASSERT_NO_FATAL_FAILURE(CutOut());
    m_services.answers.push_back(EMsgResult::kYes);
    m_frame->OnCommand(cmd::kConfirmReturn);
    ASSERT_EQ(Exits(), 1);
    EXPECT_FALSE(std::filesystem::exists(m_path));
    const std::string psd = m_path + ".24bit.psd";
    ASSERT_TRUE(std::filesystem::exists(psd));
    EXPECT_EQ(ReadAll(psd), DirectResult(3)); // the writer's own tests read its PSD back
}

TEST_F(HostStart, ARefusedQuestionWritesNothingAndEnds)
{
    StartFor(m_dir.File("host.raw"), '1', 4);
    ASSERT_NO_FATAL_FAILURE(CutOut());
    // Closing the window asks too; Cancel keeps it.
    m_services.answers.push_back(EMsgResult::kCancel);
    EXPECT_FALSE(CloseAccepted());
    EXPECT_EQ(Exits(), 0);
    // No: the host gets nothing, the program ends with 0.
    m_services.answers.push_back(EMsgResult::kNo);
    EXPECT_TRUE(CloseAccepted());
    ASSERT_EQ(Exits(), 1);
    EXPECT_EQ(m_exits->front().front().toInt(), 0);
    EXPECT_EQ(m_services.messages, (std::vector<std::string>{GetString("pluginask"), GetString("pluginask")}));
    EXPECT_FALSE(std::filesystem::exists(m_path));
    EXPECT_FALSE(std::filesystem::exists(m_path + ".24bit.psd"));
}

TEST_F(HostStart, AFailedWriteSaysSoAndLosesNothing)
{
    std::filesystem::create_directories(m_dir.File("exchange"));
    StartFor(m_dir.File("exchange/host.raw"), '1', 4);
    ASSERT_NO_FATAL_FAILURE(CutOut());
    const COLChannel& mask = *Sel().GetResultMask();
    const std::vector<uint8_t> before = Bytes(mask);
    // The host's folder went away meanwhile.
    std::filesystem::remove_all(m_dir.File("exchange"));
    m_services.answers.push_back(EMsgResult::kYes);
    m_frame->OnCommand(cmd::kConfirmReturn);
    EXPECT_EQ(m_services.messages, (std::vector<std::string>{GetString("pluginask"), GetString("saveerr")}));
    EXPECT_EQ(Exits(), 0);
    EXPECT_TRUE(m_frame->IsSelectionMode());
    ASSERT_FALSE(Sel().GetResultMask()->IsNull());
    EXPECT_EQ(Bytes(mask), before);
    // Once the folder is back, the same answer sends it.
    std::filesystem::create_directories(m_dir.File("exchange"));
    m_services.answers.push_back(EMsgResult::kYes);
    m_frame->OnCommand(cmd::kConfirmReturn);
    ASSERT_EQ(Exits(), 1);
    EXPECT_EQ(ReadAll(m_path), DirectResult(4));
}

TEST_F(HostStart, WithoutACutOutThereIsNothingToSend)
{
    StartFor(m_dir.File("host.raw"), '1', 4);
    // Ctrl+S without a result: "backtocompose", and Yes leaves the way the host's visit ends: the question.
    m_services.answers.assign({EMsgResult::kYes, EMsgResult::kCancel});
    Key(Qt::Key_S, Qt::ControlModifier);
    EXPECT_EQ(m_services.messages, (std::vector<std::string>{GetString("backtocompose"), GetString("pluginask")}));
    // Yes has nothing to send: the work goes on.
    m_services.answers.push_back(EMsgResult::kYes);
    m_frame->OnCommand(cmd::kConfirmReturn);
    EXPECT_EQ(Exits(), 0);
    EXPECT_TRUE(m_frame->IsSelectionMode());
    EXPECT_FALSE(std::filesystem::exists(m_path));
    // "Cancel and return" with nothing to lose ends at once, without a question.
    m_services.messages.clear();
    m_frame->OnCommand(cmd::kCancelReturn);
    ASSERT_EQ(Exits(), 1);
    EXPECT_TRUE(m_services.messages.empty());
    EXPECT_FALSE(std::filesystem::exists(m_path));
}

TEST_F(HostStart, CancelAndReturnAsksBeforeDroppingACutOut)
{
    StartFor(m_dir.File("host.raw"), '1', 4);
    ASSERT_NO_FATAL_FAILURE(CutOut());
    m_services.answers.push_back(EMsgResult::kNo);
    m_frame->OnCommand(cmd::kCancelReturn);
    EXPECT_EQ(m_services.messages, std::vector<std::string>{GetString("dropcutout")});
    EXPECT_EQ(Exits(), 0);
    EXPECT_TRUE(m_frame->IsSelectionMode());
    m_services.answers.push_back(EMsgResult::kYes);
    m_frame->OnCommand(cmd::kCancelReturn);
    ASSERT_EQ(Exits(), 1);
    EXPECT_FALSE(std::filesystem::exists(m_path));
}

TEST_F(HostStart, DigitZeroAsksForTheChromaKey)
{
    StartFor(m_dir.File("host.raw"), '0', 3);
    EXPECT_TRUE(m_frame->IsSelectionMode());
    EXPECT_EQ(Manager().GetMethod(), uint32_t(kMethodChroma));
    EXPECT_TRUE(m_services.messages.empty());
    // Three bytes a pixel became the document, unchanged as far as the session knows, and the host's visit has no
    // top bar.
    EXPECT_EQ(m_app.Document().GetLayer(0)->m_image.GetPixel(150, 110), GradientAt(150, 110).Word());
    EXPECT_FALSE(m_frame->IsModified());
    EXPECT_FALSE(m_frame->IsTopBarShown());
    EXPECT_FALSE(std::filesystem::exists(m_path));
}

TEST_F(HostStart, AnotherDigitOpensInComposeModeAndTheWayOutStillLeadsToTheHost)
{
    StartFor(m_dir.File("host.raw"), '7', 4);
    EXPECT_FALSE(m_frame->IsSelectionMode());
    EXPECT_TRUE(m_frame->IsShowingComposeMenus());
    // The large button enters selection mode as always; its end is the host's question.
    m_frame->OnCommand(cmd::kConfirmReturn);
    ASSERT_TRUE(m_frame->IsSelectionMode());
    ASSERT_NO_FATAL_FAILURE(CutOut());
    m_services.answers.push_back(EMsgResult::kYes);
    m_frame->OnCommand(cmd::kConfirmReturn);
    EXPECT_EQ(m_services.messages, std::vector<std::string>{GetString("pluginask")});
    ASSERT_EQ(Exits(), 1);
    EXPECT_EQ(ReadAll(m_path), DirectResult(4));
}
