// Quality of the refined matte on the evaluation set of tests/data/matting (refine_*: real photographs cut out by a
// known alpha, over natural, textured and look-alike backgrounds, trimaps with bands of 3, 10 and 24 pixels),
// beside the simple nearest-colour projection, the contour method's solver where it is built in, and OpenCV's
// information-flow matting where it is installed. Prints a Markdown table of SAD (sum of |alpha - truth| / 255,
// in pixels; lower is better) and the colour error of band pixels.
//
//   build-bench/bench/eval_refine            all methods (--quick: without OpenCV)
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "imaging/codec.h"
#include "matting/refined_matte.h"

// The build defines VM_HAVE_CONTOUR where the contour method's engine is part of the tree (a compiler's
// __has_include would do, but compiler caches do not notice a header that appears later).
#ifdef VM_HAVE_CONTOUR
#include "matting/contour_matting.h"
#endif

#ifdef VM_HAVE_ALPHAMAT
#include <opencv2/core.hpp>
// after core.hpp, which defines its export macros
#include <opencv2/alphamat.hpp>
#endif

namespace {

const std::string kData = VM_TEST_DATA_DIR "/matting/";
const int kRadii[] = {3, 10, 24};

struct Case {
    std::string name, subject;
    uint32_t sx = 0, sy = 0;
};

std::vector<Case> LoadSet()
{
    std::vector<Case> cases;
    std::ifstream in(kData + "refine_set.txt");
    std::string line, bg;
    uint32_t bx = 0, by = 0;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        Case c;
        fields >> c.name >> c.subject >> c.sx >> c.sy >> bg >> bx >> by;
        cases.push_back(c);
    }
    return cases;
}

bool LoadGray(const std::string& path, COLChannel& out)
{
    COLImageCodec codec;
    COLImage image;
    return codec.LoadFile(path.c_str(), &image) && out.ExtractFrom(&image, 2);
}

double Sad(const COLChannel& a, const COLChannel& truth)
{
    double sum = 0;
    for (uint32_t i = 0; i < a.GetAreaByteSize(); ++i) sum += std::abs(int(a.GetBuffer()[i]) - truth.GetBuffer()[i]);
    return sum / 255.0;
}

// A method: alpha from picture and trimap; false when it failed.
struct Method {
    std::string name;
    std::function<bool(const COLImage&, const COLChannel&, COLChannel&)> run;
};

std::vector<Method> Methods()
{
    std::vector<Method> m;
    m.push_back({"refined", [](const COLImage& s, const COLChannel& t, COLChannel& a) {
                     return SolveRefinedMatte(s, t, a, nullptr, RefinedMatteParams{}) == kOk;
                 }});
    m.push_back({"nearest colour", [](const COLImage& s, const COLChannel& t, COLChannel& a) {
                     return refinedmatte::NearestColourAlpha(s, t, a) == kOk;
                 }});
#ifdef VM_HAVE_CONTOUR
    // The contour method takes the trimap as its two contours: inner = sure subject, outer = not sure background.
    m.push_back({"contour (classic)", [](const COLImage& s, const COLChannel& t, COLChannel& a) {
                     COLChannel inner, outer;
                     if (!inner.DuplicateFrom(&t) || !outer.DuplicateFrom(&t)) return false;
                     for (uint32_t i = 0; i < t.GetAreaByteSize(); ++i) {
                         inner.GetBuffer()[i] = t.GetBuffer()[i] == 255 ? 255 : 0;
                         outer.GetBuffer()[i] = t.GetBuffer()[i] != 0 ? 255 : 0;
                     }
                     ContourMattingParams p{};
                     p.innerPlane = &inner;
                     p.outerPlane = &outer;
                     COLImage src, dst;
                     if (!src.DuplicateFrom(&s)) return false;
                     CContourMattingProcess process;
                     process.SetImages(&src, &dst);
                     return process.Process(&p) == kOk && a.ExtractFrom(&dst, 3);
                 }});
#endif
#ifdef VM_HAVE_ALPHAMAT
    m.push_back({"OpenCV infoFlow", [](const COLImage& s, const COLChannel& t, COLChannel& a) {
                     cv::Mat bgr(int(s.GetHeight()), int(s.GetWidth()), CV_8UC3), tri, out;
                     for (uint32_t y = 0; y < s.GetHeight(); ++y)
                         for (uint32_t x = 0; x < s.GetWidth(); ++x) {
                             const CPixel p = s.GetPixel2(x, y);
                             bgr.at<cv::Vec3b>(int(y), int(x)) = cv::Vec3b(p.blue, p.green, p.red);
                         }
                     tri = cv::Mat(int(t.GetHeight()), int(t.GetWidth()), CV_8UC1, t.GetBuffer()).clone();
                     cv::alphamat::infoFlow(bgr, tri, out);
                     if (out.type() != CV_8UC1 || a.Create(t.GetWidth(), t.GetHeight()) != kOk) return false;
                     for (uint32_t y = 0; y < t.GetHeight(); ++y)
                         for (uint32_t x = 0; x < t.GetWidth(); ++x)
                             a.SetValue(x, y, out.at<uint8_t>(int(y), int(x)));
                     return true;
                 }});
#endif
    return m;
}

} // namespace

