// The codec against the libraries' own minimal use of the same files, in the same run:
//   /0 JPEG decode   (libjpeg-turbo's TurboJPEG API, file read into memory, BGRA out)
//   /1 PNG decode    (libpng's simplified API, BGRA out)
//   /2 JPEG encode   (TurboJPEG, quality 90, 4:2:0, written with fwrite)
//   /3 PNG encode    (libpng writing RGBA rows with the filter and zlib strategy the codec uses)
//   /4 PNG save at libpng's default settings (level 6, adaptive filters), against the codec's PNG save
// Files go to /dev/shm when it exists, so the disk does not blur the comparison; the codec's saves include its
// write-to-temporary, fsync and rename. CPU times are of the whole process, helper threads included.
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <png.h>
#include <string>
#include <turbojpeg.h>
#include <vector>
#include <zlib.h>

#include "bench_support.h"
#include "imaging/codec.h"

namespace {

std::string Folder()
{
    static const std::string folder = [] {
        std::string base =
            std::filesystem::exists("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path().string();
        std::string f = base + "/vm-bench-codec";
        std::filesystem::create_directories(f);
        return f;
    }();
    return folder;
}

std::string PathOf(const char* name)
{
    return Folder() + "/" + name;
}

// A 12-megapixel photo with a soft-edged foreground mask in alpha, as a matting result would have.
const COLImage& Photo()
{
    static COLImage photo;
    if (photo.IsNull()) {
        vmbench::MakePhoto(photo, vmbench::kPhotoWidth, vmbench::kPhotoHeight);
        const double cx = photo.GetWidth() / 2.0, cy = photo.GetHeight() / 2.0;
        for (uint32_t y = 0; y < photo.GetHeight(); ++y)
            for (uint32_t x = 0; x < photo.GetWidth(); ++x) {
                const double d =
                    std::hypot((x - cx) / (0.35 * photo.GetWidth()), (y - cy) / (0.42 * photo.GetHeight()));
                const double a = std::clamp((1.0 - d) * 40.0, 0.0, 1.0);
                photo.GetBuffer(x, y)->alpha = uint8_t(std::lround(a * 255));
            }
    }
    return photo;
}

std::vector<uint8_t> ReadFile(const std::string& path)
{
    std::vector<uint8_t> data;
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return data;
    std::fseek(f, 0, SEEK_END);
    data.resize(size_t(std::ftell(f)));
    std::fseek(f, 0, SEEK_SET);
    if (std::fread(data.data(), 1, data.size(), f) != data.size()) data.clear();
    std::fclose(f);
    return data;
}

bool WriteFile(const std::string& path, const void* data, size_t size)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = std::fwrite(data, 1, size, f) == size;
    return std::fclose(f) == 0 && ok;
}

// libpng's plain row writer; with level < 0 every setting is left at libpng's default.
bool LibpngWrite(const std::string& path, const COLImage& img, int level, int filters, int strategy)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    std::vector<png_bytep> rows(img.GetHeight());
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        std::fclose(f);
        return false;
    }
    png_init_io(png, f);
    png_set_IHDR(png, info, img.GetWidth(), img.GetHeight(), 8, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (level >= 0) {
        png_set_compression_level(png, level);
        png_set_compression_strategy(png, strategy);
        png_set_filter(png, PNG_FILTER_TYPE_BASE, filters);
    }
    png_write_info(png, info);
    png_set_bgr(png);
    for (uint32_t y = 0; y < img.GetHeight(); ++y)
        rows[y] = reinterpret_cast<png_bytep>(img.GetBuffer(0, y));
    png_write_image(png, rows.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return std::fclose(f) == 0;
}

// The input files, made once: a JPEG at quality 90 and a PNG at libpng's default settings.
void MakeInputs()
{
    static bool made = false;
    if (made) return;
    made = true;
    const COLImage& img = Photo();
    tjhandle tj = tjInitCompress();
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    tjCompress2(tj, reinterpret_cast<const unsigned char*>(img.GetBuffer()), int(img.GetWidth()), 0,
                int(img.GetHeight()), TJPF_BGRX, &jpeg, &size, TJSAMP_420, 90, 0);
    WriteFile(PathOf("in.jpg"), jpeg, size);
    tjFree(jpeg);
    tjDestroy(tj);
    LibpngWrite(PathOf("in.png"), img, -1, 0, 0);
}

void Baseline_Decode(benchmark::State& state)
{
    MakeInputs();
    const bool jpeg = state.range(0) == 0;
    for (auto _ : state) {
        // A fresh picture each time, as any decoder that hands one back must get.
        std::unique_ptr<uint8_t[]> pixels(new uint8_t[size_t(vmbench::kPhotoWidth) * vmbench::kPhotoHeight * 4]);
        if (jpeg) {
            const std::vector<uint8_t> file = ReadFile(PathOf("in.jpg"));
            tjhandle tj = tjInitDecompress();
            int w = 0, h = 0, sub = 0, cs = 0;
            tjDecompressHeader3(tj, file.data(), file.size(), &w, &h, &sub, &cs);
            if (tjDecompress2(tj, file.data(), file.size(), pixels.get(), w, 0, h, TJPF_BGRA, 0) != 0)
                state.SkipWithError("TurboJPEG failed");
            tjDestroy(tj);
        } else {
            png_image image{};
            image.version = PNG_IMAGE_VERSION;
            if (!png_image_begin_read_from_file(&image, PathOf("in.png").c_str())) state.SkipWithError("libpng");
            image.format = PNG_FORMAT_BGRA;
            png_image_finish_read(&image, nullptr, pixels.get(), 0, nullptr);
            png_image_free(&image);
        }
        benchmark::DoNotOptimize(pixels.get());
    }
}
BENCHMARK(Baseline_Decode)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(2.0)->MeasureProcessCPUTime();

void Codec_LoadFile(benchmark::State& state)
{
    MakeInputs();
    const std::string path = PathOf(state.range(0) == 0 ? "in.jpg" : "in.png");
    COLImageCodec codec;
    COLImage img;
    for (auto _ : state)
        if (!codec.LoadFile(path.c_str(), &img)) state.SkipWithError("LoadFile failed");
}
BENCHMARK(Codec_LoadFile)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(2.0)->MeasureProcessCPUTime();

void Baseline_Encode(benchmark::State& state)
{
    const COLImage& img = Photo();
    for (auto _ : state) {
        if (state.range(0) == 2) {
            tjhandle tj = tjInitCompress();
            unsigned char* jpeg = nullptr;
            unsigned long size = 0;
            tjCompress2(tj, reinterpret_cast<const unsigned char*>(img.GetBuffer()), int(img.GetWidth()), 0,
                        int(img.GetHeight()), TJPF_BGRX, &jpeg, &size, TJSAMP_420, 90, 0);
            WriteFile(PathOf("base.jpg"), jpeg, size);
            tjFree(jpeg);
            tjDestroy(tj);
        } else if (state.range(0) == 3) {
            LibpngWrite(PathOf("base.png"), img, 1, PNG_FILTER_PAETH, Z_RLE); // the codec's filter and strategy
        } else {
            LibpngWrite(PathOf("default.png"), img, -1, 0, 0);
        }
    }
    const char* name = state.range(0) == 2 ? "base.jpg" : state.range(0) == 3 ? "base.png" : "default.png";
    state.counters["MB"] = double(std::filesystem::file_size(PathOf(name))) / 1e6;
}
BENCHMARK(Baseline_Encode)
    ->Arg(2)
    ->Arg(3)
    ->Arg(4)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0)
    ->MeasureProcessCPUTime();

