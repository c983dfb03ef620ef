#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/test_support.h"

using vmtest::CliResult;
using vmtest::RunCli;

TEST(Cli, HelpAndVersion)
{
    CliResult r = RunCli("--version");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.output.find(VM_VERSION), std::string::npos);
    r = RunCli("no-such-command");
    EXPECT_NE(r.exitCode, 0);
    EXPECT_NE(r.output.find("unknown command"), std::string::npos);
}

// What each help page must name: the commands, the options the engines' tables give with their ranges and
// defaults, and what each solver is good for.
TEST(Cli, HelpPagesNameTheirCommandsOptionsAndDefaults)
{
    const std::pair<const char*, std::vector<const char*>> pages[] = {
        {"--help", {"info FILE", "--refine", "hair", "crisp"}},
        {"key --help",
         {"[--strength N]", "[--levels LO,HI]", "[--shadow]", "--luma-strength N",
          "(a whole number from 0 to 100; default 32)", "default 32,255)", "--refine"}},
        {"batch-key --help", {"--refine"}},
        {"blur --help", {"--sigma S", "required)"}},
        {"resample --help", {"default bilinear)"}},
        {"replay --help",
         {"Doc_SelectExpand", "Doc_SelectShrink", "Doc_SelectFeather", "Doc_SelectFeatherResult",
          "Doc_SelectSegmentDeflate", "Doc_FillSelection", "Doc_StrokeSelection", "colourpicker", "inject",
          "smartadjust", "option adjust M"}},
    };
    for (const auto& [args, texts] : pages) {
        SCOPED_TRACE(args);
        const CliResult r = RunCli(args);
        EXPECT_EQ(r.exitCode, 0) << r.output;
        for (const char* text : texts)
            EXPECT_NE(r.output.find(text), std::string::npos) << text << "\n" << r.output;
    }
}
