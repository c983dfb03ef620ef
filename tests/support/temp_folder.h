#pragma once

#include <cstdlib>
#include <string>

#include "support/test_support.h"

namespace vmtest {

// Points TMPDIR at a fresh folder for the life of the object, so that logs land where the test can see them
// and never among another test's files.
class ScopedTempFolder {
public:
    ScopedTempFolder()
    {
        if (const char* old = std::getenv("TMPDIR")) {
            m_hadOld = true;
            m_old = old;
        }
        setenv("TMPDIR", m_dir.Path().c_str(), 1);
    }
    ~ScopedTempFolder()
    {
        if (m_hadOld) setenv("TMPDIR", m_old.c_str(), 1);
        else unsetenv("TMPDIR");
    }
    const TempDir& Dir() const { return m_dir; }
    std::string File(const std::string& name) const { return m_dir.File(name); }

private:
    TempDir m_dir;
    bool m_hadOld = false;
    std::string m_old;
};

} // namespace vmtest
