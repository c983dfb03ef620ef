#include "commands/command.h"

#include <cctype>
#include <climits>
#include <cstring>
#include <strings.h>

#include "commands/history_log.h"
#include "commands/history_sink.h"
#include "commands/modifier_commands.h"
#include "commands/project_stream.h"
#include "commands/selection_commands.h"
#include "document/compose_document.h"
#include "document/layer.h"
#include "effects/flip_rotate.h"
#include "effects/image_size.h"
#include "effects/selection_modifiers.h"
#include "imaging/codec.h"
#include "imaging/gbk_text.h"

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

bool Is(const CCommand& command, const char* name) { return strcasecmp(command.name.c_str(), name) == 0; }

bool ArgInt(const CCommand& command, size_t index, int& value)
{
    return index < command.args.size() && ParseIntField(command.args[index].c_str(), value);
}

void Record(CCommandContext& context, int kind, int arg, const char* label)
{
    if (context.history) context.history->AddStep(context.document, kind, arg, label);
}

bool HasLayers(const CCommandContext& context)
{
    return context.document && context.document->GetLayerCount() > 0;
}

// ---- handlers: each returns false when it refuses ------------------------------------------------------

bool CopyCurrentLayer(CCommandContext& context)
{
    return context.host && HasLayers(context) && context.host->CopyToClipboard(*context.document);
}

bool Cut(CCommandContext& context)
{
    // Nothing is deleted unless the copy succeeded first.
    if (!CopyCurrentLayer(context)) return false;
    return DeleteSelection(context, false, "His_delete");
}

bool DeleteLayer(CCommandContext& context, const CCommand& command)
{
    int index = 0;
    if (!HasLayers(context) || !ArgInt(command, 0, index)) return false;
    CComposeDocument& doc = *context.document;
    if (index < 1 || index > doc.GetLayerCount() - 1) return false;
    doc.RemoveLayer(index);
    Record(context, kStepRemoveLayer, index, "His_deletelayer");
    doc.Refresh();
    return true;
}

bool FlatImage(CCommandContext& context)
{
    if (!HasLayers(context) || !context.document->FlattenAll()) return false;
    Record(context, kStepWholeDocument, 0, "His_flatimage");
    context.document->Refresh();
    return true;
}

bool Flip(CCommandContext& context, bool horizontal)
{
    // Never refused: without a layer there is nothing to mirror.
    CComposeDocument* doc = context.document;
    CLayer* layer = doc ? doc->GetCurrentLayer() : nullptr;
    if (!layer) return true;
    {
        CStackLock lock(*doc);
        FlipImage(layer->m_image, horizontal);
    }
    Record(context, kStepLayerRegion, doc->GetCurrentIndex(), horizontal ? "His_FlipH" : "His_FlipV");
    doc->Refresh();
    return true;
}

bool Rotate(CCommandContext& context, bool left)
{
    CComposeDocument* doc = context.document;
    CLayer* layer = doc ? doc->GetCurrentLayer() : nullptr;
    if (!layer) return false;
    COLImage turned;
    if (!RotateImageQuarter(layer->m_image, turned, left)) return false;
    {
        CStackLock lock(*doc);
        layer->m_image = std::move(turned);
    }
    Record(context, kStepLayerHeaderRegion, doc->GetCurrentIndex(), left ? "His_RotateLeft" : "His_RotateRight");
    doc->Refresh();
    return true;
}

// ---- whole-document geometry: image size, canvas size, turns and mirrors of every layer ----------------------

bool LegalSide(int side) { return side >= 1 && side <= static_cast<int>(kMaxImageSide); }

// A failed whole-document edit tells the user with the common failure text; the document is as it was.
bool Failed(CCommandContext& context)
{
    if (context.host) context.host->ShowMessage("except");
    return false;
}

