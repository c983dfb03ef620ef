#include "plain_brush.h"
#include "tool_fixture.h"

using plainbrush::Frames;
using plainbrush::MakeStamp;
using vmtest::ToolTest;

namespace {

using vmtest::Path;

// A diagonal, a horizontal and a vertical piece, with a point visited twice.
const Path kPath = {{6, 5}, {14, 11}, {25, 11}, {25, 20}, {14, 11}};

class PaintTest : public ToolTest {
protected:
    std::vector<uint8_t> PlainStroke(int size, int soft, int alphaPercent, const Path& path)
    {
        return Frames(MakeStamp(size, soft), alphaPercent * 255 / 100, W, H, path).back().s;
    }
};

} // namespace

TEST(BrushStamp, DiscBandBlurAndCropAsDefined)
{
    for (int size : {1, 2, 3, 9, 20}) {
        for (int soft : {0, 50, 100}) {
            COLChannel stamp;
            ASSERT_EQ(BuildBrushStamp(size, soft, 512, stamp), kOk);
            const plainbrush::Stamp plain = MakeStamp(size, soft);
            ASSERT_EQ(int(stamp.GetWidth()), plain.w) << size << "/" << soft;
            ASSERT_EQ(int(stamp.GetHeight()), plain.h);
            EXPECT_EQ(vmtest::Bytes(stamp), plain.v) << size << "/" << soft;
        }
    }
    // A hard brush of size 9 is the disc of truncated radius 7 (below size - 1; the band is empty), 15 pixels
    // across: near twice the size that the dialog calls a diameter. Size 1 is a single pixel: no circle to show
    // at any zoom. {size, side, radius}:
    for (const auto& [size, side, radius] : {std::array<int, 3>{9, 15, 7}, {1, 1, 0}}) {
        COLChannel hard;
        ASSERT_EQ(BuildBrushStamp(size, 0, 512, hard), kOk);
        EXPECT_EQ(int(hard.GetWidth()), side) << size;
        EXPECT_EQ(StampRadius(hard), radius) << size;
    }
}

TEST(BrushDialog, SizeSliderIsFinerForSmallBrushes)
{
    const int pairs[][2] = {{0, 1}, {2, 2}, {18, 10}, {19, 11}, {58, 50}, {59, 54}, {79, 152}, {100, 255}};
    for (const auto& p : pairs) EXPECT_EQ(BrushSliderToSize(p[0]), p[1]) << p[0];
    const int back[][2] = {{1, 0}, {10, 18}, {11, 19}, {50, 58}, {51, 58}, {255, 100}};
    for (const auto& p : back) EXPECT_EQ(BrushSizeToSlider(p[0]), p[1]) << p[0];
}

TEST(BrushSettings, ProfileValuesAreReadOnceAndBroughtIntoRange)
{
    std::vector<std::string> asked;
    CNullProperty brush("DesatTool");
    COLChannel stamp;
    uint8_t alpha = 0;
    brush.Attach(nullptr, &stamp, &alpha);
    brush.LoadSettings([&](const std::string& key, int def) {
        asked.push_back(key);
        return key == "DesatTool_BrushSize" ? 999 : key == "DesatTool_BrushSoft" ? -4 : def;
    });
    EXPECT_EQ(asked, (std::vector<std::string>{"DesatTool_BrushSize", "DesatTool_BrushSoft", "DesatTool_BrushAlpha"}));
    EXPECT_EQ(brush.GetSize(), 255);
    EXPECT_EQ(brush.GetSoft(), 0);
    EXPECT_EQ(alpha, 255);
    EXPECT_TRUE(brush.SetValues(0, 120, 40));
    EXPECT_EQ(brush.GetSize(), 1);
    EXPECT_EQ(brush.GetSoft(), 100);
    EXPECT_EQ(alpha, 40 * 255 / 100);
}

TEST_F(PaintTest, EraserLowersAlphaOfAnUpperLayerAndUndoRestoresIt)
{
    CLayer* layer = AddUpperLayer(3, -2, vmtest::Noise(W, H, 5));   // soft alpha, hanging past the canvas
    const std::vector<uint8_t> before = vmtest::Bytes(layer->m_image);
    Take(manager->GetEraseLayerTool(), 3, 50, 80);
    const int steps = composeLog.GetCount();
    Paint(kPath);
    // The bytes of every frame are checked at every vector level with the dabs; here the step and its undo.
    const std::vector<uint8_t> expected = vmtest::Bytes(doc.GetLayer(1)->m_image);
    ASSERT_NE(expected, before);
    ExpectOneStep(steps, kStepLayerHeaderRegion, 1, "erase");

    ASSERT_EQ(composeLog.Backward(), 1);
    EXPECT_EQ(vmtest::Bytes(doc.GetLayer(1)->m_image), before);
    ASSERT_EQ(composeLog.Forward(), 1);
    EXPECT_EQ(vmtest::Bytes(doc.GetLayer(1)->m_image), expected);
}

