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

// A base layer of stripes with a magenta block, selected.
struct StripedDocument {
    CComposeDocument doc{0};
    COLImage original;

    StripedDocument()
    {
        EXPECT_TRUE(doc.NewDocument(72, 56, 0xFF000000u));
        COLImage& img = doc.GetLayer(0)->m_image;
        for (uint32_t y = 0; y < 56; ++y)
            for (uint32_t x = 0; x < 72; ++x)
                img.PutPixel(x, y, vmtest::Rgb(((x + y) / 6) % 2 ? 200 : 40, 90, int(x * 3)));
        COLChannel& mask = doc.GetSelectionMask();
        mask.Create(72, 56);
        std::memset(mask.GetBuffer(), 0, 72 * 56);
        for (uint32_t y = 20; y < 34; ++y)
            for (uint32_t x = 28; x < 44; ++x) {
                mask.SetValue(x, y, 255);
                img.PutPixel(x, y, vmtest::Rgb(255, 0, 255));
            }
        original.DuplicateFrom(&img);
    }
};

} // namespace

TEST(SmartInpaintStructure, TheDialogRunsTheChosenMethodWithOneStep)
{
    StripedDocument d;
    CProcessThread worker;
    CUiQueue ui;
    CSmartInpaintDlg dlg(worker, ui);
    std::string key;
    ASSERT_TRUE(dlg.Open(d.doc, key));
    dlg.settings.method = kInpaintStructure;
    CRecordingHistory history;
    const ProcessRunner direct = [](CImageProcess& p, const void* params) { return p.Process(params); };
    ASSERT_TRUE(dlg.Run(&history, direct, key));
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
    StripedDocument d;
    CProcessThread worker;
    CUiQueue ui;
    CSmartInpaintDlg dlg(worker, ui);
    std::string key;
    ASSERT_TRUE(dlg.Open(d.doc, key));
    dlg.settings.method = kInpaintStructure;
    CRecordingHistory history;
    // The user presses ESC as the run starts.
    const ProcessRunner cancelled = [](CImageProcess& p, const void* params) {
        p.RequestCancel();
        return p.Process(params);
    };
    EXPECT_FALSE(dlg.Run(&history, cancelled, key));
    EXPECT_EQ(key, "");
    EXPECT_TRUE(history.Steps().empty());
    EXPECT_TRUE(vmtest::SamePixels(d.doc.GetLayer(0)->m_image, d.original));

    // A real failure still names the error text: a hole above a fifth of the picture.
    std::memset(d.doc.GetSelectionMask().GetBuffer(), 255, 72 * 20);
    ASSERT_TRUE(dlg.Open(d.doc, key));
    const ProcessRunner direct = [](CImageProcess& p, const void* params) { return p.Process(params); };
    EXPECT_FALSE(dlg.Run(&history, direct, key));
    EXPECT_EQ(key, "inpainterr");
    EXPECT_EQ(dlg.GetLastResult(), kExemplarCannotFill);
}