bool ImageSize(CCommandContext& context, const CCommand& command)
{
    int width = 0, height = 0, method = kScaleBicubic;
    if (!HasLayers(context) || !ArgInt(command, 0, width) || !ArgInt(command, 1, height)) return false;
    if (command.args.size() > 2 && !ArgInt(command, 2, method)) return false;
    if (!LegalSide(width) || !LegalSide(height) || method < kScaleNearest || method > kScaleBicubic) return false;
    if (!ResizeAllLayers(*context.document, width, height, method)) return Failed(context);
    Record(context, kStepWholeDocument, 0, "His_ImageSize");
    context.document->Refresh();
    return true;
}

uint32_t CanvasFill(const CCommandContext& context) { return context.foreground | 0xFF000000u; }

bool ResizeCanvasCommand(CCommandContext& context, const CCommand& command)
{
    int width = 0, height = 0, h = 1, v = 1;
    if (!HasLayers(context) || !ArgInt(command, 0, width) || !ArgInt(command, 1, height)) return false;
    if (command.args.size() > 2 && !ArgInt(command, 2, h)) return false;
    if (command.args.size() > 3 && !ArgInt(command, 3, v)) return false;
    uint32_t fill = CanvasFill(context);
    if (command.args.size() > 4 && !ParseColourArg(command.args[4].c_str(), fill)) return false;
    if (!LegalSide(width) || !LegalSide(height) || h < 0 || h > 2 || v < 0 || v > 2) return false;
    if (!context.document->ResizeCanvas(width, height, fill, h, v)) return Failed(context);
    Record(context, kStepWholeDocument, 0, "His_CavasSize");
    context.document->Refresh();
    return true;
}

bool ExtendCanvas(CCommandContext& context, const CCommand& command)
{
    int margin[4] = {0, 0, 0, 0};   // left, up, right, down
    if (!HasLayers(context)) return false;
    for (size_t i = 0; i < 4; ++i)
        if (!ArgInt(command, i, margin[i]) || margin[i] < -10000 || margin[i] > 10000) return false;
    uint32_t fill = CanvasFill(context);
    if (command.args.size() > 4 && !ParseColourArg(command.args[4].c_str(), fill)) return false;
    CComposeDocument& doc = *context.document;
    int width = 0, height = 0;
    CanvasSizeFromMargins(doc.GetWidth(), doc.GetHeight(), margin[0], margin[1], margin[2], margin[3], width, height);
    if (!doc.ChangeCanvas(width, height, margin[0], margin[1], fill)) return Failed(context);
    Record(context, kStepWholeDocument, 0, "His_CavasSize");
    doc.Refresh();
    return true;
}

bool RotateImage(CCommandContext& context, bool left)
{
    if (!HasLayers(context)) return false;
    if (!RotateDocument(*context.document, left)) return Failed(context);
    Record(context, kStepWholeDocument, 0, left ? "His_RotateLeft" : "His_RotateRight");
    context.document->Refresh();
    return true;
}

bool FlipImageCommand(CCommandContext& context, bool horizontal)
{
    if (!HasLayers(context)) return false;
    if (!FlipDocument(*context.document, horizontal)) return false;
    Record(context, kStepWholeDocument, 0, horizontal ? "His_FlipH" : "His_FlipV");
    context.document->Refresh();
    return true;
}

bool LayerLocateChange(CCommandContext& context, const CCommand& command)
{
    int from = 0, to = 0;
    if (!HasLayers(context) || !ArgInt(command, 0, from) || !ArgInt(command, 1, to)) return false;
    CComposeDocument& doc = *context.document;
    const int last = doc.GetLayerCount() - 1;
    // The base never moves, and nothing moves below it.
    if (from < 1 || to < 1 || from > last || to > last || from == to) return false;
    if (!doc.MoveLayer(from, to)) return false;
    doc.Refresh();
    // Only layer 0's header is logged for a reorder; the history relies on its snapshots for the order.
    Record(context, kStepLayerHeader, 0, "His_layerlocatechange");
    return true;
}

