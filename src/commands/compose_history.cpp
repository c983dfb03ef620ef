#include <algorithm>
#include <cstring>
#include <iterator>
#include <vector>

#include "commands/history_log.h"
#include "commands/history_payload.h"
#include "commands/stream_io.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "imaging/result.h"

namespace {

constexpr size_t kRegionHeaderBytes = 24;
constexpr size_t kChannelHeaderBytes = 20;
// Extra data of a layer is 4 or 1,100 bytes; a replayed header asking for much more is damaged.
constexpr uint32_t kLargestExtra = 64 * 1024;

enum ChannelOperation : uint8_t { kChannelRegion = 0, kChannelRemoved = 1, kChannelNew = 2 };

template <typename T, size_t N>
void RemoveAt(T (&items)[N], int index)
{
    if (index < 0 || size_t(index) >= N) return;
    std::rotate(items + index, items + index + 1, items + N);
    items[N - 1] = T{};
}

template <typename T, size_t N>
void InsertAt(T (&items)[N], int index)
{
    if (index < 0 || size_t(index) >= N) return;
    std::rotate(items + index, items + N - 1, items + N);
    items[index] = T{};
}

} // namespace

// ---- capture -----------------------------------------------------------------------------------------------

CComposeHistory::Follow* CComposeHistory::LayerFollow(int index)
{
    return index >= 0 && index < kTrackedPlanes ? &m_layers[index] : nullptr;
}

CComposeHistory::Follow* CComposeHistory::ChannelFollow(int index)
{
    if (index == -1) return &m_mask;
    return index >= 0 && index < kTrackedPlanes ? &m_channels[index] : nullptr;
}

void CComposeHistory::RebuildTrackers()
{
    for (Follow& f : m_layers) f = Follow{};
    for (Follow& f : m_channels) f = Follow{};
    m_mask = Follow{};
    if (!m_pDocument) return;
    for (int i = 0; i < std::min(m_pDocument->GetLayerCount(), int(kTrackedPlanes)); ++i) {
        CLayer* layer = m_pDocument->GetLayer(i);
        if (BuildTracker(m_layers[i].tracker, layer->m_image)) m_layers[i].owner = layer;
    }
    for (int i = 0; i < std::min(m_pDocument->GetChannelCount(), int(kTrackedPlanes)); ++i) {
        COLChannel* channel = m_pDocument->GetChannel(i);
        if (BuildTracker(m_channels[i].tracker, *channel)) m_channels[i].owner = channel;
    }
    COLChannel& mask = m_pDocument->GetSelectionMask();
    if (BuildTracker(m_mask.tracker, mask)) m_mask.owner = &mask;
}

void CComposeHistory::OnPayloadFailed()
{
    for (Follow& f : m_layers) f = Follow{};
    for (Follow& f : m_channels) f = Follow{};
    m_mask = Follow{};
}

int CComposeHistory::AddStep(CLayerStack* document, int kind, int arg, const char* label)
{
    // The first step of a log, and the first step for another document, store the whole document.
    if (document && document != m_pDocument) {
        m_pDocument = document;
        RebuildTrackers();
        kind = kStepWholeDocument;
    }
    if (!m_pDocument) return -1;
    const char* key = label ? label : "";
    const std::string text = m_labelSource ? m_labelSource(key) : std::string(key);
    return AppendStep(kind, arg, text.c_str(),
                      [this, arg](FILE* stream, int32_t storedKind) { return WritePayload(stream, storedKind, arg); });
}

bool CComposeHistory::WritePayload(FILE* stream, int32_t kind, int32_t arg)
{
    CLayerStack& doc = *m_pDocument;
    const int low = arg & 0xFFFF;
    switch (kind) {
    case kStepCurrentLayer:
        return vmio::WriteU32(stream, static_cast<uint32_t>(doc.GetCurrentIndex()));
    case kStepLayerHeader:
        return WriteLayerHeader(stream, low);
    case kStepLayerRegion:
        return WriteLayerRegion(stream, arg);
    case kStepLayerHeaderRegion:
        return WriteLayerHeader(stream, low) && WriteLayerRegion(stream, low);
    case kStepChannel:
        return WriteChannelRegion(stream, arg);
    case kStepRemoveLayer:
    case kStepNewLayer:
    case kStepAddChannel:
    case kStepRemoveChannel:
    case kStepMoveLayer:
        AfterStructureStep(kind, arg);
        return true;
    case kStepNewLayerWithContent:
        // The new layer sits at `low`; the layers above it moved up by one.
        InsertAt(m_layers, low);
        return vmio::WriteU32(stream, static_cast<uint32_t>(doc.GetCurrentIndex())) &&
               WriteLayerHeader(stream, low) && WriteLayerRegion(stream, low);
    case kStepWholeDocument:
        doc.TrimAllLayers();   // a failed trim leaves layers whole, which stores fine
        if (!doc.Serialize(stream, 0)) return false;
        RebuildTrackers();
        return true;
    default:
        return false;
    }
}

