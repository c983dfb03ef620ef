#include <cstdio>
#include <deque>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "cli/picture_io.h"
#include "cli/project_cli.h"
#include "commands/history_log.h"
#include "commands/project_stream.h"
#include "commands/command.h"
#include "commands/history_sink.h"
#include "document/compose_document.h"
#include "document/compositor.h"
#include "document/layer.h"
#include "imaging/gbk_text.h"

namespace {

// Stands in for the editor around the document: file names come from --file, in order; everything that needs a
// window (clipboard, dialogs, zoom) is refused.
class CliHost final : public ICommandHost {
public:
    explicit CliHost(std::deque<std::string> files) : m_files(std::move(files)) {}
    bool CopyToClipboard(CComposeDocument&) override { return Missing("the clipboard"); }
    bool PasteFromClipboard(CComposeDocument&, IHistorySink*) override { return Missing("the clipboard"); }
    bool AskOpenPath(bool, std::string& path) override
    {
        if (m_files.empty()) {
            m_why = "it needs a file: give one with --file";
            return false;
        }
        path = m_files.front();
        m_files.pop_front();
        return true;
    }
    bool RunFillDialog() override { return Missing("the fill dialog"); }
    bool RunInpaintDialog() override { return Missing("the inpaint dialog"); }
    void ShowMessage(const char* key) override { m_why = std::string("message \"") + key + "\""; }
    bool Zoom(int) override { return Missing("a canvas"); }
    void CancelTool() override {}
    bool IsSelectionMode() override { return false; }
    IHistoryNavigator* GetSelectionHistory() override { return nullptr; }
    void RefreshSelectionDocument() override {}
    void UpdatePanels() override {}

    std::string TakeReason()
    {
        std::string r = std::move(m_why);
        m_why.clear();
        return r;
    }

private:
    bool Missing(const char* what)
    {
        m_why = std::string("it needs ") + what + ", which a command-line run does not have";
        return false;
    }
    std::deque<std::string> m_files;
    std::string m_why;
};

// The editor's own undo log on disk, so that history commands work in a script and a project keeps its steps.
class CliHistory final : public CComposeHistory {
public:
    explicit CliHistory(bool verbose) : m_verbose(verbose) {}
    int AddStep(CLayerStack* document, int kind, int arg, const char* label) override
    {
        const int step = CComposeHistory::AddStep(document, kind, arg, label);
        if (m_verbose && step > 0) {
            const CHistoryRecord* r = GetRecord(step - 1);
            std::fprintf(stderr, "  step %d: kind %d, arg %d, %s\n", step, r->kind, r->arg, label);
        }
        return step;
    }

private:
    bool m_verbose;
};

std::string ResultText(int r)
{
    if (r == kCommandUnparsable) return "could not be parsed";
    char text[64];
    std::snprintf(text, sizeof text, "failed (result 0x%08X)", static_cast<unsigned>(r));
    return text;
}

int RunCommands(const std::vector<std::string>& args)
{
    std::string input, output;
    std::vector<std::string> commands;
    std::deque<std::string> files;
    uint32_t foreground = 0xFF000000;
    bool verbose = false, withHistory = true;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto value = [&](std::string& out) {
            if (i + 1 >= args.size()) return false;
            out = args[++i];
            return true;
        };
        if (a == "-o" || a == "--output") {
            if (!value(output)) return cli::Usage("run", "option " + a + " needs a value");
        } else if (a == "--file") {
            std::string f;
            if (!value(f)) return cli::Usage("run", "option --file needs a value");
            files.push_back(f);
        } else if (a == "--foreground") {
            std::string hex;
            char* end = nullptr;
            if (!value(hex) || hex.size() != 6 || (std::strtoul(hex.c_str(), &end, 16), *end))
                return cli::Usage("run", "--foreground takes a colour as RRGGBB");
            foreground = 0xFF000000u | static_cast<uint32_t>(std::strtoul(hex.c_str(), nullptr, 16));
        } else if (a == "-v" || a == "--verbose") {
            verbose = true;
        } else if (a == "--no-history") {
            withHistory = false;
        } else if (a.size() > 1 && a[0] == '-') {
            return cli::Usage("run", "unknown option " + a);
        } else if (input.empty()) {
            input = a;
        } else {
            commands.push_back(a);
        }
    }
    if (input.empty()) return cli::Usage("run", "expects a picture or project to open");
    if (output.empty()) return cli::Usage("run", "expects an output file (-o OUT)");
    // Refuse an output we cannot write before any work is done.
    const bool projectOut = cli::IsProjectPath(output);
    if (std::string error = cli::CheckWritable(output, true); !projectOut && !error.empty()) return cli::Fail(error);

    CComposeDocument doc(0);
    CliHistory history(verbose);
    if (!history.Init()) return cli::Fail("cannot make the undo log in the temporary folder (see TMPDIR)");
    CliHost host(std::move(files));
    CCommandContext context;
    context.document = &doc;
    context.history = &history;
    context.host = &host;
    context.foreground = foreground;
    if (OpenDocumentFile(context, input.c_str()) != kCommandDone)
        return cli::Fail("cannot open " + input + " (missing, damaged, too large or of an unsupported type)");

    for (const std::string& text : commands) {
        // Command texts arrive as UTF-8; the document keeps its texts in GBK.
        std::string gbk;
        if (!Utf8ToGbk(text, gbk)) return cli::Fail("command \"" + text + "\" holds text that GBK cannot store");
        if (verbose) std::fprintf(stderr, "%s\n", text.c_str());
        const int r = ExecuteCommand(context, gbk.c_str());
        if (r != kCommandDone) {
            std::string reason = host.TakeReason();
            return cli::Fail("command \"" + text + "\" " + ResultText(r) + (reason.empty() ? "" : ": " + reason));
        }
    }

    if (projectOut) {
        if (!SaveProject(doc, &history, output.c_str(), withHistory ? 1 : 0))
            return cli::Fail("cannot write " + output + " (folder missing, no permission or disk full)");
        if (verbose)
            std::fprintf(stderr, "wrote %s: %d layer(s), %s\n", output.c_str(), doc.GetLayerCount(),
                         withHistory ? "with its history" : "without history");
        return cli::kExitOk;
    }
    COLImage composite;
    if (!MergeLayers(&doc, &composite, 0))
        return cli::Fail(doc.GetLayerCount() == 0 ? "the document has no picture to write"
                                                  : "not enough memory to flatten the document");
    // The composite's alpha bytes hold the selection, not coverage: the flattened picture is opaque.
    for (size_t i = 0; i < composite.GetPixelCount(); ++i) composite.GetBuffer()[i].alpha = 255;
    if (std::string error = cli::SavePicture(output, composite); !error.empty()) return cli::Fail(error);
    if (verbose) {
        std::fprintf(stderr, "wrote %s: %u x %u, %d layer(s)\n", output.c_str(), composite.GetWidth(),
                     composite.GetHeight(), doc.GetLayerCount());
        for (int i = 0; i < doc.GetLayerCount(); ++i)
            std::fprintf(stderr, "  layer %d: %s\n", i, GbkForDisplay(doc.GetLayer(i)->m_name).c_str());
    }
    return cli::kExitOk;
}

cli::CliRegistrar reg("run", "run IN COMMAND... -o OUT [--file F]... [--foreground RRGGBB] [--no-history] [-v]",
                      "open a picture or project, run command strings on it (history commands included), write "
                      "the composite or, to .vmpd, the project with its history",
                      RunCommands);

} // namespace
