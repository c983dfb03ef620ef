#include <deque>
#include <filesystem>
#include <gtest/gtest.h>

#include "commands/project_stream.h"
#include "document/layer.h"
#include "gui_support.h"
#include "imaging/codec.h"
#include "shell/app_globals.h"
#include "shell/document_session.h"
#include "support/pictures.h"

namespace {

// Answers from a script; records what was asked and shown.
class CScriptedPrompts : public ISessionPrompts {
public:
    EDiscardChoice AskDiscard() override
    {
        ++questions;
        EDiscardChoice c = choices.empty() ? EDiscardChoice::kCancel : choices.front();
        if (!choices.empty()) choices.pop_front();
        return c;
    }
    bool AskProjectPath(std::string& path) override
    {
        ++pathQuestions;
        path = projectPath;
        return !path.empty();
    }
    void ShowMessage(const char* key) override { messages.push_back(key); }

    std::deque<EDiscardChoice> choices;
    std::string projectPath;
    int questions = 0;
    int pathQuestions = 0;
    std::vector<std::string> messages;
};

class Session : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_app.Init({vmtest::AssetPath(""), m_dir.File("config/Velmorando.ini"), "zh"});
        ASSERT_NE(m_app.ComposeHistory(), nullptr);
    }

    std::string Picture(const std::string& name, uint32_t w, uint32_t h)
    {
        return vmtest::SavePicture(m_dir.File(name), vmtest::Gradient(w, h));
    }

    int Run(const char* text) { return ExecuteCommand(m_app.CommandContext(), text); }
    CComposeDocument& Doc() { return m_app.Document(); }

    vmtest::TempDir m_dir;
    CAppGlobals m_app;
    CScriptedPrompts m_prompts;
    CDocumentSession m_session{m_app, m_prompts};
};

TEST_F(Session, AnUnreadablePictureLeavesTheOpenDocumentAndItsFile)
{
    const std::string good = Picture("good.png", 40, 30);
    ASSERT_TRUE(m_session.Open(good));
    vmtest::WriteAll(m_dir.File("bad.png"), {0x89, 'P', 'N', 'G', 13, 10, 26, 10, 0, 0});
    vmtest::WriteAll(m_dir.File("bad.vmpd"), {'V', 'M', 'P', 'D', 1, 0});
    for (const char* bad : {"bad.png", "bad.vmpd", "missing.png"}) {
        SCOPED_TRACE(bad);
        m_prompts.messages.clear();
        EXPECT_FALSE(m_session.Open(m_dir.File(bad)));
        EXPECT_EQ(m_prompts.messages, std::vector<std::string>{"can't open"}); // said once
        ASSERT_EQ(Doc().GetLayerCount(), 1);
        EXPECT_EQ(Doc().GetWidth(), 40);
        EXPECT_EQ(m_session.Path(), good);
        EXPECT_FALSE(m_session.IsModified());
    }
}

TEST_F(Session, ModifiedFollowsTheHistoryNotTheStepCount)
{
    ASSERT_TRUE(m_session.Open(Picture("p.png", 20, 20)));
    EXPECT_FALSE(m_session.IsModified());
    ASSERT_EQ(Run("Doc_FlipH"), kCommandDone);
    EXPECT_TRUE(m_session.IsModified());
    ASSERT_EQ(Run("UI_HistoryBackward"), kCommandDone);
    EXPECT_FALSE(m_session.IsModified()); // back where it was opened

    ASSERT_EQ(Run("Doc_FlipH"), kCommandDone);
    m_session.MarkUnmodified();
    ASSERT_EQ(Run("UI_HistoryBackward"), kCommandDone);
    ASSERT_EQ(Run("Doc_FlipV"), kCommandDone); // as many steps as at the mark, another picture
    EXPECT_TRUE(m_session.IsModified());
}

