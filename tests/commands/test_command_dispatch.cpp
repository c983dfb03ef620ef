#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <thread>

#include "commands/command.h"
#include "commands/history_sink.h"
#include "document/compose_document.h"
#include "document/layer.h"
#include "imaging/codec.h"
#include "imaging/gbk_text.h"
#include "support/engine_checks.h"
#include "support/test_support.h"

using namespace std::chrono_literals;

namespace {

class FakeHost : public ICommandHost {
public:
    bool CopyToClipboard(CComposeDocument&) override
    {
        ++copies;
        return copyWorks;
    }
    bool PasteFromClipboard(CComposeDocument&, IHistorySink*) override { return ++pastes, true; }
    bool AskOpenPath(bool documentFilter, std::string& path) override
    {
        lastFilterWasDocument = documentFilter;
        if (nextPath.empty()) return false;
        path = nextPath;
        return true;
    }
    bool RunFillDialog() override { return ++fills, true; }
    bool RunInpaintDialog() override { return ++inpaints, false; }
    void ShowMessage(const char* key) override { messages += std::string(key) + ";"; }
    bool Zoom(int direction) override
    {
        zooms += std::to_string(direction) + ";";
        return true;
    }
    void CancelTool() override { ++cancels; }
    bool IsSelectionMode() override { return selectionMode; }
    IHistoryNavigator* GetSelectionHistory() override { return &selectionHistory; }
    void RefreshSelectionDocument() override { ++selectionRefreshes; }
    void UpdatePanels() override { ++panelUpdates; }

    bool copyWorks = true, selectionMode = false, lastFilterWasDocument = false;
    int copies = 0, pastes = 0, fills = 0, inpaints = 0, cancels = 0, selectionRefreshes = 0, panelUpdates = 0;
    std::string nextPath, messages, zooms;
    CRecordingHistory selectionHistory;
};

// A 20 x 10 document with a base of noise and two upper layers; the context records into `history`.
class Commands : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(doc.NewDocument(20, 10, 0xFF000000), 1);
        vmtest::FillNoise(doc.GetLayer(0)->m_image, 20, 10, 1);
        for (int i = 0; i < 2; ++i) {
            CLayer* layer = doc.AddLayer(i, 0);
            ASSERT_NE(layer, nullptr);
            vmtest::FillNoise(layer->m_image, 20, 10, uint32_t(10 + i));
        }
        context.document = &doc;
        context.history = &history;
        context.host = &host;
        context.foreground = 0xFF10E040;
    }
    int Run(const char* text) { return ExecuteCommand(context, text); }
    const CRecordingHistory::Step& LastStep() const { return history.Steps().back(); }
    // The last recorded step as (kind, arg, label).
    void ExpectLastStep(int kind, int arg, const std::string& label) const
    {
        ASSERT_FALSE(history.Steps().empty());
        EXPECT_EQ(std::make_tuple(LastStep().kind, LastStep().arg, LastStep().label), std::make_tuple(kind, arg, label));
    }

    CComposeDocument doc{0};
    CRecordingHistory history;
    FakeHost host;
    CCommandContext context;
};

void SelectRect(CLayerStack& doc, int x0, int y0, int x1, int y1, uint8_t value)
{
    doc.GetSelectionMask() = vmtest::PlaneOf(doc.GetWidth(), doc.GetHeight(), [=](int x, int y) {
        return x >= x0 && x < x1 && y >= y0 && y < y1 ? value : 0;
    });
}

} // namespace

TEST_F(Commands, NamesIgnoreCaseAndSelectAllRecordsEachTime)
{
    EXPECT_EQ(Run("doc_selectall"), kCommandDone);
    EXPECT_EQ(Run("DOC_SELECTALL"), kCommandDone);
    ASSERT_EQ(history.Steps().size(), 2u);
    ExpectLastStep(5, -1, "His_select");
    EXPECT_EQ(vmtest::Bytes(doc.GetSelectionMask()), vmtest::Bytes(vmtest::Plane(20, 10, 255)));
    EXPECT_GE(doc.GetModificationCount(), 2u);
}

