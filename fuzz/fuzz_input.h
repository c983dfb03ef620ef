#pragma once

// The readers under test open files by path, so each input is written to one file per process and read back
// from there. The file lives in /dev/shm where it can (no disk traffic at thousands of runs a second).

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace vmfuzz {

inline std::string InputPath(const char* extension)
{
    const char* base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : (std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp");
    return std::string(base) + "/vmfuzz-" + std::to_string(getpid()) + "." + extension;
}

// Writes the input to `path`; false when it could not (the run is then skipped, not counted as a finding).
inline bool WriteInput(const std::string& path, const uint8_t* data, size_t size)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = std::fwrite(data, 1, size, f) == size;
    return std::fclose(f) == 0 && ok;
}

// Removes the process's input file when the fuzzer exits.
struct CInputFile {
    explicit CInputFile(const char* extension) : path(InputPath(extension)) {}
    ~CInputFile() { std::remove(path.c_str()); }
    std::string path;
};

} // namespace vmfuzz