void CComposeHistory::AfterStructureStep(int32_t kind, int32_t arg)
{
    // Trackers are kept by index: they follow the layers and channels as they move.
    const int low = arg & 0xFFFF;
    switch (kind) {
    case kStepRemoveLayer:
        RemoveAt(m_layers, arg);
        break;
    case kStepNewLayer:
        InsertAt(m_layers, low + 1);
        if (Follow* f = LayerFollow(low + 1); f && m_pDocument->GetLayer(low + 1)) {
            CLayer* layer = m_pDocument->GetLayer(low + 1);
            if (BuildTracker(f->tracker, layer->m_image)) f->owner = layer;
        }
        break;
    case kStepAddChannel:
        if (Follow* f = ChannelFollow(m_pDocument->GetChannelCount() - 1)) *f = Follow{};
        break;
    case kStepRemoveChannel:
        RemoveAt(m_channels, arg);
        break;
    case kStepMoveLayer: {
        const int from = low, to = (arg >> 16) & 0xFFFF;
        if (from < kTrackedPlanes && to < kTrackedPlanes) {
            Follow moving = std::move(m_layers[from]);
            RemoveAt(m_layers, from);
            InsertAt(m_layers, to);
            m_layers[to] = std::move(moving);
        }
        break;
    }
    default:
        break;
    }
}

bool CComposeHistory::WriteLayerHeader(FILE* stream, int index)
{
    const CLayer* layer = m_pDocument->GetLayer(index);
    if (!layer) return false;
    uint8_t header[kLayerHeaderBytes];
    layer->BuildHeader(header);
    uint32_t size = 0;
    std::vector<uint8_t> extra;
    layer->GetExtraData(size, &extra);
    return vmio::WriteBytes(stream, header, sizeof header) && (size == 0 || vmio::WriteBytes(stream, extra.data(), size));
}

bool CComposeHistory::WriteLayerRegion(FILE* stream, int index)
{
    CLayer* layer = m_pDocument->GetLayer(index);
    if (!layer || layer->m_image.IsNull()) return false;
    const COLImage& image = layer->m_image;
    CChangeRect rect = vmhist::WholeRect(image.GetWidth(), image.GetHeight());
    bool full = true;
    if (Follow* f = LayerFollow(index)) {
        if (f->tracker.IsValid() && f->owner == layer) {
            const CChangeRect changed = TrackChanges(f->tracker, image);
            full = changed.IsSizeChange();
            if (!full) rect = changed;
        } else {
            f->owner = BuildTracker(f->tracker, image) ? layer : nullptr;
        }
    }
    // Layers beyond the followed ones have no tracker and are always stored whole.
    uint8_t head[kRegionHeaderBytes];
    vmio::PutI32(head, index);
    vmio::PutI32(head + 4, rect.left);
    vmio::PutI32(head + 8, rect.top);
    vmio::PutI32(head + 12, rect.right);
    vmio::PutI32(head + 16, rect.bottom);
    vmio::PutI32(head + 20, full ? 1 : 0);
    return vmio::WriteBytes(stream, head, sizeof head) && vmhist::WriteRows(stream, image, rect);
}

