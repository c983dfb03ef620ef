#pragma once

#include <vector>

// Where the marks of a canvas ruler go. Image coordinate v sits at client position
// offset + round((v - origin) * zoom), the same mapping the canvas uses, so a mark lines up with the pixel
// edge it names at every zoom.
struct RulerTick {
    int client; // position along the ruler, in the canvas's client pixels
    int value;  // image coordinate
    bool major; // long mark with a number
};

// The labelled step in image pixels: 1, 2 or 5 times a power of ten, the smallest whose marks stand at least
// minSpacing client pixels apart.
int RulerMajorStep(double zoom, int minSpacing);

// Marks between client positions from and to (inclusive) for image coordinates 0..imageSize.
std::vector<RulerTick> ComputeRulerTicks(double zoom, int origin, int clientOffset, int imageSize, int from, int to,
                                         int minSpacing = 60);
