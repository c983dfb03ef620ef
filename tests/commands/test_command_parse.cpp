#include <gtest/gtest.h>
#include <string>

#include "commands/command.h"

namespace {

bool Parses(const char* text)
{
    CCommand c;
    return ParseCommand(text, c);
}

} // namespace

TEST(CommandParse, NamesAndArguments)
{
    CCommand c;   // one record for every text: the arguments of an earlier parse must be dropped
    const struct {
        const char* text;
        const char* name;
        std::vector<std::string> args;
    } cases[] = {
        {"Doc_LayerPropertyChange('2','3','128')", "Doc_LayerPropertyChange", {"2", "3", "128"}},
        {"Doc_SelectAll", "Doc_SelectAll", {}},
        {"X('1' ,  '2'  )", "X", {"1", "2"}},   // blanks between arguments and before the parenthesis
        {"X('',' b ')", "X", {"", "b "}},       // an empty argument; blanks at an argument's start are skipped
        {"X('1' junk '2')", "X", {"1", "2"}},   // anything up to the next quote is skipped
        {"X('1')trailing", "X", {"1"}},
        {"X(\"1')", "X", {"1"}},               // the opening quote is not looked at
        {"X('10,-5')", "X", {"10,-5"}},
    };
    for (const auto& k : cases) {
        ASSERT_TRUE(ParseCommand(k.text, c)) << k.text;
        EXPECT_EQ(c.name, k.name) << k.text;
        EXPECT_EQ(c.args, k.args) << k.text;
    }
}

TEST(CommandParse, MalformedTextsFail)
{
    // The ')' skipped unseen and then the end; a blank in the opening quote's place; a complete argument and no
    // closing parenthesis; no further quote; an argument or a list that is never closed; no text.
    for (const char* text :
         {"Doc_X()", "Doc_X( '1')", "Doc_X('1'", "Doc_X('1',", "Doc_X('1", "Doc_X(", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(Parses(text)) << (text ? text : "null");
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
    const std::pair<const char*, int> cases[] = {
        {"x12", 12}, {"-5", -5}, {"ab-7cd", -7}, {"+8", 8}, {"12x34", 12}, {"-2147483648", -2147483647 - 1},
        {"- 3", 3},   // the sign must stand right before the digits
    };
    for (auto [text, value] : cases) {
        int v = 99;
        EXPECT_TRUE(ParseIntField(text, v)) << text;
        EXPECT_EQ(v, value) << text;
    }
    int v = 5;
    for (const char* text : {"", "abc", "2147483648", "99999999999999999999", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(ParseIntField(text, v)) << (text ? text : "null");
    EXPECT_EQ(v, 5);
}
