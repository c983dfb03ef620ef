// Quality of the backdrop keys on the evaluation set of tests/data/matting (key_*: real photographs cut out by a
// known alpha with a soft rim and hair-like strands, over green, blue, gray, white, light-gray and black
// backdrops with uneven light, noise and a soft shadow; each as lossless PNG and as JPEG q85). Prints a Markdown
// table of SAD (sum of |alpha - truth| / 255, in pixels; lower is better) for the classic key, a plain
// HSV-distance key with a 5 x 5 Gaussian, and the refined key, and the colour error of the refined key's edge.
//
//   build-bench/bench/eval_key             backdrop picked at 10 %, 10 % as a click would
//   build-bench/bench/eval_key --auto      backdrop estimated from the border, as the batch's automatic mode
//   build-bench/bench/eval_key --sweep     also searches the HSV baseline's two thresholds over the whole set
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "imaging/codec.h"
#include "matting/batch_key.h"
#include "matting/chroma_key.h"
#include "matting/refined_key.h"

namespace {

const std::string kData = VM_TEST_DATA_DIR "/matting/";
const std::string kSamples = VM_ASSETS_DIR "/samples/";

struct Case {
    std::string name, photo;
    uint32_t x = 0, y = 0, w = 0, h = 0;
};

std::vector<Case> LoadSet()
{
    std::vector<Case> cases;
    std::ifstream in(kData + "key_set.txt");
    std::string line, colour;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        Case c;
        fields >> c.name >> c.photo >> c.x >> c.y >> c.w >> c.h >> colour;
        cases.push_back(c);
    }
    return cases;
}

// The plain baseline: each pixel's distance to the backdrop in the HSV cone (saturation and value scale the hue
// circle, so dark and gray colours lie close together as they look), mapped linearly between two thresholds to
// alpha, then a 5 x 5 Gaussian (binomial 1 4 6 4 1) over alpha. Thresholds are on the cone's 0..1 scale; the
// defaults are the best pair on the whole set (--sweep finds them again), so the baseline is at its strongest.
struct HsvThresholds {
    double low = 0.16, high = 0.24;
};

void Cone(double r, double g, double b, double out[3])
{
    const double mx = std::max({r, g, b}), mn = std::min({r, g, b});
    const double v = mx / 255.0, s = mx > 0 ? (mx - mn) / mx : 0.0;
    double hue = 0;
    if (mx > mn) {
        if (mx == r)
            hue = std::fmod((g - b) / (mx - mn) + 6.0, 6.0);
        else if (mx == g)
            hue = (b - r) / (mx - mn) + 2.0;
        else
            hue = (r - g) / (mx - mn) + 4.0;
    }
    const double angle = hue * M_PI / 3.0;
    out[0] = s * v * std::cos(angle);
    out[1] = s * v * std::sin(angle);
    out[2] = v;
}

void HsvKey(const COLImage& shot, CPixel backdrop, const HsvThresholds& t, COLChannel& alpha)
{
    const uint32_t w = shot.GetWidth(), h = shot.GetHeight();
    double b[3];
    Cone(backdrop.red, backdrop.green, backdrop.blue, b);
    std::vector<double> a(size_t(w) * h), tmp(a.size());
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            const CPixel p = shot.GetPixel2(x, y);
            double c[3];
            Cone(p.red, p.green, p.blue, c);
            const double d = std::sqrt((c[0] - b[0]) * (c[0] - b[0]) + (c[1] - b[1]) * (c[1] - b[1]) +
                                       (c[2] - b[2]) * (c[2] - b[2]));
            a[size_t(y) * w + x] = std::clamp((d - t.low) / (t.high - t.low), 0.0, 1.0);
        }
    static constexpr double kTaps[5] = {1, 4, 6, 4, 1};
    auto blur = [&](const std::vector<double>& in, std::vector<double>& out, bool rows) {
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x) {
                double sum = 0, weight = 0;
                for (int k = -2; k <= 2; ++k) {
                    const int64_t sx = rows ? int64_t(x) + k : x, sy = rows ? y : int64_t(y) + k;
                    if (sx < 0 || sy < 0 || sx >= w || sy >= h) continue;
                    sum += kTaps[k + 2] * in[size_t(sy) * w + size_t(sx)];
                    weight += kTaps[k + 2];
                }
                out[size_t(y) * w + x] = sum / weight;
            }
    };
    blur(a, tmp, true);
    blur(tmp, a, false);
    alpha.Create(w, h);
    for (size_t i = 0; i < a.size(); ++i) alpha.GetBuffer()[i] = uint8_t(a[i] * 255.0 + 0.5);
}

