#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "cli/mask_png.h"
#include "cli/picture_io.h"
#include "cli/project_cli.h"
#include "commands/command.h"
#include "commands/history_log.h"
#include "commands/project_stream.h"
#include "document/compose_document.h"
#include "document/compositor.h"
#include "document/selection_document.h"
#include "imaging/gbk_text.h"
#include "tools/tool_manager.h"

// velmorando-cli replay: a script of pointer and key events played through the same tool manager, tools and
// command layer as the editor, on a canvas at zoom 1 whose client pixels are image pixels.

namespace {

const char* const kHelp =
    "Script lines (one per line; '#' starts a comment; coordinates are image pixels):\n"
    "  tool NAME                 make a tool current (\"tool none\" leaves none); see the list below\n"
    "  option mode M             combination of the next outline: replace, add or subtract\n"
    "                            (as the panel's buttons: any key release sets replace again)\n"
    "  option tolerance N        tolerance of the magic tool, 0..99\n"
    "  option size N             brush size of the current brush tool, 1..255 (the brush is about twice\n"
    "                            as wide: the size is its radius)\n"
    "  option soft N             brush softness in percent, 0..100 (the dialog shows hardness = 100 - soft)\n"
    "  option alpha N            brush opacity in percent, 0..100\n"
    "  option color RRGGBB       the foreground colour (brush, eraser on the base layer), hex; default 000000\n"
    "  option adjust M           smartadjust: both, raise or lower (as the panel's three buttons); a down\n"
    "                            with shift (raise) or ctrl (lower) forces it for that stroke from both\n"
    "  option fore RRGGBB, option back RRGGBB\n"
    "                            smartadjust: a reference colour as the swatch's colour dialog sets it\n"
    "                            (a click inside the inner or outer contour picks it from the picture)\n"
    "  option freeshape on|off   crop and transform: corners move one by one (perspective)\n"
    "  option ratio R            crop and transform: none, original, 4:3, 3:4, 3:2, 2:3 or W:H (custom)\n"
    "  option corners X1 Y1 X2 Y2 X3 Y3 X4 Y4\n"
    "                            crop and transform: the frame's corners, top-left, top-right,\n"
    "                            bottom-right, bottom-left (dbl or key return then applies it)\n"
    "  down X Y [shift] [ctrl] [alt]\n"
    "                            move the pointer to X Y and press the left button; the keys named are\n"
    "                            pressed before and released after the next up or dbl (clone: alt sets\n"
    "                            the source point; innerbrush, outerbrush: ctrl erases)\n"
    "  drag X Y                  move the pointer with the button held\n"
    "  up X Y                    move the pointer to X Y and release the button\n"
    "  dbl X Y                   a double click at X Y (press, release, double-click event, release)\n"
    "  rdown X Y, rup X Y        the right button (rup takes the last polygon corner back)\n"
    "  move X Y                  move the pointer without a button\n"
    "  key NAME [down|up]        press and release a key, or only press or release it; NAME: shift, ctrl,\n"
    "                            space, left, up, right, down, escape, return\n"
    "  tick [N]                  N ticks of the canvas timer (100 ms each; the tools' scroll and ants)\n"
    "  command TEXT              run a command string, e.g. command Doc_SelectInverse\n"
    "  mode select [inout|chroma|direct]\n"
    "                            enter selection mode on the current layer (default inout)\n"
    "  mode compose [keep|apply|separate|cancel]\n"
    "                            leave it: keep the result mask as the selection (default), apply it as\n"
    "                            the layer's alpha, separate it to a new layer, or drop it\n"
    "  save-mask PLANE FILE      write a plane as gray PNG: selection (compose mode), outer, inner, result\n"
    "  save FILE                 write the picture as it stands (picture types or .vmpd)\n"
    "Files named by save and save-mask, and OUT, are written only when the whole script succeeded.\n"
    "\n"
    "Commands that change or paint the selection (COLOUR is RRGGBB, the foreground when left out):\n"
    "  command Doc_SelectExpand('N')            grow the selection by N pixels (square), N 1..32\n"
    "  command Doc_SelectShrink('N')            shrink it by N pixels, N 1..32; nothing left deselects\n"
    "  command Doc_SelectFeather('V')           soften its edge: Gaussian of sigma V / 2, V 1..999\n"
    "  command Doc_SelectFeatherResult('R','K','S')\n"
    "                                           selection mode: feather the result mask, radius R 0..8;\n"
    "                                           K 1 keeps fine detail, S 1 shrinks by one pixel first\n"
    "  command Doc_SelectSegmentDeflate         keep only the image segments wholly inside the selection\n"
    "  command Doc_FillSelection('P','COLOUR')  fill the selection on the current layer, opacity P 0..100\n"
    "  command Doc_StrokeSelection('W','P','COLOUR')\n"
    "                                           paint a band W 1..16 pixels wide outside the selection,\n"
    "                                           opacity P 1..100 (default 100)\n";

struct Line {
    int number = 0;
    std::vector<std::string> words;
    std::string rest;   // the text after the first word, for command lines
};

std::string Lower(std::string s)
{
    for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// Identity mapping: the client area shows the picture at zoom 1 from the origin.
class ReplayView final : public ICanvasView {
public:
    explicit ReplayView(ICanvasSource** source) : m_ppSource(source) {}
    double GetZoom() const override { return m_zoom; }
    CViewPoint GetOrigin() const override { return m_origin; }
    void Redraw() override
    {
        if (m_pOverlay) m_pOverlay->DrawOverlay(m_dc, true);
    }
    void PostMergeDone() override {}
    void SetSink(IViewSink* sink) override
    {
        m_pSink = sink;
        if (sink) sink->SetView(this);
    }
    void SetOverlay(IOverlayDrawer* overlay) override { m_pOverlay = overlay; }
    void DrawOverlayNow() override
    {
        if (m_pOverlay) m_pOverlay->DrawOverlay(m_dc, false);
    }
    long SetZoom(double zoom, bool) override
    {
        m_zoom = zoom;
        return 0;
    }
    long SetOrigin(CViewPoint* out, int x, int y, bool) override
    {
        m_origin = {x, y};
        if (out) *out = m_origin;
        return 0;
    }
    CRect GetImageRect() override
    {
        int w = 0, h = 0;
        if (*m_ppSource) (*m_ppSource)->GetSize(w, h);
        return {0, 0, w, h};
    }
    CViewPoint ClientToImage(int x, int y) override { return {x, y}; }
    CViewPoint ImageToClient(int x, int y) override { return {x, y}; }
    ICanvasSource* GetSource() override { return *m_ppSource; }
    IViewSink* Sink() const { return m_pSink; }

private:
    struct NullDC final : IOverlayDC {
        void DrawLine(int, int, int, int) override {}
    } m_dc;
    ICanvasSource** m_ppSource;
    IViewSink* m_pSink = nullptr;
    IOverlayDrawer* m_pOverlay = nullptr;
    double m_zoom = 1.0;
    CViewPoint m_origin;
};

class ReplayHost final : public ICommandHost, public IToolBarHost {
public:
    ReplayHost(CComposeDocument& doc, CSelectionDocument& selection, CSelectionHistory& history)
        : m_doc(doc), m_selection(selection), m_history(history)
    {
    }
    void SetManager(CToolManager* manager) { m_pManager = manager; }

    // ICommandHost
    bool CopyToClipboard(CComposeDocument&) override { return Missing("the clipboard"); }
    bool PasteFromClipboard(CComposeDocument&, IHistorySink*) override { return Missing("the clipboard"); }
    bool AskOpenPath(bool, std::string&) override { return Missing("an open dialog"); }
    bool RunFillDialog() override { return Missing("the fill dialog"); }
    bool RunInpaintDialog() override { return Missing("the inpaint dialog"); }
    void ShowMessage(const char* key) override { m_why = std::string("message \"") + key + "\""; }
    bool Zoom(int) override { return true; }
    void CancelTool() override
    {
        if (m_pManager) m_pManager->SetCurrentTool(nullptr);
    }
    bool IsSelectionMode() override { return m_pManager && m_pManager->IsSelectionMode(); }
    IHistoryNavigator* GetSelectionHistory() override { return &m_history; }
    void RefreshSelectionDocument() override { m_selection.RefreshPreview(); }
    void UpdatePanels() override {}
    CSelectionDocument* GetSelectionDocument() override { return &m_selection; }

    // IToolBarHost
    void ShowHelp(const std::string&) override {}
    void ShowOptionPanel(CToolOptions*) override {}
    void RedrawBar() override {}
    void OnModeChanged(bool selectionMode) override { m_pSource = selectionMode ? static_cast<ICanvasSource*>(&m_selection) : &m_doc; }
    bool RunResultWizard() override
    {
        int r = kBringBackDone;
        if (m_bringBack == "cancel") return false;
        if (m_bringBack == "apply") r = m_selection.ApplyToLayer(m_doc);
        if (m_bringBack == "separate") r = m_selection.SeparateToLayer(m_doc);
        if (m_bringBack == "keep") r = m_selection.KeepAsSelection(m_doc);
        if (r == kBringBackIsBase)
            m_why = "the layer is the base: \"" + m_bringBack + "\" needs an upper layer (use keep)";
        else if (r != kBringBackDone)
            m_why = "there is no result mask to bring back (draw one with modifypolygon, or use cancel)";
        return r == kBringBackDone;
    }

    void SetBringBack(const std::string& how) { m_bringBack = how; }
    std::string TakeReason()
    {
        std::string r = std::move(m_why);
        m_why.clear();
        return r;
    }
    ICanvasSource* m_pSource = nullptr;

private:
    bool Missing(const char* what)
    {
        m_why = std::string("it needs ") + what + ", which a replay does not have";
        return false;
    }
    CComposeDocument& m_doc;
    CSelectionDocument& m_selection;
    CSelectionHistory& m_history;
    CToolManager* m_pManager = nullptr;
    std::string m_bringBack = "keep";
    std::string m_why;
};

// A file to write once the script has run to its end.
struct PendingWrite {
    std::string path;
    COLChannel plane;        // save-mask
    COLImage picture;        // save of a picture
    std::string projectTemp; // save of a project: written at its line beside the target, renamed at the end
    bool committed = false;
    ~PendingWrite()
    {
        if (!projectTemp.empty() && !committed) std::remove(projectTemp.c_str());
    }
};

bool ParseCoord(const std::string& text, int& out)
{
    long v = 0;
    if (!cli::ParseInt(text, -100000, 100000, v)) return false;
    out = int(v);
    return true;
}

uint32_t KeyCode(const std::string& name)
{
    static const struct {
        const char* name;
        uint32_t code;
    } keys[] = {{"shift", kKeyShift}, {"ctrl", kKeyControl}, {"space", kKeySpace}, {"left", kKeyLeft},
                {"up", kKeyUp},       {"right", kKeyRight},  {"down", kKeyDown},   {"escape", kKeyEscape},
                {"return", kKeyReturn}};
    for (const auto& k : keys)
        if (name == k.name) return k.code;
    return 0;
}

// The choice of the crop panel for a ratio word, -1 when it is none of them; W:H gives the custom choice.
int CropRatio(const std::string& word, int& width, int& height)
{
    static const char* const kNames[] = {"none", "original", "4:3", "3:4", "3:2", "2:3"};
    for (int i = 0; i < 6; ++i)
        if (word == kNames[i]) return i;
    const size_t colon = word.find(':');
    long a = 0, b = 0;
    if (colon == std::string::npos || !cli::ParseInt(word.substr(0, colon), 1, 20000, a) ||
        !cli::ParseInt(word.substr(colon + 1), 1, 20000, b))
        return -1;
    width = int(a);
    height = int(b);
    return CPropCrop::kRatioCustom;
}

// Checks the form of every line before anything runs; "" or the message.
std::string CheckLine(const Line& l)
{
    const std::vector<std::string>& w = l.words;
    const std::string& op = w[0];
    const size_t n = w.size();
    int x = 0;
    auto coords = [&](size_t from) { return n > from + 1 && ParseCoord(w[from], x) && ParseCoord(w[from + 1], x); };
    if (op == "tool") return n == 2 ? "" : "tool takes one name";
    if (op == "option") {
        if (n >= 2 && w[1] == "corners") {
            for (size_t i = 2; i < 10; i += 2)
                if (!coords(i)) return "corners takes eight numbers: X Y of four corners";
            return n == 10 ? "" : "corners takes eight numbers: X Y of four corners";
        }
        if (n != 3) return "option takes a name and a value";
        if (w[1] == "freeshape") return w[2] == "on" || w[2] == "off" ? "" : "freeshape is on or off";
        if (w[1] == "ratio") {
            int rw = 0, rh = 0;
            return CropRatio(w[2], rw, rh) >= 0 ? "" : "ratio is none, original, 4:3, 3:4, 3:2, 2:3 or W:H";
        }
        if (w[1] == "mode")
            return (w[2] == "replace" || w[2] == "add" || w[2] == "subtract") ? "" : "mode is replace, add or subtract";
        if (w[1] == "tolerance") {
            long v;
            return cli::ParseInt(w[2], 0, 99, v) ? "" : "tolerance is a whole number from 0 to 99";
        }
        if (w[1] == "size") {
            long v;
            return cli::ParseInt(w[2], kBrushSizeMin, kBrushSizeMax, v) ? "" : "size is a whole number from 1 to 255";
        }
        if (w[1] == "soft" || w[1] == "alpha") {
            long v;
            return cli::ParseInt(w[2], 0, kBrushPercentMax, v) ? "" : w[1] + " is a whole number from 0 to 100";
        }
        if (w[1] == "adjust")
            return (w[2] == "both" || w[2] == "raise" || w[2] == "lower") ? "" : "adjust is both, raise or lower";
        if (w[1] == "color" || w[1] == "colour" || w[1] == "fore" || w[1] == "back") {
            if (w[2].size() != 6 || w[2].find_first_not_of("0123456789abcdef") != std::string::npos)
                return w[1] + " is six hex digits, RRGGBB";
            return "";
        }
        return "unknown option \"" + w[1] + "\"";
    }
    if (op == "down") {
        if (!coords(1)) return "down takes X Y";
        for (size_t i = 3; i < n; ++i)
            if (w[i] != "shift" && w[i] != "ctrl" && w[i] != "alt") return "unknown key \"" + w[i] + "\" after down";
        return "";
    }
    if (op == "drag" || op == "up" || op == "dbl" || op == "move" || op == "rdown" || op == "rup")
        return n == 3 && coords(1) ? "" : op + " takes X Y";
    if (op == "key") {
        if (n < 2 || n > 3 || !KeyCode(w[1])) return "key takes a key name (shift, ctrl, space, arrows, escape)";
        return n == 2 || w[2] == "down" || w[2] == "up" ? "" : "key NAME is followed by down, up or nothing";
    }
    if (op == "tick") {
        long v;
        return n == 1 || (n == 2 && cli::ParseInt(w[1], 1, 10000, v)) ? "" : "tick takes a count";
    }
    if (op == "command") return l.rest.empty() ? "command takes a command string" : "";
    if (op == "mode") {
        if (n >= 2 && w[1] == "select")
            return n == 2 || (n == 3 && (w[2] == "inout" || w[2] == "chroma" || w[2] == "direct"))
                       ? ""
                       : "mode select takes inout, chroma or direct";
        if (n >= 2 && w[1] == "compose")
            return n == 2 || (n == 3 && (w[2] == "keep" || w[2] == "apply" || w[2] == "separate" || w[2] == "cancel"))
                       ? ""
                       : "mode compose takes keep, apply, separate or cancel";
        return "mode is select or compose";
    }
    if (op == "save-mask") {
        if (n != 3) return "save-mask takes a plane and a file";
        if (w[1] != "selection" && w[1] != "outer" && w[1] != "inner" && w[1] != "result")
            return "the plane is selection, outer, inner or result";
        return w[2].size() > 4 && Lower(w[2].substr(w[2].size() - 4)) == ".png" ? "" : "save-mask writes a .png file";
    }
    if (op == "save") {
        if (n != 2) return "save takes a file";
        return cli::IsProjectPath(w[1]) ? "" : cli::CheckWritable(w[1], true);
    }
    return "unknown line \"" + op + "\"";
}

bool ReadScript(const std::string& path, std::vector<Line>& lines, std::string& error)
{
    std::ifstream in(path);
    if (!in) {
        error = "cannot read the script " + path;
        return false;
    }
    std::string text;
    int number = 0;
    while (std::getline(in, text)) {
        ++number;
        if (!text.empty() && text.back() == '\r') text.pop_back();
        Line l;
        l.number = number;
        // A command string may hold '#' inside its quotes; anywhere else it starts a comment.
        std::istringstream first(text);
        std::string op;
        first >> op;
        if (op.empty() || op[0] == '#') continue;
        op = Lower(op);
        if (op == "command") {
            std::string rest;
            std::getline(first, rest);
            const size_t b = rest.find_first_not_of(" \t");
            l.rest = b == std::string::npos ? "" : rest.substr(b);
            l.words = {op};
        } else {
            const size_t hash = text.find('#');
            std::istringstream words(hash == std::string::npos ? text : text.substr(0, hash));
            for (std::string w; words >> w;) l.words.push_back(Lower(w));
            // File names keep their case.
            if ((op == "save" || op == "save-mask") && !l.words.empty()) {
                std::istringstream raw(hash == std::string::npos ? text : text.substr(0, hash));
                std::vector<std::string> keep;
                for (std::string w; raw >> w;) keep.push_back(w);
                l.words.back() = keep.back();
            }
        }
        if (const std::string why = CheckLine(l); !why.empty()) {
            error = path + ":" + std::to_string(number) + ": " + why;
            return false;
        }
        lines.push_back(std::move(l));
    }
    return true;
}

int Replay(const std::vector<std::string>& args)
{
    cli::Args parsed(args, {"-o", "--output"});
    if (!parsed.Ok()) return cli::Usage("replay", parsed.Error());
    const std::vector<std::string>& pos = parsed.Positional();
    if (pos.size() != 2) return cli::Usage("replay", "expects a picture or project and a script");
    std::string output = parsed.Value("-o").value_or(parsed.Value("--output").value_or(""));
    if (output.empty()) return cli::Usage("replay", "expects an output file (-o OUT)");
    const bool projectOut = cli::IsProjectPath(output);
    if (std::string why = cli::CheckWritable(output, true); !projectOut && !why.empty()) return cli::Fail(why);

    std::vector<Line> lines;
    std::string error;
    if (!ReadScript(pos[1], lines, error)) return cli::Fail(error);

    CComposeDocument doc(0);
    CComposeHistory history;
    CSelectionHistory selectionHistory;
    if (!history.Init() || !selectionHistory.Init())
        return cli::Fail("cannot make the undo logs in the temporary folder (see TMPDIR)");
    CSelectionDocument selection;
    ReplayHost host(doc, selection, selectionHistory);
    host.m_pSource = &doc;
    CCommandContext context;
    context.document = &doc;
    context.history = &history;
    context.host = &host;
    if (OpenDocumentFile(context, pos[0].c_str()) != kCommandDone)
        return cli::Fail("cannot open " + pos[0] + " (missing, damaged, too large or of an unsupported type)");

    CToolContext toolContext;
    toolContext.document = &doc;
    toolContext.composeHistory = &history;
    toolContext.selection = &selection;
    toolContext.selectionHistory = &selectionHistory;
    CPixel foreground{0, 0, 0, 255};
    toolContext.foreground = [&foreground] { return foreground; };
    toolContext.setForeground = [&foreground, &context](CPixel c) {
        foreground = c;
        context.foreground = c.Word();
    };
    std::string refusal;
    toolContext.message = [&refusal](const char* key) { refusal = key ? key : ""; };
    CToolManager manager(toolContext);
    // A script paints at once: the pause that paces a hand's stroke on screen has nothing to wait for here.
    for (CPaintTool* tool : manager.GetPaintTools()) tool->SetFramePacing(0);
    ReplayView view(&host.m_pSource);
    selection.SetView(&view);
    manager.SetView(&view);
    manager.SetHost(&host);
    host.SetManager(&manager);

    std::vector<uint32_t> held;   // keys pressed by a down line, released after its up
    std::vector<std::unique_ptr<PendingWrite>> writes;
    auto sink = [&]() { return view.Sink(); };
    auto at = [](const Line& l) { return "line " + std::to_string(l.number) + ": "; };

    for (const Line& l : lines) {
        const std::vector<std::string>& w = l.words;
        const std::string& op = w[0];
        // The crop, transform and move tools say why they refuse (a transform whose corners cross, moving the
        // base without a selection): such a line fails the script.
        CToolBase* before = manager.GetCurrentTool();
        const bool geometry = dynamic_cast<CCropTool*>(before) || dynamic_cast<CMoveTool*>(before);
        if (geometry && op != "tool") refusal.clear();
        int x = 0, y = 0;
        if (w.size() >= 3) {
            ParseCoord(w[1], x);
            ParseCoord(w[2], y);
        }
        auto releaseHeld = [&] {
            for (uint32_t k : held)
                if (sink()) sink()->OnKeyUp(k, 0);
            held.clear();
        };
        if (op == "tool") {
            if (w[1] == "none") {
                manager.SetCurrentTool(nullptr);
                continue;
            }
            CToolBase* tool = manager.FindTool(w[1]);
            if (!tool) return cli::Fail(at(l) + "unknown tool \"" + w[1] + "\" (see replay --help)");
            bool shown = false;
            for (CToolBase* t : manager.GetShownTools()) shown |= t == tool;
            if (!shown)
                return cli::Fail(at(l) + "the tool \"" + w[1] + "\" is not offered in " +
                                 (manager.IsSelectionMode() ? "selection" : "compose") + " mode");
            refusal.clear();
            manager.SetCurrentTool(tool);
            if (manager.GetCurrentTool() != tool)
                return cli::Fail(at(l) + "the tool refused to start" +
                                 (refusal.empty() ? std::string() : " (message \"" + refusal + "\")"));
        } else if (op == "option") {
            CToolBase* tool = manager.GetCurrentTool();
            auto* panel = tool ? dynamic_cast<CPropSel*>(tool->GetOptionPanel()) : nullptr;
            auto* brush = tool ? dynamic_cast<CNullProperty*>(tool->GetOptionPanel()) : nullptr;
            auto* adjust = dynamic_cast<CPropSmartAdj*>(brush);
            auto* crop = tool ? dynamic_cast<CPropCrop*>(tool->GetOptionPanel()) : nullptr;
            if (w[1] == "adjust" || w[1] == "fore" || w[1] == "back") {
                if (!adjust) return cli::Fail(at(l) + "option " + w[1] + " belongs to the smartadjust tool");
                if (w[1] == "adjust") {
                    adjust->SetMode(w[2] == "raise" ? kAdjustRaise : w[2] == "lower" ? kAdjustLower : kAdjustBoth);
                } else {
                    const unsigned long rgb = std::stoul(w[2], nullptr, 16);
                    const CPixel c{uint8_t(rgb), uint8_t(rgb >> 8), uint8_t(rgb >> 16), 255};
                    if (w[1] == "fore")
                        adjust->SetForeColor(c);
                    else
                        adjust->SetBackColor(c);
                }
            } else if (w[1] == "freeshape" || w[1] == "ratio" || w[1] == "corners") {
                if (!crop) return cli::Fail(at(l) + "the current tool is not crop or transform");
                if (w[1] == "freeshape" && !crop->SetFreeShape(w[2] == "on"))
                    return cli::Fail(at(l) + "a free shape needs option ratio none first");
                if (w[1] == "ratio") {
                    int rw = 1, rh = 1;
                    const int choice = CropRatio(w[2], rw, rh);
                    const bool ok = choice == CPropCrop::kRatioCustom ? crop->SetCustomRatio(rw, rh)
                                                                      : crop->SetRatioChoice(choice);
                    if (!ok) return cli::Fail(at(l) + "a locked ratio needs option freeshape off first");
                }
                if (w[1] == "corners") {
                    CViewPoint corners[4];
                    for (int i = 0; i < 4; ++i) {
                        ParseCoord(w[2 + 2 * i], corners[i].x);
                        ParseCoord(w[3 + 2 * i], corners[i].y);
                    }
                    if (!static_cast<CCropTool*>(tool)->SetCorners(corners))
                        return cli::Fail(at(l) + "the frame cannot be set (no document, or no layer taken)");
                }
            } else if (w[1] == "color" || w[1] == "colour") {
                const unsigned long rgb = std::stoul(w[2], nullptr, 16);
                toolContext.setForeground(CPixel{uint8_t(rgb), uint8_t(rgb >> 8), uint8_t(rgb >> 16), 255});
            } else if (w[1] == "size" || w[1] == "soft" || w[1] == "alpha") {
                if (!brush) return cli::Fail(at(l) + "the current tool has no brush");
                long v = 0;
                cli::ParseInt(w[2], 0, 255, v);
                const int size = w[1] == "size" ? int(v) : brush->GetSize();
                const int soft = w[1] == "soft" ? int(v) : brush->GetSoft();
                const int alpha = w[1] == "alpha" ? int(v) : brush->GetAlphaPercent();
                if (!brush->SetValues(size, soft, alpha)) return cli::Fail(at(l) + "out of memory for the brush");
            } else if (w[1] == "mode") {
                if (!panel) return cli::Fail(at(l) + "the current tool has no mode");
                panel->SetMode(w[2] == "add" ? kSelAdd : w[2] == "subtract" ? kSelSubtract : kSelNew);
            } else {
                auto* magic = dynamic_cast<CPropMagicSel*>(panel);
                if (!magic) return cli::Fail(at(l) + "the current tool has no tolerance");
                magic->SetTolerance(w[2]);
            }
        } else if (op == "down" || op == "rdown") {
            if (!sink()) return cli::Fail(at(l) + "no tool is current");
            uint32_t flags = op == "down" ? kMkLButton : kMkRButton;
            for (size_t i = 3; i < w.size(); ++i) {
                const uint32_t key = w[i] == "shift" ? kKeyShift : w[i] == "ctrl" ? kKeyControl : 0;
                flags |= w[i] == "shift" ? kMkShift : w[i] == "ctrl" ? kMkControl : w[i] == "alt" ? kMkAlt : 0;
                if (key) {
                    sink()->OnKeyDown(key, 0);
                    held.push_back(key);
                }
            }
            sink()->OnMouseMove(flags & ~(kMkLButton | kMkRButton), x, y);
            if (op == "down")
                sink()->OnLButtonDown(flags, x, y);
            else
                sink()->OnRButtonDown(flags, x, y);
        } else if (op == "drag" || op == "move") {
            if (sink()) sink()->OnMouseMove(op == "drag" ? kMkLButton : 0, x, y);
        } else if (op == "up" || op == "rup") {
            if (sink()) {
                sink()->OnMouseMove(op == "up" ? kMkLButton : kMkRButton, x, y);
                if (op == "up")
                    sink()->OnLButtonUp(0, x, y);
                else
                    sink()->OnRButtonUp(0, x, y);
            }
            releaseHeld();
        } else if (op == "dbl") {
            // The events of a double click: press, release, double-click event, release.
            if (sink()) {
                sink()->OnMouseMove(0, x, y);
                sink()->OnLButtonDown(kMkLButton, x, y);
                sink()->OnLButtonUp(0, x, y);
                sink()->OnLButtonDblClk(kMkLButton, x, y);
                // A double click that finishes a crop leaves the tool: the last release reaches no one.
                if (sink()) sink()->OnLButtonUp(0, x, y);
            }
            releaseHeld();
        } else if (op == "key") {
            const uint32_t key = KeyCode(w[1]);
            const bool press = w.size() == 2 || w[2] == "down", release = w.size() == 2 || w[2] == "up";
            if (key == kKeyEscape) {
                // Escape belongs to the frame: in compose mode it leaves the tool.
                if (press && !manager.IsSelectionMode()) manager.SetCurrentTool(nullptr);
                continue;
            }
            if (press && sink()) sink()->OnKeyDown(key, 0);
            if (release && sink()) sink()->OnKeyUp(key, 0);
        } else if (op == "tick") {
            long count = 1;
            if (w.size() == 2) cli::ParseInt(w[1], 1, 10000, count);
            for (long i = 0; i < count; ++i)
                if (sink()) sink()->OnTimer();
        } else if (op == "command") {
            std::string gbk;
            if (!Utf8ToGbk(l.rest, gbk)) return cli::Fail(at(l) + "the command holds text that GBK cannot store");
            const int r = ExecuteCommand(context, gbk.c_str());
            if (r != kCommandDone) {
                const std::string why = host.TakeReason();
                return cli::Fail(at(l) + "command \"" + l.rest + "\" " +
                                 (r == kCommandUnparsable ? "could not be parsed" : "was refused") +
                                 (why.empty() ? "" : ": " + why));
            }
        } else if (op == "mode") {
            if (w[1] == "select") {
                const int method = w.size() == 3 && w[2] == "chroma"   ? kMethodChroma
                                   : w.size() == 3 && w[2] == "direct" ? kMethodDirect
                                                                       : kMethodInOut;
                if (manager.IsSelectionMode()) return cli::Fail(at(l) + "already in selection mode");
                if (!manager.EnterOrLeaveSelectionMode(true, method, true))
                    return cli::Fail(at(l) + "cannot enter selection mode (no layer, or out of memory)");
            } else {
                if (!manager.IsSelectionMode()) return cli::Fail(at(l) + "already in compose mode");
                host.SetBringBack(w.size() == 3 ? w[2] : "keep");
                manager.EnterOrLeaveSelectionMode(false, 0, true);
                if (const std::string why = host.TakeReason(); !why.empty()) return cli::Fail(at(l) + why);
            }
        } else if (op == "save-mask") {
            const COLChannel* plane = w[1] == "selection" ? &doc.GetSelectionMask()
                                      : w[1] == "outer"   ? selection.GetOuterPlane()
                                      : w[1] == "inner"   ? selection.GetInnerPlane()
                                                          : selection.GetResultMask();
            if (plane->IsNull()) return cli::Fail(at(l) + "the " + w[1] + " plane is empty");
            auto write = std::make_unique<PendingWrite>();
            write->path = w[2];
            if (!write->plane.DuplicateFrom(plane)) return cli::Fail(at(l) + "out of memory");
            writes.push_back(std::move(write));
        } else if (op == "save") {
            auto write = std::make_unique<PendingWrite>();
            write->path = w[1];
            if (cli::IsProjectPath(w[1])) {
                if (manager.IsSelectionMode())
                    return cli::Fail(at(l) + "a project is saved in compose mode; leave selection mode first");
                write->projectTemp = w[1] + ".replay-part";
                if (!SaveProject(doc, &history, write->projectTemp.c_str(), 1)) {
                    write->projectTemp.clear();
                    return cli::Fail(at(l) + "cannot write " + w[1] + " (folder missing, no permission or disk full)");
                }
            } else if (manager.IsSelectionMode()) {
                if (!write->picture.DuplicateFrom(selection.GetWorkingImage()))
                    return cli::Fail(at(l) + "out of memory");
            } else {
                if (!MergeLayers(&doc, &write->picture, 0))
                    return cli::Fail(at(l) + (doc.GetLayerCount() == 0 ? "no picture to write"
                                                                       : "not enough memory to flatten the document"));
                for (size_t i = 0; i < write->picture.GetPixelCount(); ++i) write->picture.GetBuffer()[i].alpha = 255;
            }
            writes.push_back(std::move(write));
        }
        if (geometry && op != "tool" && !refusal.empty())
            return cli::Fail(at(l) + "the tool refused (message \"" + refusal + "\")");
    }
    if (manager.IsSelectionMode())
        std::fprintf(stderr, "note: the script ends in selection mode; %s holds the document without its result\n",
                     output.c_str());

    for (const auto& write : writes) {
        std::string why;
        if (!write->plane.IsNull())
            why = cli::SaveGrayPng(write->path, write->plane);
        else if (!write->projectTemp.empty()) {
            if (std::rename(write->projectTemp.c_str(), write->path.c_str()) != 0)
                why = "cannot write " + write->path;
            else
                write->committed = true;
        }
        else
            why = cli::SavePicture(write->path, write->picture);
        if (!why.empty()) return cli::Fail(why);
    }
    if (projectOut) {
        if (!SaveProject(doc, &history, output.c_str(), 1))
            return cli::Fail("cannot write " + output + " (folder missing, no permission or disk full)");
        return cli::kExitOk;
    }
    COLImage composite;
    if (!MergeLayers(&doc, &composite, 0))
        return cli::Fail(doc.GetLayerCount() == 0 ? "the document has no picture to write"
                                                  : "not enough memory to flatten the document");
    // The composite's alpha bytes hold the selection, not coverage: the flattened picture is opaque.
    for (size_t i = 0; i < composite.GetPixelCount(); ++i) composite.GetBuffer()[i].alpha = 255;
    if (std::string why = cli::SavePicture(output, composite); !why.empty()) return cli::Fail(why);
    return cli::kExitOk;
}

void PrintDetails()
{
    std::printf("\n%s\nTools:\n", kHelp);
    CToolContext context;
    CToolManager manager(context);
    for (const auto& t : manager.GetNamedTools()) std::printf("  %-14s %s\n", t.name, t.summary);
}

cli::CliRegistrar reg("replay", "replay IN SCRIPT -o OUT",
                      "play a script of tool events and commands on a picture or project, write the picture or, "
                      "to .vmpd, the project with its history",
                      Replay, PrintDetails);

} // namespace
