#include "matting/refined_key.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "matting/key_rows.h"
#include "matting/refined_matte.h"
#include "runtime/status.h"

namespace {

constexpr uint8_t kTriBack = 0;
constexpr uint8_t kTriBand = 128;
constexpr uint8_t kTriSubject = 255;

// How far a backdrop colour may lie off the line from black through the picked colour (0..255 units): a floor
// for noise and JPEG's colour blocks, plus a share of its brightness. A colourful backdrop's saturation swings
// with the light and with JPEG's chroma blocks, so it gets the larger share; a gray one keeps the small share,
// which stops the backdrop at a subject's pale, nearly gray colours (light fur, skin in shade).
constexpr float kPerpBase = 8.0f;
constexpr float kPerpShareColourful = 0.08f;
constexpr float kPerpShareGray = 0.03f;
// Brightness of the backdrop along that line, relative to the picked colour: a shadow may darken it to this
// share, light may lift it this far; the slack keeps a black backdrop's narrow range usable.
constexpr float kDarkest = 0.35f;
constexpr float kBrightest = 1.3f;
constexpr float kSlack = 12.0f;
// Largest colour step between neighbouring backdrop pixels (3 x 3 means, per channel): a floor plus a share of
// the brightness, so that the falling edge of a shadow is followed and the subject's edge is not.
constexpr float kStepBase = 6.0f;
constexpr float kStepShare = 0.035f;
// Backdrop is entered only where the colour lies this close to the picked one.
constexpr float kSeedDistance = 40.0f;
// A backdrop patch that the border does not reach counts when it holds this share of the picture.
constexpr double kIslandShare = 0.01;
// Backdrop pixels whose 3 x 3 mean lies further than this many noise widths from the backdrop's local colour
// have something in front of them (a strand, the faint end of a soft edge) and go to the band; pixels within it
// are backdrop. The noise width is measured on the backdrop itself. The floor (in 0..255 levels) is above JPEG's
// ringing at q85 beside strands and edges: below it, the backdrop between dense strands would go to the band and
// be solved without any sure backdrop near, as a blur.
constexpr float kResidualWidths = 4.0f;
constexpr float kResidualFloor = 9.0f;

// Side of the cells over which the backdrop's local colour is averaged, and how many cells that colour reaches
// into the subject (the band lies within a few pixels of the backdrop, so a short reach serves it).
constexpr int kCell = 4;
constexpr int kFillPasses = 4;
// Weight of the solver's colour estimate against the compositing equation with the local backdrop colour, which
// decides where alpha is large and fades out where alpha is small.
constexpr float kColourPrior = 0.05f;

// On a colourful backdrop, pixels the classic key leaves below opaque within this many band widths of the
// backdrop join the band.
constexpr int kUnsureReach = 3;
// The band's radius is kept to this, so that the widest reach above stays within a byte's distances.
constexpr int kMaxBandRadius = 80;

// Progress of the steps, in percent of the run; the classic key runs on a colourful backdrop only.
constexpr int kClassicEnd = 25;
constexpr int kTrimapEndColourful = 32;
constexpr int kTrimapEndGray = 10;
constexpr int kSolveEnd = 98;

// Hands the solver a slice of this run's progress range and this run's cancel flag.
class CSubRange : public CImageProcess {
public:
    CSubRange(CImageProcess& owner, int lo, int hi) : m_owner(owner), m_lo(lo), m_hi(hi) {}
    void ReportProgress(int32_t percent) override { m_owner.ReportProgress(m_lo + (m_hi - m_lo) * percent / 100); }
    uint32_t TestAndClearCancel() override { return m_owner.TestAndClearCancel(); }

private:
    CImageProcess& m_owner;
    int m_lo, m_hi;
};

// Which colours can be backdrop: close to the line from black through the picked colour, within the
// brightness a shadow or uneven light gives it.
struct BackdropColour {
    float b[3];
    float bb, length, perpShare;

