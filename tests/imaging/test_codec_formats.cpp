// Reading and writing picture files: round trips, variants built byte by byte, JPEG details, file typing,
// damaged and oversized files, failed writes.
#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <vector>
#include <zlib.h>

#include "codec_test_util.h"
#include "imaging/codec.h"
#include "imaging/codec_formats.h"
#include "support/engine_checks.h"
#include "support/full_disk.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

using codectest::BmpHeader;
using codectest::Pattern;
using codectest::MaxColourDifference;
using vmtest::ByteWriter;
using vmtest::Load;
using vmtest::ReadAll;
using vmtest::TempDir;
using vmtest::WriteAll;

namespace {

using Bytes = std::vector<uint8_t>;

COLImage LoadBytes(const TempDir& dir, const Bytes& bytes, const std::string& name)
{
    WriteAll(dir.File(name), bytes);
    return Load(dir.File(name));
}

bool Is(const CPixel& p, int r, int g, int b, int a)
{
    return p.red == r && p.green == g && p.blue == b && p.alpha == a;
}

// Each test works in a folder of its own, removed afterwards, with one codec.
class CodecFiles : public ::testing::Test {
protected:
    // Loads the bytes as a file of that name: its size, and the listed pixels as {x, y, red, green, blue, alpha}.
    COLImage ExpectPixels(const Bytes& bytes, const std::string& name, const std::string& size,
                          std::initializer_list<std::array<int, 6>> pixels)
    {
        COLImage img = LoadBytes(dir, bytes, name);
        EXPECT_EQ(vmtest::Size(img), size) << name;
        if (vmtest::Size(img) != size) return img;
        for (const auto& [x, y, r, g, b, a] : pixels)
            EXPECT_TRUE(Is(img.GetPixel2(uint32_t(x), uint32_t(y)), r, g, b, a)) << name << " at " << x << "," << y;
        return img;
    }

