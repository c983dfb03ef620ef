#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "matting/image_process.h"

// Target size of a bicubic scaling run.
struct BicubicScaleParams {
    uint32_t width;
    uint32_t height;
};

// Separable scaling with the Mitchell-Netravali family of cubic filters. The vertical pass blends source rows;
// the horizontal one runs the same line code on transposed pixels. Taps are merged two lines at a time with an
// 8-bit ratio, positive and negative lobes apart, and the two merged lines are combined in floating point at the
// end; those truncations are part of the result. Alpha is filtered like colour. The filter is chosen by the width
// alone: a narrower target takes the sharper reduction filter.
//
// Every step of the line code works byte by byte, so a line's result does not depend on its length: the run
// works in bands of result rows (the band's rows of the vertical pass at the source width, turned, scaled as short
// columns, turned back into the result), and no picture-sized intermediate is made.
class CBicubicScaleProcess : public CImageProcess {
public:
    // kOk, or kFail when an input is missing, a side is 0 or above the picture limit, or memory runs out.
    // A target of the source's own size gives a copy of the source.
    long Process(const void* params) override;
};

namespace vmscale {

// The two filter parameters of a run.
struct CubicFilter {
    float b;
    float c;
};
CubicFilter ChooseFilter(uint32_t sourceWidth, uint32_t targetWidth);

// The cubic weight of a tap at distance x (in filter units): the unnormalised Mitchell-Netravali polynomial.
float CubicWeight(float x, const CubicFilter& filter);

// The taps of every output line and the order they are merged in, worked out once for a pair of line counts.
// The plan depends on the counts and the filter only, so one plan scales lines of any length, and any range of
// output lines alone gives the bytes those lines have in a whole run. Building it may throw std::bad_alloc.
class CLineScaler {
public:
    CLineScaler(uint32_t srcLines, uint32_t dstLines, const CubicFilter& filter);

    uint32_t SourceLines() const { return m_srcLines; }
    uint32_t TargetLines() const { return m_dstLines; }
    // Lines of working memory Run needs, each as long as the lines it scales.
    size_t ScratchLines() const { return m_scratchLines; }

    // Output lines [begin, end) from all source lines (line t at src + t * lineBytes), written from dst on:
    // line begin at dst, the next at dst + lineBytes. scratch holds ScratchLines() lines of lineBytes; the caller
    // keeps it from one call to the next. Runs on the calling thread, at the instruction set current when called.
    void Run(uint8_t* dst, const uint8_t* src, size_t lineBytes, size_t begin, size_t end, uint8_t* scratch) const;

private:
    // One pairwise merge: out = a * p + b * (256 - p) in 1/256. A reference below 0 is scratch line ~ref, else a
    // source line.
    struct Merge {
        int32_t out, a, b, p;
    };
    // An output line: its merges, then either a copy of line pos or the combination pos * fp - neg * fn.
    struct Recipe {
        uint32_t firstMerge, mergeCount;
        int32_t pos, neg;
        float fp, fn;
        bool combine;
    };

    uint32_t m_srcLines, m_dstLines;
    size_t m_scratchLines = 0;
    std::vector<Merge> m_merges;
    std::vector<Recipe> m_recipes;
};

// Scales dstLines lines of lineBytes bytes from srcLines lines, output lines split over the pool. False when a
// count is 0 or memory runs out.
bool ScaleLines(uint8_t* dst, const uint8_t* src, size_t lineBytes, uint32_t srcLines, uint32_t dstLines,
                const CubicFilter& filter);

// dst (height x width pixels) becomes the transpose of src (width x height pixels), split over the pool.
void Transpose(const uint32_t* src, uint32_t* dst, uint32_t width, uint32_t height);

// The same on the calling thread alone, for callers that already run in a part of the pool.
void TransposeSerial(const uint32_t* src, uint32_t* dst, uint32_t width, uint32_t height);

} // namespace vmscale
