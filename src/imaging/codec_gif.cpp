#include <algorithm>
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
        const uint64_t cw = std::max<uint64_t>(uint64_t(g->SWidth), uint64_t(d.Left) + d.Width);
        const uint64_t ch = std::max<uint64_t>(uint64_t(g->SHeight), uint64_t(d.Top) + d.Height);
        if (!SidesOk(cw, ch)) return false;
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
        if (image.Create(uint32_t(cw), uint32_t(ch)) != kOk) return false;
        std::fill(image.GetBuffer(), image.GetBuffer() + image.GetPixelCount(), CPixel{0, 0, 0, 0});
        std::vector<GifPixelType> line(size_t(d.Width));
        auto readRow = [&](int y) {
            if (DGifGetLine(g, line.data(), d.Width) == GIF_ERROR) return false;
            CPixel* out = image.GetBuffer(uint32_t(d.Left), uint32_t(d.Top + y));
            for (int x = 0; x < d.Width; ++x)
                out[x] = palette[line[size_t(x)]];
            return true;
        };
        if (d.Interlace) {
            static const int start[4] = {0, 4, 2, 1}, step[4] = {8, 8, 4, 2};
            for (int pass = 0; pass < 4; ++pass)
                for (int y = start[pass]; y < d.Height; y += step[pass])
                    if (!readRow(y)) return false;
        } else {
            for (int y = 0; y < d.Height; ++y)
                if (!readRow(y)) return false;
        }
        return true;
    }
}

} // namespace codec
