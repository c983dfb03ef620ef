#include <gtest/gtest.h>
#include <string>

#include "commands/command.h"

namespace {

std::vector<std::string> Args(const char* text, bool& ok)
{
    CCommand c;
    ok = ParseCommand(text, c);
    return c.args;
}

bool Parses(const char* text)
{
    CCommand c;
    return ParseCommand(text, c);
}

} // namespace

TEST(CommandParse, NamesAndArguments)
{
    CCommand c;
    ASSERT_TRUE(ParseCommand("Doc_SelectAll", c));
    EXPECT_EQ(c.name, "Doc_SelectAll");
    EXPECT_TRUE(c.args.empty());
    ASSERT_TRUE(ParseCommand("Doc_LayerPropertyChange('2','3','128')", c));
    EXPECT_EQ(c.name, "Doc_LayerPropertyChange");
    EXPECT_EQ(c.args, (std::vector<std::string>{"2", "3", "128"}));
    ASSERT_TRUE(ParseCommand("Doc_X('a')", c));
    EXPECT_EQ(c.args.size(), 1u) << "arguments of an earlier parse are dropped";

    bool ok = false;
    EXPECT_EQ(Args("X('1' ,  '2'  )", ok), (std::vector<std::string>{"1", "2"}));
    EXPECT_TRUE(ok) << "blanks between arguments and before the parenthesis";
    EXPECT_EQ(Args("X('',' b ')", ok), (std::vector<std::string>{"", "b "}));
    EXPECT_TRUE(ok) << "an empty argument; blanks at an argument's start are skipped";
    EXPECT_EQ(Args("X('1' junk '2')", ok), (std::vector<std::string>{"1", "2"}));
    EXPECT_TRUE(ok) << "anything up to the next quote is skipped";
    EXPECT_EQ(Args("X('1')trailing", ok), (std::vector<std::string>{"1"}));
    EXPECT_TRUE(ok);
    EXPECT_EQ(Args("X(\"1')", ok), (std::vector<std::string>{"1"})) << "the opening quote is not looked at";
    EXPECT_TRUE(ok);
    EXPECT_EQ(Args("X('10,-5')", ok), (std::vector<std::string>{"10,-5"}));
}

TEST(CommandParse, MalformedTextsFail)
{
    EXPECT_FALSE(Parses("Doc_X()")) << "the ')' is skipped unseen and the end follows";
    EXPECT_FALSE(Parses("Doc_X( '1')")) << "a blank takes the opening quote's place";
    EXPECT_FALSE(Parses("Doc_X('1'")) << "complete argument, no closing parenthesis";
    EXPECT_FALSE(Parses("Doc_X('1',")) << "no further quote";
    EXPECT_FALSE(Parses("Doc_X('1"));
    EXPECT_FALSE(Parses("Doc_X("));
    EXPECT_FALSE(Parses(nullptr));
    const std::string arg32(32, 'a');
    EXPECT_TRUE(Parses(("X('" + arg32 + "')").c_str()));
    EXPECT_FALSE(Parses(("X('" + arg32 + "a')").c_str()));
    EXPECT_TRUE(Parses(std::string(63, 'N').c_str()));
    EXPECT_FALSE(Parses(std::string(64, 'N').c_str()));
    EXPECT_FALSE(Parses((std::string(64, 'N') + "('1')").c_str()));
    std::string longText = "X(";
    while (longText.size() < 500)
        longText += "'1',";
    EXPECT_TRUE(Parses((longText + "'1')").c_str()));
    longText += std::string(20, ' ');
    EXPECT_FALSE(Parses((longText + "'1')").c_str())) << "texts of 512 bytes or more";
}

TEST(CommandParse, ParseIntFieldIsLenient)
{
    int v = 99;
    EXPECT_TRUE(ParseIntField("x12", v));
    EXPECT_EQ(v, 12);
    EXPECT_TRUE(ParseIntField("-5", v));
    EXPECT_EQ(v, -5);
    EXPECT_TRUE(ParseIntField("ab-7cd", v));
    EXPECT_EQ(v, -7);
    EXPECT_TRUE(ParseIntField("+8", v));
    EXPECT_EQ(v, 8);
    EXPECT_TRUE(ParseIntField("- 3", v)) << "the sign must stand right before the digits";
    EXPECT_EQ(v, 3);
    EXPECT_TRUE(ParseIntField("12x34", v));
    EXPECT_EQ(v, 12);
    EXPECT_TRUE(ParseIntField("-2147483648", v));
    EXPECT_EQ(v, -2147483647 - 1);
    v = 5;
    EXPECT_FALSE(ParseIntField("", v));
    EXPECT_FALSE(ParseIntField("abc", v));
    EXPECT_FALSE(ParseIntField("2147483648", v));
    EXPECT_FALSE(ParseIntField("99999999999999999999", v));
    EXPECT_FALSE(ParseIntField(nullptr, v));
    EXPECT_EQ(v, 5);
}
