#include <gtest/gtest.h>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "support/engine_checks.h"
#include "support/test_support.h"

TEST(Pixel, GrayStoresIntoAlphaOnlyThroughGetGray)
{
    CPixel white = CPixel::Make(255, 255, 255, 7);
    EXPECT_EQ(white.GetGray2(), 255);
    EXPECT_EQ(white.alpha, 7);
    EXPECT_EQ(white.GetGray(), 255);
    EXPECT_EQ(white.alpha, 255);
    CPixel p = CPixel::Make(10, 20, 33, 0);   // (30 + 120 + 33) / 10 = 18
    EXPECT_EQ(p.GetGray2(), 18);
}

TEST(Pixel, ComparisonAndDistanceIgnoreAlpha)
{
    CPixel a = CPixel::Make(1, 2, 3, 0), b = CPixel::Make(1, 2, 3, 255);
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
    EXPECT_EQ(a - b, 0);
    CPixel c = CPixel::Make(255, 0, 10, 9);
    EXPECT_EQ(a - c, 254 + 2 + 7);
    EXPECT_EQ(CPixel::Make(0, 0, 0) - CPixel::Make(255, 255, 255), 765);
}

TEST(Pixel, AddSubtractSaturateAndKeepAlpha)
{
    CPixel p = CPixel::Make(200, 100, 5, 77);
    p += -300;
    EXPECT_EQ(p.Word(), 0x4D000000u);
    p = CPixel::Make(200, 100, 5, 77);
    p += 100;
    EXPECT_EQ(p.Word(), CPixel::Make(255, 200, 105, 77).Word());
    p -= 150;
    EXPECT_EQ(p.Word(), CPixel::Make(105, 50, 0, 77).Word());
    EXPECT_EQ(CPixel::FromWord(0x11223344).red, 0x22);
}

TEST(Image, CreateAlignsAndReusesOnlyAtTheSameSize)
{
    COLImage img;
    ASSERT_EQ(img.Create(3, 5), kOk);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(img.GetBuffer()) % 16, 0u);
    EXPECT_EQ(img.GetAreaByteSize(), 60u);
    img.PutPixel(2, 4, CPixel::FromWord(0xDEADBEEF));
    CPixel* before = img.GetBuffer();
    ASSERT_EQ(img.Create(3, 5), kOk);
    EXPECT_EQ(img.GetBuffer(), before);
    EXPECT_EQ(img.GetPixel(2, 4), 0xDEADBEEFu);
    ASSERT_EQ(img.Create(5, 3), kOk);
    EXPECT_EQ(img.GetWidth(), 5u);
    EXPECT_EQ(img.GetAreaByteSize(), 60u);
}

TEST(Image, FreeKeepsSizeAndMoveTransfersOwnership)
{
    COLImage img;
    img.Create(4, 2);
    img.Free();
    EXPECT_TRUE(img.IsNull());
    uint32_t w = 0, h = 0;
    img.GetSize(w, h);
    EXPECT_EQ(std::make_pair(w, h), std::make_pair(4u, 2u));
    img.Create(2, 2);
    COLImage moved(std::move(img));
    EXPECT_TRUE(img.IsNull());
    EXPECT_FALSE(moved.IsNull());
}

TEST(Image, DuplicateFromReusesALargeEnoughBlock)
{
    COLImage big = vmtest::Noise(100, 100, 1);
    const COLImage small = vmtest::Noise(2, 2, 2), three = vmtest::Noise(3, 3, 3);
    CPixel* block = big.GetBuffer();
    ASSERT_EQ(big.DuplicateFrom(&small), 1);
    EXPECT_EQ(big.GetBuffer(), block);
    EXPECT_EQ(big.GetAreaByteSize(), 16u);
    EXPECT_TRUE(vmtest::SamePixels(big, small));   // sizes included
    // The spare capacity is forgotten: a 3 x 3 picture gets a block of its own size (AddressSanitizer sees any
    // access past it).
    ASSERT_EQ(big.DuplicateFrom(&three), 1);
    EXPECT_EQ(big.GetAreaByteSize(), 36u);
    EXPECT_TRUE(vmtest::SamePixels(big, three));

    COLImage empty;
    EXPECT_EQ(big.DuplicateFrom(&empty), 0);
    EXPECT_EQ(big.DuplicateFrom(nullptr), 0);
    EXPECT_TRUE(vmtest::SamePixels(big, three));
}

TEST(Image, SafePixelClampsNegativeToTheFarEdge)
{
    const COLImage img = vmtest::Picture(4, 3, [](uint32_t x, uint32_t y) { return CPixel::FromWord(y * 16 + x); });
    EXPECT_EQ(img.GetSafePixel(-1, 0).Word(), 3u);
    EXPECT_EQ(img.GetSafePixel(1, -5).Word(), 2u * 16 + 1);
    EXPECT_EQ(img.GetSafePixel(9, 9).Word(), 2u * 16 + 3);
    EXPECT_EQ(img.GetSafePixel(2, 1).Word(), 16u + 2);
}