    explicit BackdropColour(CPixel c)
        : b{float(c.red), float(c.green), float(c.blue)}, bb(b[0] * b[0] + b[1] * b[1] + b[2] * b[2]),
          length(std::sqrt(bb)),
          perpShare(CChromaKeyProcess::IsChromatic(c) ? kPerpShareColourful : kPerpShareGray)
    {
    }

    bool Admits(const CPixel& p) const
    {
        const float c[3] = {float(p.red), float(p.green), float(p.blue)};
        const float s = bb >= 1.0f ? (c[0] * b[0] + c[1] * b[1] + c[2] * b[2]) / bb : 0.0f;
        float perp = 0;
        for (int k = 0; k < 3; ++k) perp += (c[k] - s * b[k]) * (c[k] - s * b[k]);
        const float along = s * length;
        const float limit = kPerpBase + perpShare * std::max(along, 0.0f);
        return perp <= limit * limit && along >= kDarkest * length - kSlack && along <= kBrightest * length + kSlack;
    }

    bool Near(const CPixel& p) const
    {
        const float d0 = p.red - b[0], d1 = p.green - b[1], d2 = p.blue - b[2];
        return d0 * d0 + d1 * d1 + d2 * d2 < kSeedDistance * kSeedDistance;
    }
};

// 3 x 3 mean of each colour byte, truncated; the border repeats. Alpha is not read. Column sums of three rows
// first, then three of them per pixel: the same whole-number sums as nine reads, a third of the work. In the same
// pass, `allowed` says which means have a backdrop colour.
void Smooth(const COLImage& src, const BackdropColour& model, COLImage& out, std::vector<uint8_t>& allowed)
{
    const int w = int(src.GetWidth()), h = int(src.GetHeight());
    const CPixel* in = src.GetBuffer();
    CPixel* o = out.GetBuffer();
    allowed.resize(size_t(w) * size_t(h));
    keyrows::ForRows(0, h, size_t(w), [&](int y0, int y1) {
        std::vector<int> columns(size_t(w) * 3);
        for (int y = y0; y < y1; ++y) {
            const CPixel* rows[3] = {in + size_t(std::max(0, y - 1)) * size_t(w), in + size_t(y) * size_t(w),
                                     in + size_t(std::min(h - 1, y + 1)) * size_t(w)};
            for (int x = 0; x < w; ++x) {
                int* c = &columns[size_t(x) * 3];
                c[0] = rows[0][x].red + rows[1][x].red + rows[2][x].red;
                c[1] = rows[0][x].green + rows[1][x].green + rows[2][x].green;
                c[2] = rows[0][x].blue + rows[1][x].blue + rows[2][x].blue;
            }
            for (int x = 0; x < w; ++x) {
                const int* l = &columns[size_t(std::max(0, x - 1)) * 3];
                const int* m = &columns[size_t(x) * 3];
                const int* r = &columns[size_t(std::min(w - 1, x + 1)) * 3];
                const CPixel mean = CPixel::Make(uint8_t((l[0] + m[0] + r[0]) / 9), uint8_t((l[1] + m[1] + r[1]) / 9),
                                                 uint8_t((l[2] + m[2] + r[2]) / 9));
                const size_t i = size_t(y) * size_t(w) + size_t(x);
                o[i] = mean;
                allowed[i] = model.Admits(mean);
            }
        }
    });
}

// Whether the step between two neighbours' means is small: no channel differs by more than a floor plus a share
// of the pair's brightest channel. Differences are whole numbers, so the limit is kept as the largest whole
// difference within it, one per brightness.
class CStepLimit {
public:
    CStepLimit()
    {
        for (int bright = 0; bright < 256; ++bright) {
            const float limit = kStepBase + kStepShare * float(bright);
            int k = 0;
            while (k < 255 && float(k + 1) <= limit) ++k;
            m_largest[bright] = k;
        }
    }

