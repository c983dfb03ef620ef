#pragma once

#include <cstdint>
#include <cstdio>
#include <vector>

#include "imaging/image.h"
#include "imaging/rect.h"

class COLChannel;

// Layer kinds, also the first word of a layer's extra data.
inline constexpr int kLayerKindRaster = 0;
inline constexpr int kLayerKindText = 1;

inline constexpr int kLayerNameBytes = 32;        // GBK text with its NUL
inline constexpr uint32_t kRasterExtraBytes = 4;  // the kind word
inline constexpr uint32_t kTextExtraBytes = 1100; // kind word, 18 attribute words, 1,024 bytes of text
inline constexpr int kLayerHeaderBytes = 56;      // the fixed part of a stored layer record

// One layer: an image placed at (x, y) in document pixels, with name, opacity and blend mode.
// Colour is straight, alpha is coverage. Layers are owned by their CLayerStack.
class CLayer {
public:
    CLayer() = default;
    CLayer(const CLayer&) = delete;
    CLayer& operator=(const CLayer&) = delete;
    // Virtual so that a text layer can be destroyed through the list's CLayer pointer.
    virtual ~CLayer() = default;

    // With data null: size receives the byte count of the extra data (4 raster, 1,100 text) and the result is 1.
    // With data: the block is filled too; its first word is the kind.
    virtual int GetExtraData(uint32_t& size, std::vector<uint8_t>* data) const;
    // With a non-zero flag returns 1 at once. Otherwise writes the 56-byte header, the extra data and the
    // pixels; 1 on success, 0 on a short write.
    virtual int WriteRecord(FILE* stream, int flag) const;

    // The 56-byte header of a stored layer record: position, visible, name, opacity, blend mode, size, extra size.
    void BuildHeader(uint8_t (&header)[kLayerHeaderBytes]) const;

    // The smallest box (image coordinates) holding every pixel whose alpha is not 0. For an empty or fully
    // transparent image the box is inverted: (width, height, 0, 0).
    CRect GetContentBox() const;
    // Crops the image to the box of pixels whose alpha is not 0 and moves the layer so nothing shifts on screen.
    // A fully transparent or empty image is left alone. 0 only when the copy cannot be allocated.
    int TrimToContent();

    int m_x = 0;
    int m_y = 0;
    COLChannel* m_pChannel = nullptr;  // link into the stack's channel list, not owned
    char m_name[kLayerNameBytes] = {}; // GBK
    uint8_t m_opacity = 255;
    uint8_t m_blendMode = 0;
    COLImage m_image;
    int m_visible = 1;
    int m_kind = kLayerKindRaster;
};

// A layer that the text tool can re-edit: its pixels are the rendered text, these fields describe it.
class CTextLayer : public CLayer {
public:
    CTextLayer();

    int GetExtraData(uint32_t& size, std::vector<uint8_t>* data) const override;
    // Takes the text fields back from a 1,100-byte extra block (kind word 1); false for a block of another shape.
    bool ReadExtraData(const uint8_t* data, size_t size);

    uint32_t m_textColour = 0xFFFFFFFF;
    int32_t m_style[6] = {0, 1, 0, 0, 0, 0};
    char m_fontName[32] = "Arial";
    int32_t m_attributes = 0;
    int32_t m_fontSize = 16;
    char* m_pText;          // always the layer's own text field
    char m_text[1024] = {}; // GBK, NUL-terminated
};
