#pragma once

// Helpers shared by the codec tests.

#include <cstdint>
#include <string>
#include <vector>

#include "imaging/image.h"
#include "support/media_checks.h"
#include "support/test_support.h"

namespace codectest {

// Reads a binary PAM (8-bit; GRAYSCALE, GRAYSCALE_ALPHA, RGB or RGB_ALPHA) as written by ImageMagick.
bool ReadPam(const std::string& path, COLImage& image);

// A picture with smooth areas, edges and a soft alpha ramp: enough structure to notice flips, channel swaps
// and shifted rows.
COLImage Pattern(uint32_t width, uint32_t height, bool withAlpha);

// BMP file header and an information header of the given size (40 or 108), without palette or pixels, as other
// programs write them: one plane, 2835 pixels per metre both ways.
vmtest::ByteWriter BmpHeader(int32_t width, int32_t height, uint16_t bits, uint32_t compression = 0,
                             uint32_t headerSize = 40, uint32_t dataOffset = 54, uint32_t colours = 0);

// A copy of a JPEG with an APP1 Exif segment, holding an orientation tag, right after SOI.
std::vector<uint8_t> WithOrientation(const std::vector<uint8_t>& jpeg, int orientation, bool bigEndian);

using vmtest::HaveImageMagick;
using vmtest::MaxAlphaDifference;
using vmtest::MaxColourDifference;
using vmtest::Run;

} // namespace codectest
