// The two rasterisers behind the selection tools on a 12-megapixel photo, beside OpenCV when it is installed:
// the tolerance flood against cv::floodFill (mask only, fixed range, 4-connected) and the antialiased polygon
// fill against cv::fillPoly with LINE_AA. Arguments pair each of ours with its baseline: flood 1 on the photo
// from its centre, flood 2 on a flat picture that fills completely; polygon 16 and 400 corners.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "bench_support.h"
#include "effects/polygon_fill.h"
#include "effects/tolerance_fill.h"
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

constexpr int kTolerance = 40;

const COLImage& Picture(int which)
{
    static COLImage photo, flat;
    COLImage& image = which == 1 ? photo : flat;
    if (image.IsNull()) {
        if (which == 1) {
            vmbench::MakePhoto(image, vmbench::kPhotoWidth, vmbench::kPhotoHeight);
        } else {
            image.Create(vmbench::kPhotoWidth, vmbench::kPhotoHeight);
            for (size_t i = 0; i < image.GetPixelCount(); ++i) image.GetBuffer()[i] = CPixel::Make(90, 140, 60);
        }
    }
    return image;
}

// A star with jagged arms around the centre, most of the picture inside.
std::vector<CPolyPoint> Star(int corners)
{
    std::vector<CPolyPoint> points;
    const double cx = vmbench::kPhotoWidth / 2.0, cy = vmbench::kPhotoHeight / 2.0;
    for (int i = 0; i < corners; ++i) {
        const double a = 2 * M_PI * i / corners, r = (i % 2 ? 0.75 : 0.98) * cy;
        points.push_back({int(cx + r * 1.3 * std::cos(a)), int(cy + r * std::sin(a))});
    }
    points.push_back(points.front());
    return points;
}

void Flood(benchmark::State& state)
{
    const COLImage& image = Picture(int(state.range(0)));
    COLChannel plane;
    plane.Create(image.GetWidth(), image.GetHeight());
    for (auto _ : state) {
        std::memset(plane.GetBuffer(), 0, plane.GetAreaByteSize());
        benchmark::DoNotOptimize(ToleranceFlood(image, 0, 0, int(image.GetWidth() / 2), int(image.GetHeight() / 2),
                                                kTolerance, plane));
    }
}
BENCHMARK(Flood)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void Polygon(benchmark::State& state)
{
    const std::vector<CPolyPoint> star = Star(int(state.range(0)));
    COLChannel plane;
    plane.Create(vmbench::kPhotoWidth, vmbench::kPhotoHeight);
    for (auto _ : state) {
        std::memset(plane.GetBuffer(), 0, plane.GetAreaByteSize());
        benchmark::DoNotOptimize(FillPolygon(star.data(), star.size(), &plane));
    }
}
BENCHMARK(Polygon)->Arg(16)->Arg(400)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

#ifdef VM_HAVE_OPENCV
cv::Mat Bgr(int which)
{
    const COLImage& image = Picture(which);
    cv::Mat bgra(int(image.GetHeight()), int(image.GetWidth()), CV_8UC4, image.GetBuffer()), bgr;
    cv::cvtColor(bgra, bgr, cv::COLOR_BGRA2BGR);
    return bgr;
}

void OpenCV_Flood(benchmark::State& state)
{
    cv::Mat image = Bgr(int(state.range(0)));
    cv::Mat mask(image.rows + 2, image.cols + 2, CV_8UC1);
    // Our distance is the sum over three channels; a third of it per channel is the nearest fixed range.
    const cv::Scalar diff(kTolerance / 3, kTolerance / 3, kTolerance / 3);
    for (auto _ : state) {
        mask.setTo(0);
        benchmark::DoNotOptimize(cv::floodFill(image, mask, cv::Point(image.cols / 2, image.rows / 2), cv::Scalar(),
                                               nullptr, diff, diff,
                                               4 | cv::FLOODFILL_MASK_ONLY | cv::FLOODFILL_FIXED_RANGE | (255 << 8)));
    }
}
BENCHMARK(OpenCV_Flood)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void OpenCV_Polygon(benchmark::State& state)
{
    const std::vector<CPolyPoint> star = Star(int(state.range(0)));
    std::vector<cv::Point> points;
    for (const CPolyPoint& p : star) points.push_back({p.x, p.y});
    const std::vector<std::vector<cv::Point>> polygons = {points};
    cv::Mat mask(int(vmbench::kPhotoHeight), int(vmbench::kPhotoWidth), CV_8UC1);
    for (auto _ : state) {
        mask.setTo(0);
        cv::fillPoly(mask, polygons, cv::Scalar(255), cv::LINE_AA);
    }
}
BENCHMARK(OpenCV_Polygon)->Arg(16)->Arg(400)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();
#endif

} // namespace

int main(int argc, char** argv)
{
    Picture(1);
    Picture(2);
    return vmbench::RunWithRatios(argc, argv, "OpenCV_");
}
