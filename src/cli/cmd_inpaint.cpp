#include <cstdio>
#include <set>

#include "cli/cli.h"
#include "cli/picture_io.h"
#include "effects/smart_inpaint_dialog.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "matting/process_thread.h"
#include "runtime/status.h"

namespace {

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

int RunInpaint(const std::vector<std::string>& args)
{
    const vmparam::ParamTable& table = InpaintParamTable();
    std::set<std::string> values{"-o", "--mask"}, flags;
    cli::AddTableOptions(table, values, flags);
    cli::Args a(args, values, flags);
    if (!a.Ok()) return cli::Usage("inpaint", a.Error());
    if (a.Positional().size() != 1) return cli::Usage("inpaint", "expects one input file");
    SmartInpaintSettings settings;
    if (std::string error = cli::ApplyTable(table, a, &settings); !error.empty()) return cli::Usage("inpaint", error);
    const bool refine = settings.method == kInpaintStructure;
    if (refine && (settings.blockSize != 0 || !settings.feather || settings.exact))
        return cli::Usage("inpaint", "--refine takes none of --block, --nofeather, --exact (they set block quilting)");
    if (settings.blockSize != 0 && settings.blockSize < CPatchInpaintProcess::kMinBlockSize)
        return cli::Usage("inpaint", "--block takes 0 or a whole number from 8 to 64, not '" +
                                         std::to_string(settings.blockSize) + "'");
    const auto out = a.Value("-o");
    const auto maskPath = a.Value("--mask");
    if (!out) return cli::Usage("inpaint", "needs -o OUT");
    if (!maskPath) return cli::Usage("inpaint", "needs --mask MASK");
    if (std::string error = cli::CheckWritable(*out); !error.empty()) return cli::Fail(error);
    const std::string& in = a.Positional()[0];

    COLImage image, maskPicture, result;
    if (std::string error = cli::LoadPicture(in, image); !error.empty()) return cli::Fail(error);
    if (std::string error = cli::LoadPicture(*maskPath, maskPicture); !error.empty()) return cli::Fail(error);
    if (maskPicture.GetWidth() != image.GetWidth() || maskPicture.GetHeight() != image.GetHeight())
        return cli::Fail("the mask is " + std::to_string(maskPicture.GetWidth()) + " x " +
                         std::to_string(maskPicture.GetHeight()) + ", the picture " +
                         std::to_string(image.GetWidth()) + " x " + std::to_string(image.GetHeight()));
    // Any colour other than black marks the hole.
    COLChannel mask;
    if (mask.Create(image.GetWidth(), image.GetHeight()) != kOk) return cli::Fail("out of memory");
    size_t holeCount = 0;
    for (size_t i = 0; i < maskPicture.GetPixelCount(); ++i) {
        const CPixel p = maskPicture.GetBuffer()[i];
        const bool hole = (p.red | p.green | p.blue) != 0;
        mask.GetBuffer()[i] = hole ? 255 : 0;
        holeCount += hole;
    }
    if (holeCount * 5 > image.GetPixelCount())
        return cli::Fail("the hole (" + std::to_string(holeCount) + " pixels) covers more than a fifth of the picture");
    // Block quilting compares alpha too; the structure-aware fill matches colours only and keeps every alpha.
    for (size_t i = 0; i < image.GetPixelCount() && !refine; ++i)
        if (image.GetBuffer()[i].alpha == 0)
            return cli::Fail("the picture has fully transparent pixels, which cannot serve as samples");

    CInpaintRun run;
    if (run.Prepare(settings, &mask) != kOk) return cli::Fail("no such inpaint method");
    cli::Progress progress("inpaint");
    ProgressListener listener(progress);
    long r;
    {
        CProcessThread worker;
        worker.SetListener(&listener);
        run.GetProcess().SetImages(&image, &result);
        worker.StartImageProcess(nullptr, &run.GetProcess(), run.GetParams(), 0, 0, 100, 0);
        r = worker.GetLastResult();
    }
    progress.Done();
    if (r == kInpaintNoSample && refine)
        return cli::Fail("no part of the picture around the hole is large enough to fill it from");
    if (r == kInpaintNoSample)
        return cli::Fail("no sample found to fill the hole with (is it too close to the border, or too large?)");
    if (r != kOk) return cli::Fail("inpainting failed (out of memory?)");
    if (std::string error = cli::SavePicture(*out, result); !error.empty()) return cli::Fail(error);
    if (refine)
        std::printf("%s -> %s, %u x %u, %zu pixels filled, structure-aware\n", in.c_str(), out->c_str(),
                    result.GetWidth(), result.GetHeight(), holeCount);
    else
        std::printf("%s -> %s, %u x %u, %zu pixels filled, tiles of %d\n", in.c_str(), out->c_str(),
                    result.GetWidth(), result.GetHeight(), holeCount, int(run.GetBlockSize()));
    return cli::kExitOk;
}

const SmartInpaintSettings kInpaintDefaults{};
cli::CliRegistrar reg("inpaint", "inpaint IN --mask MASK -o OUT",
                      "removes what MASK marks (any colour but black) and fills it from the rest of the picture",
                      RunInpaint, InpaintParamTable(), &kInpaintDefaults);

} // namespace
