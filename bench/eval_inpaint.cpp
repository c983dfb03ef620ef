// Quality of the structure-aware fill on real photographs (assets/samples) with holes of five shapes made here:
// a blob, a thin scratch, a block on the most textured spot, an object-sized ellipse and a half-disc on the
// border. The truth is the photograph before the hole. Beside it: block quilting (where its engine is part of the
// tree) and, where installed, OpenCV's cv::inpaint (Telea, Navier-Stokes) and cv::xphoto::inpaint (FSR fast; FSR
// best with --best, which takes minutes). Prints a Markdown table of PSNR over the hole and SSIM of the luma over
// the hole grown by kRing pixels (higher is better for both), means, and times relative to the first method.
//
//   build-bench/bench/eval_inpaint            (--best: also FSR best; --quick: no OpenCV; --ours: the
//                                             structure-aware fill alone, for trying a change: the other
//                                             methods' figures do not change between runs)
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "effects/exemplar_inpaint.h"
#include "imaging/codec.h"

// The build defines VM_HAVE_PATCH_INPAINT where the block-quilting engine is part of the tree.
#ifdef VM_HAVE_PATCH_INPAINT
#include "effects/patch_inpaint.h"
#endif

#ifdef VM_HAVE_CV_PHOTO
#include <opencv2/core.hpp>
#include <opencv2/photo.hpp>
#endif
#ifdef VM_HAVE_XPHOTO
#include <opencv2/xphoto/inpainting.hpp>
#endif

