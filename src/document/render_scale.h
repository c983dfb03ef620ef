#pragma once

class COLImage;

// Stretches the rectangle (srcX, srcY, srcWidth, srcHeight) of src to dstWidth x dstHeight in dst, creating dst
// at that size when needed; a width or height of -1 reaches to the source's edge. 1, or 0 when dst cannot be
// created. This is what the canvas paints through.
int ScaleForRender(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, int srcX, int srcY, int srcWidth,
                   int srcHeight);
