#include "cli/psd_cli.h"

#include <cctype>
#include <cstdio>

#include "cli/cli.h"
#include "commands/project_stream.h"
#include "document/compositor.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/codec.h"
#include "imaging/gbk_text.h"
#include "imaging/image.h"
#include "interchange/psd_format.h"
#include "interchange/psd_reader.h"

namespace cli {

namespace {

bool ReadPsd(const std::string& path, CLayerStack& stack, std::string& error)
{
    CPsdReader reader;
    if (reader.LoadFile(path.c_str(), stack)) return true;
    error = "cannot read " + path + ": " + reader.GetReason();
    return false;
}

} // namespace

bool IsPsdPath(const std::string& path)
{
    if (path.size() < 4) return false;
    std::string ext = path.substr(path.size() - 4);
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext == ".psd";
}

bool LoadPsdPicture(const std::string& path, COLImage& image, std::string& error)
{
    CLayerStack stack;
    if (!ReadPsd(path, stack, error)) return false;
    if (stack.GetLayerCount() == 1) {
        image = std::move(stack.GetLayer(0)->m_image);
        return true;
    }
    if (!MergeLayers(&stack, &image, 0)) {
        error = "cannot merge the layers of " + path + " (out of memory)";
        return false;
    }
    CPixel* p = image.GetBuffer();
    for (size_t i = 0; i < image.GetPixelCount(); ++i)
        p[i].alpha = 255;
    return true;
}

bool LoadLayers(const std::string& path, CLayerStack& stack, std::string& error)
{
    const uint32_t type = COLImageCodec::GetFileType(path.c_str());
    if (type == kFilePsd) return ReadPsd(path, stack, error);
    if (type == kFileProject) {
        if (OpenProject(stack, nullptr, path.c_str())) return true;
        error = "cannot read " + path + ": damaged or not a project file";
        return false;
    }
    if (stack.OpenFile(path.c_str())) return true;
    error = type == kFileUnusable
                ? "cannot read " + path + ": missing, or not a picture"
                : "cannot read " + path + ": damaged, too large or unsupported " + FileTypeName(type) + " file";
    return false;
}

int PrintPsdInfo(const std::string& path)
{
    CLayerStack stack;
    CPsdReader reader;
    if (!reader.LoadFile(path.c_str(), stack)) {
        // What the header said, when it could be read, before what went wrong.
        if (stack.GetWidth() > 0)
            std::printf("%s: PSD (type %u), %d x %d\n", path.c_str(), kFilePsd, stack.GetWidth(), stack.GetHeight());
        return Fail(path + ": " + reader.GetReason());
    }
    std::printf("%s: PSD (type %u), %d x %d, %d layer(s)%s\n", path.c_str(), kFilePsd, stack.GetWidth(),
                stack.GetHeight(), stack.GetLayerCount(), reader.HasMergedAlpha() ? ", merged transparency" : "");
    for (int i = 0; i < stack.GetLayerCount(); ++i) {
        const CLayer* l = stack.GetLayer(i);
        std::printf("  layer %d: \"%s\" at (%d, %d), %u x %u, opacity %u, blend %s (mode %u), %s%s\n", i,
                    GbkForDisplay(l->m_name).c_str(), l->m_x, l->m_y, l->m_image.GetWidth(), l->m_image.GetHeight(),
                    l->m_opacity, psd::BlendKeyOfMode(l->m_blendMode), l->m_blendMode,
                    l->m_visible ? "visible" : "hidden", l->m_pChannel ? ", with mask" : "");
    }
    return kExitOk;
}

} // namespace cli
