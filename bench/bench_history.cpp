// Undo-log costs on a 12-megapixel document, each against writing one whole snapshot of the same document.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bench_support.h"
#include "commands/history_log.h"
#include "commands/region_tracker.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/image.h"
#include "runtime/simd_level.h"

namespace {

// One opaque photo-sized layer, built once.
CLayerStack& Document()
{
    static CLayerStack doc;
    if (doc.GetLayerCount() == 0) {
        doc.NewDocument(int(vmbench::kPhotoWidth), int(vmbench::kPhotoHeight), 0xFF000000);
        vmbench::MakePhoto(doc.GetLayer(0)->m_image, vmbench::kPhotoWidth, vmbench::kPhotoHeight);
    }
    return doc;
}

std::string ScratchFile()
{
    const char* tmp = std::getenv("TMPDIR");
    return std::string(tmp && *tmp ? tmp : "/tmp") + "/vm_bench_snapshot.bin";
}

void Baseline_WriteSnapshot(benchmark::State& state)
{
    CLayerStack& doc = Document();
    const std::string path = ScratchFile();
    for (auto _ : state) {
        FILE* f = std::fopen(path.c_str(), "wb");
        if (!f || !doc.Serialize(f, 0)) state.SkipWithError("cannot write the snapshot");
        if (f) std::fclose(f);
    }
    std::remove(path.c_str());
    state.SetBytesProcessed(int64_t(state.iterations()) * doc.GetLayer(0)->m_image.GetAreaByteSize());
}
BENCHMARK(Baseline_WriteSnapshot)->Unit(benchmark::kMillisecond)->UseRealTime();

// Copying the layer once.
void MemcpyLayer(benchmark::State& state)
{
    const COLImage& image = Document().GetLayer(0)->m_image;
    std::vector<uint8_t> copy(image.GetAreaByteSize());
    for (auto _ : state) {
        std::memcpy(copy.data(), image.GetBuffer(), copy.size());
        benchmark::DoNotOptimize(copy.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * image.GetAreaByteSize());
}
BENCHMARK(MemcpyLayer)->Unit(benchmark::kMillisecond)->UseRealTime();

#if VM_SIMD_X86
#include <immintrin.h>
VM_TARGET_AVX2 uint64_t OrAll(const uint8_t* p, size_t n)
{
    __m256i acc = _mm256_setzero_si256();
    size_t i = 0;
    for (; i + 32 <= n; i += 32) acc = _mm256_or_si256(acc, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + i)));
    uint64_t r = uint64_t(_mm256_extract_epi64(acc, 0) | _mm256_extract_epi64(acc, 1) | _mm256_extract_epi64(acc, 2) |
                          _mm256_extract_epi64(acc, 3));
    for (; i < n; ++i) r |= p[i];
    return r;
}

// Only reading the layer, as fast as the memory allows: the floor for anything that looks at every pixel.
void ReadLayer(benchmark::State& state)
{
    if (vmsimd::CurrentLevel() < vmsimd::kAvx2) {
        state.SkipWithError("needs AVX2");
        return;
    }
    const COLImage& image = Document().GetLayer(0)->m_image;
    for (auto _ : state)
        benchmark::DoNotOptimize(OrAll(reinterpret_cast<const uint8_t*>(image.GetBuffer()), image.GetAreaByteSize()));
    state.SetBytesProcessed(int64_t(state.iterations()) * image.GetAreaByteSize());
}
BENCHMARK(ReadLayer)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

// The change detector alone, at each vector width.
void TrackChanges12MP(benchmark::State& state)
{
    vmsimd::LimitLevel(int(state.range(0)));
    const int level = vmsimd::CurrentLevel();
    const COLImage& image = Document().GetLayer(0)->m_image;
    CRegionTracker tracker;
    BuildTracker(tracker, image);
    for (auto _ : state) benchmark::DoNotOptimize(TrackChanges(tracker, image));
    state.SetBytesProcessed(int64_t(state.iterations()) * image.GetAreaByteSize());
    state.SetLabel(level == 2 ? "avx2" : level == 1 ? "sse2" : "plain");
    vmsimd::LimitLevel(-1);
}
BENCHMARK(TrackChanges12MP)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// A one-pixel paint step: change detection over the layer, then the 28-byte record written to the log.
void PaintStepOnePixel(benchmark::State& state)
{
    CLayerStack& doc = Document();
    CComposeHistory log;
    if (!log.Init()) {
        state.SkipWithError("cannot make the log");
        return;
    }
    log.AddStep(&doc, kStepWholeDocument, 0, "His_open");
    COLImage& image = doc.GetLayer(0)->m_image;
    const CPixel kept = image.GetPixel2(1234, 567);
    uint32_t n = 0;
    for (auto _ : state) {
        image.PutPixel(1234, 567, CPixel::FromWord(++n));
        if (log.AddStep(&doc, kStepLayerRegion, 0, "paint") < 0) state.SkipWithError("step failed");
    }
    if (log.GetRecord(log.GetCount() - 1)->kind != kStepLayerRegion) state.SkipWithError("not a region step");
    image.PutPixel(1234, 567, kept);
}
BENCHMARK(PaintStepOnePixel)->Unit(benchmark::kMillisecond)->UseRealTime();

// A log with a snapshot and 20 brush dabs of 64 x 64 pixels behind it.
struct DabbedLog {
    CComposeHistory log;
    bool ok = false;
    DabbedLog()
    {
        CLayerStack& doc = Document();
        if (!log.Init()) return;
        log.AddStep(&doc, kStepWholeDocument, 0, "His_open");
        COLImage& image = doc.GetLayer(0)->m_image;
        for (uint32_t i = 0; i < 20; ++i) {
            const uint32_t x0 = 100 + i * 150, y0 = 200 + i * 100;
            for (uint32_t y = y0; y < y0 + 64; ++y)
                for (uint32_t x = x0; x < x0 + 64; ++x) image.PutPixel(x, y, CPixel::FromWord(0xFF000000 | (x * y)));
            log.AddStep(&doc, kStepLayerRegion, 0, "dab");
        }
        ok = log.GetCount() == 21 && log.GetRecord(20)->kind == kStepLayerRegion;
    }
};

// Undo of the last dab: the snapshot and the 19 dabs before it are replayed.
void JumpBackOneStep(benchmark::State& state)
{
    DabbedLog d;
    if (!d.ok) {
        state.SkipWithError("cannot build the log");
        return;
    }
    for (auto _ : state) {
        if (!d.log.JumpTo(20)) state.SkipWithError("jump failed");
        state.PauseTiming();
        d.log.JumpTo(21);
        state.ResumeTiming();
    }
}
BENCHMARK(JumpBackOneStep)->Unit(benchmark::kMillisecond)->UseRealTime();

// A jump from the last dab back over all 20 of them to the opening snapshot.
void JumpBackTwentySteps(benchmark::State& state)
{
    DabbedLog d;
    if (!d.ok) {
        state.SkipWithError("cannot build the log");
        return;
    }
    for (auto _ : state) {
        if (!d.log.JumpTo(1)) state.SkipWithError("jump failed");
        state.PauseTiming();
        d.log.JumpTo(21);
        state.ResumeTiming();
    }
}
BENCHMARK(JumpBackTwentySteps)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) { return vmbench::RunWithRatios(argc, argv, "Baseline_"); }