    TempDir dir;
    COLImageCodec codec;
};

TEST_F(CodecFiles, LosslessFormatsRoundTrip)
{
    const COLImage src = Pattern(37, 23, true);
    for (const char* name : {"a.png", "a.bmp", "a.tga", "a.tif", "a.TIFF"}) {
        SCOPED_TRACE(name);
        ASSERT_EQ(codec.SaveFile(dir.File(name).c_str(), &src), 1);
        COLImage back = Load(dir.File(name));
        ASSERT_FALSE(back.IsNull());
        EXPECT_EQ(MaxColourDifference(src, back, false), 0);
        EXPECT_EQ(codectest::MaxAlphaDifference(vmtest::Solid(37, 23, CPixel::Make(0, 0, 0)), back), 0); // opaque
    }
    ASSERT_EQ(codec.SaveFileWithAlpha(dir.File("alpha.png").c_str(), &src), 1);
    EXPECT_TRUE(vmtest::SamePixels(src, Load(dir.File("alpha.png"))));
    // The alpha writer makes a PNG whatever the name says.
    ASSERT_EQ(codec.SaveFileWithAlpha(dir.File("named.bmp").c_str(), &src), 1);
    EXPECT_EQ(COLImageCodec::GetFileType(dir.File("named.bmp").c_str()), kFilePng);
}

// Large pictures are compressed in bands on several threads: the result must be exact, and the same file
// every time.
TEST_F(CodecFiles, PngInBandsIsExactAndRepeatable)
{
    COLImage src = vmtest::Noise(1001, 1100, 21);
    ASSERT_EQ(codec.SaveFileWithAlpha(dir.File("a.png").c_str(), &src), 1);
    EXPECT_TRUE(vmtest::SamePixels(src, Load(dir.File("a.png"))));
    // The same file whichever way the pool shares the bands out.
    vmtest::ForEachLevelAndSplit([&](const std::string& label) {
        ASSERT_EQ(codec.SaveFileWithAlpha(dir.File("b.png").c_str(), &src), 1);
        EXPECT_EQ(ReadAll(dir.File("a.png")), ReadAll(dir.File("b.png"))) << label;
    });
    ASSERT_EQ(codec.SaveFile(dir.File("c.png").c_str(), &src), 1);
    const COLImage rgb = Load(dir.File("c.png"));
    EXPECT_EQ(MaxColourDifference(src, rgb, false), 0);
    EXPECT_EQ(codectest::MaxAlphaDifference(src, rgb), 255); // noise alpha is gone: all opaque
    EXPECT_EQ(codectest::MaxAlphaDifference(vmtest::Solid(1001, 1100, CPixel::Make(0, 0, 0)), rgb), 0);
    // A one-pixel picture and a one-row one take the same road.
    COLImage tiny = vmtest::Noise(1, 1, 2);
    ASSERT_EQ(codec.SaveFileWithAlpha(dir.File("t.png").c_str(), &tiny), 1);
    EXPECT_TRUE(vmtest::SamePixels(tiny, Load(dir.File("t.png"))));
    vmtest::FillNoise(tiny, 5000, 1, 3);
    ASSERT_EQ(codec.SaveFileWithAlpha(dir.File("r.png").c_str(), &tiny), 1);
    EXPECT_TRUE(vmtest::SamePixels(tiny, Load(dir.File("r.png"))));
}

TEST_F(CodecFiles, BmpAndTgaAreBottomUpWithHonestHeaders)
{
    const COLImage src = Pattern(5, 3, false);
    ASSERT_EQ(codec.SaveFile(dir.File("a.bmp").c_str(), &src), 1);
    Bytes b = ReadAll(dir.File("a.bmp"));
    ASSERT_EQ(b.size(), 54u + 16 * 3);
    EXPECT_EQ(codec::Le32(b.data() + 2), b.size());
    EXPECT_EQ(int32_t(codec::Le32(b.data() + 22)), 3);
    // First stored row is the bottom one.
    const CPixel bottom = src.GetPixel2(0, 2);
    EXPECT_EQ(b[54], bottom.blue);
    EXPECT_EQ(b[56], bottom.red);

    ASSERT_EQ(codec.SaveFile(dir.File("a.tga").c_str(), &src), 1);
    Bytes t = ReadAll(dir.File("a.tga"));
    EXPECT_EQ(t[2], 2);
    EXPECT_EQ(t[16], 24);
    EXPECT_EQ(t[17] & 0x30, 0); // bottom-left origin
    EXPECT_EQ(t[18], bottom.blue);
    EXPECT_EQ(t.size(), 18u + 5 * 3 * 3 + 26);
}

TEST_F(CodecFiles, EmptyImagesUnknownExtensionsAndMissingFoldersFail)
{
    COLImage empty;
    const COLImage src = Pattern(4, 4, false);
    EXPECT_EQ(codec.SaveFile(dir.File("a.png").c_str(), &empty), 0);
    EXPECT_EQ(codec.SaveFileWithAlpha(dir.File("a.png").c_str(), &empty), 0);
    EXPECT_EQ(codec.SaveJpegFile(dir.File("a.jpg").c_str(), &empty, 80, 72), 0);
    EXPECT_EQ(codec.SaveFile(dir.File("a.gif").c_str(), &src), 0);
    EXPECT_EQ(codec.SaveFile(dir.File("noextension").c_str(), &src), 0);
    EXPECT_EQ(codec.SaveFile(dir.File("missing/a.png").c_str(), &src), 0);
    EXPECT_EQ(codec.SaveJpegFile(dir.File("missing/a.jpg").c_str(), &src, 80, 72), 0);
    EXPECT_TRUE(std::filesystem::is_empty(dir.Path()));
}

// A full disk, simulated with a file size limit: every writer must fail and leave the old file as it was.
TEST_F(CodecFiles, FailedWriteKeepsTheOldFile)
{
    COLImage big = vmtest::Noise(300, 200, 5); // noise does not compress below the limit
    const Bytes good = {'g', 'o', 'o', 'd'};
    for (const std::string name : {"a.png", "b.png", "a.jpg", "a.bmp", "a.tga", "a.tif"}) {
        SCOPED_TRACE(name);
        const std::string path = dir.File(name);
        WriteAll(path, good);
        const int r = vmtest::WithFileSizeLimit(20000, [&] {
            if (name == "b.png") return codec.SaveFileWithAlpha(path.c_str(), &big);
            if (name == "a.jpg") return codec.SaveJpegFile(path.c_str(), &big, 200, 72);
            return codec.SaveFile(path.c_str(), &big);
        });
        EXPECT_EQ(r, 0);
        EXPECT_EQ(ReadAll(path), good);
    }
    EXPECT_EQ(vmtest::EntryCount(dir.Path()), 6u); // no temporaries left behind
}

// Finds a JPEG marker segment and returns the offset of its payload (after the length), or 0.
size_t FindMarker(const Bytes& j, uint8_t marker)
{
    for (size_t i = 2; i + 4 <= j.size();) {
        if (j[i] != 0xFF) return 0;
        const size_t len = size_t(j[i + 2]) << 8 | j[i + 3];
        if (j[i + 1] == marker) return i + 4;
        i += 2 + len;
    }
    return 0;
}

TEST_F(CodecFiles, JpegQualityChromaAndDensity)
{
    const COLImage src = Pattern(64, 48, true);
    ASSERT_EQ(codec.SaveJpegFile(dir.File("q90.jpg").c_str(), &src, 90, 72), 1);
    ASSERT_EQ(codec.SaveJpegFile(dir.File("q10.jpg").c_str(), &src, 10, 72), 1);
    ASSERT_EQ(codec.SaveJpegFile(dir.File("q190.jpg").c_str(), &src, 190, 72), 1);
    const Bytes q90 = ReadAll(dir.File("q90.jpg")), q10 = ReadAll(dir.File("q10.jpg"));
    const Bytes q190 = ReadAll(dir.File("q190.jpg"));
    EXPECT_LT(q10.size(), q90.size());
    EXPECT_GT(q190.size(), q90.size()); // same quality, chroma at full resolution

    // JFIF: units 1 (dots per inch), 72 x 72.
    const size_t app0 = FindMarker(q90, 0xE0);
    ASSERT_NE(app0, 0u);
    ASSERT_LE(app0 + 12, q90.size());
    EXPECT_EQ(Bytes(q90.begin() + std::ptrdiff_t(app0), q90.begin() + std::ptrdiff_t(app0 + 12)),
              Bytes({'J', 'F', 'I', 'F', 0, 1, 1, 1, 0, 72, 0, 72})); // version 1.01, then units and densities

    // Sampling factors of the luma component in the frame header: 2x2 normally, 1x1 above 100.
    const size_t sof90 = FindMarker(q90, 0xC0), sof190 = FindMarker(q190, 0xC0);
    ASSERT_NE(sof90, 0u);
    ASSERT_NE(sof190, 0u);
    EXPECT_EQ(q90[sof90 + 7], 0x22);
    EXPECT_EQ(q190[sof190 + 7], 0x11);

    COLImage back = Load(dir.File("q190.jpg"));
    ASSERT_EQ(back.GetWidth(), 64u);
    EXPECT_LE(MaxColourDifference(src, back, false), 24);
    EXPECT_EQ(codectest::MaxAlphaDifference(vmtest::Solid(64, 48, CPixel::Make(0, 0, 0)), back), 0); // opaque
}

// The eight EXIF orientations, built from their definitions: mirror left-right, then turn clockwise.
COLImage Oriented(const COLImage& s, int orientation)
{
    static const int mirror[9] = {0, 0, 1, 0, 1, 1, 0, 1, 0};
    static const int turns[9] = {0, 0, 0, 2, 2, 3, 1, 1, 3};
    COLImage cur = vmtest::Copy(s);
    const uint32_t w = cur.GetWidth(), h = cur.GetHeight();
    if (mirror[orientation])
        cur = vmtest::Picture(w, h, [&](uint32_t x, uint32_t y) { return cur.GetPixel2(w - 1 - x, y); });
    for (int t = 0; t < turns[orientation]; ++t) {
        // Clockwise: the left column, read bottom to top, becomes the top row.
        const uint32_t cw = cur.GetWidth(), ch = cur.GetHeight();
        cur = vmtest::Picture(ch, cw, [&](uint32_t x, uint32_t y) { return cur.GetPixel2(y, ch - 1 - x); });
    }
    return cur;
}

TEST_F(CodecFiles, JpegExifOrientationTurnsThePhotoUpright)
{
    // Coloured 8 x 8 blocks on a 32 x 16 picture, so every flip and turn is visible through JPEG's loss.
    const CPixel colours[4] = {CPixel::Make(250, 0, 0), CPixel::Make(0, 250, 0), CPixel::Make(0, 0, 250),
                               CPixel::Make(250, 250, 0)};
    const COLImage src =
        vmtest::Picture(32, 16, [&](uint32_t x, uint32_t y) { return colours[(x / 8 + y / 8 * 3) % 4]; });
    ASSERT_EQ(codec.SaveJpegFile(dir.File("plain.jpg").c_str(), &src, 195, 72), 1);
    const COLImage plain = Load(dir.File("plain.jpg"));
    const Bytes jpeg = ReadAll(dir.File("plain.jpg"));
    for (int o = 1; o <= 8; ++o)
        for (bool big : {false, true}) {
            SCOPED_TRACE("orientation " + std::to_string(o) + (big ? " MM" : " II"));
            const COLImage got = LoadBytes(dir, codectest::WithOrientation(jpeg, o, big), "o.jpg");
            const COLImage want = Oriented(plain, o);
            EXPECT_TRUE(vmtest::SamePixels(got, want));
        }
    // An orientation out of range is ignored.
    EXPECT_TRUE(vmtest::SamePixels(LoadBytes(dir, codectest::WithOrientation(jpeg, 9, false), "o.jpg"), plain));
}

TEST_F(CodecFiles, BmpVariantsBuiltByHand)
{
    // Top-down 24-bit, 2 x 2: rows are stored top first.
    ByteWriter b = BmpHeader(2, -2, 24);
    b.Add({1, 2, 3, 4, 5, 6, 0, 0, 7, 8, 9, 10, 11, 12, 0, 0});
    ExpectPixels(b, "td.bmp", "2x2", {{0, 0, 3, 2, 1, 255}, {1, 1, 12, 11, 10, 255}});

    // RLE4, 6 x 2 (bottom-up): a run, a literal run, end of line, a jump, end of picture.
    b = BmpHeader(6, 2, 4, 2, 40, 54 + 16 * 4, 16);
    for (int i = 0; i < 16; ++i)
        b.U32(uint32_t(i * 0x101010)); // gray ramp palette
    b.Add({3, 0x12,                    // 1 2 1
           0, 3, 0x34, 0x50,           // literal 3 4 5, padded to a word
           0, 0,                       // end of line
           0, 2, 2, 0,                 // jump right by 2
           2, 0xFF,                    // 15 15
           0, 1});
    const COLImage rle = ExpectPixels(b, "rle4.bmp", "6x2", {{2, 0, 240, 240, 240, 255}, {3, 0, 240, 240, 240, 255}});
    const int bottom[6] = {1, 2, 1, 3, 4, 5};
    for (uint32_t x = 0; x < 6; ++x)
        EXPECT_TRUE(Is(rle.GetPixel2(x, 1), bottom[x] * 16, bottom[x] * 16, bottom[x] * 16, 255)) << x;
    EXPECT_EQ(rle.GetPixel2(0, 0).alpha, 0); // skipped by the jump: transparent
    EXPECT_EQ(rle.GetPixel2(4, 0).alpha, 0);

    // 32-bit bit fields in a 40-byte header with an alpha mask after it (BI_ALPHABITFIELDS), 1 x 1.
    b = BmpHeader(1, 1, 32, 6, 40, 54 + 16);
    b.U32(0x0000FF00); // red
    b.U32(0x00FF0000); // green
    b.U32(0xFF000000); // blue
    b.U32(0x000000FF); // alpha
    b.U32(0x11223344);
    ExpectPixels(b, "fields.bmp", "1x1", {{0, 0, 0x33, 0x22, 0x11, 0x44}});

    // Plain 32-bit data whose fourth byte is all zero is opaque; a non-zero fourth byte is alpha.
    b = BmpHeader(2, 1, 32);
    b.U32(0x00102030);
    b.U32(0x00405060);
    ExpectPixels(b, "x32.bmp", "2x1", {{0, 0, 0x10, 0x20, 0x30, 255}});
    b[54 + 3] = 0x80;
    const COLImage withAlpha = LoadBytes(dir, b, "a32.bmp");
    EXPECT_EQ(withAlpha.GetPixel2(0, 0).alpha, 0x80);
    EXPECT_EQ(withAlpha.GetPixel2(1, 0).alpha, 0);

    // 16-bit plain data is 5-5-5; the top bit is not alpha.
    b = BmpHeader(1, 1, 16);
    b.U32(0xFC00 | 0x001F); // red 31, blue 31, top bit set
    ExpectPixels(b, "x16.bmp", "1x1", {{0, 0, 255, 0, 255, 255}});
}

ByteWriter TgaHeader(uint8_t type, uint16_t w, uint16_t h, uint8_t depth, uint8_t descriptor, uint8_t mapType = 0,
                     uint16_t mapFirst = 0, uint16_t mapLength = 0, uint8_t mapDepth = 0)
{
    ByteWriter b;
    b.U8(0);
    b.U8(mapType);
    b.U8(type);
    b.U16(mapFirst);
    b.U16(mapLength);
    b.push_back(mapDepth);
    b.U16(0);
    b.U16(0);
    b.U16(w);
    b.U16(h);
    b.push_back(depth);
    b.push_back(descriptor);
    return b;
}

TEST_F(CodecFiles, TgaOriginsDepthsAndMaps)
{
    // 24-bit, top-right origin: stored first is the top row, right to left.
    ByteWriter b = TgaHeader(2, 2, 2, 24, 0x30);
    b.Add({1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4});
    ExpectPixels(b, "tr.tga", "2x2", {{1, 0, 1, 1, 1, 255}, {0, 0, 2, 2, 2, 255}, {1, 1, 3, 3, 3, 255}});

    // 16-bit with one attribute bit: the bit is alpha. RLE packet repeating one pixel, then a raw one.
    b = TgaHeader(10, 3, 1, 16, 0x21);
    b.push_back(0x81);
    b.U16(0x8000 | (31 << 10)); // opaque red, twice
    b.push_back(0x00);
    b.U16(31); // blue, attribute bit clear
    ExpectPixels(b, "a16.tga", "3x1", {{0, 0, 255, 0, 0, 255}, {1, 0, 255, 0, 0, 255}, {2, 0, 0, 0, 255, 0}});

    // Colour-mapped with a map starting at index 5; indices outside the map are black.
    b = TgaHeader(1, 3, 1, 8, 0x20, 1, 5, 2, 24);
    b.Add({10, 20, 30, 40, 50, 60, /* indices */ 5, 6, 2});
    ExpectPixels(b, "map.tga", "3x1", {{0, 0, 30, 20, 10, 255}, {1, 0, 60, 50, 40, 255}, {2, 0, 0, 0, 0, 255}});

    // 16-bit gray with alpha.
    b = TgaHeader(3, 1, 1, 16, 0x28);
    b.Add({90, 128});
    ExpectPixels(b, "ga.tga", "1x1", {{0, 0, 90, 90, 90, 128}});
}

Bytes PcxHeader(uint8_t bits, uint8_t planes, uint16_t w, uint16_t h, uint16_t lineBytes)
{
    Bytes b(128, 0);
    b[0] = 0x0A, b[1] = 5, b[2] = 1, b[3] = bits;
    b[8] = uint8_t(w - 1), b[9] = uint8_t((w - 1) >> 8);
    b[10] = uint8_t(h - 1), b[11] = uint8_t((h - 1) >> 8);
    b[65] = planes;
    b[66] = uint8_t(lineBytes), b[67] = uint8_t(lineBytes >> 8);
    return b;
}

TEST_F(CodecFiles, PcxSixteenColourPlanesAndRunsAcrossLines)
{
    // 1 bit x 4 planes, 8 x 1: pixel x gets index x (plane k holds bit k).
    Bytes b = PcxHeader(1, 4, 8, 1, 2);
    for (int i = 0; i < 16; ++i)
        b[16 + 3 * i] = uint8_t(i * 16), b[17 + 3 * i] = 7, b[18 + 3 * i] = 9;
    const uint8_t planes[4] = {0x55, 0x33, 0x0F, 0x00};
    for (uint8_t p : planes)
        b.push_back(p), b.push_back(0);
    const COLImage ega = ExpectPixels(b, "ega.pcx", "8x1", {});
    for (uint32_t x = 0; x < 8; ++x)
        EXPECT_TRUE(Is(ega.GetPixel2(x, 0), int(x) * 16, 7, 9, 255)) << x;

    // 8-bit gray (no palette at the end), 4 x 2, one run covering both lines.
    b = PcxHeader(8, 1, 4, 2, 4);
    b.push_back(0xC8), b.push_back(77);
    ExpectPixels(b, "run.pcx", "4x2", {{3, 1, 77, 77, 77, 255}});
}

TEST_F(CodecFiles, GifFirstFrameOnItsScreen)
{
    COLImage img = Load(vmtest::DataPath("codec/gif-offset.gif"));
    ASSERT_EQ(vmtest::Size(img), "32x24");
    const COLImage onScreen = vmtest::Picture(32, 24, [](uint32_t x, uint32_t y) {
        return x >= 5 && x < 15 && y >= 6 && y < 14 ? CPixel::Make(255, 0, 0) : CPixel{0, 0, 0, 0};
    });
    EXPECT_EQ(codectest::MaxAlphaDifference(onScreen, img), 0);
    EXPECT_EQ(codectest::MaxColourDifference(onScreen, img, true), 0); // the screen around the frame has no colour
    img = Load(vmtest::DataPath("codec/gif-anim.gif"));
    EXPECT_TRUE(vmtest::SamePixels(img, vmtest::Solid(32, 24, CPixel::Make(0, 0, 255))));

    // A frame reaching past its screen is clipped to it: its offset never makes the picture larger.
    Bytes gif = ReadAll(vmtest::DataPath("codec/gif-offset.gif"));
    const uint8_t frame[] = {0x2C, 5, 0, 6, 0, 10, 0, 8, 0};   // at (5, 6), 10 x 8
    const auto at = std::search(gif.begin(), gif.end(), std::begin(frame), std::end(frame));
    ASSERT_NE(at, gif.end());
    at[1] = 28;
    img = LoadBytes(dir, gif, "clipped.gif");
    ASSERT_EQ(vmtest::Size(img), "32x24");
    EXPECT_TRUE(Is(img.GetPixel2(31, 13), 255, 0, 0, 255));
    EXPECT_EQ(img.GetPixel2(27, 6).alpha, 0);
    EXPECT_EQ(img.GetPixel2(28, 14).alpha, 0);
}

TEST_F(CodecFiles, TypeFromContentFirstThenExtension)
{
    COLImage src = Pattern(6, 4, false);
    ASSERT_EQ(codec.SaveFile(dir.File("p.png").c_str(), &src), 1);
    std::filesystem::rename(dir.File("p.png"), dir.File("p.jpg"));
    EXPECT_EQ(COLImageCodec::GetFileType(dir.File("p.jpg").c_str()), kFilePng);
    EXPECT_EQ(codec.LoadFile(dir.File("p.jpg").c_str(), &src), 1);

    WriteAll(dir.File("doc.png"), {'V', 'M', 'P', 'D', 1, 0, 0, 0});
    EXPECT_EQ(COLImageCodec::GetFileType(dir.File("doc.png").c_str()), kFileProject);
    WriteAll(dir.File("x.bmp"), {'8', 'B', 'P', 'S', 0, 1});
    EXPECT_EQ(COLImageCodec::GetFileType(dir.File("x.bmp").c_str()), kFilePsd);
    COLImage img;
    EXPECT_EQ(codec.LoadFile(dir.File("x.bmp").c_str(), &img), 0); // a PSD is not a picture for LoadFile

    // An empty file, a text, a missing file and a folder.
    WriteAll(dir.File("empty.png"), {});
    WriteAll(dir.File("text.png"), {'h', 'e', 'l', 'l', 'o'});
    for (const std::string& path :
         {dir.File("empty.png"), dir.File("text.png"), dir.File("missing.png"), dir.Path().string()})
        EXPECT_EQ(COLImageCodec::GetFileType(path.c_str()), kFileUnusable) << path;
    EXPECT_EQ(COLImageCodec::GetFileType(nullptr), kFileUnusable);
    // A FIFO with no writer must not hang the caller.
    ASSERT_EQ(mkfifo(dir.File("pipe.png").c_str(), 0600), 0);
    EXPECT_EQ(COLImageCodec::GetFileType(dir.File("pipe.png").c_str()), kFileUnusable);
    EXPECT_EQ(codec.LoadFile(dir.File("pipe.png").c_str(), &img), 0);

    // TGA: a version 2 file is known by its footer; an old one only by its name and a sound header.
    ASSERT_EQ(codec.SaveFile(dir.File("t.tga").c_str(), &src), 1);
    std::filesystem::rename(dir.File("t.tga"), dir.File("t.dat"));
    EXPECT_EQ(COLImageCodec::GetFileType(dir.File("t.dat").c_str()), kFileTga);
    ByteWriter old = TgaHeader(2, 1, 1, 24, 0);
    old.push_back(1), old.push_back(2), old.push_back(3);
    WriteAll(dir.File("old.TGA"), old);
    WriteAll(dir.File("old.dat"), old);
    EXPECT_EQ(COLImageCodec::GetFileType(dir.File("old.TGA").c_str()), kFileTga);
    EXPECT_EQ(COLImageCodec::GetFileType(dir.File("old.dat").c_str()), kFileUnusable);
    old[16] = 7; // no such depth
    WriteAll(dir.File("bad.tga"), old);
    EXPECT_EQ(COLImageCodec::GetFileType(dir.File("bad.tga").c_str()), kFileUnusable);
}

// Every fixture and every file we write, cut short: refused while incomplete, and a result that agrees with the
// image. (Damage of every other kind is the fuzzers' work: fuzz/.)
std::vector<std::string> SampleFiles(const TempDir& dir)
{
    std::vector<std::string> files;
    for (auto& e : std::filesystem::directory_iterator(vmtest::DataPath("codec"))) {
        const std::string extension = e.path().extension().string(); // the references and notes are no samples
        if (extension != ".pam" && extension != ".md" && extension != ".sh") files.push_back(e.path().string());
    }
    const COLImage src = Pattern(40, 30, true);
    COLImageCodec codec;
    for (const char* name : {"w.png", "w.bmp", "w.tga", "w.tif"}) {
        codec.SaveFile(dir.File(name).c_str(), &src);
        files.push_back(dir.File(name));
    }
    codec.SaveJpegFile(dir.File("w.jpg").c_str(), &src, 80, 72);
    files.push_back(dir.File("w.jpg"));
    return files;
}

// What the fuzzers found (tests/data/fuzz/FORMAT/, see docs/fuzzing.md): each file is refused.
TEST_F(CodecFiles, FuzzFindingsAreRefused)
{
    size_t seen = 0;
    for (const char* format : {"bmp", "jpeg", "gif", "pcx", "tiff", "tga", "png"}) {
        const std::filesystem::path folder = vmtest::DataPath(std::string("fuzz/") + format);
        if (!std::filesystem::is_directory(folder)) continue;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            COLImage img = Pattern(3, 3, false); // a failed load must empty it
            EXPECT_EQ(COLImageCodec().LoadFile(entry.path().c_str(), &img), 0) << entry.path();
            EXPECT_TRUE(img.IsNull()) << entry.path();
            ++seen;
        }
    }
    EXPECT_GT(seen, 0u);
}

