#include <QCheckBox>
#include <QPushButton>
#include <QSlider>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>

#include "document/layer.h"
#include "gui_support.h"
#include "interchange/psd_reader.h"
#include "shell/jpeg_quality_dlg.h"
#include "shell/save_dlg.h"

using namespace vmtest;

namespace {

class SaveInFrame : public FrameTest {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(Launch());
        // A picture with soft transparency, so that a writer that drops alpha is seen.
        OpenPicture(Picture(40, 30, [](uint32_t x, uint32_t y) { return CPixel::Make(x * 6, y * 8, 90, x * 6 + 10); }),
                    "in.png");
    }

    CComposeDocument& Doc() { return m_app.Document(); }
};

} // namespace

TEST_F(SaveInFrame, CompositeAsPngKeepsTransparencyAndEveryPixel)
{
    QString title;
    SaveThrough(cmd::kSave, ESaveChoice::kCompositePng, m_dir.File("out"), [&](CSaveDlg* d) {
        title = d->windowTitle();
        Shot(d, "save-dialog.png", 100);
    });
    EXPECT_EQ(title.toStdString(), "Save or export");
    EXPECT_EQ(m_services.filters.back(), "PNG File(*.png)|*.png||");
    // One layer: the file is the opened picture, soft transparency and all.
    const COLImage back = Load(m_dir.File("out.png"));
    ASSERT_FALSE(back.IsNull());
    EXPECT_EQ(Bytes(back), Bytes(Load(m_dir.File("in.png"))));
    EXPECT_LT(back.GetPixel2(0, 0).alpha, 255);
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
    // Above the background the layer exports are offered too.
    EXPECT_TRUE(SaveThrough(cmd::kSave, ESaveChoice::kLayeredPsd, m_dir.File("layers.psd")).layerPsd);
    EXPECT_EQ(m_services.filters.back(), "PNG File(*.psd)|*.psd||");
    CLayerStack read;
    CPsdReader reader;
    ASSERT_EQ(reader.LoadFile(m_dir.File("layers.psd").c_str(), read), 1);
    ASSERT_EQ(read.GetLayerCount(), 2);
    EXPECT_EQ(read.GetLayer(1)->m_opacity, 170);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(Bytes(read.GetLayer(i)->m_image), Bytes(Doc().GetLayer(i)->m_image)) << i;
    EXPECT_TRUE(m_services.messages.empty());
}

TEST_F(SaveInFrame, ACancelledDialogKeepsTheSaveDialogUpAndAFailedExportSaysSoAndClosesIt)
{
    // A cancelled file or quality dialog leaves the save dialog up and writes nothing.
    EXPECT_TRUE(SaveThrough(cmd::kSave, ESaveChoice::kCompositeBmp, "").stayedUp);
    OnDialogShown<CJpegDlg>([](CJpegDlg* d) { d->reject(); }); // cancelled at once, perhaps mid-run
    EXPECT_TRUE(SaveThrough(cmd::kSave, ESaveChoice::kCompositeJpeg, m_dir.File("none.jpg")).stayedUp);
    EXPECT_FALSE(std::filesystem::exists(m_dir.File("none.jpg")));
    EXPECT_TRUE(m_services.messages.empty());

    vmtest::WriteAll(m_dir.File("plain"), {1});
    EXPECT_FALSE(SaveThrough(cmd::kSave, ESaveChoice::kCompositeTga, m_dir.File("plain/x.tga")).stayedUp);
    EXPECT_EQ(m_services.messages, std::vector<std::string>{GetString("saveerr")});
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
    OnDialogShown<CJpegDlg>([&](CJpegDlg* d) {
        EXPECT_EQ(d->WriterQuality(), 180); // 80 in full colour at first
        ASSERT_TRUE(WaitFor([&] { return !d->IsMeasuring() && d->CompressedSize() > 0; }));
        Shot(d, "jpeg-quality.png", 100);
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
    SaveThrough(cmd::kSave, ESaveChoice::kCompositeJpeg, m_dir.File("photo.jpg"));
    EXPECT_EQ(writerQuality, 1);
    const std::string path = m_dir.File("photo.jpg");
    ASSERT_TRUE(std::filesystem::exists(path));
    // The size shown is the size of the file written.
    EXPECT_EQ(std::filesystem::file_size(path), measured);
    EXPECT_EQ(sizeText.toStdString(), QString::asprintf("Compressed to %.2f KB", measured / 1024.0).toStdString());
    EXPECT_EQ(COLImageCodec::GetFileType(path.c_str()), kFileJpeg);
}
