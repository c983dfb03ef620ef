#include <filesystem>
#include <gtest/gtest.h>
#include <set>

#include "document/compositor.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/channel.h"
#include "imaging/codec.h"
#include "imaging/image.h"
#include "interchange/psd_reader.h"
#include "interchange/save_choice.h"
#include "support/full_disk.h"
#include "support/pictures.h"
#include "support/test_support.h"

namespace {

// Every image choice: the extension it adds, the filter its dialog shows and the file type the codec must find in
// what it wrote.
struct Expected {
    ESaveChoice choice;
    const char* extension;
    const char* filter;
    uint32_t fileType;
};

const Expected kExpected[] = {
    {ESaveChoice::kCompositePng, "png", "PNG File(*.png)|*.png||", kFilePng},
    {ESaveChoice::kCompositeJpeg, "jpg", "Jpeg File(*.jpg)|*.jpg||", kFileJpeg},
    {ESaveChoice::kCompositeBmp, "bmp", "Bitmap File(*.bmp)|*.bmp||", kFileBmp},
    {ESaveChoice::kCompositeTiff, "tif", "Tiff File(*.tif)|*.tif||", kFileTiff},
    {ESaveChoice::kCompositeTga, "tga", "TGA File(*.tga)|*.tga||", kFileTga},
    {ESaveChoice::kCompositePsd, "psd", "PNG File(*.psd)|*.psd||", kFilePsd},
    {ESaveChoice::kLayeredPsd, "psd", "PNG File(*.psd)|*.psd||", kFilePsd},
    {ESaveChoice::kLayerPng, "png", "PNG File(*.png)|*.png||", kFilePng},
    {ESaveChoice::kLayerPsd, "psd", "PNG File(*.psd)|*.psd||", kFilePsd},
};

// Two layers: a noisy opaque base and a smaller, half-transparent layer at an offset.
class SaveChoiceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_stack.SetSize(30, 20);
        CLayer* base = m_stack.AddLayer(-1, 0);
        ASSERT_NE(base, nullptr);
        base->m_image = vmtest::OpaqueNoise(30, 20, 3);
        CLayer* top = m_stack.AddLayer(0, 0);
        ASSERT_NE(top, nullptr);
        vmtest::FillNoise(top->m_image, 11, 7, 9);
        top->m_x = 4;
        top->m_y = 5;
        vmtest::FillNoise(m_composite, 30, 20, 5);
        m_sources = {&m_stack, &m_composite, &top->m_image, top->m_name};
    }

    vmtest::TempDir m_dir;
    CLayerStack m_stack;
    COLImage m_composite;
    SaveSources m_sources;
};

TEST_F(SaveChoiceTest, EveryChoiceNamesItsFilterAndExtensionAndWritesThatFormat)
{
    ASSERT_EQ(SaveChoiceCount(), std::size(kExpected) + 1); // and the project
    std::set<ESaveChoice> seen;
    for (size_t i = 0; i < SaveChoiceCount(); ++i)
        seen.insert(GetSaveChoice(i).choice);
    EXPECT_EQ(seen.size(), SaveChoiceCount());

    const SaveChoiceInfo& project = DescribeSaveChoice(ESaveChoice::kProject);
    EXPECT_EQ(project.writer, ESaveWriter::kProject);
    EXPECT_TRUE(project.filterIsKey);
    EXPECT_STREQ(project.filter, "vmdoc");
    EXPECT_EQ(WriteSaveChoice(ESaveChoice::kProject, m_dir.File("p.vmpd"), m_sources), kFail); // the session's work

    for (const Expected& e : kExpected) {
        const SaveChoiceInfo& info = DescribeSaveChoice(e.choice);
        SCOPED_TRACE(info.extension);
        EXPECT_STREQ(info.extension, e.extension);
        EXPECT_STREQ(info.filter, e.filter);
        EXPECT_FALSE(info.filterIsKey);
        EXPECT_STREQ(info.failureKey, "saveerr");
        // A name without the extension gets it.
        const std::string name = m_dir.File("out" + std::to_string(int(e.choice)));
        ASSERT_EQ(WriteSaveChoice(e.choice, name, m_sources), kOk);
        const std::string written = name + "." + e.extension;
        EXPECT_EQ(COLImageCodec::GetFileType(written.c_str()), e.fileType);
    }
}