TEST_F(CodecFiles, TruncatedFilesAreRefused)
{
    for (const std::string& path : SampleFiles(dir)) {
        SCOPED_TRACE(path);
        const Bytes whole = ReadAll(path);
        ASSERT_GT(whole.size(), 40u);
        const std::string ext = path.substr(path.find_last_of('.'));
        const std::string cut = dir.File("cut" + ext);
        for (size_t len = 0; len < whole.size(); len += (len < 64 ? 1 : 1 + whole.size() / 61)) {
            WriteAll(cut, Bytes(whole.begin(), whole.begin() + std::ptrdiff_t(len)));
            COLImage img = Pattern(3, 3, false); // a failed load must empty it
            const int r = codec.LoadFile(cut.c_str(), &img);
            ASSERT_EQ(r == 0, img.IsNull()) << len;
            // Up to half the file nothing can be complete.
            if (len <= whole.size() / 2) {
                ASSERT_EQ(r, 0) << len;
            }
        }
    }
}

// A side of 20001 is refused, though such a picture of one row would be small: the check is on the side.
TEST_F(CodecFiles, SidesAboveTheLimitAreRefused)
{
    const COLImage src = Pattern(8, 1, false);
    const uint32_t over = kMaxImageSide + 1;

    ASSERT_EQ(codec.SaveFile(dir.File("a.png").c_str(), &src), 1);
    Bytes png = ReadAll(dir.File("a.png"));
    png[16] = uint8_t(over >> 24), png[17] = uint8_t(over >> 16), png[18] = uint8_t(over >> 8), png[19] = uint8_t(over);
    const uint32_t crc = uint32_t(crc32(0, &png[12], 17)); // the header chunk stays valid: only its size is wrong
    png[29] = uint8_t(crc >> 24), png[30] = uint8_t(crc >> 16), png[31] = uint8_t(crc >> 8), png[32] = uint8_t(crc);
    EXPECT_TRUE(LoadBytes(dir, png, "big.png").IsNull());

    ASSERT_EQ(codec.SaveJpegFile(dir.File("a.jpg").c_str(), &src, 80, 72), 1);
    Bytes jpg = ReadAll(dir.File("a.jpg"));
    const size_t sof = FindMarker(jpg, 0xC0);
    ASSERT_NE(sof, 0u);
    jpg[sof + 3] = uint8_t(over >> 8), jpg[sof + 4] = uint8_t(over);
    EXPECT_TRUE(LoadBytes(dir, jpg, "big.jpg").IsNull());

    ASSERT_EQ(codec.SaveFile(dir.File("a.bmp").c_str(), &src), 1);
    Bytes bmp = ReadAll(dir.File("a.bmp"));
    bmp[18] = uint8_t(over), bmp[19] = uint8_t(over >> 8);
    EXPECT_TRUE(LoadBytes(dir, bmp, "big.bmp").IsNull());
    bmp[18] = 8, bmp[19] = 0;
    bmp[22] = 0xFF, bmp[23] = 0xFF, bmp[24] = 0xFF, bmp[25] = 0x7F; // 2^31 - 1 rows
    EXPECT_TRUE(LoadBytes(dir, bmp, "tall.bmp").IsNull());

    ASSERT_EQ(codec.SaveFile(dir.File("a.tga").c_str(), &src), 1);
    Bytes tga = ReadAll(dir.File("a.tga"));
    tga[12] = uint8_t(over), tga[13] = uint8_t(over >> 8);
    EXPECT_TRUE(LoadBytes(dir, tga, "big.tga").IsNull());

    Bytes pcx = PcxHeader(8, 1, 8, 1, 8);
    pcx[8] = uint8_t(over - 1), pcx[9] = uint8_t((over - 1) >> 8);
    pcx.resize(pcx.size() + 64, 0x11);
    EXPECT_TRUE(LoadBytes(dir, pcx, "big.pcx").IsNull());

    Bytes gif = ReadAll(vmtest::DataPath("codec/gif-interlaced.gif"));
    gif[6] = uint8_t(over), gif[7] = uint8_t(over >> 8);
    EXPECT_TRUE(LoadBytes(dir, gif, "big.gif").IsNull());

    // TIFF: find the ImageWidth entry of the first directory (little-endian, as libtiff writes here).
    ASSERT_EQ(codec.SaveFile(dir.File("a.tif").c_str(), &src), 1);
    Bytes tif = ReadAll(dir.File("a.tif"));
    ASSERT_EQ(tif[0], 'I');
    const uint32_t ifd = codec::Le32(&tif[4]);
    bool patched = false;
    for (uint32_t i = 0; i < codec::Le16(&tif[ifd]); ++i) {
        uint8_t* e = &tif[ifd + 2 + 12 * i];
        if (codec::Le16(e) != 256) continue;
        ASSERT_EQ(codec::Le16(e + 2), 3); // SHORT
        e[8] = uint8_t(over), e[9] = uint8_t(over >> 8);
        patched = true;
    }
    ASSERT_TRUE(patched);
    EXPECT_TRUE(LoadBytes(dir, tif, "big.tif").IsNull());
}

} // namespace