    bool Small(const CPixel& p, const CPixel& q) const
    {
        const int bright = std::max({p.red, p.green, p.blue, q.red, q.green, q.blue});
        const int largest = m_largest[bright];
        return std::abs(p.red - q.red) <= largest && std::abs(p.green - q.green) <= largest &&
               std::abs(p.blue - q.blue) <= largest;
    }

private:
    int m_largest[256];
};

// Marks the backdrop (1 in `back`): flooded from the border's backdrop-coloured pixels through allowed pixels
// in small steps, then patches of backdrop colour the border does not reach, when they are large.
//
// Whether a step between two neighbours is small depends on the pair alone and is symmetric, so the flooded set
// is the connected component of the seeds whatever the order of the walk. The steps are judged once for every
// pair, across cores (bit 0: the pixel and its right neighbour, bit 1: it and the one below); the walk itself
// then only reads bits and runs on one thread without a division per pixel.
void FloodBackdrop(const COLImage& smooth, const BackdropColour& model, const std::vector<uint8_t>& allowed,
                   std::vector<uint8_t>& back)
{
    const int w = int(smooth.GetWidth()), h = int(smooth.GetHeight());
    const size_t n = size_t(w) * size_t(h), stride = size_t(w);
    // 0 unseen, 1 backdrop, 2 admitted colour but not (yet) backdrop, 3 looked at and refused as an island
    std::vector<uint8_t> state(n), step(n);
    const CPixel* px = smooth.GetBuffer();
    const CStepLimit steps;
    keyrows::ForRows(0, h, size_t(w), [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const size_t row = size_t(y) * stride;
            for (int x = 0; x < w; ++x) {
                const size_t i = row + size_t(x);
                state[i] = allowed[i] ? 2 : 0;
                uint8_t bits = 0;
                if (allowed[i]) {
                    if (x + 1 < w && allowed[i + 1] && steps.Small(px[i], px[i + 1])) bits |= 1;
                    if (y + 1 < h && allowed[i + stride] && steps.Small(px[i], px[i + stride])) bits |= 2;
                }
                step[i] = bits;
            }
        }
    });

    // The walk goes by runs along rows (the pixels joined to each other by right steps), so it reads memory in
    // order: a popped pixel that is still free takes its whole run, and of each stretch of the rows above and
    // below that the run reaches by down steps, only the first pixel is put on the stack; the rest of the stretch
    // is joined to it along the row and comes with its run. Every step of every marked pixel is followed, so
    // the marked set is the same connected component as a pixel-by-pixel walk gives.
    std::vector<uint32_t> stack;
    std::vector<std::pair<size_t, size_t>> runs;   // [first, last] of each run of the current patch
    auto fill = [&](uint8_t mark) {
        size_t count = 0;
        while (!stack.empty()) {
            const size_t i = stack.back();
            stack.pop_back();
            if (state[i] != 2) continue;
            const size_t rowStart = i - i % stride;
            size_t first = i, last = i;
            while (first > rowStart && (step[first - 1] & 1) && state[first - 1] == 2) --first;
            while ((step[last] & 1) && state[last + 1] == 2) ++last;   // a row's last pixel never steps right
            for (size_t p = first; p <= last; ++p) state[p] = mark;
            count += last - first + 1;
            if (mark != 1) runs.emplace_back(first, last);
            bool open = false;
            for (size_t p = first; p <= last; ++p) {   // the row below
                const size_t q = p + stride;
                const bool go = (step[p] & 2) && state[q] == 2;
                if (go && !(open && (step[q - 1] & 1))) stack.push_back(uint32_t(q));
                open = go;
            }
            if (rowStart >= stride) {   // the row above
                open = false;
                for (size_t p = first; p <= last; ++p) {
                    const size_t q = p - stride;
                    const bool go = (step[q] & 2) && state[q] == 2;
                    if (go && !(open && (step[q - 1] & 1))) stack.push_back(uint32_t(q));
                    open = go;
                }
            }
        }
        return count;
    };
    auto seed = [&](size_t i) {
        if (state[i] != 2 || !model.Near(px[i])) return false;
        stack.push_back(uint32_t(i));
        return true;
    };
    for (int x = 0; x < w; ++x) {
        seed(size_t(x));
        seed(size_t(h - 1) * stride + size_t(x));
    }
    for (int y = 0; y < h; ++y) {
        seed(size_t(y) * stride);
        seed(size_t(y) * stride + size_t(w - 1));
    }
    fill(1);