bool LayerPropertyChange(CCommandContext& context, const CCommand& command)
{
    int index = 0, property = 0;
    if (!HasLayers(context) || !ArgInt(command, 0, index) || !ArgInt(command, 1, property)) return false;
    if (command.args.size() < 3 || property < 0 || property > 4) return false;
    CComposeDocument& doc = *context.document;
    CLayer* layer = doc.GetLayer(index);
    if (!layer) return false;
    const std::string& value = command.args[2];
    {
        CStackLock lock(doc);
        int number = 0;
        switch (property) {
        case 0: {
            const size_t comma = value.find(',');
            if (comma == std::string::npos) return false;
            int x = 0, y = 0;
            if (!ParseIntField(value.substr(0, comma).c_str(), x) || !ParseIntField(value.substr(comma + 1).c_str(), y))
                return false;
            layer->m_x = x;
            layer->m_y = y;
            break;
        }
        case 1:
            if (!ParseIntField(value.c_str(), number)) return false;
            layer->m_visible = number;
            break;
        case 2:
            // A name longer than the field is cut at a character boundary.
            CopyGbkField(layer->m_name, kLayerNameBytes, value);
            break;
        case 3:
            if (!ParseIntField(value.c_str(), number)) return false;
            layer->m_opacity = static_cast<uint8_t>(number);
            break;
        default:
            if (!ParseIntField(value.c_str(), number)) return false;
            layer->m_blendMode = static_cast<uint8_t>(number);
            break;
        }
    }
    doc.Refresh();
    Record(context, kStepLayerHeader, index, "His_layerpropertychange");
    return true;
}

bool MergeDownLayer(CCommandContext& context, const CCommand& command)
{
    int index = 0;
    if (!HasLayers(context) || !ArgInt(command, 0, index)) return false;
    CComposeDocument& doc = *context.document;
    if (index < 1 || index > doc.GetLayerCount() - 1) return false;
    if (!doc.MergeDown(index)) return false;
    doc.SetCurrentIndex(index - 1);
    Record(context, kStepWholeDocument, index, "His_mergedownlayer");
    doc.Refresh();
    return true;
}

bool NewLayer(CCommandContext& context, const CCommand& command)
{
    int index = 0;
    if (!HasLayers(context) || !ArgInt(command, 0, index)) return false;
    if (!context.document->AddLayer(index, kLayerKindRaster)) return false;
    Record(context, kStepNewLayer, index, "His_newlayer");
    context.document->Refresh();
    return true;
}

bool Open(CCommandContext& context)
{
    std::string path;
    if (!context.host || !context.host->AskOpenPath(true, path)) return false;
    return OpenDocumentFile(context, path.c_str()) == kCommandDone;
}

bool OpenLayer(CCommandContext& context, const CCommand& command)
{
    int n = 0;
    if (!HasLayers(context) || !ArgInt(command, 0, n) || !context.host) return false;
    CComposeDocument& doc = *context.document;
    if (n < 1 || n > doc.GetLayerCount()) return false;
    std::string path;
    if (!context.host->AskOpenPath(false, path)) return false;   // a cancelled dialog counts as failure
    int loaded = -1;
    if (!doc.LoadLayerFile(path.c_str(), n - 1, &loaded)) {
        context.host->ShowMessage("can't open");
        return false;
    }
    // The layer that received the picture becomes current. When a transparent layer took it in place, no layer
    // was added, and the step records that layer's new content rather than a new layer.
    doc.SetCurrentIndex(loaded);
    if (loaded == n)
        Record(context, kStepNewLayerWithContent, n, "His_openlayer");
    else
        Record(context, kStepLayerHeaderRegion, loaded, "His_openlayer");
    doc.Refresh();
    return true;
}

bool SetCurLayer(CCommandContext& context, const CCommand& command)
{
    int index = 0;
    if (!HasLayers(context) || !ArgInt(command, 0, index)) return false;
    CComposeDocument& doc = *context.document;
    if (index == doc.GetCurrentIndex() || index < 0 || index >= doc.GetLayerCount()) return false;
    doc.SetCurrentIndex(index);
    Record(context, kStepCurrentLayer, index, "His_curlayer");
    doc.Refresh();
    return true;
}

