#include <gtest/gtest.h>

#include <string>

#include "support/test_support.h"

using vmtest::CliResult;
using vmtest::RunCli;

TEST(Cli, HelpAndVersion)
{
    CliResult r = RunCli("--help");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.output.find("info FILE"), std::string::npos);
    r = RunCli("--version");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.output.find(VM_VERSION), std::string::npos);
    r = RunCli("no-such-command");
    EXPECT_NE(r.exitCode, 0);
    EXPECT_NE(r.output.find("unknown command"), std::string::npos);
}
