// Speed of the refined matte: 1 megapixel with an unknown band of about 10 % of the picture, beside OpenCV's
// information-flow matting on the same input (the baseline, where installed), and 12 megapixels with a 2 % band.
//
//   build-bench/bench/bench_refine --benchmark_min_time=0.01
#include <benchmark/benchmark.h>

#include <cmath>

#include "bench_support.h"
#include "matting/refined_matte.h"

#ifdef VM_HAVE_ALPHAMAT
#include <opencv2/core.hpp>
// after core.hpp, which defines its export macros
#include <opencv2/alphamat.hpp>
#endif

namespace {

constexpr double kPi = 3.14159265358979323846;

// A subject (one photo-like picture) over another, cut by a disc whose rim is frayed like hair, and a trimap whose
// unknown band covers bandShare of the picture around the rim.
struct Input {
    COLImage image;
    COLChannel trimap;
};

void MakeInput(Input& in, uint32_t width, uint32_t height, double bandShare)
{
    COLImage fore, back;
    vmbench::MakePhoto(fore, width, height, 3);
    vmbench::MakePhoto(back, width, height, 4);
    in.image.Create(width, height);
    in.trimap.Create(width, height);
    const double cx = width / 2.0, cy = height / 2.0, r0 = 0.35 * std::min(width, height);
    const double half = bandShare * width * height / (4 * kPi * r0);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) {
            const double dx = x + 0.5 - cx, dy = y + 0.5 - cy, r = std::hypot(dx, dy), t = std::atan2(dy, dx);
            const double edge = r0 + 0.4 * half * (std::sin(61 * t) + 0.5 * std::sin(173 * t));
            const double a = std::clamp(0.5 + (edge - r) / 2.5, 0.0, 1.0);
            const CPixel f = fore.GetPixel2(x, y), b = back.GetPixel2(x, y);
            auto mix = [a](uint8_t p, uint8_t q) { return uint8_t(a * p + (1 - a) * q + 0.5); };
            in.image.PutPixel(x, y, CPixel::Make(mix(f.red, b.red), mix(f.green, b.green), mix(f.blue, b.blue), 255));
            in.trimap.SetValue(x, y, std::fabs(r - r0) <= half ? 128 : (r < r0 ? 255 : 0));
        }
}

void BM_Refine(benchmark::State& state, uint32_t width, uint32_t height, double share)
{
    Input in;
    MakeInput(in, width, height, share);
    for (auto _ : state) {
        COLChannel alpha;
        COLImage fore;
        if (SolveRefinedMatte(in.image, in.trimap, alpha, &fore, RefinedMatteParams{}) != kOk)
            state.SkipWithError("refined matte failed");
        benchmark::DoNotOptimize(alpha.GetBuffer());
    }
}

#ifdef VM_HAVE_ALPHAMAT
void BM_InfoFlow(benchmark::State& state, uint32_t width, uint32_t height, double share)
{
    Input in;
    MakeInput(in, width, height, share);
    cv::Mat bgr(int(height), int(width), CV_8UC3);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) {
            const CPixel p = in.image.GetPixel2(x, y);
            bgr.at<cv::Vec3b>(int(y), int(x)) = cv::Vec3b(p.blue, p.green, p.red);
        }
    const cv::Mat tri = cv::Mat(int(height), int(width), CV_8UC1, in.trimap.GetBuffer()).clone();
    for (auto _ : state) {
        cv::Mat out;
        cv::alphamat::infoFlow(bgr, tri, out);
        benchmark::DoNotOptimize(out.data);
    }
}
BENCHMARK_CAPTURE(BM_InfoFlow, 1mp_band10, 1000u, 1000u, 0.10)->Unit(benchmark::kMillisecond)->Iterations(1);
#endif

BENCHMARK_CAPTURE(BM_Refine, 1mp_band10, 1000u, 1000u, 0.10)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(BM_Refine, 12mp_band2, vmbench::kPhotoWidth, vmbench::kPhotoHeight, 0.02)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

} // namespace

int main(int argc, char** argv) { return vmbench::RunWithRatios(argc, argv, "BM_InfoFlow"); }
