#include <algorithm>
#include <cmath>

#include "matting/warp.h"
#include "matting/warp_fit.h"
#include "tool_fixture.h"

using vmtest::Bytes;
using vmtest::ToolTest;

namespace {

class GeometryTest : public ToolTest {
protected:
    void SetUp() override
    {
        ToolTest::SetUp();
        context.foreground = [this] { return m_fore; };
        context.status = [this](const std::string& text) { status = text; };
        context.text = [](const char* key) {
            return std::string(key) == "cropsize" ? "%d x %d, left:%d right:%d top:%d bottom:%d" : std::string(key);
        };
    }
    // The layer as the warp called directly makes it from the source for the shown corners: the box of the
    // corners plus one pixel around, then trimmed.
    void ExpectWarped(const CLayer& layer, COLImage& source, const WarpCorner (&c)[4])
    {
        const auto [minX, maxX] = std::minmax({c[0].x, c[1].x, c[2].x, c[3].x});
        const auto [minY, maxY] = std::minmax({c[0].y, c[1].y, c[2].y, c[3].y});
        WarpParams p{};
        ASSERT_TRUE(FitInverseWarp(c, p.xCoef, p.yCoef));
        p.width = maxX - minX + 2;
        p.height = maxY - minY + 2;
        p.fillColour = m_fore;
        p.mode = 1;
        p.originX = minX - 1;
        p.originY = minY - 1;
        CLayer want;
        CWarpProcess warp;
        warp.SetImages(&source, &want.m_image);
        ASSERT_EQ(warp.Process(&p), kOk);
        want.m_x = minX - 1;
        want.m_y = minY - 1;
        ASSERT_EQ(want.TrimToContent(), 1);
        EXPECT_EQ(vmtest::Place(layer), vmtest::Place(want));
        EXPECT_EQ(Bytes(layer.m_image), Bytes(want.m_image));
        EXPECT_EQ(layer.m_visible, 1);
    }
    // An upper layer of opaque noise of w x h at (x, y).
    CLayer* AddLayerAt(int x, int y, int w, int h) { return AddUpperLayer(x, y, vmtest::OpaqueNoise(w, h, 7)); }
    void Take(CToolBase& tool)
    {
        manager->SetCurrentTool(&tool);
        ASSERT_EQ(manager->GetCurrentTool(), &tool);
    }
    void DoubleClick(int x, int y)
    {
        Sink().OnLButtonDown(kMkLButton, x, y);
        Sink().OnLButtonUp(0, x, y);
        Sink().OnLButtonDblClk(kMkLButton, x, y);
        if (view.sink) Sink().OnLButtonUp(0, x, y);
    }
    // A copy of the base layer's picture.
    COLImage BaseCopy() { return vmtest::Copy(doc.GetLayer(0)->m_image); }

    CPixel m_fore = CPixel::Make(10, 200, 30, 255);
    std::string status;
};

double Poly(const double (&c)[6], double a, double b)
{
    return c[0] * a * a + c[1] * b * b + c[2] * a * b + c[3] * a + c[4] * b + c[5];
}

// The six pairs both fits pass through: corners and the integer midpoints of the top and the left side.
struct Pair {
    double x, y, u, v;
};
std::vector<Pair> FitPairs(const WarpCorner (&c)[4])
{
    return {{double(c[0].x), double(c[0].y), 0, 0},
            {double(c[1].x), double(c[1].y), 1, 0},
            {double(c[2].x), double(c[2].y), 1, 1},
            {double(c[3].x), double(c[3].y), 0, 1},
            {double((c[0].x + c[1].x) / 2), double((c[0].y + c[1].y) / 2), 0.5, 0},
            {double((c[0].x + c[3].x) / 2), double((c[0].y + c[3].y) / 2), 0, 0.5}};
}

void Corners(const CropShape& s, WarpCorner (&out)[4])
{
    for (int i = 0; i < 4; ++i) out[i] = {s.corners[i].x, s.corners[i].y};
}

// The four corners of a frame, clockwise from the top-left one: "x,y x,y x,y x,y".
std::string Frame(const CropShape& s)
{
    std::string text;
    for (const CViewPoint& c : s.corners)
        text += (text.empty() ? "" : " ") + std::to_string(c.x) + "," + std::to_string(c.y);
    return text;
}

} // namespace

// ---- the fits ----------------------------------------------------------------------------------------------------

