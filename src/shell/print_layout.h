#pragma once

// Where a picture goes on a printed page. Plain arithmetic without a window, so that it is tested headless. Sizes
// are in inches, the printable area's position relative to the page's corner; device pixels are truncated.

struct PrintPage {
    double areaLeft = 0, areaTop = 0; // the printable area on the page
    double areaWidth = 0, areaHeight = 0;
    int dpiX = 300, dpiY = 300; // the device's resolution
};

enum class EPrintAlign { kStart = 0, kCentre = 1, kEnd = 2 }; // left or top, centre, right or bottom

struct PrintPlacement {
    double width = 0, height = 0; // the picture's size on paper
    EPrintAlign horizontal = EPrintAlign::kCentre;
    EPrintAlign vertical = EPrintAlign::kCentre;
};

// The largest size in the picture's proportions that fits the printable area, capped at kMaxPrintInches a side.
PrintPlacement FitPrintArea(int pictureWidth, int pictureHeight, const PrintPage& page);

// The size fields accept 0 to 100 inches.
inline constexpr double kMaxPrintInches = 100.0;

// The other side for an edited one, in the picture's proportions, capped to 0..kMaxPrintInches.
double LinkedPrintHeight(double width, int pictureWidth, int pictureHeight);
double LinkedPrintWidth(double height, int pictureWidth, int pictureHeight);

struct PrintRect {
    int x = 0, y = 0, width = 0, height = 0;
};

// The picture's rectangle in device pixels, relative to the printable area's corner, placed by the alignments
// inside the area (a picture larger than the area hangs over its far side when aligned to its start).
PrintRect PrintTargetRect(const PrintPlacement& placement, const PrintPage& page);

// The pixel size the picture is scaled to before it goes to the device: the target itself up to 300 dpi; above,
// the target at 300 dpi (its size divided by resolution / 300), which the device stretches to the target. At
// least 1 x 1.
void PrintScaledSize(const PrintRect& target, const PrintPage& page, int& width, int& height);
