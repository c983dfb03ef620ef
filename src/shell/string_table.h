#pragma once

#include <string>
#include <vector>

// One row of the table of user texts: a short ASCII key and its text (UTF-8 here; GBK only where a file stores it).
struct StringRow {
    std::string m_key;
    std::string m_text;
};

enum class ETextLanguage { kChinese, kEnglish };

// Keys are at most 31 bytes and texts at most 511, the room the original records had.
inline constexpr size_t kMaxStringKey = 31;
inline constexpr size_t kMaxStringText = 511;

// Empties rows and appends every row of the table in its fixed order: the program's rows, then the texts of the
// editor's own dialogs. The English table has the same keys in the same order, then a few keys that the Chinese
// table lacks.
void FillStringTable(std::vector<StringRow>& rows, ETextLanguage language);

// Number of the program's rows, which every language has first and in the same order.
size_t SharedStringRowCount();

// The first row whose key equals key without regard to case; null when there is none.
const StringRow* FindStringRow(const std::vector<StringRow>& rows, const std::string& key);

// Chooses the language: the profile's choice when it names one ("zh..." or "en..."), else the locale's.
ETextLanguage ChooseLanguage(const std::string& profileChoice, const std::string& locale);

// The locale name the C library would use for messages (LC_ALL, LC_MESSAGES, LANG), empty when none is set.
std::string CurrentMessageLocale();
