#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "imaging/image.h"
#include "imaging/pixel.h"

// File type codes of GetFileType. Every code other than kFileUnusable, kFileProject and kFilePsd names a picture
// format that LoadFile reads.
inline constexpr uint32_t kFileBmp = 1;
inline constexpr uint32_t kFileJpeg = 2;
inline constexpr uint32_t kFileGif = 3;
inline constexpr uint32_t kFilePcx = 4;
inline constexpr uint32_t kFileTiff = 5;
inline constexpr uint32_t kFileTga = 6;
inline constexpr uint32_t kFilePng = 7;
inline constexpr uint32_t kFileUnusable = 10;
inline constexpr uint32_t kFileProject = 253;
inline constexpr uint32_t kFilePsd = 254;

// Short name of a file type code ("PNG", "JPEG", ...; "unusable" for anything unknown).
const char* FileTypeName(uint32_t type);

// True for the extensions of the picture files LoadFile reads (bmp dib jpg jpeg jpe jfif gif pcx tif tiff png tga
// vda icb vst), in any letter case, with or without the leading dot. For listing folders: a file's content
// still decides whether and how it loads.
bool IsPictureExtension(const char* extension);

// The picture-file and colour service. Objects hold no state: make one where it is needed and drop it after.
// Every operation is re-entrant, so the interface thread and the worker may use their own objects at once.
// Results are non-zero on success and 0 on failure; a failed load leaves the image empty.
class IOLImageCodec {
public:
    // Loads a picture and reduces it so that it fits in maxSide x maxSide, keeping its proportions; the
    // picture's own size comes back through width and height. With square non-zero the result is exactly
    // maxSide x maxSide, the picture centred on transparent margins.
    virtual int CreateThumbnail(const char* path, COLImage* image, int maxSide, int& width, int& height,
                                int square) = 0;
    // Turns the picture by angle degrees clockwise into a destination that holds all of it; corners that
    // the source does not cover are transparent. Multiples of 90 degrees are exact.
    virtual int Rotate(const COLImage* source, COLImage* destination, float angle) = 0;
    // HSB form in place: blue byte brightness, green byte saturation, red byte hue (the colour circle on
    // 0..255, 255 being a full turn); alpha untouched.
    virtual void RGB2HSB(CPixel* pixels, int count) = 0;
    virtual void HSB2RGB(CPixel* pixels, int count) = 0;
    // Creates the destination at width x height. Method 1: area average where a side shrinks, bilinear
    // where it grows; all four bytes are resampled alike.
    virtual int Resample(const COLImage* source, COLImage* destination, int width, int height, int method) = 0;
    // YUV form in place: red byte luma, blue byte the blue difference (Cb), green byte the red difference
    // (Cr), both offset by 128; alpha untouched.
    virtual int YUVToRGB(COLImage* image) = 0;
    virtual int RGBToYUV(COLImage* image) = 0;
    // Quality 1..100 with 2x2 chroma subsampling; 101..200 is quality - 100 with full-resolution chroma.
    virtual int SaveJpegFile(const char* path, const COLImage* image, int quality, int dpi) = 0;
    // The format follows the extension (.bmp .jpg .jpeg .png .tif .tiff .tga); alpha is not kept.
    virtual int SaveFile(const char* path, const COLImage* image) = 0;
    // Creates the image at the file's size; alpha from the file where it has any, otherwise 255.
    virtual int LoadFile(const char* path, COLImage* image) = 0;
    virtual ~IOLImageCodec() = default;
};

class COLImageCodec : public IOLImageCodec {
public:
    int CreateThumbnail(const char* path, COLImage* image, int maxSide, int& width, int& height, int square) override;
    int Rotate(const COLImage* source, COLImage* destination, float angle) override;
    void RGB2HSB(CPixel* pixels, int count) override;
    void HSB2RGB(CPixel* pixels, int count) override;
    int Resample(const COLImage* source, COLImage* destination, int width, int height, int method) override;
    int YUVToRGB(COLImage* image) override;
    int RGBToYUV(COLImage* image) override;
    int SaveJpegFile(const char* path, const COLImage* image, int quality, int dpi) override;
    int SaveFile(const char* path, const COLImage* image) override;
    int LoadFile(const char* path, COLImage* image) override;

    void RGB2YUV(CPixel* pixels, int count);
    // Writes an RGBA PNG whatever the file is called: the one format every program reads with alpha.
    int SaveFileWithAlpha(const char* path, const COLImage* image);

    // Looks at the content first (signatures, "VMPD" projects, "8BPS" PSD), then at the extension for the
    // formats that have no signature. A file that cannot be read or recognised gives kFileUnusable.
    static uint32_t GetFileType(const char* path);
};

// The bytes of the JPEG file SaveJpegFile(quality, dpi) would write, in memory: for measuring a quality's file
// size without touching the disk. cancel (may be null) is asked every 16 rows and stops the encoding when it
// answers true. 1, or 0 on failure or cancel (out is then unspecified).
int EncodeJpegToMemory(const COLImage& image, int quality, int dpi, std::vector<uint8_t>& out,
                       const std::function<bool()>* cancel = nullptr);
// Reads a JPEG file's bytes; 1, or 0 with the image empty.
int DecodeJpegFromMemory(const uint8_t* data, size_t size, COLImage& image);
