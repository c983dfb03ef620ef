#include "shell/profile.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <strings.h>

#include "imaging/safe_file.h"

namespace {

std::string Trim(const std::string& s)
{
    size_t b = 0, e = s.size();
    while (b < e && (s[b] == ' ' || s[b] == '\t' || s[b] == '\r'))
        ++b;
    while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t' || s[e - 1] == '\r'))
        --e;
    return s.substr(b, e - b);
}

bool SameKey(const std::string& a, const std::string& b)
{
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

// A line break inside a value would split it into a second line on reading.
std::string OneLine(const std::string& s)
{
    std::string r = s;
    for (char& c : r)
        if (c == '\n' || c == '\r') c = ' ';
    return r;
}

} // namespace

bool CProfile::Load(const std::string& path)
{
    m_path = path;
    m_sections.clear();
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::error_code ec;
        return !std::filesystem::exists(path, ec);
    }
    std::string line;
    Section* current = nullptr;
    bool first = true;
    while (std::getline(in, line)) {
        if (first && line.size() >= 3 && line.compare(0, 3, "\xEF\xBB\xBF") == 0) line.erase(0, 3);
        first = false;
        std::string t = Trim(line);
        if (t.empty() || t[0] == ';' || t[0] == '#') continue;
        if (t[0] == '[') {
            size_t close = t.find(']');
            std::string name = Trim(t.substr(1, close == std::string::npos ? std::string::npos : close - 1));
            current = nullptr;
            for (Section& s : m_sections)
                if (SameKey(s.name, name)) current = &s;
            if (!current) {
                m_sections.push_back({name, {}});
                current = &m_sections.back();
            }
            continue;
        }
        size_t eq = t.find('=');
        if (!current || eq == std::string::npos) continue;
        std::string key = Trim(t.substr(0, eq));
        std::string value = Trim(t.substr(eq + 1));
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);
        if (key.empty()) continue;
        bool replaced = false;
        for (Entry& e : current->entries)
            if (SameKey(e.key, key)) {
                // The first occurrence wins, as in every INI reader.
                replaced = true;
                break;
            }
        if (!replaced) current->entries.push_back({key, value});
    }
    return true;
}

const CProfile::Entry* CProfile::Find(const std::string& section, const std::string& key) const
{
    for (const Section& s : m_sections) {
        if (!SameKey(s.name, section)) continue;
        for (const Entry& e : s.entries)
            if (SameKey(e.key, key)) return &e;
    }
    return nullptr;
}

bool CProfile::Has(const std::string& section, const std::string& key) const
{
    return Find(section, key) != nullptr;
}

bool CProfile::ParseInt(const std::string& text, int& value)
{
    std::string t = Trim(text);
    if (t.empty()) return false;
    const char* begin = t.c_str();
    char* end = nullptr;
    errno = 0;
    long long v;
    bool negative = t[0] == '-';
    size_t digits = (t[0] == '-' || t[0] == '+') ? 1 : 0;
    if (t.size() > digits + 2 && t[digits] == '0' && (t[digits + 1] == 'x' || t[digits + 1] == 'X')) {
        // Colours are easier to give in hexadecimal; 0xFF808080 is read as the 32-bit pattern it names.
        unsigned long long u = std::strtoull(begin + digits + 2, &end, 16);
        if (end == begin + digits + 2 || *end != '\0' || errno == ERANGE || u > 0xFFFFFFFFull) return false;
        uint32_t bits = static_cast<uint32_t>(u);
        if (negative) bits = 0u - bits;
        value = static_cast<int>(bits);
        return true;
    }
    v = std::strtoll(begin, &end, 10);
    if (end == begin || *end != '\0' || errno == ERANGE || v < INT_MIN || v > INT_MAX) return false;
    value = static_cast<int>(v);
    return true;
}

int CProfile::GetInt(const std::string& section, const std::string& key, int defaultValue) const
{
    const Entry* e = Find(section, key);
    int v;
    if (!e || !ParseInt(e->value, v)) return defaultValue;
    return v;
}

std::string CProfile::GetStr(const std::string& section, const std::string& key, const std::string& defaultValue) const
{
    const Entry* e = Find(section, key);
    return e ? e->value : defaultValue;
}

bool CProfile::SetInt(const std::string& section, const std::string& key, int value)
{
    return SetStr(section, key, std::to_string(value));
}

bool CProfile::SetStr(const std::string& section, const std::string& key, const std::string& value)
{
    Section* target = nullptr;
    for (Section& s : m_sections)
        if (SameKey(s.name, section)) target = &s;
    if (!target) {
        m_sections.push_back({section, {}});
        target = &m_sections.back();
    }
    bool found = false;
    for (Entry& e : target->entries)
        if (SameKey(e.key, key)) {
            e.value = OneLine(value);
            found = true;
        }
    if (!found) target->entries.push_back({key, OneLine(value)});
    return Save();
}

std::string CProfile::Format() const
{
    std::ostringstream out;
    bool firstSection = true;
    for (const Section& s : m_sections) {
        if (!firstSection) out << '\n';
        firstSection = false;
        out << '[' << s.name << "]\n";
        for (const Entry& e : s.entries)
            out << e.key << '=' << e.value << '\n';
    }
    return out.str();
}

bool CProfile::Save() const
{
    if (m_path.empty()) return false;
    std::error_code ec;
    std::filesystem::path parent = std::filesystem::path(m_path).parent_path();
    if (!parent.empty()) std::filesystem::create_directories(parent, ec);
    CSafeFileWriter writer;
    if (!writer.Open(m_path)) return false;
    std::string text = Format();
    writer.Write(text.data(), text.size());
    return writer.Commit();
}