TEST_F(Session, TheQuestionComesOnlyWithSomethingToLose)
{
    EXPECT_TRUE(m_session.CheckDiscard()); // no document
    ASSERT_TRUE(m_session.Open(Picture("p.png", 20, 20)));
    EXPECT_TRUE(m_session.CheckDiscard());
    EXPECT_EQ(m_prompts.questions, 0);

    ASSERT_EQ(Run("Doc_FlipH"), kCommandDone);
    const uint32_t flipped = Doc().GetLayer(0)->m_image.GetPixel(0, 0);
    m_prompts.choices = {EDiscardChoice::kCancel, EDiscardChoice::kDiscard};
    EXPECT_FALSE(m_session.CheckDiscard());
    EXPECT_EQ(Doc().GetLayer(0)->m_image.GetPixel(0, 0), flipped); // Cancel touches nothing
    EXPECT_TRUE(m_session.IsModified());
    EXPECT_TRUE(m_session.CheckDiscard());
    EXPECT_EQ(m_prompts.questions, 2);
    EXPECT_EQ(m_prompts.pathQuestions, 0); // Discard saves nothing
}

TEST_F(Session, SaveFromTheQuestionWritesAProjectNeverOverThePhotoAndAFailedSaveKeepsTheDocument)
{
    const std::string photo = Picture("photo.png", 24, 16);
    const std::vector<uint8_t> photoBytes = vmtest::ReadAll(photo);
    ASSERT_TRUE(m_session.Open(photo));
    ASSERT_EQ(Run("Doc_NewLayer('0')"), kCommandDone);

    // A cancelled file dialog keeps the document; so does a failed save, which says so.
    m_prompts.choices = {EDiscardChoice::kSave};
    EXPECT_FALSE(m_session.CheckDiscard());
    EXPECT_EQ(m_prompts.pathQuestions, 1);
    m_prompts.choices = {EDiscardChoice::kSave};
    m_prompts.projectPath = m_dir.File("no/such/folder/work.vmpd");
    EXPECT_FALSE(m_session.CheckDiscard());
    EXPECT_EQ(m_prompts.messages, std::vector<std::string>{"saveerr"});
    EXPECT_TRUE(m_session.IsModified());
    EXPECT_EQ(m_session.Path(), photo);

    m_prompts.choices = {EDiscardChoice::kSave};
    m_prompts.projectPath = m_dir.File("work.vmpd");
    EXPECT_TRUE(m_session.CheckDiscard());
    EXPECT_EQ(vmtest::ReadAll(photo), photoBytes);
    EXPECT_EQ(COLImageCodec::GetFileType(m_prompts.projectPath.c_str()), kFileProject);
    EXPECT_EQ(m_session.Path(), m_prompts.projectPath);
    EXPECT_FALSE(m_session.IsModified());

    // Now the document is that project: the next Save writes there without asking.
    ASSERT_EQ(Run("Doc_FlipV"), kCommandDone);
    m_prompts.choices = {EDiscardChoice::kSave};
    m_prompts.projectPath.clear();
    EXPECT_TRUE(m_session.CheckDiscard());
    EXPECT_EQ(m_prompts.pathQuestions, 3);
    CComposeDocument reread(0);
    ASSERT_EQ(OpenProject(reread, nullptr, m_dir.File("work.vmpd").c_str()), 1);
    EXPECT_EQ(reread.GetLayerCount(), 2);
    EXPECT_EQ(reread.GetLayer(0)->m_image.GetPixel(0, 0), Doc().GetLayer(0)->m_image.GetPixel(0, 0));
}

TEST_F(Session, NewPictureAndClose)
{
    ASSERT_TRUE(m_session.Open(Picture("p.png", 20, 20)));
    ASSERT_EQ(Run("Doc_FlipH"), kCommandDone);
    ASSERT_TRUE(m_session.NewPicture(30, 10));
    EXPECT_EQ(Doc().GetWidth(), 30);
    EXPECT_EQ(Doc().GetLayer(0)->m_image.GetPixel(29, 9), 0xFFFFFFFFu);
    EXPECT_TRUE(m_session.Path().empty());
    EXPECT_FALSE(m_session.IsModified());
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), 1); // only the opening step

    // Too large: refused with a message, and no half document stays.
    EXPECT_FALSE(m_session.NewPicture(int(kMaxImageSide) + 1, 10));
    EXPECT_EQ(m_prompts.messages, std::vector<std::string>{"except"});
    EXPECT_FALSE(m_session.HasDocument());

    ASSERT_TRUE(m_session.NewPicture(5, 5));
    ASSERT_EQ(Run("Doc_FlipH"), kCommandDone);
    m_session.Close();
    EXPECT_FALSE(m_session.HasDocument());
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), 0);
    EXPECT_FALSE(m_session.IsModified());
}

} // namespace
