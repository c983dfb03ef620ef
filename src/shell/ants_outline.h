#pragma once

#include <cstdint>
#include <vector>

class COLChannel;

// The marching ants of the canvas, without a window: which screen pixels lie on the outline of a mask, and how
// they are coloured at each step of the animation.
//
// An outline is traced once, when the picture on screen changes (a new mask, zoom or scroll), and kept as a list
// of pixels; each step of the animation then only recolours those pixels.

// Which borders of the traced buffer are borders of the picture too. A selected pixel on such a border is on the
// outline; on a border that only cuts the picture (the view shows part of it) it is not.
struct AntsBorders {
    bool left = true, top = true, right = true, bottom = true;
};

// One outline pixel: its index y * width + x in the buffer, with the stripe phase (x + y) mod 8 in the top three
// bits, so that colouring needs no division.
inline constexpr uint32_t kAntIndexMask = 0x1FFFFFFFu;
inline uint32_t AntIndex(uint32_t ant) { return ant & kAntIndexMask; }
inline uint32_t AntPhase(uint32_t ant) { return ant >> 29; }

// The stripes: 4 pixels dark, 4 light, moving one pixel a step. Pixel (x, y) is dark at step t when
// ((x + y + t mod 4) / 4) mod 2 = (t / 4) mod 2.
inline bool AntIsDark(uint32_t phase, uint32_t t)
{
    return ((phase + t % 4) % 8) / 4 == (t / 4) % 2;
}

// Bounding box of an outline in buffer pixels, right and bottom exclusive; empty when left >= right.
struct AntsBox {
    int left = 0, top = 0, right = 0, bottom = 0;
    bool IsEmpty() const { return left >= right || top >= bottom; }
};

// Appends the outline pixels of a width x height mask of bytes (stride bytes from one pixel to the next in a row,
// rowStride from one row to the next; the alpha byte of 32-bit pixels is stride 4). A pixel is selected with a
// value of at least 127; it is on the outline when one of its four neighbours has a value of at most 127, or when
// it lies on a border of the buffer that is a border of the picture. Answers the bounding box of what it added.
AntsBox TraceOutline(const uint8_t* mask, int width, int height, int stride, int rowStride, const AntsBorders& borders,
                     std::vector<uint32_t>& out);

// The plane as the screen shows it: width x height bytes, pixel (x, y) taking the plane's pixel under its centre
// at the zoom, with (originX, originY) at the top-left corner; 0 outside the plane. Also answers which buffer
// borders are picture borders.
AntsBorders SamplePlane(const COLChannel& plane, double zoom, int originX, int originY, int width, int height,
                        std::vector<uint8_t>& out);
