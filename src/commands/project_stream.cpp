#include "commands/project_stream.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "commands/history_log.h"
#include "commands/stream_io.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "imaging/result.h"
#include "imaging/safe_file.h"

namespace {

constexpr char kMagic[4] = {'V', 'M', 'P', 'D'};
// The stream header names its own length; anything this long is not a header of ours.
constexpr uint32_t kLongestStreamHeader = 4096;

bool LegalDocumentSide(uint32_t v) { return v >= 1 && v <= kMaxImageSide; }

// ---- writer ------------------------------------------------------------------------------------------------

bool WriteChunkHeader(FILE* f, uint8_t kind, uint32_t payload)
{
    uint8_t b[kChunkHeaderBytes] = {};
    b[0] = kind;
    vmio::PutU32(b + 4, payload);
    return vmio::WriteBytes(f, b, sizeof b);
}

bool WritePlaneChunk(FILE* f, uint8_t kind, const COLChannel& plane)
{
    // A plane without a buffer is stored as 0 x 0, whatever size it once had.
    const uint32_t w = plane.IsNull() ? 0 : plane.GetWidth(), h = plane.IsNull() ? 0 : plane.GetHeight();
    uint8_t size[8];
    vmio::PutU32(size, w);
    vmio::PutU32(size + 4, h);
    return WriteChunkHeader(f, kind, 8 + w * h) && vmio::WriteBytes(f, size, sizeof size) &&
           (plane.IsNull() || vmio::WriteBytes(f, plane.GetBuffer(), size_t(w) * h));
}

int WriteDocumentStream(const CLayerStack& doc, FILE* f)
{
    const int layers = doc.GetLayerCount(), channels = doc.GetChannelCount();
    const COLChannel& mask = doc.GetSelectionMask();
    uint8_t head[kStreamHeaderBytes] = {};
    vmio::PutU32(head, kStreamHeaderBytes);
    head[4] = kStreamVersion;
    head[5] = static_cast<uint8_t>(layers);
    head[6] = static_cast<uint8_t>(channels);
    head[7] = static_cast<uint8_t>(doc.GetCurrentIndex());
    head[8] = mask.IsNull() ? 0 : 1;
    vmio::PutU32(head + 12, static_cast<uint32_t>(doc.GetWidth()));
    vmio::PutU32(head + 16, static_cast<uint32_t>(doc.GetHeight()));
    if (!vmio::WriteBytes(f, head, sizeof head)) return 0;

    for (int i = 0; i < layers; ++i) {
        const CLayer* layer = doc.GetLayer(i);
        // The record's size fields come from the image; without pixels they would describe bytes never written.
        if (layer->m_image.IsNull()) return 0;
        uint32_t extra = 0;
        layer->GetExtraData(extra, nullptr);
        if (!WriteChunkHeader(f, kChunkLayer, layer->m_image.GetAreaByteSize() + extra + kLayerHeaderBytes))
            return 0;
        if (!layer->WriteRecord(f, 0)) return 0;
    }
    for (int i = 0; i < channels; ++i)
        if (!WritePlaneChunk(f, kChunkChannel, *doc.GetChannel(i))) return 0;
    if (!mask.IsNull() && !WritePlaneChunk(f, kChunkSelectionMask, mask)) return 0;

    std::vector<uint8_t> links(size_t(layers) * 2);
    for (int i = 0; i < layers; ++i) {
        int16_t link = -1;
        if (const COLChannel* c = doc.GetLayer(i)->m_pChannel) {
            for (int k = 0; k < channels; ++k)
                if (doc.GetChannel(k) == c) link = static_cast<int16_t>(k);
        }
        vmio::PutU16(links.data() + 2 * i, static_cast<uint16_t>(link));
    }
    return WriteChunkHeader(f, kChunkChannelLinks, static_cast<uint32_t>(links.size())) &&
                   vmio::WriteBytes(f, links.data(), links.size())
               ? 1
               : 0;
}

// ---- reader ------------------------------------------------------------------------------------------------

// Reads a plane chunk (channel or mask) of `size` payload bytes into `plane`.
bool ReadPlaneChunk(FILE* f, uint32_t size, COLChannel& plane)
{
    uint8_t dims[8];
    if (size < 8 || !vmio::ReadBytes(f, dims, sizeof dims)) return false;
    const uint32_t w = vmio::GetU32(dims), h = vmio::GetU32(dims + 4);
    if (w > kMaxImageSide || h > kMaxImageSide || uint64_t(w) * h > size - 8) return false;
    const uint64_t bytes = uint64_t(w) * h;
    if (bytes) {
        if (plane.Create(w, h) != kOk) return false;
        if (!vmio::ReadBytes(f, plane.GetBuffer(), size_t(bytes))) return false;
    }
    return vmio::SkipBytes(f, size - 8 - bytes);
}

bool ReadLayerChunk(CLayerStack& doc, FILE* f, uint32_t size, int& layerChunks, int currentByte)
{
    uint8_t h[kLayerHeaderBytes];
    if (size < kLayerHeaderBytes || !vmio::ReadBytes(f, h, sizeof h)) return false;
    const uint32_t w = vmio::GetU32(h + 44), ht = vmio::GetU32(h + 48), extraSize = vmio::GetU32(h + 52);
    if (extraSize < 4 || extraSize > size - kLayerHeaderBytes) return false;
    const uint64_t pixelBytes = uint64_t(w) * ht * 4;
    if (w > kMaxImageSide || ht > kMaxImageSide || pixelBytes > size - kLayerHeaderBytes - extraSize) return false;
    std::vector<uint8_t> extra(extraSize);
    if (!vmio::ReadBytes(f, extra.data(), extra.size())) return false;
    if (++layerChunks > kMaxLayers) return false;

    std::unique_ptr<CLayer> layer;
    const uint32_t kind = vmio::GetU32(extra.data());
    if (kind == kLayerKindRaster) {
        layer = std::make_unique<CLayer>();
    } else if (kind == kLayerKindText) {
        auto text = std::make_unique<CTextLayer>();
        if (!text->ReadExtraData(extra.data(), extra.size())) return false;
        layer = std::move(text);
    }
    if (layer) {
        layer->m_x = vmio::GetI32(h);
        layer->m_y = vmio::GetI32(h + 4);
        layer->m_visible = h[8];
        std::memcpy(layer->m_name, h + 9, kLayerNameBytes);   // the whole field, bytes after the NUL too
        if (!std::memchr(layer->m_name, 0, kLayerNameBytes)) layer->m_name[kLayerNameBytes - 1] = 0;
        layer->m_opacity = h[41];
        layer->m_blendMode = h[42];
    }
    // A picture that cannot be allocated leaves its layer out; reading goes on.
    if (layer && layer->m_image.Create(w, ht) == kOk) {
        if (!vmio::ReadBytes(f, layer->m_image.GetBuffer(), size_t(pixelBytes))) return false;
        if (!doc.InsertLayer(layer.release(), doc.GetLayerCount() - 1)) return false;
    } else if (!vmio::SkipBytes(f, pixelBytes)) {
        return false;
    }
    if (!vmio::SkipBytes(f, size - kLayerHeaderBytes - extraSize - pixelBytes)) return false;
    if (layerChunks - 1 == currentByte && doc.GetLayerCount() > 0) doc.SetCurrentIndex(doc.GetLayerCount() - 1);
    return true;
}

bool ReadChannelLinks(CLayerStack& doc, FILE* f, uint32_t size, int layerCount)
{
    // Only the words for the layers are read; a longer chunk is skipped rather than held in memory.
    const uint32_t used = std::min<uint32_t>(size, uint32_t(layerCount) * 2) & ~1u;
    uint8_t words[2 * 256];
    if (!vmio::ReadBytes(f, words, used)) return false;
    for (uint32_t i = 0; i * 2 < used; ++i) {
        const int16_t link = vmio::GetI16(words + 2 * i);
        CLayer* layer = doc.GetLayer(static_cast<int>(i));
        if (layer && link != -1) layer->m_pChannel = doc.GetChannel(link);
    }
    return vmio::SkipBytes(f, size - used);
}

int ReadDocumentStream(CLayerStack& doc, FILE* f)
{
    doc.Clear();
    uint8_t first[4];
    if (!vmio::ReadBytes(f, first, sizeof first)) return 0;
    const uint32_t headerSize = vmio::GetU32(first);
    if (headerSize < kStreamHeaderBytes || headerSize > kLongestStreamHeader) return 0;
    std::vector<uint8_t> head(headerSize);
    std::memcpy(head.data(), first, sizeof first);
    if (!vmio::ReadBytes(f, head.data() + 4, headerSize - 4)) return 0;
    const int layerCount = head[5], channelCount = head[6], currentByte = head[7];
    const uint32_t width = vmio::GetU32(head.data() + 12), height = vmio::GetU32(head.data() + 16);
    if (layerCount > kMaxLayers || channelCount > kMaxChannels || !LegalDocumentSide(width) ||
        !LegalDocumentSide(height))
        return 0;
    doc.SetSize(static_cast<int>(width), static_cast<int>(height));

    int layerChunks = 0;
    for (;;) {
        uint8_t chunk[kChunkHeaderBytes];
        if (!vmio::ReadBytes(f, chunk, sizeof chunk)) return 0;   // a stream without chunk 4 is incomplete
        const uint8_t kind = chunk[0];
        const uint32_t size = vmio::GetU32(chunk + 4);
        if (size > vmio::RemainingBytes(f)) return 0;
        switch (kind) {
        case kChunkLayer:
            if (!ReadLayerChunk(doc, f, size, layerChunks, currentByte)) return 0;
            break;
        case kChunkChannel: {
            if (doc.GetChannelCount() >= kMaxChannels) return 0;
            COLChannel* channel = doc.AddChannel();
            if (!channel || !ReadPlaneChunk(f, size, *channel)) return 0;
            break;
        }
        case kChunkSelectionMask:
            if (!ReadPlaneChunk(f, size, doc.GetSelectionMask())) return 0;
            break;
        case kChunkChannelLinks:
            return ReadChannelLinks(doc, f, size, layerCount) ? 1 : 0;
        default:
            if (!vmio::SkipBytes(f, size)) return 0;
            break;
        }
    }
}

// ---- opening -----------------------------------------------------------------------------------------------

// Moves everything a freshly read stack holds into the live document, under its lock, so that the document
// changes only once the whole file has been read.
void TakeContent(CLayerStack& to, CLayerStack& from)
{
    CStackLock lock(to);
    to.Clear();
    to.SetSize(from.GetWidth(), from.GetHeight());
    std::vector<COLChannel*> channels;
    for (int i = 0; i < from.GetChannelCount(); ++i) {
        COLChannel* c = to.AddChannel();
        if (c) *c = std::move(*from.GetChannel(i));
        channels.push_back(c);
    }
    for (int i = 0; i < from.GetLayerCount(); ++i) {
        CLayer* src = from.GetLayer(i);
        std::unique_ptr<CLayer> dst;
        if (auto* text = dynamic_cast<CTextLayer*>(src)) {
            auto copy = std::make_unique<CTextLayer>();
            copy->m_textColour = text->m_textColour;
            std::memcpy(copy->m_style, text->m_style, sizeof copy->m_style);
            std::memcpy(copy->m_fontName, text->m_fontName, sizeof copy->m_fontName);
            copy->m_attributes = text->m_attributes;
            copy->m_fontSize = text->m_fontSize;
            std::memcpy(copy->m_text, text->m_text, sizeof copy->m_text);
            dst = std::move(copy);
        } else {
            dst = std::make_unique<CLayer>();
        }
        dst->m_x = src->m_x;
        dst->m_y = src->m_y;
        std::memcpy(dst->m_name, src->m_name, kLayerNameBytes);
        dst->m_opacity = src->m_opacity;
        dst->m_blendMode = src->m_blendMode;
        dst->m_visible = src->m_visible;
        dst->m_kind = src->m_kind;
        dst->m_image = std::move(src->m_image);
        for (int k = 0; k < from.GetChannelCount(); ++k)
            if (src->m_pChannel && src->m_pChannel == from.GetChannel(k)) dst->m_pChannel = channels[size_t(k)];
        to.InsertLayer(dst.release(), to.GetLayerCount() - 1);
    }
    to.GetSelectionMask() = std::move(from.GetSelectionMask());
    to.SetCurrentIndex(from.GetCurrentIndex());
}

// The history block's counts must agree with the bytes behind them before the log is replaced by it.
bool HistoryBlockLooksWhole(FILE* f)
{
    const long here = std::ftell(f);
    uint32_t count = 0;
    int32_t current = 0;
    const bool read = vmio::ReadU32(f, count) && vmio::ReadI32(f, current);
    const uint64_t rest = vmio::RemainingBytes(f);
    std::fseek(f, here, SEEK_SET);
    return read && current >= 0 && static_cast<uint32_t>(current) <= count &&
           uint64_t(count) * kHistoryRecordBytes <= rest;
}

} // namespace

