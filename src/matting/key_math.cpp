#include "matting/key_math.h"

#include <algorithm>

#include <cmath>

namespace {

// quotient[spread][difference + 255] = difference * 255 / (6 * spread), truncated toward zero.
struct HueQuotients {
    int8_t q[256][511];
    HueQuotients()
    {
        for (int spread = 1; spread < 256; ++spread)
            for (int diff = -spread; diff <= spread; ++diff) q[spread][diff + 255] = int8_t(diff * 255 / (6 * spread));
    }
};

// ceil(2^32 / a): (n * m) >> 32 equals n / a for 0 <= n <= 255 * 255, since n (m a - 2^32) < 2^32 there.
struct Reciprocals {
    uint64_t m[256];
    Reciprocals()
    {
        m[0] = 0;
        for (uint64_t a = 1; a < 256; ++a) m[a] = ((uint64_t(1) << 32) + a - 1) / a;
    }
};

const HueQuotients g_hueQuotients;
const Reciprocals g_reciprocals;

} // namespace

namespace keymath {

uint8_t KeyHueFast(int r, int g, int b)
{
    const int mx = std::max(r, std::max(g, b)), mn = std::min(r, std::min(g, b));
    if (mx == mn) return 0;
    const int8_t* q = g_hueQuotients.q[mx - mn] + 255;
    if (r == mx) return static_cast<uint8_t>(q[g - b]);
    if (g == mx) return static_cast<uint8_t>(q[b - r] + 85);
    return static_cast<uint8_t>(q[r - g] - 86);
}

int RecoverChannelFast(int i, int b, int a)
{
    const int n = i * 255 - b * (255 - a);
    if (n <= 0) return 0;
    const int f = static_cast<int>((uint64_t(n) * g_reciprocals.m[a]) >> 32);
    return f > 255 ? 255 : f;
}

void BuildAlphaMap(uint8_t map[256])
{
    for (int i = 0; i < 256; ++i)
        map[i] = static_cast<uint8_t>((std::sqrt(i / 256.0) * 256.0 * (255 - i) + i * i) / 255.0);
}

void BuildHueWeight(int strength, int weight[256])
{
    const int s = strength * 32 / 100 + 1;
    for (int k = 0; k < 256; ++k)
        weight[k] = static_cast<int>(255.0 * std::pow(2.7188282, -(k * k) / (2.0 * s * s)));
}

bool BuildLevelsTable(int levelLow, int levelHigh, uint8_t table[256])
{
    if (levelLow == 0 && levelHigh == 255) return false;
    // Handles that meet (or a record from elsewhere with them crossed) make a hard step, not a division by 0.
    const int span = levelHigh > levelLow ? levelHigh - levelLow : 1;
    for (int i = 0; i < 256; ++i) {
        int v;
        if (i < levelLow) v = 0;
        else if (i > levelHigh) v = 255;
        else v = (i - levelLow) * 255 / span;
        table[i] = static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
    }
    return true;
}

int LumaThreshold(int lumaStrength)
{
    if (lumaStrength == -1) lumaStrength = 32;
    return (2 * lumaStrength - 100) / 3 + 50;
}

int KeyThreshold(const uint64_t histogram[256], uint64_t pixelCount, int strength)
{
    const uint64_t tenth = pixelCount / 10;
    uint64_t sum = 0;
    int t = 0;
    while (sum < tenth && t < 256) sum += histogram[t++];
    t += (strength - 50) / 4;
    return t > 250 ? 250 : t;
}

} // namespace keymath
