#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <random>

#include "document/compose_document.h"
#include "document/compositor.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "reference_merge.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

CLayer* AddNoiseLayer(CLayerStack& stack, uint32_t w, uint32_t h, int x, int y, uint32_t seed)
{
    CLayer* layer = stack.AddLayer(stack.GetLayerCount() - 1, 0);
    EXPECT_NE(layer, nullptr);
    vmtest::FillNoise(layer->m_image, w, h, seed);
    layer->m_x = x;
    layer->m_y = y;
    return layer;
}

// Random stack: a base and layers of assorted sizes and places (overhanging every edge), modes, opacities.
void BuildRandomStack(CLayerStack& stack, uint32_t w, uint32_t h, uint32_t seed)
{
    std::mt19937 rng(seed);
    ASSERT_EQ(stack.NewDocument(int(w), int(h), 0xFF808080), 1);
    vmtest::FillNoise(stack.GetLayer(0)->m_image, w, h, seed);
    for (int i = 0; i < 7; ++i) {
        const uint32_t lw = 1 + rng() % (w + 40), lh = 1 + rng() % (h + 40);
        CLayer* layer = AddNoiseLayer(stack, lw, lh, int(rng() % (w + 40)) - 30, int(rng() % (h + 40)) - 30, rng());
        layer->m_blendMode = uint8_t(rng() % 13);
        layer->m_opacity = uint8_t(i == 0 ? 255 : rng());
        layer->m_visible = i == 3 ? 0 : 1;
        if (i == 1) { // whole runs of opaque and transparent pixels take the shortcuts of the vector path
            CPixel* p = layer->m_image.GetBuffer();
            for (size_t k = 0; k < layer->m_image.GetPixelCount(); ++k)
                p[k].alpha = (k / 64) % 2 ? 255 : 0;
        }
    }
}

// An opaque base with a few see-through pixels, and upper layers of noise in normal and other modes: the photo
// that brushes update after every frame, the vector path's case.
void BuildPhotoStack(CLayerStack& stack, int w, int h)
{
    ASSERT_EQ(stack.NewDocument(w, h, 0xFF808080), 1);
    COLImage& base = stack.GetLayer(0)->m_image;
    vmtest::FillNoise(base, uint32_t(w), uint32_t(h), 4);
    for (size_t i = 0; i < base.GetPixelCount(); ++i)
        base.GetBuffer()[i].alpha = i % 97 == 5 ? uint8_t(i) : 255;
    const int modes[] = {kBlendNormal, kBlendNormal, kBlendScreen};
    for (int k = 0; k < 3; ++k) {
        CLayer* layer = AddNoiseLayer(stack, uint32_t(w - 7 * k), uint32_t(h - 5 * k), 3 * k - 2, 4 - 3 * k,
                                      uint32_t(10 + k));
        layer->m_blendMode = uint8_t(modes[k]);
        layer->m_opacity = uint8_t(k == 1 ? 140 : 255);
    }
}

} // namespace

TEST(Compositor, Div255IsExactOverSixteenBits)
{
    for (uint32_t x = 0; x <= 65535; ++x)
        ASSERT_EQ(Div255(x), x / 255) << x;
}

TEST(Compositor, BlendPixelFormulasForEveryPair)
{
    const CPixel marker = CPixel::Make(1, 2, 3, 77);
    for (int d = 0; d < 256; ++d)
        for (int s = 0; s < 256; ++s) {
            const CPixel pd = CPixel::Make(uint8_t(d), uint8_t(255 - d), uint8_t(d / 2), 10);
            const CPixel ps = CPixel::Make(uint8_t(s), uint8_t(s / 3), uint8_t(255 - s), 200);
            for (int mode : {1, 2, 5, 6, 10}) {
                CPixel out = marker;
                BlendPixel(pd, ps, &out, mode);
                // Modes with a formula leave the alpha of out alone.
                const CPixel want = CPixel::Make(reftest::ModeColour(mode, pd.red, ps.red),
                                                 reftest::ModeColour(mode, pd.green, ps.green),
                                                 reftest::ModeColour(mode, pd.blue, ps.blue), 77);
                ASSERT_EQ(out.Word(), want.Word()) << mode << " " << d << " " << s;
            }
            for (int mode : {0, 3, 4, 7, 8, 9, 11, 255}) {
                CPixel out = marker;
                BlendPixel(pd, ps, &out, mode);
                ASSERT_EQ(out.Word(), ps.Word()) << "mode " << mode << " copies all four bytes of s";
            }
        }
    // The names the layer lists show: a mode without a formula of its own is named as the normal one.
    EXPECT_STREQ(BlendModeKey(5), "bm_mul");
    EXPECT_STREQ(BlendModeKey(7), "bm_normal");
}

