#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

#include "interchange/packbits.h"

namespace {

// Rows with runs of every length around the packet limits, literals, and noise.
std::vector<std::vector<uint8_t>> Rows()
{
    std::vector<std::vector<uint8_t>> rows = {{}, {7}, {1, 1}, {1, 1, 1}, {1, 2, 2, 2, 3}};
    for (size_t n : {127u, 128u, 129u, 130u, 255u, 256u, 257u, 1000u}) {
        rows.push_back(std::vector<uint8_t>(n, 42));
        std::vector<uint8_t> lit(n);
        for (size_t i = 0; i < n; ++i)
            lit[i] = uint8_t(i * 7 + i / 3);
        rows.push_back(lit);
    }
    uint32_t seed = 99;
    for (int r = 0; r < 200; ++r) {
        std::vector<uint8_t> row;
        while (row.size() < 300) {
            seed = seed * 1103515245u + 12345u;
            const size_t len = 1 + (seed >> 16) % (seed & 1 ? 4 : 150);
            row.insert(row.end(), len, uint8_t(seed >> 24 & (r % 2 ? 1 : 255)));
        }
        rows.push_back(row);
    }
    return rows;
}

} // namespace

TEST(PackBits, EncodeDecodeRoundTripWithinTheBound)
{
    for (const auto& row : Rows()) {
        std::vector<uint8_t> packed(PackBitsBound(row.size()) + 1, 0xEE);
        const size_t n = EncodePackBits(packed.data(), row.data(), row.size());
        ASSERT_LE(n, PackBitsBound(row.size()));
        EXPECT_EQ(packed[PackBitsBound(row.size())], 0xEE); // nothing past the bound
        std::vector<uint8_t> back(row.size() + 8, 0);
        ASSERT_EQ(DecodePackBits(back.data(), row.size(), packed.data(), n), row.size());
        back.resize(row.size());
        ASSERT_EQ(back, row);
        for (size_t i = 0; i < n;) { // every packet is a legal one: no -128, no literal past the end
            const int h = int8_t(packed[i]);
            ASSERT_NE(h, -128);
            i += h >= 0 ? size_t(h) + 2 : 2;
            ASSERT_LE(i, n);
        }
    }
}

TEST(PackBits, RunsOfThreeOrMoreBecomeRepeats)
{
    const std::vector<uint8_t> run(300, 9);
    std::vector<uint8_t> packed(PackBitsBound(300));
    // 128 + 128 + 44: three repeat packets of two bytes.
    EXPECT_EQ(EncodePackBits(packed.data(), run.data(), run.size()), 6u);
    EXPECT_EQ(packed[0], 0x81);
    const std::vector<uint8_t> mixed = {5, 6, 6, 6, 6, 7};
    EXPECT_EQ(EncodePackBits(packed.data(), mixed.data(), mixed.size()), 6u);
    EXPECT_EQ(std::vector<uint8_t>(packed.begin(), packed.begin() + 6), (std::vector<uint8_t>{0, 5, 0xFD, 6, 0, 7}));
}

TEST(PackBits, DecodeStopsAtEitherEndAndSkipsTheNoOp)
{
    // A repeat of 100 into 10 bytes, a literal that runs past the input, a -128 no-op.
    const uint8_t repeat[] = {0x9D, 4};
    uint8_t out[16] = {};
    EXPECT_EQ(DecodePackBits(out, 10, repeat, sizeof repeat), 10u);
    EXPECT_EQ(out[9], 4);
    EXPECT_EQ(out[10], 0);
    const uint8_t cut[] = {0x80, 5, 1, 2};
    EXPECT_EQ(DecodePackBits(out, 16, cut, sizeof cut), 2u);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(out[1], 2);
    const uint8_t dangling[] = {0xFE};
    EXPECT_EQ(DecodePackBits(out, 16, dangling, sizeof dangling), 0u);
}
