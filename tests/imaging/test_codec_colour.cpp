// Colour forms, resampling, rotation and thumbnails of the codec.
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <utility>
#include <vector>

#include "codec_test_util.h"
#include "imaging/codec.h"
#include "support/engine_checks.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

CPixel Hsb(CPixel p)
{
    COLImageCodec().RGB2HSB(&p, 1);
    return p;
}

TEST(CodecColour, HsbBytesOfKnownColours)
{
    // Byte layout: red = hue, green = saturation, blue = brightness; alpha untouched.
    const struct {
        CPixel in;
        int hue, saturation, brightness;
    } cases[] = {
        {CPixel::Make(255, 0, 0, 17), 0, 255, 255}, {CPixel::Make(0, 255, 0), 85, 255, 255},   // 120 degrees
        {CPixel::Make(0, 0, 255), 170, 255, 255},   {CPixel::Make(255, 255, 0), 43, 255, 255}, // 60 is 42.5
        {CPixel::Make(255, 0, 128), 234, 255, 255}, {CPixel::Make(255, 0, 1), 255, 255, 255},  // just short of a turn
        {CPixel::Make(100, 100, 100), 0, 0, 100},   {CPixel::Make(200, 100, 100), 0, 128, 200}, // half saturated
    };
    for (const auto& c : cases)
        EXPECT_EQ(Hsb(c.in).Word(),
                  CPixel::Make(uint8_t(c.hue), uint8_t(c.saturation), uint8_t(c.brightness), c.in.alpha).Word())
            << std::hex << c.in.Word();
}

TEST(CodecColour, HsbRoundTripStaysWithinTheHueStep)
{
    COLImageCodec codec;
    std::mt19937 rng(99);
    int worst = 0;
    for (int i = 0; i < 50000; ++i) {
        const CPixel orig = CPixel::FromWord(rng());
        CPixel p = orig;
        codec.RGB2HSB(&p, 1);
        codec.HSB2RGB(&p, 1);
        ASSERT_EQ(p.alpha, orig.alpha);
        worst = std::max(worst, orig - p == 0 ? 0
                                              : std::max({std::abs(orig.red - p.red), std::abs(orig.green - p.green),
                                                          std::abs(orig.blue - p.blue)}));
    }
    // A hue step is 360/256 degrees: at most about 3 levels of a fully saturated colour.
    EXPECT_LE(worst, 3);
    for (CPixel pure : {CPixel::Make(255, 0, 0), CPixel::Make(0, 255, 0), CPixel::Make(0, 0, 255),
                        CPixel::Make(0, 0, 0), CPixel::Make(255, 255, 255)}) {
        CPixel p = pure;
        codec.RGB2HSB(&p, 1);
        codec.HSB2RGB(&p, 1);
        EXPECT_EQ(pure - p, 0);
    }
}

TEST(CodecColour, HueStripShowsTheWholeCircle)
{
    // 256 columns of hue x, saturation 255, brightness 128, converted in one call.
    std::vector<CPixel> strip(256);
    for (int x = 0; x < 256; ++x)
        strip[size_t(x)] = CPixel{128, 255, uint8_t(x), 9};
    COLImageCodec().HSB2RGB(strip.data(), 256);
    EXPECT_TRUE(strip[0] == CPixel::Make(128, 0, 0));
    EXPECT_TRUE(strip[85] == CPixel::Make(0, 128, 0));
    EXPECT_TRUE(strip[170] == CPixel::Make(0, 0, 128));
    EXPECT_TRUE(strip[255] == CPixel::Make(128, 0, 0)); // the circle closes
    for (int x = 0; x < 256; ++x) {
        const CPixel& c = strip[size_t(x)];
        EXPECT_EQ(std::max({c.red, c.green, c.blue}), 128) << x;
        EXPECT_EQ(std::min({c.red, c.green, c.blue}), 0) << x;
        EXPECT_EQ(c.alpha, 9);
        const CPixel& n = strip[size_t((x + 1) % 256)]; // continuous, across the wrap too
        EXPECT_LE(c - n, 4) << x;
    }
    // Back to HSB, each column finds its own hue.
    COLImageCodec().RGB2HSB(strip.data(), 256);
    for (int x = 0; x < 256; ++x) {
        const int d = std::abs(strip[size_t(x)].red - x);
        EXPECT_LE(std::min(d, 255 - d), 1) << x; // 0 and 255 are the same hue
    }
}

