// The brush's short cuts: the stamp reports which bytes it raised, the tools redo only those pixels, the stroke
// plane is cleared only where the last stroke wrote, and the picture under the stroke is copied tile by tile.
// Each is checked against the plain arithmetic after every frame, at every vector level and split.

#include <random>

#include "plain_brush.h"
#include "runtime/simd_level.h"
#include "support/runtime_limits.h"
#include "tool_fixture.h"
#include "tools/lazy_snapshot.h"
#include "tools/stamp_kernel.h"

using plainbrush::Frames;
using plainbrush::MakeStamp;
using vmtest::ToolTest;

namespace {

using vmtest::Path;

class BrushDabTest : public ToolTest {
protected:
    // A selection that lets part of the canvas through, partly.
    void MaskLeftBand()
    {
        doc.GetSelectionMask() =
            vmtest::PlaneOf(W, H, [](uint32_t x, uint32_t y) { return x < 9 || y > 26 ? 0 : 60 + x * 4; });
    }
};

} // namespace

TEST(StampKernel, ReportsTheRaisedBytesAtEveryLevel)
{
    std::mt19937 rng(17);
    for (int round = 0; round < 300; ++round) {
        const size_t n = 1 + rng() % 70;
        std::vector<uint8_t> src(n), dst(n);
        for (auto& v : src)
            v = uint8_t(rng() % 4 ? rng() : 0);
        for (auto& v : dst)
            v = uint8_t(rng() % 3 ? rng() : 255);
        const uint32_t w = uint32_t(round) % 256; // every weight
        int first = 1, last = 0;
        std::vector<uint8_t> expected = dst;
        for (size_t k = 0; k < n; ++k) {
            const uint8_t t = uint8_t(src[k] * w / 255);
            if (t <= expected[k]) continue;
            expected[k] = t;
            if (first > last) first = int(k);
            last = int(k);
        }
        for (int level = vmsimd::kPlain; level <= vmsimd::kAvx2; ++level) {
            SCOPED_TRACE(testing::Message() << "level " << level << " round " << round);
            const vmtest::SimdCap cap(level);
            std::vector<uint8_t> out = dst;
            const CStampSpan span = StampRowMax(out.data(), src.data(), n, w);
            ASSERT_EQ(out, expected);
            ASSERT_EQ(span.IsEmpty(), first > last);
            if (first <= last) {
                EXPECT_EQ(std::make_pair(int(span.first), int(span.last)), std::make_pair(first, last));
            }
        }
    }
}

TEST_F(BrushDabTest, EraserOnAnUpperLayerMatchesEveryFrameAtEveryLevel)
{
    // Size 1, hard and soft middle sizes, and a brush wider than the canvas; paths that run off every edge.
    struct Case {
        int size, soft, alpha;
        bool mask;
        Path path;
    };
    const Case cases[] = {
        {1, 0, 100, false, {{0, 0}, {5, 3}, {39, 3}, {39, 29}}},
        {4, 0, 70, true, {{-3, 4}, {8, 12}, {8, 12}, {20, 12}, {14, 2}}},
        {9, 100, 100, false, {{38, 27}, {44, 31}, {30, 20}, {2, 28}}},
        {20, 50, 90, true, {{20, 15}, {21, 15}, {19, 17}, {-5, -5}}},
        // One-pixel steps in all eight directions, then a diagonal whose stamps vary in weight.
        {9,
         50,
         100,
         false,
         {{15, 15}, {16, 15}, {17, 16}, {17, 17}, {16, 18}, {15, 18}, {14, 17}, {14, 16}, {15, 15}, {27, 21}}},
    };
    CLayer* layer = doc.AddLayer(0, 0);
    vmtest::FillNoise(layer->m_image, W, H, 5);
    layer->m_x = 3;
    layer->m_y = -2;
    doc.SetCurrentIndex(1);
    composeLog.AddStep(&doc, kStepWholeDocument, 0, "His_open");
    vmtest::ForEachLevelAndSplit([&](const std::string& label) {
        for (const Case& c : cases) {
            doc.GetSelectionMask().Free();
            if (c.mask) MaskLeftBand();
            const std::vector<uint8_t> mask = c.mask ? vmtest::Bytes(doc.GetSelectionMask()) : std::vector<uint8_t>{};
            Take(manager->GetEraseLayerTool(), c.size, c.soft, c.alpha);
            const std::vector<uint8_t> before = vmtest::Bytes(doc.GetLayer(1)->m_image);
            const auto frames = Frames(MakeStamp(c.size, c.soft), c.alpha * 255 / 100, W, H, c.path);
            Paint(c.path, 0, 0, [&](size_t f) {
                std::vector<uint8_t> expected = before;
                for (int y = 0; y < H; ++y)
                    for (int x = 0; x < W; ++x) {
                        const int cx = x + 3, cy = y - 2;
                        if (cx >= W || cy < 0) continue;
                        const size_t i = size_t(cy) * W + cx;
                        const int s = c.mask && !mask[i] ? 0 : frames[f].s[i];
                        uint8_t& a = expected[(size_t(y) * W + x) * 4 + 3];
                        a = uint8_t((255 - s) * a / 255);
                    }
                ASSERT_EQ(vmtest::Bytes(doc.GetLayer(1)->m_image), expected)
                    << label << ", size " << c.size << ", frame " << f;
            });
        }
    });
}

