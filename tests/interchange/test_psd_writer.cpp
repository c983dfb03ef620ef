#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "imaging/image.h"
#include "interchange/psd_writer.h"
#include "support/engine_checks.h"
#include "support/full_disk.h"
#include "support/test_support.h"
#include "test_psd_builder.h"

namespace {

// Transparent, half-transparent (with a green of 255) and opaque columns: the merged colours are laid over white.
COLImage Picture(uint32_t w, uint32_t h)
{
    return vmtest::Picture(w, h, [](uint32_t x, uint32_t y) {
        return CPixel::Make(uint8_t(10 * x + y), uint8_t(262 - 7 * x), uint8_t(33 * y + 1),
                            uint8_t(x == 0 ? 0 : (x == 1 ? 128 : 255)));
    });
}

// The file as its table lays it out, built from the table alone by the reader tests' builder: one layer holding the
// picture, a negative layer count (the merged picture has alpha), the merged colours laid over white by alpha. The
// layer's name is GBK, with a UTF-16 copy when it is given.
std::vector<uint8_t> Expected(const COLImage& image, const std::string& name = "Velmorando",
                              const std::u16string& unicodeName = u"")
{
    psdtest::Document d;
    d.channels = 4;
    d.width = image.GetWidth();
    d.height = image.GetHeight();
    d.negativeCount = true;
    d.layers.push_back(
        psdtest::RgbaLayer(0, 0, d.width, d.height, [&](uint32_t x, uint32_t y) { return image.GetPixel(x, y); }));
    d.layers[0].flags = 0x20;
    d.layers[0].pascalName = name;
    d.layers[0].unicodeName = unicodeName;
    d.layers[0].padUnicodeName = true;
    d.layers[0].blendingRanges.assign(10, 0x0000FFFF);
    for (int which : {2, 1, 0})
        for (size_t i = 0; i < image.GetPixelCount(); ++i) {
            const CPixel p = image.GetBuffer()[i];
            const uint32_t v = which == 2 ? p.red : which == 1 ? p.green : p.blue;
            d.merged.push_back(uint8_t((v * p.alpha + 255 * (255 - p.alpha) + 127) / 255));
        }
    for (size_t i = 0; i < image.GetPixelCount(); ++i)
        d.merged.push_back(image.GetBuffer()[i].alpha);
    return psdtest::Build(d);
}

} // namespace

TEST(PsdWriter, OneLayerFileIsByteExactForEvenAndOddPixelCounts)
{
    vmtest::TempDir dir;
    for (auto [w, h] : {std::pair{4u, 3u}, std::pair{3u, 3u}, std::pair{1u, 1u}}) {
        const COLImage image = Picture(w, h);
        const std::string path = dir.File("one.psd");
        CPsdWriter writer;
        ASSERT_EQ(writer.SaveImage(path.c_str(), &image), 1);
        const std::vector<uint8_t> got = vmtest::ReadAll(path);
        const std::vector<uint8_t> want = Expected(image);
        // No padding byte after a channel block, odd pixel count or not.
        EXPECT_EQ(got.size(), 168u + 4 * (w * h + 2) + 4 * w * h) << w << "x" << h;
        EXPECT_EQ(got, want) << w << "x" << h;
    }
}

TEST(PsdWriter, LayerIsNamedAfterTheDocumentLayerWithAUnicodeCopyForChineseNames)
{
    vmtest::TempDir dir;
    const COLImage image = Picture(2, 2);
    ASSERT_EQ(SavePsd(dir.File("a.psd"), image, "Cut"), kOk);
    EXPECT_EQ(vmtest::ReadAll(dir.File("a.psd")), Expected(image, "Cut"));
    const std::string layer = "\xCD\xBC\xB2\xE3" // 图层1
                              "1";
    ASSERT_EQ(SavePsd(dir.File("b.psd"), image, layer.c_str()), kOk);
    EXPECT_EQ(vmtest::ReadAll(dir.File("b.psd")), Expected(image, layer, u"\u56FE\u5C421"));
}

TEST(PsdWriter, AFailedWriteLeavesNoFileAndAnOlderOneUntouched)
{
    vmtest::TempDir dir;
    const COLImage image = Picture(5, 4);
    CPsdWriter writer;
    EXPECT_EQ(writer.SaveImage(dir.File("missing/x.psd").c_str(), &image), 0);
    // A target that cannot be replaced (a folder of that name): nothing is left behind.
    std::filesystem::create_directory(dir.File("taken.psd"));
    EXPECT_EQ(writer.SaveImage(dir.File("taken.psd").c_str(), &image), 0);
    EXPECT_TRUE(std::filesystem::is_directory(dir.File("taken.psd")));
    EXPECT_EQ(vmtest::EntryCount(dir.Path()), 1u);
    COLImage none;
    EXPECT_EQ(writer.SaveImage(dir.File("none.psd").c_str(), &none), 0);
    EXPECT_FALSE(std::filesystem::exists(dir.File("none.psd")));
}

TEST(PsdWriter, AFullDiskIsReportedAndLeavesTheOldFile)
{
    // A file size limit stands in for a full disk: writes past it fail with EFBIG.
    vmtest::TempDir dir;
    const std::string path = dir.File("keep.psd");
    const COLImage small = Picture(2, 2), large = Picture(64, 64);
    ASSERT_EQ(SavePsd(path, small), kOk);
    const std::vector<uint8_t> before = vmtest::ReadAll(path);
    EXPECT_EQ(vmtest::WithFileSizeLimit(4096, [&] { return SavePsd(path, large); }), kFail);
    EXPECT_EQ(vmtest::ReadAll(path), before);
    EXPECT_EQ(vmtest::EntryCount(dir.Path()), 1u);
}
