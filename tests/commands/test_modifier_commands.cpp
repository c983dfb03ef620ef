#include <algorithm>
#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <tuple>
#include <vector>

#include "commands/command.h"
#include "commands/doc_state.h"
#include "commands/history_log.h"
#include "commands/history_sink.h"
#include "commands/modifier_commands.h"
#include "document/compose_document.h"
#include "document/layer.h"
#include "effects/segment_deflate.h"
#include "effects/selection_modifiers.h"
#include "support/engine_checks.h"
#include "support/pictures.h"
#include "support/plain_masks.h"
#include "support/temp_folder.h"
#include "support/test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;

using vmtest::OverOpaque;
using vmtest::PlainExpand;

// A 12 x 9 document: an opaque noisy base and one half-transparent upper layer; a soft-edged selection.
class ModifierCommands : public ::testing::Test {
protected:
    static constexpr int kW = 12, kH = 9;
    void SetUp() override
    {
        ASSERT_EQ(log.Init(), 1);
        ASSERT_EQ(doc.NewDocument(kW, kH, 0xFF000000), 1);
        doc.GetLayer(0)->m_image = vmtest::OpaqueNoise(kW, kH, 5);
        log.AddStep(&doc, kStepWholeDocument, 0, "His_open");
        context.document = &doc;
        context.history = &log;
        context.foreground = 0xFF102030;
    }
    void Select(const Bytes& bytes)
    {
        COLChannel& mask = doc.GetSelectionMask();
        mask.Create(kW, kH);
        std::memcpy(mask.GetBuffer(), bytes.data(), bytes.size());
        log.AddStep(&doc, kStepChannel, -1, "His_select");
    }
    // A block from (3, 2) to (8, 6) at 255, with a ring of 128 around it.
    static Bytes Block()
    {
        return MaskOf([](int x, int y) {
            return x < 2 || x >= 10 || y < 1 || y >= 8 ? 0 : (x >= 3 && x < 9 && y >= 2 && y < 7) ? 255 : 128;
        });
    }
    // The bytes of a mask whose value at (x, y) is at(x, y).
    template <class F> static Bytes MaskOf(F at) { return vmtest::Bytes(vmtest::PlaneOf(kW, kH, at)); }
    // The bytes of an opaque picture with the colour (blue, green, red bytes) laid over pixel i at coverage
    // alpha(i), as the fill and the stroke paint the base.
    template <class F> static Bytes Painted(const Bytes& under, std::array<uint8_t, 3> colour, F alpha)
    {
        Bytes out = under;
        for (size_t i = 0; i < under.size() / 4; ++i)
            if (const int a = alpha(i))
                for (size_t c = 0; c < 3; ++c)
                    out[i * 4 + c] = OverOpaque(colour[c], under[i * 4 + c], a);
        return out;
    }
    int Run(const char* text) { return ExecuteCommand(context, text); }
    const CHistoryRecord& LastRecord() const { return *log.GetRecord(log.GetCount() - 1); }

    vmtest::ScopedTempFolder tmp;
    CComposeHistory log;
    CComposeDocument doc{0};
    CCommandContext context;
};

} // namespace

TEST_F(ModifierCommands, ExpandShrinkAndFeatherChangeTheMaskAndRecordIt)
{
    const Bytes block = Block();
    Select(block);
    ASSERT_EQ(Run("Doc_SelectExpand('2')"), kCommandDone);
    EXPECT_EQ(vmtest::Bytes(doc.GetSelectionMask()), PlainExpand(block, kW, kH, 2));
    EXPECT_EQ(std::make_tuple(LastRecord().kind, LastRecord().arg), std::make_tuple(5, -1));
    EXPECT_STREQ(LastRecord().label, "expanddlg");

    ASSERT_EQ(Run("Doc_SelectShrink('2')"), kCommandDone);
    EXPECT_STREQ(LastRecord().label, "selshink");
    COLChannel feathered = vmtest::Copy(doc.GetSelectionMask());
    ASSERT_EQ(FeatherPlane(feathered, 6), kOk);
    ASSERT_EQ(Run("Doc_SelectFeather('6')"), kCommandDone);
    EXPECT_EQ(vmtest::Bytes(doc.GetSelectionMask()), vmtest::Bytes(feathered));
    EXPECT_STREQ(LastRecord().label, "His_Feature");

    // Undo goes back through each mask.
    const int steps = log.GetCurrentStep();
    ASSERT_EQ(log.JumpTo(steps - 3), 1);
    EXPECT_EQ(vmtest::Bytes(doc.GetSelectionMask()), block);
}

