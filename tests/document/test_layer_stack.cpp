#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>

#include "document/compositor.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/codec.h"
#include "imaging/gbk_text.h"
#include "reference_merge.h"
#include "support/pictures.h"
#include "support/test_support.h"

namespace {

std::string Utf8Name(const CLayer* layer)
{
    std::string utf8;
    EXPECT_TRUE(GbkToUtf8(layer->m_name, utf8));
    return utf8;
}

// The combination of two overlapping pixels as the merge-down arithmetic states it, with true divisions.
CPixel MergeDownPixel(CPixel pl, CPixel pu, int lowerOpacity, int upperOpacity, int mode)
{
    const int a = upperOpacity * pu.alpha / 255;
    if (a == 0) return pl;
    const int b = lowerOpacity * pl.alpha / 255;
    const int A = (b * (255 - a) + 255 * a) / 255;
    const int w = 255 * a / A;
    auto mix = [&](int d, int s) { return uint8_t((reftest::ModeColour(mode, d, s) * w + d * (255 - w) + 127) / 255); };
    return CPixel{mix(pl.blue, pu.blue), mix(pl.green, pu.green), mix(pl.red, pu.red), uint8_t(A)};
}

} // namespace

TEST(LayerStack, DefaultNamesAreGbkOrThoseOfAnotherLanguage)
{
    CLayerStack stack;
    ASSERT_EQ(stack.NewDocument(8, 8, 0xFFFFFFFF), 1);
    EXPECT_EQ(Utf8Name(stack.GetLayer(0)), "背景");
    ASSERT_NE(stack.AddLayer(0, 0), nullptr);
    EXPECT_EQ(Utf8Name(stack.GetLayer(1)), "图层1");
    ASSERT_NE(stack.AddLayer(0, 0), nullptr);
    EXPECT_EQ(Utf8Name(stack.GetLayer(1)), "图层2") << "inserted behind the base, named by the count before it";

    stack.Clear();
    stack.SetDefaultNames("Background", "Layer %d %d%%s");
    ASSERT_EQ(stack.NewDocument(8, 8, 0xFFFFFFFF), 1);
    EXPECT_EQ(Utf8Name(stack.GetLayer(0)), "Background");
    ASSERT_NE(stack.AddLayer(0, 0), nullptr);
    // Only the first "%d" is a number: the rest of the text is never read as a format.
    EXPECT_EQ(Utf8Name(stack.GetLayer(1)), "Layer 1 %d%%s");
    // Too long a pattern is cut to the 31 bytes of the field.
    stack.SetDefaultNames("", std::string(40, 'x') + "%d");
    ASSERT_NE(stack.AddLayer(0, 0), nullptr);
    EXPECT_EQ(Utf8Name(stack.GetLayer(1)), std::string(31, 'x'));
    stack.SetDefaultNames("", "");
    ASSERT_NE(stack.AddLayer(0, 0), nullptr);
    EXPECT_EQ(Utf8Name(stack.GetLayer(1)), "图层3");
}

TEST(LayerStack, AddLayerRules)
{
    CLayerStack stack;
    stack.SetSize(6, 3);
    CLayer* first = stack.AddLayer(-1, 0);
    ASSERT_NE(first, nullptr) << "an empty stack takes -1 and the size it already has";
    EXPECT_EQ(stack.GetLayer(0), first);
    EXPECT_EQ(first->m_image.GetWidth(), 6u);
    EXPECT_EQ(first->m_image.GetPixel(5, 2), 0u) << "transparent black";
    EXPECT_EQ(stack.AddLayer(1, 0), nullptr) << "after-index past the end";
    EXPECT_EQ(stack.AddLayer(-1, 0), nullptr);
    EXPECT_EQ(stack.AddLayer(0, 2), nullptr) << "unknown kind";
    CLayer* text = stack.AddLayer(0, 1);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text->m_kind, 1);
    EXPECT_NE(dynamic_cast<CTextLayer*>(text), nullptr);
    while (stack.GetLayerCount() < kMaxLayers)
        ASSERT_NE(stack.AddLayer(0, 0), nullptr);
    EXPECT_EQ(stack.AddLayer(0, 0), nullptr) << "the design limit";
    EXPECT_EQ(stack.DuplicateLayer(1), 0);
    EXPECT_EQ(stack.NewDocument(2, 2, 0), 0);

    CLayerStack unsized;
    EXPECT_EQ(unsized.AddLayer(-1, 0), nullptr) << "no size to give the layer";
}

