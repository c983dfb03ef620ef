// Contour matting and segmentation on a 12-megapixel photo, each beside a baseline measured in the same run:
// contour matting (a band of 2 % of the pixels round an ellipse) against one Gaussian blur of sigma 17 of the
// same picture (argument 1); the whole segmentation against OpenCV's cv::watershed on the same gradient, seeded
// with the connected basins below 8 (argument 2; only when OpenCV is installed).
#include <benchmark/benchmark.h>

#include <cmath>

#include "bench_support.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "matting/contour_matting.h"
#include "matting/gaussian.h"
#include "matting/segment.h"

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

// Contours 18 pixels either side of an ellipse of 1200 x 900 radii: a band of about 2 % of the picture.
void Contours(COLChannel& inner, COLChannel& outer)
{
    const uint32_t w = vmbench::kPhotoWidth, h = vmbench::kPhotoHeight;
    inner.Create(w, h);
    outer.Create(w, h);
    const double rx = 1200, ry = 900, d = 18;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            const double dx = x - w / 2.0, dy = y - h / 2.0;
            auto inside = [&](double grow) {
                const double a = (rx + grow), b = (ry + grow);
                return dx * dx / (a * a) + dy * dy / (b * b) < 1.0;
            };
            inner.SetValue(x, y, inside(-d) ? 255 : 0);
            outer.SetValue(x, y, inside(d) ? 255 : 0);
        }
}

void Baseline_Gaussian17(benchmark::State& state)
{
    COLImage src, dst;
    src.DuplicateFrom(&Photo());
    CGaussianProcess g;
    g.SetImages(&src, &dst);
    const double sigma = 17;
    for (auto _ : state) benchmark::DoNotOptimize(g.Process(&sigma));
}
BENCHMARK(Baseline_Gaussian17)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void ContourMatting(benchmark::State& state)
{
    COLImage src, dst;
    src.DuplicateFrom(&Photo());
    COLChannel inner, outer, work;
    Contours(inner, outer);
    size_t band = 0;
    for (size_t i = 0; i < src.GetPixelCount(); ++i) band += inner.GetBuffer()[i] == 0 && outer.GetBuffer()[i] != 0;
    CContourMattingProcess p;
    p.SetImages(&src, &dst);
    ContourMattingParams params;
    params.innerPlane = &inner;
    params.outerPlane = &work;
    for (auto _ : state) {
        state.PauseTiming();
        work.DuplicateFrom(&outer);   // the run inverts it
        state.ResumeTiming();
        if (p.Process(&params) != kOk) state.SkipWithError("contour matting failed");
    }
    state.counters["band_percent"] = 100.0 * double(band) / double(src.GetPixelCount());
    state.counters["steps"] = p.GetGrowSteps(0) + p.GetGrowSteps(1);
}
BENCHMARK(ContourMatting)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void Segment(benchmark::State& state)
{
    COLImage src, dst;
    src.DuplicateFrom(&Photo());
    CSegmentProcess p;
    p.SetImages(&src, &dst);
    for (auto _ : state)
        if (p.Process(nullptr) != kOk) state.SkipWithError("segmentation failed");
    state.counters["regions"] = p.GetRegionCount();
}
BENCHMARK(Segment)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

#ifdef VM_HAVE_OPENCV
// The flooding alone: the gradient our segmentation computes (as a gray three-channel picture, which is what
// cv::watershed takes) and markers from its connected basins below 8, both made before timing.
void Baseline_Watershed(benchmark::State& state)
{
    COLImage src, labels;
    src.DuplicateFrom(&Photo());
    CSegmentProcess p;
    p.SetImages(&src, &labels);
    p.Process(nullptr);
    const int w = int(vmbench::kPhotoWidth), h = int(vmbench::kPhotoHeight);
    cv::Mat gradient(h, w, CV_8UC1);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) gradient.at<uint8_t>(y, x) = labels.GetPixel2(uint32_t(x), uint32_t(y)).alpha;
    cv::Mat colour, basins, seeds, markers;
    cv::cvtColor(gradient, colour, cv::COLOR_GRAY2BGR);
    cv::compare(gradient, 8, basins, cv::CMP_LT);
    cv::connectedComponents(basins, seeds, 4, CV_32S);
    for (auto _ : state) {
        state.PauseTiming();
        seeds.copyTo(markers);
        state.ResumeTiming();
        cv::watershed(colour, markers);
    }
}
BENCHMARK(Baseline_Watershed)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();
#endif

} // namespace

int main(int argc, char** argv)
{
    Photo();
    return vmbench::RunWithRatios(argc, argv, "Baseline_");
}
