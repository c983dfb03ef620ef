#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <vector>

#include "commands/history_log.h"
#include "commands/project_stream.h"
#include "commands/stream_io.h"
#include "doc_state.h"
#include "document/compose_document.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "support/temp_folder.h"
#include "support/test_support.h"

namespace fs = std::filesystem;
using vmtest::Capture;
using vmtest::DocState;

namespace {

// A stack that counts how deep its lock is held, to prove that every way out of a replay releases it.
class CountingStack : public CLayerStack {
public:
    void Lock(int enter) override
    {
        depth += enter ? 1 : -1;
        if (enter) ++entries;
    }
    int depth = 0;
    int entries = 0;
};

void Scribble(COLImage& image, uint32_t x0, uint32_t y0, uint32_t x1, uint32_t y1, uint32_t word)
{
    for (uint32_t y = y0; y < y1; ++y)
        for (uint32_t x = x0; x < x1; ++x) image.PutPixel(x, y, CPixel::FromWord(word + x * 7 + y * 131));
}

class ComposeHistoryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(m_log.Init(), 1);
        ASSERT_EQ(m_doc.NewDocument(30, 20, 0xFF102030), 1);
        vmtest::FillNoise(m_doc.GetLayer(0)->m_image, 30, 20, 1);
    }
    // Adds a step and keeps the document's state after it.
    int Step(int kind, int arg, const char* label = "step")
    {
        const int r = m_log.AddStep(&m_doc, kind, arg, label);
        m_states.push_back(Capture(m_doc));
        return r;
    }
    uint32_t LastPayload() const
    {
        return m_log.GetWritePosition() - m_log.GetRecord(m_log.GetCount() - 1)->offset;
    }
    int LastKind() const { return m_log.GetRecord(m_log.GetCount() - 1)->kind; }
    void ExpectJumpsRestore(std::initializer_list<int> steps)
    {
        for (int step : steps) {
            ASSERT_EQ(m_log.JumpTo(step), 1) << "jump to " << step;
            EXPECT_EQ(Capture(m_doc), m_states[size_t(step - 1)]) << "after jumping to step " << step;
        }
    }

    vmtest::ScopedTempFolder m_tmp;
    CComposeHistory m_log;
    CountingStack m_doc;
    std::vector<DocState> m_states;
};

TEST_F(ComposeHistoryTest, TheFirstStepIsAlwaysASnapshotUnknownKindsAddNoneAndLabelsAreTranslated)
{
    m_log.SetLabelSource([](const char* key) { return std::string(key) == "His_open" ? "Opened" : "?"; });
    EXPECT_EQ(Step(kStepLayerRegion, 0, "His_open"), 1);
    EXPECT_EQ(LastKind(), kStepWholeDocument);
    EXPECT_STREQ(m_log.GetRecord(0)->label, "Opened");
    EXPECT_EQ(m_log.CanBackward(), 0);
    // The snapshot is the document stream: its header names the document's size.
    const std::vector<uint8_t> head = vmtest::ReadAll(m_log.GetLogPath());
    ASSERT_GE(head.size(), 20u);
    EXPECT_EQ(std::make_pair(vmio::GetU32(head.data()), vmio::GetU32(head.data() + 12)), std::make_pair(20u, 30u));
    EXPECT_EQ(LastPayload(), 20 + 8 + 56 + 4 + 30 * 20 * 4 + 8 + 2u);
    EXPECT_EQ(m_log.AddStep(&m_doc, 7, 0, "x"), 1) << "an unknown kind adds no record";
    EXPECT_EQ(m_log.GetCount(), 1);
}

TEST_F(ComposeHistoryTest, APaintStepStoresOnlyItsChange)
{
    Step(kStepWholeDocument, 0);
    m_doc.GetLayer(0)->m_image.PutPixel(17, 9, CPixel::FromWord(0x12345678));
    EXPECT_EQ(Step(kStepLayerRegion, 0, "paint"), 2);
    EXPECT_EQ(LastKind(), kStepLayerRegion);
    EXPECT_EQ(LastPayload(), 24u + 4);
    EXPECT_EQ(Step(kStepLayerRegion, 0, "nothing"), 3);
    EXPECT_EQ(LastPayload(), 24u);
    ExpectJumpsRestore({1, 2, 3});
}

