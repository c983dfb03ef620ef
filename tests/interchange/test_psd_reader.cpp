#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <vector>

#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "interchange/psd_layered_writer.h"
#include "interchange/psd_reader.h"
#include "interchange/psd_writer.h"
#include "support/media_checks.h"
#include "support/pictures.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"
#include "test_psd_builder.h"

using psdtest::Document;
using psdtest::Layer;

using vmtest::LayerName;

namespace {

uint32_t Pixel(uint32_t x, uint32_t y)
{
    return (x * 37 + y * 11 + 5) % 256 << 24 | (x * 13) % 256 << 16 | (y * 29) % 256 << 8 | (x + y) % 256;
}

// The picture whose pixel (x, y) is the word at(x, y).
template <class F> COLImage Words(uint32_t w, uint32_t h, F at)
{
    return vmtest::Picture(w, h, [&](uint32_t x, uint32_t y) { return CPixel::FromWord(at(x, y)); });
}

int Load(const std::vector<uint8_t>& bytes, CLayerStack& stack, CPsdReader* out = nullptr)
{
    vmtest::TempDir dir;
    const std::string path = dir.File("t.psd");
    vmtest::WriteAll(path, bytes);
    CPsdReader local;
    CPsdReader& reader = out ? *out : local;
    return reader.LoadFile(path.c_str(), stack);
}

// A base and a screened, hidden layer over its edge; their channels raw or PackBits-compressed.
Document TwoLayers(bool packBits = false)
{
    Document d;
    d.width = 6;
    d.height = 5;
    d.channels = 4;
    d.layers.push_back(psdtest::RgbaLayer(0, 0, 6, 5, Pixel));
    d.layers.back().pascalName = "Base";
    d.layers.push_back(
        psdtest::RgbaLayer(-2, 3, 4, 3, [](uint32_t x, uint32_t y) { return Pixel(y, x) ^ 0x00FF00FFu; }));
    d.layers.back().pascalName = "Top";
    d.layers.back().key = "scrn";
    d.layers.back().opacity = 77;
    d.layers.back().flags = 0x02;
    if (packBits)
        for (Layer& l : d.layers)
            for (psdtest::Channel& c : l.channels)
                c = psdtest::PackBitsChannel(c, uint32_t(l.right - l.left), uint32_t(l.bottom - l.top));
    return d;
}

} // namespace

TEST(PsdReader, LayersKeepPositionNameOpacityModeVisibilityAndPixels)
{
    for (bool packBits : {false, true}) {
        CLayerStack stack;
        ASSERT_EQ(Load(psdtest::Build(TwoLayers(packBits)), stack), 1);
        ASSERT_EQ(stack.GetLayerCount(), 2);
        EXPECT_EQ(vmtest::Size(stack), "6x5");
        const CLayer* top = stack.GetLayer(1);
        EXPECT_EQ(std::make_tuple(LayerName(stack.GetLayer(0)), LayerName(top)), std::make_tuple("Base", "Top"));
        EXPECT_EQ(vmtest::Place(*top), "-2,3");
        EXPECT_EQ(std::make_tuple(int(top->m_opacity), int(top->m_blendMode), int(top->m_visible)),
                  std::make_tuple(77, 6, 0));   // opacity, mode, visibility
        EXPECT_TRUE(vmtest::SamePixels(top->m_image,
                                       Words(4, 3, [](uint32_t x, uint32_t y) { return Pixel(y, x) ^ 0x00FF00FFu; })));
        EXPECT_TRUE(vmtest::SamePixels(stack.GetLayer(0)->m_image, Words(6, 5, Pixel)));
    }
}

TEST(PsdReader, BottomLayerIsPlacedAtTheOriginAtDocumentSizeAndAlwaysVisible)
{
    Document d;
    d.width = 5;
    d.height = 4;
    d.layers.push_back(psdtest::RgbaLayer(2, -1, 4, 3, Pixel));
    d.layers.back().flags = 0x02;
    CLayerStack stack;
    ASSERT_EQ(Load(psdtest::Build(d), stack), 1);
    const CLayer* base = stack.GetLayer(0);
    EXPECT_EQ(base->m_x, 0);
    EXPECT_EQ(base->m_visible, 1);
    EXPECT_TRUE(vmtest::SamePixels(
        base->m_image, Words(5, 4, [](uint32_t x, uint32_t y) { return x >= 2 && y < 2 ? Pixel(x - 2, y + 1) : 0u; })));
}

