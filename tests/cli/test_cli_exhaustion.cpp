// A picture at the largest size the program takes, on a machine without the memory for it: every command that
// works on it must end with a failure and a reason, never be killed by a signal, and leave no output behind.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <vector>
#include <zlib.h>

#include "support/runtime_limits.h"
#include "support/test_support.h"


namespace {

void Put32(std::vector<uint8_t>& out, uint32_t v)
{
    for (int s = 24; s >= 0; s -= 8) out.push_back(uint8_t(v >> s));
}

void Chunk(std::vector<uint8_t>& out, const char* type, const std::vector<uint8_t>& data)
{
    Put32(out, uint32_t(data.size()));
    const size_t start = out.size();
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), data.begin(), data.end());
    Put32(out, uint32_t(crc32(0, out.data() + start, uInt(out.size() - start))));
}

// A black side x side picture as a one-bit gray PNG: about 50 KB on disk for 20000 x 20000.
std::vector<uint8_t> BlackPng(uint32_t side)
{
    std::vector<uint8_t> png{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<uint8_t> ihdr;
    Put32(ihdr, side);
    Put32(ihdr, side);
    ihdr.insert(ihdr.end(), {1, 0, 0, 0, 0});   // 1 bit, gray, deflate, no filter method, not interlaced
    Chunk(png, "IHDR", ihdr);

    z_stream z{};
    EXPECT_EQ(deflateInit(&z, 9), Z_OK);
    const std::vector<uint8_t> row(1 + (side + 7) / 8, 0);   // filter byte and the row's bits
    std::vector<uint8_t> idat, buf(1 << 16);
    for (uint32_t y = 0; y <= side; ++y) {
        z.next_in = const_cast<Bytef*>(row.data());
        z.avail_in = y < side ? uInt(row.size()) : 0;
        const int flush = y < side ? Z_NO_FLUSH : Z_FINISH;
        int r;
        do {
            z.next_out = buf.data();
            z.avail_out = uInt(buf.size());
            r = deflate(&z, flush);
            idat.insert(idat.end(), buf.data(), buf.data() + (buf.size() - z.avail_out));
        } while (z.avail_out == 0 || (flush == Z_FINISH && r != Z_STREAM_END));
    }
    deflateEnd(&z);
    Chunk(png, "IDAT", idat);
    Chunk(png, "IEND", {});
    return png;
}

} // namespace

// One command per case: each reads the whole picture first, which takes a while on a busy machine.
class CliExhaustion : public ::testing::TestWithParam<const char*> {};

#ifdef VM_NO_ADDRESS_LIMIT
TEST_P(CliExhaustion, DISABLED_LargestPictureWithoutTheMemoryForIt) {}
#else
TEST_P(CliExhaustion, LargestPictureWithoutTheMemoryForIt)
{
    vmtest::TempDir dir;
    const std::string in = dir.File("huge.png"), out = dir.File("out.png");
    const std::vector<uint8_t> png = BlackPng(20000);
    ASSERT_LT(png.size(), size_t(200) << 10);
    vmtest::WriteAll(in, png);
    std::string args = GetParam();
    for (const auto& [from, to] : {std::pair<std::string, std::string>{"IN", vmtest::Quote(in)}, {"OUT", vmtest::Quote(out)}})
        args.replace(args.find(from), from.size(), to);
    // Under `ulimit -v` (kilobytes); exec, so the status is the program's own (-1: killed by a signal).
    std::string output;
    const int code = vmtest::Run("ulimit -v 3000000 && exec " + std::string(VM_CLI_PATH) + " " + args, output);
    EXPECT_EQ(code, 1) << args << "\n" << output;
    EXPECT_NE(output.find("not enough memory"), std::string::npos) << args << "\n" << output;
    EXPECT_FALSE(std::filesystem::exists(out)) << args;
}
#endif

INSTANTIATE_TEST_SUITE_P(Commands, CliExhaustion,
                         ::testing::Values("key IN -o OUT", "blur IN --sigma 3 -o OUT", "resample IN 20000x20000 -o OUT",
                                           "run IN Doc_FlipH -o OUT"));
