#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSlider>
#include <QSpinBox>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>

#include "commands/history_log.h"
#include "document/layer.h"
#include "effects/image_size.h"
#include "effects/lens_blur_dialog.h"
#include "gui_support.h"
#include "imaging/codec.h"
#include "shell/image_view.h"
#include "shell/lens_blur_dlg.h"
#include "shell/main_frame.h"
#include "shell/selection_mode.h"
#include "shell/shell_app.h"
#include "shell/tool_bar.h"

using namespace vmtest;

namespace {

// The Image menu's dialogs driven as a user does: items from the frame, fields typed, buttons pressed. Every result
// is compared, whole picture by whole picture, with the core function called directly on a copy.
class ImageMenuInFrame : public FrameTest {
protected:
    void SetUp() override { StartFrame(1000, 720); }
    void TearDown() override { selmode::SetBringBackChooser(nullptr); }

    // The cat photo with a second layer, smaller than the picture and placed inside it, so scaling and canvas
    // moves show on it too.
    void OpenWithUpperLayer()
    {
        ASSERT_NO_FATAL_FAILURE(Open(AssetPath("samples/chelsea.png")));
        CComposeDocument& doc = m_app.Document();
        CLayer* upper = doc.AddLayer(0, 0);
        ASSERT_NE(upper, nullptr);
        FillNoise(upper->m_image, 60, 40, 5);
        upper->m_x = 31;
        upper->m_y = 17;
        doc.SetCurrentIndex(0);
        // As a paste or a new layer would, so that undo comes back to this state.
        m_app.CommandContext().history->AddStep(&doc, kStepWholeDocument, 0, "His_open");
        doc.Refresh();
    }

    // The document as it is now, layer by layer, into a document of its own.
    void CopyDocument(CComposeDocument& to)
    {
        CComposeDocument& from = m_app.Document();
        ASSERT_TRUE(to.NewDocument(from.GetWidth(), from.GetHeight(), 0xFF000000u));
        ASSERT_TRUE(to.GetLayer(0)->m_image.DuplicateFrom(&from.GetLayer(0)->m_image));
        for (int i = 1; i < from.GetLayerCount(); ++i) {
            CLayer* layer = to.AddLayer(i - 1, 0);
            ASSERT_NE(layer, nullptr);
            const CLayer* src = from.GetLayer(i);
            ASSERT_TRUE(layer->m_image.DuplicateFrom(&src->m_image));
            layer->m_x = src->m_x;
            layer->m_y = src->m_y;
        }
        if (!from.GetSelectionMask().IsNull()) to.GetSelectionMask().DuplicateFrom(&from.GetSelectionMask());
        to.SetCurrentIndex(from.GetCurrentIndex());
    }

    // Both documents hold the same layers: sizes, places and every byte.
    static void ExpectSameDocument(CComposeDocument& a, CComposeDocument& b)
    {
        ASSERT_EQ(a.GetLayerCount(), b.GetLayerCount());
        EXPECT_EQ(Size(a), Size(b));
        for (int i = 0; i < a.GetLayerCount(); ++i) {
            EXPECT_EQ(a.GetLayer(i)->m_x, b.GetLayer(i)->m_x) << i;
            EXPECT_EQ(a.GetLayer(i)->m_y, b.GetLayer(i)->m_y) << i;
            EXPECT_TRUE(SamePixels(a.GetLayer(i)->m_image, b.GetLayer(i)->m_image)) << "layer " << i;
        }
    }

    // A layer's pixel at document position (x, y); zero outside the layer (the history trims layers to their
    // content).
    static uint32_t At(const CLayer& layer, int x, int y)
    {
        const int lx = x - layer.m_x, ly = y - layer.m_y;
        if (lx < 0 || ly < 0 || lx >= int(layer.m_image.GetWidth()) || ly >= int(layer.m_image.GetHeight())) return 0;
        return layer.m_image.GetBuffer(uint32_t(lx), uint32_t(ly))->Word();
    }

