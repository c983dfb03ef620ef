#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "imaging/gbk_text.h"

TEST(GbkText, RoundTripAndRejects)
{
    std::string gbk, back;
    ASSERT_TRUE(Utf8ToGbk("图层12 ok", gbk));
    EXPECT_EQ(gbk, "\xCD\xBC\xB2\xE3"
                   "12 ok");
    ASSERT_TRUE(GbkToUtf8(gbk, back));
    EXPECT_EQ(back, "图层12 ok");
    std::string untouched = "keep";
    EXPECT_FALSE(Utf8ToGbk("\xFF\xFE", untouched)) << "not UTF-8";
    EXPECT_FALSE(Utf8ToGbk("😀", untouched)) << "no GBK form";
    EXPECT_EQ(untouched, "keep");
    EXPECT_EQ(GbkForDisplay("a\xCD\xBC"), "a图");
    EXPECT_EQ(GbkForDisplay("a\xFF"), "a\\xFF");
}

TEST(GbkText, FieldCutsWholeCharacters)
{
    char field[8];
    std::memset(field, 'x', sizeof field);
    // 7 text bytes fit; the fourth character would need bytes 7 and 8.
    EXPECT_EQ(CopyGbkField(field, sizeof field, "a\xCD\xBC\xB2\xE3\xB1\xB3"), 7u);
    EXPECT_EQ(std::string(field), "a\xCD\xBC\xB2\xE3\xB1\xB3");
    EXPECT_EQ(CopyGbkField(field, sizeof field, "\xCD\xBC\xB2\xE3\xB1\xB3\xBE\xB0"), 6u);
    EXPECT_EQ(std::string(field), "\xCD\xBC\xB2\xE3\xB1\xB3");
    EXPECT_EQ(field[7], '\0');
    EXPECT_EQ(CopyGbkField(field, sizeof field, "ab\xCD"), 2u) << "a lone lead byte at the end is dropped";
    EXPECT_EQ(CopyGbkField(field, 1, "abc"), 0u);
    EXPECT_EQ(field[0], '\0');
}
