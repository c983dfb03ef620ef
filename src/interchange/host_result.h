#pragma once

#include <string>

class COLChannel;
class COLImage;

// The result handed back to a host editor's plug-in at the end of the selection work: the working image with the
// selection plane as its alpha.
//   mode 3: a one-layer PSD at path + ".24bit.psd";
//   any other mode: a raw file at path: width and height as two 32-bit little-endian words, then every pixel,
//   4 bytes each (blue, green, red, alpha), row after row from the top.
// The file is written to a temporary name and renamed, so the host never reads a half-written result. Returns
// false when the picture is missing, the plane's size differs or the file cannot be written.
bool WriteHostResult(const std::string& path, int mode, const COLImage& working, const COLChannel& plane);

// The file the host reads for a mode.
std::string HostResultPath(const std::string& path, int mode);