TEST(LayerStack, RemoveLayerMovesTheCurrentIndex)
{
    CLayerStack stack;
    ASSERT_EQ(stack.NewDocument(4, 4, 0), 1);
    for (int i = 0; i < 3; ++i)
        ASSERT_NE(stack.AddLayer(i, 0), nullptr);
    stack.SetCurrentIndex(2);
    stack.RemoveLayer(3);
    EXPECT_EQ(stack.GetCurrentIndex(), 2) << "a layer above the current one";
    CLayer* below = stack.GetLayer(1);
    stack.RemoveLayer(2);
    EXPECT_EQ(stack.GetCurrentIndex(), 1) << "the current layer itself";
    EXPECT_EQ(stack.GetCurrentLayer(), below);
    stack.RemoveLayer(7);
    stack.RemoveLayer(-1);
    EXPECT_EQ(stack.GetLayerCount(), 2);
    stack.RemoveLayerPtr(below);
    EXPECT_EQ(stack.GetLayerCount(), 1);
    EXPECT_EQ(stack.GetCurrentIndex(), 0);
}

TEST(LayerStack, DuplicateAndMove)
{
    CLayerStack stack;
    ASSERT_EQ(stack.NewDocument(4, 4, 0), 1);
    CLayer* text = stack.AddLayer(0, 1);
    vmtest::FillNoise(text->m_image, 3, 2, 4);
    text->m_x = -2;
    text->m_y = 9;
    text->m_opacity = 40;
    text->m_blendMode = 6;
    text->m_visible = 0;
    ASSERT_EQ(stack.DuplicateLayer(1), 1);
    const CLayer* copy = stack.GetLayer(2);
    EXPECT_EQ(copy->m_kind, 0) << "a text layer's copy is a raster layer";
    EXPECT_EQ(dynamic_cast<const CTextLayer*>(copy), nullptr);
    EXPECT_TRUE(vmtest::SamePixels(copy->m_image, text->m_image));
    EXPECT_EQ(vmtest::Place(*copy), "-2,9");
    EXPECT_EQ(std::make_pair(int(copy->m_opacity), int(copy->m_blendMode)), std::make_pair(40, 6));
    EXPECT_EQ(Utf8Name(copy), "图层2");
    EXPECT_EQ(stack.DuplicateLayer(5), 0);

    ASSERT_TRUE(stack.MoveLayer(2, 1));
    EXPECT_EQ(stack.GetLayer(1), copy);
    EXPECT_EQ(stack.GetLayer(2), text);
    EXPECT_FALSE(stack.MoveLayer(1, 3));
}

TEST(LayerStack, TrimToContent)
{
    auto box = [](const CLayer& l) { return vmtest::Size(l.m_image) + " at " + vmtest::Place(l); };
    CLayer layer;
    layer.m_image = vmtest::Solid(20, 30, CPixel{});
    layer.m_x = 100;
    layer.m_y = -4;
    layer.m_image.PutPixel(5, 7, CPixel::Make(1, 2, 3, 255));
    ASSERT_EQ(layer.TrimToContent(), 1);
    EXPECT_EQ(box(layer), "1x1 at 105,3");
    EXPECT_EQ(layer.m_image.GetPixel2(0, 0).Word(), CPixel::Make(1, 2, 3, 255).Word());

    CLayer clear;
    clear.m_image = vmtest::Solid(9, 4, CPixel::Make(50, 50, 50, 0));
    ASSERT_EQ(clear.TrimToContent(), 1);
    EXPECT_EQ(box(clear), "9x4 at 0,0") << "a wholly transparent layer is left alone";

    CLayer wide;
    wide.m_image = vmtest::Solid(9, 4, CPixel{});
    wide.m_image.PutPixel(0, 1, CPixel::Make(0, 0, 0, 1));
    wide.m_image.PutPixel(8, 2, CPixel::Make(0, 0, 0, 1));
    ASSERT_EQ(wide.TrimToContent(), 1);
    EXPECT_EQ(box(wide), "9x2 at 0,1") << "only the height shrinks";

    CLayerStack stack;
    ASSERT_EQ(stack.NewDocument(10, 10, 0), 1); // the base is never trimmed, although it is transparent
    CLayer* upper = stack.AddLayer(0, 0);
    upper->m_image.PutPixel(3, 4, CPixel::Make(0, 0, 0, 9));
    ASSERT_EQ(stack.TrimAllLayers(), 1);
    EXPECT_EQ(box(*stack.GetLayer(0)), "10x10 at 0,0");
    EXPECT_EQ(box(*upper), "1x1 at 3,4");
}