namespace {

constexpr double kPi = 3.14159265358979323846;
// The neighbourhood that SSIM is taken over: the hole grown by this many pixels, so that a seam shows.
constexpr int kRing = 8;
const char* const kPhotos[] = {"chelsea.png", "coffee.png", "astronaut.png"};
const char* const kShapes[] = {"blob", "scratch", "block on texture", "object", "border"};

void Clear(COLChannel& mask, uint32_t w, uint32_t h)
{
    mask.Create(w, h);
    std::memset(mask.GetBuffer(), 0, mask.GetAreaByteSize());
}

void Disc(COLChannel& mask, double cx, double cy, double rx, double ry)
{
    for (uint32_t y = 0; y < mask.GetHeight(); ++y)
        for (uint32_t x = 0; x < mask.GetWidth(); ++x) {
            const double dx = (x + 0.5 - cx) / rx, dy = (y + 0.5 - cy) / ry;
            if (dx * dx + dy * dy <= 1.0) mask.SetValue(x, y, 255);
        }
}

// Luma variance of a square, for the block placed on texture.
double Variance(const COLImage& img, int x0, int y0, int side)
{
    double s = 0, s2 = 0;
    for (int y = y0; y < y0 + side; ++y)
        for (int x = x0; x < x0 + side; ++x) {
            const double g = img.GetPixel2(uint32_t(x), uint32_t(y)).GetGray2();
            s += g;
            s2 += g * g;
        }
    const double n = double(side) * side;
    return s2 / n - (s / n) * (s / n);
}

void MakeMask(const COLImage& img, int shape, COLChannel& mask)
{
    const uint32_t w = img.GetWidth(), h = img.GetHeight();
    const double m = std::min(w, h);
    Clear(mask, w, h);
    switch (shape) {
    case 0: // blob: five overlapping discs
        for (int k = 0; k < 5; ++k) {
            const double a = 2 * kPi * k / 5;
            Disc(mask, 0.42 * w + 0.06 * m * std::cos(a), 0.55 * h + 0.05 * m * std::sin(a), 0.07 * m, 0.06 * m);
        }
        break;
    case 1: // scratch: a wavy stroke 5 pixels wide across most of the picture
        for (double t = 0; t <= 1.0; t += 0.0005) {
            const double x = (0.1 + 0.8 * t) * w, y = (0.25 + 0.5 * t) * h + 0.04 * m * std::sin(9 * t);
            for (int dy = -2; dy <= 2; ++dy)
                for (int dx = -2; dx <= 2; ++dx) {
                    const int px = int(x) + dx, py = int(y) + dy;
                    if (px >= 0 && py >= 0 && px < int(w) && py < int(h))
                        mask.SetValue(uint32_t(px), uint32_t(py), 255);
                }
        }
        break;
    case 2: { // block on texture: a square of a seventh of the short side where the luma varies most
        const int side = int(m / 7);
        double best = -1;
        int bx = 0, by = 0;
        for (int y = side; y + 2 * side <= int(h); y += side / 2)
            for (int x = side; x + 2 * side <= int(w); x += side / 2) {
                const double v = Variance(img, x, y, side);
                if (v > best) best = v, bx = x, by = y;
            }
        for (int y = by; y < by + side; ++y)
            for (int x = bx; x < bx + side; ++x)
                mask.SetValue(uint32_t(x), uint32_t(y), 255);
        break;
    }
    case 3: // object: an ellipse of about 12 % of the picture
        Disc(mask, 0.55 * w, 0.5 * h, 0.22 * w, 0.18 * h);
        break;
    default: // border: a half-disc on the bottom edge
        Disc(mask, 0.3 * w, h, 0.13 * m, 0.13 * m);
        break;
    }
}

// A method: the filled picture from the damaged one and the mask; false when it failed.
struct Method {
    std::string name;
    std::function<bool(const COLImage&, const COLChannel&, COLImage&)> run;
};

#ifdef VM_HAVE_CV_PHOTO
cv::Mat ToMat(const COLImage& img)
{
    cv::Mat bgr(int(img.GetHeight()), int(img.GetWidth()), CV_8UC3);
    for (uint32_t y = 0; y < img.GetHeight(); ++y)
        for (uint32_t x = 0; x < img.GetWidth(); ++x) {
            const CPixel p = img.GetPixel2(x, y);
            bgr.at<cv::Vec3b>(int(y), int(x)) = cv::Vec3b(p.blue, p.green, p.red);
        }
    return bgr;
}

bool FromMat(const cv::Mat& bgr, const COLImage& like, COLImage& out)
{
    if (bgr.type() != CV_8UC3 || !out.DuplicateFrom(&like)) return false;
    for (uint32_t y = 0; y < like.GetHeight(); ++y)
        for (uint32_t x = 0; x < like.GetWidth(); ++x) {
            const cv::Vec3b v = bgr.at<cv::Vec3b>(int(y), int(x));
            *out.GetBuffer(x, y) = CPixel{v[0], v[1], v[2], 255};
        }
    return true;
}

cv::Mat MaskMat(const COLChannel& mask, bool holeIsZero)
{
    cv::Mat m(int(mask.GetHeight()), int(mask.GetWidth()), CV_8UC1);
    for (uint32_t y = 0; y < mask.GetHeight(); ++y)
        for (uint32_t x = 0; x < mask.GetWidth(); ++x)
            m.at<uint8_t>(int(y), int(x)) = (mask.GetValue(x, y) > 127) != holeIsZero ? 255 : 0;
    return m;
}
#endif

std::vector<Method> Methods(bool opencv, bool best, bool others)
{
    std::vector<Method> m;
    m.push_back({"structure-aware", [](const COLImage& s, const COLChannel& k, COLImage& o) {
                     ExemplarInpaintParams p;
                     p.mask = &k;
                     return ExemplarInpaint(s, k, o, p) == kOk;
                 }});
    if (!others) return m;
#ifdef VM_HAVE_PATCH_INPAINT
    m.push_back({"block quilting", [](const COLImage& s, const COLChannel& k, COLImage& o) {
                     COLChannel mask;
                     COLImage src;
                     if (!mask.DuplicateFrom(&k) || !src.DuplicateFrom(&s)) return false;
                     InpaintParams p{};
                     p.mask = &mask;
                     p.blockSize = CPatchInpaintProcess::EstimateBlockSize(mask);
                     p.featherMask = 1; // as the editor runs it: feathered, its own (not the exact classic) fill
                     CPatchInpaintProcess process;
                     process.SetImages(&src, &o);
                     return process.Process(&p) == kOk;
                 }});
#endif
#ifdef VM_HAVE_CV_PHOTO
    if (opencv) {
        m.push_back({"Telea", [](const COLImage& s, const COLChannel& k, COLImage& o) {
                         cv::Mat out;
                         cv::inpaint(ToMat(s), MaskMat(k, false), out, 3, cv::INPAINT_TELEA);
                         return FromMat(out, s, o);
                     }});
        m.push_back({"Navier-Stokes", [](const COLImage& s, const COLChannel& k, COLImage& o) {
                         cv::Mat out;
                         cv::inpaint(ToMat(s), MaskMat(k, false), out, 3, cv::INPAINT_NS);
                         return FromMat(out, s, o);
                     }});
#ifdef VM_HAVE_XPHOTO
        m.push_back({"FSR fast", [](const COLImage& s, const COLChannel& k, COLImage& o) {
                         cv::Mat out;
                         cv::xphoto::inpaint(ToMat(s), MaskMat(k, true), out, cv::xphoto::INPAINT_FSR_FAST);
                         return FromMat(out, s, o);
                     }});
        if (best)
            m.push_back({"FSR best", [](const COLImage& s, const COLChannel& k, COLImage& o) {
                             cv::Mat out;
                             cv::xphoto::inpaint(ToMat(s), MaskMat(k, true), out, cv::xphoto::INPAINT_FSR_BEST);
                             return FromMat(out, s, o);
                         }});
#endif
    }
#endif
    (void)opencv;
    (void)best;
    return m;
}

// PSNR of the colours over the hole.
double Psnr(const COLImage& a, const COLImage& truth, const COLChannel& mask)
{
    double sum = 0;
    size_t n = 0;
    for (uint32_t y = 0; y < a.GetHeight(); ++y)
        for (uint32_t x = 0; x < a.GetWidth(); ++x) {
            if (mask.GetValue(x, y) <= 127) continue;
            const CPixel p = a.GetPixel2(x, y), q = truth.GetPixel2(x, y);
            const double d[3] = {double(p.red) - q.red, double(p.green) - q.green, double(p.blue) - q.blue};
            sum += d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
            n += 3;
        }
    const double mse = sum / double(std::max<size_t>(n, 1));
    return mse <= 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 / mse);
}