double Sad(const COLChannel& a, const COLChannel& truth)
{
    double sum = 0;
    for (uint32_t i = 0; i < a.GetAreaByteSize(); ++i) sum += std::abs(int(a.GetBuffer()[i]) - truth.GetBuffer()[i]);
    return sum / 255.0;
}

// Mean |colour - true colour| per channel over the soft rim and strands (true alpha 26..229): the fringe a
// cut-out shows over a new background.
double RimColourError(const COLImage& keyed, const COLImage& photo, const Case& c, const COLChannel& truth)
{
    double sum = 0;
    size_t count = 0;
    for (uint32_t y = 0; y < c.h; ++y)
        for (uint32_t x = 0; x < c.w; ++x) {
            const int a = truth.GetBuffer()[size_t(y) * c.w + x];
            if (a <= 25 || a >= 230) continue;
            const CPixel k = keyed.GetPixel2(x, y), t = photo.GetPixel2(c.x + x, c.y + y);
            sum += (std::abs(k.red - t.red) + std::abs(k.green - t.green) + std::abs(k.blue - t.blue)) / 3.0;
            ++count;
        }
    return count ? sum / double(count) : 0.0;
}

// The fringe a cut-out shows: on the rim and strands (true alpha 26..229), the mean difference per channel
// between the cut-out and the true subject, each put over a new background, averaged over a black and a white one.
double Fringe(const COLImage& keyed, const COLImage& photo, const Case& c, const COLChannel& truth)
{
    double sum = 0;
    size_t count = 0;
    for (uint32_t y = 0; y < c.h; ++y)
        for (uint32_t x = 0; x < c.w; ++x) {
            const int at = truth.GetBuffer()[size_t(y) * c.w + x];
            if (at <= 25 || at >= 230) continue;
            const CPixel k = keyed.GetPixel2(x, y), t = photo.GetPixel2(c.x + x, c.y + y);
            const double ak = k.alpha / 255.0, a = at / 255.0;
            for (double back : {0.0, 255.0}) {
                const int kc[3] = {k.red, k.green, k.blue}, tc[3] = {t.red, t.green, t.blue};
                for (int ch = 0; ch < 3; ++ch)
                    sum += std::abs((ak * kc[ch] + (1 - ak) * back) - (a * tc[ch] + (1 - a) * back)) / 6.0;
            }
            ++count;
        }
    return count ? sum / double(count) : 0.0;
}

struct Picture {
    std::string label;
    const Case* c = nullptr;
    COLImage shot, photo;
    COLChannel truth;
    CPixel backdrop;
};

} // namespace

