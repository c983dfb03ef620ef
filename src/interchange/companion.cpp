#include "interchange/companion.h"

#include <cstdio>

#include "document/layer.h"
#include "imaging/channel.h"
#include "imaging/image.h"

std::string CompanionExchangePath(const std::string& tempDir, const std::tm& when)
{
    char name[64];
    std::snprintf(name, sizeof(name), "%s%04d%02d%02d%02d%02d%02d.vmh", "V", when.tm_year + 1900, when.tm_mon + 1,
                  when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec);
    return tempDir + name;
}

bool ApplyCompanionEdit(CLayer& layer, const COLImage& edited, const COLChannel* mask)
{
    COLImage& image = layer.m_image;
    if (image.IsNull() || edited.IsNull() || edited.GetWidth() != image.GetWidth() ||
        edited.GetHeight() != image.GetHeight())
        return false;
    const bool selection = mask && mask->GetBuffer();
    const int64_t maskW = selection ? mask->GetWidth() : 0, maskH = selection ? mask->GetHeight() : 0;
    for (uint32_t y = 0; y < image.GetHeight(); ++y) {
        CPixel* row = image.GetBuffer(0, y);
        const CPixel* in = edited.GetBuffer(0, y);
        const int64_t dy = int64_t(layer.m_y) + y;
        for (uint32_t x = 0; x < image.GetWidth(); ++x) {
            if (!selection) {
                row[x].blue = in[x].blue;
                row[x].green = in[x].green;
                row[x].red = in[x].red;
                continue;
            }
            const int64_t dx = int64_t(layer.m_x) + x;
            const int m =
                dx >= 0 && dy >= 0 && dx < maskW && dy < maskH ? mask->GetValue(uint32_t(dx), uint32_t(dy)) : 0;
            if (m == 0) continue;
            row[x].blue = static_cast<uint8_t>((in[x].blue * m + row[x].blue * (255 - m)) / 255);
            row[x].green = static_cast<uint8_t>((in[x].green * m + row[x].green * (255 - m)) / 255);
            row[x].red = static_cast<uint8_t>((in[x].red * m + row[x].red * (255 - m)) / 255);
        }
    }
    return true;
}
