#include "effects/selection_modifiers.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <vector>

#include "matting/gaussian.h"
#include "runtime/parallel_for.h"
#include "runtime/status.h"

// ---------------------------------------------------------------------------------------------------------------
// Square window. The maximum over a clipped square is the maximum over its clipped rows of the maximum over their
// clipped columns, so two one-dimensional passes give the bytes of the square scan. A clipped window is the same
// as a whole window over a line padded by r identity bytes (0 for a maximum, 255 for a minimum) at each end.

namespace {

struct MaxOp {
    static constexpr uint8_t kIdentity = 0;
    static uint8_t Apply(uint8_t a, uint8_t b) { return a > b ? a : b; }
};
struct MinOp {
    static constexpr uint8_t kIdentity = 255;
    static uint8_t Apply(uint8_t a, uint8_t b) { return a < b ? a : b; }
};

// a[i] = op(b[i], c[i]) over count bytes: the loop the compiler turns into whole-vector maxima or minima.
template <class Op>
void Combine(uint8_t* __restrict a, const uint8_t* __restrict b, const uint8_t* __restrict c, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        a[i] = Op::Apply(b[i], c[i]);
}

// a[i] = op(a[i], c[i]).
template <class Op> void Accumulate(uint8_t* __restrict a, const uint8_t* __restrict c, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        a[i] = Op::Apply(a[i], c[i]);
}

// One row: out[x] = op over in[x - r .. x + r] clipped to the row. The padded row is reduced by doubling
// (windows of 1, 2, 4, ... bytes, each a vector pass), and a window of k = 2r + 1 bytes is the union of two
// windows of the largest power of two p <= k, starting at x and at x + k - p.
template <class Op>
void RowWindow(const uint8_t* in, uint8_t* out, size_t n, size_t r, std::vector<uint8_t>& bufA,
               std::vector<uint8_t>& bufB)
{
    const size_t len = n + 2 * r, k = 2 * r + 1;
    bufA.resize(len);
    bufB.resize(len);
    uint8_t* a = bufA.data();
    uint8_t* b = bufB.data();
    std::memset(a, Op::kIdentity, r);
    std::memcpy(a + r, in, n);
    std::memset(a + r + n, Op::kIdentity, r);
    size_t p = 1;
    while (p * 2 <= k) {
        // Windows of 2p bytes from windows of p: valid for the first len - 2p + 1 positions.
        const size_t valid = len - 2 * p + 1;
        Combine<Op>(b, a, a + p, valid);
        std::swap(a, b);
        p *= 2;
    }
    Combine<Op>(out, a, a + (k - p), n);
}

// Columns [c0, c1) of all rows: out row y = op over in rows y - r .. y + r clipped to the plane. Blocks of k rows
// in padded row numbers; suffix[j] holds op from j to the end of its block, and a running prefix from the start
// of the block of j + 2r to that row, so out row y = op(suffix[y], prefix[y + 2r]).
template <class Op>
bool ColumnWindow(const uint8_t* in, uint8_t* out, size_t width, size_t height, size_t r, size_t c0, size_t c1,
                  const std::atomic<bool>& cancelled)
{
    const size_t s = c1 - c0, rows = height + 2 * r, k = 2 * r + 1;
    std::vector<uint8_t> suffix(rows * s), prefix(s), identity(s, Op::kIdentity);
    auto padded = [&](size_t j) { return j < r || j >= r + height ? identity.data() : in + (j - r) * width + c0; };
    for (size_t j = rows; j-- > 0;) {
        uint8_t* h = suffix.data() + j * s;
        if (j % k == k - 1 || j == rows - 1)
            std::memcpy(h, padded(j), s);
        else
            Combine<Op>(h, padded(j), h + s, s);
    }
    if (cancelled.load(std::memory_order_relaxed)) return false;
    // The prefix is carried forward from padded row 2r on; blocks start where j % k == 0.
    for (size_t j = 0; j < 2 * r; ++j) {
        if (j % k == 0)
            std::memcpy(prefix.data(), padded(j), s);
        else
            Accumulate<Op>(prefix.data(), padded(j), s);
    }
    for (size_t y = 0; y < height; ++y) {
        const size_t j = y + 2 * r;
        if (j % k == 0)
            std::memcpy(prefix.data(), padded(j), s);
        else
            Accumulate<Op>(prefix.data(), padded(j), s);
        Combine<Op>(out + y * width + c0, suffix.data() + y * s, prefix.data(), s);
        if ((y & 255) == 0 && cancelled.load(std::memory_order_relaxed)) return false;
    }
    return true;
}

template <class Op> long SquareWindow(CImageProcess& process, const COLChannel& src, COLChannel& dst, size_t r)
{
    const size_t w = src.GetWidth(), h = src.GetHeight();
    std::vector<uint8_t> rowsDone(w * h);
    std::atomic<bool> cancelled{false};
    const uint8_t* in = src.GetBuffer();
    // Rows first, into a private plane, so that the source may be the destination.
    vmpar::ParallelFor(h, 16, [&](size_t y0, size_t y1, unsigned part) {
        std::vector<uint8_t> a, b;
        for (size_t y = y0; y < y1; ++y) {
            if (part == 0) {
                if (process.TestAndClearCancel()) cancelled = true;
                if (y % 100 == 0) process.ReportProgress(int32_t(50 * (y - y0) / (y1 - y0)));
            }
            if (cancelled.load(std::memory_order_relaxed)) return;
            RowWindow<Op>(in + y * w, rowsDone.data() + y * w, w, r, a, b);
        }
    });
    if (cancelled) return kFail;
    if (dst.GetWidth() != w || dst.GetHeight() != h || dst.IsNull()) {
        if (dst.Create(uint32_t(w), uint32_t(h)) != kOk) return kFail;
    }
    // Then columns in strips narrow enough that a strip's suffix rows stay small.
    constexpr size_t kStrip = 256;
    const size_t strips = (w + kStrip - 1) / kStrip;
    vmpar::ParallelFor(strips, 1, [&](size_t s0, size_t s1, unsigned part) {
        for (size_t s = s0; s < s1; ++s) {
            if (part == 0) {
                if (process.TestAndClearCancel()) cancelled = true;
                process.ReportProgress(int32_t(50 + 50 * (s - s0) / (s1 - s0)));
            }
            if (cancelled.load(std::memory_order_relaxed)) return;
            if (!ColumnWindow<Op>(rowsDone.data(), dst.GetBuffer(), w, h, r, s * kStrip, std::min(w, (s + 1) * kStrip),
                                  cancelled))
                return;
        }
    });
    if (cancelled || process.TestAndClearCancel()) return kFail;
    process.ReportProgress(100);
    return kOk;
}

} // namespace