TEST(LayerStack, MergeDownArithmeticOverTheUnionOfContent)
{
    CLayerStack stack;
    ASSERT_EQ(stack.NewDocument(64, 64, 0xFF000000), 1);
    CLayer* lower = stack.AddLayer(0, 0);
    CLayer* upper = stack.AddLayer(1, 0);
    vmtest::FillNoise(lower->m_image, 30, 20, 11);
    vmtest::FillNoise(upper->m_image, 25, 26, 12);
    // Transparent borders around both, so the content boxes are smaller than the images.
    for (uint32_t x = 0; x < 30; ++x)
        lower->m_image.GetBuffer(x, 0)->alpha = 0;
    for (uint32_t y = 0; y < 26; ++y)
        upper->m_image.GetBuffer(24, y)->alpha = 0;
    lower->m_x = 5, lower->m_y = 8, lower->m_opacity = 200, lower->m_blendMode = 2;
    upper->m_x = 20, upper->m_y = -3, upper->m_opacity = 150, upper->m_blendMode = 5;
    std::memcpy(lower->m_name, "low", 4);
    const COLImage lowerCopy = vmtest::Copy(lower->m_image), upperCopy = vmtest::Copy(upper->m_image);

    ASSERT_EQ(stack.MergeDown(2), 1);
    ASSERT_EQ(stack.GetLayerCount(), 2);
    const CLayer* merged = stack.GetLayer(1);
    EXPECT_STREQ(merged->m_name, "low");
    EXPECT_EQ(std::make_pair(int(merged->m_opacity), int(merged->m_blendMode)), std::make_pair(200, 2));
    // Lower box: x 5..35, y 9..28; upper box: x 20..44, y -3..23.
    EXPECT_EQ(vmtest::Place(*merged), "5,-3");
    EXPECT_TRUE(vmtest::SamePixels(
        merged->m_image, vmtest::Picture(39, 31, [&](uint32_t u, uint32_t v) {
            const int x = int(u) + 5, y = int(v) - 3;
            const bool inL = x >= 5 && x < 35 && y >= 8 && y < 28, inU = x >= 20 && x < 45 && y >= -3 && y < 23;
            const CPixel pl = inL ? lowerCopy.GetPixel2(uint32_t(x - 5), uint32_t(y - 8)) : CPixel{};
            const CPixel pu = inU ? upperCopy.GetPixel2(uint32_t(x - 20), uint32_t(y + 3)) : CPixel{};
            // Outside the lower layer the upper pixel is taken as it is: its opacity is not applied over nothing.
            return inL && inU ? MergeDownPixel(pl, pu, 200, 150, 5) : inL ? pl : pu;
        })));
}

TEST(LayerStack, MergeDownOntoTheBaseKeepsItsSizeAndOfEmptyLayersGivesAPixel)
{
    CLayerStack stack;
    ASSERT_EQ(stack.NewDocument(8, 6, 0xFF204060), 1);
    CLayer* upper = stack.AddLayer(0, 0);
    vmtest::FillNoise(upper->m_image, 8, 6, 3);
    upper->m_x = 5; // hangs over the right edge
    const CPixel pu = upper->m_image.GetPixel2(0, 2);
    ASSERT_EQ(stack.MergeDown(1), 1);
    ASSERT_EQ(stack.GetLayerCount(), 1);
    const CLayer* base = stack.GetLayer(0);
    EXPECT_EQ(vmtest::Size(base->m_image), "8x6");
    EXPECT_EQ(base->m_x, 0);
    EXPECT_EQ(Utf8Name(base), "背景");
    EXPECT_EQ(base->m_image.GetPixel(5, 2), MergeDownPixel(CPixel::FromWord(0xFF204060), pu, 255, 255, 0).Word());
    EXPECT_EQ(base->m_image.GetPixel(4, 2), 0xFF204060u);

    EXPECT_EQ(stack.MergeDown(0), 1) << "nothing happens below index 1";
    EXPECT_EQ(stack.MergeDown(1), 1);
    EXPECT_EQ(stack.GetLayerCount(), 1);

    // Two empty layers give one transparent pixel where the lower one stood.
    CLayer* lower = stack.AddLayer(0, 0);
    lower->m_x = 2;
    lower->m_y = 3;
    ASSERT_NE(stack.AddLayer(1, 0), nullptr);
    ASSERT_EQ(stack.MergeDown(2), 1);
    ASSERT_EQ(stack.GetLayerCount(), 2);
    const CLayer* merged = stack.GetLayer(1);
    EXPECT_EQ(vmtest::Size(merged->m_image) + " at " + vmtest::Place(*merged), "1x1 at 2,3");
    EXPECT_EQ(merged->m_image.GetPixel(0, 0), 0u);
}

