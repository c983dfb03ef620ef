#include <QScrollBar>
#include <QTest>
#include <QWheelEvent>
#include <gtest/gtest.h>
#include <thread>

#include "document/compose_document.h"
#include "document/layer.h"
#include "gui_support.h"
#include "shell/canvas_view.h"
#include "shell/image_view.h"

using namespace vmtest;

namespace {

// A document of the given size with a pattern that tells positions apart.
void FillDocument(CComposeDocument& doc, int w, int h)
{
    ASSERT_EQ(doc.NewDocument(w, h, 0xFF000000), 1);
    doc.GetLayer(0)->m_image = Picture(w, h, [](uint32_t x, uint32_t y) {
        return CPixel::Make(uint8_t(x), uint8_t(y), uint8_t(x + y), 255);
    });
}

QRgb GrabPixel(QWidget& w, int x, int y)
{
    return w.grab().toImage().pixel(x, y);
}

void Wheel(QWidget& w, int x, int y, int delta)
{
    QWheelEvent e(QPointF(x, y), w.mapToGlobal(QPointF(x, y)), QPoint(), QPoint(0, delta), Qt::NoButton, Qt::NoModifier,
                  Qt::NoScrollPhase, false);
    QApplication::sendEvent(&w, &e);
}

class RecordingSink : public IViewSink {
public:
    int OnLButtonDown(uint32_t, int x, int y) override
    {
        downs.push_back({x, y});
        return 0;
    }
    int OnLButtonUp(uint32_t, int x, int y) override
    {
        ups.push_back({x, y});
        return 0;
    }
    int OnMouseWheel(uint32_t, int, int, int) override { return eatWheel; }
    int OnFrameDone() override
    {
        ++frames;
        return 0;
    }
    std::vector<CViewPoint> downs, ups;
    int eatWheel = 0;
    int frames = 0;
};

class LineOverlay : public IOverlayDrawer {
public:
    int SetView(ICanvasView*) override { return 0; }
    int DrawOverlay(IOverlayDC& dc, bool repainted) override
    {
        if (repainted) ++repaints;
        dc.DrawLine(x0, y, x1, y);
        return 0;
    }
    int x0 = 0, x1 = 0, y = 0, repaints = 0;
};

class View : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_view.resize(400, 300);
        m_view.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&m_view));
    }
    void Show(int w, int h)
    {
        FillDocument(m_doc, w, h);
        ASSERT_EQ(m_doc.MergeNow(), 1);
        m_view.SetSource(&m_doc);
    }
    CComposeDocument m_doc{0};
    CImageView m_view;
};

} // namespace

TEST_F(View, LargePictureGetsBarsAndFillsTheArea)
{
    Show(1000, 800);
    const CViewGeometry& g = m_view.Geometry();
    EXPECT_TRUE(m_view.HorizontalBar()->isVisible());
    EXPECT_TRUE(m_view.VerticalBar()->isVisible());
    EXPECT_EQ(m_view.GetDisplayBuffer()->GetWidth(), uint32_t(g.GetImageRect().Width()));
    EXPECT_EQ(m_view.GetDisplayBuffer()->GetHeight(), uint32_t(g.GetImageRect().Height()));
    EXPECT_EQ(m_view.HorizontalBar()->maximum(), 1000 - g.VisibleWidth());
    // What is painted at a client point is the document pixel that ClientToImage names. The paint path goes
    // through the shared bilinear resampler, whose fixed-point arithmetic moves values by a level or two and
    // positions by at most one pixel even at 100 %; the pattern (red = x, green = y) tells a shift apart.
    m_view.SetOrigin(nullptr, 37, 11, true);
    for (const QPoint c : {QPoint(100, 60), QPoint(20, 200), QPoint(300, 30)}) {
        const CViewPoint p = m_view.ClientToImage(c.x(), c.y());
        const QRgb got = GrabPixel(m_view, c.x(), c.y());
        EXPECT_NEAR(qRed(got), p.x & 0xFF, 3) << c.x();
        EXPECT_NEAR(qGreen(got), p.y & 0xFF, 3) << c.y();
    }
}

TEST_F(View, SmallPictureSitsInTheBackColourWithoutBars)
{
    Show(100, 60);
    EXPECT_FALSE(m_view.HorizontalBar()->isVisible());
    EXPECT_FALSE(m_view.VerticalBar()->isVisible());
    const VRect r = m_view.GetImageRect();
    EXPECT_EQ(GrabPixel(m_view, 3, 3) & 0xFFFFFF, 0x404040u);
    const QRgb inside = GrabPixel(m_view, r.left + 10, r.top + 5);
    EXPECT_NEAR(qRed(inside), 10, 3);
    EXPECT_NEAR(qGreen(inside), 5, 3);
    // Without a source the canvas is black and the wheel does nothing.
    m_view.SetSource(nullptr);
    const double z = m_view.GetZoom();
    Wheel(m_view, 200, 150, 120);
    EXPECT_EQ(m_view.GetZoom(), z);
    EXPECT_EQ(GrabPixel(m_view, 200, 150) & 0xFFFFFF, 0u);
}