TEST_F(ComposeHistoryTest, UndoRedoAndJumpsRestoreEveryEditExactly)
{
    CLayerStack& doc = m_doc;
    Step(kStepWholeDocument, 0, "His_open");
    Scribble(doc.GetLayer(0)->m_image, 3, 4, 9, 6, 0xFF000000);
    Step(kStepLayerRegion, 0, "paint base");

    ASSERT_NE(doc.AddLayer(0, kLayerKindRaster), nullptr);
    Step(kStepNewLayer, 0, "His_newlayer");
    Scribble(doc.GetLayer(1)->m_image, 10, 2, 12, 18, 0x80000000);
    Step(kStepLayerRegion, 1, "paint layer");
    doc.GetLayer(1)->m_opacity = 100;
    doc.GetLayer(1)->m_x = 5;
    std::strcpy(doc.GetLayer(1)->m_name, "renamed");
    Step(kStepLayerHeader, 1, "His_layerpropertychange");

    COLChannel& mask = doc.GetSelectionMask();
    mask = vmtest::Plane(30, 20, 255);
    Step(kStepChannel, -1, "His_select");
    mask.SetValue(4, 4, 0);
    mask.SetValue(20, 15, 7);
    Step(kStepChannel, -1, "His_select");

    // A new layer with its own content and size, made current.
    CLayer* loaded = doc.AddLayer(1, kLayerKindRaster);
    ASSERT_NE(loaded, nullptr);
    vmtest::FillNoise(loaded->m_image, 6, 4, 9);
    loaded->m_x = 2;
    doc.SetCurrentIndex(2);
    Step(kStepNewLayerWithContent, 2, "His_openlayer");

    // A rotation gives layer 1 a new size: stored whole.
    doc.GetLayer(1)->m_image = vmtest::Noise(20, 30, 10);
    Step(kStepLayerHeaderRegion, 1, "His_RotateRight");

    doc.SetCurrentIndex(0);
    Step(kStepCurrentLayer, 0, "His_curlayer");
    mask.Free();
    Step(kStepChannel, -1, "His_selectnone");
    doc.RemoveLayer(1);
    Step(kStepRemoveLayer, 1, "His_deletelayer");
    Scribble(doc.GetLayer(1)->m_image, 0, 0, 2, 2, 0x40000000);
    Step(kStepLayerRegion, 1, "paint moved-down layer");

    // The base grows: the region is stored whole and the document takes the base's size on replay.
    doc.GetLayer(0)->m_image = vmtest::Noise(33, 21, 11);
    doc.SyncSizeToBase();
    Step(kStepLayerRegion, 0, "His_CavasSize");

    // A text layer, then a change of its text.
    ASSERT_NE(doc.AddLayer(1, kLayerKindText), nullptr);
    Step(kStepNewLayer, 1 | (kLayerKindText << 16), "His_newlayer");
    auto* text = dynamic_cast<CTextLayer*>(doc.GetLayer(2));
    ASSERT_NE(text, nullptr);
    std::strcpy(text->m_text, "hello");
    text->m_fontSize = 40;
    Step(kStepLayerHeader, 2, "text");

    const int count = m_log.GetCount();
    ASSERT_EQ(count, int(m_states.size()));
    int snapshots = 0;
    for (int i = 0; i < count; ++i) snapshots += m_log.GetRecord(i)->kind == kStepWholeDocument;
    EXPECT_GE(snapshots, 2) << "the walk should cross a snapshot taken by the size rule";
    // Walk back one step at a time, forward again, then jump about.
    for (int s = count - 1; s >= 1; --s) ExpectJumpsRestore({s});
    for (int s = 2; s <= count; ++s) ExpectJumpsRestore({s});
    ExpectJumpsRestore({3, 12, 7, 15, 1, 9, 16, 5, 10, 2, 14, 6, 11, 8, 4, 13});
    EXPECT_EQ(m_doc.depth, 0);
}

TEST_F(ComposeHistoryTest, ChannelsAndLayerMovesReplayExactly)
{
    vmtest::FillNoise(m_doc.AddLayer(0, kLayerKindRaster)->m_image, 30, 20, 40);
    vmtest::FillNoise(m_doc.AddLayer(1, kLayerKindRaster)->m_image, 30, 20, 41);
    Step(kStepWholeDocument, 0);
    ASSERT_NE(m_doc.AddChannel(), nullptr);
    Step(kStepAddChannel, 0);
    vmtest::FillNoise(*m_doc.GetChannel(0), 30, 20, 42);   // first pixels: stored whole, as new
    Step(kStepChannel, 0);
    m_doc.GetChannel(0)->SetValue(7, 8, static_cast<uint8_t>(m_doc.GetChannel(0)->GetValue(7, 8) + 1));
    Step(kStepChannel, 0);
    EXPECT_EQ(LastPayload(), 20u + 1);
    ASSERT_TRUE(m_doc.MoveLayer(1, 2));
    Step(kStepMoveLayer, 1 | (2 << 16));
    m_doc.GetLayer(2)->m_image.PutPixel(0, 0, CPixel::FromWord(0x01020304));
    Step(kStepLayerRegion, 2);
    EXPECT_EQ(LastPayload(), 24u + 4) << "the tracker moved with its layer";
    m_doc.RemoveChannel(m_doc.GetChannel(0));
    Step(kStepRemoveChannel, 0);
    ExpectJumpsRestore({4, 1, 7, 3, 6, 2, 5, 7});
}

