#include <cstring>
#include <gtest/gtest.h>

#include "commands/history_sink.h"
#include "document/layer.h"
#include "effects/smart_inpaint_dialog.h"
#include "matting/process_thread.h"
#include "matting/ui_queue.h"
#include "runtime/status.h"
#include "support/engine_checks.h"
#include "support/test_support.h"

namespace {

// A document whose base layer holds `picture` (made opaque), with the document mask selecting the hole.
struct InpaintDocument {
    CComposeDocument doc{0};
    COLImage original;

    InpaintDocument(COLImage picture, int hx0, int hy0, int hx1, int hy1)
    {
        EXPECT_TRUE(doc.NewDocument(72, 56, 0xFF000000u));
        for (size_t i = 0; i < picture.GetPixelCount(); ++i)
            picture.GetBuffer()[i].alpha = 255;
        doc.GetLayer(0)->m_image = std::move(picture);
        original = vmtest::Copy(doc.GetLayer(0)->m_image);
        doc.GetSelectionMask() =
            vmtest::PlaneOf(72, 56, [&](int x, int y) { return x >= hx0 && x < hx1 && y >= hy0 && y < hy1 ? 255 : 0; });
    }
};

// A texture with a bright object in the hole.
InpaintDocument Textured(int hx0, int hy0, int hx1, int hy1)
{
    return InpaintDocument(vmtest::Noise(72, 56, 4), hx0, hy0, hx1, hy1);
}

// Stripes with a magenta block over the hole, for the structure-aware method.
InpaintDocument Striped()
{
    COLImage picture = vmtest::Picture(72, 56, [](uint32_t x, uint32_t y) {
        if (x >= 28 && x < 44 && y >= 20 && y < 34) return vmtest::Rgb(255, 0, 255);
        return vmtest::Rgb(((x + y) / 6) % 2 ? 200 : 40, 90, int(x * 3));
    });
    return InpaintDocument(std::move(picture), 28, 20, 44, 34);
}

// The dialog and its worker, opened on a document.
struct Dialog {
    CProcessThread worker;
    CUiQueue ui;
    CSmartInpaintDlg dlg{worker, ui};
    std::string key;
};

long Direct(CImageProcess& process, const void* params)
{
    return process.Process(params);
}

} // namespace

TEST(SmartInpaintDialog, SuccessReplacesTheBaseWithOneStepAndKeepsTheSelection)
{
    InpaintDocument d = Textured(30, 20, 42, 32);
    Dialog o;
    ASSERT_TRUE(o.dlg.Open(d.doc, o.key));
    EXPECT_EQ(o.dlg.settings.feather, 1) << "the check box starts checked";
    EXPECT_EQ(o.dlg.GetBlockSize(), CPatchInpaintProcess::EstimateBlockSize(d.doc.GetSelectionMask()));
    const COLChannel maskBefore = vmtest::Copy(d.doc.GetSelectionMask());

    // The run on the worker, waited for as the editor's wait dialog does (without a window).
    CRecordingHistory history;
    const ProcessRunner onWorker = [&](CImageProcess& p, const void* params) {
        o.worker.StartImageProcess(nullptr, &p, params, 0, 0, 100, 0);
        return o.worker.GetLastResult();
    };
    // The worker wants a window or a listener to run for.
    struct : IProcessListener {
        void OnProcessEvent(uint32_t, int32_t) override {}
    } listener;
    o.worker.SetListener(&listener);
    ASSERT_TRUE(o.dlg.Run(&history, onWorker, o.key));
    ASSERT_EQ(history.Steps().size(), 1u);
    EXPECT_EQ(history.Steps()[0].kind, kStepLayerHeaderRegion);
    EXPECT_EQ(history.Steps()[0].arg, 0);
    EXPECT_EQ(history.Steps()[0].label, "inpaint");
    EXPECT_FALSE(vmtest::SamePixels(d.doc.GetLayer(0)->m_image, d.original));
    EXPECT_EQ(vmtest::Bytes(d.doc.GetSelectionMask()), vmtest::Bytes(maskBefore)) << "the selection is not softened";

    // The same record through the method switch, run directly: the same bytes.
    CInpaintRun run;
    SmartInpaintSettings s;
    ASSERT_EQ(run.Prepare(s, &maskBefore), kOk);
    COLImage direct;
    run.GetProcess().SetImages(&d.original, &direct);
    ASSERT_EQ(run.GetProcess().Process(run.GetParams()), kOk);
    EXPECT_EQ(vmtest::Bytes(direct), vmtest::Bytes(d.doc.GetLayer(0)->m_image));
    s.method = 99;
    EXPECT_EQ(run.Prepare(s, &maskBefore), kFail);
}