TEST(Image, AveragePixelDividesByCountPlusOneWithoutWrapping)
{
    // == compares the colour only.
    EXPECT_TRUE(vmtest::Row({CPixel::Make(255, 255, 255)}).GetAveragePixel() == CPixel::Make(127, 127, 127));
    const COLImage three = vmtest::Row({CPixel::Make(40, 0, 8), CPixel::Make(40, 0, 8), CPixel::Make(40, 3, 8)});
    EXPECT_TRUE(three.GetAveragePixel() == CPixel::Make(30, 0, 6));
    // A large white photo does not wrap the sum.
    const COLImage img = vmtest::Solid(5000, 4000, CPixel::FromWord(0xFFFFFFFF));
    EXPECT_EQ(img.GetAveragePixel().red, 254);   // 255 * n / (n + 1) truncates to 254
}

TEST(Image, BuildGrayChannelWritesAlphaAndSums)
{
    COLImage img = vmtest::Noise(7, 5, 11);
    uint32_t expected = 0;
    for (size_t i = 0; i < img.GetPixelCount(); ++i) expected += img.GetBuffer()[i].GetGray2();
    EXPECT_EQ(img.BuildGrayChannel(), expected);
    for (size_t i = 0; i < img.GetPixelCount(); ++i) EXPECT_EQ(img.GetBuffer()[i].alpha, img.GetBuffer()[i].GetGray2());
    COLImage empty;
    EXPECT_EQ(empty.BuildGrayChannel(), 0u);
}

TEST(Image, ChannelFromInstallsAPlaneAndClampsTheIndex)
{
    COLImage img = vmtest::Noise(6, 4, 5);
    COLImage original = vmtest::Copy(img);
    COLChannel ch = vmtest::NoisePlane(6, 4, 9);
    ASSERT_EQ(img.ChannelFrom(&ch, 7), 1);
    for (size_t i = 0; i < img.GetPixelCount(); ++i) {
        EXPECT_EQ(img.GetBuffer()[i].alpha, ch.GetBuffer()[i]);
        EXPECT_TRUE(img.GetBuffer()[i] == original.GetBuffer()[i]);
    }
    ASSERT_EQ(img.ChannelFrom(&ch, -3), 1);
    EXPECT_EQ(img.GetBuffer()[5].blue, ch.GetBuffer()[5]);

    COLChannel other;
    other.Create(5, 4);
    COLImage before = vmtest::Copy(img);
    EXPECT_EQ(img.ChannelFrom(&other, 3), 0);
    EXPECT_TRUE(vmtest::SamePixels(img, before));
    EXPECT_EQ(img.ChannelFrom(nullptr, 3), 0);
}

namespace {

// Straightforward reading of the edge detector, written independently of the library.
std::vector<uint8_t> ReferenceLaplace(const COLImage& src)
{
    const int w = int(src.GetWidth()), h = int(src.GetHeight());
    std::vector<int> gray(size_t(w) * h);
    for (int i = 0; i < w * h; ++i) {
        const CPixel p = src.GetBuffer()[i];
        gray[i] = (3 * p.red + 6 * p.green + p.blue) / 10;
    }
    std::vector<uint8_t> a(size_t(w) * h, 0);
    for (int y = 3; y <= h - 4; ++y)
        for (int x = 3; x <= w - 4; ++x) {
            int L = 4 * gray[y * w + x] - gray[y * w + x - 3] - gray[y * w + x + 3] - gray[(y - 3) * w + x] -
                    gray[(y + 3) * w + x];
            int v = (L < 0 ? -L : L) % 256;
            a[y * w + x] = v < 32 ? 0 : uint8_t(v);
        }
    std::vector<uint8_t> out = a;
    for (int y = 1; y <= h - 2; ++y)
        for (int x = 1; x <= w - 2; ++x) {
            int n = 0;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) n += (dx || dy) && a[(y + dy) * w + x + dx] != 0;
            if (n < 5) out[y * w + x] = 0;
        }
    return out;
}

} // namespace

TEST(Image, LaplaceMatchesAnIndependentReading)
{
    // Blocky noise gives clusters of edges that survive the isolated-dot filter.
    COLImage noise = vmtest::Noise(8, 6, 21);
    COLImage img = vmtest::Picture(40, 30, [&](uint32_t x, uint32_t y) { return noise.GetPixel2(x / 5, y / 5); });
    const std::vector<uint8_t> expected = ReferenceLaplace(img);
    img.ComputeLaplasToAlpha();
    int nonZero = 0;
    for (size_t i = 0; i < img.GetPixelCount(); ++i) {
        ASSERT_EQ(img.GetBuffer()[i].alpha, expected[i]) << "pixel " << i;
        nonZero += expected[i] != 0;
    }
    EXPECT_GT(nonZero, 50);
}

TEST(Image, LaplaceTruncatesToTheLowByteAndClearsSmallPictures)
{
    // A bright dot of gray 64 on black: L = 256 at the centre truncates to 0.
    COLImage img = vmtest::Solid(7, 7, CPixel{});
    img.PutPixel(3, 3, CPixel::Make(64, 64, 64));
    img.ComputeLaplasToAlpha();
    for (size_t i = 0; i < img.GetPixelCount(); ++i) EXPECT_EQ(img.GetBuffer()[i].alpha, 0);

    COLImage small = vmtest::Noise(6, 6, 4);
    small.ComputeLaplasToAlpha();
    for (size_t i = 0; i < small.GetPixelCount(); ++i) EXPECT_EQ(small.GetBuffer()[i].alpha, 0);
}