    // Patches not reached from the border: a large one is backdrop seen through a gap; a small one is more
    // likely a part of the subject in the backdrop's colour, and is left to the solver.
    const size_t island = std::max<size_t>(64, size_t(kIslandShare * double(n)));
    for (size_t i = 0; i < n; ++i) {
        if (!seed(i)) continue;
        runs.clear();
        const uint8_t mark = fill(4) >= island ? 1 : 3;
        for (const auto& [first, last] : runs) std::fill(state.data() + first, state.data() + last + 1, mark);
    }
    back.resize(n);
    keyrows::ForRows(0, h, size_t(w), [&](int y0, int y1) {
        for (size_t i = size_t(y0) * stride, e = size_t(y1) * stride; i < e; ++i) back[i] = state[i] == 1;
    });
}

// For each pixel, how far along its row the nearest backdrop pixel lies (0 on the backdrop), capped at 255.
// A pixel lies within chessboard distance r of the backdrop exactly when one of the rows within r of it has
// this distance at most r in its column, so one row pass serves every radius the trimap asks for.
void RowDistance(const std::vector<uint8_t>& back, std::vector<uint8_t>& out, int w, int h)
{
    out.resize(back.size());
    keyrows::ForRows(0, h, size_t(w), [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const uint8_t* s = &back[size_t(y) * size_t(w)];
            uint8_t* d = &out[size_t(y) * size_t(w)];
            int last = -1000;
            for (int x = 0; x < w; ++x) {
                if (s[x]) last = x;
                d[x] = uint8_t(std::min(255, x - last));
            }
            int next = w + 1000;
            for (int x = w - 1; x >= 0; --x) {
                if (s[x]) next = x;
                d[x] = std::min(d[x], uint8_t(std::min(255, next - x)));
            }
        }
    });
}

// Smallest of the rows y - r .. y + r (within the picture) of `rows`, column by column.
void ColumnMin(const std::vector<uint8_t>& rows, int w, int h, int y, int r, uint8_t* out)
{
    const int y0 = std::max(0, y - r), y1 = std::min(h - 1, y + r);
    std::copy_n(&rows[size_t(y0) * size_t(w)], size_t(w), out);
    for (int k = y0 + 1; k <= y1; ++k) {
        const uint8_t* s = &rows[size_t(k) * size_t(w)];
        for (int x = 0; x < w; ++x) out[x] = std::min(out[x], s[x]);
    }
}

