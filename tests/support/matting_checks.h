#pragma once

// Pictures and runs the matting tests share, the engine tests and the command-line tests alike: a subject with
// its two contours, a soft subject on a keying backdrop, one contour-matting run, a shot of the keying evaluation
// set, and the shape of a progress log.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "matting/contour_matting.h"
#include "support/engine_checks.h"
#include "support/test_support.h"

namespace vmtest {

// A photo-like picture, noise over a warm ellipse in the middle and a cool background, with the inner and outer
// contours bandWidth pixels (across) inside and outside the ellipse's edge.
struct ContourScene {
    COLImage photo;
    COLChannel inner, outer;
};

inline ContourScene EllipseScene(uint32_t w, uint32_t h, int bandWidth)
{
    ContourScene s;
    FillNoise(s.photo, w, h, 7);
    s.inner.Create(w, h);
    s.outer.Create(w, h);
    const double cx = w / 2.0, cy = h / 2.0, rx = w / 4.0, ry = h / 4.0;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            const double dx = (x - cx) / rx, dy = (y - cy) / ry;
            const double r = std::sqrt(dx * dx + dy * dy);
            CPixel& p = s.photo.GetBuffer()[size_t(y) * w + x];
            // Subject warm, background cool, noise on both; alpha opaque as a photo is.
            if (r < 1.0) {
                p.red = uint8_t(150 + p.red / 4);
                p.green = uint8_t(80 + p.green / 8);
            } else {
                p.blue = uint8_t(140 + p.blue / 4);
                p.red = uint8_t(p.red / 6);
            }
            p.alpha = 255;
            const double band = double(bandWidth) / rx;
            s.inner.GetBuffer()[size_t(y) * w + x] = r < 1.0 - band ? 255 : 0;
            s.outer.GetBuffer()[size_t(y) * w + x] = r < 1.0 + band ? 255 : 0;
        }
    return s;
}

// One contour-matting run on copies of the planes (the run inverts the outer one), with its doubt plane, the
// reason of a failure and the growing steps; the progress goes to log when one is given.
struct ContourMatteRun {
    long code;
    COLImage image;
    COLChannel doubt;
    CContourMattingProcess::Failure failure;
    int growSteps[2];
};

inline ContourMatteRun ContourMatte(const COLImage& photo, const COLChannel& inner, const COLChannel& outer,
                                    ProgressLog* log = nullptr)
{
    ContourMatteRun r;
    COLChannel in = Copy(inner), out = Copy(outer);
    CContourMattingProcess p;
    p.SetImages(const_cast<COLImage*>(&photo), &r.image);
    p.AddChannel(&r.doubt);
    if (log) {
        p.SetProgressCallback(log->Callback());
        p.SetProgressRange(0, 100);
    }
    ContourMattingParams params;
    params.innerPlane = &in;
    params.outerPlane = &out;
    r.code = p.Process(&params);
    r.failure = p.GetFailure();
    r.growSteps[0] = p.GetGrowSteps(0);
    r.growSteps[1] = p.GetGrowSteps(1);
    return r;
}

// A soft disc of warm colours over a backdrop with a little noise, opaque: every step of a key has work.
inline COLImage KeyScene(CPixel backdrop, uint32_t w, uint32_t h, uint32_t seed)
{
    COLImage img = Noise(w, h, seed);
    const double cx = w * 0.5, cy = h * 0.55, r = std::min(w, h) * 0.3;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            CPixel* p = img.GetBuffer(x, y);
            const int noise = int(p->red % 7) - 3;
            const double d = std::hypot(x - cx, y - cy);
            const double a = std::clamp((r - d) / 3.0 + 0.5, 0.0, 1.0);
            const int fr = 40 + int(x * 180 / w), fg = 60 + int(y * 120 / h), fb = 30;
            p->red = uint8_t(std::clamp(int(fr * a + backdrop.red * (1 - a)) + noise, 0, 255));
            p->green = uint8_t(std::clamp(int(fg * a + backdrop.green * (1 - a)) + noise, 0, 255));
            p->blue = uint8_t(std::clamp(int(fb * a + backdrop.blue * (1 - a)) + noise, 0, 255));
            p->alpha = 255;
        }
    return img;
}

// A shot of the keying evaluation set (tests/data/matting/key_set.txt and its README): the picture to key, its
// true alpha as a gray picture, and the photograph it was cut from with the crop's corner, which holds the
// subject's true colours. False when the set has no such shot or a file is missing or of the wrong size.
struct KeyShot {
    COLImage picture, truth, photo;
    uint32_t x = 0, y = 0;
};

inline bool LoadKeyShot(const std::string& name, KeyShot& shot)
{
    std::ifstream set(DataPath("matting/key_set.txt"));
    std::string line;
    while (std::getline(set, line)) {
        std::istringstream fields(line);
        std::string first, photo;
        uint32_t w = 0, h = 0;
        if (!(fields >> first >> photo >> shot.x >> shot.y >> w >> h) || first != name) continue;
        shot.picture = Load(DataPath("matting/key_" + name + ".jpg"));
        shot.truth = Load(DataPath("matting/key_" + name + "_alpha.png"));
        shot.photo = Load(AssetPath("samples/" + photo));
        return Size(shot.picture) == Size(shot.truth) && shot.picture.GetWidth() == w &&
               shot.picture.GetHeight() == h && shot.photo.GetWidth() >= shot.x + w &&
               shot.photo.GetHeight() >= shot.y + h;
    }
    return false;
}

// A progress log that stays in lo..hi, never goes back and ends at hi.
inline ::testing::AssertionResult RisesTo(const std::vector<int>& values, int lo, int hi)
{
    if (values.empty()) return ::testing::AssertionFailure() << "no progress reported";
    for (size_t i = 0; i < values.size(); ++i) {
        if (values[i] < lo || values[i] > hi)
            return ::testing::AssertionFailure() << "report " << i << " is " << values[i] << ", outside " << lo
                                                 << ".." << hi;
        if (i && values[i] < values[i - 1])
            return ::testing::AssertionFailure() << "report " << i << " goes back from " << values[i - 1] << " to "
                                                 << values[i];
    }
    if (values.back() != hi) return ::testing::AssertionFailure() << "the last report is " << values.back();
    return ::testing::AssertionSuccess();
}

} // namespace vmtest
