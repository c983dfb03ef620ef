#include "effects/lens_blur.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <immintrin.h>
#include <new>

#include "filters/resample.h"
#include "imaging/codec.h"
#include "matting/gaussian.h"
#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"

namespace {

constexpr int kSide = CLensBlurProcess::kApertureSide;
constexpr int kCentre = kSide / 2; // the kernel byte that stands over the pixel itself
constexpr int kTileRows = CLensBlurProcess::kTileRows;
constexpr int kTileColumns = CLensBlurProcess::kTileColumns;
constexpr int kGrayHighlight = 220; // only pixels brighter than this go through the highlight curve
constexpr int kLanes = 8;           // pixels gathered together in the vector path

// A column term of the interior sum: coef times the row prefix sums at column x + c, over image rows y + r0 ..
// y + r1 - 1. A run of weight w from column a to b adds w P(b) - w P(a); where runs meet, the two terms at their
// shared column fold into one with the difference of their weights, so every boundary of a kernel row is read
// once. Terms that repeat from one kernel row to the next, as along the upright sides of a hexagon or octagon,
// grow down into one term read from the summed-area table.
struct Term {
    int16_t r0, r1;
    int16_t c;
    int16_t unused;
    int32_t coef;
};

// One kernel plane inside its window: rows and columns max(32 - d, 0) up to (not including) min(32 + d, 64).
// rows and tall hold the column terms of one and of several rows.
struct PlaneRects {
    std::vector<Term> rows;
    std::vector<Term> tall;
    int lo = 0, hi = 0;
    uint32_t total = 0; // weight sum of the whole window
    // Weights summed over kernel rows 0 .. r - 1 and columns 0 .. c - 1 at [r * (kSide + 1) + c], for windows
    // that the picture's edge cuts.
    std::vector<uint32_t> weights = std::vector<uint32_t>(size_t(kSide + 1) * (kSide + 1), 0);
    uint32_t Weight(int r0, int r1, int c0, int c1) const
    {
        auto at = [this](int r, int c) { return weights[size_t(r) * (kSide + 1) + size_t(c)]; };
        return at(r1, c1) - at(r0, c1) - at(r1, c0) + at(r0, c0);
    }
};

PlaneRects MakeRects(const uint8_t* plane, int d)
{
    PlaneRects p;
    p.lo = std::max(kCentre - d, 0);
    p.hi = std::min(kCentre + d, kSide);
    std::vector<Term> open, closed;
    for (int r = p.lo; r < p.hi; ++r) {
        const uint8_t* row = plane + r * kSide;
        for (int c = p.lo; c < p.hi;) {
            const uint8_t w = row[c];
            int e = c + 1;
            while (e < p.hi && row[e] == w)
                ++e;
            p.total += uint32_t(w) * uint32_t(e - c);
            c = e;
        }
        std::vector<Term> next;
        for (int c = p.lo; c <= p.hi; ++c) {
            const int left = c > p.lo ? row[c - 1] : 0, right = c < p.hi ? row[c] : 0;
            if (left == right) continue;
            const Term t{int16_t(r - kCentre), int16_t(r + 1 - kCentre), int16_t(c - kCentre), 0, left - right};
            auto same =
                std::find_if(open.begin(), open.end(), [&](const Term& o) { return o.c == t.c && o.coef == t.coef; });
            if (same != open.end()) {
                Term grown = *same;
                grown.r1 = t.r1;
                open.erase(same);
                next.push_back(grown);
            } else {
                next.push_back(t);
            }
        }
        closed.insert(closed.end(), open.begin(), open.end());
        open = std::move(next);
    }
    closed.insert(closed.end(), open.begin(), open.end());
    for (const Term& t : closed)
        (t.r1 - t.r0 == 1 ? p.rows : p.tall).push_back(t);
    for (int r = 0; r < kSide; ++r)
        for (int c = 0, line = 0; c < kSide; ++c) {
            line += plane[r * kSide + c];
            p.weights[size_t(r + 1) * (kSide + 1) + size_t(c + 1)] =
                p.weights[size_t(r) * (kSide + 1) + size_t(c + 1)] + uint32_t(line);
        }
    return p;
}

// Prefix sums of a tile with a margin of one kernel half on every side: rows y0 .. y0 + rows - 1 and columns
// x0 .. x0 + columns - 1, where the margin may lie off the picture. The three channels (blue, green, red) of one
// row sit side by side, each stride words long (fixed, so that the gather's loads take constant offsets). Row(ch, y)[j]
// sums the values of columns x0 .. x0 + j - 1 of row y, Area(ch, y)[j] the same over rows y0 .. y - 1. A place off the
// picture adds 0, so a window that the picture's edge cuts is summed like any other, and exactly like the picture-cut
// window. Sums wrap modulo 2^32; the differences the gather takes are small enough to come out exact. The sums start at
// the tile's left column and not at the picture's: every kernel row's column terms have coefficients that add up to 0,
// so a constant in a row of prefix sums drops out and the bytes are those of sums over whole picture rows.
struct Band {
    int y0 = 0; // picture row of tile row 0, above the picture at its top
    int x0 = 0; // picture column of prefix index 0, left of the picture at its left
    static constexpr size_t stride = kTileColumns + 2 * kCentre + 1; // words per channel and row
    std::vector<uint32_t> row;
    std::vector<uint32_t> area;
    size_t At(int ch, int y) const { return (size_t(y - y0) * 3 + size_t(ch)) * stride; }
    const uint32_t* Row(int ch, int y) const { return row.data() + At(ch, y); }
    const uint32_t* Area(int ch, int y) const { return area.data() + At(ch, y); }
};

// A plane's column terms laid out for the gather: offsets from the pixel's place in the tile, for the tile's row step
// (three channels), grouped by coefficient so that each group costs one multiply.
struct FastTerms {
    struct Group {
        uint32_t begin, end;
        int32_t coef;
    };
    std::vector<std::ptrdiff_t> rows; // row prefix offsets
    std::vector<Group> rowGroups;
    std::vector<std::ptrdiff_t> tall; // pairs of summed-area offsets: bottom, top
    std::vector<Group> tallGroups;
};

FastTerms PrepareFast(const PlaneRects& plane, size_t rowStep)
{
    FastTerms f;
    auto group = [](std::vector<Term> terms, std::vector<FastTerms::Group>& groups, auto&& emit) {
        std::stable_sort(terms.begin(), terms.end(), [](const Term& a, const Term& b) { return a.coef < b.coef; });
        for (size_t i = 0; i < terms.size();) {
            size_t j = i;
            const uint32_t begin = uint32_t(emit(terms[i], true));
            while (j < terms.size() && terms[j].coef == terms[i].coef)
                emit(terms[j++], false);
            groups.push_back({begin, uint32_t(emit(terms[i], true)), terms[i].coef});
            i = j;
        }
    };
    const std::ptrdiff_t s = std::ptrdiff_t(rowStep);
    group(plane.rows, f.rowGroups, [&](const Term& t, bool count) {
        if (!count) f.rows.push_back(t.r0 * s + t.c);
        return f.rows.size();
    });
    group(plane.tall, f.tallGroups, [&](const Term& t, bool count) {
        if (!count) {
            f.tall.push_back(t.r1 * s + t.c);
            f.tall.push_back(t.r0 * s + t.c);
        }
        return f.tall.size() / 2;
    });
    return f;
}

VM_TARGET_AVX2 inline __m256i Load8(const uint32_t* q)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q));
}