bool CComposeHistory::WriteChannelRegion(FILE* stream, int index)
{
    COLChannel* plane = index == -1 ? &m_pDocument->GetSelectionMask() : m_pDocument->GetChannel(index);
    if (!plane) return false;
    Follow* f = ChannelFollow(index);
    uint8_t op = kChannelRegion;
    CChangeRect rect;
    if (plane->IsNull()) {
        op = kChannelRemoved;
        if (f) *f = Follow{};
    } else if (f && f->tracker.IsValid() && f->owner == plane) {
        rect = TrackChanges(f->tracker, *plane);
        if (rect.IsSizeChange()) {
            rect = vmhist::WholeRect(plane->GetWidth(), plane->GetHeight());
            // A mask of another size is made anew on replay rather than written into the old one.
            if (index == -1) op = kChannelNew;
        }
    } else {
        op = kChannelNew;
        rect = vmhist::WholeRect(plane->GetWidth(), plane->GetHeight());
        if (f) f->owner = BuildTracker(f->tracker, *plane) ? plane : nullptr;
    }
    uint8_t head[kChannelHeaderBytes] = {};
    head[0] = static_cast<uint8_t>(static_cast<int8_t>(index));
    head[1] = op;
    vmio::PutI32(head + 4, rect.left);
    vmio::PutI32(head + 8, rect.top);
    vmio::PutI32(head + 12, rect.right);
    vmio::PutI32(head + 16, rect.bottom);
    if (!vmio::WriteBytes(stream, head, sizeof head)) return false;
    return op == kChannelRemoved || vmhist::WriteRows(stream, *plane, rect);
}

// ---- replay ------------------------------------------------------------------------------------------------

int CComposeHistory::ApplyRecord(CHistoryRecord record, FILE* stream)
{
    if (!m_pDocument || !stream) return 0;
    CLayerStack& doc = *m_pDocument;
    const int arg = record.arg, low = arg & 0xFFFF, high = (arg >> 16) & 0xFFFF;
    switch (record.kind) {
    case kStepCurrentLayer: {
        int32_t index = 0;
        if (!vmio::ReadI32(stream, index)) return 0;
        doc.SetCurrentIndex(index);
        return 1;
    }
    case kStepLayerHeader:
        return ApplyLayerHeader(stream, low);
    case kStepLayerRegion:
        return ApplyLayerRegion(stream, arg);
    case kStepLayerHeaderRegion:
        return ApplyLayerHeader(stream, low) && ApplyLayerRegion(stream, low);
    case kStepChannel:
        return ApplyChannelRegion(stream, arg);
    case kStepRemoveLayer:
        if (!doc.GetLayer(arg)) return 0;
        doc.RemoveLayer(arg);
        return 1;
    case kStepNewLayer:
        if (!doc.GetLayer(low)) return 0;
        return doc.AddLayer(low, high) ? 1 : 0;
    case kStepAddChannel:
        return doc.AddChannel() ? 1 : 0;
    case kStepRemoveChannel: {
        COLChannel* channel = doc.GetChannel(arg);
        if (!channel) return 0;
        doc.RemoveChannel(channel);
        return 1;
    }
    case kStepNewLayerWithContent: {
        int32_t current = 0;
        if (!vmio::ReadI32(stream, current) || !doc.GetLayer(low - 1) || !doc.AddLayer(low - 1, high)) return 0;
        if (!ApplyLayerHeader(stream, low) || !ApplyLayerRegion(stream, low)) return 0;
        doc.SetCurrentIndex(current);
        return 1;
    }
    case kStepMoveLayer:
        return doc.GetLayer(low) && doc.GetLayer(high) && doc.MoveLayer(low, high) ? 1 : 0;
    case kStepWholeDocument:
        return ApplySnapshot(stream);
    default:
        return 0;
    }
}

int CComposeHistory::ApplyLayerHeader(FILE* stream, int index)
{
    uint8_t h[kLayerHeaderBytes];
    if (!vmio::ReadBytes(stream, h, sizeof h)) return 0;
    const uint32_t extraSize = vmio::GetU32(h + 52);
    if (extraSize > kLargestExtra) return 0;
    std::vector<uint8_t> extra(extraSize);
    if (!vmio::ReadBytes(stream, extra.data(), extra.size())) return 0;
    CLayer* layer = m_pDocument->GetLayer(index);
    if (!layer) return 0;
    CStackLock lock(*m_pDocument);
    layer->m_x = vmio::GetI32(h);
    layer->m_y = vmio::GetI32(h + 4);
    layer->m_visible = h[8];
    std::memcpy(layer->m_name, h + 9, kLayerNameBytes);
    if (!std::memchr(layer->m_name, 0, kLayerNameBytes)) layer->m_name[kLayerNameBytes - 1] = 0;
    layer->m_opacity = h[41];
    layer->m_blendMode = h[42];
    if (extraSize >= 4 && vmio::GetU32(extra.data()) == kLayerKindText)
        if (auto* text = dynamic_cast<CTextLayer*>(layer)) text->ReadExtraData(extra.data(), extra.size());
    return 1;
}

