#include <cstdio>

#include "cli/cli.h"
#include "cli/picture_io.h"
#include "cli/project_cli.h"
#include "imaging/codec.h"
#include "imaging/image.h"

namespace {

using cli::LowerExtension;

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

    const std::string ext = LowerExtension(out);
    const bool jpeg = ext == "jpg" || ext == "jpeg" || ext == "jpe" || ext == "jfif";
    if (!jpeg && ext != "png" && ext != "bmp" && ext != "dib" && ext != "tif" && ext != "tiff" && ext != "tga" &&
        ext != "vmpd")
        return cli::Fail("cannot write '" + ext + "' files; use .png, .jpg, .bmp, .tif, .tga or .vmpd");

    COLImageCodec codec;
    COLImage image;
    if (COLImageCodec::GetFileType(in.c_str()) == kFileProject) {
        // A project goes out as its flattened picture.
        std::string error;
        if (!cli::LoadProjectComposite(in, image, error)) return cli::Fail(error);
    } else if (!codec.LoadFile(in.c_str(), &image)) {
        const uint32_t type = COLImageCodec::GetFileType(in.c_str());
        if (type == kFileUnusable) return cli::Fail("cannot read " + in + ": missing, or not a picture");
        return cli::Fail("cannot read " + in + ": damaged or unsupported " + FileTypeName(type) + " file");
    }
    const uint32_t width = image.GetWidth(), height = image.GetHeight();
    int ok;
    if (ext == "vmpd")
        ok = cli::SavePictureAsProject(out, image); // one layer, the picture as it is
    else if (ext == "png")
        ok = codec.SaveFileWithAlpha(out.c_str(), &image); // PNG keeps the alpha
    else if (jpeg)
        ok = codec.SaveJpegFile(out.c_str(), &image, int(quality), 72);
    else
        ok = codec.SaveFile(out.c_str(), &image);
    if (!ok) return cli::Fail("cannot write " + out + " (folder missing, no permission or disk full)");
    std::printf("%s -> %s, %u x %u\n", in.c_str(), out.c_str(), width, height);
    return cli::kExitOk;
}

cli::CliRegistrar reg("convert", "convert IN OUT [--quality Q]",
                      "convert a picture or project; OUT's extension picks the writer (.png keeps alpha, .vmpd "
                      "makes a one-layer project)",
                      RunConvert);

} // namespace
