// How well the backdrop key cuts out real photographs whose alpha we know: the evaluation set of
// tests/data/matting (see its README). Each figure has a ceiling a little above what the engine reaches today, so
// that a change which makes the cut-outs worse fails here.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "imaging/codec.h"
#include "matting/batch_key.h"
#include "matting/chroma_key.h"
#include "support/matting_checks.h"
#include "support/test_support.h"

namespace {

struct Figures {
    double alphaSad = 0;        // sum of |alpha - true alpha| / 255, in whole pixels
    double alphaMeanPct = 0;    // the same per pixel, in percent
    double colourError = 0;     // mean |colour - true colour| per channel where the true alpha is at least half
    double edgeColourError = 0; // the same on the soft rim and strands (true alpha 26..229)
};

// Runs the key with the panel's defaults. The backdrop is picked where a user would click (10 %, 10 %, the
// batch's default point too), or with autoColour estimated from the border as the batch's automatic mode does.
bool Measure(const std::string& name, bool autoColour, Figures& f)
{
    vmtest::KeyShot s;
    COLImage keyed;
    if (!vmtest::LoadKeyShot(name, s)) return false;
    ChromaKeyParams params;
    params.backdrop = autoColour ? CChromaKeyProcess::EstimateBackdropColour(s.picture)
                                 : batchkey::ColourAtPercent(s.picture, 10, 10);
    CChromaKeyProcess process;
    process.SetImages(&s.picture, &keyed);
    if (process.Process(&params) != kOk) return false;

    const uint32_t w = s.picture.GetWidth(), h = s.picture.GetHeight();
    double sad = 0, colour = 0, edge = 0;
    size_t colourCount = 0, edgeCount = 0;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            const CPixel k = keyed.GetPixel2(x, y);
            const CPixel t = s.photo.GetPixel2(s.x + x, s.y + y);
            const int a = s.truth.GetPixel2(x, y).red;   // gray: the true alpha
            sad += std::abs(int(k.alpha) - a);
            const double d =
                (std::abs(k.red - t.red) + std::abs(k.green - t.green) + std::abs(k.blue - t.blue)) / 3.0;
            if (a >= 128) {
                colour += d;
                ++colourCount;
            }
            if (a > 25 && a < 230) {
                edge += d;
                ++edgeCount;
            }
        }
    f.alphaSad = sad / 255.0;
    f.alphaMeanPct = 100.0 * f.alphaSad / (double(w) * h);
    f.colourError = colourCount ? colour / double(colourCount) : 0;
    f.edgeColourError = edgeCount ? edge / double(edgeCount) : 0;
    std::printf("%-6s %-6s alpha SAD %7.1f px (%5.2f %% a pixel), colour error %5.2f, on the rim %5.2f\n",
                name.c_str(), autoColour ? "auto" : "picked", f.alphaSad, f.alphaMeanPct, f.colourError, f.edgeColourError);
    return true;
}

struct Ceiling {
    const char* name;
    bool autoColour;
    double alphaMeanPct, colourError, edgeColourError;
};

} // namespace

TEST(KeyQuality, EvaluationSetStaysWithinItsCeilings)
{
    // Measured figures plus a tenth; the figures themselves are in docs/chroma-key.md.
    const Ceiling ceilings[] = {
        // name, auto colour, alpha error % a pixel, colour error, rim colour error
        {"green", false, 5.5, 4.8, 39.1},
        {"blue", false, 7.2, 5.2, 30.8},
        {"gray", false, 21.6, 16.3, 44.3},
        {"white", false, 21.5, 9.8, 70.5},
        {"green", true, 6.1, 4.8, 39.2},
        {"blue", true, 6.7, 5.2, 30.6},
        {"gray", true, 21.7, 16.8, 44.5},
        {"white", true, 38.2, 9.9, 70.3},
    };
    for (const Ceiling& limit : ceilings) {
        Figures f;
        ASSERT_TRUE(Measure(limit.name, limit.autoColour, f)) << limit.name;
        const std::string what = std::string(limit.name) + (limit.autoColour ? " auto" : " picked");
        EXPECT_LE(f.alphaMeanPct, limit.alphaMeanPct) << what;
        EXPECT_LE(f.colourError, limit.colourError) << what;
        EXPECT_LE(f.edgeColourError, limit.edgeColourError) << what;
    }
}
