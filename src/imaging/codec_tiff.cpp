#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <sys/stat.h>
#include <tiffio.h>
#include <vector>

#include "imaging/codec_formats.h"
#include "imaging/safe_file.h"

namespace codec {

namespace {

// libtiff's messages would go to stderr; a damaged file is reported by the result alone.
int Silent(TIFF*, void*, const char*, const char*, va_list)
{
    return 1;
}

TIFFOpenOptions* QuietOptions()
{
    TIFFOpenOptions* o = TIFFOpenOptionsAlloc();
    if (!o) return nullptr;
    TIFFOpenOptionsSetErrorHandlerExtR(o, Silent, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(o, Silent, nullptr);
    // No single allocation above what the largest accepted picture needs.
    TIFFOpenOptionsSetMaxSingleMemAlloc(o, tmsize_t(kMaxImageSide) * kMaxImageSide * 8);
    return o;
}

struct TiffCloser {
    TIFF* t;
    ~TiffCloser()
    {
        if (t) TIFFClose(t);
    }
};

// How the samples of a plain file map onto a pixel.
struct Layout {
    uint16_t bits = 8;
    uint16_t samples = 1;
    uint16_t photometric = PHOTOMETRIC_MINISBLACK;
    int alphaSample = -1; // index of the alpha sample, -1 when there is none
    bool premultiplied = false;
    const uint16_t* map[3] = {nullptr, nullptr, nullptr};
    bool map16 = true; // colour map entries in 0..65535 (some writers store 0..255)
};

inline uint32_t Sample(const uint8_t* row, size_t index, uint16_t bits)
{
    switch (bits) {
    case 8:
        return row[index];
    case 16:
        return reinterpret_cast<const uint16_t*>(row)[index]; // libtiff swaps to host order
    default: {
        const size_t bit = index * bits;
        return (row[bit >> 3] >> (8 - bits - (bit & 7))) & ((1u << bits) - 1);
    }
    }
}

inline uint8_t To8(uint32_t v, uint16_t bits)
{
    switch (bits) {
    case 8:
        return static_cast<uint8_t>(v);
    case 16:
        return static_cast<uint8_t>((v * 255 + 32895) >> 16);
    default:
        return static_cast<uint8_t>(v * 255 / ((1u << bits) - 1));
    }
}

// Stores samples firstSample .. firstSample + perPixel - 1 of count pixels from a row of raw samples.
void StoreRow(const Layout& l, const uint8_t* raw, int perPixel, int firstSample, uint32_t count, CPixel* out)
{
    for (uint32_t x = 0; x < count; ++x) {
        CPixel& p = out[x];
        for (int i = 0; i < perPixel; ++i) {
            const int s = firstSample + i;
            const uint32_t v = Sample(raw, size_t(x) * perPixel + i, l.bits);
            if (s == l.alphaSample) {
                p.alpha = To8(v, l.bits);
            } else if (s == 0 && l.photometric == PHOTOMETRIC_PALETTE) {
                const uint32_t n = 1u << l.bits;
                const uint32_t idx = v < n ? v : 0;
                p.red = l.map16 ? To8(l.map[0][idx], 16) : static_cast<uint8_t>(l.map[0][idx]);
                p.green = l.map16 ? To8(l.map[1][idx], 16) : static_cast<uint8_t>(l.map[1][idx]);
                p.blue = l.map16 ? To8(l.map[2][idx], 16) : static_cast<uint8_t>(l.map[2][idx]);
            } else if (s == 0 && l.photometric != PHOTOMETRIC_RGB) {
                uint8_t g = To8(v, l.bits);
                if (l.photometric == PHOTOMETRIC_MINISWHITE) g = static_cast<uint8_t>(255 - g);
                p.red = p.green = p.blue = g;
            } else if (l.photometric == PHOTOMETRIC_RGB && s < 3) {
                const uint8_t c = To8(v, l.bits);
                if (s == 0)
                    p.red = c;
                else if (s == 1)
                    p.green = c;
                else
                    p.blue = c;
            }
        }
    }
}

void Unpremultiply(COLImage& image)
{
    CPixel* p = image.GetBuffer();
    for (size_t i = 0; i < image.GetPixelCount(); ++i) {
        const int a = p[i].alpha;
        if (a == 0 || a == 255) continue;
        auto un = [a](uint8_t c) { return static_cast<uint8_t>(c >= a ? 255 : (c * 255 + a / 2) / a); };
        p[i].red = un(p[i].red);
        p[i].green = un(p[i].green);
        p[i].blue = un(p[i].blue);
    }
}

bool ReadPlain(TIFF* t, const Layout& l, uint16_t planar, COLImage& image)
{
    const uint32_t w = image.GetWidth(), h = image.GetHeight();
    const bool separate = planar == PLANARCONFIG_SEPARATE && l.samples > 1;
    const int planes = separate ? l.samples : 1;
    const int perPixel = separate ? 1 : l.samples;
    if (TIFFIsTiled(t)) {
        uint32_t tw = 0, th = 0;
        TIFFGetField(t, TIFFTAG_TILEWIDTH, &tw);
        TIFFGetField(t, TIFFTAG_TILELENGTH, &th);
        const tmsize_t tileSize = TIFFTileSize(t), rowSize = TIFFTileRowSize(t);
        if (tw == 0 || th == 0 || tileSize <= 0 || rowSize <= 0 || uint64_t(rowSize) * th > uint64_t(tileSize))
            return false;
        if (uint64_t(rowSize) * 8 < uint64_t(tw) * perPixel * l.bits) return false;
        std::vector<uint8_t> tile(static_cast<size_t>(tileSize));
        for (int s = 0; s < planes; ++s)
            for (uint32_t ty = 0; ty < h; ty += th)
                for (uint32_t tx = 0; tx < w; tx += tw) {
                    if (TIFFReadTile(t, tile.data(), tx, ty, 0, static_cast<uint16_t>(s)) < 0) return false;
                    const uint32_t cols = std::min(tw, w - tx), rows = std::min(th, h - ty);
                    for (uint32_t r = 0; r < rows; ++r)
                        StoreRow(l, tile.data() + size_t(r) * rowSize, perPixel, s, cols, image.GetBuffer(tx, ty + r));
                }
        return true;
    }
    const tmsize_t lineSize = TIFFScanlineSize(t);
    if (lineSize <= 0 || uint64_t(lineSize) * 8 < uint64_t(w) * perPixel * l.bits) return false;
    std::vector<uint8_t> line(static_cast<size_t>(lineSize));
    for (int s = 0; s < planes; ++s)
        for (uint32_t y = 0; y < h; ++y) {
            if (TIFFReadScanline(t, line.data(), y, static_cast<uint16_t>(s)) < 0) return false;
            StoreRow(l, line.data(), perPixel, s, w, image.GetBuffer(0, y));
        }
    return true;
}

// Everything else libtiff can turn into RGBA (YCbCr, JPEG-in-TIFF, CMYK, ...). It hands back premultiplied
// colour with red in the low byte.
bool ReadThroughRgba(TIFF* t, bool hasAlpha, COLImage& image)
{
    char message[1024];
    if (!TIFFRGBAImageOK(t, message)) return false;
    uint32_t* raster = reinterpret_cast<uint32_t*>(image.GetBuffer());
    if (!TIFFReadRGBAImageOriented(t, image.GetWidth(), image.GetHeight(), raster, ORIENTATION_TOPLEFT, 0))
        return false;
    CPixel* p = image.GetBuffer();
    for (size_t i = 0; i < image.GetPixelCount(); ++i) {
        const uint32_t v = raster[i];
        p[i] = CPixel::Make(static_cast<uint8_t>(TIFFGetR(v)), static_cast<uint8_t>(TIFFGetG(v)),
                            static_cast<uint8_t>(TIFFGetB(v)), static_cast<uint8_t>(TIFFGetA(v)));
    }
    if (hasAlpha) Unpremultiply(image);
    return true;
}

tsize_t StreamRead(thandle_t h, tdata_t buf, tsize_t n)
{
    return static_cast<tsize_t>(std::fread(buf, 1, static_cast<size_t>(n), static_cast<FILE*>(h)));
}
tsize_t StreamWrite(thandle_t h, tdata_t buf, tsize_t n)
{
    return static_cast<tsize_t>(std::fwrite(buf, 1, static_cast<size_t>(n), static_cast<FILE*>(h)));
}
toff_t StreamSeek(thandle_t h, toff_t off, int whence)
{
    FILE* f = static_cast<FILE*>(h);
    if (fseeko(f, static_cast<off_t>(off), whence) != 0) return static_cast<toff_t>(-1);
    return static_cast<toff_t>(ftello(f));
}
int StreamClose(thandle_t)
{
    return 0;
} // the safe writer owns the stream
toff_t StreamSize(thandle_t h)
{
    struct stat st {};
    std::fflush(static_cast<FILE*>(h));
    return fstat(fileno(static_cast<FILE*>(h)), &st) == 0 ? static_cast<toff_t>(st.st_size) : 0;
}
int NoMap(thandle_t, tdata_t*, toff_t*)
{
    return 0;
}
void NoUnmap(thandle_t, tdata_t, toff_t) {}

} // namespace

bool LoadTiff(const char* path, COLImage& image)
{
    TIFFOpenOptions* opts = QuietOptions();
    if (!opts) return false;
    TiffCloser tiff{TIFFOpenExt(path, "r", opts)};
    TIFFOpenOptionsFree(opts);
    TIFF* t = tiff.t;
    if (!t) return false;
    uint32_t w = 0, h = 0;
    TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &w);
    TIFFGetField(t, TIFFTAG_IMAGELENGTH, &h);
    if (!SidesOk(w, h)) return false;