int main(int argc, char** argv)
{
    bool autoColour = false, sweep = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--auto") autoColour = true;
        else if (a == "--sweep") sweep = true;
        else {
            std::fprintf(stderr, "usage: eval_key [--auto] [--sweep]\n");
            return 2;
        }
    }
    const std::vector<Case> cases = LoadSet();
    if (cases.empty()) {
        std::fprintf(stderr, "no evaluation set at %s\n", kData.c_str());
        return 1;
    }
    COLImageCodec codec;
    std::vector<Picture> pictures;
    for (const Case& c : cases)
        for (const char* ext : {"png", "jpg"}) {
            Picture p;
            p.label = c.name + (std::string(ext) == "jpg" ? ", JPEG" : ", PNG");
            p.c = &c;
            COLImage truth;
            if (!codec.LoadFile((kData + "key_" + c.name + "." + ext).c_str(), &p.shot) ||
                !codec.LoadFile((kData + "key_" + c.name + "_alpha.png").c_str(), &truth) ||
                !p.truth.ExtractFrom(&truth, 2) || !codec.LoadFile((kSamples + c.photo).c_str(), &p.photo)) {
                std::fprintf(stderr, "cannot read %s (%s)\n", c.name.c_str(), ext);
                return 1;
            }
            p.backdrop = autoColour ? CChromaKeyProcess::EstimateBackdropColour(p.shot)
                                    : batchkey::ColourAtPercent(p.shot, 10, 10);
            pictures.push_back(std::move(p));
        }

    HsvThresholds hsv;
    if (sweep) {
        double best = 1e30;
        for (double low = 0.0; low <= 0.16; low += 0.02)
            for (double high = low + 0.04; high <= 0.5; high += 0.04) {
                double total = 0;
                for (const Picture& p : pictures) {
                    COLChannel a;
                    HsvKey(p.shot, p.backdrop, {low, high}, a);
                    total += Sad(a, p.truth);
                }
                if (total < best) {
                    best = total;
                    hsv = {low, high};
                }
            }
        std::printf("HSV baseline thresholds by search: %.2f .. %.2f\n\n", hsv.low, hsv.high);
    }

    std::printf("| picture | classic | HSV + 5x5 Gaussian | refined | refined / classic | fringe classic | fringe "
                "refined | rim colour classic | rim colour refined |\n");
    std::printf("| --- | --- | --- | --- | --- | --- | --- | --- | --- |\n");
    double sums[3] = {0, 0, 0}, seconds[3] = {0, 0, 0};
    int beatsHsv = 0;
    for (const Picture& p : pictures) {
        double sad[3];
        COLImage refined, classic;
        for (int m = 0; m < 3; ++m) {
            const auto t0 = std::chrono::steady_clock::now();
            COLChannel a;
            if (m == 1) {
                HsvKey(p.shot, p.backdrop, hsv, a);
            } else {
                ChromaKeySettings s;
                s.params.backdrop = p.backdrop;
                s.refine = m == 2;
                COLImage shot, keyed;
                shot.DuplicateFrom(&p.shot);
                if (RunBackdropKey(s, shot, keyed) != kOk || !a.ExtractFrom(&keyed, 3)) {
                    std::fprintf(stderr, "%s: key failed\n", p.label.c_str());
                    return 1;
                }
                (m == 2 ? refined : classic) = std::move(keyed);
            }
            seconds[m] += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
            sad[m] = Sad(a, p.truth);
            sums[m] += sad[m];
        }
        beatsHsv += sad[2] < sad[1];
        std::printf("| %s | %.1f | %.1f | %.1f | %.2f | %.1f | %.1f | %.1f | %.1f |\n", p.label.c_str(), sad[0],
                    sad[1], sad[2], sad[2] / sad[0], Fringe(classic, p.photo, *p.c, p.truth),
                    Fringe(refined, p.photo, *p.c, p.truth), RimColourError(classic, p.photo, *p.c, p.truth),
                    RimColourError(refined, p.photo, *p.c, p.truth));
    }
    const double n = double(pictures.size());
    std::printf("| **mean** | **%.1f** | **%.1f** | **%.1f** | **%.2f** | | | | |\n", sums[0] / n, sums[1] / n, sums[2] / n,
                sums[2] / sums[0]);
    std::printf("\nrefined below the HSV baseline on %d of %zu pictures; HSV baseline / classic %.2f\n", beatsHsv,
                pictures.size(), sums[1] / sums[0]);
    std::printf("time for the whole set relative to the classic key: HSV %.2f, refined %.2f\n",
                seconds[1] / seconds[0], seconds[2] / seconds[0]);
    return 0;
}