TEST_F(Commands, DispatcherLetterRules)
{
    const uint32_t before = doc.GetModificationCount();
    // No row carries the name; fifth letters below C, above S and with no rows; an H name that is no history
    // command: all done, and nothing happens.
    for (const char* text : {"Doc_SelectLayer('1')", "Doc_Apple", "Doc_Zoom", "Doc_Explode", "Doc", "UI_Whatever",
                             "UI_Hop", "Something_Else"})
        EXPECT_EQ(Run(text), kCommandDone) << text;
    EXPECT_EQ(Run("Doc_DeleteLayer("), kCommandUnparsable);
    EXPECT_EQ(host.cancels, 0);
    EXPECT_TRUE(history.Steps().empty());
    EXPECT_EQ(doc.GetModificationCount(), before);
    EXPECT_EQ(doc.GetLayerCount(), 3);

    // Any fifth letter "C" cuts, whatever the fourth character: here the copy is refused, so nothing is deleted.
    SelectRect(doc, 0, 0, 20, 10, 255);
    host.copyWorks = false;
    EXPECT_EQ(Run("DocXCopy"), kCommandRefused);
    EXPECT_EQ(host.copies, 1);
    EXPECT_TRUE(history.Steps().empty());
    host.copyWorks = true;
    doc.SetCurrentIndex(2);
    EXPECT_EQ(Run("Doc_Copy"), kCommandDone) << "copies, then deletes the selection";
    EXPECT_EQ(host.copies, 2);
    EXPECT_EQ(doc.GetLayer(2)->m_image.GetPixel2(5, 5).alpha, 0);
    ASSERT_EQ(history.Steps().size(), 1u);
    ExpectLastStep(3, 2, "His_delete");

    EXPECT_EQ(Run("Doc_Pxyz"), kCommandDone);
    EXPECT_EQ(host.pastes, 1) << "any fifth letter P pastes";
}

TEST_F(Commands, DeleteLayerAndSetCurLayer)
{
    // The base is not deletable; no such layer; no argument.
    for (const char* text : {"Doc_DeleteLayer('0')", "Doc_DeleteLayer('3')", "Doc_DeleteLayer"})
        EXPECT_EQ(Run(text), kCommandRefused) << text;
    CLayer* top = doc.GetLayer(2);
    EXPECT_EQ(Run("Doc_DeleteLayer('1')"), kCommandDone);
    EXPECT_EQ(doc.GetLayerCount(), 2);
    EXPECT_EQ(doc.GetLayer(1), top);
    ExpectLastStep(6, 1, "His_deletelayer");

    doc.SetCurrentIndex(1);
    // Already current; no such layers.
    for (const char* text : {"Doc_SetCurLayer('1')", "Doc_SetCurLayer('-1')", "Doc_SetCurLayer('2')"})
        EXPECT_EQ(Run(text), kCommandRefused) << text;
    EXPECT_EQ(Run("Doc_SetCurLayer('0')"), kCommandDone);
    EXPECT_EQ(doc.GetCurrentIndex(), 0);
    ExpectLastStep(1, 0, "His_curlayer");
}

TEST_F(Commands, LayerPropertyChange)
{
    EXPECT_EQ(Run("Doc_LayerPropertyChange('1','0','10,-5')"), kCommandDone);
    EXPECT_EQ(vmtest::Place(*doc.GetLayer(1)), "10,-5");
    ExpectLastStep(2, 1, "His_layerpropertychange");
    // Visibility, opacity (its low byte) and blend mode.
    for (const char* text : {"Doc_LayerPropertyChange('2','1','0')", "Doc_LayerPropertyChange('2','3','300')",
                             "Doc_LayerPropertyChange('0','4','6')"})
        EXPECT_EQ(Run(text), kCommandDone) << text;
    EXPECT_EQ(std::make_tuple(int(doc.GetLayer(2)->m_visible), int(doc.GetLayer(2)->m_opacity),
                              int(doc.GetLayer(0)->m_blendMode)),
              std::make_tuple(0, 300 & 0xFF, 6));

    std::string gbk;
    ASSERT_TRUE(Utf8ToGbk("前景人物", gbk));
    EXPECT_EQ(Run(("Doc_LayerPropertyChange('1','2','" + gbk + "')").c_str()), kCommandDone);
    EXPECT_EQ(std::string(doc.GetLayer(1)->m_name), gbk);
    // 32 bytes do not fit the field with its NUL: cut to whole characters.
    ASSERT_TRUE(Utf8ToGbk("一二三四五六七八九十一二三四五六", gbk));
    ASSERT_EQ(gbk.size(), 32u);
    EXPECT_EQ(Run(("Doc_LayerPropertyChange('1','2','" + gbk + "')").c_str()), kCommandDone);
    EXPECT_EQ(std::string(doc.GetLayer(1)->m_name), gbk.substr(0, 30));

    const size_t steps = history.Steps().size();
    // No such layer, no such property, a position without comma, no number, no value.
    for (const char* text : {"Doc_LayerPropertyChange('3','1','1')", "Doc_LayerPropertyChange('1','5','1')",
                             "Doc_LayerPropertyChange('1','0','10')", "Doc_LayerPropertyChange('1','3','none')",
                             "Doc_LayerPropertyChange('1','3')"})
        EXPECT_EQ(Run(text), kCommandRefused) << text;
    EXPECT_EQ(history.Steps().size(), steps);
    EXPECT_EQ(doc.GetLayer(1)->m_x, 10);
}

