#pragma once

#include <cstdint>
#include <vector>

#include "imaging/image.h"
#include "imaging/rect.h"

// The picture under a brush stroke as it was at the press, copied in tiles as the stroke reaches them. A stroke
// touches a few hundred thousand pixels of a layer that may hold tens of millions; copying the whole layer at
// every press, and handing its pages back at every release, cost more than the stroke itself.
//
// The copy is right as long as the source changes only inside rectangles that were passed to Ensure first:
// a tile is taken from the source the first time a rectangle reaches it.
class CLazySnapshot {
public:
    static constexpr int kTileSide = 64;

    // Follows `source` from now on; nothing is copied yet. False (and null) when memory runs out.
    bool Begin(const COLImage& source);
    // The stroke is over: the copy is forgotten, but its memory is kept for the next stroke on a picture of the
    // same size, since handing the pages of a large picture back to the system costs more than a stroke.
    void End();
    // Forgets the copy and gives its memory back.
    void Free();
    bool IsNull() const { return m_pSource == nullptr; }

    // Copies the tiles of the rectangle (clipped to the picture) that have not been copied yet.
    void Ensure(const CRect& rect);
    // A row of the copy; only the columns of ensured rectangles hold the press's pixels.
    const CPixel* Row(int y) const { return m_copy.GetBuffer(0, uint32_t(y)); }

    // How many tiles have been copied: for tests.
    int CopiedTiles() const;

private:
    const COLImage* m_pSource = nullptr;
    COLImage m_copy;
    std::vector<uint8_t> m_copied;
    int m_tilesX = 0;
    int m_tilesY = 0;
};
