#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/cli_checks.h"

TEST(Cli, HelpAndVersion)
{
    vmtest::RunOk("--version", VM_VERSION);
    vmtest::ExpectCli("no-such-command", 2, "unknown command");
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
        const std::string said = vmtest::RunOk(args).output;
        for (const char* text : texts)
            EXPECT_NE(said.find(text), std::string::npos) << args << ": " << text << "\n" << said;
    }
}
