#pragma once

// Small helpers the engine tests share: planes made from a function of the position (pictures: pictures.h), blurs,
// and a recorder of the progress an engine reports.

#include <cstdint>
#include <vector>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "matting/gaussian.h"
#include "matting/image_process.h"
#include "support/pictures.h"
#include "support/test_support.h"

namespace vmtest {

// A w x h plane whose sample (x, y) is at(x, y).
template <class F> COLChannel PlaneOf(uint32_t w, uint32_t h, F at)
{
    COLChannel plane;
    plane.Create(w, h);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            plane.SetValue(x, y, uint8_t(at(x, y)));
    return plane;
}

// The shared Gaussian blur of a picture or a plane, which has its own tests; an empty result when it fails.
inline COLImage Blurred(const COLImage& src, double sigma)
{
    COLImage out;
    CGaussianProcess blur;
    blur.SetImages(const_cast<COLImage*>(&src), &out);
    if (blur.Process(&sigma) != kOk) out.Free();
    return out;
}

inline COLChannel Blurred(const COLChannel& src, double sigma)
{
    COLChannel out;
    CGaussianProcess blur;
    blur.SetChannels(const_cast<COLChannel*>(&src), &out);
    if (blur.ProcessChannel(&sigma) != kOk) out.Free();
    return out;
}

// The progress values (code 1) an engine reports, in order.
struct ProgressLog {
    std::vector<int> values;
    ProgressCallback Callback() { return ProgressCallback{&Record, this}; }
    static void Record(void* self, uint32_t code, int32_t value)
    {
        if (code == 1) static_cast<ProgressLog*>(self)->values.push_back(value);
    }
};

} // namespace vmtest
