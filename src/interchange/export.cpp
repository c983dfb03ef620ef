#include "interchange/export.h"

#include <algorithm>
#include <cctype>

#include "imaging/codec.h"
#include "imaging/image.h"

namespace {

int WritePng(const char* path, const COLImage& image, const ExportOptions&)
{
    return COLImageCodec().SaveFileWithAlpha(path, &image);
}

int WriteJpeg(const char* path, const COLImage& image, const ExportOptions& options)
{
    // 72 dots per inch, the resolution the other writers store too.
    return COLImageCodec().SaveJpegFile(path, &image, std::clamp(options.jpegQuality, 1, 200), 72);
}

// BMP, TIFF and TGA: the codec's plain writer, which follows the same extensions as the table below.
int WriteColours(const char* path, const COLImage& image, const ExportOptions&)
{
    return COLImageCodec().SaveFile(path, &image);
}

// One row per format. A new writer is one row here (and the include of its header above).
const ExportFormat kFormats[] = {
    {"PNG", "png", true, WritePng},
    {"JPEG", "jpg jpeg jpe jfif", false, WriteJpeg},
    {"BMP", "bmp dib", false, WriteColours},
    {"TIFF", "tif tiff", false, WriteColours},
    {"TGA", "tga", false, WriteColours},
};

// Lower-case extension of the file name without the dot; "" when the name has none.
std::string ExtensionOf(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    const size_t start = slash == std::string::npos ? 0 : slash + 1;
    const size_t dot = path.find_last_of('.');
    // A leading dot makes a hidden file's name, not an extension.
    if (dot == std::string::npos || dot <= start) return {};
    std::string ext = path.substr(dot + 1);
    for (char& c : ext)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

bool ListHolds(const char* list, const std::string& ext)
{
    if (ext.empty() || ext.find(' ') != std::string::npos) return false;
    const std::string words = std::string(" ") + list + " ";
    return words.find(" " + ext + " ") != std::string::npos;
}

std::string FirstExtension(const ExportFormat& format)
{
    const std::string list = format.extensions;
    return list.substr(0, list.find(' '));
}

} // namespace

size_t ExportFormatCount()
{
    return sizeof(kFormats) / sizeof(kFormats[0]);
}

const ExportFormat& GetExportFormat(size_t index)
{
    return kFormats[std::min(index, ExportFormatCount() - 1)];
}

const ExportFormat* FindExportFormat(const std::string& path)
{
    const std::string ext = ExtensionOf(path);
    for (const ExportFormat& f : kFormats)
        if (ListHolds(f.extensions, ext)) return &f;
    return nullptr;
}

std::string ExportExtensionList()
{
    std::string out;
    for (const ExportFormat& f : kFormats)
        out += (out.empty() ? "." : ", .") + FirstExtension(f);
    return out;
}

std::string WithExportExtension(const std::string& path, const ExportFormat& format)
{
    if (FindExportFormat(path)) return path;
    return path + "." + FirstExtension(format);
}

EExportResult ExportPicture(const std::string& path, const COLImage& image, const ExportOptions& options)
{
    const ExportFormat* format = FindExportFormat(path);
    if (!format) return EExportResult::kUnknownFormat;
    if (image.IsNull() || image.GetWidth() == 0 || image.GetHeight() == 0) return EExportResult::kNothingToWrite;
    return format->write(path.c_str(), image, options) ? EExportResult::kOk : EExportResult::kWriteFailed;
}