// Mean SSIM of the luma (Gaussian window of sigma 1.5, radius 5, the usual constants) over the hole grown by kRing.
double Ssim(const COLImage& a, const COLImage& truth, const COLChannel& mask)
{
    const int w = int(a.GetWidth()), h = int(a.GetHeight());
    std::vector<double> x(size_t(w) * h), y(size_t(w) * h);
    for (int j = 0; j < h; ++j)
        for (int i = 0; i < w; ++i) {
            x[size_t(j) * w + i] = a.GetPixel2(uint32_t(i), uint32_t(j)).GetGray2();
            y[size_t(j) * w + i] = truth.GetPixel2(uint32_t(i), uint32_t(j)).GetGray2();
        }
    double g[11], gs = 0;
    for (int k = -5; k <= 5; ++k)
        gs += g[k + 5] = std::exp(-k * k / (2 * 1.5 * 1.5));
    for (double& v : g)
        v /= gs;
    // Separable window sums of x, y, xx, yy, xy.
    auto blur = [&](const std::function<double(size_t)>& f) {
        std::vector<double> t(size_t(w) * h), o(size_t(w) * h);
        for (int j = 0; j < h; ++j)
            for (int i = 0; i < w; ++i) {
                double s = 0;
                for (int k = -5; k <= 5; ++k)
                    s += g[k + 5] * f(size_t(j) * w + std::clamp(i + k, 0, w - 1));
                t[size_t(j) * w + i] = s;
            }
        for (int j = 0; j < h; ++j)
            for (int i = 0; i < w; ++i) {
                double s = 0;
                for (int k = -5; k <= 5; ++k)
                    s += g[k + 5] * t[size_t(std::clamp(j + k, 0, h - 1)) * w + i];
                o[size_t(j) * w + i] = s;
            }
        return o;
    };
    const auto mx = blur([&](size_t i) { return x[i]; }), my = blur([&](size_t i) { return y[i]; });
    const auto xx = blur([&](size_t i) { return x[i] * x[i]; }), yy = blur([&](size_t i) { return y[i] * y[i]; });
    const auto xy = blur([&](size_t i) { return x[i] * y[i]; });
    const double c1 = (0.01 * 255) * (0.01 * 255), c2 = (0.03 * 255) * (0.03 * 255);
    // The region: the hole grown by kRing (chessboard), from a summed-area table of the hole.
    std::vector<int> sat(size_t(w + 1) * (h + 1), 0);
    for (int j = 0; j < h; ++j)
        for (int i = 0; i < w; ++i)
            sat[size_t(j + 1) * (w + 1) + i + 1] = sat[size_t(j) * (w + 1) + i + 1] + sat[size_t(j + 1) * (w + 1) + i] -
                                                   sat[size_t(j) * (w + 1) + i] +
                                                   (mask.GetValue(uint32_t(i), uint32_t(j)) > 127);
    auto near = [&](int i, int j) {
        const int x0 = std::max(i - kRing, 0), y0 = std::max(j - kRing, 0);
        const int x1 = std::min(i + kRing + 1, w), y1 = std::min(j + kRing + 1, h);
        return sat[size_t(y1) * (w + 1) + x1] - sat[size_t(y0) * (w + 1) + x1] - sat[size_t(y1) * (w + 1) + x0] +
                   sat[size_t(y0) * (w + 1) + x0] >
               0;
    };
    double sum = 0;
    size_t n = 0;
    for (size_t i = 0; i < size_t(w) * h; ++i) {
        if (!near(int(i % size_t(w)), int(i / size_t(w)))) continue;
        const double vx = xx[i] - mx[i] * mx[i], vy = yy[i] - my[i] * my[i], cxy = xy[i] - mx[i] * my[i];
        sum += ((2 * mx[i] * my[i] + c1) * (2 * cxy + c2)) / ((mx[i] * mx[i] + my[i] * my[i] + c1) * (vx + vy + c2));
        ++n;
    }
    return sum / double(std::max<size_t>(n, 1));
}

} // namespace