    // Answers the dialog named `name` once it is up; m_answered tells whether it came.
    void WhenShown(const char* name, std::function<void(QDialog&)> answer) { AnswerDialog(name, answer, &m_answered); }

    static void Type(QLineEdit* field, const char* text)
    {
        field->selectAll();
        QTest::keyClicks(field, QString::fromLatin1(text));
    }

    static void PressOk(QDialog& d) { d.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->click(); }

    bool m_answered = false;
};

TEST_F(ImageMenuInFrame, ImageSizeScalesEveryLayerAsTheCoreDoesUndoRestoresAndBadSidesAreRefused)
{
    OpenWithUpperLayer();
    CComposeDocument before(0), expected(0);
    CopyDocument(before);
    CopyDocument(expected);
    const int W = before.GetWidth(), H = before.GetHeight();
    ASSERT_TRUE(m_frame->IsCommandAvailable(cmd::kImageSize));
    const int steps = m_app.ComposeHistory()->GetCount();

    std::string linked;
    WhenShown("imagesize", [&](QDialog& d) {
        auto* width = d.findChild<QLineEdit*>(QStringLiteral("width"));
        auto* height = d.findChild<QLineEdit*>(QStringLiteral("height"));
        auto* method = d.findChild<QComboBox*>(QStringLiteral("method"));
        EXPECT_EQ(method->currentIndex(), kScaleBicubic);
        EXPECT_EQ(method->count(), 3);
        EXPECT_TRUE(d.findChild<QCheckBox*>(QStringLiteral("keepAspect"))->isChecked());
        Type(width, "200");
        linked = height->text().toStdString(); // the proportions keep the height in step
        method->setCurrentIndex(kScaleBilinear);
        PressOk(d);
    });
    m_frame->OnCommand(cmd::kImageSize);
    ASSERT_TRUE(m_answered);
    EXPECT_TRUE(m_services.messages.empty());
    const uint32_t h = LinkedSide(200, uint32_t(W), uint32_t(H), true);
    EXPECT_EQ(linked, std::to_string(h));
    ASSERT_EQ(ResizeAllLayers(expected, 200, int(h), kScaleBilinear), 1);
    ExpectSameDocument(m_app.Document(), expected);
    ASSERT_EQ(m_app.ComposeHistory()->GetCount(), steps + 1);
    EXPECT_EQ(m_app.ComposeHistory()->GetRecord(steps)->kind, kStepWholeDocument);

    m_frame->OnCommand(cmd::kUndo);
    ExpectSameDocument(m_app.Document(), before);

    // Sides outside the limit are refused, each with a word, and leave the dialog up for a correction.
    const int stepsAfterUndo = m_app.ComposeHistory()->GetCount();
    bool stayedOpen = true;
    WhenShown("imagesize", [&](QDialog& d) {
        d.findChild<QCheckBox*>(QStringLiteral("keepAspect"))->setChecked(false);
        for (const char* bad : {"20001", "0", ""}) {
            Type(d.findChild<QLineEdit*>(QStringLiteral("width")), bad);
            if (!*bad) d.findChild<QLineEdit*>(QStringLiteral("width"))->clear();
            PressOk(d);
            stayedOpen &= d.isVisible();
        }
        Type(d.findChild<QLineEdit*>(QStringLiteral("width")), "100");
        Type(d.findChild<QLineEdit*>(QStringLiteral("height")), "99999");
        PressOk(d);
        stayedOpen &= d.isVisible();
        d.reject();
    });
    m_frame->OnCommand(cmd::kImageSize);
    ASSERT_TRUE(m_answered);
    EXPECT_TRUE(stayedOpen);
    ASSERT_EQ(m_services.messages.size(), 4u);
    for (const std::string& m : m_services.messages)
        EXPECT_EQ(m, GetString("sizerange"));
    EXPECT_NE(GetString("sizerange").find("20000"), std::string::npos);
    ExpectSameDocument(m_app.Document(), before);
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), stepsAfterUndo);

    // Without the proportions the sides are free; bicubic, the default, as the core does it.
    CComposeDocument bicubic(0);
    CopyDocument(bicubic);
    WhenShown("imagesize", [&](QDialog& d) {
        d.findChild<QCheckBox*>(QStringLiteral("keepAspect"))->setChecked(false);
        Type(d.findChild<QLineEdit*>(QStringLiteral("width")), "97");
        Type(d.findChild<QLineEdit*>(QStringLiteral("height")), "413");
        EXPECT_EQ(d.findChild<QLineEdit*>(QStringLiteral("width"))->text(), QStringLiteral("97"));
        PressOk(d);
    });
    m_frame->OnCommand(cmd::kImageSize);
    ASSERT_EQ(ResizeAllLayers(bicubic, 97, 413, kScaleBicubic), 1);
    ExpectSameDocument(m_app.Document(), bicubic);
}