TEST(CodecColour, YuvBytesAndRoundTrip)
{
    COLImageCodec codec;
    auto yuv = [&](CPixel p) {
        codec.RGB2YUV(&p, 1);
        return p;
    };
    // Red byte Y, blue byte Cb, green byte Cr, BT.601 full range; alpha untouched.
    EXPECT_EQ(yuv(CPixel::Make(255, 255, 255, 3)).Word(), CPixel::Make(255, 128, 128, 3).Word());
    EXPECT_EQ(yuv(CPixel::Make(255, 0, 0)).Word(), CPixel::Make(76, 255, 85).Word());   // Cr clamped
    EXPECT_EQ(yuv(CPixel::Make(0, 0, 255)).Word(), CPixel::Make(29, 107, 255).Word());
    EXPECT_EQ(yuv(CPixel::Make(0, 255, 0)).red, 150);

    COLImage img = vmtest::Noise(64, 64, 4);
    COLImage orig = vmtest::Copy(img);
    ASSERT_EQ(codec.RGBToYUV(&img), 1);
    // The whole-image form equals the pixel form.
    COLImage perPixel = vmtest::Copy(orig);
    for (size_t i = 0; i < perPixel.GetPixelCount(); ++i)
        codec.RGB2YUV(perPixel.GetBuffer() + i, 1);
    ASSERT_TRUE(vmtest::SamePixels(img, perPixel));
    ASSERT_EQ(codec.YUVToRGB(&img), 1);
    int worst = 0;
    for (size_t i = 0; i < img.GetPixelCount(); ++i) {
        const CPixel a = orig.GetBuffer()[i], b = img.GetBuffer()[i];
        ASSERT_EQ(a.alpha, b.alpha);
        // Saturated colours lose what the clamped chroma cannot hold; the rest comes back within rounding.
        CPixel y = a;
        codec.RGB2YUV(&y, 1);
        if (y.blue == 0 || y.blue == 255 || y.green == 0 || y.green == 255) continue;
        worst = std::max({worst, std::abs(a.red - b.red), std::abs(a.green - b.green), std::abs(a.blue - b.blue)});
    }
    EXPECT_LE(worst, 2);
    COLImage empty;
    EXPECT_EQ(codec.RGBToYUV(&empty), 0);
    EXPECT_EQ(codec.YUVToRGB(nullptr), 0);
}

// A plain floating-point model of method 1, sample by sample, to hold the fixed-point tables against.
double ModelAxisWeight(uint32_t src, uint32_t dst, uint32_t out, uint32_t in)
{
    if (dst <= src) {
        const double lo = double(out) * src / dst, hi = double(out + 1) * src / dst;
        const double overlap = std::min(hi, double(in + 1)) - std::max(lo, double(in));
        return overlap > 0 ? overlap / (double(src) / dst) : 0;
    }
    double pos = (out + 0.5) * src / dst - 0.5;
    pos = std::clamp(pos, 0.0, double(src - 1));
    const double j = std::floor(pos), f = pos - j;
    if (in == uint32_t(j)) return 1 - f;
    if (in == uint32_t(j) + 1) return f;
    return 0;
}