TEST_F(ModifierCommands, OutOfRangeAndMissingSelectionAreRefusedWithTheDocumentUnchanged)
{
    const vmtest::DocState before = vmtest::Capture(doc);
    const size_t records = size_t(log.GetCount());
    for (const char* text : {"Doc_SelectExpand('1')", "Doc_SelectFeather('5')", "Doc_SelectSegmentDeflate"})
        EXPECT_EQ(Run(text), kCommandRefused) << text << " without a selection";
    EXPECT_EQ(vmtest::Capture(doc), before);
    Select(Block());
    const vmtest::DocState selected = vmtest::Capture(doc);
    for (const char* text :
         {"Doc_SelectExpand('0')", "Doc_SelectExpand('33')", "Doc_SelectShrink('40')", "Doc_SelectFeather('0')",
          "Doc_SelectFeather('1000')", "Doc_SelectExpand", "Doc_StrokeSelection('17')", "Doc_StrokeSelection('2','0')",
          "Doc_FillSelection('101')", "Doc_FillSelection('50','12345G')", "Doc_SelectFeatherResult('3')"})
        EXPECT_EQ(Run(text), kCommandRefused) << text;
    EXPECT_EQ(vmtest::Capture(doc), selected);
    EXPECT_EQ(size_t(log.GetCount()), records + 1) << "only the selection's own step";
}

TEST_F(ModifierCommands, ShrinkingAwayTheSelectionDeselects)
{
    Select(MaskOf([](int x, int y) { return y == 4 && x >= 2 && x < 9 ? 255 : 0; }));
    ASSERT_EQ(Run("Doc_SelectShrink('1')"), kCommandDone);
    EXPECT_TRUE(doc.GetSelectionMask().IsNull());
    EXPECT_STREQ(LastRecord().label, "His_selectnone");
}

TEST_F(ModifierCommands, FillAndStrokeOnTheBaseGiveExactBytesAndUndoRestoresThem)
{
    const Bytes block = Block();
    Select(block);
    const Bytes base = vmtest::Bytes(doc.GetLayer(0)->m_image);
    const int stepBefore = log.GetCurrentStep();

    ASSERT_EQ(Run("Doc_FillSelection('70','FF8000')"), kCommandDone);
    ASSERT_EQ(doc.GetLayerCount(), 1);
    EXPECT_EQ(std::make_tuple(int(LastRecord().kind), LastRecord().arg), std::make_tuple(4, 0));
    EXPECT_STREQ(LastRecord().label, "fill");
    Bytes expected = Painted(base, {0x00, 0x80, 0xFF}, [&](size_t i) { return 70 * block[i] / 100; });
    EXPECT_EQ(vmtest::Bytes(doc.GetLayer(0)->m_image), expected);
    const Bytes filled = expected;

    // A stroke of 2 pixels at 50 %: the band between the mask and its expansion, on the filled base.
    ASSERT_EQ(Run("Doc_StrokeSelection('2','50','0000FF')"), kCommandDone);
    EXPECT_STREQ(LastRecord().label, "stroke");
    const Bytes grown = PlainExpand(block, kW, kH, 2);
    expected =
        Painted(filled, {0xFF, 0x00, 0x00}, [&](size_t i) { return 50 * std::max(0, grown[i] - block[i]) / 100; });
    EXPECT_EQ(vmtest::Bytes(doc.GetLayer(0)->m_image), expected);

    ASSERT_EQ(log.Backward(), 1);
    EXPECT_EQ(vmtest::Bytes(doc.GetLayer(0)->m_image), filled);
    ASSERT_EQ(log.JumpTo(stepBefore), 1);
    EXPECT_EQ(vmtest::Bytes(doc.GetLayer(0)->m_image), base);
    ASSERT_EQ(log.JumpTo(stepBefore + 2), 1);
    EXPECT_EQ(vmtest::Bytes(doc.GetLayer(0)->m_image), expected);
}

TEST_F(ModifierCommands, FillOfAnUpperLayerIsTrimmedAndTheForegroundIsTheDefaultColour)
{
    CLayer* upper = doc.AddLayer(0, kLayerKindRaster);
    ASSERT_NE(upper, nullptr);
    doc.SetCurrentIndex(1);
    Select(MaskOf([](int x, int y) { return y >= 2 && y < 4 && x >= 5 && x < 8 ? 200 : 0; }));
    ASSERT_EQ(Run("Doc_FillSelection('100')"), kCommandDone);
    ASSERT_EQ(doc.GetLayerCount(), 2);
    const CLayer* layer = doc.GetLayer(1);
    EXPECT_EQ(vmtest::Place(*layer), "5,2");
    // Nothing lay below on the empty layer: the fill's pixel is taken as it is.
    EXPECT_TRUE(vmtest::SamePixels(layer->m_image, vmtest::Solid(3, 2, CPixel::FromWord(0xC8102030))));
    EXPECT_EQ(doc.GetCurrentIndex(), 1);
}

TEST_F(ModifierCommands, WithoutASelectionFillMergesNothingButRecordsItsStep)
{
    const Bytes base = vmtest::Bytes(doc.GetLayer(0)->m_image);
    const size_t records = size_t(log.GetCount());
    ASSERT_EQ(Run("Doc_FillSelection('100','FF0000')"), kCommandDone);
    ASSERT_EQ(Run("Doc_StrokeSelection('3')"), kCommandDone);
    EXPECT_EQ(vmtest::Bytes(doc.GetLayer(0)->m_image), base);
    EXPECT_EQ(doc.GetLayerCount(), 1);
    EXPECT_EQ(size_t(log.GetCount()), records + 2);
}