bool History(CCommandContext& context, const CCommand& command)
{
    const bool forward = Is(command, "UI_HistoryForward"), backward = Is(command, "UI_HistoryBackward");
    const bool jump = Is(command, "UI_HistoryJumpTo");
    if (!forward && !backward && !jump) return true;
    ICommandHost* host = context.host;
    if (host) host->CancelTool();   // a half-made edit must not enter the log
    const bool selectionMode = host && host->IsSelectionMode();
    IHistoryNavigator* history = selectionMode ? host->GetSelectionHistory() : context.history;
    if (!history) return false;
    int ok = 0;
    if (forward) {
        ok = history->Forward();
    } else if (backward) {
        ok = history->Backward();
    } else {
        int step = 0;
        if (!ArgInt(command, 0, step)) return false;
        ok = history->JumpTo(step);
    }
    if (!ok) return false;
    if (selectionMode)
        host->RefreshSelectionDocument();
    else if (context.document)
        context.document->Refresh();
    if (host) host->UpdatePanels();
    return true;
}

bool ZoomCommand(CCommandContext& context, const CCommand& command)
{
    int direction;
    if (Is(command, "UI_ZoomIn"))
        direction = 1;
    else if (Is(command, "UI_ZoomOut"))
        direction = -1;
    else if (Is(command, "UI_ZoomFit"))
        direction = 0;
    else
        return true;
    return context.host && context.host->Zoom(direction);
}

// ---- selection modifiers, fill and stroke -------------------------------------------------------------------

// "Doc_SelectExpand('n')", "Doc_SelectShrink('n')" (n 1..32), "Doc_SelectFeather('v')" (v 1..999).
bool Modify(CCommandContext& context, const CCommand& command, int direction)
{
    int value = 0;
    if (!ArgInt(command, 0, value)) return false;
    if (direction == 0) return FeatherSelection(context, value);
    if (value < ExpandSettings::kMinAmount || value > ExpandSettings::kMaxAmount) return false;
    return ExpandSelection(context, direction * value);
}

// "Doc_SelectFeatherResult('radius'[,'keepDetail','shrinkFirst'])": the feather of selection mode.
bool FeatherResult(CCommandContext& context, const CCommand& command)
{
    FeatherRecord record;
    if (!ArgInt(command, 0, record.radius)) return false;
    if (command.args.size() > 1 && !ArgInt(command, 1, record.keepDetail)) return false;
    if (command.args.size() > 2 && !ArgInt(command, 2, record.shrinkFirst)) return false;
    return FeatherResultMask(context, record);
}

// Optional colour argument at index: "RRGGBB"; the foreground colour when absent.
bool ColourArg(const CCommandContext& context, const CCommand& command, size_t index, uint32_t& colour)
{
    colour = context.foreground | 0xFF000000u;
    return index >= command.args.size() || ParseColourArg(command.args[index].c_str(), colour);
}

// "Doc_FillSelection" opens the dialog; "Doc_FillSelection('opacity'[,'RRGGBB'])" fills with those settings.
bool Fill(CCommandContext& context, const CCommand& command)
{
    if (command.args.empty()) return context.host && context.host->RunFillDialog();
    FillSettings settings;
    if (!ArgInt(command, 0, settings.opacity) || !ColourArg(context, command, 1, settings.colour)) return false;
    return FillSelection(context, settings);
}

// "Doc_StrokeSelection('width'[,'opacity','RRGGBB'])".
bool Stroke(CCommandContext& context, const CCommand& command)
{
    StrokeSettings settings;
    if (!ArgInt(command, 0, settings.width)) return false;
    if (command.args.size() > 1 && !ArgInt(command, 1, settings.opacity)) return false;
    if (!ColourArg(context, command, 2, settings.colour)) return false;
    return StrokeSelection(context, settings);
}

} // namespace

