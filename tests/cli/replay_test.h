#pragma once

#include <fstream>
#include <gtest/gtest.h>
#include <string>

#include "imaging/image.h"
#include "support/pictures.h"
#include "support/test_support.h"

namespace vmtest {

// A noisy opaque picture written as in.bmp, and scripts run on it by "replay" with the output named.
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

    TempDir m_dir;
    COLImage m_picture;
    std::string m_in;
};

} // namespace vmtest
