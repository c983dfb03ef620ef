#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

#include "interchange/packbits.h"
#include "support/runtime_limits.h"

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
    for (size_t n = 1; n <= 130; ++n) { // a literal of every length, then a run
        std::vector<uint8_t> row(n + 3, 200);
        for (size_t i = 0; i < n; ++i)
            row[i] = uint8_t(i * 7 + i / 3);
        rows.push_back(row);
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

// A row as the encoder packs it, cut to the bytes it wrote.
std::vector<uint8_t> Packed(const std::vector<uint8_t>& row)
{
    std::vector<uint8_t> packed(PackBitsBound(row.size()));
    packed.resize(EncodePackBits(packed.data(), row.data(), row.size()));
    return packed;
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
    // 128 + 128 + 44: three repeat packets of two bytes.
    EXPECT_EQ(Packed(std::vector<uint8_t>(300, 9)), (std::vector<uint8_t>{0x81, 9, 0x81, 9, 0xD5, 9}));
    EXPECT_EQ(Packed({5, 6, 6, 6, 6, 7}), (std::vector<uint8_t>{0, 5, 0xFD, 6, 0, 7}));
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

TEST(PackBits, EveryVectorLevelEncodesAsThePlainOne)
{
    // A run of 2, 3, 128 or 129 bytes at every offset across two 32-byte steps, in rows whose other bytes hold no
    // run of three, and in rows that end at, just after or inside the run, so runs straddle each step and row end.
    std::vector<std::vector<uint8_t>> rows;
    for (size_t len : {2u, 3u, 128u, 129u})
        for (size_t at = 0; at < 70; ++at)
            for (size_t tail : {0u, 1u, 2u, 37u}) {
                std::vector<uint8_t> row(at + len + tail);
                for (size_t i = 0; i < row.size(); ++i)
                    row[i] = uint8_t(i % 2 ? i : 255 - i);
                std::fill_n(row.begin() + std::ptrdiff_t(at), len, uint8_t(7));
                rows.push_back(row);
                row.resize(at + len - len / 2); // cut inside the run
                rows.push_back(row);
            }
    std::vector<std::vector<uint8_t>> plain;
    {
        vmtest::SimdCap cap(vmsimd::kPlain);
        for (const auto& row : rows)
            plain.push_back(Packed(row));
    }
    for (int level : {vmsimd::kSse2, vmsimd::kAvx2}) {
        vmtest::SimdCap cap(level);
        for (size_t r = 0; r < rows.size(); ++r)
            ASSERT_EQ(Packed(rows[r]), plain[r]) << "level " << level << ", row " << r << " of " << rows[r].size();
    }
}