bool ParseCommand(const char* text, CCommand& command)
{
    command.args.clear();
    command.name.clear();
    if (!text) return false;
    const size_t length = strnlen(text, kCommandTextLimit);
    if (length >= kCommandTextLimit) return false;
    const char* open = static_cast<const char*>(std::memchr(text, '(', length));
    if (!open) {
        if (length > kCommandNameLimit) return false;
        command.name.assign(text, length);
        return true;
    }
    const size_t nameLength = static_cast<size_t>(open - text);
    if (nameLength > kCommandNameLimit) return false;
    command.name.assign(text, nameLength);
    // The character after "(" is taken to be the first argument's opening quote and is not looked at.
    if (open[1] == '\0') return false;
    const char* p = open + 2;
    for (;;) {
        while (IsBlank(*p)) ++p;
        std::string arg;
        while (*p && *p != '\'' && arg.size() < kCommandArgLimit) arg += *p++;
        if (*p != '\'') return false;   // too long, or never closed
        command.args.push_back(std::move(arg));
        ++p;
        while (IsBlank(*p)) ++p;
        if (*p == ')') return true;
        if (*p == '\0') return false;
        if (*p == ',') ++p;
        const char* quote = std::strchr(p, '\'');
        if (!quote) return false;
        p = quote + 1;
    }
}

bool ParseIntField(const char* text, int& out)
{
    if (!text) return false;
    const char* p = text;
    while (*p && !(*p >= '0' && *p <= '9')) ++p;
    if (!*p) return false;
    const bool negative = p > text && p[-1] == '-';
    long long value = 0;
    for (; *p >= '0' && *p <= '9'; ++p) {
        value = value * 10 + (*p - '0');
        if (value > static_cast<long long>(INT_MAX) + 1) return false;
    }
    if (negative) value = -value;
    if (value > INT_MAX) return false;
    out = static_cast<int>(value);
    return true;
}

int DispatchDocCommand(CCommandContext& context, const CCommand& command)
{
    const std::string& name = command.name;
    if (name.size() < 5) return kCommandDone;
    const char letter = name[4];
    if (letter < 'C' || letter > 'S') return kCommandDone;
    bool ok = true;
    // Every row of a letter is compared; a match does not end the comparisons.
    switch (letter) {
    case 'C': ok = Cut(context); break;   // any name with this fifth letter cuts
    case 'D':
        if (Is(command, "Doc_Delect")) ok &= DeleteSelection(context, false, "His_delete");
        if (Is(command, "Doc_DelectInv")) ok &= DeleteSelection(context, true, "His_deleteinv");
        if (Is(command, "Doc_DeleteLayer")) ok &= DeleteLayer(context, command);
        break;
    case 'E':
        if (Is(command, "Doc_ExtendCanvas")) ok &= ExtendCanvas(context, command);
        break;
    case 'F':
        if (Is(command, "Doc_FlatImage")) ok &= FlatImage(context);
        if (Is(command, "Doc_FlipH")) ok &= Flip(context, true);
        if (Is(command, "Doc_FlipV")) ok &= Flip(context, false);
        if (Is(command, "Doc_FlipImageH")) ok &= FlipImageCommand(context, true);
        if (Is(command, "Doc_FlipImageV")) ok &= FlipImageCommand(context, false);
        if (Is(command, "Doc_FillSelection")) ok &= Fill(context, command);
        break;
    case 'I':
        if (Is(command, "Doc_ImageSize")) ok &= ImageSize(context, command);
        break;
    case 'L':
        if (Is(command, "Doc_LayerLocateChange")) ok &= LayerLocateChange(context, command);
        if (Is(command, "Doc_LayerPropertyChange")) ok &= LayerPropertyChange(context, command);
        break;
    case 'M':
        if (Is(command, "Doc_MergeDownLayer")) ok &= MergeDownLayer(context, command);
        break;
    case 'N':
        if (Is(command, "Doc_NewLayer")) ok &= NewLayer(context, command);
        break;
    case 'O':
        if (Is(command, "Doc_Open")) ok &= Open(context);
        if (Is(command, "Doc_OpenLayer")) ok &= OpenLayer(context, command);
        break;
    case 'P':   // any name with this fifth letter pastes
        ok = context.host && context.document && context.host->PasteFromClipboard(*context.document, context.history);
        break;
    case 'R':
        if (Is(command, "Doc_RotateRight")) ok &= Rotate(context, false);
        if (Is(command, "Doc_RotateLeft")) ok &= Rotate(context, true);
        if (Is(command, "Doc_RotateImageRight")) ok &= RotateImage(context, false);
        if (Is(command, "Doc_RotateImageLeft")) ok &= RotateImage(context, true);
        if (Is(command, "Doc_ResizeCanvas")) ok &= ResizeCanvasCommand(context, command);
        break;
    case 'S':
        if (Is(command, "Doc_SelectAll")) ok &= SelectAll(context);
        if (Is(command, "Doc_SelectNone")) ok &= SelectNone(context);
        if (Is(command, "Doc_SelectInverse")) ok &= SelectInverse(context);
        if (Is(command, "Doc_SetCurLayer")) ok &= SetCurLayer(context, command);
        if (Is(command, "Doc_SmartInpaint")) ok &= context.host && context.host->RunInpaintDialog();
        if (Is(command, "Doc_SelectSegmentDeflate")) ok &= DeflateSelection(context);
        if (Is(command, "Doc_SelectExpand")) ok &= Modify(context, command, 1);
        if (Is(command, "Doc_SelectShrink")) ok &= Modify(context, command, -1);
        if (Is(command, "Doc_SelectFeather")) ok &= Modify(context, command, 0);
        if (Is(command, "Doc_SelectFeatherResult")) ok &= FeatherResult(context, command);
        if (Is(command, "Doc_StrokeSelection")) ok &= Stroke(context, command);
        break;
    default: break;
    }
    return ok ? kCommandDone : kCommandRefused;
}

