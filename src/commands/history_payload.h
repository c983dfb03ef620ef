#pragma once

#include <cstdint>
#include <cstdio>

#include "commands/region_tracker.h"

class COLChannel;
class COLImage;

// Rectangles and pixel rows as both history logs store them: a rectangle is four little-endian 32-bit words,
// rows follow top to bottom, (right - left) pixels each.
namespace vmhist {

bool WriteRect(FILE* stream, const CChangeRect& rect);
bool ReadRect(FILE* stream, CChangeRect& rect);

// True when the rectangle is well-formed (left <= right, top <= bottom, not negative) and lies in the plane.
bool RectInside(const CChangeRect& rect, uint32_t width, uint32_t height);
bool RectIsEmpty(const CChangeRect& rect);
uint64_t RectArea(const CChangeRect& rect);
CChangeRect WholeRect(uint32_t width, uint32_t height);
// A rectangle read back from a log must fit the picture limits and the bytes left in the log before anything is
// allocated for it.
bool PlausibleRect(const CChangeRect& rect, uint32_t bytesPerPixel, FILE* stream);

// The caller has checked that the rectangle lies inside the plane.
bool WriteRows(FILE* stream, const COLImage& image, const CChangeRect& rect);
bool WriteRows(FILE* stream, const COLChannel& channel, const CChangeRect& rect);
bool ReadRows(FILE* stream, COLImage& image, const CChangeRect& rect);
bool ReadRows(FILE* stream, COLChannel& channel, const CChangeRect& rect);

} // namespace vmhist