TEST_F(ImageMenuInFrame, CanvasByMarginsAndByAnchorMatchTheDocumentsOwnEdits)
{
    OpenWithUpperLayer();
    m_app.CommandContext().foreground = 0x00336699;
    CComposeDocument before(0), margins(0), anchored(0);
    CopyDocument(before);
    CopyDocument(margins);
    const int W = before.GetWidth(), H = before.GetHeight();
    const int steps = m_app.ComposeHistory()->GetCount();

    // Margins, symmetric: right and down follow left and up; a negative margin crops.
    std::string shown;
    WhenShown("canvassize", [&](QDialog& d) {
        EXPECT_TRUE(d.findChild<QRadioButton*>(QStringLiteral("bymargins"))->isChecked());
        EXPECT_TRUE(d.findChild<QCheckBox*>(QStringLiteral("symmetric"))->isChecked());
        EXPECT_FALSE(d.findChild<QSpinBox*>(QStringLiteral("right"))->isEnabled());
        d.findChild<QSpinBox*>(QStringLiteral("left"))->setValue(25);
        d.findChild<QSpinBox*>(QStringLiteral("up"))->setValue(-12);
        EXPECT_EQ(d.findChild<QSpinBox*>(QStringLiteral("right"))->value(), 25);
        EXPECT_EQ(d.findChild<QSpinBox*>(QStringLiteral("down"))->value(), -12);
        shown = d.findChild<QLabel*>(QStringLiteral("newsize"))->text().toStdString();
        PressOk(d);
    });
    m_frame->OnCommand(cmd::kCanvasSize);
    ASSERT_TRUE(m_answered);
    EXPECT_EQ(shown, "New size: " + std::to_string(W + 50) + " x " + std::to_string(H - 24));
    ASSERT_EQ(margins.ChangeCanvas(W + 50, H - 24, 25, -12, 0xFF336699u), 1);
    ExpectSameDocument(m_app.Document(), margins);
    EXPECT_EQ(m_app.Document().GetLayer(0)->m_image.GetPixel(0, 0), 0xFF336699u); // the current colour, opaque
    ASSERT_EQ(m_app.ComposeHistory()->GetCount(), steps + 1);
    m_frame->OnCommand(cmd::kUndo);
    ExpectSameDocument(m_app.Document(), before);

    // A new size with the picture anchored at the bottom right.
    CopyDocument(anchored);
    WhenShown("canvassize", [&](QDialog& d) {
        d.findChild<QRadioButton*>(QStringLiteral("bysize"))->setChecked(true);
        d.findChild<QSpinBox*>(QStringLiteral("width"))->setValue(W + 31);
        d.findChild<QSpinBox*>(QStringLiteral("height"))->setValue(H - 7);
        d.findChild<QToolButton*>(QStringLiteral("anchor8"))->click();
        PressOk(d);
    });
    m_frame->OnCommand(cmd::kCanvasSize);
    ASSERT_EQ(anchored.ResizeCanvas(W + 31, H - 7, 0xFF336699u, 2, 2), 1);
    ExpectSameDocument(m_app.Document(), anchored);

    // Cancel changes nothing and records nothing.
    CComposeDocument now(0);
    CopyDocument(now);
    const int stepsNow = m_app.ComposeHistory()->GetCount();
    WhenShown("canvassize", [&](QDialog& d) {
        d.findChild<QSpinBox*>(QStringLiteral("left"))->setValue(100);
        d.reject();
    });
    m_frame->OnCommand(cmd::kCanvasSize);
    ExpectSameDocument(m_app.Document(), now);
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), stepsNow);
}