TEST_F(View, WheelStepsThroughTheStopsAboutThePointer)
{
    Show(2000, 1500);
    m_view.SetZoom(1.0, true);
    m_view.SetOrigin(nullptr, 500, 400, true); // room on every side, so the step can centre
    const CViewPoint target = m_view.ClientToImage(120, 90);
    Wheel(m_view, 120, 90, 120);
    EXPECT_EQ(m_view.GetZoom(), 1.5);
    const VRect r = m_view.GetImageRect();
    const CViewPoint middle = m_view.ClientToImage(r.left + r.Width() / 2, r.top + r.Height() / 2);
    EXPECT_LE(std::abs(middle.x - target.x), 2);
    EXPECT_LE(std::abs(middle.y - target.y), 2);
    // Small touchpad steps add up to one notch.
    Wheel(m_view, 120, 90, 60);
    EXPECT_EQ(m_view.GetZoom(), 1.5);
    Wheel(m_view, 120, 90, 60);
    EXPECT_EQ(m_view.GetZoom(), 2.0);
}

TEST_F(View, ScrollBarStepsByAFiftiethAndStopsAtTheEnd)
{
    Show(1000, 800);
    m_view.HorizontalBar()->triggerAction(QAbstractSlider::SliderSingleStepAdd);
    EXPECT_EQ(m_view.GetOrigin().x, 20);
    m_view.VerticalBar()->triggerAction(QAbstractSlider::SliderSingleStepAdd);
    EXPECT_EQ(m_view.GetOrigin().y, 16);
    for (int i = 0; i < 10; ++i)
        m_view.HorizontalBar()->triggerAction(QAbstractSlider::SliderPageStepAdd);
    EXPECT_EQ(m_view.GetOrigin().x, 1000 - m_view.Geometry().VisibleWidth());
    EXPECT_EQ(m_view.HorizontalBar()->value(), m_view.GetOrigin().x);
}

TEST_F(View, SelectionOutlineIsTheBorderOfTheMask)
{
    // The outline rule itself is checked against a plain tracer; here the view traces the document's mask, and
    // a selection reaching the picture's edge is outlined along that edge too.
    FillDocument(m_doc, 200, 150);
    m_doc.GetSelectionMask() = Plane(200, 150, 255);
    ASSERT_EQ(m_doc.MergeNow(), 1);
    m_view.SetSource(&m_doc);
    EXPECT_EQ(m_view.AntsCount(), 2 * 200 + 2 * 150 - 4);
    // Outline pixels are drawn black or white.
    const VRect r = m_view.GetImageRect();
    const QRgb corner = GrabPixel(m_view, r.left, r.top) & 0xFFFFFF;
    EXPECT_TRUE(corner == 0 || corner == 0xFFFFFF) << std::hex << corner;
}

TEST_F(View, InputReachesTheToolOnlyOnThePicture)
{
    Show(100, 60);
    RecordingSink sink;
    m_view.SetSink(&sink);
    const VRect r = m_view.GetImageRect();
    QTest::mousePress(&m_view, Qt::LeftButton, Qt::NoModifier, QPoint(r.left + 5, r.top + 5));
    QTest::mouseRelease(&m_view, Qt::LeftButton, Qt::NoModifier, QPoint(2, 2)); // released outside
    QTest::mousePress(&m_view, Qt::LeftButton, Qt::NoModifier, QPoint(2, 2));   // pressed outside
    QTest::mouseRelease(&m_view, Qt::LeftButton, Qt::NoModifier, QPoint(2, 2));
    ASSERT_EQ(sink.downs.size(), 1u);
    EXPECT_EQ(sink.downs[0].x, r.left + 5);
    EXPECT_EQ(sink.ups.size(), 2u);
    // A tool that takes the wheel stops the zoom.
    sink.eatWheel = 1;
    Wheel(m_view, r.left + 5, r.top + 5, 120);
    EXPECT_EQ(m_view.GetZoom(), 1.0);
    const int frames = sink.frames;
    m_view.Refresh();
    EXPECT_EQ(sink.frames, frames + 1);
    m_view.SetSink(nullptr);
}

