#include "document/layer_stack.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "document/compositor.h"
#include "document/layer.h"
#include "imaging/codec.h"
#include "imaging/gbk_text.h"
#include "imaging/image.h"
#include "interchange/psd_reader.h"

namespace {

bool LegalSide(int v) { return v >= 1 && v <= static_cast<int>(kMaxImageSide); }

void FillWords(COLImage& image, uint32_t word)
{
    const CPixel p = CPixel::FromWord(word);
    CPixel* b = image.GetBuffer();
    const size_t n = image.GetPixelCount();
    for (size_t i = 0; i < n; ++i) b[i] = p;
}

bool Inside(const COLImage& image, long long x, long long y)
{
    return !image.IsNull() && x >= 0 && y >= 0 && x < image.GetWidth() && y < image.GetHeight();
}

} // namespace

CLayerStack::~CLayerStack() { Clear(); }

int CLayerStack::Refresh() { return static_cast<int>(++m_modificationCount); }

// Serialize, the document stream of project files and history snapshots, lives in commands/project_stream.cpp.

void CLayerStack::Lock(int) {}

CLayer* CLayerStack::GetLayer(int index) const
{
    if (index < 0 || index >= GetLayerCount()) return nullptr;
    return m_layers[static_cast<size_t>(index)];
}

CLayer* CLayerStack::GetCurrentLayer() const { return GetLayer(m_currentLayer); }

int CLayerStack::IndexOfLayer(const CLayer* layer) const
{
    for (int i = 0; i < GetLayerCount(); ++i)
        if (m_layers[static_cast<size_t>(i)] == layer) return i;
    return -1;
}

int CLayerStack::IndexOfImage(const COLImage* image) const
{
    for (int i = 0; i < GetLayerCount(); ++i)
        if (&m_layers[static_cast<size_t>(i)]->m_image == image) return i;
    return -1;
}

CRect CLayerStack::GetLayerRect(const CLayer* layer) const
{
    if (!layer) return CRect{};
    if (layer->m_image.IsNull()) return CRect{layer->m_x, layer->m_y, layer->m_x, layer->m_y};
    return CRect{layer->m_x, layer->m_y, layer->m_x + static_cast<int>(layer->m_image.GetWidth()),
                 layer->m_y + static_cast<int>(layer->m_image.GetHeight())};
}

void CLayerStack::MakeDefaultName(char* name) const
{
    std::memset(name, 0, kLayerNameBytes);
    if (m_layers.empty()) {
        if (m_backgroundName.empty())
            std::memcpy(name, kBackgroundLayerName, sizeof kBackgroundLayerName);
        else
            CopyGbkField(name, kLayerNameBytes, m_backgroundName);
    } else if (m_layerPattern.empty()) {
        std::snprintf(name, kLayerNameBytes, kLayerNameFormat, GetLayerCount());
    } else {
        // The pattern is a text, not a format: only its first "%d" is replaced.
        std::string text = m_layerPattern;
        const size_t at = text.find("%d");
        if (at != std::string::npos) text.replace(at, 2, std::to_string(GetLayerCount()));
        CopyGbkField(name, kLayerNameBytes, text);
    }
}

void CLayerStack::SetDefaultNames(const std::string& background, const std::string& layerPattern)
{
    m_backgroundName = background;
    m_layerPattern = layerPattern;
}

CLayer* CLayerStack::AddLayer(int afterIndex, int kind)
{
    if (!m_layers.empty() && (afterIndex < 0 || afterIndex >= GetLayerCount())) return nullptr;
    if (GetLayerCount() >= kMaxLayers || !LegalSide(m_width) || !LegalSide(m_height)) return nullptr;
    std::unique_ptr<CLayer> layer;
    if (kind == kLayerKindRaster)
        layer = std::make_unique<CLayer>();
    else if (kind == kLayerKindText)
        layer = std::make_unique<CTextLayer>();
    else
        return nullptr;
    if (layer->m_image.Create(static_cast<uint32_t>(m_width), static_cast<uint32_t>(m_height)) != kOk) return nullptr;
    MakeDefaultName(layer->m_name);
    std::memset(layer->m_image.GetBuffer(), 0, layer->m_image.GetAreaByteSize());
    CLayer* raw = layer.release();
    CStackLock lock(*this);
    m_layers.insert(m_layers.begin() + (m_layers.empty() ? 0 : afterIndex + 1), raw);
    return raw;
}