    Layout l;
    uint16_t planar = PLANARCONFIG_CONTIG, format = SAMPLEFORMAT_UINT, extraCount = 0;
    uint16_t* extra = nullptr;
    TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &l.bits);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &l.samples);
    TIFFGetFieldDefaulted(t, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLEFORMAT, &format);
    TIFFGetFieldDefaulted(t, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
    const bool hasPhotometric = TIFFGetField(t, TIFFTAG_PHOTOMETRIC, &l.photometric) != 0;
    if (!hasPhotometric) l.photometric = l.samples >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
    const int colourSamples = l.photometric == PHOTOMETRIC_RGB ? 3 : 1;
    if (extraCount > 0 && extra && l.samples > colourSamples &&
        (extra[0] == EXTRASAMPLE_ASSOCALPHA || extra[0] == EXTRASAMPLE_UNASSALPHA)) {
        l.alphaSample = colourSamples;
        l.premultiplied = extra[0] == EXTRASAMPLE_ASSOCALPHA;
    }
    if (image.Create(w, h) != kOk) return false;
    std::fill(image.GetBuffer(), image.GetBuffer() + image.GetPixelCount(), CPixel::Make(0, 0, 0, 255));

    const bool plainBits = l.bits == 1 || l.bits == 2 || l.bits == 4 || l.bits == 8 || l.bits == 16;
    bool plain = format == SAMPLEFORMAT_UINT && plainBits && l.samples >= colourSamples && l.samples <= 8 &&
                 (l.photometric == PHOTOMETRIC_MINISBLACK || l.photometric == PHOTOMETRIC_MINISWHITE ||
                  l.photometric == PHOTOMETRIC_RGB || l.photometric == PHOTOMETRIC_PALETTE);
    if (plain && l.photometric == PHOTOMETRIC_PALETTE) {
        uint16_t *r = nullptr, *g = nullptr, *b = nullptr;
        if (l.bits > 8 || !TIFFGetField(t, TIFFTAG_COLORMAP, &r, &g, &b) || !r || !g || !b) return false;
        l.map[0] = r;
        l.map[1] = g;
        l.map[2] = b;
        l.map16 = false;
        for (uint32_t i = 0; i < (1u << l.bits); ++i)
            if (r[i] > 255 || g[i] > 255 || b[i] > 255) l.map16 = true;
    }
    if (!plain) return ReadThroughRgba(t, l.alphaSample >= 0, image);
    if (!ReadPlain(t, l, planar, image)) return false;
    if (l.premultiplied) Unpremultiply(image);
    return true;
}