// Sixteen pixels x .. x + 15 of one diameter in the tile. The three channels of a term sit one stride apart, so
// one offset serves all of them.
VM_TARGET_AVX2 void GatherInterior16(const FastTerms& f, const Band& band, int x, int y, uint32_t (&out)[3][2 * kLanes])
{
    constexpr size_t g1 = Band::stride, g2 = 2 * Band::stride;
    const size_t at = band.At(0, y) + size_t(x - band.x0);
    const uint32_t* row = band.row.data() + at;
    const uint32_t* area = band.area.data() + at;
    __m256i a0 = _mm256_setzero_si256(), a1 = a0, a2 = a0, a3 = a0, a4 = a0, a5 = a0;
#define VM_LB_ACCUMULATE(coef)                                                                                         \
    do {                                                                                                               \
        const __m256i c = _mm256_set1_epi32(coef);                                                                     \
        a0 = _mm256_add_epi32(a0, _mm256_mullo_epi32(s0, c));                                                          \
        a1 = _mm256_add_epi32(a1, _mm256_mullo_epi32(s1, c));                                                          \
        a2 = _mm256_add_epi32(a2, _mm256_mullo_epi32(s2, c));                                                          \
        a3 = _mm256_add_epi32(a3, _mm256_mullo_epi32(s3, c));                                                          \
        a4 = _mm256_add_epi32(a4, _mm256_mullo_epi32(s4, c));                                                          \
        a5 = _mm256_add_epi32(a5, _mm256_mullo_epi32(s5, c));                                                          \
    } while (0)
    for (const FastTerms::Group& g : f.rowGroups) {
        __m256i s0 = _mm256_setzero_si256(), s1 = s0, s2 = s0, s3 = s0, s4 = s0, s5 = s0;
        const std::ptrdiff_t *o = f.rows.data() + g.begin, *e = f.rows.data() + g.end;
        // Two terms a step: half the additions into the running sums.
        for (; e - o >= 2; o += 2) {
            const uint32_t *q = row + o[0], *r = row + o[1];
            s0 = _mm256_add_epi32(s0, _mm256_add_epi32(Load8(q), Load8(r)));
            s1 = _mm256_add_epi32(s1, _mm256_add_epi32(Load8(q + kLanes), Load8(r + kLanes)));
            s2 = _mm256_add_epi32(s2, _mm256_add_epi32(Load8(q + g1), Load8(r + g1)));
            s3 = _mm256_add_epi32(s3, _mm256_add_epi32(Load8(q + g1 + kLanes), Load8(r + g1 + kLanes)));
            s4 = _mm256_add_epi32(s4, _mm256_add_epi32(Load8(q + g2), Load8(r + g2)));
            s5 = _mm256_add_epi32(s5, _mm256_add_epi32(Load8(q + g2 + kLanes), Load8(r + g2 + kLanes)));
        }
        if (o != e) {
            const uint32_t* q = row + *o;
            s0 = _mm256_add_epi32(s0, Load8(q));
            s1 = _mm256_add_epi32(s1, Load8(q + kLanes));
            s2 = _mm256_add_epi32(s2, Load8(q + g1));
            s3 = _mm256_add_epi32(s3, Load8(q + g1 + kLanes));
            s4 = _mm256_add_epi32(s4, Load8(q + g2));
            s5 = _mm256_add_epi32(s5, Load8(q + g2 + kLanes));
        }
        VM_LB_ACCUMULATE(g.coef);
    }
    for (const FastTerms::Group& g : f.tallGroups) {
        __m256i s0 = _mm256_setzero_si256(), s1 = s0, s2 = s0, s3 = s0, s4 = s0, s5 = s0;
        for (uint32_t i = g.begin; i < g.end; ++i) {
            const uint32_t* b = area + f.tall[2 * i];
            const uint32_t* t = area + f.tall[2 * i + 1];
            s0 = _mm256_add_epi32(s0, _mm256_sub_epi32(Load8(b), Load8(t)));
            s1 = _mm256_add_epi32(s1, _mm256_sub_epi32(Load8(b + kLanes), Load8(t + kLanes)));
            s2 = _mm256_add_epi32(s2, _mm256_sub_epi32(Load8(b + g1), Load8(t + g1)));
            s3 = _mm256_add_epi32(s3, _mm256_sub_epi32(Load8(b + g1 + kLanes), Load8(t + g1 + kLanes)));
            s4 = _mm256_add_epi32(s4, _mm256_sub_epi32(Load8(b + g2), Load8(t + g2)));
            s5 = _mm256_add_epi32(s5, _mm256_sub_epi32(Load8(b + g2 + kLanes), Load8(t + g2 + kLanes)));
        }
        VM_LB_ACCUMULATE(g.coef);
    }
#undef VM_LB_ACCUMULATE
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[0]), a0);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[0] + kLanes), a1);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[1]), a2);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[1] + kLanes), a3);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[2]), a4);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[2] + kLanes), a5);
}

