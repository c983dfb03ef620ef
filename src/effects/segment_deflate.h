#pragma once

#include "imaging/channel.h"
#include "imaging/image.h"

class CLayerStack;
class CSegmentProcess;

// Shrinks a selection to the image segments that lie wholly inside it.

// The picture that is segmented, of the document's size: the current layer at its place where it is visible,
// each pixel whose alpha is not 0 taken opaque and everything else all zero; the composite when the current
// layer is hidden. False without a layer or memory.
bool BuildDeflatePicture(const CLayerStack& document, COLImage& picture);

// The new mask from a label image of the mask's size (labels in the low 24 bits, 0 for none): 255 where the
// pixel's region has no pixel with a mask byte below 128, else 0. A region that touches even one unselected
// pixel drops out whole. False when the sizes differ or memory runs out.
bool DeflateMask(const COLChannel& mask, const COLImage& labels, COLChannel& result);

// The whole operation on the document's selection mask: picture, segmentation (default detail), the new mask
// written under the document lock, and Refresh. kOk; kFail without a mask (nothing happens), when the
// segmentation fails or is cancelled through the process given, or without memory; the mask is then as it was.
// engine, when given, runs the segmentation: its progress callback and range report it, and RequestCancel from
// another thread stops it.
long SelectSegmentDeflate(CLayerStack& document, CSegmentProcess* engine = nullptr);
