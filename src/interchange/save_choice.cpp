#include "interchange/save_choice.h"

#include <algorithm>
#include <cctype>

#include "document/compositor.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "interchange/psd_layered_writer.h"
#include "interchange/psd_writer.h"
#include "runtime/status.h"

namespace {

// The filters are the program's own texts, "PNG" before the PSD pattern included.
constexpr char kPngFilter[] = "PNG File(*.png)|*.png||";
constexpr char kPsdFilter[] = "PNG File(*.psd)|*.psd||";

const SaveChoiceInfo kChoices[] = {
    {ESaveChoice::kProject, ESaveWriter::kProject, ESaveSource::kDocument, "vmdoc", true, "vmpd", "", "saveerr"},
    {ESaveChoice::kCompositePng, ESaveWriter::kExportTable, ESaveSource::kComposite, kPngFilter, false, "png", "PNG...",
     "saveerr"},
    {ESaveChoice::kCompositeJpeg, ESaveWriter::kExportTable, ESaveSource::kComposite, "Jpeg File(*.jpg)|*.jpg||", false,
     "jpg", "JPEG...", "saveerr"},
    {ESaveChoice::kCompositeBmp, ESaveWriter::kExportTable, ESaveSource::kComposite, "Bitmap File(*.bmp)|*.bmp||",
     false, "bmp", "Bitmap...", "saveerr"},
    {ESaveChoice::kCompositeTiff, ESaveWriter::kExportTable, ESaveSource::kComposite, "Tiff File(*.tif)|*.tif||", false,
     "tif", "TIFF...", "saveerr"},
    {ESaveChoice::kCompositeTga, ESaveWriter::kExportTable, ESaveSource::kComposite, "TGA File(*.tga)|*.tga||", false,
     "tga", "TGA...", "saveerr"},
    {ESaveChoice::kCompositePsd, ESaveWriter::kPsdOneLayer, ESaveSource::kComposite, kPsdFilter, false, "psd", "PSD...",
     "saveerr"},
    {ESaveChoice::kLayeredPsd, ESaveWriter::kPsdLayered, ESaveSource::kDocument, kPsdFilter, false, "psd", "PSD...",
     "saveerr"},
    {ESaveChoice::kLayerPng, ESaveWriter::kExportTable, ESaveSource::kLayerPicture, kPngFilter, false, "png", "PNG...",
     "saveerr"},
    {ESaveChoice::kLayerPsd, ESaveWriter::kPsdOneLayer, ESaveSource::kLayerPicture, kPsdFilter, false, "psd", "PSD...",
     "saveerr"},
};

bool EndsWithExtension(const std::string& path, const char* extension)
{
    const std::string dotted = std::string(".") + extension;
    const size_t slash = path.find_last_of('/');
    const size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
    // ".png" alone is a hidden file's name, not a name with an extension.
    if (path.size() <= nameStart + dotted.size()) return false;
    return std::equal(dotted.rbegin(), dotted.rend(), path.rbegin(), [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    });
}

bool HasPixels(const COLImage* image)
{
    return image && !image->IsNull() && image->GetWidth() > 0 && image->GetHeight() > 0;
}

} // namespace

size_t SaveChoiceCount()
{
    return sizeof(kChoices) / sizeof(kChoices[0]);
}

const SaveChoiceInfo& GetSaveChoice(size_t index)
{
    return kChoices[std::min(index, SaveChoiceCount() - 1)];
}

const SaveChoiceInfo& DescribeSaveChoice(ESaveChoice choice)
{
    for (const SaveChoiceInfo& c : kChoices)
        if (c.choice == choice) return c;
    return kChoices[0];
}

bool IsSaveChoiceOffered(ESaveChoice choice, bool layerOnly, int currentLayerIndex)
{
    const bool layerChoice = DescribeSaveChoice(choice).source == ESaveSource::kLayerPicture;
    if (layerChoice) return layerOnly || currentLayerIndex > 0;
    return !layerOnly;
}

