// "key" and "batch-key": the backdrop key on one photo, and on many photos of one shoot.
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "cli/picture_io.h"
#include "imaging/codec.h"
#include "imaging/image.h"
#include "matting/batch_key.h"
#include "matting/chroma_key.h"
#include "matting/refined_key.h"

namespace {

namespace fs = std::filesystem;

// "auto", "RRGGBB" (an optional leading '#') or "X%,Y%" into the batch's colour settings.
bool ParseColour(const std::string& text, batchkey::Settings& s)
{
    if (text == "auto") {
        s.colourMode = batchkey::kColourAuto;
        return true;
    }
    const size_t comma = text.find(',');
    if (comma != std::string::npos) {
        std::string x = text.substr(0, comma), y = text.substr(comma + 1);
        if (x.empty() || y.empty() || x.back() != '%' || y.back() != '%') return false;
        x.pop_back();
        y.pop_back();
        long px = 0, py = 0;
        if (!cli::ParseInt(x, 0, 100, px) || !cli::ParseInt(y, 0, 100, py)) return false;
        s.colourMode = batchkey::kColourAtPoint;
        s.pickX = int32_t(px);
        s.pickY = int32_t(py);
        return true;
    }
    std::string hex = text[0] == '#' ? text.substr(1) : text;
    if (hex.size() != 6) return false;
    for (char c : hex)
        if (!std::isxdigit(static_cast<unsigned char>(c))) return false;
    const unsigned long v = std::stoul(hex, nullptr, 16);
    s.colourMode = batchkey::kColourFixed;
    s.fixedColour = CPixel::Make(uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v));
    return true;
}

std::string Hex(CPixel c)
{
    char buf[8];
    std::snprintf(buf, sizeof buf, "%02X%02X%02X", c.red, c.green, c.blue);
    return buf;
}

cli::Progress* g_progress = nullptr;

void OnProgress(void*, uint32_t code, int32_t value)
{
    if (code == 1 && g_progress) g_progress->Update(value);
}

int RunKey(const std::vector<std::string>& args)
{
    const char* cmd = "key";
    const vmparam::ParamTable& table = ChromaKeyParamTable();
    std::set<std::string> values{"-o", "--backdrop"}, flags;
    cli::AddTableOptions(table, values, flags);
    cli::Args a(args, values, flags);
    if (!a.Ok()) return cli::Usage(cmd, a.Error());
    if (a.Positional().size() != 1) return cli::Usage(cmd, "expects exactly one input picture");
    const auto out = a.Value("-o");
    if (!out) return cli::Usage(cmd, "needs -o OUT.png");
    // The cut-out is its transparency: only a format that keeps alpha will do.
    const ExportFormat* format = FindExportFormat(*out);
    if (!format || !format->keepsAlpha) {
        std::string names;
        for (size_t i = 0; i < ExportFormatCount(); ++i)
            if (GetExportFormat(i).keepsAlpha)
                {
                const std::string list = GetExportFormat(i).extensions;
                names += (names.empty() ? "." : " or .") + list.substr(0, list.find(' '));
            }
        return cli::Usage(cmd, "the result has transparency: name it " + names);
    }

    ChromaKeySettings settings;   // the panel's defaults
    ChromaKeyParams& params = settings.params;
    batchkey::Settings colour;
    if (auto v = a.Value("--backdrop"); v && !ParseColour(*v, colour))
        return cli::Usage(cmd, "--backdrop takes auto, RRGGBB or X%,Y%");
    if (std::string error = cli::ApplyTable(table, a, &settings); !error.empty()) return cli::Usage(cmd, error);

    const std::string& in = a.Positional()[0];
    COLImage source, result;
    if (std::string error = cli::LoadPicture(in, source); !error.empty()) return cli::Fail(error);
    params.backdrop = batchkey::ColourOfFile(source, colour);

    cli::Progress progress(settings.refine ? "keying (refined)" : "keying");
    g_progress = &progress;
    bool chromatic = false;
    const long r = RunBackdropKey(settings, source, result, ProgressCallback{OnProgress, nullptr}, &chromatic);
    g_progress = nullptr;
    progress.Done();
    if (r != kOk) return cli::Fail("keying " + in + " failed (out of memory?)");
    if (std::string error = cli::SavePicture(*out, result); !error.empty()) return cli::Fail(error);
    std::printf("%s -> %s, %u x %u, backdrop %s, %s key%s\n", in.c_str(), out->c_str(), result.GetWidth(),
                result.GetHeight(), Hex(params.backdrop).c_str(), chromatic ? "hue" : "luma",
                settings.refine ? ", refined" : "");
    return cli::kExitOk;
}

