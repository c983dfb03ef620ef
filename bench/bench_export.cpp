// The JPEG quality dialog's size estimate on a 12-megapixel photo, against one plain TurboJPEG encode of the same
// picture at the same quality and subsampling in the same run. The dialog must show a new size within 0.3 s of a
// quality change; it encodes the whole picture (the size is that of the real file), so the estimate can be no
// cheaper than the baseline, and must be no dearer.
#include <benchmark/benchmark.h>
#include <turbojpeg.h>

#include "bench_support.h"
#include "imaging/image.h"
#include "interchange/compress_test.h"

namespace {

// Arguments: the writer's quality, 80 with 2x2 chroma subsampling, 180 for quality 80 in full colour.
void Baseline_TurboJpeg(benchmark::State& state)
{
    const COLImage& photo = vmbench::SharedPhoto();
    const int quality = static_cast<int>(state.range(0));
    tjhandle handle = tjInitCompress();
    for (auto _ : state) {
        unsigned char* out = nullptr;
        unsigned long size = 0;
        tjCompress2(handle, reinterpret_cast<const unsigned char*>(photo.GetBuffer()), int(photo.GetWidth()), 0,
                    int(photo.GetHeight()), TJPF_BGRX, &out, &size, quality > 100 ? TJSAMP_444 : TJSAMP_420,
                    quality > 100 ? quality - 100 : quality, 0);
        benchmark::DoNotOptimize(size);
        tjFree(out);
    }
    tjDestroy(handle);
}

// What the dialog waits for after a quality change: the size alone.
void SizeEstimate(benchmark::State& state)
{
    COLImage photo;
    photo.DuplicateFrom(&vmbench::SharedPhoto());
    COLImage preview;
    CompressTestParams params;
    params.quality = static_cast<int32_t>(state.range(0));
    for (auto _ : state) {
        CCompressTestProcess process;
        process.m_loadResult = 0;
        process.SetImages(&photo, &preview);
        process.Process(&params);
        benchmark::DoNotOptimize(process.m_compressedSize);
    }
}

// The size and the decoded preview, the whole run of one update.
void SizeAndPreview(benchmark::State& state)
{
    COLImage photo;
    photo.DuplicateFrom(&vmbench::SharedPhoto());
    COLImage preview;
    CompressTestParams params;
    params.quality = static_cast<int32_t>(state.range(0));
    for (auto _ : state) {
        CCompressTestProcess process;
        process.SetImages(&photo, &preview);
        process.Process(&params);
        benchmark::DoNotOptimize(process.m_compressedSize);
    }
}

BENCHMARK(Baseline_TurboJpeg)->Arg(80)->Arg(180)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(SizeEstimate)->Arg(80)->Arg(180)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(SizeAndPreview)->Arg(80)->Arg(180)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    return vmbench::RunWithRatios(argc, argv, "Baseline_");
}