// Eight pixels x .. x + 7 of one diameter, as above, in the first eight lanes of out.
VM_TARGET_AVX2 void GatherInterior8(const FastTerms& f, const Band& band, int x, int y, uint32_t (&out)[3][2 * kLanes])
{
    const size_t at = band.At(0, y) + size_t(x - band.x0);
    constexpr size_t g1 = Band::stride, g2 = 2 * Band::stride;
    const uint32_t* row = band.row.data() + at;
    const uint32_t* area = band.area.data() + at;
    __m256i a0 = _mm256_setzero_si256(), a1 = a0, a2 = a0;
    for (const FastTerms::Group& g : f.rowGroups) {
        __m256i s0 = _mm256_setzero_si256(), s1 = s0, s2 = s0;
        for (uint32_t i = g.begin; i < g.end; ++i) {
            const uint32_t* q = row + f.rows[i];
            s0 = _mm256_add_epi32(s0, Load8(q));
            s1 = _mm256_add_epi32(s1, Load8(q + g1));
            s2 = _mm256_add_epi32(s2, Load8(q + g2));
        }
        const __m256i c = _mm256_set1_epi32(g.coef);
        a0 = _mm256_add_epi32(a0, _mm256_mullo_epi32(s0, c));
        a1 = _mm256_add_epi32(a1, _mm256_mullo_epi32(s1, c));
        a2 = _mm256_add_epi32(a2, _mm256_mullo_epi32(s2, c));
    }
    for (const FastTerms::Group& g : f.tallGroups) {
        __m256i s0 = _mm256_setzero_si256(), s1 = s0, s2 = s0;
        for (uint32_t i = g.begin; i < g.end; ++i) {
            const uint32_t* b = area + f.tall[2 * i];
            const uint32_t* t = area + f.tall[2 * i + 1];
            s0 = _mm256_add_epi32(s0, _mm256_sub_epi32(Load8(b), Load8(t)));
            s1 = _mm256_add_epi32(s1, _mm256_sub_epi32(Load8(b + g1), Load8(t + g1)));
            s2 = _mm256_add_epi32(s2, _mm256_sub_epi32(Load8(b + g2), Load8(t + g2)));
        }
        const __m256i c = _mm256_set1_epi32(g.coef);
        a0 = _mm256_add_epi32(a0, _mm256_mullo_epi32(s0, c));
        a1 = _mm256_add_epi32(a1, _mm256_mullo_epi32(s1, c));
        a2 = _mm256_add_epi32(a2, _mm256_mullo_epi32(s2, c));
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[0]), a0);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[1]), a1);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[2]), a2);
}