TEST_F(SaveChoiceTest, LayerAndPsdChoicesWriteTheRightPixels)
{
    // The layer PNG is the layer's pixels without its position.
    ASSERT_EQ(WriteSaveChoice(ESaveChoice::kLayerPng, m_dir.File("layer.png"), m_sources), kOk);
    const COLImage back = vmtest::Load(m_dir.File("layer.png"));
    const COLImage& layer = *m_sources.layerPicture;
    EXPECT_TRUE(vmtest::SamePixels(back, layer));

    // The layered PSD holds both layers with their positions and exact pixels.
    ASSERT_EQ(WriteSaveChoice(ESaveChoice::kLayeredPsd, m_dir.File("all.PSD"), m_sources), kOk);
    EXPECT_FALSE(std::filesystem::exists(m_dir.File("all.PSD.psd"))); // the extension in any case is kept
    CLayerStack read;
    CPsdReader reader;
    ASSERT_EQ(reader.LoadFile(m_dir.File("all.PSD").c_str(), read), 1);
    ASSERT_EQ(read.GetLayerCount(), 2);
    const CLayer* top = read.GetLayer(1);
    EXPECT_EQ(vmtest::Place(*top), "4,5");
    EXPECT_TRUE(vmtest::SamePixels(top->m_image, layer));

    // The flat PSD of the composite keeps every pixel, transparency included.
    ASSERT_EQ(WriteSaveChoice(ESaveChoice::kCompositePsd, m_dir.File("flat.psd"), m_sources), kOk);
    CLayerStack flat;
    CPsdReader flatReader;
    ASSERT_EQ(flatReader.LoadFile(m_dir.File("flat.psd").c_str(), flat), 1);
    ASSERT_EQ(flat.GetLayerCount(), 1);
    EXPECT_TRUE(vmtest::SamePixels(flat.GetLayer(0)->m_image, m_composite));
}

TEST(SaveChoice, OfferedChoicesAndNames)
{
    for (size_t i = 0; i < SaveChoiceCount(); ++i) {
        const ESaveChoice c = GetSaveChoice(i).choice;
        const bool layer = c == ESaveChoice::kLayerPng || c == ESaveChoice::kLayerPsd;
        // The background's layer export is offered only when the dialog is opened for the layer alone.
        EXPECT_EQ(IsSaveChoiceOffered(c, false, 0), !layer);
        EXPECT_EQ(IsSaveChoiceOffered(c, false, 2), true);
        EXPECT_EQ(IsSaveChoiceOffered(c, true, 0), layer);
    }
    EXPECT_EQ(SavePathFor("/a/cut", ESaveChoice::kLayerPng), "/a/cut.png");
    EXPECT_EQ(SavePathFor("/a/cut.final", ESaveChoice::kCompositeJpeg), "/a/cut.final.jpg");
    EXPECT_EQ(SavePathFor("/a/cut.jpg", ESaveChoice::kCompositePng), "/a/cut.jpg.png");
    EXPECT_EQ(SavePathFor("/a/Cut.TIF", ESaveChoice::kCompositeTiff), "/a/Cut.TIF");
    EXPECT_EQ(SavePathFor("/a/.psd", ESaveChoice::kLayerPsd), "/a/.psd.psd");
    EXPECT_EQ(SavePathFor("/a.psd/x", ESaveChoice::kLayerPsd), "/a.psd/x.psd");

    EXPECT_EQ(JpegWriterQuality(0, false), 1);
    EXPECT_EQ(JpegWriterQuality(0, true), 101);
    EXPECT_EQ(JpegWriterQuality(80, true), 180);
    EXPECT_EQ(JpegWriterQuality(100, false), 100);
}

