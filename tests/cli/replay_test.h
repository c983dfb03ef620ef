#pragma once

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "imaging/image.h"
#include "support/pictures.h"
#include "support/test_support.h"

namespace vmtest {

// A noisy opaque picture written as in.bmp, and scripts run on it by "replay" with the output named; scripts that
// must be refused with their reason and leave no output behind.
class ReplayTest : public ::testing::Test {
protected:
    static constexpr int W = 40, H = 30;
    explicit ReplayTest(uint32_t seed) : m_picture(OpaqueNoise(W, H, seed)) {}
    void SetUp() override { m_in = SavePicture(m_dir.File("in.bmp"), m_picture); }

    CliResult Replay(const std::string& script, const std::string& out)
    {
        const std::string path = m_dir.File("script.txt");
        std::ofstream(path) << script;
        return RunCli("replay " + Quote(m_in) + " " + Quote(path) + " -o " + Quote(out));
    }

    // A script that must run through; the failure shows what the program said.
    ::testing::AssertionResult ReplayOk(const std::string& script, const std::string& out)
    {
        const CliResult r = Replay(script, out);
        if (r.exitCode == 0) return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "exit " << r.exitCode << "\n" << r.output;
    }

    // Each script with the text its refusal must hold.
    void ExpectRefused(const std::vector<std::pair<std::string, std::string>>& scripts)
    {
        const std::string out = m_dir.File("refused.png");
        for (const auto& [script, says] : scripts) {
            const CliResult r = Replay(script, out);
            EXPECT_EQ(r.exitCode, 1) << script << "\n" << r.output;
            EXPECT_NE(r.output.find(says), std::string::npos) << script << "\n" << r.output;
            EXPECT_FALSE(std::filesystem::exists(out)) << script;
        }
    }

    TempDir m_dir;
    COLImage m_picture;
    std::string m_in;
};

} // namespace vmtest