TEST_F(ModifierCommands, AtTheLayerLimitFillIsRefusedAndNothingChanges)
{
    while (doc.GetLayerCount() < kMaxLayers)
        ASSERT_NE(doc.AddLayer(doc.GetLayerCount() - 1, 0), nullptr);
    doc.SetCurrentIndex(3);
    Select(Block());
    const vmtest::DocState before = vmtest::Capture(doc);
    EXPECT_EQ(Run("Doc_FillSelection('100')"), kCommandRefused);
    EXPECT_EQ(Run("Doc_StrokeSelection('2')"), kCommandRefused);
    EXPECT_EQ(vmtest::Capture(doc), before);
}

TEST(SegmentDeflate, KeepsOnlyRegionsWhollyInsideTheSelection)
{
    // Labels 1 (left), 2 (middle), 3 (right), and unlabelled pixels in row 0.
    const COLImage labels = vmtest::Picture(6, 3, [](uint32_t x, uint32_t y) {
        return CPixel::FromWord(0xAB000000u | (y == 0 ? 0 : x < 2 ? 1 : x < 4 ? 2 : 3));
    });
    // Left region all selected; middle selected but one pixel at 127; right at 128 and up.
    const COLChannel mask = vmtest::PlaneOf(6, 3, [](uint32_t x, uint32_t y) {
        return x >= 4 ? 128 : x == 3 && y == 2 ? 127 : 255;
    });
    COLChannel result;
    ASSERT_TRUE(DeflateMask(mask, labels, result));
    EXPECT_EQ(vmtest::Bytes(result), vmtest::Bytes(vmtest::PlaneOf(6, 3, [](uint32_t x, uint32_t y) {
                  return y > 0 && (x < 2 || x >= 4) ? 255 : 0;
              })));
    COLChannel small;
    small.Create(2, 2);
    EXPECT_FALSE(DeflateMask(small, labels, result)) << "sizes differ";
}

TEST_F(ModifierCommands, DeflateOnAPictureOfADarkSquareOnLightGround)
{
    // Two regions: the square and the ground around it. The selection covers the square with a margin.
    CComposeDocument big{0};
    ASSERT_EQ(big.NewDocument(64, 48, 0xFF000000), 1);
    auto inSquare = [](int x, int y) { return x >= 16 && x < 40 && y >= 12 && y < 36; };
    big.GetLayer(0)->m_image = vmtest::Picture(64, 48, [&](uint32_t x, uint32_t y) {
        return CPixel::FromWord(inSquare(int(x), int(y)) ? 0xFF202020u : 0xFFE0E0E0u);
    });
    COLChannel& mask = big.GetSelectionMask();
    mask = vmtest::PlaneOf(64, 48, [](uint32_t x, uint32_t y) {
        return x >= 10 && x < 46 && y >= 6 && y < 42 ? 255 : 0;
    });
    CRecordingHistory steps;
    CCommandContext c;
    c.document = &big;
    c.history = &steps;
    ASSERT_EQ(ExecuteCommand(c, "Doc_SelectSegmentDeflate"), kCommandDone);
    ASSERT_EQ(steps.Steps().size(), 1u);
    EXPECT_EQ(std::make_tuple(steps.Steps()[0].kind, steps.Steps()[0].arg, steps.Steps()[0].label),
              std::make_tuple(5, -1, std::string("smartin")));
    size_t kept = 0;
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 64; ++x) {
            const uint8_t v = mask.GetValue(uint32_t(x), uint32_t(y));
            EXPECT_TRUE(v == 0 || (v == 255 && inSquare(x, y)))
                << x << "," << y << ": the ground sticks out and drops whole";
            kept += v == 255;
        }
    EXPECT_GE(kept, 22u * 22u) << "the square stays";

    // A selection that holds no whole region ends up empty, and the step is written all the same.
    mask = vmtest::PlaneOf(64, 48, [](uint32_t x, uint32_t) { return x >= 20 && x < 50 ? 255 : 0; });
    ASSERT_EQ(ExecuteCommand(c, "Doc_SelectSegmentDeflate"), kCommandDone);
    EXPECT_FALSE(mask.IsNull());
    EXPECT_TRUE(mask.IsAllZero());
    EXPECT_EQ(steps.Steps().size(), 2u);
}

TEST(ColourArgument, SixHexDigits)
{
    uint32_t c = 0;
    EXPECT_TRUE(ParseColourArg("FF8000", c));
    EXPECT_EQ(c, 0xFFFF8000u);
    EXPECT_TRUE(ParseColourArg("#00a0Bf", c));
    EXPECT_EQ(c, 0xFF00A0BFu);
    for (const char* bad : {"", "FFF", "FF80001", "GG0000"})
        EXPECT_FALSE(ParseColourArg(bad, c));
    EXPECT_FALSE(ParseColourArg(nullptr, c));
}