TEST(SaveChoice, TheCutOutTakesThePlaneAsAlpha)
{
    const COLImage working = vmtest::Noise(5, 3, 1);
    const COLChannel plane = vmtest::NoisePlane(5, 3, 2);
    COLImage out;
    ASSERT_TRUE(BuildSelectionExport(working, plane, out));
    COLImage expected = vmtest::Copy(working);
    for (size_t i = 0; i < expected.GetPixelCount(); ++i)
        expected.GetBuffer()[i].alpha = plane.GetBuffer()[i];
    EXPECT_TRUE(vmtest::SamePixels(out, expected));
    COLImage untouched;
    EXPECT_FALSE(BuildSelectionExport(working, vmtest::NoisePlane(5, 4, 2), untouched));
    EXPECT_TRUE(untouched.IsNull());
    EXPECT_FALSE(BuildSelectionExport(COLImage(), plane, untouched));
}

// A failed write (a folder that cannot be written, a full disk) reports kFail and leaves the older file whole.
TEST_F(SaveChoiceTest, AFailedWriteKeepsTheOlderFile)
{
    // A folder that is a file cannot be written, whoever runs the test.
    vmtest::WriteAll(m_dir.File("plain"), {1, 2, 3});
    SaveSources none{};
    for (const Expected& e : kExpected) {
        EXPECT_EQ(WriteSaveChoice(e.choice, m_dir.File("plain/x"), m_sources), kFail) << e.extension;
        EXPECT_EQ(WriteSaveChoice(e.choice, m_dir.File("nothing"), none), kFail) << e.extension;
    }

    // A full disk, simulated by a file-size limit (which binds root too): every writer fails part-way through.
    const COLImage big = vmtest::Noise(400, 300, 11);
    for (const Expected& e : kExpected) {
        SCOPED_TRACE(e.extension);
        const std::string path = m_dir.File(std::string("keep.") + e.extension);
        ASSERT_EQ(WriteSaveChoice(e.choice, path, m_sources), kOk);
        const std::vector<uint8_t> before = vmtest::ReadAll(path);
        SaveSources large = m_sources;
        large.composite = &big;
        large.layerPicture = &big;
        EXPECT_EQ(vmtest::WithFileSizeLimit(200, [&] { return WriteSaveChoice(e.choice, path, large); }), kFail);
        EXPECT_EQ(vmtest::ReadAll(path), before);
    }
    // No temporary is left behind ("keep.png.Ab12Cd" would be one).
    for (const auto& entry : std::filesystem::directory_iterator(m_dir.Path())) {
        const std::string name = entry.path().filename().string();
        EXPECT_TRUE(name == "plain" || (name.rfind("keep.", 0) == 0 && name.find('.', 5) == std::string::npos)) << name;
    }
}

// The saved composite is see-through where the canvas shows the checkerboard: the base's alpha with each visible
// layer laid over it at its opacity; hidden layers and what lies outside a layer do not cover.
TEST(SaveChoice, TheCompositeCarriesTheDocumentsCoverage)
{
    CLayerStack stack;
    stack.SetSize(9, 6);
    CLayer* base = stack.AddLayer(-1, 0);
    CLayer* top = stack.AddLayer(0, 0);
    CLayer* hidden = stack.AddLayer(1, 0);
    ASSERT_TRUE(base && top && hidden);
    vmtest::FillNoise(base->m_image, 9, 6, 1);
    vmtest::FillNoise(top->m_image, 4, 3, 2);
    top->m_x = 6; // hangs over the right edge
    top->m_y = 2;
    top->m_opacity = 170;
    vmtest::FillNoise(hidden->m_image, 9, 6, 3);
    hidden->m_visible = false;
    COLImage out, colours;
    ASSERT_TRUE(ComposeForSave(stack, out));
    ASSERT_EQ(MergeLayers(&stack, &colours, 0), 1);
    for (uint32_t y = 0; y < 6; ++y)
        for (uint32_t x = 0; x < 9; ++x) {
            int cover = base->m_image.GetBuffer(x, y)->alpha;
            if (x >= 6 && y >= 2 && y < 5) {
                const int a = top->m_image.GetBuffer(x - 6, y - 2)->alpha * 170 / 255;
                cover = cover + a * (255 - cover) / 255;
            }
            const CPixel got = *out.GetBuffer(x, y), colour = *colours.GetBuffer(x, y);
            EXPECT_EQ(got.alpha, cover) << x << "," << y;
            EXPECT_EQ(got.Word() & 0xFFFFFF, colour.Word() & 0xFFFFFF);
        }
    EXPECT_FALSE(ComposeForSave(CLayerStack(), out));
}

} // namespace