// Every alpha against every opacity, for every mode, on the plain and the vector path.
TEST(Compositor, BlendLayerMatchesTheArithmeticForAllAlphaAndOpacity)
{
    COLImage below = vmtest::Noise(256, 24, 5);
    CLayer layer;
    vmtest::FillNoise(layer.m_image, 256, 24, 6);
    for (size_t i = 0; i < layer.m_image.GetPixelCount(); ++i)   // 256 wide: each column's own alpha
        layer.m_image.GetBuffer()[i].alpha = uint8_t(i % 256);
    vmtest::ForEachLevelAndSplit([&](const std::string& label) {
        for (int mode : {0, 1, 2, 5, 6, 10}) {
            layer.m_blendMode = uint8_t(mode);
            for (int opacity = 0; opacity < 256; ++opacity) {
                layer.m_opacity = uint8_t(opacity);
                COLImage fast = vmtest::Copy(below), slow = vmtest::Copy(below);
                ASSERT_EQ(BlendLayer(&fast, &layer), 1);
                reftest::BlendOnto(slow, layer);
                ASSERT_TRUE(vmtest::SamePixels(fast, slow)) << label << " mode " << mode << " opacity " << opacity;
            }
        }
    });
}

TEST(Compositor, MergeLayersMatchesReferenceOnEveryPath)
{
    // Large enough to be split across the pool.
    CLayerStack stack;
    BuildRandomStack(stack, 701, 409, 42);
    vmtest::FillNoise(stack.GetSelectionMask(), 701, 409, 9);
    for (int maskFlag : {0, 1}) {
        COLImage expected = vmtest::Noise(701, 409, 77); // alpha that flag 0 must leave alone
        reftest::Merge(stack, expected, maskFlag);
        vmtest::ForEachLevelAndSplit([&](const std::string& label) {
            COLImage out = vmtest::Noise(701, 409, 77);
            ASSERT_EQ(MergeLayers(&stack, &out, maskFlag), 1);
            EXPECT_TRUE(vmtest::SamePixels(out, expected)) << "mask flag " << maskFlag << " " << label;
        });
    }
}

TEST(Compositor, BaseIsOpaqueAtTheOriginWhateverItsSettings)
{
    CLayerStack stack;
    ASSERT_EQ(stack.NewDocument(5, 4, 0x00102030), 1); // alpha 0 everywhere
    CLayer* base = stack.GetLayer(0);
    base->m_opacity = 0;
    base->m_visible = 0;
    base->m_blendMode = kBlendMultiply;
    base->m_x = 3;
    base->m_y = -2;
    COLImage out;
    ASSERT_EQ(MergeLayers(&stack, &out, 1), 1);
    EXPECT_TRUE(vmtest::SamePixels(out, vmtest::Solid(5, 4, CPixel::FromWord(0x00102030))))
        << "colour of the base, alpha 0 without a selection";
    CLayerStack empty;
    EXPECT_EQ(MergeLayers(&empty, &out, 0), 0);
}

