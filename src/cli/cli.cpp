#include "cli/cli.h"

#include <cerrno>
#include <cstdlib>
#include <unistd.h>

namespace cli {

namespace {
std::vector<CommandInfo>& Registry()
{
    static std::vector<CommandInfo> commands;
    return commands;
}
} // namespace

const std::vector<CommandInfo>& Commands() { return Registry(); }

CliRegistrar::CliRegistrar(const char* name, const char* synopsis, const char* summary, Handler handler)
{
    Registry().push_back(CommandInfo{name, synopsis, summary, handler, {}});
}

CliRegistrar::CliRegistrar(const char* name, const char* synopsis, const char* summary, Handler handler,
                           const vmparam::ParamTable& table, const void* defaults)
{
    Registry().push_back(CommandInfo{name, std::string(synopsis) + " " + vmparam::Synopsis(table), summary, handler,
                                     vmparam::HelpText(table, defaults)});
}

void AddTableOptions(const vmparam::ParamTable& table, std::set<std::string>& values, std::set<std::string>& flags)
{
    for (const vmparam::Param& p : table.params)
        (p.kind == vmparam::Kind::kFlag ? flags : values).insert(std::string("--") + p.name);
}

std::string ApplyTable(const vmparam::ParamTable& table, const Args& args, void* record)
{
    for (const vmparam::Param& p : table.params) {
        const std::string option = std::string("--") + p.name;
        std::string error;
        if (p.kind == vmparam::Kind::kFlag) {
            if (args.Has(option)) error = vmparam::ParseValue(p, "", record);
        } else if (const auto v = args.Value(option)) {
            error = vmparam::ParseValue(p, *v, record);
        } else if (p.required) {
            error = "needs " + option;
        }
        if (!error.empty()) return error;
    }
    return "";
}

Args::Args(const std::vector<std::string>& args, std::set<std::string> valueOptions, std::set<std::string> flags)
{
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a.size() < 2 || a[0] != '-' || (a[1] >= '0' && a[1] <= '9')) {
            m_positional.push_back(a);
            continue;
        }
        std::string name = a, value;
        bool inlineValue = false;
        if (const size_t eq = a.find('='); a.rfind("--", 0) == 0 && eq != std::string::npos) {
            name = a.substr(0, eq);
            value = a.substr(eq + 1);
            inlineValue = true;
        }
        if (valueOptions.count(name)) {
            if (!inlineValue) {
                if (i + 1 >= args.size()) {
                    m_error = "option " + name + " needs a value";
                    return;
                }
                value = args[++i];
            }
            m_values[name] = value;
        } else if (flags.count(name) && !inlineValue) {
            m_flags.insert(name);
        } else {
            m_error = "unknown option " + name;
            return;
        }
    }
}

std::optional<std::string> Args::Value(const std::string& option) const
{
    auto it = m_values.find(option);
    if (it == m_values.end()) return std::nullopt;
    return it->second;
}

int Fail(const std::string& message)
{
    std::fprintf(stderr, "velmorando-cli: error: %s\n", message.c_str());
    return kExitFailure;
}

int Usage(const std::string& command, const std::string& message)
{
    std::fprintf(stderr, "velmorando-cli %s: %s\n", command.c_str(), message.c_str());
    for (const CommandInfo& c : Commands())
        if (c.name == command) std::fprintf(stderr, "usage: velmorando-cli %s\n", c.synopsis.c_str());
    return kExitUsage;
}

bool ParseInt(const std::string& text, long lo, long hi, long& out)
{
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (errno || *end || v < lo || v > hi) return false;
    out = v;
    return true;
}

bool ParseDouble(const std::string& text, double lo, double hi, double& out)
{
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (errno || *end || !(v >= lo && v <= hi)) return false;
    out = v;
    return true;
}

Progress::Progress(std::string label) : m_label(std::move(label)), m_tty(isatty(fileno(stderr)) != 0) {}

void Progress::Update(int percent)
{
    if (percent < 0) percent = 0;
    if (percent > 100) percent = 100;
    if (percent == m_last) return;
    if (m_tty) {
        std::fprintf(stderr, "\r%s: %3d%%", m_label.c_str(), percent);
    } else if (m_last < 0 || percent / 10 != m_last / 10) {
        std::fprintf(stderr, "%s: %d%%\n", m_label.c_str(), percent);
    }
    m_last = percent;
}

void Progress::Done()
{
    if (m_tty && m_last >= 0) std::fprintf(stderr, "\r%s: done\n", m_label.c_str());
}

} // namespace cli
