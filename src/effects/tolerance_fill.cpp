#include "effects/tolerance_fill.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "imaging/result.h"

namespace {

// Membership is worked out for this many words of 64 pixels at a time: long enough for the memory to stream.
constexpr size_t kBlockWords = 4;

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
    // turn comes. It is above 0 for every distance up to a last one and for none beyond (the ramp falls with the
    // distance), so one comparison decides; -1 when nothing joins (a negative tolerance).
    const int tol = tolerance, half = tolerance / 2;
    int maxDist = -1;
    for (int dist = 0; dist <= 3 * 255; ++dist) {
        const bool joins = dist > tol ? false : dist > half ? (tol - dist) * 510 / tol != 0 : true;
        if (!joins) break;
        maxDist = dist;
    }
    const int rr = ref.red, rg = ref.green, rb = ref.blue;

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

    // Two bits per pixel of the rows on the canvas, 64 pixels to a word: whether it can join, and whether it
    // has joined (its cell is no longer 0; the plane comes zeroed). Whether it can join is worked out for 64
    // pixels at a time the first time the walk looks at any of them, so the picture is read in short
    // sequential runs, once; the walk itself then tests and takes whole words.
    const size_t wordsPerRow = (size_t(lw) + 63) / 64;
    std::unique_ptr<uint64_t[]> member;
    std::vector<uint8_t> known;
    std::vector<uint64_t> taken;
    const size_t blocksPerRow = (wordsPerRow + kBlockWords - 1) / kBlockWords;
    auto computeBlock = [&](int y, size_t block) {
        uint64_t* out = &member[size_t(y - yLo) * wordsPerRow];
        const int xEnd = std::min(lw, int((block + 1) * kBlockWords * 64));
        for (int x0 = int(block * kBlockWords * 64); x0 < xEnd; x0 += 64) {
            const int n = std::min(64, xEnd - x0);
            const CPixel* pix = layer.GetBuffer(uint32_t(x0), uint32_t(y));
            uint8_t flag[64] = {};
            for (int k = 0; k < n; ++k) {
                const int dist = std::abs(int(pix[k].red) - rr) + std::abs(int(pix[k].green) - rg) +
                                 std::abs(int(pix[k].blue) - rb);
                flag[k] = dist <= maxDist;
            }
            uint64_t bits = 0;
            for (int k = 0; k < 64; k += 8) {
                uint64_t w8;
                std::memcpy(&w8, flag + k, 8);
                bits |= ((w8 * 0x0102040810204080ull) >> 56) << k; // byte j's low bit to bit j
            }
            out[x0 / 64] = bits;
        }
        known[size_t(y - yLo) * blocksPerRow + block] = 1;
    };
    // Pixels of row y in word w that can join and have not.
    auto open = [&](int y, int w) {
        const size_t block = size_t(w) / kBlockWords;
        if (!known[size_t(y - yLo) * blocksPerRow + block]) computeBlock(y, block);
        const size_t i = size_t(y - yLo) * wordsPerRow + size_t(w);
        return member[i] & ~taken[i];
    };
    // Marks pixels a..b of row y as joined.
    auto take = [&](int y, int a, int b) {
        uint64_t* t = &taken[size_t(y - yLo) * wordsPerRow];
        const int wa = a >> 6, wb = b >> 6;
        const uint64_t head = ~0ull << (a & 63), tail = ~0ull >> (63 - (b & 63));
        if (wa == wb) {
            t[wa] |= head & tail;
        } else {
            t[wa] |= head;
            for (int w = wa + 1; w < wb; ++w) t[w] = ~0ull;
            t[wb] |= tail;
        }
        std::memset(cellRow(y) + a, 255, size_t(b - a + 1));
    };
    // The first column in [from, limit] that is not open, or limit + 1.
    auto openEnd = [&](int y, int from, int limit) {
        int p = from;
        while (p <= limit) {
            const uint64_t closed = ~open(y, p >> 6) >> (p & 63);
            if (closed) return std::min(p + std::countr_zero(closed), limit + 1);
            p = (p | 63) + 1;
        }
        return limit + 1;
    };
    // The last column in [limit, from] that is not open, going left, or limit - 1.
    auto openStart = [&](int y, int from, int limit) {
        int p = from;
        while (p >= limit) {
            const uint64_t closed = ~open(y, p >> 6) << (63 - (p & 63));
            if (closed) return std::max(p - std::countl_zero(closed), limit - 1);
            p = (p & ~63) - 1;
        }
        return limit - 1;
    };

    struct Span {
        int y, l, r;
    };
    std::vector<Span> stack;
    try {
        const size_t words = size_t(yHi - yLo) * wordsPerRow;
        member.reset(new uint64_t[words]);
        known.assign(size_t(yHi - yLo) * blocksPerRow, 0);
        taken.assign(words, 0);
        stack.reserve(1024);
        take(seedY, seedX, seedX);
        if (expands(seedY)) stack.push_back({seedY, seedX, seedX});
        while (!stack.empty()) {
            const Span span = stack.back();
            stack.pop_back();
            const int y = span.y;
            int l = span.l, r = span.r;
            const int leftLimit = std::max(leftStop, xLo); // l - 1 >= xLo and l > leftStop
            if (l > leftLimit) {
                const int nl = openStart(y, l - 1, leftLimit) + 1;
                if (nl < l) take(y, nl, l - 1);
                l = nl;
            }
            const int rightLimit = std::min(rightStop, xHi - 1); // r + 1 < xHi and r < rightStop
            if (r < rightLimit) {
                const int nr = openEnd(y, r + 1, rightLimit) - 1;
                if (nr > r) take(y, r + 1, nr);
                r = nr;
            }
            // Neighbour rows: each run of pixels that can join is taken and becomes a span (in a row that does
            // not expand the pixels are only taken). A run that reaches past rightStop is one span all the same:
            // its pixels there cannot step right, and stepping left they find their neighbours taken.
            const auto seedRow = [&](int ny) {
                if (ny < yLo || ny >= yHi) return;
                const bool grows = expands(ny);
                const int from = std::max(l, xLo), to = std::min(r, xHi - 1);
                int p = from;
                while (p <= to) {
                    int w = p >> 6;
                    uint64_t bits = open(ny, w) & (~0ull << (p & 63));
                    while (bits == 0 && (w + 1) * 64 <= to) bits = open(ny, ++w);
                    if (bits == 0) break;
                    const int a = w * 64 + std::countr_zero(bits);
                    if (a > to) break;
                    const int b = openEnd(ny, a, to) - 1;
                    take(ny, a, b);
                    if (grows) stack.push_back({ny, a, b});
                    p = b + 2; // b + 1 is not open
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