void Codec_Save(benchmark::State& state)
{
    const COLImage& img = Photo();
    COLImageCodec codec;
    const bool jpeg = state.range(0) == 2;
    const std::string path = PathOf(jpeg ? "ours.jpg" : "ours.png");
    for (auto _ : state) {
        const int ok =
            jpeg ? codec.SaveJpegFile(path.c_str(), &img, 90, 72) : codec.SaveFileWithAlpha(path.c_str(), &img);
        if (!ok) state.SkipWithError("save failed");
    }
    state.counters["MB"] = double(std::filesystem::file_size(path)) / 1e6;
}
BENCHMARK(Codec_Save)->Arg(2)->Arg(3)->Arg(4)->Unit(benchmark::kMillisecond)->MinTime(2.0)->MeasureProcessCPUTime();

// How the PNG settings were chosen: other candidates on the same photo (compare with Codec_Save/4).
void PngCandidate(benchmark::State& state, int level, int filters, int strategy)
{
    const COLImage& img = Photo();
    for (auto _ : state)
        LibpngWrite(PathOf("candidate.png"), img, level, filters, strategy);
    state.counters["MB"] = double(std::filesystem::file_size(PathOf("candidate.png"))) / 1e6;
}

} // namespace

int main(int argc, char** argv)
{
    struct Candidate {
        const char* name;
        int level, filters, strategy;
    };
    static const Candidate candidates[] = {{"level2_up", 2, PNG_FILTER_UP, Z_DEFAULT_STRATEGY},
                                           {"level1_all", 1, PNG_ALL_FILTERS, Z_DEFAULT_STRATEGY},
                                           {"rle_up", 1, PNG_FILTER_UP, Z_RLE},
                                           {"rle_avg", 1, PNG_FILTER_AVG, Z_RLE},
                                           {"rle_all", 1, PNG_ALL_FILTERS, Z_RLE}};
    for (const Candidate& c : candidates)
        benchmark::RegisterBenchmark((std::string("PngCandidate_") + c.name).c_str(),
                                     [c](benchmark::State& st) { PngCandidate(st, c.level, c.filters, c.strategy); })
            ->Arg(4)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(2.0)
            ->MeasureProcessCPUTime();
    return vmbench::RunWithRatios(argc, argv, "Baseline_");
}
