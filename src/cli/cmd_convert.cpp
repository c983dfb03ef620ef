#include <cstdio>

#include "cli/cli.h"
#include "cli/picture_io.h"
#include "cli/project_cli.h"
#include "cli/psd_cli.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/codec.h"
#include "imaging/image.h"
#include "interchange/psd_layered_writer.h"
#include "interchange/psd_writer.h"

namespace {

int RunConvert(const std::vector<std::string>& args)
{
    cli::Args a(args, {"--quality"}, {"--layered"});
    if (!a.Ok()) return cli::Usage("convert", a.Error());
    if (a.Positional().size() != 2) return cli::Usage("convert", "expects an input and an output file");
    const std::string& in = a.Positional()[0];
    const std::string& out = a.Positional()[1];
    long quality = 90;
    if (auto q = a.Value("--quality"); q && !cli::ParseInt(*q, 1, 200, quality))
        return cli::Usage("convert", "--quality takes 1..100, or 101..200 for full-resolution colour");

    const bool projectOut = cli::IsProjectPath(out);
    const bool psdOut = cli::IsPsdPath(out);
    if (a.Has("--layered")) {
        if (!psdOut) return cli::Usage("convert", "--layered writes a .psd");
        CLayerStack stack;
        std::string error;
        if (!cli::LoadLayers(in, stack, error)) return cli::Fail(error);
        if (WriteLayeredPsd(out, stack, &error) != kOk) return cli::Fail("cannot write " + out + ": " + error);
        std::printf("%s -> %s, %d x %d, %d layer(s)\n", in.c_str(), out.c_str(), stack.GetWidth(),
                    stack.GetHeight(), stack.GetLayerCount());
        return cli::kExitOk;
    }
    if (std::string error = cli::CheckWritable(out, true); !projectOut && !psdOut && !error.empty())
        return cli::Fail(error);

    COLImage image;
    const uint32_t inType = COLImageCodec::GetFileType(in.c_str());
    if (inType == kFileProject) {
        // A project goes out as its flattened picture.
        std::string error;
        if (!cli::LoadProjectComposite(in, image, error)) return cli::Fail(error);
    } else if (std::string error = cli::LoadPicture(in, image); !error.empty()) {
        return cli::Fail(error);
    }
    const uint32_t width = image.GetWidth(), height = image.GetHeight();
    if (projectOut) {
        // One layer, the picture as it is.
        if (!cli::SavePictureAsProject(out, image))
            return cli::Fail("cannot write " + out + " (folder missing, no permission or disk full)");
    } else if (psdOut) {
        // One layer, named as the editor names an opened picture.
        if (SavePsd(out, image, kBackgroundLayerName) != kOk)
            return cli::Fail("cannot write " + out + " (folder missing, no permission or disk full)");
    } else {
        ExportOptions options;
        options.jpegQuality = int(quality);
        if (std::string error = cli::SavePicture(out, image, options); !error.empty()) return cli::Fail(error);
    }
    std::printf("%s -> %s, %u x %u\n", in.c_str(), out.c_str(), width, height);
    return cli::kExitOk;
}

cli::CliRegistrar reg("convert", "convert IN OUT [--quality Q] [--layered]",
                      "convert a picture, PSD or project; OUT's extension picks the writer (.png keeps alpha, .vmpd "
                      "makes a one-layer project, .psd a one-layer PSD; --layered writes every layer of a project "
                      "or PSD to a layered PSD)",
                      RunConvert);

} // namespace