int CComposeHistory::ApplyLayerRegion(FILE* stream, int index)
{
    uint8_t h[kRegionHeaderBytes];
    if (!vmio::ReadBytes(stream, h, sizeof h)) return 0;
    const CChangeRect rect{vmio::GetI32(h + 4), vmio::GetI32(h + 8), vmio::GetI32(h + 12), vmio::GetI32(h + 16)};
    const bool full = vmio::GetI32(h + 20) != 0;
    CLayer* layer = m_pDocument->GetLayer(index);
    if (vmio::GetI32(h) != index || !layer) return 0;
    {
        // The lock is released on every way out, a failed read included.
        CStackLock lock(*m_pDocument);
        COLImage& image = layer->m_image;
        if (full) {
            if (!vmhist::PlausibleRect(rect, 4, stream)) return 0;
            const uint32_t w = uint32_t(rect.right - rect.left), ht = uint32_t(rect.bottom - rect.top);
            if ((image.IsNull() || image.GetWidth() != w || image.GetHeight() != ht) && image.Create(w, ht) != kOk)
                return 0;
            if (!vmio::ReadBytes(stream, image.GetBuffer(), size_t(w) * ht * 4)) return 0;
        } else {
            if (image.IsNull() || !vmhist::RectInside(rect, image.GetWidth(), image.GetHeight())) return 0;
            if (!vmhist::ReadRows(stream, image, rect)) return 0;
        }
    }
    if (index == 0) m_pDocument->SyncSizeToBase();
    return 1;
}

int CComposeHistory::ApplyChannelRegion(FILE* stream, int index)
{
    uint8_t h[kChannelHeaderBytes];
    if (!vmio::ReadBytes(stream, h, sizeof h)) return 0;
    const int stored = static_cast<int8_t>(h[0]);
    const uint8_t op = h[1];
    const CChangeRect rect{vmio::GetI32(h + 4), vmio::GetI32(h + 8), vmio::GetI32(h + 12), vmio::GetI32(h + 16)};
    if (stored != index) return 0;
    CLayerStack& doc = *m_pDocument;
    CStackLock lock(doc);
    COLChannel* target = nullptr;
    switch (op) {
    case kChannelRemoved:
        if (index == -1) {
            doc.GetSelectionMask().Free();
        } else {
            COLChannel* channel = doc.GetChannel(index);
            if (!channel) return 0;
            doc.RemoveChannel(channel);
        }
        return 1;
    case kChannelNew:
        if (index == -1) target = &doc.GetSelectionMask();
        else if (index == doc.GetChannelCount()) target = doc.AddChannel();
        else target = doc.GetChannel(index);
        if (!target || rect.left != 0 || rect.top != 0 || !vmhist::PlausibleRect(rect, 1, stream)) return 0;
        if (target->Create(uint32_t(rect.right), uint32_t(rect.bottom)) != kOk) return 0;
        break;
    case kChannelRegion: {
        target = index == -1 ? &doc.GetSelectionMask() : doc.GetChannel(index);
        if (!target) return 0;
        if (target->IsNull()) {
            const CLayer* base = doc.GetLayer(0);
            if (!base || base->m_image.IsNull()) return 0;
            if (target->Create(base->m_image.GetWidth(), base->m_image.GetHeight()) != kOk) return 0;
            std::memset(target->GetBuffer(), 0, target->GetAreaByteSize());
        }
        if (!vmhist::RectInside(rect, target->GetWidth(), target->GetHeight())) {
            // A whole plane stored after a change of size takes that size.
            if (rect.left != 0 || rect.top != 0 || !vmhist::PlausibleRect(rect, 1, stream)) return 0;
            if (target->Create(uint32_t(rect.right), uint32_t(rect.bottom)) != kOk) return 0;
        }
        break;
    }
    default:
        return 1;
    }
    return vmhist::ReadRows(stream, *target, rect) ? 1 : 0;
}

int CComposeHistory::ApplySnapshot(FILE* stream)
{
    CStackLock lock(*m_pDocument);
    return m_pDocument->Serialize(stream, 1);
}
