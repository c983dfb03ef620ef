#pragma once

class COLImage;

// Mirrors the image in place, whole pixels: left to right when horizontal, else top to bottom.
void FlipImage(COLImage& image, bool horizontal);

// A quarter turn into destination, which becomes height x width: counter-clockwise when left, else clockwise.
// 1, or 0 when the destination cannot be created.
int RotateImageQuarter(const COLImage& source, COLImage& destination, bool left);