// One pixel, without vectors.
void GatherOne(const FastTerms& f, const Band& band, int x, int y, uint32_t (&out)[3][2 * kLanes])
{
    const size_t at = band.At(0, y) + size_t(x - band.x0);
    for (int ch = 0; ch < 3; ++ch) {
        const uint32_t* row = band.row.data() + at + size_t(ch) * band.stride;
        const uint32_t* area = band.area.data() + at + size_t(ch) * band.stride;
        uint32_t acc = 0;
        for (const FastTerms::Group& g : f.rowGroups) {
            uint32_t sum = 0;
            for (uint32_t i = g.begin; i < g.end; ++i)
                sum += row[f.rows[i]];
            acc += sum * uint32_t(g.coef);
        }
        for (const FastTerms::Group& g : f.tallGroups) {
            uint32_t sum = 0;
            for (uint32_t i = g.begin; i < g.end; ++i)
                sum += area[f.tall[2 * i]] - area[f.tall[2 * i + 1]];
            acc += sum * uint32_t(g.coef);
        }
        out[ch][0] = acc;
    }
}

// Prefix sums of one picture row's values at prefix indices j0 .. j1 - 1, index j adding the value of picture
// column x0 + j, eight indices a step, carrying on from s (blue, green, red); and the summed-area row below them.
// Returns the index where it stopped; the caller finishes the rest one by one.
VM_TARGET_AVX2 int BuildRow8(const CPixel* in, int x0, int j0, int j1, const int32_t* curve, uint32_t (&s)[3],
                             uint32_t* row, const uint32_t* above, uint32_t* area)
{
    constexpr size_t g[3] = {0, Band::stride, 2 * Band::stride};
    const __m256i byte = _mm256_set1_epi32(0xFF);
    __m256i carry[3];
    for (int ch = 0; ch < 3; ++ch)
        carry[ch] = _mm256_set1_epi32(int32_t(s[ch]));
    int j = j0;
    for (; j + kLanes <= j1; j += kLanes) {
        const __m256i p = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + x0 + j));
        __m256i v[3] = {_mm256_and_si256(p, byte), _mm256_and_si256(_mm256_srli_epi32(p, 8), byte),
                        _mm256_and_si256(_mm256_srli_epi32(p, 16), byte)};
        // gray = (3 red + 6 green + blue) / 10; x * 52429 >> 19 is x / 10 for every x up to 2550.
        const __m256i weighted = _mm256_add_epi32(_mm256_add_epi32(_mm256_mullo_epi32(v[2], _mm256_set1_epi32(3)),
                                                                   _mm256_mullo_epi32(v[1], _mm256_set1_epi32(6))),
                                                  v[0]);
        const __m256i gray = _mm256_srli_epi32(_mm256_mullo_epi32(weighted, _mm256_set1_epi32(52429)), 19);
        const __m256i bright = _mm256_cmpgt_epi32(gray, _mm256_set1_epi32(kGrayHighlight));
        if (!_mm256_testz_si256(bright, bright))
            for (int ch = 0; ch < 3; ++ch)
                v[ch] = _mm256_blendv_epi8(v[ch], _mm256_i32gather_epi32(curve, v[ch], 4), bright);
        for (int ch = 0; ch < 3; ++ch) {
            // Running sums across the eight lanes: within each half, then the low half's total into the high.
            __m256i x = v[ch];
            x = _mm256_add_epi32(x, _mm256_slli_si256(x, 4));
            x = _mm256_add_epi32(x, _mm256_slli_si256(x, 8));
            const __m256i low = _mm256_shuffle_epi32(x, 0xFF);
            x = _mm256_add_epi32(x, _mm256_permute2x128_si256(low, low, 0x08));
            x = _mm256_add_epi32(x, carry[ch]);
            carry[ch] = _mm256_permutevar8x32_epi32(x, _mm256_set1_epi32(7));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(row + g[ch] + j), x);
            const __m256i up = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(above + g[ch] + j));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(area + g[ch] + j), _mm256_add_epi32(up, x));
        }
    }
    for (int ch = 0; ch < 3; ++ch)
        s[ch] = uint32_t(_mm256_cvtsi256_si32(carry[ch]));
    return j;
}

