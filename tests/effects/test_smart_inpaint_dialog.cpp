#include <cstring>
#include <gtest/gtest.h>

#include "commands/history_sink.h"
#include "document/layer.h"
#include "effects/smart_inpaint_dialog.h"
#include "matting/process_thread.h"
#include "matting/ui_queue.h"
#include "runtime/status.h"
#include "support/test_support.h"

namespace {

// A document whose base holds a texture with a bright object, selected by the document mask.
struct InpaintDocument {
    CComposeDocument doc{0};
    COLImage original;

    InpaintDocument(int hx0, int hy0, int hx1, int hy1)
    {
        EXPECT_TRUE(doc.NewDocument(72, 56, 0xFF000000u));
        COLImage& img = doc.GetLayer(0)->m_image;
        vmtest::FillNoise(img, 72, 56, 4);
        for (size_t i = 0; i < img.GetPixelCount(); ++i)
            img.GetBuffer()[i].alpha = 255;
        original.DuplicateFrom(&img);
        COLChannel& mask = doc.GetSelectionMask();
        mask.Create(72, 56);
        std::memset(mask.GetBuffer(), 0, 72 * 56);
        for (int y = hy0; y < hy1; ++y)
            for (int x = hx0; x < hx1; ++x)
                mask.SetValue(x, y, 255);
    }
};

long Direct(CImageProcess& process, const void* params)
{
    return process.Process(params);
}

} // namespace

TEST(SmartInpaintDialog, SuccessReplacesTheBaseWithOneStepAndKeepsTheSelection)
{
    InpaintDocument d(30, 20, 42, 32);
    CProcessThread worker;
    CUiQueue ui;
    CSmartInpaintDlg dlg(worker, ui);
    std::string key;
    ASSERT_TRUE(dlg.Open(d.doc, key));
    EXPECT_EQ(dlg.settings.feather, 1) << "the check box starts checked";
    EXPECT_EQ(dlg.GetBlockSize(), CPatchInpaintProcess::EstimateBlockSize(d.doc.GetSelectionMask()));
    COLChannel maskBefore;
    maskBefore.DuplicateFrom(&d.doc.GetSelectionMask());

    // The run on the worker, waited for as the editor's wait dialog does (without a window).
    CRecordingHistory history;
    const ProcessRunner onWorker = [&](CImageProcess& p, const void* params) {
        worker.StartImageProcess(nullptr, &p, params, 0, 0, 100, 0);
        return worker.GetLastResult();
    };
    // The worker wants a window or a listener to run for.
    struct : IProcessListener {
        void OnProcessEvent(uint32_t, int32_t) override {}
    } listener;
    worker.SetListener(&listener);
    ASSERT_TRUE(dlg.Run(&history, onWorker, key));
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
    InpaintDocument d(10, 10, 50, 40);
    CProcessThread worker;
    CUiQueue ui;
    CSmartInpaintDlg dlg(worker, ui);
    std::string key;
    ASSERT_TRUE(dlg.Open(d.doc, key));
    CRecordingHistory history;
    EXPECT_FALSE(dlg.Run(&history, Direct, key));
    EXPECT_EQ(key, "inpainterr");
    EXPECT_EQ(dlg.GetLastResult(), kInpaintNoSample);
    EXPECT_TRUE(history.Steps().empty());
    EXPECT_TRUE(vmtest::SamePixels(d.doc.GetLayer(0)->m_image, d.original));

    // A runner that fails half way through (memory) leaves the layer too.
    key.clear();
    InpaintDocument e(30, 20, 42, 32);
    CSmartInpaintDlg second(worker, ui);
    ASSERT_TRUE(second.Open(e.doc, key));
    const ProcessRunner broken = [&](CImageProcess& p, const void* params) {
        p.Process(params);
        return kFail;
    };
    EXPECT_FALSE(second.Run(&history, broken, key));
    EXPECT_EQ(key, "inpainterr");
    EXPECT_TRUE(vmtest::SamePixels(e.doc.GetLayer(0)->m_image, e.original));

    ASSERT_NE(e.doc.AddLayer(0, 0), nullptr);
    e.doc.SetCurrentIndex(1);
    CSmartInpaintDlg third(worker, ui);
    EXPECT_FALSE(third.Open(e.doc, key));
    EXPECT_EQ(key, "onlybaselayer");
}