bool CLayerStack::InsertLayer(CLayer* layer, int afterIndex)
{
    if (!layer) return false;
    if (GetLayerCount() >= kMaxLayers || afterIndex < -1 || afterIndex >= GetLayerCount()) {
        delete layer;
        return false;
    }
    CStackLock lock(*this);
    m_layers.insert(m_layers.begin() + (afterIndex + 1), layer);
    return true;
}

int CLayerStack::DuplicateLayer(int index)
{
    const CLayer* source = GetLayer(index);
    if (!source || GetLayerCount() >= kMaxLayers) return 0;
    auto copy = std::make_unique<CLayer>();   // a text layer's copy is a plain raster layer
    if (!copy->m_image.DuplicateFrom(&source->m_image)) return 0;
    copy->m_x = source->m_x;
    copy->m_y = source->m_y;
    copy->m_pChannel = source->m_pChannel;
    copy->m_opacity = source->m_opacity;
    copy->m_blendMode = source->m_blendMode;
    MakeDefaultName(copy->m_name);
    return InsertLayer(copy.release(), index) ? 1 : 0;
}

void CLayerStack::RemoveLayer(int index)
{
    if (index < 0 || index >= GetLayerCount()) return;
    CStackLock lock(*this);
    delete m_layers[static_cast<size_t>(index)];
    m_layers.erase(m_layers.begin() + index);
    if (m_currentLayer >= index) --m_currentLayer;
}

void CLayerStack::RemoveLayerPtr(CLayer* layer) { RemoveLayer(IndexOfLayer(layer)); }

bool CLayerStack::MoveLayer(int from, int to)
{
    const int count = GetLayerCount();
    if (from < 0 || from >= count || to < 0 || to >= count) return false;
    CStackLock lock(*this);
    CLayer* moving = m_layers[static_cast<size_t>(from)];
    m_layers.erase(m_layers.begin() + from);
    m_layers.insert(m_layers.begin() + to, moving);
    return true;
}