// The backdrop's colour near each pixel: the mean of the sure backdrop over cells of kCell x kCell pixels, cells
// without backdrop filled from their neighbours for a few cells, read bilinearly between cell centres. It keeps
// uneven light and shadows that a single colour would not.
class CBackdropField {
public:
    // back: non-zero where a pixel is backdrop.
    void Build(const COLImage& src, const std::vector<uint8_t>& back, CPixel fallback)
    {
        m_w = int(src.GetWidth());
        m_h = int(src.GetHeight());
        m_gw = (m_w + kCell - 1) / kCell;
        m_gh = (m_h + kCell - 1) / kCell;
        m_fallback[0] = fallback.red;
        m_fallback[1] = fallback.green;
        m_fallback[2] = fallback.blue;
        m_cells.assign(size_t(m_gw) * size_t(m_gh) * 4, 0.0f);
        const CPixel* p = src.GetBuffer();
        keyrows::ForRows(0, m_gh, size_t(m_gw) * kCell * kCell, [&](int g0, int g1) {
            for (int gy = g0; gy < g1; ++gy)
                for (int y = gy * kCell, ye = std::min(m_h, y + kCell); y < ye; ++y)
                    for (int x = 0; x < m_w; ++x) {
                        const size_t i = size_t(y) * size_t(m_w) + size_t(x);
                        if (!back[i]) continue;
                        float* c = &m_cells[(size_t(gy) * size_t(m_gw) + size_t(x / kCell)) * 4];
                        c[0] += p[i].red;
                        c[1] += p[i].green;
                        c[2] += p[i].blue;
                        c[3] += 1.0f;
                    }
        });
        for (size_t c = 0; c < m_cells.size(); c += 4)
            if (m_cells[c + 3] > 0)
                for (int k = 0; k < 3; ++k) m_cells[c + size_t(k)] /= m_cells[c + 3];
        // Fill: each pass gives an empty cell the mean of its filled neighbours of the pass before. The new
        // cells are collected first and written after the pass, so every cell of a pass reads the pass before.
        struct Filled {
            size_t at;
            float colour[3];
        };
        std::vector<Filled> next;
        for (int pass = 0; pass < kFillPasses; ++pass) {
            next.clear();
            for (int gy = 0; gy < m_gh; ++gy)
                for (int gx = 0; gx < m_gw; ++gx) {
                    const size_t at = (size_t(gy) * size_t(m_gw) + size_t(gx)) * 4;
                    if (m_cells[at + 3] > 0) continue;
                    float sum[3] = {0, 0, 0};
                    int count = 0;
                    for (int dy = -1; dy <= 1; ++dy)
                        for (int dx = -1; dx <= 1; ++dx) {
                            const int nx = gx + dx, ny = gy + dy;
                            if (nx < 0 || ny < 0 || nx >= m_gw || ny >= m_gh) continue;
                            const float* c = &m_cells[(size_t(ny) * size_t(m_gw) + size_t(nx)) * 4];
                            if (c[3] <= 0) continue;
                            for (int k = 0; k < 3; ++k) sum[k] += c[k];
                            ++count;
                        }
                    if (!count) continue;
                    Filled cell{at, {}};
                    for (int k = 0; k < 3; ++k) cell.colour[k] = sum[k] / float(count);
                    next.push_back(cell);
                }
            for (const Filled& cell : next) {
                for (int k = 0; k < 3; ++k) m_cells[cell.at + size_t(k)] = cell.colour[k];
                m_cells[cell.at + 3] = 1.0f;
            }
            if (next.empty()) break;
        }
    }

    // Where a pixel's column (or row) lies between the cells' centres: the cell before it and the share of the
    // next one.
    static void Place(int v, int& cell, float& share)
    {
        const float f = (float(v) + 0.5f) / kCell - 0.5f;
        cell = int(std::floor(f));
        share = f - float(cell);
    }

    // The colour at pixel (x, y), 0..255 per channel.
    void At(int x, int y, float out[3]) const
    {
        int x0, y0;
        float tx, ty;
        Place(x, x0, tx);
        Place(y, y0, ty);
        AtPlaced(x0, tx, y0, ty, out);
    }

    // The same from the placed column and row, for passes that place each once.
    void AtPlaced(int x0, float tx, int y0, float ty, float out[3]) const
    {
        float sum[3] = {0, 0, 0}, weight = 0;
        for (int j = 0; j < 2; ++j)
            for (int i = 0; i < 2; ++i) {
                const int gx = std::clamp(x0 + i, 0, m_gw - 1), gy = std::clamp(y0 + j, 0, m_gh - 1);
                const float* c = &m_cells[(size_t(gy) * size_t(m_gw) + size_t(gx)) * 4];
                if (c[3] <= 0) continue;
                const float wgt = (i ? tx : 1.0f - tx) * (j ? ty : 1.0f - ty);
                for (int k = 0; k < 3; ++k) sum[k] += wgt * c[k];
                weight += wgt;
            }
        for (int k = 0; k < 3; ++k) out[k] = weight > 1e-6f ? sum[k] / weight : m_fallback[k];
    }

