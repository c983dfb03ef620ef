#include "matting/batch_key.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "imaging/codec.h"
#include "matting/batch_file_process.h"

namespace fs = std::filesystem;

namespace batchkey {

CPixel ColourAtPercent(const COLImage& image, int pickX, int pickY)
{
    if (image.IsNull()) return CPixel{0, 0, 0, 255};
    const uint32_t x = uint32_t(pickX) * image.GetWidth() / 100;
    const uint32_t y = uint32_t(pickY) * image.GetHeight() / 100;
    const int ix = static_cast<int>(x), iy = static_cast<int>(y);
    const CPixel p[4] = {image.GetSafePixel(ix - 1, iy), image.GetSafePixel(ix + 1, iy),
                         image.GetSafePixel(ix, iy + 1), image.GetSafePixel(ix, iy - 1)};
    CPixel c{0, 0, 0, 255};
    c.red = static_cast<uint8_t>((p[0].red + p[1].red + p[2].red + p[3].red) >> 2);
    c.green = static_cast<uint8_t>((p[0].green + p[1].green + p[2].green + p[3].green) >> 2);
    c.blue = static_cast<uint8_t>((p[0].blue + p[1].blue + p[2].blue + p[3].blue) >> 2);
    return c;
}

CPixel ColourOfFile(const COLImage& image, const Settings& settings)
{
    switch (settings.colourMode) {
    case kColourAtPoint: return ColourAtPercent(image, settings.pickX, settings.pickY);
    case kColourFixed: {
        CPixel c = settings.fixedColour;
        c.alpha = 255;
        return c;
    }
    default: return CChromaKeyProcess::EstimateBackdropColour(image);
    }
}

std::string OutputPath(const std::string& outputDir, const std::string& input, const std::string& affix,
                       bool affixIsPrefix)
{
    // The title: what follows the last slash, without the last extension. A leading dot belongs to the
    // name (".hidden.jpg" gives ".hidden"), so a result never ends up as a bare ".png".
    const size_t slash = input.find_last_of('/');
    std::string name = slash == std::string::npos ? input : input.substr(slash + 1);
    const size_t dot = name.find_last_of('.');
    if (dot != std::string::npos && dot > 0) name.resize(dot);

    std::string dir = outputDir;
    if (!dir.empty() && dir.back() != '/') dir += '/';   // an empty folder means the current one
    const std::string& prefix = affixIsPrefix ? affix : std::string();
    const std::string& suffix = affixIsPrefix ? std::string() : affix;
    return dir + prefix + name + suffix + ".png";
}

ChromaKeyParams UnattendedParams(CPixel backdrop)
{
    ChromaKeyParams p;
    p.backdrop = backdrop;
    p.strength = 32;
    p.levelLow = 32;
    p.levelHigh = 255;
    p.includeShadow = 1;
    p.recoverColour = 1;
    p.jpegChroma = 1;
    p.featherSelection = 0;
    return p;
}

bool AddFile(std::vector<std::string>& files, const std::string& path)
{
    std::error_code ec;
    const fs::path key = fs::weakly_canonical(path, ec);
    for (const std::string& f : files) {
        std::error_code ec2;
        if (fs::weakly_canonical(f, ec2) == key) return false;
    }
    files.push_back(path);
    return true;
}

std::vector<std::string> PicturesInFolder(const std::string& folder)
{
    std::vector<std::string> found;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        std::error_code typeError;
        if (it->is_regular_file(typeError) && IsPictureExtension(it->path().extension().c_str()))
            found.push_back(it->path().string());
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<Failure> Run(const std::vector<std::string>& files, const Settings& settings, const Listener& listener)
{
    std::vector<Failure> failures;
    const size_t count = files.size();
    auto fail = [&](size_t i, const std::string& path, const std::string& reason) {
        failures.push_back({path, reason});
        if (listener.onFailed) listener.onFailed(i, count, failures.back());
    };

    std::error_code ec;
    if (!settings.outputDir.empty()) fs::create_directories(settings.outputDir, ec);

    for (size_t i = 0; i < count; ++i) {
        const std::string& path = files[i];
        if (listener.onStart) listener.onStart(i, count, path);
        // The editor's batch dialog runs the same object on its worker.
        CBatchFileProcess process;
        BatchFileParams params;
        params.path = path;
        params.settings = settings;
        if (process.Process(&params) != kOk) {
            fail(i, path, process.GetReason());
            continue;
        }
        if (listener.onDone) listener.onDone(i, count, path, process.GetOutput());
    }
    return failures;
}

} // namespace batchkey
