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

    std::vector<uint64_t> stack;
    try {
        stack.reserve(4096);
        stack.push_back(uint64_t(uint32_t(seedX)) << 32 | uint32_t(seedY));
        const auto visit = [&](int x, int y) {
            if (x < 0 || y < 0 || x >= lw || y >= lh) return;   // no layer pixel there
            const int cx = x + ox, cy = y + oy;
            if (cx < 0 || cy < 0 || cx >= cw || cy >= ch) return;   // no canvas cell
            uint8_t& cell = cells[size_t(cy) * size_t(cw) + size_t(cx)];
            if (cell != 0 || !joins(x, y)) return;
            cell = 1;   // a mark until the pixel is taken; the finished plane holds 255
            stack.push_back(uint64_t(uint32_t(x)) << 32 | uint32_t(y));
        };
        while (!stack.empty()) {
            const uint64_t top = stack.back();
            stack.pop_back();
            const int x = int(uint32_t(top >> 32)), y = int(uint32_t(top));
            const int cx = x + ox, cy = y + oy;
            if (cx >= 0 && cy >= 0 && cx < cw && cy < ch) cells[size_t(cy) * size_t(cw) + size_t(cx)] = 255;
            if (!(cx >= 0 && cx <= cw - 1 && cy >= 0 && ox + y <= ch - 1)) continue;
            if (cx > 1) visit(x - 1, y);
            if (cy > 1) visit(x, y - 1);
            if (x < lw - ox - 1) visit(x + 1, y);
            if (y < lh - oy - 1) visit(x, y + 1);
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
