#include <filesystem>
#include <gtest/gtest.h>

#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "interchange/companion.h"
#include "interchange/host_result.h"
#include "interchange/psd_reader.h"
#include "support/engine_checks.h"
#include "support/media_checks.h"
#include "support/test_support.h"

namespace {

TEST(Companion, ExchangeNameHasTheSecond)
{
    std::tm when{};
    when.tm_year = 2026 - 1900;
    when.tm_mon = 0;
    when.tm_mday = 9;
    when.tm_hour = 7;
    when.tm_min = 5;
    when.tm_sec = 3;
    EXPECT_EQ(CompanionExchangePath("/tmp/", when), "/tmp/V20260109070503.vmh");
    EXPECT_EQ(CompanionResultPath("/tmp/V20260109070503.vmh"), "/tmp/V20260109070503.vmh.bmp");
}

// The editor's colours replace the layer's; alpha stays; with a selection only where it is, softly, by the mask
// byte at the document position (the layer sits at an offset, and hangs over the mask's edge).
TEST(Companion, EditsComeBackOnlyWhereSelected)
{
    CLayer layer;
    layer.m_image = vmtest::Noise(6, 4, 1);
    layer.m_x = 3;
    layer.m_y = -1;
    const COLImage edited = vmtest::Noise(6, 4, 2), before = vmtest::Copy(layer.m_image);

    EXPECT_FALSE(ApplyCompanionEdit(layer, vmtest::Noise(6, 5, 3), nullptr)); // another size: dropped
    EXPECT_TRUE(vmtest::SamePixels(layer.m_image, before));

    COLChannel mask = vmtest::NoisePlane(7, 3, 4); // the document is 7 x 3
    mask.GetBuffer(4, 0)[0] = 0;                   // layer pixel (1, 1): stays
    // layer pixel (2, 1): the edit whole
    mask.GetBuffer(5, 0)[0] = 255;
    ASSERT_TRUE(ApplyCompanionEdit(layer, edited, &mask));
    const COLImage expected = vmtest::Picture(6, 4, [&](uint32_t x, uint32_t y) {
        const int dx = 3 + int(x), dy = -1 + int(y);
        const int m = dx < 7 && dy >= 0 && dy < 3 ? mask.GetValue(dx, dy) : 0;
        const CPixel o = before.GetPixel2(x, y), e = edited.GetPixel2(x, y);
        auto mix = [m](int edit, int old) { return uint8_t((edit * m + old * (255 - m)) / 255); };
        return CPixel::Make(mix(e.red, o.red), mix(e.green, o.green), mix(e.blue, o.blue), o.alpha);
    });
    EXPECT_EQ(vmtest::Bytes(layer.m_image), vmtest::Bytes(expected));
}

TEST(HostResult, RawAndPsdForms)
{
    vmtest::TempDir dir;
    const COLImage working = vmtest::Noise(5, 3, 1);
    const COLChannel plane = vmtest::NoisePlane(5, 3, 2);
    const std::string raw = dir.File("result.raw");
    ASSERT_TRUE(WriteHostResult(raw, 0, working, plane));
    vmtest::ByteWriter expected; // width and height, then blue, green, red and the plane's byte of each pixel
    expected.U32(5);
    expected.U32(3);
    for (size_t i = 0; i < 15; ++i)
        expected.U32((working.GetBuffer()[i].Word() & 0xFFFFFFu) | uint32_t(plane.GetBuffer()[i]) << 24);
    EXPECT_EQ(vmtest::ReadAll(raw), expected);

    const std::string base = dir.File("result");
    ASSERT_TRUE(WriteHostResult(base, 3, working, plane));
    EXPECT_FALSE(std::filesystem::exists(base));
    CLayerStack stack;
    CPsdReader reader;
    ASSERT_EQ(reader.LoadFile((base + ".24bit.psd").c_str(), stack), 1);
    ASSERT_EQ(stack.GetLayerCount(), 1);
    EXPECT_EQ(stack.GetLayer(0)->m_image.GetBuffer()[7].alpha, plane.GetBuffer()[7]);

    EXPECT_FALSE(WriteHostResult(dir.File("bad"), 0, working, vmtest::NoisePlane(4, 3, 2)));
    EXPECT_FALSE(WriteHostResult(dir.File("no/folder/x"), 0, working, plane));
    EXPECT_FALSE(std::filesystem::exists(dir.File("bad")));
}

} // namespace