int CLayerStack::MergeDown(int index)
{
    if (index < 1 || index >= GetLayerCount()) return 1;
    const CLayer* upper = m_layers[static_cast<size_t>(index)];
    const CLayer* lower = m_layers[static_cast<size_t>(index - 1)];
    // The base is composited at the origin whatever its position says, so it is merged as seen there.
    const long long lx = index == 1 ? 0 : lower->m_x, ly = index == 1 ? 0 : lower->m_y;
    const long long ux = upper->m_x, uy = upper->m_y;

    auto shifted = [](CRect box, long long x, long long y) {
        return CRect{static_cast<int>(box.left + x), static_cast<int>(box.top + y), static_cast<int>(box.right + x),
                     static_cast<int>(box.bottom + y)};
    };
    CRect rect;
    if (index == 1) {
        rect = CRect{0, 0, static_cast<int>(lower->m_image.GetWidth()), static_cast<int>(lower->m_image.GetHeight())};
    } else {
        // Union of the two content boxes; a box without content takes no part. Two empty layers merge into a
        // single transparent pixel at the lower layer's place.
        const CRect boxU = upper->GetContentBox(), boxL = lower->GetContentBox();
        const bool hasU = !boxU.IsEmpty(), hasL = !boxL.IsEmpty();
        if (hasU && hasL) {
            const CRect a = shifted(boxU, ux, uy), b = shifted(boxL, lx, ly);
            rect = CRect{std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.right),
                         std::max(a.bottom, b.bottom)};
        } else if (hasU) {
            rect = shifted(boxU, ux, uy);
        } else if (hasL) {
            rect = shifted(boxL, lx, ly);
        } else {
            const int x = static_cast<int>(lx), y = static_cast<int>(ly);
            rect = CRect{x, y, x + 1, y + 1};
        }
    }
    if (rect.IsEmpty() || !LegalSide(rect.Width()) || !LegalSide(rect.Height())) return 0;

    auto merged = std::make_unique<CLayer>();
    if (merged->m_image.Create(static_cast<uint32_t>(rect.Width()), static_cast<uint32_t>(rect.Height())) != kOk)
        return 0;
    std::memcpy(merged->m_name, lower->m_name, kLayerNameBytes);
    merged->m_opacity = lower->m_opacity;
    merged->m_blendMode = lower->m_blendMode;
    merged->m_x = rect.left;
    merged->m_y = rect.top;

    const uint32_t uOpacity = upper->m_opacity, lOpacity = lower->m_opacity;
    for (int y = rect.top; y < rect.bottom; ++y) {
        CPixel* out = merged->m_image.GetBuffer(0, static_cast<uint32_t>(y - rect.top));
        for (int x = rect.left; x < rect.right; ++x, ++out) {
            const bool inU = Inside(upper->m_image, x - ux, y - uy);
            const bool inL = Inside(lower->m_image, x - lx, y - ly);
            if (!inU && !inL) {
                *out = CPixel{0, 0, 0, 0};
                continue;
            }
            const CPixel pl =
                inL ? lower->m_image.GetPixel2(static_cast<uint32_t>(x - lx), static_cast<uint32_t>(y - ly)) : CPixel{};
            const CPixel pu =
                inU ? upper->m_image.GetPixel2(static_cast<uint32_t>(x - ux), static_cast<uint32_t>(y - uy)) : CPixel{};
            if (!inU) {
                *out = pl;
                continue;
            }
            if (!inL) {
                *out = pu;   // the upper layer's opacity is not applied where nothing lies below
                continue;
            }
            CPixel res = pl;
            BlendPixel(pl, pu, &res, upper->m_blendMode);
            const uint32_t a = uOpacity * pu.alpha / 255;
            if (a == 0) {
                *out = pl;
                continue;
            }
            const uint32_t b = lOpacity * pl.alpha / 255;
            const uint32_t A = (b * (255 - a) + 255 * a) / 255;
            const uint32_t w = 255 * a / A;
            out->blue = static_cast<uint8_t>((res.blue * w + pl.blue * (255 - w) + 127) / 255);
            out->green = static_cast<uint8_t>((res.green * w + pl.green * (255 - w) + 127) / 255);
            out->red = static_cast<uint8_t>((res.red * w + pl.red * (255 - w) + 127) / 255);
            out->alpha = static_cast<uint8_t>(A);
        }
    }

    CStackLock lock(*this);
    delete m_layers[static_cast<size_t>(index)];
    delete m_layers[static_cast<size_t>(index - 1)];
    m_layers.erase(m_layers.begin() + index);
    m_layers[static_cast<size_t>(index - 1)] = merged.release();
    return 1;
}

int CLayerStack::FlattenAll()
{
    if (m_layers.empty()) return 0;
    auto flat = std::make_unique<CLayer>();
    if (!MergeLayers(this, &flat->m_image, 0)) return 0;
    // The merge leaves alpha as allocated; a base is drawn opaque anyway, so make it say so.
    CPixel* p = flat->m_image.GetBuffer();
    for (size_t i = 0, n = flat->m_image.GetPixelCount(); i < n; ++i) p[i].alpha = 255;
    MakeDefaultName(flat->m_name);
    CStackLock lock(*this);
    Clear();
    m_width = static_cast<int>(flat->m_image.GetWidth());
    m_height = static_cast<int>(flat->m_image.GetHeight());
    m_layers.push_back(flat.release());
    return 1;
}