TEST_F(ImageMenuInFrame, WholePictureTurnsAreOnTheMenuAndUndoable)
{
    OpenWithUpperLayer();
    CComposeDocument before(0);
    CopyDocument(before);
    // The layer turns are grey on the base layer; the whole-picture ones are not.
    EXPECT_FALSE(m_frame->IsCommandAvailable(cmd::kRotateLeft));
    ASSERT_TRUE(m_frame->IsCommandAvailable(cmd::kRotateImageLeft));
    const COLImage& old = before.GetLayer(0)->m_image;
    const uint32_t w = old.GetWidth();
    m_frame->OnCommand(cmd::kRotateImageLeft);
    EXPECT_EQ(m_app.Document().GetWidth(), before.GetHeight());
    EXPECT_EQ(m_app.Document().GetHeight(), before.GetWidth());
    // A quarter turn to the left brings the top-right corner to the top left; then the upright flip makes it a
    // transpose. The pairs would differ with the turns or the flips the other way round.
    const auto base = [this](uint32_t x, uint32_t y) { return m_app.Document().GetLayer(0)->m_image.GetPixel2(x, y); };
    EXPECT_TRUE(base(0, 0) == old.GetPixel2(w - 1, 0) && base(5, 9) == old.GetPixel2(w - 10, 5));
    m_frame->OnCommand(cmd::kFlipImageV);
    EXPECT_TRUE(base(0, 0) == old.GetPixel2(0, 0) && base(5, 9) == old.GetPixel2(9, 5));
    m_frame->OnCommand(cmd::kRotateImageRight);
    m_frame->OnCommand(cmd::kFlipImageH);
    // Left, flip, right, flip: a half turn twice mirrored is the picture itself.
    ExpectSameDocument(m_app.Document(), before);
    m_frame->OnCommand(cmd::kUndo);
    EXPECT_FALSE(SamePixels(m_app.Document().GetLayer(0)->m_image, before.GetLayer(0)->m_image));
}

// The lens blur's settings as a user sets them: the horizon in the depth panel, a circle, a wide radius and
// strong highlights.
void SetLensControls(QDialog& d, const QPoint& click)
{
    d.findChild<QComboBox*>(QStringLiteral("depthmode"))->setCurrentIndex(kDepthHorizon);
    d.findChild<QSlider*>(QStringLiteral("focus"))->setValue(20);
    d.findChild<QComboBox*>(QStringLiteral("aperture"))->setCurrentIndex(kApertureCircle);
    d.findChild<QSlider*>(QStringLiteral("radius"))->setValue(12);
    d.findChild<QSlider*>(QStringLiteral("threshold"))->setValue(215);
    d.findChild<QSlider*>(QStringLiteral("amplitude"))->setValue(70);
    QTest::mouseClick(d.findChild<QWidget*>(QStringLiteral("depthpanel")), Qt::LeftButton, Qt::NoModifier, click);
}

// The core's dialog logic on a document, from the given entry settings changed as SetLensControls changes the
// dialog's, the depth panel clicked at the same place.
void InitReference(CLensBlurDlgLogic& logic, CComposeDocument& doc, LensBlurSettings s, const QPoint& click)
{
    s.depthMode = kDepthHorizon;
    s.focus = 20;
    s.apertureShape = kApertureCircle;
    s.radius = 12;
    s.highlightThreshold = 215;
    s.highlightAmplitude = 70;
    logic.settings = s;
    COLImage aperture;
    ASSERT_EQ(LoadAperturePicture(AssetPath("skin/lenblur.png"), aperture), "");
    ASSERT_TRUE(logic.Init(doc, aperture));
    logic.ClickDepthPanel(click.x(), click.y());
}

