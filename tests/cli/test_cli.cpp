#include <gtest/gtest.h>

#include <string>

#include "imaging/image.h"
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

TEST(Cli, InfoOnABmp)
{
    vmtest::TempDir dir;
    COLImage img;
    vmtest::FillNoise(img, 21, 13, 3);
    ASSERT_EQ(img.SaveToFile(dir.File("a.bmp").c_str()), kOk);
    CliResult r = RunCli("info " + dir.File("a.bmp"));
    EXPECT_EQ(r.exitCode, 0) << r.output;
    EXPECT_NE(r.output.find("21 x 13"), std::string::npos) << r.output;
}

TEST(Cli, InfoFailsClearly)
{
    vmtest::TempDir dir;
    CliResult r = RunCli("info " + dir.File("missing.bmp"));
    EXPECT_NE(r.exitCode, 0);
    EXPECT_NE(r.output.find("error"), std::string::npos);
    vmtest::WriteAll(dir.File("junk.bmp"), {'B', 'M', 1, 2, 3});
    r = RunCli("info " + dir.File("junk.bmp"));
    EXPECT_NE(r.exitCode, 0);
    r = RunCli("info");
    EXPECT_EQ(r.exitCode, 2);
}