TEST(CommandLock, RefusedPropertyChangeReleasesTheLock)
{
    CComposeDocument doc(1);
    ASSERT_EQ(doc.NewDocument(8, 8, 0), 1);
    CCommandContext context;
    context.document = &doc;
    EXPECT_EQ(ExecuteCommand(context, "Doc_LayerPropertyChange('0','3','x')"), kCommandRefused);
    // The merge takes the lock on its own thread: it can only finish if the command let go.
    std::thread other([&] { doc.Lock(1), doc.Lock(0); });
    other.join();
    EXPECT_EQ(ExecuteCommand(context, "Doc_LayerPropertyChange('0','0','1,2')"), kCommandDone);
}

TEST_F(Commands, LayerLocateChange)
{
    CLayer* one = doc.GetLayer(1);
    CLayer* two = doc.GetLayer(2);
    ASSERT_NE(doc.AddLayer(2, 0), nullptr);
    CLayer* three = doc.GetLayer(3);
    doc.SetCurrentIndex(2);
    // The base never moves and nothing goes below it; a move to the same place; no such place.
    for (const char* text : {"Doc_LayerLocateChange('0','2')", "Doc_LayerLocateChange('2','0')",
                             "Doc_LayerLocateChange('2','2')", "Doc_LayerLocateChange('1','4')"})
        EXPECT_EQ(Run(text), kCommandRefused) << text;
    EXPECT_TRUE(history.Steps().empty());
    EXPECT_EQ(Run("Doc_LayerLocateChange('3','1')"), kCommandDone);
    EXPECT_EQ(doc.GetLayer(1), three);
    EXPECT_EQ(doc.GetLayer(2), one);
    EXPECT_EQ(doc.GetLayer(3), two);
    EXPECT_EQ(doc.GetCurrentIndex(), 2) << "the current index stays";
    ExpectLastStep(2, 0, "His_layerlocatechange");
}

TEST_F(Commands, NewMergeDownAndFlatten)
{
    EXPECT_EQ(Run("Doc_NewLayer('0')"), kCommandDone);
    EXPECT_EQ(doc.GetLayerCount(), 4);
    EXPECT_EQ(doc.GetLayer(1)->m_image.GetPixel(3, 3), 0u);
    ExpectLastStep(8, 0, "His_newlayer");
    EXPECT_EQ(Run("Doc_NewLayer('4')"), kCommandRefused);

    EXPECT_EQ(Run("Doc_MergeDownLayer('0')"), kCommandRefused);
    EXPECT_EQ(Run("Doc_MergeDownLayer('4')"), kCommandRefused);
    doc.SetCurrentIndex(3);
    EXPECT_EQ(Run("Doc_MergeDownLayer('3')"), kCommandDone);
    EXPECT_EQ(std::make_tuple(doc.GetLayerCount(), doc.GetCurrentIndex()), std::make_tuple(3, 2));
    ExpectLastStep(255, 3, "His_mergedownlayer");

    EXPECT_EQ(Run("Doc_FlatImage"), kCommandDone);
    EXPECT_EQ(doc.GetLayerCount(), 1);
    ExpectLastStep(255, 0, "His_flatimage");
    EXPECT_EQ(LastStep().layerCount, 1) << "recorded after the change";

    CComposeDocument empty(0);
    context.document = &empty;
    EXPECT_EQ(Run("Doc_NewLayer('-1')"), kCommandRefused) << "commands need a document with layers";
    EXPECT_EQ(Run("Doc_FlatImage"), kCommandRefused);
    EXPECT_EQ(Run("Doc_FlipH"), kCommandDone) << "flips never fail";
    EXPECT_EQ(Run("Doc_RotateLeft"), kCommandRefused);
}

