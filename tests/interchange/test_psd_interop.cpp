#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "document/compositor.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/codec.h"
#include "imaging/image.h"
#include "interchange/psd_layered_writer.h"
#include "interchange/psd_reader.h"
#include "interchange/psd_writer.h"
#include "support/engine_checks.h"
#include "support/magick.h"
#include "support/media_checks.h"
#include "support/test_support.h"

// PSDs written by ImageMagick and GIMP open with the right layers, and ours open in both.

using vmtest::LayerName;

namespace {

// Alpha everywhere, colour where something shows (editors differ on the colour of wholly transparent pixels).
void ExpectSameVisible(const COLImage& want, const COLImage& got, const std::string& what)
{
    ASSERT_EQ(vmtest::Size(got), vmtest::Size(want)) << what;
    EXPECT_EQ(vmtest::MaxAlphaDifference(want, got), 0) << what;
    EXPECT_EQ(vmtest::MaxColourDifference(want, got, true), 0) << what;
}

struct Expect {
    const char* name;
    int x, y;
    const char* png;
};

void CheckFixture(const std::string& file, const std::vector<Expect>& layers)
{
    CLayerStack stack;
    CPsdReader reader;
    ASSERT_EQ(reader.LoadFile(vmtest::DataPath("psd/" + file).c_str(), stack), 1) << file << ": " << reader.GetReason();
    ASSERT_EQ(stack.GetLayerCount(), int(layers.size())) << file;
    for (size_t i = 0; i < layers.size(); ++i) {
        const CLayer* l = stack.GetLayer(int(i));
        EXPECT_EQ(LayerName(l), layers[i].name) << file << " layer " << i;
        EXPECT_EQ(l->m_x, layers[i].x) << file << " layer " << i;
        EXPECT_EQ(l->m_y, layers[i].y) << file << " layer " << i;
        ExpectSameVisible(vmtest::Load(vmtest::DataPath(std::string("psd/") + layers[i].png)), l->m_image,
                          file + " layer " + std::to_string(i));
    }
}

// A small composition with soft edges, odd sizes, a layer over the edge and a Chinese name.
void MakeComposition(CLayerStack& doc)
{
    ASSERT_EQ(doc.NewDocument(23, 17, 0xFF000000u), 1);
    doc.GetLayer(0)->m_image = vmtest::OpaqueNoise(23, 17, 4);
    std::strcpy(doc.GetLayer(0)->m_name, "Backdrop");
    const int xs[] = {3, 15}, ys[] = {2, 9};
    const char* names[] = {"Subject", "Shade"};
    for (int i = 0; i < 2; ++i) {
        auto* l = new CLayer();
        vmtest::FillNoise(l->m_image, 9 + uint32_t(i), 7, 20 + uint32_t(i));
        l->m_x = xs[i];
        l->m_y = ys[i];
        l->m_opacity = uint8_t(i ? 128 : 255);
        l->m_blendMode = uint8_t(i ? 5 : 0);
        std::strcpy(l->m_name, names[i]);
        ASSERT_TRUE(doc.InsertLayer(l, i));
    }
}

} // namespace

TEST(PsdInterop, ImageMagickFilesOpenWithTheirLayers)
{
    for (const char* file : {"im-layers-rle.psd", "im-layers-none.psd"})
        CheckFixture(file, {{"Base", 0, 0, "im-layer-0.png"},
                            {"Soft disc", 5, 7, "im-layer-1.png"},
                            {"Gradient", 28, 20, "im-layer-2.png"}});
    CheckFixture("im-one-zip.psd", {{"L1", 0, 0, "im-layer-0.png"}});
    // Grayscale: gray colour bytes, the disc's alpha.
    CLayerStack stack;
    CPsdReader reader;
    ASSERT_EQ(reader.LoadFile(vmtest::DataPath("psd/im-gray.psd").c_str(), stack), 1) << reader.GetReason();
    ASSERT_EQ(stack.GetLayerCount(), 2);
    const COLImage disc = vmtest::Load(vmtest::DataPath("psd/im-layer-1.png"));
    const COLImage& gray = stack.GetLayer(1)->m_image;
    EXPECT_EQ(vmtest::MaxAlphaDifference(disc, gray), 0); // sizes included
    COLChannel red;
    ASSERT_EQ(red.ExtractFrom(&gray, 2), 1);
    EXPECT_TRUE(vmtest::SameColours(gray, vmtest::GrayPicture(red)));
}

