#pragma once

#include <string>

class COLChannel;

namespace cli {

// Writes a plane as an 8-bit grayscale PNG through a temporary file; "" on success, else the message to print.
std::string SaveGrayPng(const std::string& path, const COLChannel& plane);

} // namespace cli
