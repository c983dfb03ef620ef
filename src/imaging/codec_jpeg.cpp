#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <jerror.h>
#include <jpeglib.h>
#include <vector>

#include "imaging/codec_formats.h"
#include "imaging/safe_file.h"

namespace codec {

namespace {

// A progressive file may declare any number of scans; each costs a pass over the coefficients. Real
// encoders use about ten, so this stops a crafted file from keeping the user waiting for minutes.
constexpr int kMaxScans = 500;

struct ErrorState {
    jpeg_error_mgr mgr;
    jmp_buf jump;
    bool damaged; // the data ran out or broke off inside a segment
};

[[noreturn]] void ErrorExit(j_common_ptr c)
{
    longjmp(reinterpret_cast<ErrorState*>(c->err)->jump, 1);
}

void EmitMessage(j_common_ptr c, int level)
{
    if (level >= 0) return;
    auto* e = reinterpret_cast<ErrorState*>(c->err);
    const int code = c->err->msg_code;
    if (code == JWRN_JPEG_EOF || code == JWRN_HIT_MARKER) e->damaged = true;
    c->err->num_warnings++;
}

void OutputMessage(j_common_ptr) {}

void InitErrors(ErrorState& e)
{
    jpeg_std_error(&e.mgr);
    e.mgr.error_exit = ErrorExit;
    e.mgr.emit_message = EmitMessage;
    e.mgr.output_message = OutputMessage;
    e.damaged = false;
}

void LimitScans(j_common_ptr c)
{
    if (c->is_decompressor && reinterpret_cast<j_decompress_ptr>(c)->input_scan_number > kMaxScans)
        ERREXIT(c, JERR_NOT_COMPILED); // any error code: the jump is what matters
}

uint8_t Mul255(int a, int b)
{
    return static_cast<uint8_t>((a * b + 127) / 255);
}

// Kept free of objects with destructors: a longjmp out of libjpeg lands here and returns false.
bool DecodeRows(jpeg_decompress_struct& c, ErrorState& err, const uint8_t* data, size_t size, COLImage& image,
                std::vector<uint8_t>& cmykRow, std::vector<JSAMPROW>& rows, int& orientation)
{
    if (setjmp(err.jump)) return false;
    jpeg_mem_src(&c, data, static_cast<unsigned long>(size));
    jpeg_save_markers(&c, JPEG_APP0 + 1, 0xFFFF);
    jpeg_read_header(&c, TRUE);
    if (!SidesOk(c.image_width, c.image_height)) return false;
    const bool cmyk = c.jpeg_color_space == JCS_CMYK || c.jpeg_color_space == JCS_YCCK;
    c.out_color_space = cmyk ? JCS_CMYK : JCS_EXT_BGRA;
    for (jpeg_saved_marker_ptr m = c.marker_list; m; m = m->next)
        if (m->marker == JPEG_APP0 + 1 && orientation == 1) orientation = ExifOrientation(m->data, m->data_length);
    jpeg_start_decompress(&c);
    if (err.damaged || c.output_components != 4 || c.output_width != c.image_width || c.output_height != c.image_height)
        return false;
    if (image.Create(c.output_width, c.output_height) != kOk) return false;
    if (!cmyk) {
        // Straight into the picture, as many rows per call as the decoder will give.
        rows.resize(c.output_height);
        for (JDIMENSION y = 0; y < c.output_height; ++y)
            rows[y] = reinterpret_cast<JSAMPROW>(image.GetBuffer(0, y));
        while (c.output_scanline < c.output_height)
            jpeg_read_scanlines(&c, rows.data() + c.output_scanline, c.output_height - c.output_scanline);
    }
    if (cmyk) cmykRow.resize(size_t(c.output_width) * 4);
    // Photoshop and most other writers store CMYK inverted and say so with an Adobe marker.
    const bool inverted = c.saw_Adobe_marker;
    while (c.output_scanline < c.output_height) {
        const JDIMENSION y = c.output_scanline;
        JSAMPROW row = cmykRow.data();
        jpeg_read_scanlines(&c, &row, 1);
        CPixel* out = image.GetBuffer(0, y);
        for (JDIMENSION x = 0; x < c.output_width; ++x) {
            int cy = row[4 * x], mg = row[4 * x + 1], ye = row[4 * x + 2], k = row[4 * x + 3];
            if (!inverted) {
                cy = 255 - cy;
                mg = 255 - mg;
                ye = 255 - ye;
                k = 255 - k;
            }
            out[x] = CPixel::Make(Mul255(cy, k), Mul255(mg, k), Mul255(ye, k), 255);
        }
    }
    if (err.damaged) return false;
    // The pixels are complete: what follows them (a missing EOI, trailing bytes) does not matter.
    jpeg_abort_decompress(&c);
    return true;
}

// A destination that grows a vector. libjpeg's own memory destination reports its buffer only when the encoding
// ends, after growing it has freed the first one, so an abandoned encoding could not free what it holds.
struct VectorDestination {
    jpeg_destination_mgr mgr;
    std::vector<uint8_t>* bytes;
};

void GrowVector(j_compress_ptr c, size_t size)
{
    auto* d = reinterpret_cast<VectorDestination*>(c->dest);
    const size_t used = d->bytes->size() - d->mgr.free_in_buffer;
    try {
        d->bytes->resize(size);
    } catch (const std::bad_alloc&) {
        ERREXIT(c, JERR_OUT_OF_MEMORY);
    }
    d->mgr.next_output_byte = d->bytes->data() + used;
    d->mgr.free_in_buffer = size - used;
}

void InitVector(j_compress_ptr c)
{
    auto* d = reinterpret_cast<VectorDestination*>(c->dest);
    d->bytes->clear();
    d->mgr.free_in_buffer = 0;
    GrowVector(c, 1 << 16);
}

boolean EmptyVector(j_compress_ptr c)
{
    auto* d = reinterpret_cast<VectorDestination*>(c->dest);
    // libjpeg calls this with the whole buffer full, whatever free_in_buffer says.
    d->mgr.free_in_buffer = 0;
    GrowVector(c, d->bytes->size() * 2);
    return TRUE;
}

void TermVector(j_compress_ptr c)
{
    auto* d = reinterpret_cast<VectorDestination*>(c->dest);
    d->bytes->resize(d->bytes->size() - d->mgr.free_in_buffer);
}

// Writes to the stream out, or with out null into memory (its destination set by the caller). cancel (may be
// null) is asked between rows; a true answer abandons the encoding.
bool EncodeRows(jpeg_compress_struct& c, ErrorState& err, FILE* out, const COLImage& image, int quality,
                bool fullChroma, int dpi, const std::function<bool()>* cancel)
{
    if (setjmp(err.jump)) return false;
    if (out) jpeg_stdio_dest(&c, out);
    c.image_width = image.GetWidth();
    c.image_height = image.GetHeight();
    c.input_components = 4;
    c.in_color_space = JCS_EXT_BGRX; // straight from the pixel buffer, alpha ignored
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, quality, TRUE);
    if (fullChroma) {
        c.comp_info[0].h_samp_factor = 1;
        c.comp_info[0].v_samp_factor = 1;
    }
    c.write_JFIF_header = TRUE;
    c.density_unit = 1; // dots per inch
    c.X_density = static_cast<UINT16>(dpi);
    c.Y_density = static_cast<UINT16>(dpi);
    jpeg_start_compress(&c, TRUE);
    while (c.next_scanline < c.image_height) {
        if (cancel && (c.next_scanline & 15) == 0 && (*cancel)()) {
            jpeg_abort_compress(&c);
            return false;
        }
        JSAMPROW row = reinterpret_cast<JSAMPROW>(image.GetBuffer(0, c.next_scanline));
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    return true;
}

} // namespace

int ExifOrientation(const uint8_t* data, size_t size)
{
    // "Exif\0\0", then a TIFF header and the first directory.
    if (size < 14 || std::memcmp(data, "Exif\0\0", 6) != 0) return 1;
    const uint8_t* t = data + 6;
    const size_t n = size - 6;
    bool little;
    if (t[0] == 'I' && t[1] == 'I')
        little = true;
    else if (t[0] == 'M' && t[1] == 'M')
        little = false;
    else
        return 1;
    auto u16 = [&](size_t at) -> uint32_t { return little ? t[at] | t[at + 1] << 8 : t[at] << 8 | t[at + 1]; };
    auto u32 = [&](size_t at) -> uint32_t {
        return little ? Le32(t + at)
                      : uint32_t(t[at]) << 24 | uint32_t(t[at + 1]) << 16 | uint32_t(t[at + 2]) << 8 | t[at + 3];
    };
    if (u16(2) != 42) return 1;
    const uint32_t ifd = u32(4);
    if (ifd > n || n - ifd < 2) return 1;
    const uint32_t entries = u16(ifd);
    for (uint32_t i = 0; i < entries; ++i) {
        const size_t at = size_t(ifd) + 2 + size_t(i) * 12;
        if (at + 12 > n) return 1;
        if (u16(at) != 0x0112) continue;
        if (u16(at + 2) != 3 || u32(at + 4) < 1) return 1; // SHORT, at least one value
        const uint32_t v = u16(at + 8);
        return v >= 1 && v <= 8 ? static_cast<int>(v) : 1;
    }
    return 1;
}

bool ApplyOrientation(COLImage& image, int orientation)
{
    if (orientation < 2 || orientation > 8 || image.IsNull()) return true;
    const uint32_t w = image.GetWidth(), h = image.GetHeight();
    const bool swap = orientation >= 5;
    const uint32_t dw = swap ? h : w, dh = swap ? w : h;
    COLImage out;
    if (out.Create(dw, dh) != kOk) return false;
    for (uint32_t y = 0; y < dh; ++y) {
        CPixel* row = out.GetBuffer(0, y);
        for (uint32_t x = 0; x < dw; ++x) {
            uint32_t sx = x, sy = y;
            switch (orientation) {
            case 2:
                sx = w - 1 - x;
                break;
            case 3:
                sx = w - 1 - x;
                sy = h - 1 - y;
                break;
            case 4:
                sy = h - 1 - y;
                break;
            case 5:
                sx = y;
                sy = x;
                break;
            case 6:
                sx = y;
                sy = h - 1 - x;
                break;
            case 7:
                sx = w - 1 - y;
                sy = h - 1 - x;
                break;
            case 8:
                sx = w - 1 - y;
                sy = x;
                break;
            }
            row[x] = image.GetPixel2(sx, sy);
        }
    }
    image = std::move(out);
    return true;
}

bool LoadJpeg(const uint8_t* data, size_t size, COLImage& image)
{
    if (size < 4 || data[0] != 0xFF || data[1] != 0xD8) return false;
    jpeg_decompress_struct c;
    ErrorState err;
    InitErrors(err);
    c.err = &err.mgr;
    jpeg_create_decompress(&c);
    jpeg_progress_mgr progress{};
    progress.progress_monitor = LimitScans;
    c.progress = &progress;
    std::vector<uint8_t> cmykRow;
    std::vector<JSAMPROW> rows;
    int orientation = 1;
    bool ok = DecodeRows(c, err, data, size, image, cmykRow, rows, orientation);
    jpeg_destroy_decompress(&c);
    if (ok) ok = ApplyOrientation(image, orientation);
    return ok;
}

bool SaveJpeg(const char* path, const COLImage& image, int quality, bool fullChroma, int dpi)
{
    if (image.IsNull() || !SidesOk(image.GetWidth(), image.GetHeight())) return false;
    if (quality < 1) quality = 1;
    if (quality > 100) quality = 100;
    if (dpi < 1 || dpi > 65535) dpi = 72;
    CSafeFileWriter writer;
    if (!writer.Open(path)) return false;
    jpeg_compress_struct c;
    ErrorState err;
    InitErrors(err);
    c.err = &err.mgr;
    jpeg_create_compress(&c);
    const bool ok = EncodeRows(c, err, writer.Stream(), image, quality, fullChroma, dpi, nullptr);
    jpeg_destroy_compress(&c);
    if (!ok || std::ferror(writer.Stream())) return false;
    return writer.Commit();
}

bool EncodeJpeg(const COLImage& image, int quality, bool fullChroma, int dpi, std::vector<uint8_t>& out,
                const std::function<bool()>* cancel)
{
    if (image.IsNull() || !SidesOk(image.GetWidth(), image.GetHeight())) return false;
    quality = quality < 1 ? 1 : quality > 100 ? 100 : quality;
    if (dpi < 1 || dpi > 65535) dpi = 72;
    jpeg_compress_struct c;
    ErrorState err;
    InitErrors(err);
    c.err = &err.mgr;
    jpeg_create_compress(&c);
    VectorDestination dest{};
    dest.bytes = &out;
    dest.mgr.init_destination = InitVector;
    dest.mgr.empty_output_buffer = EmptyVector;
    dest.mgr.term_destination = TermVector;
    c.dest = &dest.mgr;
    const bool ok = EncodeRows(c, err, nullptr, image, quality, fullChroma, dpi, cancel);
    jpeg_destroy_compress(&c);
    if (!ok) out.clear();
    return ok;
}

} // namespace codec