int RunBatchKey(const std::vector<std::string>& args)
{
    const char* cmd = "batch-key";
    cli::Args a(args, {"-o", "--colour", "--prefix", "--suffix"}, {"--refine"});
    if (!a.Ok()) return cli::Usage(cmd, a.Error());
    if (a.Positional().empty()) return cli::Usage(cmd, "expects pictures or folders to key");
    const auto out = a.Value("-o");
    if (!out || out->empty()) return cli::Usage(cmd, "needs -o OUTDIR");
    batchkey::Settings settings;
    settings.outputDir = *out;
    settings.refine = a.Has("--refine");
    if (auto v = a.Value("--colour"); v && !ParseColour(*v, settings))
        return cli::Usage(cmd, "--colour takes auto, RRGGBB or X%,Y%");
    const auto prefix = a.Value("--prefix"), suffix = a.Value("--suffix");
    if (prefix && suffix) return cli::Usage(cmd, "give --prefix or --suffix, not both");
    if (prefix) {
        settings.affix = *prefix;
        settings.affixIsPrefix = true;
    } else if (suffix) {
        settings.affix = *suffix;
    }
    if (settings.affix.find('/') != std::string::npos)
        return cli::Usage(cmd, "the prefix or suffix may not hold a '/'");

    std::vector<std::string> files;
    for (const std::string& p : a.Positional()) {
        std::error_code ec;
        if (fs::is_directory(p, ec)) {
            const std::vector<std::string> inFolder = batchkey::PicturesInFolder(p);
            if (inFolder.empty()) std::fprintf(stderr, "warning: no pictures in %s\n", p.c_str());
            for (const std::string& f : inFolder) {
                // A folder keyed into itself holds the results of an earlier run; keying one of them onto
                // itself would replace it with a second cut. Named files are taken as asked.
                const std::string o =
                    batchkey::OutputPath(settings.outputDir, f, settings.affix, settings.affixIsPrefix);
                if (fs::equivalent(f, o, ec)) {
                    std::fprintf(stderr, "note: %s is skipped: its result would replace it\n", f.c_str());
                    continue;
                }
                batchkey::AddFile(files, f);
            }
        } else {
            batchkey::AddFile(files, p);   // a missing file is reported when its turn comes
        }
    }
    if (files.empty()) return cli::Fail("nothing to key");

    std::error_code ec;
    fs::create_directories(settings.outputDir, ec);
    if (!fs::is_directory(settings.outputDir, ec)) return cli::Fail("cannot make the folder " + settings.outputDir);

    // Two inputs that differ only in their extension would write the same result: say so before it happens.
    std::vector<std::string> outputs;
    for (const std::string& f : files) {
        const std::string o = batchkey::OutputPath(settings.outputDir, f, settings.affix, settings.affixIsPrefix);
        for (size_t i = 0; i < outputs.size(); ++i)
            if (outputs[i] == o)
                std::fprintf(stderr, "warning: %s and %s both write %s; the later one wins\n", files[i].c_str(),
                             f.c_str(), o.c_str());
        outputs.push_back(o);
    }

    batchkey::Listener listener;
    listener.onStart = [](size_t i, size_t n, const std::string& path) {
        std::fprintf(stderr, "[%zu/%zu] %s\n", i + 1, n, path.c_str());
    };
    listener.onDone = [](size_t, size_t, const std::string&, const std::string& output) {
        std::fprintf(stderr, "  -> %s\n", output.c_str());
    };
    listener.onFailed = [](size_t, size_t, const batchkey::Failure& f) {
        std::fprintf(stderr, "  failed: %s\n", f.reason.c_str());
    };
    const std::vector<batchkey::Failure> failures = batchkey::Run(files, settings, listener);

    std::printf("%zu of %zu pictures keyed into %s\n", files.size() - failures.size(), files.size(),
                settings.outputDir.c_str());
    if (failures.empty()) return cli::kExitOk;
    std::printf("%zu failed:\n", failures.size());
    for (const batchkey::Failure& f : failures) std::printf("  %s: %s\n", f.path.c_str(), f.reason.c_str());
    return cli::kExitFailure;
}

const ChromaKeySettings kKeyDefaults{};
cli::CliRegistrar regKey("key", "key IN -o OUT.png [--backdrop auto|RRGGBB|X%,Y%]",
                         "cut a photo out of a single-coloured backdrop into a PNG with alpha (--shadow removes "
                         "the backdrop's shadow)",
                         RunKey, ChromaKeyParamTable(), &kKeyDefaults);
cli::CliRegistrar regBatch("batch-key",
                           "batch-key FILES-OR-FOLDER... -o OUTDIR [--colour auto|RRGGBB|X%,Y%] "
                           "[--prefix S|--suffix S] [--refine]",
                           "key many photos of one backdrop into OUTDIR/<name>.png, overwriting; unreadable "
                           "files are listed and skipped; --refine solves the edges as key --refine does",
                           RunBatchKey);

} // namespace
