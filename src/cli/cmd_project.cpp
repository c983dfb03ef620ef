#include <cctype>
#include <cstdio>
#include <utility>
#include <vector>

#include "cli/cli.h"
#include "cli/project_cli.h"
#include "commands/history_log.h"
#include "commands/project_stream.h"
#include "document/compositor.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/gbk_text.h"
#include "imaging/image.h"

namespace cli {

bool IsProjectPath(const std::string& path)
{
    if (path.size() < 5) return false;
    std::string ext = path.substr(path.size() - 5);
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext == ".vmpd";
}

int PrintProjectInfo(const std::string& path)
{
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return Fail("cannot open " + path);
    CProjectHeader header {};
    CLayerStack doc;
    std::vector<CHistoryRecord> records;
    int32_t current = 0;
    const bool read = ReadProjectHeader(f, header) && std::string(header.magic, 4) == "VMPD" && doc.Serialize(f, 1) &&
                      (header.historyLength == 0 || CHistoryLog::ReadRecordBlock(f, records, current));
    std::fclose(f);
    if (!read) return Fail(path + ": damaged or not a project file");

    const COLChannel& mask = doc.GetSelectionMask();
    std::printf("%s: project, %d x %d, %d layer(s), %d channel(s), %s, current layer %d\n", path.c_str(),
                doc.GetWidth(), doc.GetHeight(), doc.GetLayerCount(), doc.GetChannelCount(),
                mask.IsNull() ? "no selection" : "with selection", doc.GetCurrentIndex());
    for (int i = 0; i < doc.GetLayerCount(); ++i) {
        const CLayer* l = doc.GetLayer(i);
        std::printf("  layer %d: \"%s\" at (%d, %d), %u x %u, opacity %u, mode %u (%s), %s%s\n", i,
                    GbkForDisplay(l->m_name).c_str(), l->m_x, l->m_y, l->m_image.GetWidth(),
                    l->m_image.GetHeight(), l->m_opacity, l->m_blendMode, BlendModeKey(l->m_blendMode),
                    l->m_visible ? "visible" : "hidden", l->m_kind == kLayerKindText ? ", text" : "");
    }
    if (header.historyLength == 0) {
        std::printf("history: not saved\n");
        return kExitOk;
    }
    std::printf("history: %zu step(s), at step %d\n", records.size(), current);
    for (size_t i = 0; i < records.size(); ++i)
        std::printf("  %c%zu: %s (kind %d, arg %d)\n", int(i) + 1 == current ? '>' : ' ', i + 1,
                    GbkForDisplay(records[i].label).c_str(), records[i].kind, records[i].arg);
    return kExitOk;
}

bool LoadProjectComposite(const std::string& path, COLImage& composite, std::string& error)
{
    CLayerStack doc;
    if (!OpenProject(doc, nullptr, path.c_str())) {
        error = "cannot read " + path + ": missing, damaged or not a project file";
        return false;
    }
    if (!MergeLayers(&doc, &composite, 0)) {
        error = "cannot merge the layers of " + path + " (out of memory)";
        return false;
    }
    // The base is drawn opaque: the flattened picture is opaque too.
    CPixel* p = composite.GetBuffer();
    for (size_t i = 0; i < composite.GetPixelCount(); ++i) p[i].alpha = 255;
    return true;
}

bool SavePictureAsProject(const std::string& path, COLImage& picture)
{
    CLayerStack doc;
    if (picture.IsNull() ||
        !doc.NewDocument(static_cast<int>(picture.GetWidth()), static_cast<int>(picture.GetHeight()), 0))
        return false;
    doc.GetLayer(0)->m_image = std::move(picture);
    return SaveProject(doc, nullptr, path.c_str(), 0) == 1;
}

} // namespace cli
