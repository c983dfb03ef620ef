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

// The filter of an open dialog that takes every picture the program reads: an entry named allPictures with every
// readable extension in lower and upper case (file dialogs on Linux match names case-sensitively, and cameras
// write ".JPG"), then the given filter's own entries as they are, then an entry named allFiles with "*" (the
// reader goes by content, not by name). withProjects adds the project and PSD extensions to the first entry.
std::string OpenDialogFilter(const std::string& filter, const std::string& allPictures, const std::string& allFiles,
                             bool withProjects);

// The first pattern's extension ("vmpd" for "*.vmpd"), empty when it has none; for saving a name without one.
std::string DefaultExtension(const std::string& filter);
