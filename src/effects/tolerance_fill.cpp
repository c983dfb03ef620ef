#include "effects/tolerance_fill.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "imaging/result.h"

namespace {

inline bool HasZeroByte(uint64_t w)
{
    return ((w - 0x0101010101010101ull) & ~w & 0x8080808080808080ull) != 0;
}

} // namespace

long ToleranceFlood(const COLImage& layer, int ox, int oy, int seedX, int seedY, int tolerance, COLChannel& plane)
{
    const int lw = int(layer.GetWidth()), lh = int(layer.GetHeight());
    const int cw = int(plane.GetWidth()), ch = int(plane.GetHeight());
    if (layer.IsNull() || plane.IsNull() || seedX < 0 || seedY < 0 || seedX >= lw || seedY >= lh) return kOk;
    const int seedCx = seedX + ox, seedCy = seedY + oy;
    if (seedCx < 0 || seedCy < 0 || seedCx >= cw || seedCy >= ch) return kOk;
    const CPixel ref = layer.GetPixel2(uint32_t(seedX), uint32_t(seedY));

    // Membership of a neighbour by its distance |dR| + |dG| + |dB| to the seed's colour: the ramp
    // (tol - dist) * 510 / tol only decides whether it is above 0, since a joined pixel is set to 255 when its
    // turn comes. Worked out once for every distance there is.
    const int tol = tolerance, half = tolerance / 2;
    uint8_t joinsAt[3 * 255 + 1];
    for (int dist = 0; dist <= 3 * 255; ++dist)
        joinsAt[dist] = dist > tol ? 0 : dist > half ? uint8_t((tol - dist) * 510 / tol != 0) : 1;
    const int rr = ref.red, rg = ref.green, rb = ref.blue;
    auto joins = [&joinsAt, rr, rg, rb](const CPixel& p) {
        return joinsAt[std::abs(int(p.red) - rr) + std::abs(int(p.green) - rg) + std::abs(int(p.blue) - rb)] != 0;
    };

    // Layer columns that lie on the canvas; rows likewise.
    const int xLo = std::max(0, -ox), xHi = std::min(lw, cw - ox); // [xLo, xHi)
    const int yLo = std::max(0, -oy), yHi = std::min(lh, ch - oy);
    uint8_t* const cells = plane.GetBuffer();
    const ptrdiff_t stride = cw;
    // The cell of layer pixel (x, y) is cellRow(y)[x].
    auto cellRow = [&](int y) { return cells + ptrdiff_t(y + oy) * stride + ox; };

    // The walk's moves depend on position only, so what it reaches does not depend on the order of the steps:
    // a scanline fill gives the same set. Within a row the moves left and right are bounded by fixed columns
    // (left while the canvas column is above 1, right while x < lw - ox - 1), a row expands at all only while
    // ox + y stays inside the canvas height, up needs a canvas row above 1, down y < lh - oy - 1. Every pixel
    // that joins is marked at once, and a run of them is handed on as one span whose ends are then extended.
    const int leftStop = 1 - ox;       // x must stay above this to step left
    const int rightStop = lw - ox - 1; // x must stay below this to step right
    auto expands = [&](int y) { return y + oy >= 0 && ox + y <= ch - 1; };
    struct Span {
        int y, l, r;
    };
    std::vector<Span> stack;
    try {
        stack.reserve(1024);
        cellRow(seedY)[seedX] = 255;
        if (expands(seedY)) stack.push_back({seedY, seedX, seedX});
        while (!stack.empty()) {
            const Span span = stack.back();
            stack.pop_back();
            const int y = span.y;
            int l = span.l, r = span.r;
            {
                uint8_t* cell = cellRow(y);
                const CPixel* pix = layer.GetBuffer(0, uint32_t(y));
                const int leftLimit = std::max(leftStop, xLo); // l - 1 >= xLo and l > leftStop
                while (l > leftLimit && cell[l - 1] == 0 && joins(pix[l - 1])) cell[--l] = 255;
                const int rightLimit = std::min(rightStop, xHi - 1); // r + 1 < xHi and r < rightStop
                while (r < rightLimit && cell[r + 1] == 0 && joins(pix[r + 1])) cell[++r] = 255;
            }
            // Neighbour rows: each run of pixels that can join is marked and becomes a span. A pixel a step
            // cannot reach from its run (right of rightStop) is a span of its own; in a row that does not
            // expand the pixels are only marked.
            const auto seedRow = [&](int ny) {
                if (ny < yLo || ny >= yHi) return;
                const bool grows = expands(ny);
                uint8_t* cell = cellRow(ny);
                const CPixel* pix = layer.GetBuffer(0, uint32_t(ny));
                const int from = std::max(l, xLo), to = std::min(r, xHi - 1);
                int i = from;
                while (i <= to) {
                    // Taken cells end runs; skip them eight at a time.
                    while (i + 8 <= to + 1) {
                        uint64_t w;
                        std::memcpy(&w, cell + i, 8);
                        if (HasZeroByte(w)) break;
                        i += 8;
                    }
                    if (i > to) break;
                    if (cell[i] != 0 || !joins(pix[i])) {
                        ++i;
                        continue;
                    }
                    const int start = i;
                    cell[i++] = 255;
                    if (!grows || start > rightStop) {
                        if (grows) stack.push_back({ny, start, start});
                        continue;
                    }
                    while (i <= to && i <= rightStop && cell[i] == 0 && joins(pix[i])) cell[i++] = 255;
                    stack.push_back({ny, start, i - 1});
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
