#pragma once

#include <string>
#include <type_traits>
#include <vector>

// An engine's parameters, declared once: name, kind, range, default and a line of help for each, and how to
// reach its field in the engine's settings record. The command line parses options and prints --help from
// the table, and the option panels take their ranges and defaults from it, so a range is written in one place.
namespace vmparam {

enum class Kind {
    kInt,      // "--name N": a whole number in [min, max]
    kReal,     // "--name X": a finite number in [min, max]
    kFlag,     // "--name": present sets the field to the flag's value (so a flag may switch a default of 1 off)
    kChoice,   // "--name a|b|c": one of the words in choices; the field holds its index
    kIntPair   // "--name LO,HI": two whole numbers in [min, max] with LO < HI, into the field and field2
};

using Setter = void (*)(void* record, double value);
using Getter = double (*)(const void* record);

struct Param {
    const char* name = "";          // option "--name", profile key, panel label key
    Kind kind = Kind::kInt;
    double min = 0, max = 0;
    const char* help = "";
    Setter set = nullptr;
    Getter get = nullptr;
    Setter set2 = nullptr;          // kIntPair: the second value
    Getter get2 = nullptr;
    const char* choices = nullptr;  // kChoice: "bilinear|area|twopoint"
    const char* metavar = nullptr;  // shown in help; by default N, X, LO,HI or the choices
    bool required = false;          // no default: the option must be given
    double given = 1;               // kFlag: the value the field takes when the flag is present
};

// The parameters of one engine, in the order they are shown.
struct ParamTable {
    const char* engine;
    std::vector<Param> params;
    const Param* Find(const std::string& name) const;
};

// Reaches a field of a record through a chain of member pointers: At<&Settings::params, &Params::strength>().
template <auto First, auto... Rest> auto& Walk(auto& record)
{
    if constexpr (sizeof...(Rest) == 0)
        return record.*First;
    else
        return Walk<Rest...>(record.*First);
}

template <class T> struct ClassOf;
template <class C, class M> struct ClassOf<M C::*> {
    using Type = C;
};

struct Accessor {
    Setter set;
    Getter get;
};

template <auto First, auto... Rest> constexpr Accessor At()
{
    using Record = typename ClassOf<decltype(First)>::Type;
    return {[](void* record, double value) {
                auto& field = Walk<First, Rest...>(*static_cast<Record*>(record));
                field = static_cast<std::remove_reference_t<decltype(field)>>(value);
            },
            [](const void* record) { return double(Walk<First, Rest...>(*static_cast<const Record*>(record))); }};
}

// Builders, so that a table reads as one line per parameter.
Param Int(const char* name, Accessor field, double min, double max, const char* help);
Param Real(const char* name, Accessor field, double min, double max, const char* help, bool required = false);
Param Flag(const char* name, Accessor field, double given, const char* help);
Param Choice(const char* name, Accessor field, const char* choices, const char* help);
Param IntPair(const char* name, Accessor low, Accessor high, double min, double max, const char* help);

// The default of a parameter is the value its field has in a freshly made record (declared where the record
// is), so the table cannot disagree with the engine about it.

// Parses the option's text into the record: "" when it is taken, else a message that names the option, says
// what it takes and quotes what was given. A flag takes an empty text.
std::string ParseValue(const Param& param, const std::string& text, void* record);

// The value's text as the option would take it ("50", "0.5", "area", "32,255"; a flag "on" or "off").
std::string FormatValue(const Param& param, const void* record);

// "[--strength N] [--shadow] ..." for a synopsis, and one line per parameter for --help: option, range,
// default (read from defaults, a freshly made record) and help.
std::string Synopsis(const ParamTable& table);
std::string HelpText(const ParamTable& table, const void* defaults);

} // namespace vmparam