TEST_F(PaintTest, EraserRefusesAHiddenLayer)
{
    doc.GetLayer(0)->m_visible = 0;
    manager->SetCurrentTool(&manager->GetEraseLayerTool());
    EXPECT_EQ(manager->GetCurrentTool(), nullptr);
    EXPECT_EQ(messages, std::vector<std::string>{"erasewar"});
}

TEST_F(PaintTest, BrushMergesOnePaintLayerPerStroke)
{
    CPixel fg{0, 40, 250, 255};
    context.foreground = [&] { return fg; };
    AddUpperLayer(0, 0, vmtest::Noise(W, H, 5));
    // The stroke crosses itself: a paint layer merged once does not build up where it does.
    const Path path = {{4, 4}, {30, 20}, {30, 4}, {4, 20}};
    CComposeDocument reference;
    reference.NewDocument(W, H, 0);
    reference.GetLayer(0)->m_image.DuplicateFrom(&doc.GetLayer(0)->m_image);
    reference.AddLayer(0, 0)->m_image.DuplicateFrom(&doc.GetLayer(1)->m_image);
    const std::vector<uint8_t> s = PlainStroke(4, 30, 60, path);
    reference.AddLayer(1, 0)->m_image = vmtest::Picture(W, H, [&](uint32_t x, uint32_t y) {
        const uint8_t v = s[size_t(y) * W + x];
        return v ? CPixel{fg.blue, fg.green, fg.red, v} : CPixel{0, 0, 0, 0};
    });
    ASSERT_EQ(reference.MergeDown(2), 1);

    Take(manager->GetFreePaintTool(), 4, 30, 60);
    const int steps = composeLog.GetCount();
    Paint(path);
    ASSERT_EQ(doc.GetLayerCount(), 2);
    EXPECT_EQ(vmtest::Bytes(doc.GetLayer(1)->m_image), vmtest::Bytes(reference.GetLayer(1)->m_image));
    EXPECT_EQ(doc.GetLayer(1)->m_x, reference.GetLayer(1)->m_x);
    EXPECT_EQ(composeLog.GetCount(), steps + 1);
    EXPECT_EQ(LastLabel(composeLog), "freepaint");
}

TEST_F(PaintTest, CloneTakesItsSourceFirstThenCopiesWithTheOffset)
{
    const COLImage original = vmtest::Copy(doc.GetLayer(0)->m_image);
    const std::vector<uint8_t> before = vmtest::Bytes(original);
    Take(manager->GetCameraTool(), 2, 0, 100);
    const int steps = composeLog.GetCount();
    // The first click only sets the source point.
    Sink().OnLButtonDown(kMkLButton, 5, 6);
    Sink().OnLButtonUp(0, 5, 6);
    EXPECT_EQ(vmtest::Bytes(doc.GetLayer(0)->m_image), before);
    EXPECT_EQ(composeLog.GetCount(), steps);
    // Alt and a click sets it again.
    Sink().OnLButtonDown(kMkLButton | kMkAlt, 4, 4);
    Sink().OnLButtonUp(0, 4, 4);
    const Path path = {{20, 10}, {28, 14}, {33, 14}};
    Paint(path);
    ASSERT_EQ(composeLog.GetCount(), steps + 1);
    EXPECT_EQ(LastLabel(composeLog), "cameratooltip");

    // Plain: a layer of source pixels (offset 16, 6) with alpha scaled by s, laid over the base.
    CComposeDocument reference;
    reference.NewDocument(W, H, 0);
    reference.GetLayer(0)->m_image = vmtest::Copy(original);
    const std::vector<uint8_t> s = PlainStroke(2, 0, 100, path);
    reference.AddLayer(0, 0)->m_image = vmtest::Picture(W, H, [&](uint32_t x, uint32_t y) {
        const uint8_t weight = s[size_t(y) * W + x];
        if (!weight || x < 16 || y < 6) return CPixel{0, 0, 0, 0};
        CPixel p = original.GetPixel2(x - 16, y - 6);
        p.alpha = uint8_t(p.alpha * weight / 255);
        return p;
    });
    ASSERT_EQ(reference.MergeDown(1), 1);
    EXPECT_EQ(vmtest::Bytes(doc.GetLayer(0)->m_image), vmtest::Bytes(reference.GetLayer(0)->m_image));
}