COLImage ModelResample(const COLImage& s, uint32_t dw, uint32_t dh)
{
    const uint32_t sw = s.GetWidth(), sh = s.GetHeight();
    std::vector<std::vector<double>> wx(dw, std::vector<double>(sw)), wy(dh, std::vector<double>(sh));
    for (uint32_t o = 0; o < dw; ++o)
        for (uint32_t i = 0; i < sw; ++i)
            wx[o][i] = ModelAxisWeight(sw, dw, o, i);
    for (uint32_t o = 0; o < dh; ++o)
        for (uint32_t i = 0; i < sh; ++i)
            wy[o][i] = ModelAxisWeight(sh, dh, o, i);
    // Each output column reads a short run of source columns: summing only that run keeps the model quick.
    std::vector<uint32_t> first(dw, 0), end(dw, 0);
    for (uint32_t o = 0; o < dw; ++o) {
        while (first[o] < sw && wx[o][first[o]] == 0) ++first[o];
        for (uint32_t i = first[o]; i < sw; ++i)
            if (wx[o][i] != 0) end[o] = i + 1;
    }
    COLImage d;
    d.Create(dw, dh);
    for (uint32_t y = 0; y < dh; ++y)
        for (uint32_t x = 0; x < dw; ++x) {
            double acc[4] = {0, 0, 0, 0};
            for (uint32_t j = 0; j < sh; ++j) {
                if (wy[y][j] == 0) continue;
                for (uint32_t i = first[x]; i < end[x]; ++i) {
                    const double w = wx[x][i] * wy[y][j];
                    if (w == 0) continue;
                    const uint8_t* p = reinterpret_cast<const uint8_t*>(s.GetBuffer(i, j));
                    for (int c = 0; c < 4; ++c)
                        acc[c] += w * p[c];
                }
            }
            uint8_t* o = reinterpret_cast<uint8_t*>(d.GetBuffer(x, y));
            for (int c = 0; c < 4; ++c)
                o[c] = uint8_t(std::lround(std::clamp(acc[c], 0.0, 255.0)));
        }
    return d;
}

int MaxByteDifference(const COLImage& a, const COLImage& b)
{
    return std::max(vmtest::MaxColourDifference(a, b), vmtest::MaxAlphaDifference(a, b));
}

// Every size against the model, at every split and level: the same bytes whichever way the pool shares the work out.
// The large pictures are split over the pool; halving both sides exactly has a path of its own.
TEST(CodecResample, MatchesTheAreaAndBilinearModelAtEverySplit)
{
    COLImageCodec codec;
    const COLImage small = vmtest::Noise(53, 41, 8), large = vmtest::Noise(1203, 801, 5),
                   even = vmtest::Noise(1202, 800, 6);
    const struct {
        const COLImage* src;
        int w, h;
    } cases[] = {{&small, 53, 41}, {&small, 17, 13}, {&small, 13, 40},    {&small, 100, 20}, {&small, 120, 97},
                 {&small, 1, 1},   {&small, 4, 41},  {&large, 700, 1100}, {&even, 601, 400}};
    for (const auto& c : cases) {
        const std::string size = std::to_string(c.w) + "x" + std::to_string(c.h);
        SCOPED_TRACE(size);
        COLImage first;
        ASSERT_EQ(codec.Resample(c.src, &first, c.w, c.h, 1), 1);
        ASSERT_EQ(vmtest::Size(first), size);
        EXPECT_LE(MaxByteDifference(first, ModelResample(*c.src, uint32_t(c.w), uint32_t(c.h))), 1);
        vmtest::ForEachLevelAndSplit([&](const std::string& label) {
            COLImage dst;
            ASSERT_EQ(codec.Resample(c.src, &dst, c.w, c.h, 1), 1);
            EXPECT_TRUE(vmtest::SamePixels(dst, first)) << label;
        });
    }
}

