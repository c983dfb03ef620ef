#include "interchange/host_result.h"

#include <cstdint>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "imaging/safe_file.h"
#include "interchange/psd_writer.h"
#include "interchange/save_choice.h"
#include "runtime/status.h"

std::string HostResultPath(const std::string& path, int mode)
{
    return mode == 3 ? path + ".24bit.psd" : path;
}

bool WriteHostResult(const std::string& path, int mode, const COLImage& working, const COLChannel& plane)
{
    COLImage result;
    if (path.empty() || !BuildSelectionExport(working, plane, result)) return false;
    if (mode == 3) return SavePsd(HostResultPath(path, mode), result) == kOk;
    CSafeFileWriter writer;
    if (!writer.Open(path)) return false;
    const uint32_t w = result.GetWidth(), h = result.GetHeight();
    const uint8_t header[8] = {uint8_t(w), uint8_t(w >> 8), uint8_t(w >> 16), uint8_t(w >> 24),
                               uint8_t(h), uint8_t(h >> 8), uint8_t(h >> 16), uint8_t(h >> 24)};
    if (!writer.Write(header, sizeof(header)) || !writer.Write(result.GetBuffer(), size_t(w) * h * sizeof(CPixel))) {
        writer.Discard();
        return false;
    }
    return writer.Commit();
}
