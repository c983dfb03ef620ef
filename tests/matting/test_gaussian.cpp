#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <set>
#include <vector>

#include "filters/resample.h"
#include "matting/exact_divider.h"
#include "matting/gaussian.h"
#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"
#include "support/engine_checks.h"
#include "support/matting_checks.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

// A plain, slow rendering of the blur: every output byte is its own loop and its own division.
struct RefKernel {
    int n = 0;
    std::vector<int> w;
};

RefKernel RefMakeKernel(double sigma)
{
    RefKernel k;
    std::vector<long> raw;
    long sum = 0;
    for (int i = 0; i < 16; ++i) {
        long v = long(std::pow(2.7188282, -double(i * i) / (2 * sigma * sigma)) * 1024.0);
        if (v == 0) break;
        raw.push_back(v);
        sum += i ? 2 * v : v;
    }
    k.n = int(raw.size());
    for (long v : raw) k.w.push_back(int((v << 11) / sum));
    return k;
}

std::vector<uint8_t> RefBlurLine(const std::vector<uint8_t>& p, const RefKernel& k)
{
    const int len = int(p.size());
    std::vector<uint8_t> out(p.size());
    for (int i = 0; i < len; ++i) {
        long acc = 0, sum = 0;
        for (int j = std::max(0, i - k.n + 1); j < std::min(len, i + k.n); ++j) {
            acc += long(p[j]) * k.w[std::abs(j - i)];
            sum += k.w[std::abs(j - i)];
        }
        out[i] = uint8_t(acc / sum);
    }
    return out;
}

// Planes of bytes: bpp interleaved bytes per pixel, each blurred separately.
std::vector<uint8_t> RefBlur(const std::vector<uint8_t>& src, int w, int h, int bpp, const RefKernel& k)
{
    std::vector<uint8_t> dst(src.size());
    for (int y = 0; y < h; ++y)
        for (int c = 0; c < bpp; ++c) {
            std::vector<uint8_t> line(w);
            for (int x = 0; x < w; ++x) line[x] = src[(y * w + x) * bpp + c];
            line = RefBlurLine(line, k);
            for (int x = 0; x < w; ++x) dst[(y * w + x) * bpp + c] = line[x];
        }
    for (int x = 0; x < w; ++x)
        for (int c = 0; c < bpp; ++c) {
            std::vector<uint8_t> line(h);
            for (int y = 0; y < h; ++y) line[y] = dst[(y * w + x) * bpp + c];
            line = RefBlurLine(line, k);
            for (int y = 0; y < h; ++y) dst[(y * w + x) * bpp + c] = line[y];
        }
    return dst;
}

// The whole process: the scale for large sigmas (never more than the shorter side), block means, blur, and the
// library's own resampler back up (it has its own reference tests).
std::vector<uint8_t> RefGaussian(const std::vector<uint8_t>& src, int w, int h, int bpp, double sigma, int& scale)
{
    scale = 1;
    if (sigma < 0.01) return src;
    if (sigma > 2.5) {
        double c = std::floor(sigma);
        while (c > 2.5 && scale < std::min(w, h)) {
            ++scale;
            c = std::floor(sigma / scale);
        }
        sigma = c;
    }
    const RefKernel k = RefMakeKernel(sigma);
    if (scale == 1) return RefBlur(src, w, h, bpp, k);
    const int sw = w / scale, sh = h / scale;
    std::vector<uint8_t> small(size_t(sw) * sh * bpp);
    for (int y = 0; y < sh; ++y)
        for (int x = 0; x < sw; ++x)
            for (int c = 0; c < bpp; ++c) {
                long s = 0;
                for (int v = 0; v < scale; ++v)
                    for (int u = 0; u < scale; ++u) s += src[((y * scale + v) * w + x * scale + u) * bpp + c];
                small[(y * sw + x) * bpp + c] = uint8_t(s / (scale * scale));
            }
    small = RefBlur(small, sw, sh, bpp, k);
    std::vector<uint8_t> out(src.size());
    if (bpp == 4) {
        COLImage a, b;
        a.Create(sw, sh);
        std::memcpy(a.GetBuffer(), small.data(), small.size());
        EXPECT_EQ(ResampleImage(&a, &b, w, h), 1);
        std::memcpy(out.data(), b.GetBuffer(), out.size());
    } else {
        COLChannel a, b;
        a.Create(sw, sh);
        std::memcpy(a.GetBuffer(), small.data(), small.size());
        EXPECT_EQ(ResampleChannel(&a, &b, w, h), 1);
        std::memcpy(out.data(), b.GetBuffer(), out.size());
    }
    return out;
}

// Every instruction set the filters can use on this processor.
std::vector<int> SimdLevels()
{
    std::vector<int> levels;
    for (int l = vmsimd::kPlain; l <= vmsimd::CurrentLevel(); ++l) levels.push_back(l);
    return levels;
}


} // namespace