TEST_F(ImageMenuInFrame, LensBlurOkGivesTheEnginesBytesAndCancelChangesNothing)
{
    Open(AssetPath("samples/coffee.png"));
    CComposeDocument before(0), expected(0);
    CopyDocument(before);
    CopyDocument(expected);
    ASSERT_TRUE(m_frame->IsCommandAvailable(cmd::kLensBlur));
    const int steps = m_app.ComposeHistory()->GetCount();
    const QPoint click(138, 120);

    // Cancel after the preview has run: the document is as it was.
    bool previewed = false, focusGreyInFlat = false;
    WhenShown("lensblur", [&](QDialog& d) {
        auto& dlg = static_cast<CLensBlurDlg&>(d);
        focusGreyInFlat = !d.findChild<QSlider*>(QStringLiteral("focus"))->isEnabled();
        SetLensControls(d, click);
        previewed = WaitFor([&] { return dlg.PreviewsFinished() > 0 && !dlg.IsPreviewRunning(); }, 20000);
        d.reject();
    });
    m_frame->OnCommand(cmd::kLensBlur);
    ASSERT_TRUE(m_answered);
    EXPECT_TRUE(previewed);
    EXPECT_TRUE(focusGreyInFlat);
    ExpectSameDocument(m_app.Document(), before);
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), steps);

    // OK: the engine's bytes for these settings, one step, undone by undo.
    bool previewShown = false;
    WhenShown("lensblur", [&](QDialog& d) {
        auto& dlg = static_cast<CLensBlurDlg&>(d);
        SetLensControls(d, click);
        // The radius dragged through other values while previews run: each change overtakes the run going on, and
        // what is finally shown is the preview of the last value, not of one overtaken.
        auto* radius = d.findChild<QSlider*>(QStringLiteral("radius"));
        for (int v : {30, 3, 25, 12}) {
            radius->setValue(v);
            QTest::qWait(40);
        }
        WaitFor([&] { return dlg.PreviewsFinished() > 0 && !dlg.IsPreviewRunning(); }, 20000);
        QTest::qWait(150); // a restart still waiting on its timer would start now
        WaitFor([&] { return !dlg.IsPreviewRunning(); }, 20000);
        CLensBlurDlgLogic plain;
        InitReference(plain, before, MenuEntrySettings(), click);
        EXPECT_EQ(plain.RunPreview(), kOk);
        // The preview document shows the blur, the real document does not yet.
        const CLayer* shown = dlg.Logic().GetPreviewDocument().GetCurrentLayer();
        previewShown = shown && shown->m_image.GetWidth() == 512 &&
                       SamePixels(shown->m_image, plain.GetPreviewDocument().GetCurrentLayer()->m_image);
        PressOk(d);
    });
    m_frame->OnCommand(cmd::kLensBlur);
    EXPECT_TRUE(m_services.messages.empty()) << m_services.messages.front();
    EXPECT_TRUE(previewShown);

    CLensBlurDlgLogic reference;
    ASSERT_NO_FATAL_FAILURE(InitReference(reference, expected, MenuEntrySettings(), click));
    ASSERT_EQ(reference.RunFinal(expected, nullptr), kOk);
    ExpectSameDocument(m_app.Document(), expected);
    ASSERT_EQ(m_app.ComposeHistory()->GetCount(), steps + 1);
    EXPECT_EQ(m_app.ComposeHistory()->GetRecord(steps)->kind, kStepLayerHeaderRegion);
    m_frame->OnCommand(cmd::kUndo);
    ExpectSameDocument(m_app.Document(), before);
}

