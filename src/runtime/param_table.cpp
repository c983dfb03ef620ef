#include "runtime/param_table.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace vmparam {

namespace {

std::string Number(double v)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", v);
    return buf;
}

std::vector<std::string> Words(const char* choices)
{
    std::vector<std::string> words(1);
    for (const char* p = choices ? choices : ""; *p; ++p) {
        if (*p == '|')
            words.emplace_back();
        else
            words.back() += *p;
    }
    return words;
}

// The whole text must be the number: no blanks, no trailing characters.
bool WholeNumber(const std::string& text, double min, double max, double& out)
{
    if (text.empty() || text.size() > 20) return false;
    errno = 0;
    char* end = nullptr;
    const long long v = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || text[0] == ' ' || text[0] == '+') return false;
    if (double(v) < min || double(v) > max) return false;
    out = double(v);
    return true;
}

bool RealNumber(const std::string& text, double min, double max, double& out)
{
    if (text.empty() || text[0] == ' ' || text[0] == '+') return false;
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (errno != 0 || *end != '\0' || !std::isfinite(v) || v < min || v > max) return false;
    out = v;
    return true;
}

std::string Metavar(const Param& p)
{
    if (p.metavar) return p.metavar;
    switch (p.kind) {
    case Kind::kInt:
        return "N";
    case Kind::kReal:
        return "X";
    case Kind::kIntPair:
        return "LO,HI";
    case Kind::kChoice:
        return p.choices;
    case Kind::kFlag:
        break;
    }
    return "";
}

Param Make(const char* name, Kind kind, double min, double max, const char* help, Accessor field)
{
    Param p;
    p.name = name;
    p.kind = kind;
    p.min = min;
    p.max = max;
    p.help = help;
    p.set = field.set;
    p.get = field.get;
    return p;
}

std::string Takes(const Param& p)
{
    const std::string lo = Number(p.min), hi = Number(p.max);
    switch (p.kind) {
    case Kind::kInt:
        return "a whole number from " + lo + " to " + hi;
    case Kind::kReal:
        return "a number from " + lo + " to " + hi;
    case Kind::kIntPair:
        return "LO,HI with " + lo + " <= LO < HI <= " + hi;
    case Kind::kChoice: {
        const std::vector<std::string> words = Words(p.choices);
        std::string s;
        for (size_t i = 0; i < words.size(); ++i)
            s += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
        return s;
    }
    case Kind::kFlag:
        break;
    }
    return "no value";
}

} // namespace

const Param* ParamTable::Find(const std::string& name) const
{
    for (const Param& p : params)
        if (name == p.name) return &p;
    return nullptr;
}

Param Int(const char* name, Accessor field, double min, double max, const char* help)
{
    Param p = Make(name, Kind::kInt, min, max, help, field);
    return p;
}

Param Real(const char* name, Accessor field, double min, double max, const char* help, bool required)
{
    Param p = Make(name, Kind::kReal, min, max, help, field);
    p.required = required;
    return p;
}

Param Flag(const char* name, Accessor field, double given, const char* help)
{
    Param p = Make(name, Kind::kFlag, 0, 1, help, field);
    p.given = given;
    return p;
}

Param Choice(const char* name, Accessor field, const char* choices, const char* help)
{
    Param p = Make(name, Kind::kChoice, 0, double(Words(choices).size() - 1), help, field);
    p.choices = choices;
    return p;
}

Param IntPair(const char* name, Accessor low, Accessor high, double min, double max, const char* help)
{
    Param p = Make(name, Kind::kIntPair, min, max, help, low);
    p.set2 = high.set;
    p.get2 = high.get;
    return p;
}

std::string ParseValue(const Param& p, const std::string& text, void* record)
{
    const std::string option = std::string("--") + p.name;
    const auto refuse = [&] { return option + " takes " + Takes(p) + ", not '" + text + "'"; };
    double v = 0;
    switch (p.kind) {
    case Kind::kInt:
        if (!WholeNumber(text, p.min, p.max, v)) return refuse();
        p.set(record, v);
        return "";
    case Kind::kReal:
        if (!RealNumber(text, p.min, p.max, v)) return refuse();
        p.set(record, v);
        return "";
    case Kind::kFlag: {
        if (!text.empty()) return option + " takes no value";
        p.set(record, p.given);
        return "";
    }
    case Kind::kChoice: {
        const std::vector<std::string> words = Words(p.choices);
        for (size_t i = 0; i < words.size(); ++i)
            if (words[i] == text) {
                p.set(record, double(i));
                return "";
            }
        return refuse();
    }
    case Kind::kIntPair: {
        const size_t comma = text.find(',');
        double lo = 0, hi = 0;
        if (comma == std::string::npos || !WholeNumber(text.substr(0, comma), p.min, p.max, lo) ||
            !WholeNumber(text.substr(comma + 1), p.min, p.max, hi) || lo >= hi)
            return refuse();
        p.set(record, lo);
        p.set2(record, hi);
        return "";
    }
    }
    return refuse();
}

std::string FormatValue(const Param& p, const void* record)
{
    switch (p.kind) {
    case Kind::kFlag:
        return p.get(record) == p.given ? "on" : "off";
    case Kind::kChoice: {
        const std::vector<std::string> words = Words(p.choices);
        const size_t i = size_t(p.get(record));
        return i < words.size() ? words[i] : "?";
    }
    case Kind::kIntPair:
        return Number(p.get(record)) + "," + Number(p.get2(record));
    case Kind::kInt:
    case Kind::kReal:
        break;
    }
    return Number(p.get(record));
}

std::string Synopsis(const ParamTable& table)
{
    std::string s;
    for (const Param& p : table.params) {
        if (!s.empty()) s += ' ';
        std::string option = std::string("--") + p.name;
        if (p.kind != Kind::kFlag) option += ' ' + Metavar(p);
        s += p.required ? option : "[" + option + "]";
    }
    return s;
}

std::string HelpText(const ParamTable& table, const void* defaults)
{
    std::string s;
    for (const Param& p : table.params) {
        std::string option = std::string("--") + p.name;
        if (p.kind != Kind::kFlag) option += ' ' + Metavar(p);
        std::string line = "  " + option;
        line.resize(std::max<size_t>(line.size() + 1, 28), ' ');
        line += p.help;
        if (p.kind != Kind::kFlag) {
            line += " (" + Takes(p);
            line += p.required ? "; required)" : "; default " + FormatValue(p, defaults) + ")";
        }
        s += line + "\n";
    }
    return s;
}

} // namespace vmparam
