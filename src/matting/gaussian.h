#pragma once

#include <cstdint>

#include "matting/image_process.h"
#include "runtime/param_table.h"

// Integer Gaussian kernel: raw weights trunc(base^(-k^2 / 2 sigma^2) * 1024) with the fixed base 2.7188282,
// cut at the first zero weight or at 16 taps a side, then scaled so that the whole kernel sums to about 2048.
struct GaussianKernel {
    static constexpr int kMaxTaps = 16;
    static constexpr double kBase = 2.7188282;

    int taps = 0;                  // n: weights w[0] .. w[n-1] on each side, the centre counted once
    uint32_t raw[kMaxTaps] = {};   // before scaling
    uint32_t rawSum = 0;           // raw[0] + 2 * (raw[1] + ... + raw[n-1])
    uint16_t weight[kMaxTaps] = {};   // (raw << 11) / rawSum

    static GaussianKernel Make(double sigma);
    // Sum of the scaled weights from offset lo to hi - 1 around a centre (offsets may be negative).
    uint32_t Sum(int lo, int hi) const;
};

// A blur's settings: the record whose address is the engine's params (a pointer to the sigma).
struct GaussianSettings {
    double sigma = 0;
};
// sigma (required) over GaussianSettings.
const vmparam::ParamTable& GaussianParamTable();

// Separable Gaussian blur of an image (all four bytes of each pixel, alpha too) or of a plane. params of both
// modes points to one double, the sigma. Sigmas above 2.5 are blurred at a reduced size and scaled back, so the
// cost stays bounded by a 31-tap kernel whatever the sigma.
class CGaussianProcess : public CImageProcess {
public:
    long Process(const void* params) override;
    long ProcessChannel(const void* params) override;

    // The sigma and scale of the last run: a sigma of 6 is worked as 2 at a third of the size.
    double GetWorkSigma() const { return m_sigma; }
    int GetScale() const { return m_scale; }

    // How a requested sigma is worked: the reduction factor and the sigma used at that size. The factor is kept
    // below the picture's shorter side (so at least one whole block remains), which is what maxScale is for.
    static int PlanScale(double sigma, uint32_t maxScale, double& workSigma);

private:
    long Run(const void* params, bool channelMode);

    double m_sigma = 0.0;
    int m_scale = 1;
};

namespace vmfilter {

// The blur itself, on a raw buffer of width x height pixels of bytesPerPixel (1 or 4) bytes. Rows go through the
// horizontal pass first (8-bit truncated), then columns. At the borders the kernel is cut and renormalised.
// src and dst may not overlap. progress, when set, gets 0..100 from the calling thread.
void GaussianBlurBuffer(const uint8_t* src, uint8_t* dst, uint32_t width, uint32_t height, int bytesPerPixel,
                        const GaussianKernel& kernel, CImageProcess* progress = nullptr);

// Mean of each whole factor x factor block, truncated per byte; trailing rows and columns that do not fill a
// block are left out. dst holds (width / factor) x (height / factor) pixels.
void ShrinkByBlocks(const uint8_t* src, uint8_t* dst, uint32_t width, uint32_t height, int bytesPerPixel,
                    uint32_t factor);

} // namespace vmfilter
