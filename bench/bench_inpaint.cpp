// Smart inpaint on a 3-megapixel photo with a 600 x 400 hole in the middle, the case a user removing an object
// from a phone picture meets.
// Inpaint/0: the editor's fill (block measured from the hole, feathered); Inpaint/1: the classic arithmetic.
// Both include the block-size measurement, as the dialog does. The baseline is OpenCV's cv::inpaint (Telea,
// radius 3) on the same picture and hole, which diffuses colour rather than copying texture.
#include <benchmark/benchmark.h>
#include <cstring>

#include "bench_support.h"
#include "effects/patch_inpaint.h"
#include "runtime/status.h"

#ifdef VM_HAVE_OPENCV_PHOTO
#include <opencv2/imgproc.hpp>
#include <opencv2/photo.hpp>
#endif

namespace {

constexpr uint32_t kWidth = 2000, kHeight = 1500;
constexpr uint32_t kHoleLeft = 700, kHoleTop = 550, kHoleWidth = 600, kHoleHeight = 400;

const COLImage& Photo()
{
    static const COLImage photo = [] {
        COLImage p;
        vmbench::MakePhoto(p, kWidth, kHeight, 5);
        return p;
    }();
    return photo;
}

const COLChannel& Hole()
{
    static const COLChannel hole = [] {
        COLChannel m;
        m.Create(kWidth, kHeight);
        std::memset(m.GetBuffer(), 0, size_t(kWidth) * kHeight);
        for (uint32_t y = kHoleTop; y < kHoleTop + kHoleHeight; ++y)
            std::memset(m.GetBuffer(kHoleLeft, y), 255, kHoleWidth);
        return m;
    }();
    return hole;
}

void Inpaint(benchmark::State& state)
{
    COLImage dst;
    InpaintParams params;
    params.mask = &Hole();
    params.exact = int32_t(state.range(0));
    for (auto _ : state) {
        params.blockSize = CPatchInpaintProcess::EstimateBlockSize(Hole());
        CPatchInpaintProcess process;
        process.SetImages(const_cast<COLImage*>(&Photo()), &dst);
        if (process.Process(&params) != kOk) state.SkipWithError("inpaint failed");
    }
    state.counters["block"] = params.blockSize;
}
BENCHMARK(Inpaint)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

#ifdef VM_HAVE_OPENCV_PHOTO
void OpenCV_InpaintTelea(benchmark::State& state)
{
    cv::Mat bgra(int(kHeight), int(kWidth), CV_8UC4, const_cast<CPixel*>(Photo().GetBuffer())), bgr, out;
    cv::cvtColor(bgra, bgr, cv::COLOR_BGRA2BGR);
    const cv::Mat mask(int(kHeight), int(kWidth), CV_8UC1, Hole().GetBuffer());
    for (auto _ : state)
        cv::inpaint(bgr, mask, out, 3.0, cv::INPAINT_TELEA);
}
BENCHMARK(OpenCV_InpaintTelea)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();
#endif

} // namespace

int main(int argc, char** argv)
{
    Photo();
    Hole();
    return vmbench::RunWithRatios(argc, argv, "OpenCV_");
}