TEST_F(Commands, FlipsAndRotations)
{
    CLayer* layer = doc.GetLayer(1);
    layer->m_x = 3;
    layer->m_y = -2; // partly off the canvas
    doc.SetCurrentIndex(1);
    COLImage before = vmtest::Copy(layer->m_image);
    EXPECT_EQ(Run("Doc_FlipH"), kCommandDone);
    EXPECT_TRUE(vmtest::Mirrored(before, layer->m_image));
    EXPECT_EQ(layer->m_x, 3);
    ExpectLastStep(3, 1, "His_FlipH");
    EXPECT_EQ(Run("Doc_FlipH"), kCommandDone);
    EXPECT_TRUE(vmtest::SamePixels(layer->m_image, before));
    EXPECT_EQ(Run("Doc_FlipV"), kCommandDone);
    EXPECT_EQ(layer->m_image.GetPixel(6, 0), before.GetPixel(6, 9));
    EXPECT_EQ(LastStep().label, "His_FlipV");
    EXPECT_EQ(Run("Doc_FlipV"), kCommandDone);

    EXPECT_EQ(Run("Doc_RotateRight"), kCommandDone);
    ASSERT_EQ(vmtest::Size(layer->m_image), "10x20");
    // Clockwise: the bottom-left corner goes to the top-left, the top-left to the top-right.
    EXPECT_EQ(layer->m_image.GetPixel(0, 0), before.GetPixel(0, 9));
    EXPECT_EQ(layer->m_image.GetPixel(9, 0), before.GetPixel(0, 0));
    EXPECT_EQ(layer->m_image.GetPixel(9, 19), before.GetPixel(19, 0));
    EXPECT_EQ(vmtest::Place(*layer), "3,-2") << "the corner stays";
    EXPECT_EQ(doc.GetWidth(), 20) << "the document keeps its size";
    ExpectLastStep(kStepLayerHeaderRegion, 1, "His_RotateRight");
    EXPECT_EQ(Run("Doc_RotateLeft"), kCommandDone);
    EXPECT_TRUE(vmtest::SamePixels(layer->m_image, before));
    EXPECT_EQ(LastStep().label, "His_RotateLeft");
    EXPECT_EQ(Run("Doc_RotateLeft"), kCommandDone);
    EXPECT_EQ(layer->m_image.GetPixel(0, 0), before.GetPixel(19, 0)) << "the right column comes to the top";
}

TEST_F(Commands, SelectionCommands)
{
    EXPECT_EQ(Run("Doc_SelectNone"), kCommandRefused) << "no selection to drop";
    EXPECT_EQ(Run("Doc_SelectInverse"), kCommandDone);
    ASSERT_FALSE(doc.GetSelectionMask().IsNull());
    EXPECT_EQ(doc.GetSelectionMask().GetValue(19, 9), 255) << "inverse of nothing is everything";
    EXPECT_EQ(Run("Doc_SelectInverse"), kCommandDone);
    EXPECT_TRUE(doc.GetSelectionMask().IsNull()) << "inverse of everything leaves no mask";
    SelectRect(doc, 2, 2, 5, 5, 100);
    EXPECT_EQ(Run("Doc_SelectInverse"), kCommandDone);
    EXPECT_EQ(doc.GetSelectionMask().GetValue(3, 3), 155);
    EXPECT_EQ(doc.GetSelectionMask().GetValue(0, 0), 255);
    EXPECT_EQ(LastStep().label, "His_select");
    EXPECT_EQ(Run("Doc_SelectNone"), kCommandDone);
    EXPECT_TRUE(doc.GetSelectionMask().IsNull());
    ExpectLastStep(5, -1, "His_selectnone");
    EXPECT_EQ(Run("Doc_SelectSegmentDeflate"), kCommandRefused);
}

