// Command texts through ParseCommand and ParseIntField, as they arrive from menus, scripts and the CLI.

#include <string>

#include "commands/command.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);   // stops at the first NUL for C readers
    CCommand command;
    if (ParseCommand(text.c_str(), command)) {
        // What the grammar promises: a name within its limit, arguments within theirs.
        if (command.name.size() > kCommandNameLimit) __builtin_trap();
        for (const std::string& arg : command.args) {
            if (arg.size() > kCommandArgLimit) __builtin_trap();
            int value = 0;
            ParseIntField(arg.c_str(), value);
        }
    }
    int value = 0;
    ParseIntField(text.c_str(), value);
    return 0;
}
