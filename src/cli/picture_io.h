#pragma once

#include <string>

#include "interchange/export.h"

class COLImage;

// Picture files for the command line: the codec and the export table, with messages a user can act on.
namespace cli {

// "" when a writer knows the name's extension, else the message to print (naming the extensions that work).
// alsoProject adds ".vmpd" to that list for the commands that can write a project as well.
std::string CheckWritable(const std::string& path, bool alsoProject = false);

// Both return "" on success, else the message to print.
std::string LoadPicture(const std::string& path, COLImage& image);
// The writer follows the extension (see interchange/export.h); PNG keeps alpha.
std::string SavePicture(const std::string& path, const COLImage& image, const ExportOptions& options = {});

} // namespace cli
