#pragma once

#include <string>

class COLImage;

// Picture files for the command line: the codec with messages a user can act on.
namespace cli {

std::string LowerExtension(const std::string& path);   // "" when the name has none
bool WritableExtension(const std::string& ext);        // png, jpg, jpeg, bmp, tif, tiff, tga

// Both return "" on success, else the message to print.
std::string LoadPicture(const std::string& path, COLImage& image);
// The writer follows the extension; PNG keeps alpha, JPEG is written at quality 90.
std::string SavePicture(const std::string& path, const COLImage& image);

} // namespace cli
