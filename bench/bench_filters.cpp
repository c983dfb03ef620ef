// The shared blur and resampling filters on a 12-megapixel photo, beside OpenCV's nearest equivalents when
// OpenCV is installed (cv::GaussianBlur with the same sigma, cv::resize bilinear and area). Arguments pair each
// of ours with its baseline: sigma 1, 2 and 17; 50 and 200 for half and double size; 25 for a quarter.
#include <benchmark/benchmark.h>

#include "bench_support.h"
#include "filters/resample.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "matting/gaussian.h"

#ifdef VM_HAVE_OPENCV
// OpenCV 4.6's headers mix enumeration types in arithmetic, which C++20 warns about.
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

const COLChannel& PhotoPlane()
{
    static COLChannel plane;
    if (plane.IsNull()) plane.ExtractFrom(&Photo(), 1);
    return plane;
}

int Percent(uint32_t side, int64_t percent) { return int(side * percent / 100); }

void Gaussian(benchmark::State& state)
{
    COLImage src, dst;
    src.DuplicateFrom(&Photo());
    CGaussianProcess g;
    g.SetImages(&src, &dst);
    const double sigma = double(state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(g.Process(&sigma));
}
BENCHMARK(Gaussian)->Arg(1)->Arg(2)->Arg(17)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// The plane mode has no OpenCV counterpart here; its ratios are to the image baselines of the same sigma.
void GaussianPlane(benchmark::State& state)
{
    COLChannel dst;
    CGaussianProcess g;
    g.SetChannels(const_cast<COLChannel*>(&PhotoPlane()), &dst);
    const double sigma = double(state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(g.ProcessChannel(&sigma));
}
BENCHMARK(GaussianPlane)->Arg(1)->Arg(2)->Arg(17)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void ResampleImage(benchmark::State& state)
{
    COLImage dst;
    const int w = Percent(vmbench::kPhotoWidth, state.range(0)), h = Percent(vmbench::kPhotoHeight, state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(ResampleImage(&Photo(), &dst, w, h));
}
BENCHMARK(ResampleImage)->Arg(50)->Arg(200)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void ShrinkImageArea(benchmark::State& state)
{
    COLImage dst;
    const int w = Percent(vmbench::kPhotoWidth, state.range(0)), h = Percent(vmbench::kPhotoHeight, state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(ShrinkImageArea(&Photo(), &dst, w, h));
}
BENCHMARK(ShrinkImageArea)->Arg(25)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

#ifdef VM_HAVE_OPENCV
cv::Mat PhotoMat() { return cv::Mat(int(vmbench::kPhotoHeight), int(vmbench::kPhotoWidth), CV_8UC4, Photo().GetBuffer()); }

void OpenCV_GaussianBlur(benchmark::State& state)
{
    const cv::Mat src = PhotoMat();
    cv::Mat dst;
    const double sigma = double(state.range(0));
    for (auto _ : state) cv::GaussianBlur(src, dst, cv::Size(0, 0), sigma);
}
BENCHMARK(OpenCV_GaussianBlur)->Arg(1)->Arg(2)->Arg(17)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void OpenCV_ResizeLinear(benchmark::State& state)
{
    const cv::Mat src = PhotoMat();
    cv::Mat dst;
    const cv::Size size(Percent(vmbench::kPhotoWidth, state.range(0)), Percent(vmbench::kPhotoHeight, state.range(0)));
    for (auto _ : state) cv::resize(src, dst, size, 0, 0, cv::INTER_LINEAR);
}
BENCHMARK(OpenCV_ResizeLinear)->Arg(50)->Arg(200)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void OpenCV_ResizeArea(benchmark::State& state)
{
    const cv::Mat src = PhotoMat();
    cv::Mat dst;
    const cv::Size size(Percent(vmbench::kPhotoWidth, state.range(0)), Percent(vmbench::kPhotoHeight, state.range(0)));
    for (auto _ : state) cv::resize(src, dst, size, 0, 0, cv::INTER_AREA);
}
BENCHMARK(OpenCV_ResizeArea)->Arg(25)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();
#endif

} // namespace

int main(int argc, char** argv)
{
    // The photo is made once, before any timing starts.
    PhotoPlane();
    return vmbench::RunWithRatios(argc, argv, "OpenCV_");
}