int DispatchUiCommand(CCommandContext& context, const CCommand& command)
{
    const std::string& name = command.name;
    if (name.size() < 4) return kCommandDone;
    bool ok = true;
    switch (name[3]) {
    case 'C': ok = CopyCurrentLayer(context); break;   // any name with this fourth letter copies
    case 'H': ok = History(context, command); break;
    case 'Z': ok = ZoomCommand(context, command); break;
    default: break;
    }
    return ok ? kCommandDone : kCommandRefused;
}

int ExecuteCommand(CCommandContext& context, const char* text)
{
    CCommand command;
    if (!ParseCommand(text, command)) return kCommandUnparsable;
    for (char& c : command.name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    int result = kCommandDone;
    if (strncasecmp(command.name.c_str(), "Doc", 3) == 0) result = DispatchDocCommand(context, command);
    if (strncasecmp(command.name.c_str(), "UI", 2) == 0) result = DispatchUiCommand(context, command);
    return result;
}

int OpenDocumentFile(CCommandContext& context, const char* path)
{
    // A failed open keeps the open document, so its path stays with it too.
    CComposeDocument* doc = context.document;
    const uint32_t type = COLImageCodec::GetFileType(path);
    if (doc && type == kFileProject) {
        // The compose history takes over a log saved with the project. A failed open changes nothing, the
        // current document's history included, so the log is not reset beforehand.
        auto* compose = dynamic_cast<CComposeHistory*>(context.history);
        if (!OpenProject(*doc, compose, path)) {
            if (context.host) context.host->ShowMessage("can't open");
            return kCommandRefused;
        }
        context.documentPath.clear();
        if (context.history && !compose) {
            context.history->Reset();
            context.history->AddStep(doc, kStepWholeDocument, 0, "His_open");
        }
        doc->Refresh();
        return kCommandDone;
    }
    if (!doc || !doc->OpenFile(path)) {
        if (context.host) context.host->ShowMessage("can't open");
        return kCommandRefused;
    }
    context.documentPath = path;
    if (context.history) {
        context.history->Reset();
        context.history->AddStep(doc, kStepWholeDocument, 0, "His_open");
    }
    doc->Refresh();
    return kCommandDone;
}
