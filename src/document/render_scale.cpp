#include "document/render_scale.h"

#include "filters/resample.h"

// The canvas paints through the shared bilinear resampler.
int ScaleForRender(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, int srcX, int srcY, int srcWidth,
                   int srcHeight)
{
    return ResampleImage(src, dst, dstWidth, dstHeight, srcX, srcY, srcWidth, srcHeight);
}