TEST(WarpFit, BothMapsPassThroughTheSixPairs)
{
    const WarpCorner shapes[][4] = {
        {{3, 4}, {30, 6}, {28, 25}, {1, 22}},
        {{0, 0}, {17, 0}, {17, 11}, {0, 11}},     // first corner on the origin: the zero pivot is stepped over
        {{-40, -7}, {90, -20}, {120, 70}, {-35, 60}},
    };
    for (const auto& c : shapes) {
        double x[6], y[6], u[6], v[6];
        FitDirectWarp(c, x, y);
        ASSERT_TRUE(FitInverseWarp(c, u, v));
        for (const Pair& p : FitPairs(c)) {
            EXPECT_DOUBLE_EQ(Poly(x, p.u, p.v), p.x);
            EXPECT_DOUBLE_EQ(Poly(y, p.u, p.v), p.y);
            EXPECT_NEAR(Poly(u, p.x, p.y), p.u, 1e-9) << p.x << "," << p.y;
            EXPECT_NEAR(Poly(v, p.x, p.y), p.v, 1e-9);
        }
    }
}

TEST(WarpFit, PointsOnOneConicHaveNoInverseMap)
{
    // All six points on one line: the system is singular and the coefficients stay 0.
    const WarpCorner line[4] = {{0, 0}, {10, 10}, {20, 20}, {30, 30}};
    double u[6], v[6];
    EXPECT_FALSE(FitInverseWarp(line, u, v));
    for (double c : u) EXPECT_EQ(c, 0.0);
}

// ---- crop --------------------------------------------------------------------------------------------------------

TEST_F(GeometryTest, RectangleCropCutsTheBaseShiftsTheLayersAndUndoes)
{
    CLayer* upper = AddLayerAt(12, 9, 6, 5);
    doc.SetCurrentIndex(0);
    const COLImage before = BaseCopy();
    const int steps = composeLog.GetCount();
    Take(manager->GetCropTool());
    Drag(25, 20, 5, 4); // dragged up-left: the frame is normalised
    ASSERT_EQ(manager->GetCropTool().GetState(), 2);
    EXPECT_EQ(status, "20 x 16, left:5 right:15 top:4 bottom:10");
    DoubleClick(15, 10);

    ASSERT_EQ(vmtest::Size(doc), "20x16");
    EXPECT_EQ(Bytes(doc.GetLayer(0)->m_image),
              Bytes(vmtest::Picture(20, 16, [&](uint32_t x, uint32_t y) { return before.GetPixel2(x + 5, y + 4); })));
    EXPECT_EQ(vmtest::Place(*upper), "7,5");
    ExpectOneStep(steps, kStepWholeDocument, 0, "croptip");
    EXPECT_EQ(manager->GetCurrentTool(), nullptr) << "a finished crop leaves the tool";

    ASSERT_EQ(composeLog.Backward(), 1);
    EXPECT_EQ(doc.GetWidth(), W);
    EXPECT_EQ(Bytes(doc.GetLayer(0)->m_image), Bytes(before));
    EXPECT_EQ(doc.GetLayer(1)->m_x, 12);
}

TEST_F(GeometryTest, CropFrameIsClippedToThePictureAndAClickMakesNone)
{
    Take(manager->GetCropTool());
    Drag(-20, -9, W + 30, 12);
    const CropShape& s = manager->GetCropTool().GetShape();
    EXPECT_EQ(Frame(s), "0,0 40,0 40,12 0,12");
    // Moving the frame keeps it inside (H is 30); the arrows nudge it.
    Drag(10, 5, 10, 40);
    EXPECT_EQ(Frame(s), "0,18 40,18 40,30 0,30");
    Sink().OnKeyDown(kKeyUp, 0);
    EXPECT_EQ(Frame(s), "0,17 40,17 40,29 0,29");

    // A press outside the frame starts anew; a click without a drag leaves no frame.
    manager->GetCropTool().SetCorners({{2, 2}, {8, 2}, {8, 8}, {2, 8}});
    Click(30, 20);
    EXPECT_EQ(manager->GetCropTool().GetState(), 0);
    const int steps = composeLog.GetCount();
    DoubleClick(30, 20);
    EXPECT_EQ(composeLog.GetCount(), steps);
    EXPECT_EQ(doc.GetWidth(), W);
}