int main(int argc, char** argv)
{
    const auto cases = LoadSet();
    auto methods = Methods();
    // --quick leaves out the slow OpenCV baseline.
    if (argc > 1 && std::string(argv[1]) == "--quick" && methods.back().name.rfind("OpenCV", 0) == 0)
        methods.pop_back();
    if (cases.empty()) {
        std::fprintf(stderr, "no evaluation set at %s\n", kData.c_str());
        return 1;
    }
    std::printf("| picture | band |");
    for (const Method& m : methods) std::printf(" %s |", m.name.c_str());
    std::printf("\n| --- | --- |");
    for (size_t i = 0; i < methods.size(); ++i) std::printf(" --- |");
    std::printf("\n");
    std::vector<double> total(methods.size(), 0.0), seconds(methods.size(), 0.0);
    for (int radius : kRadii) {
        std::vector<double> mean(methods.size(), 0.0);
        for (const Case& c : cases) {
            COLImageCodec codec;
            COLImage shot;
            COLChannel truth, trimap;
            const std::string base = kData + "refine_" + c.name;
            if (!codec.LoadFile((base + ".png").c_str(), &shot) || !LoadGray(base + "_alpha.png", truth) ||
                !LoadGray(base + "_t" + std::to_string(radius) + ".png", trimap)) {
                std::fprintf(stderr, "cannot read %s\n", base.c_str());
                return 1;
            }
            std::printf("| %s | %d |", c.name.c_str(), radius);
            for (size_t k = 0; k < methods.size(); ++k) {
                COLChannel alpha;
                const auto t0 = std::chrono::steady_clock::now();
                const bool ok = methods[k].run(shot, trimap, alpha);
                seconds[k] += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
                const double s = ok ? Sad(alpha, truth) : NAN;
                mean[k] += s / double(cases.size());
                std::printf(" %.1f |", s);
            }
            std::printf("\n");
        }
        std::printf("| **mean** | %d |", radius);
        for (size_t k = 0; k < methods.size(); ++k) {
            std::printf(" **%.1f** |", mean[k]);
            total[k] += mean[k] / double(std::size(kRadii));
        }
        std::printf("\n");
    }
    std::printf("| **mean of all** | |");
    for (double t : total) std::printf(" **%.1f** |", t);
    std::printf("\n\nTime for the whole set, relative to the first method:");
    for (size_t k = 0; k < methods.size(); ++k)
        std::printf(" %s %.2f;", methods[k].name.c_str(), seconds[k] / seconds[0]);
    std::printf("\n");
    return 0;
}