TEST_F(ComposeHistoryTest, TrackersFollowLayersAcrossRemovalAndInsertion)
{
    for (int i = 0; i < 2; ++i) {
        CLayer* l = m_doc.AddLayer(i, kLayerKindRaster);
        ASSERT_NE(l, nullptr);
        vmtest::FillNoise(l->m_image, 30, 20, 20 + uint32_t(i));
    }
    Step(kStepWholeDocument, 0);
    m_doc.RemoveLayer(1);
    Step(kStepRemoveLayer, 1);
    ASSERT_NE(m_doc.AddLayer(0, kLayerKindRaster), nullptr);
    Step(kStepNewLayer, 0);
    // Small edits on both upper layers are stored as small regions, not whole layers.
    m_doc.GetLayer(1)->m_image.PutPixel(1, 1, CPixel::FromWord(0xFFFFFFFF));
    Step(kStepLayerRegion, 1);
    EXPECT_EQ(LastPayload(), 24u + 4);
    m_doc.GetLayer(2)->m_image.PutPixel(2, 2, CPixel::FromWord(0x00000001));
    Step(kStepLayerRegion, 2);
    EXPECT_EQ(LastPayload(), 24u + 4);
    ExpectJumpsRestore({1, 5, 2, 4, 3, 5});
}

TEST_F(ComposeHistoryTest, ALayerThatChangedPlaceUnseenIsStoredWhole)
{
    // Two upper layers that differ in one pixel only.
    for (int i = 0; i < 2; ++i) vmtest::FillNoise(m_doc.AddLayer(i, kLayerKindRaster)->m_image, 30, 20, 30);
    m_doc.GetLayer(2)->m_image.PutPixel(0, 0, CPixel::FromWord(0x11111111));
    m_doc.GetLayer(1)->m_image.PutPixel(0, 0, CPixel::FromWord(0x22222222));
    Step(kStepWholeDocument, 0);
    // Reordering is logged as a header step of layer 0 only; the sums of layers 1 and 2 no longer fit them.
    ASSERT_TRUE(m_doc.MoveLayer(2, 1));
    Step(kStepLayerHeader, 0);
    m_doc.GetLayer(1)->m_image.PutPixel(5, 5, CPixel::FromWord(0));
    Step(kStepLayerRegion, 1);
    EXPECT_EQ(LastPayload(), 24u + 30 * 20 * 4);
}

TEST_F(ComposeHistoryTest, AResizedLayerIsStoredWholeAtItsNewSize)
{
    Step(kStepWholeDocument, 0);
    m_doc.GetLayer(0)->m_image = vmtest::Noise(12, 7, 4);
    Step(kStepLayerRegion, 0);
    EXPECT_EQ(LastPayload(), 24u + 12 * 7 * 4);
    const std::vector<uint8_t> log = vmtest::ReadAll(m_log.GetLogPath());
    ASSERT_GE(log.size(), m_log.GetRecord(1)->offset + 24);
    const uint8_t* head = log.data() + m_log.GetRecord(1)->offset;
    // Its width, height and the flag of a whole layer.
    EXPECT_EQ(std::make_tuple(vmio::GetI32(head + 12), vmio::GetI32(head + 16), vmio::GetI32(head + 20)),
              std::make_tuple(12, 7, 1));
}

TEST_F(ComposeHistoryTest, AStepAfterUndoCapturesAgainstTheRestoredState)
{
    Step(kStepWholeDocument, 0);
    Scribble(m_doc.GetLayer(0)->m_image, 0, 5, 30, 6, 0xFF000000);
    Step(kStepLayerRegion, 0);
    ASSERT_EQ(m_log.Backward(), 1);
    // The very same edit again must be recorded, or undo and redo would lose it.
    Scribble(m_doc.GetLayer(0)->m_image, 0, 5, 30, 6, 0xFF000000);
    m_states.pop_back();
    Step(kStepLayerRegion, 0);
    EXPECT_EQ(LastPayload(), 24u + 30 * 4);
    ExpectJumpsRestore({1, 2});
}

