// PSD writing against writing the same pixels raw, in the same run:
//   Baseline_RawWrite/5   the five layers' pixels written as they are (fwrite, fsync, close)
//   Psd_Layered/5         WriteLayeredPsd of the five-layer composition: merge, PackBits, temporary file, fsync,
//                         rename
//   Baseline_RawWrite/1 and Psd_OneLayer/1: one picture, and the one-layer writer (raw channels, merged image)
// Files go to the system's temporary folder (the disk), or to VM_BENCH_DIR when it is set (e.g. /dev/shm).
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "bench_support.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/image.h"
#include "interchange/psd_layered_writer.h"
#include "interchange/psd_writer.h"

namespace {

constexpr int kLayers = 5;

std::string PathOf(const char* name)
{
    static const std::string folder = [] {
        const char* env = std::getenv("VM_BENCH_DIR");
        std::string f =
            (env && *env ? std::string(env) : std::filesystem::temp_directory_path().string()) + "/vm-bench-psd";
        std::filesystem::create_directories(f);
        return f;
    }();
    return folder + "/" + name;
}

// A 12-megapixel photo as the base and four full-size layers with soft-edged cut-outs above it.
CLayerStack& Composition()
{
    static CLayerStack doc;
    if (doc.GetLayerCount()) return doc;
    doc.NewDocument(int(vmbench::kPhotoWidth), int(vmbench::kPhotoHeight), 0xFF000000u);
    vmbench::MakePhoto(doc.GetLayer(0)->m_image, vmbench::kPhotoWidth, vmbench::kPhotoHeight, 1);
    for (int i = 1; i < kLayers; ++i) {
        auto* l = new CLayer();
        vmbench::MakePhoto(l->m_image, vmbench::kPhotoWidth, vmbench::kPhotoHeight, uint32_t(1 + i));
        const double cx = (0.3 + 0.1 * i) * vmbench::kPhotoWidth, cy = 0.5 * vmbench::kPhotoHeight;
        for (uint32_t y = 0; y < vmbench::kPhotoHeight; ++y)
            for (uint32_t x = 0; x < vmbench::kPhotoWidth; ++x) {
                const double d = std::hypot((x - cx) / 1200.0, (y - cy) / 1000.0);
                l->m_image.GetBuffer(x, y)->alpha = uint8_t(std::lround(std::clamp((1.0 - d) * 30.0, 0.0, 1.0) * 255));
            }
        l->m_opacity = uint8_t(255 - 30 * i);
        l->m_blendMode = uint8_t(i % 2 ? 0 : 5);
        std::snprintf(l->m_name, sizeof l->m_name, "Layer %d", i);
        doc.InsertLayer(l, i - 1);
    }
    return doc;
}

void Baseline_RawWrite(benchmark::State& state)
{
    const CLayerStack& doc = Composition();
    const int count = int(state.range(0));
    for (auto _ : state) {
        FILE* f = std::fopen(PathOf("raw.bin").c_str(), "wb");
        bool ok = f != nullptr;
        for (int i = 0; ok && i < count; ++i) {
            const COLImage& img = doc.GetLayer(i)->m_image;
            ok = std::fwrite(img.GetBuffer(), 1, img.GetAreaByteSize(), f) == img.GetAreaByteSize();
        }
        ok = ok && std::fflush(f) == 0 && fsync(fileno(f)) == 0;
        if (f) ok = std::fclose(f) == 0 && ok;
        if (!ok) state.SkipWithError("raw write failed");
    }
}

void Psd_Layered(benchmark::State& state)
{
    CLayerStack& doc = Composition();
    for (auto _ : state)
        if (WriteLayeredPsd(PathOf("layers.psd"), doc) != kOk) state.SkipWithError("PSD write failed");
}

void Psd_OneLayer(benchmark::State& state)
{
    const COLImage& img = Composition().GetLayer(1)->m_image;
    for (auto _ : state)
        if (SavePsd(PathOf("one.psd"), img) != kOk) state.SkipWithError("PSD write failed");
}

} // namespace

BENCHMARK(Baseline_RawWrite)->Arg(kLayers)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Psd_Layered)->Arg(kLayers)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Psd_OneLayer)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char** argv)
{
    const int result = vmbench::RunWithRatios(argc, argv, "Baseline_");
    std::filesystem::remove_all(std::filesystem::path(PathOf("x")).parent_path());
    return result;
}
