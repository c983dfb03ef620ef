#include "imaging/safe_file.h"

#include <cerrno>
#include <fcntl.h>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

CSafeFileWriter::~CSafeFileWriter() { Discard(); }

bool CSafeFileWriter::Open(const std::string& path)
{
    Discard();
    m_failed = false;
    m_target = path;
    m_temp = path + ".XXXXXX";
    int fd = mkstemp(m_temp.data());
    if (fd < 0) {
        m_temp.clear();
        return false;
    }
    // mkstemp makes the file private; give it what a plain fopen would (or the target's own mode).
    struct stat st {};
    if (stat(path.c_str(), &st) == 0) {
        fchmod(fd, st.st_mode & 07777);
    } else {
        mode_t mask = umask(0);
        umask(mask);
        fchmod(fd, 0666 & ~mask);
    }
    m_pFile = fdopen(fd, "wb");
    if (!m_pFile) {
        close(fd);
        unlink(m_temp.c_str());
        m_temp.clear();
        return false;
    }
    return true;
}

bool CSafeFileWriter::Write(const void* data, size_t bytes)
{
    if (!m_pFile || m_failed) return false;
    if (bytes && std::fwrite(data, 1, bytes, m_pFile) != bytes) m_failed = true;
    return !m_failed;
}

bool CSafeFileWriter::Seek(long offset)
{
    if (!m_pFile || m_failed) return false;
    if (std::fseek(m_pFile, offset, SEEK_SET) != 0) m_failed = true;
    return !m_failed;
}

long CSafeFileWriter::Tell() const { return m_pFile ? std::ftell(m_pFile) : -1; }

void CSafeFileWriter::StartWriteback()
{
    if (!m_pFile || m_failed || std::fflush(m_pFile) != 0) return;
#ifdef SYNC_FILE_RANGE_WRITE
    sync_file_range(fileno(m_pFile), 0, 0, SYNC_FILE_RANGE_WRITE); // 0, 0: the whole file as it stands
#endif
}

bool CSafeFileWriter::Commit()
{
    if (!m_pFile) return false;
    bool ok = !m_failed && std::fflush(m_pFile) == 0 && !std::ferror(m_pFile) && fsync(fileno(m_pFile)) == 0;
    ok = (std::fclose(m_pFile) == 0) && ok;
    m_pFile = nullptr;
    if (ok && std::rename(m_temp.c_str(), m_target.c_str()) == 0) {
        m_temp.clear();
        return true;
    }
    unlink(m_temp.c_str());
    m_temp.clear();
    return false;
}

void CSafeFileWriter::Discard()
{
    if (m_pFile) {
        std::fclose(m_pFile);
        m_pFile = nullptr;
    }
    if (!m_temp.empty()) {
        unlink(m_temp.c_str());
        m_temp.clear();
    }
}