TEST_F(PaintTest, SelectionModeBrushesOnTheResultMask)
{
    ASSERT_TRUE(manager->EnterOrLeaveSelectionMode(true, kMethodInOut, true));
    COLChannel* mask = selection.GetResultMask();
    COLImage* working = selection.GetWorkingImage();
    // A matting result: the left half kept, and the working image's colours darkened where it was cut.
    *mask = vmtest::PlaneOf(W, H, [](uint32_t x, uint32_t) { return uint8_t(x < 20 ? 255 : 40); });
    for (size_t i = 0; i < working->GetPixelCount(); ++i) {
        CPixel& p = working->GetBuffer()[i];
        p.alpha = mask->GetBuffer()[i];
        if (i % W >= 20) p.red = p.green = p.blue = 3;
    }
    selectionLog.AddStep(&selection, kStepChannel, kPlaneResult | kPlaneWorking, "modifypolygonseltip");
    const std::vector<uint8_t> maskBefore = vmtest::Bytes(*mask), workBefore = vmtest::Bytes(*working);
    const std::vector<uint8_t> picture = vmtest::Bytes(doc.GetLayer(0)->m_image);

    // Restore: colours move towards the picture at every frame, the mask rises by the stroke.
    Take(manager->GetForePaintTool(), 3, 60, 100);
    const Path path = {{22, 5}, {30, 12}, {34, 12}, {26, 24}};
    Paint(path);
    const std::vector<plainbrush::Stroke> frames = Frames(MakeStamp(3, 60), 255, W, H, path);
    std::vector<uint8_t> work = workBefore, m = maskBefore;
    for (const plainbrush::Stroke& f : frames)
        for (size_t i = 0; i < f.s.size(); ++i) {
            const int v = f.s[i];
            if (!v) continue;
            for (int c = 0; c < 3; ++c) work[i * 4 + c] = uint8_t((picture[i * 4 + c] * v + work[i * 4 + c] * (255 - v)) / 255);
            m[i] = uint8_t((maskBefore[i] * (255 - v) + v * 255) / 255);
            work[i * 4 + 3] = m[i];
        }
    EXPECT_EQ(vmtest::Bytes(*mask), m);
    EXPECT_EQ(vmtest::Bytes(*working), work);
    EXPECT_EQ(LastLabel(selectionLog), "forepainttip");
    EXPECT_EQ(selectionLog.GetRecord(selectionLog.GetCount() - 1)->arg, kPlaneResult | kPlaneWorking);

    // Erase the result: mask = (255 - s) x mask / 255, the soft difference; undo brings the restored mask back.
    Take(manager->GetEraseSelTool(), 6, 20, 50);
    Paint(kPath);
    EXPECT_EQ(vmtest::Bytes(*mask), vmtest::PlainSubtract(m, PlainStroke(6, 20, 50, kPath)));
    EXPECT_EQ(selectionLog.GetRecord(selectionLog.GetCount() - 1)->arg, kPlaneResult);
    ASSERT_EQ(selectionLog.Backward(), 1);
    EXPECT_EQ(vmtest::Bytes(*selection.GetResultMask()), m);
    ASSERT_EQ(selectionLog.Backward(), 1);
    EXPECT_EQ(vmtest::Bytes(*selection.GetResultMask()), maskBefore);
    EXPECT_EQ(vmtest::Bytes(*selection.GetWorkingImage()), workBefore);
}

TEST_F(PaintTest, ContourBrushesPaintAndEraseTheirPlanes)
{
    ASSERT_TRUE(manager->EnterOrLeaveSelectionMode(true, kMethodInOut, true));
    EXPECT_TRUE(selection.GetInnerPlane()->IsNull());
    Take(manager->GetInnerBrushTool(), 4, 50, 100);
    Paint(kPath);
    const std::vector<uint8_t> painted = PlainStroke(4, 50, 100, kPath);   // 255 x s / 255: the stroke itself
    EXPECT_EQ(vmtest::Bytes(*selection.GetInnerPlane()), painted);
    EXPECT_TRUE(selection.GetOuterPlane()->IsNull());
    EXPECT_EQ(selectionLog.GetRecord(selectionLog.GetCount() - 1)->arg, kPlaneInner);

    const Path across = {{2, 14}, {38, 14}};
    Paint(across, kMkControl);
    const std::vector<uint8_t> erased = vmtest::PlainSubtract(painted, PlainStroke(4, 50, 100, across));
    EXPECT_EQ(vmtest::Bytes(*selection.GetInnerPlane()), erased);
    ASSERT_EQ(selectionLog.Backward(), 1);
    EXPECT_EQ(vmtest::Bytes(*selection.GetInnerPlane()), painted);
}

TEST_F(PaintTest, BrushCircleFollowsZoomAndSizeOneShowsNone)
{
    CPaintTool& tool = manager->GetDesatTool();
    Take(tool, 9, 0, 100);
    EXPECT_EQ(tool.GetRadius(), 7);
    view.dc.lines = 0;
    Sink().OnMouseMove(0, 20, 15);
    EXPECT_EQ(view.dc.lines, 28) << "r = 7: 4 r chords";
    view.SetZoom(0.25, false);
    view.dc.lines = 0;
    Sink().OnMouseMove(0, 21, 15);
    EXPECT_EQ(view.dc.lines, 28 + 7) << "the old circle is erased, then r = 1.75 gives 7 chords";
    view.SetZoom(8, false);
    view.dc.lines = 0;
    Sink().OnMouseMove(0, 22, 15);
    EXPECT_EQ(view.dc.lines, 7 + 32) << "r = 56: at most 32 chords";
    ASSERT_TRUE(tool.GetBrush().SetValues(1, 0, 100));
    view.dc.lines = 0;
    Sink().OnMouseMove(0, 22, 15);
    EXPECT_EQ(view.dc.lines, 32) << "size 1 has radius 0: only the erase of the old circle";
}
