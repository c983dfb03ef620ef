#include "effects/tolerance_fill.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "imaging/result.h"

long ToleranceFlood(const COLImage& layer, int ox, int oy, int seedX, int seedY, int tolerance, COLChannel& plane)
{
    const int lw = int(layer.GetWidth()), lh = int(layer.GetHeight());
    const int cw = int(plane.GetWidth()), ch = int(plane.GetHeight());
    if (layer.IsNull() || plane.IsNull() || seedX < 0 || seedY < 0 || seedX >= lw || seedY >= lh) return kOk;
    const CPixel ref = layer.GetPixel2(uint32_t(seedX), uint32_t(seedY));
    const int tol = tolerance, half = tolerance / 2;
    uint8_t* cells = plane.GetBuffer();

    // Membership of a neighbour: the ramp (tol - dist) * 510 / tol only decides whether it is above 0, since a
    // joined pixel is set to 255 when its turn comes.
    auto joins = [&](int x, int y) {
        const CPixel p = layer.GetPixel2(uint32_t(x), uint32_t(y));
        const int dist = std::abs(int(p.red) - ref.red) + std::abs(int(p.green) - ref.green) +
                         std::abs(int(p.blue) - ref.blue);
        if (dist > tol) return false;
        if (dist > half) return (tol - dist) * 510 / tol != 0;
        return true;
    };

    const size_t stride = size_t(cw);
    auto cell = [&](int x, int y) -> uint8_t& { return cells[size_t(y + oy) * stride + size_t(x + ox)]; };
    // A pixel can join: inside the layer and the canvas, not taken yet, close enough in colour.
    auto open = [&](int x, int y) {
        if (x < 0 || y < 0 || x >= lw || y >= lh) return false;
        const int cx = x + ox, cy = y + oy;
        if (cx < 0 || cy < 0 || cx >= cw || cy >= ch) return false;
        return cell(x, y) == 0 && joins(x, y);
    };
    const int seedCx = seedX + ox, seedCy = seedY + oy;
    if (seedCx < 0 || seedCy < 0 || seedCx >= cw || seedCy >= ch) return kOk;

    // The walk's moves depend on position only, so what it reaches does not depend on the order of the steps:
    // a scanline fill gives the same set. Within a row the moves left and right are bounded by fixed columns
    // (left while the canvas column is above 1, right while x < lw - ox - 1), a row expands at all only while
    // ox + y stays inside the canvas height, up needs a canvas row above 1, down y < lh - oy - 1.
    std::vector<uint64_t> stack;
    try {
        stack.reserve(1024);
        cell(seedX, seedY) = 255;
        stack.push_back(uint64_t(uint32_t(seedX)) << 32 | uint32_t(seedY));
        const int leftStop = 1 - ox;        // x must stay above this to step left
        const int rightStop = lw - ox - 1;  // x must stay below this to step right
        while (!stack.empty()) {
            const uint64_t top = stack.back();
            stack.pop_back();
            const int x = int(uint32_t(top >> 32)), y = int(uint32_t(top));
            if (!(y + oy >= 0 && ox + y <= ch - 1)) continue;
            int l = x, r = x;
            while (l > leftStop && open(l - 1, y)) cell(--l, y) = 255;
            while (r < rightStop && open(r + 1, y)) cell(++r, y) = 255;
            // Neighbour rows: one seed per run of pixels that can join, whose rightward steps reach the rest.
            // A pixel a step cannot reach (right of rightStop, or in a row that does not expand) is a seed of
            // its own.
            const auto seedRow = [&](int ny) {
                const bool expands = ny + oy >= 0 && ox + ny <= ch - 1;
                bool inRun = false;
                for (int i = l; i <= r; ++i) {
                    if (!open(i, ny)) {
                        inRun = false;
                        continue;
                    }
                    if (inRun && expands && i <= rightStop) continue;
                    cell(i, ny) = 255;
                    if (expands) stack.push_back(uint64_t(uint32_t(i)) << 32 | uint32_t(ny));
                    inRun = true;
                }
            };
            if (y + oy > 1) seedRow(y - 1);
            if (y < lh - oy - 1) seedRow(y + 1);
        }
    } catch (const std::bad_alloc&) {
        return kFail;
    }
    return kOk;
}

void SelectUncovered(const COLImage& layer, int ox, int oy, COLChannel& plane)
{
    if (plane.IsNull()) return;
    std::memset(plane.GetBuffer(), 255, plane.GetAreaByteSize());
    const int cw = int(plane.GetWidth()), ch = int(plane.GetHeight());
    for (int y = 0; y < int(layer.GetHeight()); ++y) {
        const int cy = y + oy;
        if (cy < 0 || cy >= ch) continue;
        const CPixel* row = layer.GetBuffer(0, uint32_t(y));
        uint8_t* out = plane.GetBuffer(0, uint32_t(cy));
        for (int x = 0; x < int(layer.GetWidth()); ++x) {
            const int cx = x + ox;
            if (cx >= 0 && cx < cw && row[x].alpha != 0) out[cx] = 0;
        }
    }
}