TEST(GaussianKernel, WeightsForTheListedSigmas)
{
    GaussianKernel k = GaussianKernel::Make(1.0);
    ASSERT_EQ(k.taps, 4);
    EXPECT_EQ(std::vector<uint32_t>(k.raw, k.raw + 4), (std::vector<uint32_t>{1024, 621, 138, 11}));
    EXPECT_EQ(k.rawSum, 2564u);
    // (w << 11) / 2564
    EXPECT_EQ(std::vector<uint16_t>(k.weight, k.weight + 4), (std::vector<uint16_t>{817, 496, 110, 8}));

    k = GaussianKernel::Make(0.5);
    ASSERT_EQ(k.taps, 2);
    EXPECT_EQ(k.raw[0], 1024u);
    EXPECT_EQ(k.raw[1], 138u);

    k = GaussianKernel::Make(2.0);
    EXPECT_EQ(k.taps, 8);
    EXPECT_GT(k.raw[7], 0u);

    // A sigma that never reaches a zero weight stops at 16 taps a side.
    k = GaussianKernel::Make(40.0);
    EXPECT_EQ(k.taps, 16);

    // Against the independent construction over the whole range of sigmas a blur works with, from 0.01 (the
    // centre alone at full weight, 2048) up.
    for (double s = 0.01; s <= 2.5; s += 0.01) {
        const GaussianKernel a = GaussianKernel::Make(s);
        const RefKernel b = RefMakeKernel(s);
        ASSERT_EQ(a.taps, b.n) << s;
        for (int i = 0; i < a.taps; ++i) ASSERT_EQ(a.weight[i], b.w[i]) << s << " " << i;
    }
}

TEST(ExactDivider, MatchesDivisionAtEveryQuotientBoundary)
{
    // The multiply-shift is monotone in x, so agreeing at both ends of every quotient's run of dividends means
    // agreeing everywhere in [0, 256 d).
    for (uint32_t d = 2; d <= ExactDivider::kMaxDivisor; ++d) {
        const ExactDivider div(d);
        for (uint32_t q = 0; q < 256; ++q) {
            ASSERT_EQ(div(q * d), q) << d;
            ASSERT_EQ(div(q * d + d - 1), q) << d;
        }
    }
}

TEST(ExactDivider, MatchesDivisionForEveryDividendOfTheInteriorDivisors)
{
    // The divisors of whole kernels (what the inner loops divide by) for the sigmas a blur works with, and those of
    // the kernels cut at a border for sigma 1 and 2. The test above covers every other divisor.
    std::set<uint32_t> divisors;
    for (int s100 = 1; s100 <= 250; ++s100) {
        const GaussianKernel k = GaussianKernel::Make(s100 / 100.0);
        divisors.insert(k.Sum(1 - k.taps, k.taps));
    }
    for (int s = 3; s <= 40; ++s) divisors.insert(GaussianKernel::Make(s).Sum(-15, 16));
    for (double sigma : {1.0, 2.0}) {
        const GaussianKernel k = GaussianKernel::Make(sigma);
        for (int lo = 1 - k.taps; lo <= 0; ++lo)
            for (int hi = 1; hi <= k.taps; ++hi) divisors.insert(k.Sum(lo, hi));
    }
    for (uint32_t d : divisors) {
        ASSERT_GE(d, 2u);
        ASSERT_LE(d, ExactDivider::kMaxDivisor);
        const ExactDivider div(d);
        for (uint32_t x = 0; x <= 255 * d; ++x)
            if (div(x) != x / d) FAIL() << x << " / " << d;
    }
}

TEST(Gaussian, WholeImagesMatchThePlainComputation)
{
    // Small and odd sizes (kernels wider than the picture), and one wide and tall enough for the specialised
    // loops and many bands; each with a different split of rows and instruction set.
    const int sizes[][2] = {{1, 1}, {1, 9}, {9, 1}, {5, 5}, {6, 31}, {17, 13}, {64, 3}, {203, 157}};
    const double sigmas[] = {0.3, 0.5, 1.0, 1.7, 2.0, 2.4, 2.6, 3.0, 4.5, 6.0, 17.0};
    const std::pair<unsigned, int> setups[] = {{1, vmsimd::kPlain}, {3, vmsimd::kSse2}, {16, -1}};
    uint32_t seed = 1;
    for (auto [threads, level] : setups) {
        vmtest::ThreadCount tc(threads);
        vmtest::SimdCap cap(level);
        for (auto& s : sizes)
            for (double sigma : sigmas) {
                COLImage src, dst;
                COLChannel csrc, cdst;
                vmtest::FillNoise(src, s[0], s[1], seed++);
                vmtest::FillNoise(csrc, s[0], s[1], seed++);
                CGaussianProcess g;
                g.SetImages(&src, &dst);
                g.SetChannels(&csrc, &cdst);
                ASSERT_EQ(g.Process(&sigma), kOk);
                int scale = 0;
                ASSERT_EQ(vmtest::Bytes(dst), RefGaussian(vmtest::Bytes(src), s[0], s[1], 4, sigma, scale))
                    << s[0] << "x" << s[1] << " sigma " << sigma << " threads " << threads;
                EXPECT_EQ(g.GetScale(), scale);
                ASSERT_EQ(g.ProcessChannel(&sigma), kOk);
                ASSERT_EQ(vmtest::Bytes(cdst), RefGaussian(vmtest::Bytes(csrc), s[0], s[1], 1, sigma, scale))
                    << s[0] << "x" << s[1] << " sigma " << sigma << " plane";
            }
    }
}

