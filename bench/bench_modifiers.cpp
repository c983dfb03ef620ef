// The selection modifiers on a 12-megapixel mask (the photo's green plane cut at 128, so it has the ragged
// edges of a real selection), beside OpenCV's nearest equivalents when OpenCV is installed:
// - the feather of composition at value 20 (a Gaussian of sigma 10) and cv::GaussianBlur of sigma 10 (arg 20);
// - expand and shrink by 10 (a 21 x 21 square) and cv::dilate / cv::erode with the round 21 x 21 element (arg 10).
#include <benchmark/benchmark.h>

#include "bench_support.h"
#include "effects/selection_modifiers.h"
#include "imaging/channel.h"

#ifdef VM_HAVE_OPENCV
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-enum-enum-conversion"
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#pragma GCC diagnostic pop
#endif

namespace {

const COLChannel& Mask()
{
    static COLChannel plane;
    if (plane.IsNull()) {
        plane.ExtractFrom(&vmbench::SharedPhoto(), 1);
        uint8_t* p = plane.GetBuffer();
        for (size_t i = 0; i < plane.GetAreaByteSize(); ++i)
            p[i] = p[i] >= 128 ? 255 : 0;
    }
    return plane;
}

void Feather(benchmark::State& state)
{
    COLChannel plane;
    for (auto _ : state) {
        state.PauseTiming();
        plane.DuplicateFrom(&Mask());
        state.ResumeTiming();
        benchmark::DoNotOptimize(FeatherPlane(plane, int32_t(state.range(0))));
    }
}
BENCHMARK(Feather)->Arg(20)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void Expand(benchmark::State& state)
{
    COLChannel dst;
    CExpandProcess process;
    process.SetChannels(const_cast<COLChannel*>(&Mask()), &dst);
    const int32_t amount = int32_t(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(process.ProcessChannel(&amount));
}
BENCHMARK(Expand)->Arg(10)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void Shrink(benchmark::State& state)
{
    COLChannel dst;
    CExpandProcess process;
    process.SetChannels(const_cast<COLChannel*>(&Mask()), &dst);
    const int32_t amount = -int32_t(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(process.ProcessChannel(&amount));
}
BENCHMARK(Shrink)->Arg(10)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

#ifdef VM_HAVE_OPENCV
cv::Mat MaskMat()
{
    return cv::Mat(int(vmbench::kPhotoHeight), int(vmbench::kPhotoWidth), CV_8UC1, Mask().GetBuffer());
}

void OpenCV_GaussianBlur(benchmark::State& state)
{
    const cv::Mat src = MaskMat();
    cv::Mat dst;
    const double sigma = double(state.range(0)) * 0.5;
    for (auto _ : state)
        cv::GaussianBlur(src, dst, cv::Size(0, 0), sigma);
}
BENCHMARK(OpenCV_GaussianBlur)->Arg(20)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

cv::Mat Round(int64_t r)
{
    return cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(int(2 * r + 1), int(2 * r + 1)));
}

void OpenCV_Dilate(benchmark::State& state)
{
    const cv::Mat src = MaskMat(), element = Round(state.range(0));
    cv::Mat dst;
    for (auto _ : state)
        cv::dilate(src, dst, element);
}
BENCHMARK(OpenCV_Dilate)->Arg(10)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void OpenCV_Erode(benchmark::State& state)
{
    const cv::Mat src = MaskMat(), element = Round(state.range(0));
    cv::Mat dst;
    for (auto _ : state)
        cv::erode(src, dst, element);
}
BENCHMARK(OpenCV_Erode)->Arg(10)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();
#endif

} // namespace

int main(int argc, char** argv)
{
    Mask();
    return vmbench::RunWithRatios(argc, argv, "OpenCV_");
}
