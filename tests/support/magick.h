#pragma once

// ImageMagick as the other program for the interoperability checks: its convert and identify, run on files.

#include <string>

#include "support/test_support.h"

namespace vmtest {

// convert FROM [OPTIONS] TO; true when it ran cleanly. output holds what it printed, for the failure message.
inline bool MagickConvert(const std::string& from, const std::string& to, std::string& output,
                          const std::string& options = "")
{
    return Run("/usr/bin/convert " + Quote(from) + " " + options + " " + Quote(to), output) == 0;
}

// identify -format FORMAT FILE; the text it printed (with an error message when it failed).
inline std::string MagickIdentify(const std::string& format, const std::string& file)
{
    std::string output;
    if (Run("/usr/bin/identify -format " + Quote(format) + " " + Quote(file), output) != 0)
        return "identify failed: " + output;
    return output;
}

} // namespace vmtest