long CExpandProcess::ProcessChannel(const void* params)
{
    if (!params || CImageProcess::ProcessChannel(params) != kOk) return kFail;
    const int64_t amount = *static_cast<const int32_t*>(params);
    m_expand = amount > 0;
    const int64_t radius = amount > 0 ? amount : -amount;
    m_radius = int32_t(std::min<int64_t>(radius, INT32_MAX));
    const COLChannel& src = *m_pSrcChannel;
    COLChannel& dst = *m_pDstChannel;
    // A window wider than the plane covers all of it whatever its size, so the radius is capped there.
    const size_t r = size_t(std::min<int64_t>(radius, std::max(src.GetWidth(), src.GetHeight())));
    return vmrt::GuardExhaustion([&]() -> long {
        if (r == 0) {
            if (&src == &dst) return kOk;
            return dst.DuplicateFrom(&src) ? kOk : kFail;
        }
        return m_expand ? SquareWindow<MaxOp>(*this, src, dst, r) : SquareWindow<MinOp>(*this, src, dst, r);
    });
}

// ---------------------------------------------------------------------------------------------------------------
// Feathers

namespace {

long Blur(const COLChannel& src, COLChannel& dst, double sigma)
{
    CGaussianProcess blur;
    blur.SetChannels(const_cast<COLChannel*>(&src), &dst);
    return blur.ProcessChannel(&sigma);
}

} // namespace

long CFeatherProcess::ProcessChannel(const void* params)
{
    if (!params || CImageProcess::ProcessChannel(params) != kOk || m_pSrcChannel == m_pDstChannel) return kFail;
    const FeatherRecord record = *static_cast<const FeatherRecord*>(params);
    if (record.radius < 0 || record.radius > kMaxRadius) return kFail;
    const COLChannel& src = *m_pSrcChannel;
    COLChannel& dst = *m_pDstChannel;
    return vmrt::GuardExhaustion([&]() -> long {
        COLChannel t;
        if (record.shrinkFirst) {
            CExpandProcess shrink;
            shrink.SetChannels(const_cast<COLChannel*>(&src), &t);
            const int32_t amount = -1;
            if (shrink.ProcessChannel(&amount) != kOk) return kFail;
        } else if (!t.DuplicateFrom(&src)) {
            return kFail;
        }
        ReportProgress(40);
        if (record.radius >= 1) {
            if (Blur(t, dst, double(record.radius)) != kOk) return kFail;
        } else if (!dst.DuplicateFrom(&t)) {
            return kFail;
        }
        ReportProgress(60);
        if (Blur(src, t, 4.0) != kOk) return kFail;
        ReportProgress(80);
        if (record.keepDetail) {
            const uint8_t* s = src.GetBuffer();
            const uint8_t* tb = t.GetBuffer();
            uint8_t* r = dst.GetBuffer();
            const size_t n = dst.GetAreaByteSize();
            vmpar::ParallelFor(n, 1 << 16, [&](size_t i0, size_t i1, unsigned) {
                for (size_t i = i0; i < i1; ++i) {
                    const uint32_t tv = tb[i];
                    const uint32_t w = tv <= 64 ? 0 : tv < 128 ? (tv - 64) * 4 : 256;
                    r[i] = static_cast<uint8_t>(((256 - w) * s[i] + w * r[i]) >> 8);
                }
            });
        }
        ReportProgress(100);
        return kOk;
    });
}

long FeatherPlane(COLChannel& plane, int32_t value, CImageProcess* progressParent)
{
    if (plane.IsNull() || !FeatherSettings::IsValid(value)) return kFail;
    return vmrt::GuardExhaustion([&]() -> long {
        COLChannel blurred;
        CGaussianProcess blur;
        if (progressParent) {
            blur.SetProgressCallback(progressParent->GetProgressCallback());
            blur.SetProgressRange(progressParent->GetProgressLow(), progressParent->GetProgressHigh());
        }
        const double sigma = value * 0.5;
        blur.SetChannels(&plane, &blurred);
        if (blur.ProcessChannel(&sigma) != kOk) return kFail;
        plane = std::move(blurred);
        return kOk;
    });
}

int32_t ExpandSettings::ClampAmount(int64_t amount)
{
    return int32_t(std::clamp<int64_t>(amount, kMinAmount, kMaxAmount));
}
