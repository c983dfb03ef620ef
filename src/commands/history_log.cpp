#include "commands/history_log.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "commands/stream_io.h"

namespace {

constexpr size_t kCopyBlock = 64000;

// Copies a label into the 32-byte field. Text is cut by bytes, and a byte of 128 or above starts a two-byte
// character that is never split.
void CopyLabel(char (&field)[32], const char* label)
{
    std::memset(field, 0, sizeof field);
    if (!label) return;
    size_t n = 0;
    while (label[n]) {
        const size_t step = (static_cast<unsigned char>(label[n]) >= 128 && label[n + 1]) ? 2 : 1;
        if (n + step > sizeof field - 1) break;
        n += step;
    }
    std::memcpy(field, label, n);
}

void EncodeRecord(const CHistoryRecord& r, uint8_t* out)
{
    std::memcpy(out, r.label, 32);
    vmio::PutU32(out + 32, r.offset);
    vmio::PutI32(out + 36, r.kind);
    vmio::PutI32(out + 40, r.arg);
}

void DecodeRecord(const uint8_t* in, CHistoryRecord& r)
{
    std::memcpy(r.label, in, 32);
    r.label[31] = 0;
    r.offset = vmio::GetU32(in + 32);
    r.kind = vmio::GetI32(in + 36);
    r.arg = vmio::GetI32(in + 40);
}

bool IsLogName(const char* name)
{
    if (std::strlen(name) != 19 || std::strcmp(name + 15, ".vmh") != 0) return false;
    for (int i = 1; i <= 14; ++i)
        if (name[i] < '0' || name[i] > '9') return false;
    return true;
}

int Digits(const char* p, int count)
{
    int v = 0;
    for (int i = 0; i < count; ++i) v = v * 10 + (p[i] - '0');
    return v;
}

} // namespace

CHistoryLog::~CHistoryLog()
{
    if (m_logPath[0]) std::remove(m_logPath);
}

int CHistoryLog::DeleteStaleLogs(const char* directory, int year, int month, int day)
{
    DIR* dir = opendir(directory);
    if (!dir) return 0;
    int deleted = 0;
    while (const dirent* entry = readdir(dir)) {
        if (!IsLogName(entry->d_name)) continue;
        const std::string path = std::string(directory) + entry->d_name;
        struct stat st {};
        if (lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
        // Each of the three fields must reach today's value for a log to stay: logs of today (another running
        // instance) and of the future survive, everything else is left over from an earlier run.
        const int y = Digits(entry->d_name + 1, 4), m = Digits(entry->d_name + 5, 2),
                  d = Digits(entry->d_name + 7, 2);
        if (y >= year && m >= month && d >= day) continue;
        if (unlink(path.c_str()) == 0) ++deleted;
    }
    closedir(dir);
    return deleted;
}

int CHistoryLog::Init()
{
    if (m_logPath[0]) std::remove(m_logPath);
    m_logPath[0] = 0;

    std::string directory;
    if (const char* env = std::getenv("TMPDIR"); env && *env) directory = env;
    if (directory.empty() || directory.size() + 24 > sizeof m_tempDirectory) directory = "/tmp";
    if (directory.back() != '/') directory += '/';
    std::memcpy(m_tempDirectory, directory.c_str(), directory.size() + 1);

    const time_t now = std::time(nullptr);
    tm local {};
    localtime_r(&now, &local);
    DeleteStaleLogs(m_tempDirectory, local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);

    // The name carries the second of start-up. A second instance started in the same second takes the next free
    // second instead of sharing (and truncating) the first one's log.
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const time_t t = now + attempt;
        localtime_r(&t, &local);
        char name[sizeof m_logPath + 128];
        std::snprintf(name, sizeof name, "%s%s%04d%02d%02d%02d%02d%02d.vmh", m_tempDirectory, GetPrefix(),
                      local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                      local.tm_sec);
        if (std::strlen(name) >= sizeof m_logPath) break;
        std::memcpy(m_logPath, name, std::strlen(name) + 1);
        const int fd = open(m_logPath, O_WRONLY | O_CREAT | O_EXCL, 0600);
        if (fd >= 0) {
            close(fd);
            return Reset();
        }
        if (errno != EEXIST) break;
    }
    m_logPath[0] = 0;
    return 0;
}

