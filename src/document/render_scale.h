#pragma once

class COLImage;

// Scales for the screen. Destination pixel (dx, dy) shows the source area that starts at (x0 + dx * fx,
// y0 + dy * fy) and is fx by fy source pixels large (fx, fy: source pixels per destination pixel, above 0).
// Enlarged along an axis (f <= 1) it shows the source pixel under its centre: no blending, so pixels stay crisp and
// exact. Reduced (f > 1) it shows the average of the source pixels it covers, each weighted by how much of it lies
// inside, rounded to nearest. Either way a picture of one colour keeps exactly that colour at every scale, and
// nothing is darkened or striped. All four bytes are treated alike; areas past the source's edge repeat the edge.
// Creates dst at dstWidth x dstHeight. 1, or 0 when dst cannot be created or an argument makes no sense.
int ScaleForScreen(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, double x0, double y0, double fx,
                   double fy);

// The same bytes as ScaleForScreen, computed the straightforward way (a division per channel): the reference that
// the quicker path is held to.
int ScaleForScreenPlain(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, double x0, double y0,
                        double fx, double fy);

// Brings dst, made by ScaleForScreen from src with the same x0, y0, fx, fy, up to date after the source pixels in
// [left, right) x [top, bottom) changed: only the destination pixels that read any of them are computed again, and
// the result is byte for byte what a whole ScaleForScreen gives. For a view that keeps its reduced picture and
// repaints from it. 1, or 0 when dst is empty or an argument makes no sense.
int ScaleForScreenChanged(const COLImage* src, COLImage* dst, double x0, double y0, double fx, double fy, int left,
                          int top, int right, int bottom);

// The rectangle (srcX, srcY, srcWidth, srcHeight) of src stretched to dstWidth x dstHeight by ScaleForScreen; a
// width or height of -1 reaches to the source's edge. For thumbnails of the whole picture.
int ScaleForRender(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, int srcX, int srcY, int srcWidth,
                   int srcHeight);
