#pragma once

#include <cstdint>
#include <vector>

// Frequency-selective extrapolation: the unknown cells of a grid estimated block by block from a sparse sum of
// Fourier basis functions fitted to the known cells around each block.
//
// Each block of `block` x `block` cells that holds an unknown one is looked at through a window of kWindow x kWindow
// cells centred on it. The known cells of the window are weighted by rho to the power of their distance from the
// block's centre (cells outside the grid weigh nothing), and a model is built greedily: each step picks the basis
// function (with its conjugate, so the model stays real) that removes the most weighted residual energy, low
// frequencies preferred, adds gamma times its fitted coefficient (gamma below 1 makes up for the basis functions not
// being orthogonal on the known cells alone) and takes its share out of the residual. Every step works in the
// frequency domain: the weighted residual's spectrum loses the coefficient times the weights' spectrum shifted to the
// chosen frequency. The model, transformed back, gives the block's unknown cells. A texture's strongest frequencies
// are thus carried into the hole with their phase, and a slope or a soft edge with them, as far as the window's known
// cells reach.
//
// Pass by pass the estimates move inwards: a pass estimates every block whose window holds enough trusted weight,
// and its estimates take part in the next pass at a reduced weight. Within a pass the blocks only read what earlier
// passes left, never each other, so they run in parallel and the result does not depend on the thread count. Two
// tilings offset by half a block are blended with weights that fall towards each block's edges, so no block seams
// show.
struct FrequencyGrid {
    int w = 0, h = 0, channels = 1;
    std::vector<float> values;  // channels per cell, row by row
    std::vector<uint8_t> known; // 1 where a value is given and kept
};

struct FrequencyExtrapolation {
    static constexpr int kWindow = 32; // a power of two
    int block = 8;                     // 1..kWindow
    int iterations = 40;               // basis functions (with their conjugates) chosen per block
    float rho = 0.6f;
    float gamma = 0.5f;
    // A block is estimated only when its window's trusted weight is at least this share of the weight the whole
    // window would have.
    float minKnownWeight = 0.1f;
    int passes = 7;
    float reuse = 0.5f; // the weight of an earlier pass's estimate against a known cell's
    int tilings = 2;    // 1, or 2 with the second offset by half a block
};

// Writes an estimate into every unknown cell that a pass reached and returns, per cell, the pass (1..passes) that
// estimated it, 0 where none did and on known cells. Known cells do not change.
std::vector<uint8_t> ExtrapolateFrequencies(FrequencyGrid& grid, const FrequencyExtrapolation& params);
