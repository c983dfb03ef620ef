#include <cctype>
#include <cstdio>
#include <set>

#include "cli/cli.h"
#include "cli/picture_io.h"
#include "imaging/channel.h"
#include "imaging/codec.h"
#include "imaging/image.h"
#include "matting/gaussian.h"
#include "matting/process_thread.h"

namespace {

using cli::LoadPicture;
using cli::SavePicture;

// Shows the worker's progress; events come on the worker thread while the command waits.
class ProgressListener : public IProcessListener {
public:
    explicit ProgressListener(cli::Progress& progress) : m_progress(progress) {}
    void OnProcessEvent(uint32_t event, int32_t value) override
    {
        if (event == 0) m_progress.Update(value);
    }

private:
    cli::Progress& m_progress;
};

int RunBlur(const std::vector<std::string>& args)
{
    const vmparam::ParamTable& table = GaussianParamTable();
    std::set<std::string> values{"-o"}, flags{"--channel"};
    cli::AddTableOptions(table, values, flags);
    cli::Args a(args, values, flags);
    if (!a.Ok()) return cli::Usage("blur", a.Error());
    if (a.Positional().size() != 1) return cli::Usage("blur", "expects one input file");
    GaussianSettings settings;
    if (std::string error = cli::ApplyTable(table, a, &settings); !error.empty()) return cli::Usage("blur", error);
    const auto out = a.Value("-o");
    if (!out) return cli::Usage("blur", "needs -o OUT");
    double& sigma = settings.sigma;
    if (std::string error = cli::CheckWritable(*out); !error.empty()) return cli::Fail(error);
    const std::string& in = a.Positional()[0];

    COLImage image, result;
    if (std::string error = LoadPicture(in, image); !error.empty()) return cli::Fail(error);
    bool opaque = true;
    for (size_t i = 0; i < image.GetPixelCount() && opaque; ++i) opaque = image.GetBuffer()[i].alpha == 255;

    cli::Progress progress("blur");
    ProgressListener listener(progress);
    CGaussianProcess gauss;
    COLChannel plane, blurred;
    long r;
    {
        CProcessThread worker;
        worker.SetListener(&listener);
        if (a.Has("--channel")) {
            // One plane: the picture's gray value, which is the picture itself when it is gray.
            if (plane.Create(image.GetWidth(), image.GetHeight()) != kOk) return cli::Fail("out of memory");
            for (size_t i = 0; i < image.GetPixelCount(); ++i) plane.GetBuffer()[i] = image.GetBuffer()[i].GetGray2();
            gauss.SetChannels(&plane, &blurred);
            worker.StartChannelProcess(nullptr, &gauss, &sigma, 0, 0, 100, 0);
        } else {
            gauss.SetImages(&image, &result);
            worker.StartImageProcess(nullptr, &gauss, &sigma, 0, 0, 100, 0);
        }
        r = worker.GetLastResult();
    }
    progress.Done();
    if (r != kOk) return cli::Fail("the blur failed (out of memory?)");
    if (a.Has("--channel")) {
        if (result.Create(blurred.GetWidth(), blurred.GetHeight()) != kOk) return cli::Fail("out of memory");
        for (size_t i = 0; i < result.GetPixelCount(); ++i) {
            const uint8_t v = blurred.GetBuffer()[i];
            result.GetBuffer()[i] = CPixel::Make(v, v, v, 255);
        }
    } else if (opaque) {
        // Alpha is blurred like colour, and the reduced-size path brings full alpha down to about 252: a picture
        // that had no transparency should not gain some.
        for (size_t i = 0; i < result.GetPixelCount(); ++i) result.GetBuffer()[i].alpha = 255;
    }
    if (std::string error = SavePicture(*out, result); !error.empty()) return cli::Fail(error);
    std::printf("%s -> %s, %u x %u, sigma %g", in.c_str(), out->c_str(), result.GetWidth(), result.GetHeight(), sigma);
    if (gauss.GetScale() > 1) std::printf(" (worked as %g at 1/%d size)", gauss.GetWorkSigma(), gauss.GetScale());
    std::printf("\n");
    return cli::kExitOk;
}

const GaussianSettings kBlurDefaults{};
cli::CliRegistrar reg("blur", "blur IN -o OUT [--channel]",
                      "Gaussian blur of a picture, alpha included; --channel blurs its gray plane alone", RunBlur,
                      GaussianParamTable(), &kBlurDefaults);

} // namespace