// s / weight, capped at 255; weight is not 0.
uint8_t Mean(uint32_t s, uint32_t weight)
{
    return uint8_t(std::min<uint32_t>(s / weight, 255));
}

// The same by a divisor fixed for a whole plane: a multiply by the reciprocal, whose error stays far below one,
// and one step of correction in integers makes the quotient exact.
struct PlaneDivider {
    uint32_t d;
    double inverse;
    explicit PlaneDivider(uint32_t divisor) : d(divisor), inverse(1.0 / divisor) {}
    uint8_t operator()(uint32_t s) const
    {
        if (uint64_t(s) >= uint64_t(255) * d) return 255;
        uint32_t q = uint32_t(double(s) * inverse);
        if (uint64_t(q) * d > s)
            --q;
        else if (uint64_t(q + 1) * d <= s)
            ++q;
        return uint8_t(q);
    }
};

} // namespace

CLensBlurProcess::CLensBlurProcess() : m_kernels(size_t(kKernelPlanes) * kSide * kSide, 0) {}

CLensBlurProcess::~CLensBlurProcess() = default;

bool CLensBlurProcess::BuildDiameterTable(double radius, uint8_t (&table)[256])
{
    bool half = false;
    for (int v = 0; v < 256; ++v) {
        const double d = 2.0 * radius * std::pow(v * 0.00392156862745098, 1.5);
        if (d >= 64.0) half = true; // the truncated diameter is above 63
        table[v] = d >= 255.0 ? 255 : (d > 0.0 ? static_cast<uint8_t>(d) : 0);
    }
    return half;
}

void CLensBlurProcess::BuildHighlightCurve(int32_t threshold, int32_t amplitude, int32_t (&curve)[256])
{
    const int t = std::clamp(threshold, 0, 256);
    for (int i = 0; i < 256; ++i)
        curve[i] = i;
    if (t > 254) {
        curve[255] = 255;
        return;
    }
    const int32_t k = amplitude * 32 / (255 - t);
    for (int i = t; i < 256; ++i)
        curve[i] = (i - t) * k + i;
}

bool CLensBlurProcess::BuildKernels(const COLChannel& aperture, uint8_t* planes)
{
    std::memset(planes, 0, size_t(kKernelPlanes) * kSide * kSide);
    if (aperture.IsNull() || aperture.GetWidth() != uint32_t(kSide) || aperture.GetHeight() != uint32_t(kSide))
        return true; // a shape of another size leaves the kernels empty
    COLImage shape, sized;
    if (shape.Create(kSide, kSide) != kOk) return false;
    for (int i = 0; i < kSide * kSide; ++i) {
        const uint8_t v = aperture.GetBuffer()[i];
        shape.GetBuffer()[i] = CPixel{v, v, v, v};
    }
    COLImageCodec codec;
    for (int n = 2; n <= kSide; ++n) {
        if (!codec.Resample(&shape, &sized, n, n, 1)) return false;
        uint8_t* plane = planes + size_t(n - 1) * kSide * kSide;
        const int offset = (kSide - n) / 2;
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x)
                plane[(offset + y) * kSide + offset + x] = sized.GetPixel2(uint32_t(x), uint32_t(y)).red;
    }
    return true;
}