TEST(PsdReader, OurOwnOneLayerFileComesBackWithItsTransparencyAndName)
{
    vmtest::TempDir dir;
    const COLImage image = vmtest::Noise(7, 5, 3);
    const std::string path = dir.File("own.psd");
    ASSERT_EQ(SavePsd(path, image, "Cut"), kOk);
    CLayerStack stack;
    CPsdReader reader;
    ASSERT_EQ(reader.LoadFile(path.c_str(), stack), 1);
    EXPECT_TRUE(reader.HasMergedAlpha());
    ASSERT_EQ(stack.GetLayerCount(), 1);
    EXPECT_TRUE(vmtest::SamePixels(stack.GetLayer(0)->m_image, image)); // not opaque, no white row or column
    EXPECT_EQ(LayerName(stack.GetLayer(0)), "Cut");
}

TEST(PsdReader, LayeredFileRoundTripsEveryLayer)
{
    vmtest::TempDir dir;
    CLayerStack doc;
    ASSERT_EQ(doc.NewDocument(9, 7, 0xFF102030u), 1);
    vmtest::FillNoise(doc.GetLayer(0)->m_image, 9, 7, 1);
    const char* names[] = {"\xB1\xB3\xBE\xB0", "Soft",
                           "\xCD\xBC\xB2\xE3"
                           "2",
                           "Empty"};
    std::strcpy(doc.GetLayer(0)->m_name, names[0]);
    for (int i = 1; i <= 3; ++i) {
        auto* l = new CLayer();
        std::strcpy(l->m_name, names[i]);
        if (i < 3) vmtest::FillNoise(l->m_image, 3 + i, 2 + i, 10 + i); // odd and even sizes
        l->m_x = i == 1 ? -2 : 6;
        l->m_y = i == 1 ? 5 : -1;
        l->m_opacity = uint8_t(60 * i);
        l->m_blendMode = uint8_t(i == 1 ? 10 : 5);
        l->m_visible = i != 2;
        ASSERT_TRUE(doc.InsertLayer(l, i - 1));
    }
    const std::string path = dir.File("layers.psd");
    std::string reason;
    ASSERT_EQ(WriteLayeredPsd(path, doc, &reason), kOk) << reason;
    CLayerStack back;
    ASSERT_EQ(back.OpenFile(path.c_str()), 1);
    ASSERT_EQ(back.GetLayerCount(), 4);
    for (int i = 0; i < 3; ++i) {
        const CLayer *a = doc.GetLayer(i), *b = back.GetLayer(i);
        EXPECT_EQ(LayerName(b), names[i]);
        EXPECT_EQ(std::tie(b->m_x, b->m_y, b->m_opacity, b->m_blendMode, b->m_visible),
                  std::tie(a->m_x, a->m_y, a->m_opacity, a->m_blendMode, a->m_visible)) << i;
        EXPECT_TRUE(vmtest::SamePixels(b->m_image, a->m_image)) << i;
    }
    // A layer without pixels keeps its place, blank.
    const CLayer* blank = back.GetLayer(3); // name, opacity, width
    EXPECT_EQ(std::make_tuple(LayerName(blank), int(blank->m_opacity), blank->m_image.GetWidth()),
              std::make_tuple("Empty", 0, 1u));
}

