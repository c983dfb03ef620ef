#include <algorithm>
#include <cstring>
#include <new>
#include <vector>
#include <zlib.h>

#include "imaging/codec_formats.h"
#include "imaging/safe_file.h"
#include "runtime/parallel_for.h"

// The PNG writer. Photos must save without making the user wait, so the rows are filtered with Paeth and
// compressed with zlib's run-length strategy (on photographs within a few per cent of libpng's default
// settings, at a tenth of the time), and the picture is cut into bands of about a megabyte that are compressed
// on all cores at once. Each band is a deflate stream of its own, ended by a sync flush, so their concatenation
// is one valid stream; the bands depend only on the picture's width, so the file is the same on any machine.

namespace codec {

namespace {

constexpr size_t kBandBytes = size_t(1) << 20;

struct Band {
    uint32_t firstRow = 0, rows = 0;
    std::vector<uint8_t> data; // raw deflate
    uLong adler = 1;
    bool ok = false;
};

inline uint8_t Paeth(int a, int b, int c)
{
    const int pa = std::abs(b - c), pb = std::abs(a - c), pc = std::abs(a + b - 2 * c);
    return static_cast<uint8_t>(pa <= pb && pa <= pc ? a : pb <= pc ? b : c);
}

// Source row y in file order (RGBA or RGB) into out.
void PackRow(const COLImage& image, uint32_t y, bool alpha, uint8_t* out)
{
    const CPixel* p = image.GetBuffer(0, y);
    const uint32_t w = image.GetWidth();
    if (alpha) {
        for (uint32_t x = 0; x < w; ++x, out += 4) {
            out[0] = p[x].red;
            out[1] = p[x].green;
            out[2] = p[x].blue;
            out[3] = p[x].alpha;
        }
    } else {
        for (uint32_t x = 0; x < w; ++x, out += 3) {
            out[0] = p[x].red;
            out[1] = p[x].green;
            out[2] = p[x].blue;
        }
    }
}

void CompressBandRows(const COLImage& image, bool alpha, bool last, Band& band)
{
    const size_t bpp = alpha ? 4 : 3, rowBytes = size_t(image.GetWidth()) * bpp;
    std::vector<uint8_t> prev(rowBytes, 0), cur(rowBytes), filtered(rowBytes + 1);
    if (band.firstRow > 0) PackRow(image, band.firstRow - 1, alpha, prev.data());
    z_stream z{};
    if (deflateInit2(&z, 1, Z_DEFLATED, -15, 8, Z_RLE) != Z_OK) return;
    band.data.resize(deflateBound(&z, uLong((rowBytes + 1) * band.rows)) + 64);
    z.next_out = band.data.data();
    z.avail_out = static_cast<uInt>(band.data.size());
    bool ok = true;
    for (uint32_t r = 0; r < band.rows && ok; ++r) {
        PackRow(image, band.firstRow + r, alpha, cur.data());
        filtered[0] = 4; // Paeth
        for (size_t i = 0; i < rowBytes; ++i) {
            const int a = i >= bpp ? cur[i - bpp] : 0, b = prev[i], c = i >= bpp ? prev[i - bpp] : 0;
            filtered[i + 1] = static_cast<uint8_t>(cur[i] - Paeth(a, b, c));
        }
        band.adler = adler32(band.adler, filtered.data(), static_cast<uInt>(filtered.size()));
        z.next_in = filtered.data();
        z.avail_in = static_cast<uInt>(filtered.size());
        const bool end = r + 1 == band.rows;
        const int flush = !end ? Z_NO_FLUSH : last ? Z_FINISH : Z_SYNC_FLUSH;
        const int rc = deflate(&z, flush);
        // The output buffer holds the bound, so every row goes in at once.
        ok = z.avail_in == 0 && (end && last ? rc == Z_STREAM_END : rc == Z_OK) && z.avail_out > 0;
        std::swap(prev, cur);
    }
    band.data.resize(band.data.size() - z.avail_out);
    deflateEnd(&z);
    band.ok = ok;
}

// Runs on helper threads: nothing may escape it.
void CompressBand(const COLImage& image, bool alpha, bool last, Band& band)
{
    try {
        CompressBandRows(image, alpha, last, band);
    } catch (const std::bad_alloc&) {
        band.ok = false;
    }
}

void Put32Be(uint8_t* p, uint32_t v)
{
    p[0] = uint8_t(v >> 24);
    p[1] = uint8_t(v >> 16);
    p[2] = uint8_t(v >> 8);
    p[3] = uint8_t(v);
}

// One chunk: length, type, the data given in up to three pieces, CRC of type and data.
bool WriteChunk(CSafeFileWriter& w, const char* type, std::initializer_list<std::pair<const uint8_t*, size_t>> parts)
{
    size_t length = 0;
    for (auto& p : parts)
        length += p.second;
    if (length > 0x7FFFFFFFu) return false;
    uint8_t head[8];
    Put32Be(head, static_cast<uint32_t>(length));
    std::memcpy(head + 4, type, 4);
    uLong crc = crc32(0, head + 4, 4);
    for (auto& p : parts)
        crc = crc32(crc, p.first, static_cast<uInt>(p.second));
    uint8_t tail[4];
    Put32Be(tail, static_cast<uint32_t>(crc));
    if (!w.Write(head, 8)) return false;
    for (auto& p : parts)
        if (p.second && !w.Write(p.first, p.second)) return false;
    return w.Write(tail, 4);
}

} // namespace

bool SavePng(const char* path, const COLImage& image, bool alpha)
{
    if (image.IsNull() || !SidesOk(image.GetWidth(), image.GetHeight())) return false;
    const uint32_t w = image.GetWidth(), h = image.GetHeight();
    const size_t rowBytes = size_t(w) * (alpha ? 4 : 3) + 1;
    const uint32_t rowsPerBand = static_cast<uint32_t>(std::max<size_t>(1, kBandBytes / rowBytes));
    std::vector<Band> bands((h + rowsPerBand - 1) / rowsPerBand);
    for (size_t i = 0; i < bands.size(); ++i) {
        bands[i].firstRow = static_cast<uint32_t>(i) * rowsPerBand;
        bands[i].rows = std::min(rowsPerBand, h - bands[i].firstRow);
    }
    // Each band is compressed on its own, so the bytes do not depend on how the pool shares them out.
    vmpar::ParallelFor(bands.size(), 1, [&](size_t begin, size_t end, unsigned) {
        for (size_t i = begin; i < end; ++i)
            CompressBand(image, alpha, i + 1 == bands.size(), bands[i]);
    });
    uLong adler = 1;
    for (const Band& b : bands) {
        if (!b.ok) return false;
        adler = adler32_combine(adler, b.adler, z_off_t((rowBytes)*b.rows));
    }

    CSafeFileWriter writer;
    if (!writer.Open(path)) return false;
    static const uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    uint8_t ihdr[13] = {};
    Put32Be(ihdr, w);
    Put32Be(ihdr + 4, h);
    ihdr[8] = 8;             // bits per sample
    ihdr[9] = alpha ? 6 : 2; // RGBA or RGB
    uint8_t phys[9];
    Put32Be(phys, 2835); // 72 dpi
    Put32Be(phys + 4, 2835);
    phys[8] = 1; // per metre
    static const uint8_t kZlibHeader[2] = {0x78, 0x01};
    uint8_t trailer[4];
    Put32Be(trailer, static_cast<uint32_t>(adler));
    bool ok = writer.Write(kSignature, 8) && WriteChunk(writer, "IHDR", {{ihdr, 13}}) &&
              WriteChunk(writer, "pHYs", {{phys, 9}});
    for (size_t i = 0; ok && i < bands.size(); ++i) {
        const bool first = i == 0, last = i + 1 == bands.size();
        ok = WriteChunk(
            writer, "IDAT",
            {{kZlibHeader, first ? 2u : 0u}, {bands[i].data.data(), bands[i].data.size()}, {trailer, last ? 4u : 0u}});
    }
    ok = ok && WriteChunk(writer, "IEND", {});
    return ok && writer.Commit();
}

} // namespace codec