TEST_F(GeometryTest, CropBeyondThePictureFillsWithTheCurrentColour)
{
    const COLImage before = BaseCopy();
    Take(manager->GetCropTool());
    ASSERT_TRUE(manager->GetCropTool().SetCorners({{-3, -2}, {W + 4, -2}, {W + 4, 10}, {-3, 10}}));
    ASSERT_TRUE(manager->GetCropTool().ApplyFrame());
    ASSERT_EQ(vmtest::Size(doc), "47x12");
    EXPECT_EQ(Bytes(doc.GetLayer(0)->m_image), Bytes(vmtest::Picture(W + 7, 12, [&](uint32_t x, uint32_t y) {
                  const int sx = int(x) - 3, sy = int(y) - 2;
                  return sx >= 0 && sx < W && sy >= 0 ? before.GetPixel2(uint32_t(sx), uint32_t(sy)) : m_fore;
              })));
}

TEST_F(GeometryTest, LockedRatioShapesTheFrameAndItsCorners)
{
    CCropTool& crop = manager->GetCropTool();
    Take(crop);
    ASSERT_TRUE(crop.GetOptions().SetRatioChoice(CPropCrop::kRatio4x3));
    EXPECT_FALSE(crop.GetOptions().SetFreeShape(true)) << "a locked ratio disables the free shape";
    Drag(2, 2, 30, 14); // height 12 gives width 16
    const CropShape& s = crop.GetShape();
    EXPECT_EQ(Frame(s), "2,2 18,2 18,14 2,14");
    // The bottom-right corner dragged: the top-left stays, the width follows the height, 21 x 4 / 3 = 28.
    Drag(18, 14, 25, 23);
    EXPECT_EQ(Frame(s), "2,2 30,2 30,23 2,23");
    // A corner never passes the opposite sides.
    Drag(30, 23, -5, -5);
    EXPECT_GE(s.corners[2].x, 3);
    EXPECT_GE(s.corners[2].y, 3);
    // Changing the panel drops the frame.
    crop.GetOptions().SetRatioChoice(CPropCrop::kRatioNone);
    EXPECT_EQ(crop.GetState(), 0);
}

TEST_F(GeometryTest, FreeShapeCropStraightensThroughTheDirectWarp)
{
    CCropTool& crop = manager->GetCropTool();
    Take(crop);
    ASSERT_TRUE(crop.GetOptions().SetFreeShape(true));
    const COLImage before = BaseCopy();
    const int current = composeLog.GetCurrentStep();
    Drag(4, 3, 34, 26);
    Drag(4, 3, 8, 6);    // top-left corner in
    Drag(34, 26, 31, 28); // bottom-right corner out and down
    // A corner cannot cross: the top-right corner dragged far left stops 4 pixels right of the left corners.
    Drag(34, 3, -10, 3);
    const CropShape& s = crop.GetShape();
    EXPECT_EQ(s.corners[1].x, 8 + 4);
    Drag(12, 3, 33, 2);
    ASSERT_EQ(Frame(s), "8,6 33,2 31,28 4,26");
    WarpCorner c[4];
    Corners(s, c);

    DoubleClick(20, 15);
    // The expected picture: the side lengths give the size, the direct fit the map, fill the current colour.
    auto len = [](WarpCorner a, WarpCorner b) { return std::hypot(double(b.x - a.x), double(b.y - a.y)); };
    WarpParams p{};
    FitDirectWarp(c, p.xCoef, p.yCoef);
    p.width = int(std::max(len(c[0], c[1]), len(c[3], c[2])));
    p.height = int(std::max(len(c[0], c[3]), len(c[1], c[2])));
    p.fillColour = m_fore;
    p.mode = 0;
    COLImage src = vmtest::Copy(before), want;
    CWarpProcess warp;
    warp.SetImages(&src, &want);
    ASSERT_EQ(warp.Process(&p), kOk);
    EXPECT_EQ(vmtest::Size(doc), vmtest::Size(want));
    EXPECT_EQ(Bytes(doc.GetLayer(0)->m_image), Bytes(want));
    EXPECT_EQ(LastLabel(composeLog), "croptip");
    ASSERT_EQ(composeLog.Backward(), 1);
    EXPECT_EQ(composeLog.GetCurrentStep(), current);
    EXPECT_EQ(Bytes(doc.GetLayer(0)->m_image), Bytes(before));
}

// ---- transform ---------------------------------------------------------------------------------------------------

