// The brush on a 12-megapixel layer: one dab (a pointer step of a soft 200-pixel brush: the segment stamped into
// the stroke mask, the eraser applied under it, the coarse composite of the rectangle) against blending a
// 200 x 200 RGBA patch with OpenCV; and the history step of a 100-dab stroke against the same log recording a
// plain change of a region of the stroke's size (/3), and against the one-pixel paint step of bench_history (/2),
// all measured here in the same run.

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench_support.h"
#include "commands/history_log.h"
#include "document/compose_document.h"
#include "document/layer.h"
#include "document/selection_document.h"
#include "imaging/rect.h"
#include "tools/tool_manager.h"

#if VM_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

namespace {

// A canvas at zoom 1 from the origin.
class BenchView final : public ICanvasView {
public:
    double GetZoom() const override { return 1.0; }
    CViewPoint GetOrigin() const override { return {}; }
    void Redraw() override {}
    void PostMergeDone() override {}
};

// The photo as base, a copy of it as the upper layer that the eraser works on, the tools wired as in the editor.
struct PaintBench {
    CComposeDocument doc{0};
    CComposeHistory log;
    CSelectionDocument selection;
    CToolContext context;
    BenchView view;
    std::unique_ptr<CToolManager> manager;
    bool ok = false;

    PaintBench()
    {
        const COLImage& photo = vmbench::SharedPhoto();
        if (doc.NewDocument(int(photo.GetWidth()), int(photo.GetHeight()), 0xFFFFFFFF) != 1) return;
        doc.GetLayer(0)->m_image.DuplicateFrom(&photo);
        CLayer* upper = doc.AddLayer(0, 0);
        if (!upper || !upper->m_image.DuplicateFrom(&photo)) return;
        doc.SetCurrentIndex(1);
        // The editor always has a composite; the coarse update of each dab is copied into it.
        if (!doc.MergeNow()) return;
        if (!log.Init()) return;
        log.AddStep(&doc, kStepWholeDocument, 0, "His_open");
        context.document = &doc;
        context.composeHistory = &log;
        context.selection = &selection;
        manager = std::make_unique<CToolManager>(context);
        manager->SetView(&view);
        CEraseLayerTool& eraser = manager->GetEraseLayerTool();
        eraser.SetFramePacing(0);
        // Size 100 is a disc of radius 99: a brush 200 pixels across, half soft.
        if (!eraser.GetBrush().SetValues(100, 50, 100)) return;
        manager->SetCurrentTool(&eraser);
        ok = manager->GetCurrentTool() == &eraser;
    }
    IViewSink& Sink() { return *manager->GetEraseLayerTool().GetSink(); }
};

PaintBench& Bench()
{
    static PaintBench bench;
    return bench;
}

#if VM_HAVE_OPENCV
void Baseline_AddWeighted200(benchmark::State& state)
{
    const COLImage& photo = vmbench::SharedPhoto();
    cv::Mat a(int(photo.GetHeight()), int(photo.GetWidth()), CV_8UC4, photo.GetBuffer());
    cv::Mat b = a.clone();
    int i = 0;
    for (auto _ : state) {
        // A patch that walks along as the dabs do.
        const cv::Rect roi(1000 + (i++ % 100), 1400, 200, 200);
        cv::Mat dst = b(roi);
        cv::addWeighted(a(roi), 0.5, dst, 0.5, 0.0, dst);
        benchmark::DoNotOptimize(dst.data);
    }
}
BENCHMARK(Baseline_AddWeighted200)->Arg(1)->Unit(benchmark::kMicrosecond)->UseRealTime();
#endif

// One dab of a stroke: a pointer step one pixel on, which stamps a segment and erases under it. Every 100 dabs
// the stroke is released and pressed again (outside the timing) so that strokes stay 100 dabs long.
void PaintDab(benchmark::State& state)
{
    PaintBench& b = Bench();
    if (!b.ok) {
        state.SkipWithError("cannot set up the document");
        return;
    }
    int n = 0;
    b.Sink().OnLButtonDown(kMkLButton, 1000, 1500);
    for (auto _ : state) {
        if (++n % 100 == 0) {
            state.PauseTiming();
            b.Sink().OnLButtonUp(0, 1000 + 99, 1500);
            b.Sink().OnLButtonDown(kMkLButton, 1000, 1500);
            state.ResumeTiming();
        }
        b.Sink().OnMouseMove(kMkLButton, 1000 + n % 100, 1500);
    }
    b.Sink().OnLButtonUp(0, 1000 + n % 100, 1500);
}
BENCHMARK(PaintDab)->Arg(1)->Unit(benchmark::kMicrosecond)->UseRealTime();

// The one-pixel paint step of bench_history: change detection over the 12-megapixel layer and the record.
void Baseline_HistoryStepOnePixel(benchmark::State& state)
{
    PaintBench& b = Bench();
    if (!b.ok) {
        state.SkipWithError("cannot set up the document");
        return;
    }
    COLImage& image = b.doc.GetLayer(1)->m_image;
    uint32_t n = 0;
    for (auto _ : state) {
        image.PutPixel(1234, 567, CPixel::FromWord(++n));
        if (b.log.AddStep(&b.doc, kStepLayerRegion, 1, "paint") < 0) state.SkipWithError("step failed");
    }
}
BENCHMARK(Baseline_HistoryStepOnePixel)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// The rectangle a stroke of the benchmark changes: the stamp, dragged 99 pixels to the right.
CRect StrokeRegion(int x, int y)
{
    const COLChannel& stamp = Bench().manager->GetEraseLayerTool().GetStamp();
    const int sw = int(stamp.GetWidth()), sh = int(stamp.GetHeight());
    return CRect{x - sw / 2, y - sh / 2, x - sw / 2 + sw + 99, y - sh / 2 + sh};
}

// The same log recording a plain change of a region the size of what a stroke changes (rewritten outside the
// timing): change detection over the layer, the layer's header and the region's rows.
void Baseline_HistoryStepRegion(benchmark::State& state)
{
    PaintBench& b = Bench();
    if (!b.ok) {
        state.SkipWithError("cannot set up the document");
        return;
    }
    COLImage& image = b.doc.GetLayer(1)->m_image;
    int row = 0;
    uint32_t n = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const CRect r = StrokeRegion(1000, 400 + (row++ % 20) * 100);
        ++n;
        for (int y = r.top; y < r.bottom; ++y) {
            CPixel* p = image.GetBuffer(0, uint32_t(y));
            for (int x = r.left; x < r.right; ++x)
                p[x].alpha = uint8_t(p[x].alpha ^ (1 + (n & 63)));
        }
        state.ResumeTiming();
        if (b.log.AddStep(&b.doc, kStepLayerHeaderRegion, 1, "paint") < 0) state.SkipWithError("step failed");
    }
    state.SetLabel(std::to_string(StrokeRegion(0, 0).Width()) + " x " + std::to_string(StrokeRegion(0, 0).Height()));
}
BENCHMARK(Baseline_HistoryStepRegion)->Arg(3)->Unit(benchmark::kMillisecond)->UseRealTime();

// The step that ends a stroke of 100 dabs: the stroke is painted outside the timing, the release (which records
// the layer's header and changed region) inside it.
void StrokeHistoryStep(benchmark::State& state)
{
    PaintBench& b = Bench();
    if (!b.ok) {
        state.SkipWithError("cannot set up the document");
        return;
    }
    int row = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const int y = 400 + (row++ % 20) * 100;
        b.Sink().OnLButtonDown(kMkLButton, 1000, y);
        for (int i = 1; i < 100; ++i) b.Sink().OnMouseMove(kMkLButton, 1000 + i, y);
        state.ResumeTiming();
        b.Sink().OnLButtonUp(0, 1099, y);
    }
}
BENCHMARK(StrokeHistoryStep)->Arg(2)->Arg(3)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    // The logs go to the temporary folder; a private one is removed at the end.
    const std::string dir = (std::filesystem::temp_directory_path() / "vm_bench_paint").string();
    std::filesystem::create_directories(dir);
    setenv("TMPDIR", dir.c_str(), 1);
    const int r = vmbench::RunWithRatios(argc, argv, "Baseline_");
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
    return r;
}
