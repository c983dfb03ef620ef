#pragma once

#include <cstdint>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "imaging/pixel.h"
#include "matting/image_process.h"
#include "runtime/param_table.h"

// What a backdrop key run is told: nine 32-bit fields in this order, with the panel's defaults.
struct ChromaKeyParams {
    CPixel backdrop{0, 0, 0, 255};  // the backdrop colour
    int32_t strength = 50;          // 0..100: how much of the backdrop's hue range is taken away
    int32_t levelLow = 32;          // final alpha levels, 0..254
    int32_t levelHigh = 255;        // 1..255
    uint32_t includeShadow = 1;     // 0 runs the shadow pass (hue path only)
    uint32_t recoverColour = 1;     // solve the foreground colour out of the mix with the backdrop
    uint32_t jpegChroma = 1;        // smooth 4:2:0 chroma blocks first (hue path only)
    uint32_t featherSelection = 0;  // soften the key, only ever taking alpha away
    uint32_t spare = 0;             // carried along, never read
};
static_assert(sizeof(ChromaKeyParams) == 36, "nine 32-bit fields");

// A key's settings as the command line and the panel hold them: the run's record and the luma key's slider.
struct ChromaKeySettings {
    ChromaKeyParams params;
    int32_t lumaStrength = 32;
    // 1 runs the refined key (refined_key.h) instead of the classic one; the classic key stays the default.
    int32_t refine = 0;
};

// strength, levels, shadow, no-recover, no-jpeg-chroma, feather, luma-strength and refine over
// ChromaKeySettings. The backdrop colour is not in it: it is picked (or estimated) from the picture.
const vmparam::ParamTable& ChromaKeyParamTable();

// Keys out a single-coloured backdrop. A colourful backdrop goes through the hue key (and, if asked, the shadow
// pass); a gray, white or black one through the luma key here. The destination gets the source's pixels with
// the backdrop's tint taken out of the colour and the key in alpha.
class CChromaKeyProcess : public CImageProcess {
public:
    // params: const ChromaKeyParams*. Returns kOk or kFail.
    long Process(const void* params) override;

    // The picker's own slider, used by the luma key only; -1 counts as 32.
    void SetLumaStrength(int strength) { m_lumaStrength = strength; }
    int GetLumaStrength() const { return m_lumaStrength; }

    // Whether the last run took the hue path.
    bool WasChromatic() const { return m_chromatic; }
    // The working alpha plane of the last run.
    const COLChannel& GetAlphaPlane() const { return m_alpha; }

    // The backdrop as the picture's border shows it: the mean of the outer 16 pixels, then the mean of those
    // pixels of the outer 128 that lie within 32 of it. Alpha 255; black when nothing qualifies.
    static CPixel EstimateBackdropColour(const COLImage& image);

    // A backdrop is colourful when saturation is at least 13 and brightness is in 33..219 (HSB form).
    static bool IsChromatic(CPixel backdrop);

    // Steps of a run, public for the tests. Each works on the destination.
    void RunLumaKey(const COLImage& source);
    void MixColours(const COLImage& source);
    static void ApplyAlphaLevels(COLImage& image, int levelLow, int levelHigh);
    long RemoveShadow();

private:
    long Key(const void* params, COLImage& ownSource);
    long RunLumaPath(const COLImage& source);

    ChromaKeyParams m_params;
    COLChannel m_alpha;
    uint8_t m_alphaMap[256] = {};
    int m_lumaStrength = 32;
    bool m_chromatic = false;
};
