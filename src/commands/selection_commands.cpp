#include "commands/selection_commands.h"

#include <cstring>

#include "commands/command.h"
#include "commands/history_sink.h"
#include "document/compose_document.h"
#include "document/layer.h"

namespace {

void Record(CCommandContext& context, int kind, int arg, const char* label)
{
    if (context.history) context.history->AddStep(context.document, kind, arg, label);
}

// The mask at document size, created when missing or of another size; false when memory runs out.
bool EnsureMask(CComposeDocument& doc, bool& created)
{
    COLChannel& mask = doc.GetSelectionMask();
    created =
        mask.IsNull() || mask.GetWidth() != uint32_t(doc.GetWidth()) || mask.GetHeight() != uint32_t(doc.GetHeight());
    if (!created) return true;
    return mask.Create(uint32_t(doc.GetWidth()), uint32_t(doc.GetHeight())) == kOk;
}

uint8_t Mix(uint32_t a, uint32_t b, uint32_t m)
{
    return static_cast<uint8_t>((a * m + (255 - m) * b) / 255);
}

} // namespace

bool SelectAll(CCommandContext& context)
{
    CComposeDocument* doc = context.document;
    if (!doc || doc->GetLayerCount() == 0) return false;
    {
        CStackLock lock(*doc);
        bool created = false;
        if (!EnsureMask(*doc, created)) return false;
        COLChannel& mask = doc->GetSelectionMask();
        std::memset(mask.GetBuffer(), 255, mask.GetAreaByteSize());
    }
    doc->Refresh();
    Record(context, kStepChannel, -1, "His_select");
    return true;
}

bool SelectNone(CCommandContext& context)
{
    CComposeDocument* doc = context.document;
    if (!doc || doc->GetLayerCount() == 0 || doc->GetSelectionMask().IsNull()) return false;
    {
        CStackLock lock(*doc);
        doc->GetSelectionMask().Free();
    }
    doc->Refresh();
    Record(context, kStepChannel, -1, "His_selectnone");
    return true;
}

bool SelectInverse(CCommandContext& context)
{
    CComposeDocument* doc = context.document;
    if (!doc || doc->GetLayerCount() == 0) return false;
    {
        CStackLock lock(*doc);
        bool created = false;
        if (!EnsureMask(*doc, created)) return false;
        COLChannel& mask = doc->GetSelectionMask();
        uint8_t* p = mask.GetBuffer();
        const uint32_t n = mask.GetAreaByteSize();
        if (created) std::memset(p, 0, n); // a new mask's content counts as nothing selected
        bool anySelectedAfter = false;
        for (uint32_t i = 0; i < n; ++i) {
            p[i] = static_cast<uint8_t>(255 - p[i]);
            anySelectedAfter |= p[i] != 0;
        }
        if (!anySelectedAfter) mask.Free();
    }
    doc->Refresh();
    Record(context, kStepChannel, -1, "His_select");
    return true;
}

bool DeleteSelection(CCommandContext& context, bool inverse, const char* label)
{
    CComposeDocument* doc = context.document;
    if (!doc) return false;
    CLayer* layer = doc->GetCurrentLayer();
    if (!layer) return false;
    const COLChannel& mask = doc->GetSelectionMask();
    if (mask.IsNull()) return true;
    const CPixel fg = CPixel::FromWord(context.foreground);
    {
        CStackLock lock(*doc);
        COLImage& image = layer->m_image;
        const long long mw = mask.GetWidth(), mh = mask.GetHeight();
        const bool isBase = doc->GetCurrentIndex() == 0;
        for (uint32_t j = 0; j < image.GetHeight(); ++j) {
            CPixel* row = image.GetBuffer(0, j);
            for (uint32_t i = 0; i < image.GetWidth(); ++i) {
                CPixel& p = row[i];
                // The base lies at the origin; other layers at their position. Outside the mask nothing is
                // selected.
                const long long x = isBase ? i : layer->m_x + static_cast<long long>(i);
                const long long y = isBase ? j : layer->m_y + static_cast<long long>(j);
                const bool inside = x >= 0 && y >= 0 && x < mw && y < mh;
                const uint32_t m = inside ? mask.GetValue(uint32_t(x), uint32_t(y)) : 0;
                if (isBase) {
                    // The base stays opaque: it is painted with the foreground colour instead.
                    if (!inverse && m) {
                        p.red = Mix(fg.red, p.red, m);
                        p.green = Mix(fg.green, p.green, m);
                        p.blue = Mix(fg.blue, p.blue, m);
                    } else if (inverse) {
                        p.red = Mix(p.red, fg.red, m);
                        p.green = Mix(p.green, fg.green, m);
                        p.blue = Mix(p.blue, fg.blue, m);
                    }
                } else if (!inverse) {
                    if (inside) p.alpha = static_cast<uint8_t>((255 - m) * p.alpha / 255);
                } else {
                    p.alpha = inside ? static_cast<uint8_t>(p.alpha * m / 255) : 0;
                }
            }
        }
    }
    doc->Refresh();
    Record(context, kStepLayerRegion, doc->GetCurrentIndex(), label);
    return true;
}
