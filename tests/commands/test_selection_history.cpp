#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "commands/history_log.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "support/temp_folder.h"
#include "support/test_support.h"

namespace {

struct FakeSelection : ISelectionHistorySource {
    COLImage working;
    COLChannel result, inner, outer;
    COLChannel* GetResultMask() override { return &result; }
    COLChannel* GetInnerPlane() override { return &inner; }
    COLChannel* GetOuterPlane() override { return &outer; }
    COLImage* GetWorkingImage() override { return &working; }
};

// A picture's or plane's size and bytes, both empty when it is absent (a freed plane keeps its old size).
template <class P> std::pair<std::string, std::vector<uint8_t>> Contents(const P& p)
{
    return {p.IsNull() ? "" : vmtest::Size(p), vmtest::Bytes(p)};
}

// Every plane copied out, to compare with after jumps.
struct Saved {
    std::vector<std::pair<std::string, std::vector<uint8_t>>> planes;
    explicit Saved(const FakeSelection& s)
        : planes{Contents(s.working), Contents(s.result), Contents(s.inner), Contents(s.outer)}
    {
    }
    bool Matches(const FakeSelection& s) const { return planes == Saved(s).planes; }
};

class SelectionHistoryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(m_log.Init(), 1);
        vmtest::FillNoise(m_doc.working, 37, 23, 5);
    }
    uint32_t LastPayload() const
    {
        return m_log.GetWritePosition() - m_log.GetRecord(m_log.GetCount() - 1)->offset;
    }
    vmtest::ScopedTempFolder m_tmp;
    CSelectionHistory m_log;
    FakeSelection m_doc;
};

TEST_F(SelectionHistoryTest, TheFirstStepAndANewDocumentAreSnapshots)
{
    EXPECT_EQ(m_log.AddStep(&m_doc, kStepChannel, kPlaneResult, "createsel"), 1);
    EXPECT_EQ(m_log.GetRecord(0)->kind, kStepWholeDocument);
    // Three absent masks (16 bytes each) and the whole working image.
    EXPECT_EQ(LastPayload(), 12u + 3 * 16 + 16 + 37 * 23 * 4);

    EXPECT_EQ(m_log.AddStep(&m_doc, kStepLayerRegion, 0, "paint"), 2);
    EXPECT_EQ(m_log.GetRecord(1)->kind, kStepLayerRegion);

    FakeSelection other;
    vmtest::FillNoise(other.working, 4, 4, 1);
    EXPECT_EQ(m_log.AddStep(&other, kStepLayerRegion, 0, "paint"), 3);
    EXPECT_EQ(m_log.GetRecord(2)->kind, kStepWholeDocument);
}

TEST_F(SelectionHistoryTest, MaskStepsStoreOnlyTheirChangedRectangle)
{
    vmtest::FillNoise(m_doc.result, 37, 23, 9);
    m_log.AddStep(&m_doc, kStepWholeDocument, 0, "createsel");
    m_doc.result.SetValue(20, 11, static_cast<uint8_t>(m_doc.result.GetValue(20, 11) + 1));
    m_log.AddStep(&m_doc, kStepChannel, kPlaneResult, "brush");
    EXPECT_EQ(m_log.GetRecord(1)->kind, kStepChannel);
    EXPECT_EQ(LastPayload(), 12u + 16 + 1);
    m_log.AddStep(&m_doc, kStepChannel, kPlaneResult, "nothing");
    EXPECT_EQ(LastPayload(), 12u + 16);
    EXPECT_EQ(m_log.GetCount(), 3);
    m_doc.working.Free();
    EXPECT_EQ(m_log.AddStep(&m_doc, kStepLayerRegion, 0, "paint"), 3) << "a step without a working image fails";
    EXPECT_EQ(m_log.GetCount(), 3);
}

TEST_F(SelectionHistoryTest, UndoAndRedoRestoreEveryPlaneExactly)
{
    std::vector<Saved> states;
    // Records a step and keeps every plane as it stands after it.
    const auto step = [&](int kind, int arg, const char* label) {
        m_log.AddStep(&m_doc, kind, arg, label);
        states.emplace_back(m_doc);
    };
    step(kStepWholeDocument, 0, "createsel");

    vmtest::FillNoise(m_doc.inner, 37, 23, 1);   // a new plane is stored whole
    step(kStepChannel, kPlaneInner, "inner");

    for (uint32_t y = 3; y < 9; ++y) m_doc.inner.SetValue(30, y, 255);   // a column stroke
    vmtest::FillNoise(m_doc.outer, 37, 23, 2);
    step(kStepChannel, kPlaneInner | kPlaneOuter, "both");

    vmtest::FillNoise(m_doc.result, 37, 23, 3);
    m_doc.working.ChannelFrom(&m_doc.result, 3);
    step(kStepChannel, kPlaneResult | kPlaneWorking, "matte");

    m_doc.working.PutPixel(36, 22, CPixel::FromWord(0x12345678));
    m_doc.result.SetValue(36, 22, 0x12);
    step(kStepLayerRegion, 0, "paint");

    m_doc.result.Free();   // the result is thrown away
    m_doc.inner.Free();
    step(kStepChannel, kPlaneResult | kPlaneInner, "reset");

    for (int step : {5, 4, 1, 3, 6, 2, 6, 1, 5}) {
        ASSERT_EQ(m_log.JumpTo(step), 1) << step;
        EXPECT_TRUE(states[static_cast<size_t>(step - 1)].Matches(m_doc)) << "after jumping to step " << step;
    }

    // Replay puts the result mask into the working image's alpha, as selection mode shows it.
    ASSERT_EQ(m_log.JumpTo(5), 1);
    EXPECT_EQ(m_doc.working.GetPixel2(36, 22).alpha, 0x12);
}

