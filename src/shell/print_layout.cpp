#include "shell/print_layout.h"

#include <algorithm>

namespace {

double Clamp(double inches)
{
    return std::clamp(inches, 0.0, kMaxPrintInches);
}

int Offset(EPrintAlign align, int room)
{
    switch (align) {
    case EPrintAlign::kStart:
        return 0;
    case EPrintAlign::kCentre:
        return room / 2;
    case EPrintAlign::kEnd:
        return room;
    }
    return 0;
}

} // namespace

PrintPlacement FitPrintArea(int pictureWidth, int pictureHeight, const PrintPage& page)
{
    PrintPlacement p;
    if (pictureWidth < 1 || pictureHeight < 1 || page.areaWidth <= 0 || page.areaHeight <= 0) return p;
    const double byWidth = std::min(page.areaWidth, kMaxPrintInches);
    const double heightForWidth = byWidth * pictureHeight / pictureWidth;
    const double limitHeight = std::min(page.areaHeight, kMaxPrintInches);
    if (heightForWidth <= limitHeight) {
        p.width = byWidth;
        p.height = heightForWidth;
    } else {
        p.height = limitHeight;
        p.width = limitHeight * pictureWidth / pictureHeight;
    }
    return p;
}

double LinkedPrintHeight(double width, int pictureWidth, int pictureHeight)
{
    if (pictureWidth < 1) return 0;
    return Clamp(Clamp(width) * pictureHeight / pictureWidth);
}

double LinkedPrintWidth(double height, int pictureWidth, int pictureHeight)
{
    if (pictureHeight < 1) return 0;
    return Clamp(Clamp(height) * pictureWidth / pictureHeight);
}

PrintRect PrintTargetRect(const PrintPlacement& placement, const PrintPage& page)
{
    PrintRect r;
    r.width = static_cast<int>(Clamp(placement.width) * page.dpiX);
    r.height = static_cast<int>(Clamp(placement.height) * page.dpiY);
    const int areaW = static_cast<int>(page.areaWidth * page.dpiX);
    const int areaH = static_cast<int>(page.areaHeight * page.dpiY);
    r.x = Offset(placement.horizontal, std::max(0, areaW - r.width));
    r.y = Offset(placement.vertical, std::max(0, areaH - r.height));
    return r;
}

void PrintScaledSize(const PrintRect& target, const PrintPage& page, int& width, int& height)
{
    width = target.width;
    height = target.height;
    // Above 300 dpi the picture gains nothing from more pixels; the device stretches the 300-dpi picture.
    if (page.dpiX > 300) width = static_cast<int>(target.width / (page.dpiX * 0.0033333333333333335));
    if (page.dpiY > 300) height = static_cast<int>(target.height / (page.dpiY * 0.0033333333333333335));
    width = std::max(width, 1);
    height = std::max(height, 1);
}
