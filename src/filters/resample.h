#pragma once

#include <cstdint>
#include <vector>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "runtime/param_table.h"

// Scaling of a rectangle of a picture into another size, in fixed-point arithmetic whose truncations are part of
// what callers see. Every function takes (src, dst, dstWidth, dstHeight, srcX, srcY, srcWidth, srcHeight); a
// srcWidth or srcHeight of -1 means up to the source's edge. The destination is (re)created at dstWidth x
// dstHeight. Results: 1, or 0 when the destination cannot be made or the request makes no sense (no source, a
// rectangle outside it, a side above kMaxImageSide). src and dst may be the same object.

// Bilinear, four bytes of a pixel in 16-bit lanes. The last destination column takes its value from the
// source's last-but-one column (the column position is pulled in by one), rows reach the last row. A side of 1
// anywhere turns it into a box mean; a destination side of 0 gives a 1 x 1 white pixel.
int ResampleImage(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, int srcX = 0, int srcY = 0,
                  int srcWidth = -1, int srcHeight = -1);

// Bilinear on a plane, without the image's column pull-in and without its +2 compensation (255 comes out near 253).
// A destination side of 1 takes the box mean as images do (a source side of 1 stays bilinear); a side of 0
// gives a 1 x 1 plane of 255.
int ResampleChannel(const COLChannel* src, COLChannel* dst, int dstWidth, int dstHeight, int srcX = 0, int srcY = 0,
                    int srcWidth = -1, int srcHeight = -1);

// ResampleChannel's bilinear pass over one byte of every pixel of a whole picture (the alpha plane as it lies in
// the pixels), a destination row at a time: a caller that resizes the colours row by row resizes the plane beside
// them, without taking it out of the picture first. The bytes are those of ResampleChannel on the plane taken out.
// For destinations of at least 2 x 2 (below, ResampleChannel takes the box mean).
class CPixelByteRows {
public:
    CPixelByteRows(const COLImage& source, int byteIndex, uint32_t dstWidth, uint32_t dstHeight);

    // The working rows of one thread: the last two source rows worked out along x.
    struct Work {
        std::vector<uint16_t> rows[2];
        int64_t key[2] = {-1, -1};
        std::vector<uint8_t> line; // the chosen bytes of one source row, with room for 16-byte loads at its end
    };
    Work MakeWork() const;
    // Destination row y into the chosen byte of the dstWidth pixels at out.
    void Row(Work& work, uint32_t y, CPixel* out) const;

    // Whether this is the alpha byte of an exact halving (source sides twice the destination's) on a processor
    // with AVX2. HalvedRow then writes all four bytes of destination row y from one read of its two source rows:
    // the colours as the codec's resample gives them (COLImageCodec::Resample, method 1: the 2 x 2 means) and the
    // alpha as Row does. A halving reads 16 bytes of source for every byte it writes, so the one read is what
    // its time is made of.
    bool HalvesWithColours() const;
    void HalvedRow(uint32_t y, CPixel* out) const;

private:
    const uint16_t* SourceRow(Work& work, uint32_t row, int64_t keep) const;

    const COLImage& m_source;
    int m_byte;
    uint32_t m_dstWidth;
    std::vector<uint32_t> m_xPos, m_yPos;
    std::vector<uint16_t> m_xFrac, m_yFrac;
    // For the vector path, per output column the weights g and f (in 16-bit lanes, and as one word g | f << 16),
    // and per group of eight columns how its samples are fetched: kinds in m_groupKind, for a shuffle group the
    // shuffle (8 bytes) and the group's first byte of the line in m_groupBase.
    std::vector<uint16_t> m_xG;
    std::vector<uint32_t> m_xWeights;
    std::vector<uint8_t> m_groupKind, m_groupShuffle;
    std::vector<uint32_t> m_groupBase;
    bool m_lineNeeded = false;   // some group reads the line of bytes rather than the pixels
    bool m_noSharedRows = false; // a vertical reduction by two or more: each row works out its own source rows
    // The alpha byte, and column i (row y) reads source pixels 2i and 2i + 1 (rows 2y, 2y + 1) but in the last.
    bool m_halving = false;
};

// Area average with 10-bit weights for shrinking: a source pixel that straddles a cell boundary is split between
// the two cells. Asked to enlarge along either axis, they resample bilinearly instead.
int ShrinkImageArea(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, int srcX = 0, int srcY = 0,
                    int srcWidth = -1, int srcHeight = -1);
int ShrinkChannelArea(const COLChannel* src, COLChannel* dst, int dstWidth, int dstHeight, int srcX = 0,
                      int srcY = 0, int srcWidth = -1, int srcHeight = -1);

// Quick scaling from two samples per axis at the ends of each destination pixel's footprint, 8-bit weights.
int SampleImageTwoPoint(const COLImage* src, COLImage* dst, int dstWidth, int dstHeight, int srcX = 0, int srcY = 0,
                        int srcWidth = -1, int srcHeight = -1);

// How a picture is scaled where the user chooses: 0 ResampleImage (bilinear), 1 ShrinkImageArea, 2
// SampleImageTwoPoint.
struct ResampleSettings {
    int32_t method = 0;
};
// method over ResampleSettings.
const vmparam::ParamTable& ResampleParamTable();
// Scales src into dst with the settings' method; the result is that function's.
int ResampleWith(const ResampleSettings& settings, const COLImage* src, COLImage* dst, int dstWidth, int dstHeight);
