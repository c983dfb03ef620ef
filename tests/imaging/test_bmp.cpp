#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>

#include "codec_test_util.h"
#include "imaging/codec_formats.h"
#include "imaging/image.h"
#include "support/engine_checks.h"
#include "support/full_disk.h"
#include "support/test_support.h"

using codectest::BmpHeader;

namespace {

void AppendPalette(std::vector<uint8_t>& b, int entries)
{
    // Entry i is (blue i, green 2i, red 255 - i).
    for (int i = 0; i < entries; ++i) {
        b.push_back(uint8_t(i));
        b.push_back(uint8_t(2 * i));
        b.push_back(uint8_t(255 - i));
        b.push_back(0);
    }
}

// Each test works in a folder of its own.
class Bmp : public ::testing::Test {
protected:
    // Writes the bytes to a file and reads it with the picture's own reader.
    long LoadBmp(const std::vector<uint8_t>& bytes, COLImage& img)
    {
        vmtest::WriteAll(dir.File("t.bmp"), bytes);
        return img.LoadFromFile(dir.File("t.bmp").c_str());
    }
    // Each listed pixel {x, y, i} has the colour of palette entry i.
    static void ExpectEntries(const COLImage& img, std::initializer_list<std::array<int, 3>> pixels)
    {
        for (const auto& [x, y, i] : pixels)
            EXPECT_TRUE(img.GetPixel2(x, y) == CPixel::Make(uint8_t(255 - i), uint8_t(2 * i), uint8_t(i)))
                << x << "," << y;
    }
    vmtest::TempDir dir;
};

} // namespace

TEST_F(Bmp, WriterLayoutIsExact)
{
    // Stride 12 (9 bytes padded).
    COLImage img = vmtest::Picture(3, 2, [](uint32_t x, uint32_t y) {
        const uint32_t i = y * 3 + x;
        return CPixel::Make(uint8_t(1 + 3 * i), uint8_t(2 + 3 * i), uint8_t(3 + 3 * i));
    });
    ASSERT_EQ(img.SaveToFile(dir.File("a.bmp").c_str()), kOk);
    const std::vector<uint8_t> f = vmtest::ReadAll(dir.File("a.bmp"));
    ASSERT_EQ(f.size(), 54u + 24u);
    vmtest::ByteWriter header = BmpHeader(3, 2, 24);
    header.Set32(2, (12u * 2 + 18) * 3);   // the size field is not the file's size
    header.Set32(34, 12u * 2 * 3);
    header.Set32(38, 4730);   // a horizontal resolution only
    header.Set32(42, 0);
    EXPECT_EQ(std::vector<uint8_t>(f.begin(), f.begin() + 54), header);
    // Image row 0 first, blue green red, zero padding.
    const std::vector<uint8_t> rows = {3, 2, 1, 6, 5, 4, 9, 8, 7, 0, 0, 0, 12, 11, 10, 15, 14, 13, 18, 17, 16, 0, 0, 0};
    EXPECT_EQ(std::vector<uint8_t>(f.begin() + 54, f.end()), rows);
}

TEST_F(Bmp, RoundTripFlipsVerticallyAndKeepsAlpha)
{
    COLImage img = vmtest::Noise(17, 9, 31);
    ASSERT_EQ(img.SaveToFile(dir.File("n.bmp").c_str()), kOk);
    COLImage back = vmtest::Solid(17, 9, CPixel{0, 0, 0, 0x5A});
    ASSERT_EQ(back.LoadFromFile(dir.File("n.bmp").c_str()), kOk);
    // Upside down, and the reader leaves alpha alone.
    EXPECT_TRUE(vmtest::SamePixels(back, vmtest::Picture(17, 9, [&](uint32_t x, uint32_t y) {
                                       return CPixel::FromWord((img.GetPixel(x, 8 - y) & 0xFFFFFF) | 0x5A000000);
                                   })));
}

TEST_F(Bmp, PalettedRowsOfOneFourAndEightBits)
{
    // 1 bit, width 33: rows of 8 bytes; bits from the most significant end.
    std::vector<uint8_t> f = BmpHeader(33, 2, 1);
    AppendPalette(f, 2);
    f.insert(f.end(), {0x80, 0, 0, 0, 0x80, 0, 0, 0});   // bottom row: x = 0 and x = 32 set
    f.insert(f.end(), {0x40, 0, 0, 0, 0, 0, 0, 0});      // top row: x = 1 set
    COLImage img;
    ASSERT_EQ(LoadBmp(f, img), kOk);
    EXPECT_EQ(img.GetWidth(), 33u);
    ExpectEntries(img, {{0, 1, 1}, {32, 1, 1}, {1, 1, 0}, {1, 0, 1}, {0, 0, 0}});

    // 1 bit, width 32: rows of exactly 4 bytes, so a second row follows at once.
    f = BmpHeader(32, 2, 1);
    AppendPalette(f, 2);
    f.insert(f.end(), {0, 0, 0, 1, 0xFF, 0xFF, 0xFF, 0xFF});
    ASSERT_EQ(LoadBmp(f, img), kOk);
    ExpectEntries(img, {{31, 1, 1}, {30, 1, 0}, {0, 0, 1}});

    // 4 bit, width 3: high nibble first, rows padded to 4.
    f = BmpHeader(3, 1, 4);
    AppendPalette(f, 16);
    f.insert(f.end(), {0x5A, 0xF0, 0, 0});
    ASSERT_EQ(LoadBmp(f, img), kOk);
    ExpectEntries(img, {{0, 0, 5}, {1, 0, 10}, {2, 0, 15}});

    // 8 bit, width 5: rows of 8 bytes.
    f = BmpHeader(5, 2, 8);
    AppendPalette(f, 256);
    f.insert(f.end(), {200, 1, 2, 3, 4, 9, 9, 9, 10, 11, 12, 13, 14, 9, 9, 9});
    ASSERT_EQ(LoadBmp(f, img), kOk);
    ExpectEntries(img, {{0, 1, 200}, {4, 0, 14}});
}

