// Speed of the structure-aware fill: a 600 x 400 hole in a 3-megapixel photo, and a hole of 10 % of a
// 12-megapixel photo, each beside OpenCV's cv::inpaint (Telea) on the same input (the baseline, where installed).
//
//   build-bench/bench/bench_inpaint_refined --benchmark_min_time=0.01
#include <benchmark/benchmark.h>
#include <cstring>

#include "bench_support.h"
#include "effects/exemplar_inpaint.h"

#ifdef VM_HAVE_CV_PHOTO
#include <opencv2/core.hpp>
#include <opencv2/photo.hpp>
#endif

namespace {

// A photo with a centred rectangular hole of holeW x holeH.
struct Input {
    COLImage image;
    COLChannel mask;
};

const Input& GetInput(bool large)
{
    static Input inputs[2];
    Input& in = inputs[large ? 1 : 0];
    if (in.image.IsNull()) {
        uint32_t holeW = 600, holeH = 400;
        if (large) {
            in.image.DuplicateFrom(&vmbench::SharedPhoto());
            holeW = 1386; // 1386 x 866: 10.0 % of 4000 x 3000
            holeH = 866;
        } else {
            vmbench::MakePhoto(in.image, 2000, 1500, 5);
        }
        const uint32_t w = in.image.GetWidth(), h = in.image.GetHeight();
        in.mask.Create(w, h);
        std::memset(in.mask.GetBuffer(), 0, in.mask.GetAreaByteSize());
        for (uint32_t y = (h - holeH) / 2; y < (h + holeH) / 2; ++y)
            std::memset(in.mask.GetBuffer((w - holeW) / 2, y), 255, holeW);
    }
    return in;
}

void BM_Structure(benchmark::State& state, bool large)
{
    const Input& in = GetInput(large);
    ExemplarInpaintParams params;
    params.mask = &in.mask;
    for (auto _ : state) {
        COLImage out;
        if (ExemplarInpaint(in.image, in.mask, out, params) != kOk) state.SkipWithError("fill failed");
        benchmark::DoNotOptimize(out.GetBuffer());
    }
}

#ifdef VM_HAVE_CV_PHOTO
void BM_Telea(benchmark::State& state, bool large)
{
    const Input& in = GetInput(large);
    const int w = int(in.image.GetWidth()), h = int(in.image.GetHeight());
    cv::Mat bgr(h, w, CV_8UC3);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const CPixel p = in.image.GetPixel2(uint32_t(x), uint32_t(y));
            bgr.at<cv::Vec3b>(y, x) = cv::Vec3b(p.blue, p.green, p.red);
        }
    const cv::Mat mask = cv::Mat(h, w, CV_8UC1, in.mask.GetBuffer()).clone();
    for (auto _ : state) {
        cv::Mat out;
        cv::inpaint(bgr, mask, out, 3, cv::INPAINT_TELEA);
        benchmark::DoNotOptimize(out.data);
    }
}
BENCHMARK_CAPTURE(BM_Telea, 3mp_600x400, false)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(BM_Telea, 12mp_10pct, true)->Unit(benchmark::kMillisecond)->Iterations(1);
#endif

BENCHMARK_CAPTURE(BM_Structure, 3mp_600x400, false)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(BM_Structure, 12mp_10pct, true)->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace

int main(int argc, char** argv)
{
    return vmbench::RunWithRatios(argc, argv, "BM_Telea");
}
