#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "support/engine_checks.h"
#include "support/test_support.h"

TEST(Channel, CreateAlignsAndDuplicateCopies)
{
    COLChannel a = vmtest::NoisePlane(13, 7, 3), b;
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
    COLImage img = vmtest::Noise(5, 4, 8);
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
    COLChannel a = vmtest::NoisePlane(32, 16, 1), b = vmtest::NoisePlane(32, 16, 2);
    // Make sure the special values 0 and 255 of the other plane occur.
    b.GetBuffer()[0] = 0;
    b.GetBuffer()[1] = 255;
    COLChannel sum = vmtest::Copy(a), diff = vmtest::Copy(a);
    EXPECT_EQ(sum.Add(&b), &sum);
    EXPECT_EQ(diff.Subtract(&b), &diff);
    for (uint32_t i = 0; i < a.GetAreaByteSize(); ++i) {
        const int av = a.GetBuffer()[i], bv = b.GetBuffer()[i];
        const int added = bv == 255 ? 255 : bv == 0 ? av : ((255 - bv) * av + 255 * bv) / 255;
        const int taken = bv == 255 ? 0 : bv == 0 ? av : (255 - bv) * av / 255;
        ASSERT_EQ(sum.GetBuffer()[i], added) << i;
        ASSERT_EQ(diff.GetBuffer()[i], taken) << i;
    }
}

TEST(Channel, AnEmptyPlaneTakesTheOtherAndAMismatchedOneIsLeftAlone)
{
    COLChannel b = vmtest::NoisePlane(4, 4, 6), c = vmtest::NoisePlane(4, 5, 7);
    COLChannel added, taken;
    added.Add(&b);
    taken.Subtract(&b);
    EXPECT_EQ(vmtest::Bytes(added), vmtest::Bytes(b));
    EXPECT_EQ(vmtest::Bytes(taken), vmtest::Bytes(b));
    const std::vector<uint8_t> before = vmtest::Bytes(b);
    COLChannel none;
    b.Add(&c);
    b.Subtract(&c);
    b.Add(&none);
    EXPECT_EQ(vmtest::Bytes(b), before);
}

TEST(Channel, SquareAndIsAllZero)
{
    COLChannel c;
    c.Create(4, 1);
    const uint8_t v[4] = {0, 15, 128, 255};
    std::memcpy(c.GetBuffer(), v, 4);
    c.Square();
    EXPECT_EQ(vmtest::Bytes(c), (std::vector<uint8_t>{0, 0, 64, 255}));   // 225 / 255, 16384 / 255
    EXPECT_EQ(c.IsAllZero(), 0);
    std::memset(c.GetBuffer(), 0, 4);
    EXPECT_EQ(c.IsAllZero(), 1);
    COLChannel none;
    EXPECT_EQ(none.IsAllZero(), 1);
}

TEST(Channel, SaveToFileDumpsAGrayPicture)
{
    vmtest::TempDir dir;
    COLChannel c = vmtest::NoisePlane(9, 3, 12);
    c.SaveToFile(dir.File("mask.bmp").c_str());
    COLImage back;
    ASSERT_EQ(back.LoadFromFile(dir.File("mask.bmp").c_str()), kOk);
    // The dump writer stores rows top first, so the reader returns them upside down.
    const COLChannel upsideDown = vmtest::PlaneOf(9, 3, [&](uint32_t x, uint32_t y) { return c.GetValue(x, 2 - y); });
    EXPECT_TRUE(vmtest::SameColours(back, vmtest::GrayPicture(upsideDown)));
}