bool SaveTiff(const char* path, const COLImage& image)
{
    if (image.IsNull() || !SidesOk(image.GetWidth(), image.GetHeight())) return false;
    CSafeFileWriter writer;
    if (!writer.Open(path)) return false;
    TIFFOpenOptions* opts = QuietOptions();
    if (!opts) return false;
    TIFF* t = TIFFClientOpenExt(path, "w", writer.Stream(), StreamRead, StreamWrite, StreamSeek, StreamClose,
                                StreamSize, NoMap, NoUnmap, opts);
    TIFFOpenOptionsFree(opts);
    if (!t) return false;
    TiffCloser closer{t};
    const uint32_t w = image.GetWidth(), h = image.GetHeight();
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, w);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, h);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    // LZW with the horizontal predictor: lossless, compact on photos, and read by every TIFF program.
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(t, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
    TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(t, TIFFTAG_XRESOLUTION, 72.0f);
    TIFFSetField(t, TIFFTAG_YRESOLUTION, 72.0f);
    std::vector<uint8_t> row(size_t(w) * 3);
    for (uint32_t y = 0; y < h; ++y) {
        const CPixel* p = image.GetBuffer(0, y);
        for (uint32_t x = 0; x < w; ++x) {
            row[3 * x] = p[x].red;
            row[3 * x + 1] = p[x].green;
            row[3 * x + 2] = p[x].blue;
        }
        if (TIFFWriteScanline(t, row.data(), y, 0) < 0) return false;
    }
    if (!TIFFWriteDirectory(t)) return false;
    closer.t = nullptr;
    TIFFClose(t);
    if (std::ferror(writer.Stream())) return false;
    return writer.Commit();
}

} // namespace codec
