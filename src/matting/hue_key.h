#pragma once

#include <cstdint>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "imaging/pixel.h"
#include "matting/chroma_key.h"
#include "matting/image_process.h"

// The hue-distance key: the colourful-backdrop path of the backdrop key. It measures how far each pixel lies
// from the backdrop's hue and how colourful it is, sets a threshold from the picture's own key histogram,
// recovers the foreground colour and takes the backdrop's spill out, then refines the edge by solving alpha on
// the line between a local foreground colour and the backdrop.
class CHueKeyProcess : public CImageProcess {
public:
    // params: const ChromaKeyParams*. Returns kOk or kFail.
    long Process(const void* params) override;

    const COLChannel& GetKeyChannel() const { return m_keyChannel; }
    const COLChannel& GetHueChannel() const { return m_hueChannel; }
    const COLImage& GetSmoothed() const { return m_smoothed; }
    int GetThreshold() const { return m_threshold; }

    // Steps of a run, public for the tests. The source argument is the picture the steps read (the smoothed
    // copy when JPEG chroma smoothing is on).
    long SmoothChroma();
    // On a picture in YUV form: the odd chroma samples become the means of the even ones around them, as 4:2:0
    // JPEG chroma would have been before it was subsampled. Y and the even samples stay.
    static void InterpolateChroma(COLImage& yuv);
    void BuildTables();
    long BuildKey(const COLImage& source);
    void MixColours(const COLImage& source);
    long BuildEdgeMask(const COLImage& source, COLChannel& mask);
    long RefineEdges(const COLImage& source);
    void RestoreInterior(const COLImage& source);
    void SetParamsForSteps(const ChromaKeyParams& params);

private:
    long Key(const void* params);

    ChromaKeyParams m_params;
    COLImage m_smoothed;
    CPixel m_backdropHSB{0, 0, 0, 0};
    int m_hueWeight[256] = {};
    uint8_t m_alphaMap[256] = {};
    COLChannel m_hueChannel;
    COLChannel m_keyChannel;
    int m_threshold = 0;
};