TEST_F(ImageMenuInFrame, EscapeStopsTheFinalRunAndTheDialogStays)
{
    // A large noisy picture, so that the run is still going when Esc comes.
    const COLImage big = OpaqueNoise(2400, 1800, 9);
    OpenPicture(big, "big.png");
    const int steps = m_app.ComposeHistory()->GetCount();
    bool stillOpen = false, sawWait = false;
    WhenShown("lensblur", [&](QDialog& d) {
        d.findChild<QSlider*>(QStringLiteral("radius"))->setValue(64);
        CEscapeWait escape;
        PressOk(d);
        sawWait = escape.pressed;
        stillOpen = d.isVisible();
        d.reject();
    });
    m_frame->OnCommand(cmd::kLensBlur);
    ASSERT_TRUE(sawWait);
    EXPECT_TRUE(stillOpen);
    EXPECT_TRUE(SamePixels(m_app.Document().GetLayer(0)->m_image, big));
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), steps);
    EXPECT_TRUE(m_services.messages.empty());
}

// After a cut-out: the subject on a copy above, the layer below blurred with the cut-out as the foreground mask,
// so the subject's own colours stay out of the background; one step for the whole way back.
TEST_F(ImageMenuInFrame, BlurBackgroundAfterACutOutKeepsTheSubjectsColoursOut)
{
    Open(AssetPath("samples/coffee.png"));
    CComposeDocument before(0), blurred(0);
    CopyDocument(before);
    CopyDocument(blurred);
    const int W = before.GetWidth(), H = before.GetHeight();
    ASSERT_TRUE(selmode::Toggle(m_frame, *m_frame->ToolBar(), m_services));
    ASSERT_TRUE(m_frame->IsSelectionMode());
    // The result of a cut-out: an ellipse in the middle.
    const COLChannel cutout = PlaneOf(W, H, [&](uint32_t x, uint32_t y) {
        const double dx = (x - W / 2.0) / (W / 4.0), dy = (y - H / 2.0) / (H / 3.0);
        return dx * dx + dy * dy <= 1 ? 255 : 0;
    });
    *m_frame->ToolBar()->Selection().GetResultMask() = Copy(cutout);
    const int steps = m_app.ComposeHistory()->GetCount();
    selmode::SetBringBackChooser([](QWidget*) { return selmode::EBringBack::kBlurBackground; });
    const QPoint click(138, 100);
    WhenShown("lensblur", [&](QDialog& d) {
        SetLensControls(d, click);
        PressOk(d);
    });
    m_frame->OnCommand(cmd::kConfirmReturn);
    ASSERT_TRUE(m_answered);
    ASSERT_FALSE(m_frame->IsSelectionMode());
    EXPECT_TRUE(m_services.messages.empty()) << m_services.messages.front();

    // The reference: the core's dialog logic on the picture with the cut-out as the document's mask.
    ASSERT_TRUE(blurred.GetSelectionMask().DuplicateFrom(&cutout));
    CLensBlurDlgLogic reference;
    ASSERT_NO_FATAL_FAILURE(InitReference(reference, blurred, WizardEntrySettings(), click));
    ASSERT_EQ(reference.RunFinal(blurred, nullptr), kOk);

    CComposeDocument& doc = m_app.Document();
    ASSERT_EQ(doc.GetLayerCount(), 2);
    EXPECT_EQ(doc.GetCurrentIndex(), 1);
    EXPECT_TRUE(doc.GetSelectionMask().IsNull());
    EXPECT_TRUE(SamePixels(doc.GetLayer(0)->m_image, blurred.GetLayer(0)->m_image));
    // The subject: the original colours with the cut-out as alpha, in place (the step trims it to its content).
    int differ = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const uint32_t a = cutout.GetBuffer()[size_t(y) * W + x];
            const uint32_t colour = before.GetLayer(0)->m_image.GetBuffer(x, y)->Word() & 0xFFFFFFu;
            const uint32_t got = At(*doc.GetLayer(1), x, y);
            differ += a ? got != (colour | a << 24) : (got >> 24) != 0;
        }
    EXPECT_EQ(differ, 0);
    ASSERT_EQ(m_app.ComposeHistory()->GetCount(), steps + 1);
    m_frame->OnCommand(cmd::kUndo);
    ASSERT_EQ(m_app.Document().GetLayerCount(), 1);
    EXPECT_TRUE(SamePixels(m_app.Document().GetLayer(0)->m_image, before.GetLayer(0)->m_image));
}

