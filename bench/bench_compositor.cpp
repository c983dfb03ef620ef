// Merging layers against a plain copy of the same number of bytes.
#include <benchmark/benchmark.h>
#include <cstring>
#include <memory>
#include <vector>

#include "bench_support.h"
#include "document/compositor.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"

namespace {

constexpr int kLayers = 5;

// A 12-megapixel document of five layers. Alpha of the upper layers takes every value (the photo's green of
// another seed), so every pixel goes through the full blend; "cut-out" layers are opaque shapes on transparency,
// as matting leaves them.
CLayerStack& Stack(bool cutOut)
{
    static std::unique_ptr<CLayerStack> stacks[2];
    std::unique_ptr<CLayerStack>& s = stacks[cutOut];
    if (s) return *s;
    s = std::make_unique<CLayerStack>();
    const uint32_t w = vmbench::kPhotoWidth, h = vmbench::kPhotoHeight;
    s->NewDocument(int(w), int(h), 0xFF000000);
    vmbench::MakePhoto(s->GetLayer(0)->m_image, w, h, 1);
    const uint8_t modes[] = {kBlendNormal, kBlendNormal, kBlendMultiply, kBlendScreen};
    for (int i = 1; i < kLayers; ++i) {
        CLayer* layer = s->AddLayer(i - 1, 0);
        vmbench::MakePhoto(layer->m_image, w, h, uint32_t(i + 1));
        COLImage alpha;
        vmbench::MakePhoto(alpha, w, h, uint32_t(i + 10));
        CPixel* p = layer->m_image.GetBuffer();
        for (size_t k = 0; k < layer->m_image.GetPixelCount(); ++k) {
            const uint8_t g = alpha.GetBuffer()[k].green;
            p[k].alpha = cutOut ? (g < 100 ? 0 : g > 140 ? 255 : uint8_t((g - 100) * 255 / 40)) : g;
        }
        layer->m_blendMode = cutOut ? uint8_t(kBlendNormal) : modes[i - 1];
        layer->m_opacity = cutOut ? 255 : uint8_t(255 - 20 * i);
    }
    s->GetSelectionMask().Create(w, h);
    std::memset(s->GetSelectionMask().GetBuffer(), 255, s->GetSelectionMask().GetAreaByteSize());
    return *s;
}

// The baseline: memcpy of as many bytes as the layers being merged hold.
void Baseline_Memcpy(benchmark::State& state)
{
    const CLayerStack& stack = Stack(false);
    const int layers = int(state.range(0));
    const size_t bytes = stack.GetLayer(0)->m_image.GetAreaByteSize();
    std::vector<std::unique_ptr<uint8_t[]>> copies;
    for (int i = 0; i < layers; ++i) {
        copies.emplace_back(new uint8_t[bytes]);
        std::memset(copies.back().get(), 0, bytes);
    }
    for (auto _ : state) {
        for (int i = 0; i < layers; ++i) {
            std::memcpy(copies[size_t(i)].get(), stack.GetLayer(i)->m_image.GetBuffer(), bytes);
            benchmark::DoNotOptimize(copies[size_t(i)].get());
        }
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes) * layers);
}
BENCHMARK(Baseline_Memcpy)->Arg(1)->Arg(kLayers)->Unit(benchmark::kMillisecond)->UseRealTime();

// The plain path is the lowest vector level, one core is one worker of the pool.
void Accelerate(bool simd, bool threads)
{
    vmsimd::LimitLevel(simd ? -1 : vmsimd::kPlain);
    vmpar::SetWorkerCount(threads ? 0 : 1);
}

template <bool Simd, bool Threads, bool CutOut> void MergeLayers(benchmark::State& state)
{
    Accelerate(Simd, Threads);
    const CLayerStack& stack = Stack(CutOut);
    COLImage composite;
    MergeLayers(&stack, &composite, 1);
    for (auto _ : state)
        MergeLayers(&stack, &composite, 1);
    Accelerate(true, true);
}
BENCHMARK(MergeLayers<true, true, false>)
    ->Name("MergeLayers_AllAlpha_Fast")
    ->Arg(kLayers)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(MergeLayers<true, false, false>)
    ->Name("MergeLayers_AllAlpha_OneCore")
    ->Arg(kLayers)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(MergeLayers<false, false, false>)
    ->Name("MergeLayers_AllAlpha_Plain")
    ->Arg(kLayers)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(MergeLayers<true, true, true>)
    ->Name("MergeLayers_CutOut_Fast")
    ->Arg(kLayers)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// One normal layer of every alpha onto a 12-megapixel picture, against one copy of the picture.
template <bool Simd, bool Threads> void BlendOneLayer(benchmark::State& state)
{
    Accelerate(Simd, Threads);
    const CLayerStack& stack = Stack(false);
    const CLayer* layer = stack.GetLayer(1);
    COLImage target;
    target.DuplicateFrom(&stack.GetLayer(0)->m_image);
    for (auto _ : state)
        BlendLayer(&target, layer);
    Accelerate(true, true);
}
BENCHMARK(BlendOneLayer<true, true>)->Name("BlendLayer_Fast")->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BlendOneLayer<true, false>)->Name("BlendLayer_OneCore")->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BlendOneLayer<false, false>)->Name("BlendLayer_Plain")->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// The preview merge of the whole document at step 2, as a drag does it.
void MergeFastStep2(benchmark::State& state)
{
    const CLayerStack& stack = Stack(false);
    COLImage preview;
    for (auto _ : state)
        MergeFast(&stack, &preview, CRect{0, 0, int(vmbench::kPhotoWidth), int(vmbench::kPhotoHeight)}, 2);
}
BENCHMARK(MergeFastStep2)->Arg(kLayers)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    return vmbench::RunWithRatios(argc, argv, "Baseline_");
}