long CLensBlurProcess::Process(const void* params)
{
    if (CImageProcess::Process(params) != kOk || !params || m_pSrcImage == m_pDstImage) return kFail;
    const LensBlurParams& p = *static_cast<const LensBlurParams*>(params);
    const uint32_t w = m_pSrcImage->GetWidth(), h = m_pSrcImage->GetHeight();
    auto sameSize = [&](const COLChannel* c) { return c->GetWidth() == w && c->GetHeight() == h && !c->IsNull(); };
    if (!p.depth || !sameSize(p.depth)) return kFail;
    try {
        // A shape of another size than 64 x 64 is not taken: the kernels stay empty and the gather keeps pixels.
        if (m_aperture.Create(kSide, kSide) != kOk) return kFail;
        if (!p.aperture.IsNull() && p.aperture.GetWidth() == uint32_t(kSide) &&
            p.aperture.GetHeight() == uint32_t(kSide))
            std::memcpy(m_aperture.GetBuffer(), p.aperture.GetBuffer(), size_t(kSide) * kSide);
        else
            std::memset(m_aperture.GetBuffer(), 0, size_t(kSide) * kSide);
        m_pDepth = p.depth;
        m_pMask = p.mask;
        m_radius = p.radius;
        m_highlightThreshold = p.highlightThreshold;
        m_highlightAmplitude = p.highlightAmplitude;
        m_pixelCount = int32_t(w * h);

        if (!CopySourceToResult()) return kFail;
        uint8_t table[256];
        if (BuildDiameterTable(m_radius, table)) m_needsHalfPass = 1;
        if (m_diameterMap.Create(w, h) != kOk) return kFail;
        const uint8_t* depth = m_pDepth->GetBuffer();
        uint8_t* diameter = m_diameterMap.GetBuffer();
        for (size_t i = 0, n = size_t(w) * h; i < n; ++i)
            diameter[i] = table[depth[i]];

        ReportProgress(3);
        const COLImage* source = m_pSrcImage;
        if (m_pMask && sameSize(m_pMask) && RemoveForeground()) source = &m_filledSource;

        ReportProgress(8);
        if (!BuildKernels(m_aperture, m_kernels.data())) return kFail;
        BuildHighlightCurve(m_highlightThreshold, m_highlightAmplitude, m_highlightCurve);
        ReportProgress(10);

        if (StopRequested() || (m_needsHalfPass && !HalfSizePass(*source))) return Stopped();
        ReportProgress(30);
        Gather(*source);
        m_filledSource.Free();
        m_halfResult.Free();
        if (StopRequested()) return Stopped();
    } catch (const std::bad_alloc&) {
        return kFail;
    }
    ReportProgress(100);
    return kOk;
}

bool CLensBlurProcess::StopRequested() const
{
    return m_cancel.load(std::memory_order_relaxed) != 0 || (m_pParent && m_pParent->StopRequested());
}

long CLensBlurProcess::Stopped()
{
    // The request is answered: the next run starts afresh.
    TestAndClearCancel();
    m_filledSource.Free();
    m_halfResult.Free();
    return kFail;
}

bool CLensBlurProcess::RemoveForeground()
{
    const COLImage& src = *m_pSrcImage;
    COLImage& dst = *m_pDstImage;
    const uint8_t* mask = m_pMask->GetBuffer();
    const size_t n = src.GetPixelCount();
    // The foreground becomes zero, which the blur treats as premultiplied transparency.
    for (size_t i = 0; i < n; ++i) {
        CPixel q = src.GetBuffer()[i];
        q.alpha = 255;
        dst.GetBuffer()[i] = mask[i] <= 64 ? q : CPixel{0, 0, 0, 0};
    }
    ReportProgress(4);
    CGaussianProcess gauss;
    const double sigma = m_radius * 1.25;
    gauss.SetImages(&dst, &m_filledSource);
    if (gauss.Process(&sigma) != kOk) return false;
    ReportProgress(7);
    // Where enough surrounding colour arrived, un-premultiply it; elsewhere keep the source pixel.
    CPixel* f = m_filledSource.GetBuffer();
    for (size_t i = 0; i < n; ++i) {
        if (mask[i] > 64 && f[i].alpha > 16) {
            const uint32_t a = f[i].alpha;
            f[i].blue = uint8_t(std::min<uint32_t>(f[i].blue * 255u / a, 255));
            f[i].green = uint8_t(std::min<uint32_t>(f[i].green * 255u / a, 255));
            f[i].red = uint8_t(std::min<uint32_t>(f[i].red * 255u / a, 255));
        } else {
            f[i] = src.GetBuffer()[i];
        }
    }
    return true;
}

