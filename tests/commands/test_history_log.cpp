#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "commands/history_log.h"
#include "commands/stream_io.h"
#include "support/temp_folder.h"
#include "support/test_support.h"

namespace fs = std::filesystem;

namespace {

// A log that follows a small array of numbers: kind 255 stores the whole array, kind 3 one changed entry.
// It exercises everything the base class does without a layered document.
class NumberLog : public CHistoryLog {
public:
    std::vector<int32_t> doc = std::vector<int32_t>(8, 0);
    int applied = 0;

    int Add(int32_t kind, int32_t index, const char* label = "step")
    {
        return AppendStep(kind, index, label, [this, index](FILE* f, int32_t k) {
            if (k == kStepWholeDocument) {
                if (!vmio::WriteU32(f, static_cast<uint32_t>(doc.size()))) return false;
                for (int32_t v : doc)
                    if (!vmio::WriteU32(f, static_cast<uint32_t>(v))) return false;
                return true;
            }
            if (k != kStepLayerRegion) return false;
            return vmio::WriteU32(f, static_cast<uint32_t>(index)) &&
                   vmio::WriteU32(f, static_cast<uint32_t>(doc[static_cast<size_t>(index)]));
        });
    }
    int Set(int32_t index, int32_t value)
    {
        doc[static_cast<size_t>(index)] = value;
        return Add(kStepLayerRegion, index);
    }
    int ApplyRecord(CHistoryRecord r, FILE* f) override
    {
        ++applied;
        uint32_t a = 0, b = 0;
        if (r.kind == kStepWholeDocument) {
            if (!vmio::ReadU32(f, a) || a > 64) return 0;
            std::vector<int32_t> next(a);
            for (int32_t& v : next) {
                if (!vmio::ReadU32(f, b)) return 0;
                v = static_cast<int32_t>(b);
            }
            doc = next;
            return 1;
        }
        if (r.kind != kStepLayerRegion || !vmio::ReadU32(f, a) || !vmio::ReadU32(f, b) || a >= doc.size()) return 0;
        doc[a] = static_cast<int32_t>(b);
        return 1;
    }
    const char* GetPrefix() const override { return "T"; }
};

// The local date of a moment as a log name writes it: YYYYMMDD.
std::string LocalDate(time_t moment)
{
    tm local {};
    localtime_r(&moment, &local);
    char date[48];
    std::snprintf(date, sizeof date, "%04d%02d%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
    return date;
}

class HistoryLogTest : public ::testing::Test {
protected:
    vmtest::ScopedTempFolder m_tmp;
};

// A log already opened in the temporary folder.
class OpenLogTest : public HistoryLogTest {
protected:
    void SetUp() override { ASSERT_EQ(m_log.Init(), 1); }
    NumberLog m_log;
};

TEST_F(HistoryLogTest, InitNamesTheLogInTheTemporaryFolderDropsYesterdaysAndTheDestructorRemovesIt)
{
    const std::string yesterdays = m_tmp.File("S" + LocalDate(std::time(nullptr) - 36 * 3600) + "120000.vmh");
    vmtest::WriteAll(yesterdays, {0});
    std::string path;
    {
        NumberLog log;
        ASSERT_EQ(log.Init(), 1);
        EXPECT_FALSE(fs::exists(yesterdays));
        path = log.GetLogPath();
        const std::string folder = m_tmp.Dir().Path().string() + "/";
        EXPECT_EQ(std::string(log.GetTempDirectory()), folder);
        ASSERT_EQ(path.size(), folder.size() + 19);
        EXPECT_EQ(path.substr(0, folder.size() + 1), folder + "T");
        EXPECT_EQ(path.substr(path.size() - 4), ".vmh");
        EXPECT_EQ(path.substr(folder.size() + 1, 8), LocalDate(std::time(nullptr))) << "the name carries the date";
        EXPECT_TRUE(fs::exists(path));

        // A second log of the same kind started in the same second does not share the file.
        NumberLog second;
        ASSERT_EQ(second.Init(), 1);
        EXPECT_NE(std::string(second.GetLogPath()), path);
    }
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(HistoryLogTest, InitFailsInAMissingFolder)
{
    setenv("TMPDIR", m_tmp.File("no/such/folder").c_str(), 1);
    NumberLog log;
    EXPECT_EQ(log.Init(), 0);
    EXPECT_EQ(log.Add(kStepWholeDocument, 0), -1);
}

TEST_F(HistoryLogTest, StaleLogsAreThoseBeforeTodayInAnyField)
{
    const std::string dir = m_tmp.Dir().Path().string() + "/";
    const std::pair<const char*, bool> names[] = {
        {"C20240614101010.vmh", true},    // today
        {"S20240615000000.vmh", true},    // tomorrow
        {"C20240613235959.vmh", false},   // yesterday
        {"C20240710000000.vmh", false},   // a later month but an earlier day: each field must reach today's
        {"C20230614101010.vmh", false},   // last year
        {"notes.vmh", true},              // not a log name
        {"C2024061410101x.vmh", true},    // not a log name
    };
    for (auto [n, stays] : names) vmtest::WriteAll(dir + n, {1, 2, 3});
    fs::create_directory(dir + "C20200101000000.vmh");   // a folder is skipped

    EXPECT_EQ(CHistoryLog::DeleteStaleLogs(dir.c_str(), 2024, 6, 14), 3);
    for (auto [n, stays] : names) EXPECT_EQ(fs::exists(dir + n), stays) << n;
    EXPECT_TRUE(fs::is_directory(dir + "C20200101000000.vmh"));
}

TEST_F(OpenLogTest, UndoRedoAndJumpsReplayFromTheNearestSnapshot)
{
    EXPECT_EQ(m_log.Add(kStepWholeDocument, 0, "open"), 1);
    EXPECT_EQ(std::make_pair(m_log.CanBackward(), m_log.CanForward()), std::make_pair(0, 0));
    std::vector<std::vector<int32_t>> states{m_log.doc};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(m_log.Set(i, 10 + i), i + 2);
        states.push_back(m_log.doc);
    }
    EXPECT_EQ(m_log.GetRecord(3)->kind, kStepLayerRegion);
    EXPECT_STREQ(m_log.GetRecord(0)->label, "open");

    ASSERT_EQ(m_log.Backward(), 1);
    EXPECT_EQ(m_log.GetCurrentStep(), 5);
    EXPECT_EQ(m_log.doc, states[4]);
    EXPECT_EQ(m_log.CanForward(), 1);
    ASSERT_EQ(m_log.JumpTo(2), 1);
    EXPECT_EQ(m_log.doc, states[1]);
    ASSERT_EQ(m_log.Forward(), 1);
    EXPECT_EQ(m_log.doc, states[2]);
    ASSERT_EQ(m_log.JumpTo(6), 1);
    EXPECT_EQ(m_log.doc, states[5]);
    ASSERT_EQ(m_log.JumpTo(1), 1);
    EXPECT_EQ(m_log.doc, states[0]);
    EXPECT_EQ(m_log.Backward(), 0);   // the first step cannot be undone

    // A jump to where we are does not touch the file at all.
    const int before = m_log.applied;
    std::remove(m_log.GetLogPath());
    EXPECT_EQ(m_log.JumpTo(1), 1);
    EXPECT_EQ(m_log.applied, before);
    EXPECT_EQ(m_log.JumpTo(0), 0);
    EXPECT_EQ(m_log.JumpTo(7), 0);
}

TEST_F(OpenLogTest, ANewStepAfterUndoDropsTheRedoTailButNotItsBytes)
{
    m_log.Add(kStepWholeDocument, 0);
    m_log.Set(1, 5);
    m_log.Set(2, 6);
    const uint32_t end = m_log.GetWritePosition();
    ASSERT_EQ(m_log.Backward(), 1);
    ASSERT_EQ(m_log.Backward(), 1);
    EXPECT_EQ(m_log.Set(3, 7), 2);
    EXPECT_EQ(m_log.GetCount(), 2);
    EXPECT_EQ(m_log.CanForward(), 0);
    EXPECT_EQ(m_log.GetRecord(1)->offset, end);
    EXPECT_EQ(fs::file_size(m_log.GetLogPath()), end + 8u);
    ASSERT_EQ(m_log.JumpTo(1), 1);
    ASSERT_EQ(m_log.JumpTo(2), 1);
    EXPECT_EQ(m_log.doc, (std::vector<int32_t>{0, 0, 0, 7, 0, 0, 0, 0}));
}

TEST_F(OpenLogTest, DeltasThatOutgrowTheSnapshotForceTheNextSnapshot)
{
    m_log.Add(kStepWholeDocument, 0);
    EXPECT_EQ(m_log.GetSnapshotSize(), 36u);   // count and eight numbers
    // Each delta is 8 bytes: after five of them (40 > 36) the next step is stored whole.
    for (int i = 0; i < 5; ++i) m_log.Set(i, i + 1);
    EXPECT_EQ(m_log.GetBytesSinceSnapshot(), 40u);
    m_log.Set(6, 99);
    const CHistoryRecord* r = m_log.GetRecord(6);
    EXPECT_EQ(r->kind, kStepWholeDocument);
    EXPECT_EQ(r->arg, 6);
    EXPECT_EQ(m_log.GetBytesSinceSnapshot(), 0u);

    // Undo to a step after the second snapshot starts there, not at the first one.
    m_log.Set(7, 1);
    m_log.Set(7, 2);
    const auto state = m_log.doc;
    m_log.applied = 0;
    ASSERT_EQ(m_log.JumpTo(8), 1);
    EXPECT_EQ(m_log.applied, 2);
    m_log.doc[7] = 2;
    EXPECT_EQ(m_log.doc, state);
}

TEST_F(OpenLogTest, LabelsAreCutByBytesWithoutSplittingATwoByteCharacter)
{
    m_log.Add(kStepWholeDocument, 0, "0123456789012345678901234567890123456789");
    EXPECT_STREQ(m_log.GetRecord(0)->label, "0123456789012345678901234567890");
    // 30 single bytes, then a two-byte character that would need bytes 31 and 32: it is left out.
    m_log.Set(0, 1);
    m_log.Add(kStepWholeDocument, 0, "012345678901234567890123456789\xB1\xB3");
    EXPECT_STREQ(m_log.GetRecord(2)->label, "012345678901234567890123456789");
    m_log.Add(kStepWholeDocument, 0, "01234567890123456789012345678\xB1\xB3x");
    EXPECT_STREQ(m_log.GetRecord(3)->label, "01234567890123456789012345678\xB1\xB3");
}

TEST_F(OpenLogTest, DamagedHistoryBlocksAreRefused)
{
    const std::string path = m_tmp.File("bad.bin");
    auto load = [&](const std::vector<uint8_t>& bytes) {
        vmtest::WriteAll(path, bytes);
        FILE* f = std::fopen(path.c_str(), "rb");
        const int r = m_log.LoadFrom(f);
        std::fclose(f);
        return r;
    };
    // A huge record count with a short stream.
    EXPECT_EQ(load({0xFF, 0xFF, 0xFF, 0x7F, 0, 0, 0, 0, 1, 2, 3}), 0);
    EXPECT_EQ(m_log.GetCount(), 0);
    // A current step beyond the records.
    std::vector<uint8_t> one(8 + 44, 0);
    one[0] = 1;
    one[4] = 2;
    EXPECT_EQ(load(one), 0);
    // Too short for the two counts.
    EXPECT_EQ(load({1, 0, 0}), 0);
    one[4] = 1;
    EXPECT_EQ(load(one), 1);
    EXPECT_EQ(m_log.GetCount(), 1);
}

TEST_F(OpenLogTest, AFullLogStartsOverWithTheWholeDocument)
{
    m_log.SetLogLimit(70);
    m_log.Add(kStepWholeDocument, 0);   // 36 bytes
    for (int i = 0; i < 4; ++i) m_log.Set(i, i + 1);   // 8 bytes each, up to 68
    EXPECT_EQ(m_log.GetCount(), 5);
    m_log.Set(4, 5);   // would end at 76: the log starts over with this state as its snapshot
    EXPECT_EQ(m_log.GetCount(), 1);
    EXPECT_EQ(m_log.GetRecord(0)->kind, kStepWholeDocument);
    EXPECT_EQ(m_log.GetRecord(0)->offset, 0u);
    EXPECT_EQ(m_log.GetWritePosition(), 36u);
    m_log.Set(5, 6);
    ASSERT_EQ(m_log.Backward(), 1);
    EXPECT_EQ(m_log.doc, (std::vector<int32_t>{1, 2, 3, 4, 5, 0, 0, 0}));
}

} // namespace
