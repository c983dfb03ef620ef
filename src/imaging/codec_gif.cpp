#include <algorithm>
#include <cstring>
#include <gif_lib.h>
#include <vector>

#include "imaging/codec_formats.h"

namespace codec {

namespace {

struct GifCloser {
    GifFileType* g;
    ~GifCloser()
    {
        int error = 0;
        if (g) DGifCloseFile(g, &error);
    }
};

bool SkipExtensionBlocks(GifFileType* g, GifByteType* block)
{
    while (block) {
        if (DGifGetExtensionNext(g, &block) == GIF_ERROR) return false;
    }
    return true;
}

} // namespace

// Reads the first frame on a canvas of the logical screen's size. Pixels outside the frame, and those of the
// transparent index, are transparent.
bool LoadGif(const char* path, COLImage& image)
{
    int error = 0;
    GifCloser gif{DGifOpenFileName(path, &error)};
    GifFileType* g = gif.g;
    if (!g) return false;
    int transparent = -1;
    for (;;) {
        GifRecordType type;
        if (DGifGetRecordType(g, &type) == GIF_ERROR) return false;
        if (type == TERMINATE_RECORD_TYPE) return false; // no frame at all
        if (type == EXTENSION_RECORD_TYPE) {
            int code = 0;
            GifByteType* block = nullptr;
            if (DGifGetExtension(g, &code, &block) == GIF_ERROR) return false;
            if (code == GRAPHICS_EXT_FUNC_CODE && block && block[0] >= 4) transparent = (block[1] & 1) ? block[4] : -1;
            if (!SkipExtensionBlocks(g, block)) return false;
            continue;
        }
        if (type != IMAGE_DESC_RECORD_TYPE) return false;
        if (DGifGetImageDesc(g) == GIF_ERROR) return false;
        const GifImageDesc& d = g->Image;
        if (d.Left < 0 || d.Top < 0 || !SidesOk(uint32_t(d.Width), uint32_t(d.Height))) return false;
        // The canvas is the logical screen, or the frame's own size where that is larger (writers that leave the
        // screen at 0 x 0). The frame is clipped to it: an offset alone never makes the picture larger, so a few
        // bytes cannot ask for a canvas of 18000 x 18000. A frame wholly off the screen shows nothing: refused.
        const uint32_t cw = std::max<uint32_t>(uint32_t(std::max(g->SWidth, 0)), uint32_t(d.Width));
        const uint32_t ch = std::max<uint32_t>(uint32_t(std::max(g->SHeight, 0)), uint32_t(d.Height));
        if (!SidesOk(cw, ch) || uint32_t(d.Left) >= cw || uint32_t(d.Top) >= ch) return false;
        const uint32_t visibleWidth = std::min<uint32_t>(uint32_t(d.Width), cw - uint32_t(d.Left));
        const uint32_t visibleHeight = std::min<uint32_t>(uint32_t(d.Height), ch - uint32_t(d.Top));
        const ColorMapObject* map = d.ColorMap ? d.ColorMap : g->SColorMap;
        CPixel palette[256];
        for (int i = 0; i < 256; ++i) {
            const uint8_t v = static_cast<uint8_t>(i);
            palette[i] = map ? CPixel::Make(0, 0, 0) : CPixel::Make(v, v, v); // no map: a gray ramp
        }
        if (map)
            for (int i = 0; i < std::min(map->ColorCount, 256); ++i)
                palette[i] = CPixel::Make(map->Colors[i].Red, map->Colors[i].Green, map->Colors[i].Blue);
        if (transparent >= 0) palette[transparent].alpha = 0;
        // The frame is decoded before the canvas is made, so a damaged or cut-off file is refused before a
        // screen of up to 20000 x 20000 is allocated and cleared for the few rows its bytes could hold.
        std::vector<GifPixelType> rows, line(size_t(d.Width));
        for (int y = 0; y < d.Height; ++y) {
            if (DGifGetLine(g, line.data(), d.Width) == GIF_ERROR) return false;
            rows.insert(rows.end(), line.begin(), line.end());
        }
        if (image.Create(cw, ch) != kOk) return false;
        std::memset(image.GetBuffer(), 0, image.GetPixelCount() * sizeof(CPixel));   // transparent
        // Rows are stored in file order; an interlaced frame stores them in four passes.
        const GifPixelType* in = rows.data();
        auto putRow = [&](int y) {
            const GifPixelType* row = in;
            in += d.Width;
            if (uint32_t(y) >= visibleHeight) return;
            CPixel* out = image.GetBuffer(uint32_t(d.Left), uint32_t(d.Top + y));
            for (uint32_t x = 0; x < visibleWidth; ++x) out[x] = palette[row[x]];
        };
        if (d.Interlace) {
            static const int start[4] = {0, 4, 2, 1}, step[4] = {8, 8, 4, 2};
            for (int pass = 0; pass < 4; ++pass)
                for (int y = start[pass]; y < d.Height; y += step[pass]) putRow(y);
        } else {
            for (int y = 0; y < d.Height; ++y) putRow(y);
        }
        return true;
    }
}

} // namespace codec