TEST_F(BrushDabTest, EraserMakesTheWholeBaseOpaqueWhereTheSelectionAllows)
{
    // A base with see-through pixels: from the first frame on it is opaque wherever the selection lets the
    // eraser through, also far from the stroke, and its colours move towards the foreground by the stroke.
    CPixel fg{200, 10, 60, 255};
    context.foreground = [&] { return fg; };
    COLImage& base = doc.GetLayer(0)->m_image;
    for (size_t i = 0; i < base.GetPixelCount(); ++i)
        base.GetBuffer()[i].alpha = uint8_t(i % 5 ? 255 : i % 256);
    composeLog.AddStep(&doc, kStepWholeDocument, 0, "His_open");
    MaskLeftBand();
    const std::vector<uint8_t> mask = vmtest::Bytes(doc.GetSelectionMask());
    const std::vector<uint8_t> before = vmtest::Bytes(base);
    const COLImage original = vmtest::Copy(base);
    Take(manager->GetEraseLayerTool(), 3, 100, 100);
    const Path path = {{12, 6}, {30, 6}, {30, 20}};
    const auto frames = Frames(MakeStamp(3, 100), 255, W, H, path);
    vmtest::ForEachLevelAndSplit([&](const std::string& label) {
        ASSERT_TRUE(doc.GetLayer(0)->m_image.DuplicateFrom(&original));
        Paint(path, 0, 0, [&](size_t f) {
            std::vector<uint8_t> expected = before;
            for (size_t i = 0; i < mask.size(); ++i) {
                if (!mask[i]) continue;
                const int sm = frames[f].s[i] * mask[i] / 255;
                const uint8_t colour[3] = {fg.blue, fg.green, fg.red};
                for (int k = 0; k < 3; ++k)
                    expected[i * 4 + k] = uint8_t((colour[k] * sm + before[i * 4 + k] * (255 - sm)) / 255);
                expected[i * 4 + 3] = 255;
            }
            ASSERT_EQ(vmtest::Bytes(doc.GetLayer(0)->m_image), expected) << label << ", frame " << f;
        });
        // The first pixel is outside the selection and kept its alpha of 0.
        EXPECT_EQ(doc.GetLayer(0)->m_image.GetBuffer()[0].alpha, 0);
    });
}

TEST_F(BrushDabTest, DesaturateMatchesEveryFrame)
{
    const std::vector<uint8_t> before = vmtest::Bytes(doc.GetLayer(0)->m_image);
    Take(manager->GetDesatTool(), 6, 0, 60);
    const Path path = {{35, 25}, {37, 29}, {10, 29}, {10, 1}};
    const auto frames = Frames(MakeStamp(6, 0), 60 * 255 / 100, W, H, path);
    Paint(path, 0, 0, [&](size_t f) {
        std::vector<uint8_t> expected = before;
        for (size_t i = 0; i < frames[f].s.size(); ++i) {
            const uint8_t* p = &before[i * 4];
            const int s = frames[f].s[i], grey = (p[0] + 3 * p[2] + 6 * p[1]) / 10;
            for (int k = 0; k < 3; ++k)
                expected[i * 4 + k] = uint8_t((grey * s + p[k] * (255 - s)) / 255);
        }
        ASSERT_EQ(vmtest::Bytes(doc.GetLayer(0)->m_image), expected) << "frame " << f;
    });
    EXPECT_EQ(LastLabel(composeLog), "desattip");
}

TEST_F(BrushDabTest, EachStrokeStartsFromAnEmptyStrokePlane)
{
    CEraseLayerTool& eraser = manager->GetEraseLayerTool();
    Take(eraser, 5, 50, 100);
    const Path first = {{2, 2}, {38, 27}}, second = {{30, 4}, {33, 6}};
    Paint(first);
    Paint(second);
    EXPECT_EQ(vmtest::Bytes(eraser.GetStroke()), Frames(MakeStamp(5, 50), 255, W, H, second).back().s);
    // A press off the canvas stamps nothing, and what the last stroke left is gone.
    Paint(Path{{-40, -40}});
    EXPECT_EQ(vmtest::Bytes(eraser.GetStroke()), std::vector<uint8_t>(size_t(W) * H, 0));
}

TEST(LazySnapshot, CopiesTilesWhenFirstReachedAndKeepsThePressPixels)
{
    COLImage source = vmtest::Noise(200, 150, 9);
    const std::vector<uint8_t> original = vmtest::Bytes(source);
    CLazySnapshot snapshot;
    ASSERT_TRUE(snapshot.Begin(source));
    EXPECT_EQ(snapshot.CopiedTiles(), 0);
    // A rectangle across a tile corner reaches four tiles; one past the edge is clipped.
    snapshot.Ensure(CRect{60, 60, 70, 70});
    EXPECT_EQ(snapshot.CopiedTiles(), 4);
    snapshot.Ensure(CRect{195, 140, 260, 400});
    EXPECT_EQ(snapshot.CopiedTiles(), 5);
    // The source changes inside what was ensured; the copy keeps the pixels of the press.
    for (int y = 60; y < 70; ++y)
        for (int x = 60; x < 70; ++x)
            source.PutPixel(uint32_t(x), uint32_t(y), CPixel::FromWord(0x12345678));
    snapshot.Ensure(CRect{0, 0, 128, 128});
    EXPECT_EQ(snapshot.CopiedTiles(), 5);
    for (int y = 0; y < 128; ++y)
        ASSERT_EQ(std::memcmp(snapshot.Row(y), &original[size_t(y) * 200 * 4], 128 * 4), 0) << "row " << y;
    snapshot.Free();
    EXPECT_TRUE(snapshot.IsNull());
    EXPECT_FALSE(snapshot.Begin(COLImage{}));
}