bool CLensBlurProcess::HalfSizePass(const COLImage& source)
{
    const uint32_t hw = (source.GetWidth() + 1) >> 1, hh = (source.GetHeight() + 1) >> 1;
    COLImageCodec codec;
    if (!codec.Resample(&source, &m_halfSource, int(hw), int(hh), 1)) return false;
    if (!ShrinkChannelArea(m_pDepth, &m_halfDepth, int(hw), int(hh))) return false;
    auto half = std::make_unique<CLensBlurProcess>();
    half->m_pParent = this;
    half->SetImages(&m_halfSource, &m_halfResult);
    half->SetProgressCallback(GetProgressCallback());
    const int64_t span = int64_t(m_progressHigh) - m_progressLow;
    half->SetProgressRange(int32_t(m_progressLow + 10 * span / 100), int32_t(m_progressLow + 30 * span / 100));
    LensBlurParams params;
    if (!params.aperture.DuplicateFrom(&m_aperture)) return false;
    params.depth = &m_halfDepth;
    params.radius = m_radius * 0.5;
    params.highlightThreshold = m_highlightThreshold;
    params.highlightAmplitude = m_highlightAmplitude;
    if (half->Process(&params) != kOk) return false;
    m_halfSource.Free();
    m_halfDepth.Free();
    return true;
}

