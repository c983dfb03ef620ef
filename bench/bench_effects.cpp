// Lens blur and whole-picture scaling on a 12-megapixel photo, beside OpenCV in the same run.
//
// Lens blur: LensBlurFlat/R blurs every pixel at radius R (depth mode 0: diameter 2R everywhere), the costliest
// case being R 31 (diameter 62, the largest disc before the half-size pass); LensBlurRamp/R has a depth ramp from
// sharp at the bottom to 2R at the top. Both are compared with one cv::GaussianBlur of sigma 17 (whatever R).
// ScaleImage/M/P: method M (0 nearest, 1 codec resample, 2 bicubic) to P percent, against cv::resize with
// INTER_NEAREST, INTER_AREA (shrinking) or INTER_LINEAR (growing), and INTER_CUBIC.
#include <benchmark/benchmark.h>
#include <cstring>

#include "bench_support.h"
#include "effects/image_size.h"
#include "effects/lens_blur.h"
#include "effects/lens_blur_dialog.h"
#include "imaging/channel.h"
#include "imaging/image.h"

#ifdef VM_HAVE_OPENCV
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-enum-enum-conversion"
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#pragma GCC diagnostic pop
#endif

namespace {

const COLImage& Photo()
{
    return vmbench::SharedPhoto();
}

const COLChannel& Aperture()
{
    static COLChannel aperture;
    if (aperture.IsNull()) {
        COLImage picture;
        LoadAperturePicture(std::string(VM_ASSETS_DIR) + "/skin/lenblur.png", picture);
        ApertureShape(picture, kApertureHexagon, aperture);
    }
    return aperture;
}

void RunLensBlur(benchmark::State& state, bool ramp)
{
    COLChannel depth;
    depth.Create(vmbench::kPhotoWidth, vmbench::kPhotoHeight);
    for (uint32_t y = 0; y < vmbench::kPhotoHeight; ++y)
        std::memset(depth.GetBuffer(0, y), ramp ? int(255 - y * 255 / (vmbench::kPhotoHeight - 1)) : 255,
                    vmbench::kPhotoWidth);
    LensBlurParams params;
    params.aperture.DuplicateFrom(&Aperture());
    params.depth = &depth;
    params.radius = double(state.range(0));
    params.highlightThreshold = 250;
    params.highlightAmplitude = 30;
    COLImage dst;
    CLensBlurProcess process;
    process.SetImages(const_cast<COLImage*>(&Photo()), &dst);
    for (auto _ : state)
        benchmark::DoNotOptimize(process.Process(&params));
}

void LensBlurFlat(benchmark::State& state)
{
    RunLensBlur(state, false);
}
BENCHMARK(LensBlurFlat)
    ->Arg(17)
    ->Arg(31)
    ->Arg(64)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

void LensBlurRamp(benchmark::State& state)
{
    RunLensBlur(state, true);
}
BENCHMARK(LensBlurRamp)
    ->Arg(17)
    ->Arg(31)
    ->Arg(64)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

void ScaleImage(benchmark::State& state)
{
    COLImage dst;
    const int w = int(vmbench::kPhotoWidth * state.range(1) / 100),
              h = int(vmbench::kPhotoHeight * state.range(1) / 100);
    for (auto _ : state)
        benchmark::DoNotOptimize(ScaleImage(Photo(), dst, w, h, int(state.range(0))));
}
BENCHMARK(ScaleImage)
    ->Args({0, 50})
    ->Args({0, 200})
    ->Args({1, 50})
    ->Args({1, 200})
    ->Args({2, 50})
    ->Args({2, 200})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

#ifdef VM_HAVE_OPENCV
cv::Mat PhotoMat()
{
    return cv::Mat(int(vmbench::kPhotoHeight), int(vmbench::kPhotoWidth), CV_8UC4, Photo().GetBuffer());
}

// One baseline for every lens blur radius: the argument only pairs it with them.
void OpenCV_GaussianBlurSigma17(benchmark::State& state)
{
    const cv::Mat src = PhotoMat();
    cv::Mat dst;
    for (auto _ : state)
        cv::GaussianBlur(src, dst, cv::Size(0, 0), 17.0);
}
BENCHMARK(OpenCV_GaussianBlurSigma17)
    ->Arg(17)
    ->Arg(31)
    ->Arg(64)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

void OpenCV_Resize(benchmark::State& state)
{
    const cv::Mat src = PhotoMat();
    cv::Mat dst;
    const int percent = int(state.range(1));
    const cv::Size size(int(vmbench::kPhotoWidth * percent / 100), int(vmbench::kPhotoHeight * percent / 100));
    const int method = int(state.range(0));
    const int interpolation = method == 0     ? cv::INTER_NEAREST
                              : method == 2   ? cv::INTER_CUBIC
                              : percent < 100 ? cv::INTER_AREA
                                              : cv::INTER_LINEAR;
    for (auto _ : state)
        cv::resize(src, dst, size, 0, 0, interpolation);
}
BENCHMARK(OpenCV_Resize)
    ->Args({0, 50})
    ->Args({0, 200})
    ->Args({1, 50})
    ->Args({1, 200})
    ->Args({2, 50})
    ->Args({2, 200})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();
#endif

} // namespace

int main(int argc, char** argv)
{
    Photo();
    Aperture();
    return vmbench::RunWithRatios(argc, argv, "OpenCV_");
}
