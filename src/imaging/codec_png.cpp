#include <csetjmp>
#include <cstring>
#include <png.h>
#include <vector>

#include "imaging/codec_formats.h"

namespace codec {

namespace {

struct MemoryReader {
    const uint8_t* data;
    size_t size;
    size_t pos;
};

void ReadFromMemory(png_structp png, png_bytep out, png_size_t bytes)
{
    auto* r = static_cast<MemoryReader*>(png_get_io_ptr(png));
    if (bytes > r->size - r->pos) png_error(png, "truncated");
    std::memcpy(out, r->data + r->pos, bytes);
    r->pos += bytes;
}

// libpng reports through these; the jump lands in the setjmp of the function that drives it.
[[noreturn]] void Fail(png_structp png, png_const_charp)
{
    png_longjmp(png, 1);
}
void Ignore(png_structp, png_const_charp) {}

// Kept free of objects with destructors: a longjmp out of libpng lands here and returns false.
bool DecodeRows(png_structp png, png_infop info, COLImage& image, std::vector<png_bytep>& rows)
{
    if (setjmp(png_jmpbuf(png))) return false;
    png_read_info(png, info);
    png_uint_32 width = 0, height = 0;
    int depth = 0, colour = 0, interlace = 0;
    png_get_IHDR(png, info, &width, &height, &depth, &colour, &interlace, nullptr, nullptr);
    if (!SidesOk(width, height)) return false;
    if (colour == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
    if ((colour & PNG_COLOR_MASK_COLOR) == 0 && depth < 8) png_set_expand_gray_1_2_4_to_8(png);
    if (png_get_valid(png, info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png);
    if (depth == 16) png_set_scale_16(png); // rounds, where strip_16 would truncate
    if ((colour & PNG_COLOR_MASK_COLOR) == 0) png_set_gray_to_rgb(png);
    png_set_bgr(png);
    png_set_filler(png, 0xFF, PNG_FILLER_AFTER); // no effect where the file has alpha
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    if (png_get_rowbytes(png, info) != size_t(width) * 4) return false;
    if (image.Create(width, height) != kOk) return false;
    rows.resize(height);
    for (png_uint_32 y = 0; y < height; ++y)
        rows[y] = reinterpret_cast<png_bytep>(image.GetBuffer(0, y));
    png_read_image(png, rows.data());
    // The trailing chunks are not read: once the pixels are in, a missing IEND costs the user nothing.
    return true;
}

} // namespace

bool LoadPng(const uint8_t* data, size_t size, COLImage& image)
{
    if (size < 8 || png_sig_cmp(data, 0, 8) != 0) return false;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, Fail, Ignore);
    if (!png) return false;
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        return false;
    }
    png_set_user_limits(png, kMaxImageSide, kMaxImageSide);
    MemoryReader reader{data, size, 0};
    png_set_read_fn(png, &reader, ReadFromMemory);
    std::vector<png_bytep> rows;
    const bool ok = DecodeRows(png, info, image, rows);
    png_destroy_read_struct(&png, &info, nullptr);
    return ok;
}

} // namespace codec
