#include "document/render_scale.h"

#include <algorithm>

#include "imaging/image.h"

// Nearest-neighbour stretch: adequate for painting until the shared bilinear resampler is in the tree.
int ScaleForRender(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, int srcX, int srcY, int srcWidth,
                   int srcHeight)
{
    if (!src || !dst || src->IsEmpty()) return 0;
    if (dstWidth <= 0 || dstHeight <= 0) {
        if (dst->Create(1, 1) != kOk) return 0;
        dst->PutPixel(0, 0, CPixel::FromWord(0xFFFFFFFF));
        return 1;
    }
    const int sw0 = static_cast<int>(src->GetWidth()), sh0 = static_cast<int>(src->GetHeight());
    srcX = std::clamp(srcX, 0, sw0 - 1);
    srcY = std::clamp(srcY, 0, sh0 - 1);
    if (srcWidth < 0 || srcX + srcWidth > sw0) srcWidth = sw0 - srcX;
    if (srcHeight < 0 || srcY + srcHeight > sh0) srcHeight = sh0 - srcY;
    srcWidth = std::max(srcWidth, 1);
    srcHeight = std::max(srcHeight, 1);
    if (dst->Create(static_cast<uint32_t>(dstWidth), static_cast<uint32_t>(dstHeight)) != kOk) return 0;
    for (int y = 0; y < dstHeight; ++y) {
        const int sy = srcY + static_cast<int>(static_cast<long long>(y) * srcHeight / dstHeight);
        const CPixel* row = src->GetBuffer(0, static_cast<uint32_t>(sy));
        CPixel* out = dst->GetBuffer(0, static_cast<uint32_t>(y));
        for (int x = 0; x < dstWidth; ++x) out[x] = row[srcX + static_cast<int>(static_cast<long long>(x) * srcWidth / dstWidth)];
    }
    return 1;
}