TEST_F(Commands, DeleteOnTheBasePaintsTheForeground)
{
    doc.SetCurrentIndex(0);
    EXPECT_EQ(Run("Doc_Delect"), kCommandDone) << "without a selection nothing happens";
    EXPECT_TRUE(history.Steps().empty());
    COLImage before = vmtest::Copy(doc.GetLayer(0)->m_image);
    SelectRect(doc, 0, 0, 10, 10, 255);
    doc.GetSelectionMask().SetValue(1, 1, 100);
    EXPECT_EQ(Run("Doc_Delect"), kCommandDone);
    const COLImage& base = doc.GetLayer(0)->m_image;
    EXPECT_EQ(base.GetPixel(0, 0) & 0xFFFFFF, 0x10E040u) << "m 255 paints the pure foreground";
    EXPECT_EQ(base.GetPixel2(0, 0).alpha, before.GetPixel2(0, 0).alpha);
    const CPixel was = before.GetPixel2(1, 1);
    EXPECT_EQ(base.GetPixel2(1, 1).red, (0x10 * 100 + 155 * was.red) / 255);
    EXPECT_EQ(base.GetPixel2(1, 1).green, (0xE0 * 100 + 155 * was.green) / 255);
    EXPECT_EQ(base.GetPixel(15, 5), before.GetPixel(15, 5)) << "unselected";
    ExpectLastStep(3, 0, "His_delete");

    EXPECT_EQ(Run("Doc_DelectInv"), kCommandDone);
    EXPECT_EQ(base.GetPixel(15, 5) & 0xFFFFFF, 0x10E040u);
    EXPECT_EQ(base.GetPixel(0, 0) & 0xFFFFFF, 0x10E040u);
    EXPECT_EQ(LastStep().label, "His_deleteinv");
}

TEST_F(Commands, DeleteOnUpperLayersTakesCoverage)
{
    CLayer* layer = doc.GetLayer(1);
    layer->m_x = 15; // hangs 15 pixels past the right edge
    layer->m_y = 0;
    doc.SetCurrentIndex(1);
    COLImage before = vmtest::Copy(layer->m_image);
    SelectRect(doc, 0, 0, 20, 10, 0);
    doc.GetSelectionMask().SetValue(16, 2, 255);
    doc.GetSelectionMask().SetValue(17, 2, 90);
    EXPECT_EQ(Run("Doc_Delect"), kCommandDone);
    EXPECT_EQ(layer->m_image.GetPixel2(1, 2).alpha, 0);
    EXPECT_EQ(layer->m_image.GetPixel2(2, 2).alpha, (255 - 90) * before.GetPixel2(2, 2).alpha / 255);
    EXPECT_EQ(layer->m_image.GetPixel2(10, 2).alpha, before.GetPixel2(10, 2).alpha) << "outside the document";
    EXPECT_EQ(layer->m_image.GetPixel(3, 3), before.GetPixel(3, 3));

    EXPECT_EQ(Run("Doc_DelectInv"), kCommandDone);
    EXPECT_EQ(layer->m_image.GetPixel2(10, 2).alpha, 0) << "the part past the edge is cleared";
    EXPECT_EQ(layer->m_image.GetPixel2(3, 3).alpha, 0);
    EXPECT_EQ(layer->m_image.GetPixel2(2, 2).alpha, (255 - 90) * before.GetPixel2(2, 2).alpha / 255 * 90 / 255);
    EXPECT_EQ(layer->m_image.GetPixel(2, 2) & 0xFFFFFF, before.GetPixel(2, 2) & 0xFFFFFF) << "colour stays";
}

TEST_F(Commands, DialogsAndClipboardNeedTheHost)
{
    EXPECT_EQ(Run("Doc_FillSelection"), kCommandDone);
    EXPECT_EQ(host.fills, 1);
    EXPECT_EQ(Run("Doc_SmartInpaint"), kCommandRefused) << "the dialog was cancelled";
    EXPECT_EQ(host.inpaints, 1);
    EXPECT_EQ(Run("UI_Copy"), kCommandDone);
    EXPECT_EQ(host.copies, 1);
    EXPECT_TRUE(history.Steps().empty()) << "a copy records nothing";
    context.host = nullptr;
    for (const char* text : {"Doc_FillSelection", "Doc_SmartInpaint", "Doc_Paste", "UI_Copy", "Doc_Cut", "Doc_Open",
                             "Doc_OpenLayer('1')", "UI_ZoomIn"})
        EXPECT_EQ(Run(text), kCommandRefused) << text;
}