TEST(CodecResample, ExactCases)
{
    COLImageCodec codec;
    COLImage src = vmtest::Noise(31, 17, 2);
    COLImage same;
    ASSERT_EQ(codec.Resample(&src, &same, 31, 17, 1), 1);
    EXPECT_TRUE(vmtest::SamePixels(src, same));

    // 2 x 2 -> 1 x 1 is the mean of the four, rounded.
    const uint8_t v[4] = {0, 100, 200, 255};
    const COLImage four = vmtest::Picture(2, 2, [&](uint32_t x, uint32_t y) {
        return CPixel{v[2 * y + x], v[2 * y + x], v[2 * y + x], v[2 * y + x]};
    });
    COLImage one;
    ASSERT_EQ(codec.Resample(&four, &one, 1, 1, 1), 1);
    EXPECT_EQ(one.GetPixel(0, 0), 0x8B8B8B8Bu); // 555 / 4 = 138.75

    // 2 x 1 -> 4 x 1 is bilinear with centres aligned and the ends held.
    const COLImage two = vmtest::Row({CPixel{0, 0, 0, 0}, CPixel{255, 255, 255, 255}});
    COLImage wide;
    ASSERT_EQ(codec.Resample(&two, &wide, 4, 1, 1), 1);
    EXPECT_TRUE(vmtest::SamePixels(wide, vmtest::Row({CPixel{0, 0, 0, 0}, CPixel{64, 64, 64, 64},
                                                      CPixel{191, 191, 191, 191}, CPixel{255, 255, 255, 255}})));

    // Exactly half along both axes: each byte is the rounded mean of its 2 x 2 block, at every level.
    COLImage even = vmtest::Noise(46, 22, 7);
    const COLImage means = vmtest::Picture(23, 11, [&](uint32_t x, uint32_t y) {
        const CPixel a = even.GetPixel2(2 * x, 2 * y), b = even.GetPixel2(2 * x + 1, 2 * y),
                     c = even.GetPixel2(2 * x, 2 * y + 1), d = even.GetPixel2(2 * x + 1, 2 * y + 1);
        auto mean = [](int p, int q, int r, int t) { return uint8_t((p + q + r + t + 2) >> 2); };
        return CPixel{mean(a.blue, b.blue, c.blue, d.blue), mean(a.green, b.green, c.green, d.green),
                      mean(a.red, b.red, c.red, d.red), mean(a.alpha, b.alpha, c.alpha, d.alpha)};
    });
    vmtest::ForEachLevelAndSplit([&](const std::string& label) {
        COLImage half;
        ASSERT_EQ(codec.Resample(&even, &half, 23, 11, 1), 1);
        EXPECT_EQ(vmtest::Bytes(half), vmtest::Bytes(means)) << label;
    });

    // A flat picture stays exactly flat at any size.
    const COLImage flat = vmtest::Solid(37, 23, CPixel::Make(13, 200, 77, 140));
    for (auto [w, h] : {std::pair{11, 7}, std::pair{100, 61}, std::pair{5, 90}}) {
        COLImage out;
        ASSERT_EQ(codec.Resample(&flat, &out, w, h, 1), 1);
        EXPECT_TRUE(vmtest::SamePixels(out, vmtest::Solid(uint32_t(w), uint32_t(h), flat.GetBuffer()[0])));
    }
}

TEST(CodecResample, InPlaceAndRefusals)
{
    COLImageCodec codec;
    COLImage img = vmtest::Noise(20, 10, 1);
    COLImage copy = vmtest::Copy(img);
    COLImage expected;
    ASSERT_EQ(codec.Resample(&copy, &expected, 7, 3, 1), 1);
    ASSERT_EQ(codec.Resample(&img, &img, 7, 3, 1), 1);
    EXPECT_TRUE(vmtest::SamePixels(img, expected));

    COLImage out, empty;
    EXPECT_EQ(codec.Resample(&copy, &out, 7, 3, 0), 0);
    EXPECT_EQ(codec.Resample(&copy, &out, 7, 3, 2), 0);
    EXPECT_EQ(codec.Resample(&copy, &out, 0, 3, 1), 0);
    EXPECT_EQ(codec.Resample(&copy, &out, 7, int(kMaxImageSide) + 1, 1), 0);
    EXPECT_EQ(codec.Resample(&empty, &out, 7, 3, 1), 0);
    EXPECT_EQ(codec.Resample(nullptr, &out, 7, 3, 1), 0);
}

