// "matte": inner-outer contour matting of a photo, from two contour masks or a trimap, by the classic solver or
// (--refine) the refined one.
#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "cli/picture_io.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "matting/contour_matting.h"
#include "matting/contour_optimise.h"
#include "matting/refined_matte.h"

namespace {

// Both planes of the result matter (the colours and the alpha), and PNG is the format that keeps them.
bool EndsWithPng(const std::string& path)
{
    if (path.size() < 4) return false;
    std::string ext = path.substr(path.size() - 4);
    for (char& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
    return ext == ".png";
}

// What the solve works from: the photo and its two contour planes, 255 inside and 0 outside each contour.
struct MatteInputs {
    COLImage image;
    COLChannel inner;   // surely the subject
    COLChannel outer;   // inside the outer contour: subject or unknown
    size_t band = 0;    // unknown pixels: inside the outer contour and not inside the inner one
};

// A mask picture as a plane of the photo's size: the gray value of each pixel, through the given rule.
template <typename Rule>
std::string LoadPlane(const std::string& path, const char* what, const COLImage& photo, COLChannel& plane, Rule rule)
{
    COLImage mask;
    if (std::string error = cli::LoadPicture(path, mask); !error.empty()) return error;
    if (mask.GetWidth() != photo.GetWidth() || mask.GetHeight() != photo.GetHeight())
        return std::string(what) + " " + path + " is " + std::to_string(mask.GetWidth()) + " x " +
               std::to_string(mask.GetHeight()) + ", the picture " + std::to_string(photo.GetWidth()) + " x " +
               std::to_string(photo.GetHeight()) + ": they must be the same size";
    if (plane.Create(mask.GetWidth(), mask.GetHeight()) != kOk) return "out of memory";
    for (size_t i = 0; i < mask.GetPixelCount(); ++i) plane.GetBuffer()[i] = rule(mask.GetBuffer()[i].GetGray2());
    return {};
}

// Turns the command's inputs into the two contour planes ("" or the message to print). Another way of giving the
// contours, or a solver that wants other planes, is added here; the solve below stays as it is.
std::string BuildPlanes(const cli::Args& a, MatteInputs& in)
{
    if (std::string error = cli::LoadPicture(a.Positional()[0], in.image); !error.empty()) return error;
    if (const auto trimap = a.Value("--trimap")) {
        std::string error = LoadPlane(*trimap, "trimap", in.image, in.inner, [](uint8_t v) { return uint8_t(v == 255 ? 255 : 0); });
        if (error.empty())
            error = LoadPlane(*trimap, "trimap", in.image, in.outer, [](uint8_t v) { return uint8_t(v != 0 ? 255 : 0); });
        if (!error.empty()) return error;
    } else {
        const auto binary = [](uint8_t v) { return uint8_t(v != 0 ? 255 : 0); };
        if (std::string error = LoadPlane(*a.Value("--inner"), "inner mask", in.image, in.inner, binary); !error.empty())
            return error;
        if (std::string error = LoadPlane(*a.Value("--outer"), "outer mask", in.image, in.outer, binary); !error.empty())
            return error;
    }
    if (a.Has("--optimise")) {
        long detail = CContourOptimiser::kPanelDetail;
        if (const auto text = a.Value("--detail")) cli::ParseInt(*text, 1, 1000, detail);
        const int32_t d = int32_t(detail);
        if (!CContourOptimiser::CanOptimise(&in.inner, &in.outer))
            return "--optimise needs both contours to hold something";
        if (OptimiseContoursNow(&in.image, &in.inner, &in.outer, &d) != kOk) return "optimising the contours failed (out of memory?)";
    }
    in.band = 0;
    for (size_t i = 0; i < in.image.GetPixelCount(); ++i) in.band += in.inner.GetBuffer()[i] == 0 && in.outer.GetBuffer()[i] != 0;
    if (in.band == 0)
        return "no unknown band: the outer contour must hold pixels that the inner one does not (nothing to solve)";
    return {};
}

cli::Progress* g_progress = nullptr;

void OnProgress(void*, uint32_t code, int32_t value)
{
    if (code == 1 && g_progress) g_progress->Update(value);
}

// The classic solve: grown colours on both sides of the band, alpha from each pixel's place between them.
std::string SolveClassic(MatteInputs& in, COLImage& result)
{
    CContourMattingProcess matting;
    matting.SetImages(&in.image, &result);
    matting.SetProgressCallback(ProgressCallback{&OnProgress, nullptr});
    matting.SetProgressRange(0, 100);
    ContourMattingParams params;
    params.innerPlane = &in.inner;
    params.outerPlane = &in.outer;   // inverted by the run; the command has no further use for it
    if (matting.Process(&params) == kOk) return {};
    switch (matting.GetFailure()) {
    case CContourMattingProcess::Failure::kStalled:
        return "the picture is too small for contour matting: the known colours cannot be grown across the band "
               "(about 140 x 140 pixels and up work)";
    case CContourMattingProcess::Failure::kNoBand: return "no unknown band between the contours";
    default: return "contour matting failed (out of memory?)";
    }
}

// The refined solve: the two contours become a trimap; the result carries the estimated subject colours in the
// band with the new alpha.
std::string SolveRefined(MatteInputs& in, COLImage& result)
{
    COLChannel trimap;
    if (trimap.Create(in.image.GetWidth(), in.image.GetHeight()) != kOk) return "out of memory";
    for (size_t i = 0; i < in.image.GetPixelCount(); ++i)
        trimap.GetBuffer()[i] = in.inner.GetBuffer()[i] != 0 ? 255 : (in.outer.GetBuffer()[i] != 0 ? 128 : 0);
    CRefinedMatteProcess matting;
    matting.SetImages(&in.image, &result);
    matting.SetProgressCallback(ProgressCallback{&OnProgress, nullptr});
    matting.SetProgressRange(0, 100);
    RefinedMatteParams params;
    params.trimap = &trimap;
    if (matting.Process(&params) == kOk) return {};
    return "refined matting failed (out of memory?)";
}

int RunMatte(const std::vector<std::string>& args)
{
    const char* cmd = "matte";
    cli::Args a(args, {"-o", "--inner", "--outer", "--trimap", "--detail"}, {"--optimise", "--refine"});
    if (!a.Ok()) return cli::Usage(cmd, a.Error());
    if (a.Positional().size() != 1) return cli::Usage(cmd, "expects one input picture");
    const auto out = a.Value("-o");
    if (!out) return cli::Usage(cmd, "needs -o OUT.png");
    const bool trimap = a.Value("--trimap").has_value();
    if (trimap && (a.Value("--inner") || a.Value("--outer"))) return cli::Usage(cmd, "give either --trimap or --inner and --outer");
    if (!trimap && (!a.Value("--inner") || !a.Value("--outer")))
        return cli::Usage(cmd, "needs --inner INNER and --outer OUTER (or --trimap T)");
    long detail = 0;
    if (const auto text = a.Value("--detail"); text && !cli::ParseInt(*text, 1, 1000, detail))
        return cli::Usage(cmd, "--detail takes a whole number from 1 to 1000");
    if (!EndsWithPng(*out)) return cli::Fail("the result has alpha: write it as .png");

    MatteInputs in;
    if (std::string error = BuildPlanes(a, in); !error.empty()) return cli::Fail(error);
    COLImage result;
    cli::Progress progress(cmd);
    g_progress = &progress;
    const std::string error = a.Has("--refine") ? SolveRefined(in, result) : SolveClassic(in, result);
    g_progress = nullptr;
    progress.Done();
    if (!error.empty()) return cli::Fail(error);
    if (std::string e = cli::SavePicture(*out, result); !e.empty()) return cli::Fail(e);
    std::printf("%s -> %s, %u x %u, band %zu pixels (%.1f%%)\n", a.Positional()[0].c_str(), out->c_str(),
                result.GetWidth(), result.GetHeight(), in.band, 100.0 * double(in.band) / double(result.GetPixelCount()));
    return cli::kExitOk;
}

cli::CliRegistrar reg("matte",
                      "matte IN (--inner INNER --outer OUTER | --trimap T) -o OUT.png [--optimise [--detail N]] "
                      "[--refine]",
                      "contour matting: solves the band between an inner and an outer contour into alpha "
                      "(masks: non-zero inside; trimap: 0 background, 255 subject, else unknown). The classic "
                      "solver suits crisp, well-separated edges and gives exact, reproducible results; --refine "
                      "uses the refined solver, for hair, fur, motion blur and semi-transparent cloth, and writes "
                      "the subject's estimated colours in the band",
                      RunMatte);

} // namespace
