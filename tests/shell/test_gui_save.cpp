#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QPushButton>
#include <QSlider>
#include <QTest>
#include <QTimer>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>

#include "document/compositor.h"
#include "document/layer.h"
#include "gui_support.h"
#include "imaging/codec.h"
#include "interchange/psd_reader.h"
#include "shell/jpeg_quality_dlg.h"
#include "shell/main_frame.h"
#include "shell/save_dlg.h"
#include "shell/shell_app.h"

using namespace vmtest;

namespace {

// With VM_SCREENSHOT_DIR set, a dialog is saved there under the given name.
void Shot(QWidget* window, const char* name)
{
    const char* dir = std::getenv("VM_SCREENSHOT_DIR");
    if (!dir) return;
    QTest::qWait(100);
    window->grab().save(QString::fromUtf8(dir) + QLatin1Char('/') + QString::fromLatin1(name));
}

// Runs action on the first visible dialog of type T once it is up (dialogs here are modal and nested).
template <class T> void WhenShown(std::function<void(T*)> action)
{
    auto* timer = new QTimer();
    timer->setInterval(20);
    QObject::connect(timer, &QTimer::timeout, [timer, action] {
        for (QWidget* w : QApplication::topLevelWidgets())
            if (auto* d = qobject_cast<T*>(w); d && d->isVisible()) {
                timer->stop();
                timer->deleteLater();
                action(d);
                return;
            }
    });
    timer->start();
}

class SaveInFrame : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_shell = std::make_unique<CShellApp>(m_app, &m_services);
        m_shell->Start("", TestOptions(m_dir, "en"), 0);
        ASSERT_TRUE(WaitFor([&] { return m_shell->CommandLineHandled(); }));
        m_frame = m_shell->Frame();
        // A picture with soft transparency, so that a writer that drops alpha is seen.
        COLImage img;
        img.Create(40, 30);
        for (uint32_t y = 0; y < 30; ++y)
            for (uint32_t x = 0; x < 40; ++x)
                img.PutPixel(x, y, CPixel::Make(uint8_t(x * 6), uint8_t(y * 8), 90, uint8_t(x * 6 + 10)));
        const std::string path = m_dir.File("in.png");
        ASSERT_EQ(COLImageCodec().SaveFileWithAlpha(path.c_str(), &img), 1);
        m_services.openPaths.push_back(path);
        m_frame->OnCommand(cmd::kOpen);
        ASSERT_EQ(Doc().GetLayerCount(), 1);
    }

    CComposeDocument& Doc() { return m_app.Document(); }

    // Opens the save dialog, presses the button of choice (after then, if given, looks at the dialog first).
    void SaveThrough(ESaveChoice choice, const std::string& path, std::function<void(CSaveDlg*)> then = {})
    {
        m_services.savePaths.push_back(path);
        WhenShown<CSaveDlg>([choice, then](CSaveDlg* d) {
            if (then) then(d);
            ASSERT_NE(d->Button(choice), nullptr);
            ASSERT_TRUE(d->Button(choice)->isEnabled());
            d->Button(choice)->click();
        });
        m_frame->OnCommand(cmd::kSave);
    }

    TempDir m_dir;
    CFakeServices m_services;
    CAppGlobals m_app;
    std::unique_ptr<CShellApp> m_shell;
    CMainFrame* m_frame = nullptr;
};

} // namespace

TEST_F(SaveInFrame, CompositeAsPngKeepsTransparencyAndEveryPixel)
{
    bool layerOffered = true;
    QString title;
    SaveThrough(ESaveChoice::kCompositePng, m_dir.File("out"), [&](CSaveDlg* d) {
        title = d->windowTitle();
        layerOffered = d->Button(ESaveChoice::kLayerPng)->isEnabled() || d->Button(ESaveChoice::kLayerPsd)->isEnabled();
        Shot(d, "save-dialog.png");
    });
    EXPECT_EQ(title.toStdString(), "Save or export");
    EXPECT_FALSE(layerOffered); // the background's layer export is not offered
    EXPECT_EQ(m_services.filters.back(), "PNG File(*.png)|*.png||");
    // One layer: the file is the opened picture, soft transparency and all.
    COLImage expected, back;
    ASSERT_EQ(COLImageCodec().LoadFile(m_dir.File("in.png").c_str(), &expected), 1);
    ASSERT_EQ(COLImageCodec().LoadFile(m_dir.File("out.png").c_str(), &back), 1);
    ASSERT_EQ(back.GetPixelCount(), expected.GetPixelCount());
    bool soft = false;
    for (size_t i = 0; i < back.GetPixelCount(); ++i) {
        ASSERT_EQ(back.GetBuffer()[i].Word(), expected.GetBuffer()[i].Word()) << i;
        soft |= back.GetBuffer()[i].alpha != 255;
    }
    EXPECT_TRUE(soft);
    EXPECT_TRUE(m_services.messages.empty());
}

