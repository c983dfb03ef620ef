#pragma once

// The step nearly every command-line test repeats: run velmorando-cli, check its exit status and a text its output
// must hold, and show the whole output when either is wrong. One call per command, or one table of commands.

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace vmtest {

// Runs the command and checks its exit status and that its output holds `says` (any output when empty).
inline CliResult ExpectCli(const std::string& arguments, int exitCode, const std::string& says = "")
{
    CliResult r = RunCli(arguments);
    EXPECT_EQ(r.exitCode, exitCode) << arguments << "\n" << r.output;
    EXPECT_NE(r.output.find(says), std::string::npos) << "expected \"" << says << "\" from " << arguments << "\n"
                                                       << r.output;
    return r;
}

// A command that must succeed.
inline CliResult RunOk(const std::string& arguments, const std::string& says = "")
{
    return ExpectCli(arguments, 0, says);
}

struct CliCase {
    std::string arguments;
    int exitCode;
    std::string says;
};

inline void ExpectCli(const std::vector<CliCase>& cases)
{
    for (const CliCase& c : cases) ExpectCli(c.arguments, c.exitCode, c.says);
}

} // namespace vmtest