TEST(LayerStack, FlattenAllKeepsTheMergedPicture)
{
    CLayerStack stack;
    ASSERT_EQ(stack.NewDocument(40, 30, 0xFF000000), 1);
    vmtest::FillNoise(stack.GetLayer(0)->m_image, 40, 30, 1);
    CLayer* top = stack.AddLayer(0, 0);
    vmtest::FillNoise(top->m_image, 12, 50, 2);
    top->m_x = 30;
    top->m_blendMode = 10;
    ASSERT_NE(stack.AddLayer(1, 0), nullptr);
    stack.AddChannel();
    stack.GetSelectionMask().Create(40, 30);
    stack.SetCurrentIndex(2);
    COLImage expected;
    reftest::Merge(stack, expected, 0);
    ASSERT_EQ(stack.FlattenAll(), 1);
    ASSERT_EQ(stack.GetLayerCount(), 1);
    EXPECT_EQ(Utf8Name(stack.GetLayer(0)), "图层3") << "named while the old layers still stood";
    EXPECT_TRUE(vmtest::SameColours(stack.GetLayer(0)->m_image, expected));
    EXPECT_TRUE(stack.GetSelectionMask().IsNull());
    EXPECT_EQ(stack.GetChannelCount(), 0);
    EXPECT_EQ(stack.GetCurrentIndex(), 0);
    EXPECT_EQ(stack.GetWidth(), 40);
    CLayerStack empty;
    EXPECT_EQ(empty.FlattenAll(), 0);
}

TEST(LayerStack, CanvasChanges)
{
    CLayerStack stack;
    ASSERT_EQ(stack.NewDocument(4, 3, 0xFF0000FF), 1);
    CLayer* top = stack.AddLayer(0, 0);
    top->m_x = 1;
    stack.GetSelectionMask().Create(4, 3);
    stack.GetLayer(0)->m_image.PutPixel(0, 0, CPixel::FromWord(0xFF112233));
    ASSERT_EQ(stack.ResizeCanvas(7, 6, 0xFFABCDEF, 1, 2), 1); // offsets 3 / 2 = 1 and 3
    EXPECT_EQ(vmtest::Size(stack), "7x6");
    EXPECT_TRUE(vmtest::SamePixels(stack.GetLayer(0)->m_image, vmtest::Picture(7, 6, [](uint32_t x, uint32_t y) {
        const bool old = x >= 1 && x < 5 && y >= 3;   // the old 4 x 3 picture, the rest in the new colour
        return CPixel::FromWord(!old ? 0xFFABCDEF : x == 1 && y == 3 ? 0xFF112233 : 0xFF0000FF);
    })));
    EXPECT_EQ(vmtest::Place(*top), "2,3");
    EXPECT_TRUE(stack.GetSelectionMask().IsNull());

    ASSERT_EQ(stack.ChangeCanvas(2, 2, -1, -3, 0), 1); // negative offsets crop
    EXPECT_EQ(stack.GetLayer(0)->m_image.GetPixel(0, 0), 0xFF112233u);

    EXPECT_EQ(stack.ResizeCanvas(20001, 5, 0, 0, 0), 0);
    EXPECT_EQ(stack.ResizeCanvas(5, 5, 0, 3, 0), 0);
    EXPECT_EQ(stack.ResizeCanvas(0, 5, 0, 0, 0), 0);
    EXPECT_EQ(stack.GetWidth(), 2);
    ASSERT_EQ(stack.ResizeCanvas(1, 20000, 0, 0, 0), 1);
    EXPECT_EQ(stack.GetHeight(), 20000);
    CLayerStack empty;
    EXPECT_EQ(empty.ChangeCanvas(5, 5, 0, 0, 0), 0);
}