TEST_F(SaveInFrame, LayeredPsdHoldsEveryLayer)
{
    m_frame->OnCommand(cmd::kNewLayer);
    ASSERT_EQ(Doc().GetLayerCount(), 2);
    CLayer* top = Doc().GetLayer(1);
    for (uint32_t y = 5; y < 12; ++y)
        for (uint32_t x = 3; x < 20; ++x)
            top->m_image.PutPixel(x, y, CPixel::Make(200, uint8_t(x), uint8_t(y), 128));
    top->m_opacity = 170;
    SaveThrough(ESaveChoice::kLayeredPsd, m_dir.File("layers.psd"), [](CSaveDlg* d) {
        // Above the background the layer exports are offered too.
        EXPECT_TRUE(d->Button(ESaveChoice::kLayerPsd)->isEnabled());
    });
    EXPECT_EQ(m_services.filters.back(), "PNG File(*.psd)|*.psd||");
    CLayerStack read;
    CPsdReader reader;
    ASSERT_EQ(reader.LoadFile(m_dir.File("layers.psd").c_str(), read), 1);
    ASSERT_EQ(read.GetLayerCount(), 2);
    EXPECT_EQ(read.GetLayer(1)->m_opacity, 170);
    for (int i = 0; i < 2; ++i) {
        const COLImage& a = Doc().GetLayer(i)->m_image;
        const COLImage& b = read.GetLayer(i)->m_image;
        ASSERT_EQ(b.GetPixelCount(), a.GetPixelCount());
        for (size_t p = 0; p < a.GetPixelCount(); ++p)
            ASSERT_EQ(b.GetBuffer()[p].Word(), a.GetBuffer()[p].Word()) << i << " " << p;
    }
    EXPECT_TRUE(m_services.messages.empty());
}

TEST_F(SaveInFrame, AFailedExportSaysSoAndTheDialogCloses)
{
    vmtest::WriteAll(m_dir.File("plain"), {1});
    SaveThrough(ESaveChoice::kCompositeTga, m_dir.File("plain/x.tga"));
    EXPECT_EQ(m_services.messages, std::vector<std::string>{GetString("saveerr")});
    EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
    // A cancelled file dialog leaves the save dialog up for another choice.
    bool stillUp = false;
    WhenShown<CSaveDlg>([&](CSaveDlg* d) {
        d->Button(ESaveChoice::kCompositeBmp)->click(); // no path queued: cancelled
        stillUp = d->isVisible();
        d->reject();
    });
    m_frame->OnCommand(cmd::kSave);
    EXPECT_TRUE(stillUp);
}

TEST_F(SaveInFrame, JpegGoesThroughTheQualityDialogWithItsSize)
{
    // A photo, so that the preview shows what JPEG does to one.
    m_services.openPaths.push_back(AssetPath("samples/sample.jpg"));
    m_frame->OnCommand(cmd::kOpen);
    ASSERT_EQ(Doc().GetWidth(), 451);
    size_t measured = 0;
    int writerQuality = 0;
    QString sizeText;
    WhenShown<CJpegDlg>([&](CJpegDlg* d) {
        EXPECT_EQ(d->WriterQuality(), 180); // 80 in full colour at first
        ASSERT_TRUE(WaitFor([&] { return !d->IsMeasuring() && d->CompressedSize() > 0; }));
        Shot(d, "jpeg-quality.png");
        // A lower quality gives a smaller file; 0 counts as 1.
        const size_t at80 = d->CompressedSize();
        d->HighColourBox()->setChecked(false);
        d->Slider()->triggerAction(QAbstractSlider::SliderToMinimum);
        ASSERT_TRUE(WaitFor([&] { return !d->IsMeasuring() && d->CompressedSize() != at80; }));
        EXPECT_LT(d->CompressedSize(), at80);
        EXPECT_EQ(d->Quality(), 1);
        writerQuality = d->WriterQuality();
        measured = d->CompressedSize();
        sizeText = d->SizeText();
        d->accept();
    });
    SaveThrough(ESaveChoice::kCompositeJpeg, m_dir.File("photo.jpg"));
    EXPECT_EQ(writerQuality, 1);
    const std::string path = m_dir.File("photo.jpg");
    ASSERT_TRUE(std::filesystem::exists(path));
    // The size shown is the size of the file written.
    EXPECT_EQ(std::filesystem::file_size(path), measured);
    EXPECT_EQ(sizeText.toStdString(), QString::asprintf("Compressed to %.2f KB", measured / 1024.0).toStdString());
    EXPECT_EQ(COLImageCodec::GetFileType(path.c_str()), kFileJpeg);
}

TEST_F(SaveInFrame, CancellingTheQualityDialogWritesNothing)
{
    WhenShown<CJpegDlg>([](CJpegDlg* d) { d->reject(); }); // cancelled at once, perhaps mid-run
    bool dialogStayed = false;
    WhenShown<CSaveDlg>([&](CSaveDlg* d) {
        d->Button(ESaveChoice::kCompositeJpeg)->click();
        dialogStayed = d->isVisible();
        d->reject();
    });
    m_services.savePaths.push_back(m_dir.File("none.jpg"));
    m_frame->OnCommand(cmd::kSave);
    EXPECT_TRUE(dialogStayed);
    EXPECT_FALSE(std::filesystem::exists(m_dir.File("none.jpg")));
}
