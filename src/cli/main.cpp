#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli/cli.h"

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
            if (c.details) c.details();
            return cli::kExitOk;
        }
        return c.handler(args);
    }
    std::fprintf(stderr, "velmorando-cli: unknown command '%s' (try --help)\n", first.c_str());
    return cli::kExitUsage;
}
