#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

// Writes a file through a temporary in the same folder and renames it over the target only on Commit,
// so a failed or interrupted save never replaces a good file with a damaged one.
class CSafeFileWriter {
public:
    CSafeFileWriter() = default;
    ~CSafeFileWriter();
    CSafeFileWriter(const CSafeFileWriter&) = delete;
    CSafeFileWriter& operator=(const CSafeFileWriter&) = delete;

    bool Open(const std::string& path);
    bool Write(const void* data, size_t bytes);
    bool Seek(long offset);   // absolute position, for headers patched after the data
    long Tell() const;
    // The open stream, for libraries that write through a FILE*. Check Failed() before committing.
    FILE* Stream() const { return m_pFile; }
    void MarkFailed() { m_failed = true; }
    bool Failed() const { return m_failed; }
    // Hands what is written so far to the system and asks it to start putting it on the disk, so that the disk
    // works while the caller computes what comes next and Commit's sync has less left to wait for. Only a hint:
    // errors show at Commit.
    void StartWriteback();
    // Flushes, syncs and renames. Returns false, and removes the temporary, when anything went wrong.
    bool Commit();
    void Discard();

private:
    FILE* m_pFile = nullptr;
    std::string m_target;
    std::string m_temp;
    bool m_failed = false;
};
