#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "imaging/image.h"

// What the program was asked to do at start.
struct ShellCommandLine {
    bool pluginMode = false; // started by a host editor's plug-in: "-i", a method digit and the exchange file
    int methodDigit = 0;     // the character after "-i" less '0'
    std::string path;        // empty: nothing to open
};

// Reads the command text: leading spaces skipped; "-i" (either case) sets plug-in mode with the next character as
// the method digit; the rest is the path, a leading double quote stripped up to the next quote or the end. An
// empty path leaves plug-in mode off.
ShellCommandLine ParseCommandLine(const std::string& text);

// Builds the command text from program arguments (without the program name): a plug-in switch and the argument
// after it, or else the first argument; an argument with a space is put in double quotes. Further arguments are
// ignored, so a second file never makes the first unopenable.
std::string JoinArguments(const std::vector<std::string>& arguments);

// The host's exchange file: width and height as two little-endian 32-bit words, then rows of pixels top row
// first, bytes R, G, B and with four bytes a fourth that is skipped. Alpha becomes 255. A short row ends the
// reading, leaving the rest of the picture as it was filled (fill word). bytesPerPixel gets 3 or 4.
// Returns false for a file that cannot be read, a header shorter than 8 bytes, or a side outside 1..20000.
bool ReadHostImage(const std::string& path, COLImage& image, uint32_t fill, uint32_t& bytesPerPixel);
