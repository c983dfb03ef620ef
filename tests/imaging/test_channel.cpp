#include <gtest/gtest.h>

#include <cstring>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "support/test_support.h"

TEST(Channel, CreateAlignsAndDuplicateCopies)
{
    COLChannel a, b;
    vmtest::FillNoise(a, 13, 7, 3);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(a.GetBuffer()) % 16, 0u);
    EXPECT_EQ(a.GetAreaByteSize(), 91u);
    ASSERT_EQ(b.DuplicateFrom(&a), 1);
    EXPECT_EQ(0, std::memcmp(a.GetBuffer(), b.GetBuffer(), 91));
    COLChannel empty;
    EXPECT_EQ(b.DuplicateFrom(&empty), 0);
    a.Free();
    EXPECT_TRUE(a.IsNull());
    EXPECT_EQ(a.GetWidth(), 13u);
}

TEST(Channel, ExtractFromTakesOneByteOfEachPixel)
{
    COLImage img;
    vmtest::FillNoise(img, 5, 4, 8);
    COLChannel ch;
    for (int index = 0; index < 4; ++index) {
        ASSERT_EQ(ch.ExtractFrom(&img, index), 1);
        for (size_t i = 0; i < img.GetPixelCount(); ++i)
            ASSERT_EQ(ch.GetBuffer()[i], reinterpret_cast<const uint8_t*>(img.GetBuffer() + i)[index]);
    }
    COLImage empty;
    EXPECT_EQ(ch.ExtractFrom(&empty, 3), 0);
}

TEST(Channel, AddAndSubtractFollowTheSoftMaskFormulas)
{
    COLChannel a, b;
    vmtest::FillNoise(a, 32, 16, 1);
    vmtest::FillNoise(b, 32, 16, 2);
    // Make sure the special values 0 and 255 of the other plane occur.
    b.GetBuffer()[0] = 0;
    b.GetBuffer()[1] = 255;
    COLChannel sum, diff;
    sum.DuplicateFrom(&a);
    diff.DuplicateFrom(&a);
    EXPECT_EQ(sum.Add(&b), &sum);
    EXPECT_EQ(diff.Subtract(&b), &diff);
    for (uint32_t i = 0; i < a.GetAreaByteSize(); ++i) {
        const int av = a.GetBuffer()[i], bv = b.GetBuffer()[i];
        const int added = bv == 255 ? 255 : bv == 0 ? av : ((255 - bv) * av + 255 * bv) / 255;
        const int taken = bv == 255 ? 0 : bv == 0 ? av : (255 - bv) * av / 255;
        ASSERT_EQ(sum.GetBuffer()[i], added) << i;
        ASSERT_EQ(diff.GetBuffer()[i], taken) << i;
    }
    EXPECT_EQ(sum.GetBuffer()[1], 255);
    EXPECT_EQ(diff.GetBuffer()[1], 0);
    EXPECT_EQ(sum.GetBuffer()[0], a.GetBuffer()[0]);
}

TEST(Channel, AddAndSubtractOnAnEmptyPlaneCopyTheOther)
{
    COLChannel b;
    vmtest::FillNoise(b, 4, 4, 6);
    COLChannel added, taken;
    added.Add(&b);
    taken.Subtract(&b);
    ASSERT_FALSE(taken.IsNull());
    EXPECT_EQ(0, std::memcmp(taken.GetBuffer(), b.GetBuffer(), 16));
    EXPECT_EQ(0, std::memcmp(added.GetBuffer(), b.GetBuffer(), 16));
}

TEST(Channel, MismatchedSizesLeaveThePlaneAlone)
{
    COLChannel a, b;
    vmtest::FillNoise(a, 4, 4, 6);
    vmtest::FillNoise(b, 4, 5, 7);
    COLChannel before;
    before.DuplicateFrom(&a);
    a.Add(&b);
    a.Subtract(&b);
    COLChannel none;
    a.Add(&none);
    EXPECT_EQ(0, std::memcmp(a.GetBuffer(), before.GetBuffer(), 16));
}

TEST(Channel, SquareAndIsAllZero)
{
    COLChannel c;
    c.Create(4, 1);
    const uint8_t v[4] = {0, 15, 128, 255};
    std::memcpy(c.GetBuffer(), v, 4);
    c.Square();
    EXPECT_EQ(c.GetBuffer()[0], 0);
    EXPECT_EQ(c.GetBuffer()[1], 0);   // 225 / 255
    EXPECT_EQ(c.GetBuffer()[2], 64);  // 16384 / 255
    EXPECT_EQ(c.GetBuffer()[3], 255);
    EXPECT_EQ(c.IsAllZero(), 0);
    std::memset(c.GetBuffer(), 0, 4);
    EXPECT_EQ(c.IsAllZero(), 1);
    COLChannel none;
    EXPECT_EQ(none.IsAllZero(), 1);
}

TEST(Channel, SaveToFileDumpsAGrayPicture)
{
    vmtest::TempDir dir;
    COLChannel c;
    vmtest::FillNoise(c, 9, 3, 12);
    c.SaveToFile(dir.File("mask.bmp").c_str());
    COLImage back;
    ASSERT_EQ(back.LoadFromFile(dir.File("mask.bmp").c_str()), kOk);
    // The dump writer stores rows top first, so the reader returns them upside down.
    for (uint32_t y = 0; y < 3; ++y)
        for (uint32_t x = 0; x < 9; ++x) {
            const CPixel p = back.GetPixel2(x, 2 - y);
            EXPECT_EQ(p.red, c.GetValue(x, y));
            EXPECT_EQ(p.green, c.GetValue(x, y));
            EXPECT_EQ(p.blue, c.GetValue(x, y));
        }
}
