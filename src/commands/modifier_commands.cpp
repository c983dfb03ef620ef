#include "commands/modifier_commands.h"

#include <cstring>

#include "commands/command.h"
#include "commands/history_log.h"
#include "commands/history_sink.h"
#include "document/compose_document.h"
#include "document/layer.h"
#include "document/selection_document.h"
#include "effects/segment_deflate.h"
#include "effects/selection_modifiers.h"
#include "runtime/status.h"

namespace {

void Record(CCommandContext& context, int kind, int arg, const char* label)
{
    if (context.history) context.history->AddStep(context.document, kind, arg, label);
}

// The document's mask when it has one of the document's size.
COLChannel* DocumentMask(CCommandContext& context)
{
    CComposeDocument* doc = context.document;
    if (!doc || doc->GetLayerCount() == 0) return nullptr;
    COLChannel& mask = doc->GetSelectionMask();
    if (mask.IsNull() || mask.GetWidth() != uint32_t(doc->GetWidth()) || mask.GetHeight() != uint32_t(doc->GetHeight()))
        return nullptr;
    return &mask;
}

// Puts a new plane in place of the mask under the document lock.
void ReplaceMask(CComposeDocument& doc, COLChannel& plane)
{
    CStackLock lock(doc);
    doc.GetSelectionMask() = std::move(plane);
}

// Adds a layer above the current one, lets paint fill it, merges it down. The current layer index stays on the
// merged layer. False (and the document as it was) when the layer cannot be added or the merge runs out of memory.
template <class Paint> bool MergePaintedLayer(CComposeDocument& doc, Paint paint)
{
    const int current = doc.GetCurrentIndex();
    if (!doc.GetCurrentLayer()) return false;
    CLayer* layer = doc.AddLayer(current, kLayerKindRaster);
    if (!layer) return false;
    bool ok = paint(layer->m_image);
    if (ok) ok = doc.MergeDown(current + 1) != 0;
    if (!ok) {
        doc.RemoveLayer(current + 1);
        doc.SetCurrentIndex(current);
        return false;
    }
    doc.SetCurrentIndex(current);
    return true;
}

} // namespace

bool ExpandSelection(CCommandContext& context, int32_t amount)
{
    const int32_t size = amount < 0 ? -amount : amount;
    COLChannel* mask = DocumentMask(context);
    if (!mask || size < ExpandSettings::kMinAmount || size > ExpandSettings::kMaxAmount) return false;
    COLChannel result;
    CExpandProcess process;
    process.SetChannels(mask, &result);
    if (process.ProcessChannel(&amount) != kOk) return false;
    CComposeDocument& doc = *context.document;
    if (result.IsAllZero()) {
        // Nothing is left: the operation becomes a deselection.
        {
            CStackLock lock(doc);
            doc.GetSelectionMask().Free();
        }
        doc.Refresh();
        Record(context, kStepChannel, -1, "His_selectnone");
        return true;
    }
    ReplaceMask(doc, result);
    doc.Refresh();
    ExpandSettings settings;
    settings.expand = amount > 0;
    Record(context, kStepChannel, -1, settings.CaptionKey());
    return true;
}

bool FeatherSelection(CCommandContext& context, int32_t value)
{
    COLChannel* mask = DocumentMask(context);
    if (!mask || !FeatherSettings::IsValid(value)) return false;
    COLChannel plane;
    if (!plane.DuplicateFrom(mask) || FeatherPlane(plane, value) != kOk) return false;
    ReplaceMask(*context.document, plane);
    context.document->Refresh();
    Record(context, kStepChannel, -1, "His_Feature");
    return true;
}

bool FeatherResultMask(CCommandContext& context, const FeatherRecord& record)
{
    ICommandHost* host = context.host;
    if (!host || !host->IsSelectionMode() || !SelFeatherSettings::IsValid(record)) return false;
    CSelectionDocument* selection = host->GetSelectionDocument();
    if (!selection || selection->GetResultMask()->IsNull()) return false;
    COLChannel* mask = selection->GetResultMask();
    COLChannel result;
    CFeatherProcess process;
    process.SetChannels(mask, &result);
    if (process.ProcessChannel(&record) != kOk) return false;
    *mask = std::move(result);
    // The step names the result mask, so that undo and redo both bring it back.
    if (auto* log = dynamic_cast<CSelectionHistory*>(host->GetSelectionHistory()))
        log->AddStep(selection, kStepChannel, int32_t(kPlaneResult), "His_Feature");
    host->RefreshSelectionDocument();
    return true;
}

bool DeflateSelection(CCommandContext& context, CSegmentProcess* engine)
{
    if (!DocumentMask(context)) return false;
    if (SelectSegmentDeflate(*context.document, engine) != kOk) return false;
    Record(context, kStepChannel, -1, "smartin");
    return true;
}

bool FillSelection(CCommandContext& context, const FillSettings& settings)
{
    CComposeDocument* doc = context.document;
    if (!doc || !doc->GetCurrentLayer() || !FillSettings::IsValid(settings)) return false;
    // Without a selection the mask holds no bytes, and an empty layer is merged.
    const COLChannel* mask = DocumentMask(context);
    if (!MergePaintedLayer(*doc, [&](COLImage& layer) {
            return !mask || PaintFillLayer(layer, *mask, settings.colour, settings.opacity);
        }))
        return false;
    const int current = doc->GetCurrentIndex();
    // The base keeps the document's size; an upper layer shrinks to what it holds.
    if (current > 0) {
        CStackLock lock(*doc);
        doc->GetCurrentLayer()->TrimToContent();
    }
    Record(context, kStepLayerHeaderRegion, current, "fill");
    doc->Refresh();
    return true;
}

bool StrokeSelection(CCommandContext& context, const StrokeSettings& settings)
{
    CComposeDocument* doc = context.document;
    if (!doc || !doc->GetCurrentLayer() || !StrokeSettings::IsValid(settings)) return false;
    const COLChannel* mask = DocumentMask(context);
    COLChannel expanded;
    if (mask) {
        CExpandProcess process;
        process.SetChannels(const_cast<COLChannel*>(mask), &expanded);
        const int32_t amount = settings.width;
        if (process.ProcessChannel(&amount) != kOk) return false;
    }
    if (!MergePaintedLayer(*doc, [&](COLImage& layer) {
            return !mask || PaintStrokeLayer(layer, *mask, expanded, settings.colour, settings.opacity);
        }))
        return false;
    Record(context, kStepLayerHeaderRegion, doc->GetCurrentIndex(), "stroke");
    doc->Refresh();
    return true;
}

bool ParseColourArg(const char* text, uint32_t& colour)
{
    if (!text) return false;
    if (*text == '#') ++text;
    if (std::strlen(text) != 6) return false;
    uint32_t v = 0;
    for (const char* p = text; *p; ++p) {
        const char c = *p;
        const int d = c >= '0' && c <= '9'   ? c - '0'
                      : c >= 'a' && c <= 'f' ? c - 'a' + 10
                      : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                             : -1;
        if (d < 0) return false;
        v = v * 16 + uint32_t(d);
    }
    colour = 0xFF000000u | v;
    return true;
}
