#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>

#include "runtime/parallel_for.h"

// Row loops of the keyers over the shared core split. Only for passes whose rows are independent (each output
// byte depends on inputs that the pass does not write), so the bytes are the same on any number of cores.
namespace keyrows {

// fn(y0, y1) over [begin, end); passes of under about 16K pixels stay on the calling thread.
inline void ForRows(int begin, int end, size_t rowPixels, const std::function<void(int, int)>& fn)
{
    if (end <= begin) return;
    const size_t minRows = std::max<size_t>(1, (size_t(1) << 14) / std::max<size_t>(1, rowPixels));
    vmpar::ParallelFor(size_t(end - begin), minRows,
                       [&](size_t b, size_t e, unsigned) { fn(begin + int(b), begin + int(e)); });
}

// [0, height) in bands of bandRows, each band split across cores; after(y0, y1) runs on the calling thread when
// a band is done, which keeps progress reports in order and on one thread.
inline void ForBands(int height, int bandRows, size_t rowPixels, const std::function<void(int, int)>& fn,
                     const std::function<void(int, int)>& after)
{
    for (int y0 = 0; y0 < height; y0 += bandRows) {
        const int y1 = std::min(height, y0 + bandRows);
        ForRows(y0, y1, rowPixels, fn);
        after(y0, y1);
    }
}

} // namespace keyrows
