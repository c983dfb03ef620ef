#pragma once

#include <cstdint>

#include "imaging/pixel.h"

// The small integer formulas that the backdrop keyers share. Each is part of the keyers' results, bit for bit,
// so they live in one place and are tested on their own.
namespace keymath {

// Luma of matting code: (3R + 6G + B) / 10, truncated.
inline int Luma(int r, int g, int b) { return (3 * r + 6 * g + b) / 10; }
inline int Luma(CPixel p) { return Luma(p.red, p.green, p.blue); }

// Distance of two hues on the 0..255 circle.
inline int CircularDiff(int a, int b)
{
    int d = a > b ? a - b : b - a;
    return d > 128 ? 256 - d : d;
}

// Hue of a colour on 0..255 as the hue key measures it. The division truncates toward zero and the result
// wraps as a byte, so a red with G below B lands just under 256.
inline uint8_t KeyHue(int r, int g, int b)
{
    int mx = r > g ? r : g;
    if (b > mx) mx = b;
    int mn = r < g ? r : g;
    if (b < mn) mn = b;
    if (mx == mn) return 0;
    const int d = (mx - mn) * 6;
    int h;
    if (r == mx) h = (g - b) * 255 / d;
    else if (g == mx) h = (b - r) * 255 / d + 85;
    else h = (r - g) * 255 / d - 86;
    return static_cast<uint8_t>(h);
}

// KeyHue without a division per pixel: the quotient (g - b) * 255 / (6 * (mx - mn)) and its kin come from a
// table of every spread and difference. Gives KeyHue's byte for every colour.
uint8_t KeyHueFast(int r, int g, int b);

// RecoverChannel with the division by alpha done as a multiply by a 64-bit reciprocal, exact for every input.
int RecoverChannelFast(int i, int b, int a);

// Lifts the middle of the alpha range; 0 and 255 stay.
void BuildAlphaMap(uint8_t map[256]);

// Weight of a hue difference: 255 at 0, a Gaussian of width strength * 32 / 100 + 1 with base 2.7188282.
void BuildHueWeight(int strength, int weight[256]);

// Maps alpha through the low and high levels; false (and no table) when the levels leave alpha as it is.
bool BuildLevelsTable(int levelLow, int levelHigh, uint8_t table[256]);

// Threshold of the luma key for the picker's strength slider (-1 counts as 32): 0 gives 17, 100 gives 83.
int LumaThreshold(int lumaStrength);

// The hue key's threshold: the number of histogram bins, from 0, it takes to hold a tenth of the pixels,
// moved by (strength - 50) / 4 and capped at 250. May be negative.
int KeyThreshold(const uint64_t histogram[256], uint64_t pixelCount, int strength);

// A key spread over threshold t: below t nothing, from 253 everything.
inline int RemapKey(int key, int t)
{
    if (key < t) return 0;
    if (key >= 253) return 255;
    return (key - t) * 255 / (252 - t);
}

// How much of the recovered colour survives spill removal at hue difference k (0..255): none near the
// backdrop's hue, all of it from 2 * lo + 8 (at most 64) on, with lo = strength * 4 / 10.
inline int SpillWeight(int k, int strength)
{
    const int lo = strength * 4 / 10;
    int hi = 2 * lo + 8;
    if (hi > 64) hi = 64;
    if (k < lo) return 0;
    if (k >= hi) return 255;
    return (k - lo) * 255 / (hi - lo);
}

// One channel of a colour seen through alpha a (1..255) over backdrop b, solved for the foreground.
inline int RecoverChannel(int i, int b, int a)
{
    const int f = (i * 255 - b * (255 - a)) / a;
    return f < 0 ? 0 : (f > 255 ? 255 : f);
}

} // namespace keymath
