#include <gtest/gtest.h>

#include <map>
#include <string>

#include "commands/command.h"
#include "commands/history_log.h"
#include "commands/project_stream.h"
#include "doc_state.h"
#include "document/compose_document.h"
#include "document/layer.h"
#include "support/temp_folder.h"
#include "support/test_support.h"

using vmtest::Capture;
using vmtest::DocState;

namespace {

// Commands run against the live document with the disk-backed log behind them, as in the editor.
class HistoryCommandsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(m_log.Init(), 1);
        ASSERT_EQ(m_doc.NewDocument(24, 16, 0xFF000000), 1);
        vmtest::FillNoise(m_doc.GetLayer(0)->m_image, 24, 16, 3);
        m_log.AddStep(&m_doc, kStepWholeDocument, 0, "His_open");
        m_context.document = &m_doc;
        m_context.history = &m_log;
        Remember();
    }
    void Remember() { m_states[m_log.GetCurrentStep()] = Capture(m_doc); }
    int Run(const char* text)
    {
        const int r = ExecuteCommand(m_context, text);
        if (r == kCommandDone && std::string(text).rfind("UI_", 0) != 0) Remember();
        return r;
    }

    vmtest::ScopedTempFolder m_tmp;
    CComposeHistory m_log;
    CComposeDocument m_doc{0};
    CCommandContext m_context;
    std::map<int, DocState> m_states;   // by step
};

TEST_F(HistoryCommandsTest, EveryCommandAddsItsStepAndHistoryCommandsMoveThroughThem)
{
    const char* edits[] = {
        "Doc_NewLayer('0')",
        "Doc_SelectAll",
        "Doc_FlipH",
        "Doc_LayerPropertyChange('1','0','3,-2')",
        "Doc_LayerPropertyChange('1','3','128')",
        "Doc_SetCurLayer('1')",
        "Doc_RotateRight",
        "Doc_Delect",
        "Doc_SelectInverse",   // everything was selected: nothing is now
        "Doc_SelectAll",
        "Doc_SelectNone",
        "Doc_FlipV",
        "Doc_DeleteLayer('1')",
    };
    for (const char* e : edits) ASSERT_EQ(Run(e), kCommandDone) << e;
    const int last = m_log.GetCurrentStep();
    ASSERT_GE(last, int(std::size(edits)) + 1);
    ASSERT_EQ(m_states.size(), size_t(std::size(edits)) + 1);

    // Back through every command, one undo at a time where a command made one step.
    for (auto it = m_states.rbegin(); it != m_states.rend(); ++it) {
        ASSERT_EQ(ExecuteCommand(m_context, ("UI_HistoryJumpTo('" + std::to_string(it->first) + "')").c_str()),
                  kCommandDone);
        EXPECT_EQ(Capture(m_doc), it->second) << "at step " << it->first;
    }
    EXPECT_EQ(m_log.GetCurrentStep(), 1);
    EXPECT_EQ(ExecuteCommand(m_context, "UI_HistoryBackward"), kCommandRefused);
    for (int s = 2; s <= last; ++s) {
        ASSERT_EQ(ExecuteCommand(m_context, "UI_HistoryForward"), kCommandDone);
        if (m_states.count(s)) {
            EXPECT_EQ(Capture(m_doc), m_states[s]) << "at step " << s;
        }
    }
    EXPECT_EQ(ExecuteCommand(m_context, "UI_HistoryForward"), kCommandRefused);
    ASSERT_EQ(ExecuteCommand(m_context, "UI_HistoryBackward"), kCommandDone);
    EXPECT_EQ(m_log.GetCurrentStep(), last - 1);
}

TEST_F(HistoryCommandsTest, AProjectOpenedAsADocumentBringsItsHistory)
{
    ASSERT_EQ(Run("Doc_NewLayer('0')"), kCommandDone);
    ASSERT_EQ(Run("Doc_FlipH"), kCommandDone);
    const std::string path = m_tmp.File("doc.vmpd");
    ASSERT_EQ(SaveProject(m_doc, &m_log, path.c_str(), 1), 1);
    const int steps = m_log.GetCount();

    CComposeHistory log2;
    ASSERT_EQ(log2.Init(), 1);
    CComposeDocument doc2(0);
    CCommandContext context2;
    context2.document = &doc2;
    context2.history = &log2;
    ASSERT_EQ(OpenDocumentFile(context2, path.c_str()), kCommandDone);
    EXPECT_EQ(log2.GetCount(), steps);
    EXPECT_EQ(Capture(doc2), m_states[steps]);
    ASSERT_EQ(ExecuteCommand(context2, "UI_HistoryBackward"), kCommandDone);
    EXPECT_EQ(Capture(doc2), m_states[steps - 1]);

    // A damaged project is refused and the open document and its history stay as they were.
    vmtest::WriteAll(m_tmp.File("bad.vmpd"), {'V', 'M', 'P', 'D', 1});
    const DocState before = Capture(doc2);
    EXPECT_EQ(OpenDocumentFile(context2, m_tmp.File("bad.vmpd").c_str()), kCommandRefused);
    EXPECT_EQ(Capture(doc2), before);
    EXPECT_EQ(log2.GetCount(), steps);

    // Any other history records the opening as one whole-document step.
    CRecordingHistory recording;
    context2.history = &recording;
    ASSERT_EQ(OpenDocumentFile(context2, path.c_str()), kCommandDone);
    ASSERT_EQ(recording.Steps().size(), 1u);
    EXPECT_EQ(std::make_pair(recording.Steps()[0].kind, recording.Steps()[0].label),
              std::make_pair(int(kStepWholeDocument), std::string("His_open")));
}

} // namespace
