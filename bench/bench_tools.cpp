// The two rasterisers behind the selection tools on a 12-megapixel photo, beside OpenCV when it is installed:
// the tolerance flood against cv::floodFill (mask only, fixed range, 4-connected) and the antialiased polygon
// fill against cv::fillPoly with LINE_AA. Arguments pair each of ours with its baseline: flood 1 on the photo
// from its centre, flood 2 on a flat picture that fills completely, flood 3 on flat patches with mild noise and
// many round holes, where our summed distance and OpenCV's per-channel range take the same pixels (but for the
// first row and column, which our walk reaches only from the seed); on the photo they do not, and the counter
// "joined" gives the size of each one's region. Flood 4 is the photo again, with OpenCV's range widened to the
// smallest that joins at least as many pixels as ours: the same amount of work on both sides (counter "range"). Polygon 16 and 400 corners, each side doing what a new selection
// does: the plane cleared and the outline filled (ours in one pass, OpenCV's setTo and fillPoly).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
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

// Noise of at most 3 per channel on one colour, and discs of a far colour (3 to 40 pixels across) over about a
// third of the picture, the centre left free.
void MakeHoles(COLImage& image)
{
    const int w = int(vmbench::kPhotoWidth), h = int(vmbench::kPhotoHeight);
    image.Create(uint32_t(w), uint32_t(h));
    std::mt19937 rng(4);
    for (size_t i = 0; i < image.GetPixelCount(); ++i)
        image.GetBuffer()[i] =
            CPixel::Make(uint8_t(90 + rng() % 7 - 3), uint8_t(140 + rng() % 7 - 3), uint8_t(60 + rng() % 7 - 3));
    for (int k = 0; k < 14000; ++k) {
        const int cx = int(rng() % uint32_t(w)), cy = int(rng() % uint32_t(h)), r = 2 + int(rng() % 19);
        if (std::abs(cx - w / 2) < r + 2 && std::abs(cy - h / 2) < r + 2) continue;
        for (int y = std::max(0, cy - r); y <= std::min(h - 1, cy + r); ++y)
            for (int x = std::max(0, cx - r); x <= std::min(w - 1, cx + r); ++x)
                if ((x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r)
                    image.PutPixel(uint32_t(x), uint32_t(y), CPixel::Make(200, 40, 170));
    }
}

size_t Joined(const uint8_t* cells, size_t count)
{
    size_t n = 0;
    for (size_t i = 0; i < count; ++i) n += cells[i] == 255;
    return n;
}

const COLImage& Picture(int which)
{
    static COLImage photo, flat, holes;
    COLImage& image = which == 1 ? photo : which == 2 ? flat : holes;
    if (image.IsNull()) {
        if (which == 1) {
            vmbench::MakePhoto(image, vmbench::kPhotoWidth, vmbench::kPhotoHeight);
        } else if (which == 3) {
            MakeHoles(image);
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

// Flood 4 is flood 1 with OpenCV's range matched to our region.
int PictureOf(int flood) { return flood == 4 ? 1 : flood; }

void Flood(benchmark::State& state)
{
    const COLImage& image = Picture(PictureOf(int(state.range(0))));
    COLChannel plane;
    plane.Create(image.GetWidth(), image.GetHeight());
    for (auto _ : state) {
        std::memset(plane.GetBuffer(), 0, plane.GetAreaByteSize());
        benchmark::DoNotOptimize(ToleranceFlood(image, 0, 0, int(image.GetWidth() / 2), int(image.GetHeight() / 2),
                                                kTolerance, plane));
    }
    state.counters["joined"] = double(Joined(plane.GetBuffer(), plane.GetAreaByteSize()));
}
BENCHMARK(Flood)->Arg(1)->Arg(2)->Arg(3)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void Polygon(benchmark::State& state)
{
    const std::vector<CPolyPoint> star = Star(int(state.range(0)));
    COLChannel plane;
    plane.Create(vmbench::kPhotoWidth, vmbench::kPhotoHeight);
    for (auto _ : state) benchmark::DoNotOptimize(ClearAndFillPolygon(star.data(), star.size(), &plane));
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

int OpenCVFlood(const cv::Mat& image, cv::Mat& mask, int range)
{
    const cv::Scalar diff(range, range, range);
    mask.setTo(0);
    return cv::floodFill(image, mask, cv::Point(image.cols / 2, image.rows / 2), cv::Scalar(), nullptr, diff, diff,
                         4 | cv::FLOODFILL_MASK_ONLY | cv::FLOODFILL_FIXED_RANGE | (255 << 8));
}

void OpenCV_Flood(benchmark::State& state)
{
    const int flood = int(state.range(0));
    cv::Mat image = Bgr(PictureOf(flood));
    cv::Mat mask(image.rows + 2, image.cols + 2, CV_8UC1);
    // Our distance is the sum over three channels; a third of it per channel is the nearest fixed range.
    int range = kTolerance / 3;
    if (flood == 4) {
        // The region grows with the range, so a bisection finds the smallest that joins what ours joins.
        const COLImage& photo = Picture(1);
        COLChannel plane;
        plane.Create(photo.GetWidth(), photo.GetHeight());
        std::memset(plane.GetBuffer(), 0, plane.GetAreaByteSize());
        ToleranceFlood(photo, 0, 0, int(photo.GetWidth() / 2), int(photo.GetHeight() / 2), kTolerance, plane);
        const size_t ours = Joined(plane.GetBuffer(), plane.GetAreaByteSize());
        int lo = range, hi = 255;
        while (lo < hi) {
            const int mid = (lo + hi) / 2;
            OpenCVFlood(image, mask, mid);
            if (Joined(mask.ptr(), mask.total()) >= ours)
                hi = mid;
            else
                lo = mid + 1;
        }
        range = lo;
    }
    for (auto _ : state) benchmark::DoNotOptimize(OpenCVFlood(image, mask, range));
    state.counters["joined"] = double(Joined(mask.ptr(), mask.total()));
    state.counters["range"] = range;
}
BENCHMARK(OpenCV_Flood)->Arg(1)->Arg(2)->Arg(3)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

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
    Picture(3);
    return vmbench::RunWithRatios(argc, argv, "OpenCV_");
}
