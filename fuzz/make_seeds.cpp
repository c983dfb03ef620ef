// Writes the seed files of the project and history fuzzers into a folder: small projects with and without a
// history that has a step of every kind, and that history block on its own. Run once when the formats change:
//   build-fuzz/fuzz/fuzz_make_seeds tests/data/commands

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "commands/history_log.h"
#include "commands/history_sink.h"
#include "commands/project_stream.h"
#include "document/layer.h"
#include "document/layer_stack.h"

namespace {

void Paint(COLImage& image, uint32_t seed)
{
    CPixel* p = image.GetBuffer();
    for (size_t i = 0; i < image.GetPixelCount(); ++i) {
        seed = seed * 1103515245u + 12345u;
        p[i] = CPixel::FromWord(seed);
    }
}

bool CopyRange(const std::string& from, long offset, long length, const std::string& to)
{
    std::vector<char> bytes(static_cast<size_t>(length));
    FILE* in = std::fopen(from.c_str(), "rb");
    if (!in) return false;
    const bool read = std::fseek(in, offset, SEEK_SET) == 0 && std::fread(bytes.data(), 1, bytes.size(), in) == bytes.size();
    std::fclose(in);
    FILE* out = read ? std::fopen(to.c_str(), "wb") : nullptr;
    if (!out) return false;
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), out) == bytes.size();
    return std::fclose(out) == 0 && written;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    const std::string folder = std::string(argv[1]) + "/";
    CLayerStack doc;
    CComposeHistory history;
    if (!doc.NewDocument(6, 5, 0xFF204060) || !history.Init()) return 1;
    history.SetDocument(&doc);
    history.AddStep(&doc, kStepWholeDocument, 0, "His_open");
    Paint(doc.GetLayer(0)->m_image, 1);
    history.AddStep(&doc, kStepLayerRegion, 0, "His_paint");
    CLayer* upper = doc.AddLayer(0, kLayerKindRaster);
    history.AddStep(&doc, kStepNewLayer, 0, "His_newlayer");
    upper->m_image.Create(3, 2);
    Paint(upper->m_image, 2);
    upper->m_opacity = 128;
    upper->m_blendMode = 3;
    history.AddStep(&doc, kStepLayerHeaderRegion, 1, "His_RotateRight");
    std::strcpy(upper->m_name, "upper");
    history.AddStep(&doc, kStepLayerHeader, 1, "His_layerpropertychange");
    COLChannel& mask = doc.GetSelectionMask();
    mask.Create(6, 5);
    std::memset(mask.GetBuffer(), 200, mask.GetAreaByteSize());
    history.AddStep(&doc, kStepChannel, -1, "His_select");
    doc.AddChannel()->Create(6, 5);
    history.AddStep(&doc, kStepAddChannel, 0, "His_addchannel");
    doc.AddLayer(1, kLayerKindText);
    history.AddStep(&doc, kStepNewLayer, 1 | (kLayerKindText << 16), "His_newlayer");
    doc.SetCurrentIndex(1);
    history.AddStep(&doc, kStepCurrentLayer, 0, "His_curlayer");
    doc.RemoveLayer(2);
    history.AddStep(&doc, kStepRemoveLayer, 2, "His_deletelayer");
    history.AddStep(&doc, kStepWholeDocument, 0, "His_flatimage");
    history.Backward();

    const std::string withHistory = folder + "seed-history.vmpd";
    if (!SaveProject(doc, &history, withHistory.c_str(), 1) ||
        !SaveProject(doc, nullptr, (folder + "seed-plain.vmpd").c_str(), 0))
        return 1;
    FILE* f = std::fopen(withHistory.c_str(), "rb");
    CProjectHeader header {};
    const bool read = f && ReadProjectHeader(f, header);
    if (f) std::fclose(f);
    if (!read || !CopyRange(withHistory, header.historyOffset, header.historyLength, folder + "seed.vmh-block"))
        return 1;
    history.SetDocument(nullptr);
    return 0;
}
