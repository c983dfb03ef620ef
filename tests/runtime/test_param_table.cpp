#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "runtime/param_table.h"

namespace {

struct Inner {
    int32_t low = 10;
    int32_t high = 200;
};

struct Settings {
    int32_t count = 5;
    double radius = 1.5;
    uint32_t keep = 1;
    int32_t mode = 0;
    Inner range;
    double need = 0;
};

const vmparam::ParamTable& Table()
{
    using vmparam::At;
    static const vmparam::ParamTable table{
        "demo",
        {vmparam::Int("count", At<&Settings::count>(), -3, 12, "how many"),
         vmparam::Real("radius", At<&Settings::radius>(), 0, 50, "how far"),
         vmparam::Flag("no-keep", At<&Settings::keep>(), 0, "drop it"),
         vmparam::Choice("mode", At<&Settings::mode>(), "fast|exact|both", "which way"),
         vmparam::IntPair("range", At<&Settings::range, &Inner::low>(), At<&Settings::range, &Inner::high>(), 0,
                          255, "from where to where"),
         vmparam::Real("need", At<&Settings::need>(), 0.5, 2, "must be given", true)}};
    return table;
}

std::string Parse(const char* name, const std::string& text, Settings& s)
{
    const vmparam::Param* p = Table().Find(name);
    EXPECT_NE(p, nullptr) << name;
    return p ? vmparam::ParseValue(*p, text, &s) : "no such parameter";
}

} // namespace

TEST(ParamTable, ValuesWithinTheirRangesReachTheirFields)
{
    Settings s;
    // Each value in turn, then the record: the ends of each range are inside it.
    const std::pair<const char*, const char*> values[] = {
        {"count", "-3"}, {"radius", "0.25"}, {"range", "0,255"}, {"no-keep", ""}, {"mode", "both"},
    };
    for (auto [name, text] : values) EXPECT_EQ(Parse(name, text, s), "") << name;
    EXPECT_EQ(std::make_tuple(s.count, s.radius, s.range.low, s.range.high, s.keep, s.mode),
              std::make_tuple(-3, 0.25, 0, 255, 0u, 2));
    const std::pair<const char*, const char*> again[] = {{"count", "12"}, {"radius", "50"}, {"range", "7,8"},
                                                         {"no-keep", ""}};   // given twice it stays off
    for (auto [name, text] : again) EXPECT_EQ(Parse(name, text, s), "") << name;
    EXPECT_EQ(std::make_tuple(s.count, s.radius, s.range.low, s.range.high, s.keep),
              std::make_tuple(12, 50.0, 7, 8, 0u));
}

TEST(ParamTable, RefusalsNameTheOptionSayWhatItTakesAndLeaveTheFieldAlone)
{
    Settings s;
    const Settings fresh;
    const struct {
        const char* name;
        const char* says;
        std::vector<const char*> bad;
    } refusals[] = {
        {"count", "a whole number from -3 to 12",
         {"13", "-4", "", "5x", " 5", "+5", "2.5", "0x10", "99999999999999999999999"}},
        {"radius", "a number from 0 to 50", {"50.01", "-0.1", "nan", "inf", "1e999", "one", ""}},
        {"range", "LO,HI with 0 <= LO < HI <= 255",
         {"10,10", "20,10", "10", "10,", ",10", "-1,5", "5,256", "a,b", "1,2,3"}},
    };
    for (const auto& r : refusals)
        for (const char* bad : r.bad)
            EXPECT_EQ(Parse(r.name, bad, s), std::string("--") + r.name + " takes " + r.says + ", not '" + bad + "'");
    EXPECT_EQ(Parse("mode", "Fast", s), "--mode takes fast, exact or both, not 'Fast'");
    EXPECT_EQ(Parse("no-keep", "yes", s), "--no-keep takes no value");
    EXPECT_EQ(std::tie(s.count, s.radius, s.range.low, s.range.high, s.mode, s.keep),
              std::tie(fresh.count, fresh.radius, fresh.range.low, fresh.range.high, fresh.mode, fresh.keep));
}

TEST(ParamTable, HelpShowsRangesAndTheDefaultsOfAFreshRecord)
{
    const Settings defaults;
    const std::string help = vmparam::HelpText(Table(), &defaults);
    for (const char* part : {"--count N", "how many (a whole number from -3 to 12; default 5)",
                             "(a number from 0 to 50; default 1.5)", "--mode fast|exact|both", "default fast)",
                             "default 10,200)", "(a number from 0.5 to 2; required)"})
        EXPECT_NE(help.find(part), std::string::npos) << part << " in\n" << help;
    EXPECT_EQ(vmparam::Synopsis(Table()),
              "[--count N] [--radius X] [--no-keep] [--mode fast|exact|both] [--range LO,HI] --need X");
    Settings changed;
    changed.mode = 1;
    changed.keep = 0;
    EXPECT_EQ(vmparam::FormatValue(*Table().Find("mode"), &changed), "exact");
    EXPECT_EQ(vmparam::FormatValue(*Table().Find("no-keep"), &changed), "on");
    EXPECT_EQ(vmparam::FormatValue(*Table().Find("no-keep"), &defaults), "off");
}
