// Repainting the canvas on a 20-megapixel photo, at fit and at 100 %, against copying the visible pixels once.
#include <QApplication>
#include <QImage>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "bench_support.h"
#include "document/compose_document.h"
#include "document/layer.h"
#include "imaging/channel.h"
#include "document/render_scale.h"
#include "filters/resample.h"
#include "shell/image_view.h"

namespace {

// 5472 x 3648, a 20-megapixel camera's picture, in a canvas the size of a maximised window on a 1920 x 1080 screen.
constexpr int kWidth = 5472, kHeight = 3648;
constexpr int kCanvasWidth = 1600, kCanvasHeight = 1000;

struct Scene {
    CComposeDocument doc{0};
    std::unique_ptr<CImageView> view;
    QImage screen{kCanvasWidth, kCanvasHeight, QImage::Format_RGB32};
};

Scene& GetScene()
{
    static std::unique_ptr<Scene> s;
    if (s) return *s;
    s = std::make_unique<Scene>();
    s->doc.NewDocument(kWidth, kHeight, 0xFF000000);
    vmbench::MakePhoto(s->doc.GetLayer(0)->m_image, kWidth, kHeight, 7);
    s->doc.MergeNow();
    s->view = std::make_unique<CImageView>();
    s->view->resize(kCanvasWidth, kCanvasHeight);
    s->view->SetSource(&s->doc);
    return *s;
}

// 0: fit, 1: 100 % in the middle of the picture.
void Place(Scene& s, int mode)
{
    if (mode == 0) {
        s.view->SetOrigin(nullptr, 0, 0, false);
        s.view->SetZoom(s.view->FitZoom(10.0), false);
    } else {
        s.view->SetZoom(1.0, false);
        s.view->SetOrigin(nullptr, kWidth / 2 - kCanvasWidth / 2, kHeight / 2 - kCanvasHeight / 2, false);
    }
    s.view->Render(true);
}

// The floor of any repaint: one copy of the visible pixels.
void Baseline_CopyVisible(benchmark::State& state)
{
    Scene& s = GetScene();
    Place(s, int(state.range(0)));
    const COLImage* shown = s.view->GetDisplayBuffer();
    std::vector<uint8_t> copy(shown->GetAreaByteSize());
    for (auto _ : state) {
        std::memcpy(copy.data(), shown->GetBuffer(), copy.size());
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    }
    state.counters["visible_Mpx"] = double(shown->GetPixelCount()) / 1e6;
}

// A full repaint after the picture changed: the source renders the visible part, then the widget paints it.
void BM_Repaint(benchmark::State& state)
{
    Scene& s = GetScene();
    Place(s, int(state.range(0)));
    for (auto _ : state) {
        s.view->Render(true);
        s.view->render(&s.screen);
        benchmark::DoNotOptimize(s.screen.constBits());
    }
    state.counters["zoom"] = s.view->GetZoom();
}

// The source's part of a repaint alone: the document stretches the visible part into the display buffer.
void BM_SourceRender(benchmark::State& state)
{
    Scene& s = GetScene();
    Place(s, int(state.range(0)));
    COLImage* target = s.view->GetDisplayBuffer();
    for (auto _ : state) {
        s.doc.Render(target);
        benchmark::DoNotOptimize(target->GetBuffer());
    }
}

// The screen scaler in its straightforward form (a division per channel, rows summed one after another), which
// gives the same bytes: the visible part alone, without the checkerboard, against BM_ScalerRender.
void BM_PlainScalerRender(benchmark::State& state)
{
    Scene& s = GetScene();
    Place(s, int(state.range(0)));
    const COLImage* target = s.view->GetDisplayBuffer();
    const double z = s.view->GetZoom();
    const CViewPoint o = s.view->GetOrigin();
    COLImage out;
    for (auto _ : state) {
        ScaleForScreenPlain(s.doc.GetComposite(), &out, int(target->GetWidth()), int(target->GetHeight()), o.x, o.y,
                            1.0 / z, 1.0 / z);
        benchmark::DoNotOptimize(out.GetBuffer());
    }
}

void BM_ScalerRender(benchmark::State& state)
{
    Scene& s = GetScene();
    Place(s, int(state.range(0)));
    const COLImage* target = s.view->GetDisplayBuffer();
    const double z = s.view->GetZoom();
    const CViewPoint o = s.view->GetOrigin();
    COLImage out;
    for (auto _ : state) {
        ScaleForScreen(s.doc.GetComposite(), &out, int(target->GetWidth()), int(target->GetHeight()), o.x, o.y, 1.0 / z,
                       1.0 / z);
        benchmark::DoNotOptimize(out.GetBuffer());
    }
}

// What the source's render cost when it stretched through the shared bilinear resampler (which darkened flat
// colours and striped them): the same visible part into a buffer of the same size, for comparison.
void BM_SharedResamplerRender(benchmark::State& state)
{
    Scene& s = GetScene();
    Place(s, int(state.range(0)));
    COLImage* target = s.view->GetDisplayBuffer();
    const double z = s.view->GetZoom();
    const CViewPoint o = s.view->GetOrigin();
    const int tw = int(target->GetWidth()), th = int(target->GetHeight());
    const int sw = std::min(kWidth - o.x, int(tw / z)), sh = std::min(kHeight - o.y, int(th / z));
    COLImage out;
    for (auto _ : state) {
        ResampleImage(s.doc.GetComposite(), &out, tw, th, o.x, o.y, sw, sh);
        benchmark::DoNotOptimize(out.GetBuffer());
    }
}

// Panning: the origin moves by a scroll-bar line (1/50 of the picture) each time, so every frame is rendered.
void BM_Pan(benchmark::State& state)
{
    Scene& s = GetScene();
    Place(s, int(state.range(0)));
    int step = 1;
    for (auto _ : state) {
        const CViewPoint o = s.view->GetOrigin();
        int x = o.x + step * kWidth / 50;
        if (x < 0 || x + s.view->Geometry().VisibleWidth() > kWidth) {
            step = -step;
            x = o.x + step * kWidth / 50;
        }
        s.view->SetOrigin(nullptr, x, o.y, false);
        s.view->Render(false);
        s.view->render(&s.screen);
        benchmark::DoNotOptimize(s.screen.constBits());
    }
}

// Painting what is already rendered (an exposed window, the selection outline's tick).
void BM_PaintOnly(benchmark::State& state)
{
    Scene& s = GetScene();
    Place(s, int(state.range(0)));
    for (auto _ : state) {
        s.view->render(&s.screen);
        benchmark::DoNotOptimize(s.screen.constBits());
    }
}

// The selection's marching ants on the same photo: a selection whose edge follows the photo's noise (as a
// tolerance click on a photo gives), so that the outline is long. One frame of the ants recolours the traced
// outline and repaints the part of the canvas it covers; tracing happens once per new picture on screen.
struct AntsScene {
    CComposeDocument doc{0};
    std::unique_ptr<CImageView> view;
    QImage screen{kCanvasWidth, kCanvasHeight, QImage::Format_RGB32};
};

AntsScene& GetAntsScene()
{
    static std::unique_ptr<AntsScene> s;
    if (s) return *s;
    s = std::make_unique<AntsScene>();
    s->doc.NewDocument(kWidth, kHeight, 0xFF000000);
    COLImage& photo = s->doc.GetLayer(0)->m_image;
    vmbench::MakePhoto(photo, kWidth, kHeight, 7);
    COLChannel& mask = s->doc.GetSelectionMask();
    mask.Create(kWidth, kHeight);
    for (size_t i = 0; i < mask.GetAreaByteSize(); ++i) mask.GetBuffer()[i] = photo.GetBuffer()[i].green > 128 ? 255 : 0;
    s->doc.MergeNow();
    s->view = std::make_unique<CImageView>();
    s->view->resize(kCanvasWidth, kCanvasHeight);
    s->view->SetSource(&s->doc);
    return *s;
}

void PlaceAnts(AntsScene& s, int mode)
{
    if (mode == 0) {
        s.view->SetOrigin(nullptr, 0, 0, false);
        s.view->SetZoom(s.view->FitZoom(10.0), false);
    } else {
        s.view->SetZoom(1.0, false);
        s.view->SetOrigin(nullptr, kWidth / 2 - kCanvasWidth / 2, kHeight / 2 - kCanvasHeight / 2, false);
    }
    s.view->Render(true);
}

// One frame of the ants: recolour the outline, repaint the part it covers (with the tool's overlay).
void BM_AntsFrame(benchmark::State& state)
{
    AntsScene& s = GetAntsScene();
    PlaceAnts(s, int(state.range(0)));
    for (auto _ : state) {
        const QRect changed = s.view->StepAnts();
        s.view->render(&s.screen, changed.topLeft(), QRegion(changed));
        benchmark::DoNotOptimize(s.screen.constBits());
    }
    int ants = 0;
    for (int style = 0; style < kOutlineStyles; ++style) ants += int(s.view->Ants(style).size());
    state.counters["ants_k"] = ants / 1000.0;
}

// A full repaint with the outline traced again (a new mask, zoom or scroll).
void BM_AntsRepaint(benchmark::State& state)
{
    AntsScene& s = GetAntsScene();
    PlaceAnts(s, int(state.range(0)));
    for (auto _ : state) {
        s.view->Render(true);
        s.view->render(&s.screen);
        benchmark::DoNotOptimize(s.screen.constBits());
    }
}

BENCHMARK(Baseline_CopyVisible)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_Repaint)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_SourceRender)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_PlainScalerRender)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_ScalerRender)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_SharedResamplerRender)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
// At fit the whole picture is visible and there is nothing to pan.
BENCHMARK(BM_Pan)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_PaintOnly)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_AntsFrame)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_AntsRepaint)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

} // namespace

int main(int argc, char** argv)
{
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    int qtArgc = 1;
    char* qtArgv[] = {argv[0], nullptr};
    QApplication app(qtArgc, qtArgv);
    return vmbench::RunWithRatios(argc, argv, "Baseline_");
}