TEST(PsdReader, LayeredFileIsTheSameAtEveryVectorLevelAndSplit)
{
    // 83 columns: two 32-pixel steps, one of 16 and three single pixels per row; flat spans make runs that cross
    // the steps. Every channel differs, so a swapped plane shows. Three blocks of rows per picture, and an empty
    // layer between two with pixels, so the writing of one layer beside the encoding of the next is in play.
    vmtest::TempDir dir;
    CLayerStack doc;
    ASSERT_EQ(doc.NewDocument(83, 70, 0xFF000000u), 1);
    vmtest::FillNoise(doc.GetLayer(0)->m_image, 83, 70, 6);
    ASSERT_TRUE(doc.InsertLayer(new CLayer(), 0));
    auto* l = new CLayer();
    vmtest::FillNoise(l->m_image, 83, 70, 5);
    for (uint32_t y = 0; y < 70; ++y)
        for (uint32_t x = 20 + y % 7; x < 70; ++x)
            *l->m_image.GetBuffer(x, y) = CPixel::Make(uint8_t(y), 40, uint8_t(90 + y), x < 50 ? 255 : 0);
    l->m_opacity = 200;
    ASSERT_TRUE(doc.InsertLayer(l, 1));
    std::vector<uint8_t> first;
    std::string firstPath;
    vmtest::ForEachLevelAndSplit([&](const std::string& label) {
        const std::string path = dir.File(std::to_string(first.empty()) + ".psd");
        ASSERT_EQ(WriteLayeredPsd(path, doc), kOk) << label;
        if (first.empty()) {
            first = vmtest::ReadAll(path);
            firstPath = path;
        } else {
            EXPECT_EQ(vmtest::ReadAll(path), first) << label;
        }
    });
    CLayerStack back;
    ASSERT_EQ(back.OpenFile(firstPath.c_str()), 1);
    ASSERT_EQ(back.GetLayerCount(), 3);
    EXPECT_EQ(vmtest::Bytes(back.GetLayer(2)->m_image), vmtest::Bytes(l->m_image));
}

TEST(PsdReader, FlatFileOpensAsItsMergedPicture)
{
    for (uint16_t compression : {uint16_t(0), uint16_t(1)}) {
        Document d;
        d.width = 3;
        d.height = 2;
        d.channels = 4; // the fourth is a saved selection and is not read
        d.mergedCompression = compression;
        const uint8_t planes[4][6] = {
            {1, 2, 3, 4, 5, 6}, {10, 20, 30, 40, 50, 60}, {7, 7, 7, 7, 7, 7}, {0, 0, 0, 9, 9, 9}};
        if (compression == 0) {
            for (auto& p : planes)
                d.merged.insert(d.merged.end(), p, p + 6);
        } else {
            for (int r = 0; r < 8; ++r)
                d.merged.insert(d.merged.end(), {0, 4});
            for (auto& p : planes)
                for (int row = 0; row < 2; ++row)
                    d.merged.insert(d.merged.end(), {2, p[3 * row], p[3 * row + 1], p[3 * row + 2]});
        }
        CLayerStack stack;
        ASSERT_EQ(Load(psdtest::Build(d), stack), 1) << compression;
        ASSERT_EQ(stack.GetLayerCount(), 1);
        const CLayer* l = stack.GetLayer(0);
        EXPECT_EQ(LayerName(l), "BackGround ");
        for (uint32_t i = 0; i < 6; ++i)
            EXPECT_EQ(l->m_image.GetPixel2(i % 3, i / 3).Word(),
                      CPixel::Make(planes[0][i], planes[1][i], planes[2][i], 255).Word());
    }
}

TEST(PsdReader, GrayscaleAndSixteenBitKeepTheHighByte)
{
    Document d;
    d.width = 2;
    d.height = 2;
    d.channels = 2;
    d.mode = 1;
    d.depth = 16;
    Layer l;
    l.right = 2;
    l.bottom = 2;
    l.channels.push_back({0, 0, {0x10, 0xFF, 0x20, 0x00, 0x30, 0x01, 0x40, 0x02}, false});
    l.channels.push_back({-1, 0, {0xFF, 0, 0x80, 0, 0x00, 0, 0x7F, 0xFF}, false});
    d.layers.push_back(l);
    CLayerStack stack;
    ASSERT_EQ(Load(psdtest::Build(d), stack), 1);
    const COLImage& img = stack.GetLayer(0)->m_image;
    EXPECT_EQ(std::vector<uint32_t>({img.GetPixel(0, 0), img.GetPixel(1, 0), img.GetPixel(0, 1), img.GetPixel(1, 1)}),
              std::vector<uint32_t>({0xFF101010u, 0x80202020u, 0x00303030u, 0x7F404040u}));
}

TEST(PsdReader, OnlyTheFirst32LayersEnterAndGroupMarkersAreLeftOut)
{
    Document d;
    d.width = d.height = 2;
    for (int i = 0; i < 35; ++i) {
        d.layers.push_back(
            psdtest::RgbaLayer(0, 0, 2, 2, [i](uint32_t, uint32_t) { return 0xFF000000u | uint32_t(i); }));
        d.layers.back().pascalName = "L" + std::to_string(i);
        if (i == 1 || i == 4) { // a group: its end marker below its layers, its folder above
            d.layers.back().sectionType = i == 1 ? 3 : 1;
            d.layers.back().right = d.layers.back().bottom = 0;
            for (auto& c : d.layers.back().channels)
                c.data.clear();
        }
    }
    CLayerStack stack;
    ASSERT_EQ(Load(psdtest::Build(d), stack), 1);
    ASSERT_EQ(stack.GetLayerCount(), 32);
    EXPECT_EQ(
        std::make_tuple(LayerName(stack.GetLayer(1)), LayerName(stack.GetLayer(3)), LayerName(stack.GetLayer(31))),
        std::make_tuple("L2", "L5", "L33"));
}

