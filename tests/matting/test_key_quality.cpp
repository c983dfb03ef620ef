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
#include "support/test_support.h"

namespace {

struct Case {
    std::string name, photo;
    uint32_t x = 0, y = 0, w = 0, h = 0;
    uint32_t backdrop = 0;
};

std::vector<Case> LoadSet()
{
    std::vector<Case> cases;
    std::ifstream in(vmtest::DataPath("matting/key_set.txt"));
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        Case c;
        std::string colour;
        fields >> c.name >> c.photo >> c.x >> c.y >> c.w >> c.h >> colour;
        c.backdrop = uint32_t(std::stoul(colour, nullptr, 16));
        cases.push_back(c);
    }
    return cases;
}

struct Figures {
    double alphaSad = 0;        // sum of |alpha - true alpha| / 255, in whole pixels
    double alphaMeanPct = 0;    // the same per pixel, in percent
    double colourError = 0;     // mean |colour - true colour| per channel where the true alpha is at least half
    double edgeColourError = 0; // the same on the soft rim and strands (true alpha 26..229)
};

// Runs the key with the panel's defaults. The backdrop is picked where a user would click (10 %, 10 %, the
// batch's default point too), or with autoColour estimated from the border as the batch's automatic mode does.
bool Measure(const Case& c, bool autoColour, Figures& f)
{
    COLImageCodec codec;
    COLImage shot, alpha, photo, keyed;
    if (!codec.LoadFile(vmtest::DataPath("matting/key_" + c.name + ".jpg").c_str(), &shot)) return false;
    if (!codec.LoadFile(vmtest::DataPath("matting/key_" + c.name + "_alpha.png").c_str(), &alpha)) return false;
    if (!codec.LoadFile(vmtest::AssetPath("samples/" + c.photo).c_str(), &photo)) return false;
    if (shot.GetWidth() != c.w || alpha.GetWidth() != c.w || photo.GetWidth() < c.x + c.w) return false;

    ChromaKeyParams params;
    params.backdrop = autoColour ? CChromaKeyProcess::EstimateBackdropColour(shot)
                                 : batchkey::ColourAtPercent(shot, 10, 10);
    CChromaKeyProcess process;
    process.SetImages(&shot, &keyed);
    if (process.Process(&params) != kOk) return false;

    double sad = 0, colour = 0, edge = 0;
    size_t colourCount = 0, edgeCount = 0;
    for (uint32_t y = 0; y < c.h; ++y)
        for (uint32_t x = 0; x < c.w; ++x) {
            const CPixel k = keyed.GetPixel2(x, y);
            const CPixel t = photo.GetPixel2(c.x + x, c.y + y);
            const int a = alpha.GetPixel2(x, y).red;   // gray: the true alpha
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
    f.alphaMeanPct = 100.0 * f.alphaSad / (double(c.w) * c.h);
    f.colourError = colourCount ? colour / double(colourCount) : 0;
    f.edgeColourError = edgeCount ? edge / double(edgeCount) : 0;
    std::printf("%-6s %-6s alpha SAD %7.1f px (%5.2f %% a pixel), colour error %5.2f, on the rim %5.2f\n",
                c.name.c_str(), autoColour ? "auto" : "picked", f.alphaSad, f.alphaMeanPct, f.colourError, f.edgeColourError);
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
    const std::vector<Case> cases = LoadSet();
    ASSERT_GE(cases.size(), 4u);   // the figures below cover the first four
    for (const Ceiling& limit : ceilings) {
        const Case* c = nullptr;
        for (const Case& k : cases)
            if (k.name == limit.name) c = &k;
        ASSERT_NE(c, nullptr) << limit.name;
        Figures f;
        ASSERT_TRUE(Measure(*c, limit.autoColour, f)) << c->name;
        const std::string what = c->name + (limit.autoColour ? " auto" : " picked");
        EXPECT_LE(f.alphaMeanPct, limit.alphaMeanPct) << what;
        EXPECT_LE(f.colourError, limit.colourError) << what;
        EXPECT_LE(f.edgeColourError, limit.edgeColourError) << what;
    }
}
