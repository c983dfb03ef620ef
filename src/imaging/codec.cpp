#include "imaging/codec.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iterator>
#include <string>
#include <utility>

#include "imaging/codec_formats.h"

const char* FileTypeName(uint32_t type)
{
    switch (type) {
    case kFileBmp:
        return "BMP";
    case kFileJpeg:
        return "JPEG";
    case kFileGif:
        return "GIF";
    case kFilePcx:
        return "PCX";
    case kFileTiff:
        return "TIFF";
    case kFileTga:
        return "TGA";
    case kFilePng:
        return "PNG";
    case kFileProject:
        return "Velmorando project";
    case kFilePsd:
        return "PSD";
    default:
        return "unusable";
    }
}

namespace {

// TGA has no signature at its start, so only these names make a file worth a closer look.
constexpr const char* kTgaExtensions[] = {"tga", "vda", "icb", "vst"};
// The formats known by their signature, under the names such files carry.
constexpr const char* kSignedExtensions[] = {"bmp", "dib", "jpg", "jpeg", "jpe", "jfif", "gif", "pcx",
                                             "tif", "tiff", "png"};

bool IsTgaExtension(const std::string& ext)
{
    return std::find(std::begin(kTgaExtensions), std::end(kTgaExtensions), ext) != std::end(kTgaExtensions);
}

uint32_t TypeFromContent(const uint8_t* h, size_t n)
{
    auto starts = [&](const char* sig, size_t len) { return n >= len && std::memcmp(h, sig, len) == 0; };
    if (starts("VMPD", 4)) return kFileProject;
    if (starts("8BPS", 4)) return kFilePsd;
    if (starts("\x89PNG\r\n\x1a\n", 8)) return kFilePng;
    if (n >= 3 && h[0] == 0xFF && h[1] == 0xD8 && h[2] == 0xFF) return kFileJpeg;
    if (starts("GIF87a", 6) || starts("GIF89a", 6)) return kFileGif;
    if (starts("II*\0", 4) || starts("MM\0*", 4) || starts("II+\0", 4) || starts("MM\0+", 4)) return kFileTiff;
    if (starts("BM", 2) && n >= 18) {
        const uint32_t header = codec::Le32(h + 14);
        if (header == 12 || header == 40 || header == 52 || header == 56 || header == 64 || header == 108 ||
            header == 124)
            return kFileBmp;
    }
    // PCX has only a weak signature: maker byte 10, a known version, encoding 0 or 1, known depth and planes.
    if (n >= 128 && h[0] == 0x0A && (h[1] <= 5 && h[1] != 1) && h[2] <= 1 &&
        (h[3] == 1 || h[3] == 2 || h[3] == 4 || h[3] == 8) && h[65] >= 1 && h[65] <= 4)
        return kFilePcx;
    return kFileUnusable;
}

bool PlausibleTga(const uint8_t* h, size_t n)
{
    if (n < 18 || h[1] > 1) return false;
    const uint8_t type = h[2] & ~8;
    const uint8_t depth = h[16];
    return type >= 1 && type <= 3 && codec::Le16(h + 12) > 0 && codec::Le16(h + 14) > 0 &&
           (depth == 8 || depth == 15 || depth == 16 || depth == 24 || depth == 32);
}

bool LoadByTypeOrThrow(const char* path, uint32_t type, COLImage& image)
{
    if (type == kFileTiff) return codec::LoadTiff(path, image);
    if (type == kFileGif) return codec::LoadGif(path, image);
    codec::CMappedFile file;
    if (!file.Open(path)) return false;
    switch (type) {
    case kFilePng:
        return codec::LoadPng(file.Data(), file.Size(), image);
    case kFileJpeg:
        return codec::LoadJpeg(file.Data(), file.Size(), image);
    case kFileBmp:
        return codec::LoadBmp(file.Data(), file.Size(), image);
    case kFileTga:
        return codec::LoadTga(file.Data(), file.Size(), image);
    case kFilePcx:
        return codec::LoadPcx(file.Data(), file.Size(), image);
    default:
        return false;
    }
}

// Nothing is thrown across the codec's boundary: running out of memory (or threads) is a failed operation.
template <class F> bool Guarded(F f)
{
    try {
        return f();
    } catch (const std::exception&) {
        return false;
    }
}

bool LoadByType(const char* path, uint32_t type, COLImage& image)
{
    return Guarded([&] { return LoadByTypeOrThrow(path, type, image); });
}

} // namespace

bool IsPictureExtension(const char* extension)
{
    if (!extension) return false;
    if (*extension == '.') ++extension;
    std::string ext(extension);
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return IsTgaExtension(ext) ||
           std::find(std::begin(kSignedExtensions), std::end(kSignedExtensions), ext) != std::end(kSignedExtensions);
}

