#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "imaging/image.h"
#include "imaging/pixel.h"
#include "matting/chroma_key.h"

// Keying many photos of one shoot in a row, without a window: how each file's backdrop colour is found, where
// its result goes, and the unattended run itself.
namespace batchkey {

enum ColourMode : int32_t {
    kColourAuto = 0,      // estimated from each picture's border
    kColourAtPoint = 1,   // read at a position given in percent of width and height
    kColourFixed = 2,     // one colour for every file
};

struct Settings {
    int32_t colourMode = kColourAuto;
    int32_t pickX = 10;   // percent, mode 1
    int32_t pickY = 10;
    CPixel fixedColour{0, 0, 0, 255};   // mode 2
    std::string outputDir;
    std::string affix;
    bool affixIsPrefix = false;
    bool refine = false;   // the refined key (refined_key.h) instead of the classic one
};

// Mode 1's reading: at pickX % and pickY % of the picture, the mean (>> 2) of the four pixels left, right,
// below and above, each read with the picture's clamped access. Alpha 255.
CPixel ColourAtPercent(const COLImage& image, int pickX, int pickY);

// The backdrop colour of one loaded file under the settings' mode.
CPixel ColourOfFile(const COLImage& image, const Settings& settings);

// "<dir>/<prefix><title><suffix>.png": the title is the file name without folder and extension; the affix is
// the prefix or the suffix, the other slot empty. A missing trailing slash on the folder is added.
std::string OutputPath(const std::string& outputDir, const std::string& input, const std::string& affix,
                       bool affixIsPrefix);

// The record of the unattended run: strength 32 (not the panel's 50), levels 32..255, shadow kept,
// colour recovered, JPEG chroma smoothed, no feather.
ChromaKeyParams UnattendedParams(CPixel backdrop);

// Appends a file unless the same file is listed already (compared by its resolved path). False for a duplicate.
bool AddFile(std::vector<std::string>& files, const std::string& path);

// The picture files a folder holds, by name, not descending into sub-folders: every extension the codec reads
// (IsPictureExtension), in any letter case.
std::vector<std::string> PicturesInFolder(const std::string& folder);

struct Failure {
    std::string path;
    std::string reason;
};

// What the run tells as it goes; every member may be left empty.
struct Listener {
    std::function<void(size_t index, size_t count, const std::string& path)> onStart;
    std::function<void(size_t index, size_t count, const std::string& path, const std::string& output)> onDone;
    std::function<void(size_t index, size_t count, const Failure& failure)> onFailed;
};

// Keys every file and writes its PNG, overwriting what is there. A file that cannot be read, keyed or written
// is reported and skipped; the run goes on. Returns the failures, in order.
std::vector<Failure> Run(const std::vector<std::string>& files, const Settings& settings,
                         const Listener& listener = {});

} // namespace batchkey
