#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "commands/history_sink.h"
#include "commands/region_tracker.h"

class CLayerStack;
class COLChannel;
class COLImage;

// One step of an undo log; also a file format (44 bytes, little-endian) inside saved projects.
struct CHistoryRecord {
    char label[32] = {};   // the step's text as the history list shows it, NUL-terminated
    uint32_t offset = 0;   // where the step's payload starts in the log file
    int32_t kind = 0;
    int32_t arg = 0;
};
inline constexpr size_t kHistoryRecordBytes = 44;

// A forward-only undo log on disk. Going back never inverts an edit: it reloads the nearest whole snapshot
// before the target and replays the logged changes up to it, so no pixels of old steps are held in memory.
// The file is opened and closed for every step and every jump; no handle is kept between them.
class CHistoryLog {
public:
    CHistoryLog() = default;
    virtual ~CHistoryLog();   // deletes the log file
    CHistoryLog(const CHistoryLog&) = delete;
    CHistoryLog& operator=(const CHistoryLog&) = delete;

    // Finds the temporary folder ($TMPDIR, else /tmp), deletes logs left from earlier days, names this log
    // "<folder><prefix>YYYYMMDDhhmmss.vmh" after the local time, and resets it. 0 when the log cannot be made.
    int Init();
    // Creates or truncates the log file and forgets all steps. 0 when the file cannot be made.
    int Reset();

    int CanForward() const;
    int CanBackward() const;   // the first step is always a snapshot and cannot be undone
    int Forward();
    int Backward();
    // Brings the followed document to the state after step `step` (1-based count of applied records).
    // 1 on success. On a failed replay the answer is 0 and the step count stays, though the document may have
    // changed in part.
    int JumpTo(int step);

    // The history block of a project file: record count, current step, the records, then the log file as it
    // stands. LoadFrom reads the same from the stream's position to its end.
    int SaveTo(FILE* stream);
    int LoadFrom(FILE* stream);
    // Reads the count, current step and records at the start of a history block; false when they are
    // incomplete or the current step lies outside the records.
    static bool ReadRecordBlock(FILE* stream, std::vector<CHistoryRecord>& records, int32_t& current);

    // Replays one record from a stream placed at its payload; 0 stops the replay.
    virtual int ApplyRecord(CHistoryRecord record, FILE* stream) = 0;
    virtual const char* GetPrefix() const = 0;

    int GetCount() const { return static_cast<int>(m_records.size()); }
    int GetCurrentStep() const { return m_currentStep; }
    const CHistoryRecord* GetRecord(int index) const;
    const char* GetLogPath() const { return m_logPath; }
    const char* GetTempDirectory() const { return m_tempDirectory; }
    uint32_t GetWritePosition() const { return m_writePosition; }
    uint32_t GetBytesSinceSnapshot() const { return m_bytesSinceSnapshot; }
    uint32_t GetSnapshotSize() const { return m_snapshotSize; }

    // Deletes "*.vmh" logs in `directory` (with its trailing separator) dated before the given day. Only names
    // of this program's shape (a prefix letter, 14 digits, ".vmh") are considered. Returns how many went.
    static int DeleteStaleLogs(const char* directory, int year, int month, int day);

    // The largest log in bytes; record offsets are 32-bit. Lowered by tests to reach the limit cheaply.
    void SetLogLimit(uint64_t bytes) { m_logLimit = bytes; }

protected:
    // Writes a step's payload at the write position. `write` gets the open stream and the kind, which it may
    // have to store as a snapshot; it answers false when the payload failed. Returns the current step, or -1
    // when the write position cannot be reached.
    using PayloadWriter = std::function<bool(FILE* stream, int32_t kind)>;
    int AppendStep(int32_t kind, int32_t arg, const char* label, const PayloadWriter& write);
    // Called after a jump, successful or not, since the followed document has changed.
    virtual void AfterJump() {}
    // Called when a payload could not be written in full. The trackers may already have taken in changes that
    // did not reach the log, so the followers forget them and store each plane whole next time.
    virtual void OnPayloadFailed() {}

private:
    void RecountAfterLoad(uint64_t logBytes);

    char m_logPath[512] = {};
    char m_tempDirectory[512] = {};
    std::vector<CHistoryRecord> m_records;
    int32_t m_currentStep = 0;
    uint32_t m_writePosition = 0;
    uint32_t m_bytesSinceSnapshot = 0;
    uint32_t m_snapshotSize = 0;
    uint64_t m_logLimit = 0xFFFFFFFFu;
};

