#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class COLChannel;

// One outline point in image pixels.
struct CPolyPoint {
    int32_t x = 0;
    int32_t y = 0;
    bool operator==(const CPolyPoint&) const = default;
};

// Even-odd fill of a closed point list (last point equal to the first) into a plane, with smooth edges: the n - 1
// edges between neighbours are tested in integers, every pixel that then differs from one of its eight
// neighbours is sampled again at 4 x 4 points. An edge whose slope truncates to 0 in 1/256 units never counts,
// which keeps very flat edges out of the crossing count. Bits already set in the plane stay where the fill does
// not reach. 0, or 0x80004005 with fewer than three points, no plane or no memory.
long FillPolygon(const CPolyPoint* points, size_t count, COLChannel* plane);

// The plane cleared to 0 and then filled as above, in one pass down the rows that reads nothing of the old plane:
// the same bytes as a memset to 0 followed by FillPolygon, which is what a new selection does. The plane is cleared
// also when the outline is refused for too few points or misses the plane.
long ClearAndFillPolygon(const CPolyPoint* points, size_t count, COLChannel* plane);

// The inside of the ellipse inscribed in the rectangle between (x0, y0) and (x1, y1), half axes |x1 - x0| / 2
// and |y1 - y0| / 2 in integers, 4 x 4 samples per pixel of that rectangle: 255 when all are inside, else 16 per
// inside sample. Pixels of the plane outside the rectangle are left alone. 0, or 0x80004005 without a plane.
long FillEllipse(int x0, int y0, int x1, int y1, COLChannel* plane);

// The outline of a selection tool: a growing point list, closed when its last point equals the first.
class CPolygonMask {
public:
    void Add(int32_t x, int32_t y) { m_points.push_back({x, y}); }
    void Clear() { m_points.clear(); }
    void RemoveLast()
    {
        if (!m_points.empty()) m_points.pop_back();
    }
    size_t GetCount() const { return m_points.size(); }
    bool IsEmpty() const { return m_points.empty(); }
    const CPolyPoint& operator[](size_t i) const { return m_points[i]; }
    const CPolyPoint& Front() const { return m_points.front(); }
    const CPolyPoint& Back() const { return m_points.back(); }
    const std::vector<CPolyPoint>& Points() const { return m_points; }

    // Appends the first point again unless the outline is empty.
    void Close()
    {
        if (!m_points.empty()) m_points.push_back(m_points.front());
    }
    // Drops points while more than `limit` remain: keeps the first, then every point whose city-block distance
    // to the last kept one exceeds d, and the last point; d starts at 4 and grows by 1 per pass.
    void Thin(size_t limit);
    long ClearAndFillInto(COLChannel* plane) const
    {
        return ClearAndFillPolygon(m_points.data(), m_points.size(), plane);
    }

private:
    std::vector<CPolyPoint> m_points;
};
