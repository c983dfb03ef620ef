#pragma once

#include <string>
#include <vector>

// File-dialog filters as the texts of the table write them: "name|*.a;*.b|name|*.c||".
struct FileFilterEntry {
    std::string name;
    std::vector<std::string> patterns; // "*.a", "*.b"
};

std::vector<FileFilterEntry> ParseFileFilter(const std::string& filter);

// The same filters in the form the toolkit's file dialogs take: "name (*.a *.b);;name (*.c)".
std::string ToDialogFilter(const std::string& filter);

// The first pattern's extension ("vmpd" for "*.vmpd"), empty when it has none; for saving a name without one.
std::string DefaultExtension(const std::string& filter);