TEST_F(ComposeHistoryTest, AFailedReplayReleasesTheLockAndKeepsTheStep)
{
    Step(kStepWholeDocument, 0);
    Scribble(m_doc.GetLayer(0)->m_image, 0, 0, 30, 20, 0xFF000000);
    Step(kStepLayerRegion, 0);
    m_doc.GetSelectionMask() = vmtest::Plane(30, 20, 9);
    Step(kStepChannel, -1);
    // Cut the log in the middle of the region's rows.
    fs::resize_file(m_log.GetLogPath(), m_log.GetRecord(1)->offset + 24 + 100);
    ASSERT_EQ(m_log.JumpTo(1), 1);
    m_doc.entries = 0;
    EXPECT_EQ(m_log.JumpTo(3), 0);
    EXPECT_GT(m_doc.entries, 0);
    EXPECT_EQ(m_doc.depth, 0);
    EXPECT_EQ(m_log.GetCurrentStep(), 1);
    EXPECT_EQ(m_log.Forward(), 0);
    EXPECT_EQ(m_doc.depth, 0);
}

TEST_F(ComposeHistoryTest, ReplayRefusesWhatTheDocumentCannotTake)
{
    Step(kStepWholeDocument, 0);
    const std::string path = m_tmp.File("payload.bin");
    auto apply = [&](int kind, int arg, const std::vector<uint8_t>& payload) {
        vmtest::WriteAll(path, payload);
        FILE* f = std::fopen(path.c_str(), "rb");
        CHistoryRecord r;
        r.kind = kind;
        r.arg = arg;
        const int result = m_log.ApplyRecord(r, f);
        std::fclose(f);
        return result;
    };
    // A new layer with content needs the layer below it.
    EXPECT_EQ(apply(kStepNewLayerWithContent, 5, std::vector<uint8_t>(200, 0)), 0);
    // Structure steps need what their arg names.
    EXPECT_EQ(apply(kStepRemoveLayer, 3, {}), 0);
    EXPECT_EQ(apply(kStepRemoveChannel, 0, {}), 0);
    EXPECT_EQ(apply(kStepMoveLayer, 1 | (2 << 16), {}), 0);
    EXPECT_EQ(apply(42, 0, {}), 0);
    // A region of layer 0 with the head (layer, left, top, right, bottom, whole) and one pixel behind it.
    auto region = [](std::array<int32_t, 6> head) {
        std::vector<uint8_t> bytes(24 + 4, 0);
        for (size_t i = 0; i < head.size(); ++i) vmio::PutI32(bytes.data() + 4 * i, head[i]);
        return bytes;
    };
    // A region naming another layer than its arg, or lying outside the image.
    EXPECT_EQ(apply(kStepLayerRegion, 0, region({1, 0, 0, 0, 0, 0})), 0);
    EXPECT_EQ(apply(kStepLayerRegion, 0, region({0, 29, 19, 31, 20, 0})), 0);
    EXPECT_EQ(apply(kStepLayerRegion, 0, region({0, 29, 19, 30, 20, 0})), 1);
    // A whole region larger than the bytes behind it allocates nothing.
    EXPECT_EQ(apply(kStepLayerRegion, 0, region({0, 0, 0, 20000, 20000, 1})), 0);
    EXPECT_EQ(m_doc.GetLayer(0)->m_image.GetWidth(), 30u);
    EXPECT_EQ(m_doc.depth, 0);
}

