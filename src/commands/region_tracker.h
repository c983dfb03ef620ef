#pragma once

#include <cstdint>
#include <vector>

class COLImage;
class COLChannel;

// A rectangle of changed pixels: left and top inclusive, right and bottom exclusive.
// (0, 0, 0, 0) means nothing changed; a left of -1 means the plane changed size and must be stored whole.
struct CChangeRect {
    int32_t left = 0;
    int32_t top = 0;
    int32_t right = 0;
    int32_t bottom = 0;

    bool IsNone() const { return left == 0 && top == 0 && right == 0 && bottom == 0; }
    bool IsSizeChange() const { return left == -1; }
    bool operator==(const CChangeRect&) const = default;
};

// Change detector of one followed plane: a sum per row and per column of the plane as last recorded. Comparing
// fresh sums with these gives the box of what changed since, at the cost of one pass over the pixels and
// 8 bytes per row and per column. The sums fold large values back so that a change of a few levels is less
// likely to cancel out; two changes that keep every row and column sum equal go unseen, which is accepted.
class CRegionTracker {
public:
    bool IsValid() const { return m_valid != 0; }
    uint32_t GetWidth() const { return m_width; }
    uint32_t GetHeight() const { return m_height; }
    // Forgets the sums; the next capture of the plane stores it whole.
    void Drop();

    // Stored sums, for tests and diagnostics.
    const uint32_t* RowSums() const { return m_rowSums.data(); }
    const uint32_t* ColumnSums() const { return m_columnSums.data(); }

private:
    friend int BuildTracker(CRegionTracker&, const COLImage&);
    friend int BuildTracker(CRegionTracker&, const COLChannel&);
    friend CChangeRect TrackChanges(CRegionTracker&, const COLImage&);
    friend CChangeRect TrackChanges(CRegionTracker&, const COLChannel&);
    bool Allocate(uint32_t width, uint32_t height);
    CChangeRect Compare();

    // First half: the stored sums; second half: the sums being computed.
    std::vector<uint32_t> m_rowSums;
    std::vector<uint32_t> m_columnSums;
    uint32_t m_height = 0;
    uint32_t m_width = 0;
    int m_valid = 0;
};

// Computes the stored sums of a plane. 0, with the tracker invalid, when the plane has no buffer or the sums
// cannot be allocated.
int BuildTracker(CRegionTracker& tracker, const COLImage& image);
int BuildTracker(CRegionTracker& tracker, const COLChannel& channel);

// The box of rows and columns whose sums differ from the stored ones; the stored sums are brought up to date.
// A plane of another size than the sums (or an invalid tracker) rebuilds the tracker and answers (-1, 0, 0, 0).
// When only rows changed the box spans the whole width, when only columns changed the whole height.
CChangeRect TrackChanges(CRegionTracker& tracker, const COLImage& image);
CChangeRect TrackChanges(CRegionTracker& tracker, const COLChannel& channel);

// The folded sums themselves, exposed for tests and benchmarks: rows receives height values, columns width.
void ComputeFoldedSums(const COLImage& image, uint32_t* rows, uint32_t* columns);
void ComputeFoldedSums(const COLChannel& channel, uint32_t* rows, uint32_t* columns);
// The vector width of the sums follows vmsimd::CurrentLevel(); all levels give the same sums.
