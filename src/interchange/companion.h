#pragma once

#include <ctime>
#include <string>

class CLayer;
class COLChannel;
class COLImage;

// The round trip through the companion photo editor: the document goes out as a project file given to the editor
// with "-i"; the editor leaves its result as a BMP named after that file plus ".bmp", which comes back into the
// current layer.

// The exchange file: the temporary folder (with its closing slash) and "V" with the date and time to the second,
// "%s%s%04d%02d%02d%02d%02d%02d.vmh". Two round trips within one second use the same name.
std::string CompanionExchangePath(const std::string& tempDir, const std::tm& when);

// The editor's result file for an exchange file.
inline std::string CompanionResultPath(const std::string& exchangePath)
{
    return exchangePath + ".bmp";
}

// Takes the editor's colours into the layer. Without a selection (mask null or empty) every pixel's blue, green
// and red are replaced. With one, m is the mask byte at the pixel's document position (0 outside the mask): where
// m is not 0 each colour becomes (edited x m + old x (255 - m)) / 255, truncated; pixels with m = 0 stay. Alpha
// always stays. False, and the layer untouched, when the result's size is not the layer's.
bool ApplyCompanionEdit(CLayer& layer, const COLImage& edited, const COLChannel* mask);