TEST(SmartInpaintDialog, FailureRestoresTheLayerAndOnlyTheBaseIsTaken)
{
    // 24 x 24 = 576 of 4032 pixels is within a fifth; 40 x 30 is not.
    InpaintDocument d = Textured(10, 10, 50, 40);
    Dialog o;
    ASSERT_TRUE(o.dlg.Open(d.doc, o.key));
    CRecordingHistory history;
    EXPECT_FALSE(o.dlg.Run(&history, Direct, o.key));
    EXPECT_EQ(o.key, "inpainterr");
    EXPECT_EQ(o.dlg.GetLastResult(), kInpaintNoSample);
    EXPECT_TRUE(history.Steps().empty());
    EXPECT_TRUE(vmtest::SamePixels(d.doc.GetLayer(0)->m_image, d.original));

    // A runner that fails half way through (memory) leaves the layer too.
    o.key.clear();
    InpaintDocument e = Textured(30, 20, 42, 32);
    CSmartInpaintDlg second(o.worker, o.ui);
    ASSERT_TRUE(second.Open(e.doc, o.key));
    const ProcessRunner broken = [&](CImageProcess& p, const void* params) {
        p.Process(params);
        return kFail;
    };
    EXPECT_FALSE(second.Run(&history, broken, o.key));
    EXPECT_EQ(o.key, "inpainterr");
    EXPECT_TRUE(vmtest::SamePixels(e.doc.GetLayer(0)->m_image, e.original));

    ASSERT_NE(e.doc.AddLayer(0, 0), nullptr);
    e.doc.SetCurrentIndex(1);
    CSmartInpaintDlg third(o.worker, o.ui);
    EXPECT_FALSE(third.Open(e.doc, o.key));
    EXPECT_EQ(o.key, "onlybaselayer");
}

TEST(SmartInpaintStructure, TheDialogRunsTheChosenMethodWithOneStep)
{
    InpaintDocument d = Striped();
    Dialog o;
    ASSERT_TRUE(o.dlg.Open(d.doc, o.key));
    o.dlg.settings.method = kInpaintStructure;
    CRecordingHistory history;
    ASSERT_TRUE(o.dlg.Run(&history, Direct, o.key));
    ASSERT_EQ(history.Steps().size(), 1u);
    EXPECT_EQ(history.Steps()[0].label, "inpaint");

    // The bytes are the engine's own.
    COLImage expected;
    ExemplarInpaintParams params;
    params.mask = &d.doc.GetSelectionMask();
    ASSERT_EQ(ExemplarInpaint(d.original, d.doc.GetSelectionMask(), expected, params), kOk);
    EXPECT_EQ(vmtest::Bytes(d.doc.GetLayer(0)->m_image), vmtest::Bytes(expected));
    EXPECT_FALSE(vmtest::SamePixels(expected, d.original));
}

TEST(SmartInpaintStructure, ACancelRestoresTheLayerWithoutAnErrorText)
{
    InpaintDocument d = Striped();
    Dialog o;
    ASSERT_TRUE(o.dlg.Open(d.doc, o.key));
    o.dlg.settings.method = kInpaintStructure;
    CRecordingHistory history;
    // The user presses ESC as the run starts.
    const ProcessRunner cancelled = [](CImageProcess& p, const void* params) {
        p.RequestCancel();
        return p.Process(params);
    };
    EXPECT_FALSE(o.dlg.Run(&history, cancelled, o.key));
    EXPECT_EQ(o.key, "");
    EXPECT_TRUE(history.Steps().empty());
    EXPECT_TRUE(vmtest::SamePixels(d.doc.GetLayer(0)->m_image, d.original));

    // A real failure still names the error text: a hole above a fifth of the picture.
    std::memset(d.doc.GetSelectionMask().GetBuffer(), 255, 72 * 20);
    ASSERT_TRUE(o.dlg.Open(d.doc, o.key));
    EXPECT_FALSE(o.dlg.Run(&history, Direct, o.key));
    EXPECT_EQ(o.key, "inpainterr");
    EXPECT_EQ(o.dlg.GetLastResult(), kExemplarCannotFill);
}