TEST_F(Bmp, ResultCodesForBadFiles)
{
    COLImage img;
    EXPECT_EQ(img.LoadFromFile(dir.File("missing.bmp").c_str()), kBmpCannotOpen);

    std::vector<uint8_t> f = BmpHeader(2, 2, 24);
    f[0] = 'X';
    EXPECT_EQ(LoadBmp(f, img), kBmpBadData);

    // Only the first byte is tested: "BX" is accepted.
    f = BmpHeader(2, 2, 24);
    f[1] = 'X';
    f.resize(54 + 16, 0x40);
    EXPECT_EQ(LoadBmp(f, img), kOk);

    // A header cut short.
    f.resize(30);
    EXPECT_EQ(LoadBmp(f, img), kBmpBadData);
}

TEST_F(Bmp, TruncatedRowsKeepWhatWasRead)
{
    std::vector<uint8_t> f = BmpHeader(2, 3, 24);
    f.insert(f.end(), {1, 2, 3, 4, 5, 6, 0, 0, 7});   // bottom row only, then the file ends inside the second
    COLImage img;
    EXPECT_EQ(LoadBmp(f, img), kBmpBadData);
    ASSERT_FALSE(img.IsNull());
    EXPECT_EQ(img.GetPixel2(0, 2).blue, 1);
    EXPECT_EQ(img.GetPixel2(1, 2).red, 6);
}

TEST_F(Bmp, AbsurdSizesAreRefusedBeforeAllocating)
{
    COLImage img;
    for (auto [w, h] : {std::pair{20001, 10}, {10, 20001}, {0, 5}, {-4, 5}, {0x7FFFFFFF, 0x7FFFFFFF}}) {
        std::vector<uint8_t> f = BmpHeader(w, h, 24);
        f.resize(200, 0);
        EXPECT_EQ(LoadBmp(f, img), kBmpBadData) << w << "x" << h;
        EXPECT_TRUE(img.IsNull());
    }
}

TEST_F(Bmp, UndecodedDepthsGiveABlankPictureOfTheFileSize)
{
    std::vector<uint8_t> f = BmpHeader(4, 3, 32);
    f.resize(54 + 48, 0xEE);
    COLImage img;
    EXPECT_EQ(LoadBmp(f, img), kOk);
    EXPECT_EQ(vmtest::Size(img), "4x3");
}

TEST_F(Bmp, ReadsAPhotoWrittenByAnotherProgram)
{
    // sample-small.bmp was written by ImageMagick (BMP3, 24 bit, bottom-up).
    COLImage img;
    ASSERT_EQ(img.LoadFromFile(vmtest::AssetPath("samples/sample-small.bmp").c_str()), kOk);
    EXPECT_EQ(vmtest::Size(img), "160x107");
    // The file's last pixel data (top-right of the picture, as stored last) must land in row 0.
    const std::vector<uint8_t> f = vmtest::ReadAll(vmtest::AssetPath("samples/sample-small.bmp"));
    const uint32_t offset = codec::Le32(&f[10]), stride = (160 * 3 + 3) / 4 * 4;
    const size_t topRight = offset + size_t(106) * stride + 159 * 3;
    EXPECT_EQ(img.GetPixel2(159, 0).blue, f[topRight]);
    EXPECT_EQ(img.GetPixel2(159, 0).red, f[topRight + 2]);
    EXPECT_EQ(img.GetPixel2(0, 106).green, f[offset + 1]); // the bottom-left pixel is stored first
}

TEST_F(Bmp, FailedWriteKeepsTheOldFile)
{
    const std::string path = dir.File("keep.bmp");
    vmtest::WriteAll(path, {1, 2, 3});
    COLImage empty;
    EXPECT_NE(empty.SaveToFile(path.c_str()), kOk);
    EXPECT_EQ(vmtest::ReadAll(path).size(), 3u);
    COLImage img = vmtest::Noise(2, 2, 1);
    EXPECT_EQ(img.SaveToFile((dir.File("no/such/folder.bmp")).c_str()), kBmpCannotOpen);
    // No temporary files are left beside the target.
    EXPECT_EQ(vmtest::EntryCount(dir.Path()), 1u);
}