TEST(Gaussian, EveryTapCountAgainstThePlainComputation)
{
    // One sigma per kernel length, 1 to 16 taps a side, on pictures wider and taller than any kernel, for planes
    // and four-byte pixels at every instruction set.
    COLImage src = vmtest::Noise(71, 45, 5), dst;
    dst.Create(71, 45);
    const uint8_t* in = reinterpret_cast<const uint8_t*>(src.GetBuffer());
    uint8_t* out = reinterpret_cast<uint8_t*>(dst.GetBuffer());
    for (int level : SimdLevels()) {
        vmtest::SimdCap cap(level);
        std::set<int> seen;
        for (double sigma = 0.01; sigma < 60; sigma *= 1.05) {
            const GaussianKernel k = GaussianKernel::Make(sigma);
            if (!seen.insert(k.taps).second) continue;
            RefKernel rk{k.taps, std::vector<int>(k.weight, k.weight + k.taps)};
            for (int bpp : {1, 4}) {
                const int w = bpp == 1 ? 71 * 4 : 71;   // the same bytes, seen as a wide plane or as pixels
                vmfilter::GaussianBlurBuffer(in, out, uint32_t(w), 45, bpp, k);
                ASSERT_EQ(vmtest::Bytes(dst), RefBlur(vmtest::Bytes(src), w, 45, bpp, rk)) << "taps " << k.taps << " level " << level;
            }
        }
        EXPECT_EQ(seen.size(), 16u);
    }
}

TEST(Gaussian, TinySigmaCopiesAndTheSmallestBlurStillRuns)
{
    COLImage src = vmtest::Noise(9, 7, 3), dst;
    CGaussianProcess g;
    g.SetImages(&src, &dst);
    vmtest::ProgressLog log;
    g.SetProgressCallback(log.Callback());
    g.SetProgressRange(0, 100);
    double sigma = 0.009;
    ASSERT_EQ(g.Process(&sigma), kOk);
    EXPECT_TRUE(vmtest::SamePixels(src, dst));
    EXPECT_TRUE(log.values.empty());   // a copy, no blur
    sigma = 0.01;
    ASSERT_EQ(g.Process(&sigma), kOk);
    EXPECT_TRUE(vmtest::SamePixels(src, dst));   // a one-tap kernel leaves every byte
    ASSERT_TRUE(vmtest::RisesTo(log.values, 0, 100));
    EXPECT_EQ(log.values.front(), 0);
}

TEST(Gaussian, ThreeByThreeWithSigmaSixIsTheBlockMean)
{
    COLImage src = vmtest::Noise(3, 3, 11), dst;
    int sum[4] = {};
    for (int i = 0; i < 9; ++i)
        for (int c = 0; c < 4; ++c) sum[c] += reinterpret_cast<const uint8_t*>(src.GetBuffer() + i)[c];
    CGaussianProcess g;
    g.SetImages(&src, &dst);
    const double sigma = 6.0;
    ASSERT_EQ(g.Process(&sigma), kOk);
    EXPECT_EQ(g.GetScale(), 3);
    for (int i = 0; i < 9; ++i)
        for (int c = 0; c < 4; ++c) EXPECT_EQ(reinterpret_cast<const uint8_t*>(dst.GetBuffer() + i)[c], sum[c] / 9);
}

TEST(Gaussian, SourceAndDestinationMayBeOnePicture)
{
    COLImage src = vmtest::Noise(37, 23, 4), separate, inPlace;
    for (double sigma : {1.5, 4.0}) {
        CGaussianProcess g;
        g.SetImages(&src, &separate);
        ASSERT_EQ(g.Process(&sigma), kOk);
        inPlace.DuplicateFrom(&src);
        g.SetImages(&inPlace, &inPlace);
        ASSERT_EQ(g.Process(&sigma), kOk);
        EXPECT_TRUE(vmtest::SamePixels(separate, inPlace)) << sigma;
    }
}

TEST(Gaussian, BadInputFails)
{
    COLImage src, dst;
    CGaussianProcess g;
    double sigma = 1.0;
    EXPECT_EQ(g.Process(&sigma), kFail);   // nothing set
    g.SetImages(&src, &dst);
    EXPECT_EQ(g.Process(&sigma), kFail);   // source without pixels
    vmtest::FillNoise(src, 4, 4, 1);
    EXPECT_EQ(g.Process(nullptr), kFail);
    sigma = std::nan("");
    EXPECT_EQ(g.Process(&sigma), kFail);
    sigma = INFINITY;
    EXPECT_EQ(g.Process(&sigma), kFail);
    sigma = 1.0;
    EXPECT_EQ(g.ProcessChannel(&sigma), kFail);   // no planes set
    EXPECT_EQ(g.Process(&sigma), kOk);
}
