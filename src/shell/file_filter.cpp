#include "shell/file_filter.h"

std::vector<FileFilterEntry> ParseFileFilter(const std::string& filter)
{
    std::vector<std::string> parts;
    size_t start = 0;
    while (start < filter.size()) {
        size_t bar = filter.find('|', start);
        if (bar == std::string::npos) bar = filter.size();
        parts.push_back(filter.substr(start, bar - start));
        start = bar + 1;
    }
    std::vector<FileFilterEntry> entries;
    for (size_t i = 0; i + 1 < parts.size(); i += 2) {
        if (parts[i].empty()) break; // the closing "||"
        FileFilterEntry e{parts[i], {}};
        const std::string& list = parts[i + 1];
        size_t p = 0;
        while (p < list.size()) {
            size_t semi = list.find(';', p);
            if (semi == std::string::npos) semi = list.size();
            std::string pattern = list.substr(p, semi - p);
            if (!pattern.empty()) e.patterns.push_back(pattern);
            p = semi + 1;
        }
        entries.push_back(std::move(e));
    }
    return entries;
}

namespace {

// True when the name already ends with its patterns in parentheses, as "PNG File(*.png)" does: the toolkit reads
// the patterns from there, and writing them again would show them twice.
bool NameShowsPatterns(const FileFilterEntry& e)
{
    const std::string& n = e.name;
    const size_t open = n.rfind('(');
    if (n.empty() || n.back() != ')' || open == std::string::npos || e.patterns.empty()) return false;
    std::vector<std::string> shown;
    const std::string inside = n.substr(open + 1, n.size() - open - 2);
    size_t p = 0;
    while (p <= inside.size()) {
        size_t end = inside.find_first_of("; ", p);
        if (end == std::string::npos) end = inside.size();
        if (end > p) shown.push_back(inside.substr(p, end - p));
        p = end + 1;
    }
    return shown == e.patterns;
}

} // namespace

std::string ToDialogFilter(const std::string& filter)
{
    std::string out;
    for (const FileFilterEntry& e : ParseFileFilter(filter)) {
        if (!out.empty()) out += ";;";
        if (NameShowsPatterns(e)) {
            out += e.name;
            continue;
        }
        out += e.name + " (";
        for (size_t i = 0; i < e.patterns.size(); ++i)
            out += (i ? " " : "") + e.patterns[i];
        out += ")";
    }
    return out;
}

std::string OpenDialogFilter(const std::string& filter, const std::string& allPictures, const std::string& allFiles,
                             bool withProjects)
{
    std::vector<std::string> extensions = {"png", "jpg", "jpeg", "jpe", "jfif", "bmp",
                                           "dib", "gif", "pcx",  "tif", "tiff", "tga"};
    if (withProjects) extensions.insert(extensions.begin(), {"vmpd", "psd"});
    std::string patterns;
    for (const std::string& ext : extensions) {
        std::string upper = ext;
        for (char& c : upper)
            c = static_cast<char>(c - 'a' + 'A');
        patterns += (patterns.empty() ? "*." : ";*.") + ext + ";*." + upper;
    }
    // The table's filter ends with "||"; its entries go between ours.
    std::string own = filter;
    while (!own.empty() && own.back() == '|')
        own.pop_back();
    return allPictures + "|" + patterns + "|" + (own.empty() ? "" : own + "|") + allFiles + "|*||";
}

std::string DefaultExtension(const std::string& filter)
{
    std::vector<FileFilterEntry> entries = ParseFileFilter(filter);
    if (entries.empty() || entries[0].patterns.empty()) return {};
    const std::string& p = entries[0].patterns[0];
    if (p.size() > 2 && p.compare(0, 2, "*.") == 0 && p.find('*', 2) == std::string::npos) return p.substr(2);
    return {};
}
