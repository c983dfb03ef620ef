#include "shell/ants_outline.h"

#include <algorithm>
#include <cmath>

#include "imaging/channel.h"

AntsBox TraceOutline(const uint8_t* mask, int width, int height, int stride, int rowStride, const AntsBorders& borders,
                     std::vector<uint32_t>& out)
{
    AntsBox box{width, height, 0, 0};
    if (!mask || width <= 0 || height <= 0) return {};
    const size_t before = out.size();
    auto add = [&](int x, int y) {
        out.push_back((uint32_t(y) * uint32_t(width) + uint32_t(x)) | (uint32_t((x + y) & 7) << 29));
        box.left = std::min(box.left, x);
        box.right = std::max(box.right, x + 1);
        box.top = std::min(box.top, y);
        box.bottom = std::max(box.bottom, y + 1);
    };
    const ptrdiff_t s = stride, rs = rowStride;
    for (int y = 0; y < height; ++y) {
        const uint8_t* row = mask + ptrdiff_t(y) * rs;
        const bool borderRow = y == 0 || y == height - 1;
        for (int x = 0; x < width; ++x) {
            const uint8_t* p = row + ptrdiff_t(x) * s;
            if (*p < 127) continue;
            if (borderRow || x == 0 || x == width - 1) {
                // The buffer's own border: an outline only where the picture ends there too.
                if ((x == 0 && borders.left) || (y == 0 && borders.top) || (x == width - 1 && borders.right) ||
                    (y == height - 1 && borders.bottom))
                    add(x, y);
                continue;
            }
            if (p[-s] <= 127 || p[s] <= 127 || p[-rs] <= 127 || p[rs] <= 127) add(x, y);
        }
    }
    if (out.size() == before) return {};
    return box;
}

AntsBorders SamplePlane(const COLChannel& plane, double zoom, int originX, int originY, int width, int height,
                        std::vector<uint8_t>& out)
{
    AntsBorders borders;
    out.assign(size_t(std::max(width, 0)) * size_t(std::max(height, 0)), 0);
    if (plane.IsNull() || width <= 0 || height <= 0 || !(zoom > 0)) return borders;
    const int pw = int(plane.GetWidth()), ph = int(plane.GetHeight());
    // The plane pixel under each screen column's and row's centre.
    auto source = [zoom](int origin, int i) { return origin + int(std::floor((i + 0.5) / zoom)); };
    std::vector<int> columns(size_t(width), -1);
    for (int x = 0; x < width; ++x) {
        const int px = source(originX, x);
        if (px >= 0 && px < pw) columns[size_t(x)] = px;
    }
    for (int y = 0; y < height; ++y) {
        const int py = source(originY, y);
        if (py < 0 || py >= ph) continue;
        const uint8_t* src = plane.GetBuffer(0, uint32_t(py));
        uint8_t* dst = out.data() + size_t(y) * size_t(width);
        for (int x = 0; x < width; ++x)
            if (columns[size_t(x)] >= 0) dst[x] = src[columns[size_t(x)]];
    }
    borders.left = originX <= 0;
    borders.top = originY <= 0;
    borders.right = source(originX, width - 1) >= pw - 1;
    borders.bottom = source(originY, height - 1) >= ph - 1;
    return borders;
}
