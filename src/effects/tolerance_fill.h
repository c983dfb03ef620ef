#pragma once

#include <cstdint>

class COLChannel;
class COLImage;

// The tolerance (magic wand) flood. `plane` is canvas-sized and zeroed; `layer` lies on the canvas at (ox, oy);
// the seed is in layer pixels. From the seed, 4-neighbours join while |dR| + |dG| + |dB| to the seed's colour is
// below `tolerance` (or 0); alpha is not looked at. Joined canvas pixels become 255. The walk keeps the
// historical guards: canvas column 0 and row 0 are reached only by the seed itself, and a pixel expands only
// while ox + y stays inside the canvas height. Neighbours outside the layer or the canvas never join.
// 0, or 0x80004005 when memory for the walk runs out.
long ToleranceFlood(const COLImage& layer, int ox, int oy, int seedX, int seedY, int tolerance, COLChannel& plane);

// The transparency case of the tolerance tool: 255 everywhere on the canvas but where a layer pixel with alpha
// above 0 covers it.
void SelectUncovered(const COLImage& layer, int ox, int oy, COLChannel& plane);