TEST_F(Commands, OpenDocumentAndLayerFiles)
{
    vmtest::TempDir dir;
    COLImage picture = vmtest::Noise(7, 5, 2);
    const std::string path = dir.File("p.bmp");
    ASSERT_NE(COLImageCodec().SaveFile(path.c_str(), &picture), 0);
    history.AddStep(&doc, 3, 0, "older");

    EXPECT_EQ(Run("Doc_Open"), kCommandRefused) << "cancelled dialog";
    host.nextPath = path;
    EXPECT_EQ(Run("Doc_open"), kCommandDone);
    EXPECT_TRUE(host.lastFilterWasDocument);
    EXPECT_EQ(std::make_tuple(doc.GetLayerCount(), doc.GetWidth()), std::make_tuple(1, 7)); // layers, width
    EXPECT_EQ(context.documentPath, path);
    EXPECT_EQ(history.ResetCount(), 1);
    ASSERT_EQ(history.Steps().size(), 1u);
    ExpectLastStep(255, 0, "His_open");

    EXPECT_EQ(Run("Doc_OpenLayer('1')"), kCommandDone);
    EXPECT_FALSE(host.lastFilterWasDocument);
    EXPECT_EQ(std::make_tuple(doc.GetLayerCount(), doc.GetCurrentIndex()), std::make_tuple(2, 1));
    ExpectLastStep(104, 1, "His_openlayer");
    // Into a wholly transparent layer: no layer is added and that layer becomes current.
    ASSERT_EQ(Run("Doc_NewLayer('1')"), kCommandDone);
    EXPECT_EQ(Run("Doc_OpenLayer('3')"), kCommandDone);
    EXPECT_EQ(std::make_tuple(doc.GetLayerCount(), doc.GetCurrentIndex()), std::make_tuple(3, 2));
    ExpectLastStep(4, 2, "His_openlayer");
    EXPECT_EQ(Run("Doc_OpenLayer('9')"), kCommandRefused);

    host.nextPath = dir.File("missing.png");
    EXPECT_EQ(Run("Doc_OpenLayer('1')"), kCommandRefused);
    EXPECT_EQ(host.messages, "can't open;");
    EXPECT_EQ(doc.GetLayerCount(), 3);
    EXPECT_EQ(Run("Doc_Open"), kCommandRefused);
    EXPECT_EQ(host.messages, "can't open;can't open;");
    EXPECT_EQ(context.documentPath, path) << "the open document keeps its path";
    EXPECT_EQ(doc.GetLayerCount(), 3) << "a failed open keeps the open document";
    EXPECT_EQ(history.ResetCount(), 1) << "and its history";
}

TEST_F(Commands, ZoomAndHistoryCommands)
{
    for (const char* text : {"UI_Zoomin", "UI_ZoomIn", "UI_ZoomOut", "UI_ZoomFit"})
        EXPECT_EQ(Run(text), kCommandDone) << text;
    EXPECT_EQ(host.zooms, "1;1;-1;0;");

    history.AddStep(&doc, 255, 0, "His_open");
    const uint32_t count = doc.GetModificationCount();
    EXPECT_EQ(Run("UI_HistoryBackward"), kCommandRefused) << "the first step cannot be undone";
    EXPECT_EQ(host.cancels, 1) << "the tool is cancelled first";
    EXPECT_EQ(doc.GetModificationCount(), count) << "nothing is refreshed";
    EXPECT_EQ(host.panelUpdates, 0);
    history.AddStep(&doc, 3, 0, "His_FlipH");
    EXPECT_EQ(Run("UI_HistoryBackward"), kCommandDone);
    EXPECT_EQ(history.CurrentStep(), 1);
    EXPECT_EQ(doc.GetModificationCount(), count + 1);
    EXPECT_EQ(host.panelUpdates, 1);
    EXPECT_EQ(Run("UI_HistoryForward"), kCommandDone);
    EXPECT_EQ(history.CurrentStep(), 2);
    EXPECT_EQ(Run("UI_HistoryForward"), kCommandRefused);
    EXPECT_EQ(Run("UI_HistoryJumpTo('1')"), kCommandDone);
    EXPECT_EQ(history.CurrentStep(), 1);
    EXPECT_EQ(Run("UI_HistoryJumpTo('0')"), kCommandRefused);
    EXPECT_EQ(Run("UI_HistoryJumpTo"), kCommandRefused);

    // In selection mode the selection history moves and the selection document is refreshed.
    host.selectionMode = true;
    host.selectionHistory.AddStep(nullptr, 255, 0, "createsel");
    host.selectionHistory.AddStep(nullptr, 5, 4, "brush");
    EXPECT_EQ(Run("UI_HistoryBackward"), kCommandDone);
    EXPECT_EQ(host.selectionHistory.CurrentStep(), 1);
    EXPECT_EQ(history.CurrentStep(), 1);
    EXPECT_EQ(host.selectionRefreshes, 1);
}
