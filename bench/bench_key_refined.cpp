// The refined backdrop key on a 12-megapixel photo against the classic key on the same picture in the same run.
// Argument: the backdrop, 0 white (the classic key's luma path), 1 green (its hue path). Every ratio compares
// the refined key with the classic key on the same backdrop; all cores are used.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "bench_support.h"
#include "imaging/image.h"
#include "matting/chroma_key.h"
#include "matting/refined_key.h"

namespace {

CPixel Backdrop(int64_t kind) { return kind ? CPixel::Make(46, 168, 72) : CPixel::Make(244, 244, 242); }

// The shared photo cut out by a soft-edged body with hair-like strands (2 to 4 pixels wide, curved, 150 to 450
// pixels long), over a backdrop lit unevenly, with noise: what a portrait on a backdrop looks like at 12 MP.
void MakeShot(COLImage& shot, CPixel backdrop)
{
    const COLImage& photo = vmbench::SharedPhoto();
    const int w = int(photo.GetWidth()), h = int(photo.GetHeight());
    std::vector<float> alpha(size_t(w) * size_t(h));
    const float cx = w * 0.5f, cy = h * 0.7f, rx = w * 0.3f, ry = h * 0.55f;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const float dx = (x + 0.5f - cx) / rx, dy = (y + 0.5f - cy) / ry;
            const float rho = std::sqrt(dx * dx + dy * dy);
            alpha[size_t(y) * size_t(w) + size_t(x)] = std::clamp((1.0f - rho) * (rx + ry) * 0.5f / 6.0f + 0.5f, 0.0f, 1.0f);
        }
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    for (int strand = 0; strand < 160; ++strand) {
        const float theta = float(-M_PI) * (0.05f + 0.9f * u(rng));
        float px = cx + std::cos(theta) * rx * 0.97f, py = cy + std::sin(theta) * ry * 0.97f;
        float heading = theta + (u(rng) - 0.5f), bend = (u(rng) - 0.5f) * 0.01f;
        const int length = 150 + int(300 * u(rng));
        const float half = 1.0f + 1.0f * u(rng), opacity = 0.6f + 0.4f * u(rng);
        for (int step = 0; step < length; ++step) {
            heading += bend;
            px += std::cos(heading);
            py += std::sin(heading);
            for (int y = int(py - half - 2); y <= int(py + half + 2); ++y)
                for (int x = int(px - half - 2); x <= int(px + half + 2); ++x) {
                    if (x < 0 || y < 0 || x >= w || y >= h) continue;
                    const float d = std::hypot(x + 0.5f - px, y + 0.5f - py);
                    float& a = alpha[size_t(y) * size_t(w) + size_t(x)];
                    a = std::max(a, std::clamp(half + 0.5f - d, 0.0f, 1.0f) * opacity);
                }
        }
    }
    shot.Create(uint32_t(w), uint32_t(h));
    std::normal_distribution<float> noise(0.0f, 1.6f);
    for (int y = 0; y < h; ++y) {
        const CPixel* p = photo.GetBuffer(0, uint32_t(y));
        CPixel* s = shot.GetBuffer(0, uint32_t(y));
        for (int x = 0; x < w; ++x) {
            const float a = alpha[size_t(y) * size_t(w) + size_t(x)];
            const float light = 0.93f + 0.06f * float(x) / float(w) + 0.04f * (1.0f - float(y) / float(h));
            auto mix = [&](int f, int b) {
                return uint8_t(std::clamp(f * a + b * light * (1 - a) + noise(rng) + 0.5f, 0.0f, 255.0f));
            };
            s[x] = CPixel::Make(mix(p[x].red, backdrop.red), mix(p[x].green, backdrop.green),
                                mix(p[x].blue, backdrop.blue));
        }
    }
}

const COLImage& Shot(int64_t kind)
{
    static COLImage shots[2];
    if (shots[kind].IsNull()) MakeShot(shots[kind], Backdrop(kind));
    return shots[kind];
}

void Baseline_ClassicKey(benchmark::State& state)
{
    COLImage src, dst;
    src.DuplicateFrom(&Shot(state.range(0)));
    ChromaKeyParams params;
    params.backdrop = Backdrop(state.range(0));
    CChromaKeyProcess process;
    process.SetImages(&src, &dst);
    for (auto _ : state)
        if (process.Process(&params) != kOk) state.SkipWithError("keying failed");
}

void RefinedKey(benchmark::State& state)
{
    COLImage src, dst;
    src.DuplicateFrom(&Shot(state.range(0)));
    ChromaKeySettings settings;
    settings.params.backdrop = Backdrop(state.range(0));
    CRefinedKeyProcess process;
    process.SetImages(&src, &dst);
    for (auto _ : state)
        if (process.Process(&settings) != kOk) state.SkipWithError("keying failed");
    size_t band = 0;
    const COLChannel& t = process.GetTrimap();
    for (uint32_t i = 0; i < t.GetAreaByteSize(); ++i) band += t.GetBuffer()[i] == 128;
    state.counters["band_pct"] = 100.0 * double(band) / double(t.GetAreaByteSize());
}

BENCHMARK(Baseline_ClassicKey)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(RefinedKey)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) { return vmbench::RunWithRatios(argc, argv, "Baseline_"); }
