#pragma once

#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "runtime/param_table.h"

// Commands of velmorando-cli register themselves from their own source file with a static CliRegistrar.
namespace cli {

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

using Handler = int (*)(const std::vector<std::string>& args);

struct CommandInfo {
    std::string name;
    std::string synopsis;   // e.g. "info FILE"
    std::string summary;    // one line for --help
    Handler handler;
    std::string options;    // the engine's parameters, one per line, for the command's --help
};

const std::vector<CommandInfo>& Commands();

struct CliRegistrar {
    CliRegistrar(const char* name, const char* synopsis, const char* summary, Handler handler);
    // A command that runs an engine: its options are the engine's parameter table, appended to the synopsis and
    // listed in --help with ranges and the defaults of a fresh settings record.
    CliRegistrar(const char* name, const char* synopsis, const char* summary, Handler handler,
                 const vmparam::ParamTable& table, const void* defaults);
};

// Splits arguments into positionals, flags and options with values ("--sigma 2", "--sigma=2", "-o out").
class Args {
public:
    Args(const std::vector<std::string>& args, std::set<std::string> valueOptions,
         std::set<std::string> flags = {});
    bool Ok() const { return m_error.empty(); }
    const std::string& Error() const { return m_error; }
    bool Has(const std::string& flag) const { return m_flags.count(flag) != 0; }
    std::optional<std::string> Value(const std::string& option) const;
    const std::vector<std::string>& Positional() const { return m_positional; }

private:
    std::vector<std::string> m_positional;
    std::set<std::string> m_flags;
    std::map<std::string, std::string> m_values;
    std::string m_error;
};

// The options of a parameter table, added to the value options and flags an Args accepts.
void AddTableOptions(const vmparam::ParamTable& table, std::set<std::string>& values, std::set<std::string>& flags);
// Parses every option of the table that was given into record: "" when all are taken, else the first refusal
// (which names the option) or "needs --NAME" for a required one that is missing.
std::string ApplyTable(const vmparam::ParamTable& table, const Args& args, void* record);

// Prints "error: ..." on stderr and returns the failure exit code.
int Fail(const std::string& message);
int Usage(const std::string& command, const std::string& message);

// Whole-number and real parsing with range checks; false on anything that is not a clean number.
bool ParseInt(const std::string& text, long lo, long hi, long& out);
bool ParseDouble(const std::string& text, double lo, double hi, double& out);

// A progress line on stderr, redrawn in place when stderr is a terminal and printed every 10 % otherwise.
class Progress {
public:
    explicit Progress(std::string label);
    void Update(int percent);
    void Done();

private:
    std::string m_label;
    int m_last = -1;
    bool m_tty;
};

} // namespace cli