TEST_F(View, OverlayLinesInvertThePicture)
{
    Show(100, 60);
    const VRect r = m_view.GetImageRect();
    const QRgb before = GrabPixel(m_view, r.left + 40, r.top + 20);
    LineOverlay overlay;
    overlay.x0 = r.left;
    overlay.x1 = r.right;
    overlay.y = r.top + 20;
    m_view.SetOverlay(&overlay);
    const QRgb after = GrabPixel(m_view, r.left + 40, r.top + 20);
    EXPECT_EQ(qRed(after), 255 - qRed(before));
    EXPECT_EQ(qGreen(after), 255 - qGreen(before));
    EXPECT_GT(overlay.repaints, 0);
    // Outside the picture nothing is drawn.
    overlay.x0 = 0;
    overlay.y = 2;
    EXPECT_EQ(GrabPixel(m_view, 1, 2) & 0xFFFFFF, 0x404040u);
    m_view.SetOverlay(nullptr);
}

TEST_F(View, CornerBoxShowsTheNavigator)
{
    Show(1000, 800);
    EXPECT_FALSE(m_view.IsNavigatorVisible());
    const VRect box = m_view.Geometry().CornerBox();
    QTest::mouseClick(&m_view, Qt::LeftButton, Qt::NoModifier, QPoint(box.left + 8, box.top + 8));
    EXPECT_TRUE(m_view.IsNavigatorVisible());
    QTest::mouseClick(&m_view, Qt::LeftButton, Qt::NoModifier, QPoint(box.left + 8, box.top + 8));
    EXPECT_FALSE(m_view.IsNavigatorVisible());
}

TEST_F(View, AFinishedMergeRepaintsFromTheInterfaceThread)
{
    CComposeDocument doc(1);
    ASSERT_EQ(doc.NewDocument(50, 40, 0xFF0000FF), 1); // blue
    m_view.SetSource(&doc);
    const VRect r = m_view.GetImageRect();
    // Pure colours come through the resampler within a level or two.
    auto shows = [&](int red, int green, int blue) {
        const QRgb p = GrabPixel(m_view, r.left + 5, r.top + 5);
        return std::abs(qRed(p) - red) <= 3 && std::abs(qGreen(p) - green) <= 3 && std::abs(qBlue(p) - blue) <= 3;
    };
    ASSERT_TRUE(WaitFor([&] { return shows(0, 0, 255); }));
    for (size_t i = 0; i < doc.GetLayer(0)->m_image.GetPixelCount(); ++i)
        doc.GetLayer(0)->m_image.GetBuffer()[i] = CPixel::Make(0, 255, 0); // green, then ask for a merge
    doc.Refresh();
    EXPECT_TRUE(WaitFor([&] { return shows(0, 255, 0); }));
    m_view.SetSource(nullptr);
}

TEST_F(View, AFlatGrayIsTheSameGrayOnScreenAtEveryZoom)
{
    ASSERT_EQ(m_doc.NewDocument(731, 517, 0xFF808080), 1);
    ASSERT_EQ(m_doc.MergeNow(), 1);
    m_view.SetSource(&m_doc);
    for (double zoom : {0.1, 0.2, 1.0 / 3.0, 0.5, 2.0 / 3.0, 1.0, 1.5, 3.0, 0.4321}) {
        SCOPED_TRACE(zoom);
        m_view.SetZoom(zoom, true);
        const QImage shot = m_view.grab().toImage();
        const VRect r = m_view.GetImageRect();
        ASSERT_GT(r.Width(), 0);
        for (int y = r.top; y < r.bottom; y += 3)
            for (int x = r.left; x < r.right; x += 3)
                ASSERT_EQ(shot.pixel(x, y) & 0xFFFFFF, 0x808080u) << x << "," << y;
    }
}

TEST_F(View, AFittedPictureStaysWholeWhileTheWindowSettles)
{
    Show(900, 700);
    m_view.FitWhole(1.0);
    // Panels and bars appear around the canvas after a file opens: the canvas shrinks.
    m_view.resize(250, 330);
    QApplication::processEvents();
    const CViewGeometry& g = m_view.Geometry();
    EXPECT_FALSE(g.HasHBar());
    EXPECT_FALSE(g.HasVBar());
    EXPECT_LE(g.ImageToClient(900, 700).x, g.GetImageRect().right);
    EXPECT_LE(g.ImageToClient(900, 700).y, g.GetImageRect().bottom);
    // Once the user zooms, a resize keeps that zoom.
    m_view.SetZoom(1.0, true);
    m_view.resize(300, 300);
    QApplication::processEvents();
    EXPECT_EQ(m_view.GetZoom(), 1.0);
}
