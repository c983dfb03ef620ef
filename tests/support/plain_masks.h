#pragma once

// The mask and merge arithmetic of the selection edits written out plainly, for the tests of the commands, the
// command line and the editor that each check an edit's bytes against it.

#include <algorithm>
#include <cstdint>
#include <vector>

namespace vmtest {

// The expansion of a w x h mask by r: the largest value in the (2r + 1)-square around each pixel, clipped to
// the mask.
inline std::vector<uint8_t> PlainExpand(const std::vector<uint8_t>& mask, int w, int h, int r)
{
    std::vector<uint8_t> out(mask.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t v = 0;
            for (int j = std::max(0, y - r); j <= std::min(h - 1, y + r); ++j)
                for (int i = std::max(0, x - r); i <= std::min(w - 1, x + r); ++i)
                    v = std::max(v, mask[size_t(j) * w + i]);
            out[size_t(y) * w + x] = v;
        }
    return out;
}

// A colour c of alpha a merged over an opaque pixel p: the opaque result mixes with + 127 rounding.
inline uint8_t OverOpaque(int c, int p, int a)
{
    return uint8_t((c * a + p * (255 - a) + 127) / 255);
}

} // namespace vmtest