TEST(PsdInterop, GimpFilesOpenWithTheirLayers)
{
    for (const char* file : {"gimp-layers-rle.psd", "gimp-layers-raw.psd"}) {
        CheckFixture(file, {{"Backdrop", 0, 0, "gimp-layers-0.png"},
                            {"\xB0\xEB\xCD\xB8\xC3\xF7\xD4\xB2", 5, 7, "gimp-layers-1.png"}, // 半透明圆
                            {"Hidden", 30, 20, "gimp-layers-2.png"}});
        CLayerStack stack;
        CPsdReader reader;
        ASSERT_EQ(reader.LoadFile(vmtest::DataPath(std::string("psd/") + file).c_str(), stack), 1);
        EXPECT_EQ(stack.GetLayer(1)->m_opacity, 153); // 60 %
        EXPECT_EQ(stack.GetLayer(1)->m_blendMode, kBlendMultiply);
        EXPECT_EQ(stack.GetLayer(2)->m_blendMode, kBlendScreen);
        EXPECT_EQ(stack.GetLayer(2)->m_visible, 0);
    }
    // One transparent layer (a negative layer count): transparency kept, no white first row or column.
    CheckFixture("gimp-one-transparent.psd", {{"Cut-out", 0, 0, "gimp-one-transparent.png"}});
}

TEST(PsdInterop, ImageMagickOpensOurFiles)
{
    if (!vmtest::HaveImageMagick()) GTEST_SKIP() << "ImageMagick (/usr/bin/identify, /usr/bin/convert) is not installed";
    vmtest::TempDir dir;
    std::string out;
    // One layer, odd pixel count, soft alpha.
    const COLImage picture = vmtest::Noise(13, 7, 9);
    const std::string one = dir.File("one.psd");
    ASSERT_EQ(SavePsd(one, picture, "Layer A"), kOk);
    EXPECT_EQ(vmtest::MagickIdentify("%w %h %X %Y %l\\n", one), "13 7 +0 +0 \n13 7 +0 +0 Layer A\n");
    ASSERT_TRUE(vmtest::MagickConvert(one + "[1]", dir.File("l.png"), out)) << out;
    ASSERT_TRUE(vmtest::MagickConvert(one + "[0]", dir.File("m.png"), out)) << out;
    EXPECT_TRUE(vmtest::SamePixels(vmtest::Load(dir.File("l.png")), picture));
    // The flattened view: alpha exact, colours as close as the 8-bit merged bytes allow (about 255 / alpha).
    const COLImage merged = vmtest::Load(dir.File("m.png"));
    ASSERT_EQ(merged.GetPixelCount(), picture.GetPixelCount());
    for (size_t i = 0; i < picture.GetPixelCount(); ++i) {
        const CPixel want = picture.GetBuffer()[i], got = merged.GetBuffer()[i];
        ASSERT_EQ(got.alpha, want.alpha) << i;
        if (want.alpha == 0) continue;
        for (int k = 0; k < 3; ++k) {
            const int d = std::abs(int((&got.blue)[k]) - int((&want.blue)[k]));
            ASSERT_LE(d * want.alpha, 255 + 2 * want.alpha) << i << " alpha " << int(want.alpha);
        }
    }

    // Layered: names, offsets, sizes, pixels of every layer, and the merged picture as we composite it.
    CLayerStack doc;
    MakeComposition(doc);
    const std::string layered = dir.File("layered.psd");
    ASSERT_EQ(WriteLayeredPsd(layered, doc), kOk);
    EXPECT_EQ(vmtest::MagickIdentify("%w %h %X %Y %l\\n", layered),
              "23 17 +0 +0 \n23 17 +0 +0 Backdrop\n9 7 +3 +2 Subject\n10 7 +15 +9 Shade\n");
    for (int i = 0; i < 3; ++i) {
        const std::string png = dir.File("layer" + std::to_string(i) + ".png");
        ASSERT_TRUE(vmtest::MagickConvert(layered + "[" + std::to_string(i + 1) + "]", png, out)) << out;
        // ImageMagick hands a layer out with its opacity multiplied into alpha.
        COLImage want = vmtest::Copy(doc.GetLayer(i)->m_image);
        const uint32_t opacity = doc.GetLayer(i)->m_opacity;
        const COLImage got = vmtest::Load(png);
        for (size_t k = 0; k < want.GetPixelCount() && k < got.GetPixelCount(); ++k) {
            CPixel& p = want.GetBuffer()[k];
            const int scaled = int(p.alpha * opacity + 127) / 255;
            ASSERT_LE(std::abs(scaled - int(got.GetBuffer()[k].alpha)), 1) << i << " pixel " << k;
            p.alpha = got.GetBuffer()[k].alpha;
        }
        ExpectSameVisible(want, got, "layer " + std::to_string(i));
    }
    ASSERT_TRUE(vmtest::MagickConvert(layered + "[0]", dir.File("c.png"), out)) << out;
    COLImage composite;
    ASSERT_EQ(MergeLayers(&doc, &composite, 0), 1);
    EXPECT_TRUE(vmtest::SameColours(vmtest::Load(dir.File("c.png")), composite));
}