TEST_F(ComposeHistoryTest, ProjectsSavedWithHistoryContinueWhereTheyWere)
{
    Step(kStepWholeDocument, 0, "His_open");
    for (int i = 0; i < 3; ++i) {
        Scribble(m_doc.GetLayer(0)->m_image, uint32_t(i), 0, uint32_t(i) + 1, 20, 0xFF000000u + uint32_t(i));
        Step(kStepLayerRegion, 0, "paint");
    }
    ASSERT_EQ(m_log.Backward(), 1);
    const std::string path = m_tmp.File("h.vmpd");
    ASSERT_EQ(SaveProject(m_doc, &m_log, path.c_str(), 1), 1);

    // The header points at the history block right behind the document stream.
    const auto bytes = vmtest::ReadAll(path);
    const size_t stream = 20 + 8 + 56 + 4 + 30 * 20 * 4 + 8 + 2;
    EXPECT_EQ(vmio::GetU32(bytes.data() + 8), 24 + stream);
    EXPECT_EQ(vmio::GetU32(bytes.data() + 12), bytes.size() - 24 - stream);
    EXPECT_EQ(vmio::GetU32(bytes.data() + 24 + stream), 4u);       // records
    EXPECT_EQ(vmio::GetU32(bytes.data() + 24 + stream + 4), 3u);   // current step

    CComposeHistory log2;
    ASSERT_EQ(log2.Init(), 1);
    CLayerStack doc2;
    ASSERT_EQ(OpenProject(doc2, &log2, path.c_str()), 1);
    EXPECT_EQ(Capture(doc2), m_states[2]);
    EXPECT_EQ(std::make_pair(log2.GetCount(), log2.GetCurrentStep()), std::make_pair(4, 3));
    EXPECT_EQ(log2.GetDocument(), &doc2);
    ASSERT_EQ(log2.Backward(), 1);
    EXPECT_EQ(Capture(doc2), m_states[1]);
    ASSERT_EQ(log2.JumpTo(4), 1);
    EXPECT_EQ(Capture(doc2), m_states[3]);

    // A new edit after reopening, then undo across the reopening point.
    Scribble(doc2.GetLayer(0)->m_image, 10, 10, 11, 11, 0xFF00FF00);
    const DocState edited = Capture(doc2);
    EXPECT_EQ(log2.AddStep(&doc2, kStepLayerRegion, 0, "paint"), 5);
    ASSERT_EQ(log2.JumpTo(2), 1);
    EXPECT_EQ(Capture(doc2), m_states[1]);
    ASSERT_EQ(log2.JumpTo(5), 1);
    EXPECT_EQ(Capture(doc2), edited);

    // Saving again with history and reopening gives the same document and steps.
    const std::string again = m_tmp.File("h2.vmpd");
    ASSERT_EQ(SaveProject(doc2, &log2, again.c_str(), 1), 1);
    CComposeHistory log3;
    ASSERT_EQ(log3.Init(), 1);
    CLayerStack doc3;
    ASSERT_EQ(OpenProject(doc3, &log3, again.c_str()), 1);
    EXPECT_EQ(Capture(doc3), edited);
    EXPECT_EQ(log3.GetCount(), 5);
}

TEST_F(ComposeHistoryTest, AProjectWithoutHistoryOpensWithOneStep)
{
    const std::string path = m_tmp.File("plain.vmpd");
    ASSERT_EQ(SaveProject(m_doc, nullptr, path.c_str(), 0), 1);
    CLayerStack doc;
    ASSERT_EQ(OpenProject(doc, &m_log, path.c_str()), 1);
    EXPECT_EQ(m_log.GetCount(), 1);
    EXPECT_STREQ(m_log.GetRecord(0)->label, "His_open");
    EXPECT_EQ(m_log.GetRecord(0)->kind, kStepWholeDocument);
    EXPECT_EQ(m_log.CanBackward(), 0);
}

TEST_F(ComposeHistoryTest, DamagedHistoryBlocksDoNotReplaceTheDocument)
{
    Step(kStepWholeDocument, 0, "His_open");
    const std::string path = m_tmp.File("h.vmpd");
    ASSERT_EQ(SaveProject(m_doc, &m_log, path.c_str(), 1), 1);
    auto bytes = vmtest::ReadAll(path);
    const uint32_t at = vmio::GetU32(bytes.data() + 8);
    vmio::PutU32(bytes.data() + at, 0x10000000);   // far more records than bytes
    vmtest::WriteAll(path, bytes);
    CLayerStack doc;
    ASSERT_EQ(doc.NewDocument(3, 3, 0xFFFFFFFF), 1);
    const DocState before = Capture(doc);
    CComposeHistory log2;
    ASSERT_EQ(log2.Init(), 1);
    EXPECT_EQ(OpenProject(doc, &log2, path.c_str()), 0);
    EXPECT_EQ(Capture(doc), before);
}

TEST(ComposeHistoryThreaded, JumpsOnALiveDocumentTakeItsLock)
{
    vmtest::ScopedTempFolder tmp;
    CComposeHistory log;
    ASSERT_EQ(log.Init(), 1);
    CComposeDocument doc(1);
    ASSERT_EQ(doc.NewDocument(16, 16, 0xFF000000), 1);
    log.AddStep(&doc, kStepWholeDocument, 0, "His_open");
    const DocState first = Capture(doc);
    for (int i = 0; i < 5; ++i) {
        doc.GetLayer(0)->m_image.PutPixel(uint32_t(i), uint32_t(i), CPixel::FromWord(0xFFFFFFFF));
        doc.Refresh();
        log.AddStep(&doc, kStepLayerRegion, 0, "paint");
    }
    const DocState last = Capture(doc);
    ASSERT_EQ(log.JumpTo(1), 1);
    EXPECT_EQ(Capture(doc), first);
    ASSERT_EQ(log.JumpTo(6), 1);
    EXPECT_EQ(Capture(doc), last);
}

} // namespace
