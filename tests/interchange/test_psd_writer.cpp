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

// The file as its table lays it out, written here field by field from the table alone.
std::vector<uint8_t> Expected(const COLImage& image)
{
    const uint32_t w = image.GetWidth(), h = image.GetHeight(), n = w * h, c = n + 2;
    psdtest::Bytes b;
    psdtest::Document document; // the header: RGB, 8 bits, colours and alpha
    document.channels = 4;
    document.width = w;
    document.height = h;
    psdtest::Header(b, document);
    b.U32(4 * c + 128);
    b.U32(4 * c + 120);
    b.U16(0xFFFF);
    b.U32(0);
    b.U32(0);
    b.U32(h);
    b.U32(w);
    b.U16(4);
    for (int id : {-1, 0, 1, 2}) {
        b.U16(uint16_t(id));
        b.U32(c);
    }
    b.Str("8BIMnorm");
    b.U8(255);
    b.U8(0);
    b.U8(0x20);
    b.U8(0);
    b.U32(60);
    b.U32(0);
    b.U32(40);
    for (int i = 0; i < 10; ++i)
        b.U32(0x0000FFFF);
    b.U8(10);
    b.Str("Velmorando");
    b.U8(0);
    EXPECT_EQ(b.size(), 162u);
    auto plane = [&](int which) {
        for (uint32_t i = 0; i < n; ++i) {
            const CPixel p = image.GetBuffer()[i];
            b.U8(which == 3 ? p.alpha : which == 2 ? p.red : which == 1 ? p.green : p.blue);
        }
    };
    for (int which : {3, 2, 1, 0}) {
        b.U16(0);
        plane(which);
    }
    b.U32(0);
    b.U16(0);
    for (int which : {2, 1, 0}) // merged colours over white by alpha, rounded
        for (uint32_t i = 0; i < n; ++i) {
            const CPixel p = image.GetBuffer()[i];
            const uint32_t v = which == 2 ? p.red : which == 1 ? p.green : p.blue;
            b.U8((v * p.alpha + 255 * (255 - p.alpha) + 127) / 255);
        }
    plane(3);
    return b;
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
    const std::string a = dir.File("a.psd"), b = dir.File("b.psd");
    ASSERT_EQ(SavePsd(a, image, "Cut"), kOk);
    std::vector<uint8_t> f = vmtest::ReadAll(a);
    EXPECT_EQ(f[101], 52); // extra data: 4 + 4 + 40 + "\x03Cut"
    EXPECT_EQ(std::string(f.begin() + 150, f.begin() + 154), "\x03"
                                                             "Cut");
    EXPECT_EQ(f[41], 4 * 6 + 120 - 8); // layer information length follows the shorter name
    ASSERT_EQ(SavePsd(b, image,
                      "\xCD\xBC\xB2\xE3"
                      "1"),
              kOk); // 图层1
    f = vmtest::ReadAll(b);
    const std::string text(f.begin(), f.end());
    const size_t luni = text.find("8BIMluni");
    ASSERT_NE(luni, std::string::npos);
    EXPECT_EQ(std::string(f.begin() + 150, f.begin() + 156), "\x05\xCD\xBC\xB2\xE3"
                                                             "1");
    const std::vector<uint8_t> utf16 = {0, 0, 0, 3, 0x56, 0xFE, 0x5C, 0x42, 0x00, 0x31};
    EXPECT_TRUE(std::equal(utf16.begin(), utf16.end(), f.begin() + long(luni) + 12));
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