int main(int argc, char** argv)
{
    bool opencv = true, best = false, others = true;
    std::string dump; // --dump DIR: every result as DIR/photo-shape-method.png, for looking at
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "--dump" && i + 1 < argc) dump = argv[++i];
        if (std::string(argv[i]) == "--quick") opencv = false;
        if (std::string(argv[i]) == "--best") best = true;
        if (std::string(argv[i]) == "--ours") others = false;
    }
    const auto methods = Methods(opencv, best, others);
    std::printf("PSNR over the hole (dB) / SSIM over the hole and %d pixels around it.\n\n", kRing);
    std::printf("| photo | hole | hole share |");
    for (const Method& m : methods)
        std::printf(" %s |", m.name.c_str());
    std::printf("\n| --- | --- | --- |");
    for (size_t i = 0; i < methods.size(); ++i)
        std::printf(" --- |");
    std::printf("\n");
    std::vector<double> psnr(methods.size(), 0.0), ssim(methods.size(), 0.0), seconds(methods.size(), 0.0);
    std::vector<int> wins(methods.size(), 0);
    int cases = 0;
    for (const char* photo : kPhotos) {
        COLImageCodec codec;
        COLImage truth;
        const std::string path = std::string(VM_ASSETS_DIR) + "/samples/" + photo;
        if (!codec.LoadFile(path.c_str(), &truth)) {
            std::fprintf(stderr, "cannot read %s\n", path.c_str());
            return 1;
        }
        for (size_t i = 0; i < truth.GetPixelCount(); ++i)
            truth.GetBuffer()[i].alpha = 255;
        for (int shape = 0; shape < int(std::size(kShapes)); ++shape) {
            COLChannel mask;
            MakeMask(truth, shape, mask);
            // The damaged picture: the hole painted over in one flat colour, as a removed object might leave it.
            COLImage damaged;
            damaged.DuplicateFrom(&truth);
            size_t holeCount = 0;
            for (uint32_t y = 0; y < truth.GetHeight(); ++y)
                for (uint32_t x = 0; x < truth.GetWidth(); ++x)
                    if (mask.GetValue(x, y) > 127) {
                        *damaged.GetBuffer(x, y) = CPixel::Make(255, 0, 255);
                        ++holeCount;
                    }
            std::printf("| %s | %s | %.1f %% |", photo, kShapes[shape], 100.0 * holeCount / truth.GetPixelCount());
            std::vector<double> caseSsim(methods.size(), -1.0);
            for (size_t k = 0; k < methods.size(); ++k) {
                COLImage out;
                const auto t0 = std::chrono::steady_clock::now();
                const bool ok = methods[k].run(damaged, mask, out);
                seconds[k] += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
                // A method that fails leaves the user the damaged picture; that is what it scores.
                const COLImage& result = ok ? out : damaged;
                if (!dump.empty()) {
                    std::string file = dump + "/" + std::string(photo).substr(0, std::strlen(photo) - 4) + "-" +
                                       std::to_string(shape) + "-" + std::to_string(k) + ".png";
                    codec.SaveFile(file.c_str(), &result);
                }
                const double p = Psnr(result, truth, mask), s = Ssim(result, truth, mask);
                psnr[k] += p;
                ssim[k] += s;
                caseSsim[k] = s;
                std::printf(" %.2f / %.4f%s |", p, s, ok ? "" : " (failed)");
            }
            wins[size_t(std::max_element(caseSsim.begin(), caseSsim.end()) - caseSsim.begin())]++;
            std::printf("\n");
            ++cases;
        }
    }
    std::printf("| **mean** | | |");
    for (size_t k = 0; k < methods.size(); ++k)
        std::printf(" **%.2f / %.4f** |", psnr[k] / cases, ssim[k] / cases);
    std::printf("\n| **best SSIM in** | | |");
    for (int wcount : wins)
        std::printf(" %d of %d |", wcount, cases);
    std::printf("\n\nTime for the whole set, relative to the first method:");
    for (size_t k = 0; k < methods.size(); ++k)
        std::printf(" %s %.2f;", methods[k].name.c_str(), seconds[k] / seconds[0]);
    std::printf("\n");
    return 0;
}