void CLensBlurProcess::Gather(const COLImage& source)
{
    const int W = int(source.GetWidth()), H = int(source.GetHeight());
    // Every tile has the same stride, so one layout of the column terms serves them all.
    constexpr size_t stride = Band::stride;
    std::vector<PlaneRects> planes(kKernelPlanes);
    std::vector<FastTerms> fast(kKernelPlanes);
    for (int d = 1; d < kKernelPlanes; ++d) {
        planes[size_t(d)] = MakeRects(GetKernel(d), d);
        fast[size_t(d)] = PrepareFast(planes[size_t(d)], 3 * stride);
    }
    const uint8_t* diameter = m_diameterMap.GetBuffer();
    const int32_t* curve = m_highlightCurve;
    const int base = m_needsHalfPass ? 30 : 10, span = m_needsHalfPass ? 70 : 90;
    const int tilesAcross = (W + kTileColumns - 1) / kTileColumns, tilesDown = (H + kTileRows - 1) / kTileRows;
    const bool vector = vmsimd::CurrentLevel() >= vmsimd::kAvx2;
    const int64_t total = int64_t(W) * H;
    std::atomic<int64_t> pixelsDone{0};

    // Tiles in rows of tiles, left to right: the working set of one output row (a kernel's height of prefix rows
    // over the tile's width) stays in the core's own cache, where whole picture rows would not.
    vmpar::ParallelFor(size_t(tilesAcross) * size_t(tilesDown), 1, [&](size_t begin, size_t end, unsigned part) {
        Band band;
        for (size_t item = begin; item < end; ++item) {
            if (StopRequested()) return; // the caller throws the destination away
            const int y0 = int(item / size_t(tilesAcross)) * kTileRows, y1 = std::min(H, y0 + kTileRows);
            const int x0 = int(item % size_t(tilesAcross)) * kTileColumns, x1 = std::min(W, x0 + kTileColumns);
            bool gathers = false;
            for (int y = y0; y < y1 && !gathers; ++y)
                gathers = std::any_of(diameter + size_t(y) * W + x0, diameter + size_t(y) * W + x1,
                                      [](uint8_t d) { return d && d < 64; });
            if (gathers) {
                // The values the gather adds, colour or the highlight curve of a bright pixel, summed along the
                // tile's rows and then down the tile; 0 off the picture.
                band.y0 = y0 - kCentre;
                band.x0 = x0 - kCentre;
                const int rows = y1 - y0 + 2 * kCentre, columns = x1 - x0 + 2 * kCentre;
                const int jLo = std::max(0, -band.x0), jHi = std::min(columns, W - band.x0); // on the picture
                constexpr size_t g1 = Band::stride;
                band.row.resize(band.stride * 3 * size_t(rows));
                band.area.resize(band.stride * 3 * size_t(rows + 1));
                std::fill_n(band.area.data(), 3 * band.stride, 0u);
                for (int k = 0; k < rows; ++k) {
                    uint32_t* row = band.row.data() + band.stride * 3 * size_t(k);
                    const uint32_t* above = band.area.data() + band.stride * 3 * size_t(k);
                    uint32_t* area = band.area.data() + band.stride * 3 * size_t(k + 1);
                    const int y = band.y0 + k;
                    uint32_t s[3] = {0, 0, 0};
                    auto put = [&](int j) {
                        for (int ch = 0; ch < 3; ++ch) {
                            row[size_t(ch) * g1 + size_t(j)] = s[ch];
                            area[size_t(ch) * g1 + size_t(j)] = above[size_t(ch) * g1 + size_t(j)] + s[ch];
                        }
                    };
                    int j = 0;
                    for (; j <= jLo; ++j)
                        put(j);
                    if (y >= 0 && y < H) {
                        const CPixel* in = source.GetBuffer(0, uint32_t(y));
                        if (vector) j = BuildRow8(in, band.x0 - 1, j, jHi + 1, curve, s, row, above, area);
                        for (; j <= jHi; ++j) {
                            const CPixel q = in[band.x0 + j - 1];
                            const bool bright = q.GetGray2() > kGrayHighlight;
                            s[0] += bright ? uint32_t(curve[q.blue]) : q.blue;
                            s[1] += bright ? uint32_t(curve[q.green]) : q.green;
                            s[2] += bright ? uint32_t(curve[q.red]) : q.red;
                            put(j);
                        }
                    }
                    for (; j <= columns; ++j)
                        put(j);
                }
            }
            for (int y = y0; y < y1; ++y) {
                const uint8_t* dRow = diameter + size_t(y) * W;
                const CPixel* sRow = source.GetBuffer(0, uint32_t(y));
                CPixel* out = m_pDstImage->GetBuffer(0, uint32_t(y));
                for (int x = x0; x < x1;) {
                    const int d = dRow[x];
                    if (d == 0) {
                        out[x] = sRow[x];
                        ++x;
                        continue;
                    }
                    if (d >= 64) {
                        out[x] = m_halfResult.GetPixel2(uint32_t(x / 2), uint32_t(y / 2));
                        ++x;
                        continue;
                    }
                    // Sixteen, eight or one pixel of one diameter in the tile.
                    auto same = [&](int n) {
                        return x + n <= x1 &&
                               std::all_of(dRow + x + 1, dRow + x + n, [d](uint8_t v) { return v == d; });
                    };
                    const int n = !vector ? 1 : same(2 * kLanes) ? 2 * kLanes : same(kLanes) ? kLanes : 1;
                    uint32_t sums[3][2 * kLanes];
                    if (n == 2 * kLanes)
                        GatherInterior16(fast[size_t(d)], band, x, y, sums);
                    else if (n == kLanes)
                        GatherInterior8(fast[size_t(d)], band, x, y, sums);
                    else
                        GatherOne(fast[size_t(d)], band, x, y, sums);
                    const PlaneRects& plane = planes[size_t(d)];
                    // The window, cut to the picture: kernel rows and columns lo .. hi - 1.
                    const int rLo = std::max(plane.lo, kCentre - y), rHi = std::min(plane.hi, H + kCentre - y);
                    const bool inside = rLo == plane.lo && rHi == plane.hi && kCentre - x <= plane.lo &&
                                        W + kCentre - (x + n - 1) >= plane.hi;
                    if (inside && plane.total) {
                        const PlaneDivider mean(plane.total);
                        for (int i = 0; i < n; ++i)
                            out[x + i] = CPixel{mean(sums[0][i]), mean(sums[1][i]), mean(sums[2][i]), 255};
                    } else {
                        for (int i = 0; i < n; ++i) {
                            const int cLo = std::max(plane.lo, kCentre - (x + i));
                            const int cHi = std::min(plane.hi, W + kCentre - (x + i));
                            const uint32_t weight = plane.Weight(rLo, rHi, cLo, cHi);
                            // Nothing of the aperture falls on the picture: the pixel keeps what the destination
                            // holds.
                            if (weight)
                                out[x + i] = CPixel{Mean(sums[0][i], weight), Mean(sums[1][i], weight),
                                                    Mean(sums[2][i], weight), 255};
                        }
                    }
                    x += n;
                }
            }
            const int64_t done = pixelsDone.fetch_add(int64_t(y1 - y0) * (x1 - x0)) + int64_t(y1 - y0) * (x1 - x0);
            if (part == 0) ReportProgress(base + int32_t(span * done / total));
        }
    });
    // Every pixel becomes opaque: those copied, those taken from the half-size pass and those kept.
    CPixel* out = m_pDstImage->GetBuffer();
    for (size_t i = 0, n = m_pDstImage->GetPixelCount(); i < n; ++i)
        out[i].alpha = 255;
}