TEST(CodecRotate, QuarterTurnsAreExact)
{
    COLImageCodec codec;
    COLImage src = vmtest::Noise(5, 3, 7);
    COLImage r90;
    ASSERT_EQ(codec.Rotate(&src, &r90, 90.0f), 1);
    ASSERT_EQ(vmtest::Size(r90), "3x5");
    // Clockwise: the bottom-left corner goes to the top-left.
    EXPECT_EQ(r90.GetPixel(0, 0), src.GetPixel(0, 2));
    EXPECT_EQ(r90.GetPixel(2, 0), src.GetPixel(0, 0));
    EXPECT_EQ(r90.GetPixel(2, 4), src.GetPixel(4, 0));
    COLImage back;
    ASSERT_EQ(codec.Rotate(&r90, &back, -90.0f), 1);
    EXPECT_TRUE(vmtest::SamePixels(src, back));
    COLImage r180a, r180b;
    ASSERT_EQ(codec.Rotate(&src, &r180a, 180.0f), 1);
    ASSERT_EQ(codec.Rotate(&src, &r180b, -540.0f), 1);
    EXPECT_TRUE(vmtest::SamePixels(r180a, r180b));
    EXPECT_EQ(r180a.GetPixel(0, 0), src.GetPixel(4, 2));
    COLImage full;
    ASSERT_EQ(codec.Rotate(&src, &full, 360.0f), 1);
    EXPECT_TRUE(vmtest::SamePixels(src, full));
}

TEST(CodecRotate, FreeAngleHoldsTheWholePicture)
{
    COLImageCodec codec;
    COLImage src = vmtest::Solid(20, 20, CPixel::Make(200, 40, 10));
    COLImage out;
    ASSERT_EQ(codec.Rotate(&src, &out, 45.0f), 1);
    EXPECT_EQ(vmtest::Size(out), "29x29");   // 20 * sqrt(2) = 28.3
    // Corners lie outside the turned square.
    EXPECT_EQ(std::make_pair(int(out.GetPixel2(0, 0).alpha), int(out.GetPixel2(28, 28).alpha)), std::make_pair(0, 0));
    EXPECT_EQ(out.GetPixel(14, 14), CPixel::Make(200, 40, 10, 255).Word()); // the centre, opaque
    // Edge pixels keep their colour; only their coverage falls off.
    for (size_t i = 0; i < out.GetPixelCount(); ++i)
        if (out.GetBuffer()[i].alpha > 0) {
            ASSERT_LE(out.GetBuffer()[i] - CPixel::Make(200, 40, 10), 1);
        }
    EXPECT_EQ(codec.Rotate(&src, &out, std::nanf("")), 0);
}

TEST(CodecThumbnail, FitsKeepsProportionsAndReportsTheSize)
{
    vmtest::TempDir dir;
    COLImageCodec codec;
    const COLImage src = codectest::Pattern(400, 300, false);
    ASSERT_EQ(codec.SaveFile(dir.File("p.png").c_str(), &src), 1);
    COLImage thumb;
    int w = 0, h = 0;
    ASSERT_EQ(codec.CreateThumbnail(dir.File("p.png").c_str(), &thumb, 100, w, h, 0), 1);
    EXPECT_EQ(std::make_pair(w, h), std::make_pair(400, 300)); // the picture's own size
    EXPECT_EQ(vmtest::Size(thumb), "100x75");
    ASSERT_EQ(codec.CreateThumbnail(dir.File("p.png").c_str(), &thumb, 100, w, h, 1), 1);
    ASSERT_EQ(vmtest::Size(thumb), "100x100");
    // Transparent margins of 12 rows above and 13 below.
    const COLImage margins = vmtest::Picture(100, 100, [](uint32_t, uint32_t y) {
        return CPixel{0, 0, 0, uint8_t(y >= 12 && y < 87 ? 255 : 0)};
    });
    EXPECT_EQ(vmtest::MaxAlphaDifference(margins, thumb), 0);
    ASSERT_EQ(codec.CreateThumbnail(dir.File("p.png").c_str(), &thumb, 1000, w, h, 0), 1);
    EXPECT_EQ(thumb.GetWidth(), 400u); // never enlarged
    EXPECT_EQ(codec.CreateThumbnail(dir.File("none.png").c_str(), &thumb, 100, w, h, 0), 0);
    EXPECT_TRUE(thumb.IsNull());
    EXPECT_EQ(w, 0);
}

} // namespace
