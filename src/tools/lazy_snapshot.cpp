#include "tools/lazy_snapshot.h"

#include <algorithm>
#include <cstring>
#include <new>

bool CLazySnapshot::Begin(const COLImage& source)
{
    End();
    if (source.IsNull()) {
        Free();
        return false;
    }
    // The whole picture is reserved at once, but the system gives pages only where tiles are written. A buffer
    // of the same size from an earlier stroke is used again (Create keeps it).
    if (m_copy.Create(source.GetWidth(), source.GetHeight()) != kOk) return false;
    const int w = int(source.GetWidth()), h = int(source.GetHeight());
    m_tilesX = (w + kTileSide - 1) / kTileSide;
    m_tilesY = (h + kTileSide - 1) / kTileSide;
    try {
        m_copied.assign(size_t(m_tilesX) * size_t(m_tilesY), 0);
    } catch (const std::bad_alloc&) {
        Free();
        return false;
    }
    m_pSource = &source;
    return true;
}

void CLazySnapshot::End()
{
    m_pSource = nullptr;
    m_copied.clear();
    m_tilesX = m_tilesY = 0;
}

void CLazySnapshot::Free()
{
    End();
    m_copy.Free();
    m_copied.shrink_to_fit();
}

void CLazySnapshot::Ensure(const CRect& rect)
{
    if (!m_pSource) return;
    const int w = int(m_copy.GetWidth()), h = int(m_copy.GetHeight());
    const int left = std::max(rect.left, 0), top = std::max(rect.top, 0);
    const int right = std::min(rect.right, w), bottom = std::min(rect.bottom, h);
    if (left >= right || top >= bottom) return;
    for (int ty = top / kTileSide; ty <= (bottom - 1) / kTileSide; ++ty)
        for (int tx = left / kTileSide; tx <= (right - 1) / kTileSide; ++tx) {
            uint8_t& copied = m_copied[size_t(ty) * size_t(m_tilesX) + size_t(tx)];
            if (copied) continue;
            copied = 1;
            const int x0 = tx * kTileSide, x1 = std::min(w, x0 + kTileSide);
            const int y1 = std::min(h, (ty + 1) * kTileSide);
            for (int y = ty * kTileSide; y < y1; ++y)
                std::memcpy(m_copy.GetBuffer(uint32_t(x0), uint32_t(y)),
                            m_pSource->GetBuffer(uint32_t(x0), uint32_t(y)), size_t(x1 - x0) * sizeof(CPixel));
        }
}

int CLazySnapshot::CopiedTiles() const
{
    return int(std::count(m_copied.begin(), m_copied.end(), uint8_t(1)));
}
