#pragma once

#include <cstdint>
#include <vector>

#include "imaging/image.h"
#include "imaging/pixel.h"
#include "matting/chroma_key.h"

// What the backdrop-key panel decides and draws, without its window: the settings behind its controls, the
// record they make, the first-pick rule for red and purple backdrops, and the hue strip that shows which hues
// the current strength takes away.
class CBlueMattingLogic {
public:
    static constexpr int kStripWidth = 256;
    static constexpr int kStripHeight = 20;

    CBlueMattingLogic();

    // Controls of the panel (defaults: slider 50, levels 32..255, shadow kept, recover on, JPEG chroma on,
    // no feather).
    int slider = 50;
    int levelLow = 32;
    int levelHigh = 255;
    uint32_t includeShadow = 1;
    uint32_t recoverColour = 1;
    uint32_t jpegChroma = 1;
    uint32_t featherSelection = 0;
    // Backdrop colours picked in this panel; the picker tool keeps its own list.
    std::vector<CPixel> colours;

    // Slider back to 50 and feathering off; the rest stays.
    void Reset();
    // The record from the controls. Its backdrop is the caller's to set.
    ChromaKeyParams* GetParams();

    // Before each run from the picker: on the very first pick only, a red or purple backdrop (hue below 48
    // or from 193 on) brings the strength down to 20. True when the slider moved; the caller then redraws
    // the strip.
    bool ApplyFirstPickRule(CPixel backdrop);
    bool IsFirstPick() const { return m_firstPick; }

    // Redraws the strip for the first colour of toolColours, else of this panel's list. No colour: nothing
    // happens and the result is false.
    bool RefreshHueStrip(const std::vector<CPixel>* toolColours = nullptr);

    // Hue across, saturation 255, brightness 128, 256 x 20.
    const COLImage& GetHueStrip() const { return m_strip; }
    // The strip as keyed: opaque hues plain, the rest over a black and white checkerboard by their alpha.
    const COLImage& GetStripPicture() const { return m_stripPicture; }
    // The strip's backdrop of the last refresh: the picked hue at full saturation and brightness 128.
    CPixel GetStripBackdrop() const { return m_stripBackdrop; }

    // Draws a keyed strip over the checkerboard (cells 10 wide, 5 high, white where x/10 + y/5 is even).
    static void DrawOverChecker(const COLImage& plain, const COLImage& keyed, COLImage& picture);

    // The cleaning page's histogram of the result's alpha: 256 bins, each the mean (truncated) of those of the
    // bins x - 2 .. x + 2 that lie in 1..255, so the flood of fully transparent pixels does not flatten the rest.
    static std::vector<int> CleaningHistogram(const COLImage& result);
    // Height of a bar: the square root of its share of the highest bin, times the drawing height less the
    // 17 rows of the level strip below.
    static int BarHeight(int bin, int highest, int drawHeight);
    // Dragging a handle to x of a control spanning left..right: the level (x - left) * 256 / (right - left),
    // the low one kept in 0..levelHigh - 1, the high one in levelLow + 1..255.
    void DragLowHandle(int x, int left, int right);
    void DragHighHandle(int x, int left, int right);

private:
    ChromaKeyParams m_params;
    bool m_firstPick = true;
    COLImage m_strip;
    COLImage m_stripResult;
    COLImage m_stripPicture;
    CPixel m_stripBackdrop{0, 0, 0, 255};
};
