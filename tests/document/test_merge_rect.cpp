// The coarse update that brushes ask for after every frame: MergeFast's samples on an opaque photo (the vector
// path's case) and their copy into the composite, at every vector level.

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

#include "document/compose_document.h"
#include "document/compositor.h"
#include "document/layer.h"
#include "reference_merge.h"
#include "runtime/simd_level.h"
#include "support/test_support.h"

namespace {

struct LevelGuard {
    ~LevelGuard() { vmsimd::LimitLevel(-1); }
};

// An opaque base with a few see-through pixels, and upper layers of noise in normal and other modes.
void BuildPhotoStack(CLayerStack& stack, int w, int h)
{
    ASSERT_EQ(stack.NewDocument(w, h, 0xFF808080), 1);
    COLImage& base = stack.GetLayer(0)->m_image;
    vmtest::FillNoise(base, uint32_t(w), uint32_t(h), 4);
    for (size_t i = 0; i < base.GetPixelCount(); ++i)
        base.GetBuffer()[i].alpha = i % 97 == 5 ? uint8_t(i) : 255;
    const int modes[] = {kBlendNormal, kBlendNormal, kBlendScreen};
    for (int k = 0; k < 3; ++k) {
        CLayer* layer = stack.AddLayer(stack.GetLayerCount() - 1, 0);
        ASSERT_NE(layer, nullptr);
        vmtest::FillNoise(layer->m_image, uint32_t(w - 7 * k), uint32_t(h - 5 * k), uint32_t(10 + k));
        layer->m_x = 3 * k - 2;
        layer->m_y = 4 - 3 * k;
        layer->m_blendMode = uint8_t(modes[k]);
        layer->m_opacity = uint8_t(k == 1 ? 140 : 255);
    }
}

} // namespace

TEST(MergeRect, SamplesAndStretchesAsThePlainArithmeticAtEveryLevel)
{
    LevelGuard guard;
    const int w = 83, h = 57;
    CComposeDocument doc(0);
    BuildPhotoStack(doc, w, h);
    vmtest::FillNoise(doc.GetSelectionMask(), uint32_t(w), uint32_t(h), 8);
    std::mt19937 rng(5);
    for (int round = 0; round < 40; ++round) {
        const int step = 1 + int(rng() % 3);
        CRect rect{int(rng() % 100) - 10, int(rng() % 70) - 10, 0, 0};
        rect.right = rect.left + 1 + int(rng() % 90);
        rect.bottom = rect.top + 1 + int(rng() % 60);
        // The composite as the merge thread leaves it; its alpha bytes are the selection and must stay.
        ASSERT_EQ(doc.MergeNow(), 1);
        const COLImage before = vmtest::Copy(*doc.GetComposite());
        COLImage preview;
        const int l = std::clamp(rect.left, 0, w), t = std::clamp(rect.top, 0, h);
        const int r = std::clamp(rect.right, 0, w), b = std::clamp(rect.bottom, 0, h);
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
        for (int level = vmsimd::kPlain; level <= vmsimd::kAvx2; ++level) {
            vmsimd::LimitLevel(level);
            COLImage fast;
            ASSERT_EQ(MergeFast(&doc, &fast, rect, step), 1);
            if (!preview.IsNull()) {
                ASSERT_TRUE(vmtest::SamePixels(fast, preview)) << "level " << level << " round " << round;
            }
            ASSERT_TRUE(doc.GetComposite()->DuplicateFrom(&before));
            ASSERT_EQ(doc.MergeRect(rect.left, rect.top, rect.right, rect.bottom, step), 1);
            ASSERT_TRUE(vmtest::SamePixels(*doc.GetComposite(), expected)) << "level " << level << " round " << round;
        }
        vmsimd::LimitLevel(-1);
    }
}