TEST(Compositor, OpacityAndPlacementCases)
{
    CLayerStack stack;
    ASSERT_EQ(stack.NewDocument(4, 4, 0xFF000000), 1);
    CLayer* top = stack.AddLayer(0, 0);
    ASSERT_NE(top, nullptr);
    top->m_image = vmtest::Solid(4, 4, CPixel::Make(255, 255, 255));
    top->m_opacity = 128;
    COLImage out;
    ASSERT_EQ(MergeLayers(&stack, &out, 0), 1);
    // a = (255 * 128 + 127) / 255 = 128, so 255 * 128 / 255 rounded: (0 * 127 + 255 * 128 + 127) / 255 = 128
    EXPECT_EQ(out.GetPixel2(2, 2).red, 128);

    top->m_opacity = 0;
    for (int mode = 0; mode <= 11; ++mode) {
        top->m_blendMode = uint8_t(mode);
        ASSERT_EQ(MergeLayers(&stack, &out, 0), 1);
        EXPECT_EQ(out.GetPixel2(1, 1).Word() & 0xFFFFFF, 0u) << "opacity 0 changes nothing, mode " << mode;
    }
    top->m_opacity = 255;
    top->m_x = 4; // wholly outside to the right
    ASSERT_EQ(MergeLayers(&stack, &out, 0), 1);
    EXPECT_EQ(out.GetPixel2(3, 3).Word() & 0xFFFFFF, 0u);
    top->m_x = -3;
    top->m_y = 3; // only its top-right pixel covers the document's (0, 3)
    ASSERT_EQ(MergeLayers(&stack, &out, 0), 1);
    EXPECT_EQ(out.GetPixel2(0, 3).Word() & 0xFFFFFF, 0xFFFFFFu);
    EXPECT_EQ(out.GetPixel2(1, 3).Word() & 0xFFFFFF, 0u);
    EXPECT_EQ(BlendLayer(&out, top), 1);
    top->m_visible = 0;
    EXPECT_EQ(BlendLayer(&out, top), 0);
}

TEST(Compositor, MergeFastSamplesDrawsBaseOnWhiteAndShifts)
{
    CLayerStack stack;
    ASSERT_EQ(stack.NewDocument(10, 6, 0x00000000), 1); // black, alpha 0: white in the preview
    CLayer* base = stack.GetLayer(0);
    base->m_image.PutPixel(2, 2, CPixel::Make(100, 50, 0, 128));
    base->m_image.PutPixel(4, 0, CPixel::Make(9, 8, 7, 255));
    COLImage out;
    ASSERT_EQ(MergeFast(&stack, &out, CRect{10, 6, 0, 0}, 2), 1); // swapped sides are normalised
    EXPECT_EQ(vmtest::Size(out), "5x3");   // 10 / 2 + 1 = 6, and 6 * 2 > 10
    EXPECT_EQ(out.GetPixel2(0, 0).Word(), 0xFFFEFEFEu); // ((0 - 255) * 0 + 65025) >> 8 = 254
    EXPECT_EQ(out.GetPixel2(2, 0).Word(), CPixel::Make(9, 8, 7, 255).Word());
    const CPixel half = out.GetPixel2(1, 1);
    auto overWhite = [](int c) { return uint8_t(((c - 255) * 128 + 65025) >> 8); };
    EXPECT_EQ(half.Word(), CPixel::Make(overWhite(100), overWhite(50), overWhite(0), 255).Word());

    CLayer* top = stack.AddLayer(0, 0);
    top->m_image = vmtest::Solid(10, 6, CPixel::Make(0, 0, 200));
    top->m_opacity = 255;
    ASSERT_EQ(MergeFast(&stack, &out, CRect{0, 0, 10, 6}, 2), 1);
    // a = (255 * 255 + 127) >> 8 = 254; blue = (200 * 254 + 254 * 1) >> 8
    EXPECT_EQ(out.GetPixel2(3, 1).blue, (200 * 254 + 254 * 1) >> 8);
    EXPECT_EQ(out.GetPixel2(3, 1).red, (0 * 254 + 254 * 1) >> 8);

    ASSERT_EQ(MergeFast(&stack, &out, CRect{0, 0, 1, 6}, 2), 1);
    EXPECT_TRUE(out.IsNull()) << "a rectangle narrower than the step frees the destination";
}

