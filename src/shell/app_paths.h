#pragma once

#include <string>
#include <vector>

// Where the program's data and settings live on Linux.

// The folder of the running executable, with a trailing '/'.
std::string ExecutableDirectory();

// The work folder: the first candidate that holds the skin ("skin/btnst.bmp"), so the program finds its data
// next to the binary, in an install's share folder or in the source tree of a build. Without any, the first
// candidate. Candidates are folders; the result has a trailing '/'.
std::string FindWorkDir(const std::vector<std::string>& candidates);

// $XDG_CONFIG_HOME, or ~/.config when it is unset or not absolute; no trailing '/'.
std::string ConfigDirectory();

// The settings file: "Velmorando.ini" in the program's folder under the configuration directory.
std::string DefaultProfilePath();

std::string WithTrailingSlash(const std::string& folder);

// The full path of an executable found on PATH, or empty.
std::string FindOnPath(const std::string& name);
