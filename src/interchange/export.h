#pragma once

#include <cstddef>
#include <string>

class COLImage;

// Every picture that leaves the program as a file goes through here: the command line, the save dialog and the
// layer export all pick the writer from the file name's extension with the same table, so a format added to the
// table reaches all of them at once.

// What the caller may choose about the file beyond its format.
struct ExportOptions {
    // JPEG only: 1..100 with 2x2 chroma subsampling, 101..200 for quality - 100 with full-resolution colour.
    // Out-of-range values are clamped into 1..200.
    int jpegQuality = 90;
};

// One writer. Writers write through a temporary file in the target's folder and rename it at the end, so a failed
// write never replaces a good file; they answer non-zero on success.
struct ExportFormat {
    const char* name;          // "PNG", for messages
    const char* extensions;    // lower case, separated by blanks, the usual one first: "jpg jpeg jpe jfif"
    bool keepsAlpha;           // the file holds the transparency; the others write the colours only
    int (*write)(const char* path, const COLImage& image, const ExportOptions& options);
};

// The table, in the order the formats are offered.
size_t ExportFormatCount();
const ExportFormat& GetExportFormat(size_t index);

// The writer for a file name, by its extension in any case ("Photo.JPG" is JPEG); null when none writes it.
const ExportFormat* FindExportFormat(const std::string& path);

// The first extension of every writer with its dot, joined for a message: ".png, .jpg, .bmp, .tif, .tga".
std::string ExportExtensionList();

// The name itself when a writer knows its extension, else the name with the format's usual extension added
// ("cut" or "cut.final" with PNG give "cut.png" and "cut.final.png"): a dialog's button chose the format, and the
// file must say what it holds.
std::string WithExportExtension(const std::string& path, const ExportFormat& format);

enum class EExportResult {
    kOk,
    kUnknownFormat,   // the name's extension names no writer
    kNothingToWrite,  // the image has no pixels
    kWriteFailed,     // folder missing, no permission, disk full; an older file of that name is kept
};

// Writes the image in the format the name's extension asks for.
EExportResult ExportPicture(const std::string& path, const COLImage& image, const ExportOptions& options = {});