TEST_F(GeometryTest, TransformWithoutChangeGivesTheLayerBack)
{
    // Even sides: the integer midpoints of the fit are then the true ones, and the map is the identity.
    CLayer* layer = AddLayerAt(6, 5, 12, 10);
    COLImage source = vmtest::Copy(layer->m_image);
    Take(manager->GetTransformTool());
    EXPECT_EQ(layer->m_visible, 0) << "hidden while the frame shows it";
    EXPECT_EQ(Frame(manager->GetTransformTool().GetShape()), "6,5 18,5 18,15 6,15");
    const int steps = composeLog.GetCount();
    DoubleClick(10, 9);
    const WarpCorner same[4] = {{6, 5}, {18, 5}, {18, 15}, {6, 15}};
    ExpectWarped(*layer, source, same);
    // The two pixels of margin are trimmed off again, and the fitted map lands on the pixels themselves (a
    // fraction of a level at most, where the solved map falls a hair short of a whole pixel).
    EXPECT_EQ(vmtest::Place(*layer), "6,5");
    // Where the solved map falls a hair short of the far edge, a last row or column of alpha 1 is left over.
    const COLImage& after = layer->m_image;
    ASSERT_GE(after.GetWidth(), 12u);
    ASSERT_GE(after.GetHeight(), 10u);
    ASSERT_LE(after.GetWidth(), 13u);
    ASSERT_LE(after.GetHeight(), 11u);
    for (uint32_t y = 0; y < after.GetHeight(); ++y)
        for (uint32_t x = 0; x < after.GetWidth(); ++x) {
            const CPixel got = after.GetPixel2(x, y);
            if (x >= 12 || y >= 10) {
                EXPECT_LE(got.alpha, 1) << x << "," << y;
                continue;
            }
            const CPixel was = source.GetPixel2(x, y);
            for (int k = 0; k < 4; ++k) ASSERT_NEAR((&got.blue)[k], (&was.blue)[k], 2) << x << "," << y;
        }
    ExpectOneStep(steps, kStepLayerHeaderRegion, 1, "transtip");
    EXPECT_EQ(manager->GetCurrentTool(), &manager->GetTransformTool());
}

TEST_F(GeometryTest, TransformScalesAndTurnsThroughTheInverseWarpAndUndoes)
{
    CLayer* layer = AddLayerAt(6, 5, 12, 9);
    COLImage source = vmtest::Copy(layer->m_image);
    CTransformTool& tool = manager->GetTransformTool();
    Take(tool);
    // The bottom-right corner from (18, 14) down to y = 20: the ratio of the layer (12:9) holds.
    Drag(18, 14, 30, 20);
    const CropShape& s = tool.GetShape();
    EXPECT_EQ(Frame(s), "6,5 26,5 26,20 6,20");
    // A drag outside the frame turns it about its centre.
    Drag(34, 13, 33, 22);
    EXPECT_GT(s.angle, 0.1);
    EXPECT_TRUE(s.IsSound());
    WarpCorner c[4];
    Corners(s, c);

    const int steps = composeLog.GetCount();
    DoubleClick(s.centre.x, s.centre.y);
    ASSERT_EQ(composeLog.GetCount(), steps + 1);

    ExpectWarped(*layer, source, c);

    ASSERT_EQ(composeLog.Backward(), 1);
    CLayer* back = doc.GetLayer(1);
    EXPECT_EQ(back->m_x, 6);
    EXPECT_EQ(Bytes(back->m_image), Bytes(source));
}

TEST_F(GeometryTest, CrossingCornersAreRefusedAndTheLayerStays)
{
    CLayer* layer = AddLayerAt(6, 5, 12, 9);
    const std::vector<uint8_t> before = Bytes(layer->m_image);
    CTransformTool& tool = manager->GetTransformTool();
    Take(tool);
    const int steps = composeLog.GetCount();
    // Top-right and bottom-right swapped: the sides cross.
    ASSERT_TRUE(tool.SetCorners({{6, 5}, {18, 14}, {18, 5}, {6, 14}}));
    EXPECT_FALSE(tool.GetShape().IsSound());
    DoubleClick(9, 7);
    EXPECT_EQ(messages, std::vector<std::string>{"transbad"});
    EXPECT_EQ(composeLog.GetCount(), steps);
    EXPECT_EQ(Bytes(layer->m_image), before);
    EXPECT_EQ(layer->m_x, 6);
    EXPECT_EQ(tool.GetState(), 2) << "the frame stays for another try";
    // Leaving puts the layer back on show.
    manager->SetCurrentTool(nullptr);
    EXPECT_EQ(layer->m_visible, 1);
    EXPECT_EQ(composeLog.GetCount(), steps);
}