TEST(LayerStack, HitTestAndRects)
{
    CLayerStack stack;
    ASSERT_EQ(stack.NewDocument(10, 10, 0), 1);
    CLayer* a = stack.AddLayer(0, 0);
    a->m_image.Create(3, 3);
    a->m_x = 5;
    a->m_y = 5;
    CLayer* b = stack.AddLayer(1, 0);
    b->m_visible = 0;
    EXPECT_EQ(stack.HitTest(6, 6), 0b011u) << "invisible layers are ignored";
    EXPECT_EQ(stack.HitTest(8, 6), 0b001u);
    EXPECT_EQ(stack.HitTest(-1, 0), 0u);
    EXPECT_EQ(stack.GetLayerRect(a), (CRect{5, 5, 8, 8}));
    a->m_image.Free();
    EXPECT_EQ(stack.GetLayerRect(a), (CRect{5, 5, 5, 5}));
    EXPECT_EQ(stack.IndexOfImage(&b->m_image), 2);
    EXPECT_EQ(stack.IndexOfLayer(nullptr), -1);
}

TEST(LayerStack, OpenAndLoadLayerFiles)
{
    vmtest::TempDir dir;
    COLImage picture = vmtest::Noise(13, 7, 8);
    const std::string path = dir.File("p.bmp");
    ASSERT_NE(COLImageCodec().SaveFile(path.c_str(), &picture), 0);

    CLayerStack stack;
    ASSERT_EQ(stack.OpenFile(path.c_str()), 1);
    ASSERT_EQ(stack.GetLayerCount(), 1);
    EXPECT_EQ(Utf8Name(stack.GetLayer(0)), "背景");
    EXPECT_EQ(vmtest::Size(stack), "13x7");
    EXPECT_TRUE(vmtest::SameColours(stack.GetLayer(0)->m_image, picture));
    EXPECT_EQ(stack.GetLayer(0)->m_image.GetPixel2(12, 6).alpha, 255);

    // On the base: a new layer above it. On a transparent upper layer: loaded into it, no layer added.
    int loaded = -1;
    ASSERT_EQ(stack.LoadLayerFile(path.c_str(), 0, &loaded), 1);
    EXPECT_EQ(loaded, 1);
    ASSERT_EQ(stack.GetLayerCount(), 2);
    EXPECT_EQ(Utf8Name(stack.GetLayer(1)), "图层1");
    ASSERT_NE(stack.AddLayer(1, 0), nullptr);
    CLayer* empty = stack.GetLayer(2);
    empty->m_x = 4;
    ASSERT_EQ(stack.LoadLayerFile(path.c_str(), 2, &loaded), 1);
    EXPECT_EQ(loaded, 2);
    EXPECT_EQ(stack.GetLayerCount(), 3);
    EXPECT_EQ(stack.GetLayer(2), empty);
    EXPECT_TRUE(vmtest::SameColours(empty->m_image, picture));
    EXPECT_EQ(empty->m_x, 4);
    // A layer with content gets a new one above it; a bad index or a bad file change nothing.
    ASSERT_EQ(stack.LoadLayerFile(path.c_str(), 2, &loaded), 1);
    EXPECT_EQ(loaded, 3);
    EXPECT_EQ(stack.LoadLayerFile(path.c_str(), 9), 0);
    EXPECT_EQ(stack.LoadLayerFile(dir.File("missing.bmp").c_str(), 1), 0);
    EXPECT_EQ(stack.GetLayerCount(), 4);

    vmtest::WriteAll(dir.File("junk.bmp"), {'B', 'M', 0, 0});
    EXPECT_EQ(stack.OpenFile(dir.File("junk.bmp").c_str()), 0);
    EXPECT_EQ(stack.GetLayerCount(), 4) << "a damaged file leaves the open document as it was";
}

