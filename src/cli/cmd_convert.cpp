#include <cstdio>

#include "cli/cli.h"
#include "cli/picture_io.h"
#include "cli/project_cli.h"
#include "imaging/codec.h"
#include "imaging/image.h"

namespace {

int RunConvert(const std::vector<std::string>& args)
{
    cli::Args a(args, {"--quality"});
    if (!a.Ok()) return cli::Usage("convert", a.Error());
    if (a.Positional().size() != 2) return cli::Usage("convert", "expects an input and an output file");
    const std::string& in = a.Positional()[0];
    const std::string& out = a.Positional()[1];
    long quality = 90;
    if (auto q = a.Value("--quality"); q && !cli::ParseInt(*q, 1, 200, quality))
        return cli::Usage("convert", "--quality takes 1..100, or 101..200 for full-resolution colour");

    const bool projectOut = cli::IsProjectPath(out);
    if (std::string error = cli::CheckWritable(out, true); !projectOut && !error.empty()) return cli::Fail(error);

    COLImage image;
    if (COLImageCodec::GetFileType(in.c_str()) == kFileProject) {
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
    } else {
        ExportOptions options;
        options.jpegQuality = int(quality);
        if (std::string error = cli::SavePicture(out, image, options); !error.empty()) return cli::Fail(error);
    }
    std::printf("%s -> %s, %u x %u\n", in.c_str(), out.c_str(), width, height);
    return cli::kExitOk;
}

cli::CliRegistrar reg("convert", "convert IN OUT [--quality Q]",
                      "convert a picture or project; OUT's extension picks the writer (.png keeps alpha, .vmpd "
                      "makes a one-layer project)",
                      RunConvert);

} // namespace