TEST_F(GeometryTest, FreeCornersOfTheTransformFollowThePerspective)
{
    CLayer* layer = AddLayerAt(6, 5, 12, 9);
    COLImage source = vmtest::Copy(layer->m_image);
    CTransformTool& tool = manager->GetTransformTool();
    Take(tool);
    ASSERT_TRUE(tool.GetOptions().SetRatioChoice(CPropCrop::kRatioNone));
    ASSERT_TRUE(tool.GetOptions().SetFreeShape(true));
    ASSERT_EQ(tool.GetState(), 2) << "the frame is taken again from the layer";
    Drag(18, 5, 24, 1);
    Drag(6, 14, 2, 20);
    EXPECT_EQ(Frame(tool.GetShape()), "6,5 24,1 18,14 2,20") << "the other corners stay";
    WarpCorner c[4];
    Corners(tool.GetShape(), c);
    ASSERT_TRUE(tool.ApplyFrame());
    ExpectWarped(*layer, source, c);
    EXPECT_LT(layer->m_x, 6) << "the bottom-left corner went left";
}

// ---- move --------------------------------------------------------------------------------------------------------

TEST_F(GeometryTest, TheBaseRefusesTheTransformAndAMoveWithoutSelection)
{
    manager->SetCurrentTool(&manager->GetTransformTool());
    EXPECT_EQ(manager->GetCurrentTool(), nullptr);
    Take(manager->GetMoveTool());
    const int steps = composeLog.GetCount();
    Drag(5, 5, 15, 10);
    Sink().OnKeyDown(kKeyLeft, 0);
    EXPECT_EQ(messages, (std::vector<std::string>{"transerr", "moverror", "moverror"}));
    EXPECT_EQ(doc.GetLayer(0)->m_x, 0);
    EXPECT_EQ(composeLog.GetCount(), steps);
}

TEST_F(GeometryTest, MovesGatherIntoOneHeaderStepAndUndo)
{
    CLayer* layer = AddLayerAt(6, 5, 12, 9);
    CMoveTool& tool = manager->GetMoveTool();
    Take(tool);
    const int steps = composeLog.GetCount();
    Drag(10, 10, 17, 13);
    EXPECT_EQ(vmtest::Place(*layer), "13,8");
    EXPECT_EQ(composeLog.GetCount(), steps) << "a release writes nothing";
    // At zoom 0.25 an arrow moves four pixels, above zoom 1 one.
    view.SetZoom(0.25, false);
    Sink().OnKeyDown(kKeyRight, 0);
    EXPECT_EQ(layer->m_x, 17);
    view.SetZoom(3.0, false);
    Sink().OnKeyDown(kKeyUp, 0);
    EXPECT_EQ(layer->m_y, 7);
    view.SetZoom(1.0, false);
    for (int i = 0; i < 29; ++i) Sink().OnTimer();
    EXPECT_EQ(composeLog.GetCount(), steps);
    Sink().OnTimer(); // the 30th tick writes the gathered moves
    ExpectOneStep(steps, kStepLayerHeader, 1, "movtooltip");
    Sink().OnKeyDown(kKeyDown, 0);
    manager->SetCurrentTool(nullptr); // leaving writes the rest
    ASSERT_EQ(composeLog.GetCount(), steps + 2);
    ASSERT_EQ(composeLog.Backward(), 1);
    EXPECT_EQ(doc.GetLayer(1)->m_y, 7);
    ASSERT_EQ(composeLog.Backward(), 1);
    EXPECT_EQ(vmtest::Place(*doc.GetLayer(1)), "6,5");
}

