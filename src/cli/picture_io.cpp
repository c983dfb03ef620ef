#include "cli/picture_io.h"

#include "imaging/codec.h"
#include "imaging/image.h"

namespace cli {

std::string CheckWritable(const std::string& path, bool alsoProject)
{
    if (FindExportFormat(path)) return {};
    const std::string use = "; use " + ExportExtensionList() + (alsoProject ? ", .vmpd" : "");
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return "cannot write " + path + ": its name has no extension to choose the type by" + use;
    return "cannot write '" + path.substr(dot + 1) + "' files" + use;
}

std::string LoadPicture(const std::string& path, COLImage& image)
{
    COLImageCodec codec;
    if (codec.LoadFile(path.c_str(), &image)) return {};
    const uint32_t type = COLImageCodec::GetFileType(path.c_str());
    if (type == kFileUnusable) return "cannot read " + path + ": missing, or not a picture";
    return "cannot read " + path + ": damaged, too large or unsupported " + FileTypeName(type) + " file";
}

std::string SavePicture(const std::string& path, const COLImage& image, const ExportOptions& options)
{
    switch (ExportPicture(path, image, options)) {
    case EExportResult::kOk:
        return {};
    case EExportResult::kUnknownFormat:
        return CheckWritable(path);
    case EExportResult::kNothingToWrite:
        return "nothing to write to " + path + ": the picture is empty";
    case EExportResult::kWriteFailed:
        break;
    }
    return "cannot write " + path + " (folder missing, no permission or disk full)";
}

} // namespace cli
