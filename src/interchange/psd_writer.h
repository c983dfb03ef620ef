#pragma once

#include <string>

class COLImage;

// Writes one picture as a Photoshop document with one RGBA layer and an uncompressed merged image. Nothing of
// the layer stack, no blend modes, masks, colour mode data or image resources: a composition leaves through
// WriteLayeredPsd instead.
//
// Byte layout (W x H, n = W x H, c = n + 2): header with 4 channels, RGB, 8 bits; empty colour mode data and
// image resources; one layer record at (0, 0, H, W) with channels -1, 0, 1, 2 of length c each, "8BIMnorm",
// opacity 255, flags 0x20, ten blending ranges 00 00 FF FF, the name; the four channel blocks alpha, red, green,
// blue (compression 0, then the plane); a global mask length 0; the merged image raw as red, green, blue, alpha.
// The layer count is -1: the merged alpha holds the transparency.
//
// Two things differ from the oldest form of this file, for other programs' sake:
// - no padding byte follows a channel block when n is odd (GIMP refuses a file that has one);
// - the merged colours are laid over white by their alpha, as Photoshop stores them, so that a reader that
//   shows the merged image (ImageMagick's first frame) shows soft edges right. The layer keeps the exact pixels.
class CPsdWriter {
public:
    virtual ~CPsdWriter() = default;

    // The layer is named after gbkName (GBK, as a layer stores it), or "Velmorando" when it is null or empty.
    // Returns 1, or 0 when the file cannot be written; a failed write leaves no file and an older one untouched.
    int SaveImage(const char* path, const COLImage* image, const char* gbkName = nullptr);
};

// The same as a status: kOk or kFail. For the export path, which picks the writer by extension.
long SavePsd(const std::string& path, const COLImage& image, const char* gbkLayerName = nullptr);