int CLayerStack::TrimAllLayers()
{
    CStackLock lock(*this);
    for (int i = 1; i < GetLayerCount(); ++i)
        if (!m_layers[static_cast<size_t>(i)]->TrimToContent()) return 0;
    return 1;
}

int CLayerStack::ResizeCanvas(int width, int height, uint32_t fill, int hAnchor, int vAnchor)
{
    if (!LegalSide(width) || !LegalSide(height)) return 0;
    if (hAnchor < 0 || hAnchor > 2 || vAnchor < 0 || vAnchor > 2) return 0;
    auto offset = [](int anchor, int grown) { return anchor == 0 ? 0 : anchor == 1 ? grown / 2 : grown; };
    return ChangeCanvas(width, height, offset(hAnchor, width - m_width), offset(vAnchor, height - m_height), fill);
}

int CLayerStack::ChangeCanvas(int width, int height, int dx, int dy, uint32_t fill)
{
    if (!LegalSide(width) || !LegalSide(height) || m_layers.empty()) return 0;
    const COLImage& old = m_layers[0]->m_image;
    COLImage canvas;
    if (canvas.Create(static_cast<uint32_t>(width), static_cast<uint32_t>(height)) != kOk) return 0;
    FillWords(canvas, fill);
    for (int y = 0; y < height; ++y) {
        const long long sy = static_cast<long long>(y) - dy;
        if (!Inside(old, 0, sy)) continue;
        const long long x0 = std::max(0LL, static_cast<long long>(dx));
        const long long x1 = std::min<long long>(width, static_cast<long long>(old.GetWidth()) + dx);
        if (x0 >= x1) continue;
        std::memcpy(canvas.GetBuffer(static_cast<uint32_t>(x0), static_cast<uint32_t>(y)),
                    old.GetBuffer(static_cast<uint32_t>(x0 - dx), static_cast<uint32_t>(sy)), size_t(x1 - x0) * 4);
    }
    CStackLock lock(*this);
    m_layers[0]->m_image = std::move(canvas);
    m_selectionMask.Free();
    for (size_t i = 1; i < m_layers.size(); ++i) {
        m_layers[i]->m_x += dx;
        m_layers[i]->m_y += dy;
    }
    m_width = width;
    m_height = height;
    return 1;
}

int CLayerStack::NewDocument(int width, int height, uint32_t fill)
{
    if (!LegalSide(width) || !LegalSide(height) || GetLayerCount() >= kMaxLayers) return 0;
    auto layer = std::make_unique<CLayer>();
    if (layer->m_image.Create(static_cast<uint32_t>(width), static_cast<uint32_t>(height)) != kOk) return 0;
    FillWords(layer->m_image, fill);
    MakeDefaultName(layer->m_name);
    CStackLock lock(*this);
    m_layers.push_back(layer.release());
    m_width = width;
    m_height = height;
    return 1;
}

int CLayerStack::OpenFile(const char* path)
{
    const uint32_t type = COLImageCodec::GetFileType(path);
    if (type == kFilePsd) {
        // Read aside first: a damaged document leaves the open one as it was.
        CLayerStack loaded;
        CPsdReader reader;
        if (!reader.LoadFile(path, loaded)) return 0;
        CStackLock lock(*this);
        Clear();
        m_layers.swap(loaded.m_layers);
        m_channels.swap(loaded.m_channels);
        m_width = loaded.m_width;
        m_height = loaded.m_height;
        m_currentLayer = 0;
        return 1;
    }
    // Projects have a reader of their own (OpenProject).
    if (type == kFileUnusable || type == kFileProject) return 0;
    // The picture is read aside first, as a PSD is: a damaged or too-large file leaves the open document as it
    // was, so a mistaken open never costs the user their work.
    auto layer = std::make_unique<CLayer>();
    if (!COLImageCodec().LoadFile(path, &layer->m_image)) return 0;
    CStackLock lock(*this);
    Clear();
    MakeDefaultName(layer->m_name);
    m_width = static_cast<int>(layer->m_image.GetWidth());
    m_height = static_cast<int>(layer->m_image.GetHeight());
    m_layers.push_back(layer.release());
    m_currentLayer = 0;
    return 1;
}

