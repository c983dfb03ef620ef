#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "runtime/status.h"

namespace {

void PrintHelp()
{
    std::printf("velmorando-cli %s: the headless front end of Velmorando\n\n", VM_VERSION);
    std::printf("usage: velmorando-cli COMMAND [ARGS...]\n       velmorando-cli --help | --version\n\ncommands:\n");
    std::vector<cli::CommandInfo> commands = cli::Commands();
    std::sort(commands.begin(), commands.end(), [](auto& a, auto& b) { return a.name < b.name; });
    for (const cli::CommandInfo& c : commands) std::printf("  %-40s %s\n", c.synopsis.c_str(), c.summary.c_str());
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        PrintHelp();
        return cli::kExitUsage;
    }
    const std::string first = argv[1];
    if (first == "--help" || first == "-h" || first == "help") {
        PrintHelp();
        return cli::kExitOk;
    }
    if (first == "--version") {
        std::printf("velmorando-cli %s\n", VM_VERSION);
        return cli::kExitOk;
    }
    for (const cli::CommandInfo& c : cli::Commands()) {
        if (c.name != first) continue;
        std::vector<std::string> args(argv + 2, argv + argc);
        if (std::find(args.begin(), args.end(), "--help") != args.end()) {
            std::printf("usage: velmorando-cli %s\n  %s\n", c.synopsis.c_str(), c.summary.c_str());
            if (!c.options.empty()) std::printf("\noptions:\n%s", c.options.c_str());
            return cli::kExitOk;
        }
        // Running out of memory is a failure with a reason, never a crash: whatever an engine did not turn into a
        // failure code itself is caught here, and a failure after an allocation was refused says so.
        const uint64_t exhaustedBefore = vmrt::ExhaustionCount();
        int code = cli::kExitFailure;
        try {
            code = c.handler(args);
        } catch (const std::bad_alloc&) {
            vmrt::NoteExhaustion();
        } catch (const std::length_error&) {
            vmrt::NoteExhaustion();
        }
        if (code != cli::kExitOk && vmrt::ExhaustionCount() != exhaustedBefore)
            std::fprintf(stderr, "velmorando-cli: error: not enough memory for '%s' on this picture\n", first.c_str());
        return code;
    }
    std::fprintf(stderr, "velmorando-cli: unknown command '%s' (try --help)\n", first.c_str());
    return cli::kExitUsage;
}