// What the selection-mode log follows: the working copy and the three planes of selection mode.
class ISelectionHistorySource {
public:
    virtual ~ISelectionHistorySource() = default;
    virtual COLChannel* GetResultMask() = 0;
    virtual COLChannel* GetInnerPlane() = 0;
    virtual COLChannel* GetOuterPlane() = 0;
    virtual COLImage* GetWorkingImage() = 0;
};

// Plane bits of a selection step.
enum SelectionPlaneBit : uint32_t {
    kPlaneInner = 1,
    kPlaneOuter = 2,
    kPlaneResult = 4,
    kPlaneWorking = 8,
    kPlaneAll = 0xFF,
};

// The undo log of selection mode. Kind 255 stores every plane, kind 3 the working image, kind 5 the planes named
// by the bits in arg. The working image is always stored whole; masks store their changed rectangle.
class CSelectionHistory : public CHistoryLog, public IHistoryNavigator {
public:
    int Forward() override { return CHistoryLog::Forward(); }
    int Backward() override { return CHistoryLog::Backward(); }
    int JumpTo(int step) override { return CHistoryLog::JumpTo(step); }

    int AddStep(ISelectionHistorySource* document, int32_t kind, int32_t arg, const char* label);
    int ApplyRecord(CHistoryRecord record, FILE* stream) override;
    const char* GetPrefix() const override { return "S"; }
    void SetDocument(ISelectionHistorySource* document) { m_pDocument = document; }
    ISelectionHistorySource* GetDocument() const { return m_pDocument; }
    void RebuildTrackers();

protected:
    void AfterJump() override { RebuildTrackers(); }
    void OnPayloadFailed() override;

private:
    enum { kTrackResult, kTrackInner, kTrackOuter, kTrackWorking, kTrackCount };
    bool WritePayload(FILE* stream, uint32_t planes);
    bool WriteMaskBlock(FILE* stream, COLChannel* plane, CRegionTracker& tracker);

    ISelectionHistorySource* m_pDocument = nullptr;
    CRegionTracker m_trackers[kTrackCount];
};

// The undo log of the composition document. Commands add their steps through IHistorySink; layer and channel
// steps store only the rectangle that changed since the plane was last recorded, and a whole-document step is
// taken whenever the deltas since the last one outgrow it, which bounds the work of any jump.
class CComposeHistory : public CHistoryLog, public IHistorySink {
public:
    static constexpr int kTrackedPlanes = 32;

    CComposeHistory() = default;
    ~CComposeHistory() override = default;

    int AddStep(CLayerStack* document, int kind, int arg, const char* label) override;
    int Reset() override { return CHistoryLog::Reset(); }
    int Forward() override { return CHistoryLog::Forward(); }
    int Backward() override { return CHistoryLog::Backward(); }
    int JumpTo(int step) override { return CHistoryLog::JumpTo(step); }

    int ApplyRecord(CHistoryRecord record, FILE* stream) override;
    const char* GetPrefix() const override { return "C"; }

    void SetDocument(CLayerStack* document) { m_pDocument = document; }
    CLayerStack* GetDocument() const { return m_pDocument; }
    // Takes fresh sums of every layer, channel and the mask, as they now stand.
    void RebuildTrackers();

    // Commands name their steps by string key; this turns a key into the text the record stores (the user's
    // language, GBK). Without one the key itself is stored.
    void SetLabelSource(std::function<std::string(const char* key)> source) { m_labelSource = std::move(source); }

protected:
    void AfterJump() override { RebuildTrackers(); }
    void OnPayloadFailed() override;

private:
    // A tracker remembers which layer or plane its sums belong to, so that sums of a layer that has since moved
    // or been replaced are never compared with another one's pixels.
    struct Follow {
        CRegionTracker tracker;
        const void* owner = nullptr;
    };

    bool WritePayload(FILE* stream, int32_t kind, int32_t arg);
    bool WriteLayerHeader(FILE* stream, int index);
    bool WriteLayerRegion(FILE* stream, int index);
    bool WriteChannelRegion(FILE* stream, int index);
    void AfterStructureStep(int32_t kind, int32_t arg);

    int ApplyLayerHeader(FILE* stream, int index);
    int ApplyLayerRegion(FILE* stream, int index);
    int ApplyChannelRegion(FILE* stream, int index);
    int ApplySnapshot(FILE* stream);

    Follow* LayerFollow(int index);
    Follow* ChannelFollow(int index);

    CLayerStack* m_pDocument = nullptr;
    Follow m_layers[kTrackedPlanes];
    Follow m_channels[kTrackedPlanes];
    Follow m_mask;
    std::function<std::string(const char*)> m_labelSource;
};
