#include "commands/history_payload.h"

#include "commands/stream_io.h"
#include "imaging/channel.h"
#include "imaging/image.h"

namespace vmhist {

namespace {

// Rows of a plane with `bpp` bytes per pixel; a rectangle of whole rows is one contiguous block.
bool WritePlaneRows(FILE* stream, const uint8_t* base, uint32_t width, uint32_t bpp, const CChangeRect& rect)
{
    if (RectIsEmpty(rect)) return true;
    const size_t rowBytes = size_t(rect.right - rect.left) * bpp;
    const size_t stride = size_t(width) * bpp;
    const uint8_t* first = base + size_t(rect.top) * stride + size_t(rect.left) * bpp;
    if (rowBytes == stride) return vmio::WriteBytes(stream, first, rowBytes * size_t(rect.bottom - rect.top));
    for (int32_t y = rect.top; y < rect.bottom; ++y, first += stride)
        if (!vmio::WriteBytes(stream, first, rowBytes)) return false;
    return true;
}

bool ReadPlaneRows(FILE* stream, uint8_t* base, uint32_t width, uint32_t bpp, const CChangeRect& rect)
{
    if (RectIsEmpty(rect)) return true;
    const size_t rowBytes = size_t(rect.right - rect.left) * bpp;
    const size_t stride = size_t(width) * bpp;
    uint8_t* first = base + size_t(rect.top) * stride + size_t(rect.left) * bpp;
    if (rowBytes == stride) return vmio::ReadBytes(stream, first, rowBytes * size_t(rect.bottom - rect.top));
    for (int32_t y = rect.top; y < rect.bottom; ++y, first += stride)
        if (!vmio::ReadBytes(stream, first, rowBytes)) return false;
    return true;
}

} // namespace

bool WriteRect(FILE* stream, const CChangeRect& rect)
{
    uint8_t b[16];
    vmio::PutI32(b, rect.left);
    vmio::PutI32(b + 4, rect.top);
    vmio::PutI32(b + 8, rect.right);
    vmio::PutI32(b + 12, rect.bottom);
    return vmio::WriteBytes(stream, b, sizeof b);
}

bool ReadRect(FILE* stream, CChangeRect& rect)
{
    uint8_t b[16];
    if (!vmio::ReadBytes(stream, b, sizeof b)) return false;
    rect.left = vmio::GetI32(b);
    rect.top = vmio::GetI32(b + 4);
    rect.right = vmio::GetI32(b + 8);
    rect.bottom = vmio::GetI32(b + 12);
    return true;
}

bool RectInside(const CChangeRect& rect, uint32_t width, uint32_t height)
{
    return rect.left >= 0 && rect.top >= 0 && rect.left <= rect.right && rect.top <= rect.bottom &&
           static_cast<uint32_t>(rect.right) <= width && static_cast<uint32_t>(rect.bottom) <= height;
}

bool RectIsEmpty(const CChangeRect& rect) { return rect.right <= rect.left || rect.bottom <= rect.top; }

uint64_t RectArea(const CChangeRect& rect)
{
    if (RectIsEmpty(rect)) return 0;
    return uint64_t(int64_t(rect.right) - rect.left) * uint64_t(int64_t(rect.bottom) - rect.top);
}

CChangeRect WholeRect(uint32_t width, uint32_t height)
{
    return {0, 0, static_cast<int32_t>(width), static_cast<int32_t>(height)};
}

bool PlausibleRect(const CChangeRect& rect, uint32_t bytesPerPixel, FILE* stream)
{
    if (rect.left < 0 || rect.top < 0 || rect.right < rect.left || rect.bottom < rect.top) return false;
    if (uint32_t(rect.right - rect.left) > kMaxImageSide || uint32_t(rect.bottom - rect.top) > kMaxImageSide)
        return false;
    return RectArea(rect) * bytesPerPixel <= vmio::RemainingBytes(stream);
}

bool WriteRows(FILE* stream, const COLImage& image, const CChangeRect& rect)
{
    return WritePlaneRows(stream, reinterpret_cast<const uint8_t*>(image.GetBuffer()), image.GetWidth(), 4, rect);
}

bool WriteRows(FILE* stream, const COLChannel& channel, const CChangeRect& rect)
{
    return WritePlaneRows(stream, channel.GetBuffer(), channel.GetWidth(), 1, rect);
}

bool ReadRows(FILE* stream, COLImage& image, const CChangeRect& rect)
{
    return ReadPlaneRows(stream, reinterpret_cast<uint8_t*>(image.GetBuffer()), image.GetWidth(), 4, rect);
}

bool ReadRows(FILE* stream, COLChannel& channel, const CChangeRect& rect)
{
    return ReadPlaneRows(stream, channel.GetBuffer(), channel.GetWidth(), 1, rect);
}

} // namespace vmhist
