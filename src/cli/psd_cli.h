#pragma once

#include <string>

class COLImage;
class CLayerStack;

// Photoshop documents on the command line, shared by convert and info.
namespace cli {

// True when the name ends in ".psd", any case.
bool IsPsdPath(const std::string& path);
// The picture of a PSD as a one-picture input: a one-layer document gives its layer with its transparency,
// several layers give the merged composition (opaque, as the editor shows it). False with a reason in `error`.
bool LoadPsdPicture(const std::string& path, COLImage& image, std::string& error);
// Any input as layers: a project, a PSD, or a picture as a one-layer document.
bool LoadLayers(const std::string& path, CLayerStack& stack, std::string& error);
// Prints a PSD's size and its layers: name (UTF-8), position, size, opacity, blend mode, visibility.
int PrintPsdInfo(const std::string& path);

} // namespace cli