// A real cut-out (inner and outer contours, then the build) of the astronaut, and her studio blurred behind her:
// the flag's stars and the shuttle's white bloom into hexagons. Makes the screenshots of the lens blur.
TEST_F(ImageMenuInFrame, AstronautOnABlurredStudio)
{
    Open(AssetPath("samples/astronaut.png"));
    COLImage original = vmtest::Copy(m_app.Document().GetLayer(0)->m_image);
    EnterSelectionMode();
    CToolManager& manager = Manager();
    // Just outside her hair, shoulders and the helmet in front, and well inside them.
    Polygon(manager.GetOutPolygonTool(),
            {{228, 4},   {298, 18},  {318, 72},  {314, 140}, {332, 200}, {358, 258}, {372, 330},
             {420, 330}, {480, 350}, {511, 380}, {511, 511}, {2, 511},   {4, 380},   {14, 300},
             {60, 250},  {108, 200}, {132, 150}, {140, 100}, {150, 40},  {185, 10}});
    Polygon(manager.GetInPolygonTool(),
            {{225, 45}, {268, 55}, {280, 110}, {272, 160}, {292, 200}, {326, 262}, {342, 330}, {352, 378}, {420, 372},
             {480, 400}, {498, 496}, {40, 496}, {40, 390}, {48, 330}, {96, 272}, {140, 228}, {168, 176}, {176, 112},
             {188, 60}});
    ASSERT_TRUE(m_frame->HandleShortcut('B', true, false));
    const COLChannel& result = *m_frame->ToolBar()->Selection().GetResultMask();
    ASSERT_FALSE(result.IsNull());
    EXPECT_EQ(result.GetValue(225, 120), 255); // her face
    EXPECT_EQ(result.GetValue(470, 40), 0);    // the backdrop
    selmode::SetBringBackChooser([](QWidget*) { return selmode::EBringBack::kBlurBackground; });
    WhenShown("lensblur", [&](QDialog& d) {
        auto& dlg = static_cast<CLensBlurDlg&>(d);
        d.findChild<QComboBox*>(QStringLiteral("aperture"))->setCurrentIndex(kApertureHexagon);
        d.findChild<QSlider*>(QStringLiteral("radius"))->setValue(20);
        d.findChild<QSlider*>(QStringLiteral("threshold"))->setValue(230);
        d.findChild<QSlider*>(QStringLiteral("amplitude"))->setValue(40);
        d.resize(900, 460);
        EXPECT_TRUE(WaitFor([&] { return dlg.PreviewsFinished() > 0 && !dlg.IsPreviewRunning(); }, 30000));
        Shot(&d, "lens-blur-dialog.png");
        PressOk(d);
    });
    m_frame->OnCommand(cmd::kConfirmReturn);
    ASSERT_TRUE(m_answered);
    ASSERT_FALSE(m_frame->IsSelectionMode());
    CComposeDocument& doc = m_app.Document();
    ASSERT_EQ(doc.GetLayerCount(), 2);
    // The studio behind her is blurred.
    EXPECT_EQ(At(*doc.GetLayer(1), 225, 120) >> 24, 255u); // her face is whole on the copy above
    int changed = 0;
    for (int y = 0; y < 200; ++y)
        for (int x = 0; x < 60; ++x)
            changed += doc.GetLayer(0)->m_image.GetBuffer(x, y)->Word() != original.GetBuffer(x, y)->Word();
    EXPECT_GT(changed, 60 * 200 / 2) << "the flag is blurred";
    Shot(m_frame, "lens-blur.png");
}

} // namespace
