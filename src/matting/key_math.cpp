#include "matting/key_math.h"

#include <cmath>

namespace keymath {

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
