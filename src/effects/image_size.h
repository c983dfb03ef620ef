#pragma once

#include <cstdint>

class COLImage;
class CLayerStack;
class CImageProcess;

// Scaling methods of ScaleImage and of the image size dialog.
inline constexpr int kScaleNearest = 0;  // "最小临近法"
inline constexpr int kScaleBilinear = 1; // "二次线性": the codec's resample, alpha resized apart as a plane
inline constexpr int kScaleBicubic = 2;  // "二次立方": CBicubicScaleProcess

// Whole-picture scaling into target at width x height (each taken as 1 when below 1). 1 on success, 0 when a
// side exceeds the picture limit or memory runs out. An unknown method returns 1 and leaves target alone.
// source and target may be the same image; when they are not, the result is written into target's own buffer
// (kept when it already has the size), so a failure may leave target changed.
int ScaleImage(const COLImage& source, COLImage& target, int width, int height, int method);

// Scales every layer of the document: the base to exactly width x height, every other layer and its position
// by the base's ratios, so the composition keeps its look. The selection is dropped (it no longer fits); saved
// channels stay as they are. All or nothing: the layers are scaled into copies first and replace the originals
// only when every one succeeded, so a failure leaves the document as it was. progress (may be null) gets
// 100 x (i + 1) / count after each layer. 1 or 0.
int ResizeAllLayers(CLayerStack& stack, int width, int height, int method, CImageProcess* progress = nullptr);

// The image size dialog's linked fields: the other side for a changed one, against the document size, in
// unsigned arithmetic, forced to 1..20000. heightFromWidth: the width was edited.
uint32_t LinkedSide(uint32_t edited, uint32_t documentWidth, uint32_t documentHeight, bool heightFromWidth);

// The canvas size dialog's new size from its four margins (negative margins crop), forced to 1..20000.
void CanvasSizeFromMargins(int documentWidth, int documentHeight, int left, int up, int right, int down, int& width,
                           int& height);
