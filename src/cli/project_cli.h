#pragma once

#include <string>

class COLImage;

// Project files on the command line, shared by the info, convert and run commands.
namespace cli {

// True when the path names a project by its extension (".vmpd", any case).
bool IsProjectPath(const std::string& path);
// Prints a project's layers (name in UTF-8, position, size, opacity, mode, visibility) and its history steps.
int PrintProjectInfo(const std::string& path);
// The flattened, opaque composite of a project. False with a reason in `error`.
bool LoadProjectComposite(const std::string& path, COLImage& composite, std::string& error);
// A one-layer project holding the picture. False when it cannot be written.
bool SavePictureAsProject(const std::string& path, COLImage& picture);

} // namespace cli
