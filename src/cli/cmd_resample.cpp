#include <cctype>
#include <cstdio>
#include <set>

#include "cli/cli.h"
#include "cli/picture_io.h"
#include "filters/resample.h"
#include "imaging/codec.h"
#include "imaging/image.h"

namespace {

using cli::LoadPicture;
using cli::SavePicture;

// "640x480": both sides 1..kMaxImageSide.
bool ParseSize(const std::string& text, long& w, long& h)
{
    const size_t x = text.find_first_of("xX");
    if (x == std::string::npos) return false;
    return cli::ParseInt(text.substr(0, x), 1, long(kMaxImageSide), w) &&
           cli::ParseInt(text.substr(x + 1), 1, long(kMaxImageSide), h);
}

int RunResample(const std::vector<std::string>& args)
{
    const vmparam::ParamTable& table = ResampleParamTable();
    std::set<std::string> values{"-o"}, flags;
    cli::AddTableOptions(table, values, flags);
    cli::Args a(args, values, flags);
    if (!a.Ok()) return cli::Usage("resample", a.Error());
    if (a.Positional().size() != 2) return cli::Usage("resample", "expects an input file and a size WxH");
    const auto out = a.Value("-o");
    if (!out) return cli::Usage("resample", "needs -o OUT");
    long w = 0, h = 0;
    if (!ParseSize(a.Positional()[1], w, h))
        return cli::Usage("resample", "the size is WxH, each side 1 to " + std::to_string(kMaxImageSide));
    ResampleSettings settings;
    if (std::string error = cli::ApplyTable(table, a, &settings); !error.empty()) return cli::Usage("resample", error);
    if (std::string error = cli::CheckWritable(*out); !error.empty()) return cli::Fail(error);
    const std::string& in = a.Positional()[0];

    COLImage image, result;
    if (std::string error = LoadPicture(in, image); !error.empty()) return cli::Fail(error);
    cli::Progress progress("resample");
    progress.Update(0);
    const int ok = ResampleWith(settings, &image, &result, int(w), int(h));
    progress.Update(100);
    progress.Done();
    if (!ok) return cli::Fail("out of memory");
    if (std::string error = SavePicture(*out, result); !error.empty()) return cli::Fail(error);
    std::printf("%s -> %s, %u x %u -> %ld x %ld (%s)\n", in.c_str(), out->c_str(), image.GetWidth(), image.GetHeight(),
                w, h, vmparam::FormatValue(table.params[0], &settings).c_str());
    return cli::kExitOk;
}

const ResampleSettings kResampleDefaults{};
cli::CliRegistrar reg("resample", "resample IN WxH -o OUT",
                      "scale a picture; area averages when shrinking (bilinear where a side grows)", RunResample,
                      ResampleParamTable(), &kResampleDefaults);

} // namespace