uint32_t COLImageCodec::GetFileType(const char* path)
{
    if (!path) return kFileUnusable;
    codec::CMappedFile file;
    if (!file.Open(path) || file.Size() == 0) return kFileUnusable;
    const uint32_t byContent = TypeFromContent(file.Data(), file.Size());
    if (byContent != kFileUnusable) return byContent;
    // TGA has no signature at its start; a version 2 file ends with one, an older one only has its name.
    if (codec::IsTgaFooter(file.Data(), file.Size())) return kFileTga;
    const std::string ext = codec::Extension(path);
    if (IsTgaExtension(ext) && PlausibleTga(file.Data(), file.Size()))
        return kFileTga;
    return kFileUnusable;
}

int COLImageCodec::LoadFile(const char* path, COLImage* image)
{
    if (!image) return 0;
    COLImage loaded;
    const uint32_t type = path ? GetFileType(path) : kFileUnusable;
    if (!LoadByType(path, type, loaded) || loaded.IsNull()) {
        image->Free();
        return 0;
    }
    *image = std::move(loaded);
    return 1;
}

int COLImageCodec::SaveFile(const char* path, const COLImage* image)
{
    if (!path || !image || image->IsNull()) return 0;
    const std::string ext = codec::Extension(path);
    return Guarded([&] {
        if (ext == "bmp" || ext == "dib") return codec::SaveBmp(path, *image);
        if (ext == "jpg" || ext == "jpeg" || ext == "jpe" || ext == "jfif")
            return codec::SaveJpeg(path, *image, 90, false, 72);
        if (ext == "png") return codec::SavePng(path, *image, false);
        if (ext == "tif" || ext == "tiff") return codec::SaveTiff(path, *image);
        if (ext == "tga") return codec::SaveTga(path, *image);
        return false;
    })
               ? 1
               : 0;
}

int COLImageCodec::SaveFileWithAlpha(const char* path, const COLImage* image)
{
    if (!path || !image || image->IsNull()) return 0;
    return Guarded([&] { return codec::SavePng(path, *image, true); }) ? 1 : 0;
}

int COLImageCodec::SaveJpegFile(const char* path, const COLImage* image, int quality, int dpi)
{
    if (!path || !image || image->IsNull()) return 0;
    // Above 100 the caller asks for the same quality without chroma subsampling.
    const bool fullChroma = quality > 100;
    if (fullChroma) quality -= 100;
    return Guarded([&] { return codec::SaveJpeg(path, *image, quality, fullChroma, dpi); }) ? 1 : 0;
}

int COLImageCodec::CreateThumbnail(const char* path, COLImage* image, int maxSide, int& width, int& height, int square)
{
    width = height = 0;
    if (!image || maxSide < 1 || maxSide > int(kMaxImageSide)) return 0;
    COLImage picture;
    if (!LoadFile(path, &picture)) {
        image->Free();
        return 0;
    }
    width = int(picture.GetWidth());
    height = int(picture.GetHeight());
    int tw = width, th = height;
    if (tw > maxSide || th > maxSide) {
        if (tw >= th) {
            th = std::max(1, int(int64_t(th) * maxSide / tw));
            tw = maxSide;
        } else {
            tw = std::max(1, int(int64_t(tw) * maxSide / th));
            th = maxSide;
        }
    }
    COLImage reduced;
    if (!Resample(&picture, &reduced, tw, th, 1)) {
        image->Free();
        return 0;
    }
    if (!square) {
        *image = std::move(reduced);
        return 1;
    }
    COLImage framed;
    if (framed.Create(uint32_t(maxSide), uint32_t(maxSide)) != kOk) {
        image->Free();
        return 0;
    }
    std::fill(framed.GetBuffer(), framed.GetBuffer() + framed.GetPixelCount(), CPixel{0, 0, 0, 0});
    const uint32_t ox = uint32_t(maxSide - tw) / 2, oy = uint32_t(maxSide - th) / 2;
    for (uint32_t y = 0; y < uint32_t(th); ++y)
        std::memcpy(framed.GetBuffer(ox, oy + y), reduced.GetBuffer(0, y), size_t(tw) * 4);
    *image = std::move(framed);
    return 1;
}

int EncodeJpegToMemory(const COLImage& image, int quality, int dpi, std::vector<uint8_t>& out,
                       const std::function<bool()>* cancel)
{
    if (image.IsNull()) return 0;
    const bool fullChroma = quality > 100;
    if (fullChroma) quality -= 100;
    return Guarded([&] { return codec::EncodeJpeg(image, quality, fullChroma, dpi, out, cancel); }) ? 1 : 0;
}

int DecodeJpegFromMemory(const uint8_t* data, size_t size, COLImage& image)
{
    if (!data) return 0;
    if (Guarded([&] { return codec::LoadJpeg(data, size, image); })) return 1;
    image.Free();
    return 0;
}