int CLayerStack::Serialize(FILE* stream, int load)
{
    if (!stream) return 0;
    return load ? ReadDocumentStream(*this, stream) : WriteDocumentStream(*this, stream);
}

bool ReadProjectHeader(FILE* stream, CProjectHeader& header)
{
    uint8_t b[kProjectHeaderBytes];
    if (!stream || !vmio::ReadBytes(stream, b, sizeof b)) return false;
    std::memcpy(header.magic, b, 4);
    header.version = b[4];
    header.historyOffset = vmio::GetU32(b + 8);
    header.historyLength = vmio::GetU32(b + 12);
    return true;
}

int SaveProject(CLayerStack& document, CComposeHistory* history, const char* path, int withHistory)
{
    uint8_t header[kProjectHeaderBytes] = {};
    std::memcpy(header, kMagic, 4);
    header[4] = kProjectVersion;
    if (document.GetLayerCount() == 0) return 1;
    if (!path) return 0;

    CSafeFileWriter out;
    if (!out.Open(path)) return 0;
    if (!out.Write(header, sizeof header) || !document.Serialize(out.Stream(), 0)) return 0;
    if (withHistory && history) {
        const long offset = out.Tell();
        if (offset < 0 || !history->SaveTo(out.Stream())) return 0;
        const long end = out.Tell();
        if (end < offset || end > 0xFFFFFFFFL) return 0;
        vmio::PutU32(header + 8, static_cast<uint32_t>(offset));
        vmio::PutU32(header + 12, static_cast<uint32_t>(end - offset));
        if (!out.Seek(0) || !out.Write(header, sizeof header)) return 0;
    }
    return out.Commit() ? 1 : 0;
}

int OpenProject(CLayerStack& document, CComposeHistory* history, const char* path)
{
    FILE* f = path ? std::fopen(path, "rb") : nullptr;
    if (!f) return 0;
    CProjectHeader header {};
    CLayerStack loaded;
    const bool whole = ReadProjectHeader(f, header) && std::memcmp(header.magic, kMagic, 4) == 0 &&
                       loaded.Serialize(f, 1) && loaded.GetLayerCount() > 0;
    const bool withHistory = header.historyLength != 0;
    if (!whole || (withHistory && history && !HistoryBlockLooksWhole(f))) {
        std::fclose(f);
        return 0;
    }
    TakeContent(document, loaded);

    int result = 1;
    if (history) {
        bool continued = false;
        if (withHistory) {
            if (history->LoadFrom(f)) {
                history->SetDocument(&document);
                history->RebuildTrackers();
                // A log without a step to stand on cannot be undone into; it starts afresh instead.
                continued = history->GetCount() > 0 && history->GetCurrentStep() > 0;
            } else {
                result = 0;
            }
        }
        if (!continued) {
            history->Reset();
            history->SetDocument(&document);
            history->AddStep(&document, kStepWholeDocument, 0, "His_open");
        }
    }
    std::fclose(f);
    return result;
}