// The coarse update that brushes ask for after every frame: MergeFast's samples against the plain arithmetic, and
// MergeRect's stretch of them into the composite (whose alpha bytes are the selection and must stay), on every
// path. Rectangles come with any corners: swapped, past every edge, narrower than the step.
TEST(Compositor, MergeFastAndMergeRectMatchTheSampledArithmetic)
{
    for (bool photo : {false, true}) {
        const int w = photo ? 83 : 97, h = photo ? 57 : 61;
        CComposeDocument doc(0);
        if (photo)
            BuildPhotoStack(doc, w, h);
        else
            BuildRandomStack(doc, uint32_t(w), uint32_t(h), 5);
        vmtest::FillNoise(doc.GetSelectionMask(), uint32_t(w), uint32_t(h), 8);
        std::mt19937 rng(photo ? 5 : 3);
        for (int round = 0; round < 40; ++round) {
            SCOPED_TRACE(testing::Message() << (photo ? "photo" : "random stack") << ", round " << round);
            const int step = 1 + int(rng() % 5);
            const CRect rect{int(rng() % (w + 13)) - 5, int(rng() % (h + 9)) - 5, int(rng() % (w + 13)) - 5,
                             int(rng() % (h + 9)) - 5};
            CRect n = rect;
            n.Normalize();
            const int l = std::clamp(n.left, 0, w), t = std::clamp(n.top, 0, h);
            const int r = std::clamp(n.right, 0, w), b = std::clamp(n.bottom, 0, h);
            ASSERT_EQ(doc.MergeNow(), 1);
            const COLImage before = vmtest::Copy(*doc.GetComposite());
            COLImage preview;
            if (r - l >= step && b - t >= step) reftest::MergeFast(doc, preview, l, t, r, b, step);
            COLImage expected = vmtest::Copy(before);
            if (!preview.IsNull())
                for (int y = t; y < b; ++y)
                    for (int x = l; x < r; ++x) {
                        const CPixel p =
                            preview.GetPixel2(uint32_t(std::min((x - l) / step, int(preview.GetWidth()) - 1)),
                                              uint32_t(std::min((y - t) / step, int(preview.GetHeight()) - 1)));
                        CPixel& o = expected.GetBuffer()[size_t(y) * w + x];
                        o = CPixel{p.blue, p.green, p.red, o.alpha};
                    }
            vmtest::ForEachLevelAndSplit([&](const std::string& label) {
                COLImage fast;
                ASSERT_EQ(MergeFast(&doc, &fast, rect, step), 1);
                if (preview.IsNull())
                    EXPECT_TRUE(fast.IsNull()) << "a rectangle narrower than the step frees the destination";
                else
                    ASSERT_TRUE(vmtest::SamePixels(fast, preview)) << label << ", step " << step;
                ASSERT_TRUE(doc.GetComposite()->DuplicateFrom(&before));
                ASSERT_EQ(doc.MergeRect(rect.left, rect.top, rect.right, rect.bottom, step), 1);
                ASSERT_TRUE(vmtest::SamePixels(*doc.GetComposite(), expected)) << label << ", step " << step;
            });
        }
    }
}

TEST(Compositor, MergeFastStaysInsideThePreviewForOffGridLayers)
{
    // 11 pixels at step 2 give 5 preview columns (0, 2, ... 8). A layer from column 2 is sampled at 2, 4, ... 10
    // into preview columns 1 to 5: the sixth must not be written (the sanitizer build catches a write past the
    // preview). The same holds for rows.
    CLayerStack stack;
    ASSERT_EQ(stack.NewDocument(11, 11, 0xFF000000), 1);
    CLayer* red = stack.AddLayer(0, 0);
    red->m_image = vmtest::Solid(11, 11, CPixel::Make(255, 0, 0));
    red->m_x = 2;
    red->m_y = 2;
    CLayer* blue = AddNoiseLayer(stack, 4, 4, 3, 3, 1);
    blue->m_image = vmtest::Solid(4, 4, CPixel::Make(0, 0, 255));
    COLImage out;
    ASSERT_EQ(MergeFast(&stack, &out, CRect{0, 0, 11, 11}, 2), 1);
    ASSERT_EQ(vmtest::Size(out), "5x5");
    // a = (255 * 255 + 127) >> 8 = 254, red = (255 * 254 + 0 * 1) >> 8 = 253
    EXPECT_EQ(out.GetPixel2(4, 4).red, 253);
    EXPECT_EQ(out.GetPixel2(1, 3).red, 253);
    EXPECT_EQ(out.GetPixel2(0, 0).red, 0);
    EXPECT_EQ(out.GetPixel2(4, 0).red, 0);
    // The blue layer starts at column 3: its first sample lands in preview column 3 / 2 = 1.
    EXPECT_EQ(out.GetPixel2(0, 1).blue, 0);
    EXPECT_GT(out.GetPixel2(1, 1).blue, 200);
    EXPECT_GT(out.GetPixel2(2, 2).blue, 200);
    EXPECT_EQ(out.GetPixel2(4, 4).blue, 0);
}
