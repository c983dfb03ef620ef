#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "effects/frequency_extrapolation.h"
#include "support/runtime_limits.h"

namespace {

constexpr double kTwoPi = 6.283185307179586;

// Oblique stripes of periods 7 and 11 pixels (no whole number of them fits a window), amplitude 60 around 128.
float Stripes(int x, int y)
{
    return float(128.0 + 60.0 * std::sin(kTwoPi * x / 7.0 + kTwoPi * y / 11.0));
}

// A side x side grid of the stripes (channel k scaled by k + 1) with the cells where inHole says so unknown.
template <class InHole> FrequencyGrid StripedGrid(int side, int channels, InHole inHole)
{
    FrequencyGrid g;
    g.w = g.h = side;
    g.channels = channels;
    g.values.resize(size_t(side) * side * channels);
    g.known.resize(size_t(side) * side);
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
            const size_t i = size_t(y) * side + x;
            g.known[i] = !inHole(x, y);
            for (int k = 0; k < channels; ++k)
                g.values[i * channels + k] = g.known[i] ? Stripes(x, y) * float(k + 1) : 0.0f;
        }
    return g;
}

bool InBand(int x, int)
{
    return x >= 28 && x < 36;
}

TEST(FrequencyExtrapolation, CarriesATextureAcrossAGapWithItsPhase)
{
    FrequencyGrid g = StripedGrid(64, 1, InBand);
    const std::vector<uint8_t> reached = ExtrapolateFrequencies(g, FrequencyExtrapolation{});
    // The best smooth guess knows the mean only: its error is the stripes' own spread, 60 / sqrt(2), about 42.
    double sum = 0.0;
    int count = 0;
    for (int y = 0; y < 64; ++y)
        for (int x = 28; x < 36; ++x) {
            ASSERT_EQ(reached[size_t(y) * 64 + x], 1) << x << "," << y;
            const double e = g.values[size_t(y) * 64 + x] - Stripes(x, y);
            sum += e * e;
            ++count;
        }
    EXPECT_LT(std::sqrt(sum / count), 6.0);
}

TEST(FrequencyExtrapolation, KeepsKnownCellsAndMovesInwardPassByPass)
{
    auto square = [](int x, int y) { return x >= 10 && x < 70 && y >= 10 && y < 70; };
    const FrequencyGrid before = StripedGrid(80, 1, square);
    FrequencyGrid one = before, all = before;
    FrequencyExtrapolation params;
    params.passes = 1;
    const std::vector<uint8_t> first = ExtrapolateFrequencies(one, params);
    const std::vector<uint8_t> passes = ExtrapolateFrequencies(all, FrequencyExtrapolation{});
    const size_t rim = size_t(10) * 80 + 40, centre = size_t(40) * 80 + 40;
    EXPECT_EQ(first[rim], 1);
    EXPECT_EQ(first[centre], 0); // 30 pixels from the nearest known one: out of a single pass's reach
    EXPECT_EQ(one.values[centre], 0.0f);
    EXPECT_EQ(passes[rim], 1);
    EXPECT_GT(passes[centre], 1);
    EXPECT_LE(passes[centre], FrequencyExtrapolation{}.passes);
    for (size_t i = 0; i < before.known.size(); ++i)
        if (before.known[i]) {
            ASSERT_EQ(first[i], 0);
            ASSERT_EQ(passes[i], 0);
            ASSERT_EQ(all.values[i], before.values[i]);
        }
}

TEST(FrequencyExtrapolation, ChannelsAreFittedApartAndTheSplitDoesNotMatter)
{
    // Channel 1 is channel 0 doubled: the greedy choices do not depend on scale, so its estimate is doubled too.
    const FrequencyGrid start =
        StripedGrid(72, 2, [](int x, int y) { return (x - 36) * (x - 36) + (y - 30) * (y - 30) < 300; });
    std::vector<float> reference;
    vmtest::ForEachLevelAndSplit([&](const std::string& label) {
        FrequencyGrid g = start;
        ExtrapolateFrequencies(g, FrequencyExtrapolation{});
        if (reference.empty()) {
            reference = g.values;
            for (size_t i = 0; i < g.known.size(); ++i)
                if (!g.known[i]) {
                    ASSERT_NEAR(g.values[i * 2 + 1], 2.0f * g.values[i * 2], 0.05f) << i;
                }
        }
        EXPECT_EQ(std::memcmp(reference.data(), g.values.data(), reference.size() * sizeof(float)), 0) << label;
    });
}

TEST(FrequencyExtrapolation, LeavesAGridItCannotUseAsItWas)
{
    FrequencyGrid mismatched = StripedGrid(40, 1, InBand);
    mismatched.values.pop_back();
    const std::vector<float> values = mismatched.values;
    std::vector<uint8_t> reached = ExtrapolateFrequencies(mismatched, FrequencyExtrapolation{});
    EXPECT_EQ(mismatched.values, values);
    EXPECT_EQ(std::count(reached.begin(), reached.end(), uint8_t(0)), std::ptrdiff_t(reached.size()));

    FrequencyGrid empty = StripedGrid(40, 1, [](int, int) { return true; });
    reached = ExtrapolateFrequencies(empty, FrequencyExtrapolation{});
    EXPECT_EQ(std::count(reached.begin(), reached.end(), uint8_t(0)), std::ptrdiff_t(reached.size()));
    EXPECT_EQ(empty.values, std::vector<float>(empty.values.size(), 0.0f));
}

} // namespace