TEST(PsdInterop, GimpOpensOurFiles)
{
    std::string out;
    if (vmtest::Run("command -v gimp", out) != 0)
        GTEST_SKIP() << "GIMP is not installed; install the gimp package to run this";
    vmtest::TempDir dir;
    const COLImage picture = vmtest::Noise(13, 7, 9); // odd pixel count: GIMP refuses a padding byte after a channel
    const std::string one = dir.File("one.psd"), layered = dir.File("layered.psd"), report = dir.File("gimp.txt");
    ASSERT_EQ(SavePsd(one, picture, "\xB1\xB3\xBE\xB0"), kOk); // 背景
    CLayerStack doc;
    MakeComposition(doc);
    doc.GetLayer(2)->m_visible = 0;
    ASSERT_EQ(WriteLayeredPsd(layered, doc), kOk);
    const std::string script = R"((begin
  (define port (open-output-file ")" +
                               report + R"("))
  (define (probe file)
    (let* ((image (car (gimp-file-load RUN-NONINTERACTIVE file file)))
           (layers (vector->list (cadr (gimp-image-get-layers image)))))
      (display (string-append "image " (number->string (car (gimp-image-width image))) " "
                              (number->string (car (gimp-image-height image))) "\n") port)
      (for-each (lambda (l)
        (let ((off (gimp-drawable-offsets l)))
          (display (string-append (car (gimp-item-get-name l)) "|" (number->string (car off)) " "
            (number->string (cadr off)) " " (number->string (car (gimp-drawable-width l))) " "
            (number->string (car (gimp-drawable-height l))) " "
            (number->string (round (car (gimp-layer-get-opacity l)))) " "
            (number->string (car (gimp-item-get-visible l))) "\n") port)))
        layers)))
  (probe ")" + one + R"(")
  (probe ")" + layered + R"(")
  (close-output-port port)))";
    vmtest::Run("gimp -i -d -f -b " + vmtest::Quote(script) + " -b '(gimp-quit 0)'", out);
    const std::vector<uint8_t> bytes = vmtest::ReadAll(report);
    const std::string text(bytes.begin(), bytes.end());
    // GIMP lists layers top first.
    EXPECT_EQ(text, "image 13 7\n\xE8\x83\x8C\xE6\x99\xAF|0 0 13 7 100.0 1\n"
                    "image 23 17\nShade|15 9 10 7 50.0 0\nSubject|3 2 9 7 100.0 1\nBackdrop|0 0 23 17 100.0 1\n")
        << out;
}