TEST(PsdReader, BlankLayersUnknownModesAndUserMasks)
{
    Document d;
    d.width = d.height = 3;
    d.layers.push_back(psdtest::RgbaLayer(0, 0, 3, 3, Pixel));
    Layer blank = psdtest::RgbaLayer(1, 1, 2, 2, Pixel);
    for (auto& c : blank.channels)
        c.data.clear();
    blank.key = "vLit";
    d.layers.push_back(blank);
    Layer masked = psdtest::RgbaLayer(0, 0, 2, 2, Pixel);
    masked.key = "what";
    masked.mask = true;
    masked.maskTop = 1;
    masked.maskLeft = 1;
    masked.maskBottom = 3;
    masked.maskRight = 4;
    masked.channels.push_back(psdtest::RawChannel(-2, 3, 2, [](uint32_t x, uint32_t y) { return 50 * x + y; }));
    d.layers.push_back(masked);
    CLayerStack stack;
    ASSERT_EQ(Load(psdtest::Build(d), stack), 1);
    ASSERT_EQ(stack.GetLayerCount(), 3);
    const CLayer* b = stack.GetLayer(1); // opacity, width, mode
    EXPECT_EQ(std::make_tuple(int(b->m_opacity), b->m_image.GetWidth(), int(b->m_blendMode)),
              std::make_tuple(0, 1u, 0));
    const CLayer* m = stack.GetLayer(2);
    EXPECT_EQ(m->m_blendMode, 0);
    ASSERT_NE(m->m_pChannel, nullptr);
    ASSERT_EQ(stack.GetChannelCount(), 1);
    EXPECT_EQ(m->m_pChannel, stack.GetChannel(0));
    ASSERT_EQ(m->m_pChannel->GetWidth(), 3u);
    EXPECT_EQ(m->m_pChannel->GetValue(2, 1), 101);
    EXPECT_EQ(m->m_image.GetPixel(1, 1), Pixel(1, 1));
}

TEST(PsdReader, NamesPreferTheUnicodeFormAndAreCutOnACharacterBoundary)
{
    Document d;
    d.width = d.height = 1;
    auto layer = [&](const std::string& pascal, const std::u16string& unicode) {
        d.layers.push_back(psdtest::RgbaLayer(0, 0, 1, 1, Pixel));
        d.layers.back().pascalName = pascal;
        d.layers.back().unicodeName = unicode;
    };
    layer("ignored", u"\u534A\u900F\u660E");   // 半透明 from luni
    layer("\xE5\x9B\xBE\xE5\xB1\x82", u"");    // 图层 in UTF-8, as GIMP writes it
    layer("\xB1\xB3\xBE\xB0", u"");            // 背景 in GBK
    layer("x", std::u16string(20, u'\u56FE')); // 20 Chinese characters: 15 fit
    layer("y", u"a\u56FEb\U0001F600");         // a character GBK lacks
    CLayerStack stack;
    ASSERT_EQ(Load(psdtest::Build(d), stack), 1);
    std::string fifteen;
    for (int i = 0; i < 15; ++i)
        fifteen += "\xCD\xBC";
    const std::string want[] = {"\xB0\xEB\xCD\xB8\xC3\xF7", "\xCD\xBC\xB2\xE3", "\xB1\xB3\xBE\xB0", fifteen,
                                "a\xCD\xBC"
                                "b?"};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(LayerName(stack.GetLayer(i)), want[i]) << i;
}

