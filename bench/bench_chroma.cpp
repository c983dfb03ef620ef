// The backdrop key on a 12-megapixel photo, both paths, against one Gaussian blur of sigma 1 of the same picture
// in the same run. Arguments: the number of cores (1, or all of them).
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>

#include "bench_support.h"
#include "imaging/image.h"
#include "matting/chroma_key.h"
#include "matting/gaussian.h"
#include "runtime/parallel_for.h"

namespace {

// A photo-like subject in a soft-edged ellipse with a few thin strands, over a lit, noisy backdrop.
void MakeShot(COLImage& shot, CPixel backdrop)
{
    COLImage photo;
    vmbench::MakePhoto(photo, vmbench::kPhotoWidth, vmbench::kPhotoHeight, 7);
    const uint32_t w = photo.GetWidth(), h = photo.GetHeight();
    shot.Create(w, h);
    std::mt19937 rng(3);
    std::normal_distribution<float> noise(0.0f, 2.0f);
    const float cx = w * 0.5f, cy = h * 0.62f, rx = w * 0.3f, ry = h * 0.45f;
    for (uint32_t y = 0; y < h; ++y) {
        const CPixel* p = photo.GetBuffer(0, y);
        CPixel* s = shot.GetBuffer(0, y);
        for (uint32_t x = 0; x < w; ++x) {
            const float dx = (x - cx) / rx, dy = (y - cy) / ry;
            const float rho = std::sqrt(dx * dx + dy * dy);
            float a = std::clamp((1.0f - rho) * (rx + ry) * 0.5f / 3.0f + 0.5f, 0.0f, 1.0f);
            if (x % 97 < 2 && rho < 1.15f) a = std::max(a, 0.7f);   // strands
            const float light = 0.93f + 0.1f * x / w;
            auto mix = [&](int f, int b) {
                const float v = f * a + b * light * (1 - a) + noise(rng);
                return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
            };
            s[x] = CPixel::Make(mix(p[x].red, backdrop.red), mix(p[x].green, backdrop.green),
                                mix(p[x].blue, backdrop.blue));
        }
    }
}

const COLImage& Shot(bool chromatic)
{
    static COLImage green, gray;
    COLImage& img = chromatic ? green : gray;
    if (img.IsNull()) MakeShot(img, chromatic ? CPixel::Make(46, 168, 72) : CPixel::Make(128, 128, 128));
    return img;
}

void Baseline_GaussianSigma1(benchmark::State& state)
{
    vmpar::SetWorkerCount(unsigned(state.range(0)));
    COLImage src, dst;
    src.DuplicateFrom(&Shot(true));
    CGaussianProcess blur;
    blur.SetImages(&src, &dst);
    const double sigma = 1.0;
    for (auto _ : state) blur.Process(&sigma);
    vmpar::SetWorkerCount(0);
}

void Key(benchmark::State& state, bool chromatic)
{
    vmpar::SetWorkerCount(unsigned(state.range(0)));
    COLImage src, dst;
    src.DuplicateFrom(&Shot(chromatic));
    ChromaKeyParams params;
    params.backdrop = chromatic ? CPixel::Make(46, 168, 72) : CPixel::Make(128, 128, 128);
    CChromaKeyProcess process;
    process.SetImages(&src, &dst);
    for (auto _ : state)
        if (process.Process(&params) != kOk) state.SkipWithError("keying failed");
    vmpar::SetWorkerCount(0);
}

void ChromaKey_HuePath(benchmark::State& state) { Key(state, true); }
void ChromaKey_LumaPath(benchmark::State& state) { Key(state, false); }

// One core, then every core the machine has.
void Cores(benchmark::internal::Benchmark* b)
{
    b->Arg(1);
    if (vmpar::WorkerCount() > 1) b->Arg(int(vmpar::WorkerCount()));
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(Baseline_GaussianSigma1)->Apply(Cores);
BENCHMARK(ChromaKey_HuePath)->Apply(Cores);
BENCHMARK(ChromaKey_LumaPath)->Apply(Cores);

} // namespace

int main(int argc, char** argv) { return vmbench::RunWithRatios(argc, argv, "Baseline_"); }
