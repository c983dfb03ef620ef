#pragma once

// Internal to the codec: one reader (and writer) per file format, used by COLImageCodec. Every reader builds
// the picture in the image it is given and answers false on any damage; the caller then frees that image.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "imaging/image.h"
#include "imaging/result.h"

namespace codec {

// A whole regular file, read-only, mapped into memory.
class CMappedFile {
public:
    CMappedFile() = default;
    ~CMappedFile();
    CMappedFile(const CMappedFile&) = delete;
    CMappedFile& operator=(const CMappedFile&) = delete;
    bool Open(const char* path);
    const uint8_t* Data() const { return m_pData; }
    size_t Size() const { return m_size; }

private:
    const uint8_t* m_pData = nullptr;
    size_t m_size = 0;
    void* m_pMapped = nullptr;
};

inline bool SidesOk(uint64_t width, uint64_t height)
{
    return width > 0 && height > 0 && width <= kMaxImageSide && height <= kMaxImageSide;
}

// Little-endian field readers over a buffer the caller has bounds-checked.
inline uint16_t Le16(const uint8_t* p)
{
    return static_cast<uint16_t>(p[0] | p[1] << 8);
}
inline uint32_t Le32(const uint8_t* p)
{
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

// Lower-case extension of a path without the dot ("" when there is none).
std::string Extension(const char* path);

// If every pixel's alpha is 0 the file's fourth byte was padding, not coverage: make the picture opaque.
void OpaqueIfAllClear(COLImage& image);

bool LoadPng(const uint8_t* data, size_t size, COLImage& image);
bool LoadJpeg(const uint8_t* data, size_t size, COLImage& image);
bool LoadBmp(const uint8_t* data, size_t size, COLImage& image);
bool LoadTga(const uint8_t* data, size_t size, COLImage& image);
bool LoadPcx(const uint8_t* data, size_t size, COLImage& image);
bool LoadTiff(const char* path, COLImage& image);
bool LoadGif(const char* path, COLImage& image);
// True when a buffer ends with the footer of a version 2 TGA file.
bool IsTgaFooter(const uint8_t* data, size_t size);

// RGBA or RGB, Paeth-filtered, run-length compressed in bands on all cores.
bool SavePng(const char* path, const COLImage& image, bool alpha);
bool SaveJpeg(const char* path, const COLImage& image, int quality, bool fullChroma, int dpi);
// The bytes SaveJpeg would write, in memory. cancel (may be null) is asked every 16 rows; true stops (false).
bool EncodeJpeg(const COLImage& image, int quality, bool fullChroma, int dpi, std::vector<uint8_t>& out,
                const std::function<bool()>* cancel);
bool SaveBmp(const char* path, const COLImage& image);
bool SaveTga(const char* path, const COLImage& image);
bool SaveTiff(const char* path, const COLImage& image);

// Turns a decoded photo upright from its EXIF orientation (1..8); other values leave it as it is.
bool ApplyOrientation(COLImage& image, int orientation);
// The orientation stored in an APP1 "Exif" payload, or 1 when there is none or it cannot be read.
int ExifOrientation(const uint8_t* data, size_t size);

} // namespace codec
