#include "interchange/psd_writer.h"

#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include "imaging/image.h"
#include "imaging/safe_file.h"
#include "interchange/psd_format.h"
#include "runtime/parallel_for.h"

namespace {

constexpr char kDefaultName[] = "Velmorando";

// The four planes of the pixels in one pass, split over the pool (the bytes do not depend on the split). With
// `matted` the colours are laid over white by each pixel's alpha, rounded: (c x a + 255 x (255 - a) + 127) / 255.
// planes[k] receives byte shift[k] / 8 of each pixel's word.
void SplitPlanes(const CPixel* px, size_t n, uint8_t* const (&planes)[4], const unsigned (&shift)[4], bool matted)
{
    vmpar::ParallelFor(n, size_t(1) << 16, [=](size_t begin, size_t end, unsigned) {
        uint8_t* __restrict p0 = planes[0];
        uint8_t* __restrict p1 = planes[1];
        uint8_t* __restrict p2 = planes[2];
        uint8_t* __restrict p3 = planes[3];
        const unsigned s0 = shift[0], s1 = shift[1], s2 = shift[2], s3 = shift[3];
        for (size_t i = begin; i < end; ++i) {
            const uint32_t w = px[i].Word();
            uint32_t c0 = (w >> s0) & 0xFF, c1 = (w >> s1) & 0xFF, c2 = (w >> s2) & 0xFF;
            if (matted) {
                const uint32_t a = w >> 24, white = 255 * (255 - a) + 127;
                c0 = (c0 * a + white) / 255;
                c1 = (c1 * a + white) / 255;
                c2 = (c2 * a + white) / 255;
            }
            p0[i] = static_cast<uint8_t>(c0);
            p1[i] = static_cast<uint8_t>(c1);
            p2[i] = static_cast<uint8_t>(c2);
            p3[i] = static_cast<uint8_t>(w >> s3);
        }
    });
}

} // namespace

int CPsdWriter::SaveImage(const char* path, const COLImage* image, const char* gbkName)
{
    if (!path || !image || image->IsNull()) return 0;
    const uint32_t w = image->GetWidth(), h = image->GetHeight();
    const size_t n = image->GetPixelCount();
    const uint32_t c = static_cast<uint32_t>(n + 2);
    const std::string_view name =
        gbkName && *gbkName ? std::string_view(gbkName, strnlen(gbkName, 255)) : std::string_view(kDefaultName);

    // The layer record's extra data: no mask, the blending ranges, the name.
    psd::CByteSink extra;
    extra.U32(0);
    extra.U32(40);
    for (int i = 0; i < 10; ++i)
        extra.U32(0x0000FFFF);
    psd::AppendLayerName(extra, name);
    const uint32_t extraSize = static_cast<uint32_t>(extra.Size());
    const uint32_t layerInfo = 2 + 18 + 24 + 16 + extraSize + 4 * c;

    psd::CByteSink head;
    head.Text("8BPS");
    head.U16(1);
    head.Zeros(6);
    head.U16(4);
    head.U32(h);
    head.U32(w);
    head.U16(8);
    head.U16(3);
    head.U32(0);
    head.U32(0);
    head.U32(layerInfo + 8);
    head.U32(layerInfo);
    head.U16(0xFFFF);
    head.U32(0);
    head.U32(0);
    head.U32(h);
    head.U32(w);
    head.U16(4);
    for (int id : {-1, 0, 1, 2}) {
        head.U16(static_cast<uint16_t>(id));
        head.U32(c);
    }
    head.Text("8BIMnorm");
    head.U8(255);
    head.U8(0);
    head.U8(0x20);
    head.U8(0);
    head.U32(extraSize);
    head.Text(std::string_view(reinterpret_cast<const char*>(extra.Data()), extra.Size()));

    CSafeFileWriter file;
    if (!file.Open(path)) return 0;
    // One block for the four layer channels (each behind its compression word 0), then the same block again for
    // the merged planes: each is written with one call.
    std::unique_ptr<uint8_t[]> block(new (std::nothrow) uint8_t[4 * (n + 2)]);
    if (!block) return 0;
    file.Write(head.Data(), head.Size());
    const CPixel* px = image->GetBuffer();
    uint8_t* const layer[4] = {block.get() + 2, block.get() + n + 4, block.get() + 2 * n + 6, block.get() + 3 * n + 8};
    for (uint8_t* p : layer)
        p[-1] = p[-2] = 0;
    // Layer: red, green, blue and alpha exactly as in the image, in the channel order alpha, red, green, blue.
    SplitPlanes(px, n, {layer[1], layer[2], layer[3], layer[0]}, {16, 8, 0, 24}, false);
    file.Write(block.get(), 4 * (n + 2));
    const uint8_t tail[6] = {0, 0, 0, 0, 0, 0}; // global mask length, merged compression raw
    file.Write(tail, sizeof tail);
    // Merged: red, green, blue over white by alpha, then alpha.
    uint8_t* const base = block.get();
    SplitPlanes(px, n, {base, base + n, base + 2 * n, base + 3 * n}, {16, 8, 0, 24}, true);
    file.Write(block.get(), 4 * n);
    return file.Commit() ? 1 : 0;
}

long SavePsd(const std::string& path, const COLImage& image, const char* gbkLayerName)
{
    CPsdWriter writer;
    return writer.SaveImage(path.c_str(), &image, gbkLayerName) ? kOk : kFail;
}
