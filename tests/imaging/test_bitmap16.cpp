#include <gtest/gtest.h>
#include <utility>
#include <vector>

#include "imaging/bitmap16.h"
#include "imaging/image.h"
#include "support/engine_checks.h"
#include "support/test_support.h"

namespace {
std::vector<uint16_t> Smooth(std::vector<uint16_t> v)
{
    C16BitBitmap::SmoothInChannel(v.data(), int(v.size()), 1);
    return v;
}
} // namespace

TEST(Pixel16, ConversionsRoundAndLimit)
{
    C16BitPixel p{};
    p = CPixel::Make(255, 1, 0);
    EXPECT_EQ(std::make_pair(int(p.red), int(p.green)), std::make_pair(255 * 256, 256));
    EXPECT_EQ(std::make_pair(int(p.GetPixel().red), int(p.GetPixel().green)), std::make_pair(255, 1));
    p.blue = 65535;
    EXPECT_EQ(p.GetPixel().blue, 255);
    p.blue = 383;   // (383 + 128) >> 8 = 1
    EXPECT_EQ(p.GetPixel().blue, 1);
    p.blue = 384;
    EXPECT_EQ(p.GetPixel().blue, 2);
    C16BitPixel q = p;
    EXPECT_TRUE(q == p);
    q.red = 1;
    EXPECT_TRUE(q != p);
    C16BitPixel g{1000, 2000, 3000};
    EXPECT_EQ(g.GetGray(), (9000 + 12000 + 1000) / 10);
}

TEST(Smooth16, RunsRampTowardsTheirNeighbours)
{
    const std::pair<std::vector<uint16_t>, std::vector<uint16_t>> cases[] = {
        {{500, 500, 500, 500}, {500, 500, 500, 500}},
        // The last run is never touched; the first run ramps up towards it.
        {{0, 0, 0, 0, 256, 256, 256, 256}, {0, 0, 0, 64, 256, 256, 256, 256}},
        {{0, 0, 0, 0, 256, 256, 256, 256, 512}, {0, 0, 0, 64, 128, 192, 256, 320, 512}},
        {{255, 255, 0, 0, 0, 0, 9}, {255, 255, 127, 63, 0, 2, 9}},   // going down: d / 2 truncates towards zero
        {{100, 200, 300}, {150, 200, 300}},                          // a single element: the mean of its neighbours
        {{0, 0, 0, 0, 0x800}, {0, 0, 0, 0, 0x800}},                  // edges of 0x800 and more stay sharp
        {{0, 0, 0, 0, 0x7FF}, {0, 0, 0, 0x3FF / 2, 0x7FF}},
        // A long run ramps over eight values and keeps the tail of the run after the ramp.
        {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 256},
         {0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 32, 48, 64, 80, 96, 112, 0, 0, 0, 0, 256}},
    };
    for (const auto& [in, out] : cases) EXPECT_EQ(Smooth(in), out) << in.size() << " values from " << in[0];
}

TEST(Bitmap16, PlainConversionRoundTrips)
{
    COLImage img = vmtest::Noise(9, 7, 4), back;
    C16BitBitmap bmp;
    ASSERT_EQ(bmp.ConvertFromSimpleBitmap(&img, 0), 1);
    EXPECT_EQ(bmp.GetPixel(3, 2).red, img.GetPixel2(3, 2).red * 256);
    ASSERT_EQ(bmp.ConvertToSimpleBitmap(&back, 0), 1);
    EXPECT_TRUE(vmtest::SameColours(img, back));
    ASSERT_EQ(bmp.ConvertToSimpleBitmap(&back, 1), 1);
    EXPECT_TRUE(vmtest::SameColours(img, back));   // exact values carry no error to diffuse
    COLImage empty;
    EXPECT_EQ(bmp.ConvertFromSimpleBitmap(&empty, 0), 0);
    C16BitBitmap none;
    EXPECT_EQ(none.ConvertToSimpleBitmap(&back, 0), 0);
}

TEST(Bitmap16, SmartConversionIsTheMeanOfBothPasses)
{
    // A gentle gradient in both directions, so that both passes ramp.
    COLImage img =
        vmtest::Picture(12, 10, [](uint32_t x, uint32_t y) { return CPixel::Make(uint8_t(x / 3), uint8_t(y / 2), 7); });
    C16BitBitmap bmp;
    ASSERT_EQ(bmp.ConvertFromSimpleBitmap(&img, 1), 1);
    for (uint32_t y = 0; y < 10; ++y) {
        std::vector<uint16_t> row(12), col(10);
        for (uint32_t x = 0; x < 12; ++x) row[x] = uint16_t(img.GetPixel2(x, y).red * 256);
        row = Smooth(row);
        for (uint32_t x = 0; x < 12; ++x) {
            for (uint32_t yy = 0; yy < 10; ++yy) col[yy] = uint16_t(img.GetPixel2(x, yy).red * 256);
            col = Smooth(col);
            ASSERT_EQ(bmp.GetPixel(x, y).red, (row[x] + col[y]) >> 1) << x << "," << y;
        }
    }
    EXPECT_EQ(bmp.GetPixel(3, 0).red, (128 + 256) >> 1);   // the row ramps at a step, the column is flat
}

TEST(Bitmap16, ErrorDiffusionCarriesAQuarterAndChangesTheBitmap)
{
    COLImage img = vmtest::Solid(2, 2, CPixel::Make(0, 0, 0));
    C16BitBitmap bmp;
    ASSERT_EQ(bmp.ConvertFromSimpleBitmap(&img, 0), 1);
    bmp.GetBuffer(0, 0)->blue = 383;   // rounds to 1, residue 127, a quarter is 31
    bmp.GetBuffer(1, 0)->blue = 353;   // alone rounds to 1; with 31 added, 384 rounds to 2
    bmp.GetBuffer(0, 1)->blue = 97;    // alone 0; with 31, 128 rounds to 1
    bmp.GetBuffer(1, 1)->blue = 60000;
    COLImage plain, dithered;
    ASSERT_EQ(bmp.ConvertToSimpleBitmap(&plain, 0), 1);
    EXPECT_EQ(plain.GetPixel2(1, 0).blue, 1);
    EXPECT_EQ(plain.GetPixel2(0, 1).blue, 0);
    ASSERT_EQ(bmp.ConvertToSimpleBitmap(&dithered, 1), 1);
    EXPECT_EQ(dithered.GetPixel2(0, 0).blue, 1);
    EXPECT_EQ(dithered.GetPixel2(1, 0).blue, 2);
    EXPECT_EQ(dithered.GetPixel2(0, 1).blue, 1);
    EXPECT_EQ(bmp.GetPixel(1, 0).blue, 384);   // the bitmap itself took the error
}

TEST(Bitmap16, ASecondDitheredConversionDiffers)
{
    COLImage img, first, second;
    img.Create(2, 1);
    C16BitBitmap bmp;
    ASSERT_EQ(bmp.ConvertFromSimpleBitmap(&img, 0), 1);
    bmp.GetBuffer(0, 0)->green = 383;
    bmp.GetBuffer(1, 0)->green = 330;   // 361 after one pass (rounds to 1), 392 after two (rounds to 2)
    ASSERT_EQ(bmp.ConvertToSimpleBitmap(&first, 1), 1);
    ASSERT_EQ(bmp.ConvertToSimpleBitmap(&second, 1), 1);
    EXPECT_EQ(first.GetPixel2(1, 0).green, 1);
    EXPECT_EQ(second.GetPixel2(1, 0).green, 2);
}
