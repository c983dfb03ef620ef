#include "interchange/psd_writer.h"

#include <cstring>
#include <string_view>
#include <vector>

#include "imaging/image.h"
#include "imaging/safe_file.h"
#include "interchange/psd_format.h"
#include "matting/parallel_for.h"

namespace {

constexpr char kDefaultName[] = "Velmorando";

// One byte of every pixel as a plane; with `matted` the colour laid over white by the pixel's alpha, rounded:
// (c x a + 255 x (255 - a) + 127) / 255. Split over the pool; the bytes do not depend on the split.
void ExtractPlane(uint8_t* dst, const CPixel* px, size_t n, int byte, bool matted)
{
    vmpar::ParallelFor(n, size_t(1) << 18, [&](size_t begin, size_t end, unsigned) {
        const uint8_t* src = reinterpret_cast<const uint8_t*>(px) + byte;
        if (!matted) {
            for (size_t i = begin; i < end; ++i) dst[i] = src[4 * i];
            return;
        }
        for (size_t i = begin; i < end; ++i) {
            const uint32_t a = px[i].alpha;
            dst[i] = static_cast<uint8_t>((src[4 * i] * a + 255 * (255 - a) + 127) / 255);
        }
    });
}

} // namespace

int CPsdWriter::SaveImage(const char* path, const COLImage* image, const char* gbkName)
{
    if (!path || !image || image->IsEmpty()) return 0;
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
    std::vector<uint8_t> plane;
    try {
        plane.resize(n + 2);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    file.Write(head.Data(), head.Size());
    const CPixel* px = image->GetBuffer();
    // Layer channels, each with its compression word 0: alpha, red, green, blue, exactly as in the image.
    for (int byte : {3, 2, 1, 0}) {
        plane[0] = plane[1] = 0;
        ExtractPlane(plane.data() + 2, px, n, byte, false);
        file.Write(plane.data(), n + 2);
    }
    const uint8_t tail[6] = {0, 0, 0, 0, 0, 0}; // global mask length, merged compression raw
    file.Write(tail, sizeof tail);
    // The merged image: colours over white by alpha, then alpha.
    for (int byte : {2, 1, 0, 3}) {
        ExtractPlane(plane.data(), px, n, byte, byte != 3);
        file.Write(plane.data(), n);
    }
    return file.Commit() ? 1 : 0;
}

long SavePsd(const std::string& path, const COLImage& image, const char* gbkLayerName)
{
    CPsdWriter writer;
    return writer.SaveImage(path.c_str(), &image, gbkLayerName) ? kOk : kFail;
}