int CLayerStack::LoadLayerFile(const char* path, int index, int* loadedIndex)
{
    CLayer* target = GetLayer(index);
    if (!target) return 0;
    bool hasContent = index == 0;
    if (!hasContent && !target->m_image.IsNull()) {
        const CPixel* p = target->m_image.GetBuffer();
        for (size_t i = 0, n = target->m_image.GetPixelCount(); i < n; ++i)
            if (p[i].alpha) {
                hasContent = true;
                break;
            }
    }
    if (hasContent) {
        if (GetLayerCount() >= kMaxLayers) return 0;
        auto layer = std::make_unique<CLayer>();
        MakeDefaultName(layer->m_name);
        if (!COLImageCodec().LoadFile(path, &layer->m_image)) return 0;
        if (!InsertLayer(layer.release(), index)) return 0;
        if (loadedIndex) *loadedIndex = index + 1;
        return 1;
    }
    // A wholly transparent upper layer takes the picture itself. Loaded aside first so a failure keeps it.
    COLImage picture;
    if (!COLImageCodec().LoadFile(path, &picture)) return 0;
    {
        CStackLock lock(*this);
        target->m_image = std::move(picture);
    }
    if (loadedIndex) *loadedIndex = index;
    return 1;
}

COLChannel* CLayerStack::GetChannel(int index) const
{
    if (index < 0 || index >= GetChannelCount()) return nullptr;
    return m_channels[static_cast<size_t>(index)];
}

COLChannel* CLayerStack::AddChannel()
{
    if (GetChannelCount() >= kMaxChannels) return nullptr;
    auto channel = std::make_unique<COLChannel>();
    CStackLock lock(*this);
    m_channels.push_back(channel.get());
    return channel.release();
}

void CLayerStack::RemoveChannel(COLChannel* channel)
{
    auto it = std::find(m_channels.begin(), m_channels.end(), channel);
    if (it == m_channels.end()) return;
    CStackLock lock(*this);
    // Layers linked to it lose the link rather than keep a dangling one.
    for (CLayer* layer : m_layers)
        if (layer->m_pChannel == channel) layer->m_pChannel = nullptr;
    delete *it;
    m_channels.erase(it);
}

void CLayerStack::Clear()
{
    CStackLock lock(*this);
    for (CLayer* layer : m_layers) delete layer;
    m_layers.clear();
    for (COLChannel* channel : m_channels) delete channel;
    m_channels.clear();
    m_selectionMask.Free();
    m_currentLayer = 0;
}

int CLayerStack::LoadFromPath(const char* path)
{
    FILE* f = path ? std::fopen(path, "rb") : nullptr;
    if (!f) return 0;
    int result;
    {
        CStackLock lock(*this);
        result = Serialize(f, 1);
    }
    std::fclose(f);
    return result;
}

void CLayerStack::SyncSizeToBase()
{
    const CLayer* base = GetLayer(0);
    if (!base || base->m_image.IsNull()) return;
    SetSize(static_cast<int>(base->m_image.GetWidth()), static_cast<int>(base->m_image.GetHeight()));
}

void CLayerStack::SetSize(int width, int height)
{
    CStackLock lock(*this);
    m_width = width;
    m_height = height;
}

uint32_t CLayerStack::HitTest(int x, int y) const
{
    uint32_t bits = 0;
    for (int i = 0; i < GetLayerCount(); ++i) {
        const CLayer* layer = m_layers[static_cast<size_t>(i)];
        if (layer->m_visible && GetLayerRect(layer).Contains(x, y)) bits |= 1u << (i % 32);
    }
    return bits;
}
