#include <cstdio>
#include <string>

#include "cli/cli.h"
#include "cli/picture_io.h"
#include "document/compose_document.h"
#include "document/layer.h"
#include "effects/lens_blur_dialog.h"
#include "imaging/channel.h"
#include "imaging/image.h"

namespace {

// The common failure text of whole-picture edits, in both of the program's languages.
const char kExcept[] = "发生异常，操作失败 (the operation failed)";

// The aperture shapes come from the skin, as the editor's dialog takes them.
std::string AperturePath()
{
    return std::string(VM_ASSETS_DIR) + "/skin/lenblur.png";
}

void ShowProgress(void* context, uint32_t code, int32_t value)
{
    if (code == 1) static_cast<cli::Progress*>(context)->Update(value);
}

// A foreground matte: its alpha where it has transparency (a cut-out), else its gray (white is foreground).
bool MaskFromPicture(const COLImage& picture, COLChannel& mask)
{
    if (mask.Create(picture.GetWidth(), picture.GetHeight()) != kOk) return false;
    bool transparent = false;
    for (size_t i = 0; i < picture.GetPixelCount() && !transparent; ++i)
        transparent = picture.GetBuffer()[i].alpha != 255;
    for (size_t i = 0; i < picture.GetPixelCount(); ++i)
        mask.GetBuffer()[i] = transparent ? picture.GetBuffer()[i].alpha : picture.GetBuffer()[i].GetGray2();
    return true;
}

int RunLensBlur(const std::vector<std::string>& args)
{
    cli::Args a(args, {"-o", "--mode", "--focus", "--point", "--aperture", "--radius", "--highlights", "--threshold",
                       "--foreground"});
    if (!a.Ok()) return cli::Usage("lensblur", a.Error());
    if (a.Positional().size() != 1) return cli::Usage("lensblur", "expects one input file");
    const auto out = a.Value("-o");
    if (!out) return cli::Usage("lensblur", "needs -o OUT");
    if (std::string error = cli::CheckWritable(*out); !error.empty()) return cli::Fail(error);

    // The dialog's initial settings, as the menu opens it.
    LensBlurSettings s = MenuEntrySettings();
    long v = 0;
    if (auto t = a.Value("--mode")) {
        if (!cli::ParseInt(*t, 0, 2, v))
            return cli::Usage("lensblur", "--mode takes 0 (flat), 1 (tunnel) or 2 (horizon)");
        s.depthMode = int(v);
    }
    if (auto t = a.Value("--focus")) {
        if (!cli::ParseInt(*t, kFocusMin, kFocusMax, v)) return cli::Usage("lensblur", "--focus takes -10 to 100");
        s.focus = int(v);
    }
    if (auto t = a.Value("--radius")) {
        if (!cli::ParseInt(*t, kRadiusMin, kRadiusMax, v)) return cli::Usage("lensblur", "--radius takes 1 to 64");
        s.radius = int(v);
    }
    if (auto t = a.Value("--highlights")) {
        if (!cli::ParseInt(*t, kAmplitudeMin, kAmplitudeMax, v))
            return cli::Usage("lensblur", "--highlights takes 0 to 100");
        s.highlightAmplitude = int(v);
    }
    if (auto t = a.Value("--threshold")) {
        if (!cli::ParseInt(*t, kThresholdMin, kThresholdMax, v))
            return cli::Usage("lensblur", "--threshold takes 200 to 255");
        s.highlightThreshold = int(v);
    }
    if (auto t = a.Value("--aperture")) {
        if (*t == "octagon")
            s.apertureShape = kApertureOctagon;
        else if (*t == "hexagon")
            s.apertureShape = kApertureHexagon;
        else if (*t == "circle")
            s.apertureShape = kApertureCircle;
        else
            return cli::Usage("lensblur", "--aperture takes octagon, hexagon or circle");
    }
    long px = 0, py = 0;
    const auto point = a.Value("--point");
    if (point) {
        const size_t comma = point->find(',');
        if (comma == std::string::npos || !cli::ParseInt(point->substr(0, comma), -100000, 100000, px) ||
            !cli::ParseInt(point->substr(comma + 1), -100000, 100000, py))
            return cli::Usage("lensblur", "--point takes X,Y in pixels of the picture");
    }

    const std::string& in = a.Positional()[0];
    CComposeDocument doc(0);
    COLImage picture;
    if (std::string error = cli::LoadPicture(in, picture); !error.empty()) return cli::Fail(error);
    if (!doc.NewDocument(int(picture.GetWidth()), int(picture.GetHeight()), 0))
        return cli::Fail("cannot hold " + in + ": too large (a side above 20000) or out of memory");
    doc.GetLayer(0)->m_image = std::move(picture);
    if (auto maskPath = a.Value("--foreground")) {
        COLImage matte;
        if (std::string error = cli::LoadPicture(*maskPath, matte); !error.empty()) return cli::Fail(error);
        if (matte.GetWidth() != uint32_t(doc.GetWidth()) || matte.GetHeight() != uint32_t(doc.GetHeight()))
            return cli::Fail(std::string(kExcept) + ": the foreground mask is " + std::to_string(matte.GetWidth()) +
                             " x " + std::to_string(matte.GetHeight()) + ", the picture " +
                             std::to_string(doc.GetWidth()) + " x " + std::to_string(doc.GetHeight()));
        if (!MaskFromPicture(matte, doc.GetSelectionMask())) return cli::Fail(std::string(kExcept) + ": out of memory");
        s.useMask = 1;
    }

    COLImage aperture;
    if (std::string error = LoadAperturePicture(AperturePath(), aperture); !error.empty()) return cli::Fail(error);
    CLensBlurDlgLogic logic;
    logic.settings = s;
    if (!logic.Init(doc, aperture)) return cli::Fail(std::string(kExcept) + ": out of memory");
    if (point) logic.SetPointInDocument(int(px), int(py));

    cli::Progress progress("lensblur");
    const long r = logic.RunFinal(doc, nullptr, ProgressCallback{ShowProgress, &progress});
    progress.Done();
    if (r != 0) return cli::Fail(std::string(kExcept) + ": out of memory");
    if (std::string error = cli::SavePicture(*out, doc.GetLayer(0)->m_image); !error.empty()) return cli::Fail(error);
    static const char* const kModes[] = {"flat", "tunnel", "horizon"};
    static const char* const kShapes[] = {"octagon", "hexagon", "circle"};
    std::printf("%s -> %s, %d x %d, %s depth, focus %d, %s aperture, radius %d, highlights %d from %d%s\n", in.c_str(),
                out->c_str(), doc.GetWidth(), doc.GetHeight(), kModes[s.depthMode], s.focus, kShapes[s.apertureShape],
                s.radius, s.highlightAmplitude, s.highlightThreshold, s.useMask ? ", foreground kept out" : "");
    return cli::kExitOk;
}

cli::CliRegistrar reg("lensblur",
                      "lensblur IN -o OUT [--mode 0|1|2] [--focus F] [--point X,Y] [--aperture octagon|hexagon|circle] "
                      "[--radius R] [--highlights H] [--threshold T] [--foreground MASK]",
                      "depth-of-field blur: flat (0), tunnel to a vanishing point (1) or ground to a horizon row (2); "
                      "--point in picture pixels; MASK (alpha or gray) keeps the subject's colours out",
                      RunLensBlur);

} // namespace
