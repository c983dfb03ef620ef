#include "shell/ruler_ticks.h"

#include <cmath>

#include "shell/view_geometry.h"

int RulerMajorStep(double zoom, int minSpacing)
{
    if (!(zoom > 0)) return 1;
    for (long decade = 1; decade <= 100000000; decade *= 10)
        for (int m : {1, 2, 5})
            if (m * decade * zoom >= minSpacing) return int(m * decade);
    return 1000000000;
}

std::vector<RulerTick> ComputeRulerTicks(double zoom, int origin, int clientOffset, int imageSize, int from, int to,
                                         int minSpacing)
{
    std::vector<RulerTick> ticks;
    if (!(zoom > 0) || imageSize <= 0 || to < from) return ticks;
    const int major = RulerMajorStep(zoom, minSpacing);
    // Minor marks split a major step in ten, five or two, whichever keeps them 4 pixels apart.
    int minor = major;
    for (int parts : {10, 5, 2})
        if (major % parts == 0 && (major / parts) * zoom >= 4) {
            minor = major / parts;
            break;
        }
    auto clientOf = [&](int v) { return TruncToInt((v - origin) * zoom + 0.5) + clientOffset; };
    // The image coordinates whose marks can fall between from and to.
    int first = int(std::floor((from - clientOffset) / zoom)) + origin - 1;
    int last = int(std::ceil((to - clientOffset) / zoom)) + origin + 1;
    if (first < 0) first = 0;
    if (last > imageSize) last = imageSize;
    for (int v = (first + minor - 1) / minor * minor; v <= last; v += minor) {
        const int c = clientOf(v);
        if (c < from || c > to) continue;
        ticks.push_back({c, v, v % major == 0});
    }
    return ticks;
}
