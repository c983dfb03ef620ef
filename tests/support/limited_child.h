#pragma once

// Runs part of a test in a fresh copy of the test program, under an address-space limit (RLIMIT_AS), so that an
// allocation can be made to fail without touching the test process. The child is started afresh rather than forked:
// a forked copy of a process whose pool threads sleep on a condition variable cannot use that variable.

#include <cstdio>
#include <cstdlib>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace vmtest {

// The process's address space in bytes (VmSize), or 0 when it cannot be read.
inline size_t AddressSpaceBytes()
{
    FILE* f = std::fopen("/proc/self/status", "r");
    if (!f) return 0;
    char line[256];
    size_t kb = 0;
    while (std::fgets(line, sizeof line, f))
        if (std::sscanf(line, "VmSize: %zu kB", &kb) == 1) break;
    std::fclose(f);
    return kb * 1024;
}

// In the child (the environment variable is set to "what:spare"), runs run(what, spare) before main and exits
// with its result; in the test process returns 0. Meant for a namespace-scope initialiser.
inline int RunIfChild(const char* variable, int (*run)(const std::string& what, size_t spare))
{
    const char* ask = std::getenv(variable);
    if (!ask) return 0;
    const std::string text = ask;
    const size_t colon = text.rfind(':');
    std::fflush(nullptr);
    _exit(run(text.substr(0, colon), std::strtoull(text.c_str() + colon + 1, nullptr, 10)));
}

// Starts this test program with variable=what:spare and waits; its exit code, or -signal when it died of one,
// or -1000 when it could not be started.
inline int InChild(const char* variable, const std::string& what, size_t spare)
{
    const std::string env = std::string(variable) + "=" + what + ":" + std::to_string(spare);
    char* argv[] = {const_cast<char*>("test"), nullptr};
    char* envp[] = {const_cast<char*>(env.c_str()), nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, "/proc/self/exe", nullptr, nullptr, argv, envp) != 0) return -1000;
    int status = 0;
    if (waitpid(pid, &status, 0) != pid) return -1000;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

} // namespace vmtest