    // Whether the colour at (x, y) comes from backdrop seen within the fill's reach.
    bool Covers(int x, int y) const
    {
        const int gx = std::min(x / kCell, m_gw - 1), gy = std::min(y / kCell, m_gh - 1);
        return m_cells[(size_t(gy) * size_t(m_gw) + size_t(gx)) * 4 + 3] > 0;
    }

private:
    int m_w = 0, m_h = 0, m_gw = 0, m_gh = 0;
    float m_fallback[3] = {0, 0, 0};
    std::vector<float> m_cells;   // r, g, b, count (after filling: 1 when known)
};

// How far a 3 x 3 mean lies from the backdrop's local colour b: the largest channel difference.
int Residual(const CPixel& p, const float b[3])
{
    const float d = std::max({std::fabs(p.red - b[0]), std::fabs(p.green - b[1]), std::fabs(p.blue - b[2])});
    return int(std::min(d, 255.0f));
}

// Corrects the flood with the backdrop's local colour. Flooded pixels that differ from it by more than the
// backdrop's noise have something in front of them, too faint for the flood's steps: a strand, the end of a soft
// edge; they leave the backdrop. Pixels the flood did not reach but that match the local colour within the noise
// (backdrop enclosed by strands, or cut off by JPEG's ringing) join it.
void CorrectBackdrop(const COLImage& smooth, const CBackdropField& field, const std::vector<uint8_t>& allowed,
                     std::vector<uint8_t>& back)
{
    const int w = int(smooth.GetWidth()), h = int(smooth.GetHeight());
    std::vector<uint8_t> residual(back.size());
    std::vector<int> cellX(static_cast<size_t>(w));
    std::vector<float> shareX(static_cast<size_t>(w));
    for (int x = 0; x < w; ++x) CBackdropField::Place(x, cellX[size_t(x)], shareX[size_t(x)]);
    const CPixel* means = smooth.GetBuffer();
    keyrows::ForRows(0, h, size_t(w), [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            int cellY;
            float shareY;
            CBackdropField::Place(y, cellY, shareY);
            for (int x = 0; x < w; ++x) {
                const size_t i = size_t(y) * size_t(w) + size_t(x);
                // A pixel neither flooded nor of backdrop colour stays out whatever its residual.
                if (back[i] || (allowed[i] && field.Covers(x, y))) {
                    float b[3];
                    field.AtPlaced(cellX[size_t(x)], shareX[size_t(x)], cellY, shareY, b);
                    residual[i] = uint8_t(Residual(means[i], b));
                } else {
                    residual[i] = 255;
                }
            }
        }
    });
    // The noise width from the median residual (a normal spread's median absolute deviation is 0.6745 sigma).
    size_t histogram[256] = {}, count = 0;
    for (size_t i = 0; i < back.size(); ++i)
        if (back[i]) {
            ++histogram[residual[i]];
            ++count;
        }
    if (!count) return;
    size_t seen = 0;
    int median = 0;
    while (median < 255 && (seen += histogram[median]) * 2 < count) ++median;
    const float limit = std::max(kResidualFloor, kResidualWidths * float(median) / 0.6745f);
    keyrows::ForRows(0, h, size_t(w), [&](int y0, int y1) {
        for (size_t i = size_t(y0) * size_t(w), e = size_t(y1) * size_t(w); i < e; ++i)
            back[i] = float(residual[i]) <= limit && (back[i] || allowed[i]);
    });
}

} // namespace

