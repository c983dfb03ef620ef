#pragma once

// A full disk for the writers' tests, simulated with a file size limit (which binds root too): a write past the
// limit fails with EFBIG instead of ending the program with SIGXFSZ. Limit and signal are put back afterwards.

#include <csignal>
#include <cstddef>
#include <filesystem>
#include <sys/resource.h>

namespace vmtest {

template <class F> auto WithFileSizeLimit(rlim_t bytes, F write)
{
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    auto* previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit tight = old;
    tight.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &tight);
    const auto result = write();
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, previous);
    return result;
}

// How many entries a folder holds: a failed write must leave no temporary file beside its target.
inline size_t EntryCount(const std::filesystem::path& folder)
{
    size_t n = 0;
    for (auto it = std::filesystem::directory_iterator(folder); it != std::filesystem::directory_iterator(); ++it)
        ++n;
    return n;
}

} // namespace vmtest