std::string SavePathFor(const std::string& path, ESaveChoice choice)
{
    const char* extension = DescribeSaveChoice(choice).extension;
    if (path.empty() || EndsWithExtension(path, extension)) return path;
    return path + "." + extension;
}

long WriteSaveChoice(ESaveChoice choice, const std::string& path, const SaveSources& sources,
                     const ExportOptions& options)
{
    const SaveChoiceInfo& info = DescribeSaveChoice(choice);
    if (info.choice != choice || info.writer == ESaveWriter::kProject || path.empty()) return kFail;
    const std::string target = SavePathFor(path, choice);
    const COLImage* picture = info.source == ESaveSource::kComposite ? sources.composite : sources.layerPicture;
    switch (info.writer) {
    case ESaveWriter::kExportTable:
        if (!HasPixels(picture)) return kFail;
        return ExportPicture(target, *picture, options) == EExportResult::kOk ? kOk : kFail;
    case ESaveWriter::kPsdOneLayer:
        if (!HasPixels(picture)) return kFail;
        // The composite is one picture of the whole document: it keeps the writer's own layer name.
        return SavePsd(target, *picture, info.source == ESaveSource::kLayerPicture ? sources.gbkLayerName : nullptr);
    case ESaveWriter::kPsdLayered:
        if (!sources.stack || sources.stack->GetLayerCount() < 1) return kFail;
        return WriteLayeredPsd(target, *sources.stack);
    case ESaveWriter::kProject:
        break;
    }
    return kFail;
}

bool ComposeForSave(const CLayerStack& stack, COLImage& out)
{
    COLImage picture;
    if (stack.GetLayerCount() < 1 || !MergeLayers(&stack, &picture, 0)) return false;
    const CLayer* base = stack.GetLayer(0);
    const uint32_t w = picture.GetWidth(), h = picture.GetHeight();
    if (base->m_image.GetWidth() != w || base->m_image.GetHeight() != h) return false;
    for (uint32_t y = 0; y < h; ++y) {
        const CPixel* baseRow = base->m_image.GetBuffer(0, y);
        CPixel* row = picture.GetBuffer(0, y);
        for (uint32_t x = 0; x < w; ++x) {
            uint32_t cover = baseRow[x].alpha;
            for (int i = 1; i < stack.GetLayerCount() && cover < 255; ++i) {
                const CLayer* layer = stack.GetLayer(i);
                if (!layer->m_visible || layer->m_image.IsNull()) continue;
                const int64_t lx = int64_t(x) - layer->m_x, ly = int64_t(y) - layer->m_y;
                if (lx < 0 || ly < 0 || lx >= int64_t(layer->m_image.GetWidth()) ||
                    ly >= int64_t(layer->m_image.GetHeight()))
                    continue;
                const uint32_t a = layer->m_image.GetBuffer(uint32_t(lx), uint32_t(ly))->alpha * layer->m_opacity / 255;
                cover += a * (255 - cover) / 255;
            }
            row[x].alpha = static_cast<uint8_t>(cover);
        }
    }
    out = std::move(picture);
    return true;
}

bool BuildSelectionExport(const COLImage& working, const COLChannel& plane, COLImage& out)
{
    if (working.IsNull() || !plane.GetBuffer() || plane.GetWidth() != working.GetWidth() ||
        plane.GetHeight() != working.GetHeight())
        return false;
    COLImage picture;
    if (picture.Create(working.GetWidth(), working.GetHeight()) != kOk) return false;
    const size_t n = size_t(working.GetWidth()) * working.GetHeight();
    const CPixel* src = working.GetBuffer();
    const uint8_t* alpha = plane.GetBuffer();
    CPixel* dst = picture.GetBuffer();
    for (size_t i = 0; i < n; ++i) {
        dst[i] = src[i];
        dst[i].alpha = alpha[i];
    }
    out = std::move(picture);
    return true;
}

int JpegWriterQuality(int quality, bool highColour)
{
    const int q = std::clamp(quality, 1, 100);
    return highColour ? q + 100 : q;
}