int CHistoryLog::Reset()
{
    m_records.clear();
    m_currentStep = 0;
    m_writePosition = 0;
    m_bytesSinceSnapshot = 0;
    if (!m_logPath[0]) return 0;
    FILE* f = std::fopen(m_logPath, "wb");
    if (!f) return 0;
    return std::fclose(f) == 0 ? 1 : 0;
}

const CHistoryRecord* CHistoryLog::GetRecord(int index) const
{
    if (index < 0 || index >= GetCount()) return nullptr;
    return &m_records[static_cast<size_t>(index)];
}

int CHistoryLog::CanForward() const { return !m_records.empty() && m_currentStep < GetCount() ? 1 : 0; }

int CHistoryLog::CanBackward() const { return m_currentStep > 1 ? 1 : 0; }

int CHistoryLog::Forward() { return CanForward() ? JumpTo(m_currentStep + 1) : 0; }

int CHistoryLog::Backward() { return CanBackward() ? JumpTo(m_currentStep - 1) : 0; }

int CHistoryLog::AppendStep(int32_t kind, int32_t arg, const char* label, const PayloadWriter& write)
{
    if (!m_logPath[0]) return -1;
    FILE* f = std::fopen(m_logPath, "r+b");
    if (!f) return -1;
    if (std::fseek(f, static_cast<long>(m_writePosition), SEEK_SET) != 0) {
        std::fclose(f);
        return -1;
    }
    // Replay never reads much more than one snapshot's worth of deltas: once they outgrow the last snapshot,
    // the document is stored whole again, whatever was asked.
    if (m_bytesSinceSnapshot > m_snapshotSize && m_snapshotSize != 0) kind = kStepWholeDocument;

    const uint32_t start = m_writePosition;
    bool ok = write(f, kind);
    if (std::fflush(f) != 0 || std::ferror(f)) ok = false;
    const long end = std::ftell(f);
    ok = std::fclose(f) == 0 && ok;
    const bool full = end >= 0 && static_cast<uint64_t>(end) > m_logLimit;
    if (end < 0 || full) ok = false;
    else m_writePosition = static_cast<uint32_t>(end);

    if (!ok) {
        OnPayloadFailed();
        // Offsets in records are 32-bit. When the log is full, it starts over with the whole document: older
        // steps are lost, but the edit that is being recorded is not.
        if (full && start != 0 && Reset()) return AppendStep(kStepWholeDocument, arg, label, write);
        if (full) Reset();
        return m_currentStep;
    }
    const uint32_t bytes = m_writePosition - start;
    if (kind == kStepWholeDocument) {
        m_bytesSinceSnapshot = 0;
        m_snapshotSize = bytes;
    } else {
        m_bytesSinceSnapshot += bytes;
    }

    // A new step after an undo drops the redo tail; its bytes stay in the file as dead space.
    if (m_currentStep < GetCount()) m_records.resize(static_cast<size_t>(m_currentStep));
    CHistoryRecord record;
    CopyLabel(record.label, label);
    record.offset = start;
    record.kind = kind;
    record.arg = arg;
    m_records.push_back(record);
    m_currentStep = GetCount();
    return m_currentStep;
}

int CHistoryLog::JumpTo(int step)
{
    if (step == m_currentStep) return 1;
    if (step < 0 || step > GetCount()) return 0;
    int start = m_currentStep;
    if (step < m_currentStep) {
        start = -1;
        for (int i = step - 1; i >= 0; --i) {
            if (m_records[static_cast<size_t>(i)].kind == kStepWholeDocument) {
                start = i;
                break;
            }
        }
        if (start < 0) return 0;
    }
    FILE* f = std::fopen(m_logPath, "rb");
    if (!f) return 0;
    int i = start;
    for (; i < step; ++i) {
        const CHistoryRecord& record = m_records[static_cast<size_t>(i)];
        if (std::fseek(f, static_cast<long>(record.offset), SEEK_SET) != 0) break;
        if (!ApplyRecord(record, f)) break;
    }
    std::fclose(f);
    AfterJump();
    if (i < step) return 0;
    m_currentStep = step;
    return 1;
}

