#pragma once

#include <cstdint>
#include <vector>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "matting/image_process.h"

struct SnakePoint {
    int32_t x = 0;
    int32_t y = 0;
    bool operator==(const SnakePoint& o) const { return x == o.x && y == o.y; }
};

// Record of CSnakeProcess::ProcessChannel. points: a closed list (the last point equals the first) of count
// points in image coordinates; image: the picture whose edges attract the contour; shrinkHard: a stronger pull
// towards the centre; spacing: the longest gap between points is twice this before a point is put between.
struct SnakeParams {
    const SnakePoint* points = nullptr;
    int32_t count = 0;
    const COLImage* image = nullptr;
    uint32_t shrinkHard = 0;
    int32_t spacing = 16;
};

// Greedy active contour: each point in turn moves to the one of its nine neighbouring positions with the least
// weighted energy (distance to the previous point, bending, edge strength, distance to the centre), until no
// point moves or each point has had 64 moves. The centre term always pulls inward, so a contour drawn round a
// subject shrinks onto it and stops at strong edges. The destination plane (source plane's size) receives the
// filled contour. Results: 0, kFail for an open list, a failed blur or fewer than 4 points left.
class CSnakeProcess : public CImageProcess {
public:
    long ProcessChannel(const void* params) override;

    // The contour after the last run (closed) and the edge picture it ran on (edge strength in alpha).
    const std::vector<SnakePoint>& GetContour() const { return contour; }
    const COLImage& GetEdgeImage() const { return edgeImage; }

    // Edge strength into the alpha of a blurred picture: 255 on the border, else the squared, scaled mean of the
    // strongest directional difference of the three colours. Pixels of alpha 0 are cleared first.
    static void BuildEdgeMap(COLImage& image);

    // One pass of spacing repair over a closed list; true when nothing changed.
    static bool Redistribute(std::vector<SnakePoint>& points, int32_t spacing);

    COLImage edgeImage;
    std::vector<SnakePoint> contour;
    double meanSpacing = 0.0;
    double centroidX = 0.0;
    double centroidY = 0.0;

private:
    bool Iterate();
    int Move(size_t i);
    void RedistributeFully();
    // The single place where the contour becomes a plane.
    static long Rasterise(const std::vector<SnakePoint>& points, COLChannel& plane);

    SnakeParams m_params;
};
