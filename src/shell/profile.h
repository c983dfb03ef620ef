#pragma once

#include <string>
#include <vector>

// The program's settings file: plain text in sections and "key=value" lines, the form every INI reader knows.
// Keys and sections compare without regard to case and keep the spelling they were first written with, spaces
// included ("Check Result"). Every change is written through at once, so the file always holds what the program
// knows, and a crash loses nothing. A missing file reads as empty and is made on the first write.
class CProfile {
public:
    // Reads the file at path (a missing file is not an error). Returns false only when it exists but cannot be read.
    bool Load(const std::string& path);
    const std::string& GetPath() const { return m_path; }

    // Numbers: decimal with an optional sign, or hexadecimal with 0x. A value that is not a number gives the default.
    int GetInt(const std::string& section, const std::string& key, int defaultValue) const;
    std::string GetStr(const std::string& section, const std::string& key, const std::string& defaultValue) const;
    bool Has(const std::string& section, const std::string& key) const;

    // Both return false when the file could not be written; the value is kept in memory either way.
    bool SetInt(const std::string& section, const std::string& key, int value);
    bool SetStr(const std::string& section, const std::string& key, const std::string& value);

    // The text the file would hold.
    std::string Format() const;
    static bool ParseInt(const std::string& text, int& value);

private:
    struct Entry {
        std::string key;
        std::string value;
    };
    struct Section {
        std::string name;
        std::vector<Entry> entries;
    };
    const Entry* Find(const std::string& section, const std::string& key) const;
    bool Save() const;

    std::string m_path;
    std::vector<Section> m_sections;
};
