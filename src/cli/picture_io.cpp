#include "cli/picture_io.h"

#include <cctype>

#include "cli/psd_cli.h"
#include "imaging/codec.h"
#include "imaging/image.h"

namespace cli {

std::string LowerExtension(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return {};
    std::string ext = path.substr(dot + 1);
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

bool WritableExtension(const std::string& ext)
{
    return ext == "png" || ext == "jpg" || ext == "jpeg" || ext == "bmp" || ext == "tif" || ext == "tiff" ||
           ext == "tga";
}

std::string LoadPicture(const std::string& path, COLImage& image)
{
    COLImageCodec codec;
    const uint32_t type = COLImageCodec::GetFileType(path.c_str());
    if (type == kFilePsd) {
        std::string error;
        return LoadPsdPicture(path, image, error) ? std::string() : error;
    }
    if (codec.LoadFile(path.c_str(), &image)) return {};
    if (type == kFileUnusable) return "cannot read " + path + ": missing, or not a picture";
    return "cannot read " + path + ": damaged, too large or unsupported " + FileTypeName(type) + " file";
}

std::string SavePicture(const std::string& path, const COLImage& image)
{
    COLImageCodec codec;
    const std::string ext = LowerExtension(path);
    int ok;
    if (ext == "png")
        ok = codec.SaveFileWithAlpha(path.c_str(), &image);
    else if (ext == "jpg" || ext == "jpeg")
        ok = codec.SaveJpegFile(path.c_str(), &image, 90, 72);
    else
        ok = codec.SaveFile(path.c_str(), &image);
    return ok ? std::string() : "cannot write " + path + " (folder missing, no permission or disk full)";
}

} // namespace cli