TEST(PsdReader, UnsupportedAndDamagedFilesFailClearly)
{
    const std::vector<uint8_t> good = psdtest::Build(TwoLayers());
    // Each damage as the bytes it sets, and the part of the reason that names it.
    const struct {
        std::vector<std::pair<size_t, uint8_t>> bytes;
        const char* reason;
    } damages[] = {
        {{{25, 4}}, "CMYK"},
        {{{5, 2}}, "PSB"},
        {{{18, 0x00}, {19, 0x00}, {20, 0x4E}, {21, 0x21}}, "20000"},   // width 20001
        {{{23, 32}}, "32-bit"},
        {{{34, 0x7F}}, "end of the file"},                              // layer section longer than the file
        {{{42, 0x7F}, {43, 0xFF}}, "more layers"},                      // layer count 32767 in a small section
        {{{52, 0x7F}}, "impossible size"},                              // the first layer's bottom far beyond 20000
        {{{62, 0xFF}, {63, 0xFF}, {64, 0xFF}, {65, 0xFF}}, "past"},     // first channel length 4 GB
    };
    for (const auto& damage : damages) {
        std::vector<uint8_t> b = good;
        for (auto [at, value] : damage.bytes) b[at] = value;
        CLayerStack stack;
        CPsdReader reader;
        EXPECT_EQ(Load(b, stack, &reader), 0) << damage.reason;
        EXPECT_EQ(reader.GetError(), kPsdBadFile);
        EXPECT_NE(reader.GetReason().find(damage.reason), std::string::npos) << reader.GetReason();
    }
    CLayerStack stack;
    CPsdReader reader;
    EXPECT_EQ(reader.LoadFile("/nonexistent/x.psd", stack), 0);
    EXPECT_EQ(reader.GetError(), kPsdCannotOpen);
}

TEST(PsdReader, TruncatedCorruptedAndBadPackBitsFilesNeverCrash)
{
    const Document d = TwoLayers(true);
    const std::vector<uint8_t> good = psdtest::Build(d);
    const size_t layerEnd =
        34 + 4 + (size_t(good[34]) << 24 | size_t(good[35]) << 16 | size_t(good[36]) << 8 | good[37]);
    // Every cut inside the header or the layers fails; the merged image is not needed when layers exist.
    for (size_t cut = 0; cut < good.size(); ++cut) {
        CLayerStack stack;
        CPsdReader reader;
        const int result = Load(std::vector<uint8_t>(good.begin(), good.begin() + long(cut)), stack, &reader);
        if (cut < layerEnd) {
            ASSERT_EQ(result, 0) << cut;
            ASSERT_EQ(reader.GetError(), kPsdBadFile) << cut;
        }
    }
    // A PackBits run that leaves a row short.
    Document bad = d;
    psdtest::Channel& red = bad.layers[1].channels[1];
    red.data.resize(red.data.size() - 3);
    red.data.back() = 0x80; // a no-op where bytes should be
    CLayerStack stack;
    CPsdReader reader;
    EXPECT_EQ(Load(psdtest::Build(bad), stack, &reader), 0);
    EXPECT_NE(reader.GetReason().find("PackBits"), std::string::npos) << reader.GetReason();
    // Random damage: any answer is fine, a crash or a read outside the buffers is not (see the sanitizer build).
    uint32_t seed = 12345;
    int loaded = 0;
    for (int round = 0; round < 3000; ++round) {
        std::vector<uint8_t> b = good;
        for (int k = 0; k < 1 + round % 4; ++k) {
            seed = seed * 1664525u + 1013904223u;
            b[(seed >> 8) % b.size()] = uint8_t(seed >> 24);
        }
        CLayerStack s;
        CPsdReader r;
        const int result = Load(b, s, &r);
        ASSERT_TRUE(result == 1 || r.GetError() == kPsdBadFile) << round;
        loaded += result;
    }
    EXPECT_GT(loaded, 0);
}

TEST(PsdReader, OpenFileLeavesTheDocumentAsItWasWhenThePsdIsDamaged)
{
    vmtest::TempDir dir;
    std::vector<uint8_t> bytes = psdtest::Build(TwoLayers());
    bytes.resize(bytes.size() / 2);
    const std::string path = dir.File("cut.psd");
    vmtest::WriteAll(path, bytes);
    CLayerStack doc;
    ASSERT_EQ(doc.NewDocument(4, 4, 0xFF00FF00u), 1);
    EXPECT_EQ(doc.OpenFile(path.c_str()), 0);
    ASSERT_EQ(doc.GetLayerCount(), 1);
    EXPECT_EQ(doc.GetWidth(), 4);
    EXPECT_EQ(doc.GetLayer(0)->m_image.GetPixel(3, 3), 0xFF00FF00u);
}