TEST(LayerStack, OpeningRefusesTooLargePictures)
{
    vmtest::TempDir dir;
    // A BMP header that claims 20001 x 1 pixels: refused before anything is allocated.
    std::vector<uint8_t> bmp(54 + 60004, 0);
    bmp[0] = 'B', bmp[1] = 'M', bmp[10] = 54, bmp[14] = 40, bmp[26] = 1, bmp[28] = 24;
    bmp[18] = 20001 & 0xFF, bmp[19] = 20001 >> 8, bmp[22] = 1;
    vmtest::WriteAll(dir.File("wide.bmp"), bmp);
    CLayerStack stack;
    EXPECT_EQ(stack.OpenFile(dir.File("wide.bmp").c_str()), 0);
    bmp[18] = 20000 & 0xFF, bmp[19] = 20000 >> 8;
    vmtest::WriteAll(dir.File("edge.bmp"), bmp);
    EXPECT_EQ(stack.OpenFile(dir.File("edge.bmp").c_str()), 1);
    EXPECT_EQ(stack.GetWidth(), 20000);
}

TEST(LayerStack, ChannelsAndClear)
{
    CLayerStack stack;
    ASSERT_EQ(stack.NewDocument(3, 3, 0), 1);
    COLChannel* first = stack.AddChannel();
    ASSERT_NE(first, nullptr);
    COLChannel* second = stack.AddChannel();
    stack.GetLayer(0)->m_pChannel = first;
    stack.RemoveChannel(first);
    EXPECT_EQ(stack.GetChannelCount(), 1);
    EXPECT_EQ(stack.GetChannel(0), second);
    EXPECT_EQ(stack.GetLayer(0)->m_pChannel, nullptr) << "no dangling link";
    while (stack.GetChannelCount() < kMaxChannels)
        ASSERT_NE(stack.AddChannel(), nullptr);
    EXPECT_EQ(stack.AddChannel(), nullptr);
    stack.SetCurrentIndex(0);
    stack.GetSelectionMask().Create(3, 3);
    stack.Clear();
    EXPECT_EQ(stack.GetLayerCount(), 0);
    EXPECT_EQ(stack.GetChannelCount(), 0);
    EXPECT_TRUE(stack.GetSelectionMask().IsNull());
    EXPECT_EQ(stack.GetWidth(), 3) << "the size stays";
    EXPECT_EQ(stack.GetCurrentLayer(), nullptr);
}

TEST(Layer, ExtraDataAndRecord)
{
    CTextLayer text;
    uint32_t size = 0;
    EXPECT_EQ(text.GetExtraData(size, nullptr), 1);
    EXPECT_EQ(size, 1100u);
    std::strcpy(text.m_text, "hello");
    text.m_fontSize = 31;
    text.m_style[3] = -7;
    std::vector<uint8_t> block;
    text.GetExtraData(size, &block);
    ASSERT_EQ(block.size(), 1100u);
    EXPECT_EQ(block[0], 1);
    EXPECT_EQ(block[8 + 4], 1) << "second style word defaults to 1";
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(block.data()) + 32), "Arial");
    CTextLayer back;
    ASSERT_TRUE(back.ReadExtraData(block.data(), block.size()));
    EXPECT_STREQ(back.m_text, "hello");
    EXPECT_EQ(back.m_fontSize, 31);
    EXPECT_EQ(back.m_style[3], -7);
    EXPECT_EQ(back.m_pText, back.m_text);
    block[0] = 0;
    EXPECT_FALSE(back.ReadExtraData(block.data(), block.size()));

    CLayer raster;
    vmtest::FillNoise(raster.m_image, 3, 2, 1);
    raster.m_x = -5;
    raster.m_opacity = 9;
    std::strcpy(raster.m_name, "n");
    vmtest::TempDir dir;
    FILE* f = std::fopen(dir.File("r").c_str(), "wb");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(raster.WriteRecord(f, 0), 1);
    EXPECT_EQ(raster.WriteRecord(f, 1), 1);
    std::fclose(f);
    const std::vector<uint8_t> bytes = vmtest::ReadAll(dir.File("r"));
    ASSERT_EQ(bytes.size(), 56u + 4u + 24u);
    EXPECT_EQ(bytes[0], 0xFB); // -5
    EXPECT_EQ(bytes[3], 0xFF);
    EXPECT_EQ(bytes[8], 1);
    EXPECT_EQ(bytes[9], 'n');
    EXPECT_EQ(bytes[41], 9);
    EXPECT_EQ(bytes[44], 3);
    EXPECT_EQ(bytes[48], 2);
    EXPECT_EQ(bytes[52], 4);
    EXPECT_EQ(0, std::memcmp(bytes.data() + 60, raster.m_image.GetBuffer(), 24));
}
