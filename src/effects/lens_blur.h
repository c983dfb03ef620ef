#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "matting/image_process.h"

// What a lens blur run is given. The aperture is a 64 x 64 plane (0 outside, larger values weigh a sample more);
// depth is a plane of the source's size, 0 sharp and 255 farthest from focus; mask, when given, is a plane of the
// source's size in which a value above 64 marks the foreground, whose colours are then kept out of the blur.
struct LensBlurParams {
    COLChannel aperture;
    const COLChannel* depth = nullptr;
    const COLChannel* mask = nullptr;
    double radius = 0.0;              // blur radius in source pixels: the largest disc is twice as wide
    int32_t highlightThreshold = 255; // channel value from which bright pixels are amplified, 200..255
    int32_t highlightAmplitude = 0;   // steepness of the amplification, 0..100
};

// Depth-of-field blur: each pixel becomes the aperture-weighted mean of its neighbourhood, with a disc diameter
// that follows the depth map. Discs up to 63 pixels are gathered at full size from 64 kernels (the aperture
// resampled to every size); wider ones are taken from a half-size blur at half the radius, recursively. Colour
// channels of pixels whose gray is above 220 go through the highlight curve before they are averaged, so bright
// points bloom into the aperture's shape. The result is opaque.
//
// The weighted sums are exact integers, however they are formed: the gather adds whole runs of equal kernel
// weight through row prefix sums, which gives the same bytes as a tap-by-tap sum, any split across threads and
// any size of tile.
class CLensBlurProcess : public CImageProcess {
public:
    static constexpr int kApertureSide = 64;
    static constexpr int kKernelPlanes = 64;
    // The gather works in tiles of this many output rows and columns, each with prefix sums of its own.
    static constexpr int kTileRows = 128;
    static constexpr int kTileColumns = 256;

    CLensBlurProcess();
    ~CLensBlurProcess() override;

    // params points to LensBlurParams. kOk, or kFail when source, destination, params or depth are missing,
    // the depth map (or a given mask) has another size than the source, memory runs out, or a cancel was asked
    // for (noticed between stages and between bands of rows; the destination is then incomplete). The source is
    // read only; the destination may not be the source.
    long Process(const void* params) override;

    // Set once a run needed discs above 63 pixels; from then on every run of this object makes the half-size
    // pass (same bytes, more time), as only the constructor clears it.
    bool NeedsHalfPass() const { return m_needsHalfPass != 0; }
    // Plane d (0..63): the aperture resampled to (d+1) x (d+1), centred in 64 x 64 bytes. Plane 0 is empty.
    const uint8_t* GetKernel(int d) const { return m_kernels.data() + size_t(d) * kApertureSide * kApertureSide; }
    const int32_t* GetHighlightCurve() const { return m_highlightCurve; }
    const COLChannel& GetDiameterMap() const { return m_diameterMap; }

    // Disc diameter of each depth value: trunc(2 radius (v / 255)^1.5), stored as at most 255. Returns whether
    // some diameter exceeds 63.
    static bool BuildDiameterTable(double radius, uint8_t (&table)[256]);
    // Identity below the threshold; from it upwards (i - T) * k + i with k = 32 A / (255 - T).
    static void BuildHighlightCurve(int32_t threshold, int32_t amplitude, int32_t (&curve)[256]);
    // The 64 kernel planes for an aperture: false when a resample fails.
    static bool BuildKernels(const COLChannel& aperture, uint8_t* planes);

private:
    // A cancel asked of this run or of the run whose half-size pass this is.
    bool StopRequested() const;
    long Stopped();
    bool RemoveForeground();
    bool HalfSizePass(const COLImage& source);
    void Gather(const COLImage& source);

    COLChannel m_aperture;
    COLImage m_filledSource;
    const COLChannel* m_pDepth = nullptr;
    const COLChannel* m_pMask = nullptr;
    double m_radius = 0.0;
    int32_t m_highlightThreshold = 255;
    int32_t m_highlightAmplitude = 0;
    int32_t m_pixelCount = 0;
    COLChannel m_diameterMap;
    COLImage m_halfSource;
    COLImage m_halfResult;
    COLChannel m_halfDepth;
    int32_t m_needsHalfPass = 0;
    const CLensBlurProcess* m_pParent = nullptr; // the run this half-size pass serves
    std::vector<uint8_t> m_kernels; // kKernelPlanes planes of 64 x 64
    int32_t m_highlightCurve[256] = {};
};