long CRefinedKeyProcess::Process(const void* params)
{
    if (CImageProcess::Process(params) != kOk || params == nullptr) return kFail;
    const ChromaKeySettings settings = *static_cast<const ChromaKeySettings*>(params);
    if (m_pSrcImage->GetWidth() > kMaxImageSide || m_pSrcImage->GetHeight() > kMaxImageSide) return kFail;
    return vmrt::GuardExhaustion([&] { return Run(settings); });
}

long CRefinedKeyProcess::Run(const ChromaKeySettings& settings)
{
    const COLImage& src = *m_pSrcImage;
    const int w = int(src.GetWidth()), h = int(src.GetHeight());
    auto at = [&](int percent) {
        return int32_t(m_progressLow + (int64_t(m_progressHigh) - m_progressLow) * percent / 100);
    };

    // The classic key: on a colourful backdrop, what it leaves below opaque near the backdrop joins the band. On
    // a gray one (the classic key's luma path) nothing of it is read, so it does not run.
    COLImage classic;
    m_chromatic = CChromaKeyProcess::IsChromatic(settings.params.backdrop);
    const int trimapEnd = m_chromatic ? kTrimapEndColourful : kTrimapEndGray;
    if (m_chromatic) {
        CChromaKeyProcess key;
        key.SetLumaStrength(settings.lumaStrength);
        key.SetImages(m_pSrcImage, &classic);
        key.SetProgressCallback(GetProgressCallback());
        key.SetProgressRange(at(0), at(kClassicEnd));
        // Only its alpha is read, which does not depend on the colour recovery (that writes colours alone).
        ChromaKeyParams params = settings.params;
        params.recoverColour = 0;
        if (key.Process(&params) != kOk) return kFail;
    }
    if (TestAndClearCancel()) return kFail;

    // The backdrop, then the band a few pixels wide on the subject's side of it.
    COLImage smooth;
    if (smooth.Create(uint32_t(w), uint32_t(h)) != kOk) return kFail;
    const BackdropColour model(settings.params.backdrop);
    std::vector<uint8_t> back, allowed;
    Smooth(src, model, smooth, allowed);
    FloodBackdrop(smooth, model, allowed, back);
    CBackdropField field;
    field.Build(src, back, settings.params.backdrop);
    CorrectBackdrop(smooth, field, allowed, back);
    allowed = std::vector<uint8_t>();
    smooth = COLImage();

    // The trimap: backdrop next to anything else and everything within the band's radius of the backdrop form the
    // band; on a colourful backdrop so does what the classic key leaves below opaque within a few band widths of
    // it (its hue distance sees JPEG's colour blocks and faint strands there that the colour steps alone let
    // through). One pass over the rows, from each pixel's distance to the backdrop along its row.
    const int radius = std::clamp(m_options.bandRadius, 1, kMaxBandRadius);
    const int reach = kUnsureReach * radius;
    std::vector<uint8_t> distance;
    RowDistance(back, distance, w, h);
    COLChannel trimap;
    if (trimap.Create(uint32_t(w), uint32_t(h)) != kOk) return kFail;
    uint8_t* t = trimap.GetBuffer();
    const CPixel* cp = classic.GetBuffer();
    const bool chromatic = m_chromatic;
    keyrows::ForRows(0, h, size_t(w), [&](int y0, int y1) {
        std::vector<uint8_t> nearRow(size_t(w), 0), wideRow(chromatic ? size_t(w) : 0, 0);
        for (int y = y0; y < y1; ++y) {
            ColumnMin(distance, w, h, y, radius, nearRow.data());
            if (chromatic) ColumnMin(distance, w, h, y, reach, wideRow.data());
            const uint8_t* rows[3] = {&back[size_t(std::max(0, y - 1)) * size_t(w)], &back[size_t(y) * size_t(w)],
                                      &back[size_t(std::min(h - 1, y + 1)) * size_t(w)]};
            uint8_t* out = t + size_t(y) * size_t(w);
            for (int x = 0; x < w; ++x) {
                if (rows[1][x]) {
                    const int l = std::max(0, x - 1), r = std::min(w - 1, x + 1);
                    bool rim = false;
                    for (const uint8_t* row : rows) rim = rim || !row[l] || !row[x] || !row[r];
                    out[x] = rim ? kTriBand : kTriBack;
                } else if (nearRow[x] <= radius ||
                           (chromatic && wideRow[x] <= reach && cp[size_t(y) * size_t(w) + size_t(x)].alpha < 255)) {
                    out[x] = kTriBand;
                } else {
                    out[x] = kTriSubject;
                }
            }
        }
    });
    classic = COLImage();
    distance = std::vector<uint8_t>();
    ReportProgress(trimapEnd);
    if (TestAndClearCancel()) return kFail;

    // The band's alpha and the subject's colour in it.
    RefinedMatteParams solve;
    solve.epsilon = m_options.epsilon;
    solve.tolerance = m_options.tolerance;
    solve.iterationCap = m_options.iterationCap;
    solve.splitSolve = 1;
    solve.colourSweeps = m_options.colourSweeps;
    COLChannel alpha;
    COLImage result;
    CSubRange range(*this, trimapEnd, kSolveEnd);
    if (SolveRefinedMatte(src, trimap, alpha, &result, solve, {}, &range) != kOk) return kFail;

    // Band colours: the compositing equation with the backdrop's local colour, I = a F + (1 - a) B, solved for F
    // in the least-squares sense with a weak pull towards the solver's estimate, which takes over where alpha is
    // too small for the equation to say much. Sure backdrop carries nothing, as the classic key leaves it.
    keyrows::ForRows(0, h, size_t(w), [&](int y0, int y1) {
        for (size_t i = size_t(y0) * size_t(w), e = size_t(y1) * size_t(w); i < e; ++i) back[i] = t[i] == kTriBack;
    });
    field.Build(src, back, settings.params.backdrop);
    CPixel* r = result.GetBuffer();
    const CPixel* s = src.GetBuffer();
    keyrows::ForRows(0, h, size_t(w), [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            for (int x = 0; x < w; ++x) {
                const size_t i = size_t(y) * size_t(w) + size_t(x);
                if (t[i] == kTriBack) {
                    r[i] = CPixel{0, 0, 0, 0};
                    continue;
                }
                if (t[i] != kTriBand) continue;
                float b[3];
                field.At(x, y, b);
                const float a = r[i].alpha / 255.0f;
                const float in[3] = {float(s[i].red), float(s[i].green), float(s[i].blue)};
                const float prior[3] = {float(r[i].red), float(r[i].green), float(r[i].blue)};
                uint8_t out[3];
                for (int k = 0; k < 3; ++k) {
                    const float f = (a * (in[k] - (1.0f - a) * b[k]) + kColourPrior * prior[k]) / (a * a + kColourPrior);
                    out[k] = uint8_t(std::clamp(f, 0.0f, 255.0f) + 0.5f);
                }
                r[i].red = out[0];
                r[i].green = out[1];
                r[i].blue = out[2];
            }
    });
    m_trimap = std::move(trimap);
    *m_pDstImage = std::move(result);
    ReportProgress(100);
    return kOk;
}

long RunBackdropKey(const ChromaKeySettings& settings, COLImage& source, COLImage& result, ProgressCallback progress,
                    bool* chromatic)
{
    long r;
    bool hue;
    if (settings.refine) {
        CRefinedKeyProcess process;
        process.SetImages(&source, &result);
        process.SetProgressCallback(progress);
        process.SetProgressRange(0, 100);
        r = process.Process(&settings);
        hue = process.WasChromatic();
    } else {
        CChromaKeyProcess process;
        process.SetLumaStrength(settings.lumaStrength);
        process.SetImages(&source, &result);
        process.SetProgressCallback(progress);
        process.SetProgressRange(0, 100);
        r = process.Process(&settings.params);
        hue = process.WasChromatic();
    }
    if (chromatic) *chromatic = hue;
    return r;
}