TEST_F(SelectionHistoryTest, AStepAfterUndoCapturesAgainstTheRestoredState)
{
    vmtest::FillNoise(m_doc.result, 37, 23, 4);
    m_doc.working.ChannelFrom(&m_doc.result, 3);   // selection mode keeps the mask in the working alpha
    m_log.AddStep(&m_doc, kStepWholeDocument, 0, "createsel");
    Saved first(m_doc);
    const auto eraseRow = [&](const char* label) {
        for (uint32_t x = 0; x < 37; ++x)
            m_doc.result.SetValue(x, 5, 0);
        m_doc.working.ChannelFrom(&m_doc.result, 3);
        m_log.AddStep(&m_doc, kStepChannel, kPlaneResult, label);
    };
    eraseRow("erase");
    Saved erased(m_doc);
    ASSERT_EQ(m_log.Backward(), 1);
    ASSERT_TRUE(first.Matches(m_doc));

    // Repeating exactly the undone edit must still be recorded, or undo and redo would lose it.
    eraseRow("erase again");
    ASSERT_EQ(m_log.JumpTo(1), 1);
    ASSERT_EQ(m_log.JumpTo(2), 1);
    EXPECT_TRUE(erased.Matches(m_doc));
}

TEST_F(SelectionHistoryTest, ForcedSnapshotsStoreMasksWhole)
{
    vmtest::FillNoise(m_doc.result, 37, 23, 4);
    m_doc.working.ChannelFrom(&m_doc.result, 3);
    m_log.AddStep(&m_doc, kStepWholeDocument, 0, "createsel");
    // Deltas of the working image soon outgrow the first snapshot and force a second one.
    int snapshot = -1;
    for (int i = 0; i < 4 && snapshot < 0; ++i) {
        CPixel p = CPixel::FromWord(0x010101u * uint32_t(i + 1));
        p.alpha = m_doc.result.GetValue(1, 1);
        m_doc.working.PutPixel(1, 1, p);
        m_log.AddStep(&m_doc, kStepLayerRegion, 0, "paint");
        if (m_log.GetRecord(m_log.GetCount() - 1)->kind == kStepWholeDocument) snapshot = m_log.GetCount();
    }
    ASSERT_GT(snapshot, 1);
    Saved atSnapshot(m_doc);
    m_doc.result.SetValue(3, 3, static_cast<uint8_t>(m_doc.result.GetValue(3, 3) ^ 0x40));
    m_log.AddStep(&m_doc, kStepChannel, kPlaneResult, "brush");

    // Make the live mask differ everywhere: only a whole stored mask can bring it back.
    std::memset(m_doc.result.GetBuffer(), 7, m_doc.result.GetAreaByteSize());
    ASSERT_EQ(m_log.JumpTo(snapshot), 1);
    EXPECT_TRUE(atSnapshot.Matches(m_doc));
}

TEST_F(SelectionHistoryTest, DamagedPayloadsFailWithoutHugeAllocations)
{
    m_log.AddStep(&m_doc, kStepWholeDocument, 0, "createsel");
    m_log.AddStep(&m_doc, kStepLayerRegion, 0, "paint");
    // Rewrite the working image's rectangle of the second step as 20000 x 20000 pixels.
    const uint32_t at = m_log.GetRecord(1)->offset + 12;
    FILE* f = std::fopen(m_log.GetLogPath(), "r+b");
    ASSERT_NE(f, nullptr);
    std::fseek(f, static_cast<long>(at), SEEK_SET);
    const int32_t rect[4] = {0, 0, 20000, 20000};
    std::fwrite(rect, 4, 4, f);
    std::fclose(f);
    ASSERT_EQ(m_log.JumpTo(1), 1);
    EXPECT_EQ(m_log.JumpTo(2), 0);
    EXPECT_EQ(m_doc.working.GetWidth(), 37u);
}

} // namespace
