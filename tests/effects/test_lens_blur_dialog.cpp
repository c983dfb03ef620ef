#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <tuple>

#include "commands/history_sink.h"
#include "document/layer.h"
#include "effects/image_size.h"
#include "effects/lens_blur_dialog.h"
#include "filters/resample.h"
#include "imaging/codec.h"
#include "support/engine_checks.h"
#include "support/test_support.h"

namespace {

// The depth value of one pixel, from the rules, for a reference.
int RefDepth(const DepthMapInput& in, int x, int y, int w, int h)
{
    auto tunnel = [&](int px0, int py0) {
        const CRect& t = in.thumbnail;
        const CRect& g = in.panel;
        const int px = (t.right - t.left) * px0 / w + t.left, py = (t.bottom - t.top) * py0 / h + t.top;
        const int dx = px <= in.vanishX ? (in.vanishX - px) * 255 / (in.vanishX - g.left + 1)
                                        : (px - in.vanishX) * 255 / (g.right - in.vanishX + 1);
        const int dy = py <= in.vanishY ? (in.vanishY - py) * 255 / (in.vanishY - g.top + 1)
                                        : (py - in.vanishY) * 255 / (g.bottom - in.vanishY + 1);
        return std::max(dx, dy);
    };
    int maxD = 255, t = 0;
    if (in.mode == 1) {
        maxD = std::max({0, tunnel(0, 0), tunnel(w, 0), tunnel(0, h), tunnel(w, h)});
        t = tunnel(x, y);
    } else if (in.mode == 2) {
        maxD = h - in.horizonRow;
        t = std::max(0, y - in.horizonRow);
    }
    const int u = std::min(t * 255 / maxD, 255), d = 255 - u, f = in.focus * 255 / 100;
    if (f > 0) return d > f ? (d - f) * 255 / (255 - f) : int(((f - d) * 255) / (f * 1.3));
    return std::min(d - f, 255);
}

void ExpectDepth(const DepthMapInput& in, int w, int h)
{
    COLChannel depth;
    ASSERT_TRUE(BuildDepthMap(in, w, h, depth));
    const COLChannel expected = vmtest::PlaneOf(w, h, [&](int x, int y) { return RefDepth(in, x, y, w, h); });
    EXPECT_EQ(vmtest::Bytes(depth), vmtest::Bytes(expected)) << "mode " << in.mode << " focus " << in.focus;
}

// The panel's input for a w x h picture, with the vanishing point at (dx, dy) from the thumbnail's corner.
DepthMapInput Input(int mode, int focus, int w, int h, int dx, int dy, int horizonRow)
{
    DepthMapInput in;
    in.mode = mode;
    in.focus = focus;
    in.thumbnail = ThumbnailRect(in.panel, w, h);
    in.vanishX = in.thumbnail.left + dx;
    in.vanishY = in.thumbnail.top + dy;
    in.horizonRow = horizonRow;
    return in;
}

// The picture of the three aperture shapes in the skin.
COLImage SkinAperture()
{
    COLImage picture;
    EXPECT_EQ(LoadAperturePicture(vmtest::AssetPath("skin/lenblur.png"), picture), "");
    return picture;
}

TEST(LensBlurDepth, EachModeAndFocusFollowsTheRules)
{
    const int w = 40, h = 30;
    for (int mode : {0, 1, 2})
        for (int focus : {-10, 0, 1, 37, 50, 99, 100}) // below 0 nothing is sharp, at 100 everything
            ExpectDepth(Input(mode, focus, w, h, 11, 40, 9), w, h);
}

TEST(LensBlurDepth, DegenerateHorizonsPointsAndPicturesDoNotDivideByZero)
{
    COLChannel depth;
    for (int horizon : {20, 21, 400}) { // on and below the last row of a 20-row picture
        ASSERT_TRUE(BuildDepthMap(Input(kDepthHorizon, 0, 10, 20, 0, 0, horizon), 10, 20, depth));
        EXPECT_EQ(vmtest::Bytes(depth), vmtest::Bytes(vmtest::Plane(10, 20, 255))) << horizon; // all at the horizon
    }
    for (auto [w, h] : {std::pair{1, 30}, std::pair{30, 1}, std::pair{1, 1}})
        for (int mode : {1, 2})
            ASSERT_TRUE(BuildDepthMap(Input(mode, 0, w, h, 0, 0, h / 2), uint32_t(w), uint32_t(h), depth));
    // A vanishing point left of and above the panel: spans that would be empty or negative.
    DepthMapInput in = Input(kDepthTunnel, 0, 16, 12, 0, 0, 0);
    in.vanishX = in.panel.left - 1;
    in.vanishY = in.panel.top - 30;
    ASSERT_TRUE(BuildDepthMap(in, 16, 12, depth));
    EXPECT_EQ(depth.GetValue(15, 11), RefDepth(in, 15, 11, 16, 12));
}

TEST(LensBlurPreview, ThumbnailIsLetterboxedAndLightened)
{
    const CRect t = ThumbnailRect(kDepthPanel, 400, 100); // wide: the box's width, a quarter of it high
    const CRect box{kDepthPanel.left + 32, kDepthPanel.top + 24, kDepthPanel.right - 32, kDepthPanel.bottom - 24};
    EXPECT_EQ(t.Width(), box.Width());
    EXPECT_EQ(t.Height(), box.Width() / 4);
    EXPECT_EQ(t.top - box.top, (box.Height() - t.Height()) / 2);
    const CRect tall = ThumbnailRect(kDepthPanel, 10, 100);
    EXPECT_EQ(tall.Height(), box.Height());
    EXPECT_EQ(tall.Width(), box.Height() / 10);
    COLImage image = vmtest::Noise(400, 100, 9), thumb, scaled;
    ASSERT_TRUE(MakeDepthThumbnail(image, t, thumb));
    ASSERT_EQ(ScaleImage(image, scaled, t.Width(), t.Height(), kScaleBicubic), 1);
    // Each colour halfway to white, alpha as scaled.
    const COLImage lightened = vmtest::Picture(t.Width(), t.Height(), [&](uint32_t x, uint32_t y) {
        const CPixel p = scaled.GetPixel2(x, y);
        return vmtest::Rgb((p.red + 255) / 2, (p.green + 255) / 2, (p.blue + 255) / 2, p.alpha);
    });
    EXPECT_TRUE(vmtest::SamePixels(thumb, lightened));
}

TEST(LensBlurPreview, SizeAndScaledLayers)
{
    int pw, ph;
    double scale;
    // Pictures up to 512 on their longer side are previewed as they are; larger ones brought down to 512.
    for (const auto& [w, h, wantW, wantH, wantScale] :
         {std::tuple{511, 300, 511, 300, 1.0}, std::tuple{1000, 301, 512, 301 * 512 / 1000, 512.0 / 1000},
          std::tuple{300, 900, 300 * 512 / 900, 512, 512.0 / 900}}) {
        PreviewSize(w, h, pw, ph, scale);
        EXPECT_EQ(std::make_pair(pw, ph), std::make_pair(wantW, wantH)) << w << "x" << h;
        EXPECT_DOUBLE_EQ(scale, wantScale) << w << "x" << h;
    }

    CComposeDocument doc(0);
    ASSERT_TRUE(doc.NewDocument(1024, 600, 0xFF336699));
    CLayer* upper = doc.AddLayer(0, 0);
    ASSERT_NE(upper, nullptr);
    upper->m_x = 100;
    upper->m_y = -50;
    upper->m_opacity = 77;
    upper->m_blendMode = 3;
    ASSERT_EQ(upper->m_image.Create(200, 100), kOk);
    doc.SetCurrentIndex(1);
    doc.GetSelectionMask().Create(1024, 600);
    CComposeDocument preview(0);
    ASSERT_TRUE(MakePreviewDocument(doc, preview, scale));
    ASSERT_EQ(preview.GetLayerCount(), 2);
    EXPECT_EQ(vmtest::Size(preview), "512x300");
    const CLayer* p1 = preview.GetLayer(1);
    EXPECT_EQ(vmtest::Place(*p1), "50,-25");
    EXPECT_EQ(p1->m_image.GetWidth(), 100u);
    EXPECT_EQ(std::make_pair(int(p1->m_opacity), int(p1->m_blendMode)), std::make_pair(77, 3));
    EXPECT_EQ(preview.GetCurrentIndex(), 1);
    EXPECT_EQ(preview.GetSelectionMask().GetWidth(), 512u);
}

TEST(LensBlurAperture, TheSkinHoldsAnOctagonAHexagonAndACircle)
{
    const COLImage picture = SkinAperture();
    const double pi = 3.14159265358979;
    // Areas of the three shapes filling the 64 x 64 square: flat-sided octagon, pointed hexagon, circle.
    const double areas[3] = {8 * 32.0 * 32.0 * std::tan(pi / 8), 1.5 * std::sqrt(3.0) * 32 * 32, pi * 32 * 32};
    COLChannel shapes[3];
    for (int shape = 0; shape < 3; ++shape) {
        COLChannel& a = shapes[shape];
        ASSERT_TRUE(ApertureShape(picture, shape, a));
        double sum = 0;
        for (uint32_t y = 0; y < 64; ++y)
            for (uint32_t x = 0; x < 64; ++x) {
                sum += a.GetValue(x, y);
                ASSERT_EQ(a.GetValue(x, y), a.GetValue(63 - x, y)) << shape; // symmetric both ways
                ASSERT_EQ(a.GetValue(x, y), a.GetValue(x, 63 - y)) << shape;
            }
        EXPECT_NEAR(sum / 255.0, areas[shape], areas[shape] * 0.01) << shape;
        EXPECT_EQ(a.GetValue(32, 32), 255);
        EXPECT_EQ(a.GetValue(0, 0), 0);
    }
    const COLChannel &octagon = shapes[kApertureOctagon], &hexagon = shapes[kApertureHexagon],
                     &circle = shapes[kApertureCircle];
    // The octagon's flat sides touch all four edges; the hexagon's do on the left and right only, with points
    // at the top and bottom; the circle touches each edge at one point.
    EXPECT_EQ(octagon.GetValue(26, 0), 255);
    EXPECT_EQ(octagon.GetValue(0, 37), 255);
    EXPECT_EQ(hexagon.GetValue(26, 0), 0);
    EXPECT_EQ(hexagon.GetValue(5, 32), 255);
    EXPECT_EQ(hexagon.GetValue(3, 32), 0);
    EXPECT_LT(circle.GetValue(26, 0), 255);
    EXPECT_EQ(circle.GetValue(31, 1), 255);
    EXPECT_LT(circle.GetValue(0, 37), octagon.GetValue(0, 37));
    COLChannel none;
    EXPECT_FALSE(ApertureShape(picture, 3, none));
}

// A document of one photo-like layer with a foreground block in the middle.
void MakeDocument(CComposeDocument& doc, int w, int h)
{
    ASSERT_TRUE(doc.NewDocument(w, h, 0xFF000000));
    vmtest::FillNoise(doc.GetLayer(0)->m_image, uint32_t(w), uint32_t(h), 21);
}

TEST(LensBlurDialog, MenuEntryBlursTheLayerWithTheFullSizeDepthAndRecordsTheStep)
{
    CComposeDocument doc(0);
    MakeDocument(doc, 700, 90);
    CLensBlurDlgLogic logic;
    logic.settings = MenuEntrySettings();
    logic.settings.depthMode = kDepthHorizon;
    logic.settings.radius = 5;
    logic.settings.focus = 30;
    ASSERT_TRUE(logic.Init(doc, SkinAperture()));
    EXPECT_EQ(logic.GetPreviewDocument().GetWidth(), 512);
    EXPECT_EQ(logic.GetHorizonRow(), (90 * 512 / 700) / 2);
    logic.SetPointInDocument(0, 40); // 40 document rows are 29 preview rows
    EXPECT_EQ(logic.GetHorizonRow(), int(40 * (512.0 / 700)));
    ASSERT_EQ(logic.RunPreview(), kOk);

    // The same run by hand: the preview-size depth brought to full size, the slider's radius unscaled.
    COLImage source = vmtest::Copy(doc.GetLayer(0)->m_image);
    COLChannel previewDepth, fullDepth;
    DepthMapInput in;
    in.mode = kDepthHorizon;
    in.focus = 30;
    in.thumbnail = logic.GetThumbnail();
    in.horizonRow = logic.GetHorizonRow();
    ASSERT_TRUE(BuildDepthMap(in, 512, 90 * 512 / 700, previewDepth));
    ASSERT_TRUE(ResampleChannel(&previewDepth, &fullDepth, 700, 90));
    CLensBlurProcess process;
    LensBlurParams params;
    COLImage picture = SkinAperture(), expected;
    ApertureShape(picture, kApertureHexagon, params.aperture);
    params.depth = &fullDepth;
    params.radius = 5;
    params.highlightThreshold = 250;
    process.SetImages(&source, &expected);
    ASSERT_EQ(process.Process(&params), kOk);

    CRecordingHistory history;
    ASSERT_EQ(logic.RunFinal(doc, &history), kOk);
    EXPECT_TRUE(vmtest::SamePixels(doc.GetLayer(0)->m_image, expected));
    ASSERT_EQ(history.Steps().size(), 1u);
    EXPECT_EQ(history.Steps()[0].kind, kStepLayerHeaderRegion);
    EXPECT_EQ(history.Steps()[0].arg, 0);
    EXPECT_EQ(history.Steps()[0].label, "lensblur");
}

TEST(LensBlurDialog, WizardEntryUsesTheMaskOnTheLayerBelowAndLeavesTheHistoryAlone)
{
    CComposeDocument doc(0);
    MakeDocument(doc, 60, 40);
    int saved = -1;
    EXPECT_FALSE(BeginWizardEntry(doc, saved)); // the base layer has nothing below it
    ASSERT_NE(doc.AddLayer(0, 0), nullptr);
    doc.SetCurrentIndex(1);
    ASSERT_TRUE(BeginWizardEntry(doc, saved));
    EXPECT_EQ(saved, 1);
    EXPECT_EQ(doc.GetCurrentIndex(), 0);
    doc.GetSelectionMask() = vmtest::PlaneOf(60, 40, [](uint32_t x, uint32_t) { return x > 30 ? 255 : 0; });

    CLensBlurDlgLogic logic;
    logic.settings = WizardEntrySettings();
    logic.settings.radius = 4;
    ASSERT_TRUE(logic.Init(doc, SkinAperture()));
    COLImage withoutMask;
    {
        CComposeDocument copy(0);
        MakeDocument(copy, 60, 40);
        CLensBlurDlgLogic plain;
        plain.settings = logic.settings;
        plain.settings.useMask = 0;
        ASSERT_TRUE(plain.Init(copy, SkinAperture()));
        ASSERT_EQ(plain.RunFinal(copy, nullptr), kOk);
        withoutMask.DuplicateFrom(&copy.GetLayer(0)->m_image);
    }
    CRecordingHistory history;
    ASSERT_EQ(logic.RunFinal(doc, &history), kOk);
    EXPECT_TRUE(history.Steps().empty());
    EXPECT_FALSE(vmtest::SamePixels(doc.GetLayer(0)->m_image, withoutMask)); // the subject's colours stayed out
    EndWizardEntry(doc, saved);
    EXPECT_EQ(doc.GetCurrentIndex(), 1);
    EXPECT_TRUE(doc.GetSelectionMask().IsNull());
}

TEST(LensBlurDialog, AMaskThatDoesNotFitTheLayerChangesNothing)
{
    CComposeDocument doc(0);
    MakeDocument(doc, 60, 40);
    CLayer* upper = doc.AddLayer(0, 0);
    vmtest::FillNoise(upper->m_image, 20, 20, 3);
    doc.SetCurrentIndex(1);
    ASSERT_EQ(doc.GetSelectionMask().Create(60, 40), kOk);
    COLImage before = vmtest::Copy(upper->m_image);
    CLensBlurDlgLogic logic;
    logic.settings = WizardEntrySettings();
    ASSERT_TRUE(logic.Init(doc, SkinAperture()));
    CRecordingHistory history;
    EXPECT_EQ(logic.RunFinal(doc, &history), kFail);
    EXPECT_TRUE(vmtest::SamePixels(upper->m_image, before));
    EXPECT_TRUE(history.Steps().empty());
    // An aperture picture of another size is refused at the start.
    EXPECT_FALSE(logic.Init(doc, vmtest::Solid(32, 32, CPixel{})));
}

} // namespace