int CHistoryLog::SaveTo(FILE* stream)
{
    if (!stream || !m_logPath[0]) return 0;
    FILE* log = std::fopen(m_logPath, "rb");
    if (!log) return 0;
    bool ok = vmio::WriteU32(stream, static_cast<uint32_t>(m_records.size())) &&
              vmio::WriteU32(stream, static_cast<uint32_t>(m_currentStep));
    uint8_t encoded[kHistoryRecordBytes];
    for (size_t i = 0; ok && i < m_records.size(); ++i) {
        EncodeRecord(m_records[i], encoded);
        ok = vmio::WriteBytes(stream, encoded, sizeof encoded);
    }
    std::vector<uint8_t> block(kCopyBlock);
    while (ok) {
        const size_t n = std::fread(block.data(), 1, block.size(), log);
        if (n == 0) {
            ok = !std::ferror(log);
            break;
        }
        ok = vmio::WriteBytes(stream, block.data(), n);
    }
    std::fclose(log);
    return ok ? 1 : 0;
}

bool CHistoryLog::ReadRecordBlock(FILE* stream, std::vector<CHistoryRecord>& records, int32_t& current)
{
    // Records are read one at a time, so a damaged count cannot ask for a huge block: the stream runs out first.
    records.clear();
    uint32_t count = 0;
    bool ok = vmio::ReadU32(stream, count) && vmio::ReadI32(stream, current);
    uint8_t encoded[kHistoryRecordBytes];
    for (uint32_t i = 0; ok && i < count; ++i) {
        ok = vmio::ReadBytes(stream, encoded, sizeof encoded);
        if (ok) {
            CHistoryRecord r;
            DecodeRecord(encoded, r);
            records.push_back(r);
        }
    }
    return ok && current >= 0 && static_cast<uint32_t>(current) <= count;
}

int CHistoryLog::LoadFrom(FILE* stream)
{
    if (!stream || !Reset()) return 0;
    FILE* log = std::fopen(m_logPath, "wb");
    if (!log) return 0;

    std::vector<CHistoryRecord> records;
    int32_t current = 0;
    bool ok = ReadRecordBlock(stream, records, current);

    uint64_t logBytes = 0;
    std::vector<uint8_t> block(kCopyBlock);
    while (ok) {
        const size_t n = std::fread(block.data(), 1, block.size(), stream);
        if (n == 0) {
            ok = !std::ferror(stream);
            break;
        }
        ok = vmio::WriteBytes(log, block.data(), n);
        logBytes += n;
    }
    ok = std::fclose(log) == 0 && ok && logBytes <= m_logLimit;
    if (!ok) {
        Reset();
        return 0;
    }
    m_records = std::move(records);
    m_currentStep = current;
    RecountAfterLoad(logBytes);
    return 1;
}

void CHistoryLog::RecountAfterLoad(uint64_t logBytes)
{
    // New steps go behind the loaded payloads, never over them, so that undo across the reopening still finds
    // what the records point at. The snapshot bookkeeping is rebuilt from the records for the same reason.
    m_writePosition = static_cast<uint32_t>(logBytes);
    m_bytesSinceSnapshot = 0;
    m_snapshotSize = 0;
    for (size_t i = m_records.size(); i-- > 0;) {
        if (m_records[i].kind != kStepWholeDocument) continue;
        const uint64_t begin = m_records[i].offset;
        uint64_t end = logBytes;
        for (const CHistoryRecord& r : m_records)
            if (r.offset > begin && r.offset < end) end = r.offset;
        if (begin < end) {
            m_snapshotSize = static_cast<uint32_t>(end - begin);
            m_bytesSinceSnapshot = static_cast<uint32_t>(logBytes - end);
        }
        break;
    }
}
