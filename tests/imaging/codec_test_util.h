#pragma once

// Helpers shared by the codec tests.

#include <cstdint>
#include <string>
#include <vector>

#include "imaging/image.h"
#include "support/test_support.h"

namespace codectest {

// Reads a binary PAM (8-bit; GRAYSCALE, GRAYSCALE_ALPHA, RGB or RGB_ALPHA) as written by ImageMagick.
bool ReadPam(const std::string& path, COLImage& image);


// A picture with smooth areas, edges and a soft alpha ramp: enough structure to notice flips, channel swaps
// and shifted rows.
COLImage Pattern(uint32_t width, uint32_t height, bool withAlpha);

// A copy of a JPEG with an APP1 Exif segment, holding an orientation tag, right after SOI.
std::vector<uint8_t> WithOrientation(const std::vector<uint8_t>& jpeg, int orientation, bool bigEndian);

using vmtest::HaveImageMagick;
using vmtest::MaxAlphaDifference;
using vmtest::MaxColourDifference;
using vmtest::Run;

} // namespace codectest
