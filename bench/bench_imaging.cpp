// Whole-picture passes of the imaging core against a plain copy of the same bytes.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "bench_support.h"
#include "imaging/bitmap16.h"
#include "imaging/image.h"

namespace {

const COLImage& Photo()
{
    static COLImage photo;
    if (photo.IsNull()) vmbench::MakePhoto(photo, vmbench::kPhotoWidth, vmbench::kPhotoHeight);
    return photo;
}

void Baseline_Memcpy(benchmark::State& state)
{
    const COLImage& src = Photo();
    std::vector<uint8_t> dst(src.GetAreaByteSize());
    for (auto _ : state) {
        std::memcpy(dst.data(), src.GetBuffer(), dst.size());
        benchmark::DoNotOptimize(dst.data());
    }
}
BENCHMARK(Baseline_Memcpy)->Unit(benchmark::kMillisecond);

void DuplicateFrom(benchmark::State& state)
{
    COLImage dst;
    for (auto _ : state) dst.DuplicateFrom(&Photo());
}
BENCHMARK(DuplicateFrom)->Unit(benchmark::kMillisecond);

void BuildGrayChannel(benchmark::State& state)
{
    COLImage img;
    img.DuplicateFrom(&Photo());
    for (auto _ : state) benchmark::DoNotOptimize(img.BuildGrayChannel());
}
BENCHMARK(BuildGrayChannel)->Unit(benchmark::kMillisecond);

void ComputeLaplasToAlpha(benchmark::State& state)
{
    COLImage img;
    img.DuplicateFrom(&Photo());
    for (auto _ : state) img.ComputeLaplasToAlpha();
}
BENCHMARK(ComputeLaplasToAlpha)->Unit(benchmark::kMillisecond);

void SmartConvert16(benchmark::State& state)
{
    C16BitBitmap bmp;
    for (auto _ : state) bmp.ConvertFromSimpleBitmap(&Photo(), 1);
}
BENCHMARK(SmartConvert16)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) { return vmbench::RunWithRatios(argc, argv, "Baseline_"); }