TEST_F(GeometryTest, ASelectionOnTheBaseIsLiftedAndItsHoleFilled)
{
    const auto taken = [](uint32_t x, uint32_t y) {
        return uint8_t(y >= 4 && y < 12 && x >= 3 && x < 13 ? (x == 3 ? 100 : 255) : 0);
    };
    doc.GetSelectionMask() = vmtest::PlaneOf(W, H, taken);
    const COLImage before = BaseCopy();
    Take(manager->GetMoveTool());
    const int steps = composeLog.GetCount();
    Drag(6, 6, 26, 16);
    ASSERT_EQ(doc.GetLayerCount(), 2);
    EXPECT_EQ(doc.GetCurrentIndex(), 1);
    EXPECT_TRUE(doc.GetSelectionMask().IsNull());
    ASSERT_EQ(composeLog.GetCount(), steps + 1);
    EXPECT_EQ(composeLog.GetRecord(steps)->kind, kStepWholeDocument);
    const CLayer* lifted = doc.GetLayer(1);
    EXPECT_EQ(vmtest::Place(*lifted), "23,14"); // the selection's corner (3, 4) moved by the drag (20, 10)
    // The hole takes the current colour by what was lifted; the lifted layer is the selection's box, the
    // selection its alpha.
    EXPECT_TRUE(vmtest::SamePixels(doc.GetLayer(0)->m_image, vmtest::Picture(W, H, [&](uint32_t x, uint32_t y) {
                                       const CPixel old = before.GetPixel2(x, y);
                                       const int r = 255 - taken(x, y);
                                       auto mix = [&](int fore, int was) {
                                           return uint8_t((fore * (255 - r) + was * r) / 255);
                                       };
                                       return CPixel::Make(mix(m_fore.red, old.red), mix(m_fore.green, old.green),
                                                           mix(m_fore.blue, old.blue), old.alpha);
                                   })));
    EXPECT_TRUE(vmtest::SamePixels(lifted->m_image, vmtest::Picture(10, 8, [&](uint32_t x, uint32_t y) {
                                       const CPixel old = before.GetPixel2(x + 3, y + 4);
                                       return CPixel::Make(old.red, old.green, old.blue, taken(x + 3, y + 4));
                                   })));
}

// ---- what the frame tools show -----------------------------------------------------------------------------------

TEST_F(GeometryTest, TheCropFrameDimsTheOutsideOfThePicture)
{
    view.display = BaseCopy();
    Take(manager->GetCropTool());
    ASSERT_TRUE(manager->GetCropTool().SetCorners({{5, 4}, {25, 4}, {25, 20}, {5, 20}}));
    ASSERT_NE(view.shown, nullptr);
    EXPECT_TRUE(vmtest::SamePixels(*view.shown, vmtest::Picture(W, H, [&](uint32_t x, uint32_t y) {
        const CPixel was = view.display.GetPixel2(x, y);
        const bool inside = x >= 5 && x < 25 && y >= 4 && y < 20;
        return inside ? was : CPixel{uint8_t(was.blue >> 1), uint8_t(was.green >> 1), uint8_t(was.red >> 1), was.alpha};
    })));
    // Leaving drops the dimmed picture.
    manager->SetCurrentTool(nullptr);
    EXPECT_EQ(view.shown, nullptr);
}

TEST_F(GeometryTest, TheTransformDrawsTheHiddenLayerThroughTheMap)
{
    CLayer* layer = AddLayerAt(6, 5, 12, 10);
    for (size_t i = 0; i < layer->m_image.GetPixelCount(); ++i) layer->m_image.GetBuffer()[i].alpha = uint8_t(i * 37);
    view.display = BaseCopy();
    CTransformTool& tool = manager->GetTransformTool();
    Take(tool);
    ASSERT_TRUE(tool.SetCorners({{4, 3}, {30, 6}, {27, 26}, {8, 22}}));
    ASSERT_NE(view.shown, nullptr);
    const WarpCorner c[4] = {{4, 3}, {30, 6}, {27, 26}, {8, 22}};
    double u[6], v[6];
    ASSERT_TRUE(FitInverseWarp(c, u, v));
    int covered = 0;
    EXPECT_TRUE(vmtest::SamePixels(*view.shown, vmtest::Picture(W, H, [&](uint32_t x, uint32_t y) {
        CPixel want = view.display.GetPixel2(x, y);
        const double a = Poly(u, x, y), b = Poly(v, x, y);
        if (a <= 0 || a >= 1 || b <= 0 || b >= 1) return want;
        // The nearest layer pixel, over the picture by its alpha.
        const CPixel s =
            layer->m_image.GetPixel2(uint32_t(std::min(int(a * 12), 11)), uint32_t(std::min(int(b * 10), 9)));
        want.red = uint8_t((want.red * (255 - s.alpha) + s.red * s.alpha) >> 8);
        want.green = uint8_t((want.green * (255 - s.alpha) + s.green * s.alpha) >> 8);
        want.blue = uint8_t((want.blue * (255 - s.alpha) + s.blue * s.alpha) >> 8);
        ++covered;
        return want;
    })));
    EXPECT_GT(covered, 300) << "the shape covers a good part of the picture";
    manager->SetCurrentTool(nullptr);
    EXPECT_EQ(view.shown, nullptr);
    EXPECT_EQ(layer->m_visible, 1);
}
