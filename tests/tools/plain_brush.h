#pragma once

// The brush written out plainly, for comparison with the tools: the stamp's disc and band, the stamping of a
// segment with the falloff across its axis, straight from their definitions and without any shortcut.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "matting/gaussian.h"

namespace plainbrush {

struct Stamp {
    int w = 0, h = 0;
    std::vector<uint8_t> v;
    int At(int x, int y) const { return v[size_t(y) * w + x]; }
};

inline Stamp MakeStamp(int size, int soft, int side = 512)
{
    COLChannel disc;
    disc.Create(uint32_t(side), uint32_t(side));
    const int c = side / 2;
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
            const int dx = x - c, dy = y - c;
            const int r = int(std::sqrt(double(dx * dx + dy * dy)));
            int value = 0;
            if (r < size - 1) {
                value = 255;
            } else if (r <= size + 1) {
                int n = 0;
                for (int i = -2; i <= 1; ++i)
                    for (int j = -2; j <= 1; ++j) {
                        const double sx = dx + 0.25 * i + 0.125, sy = dy + 0.25 * j + 0.125;
                        n += std::sqrt(sx * sx + sy * sy) < size * 0.5;
                    }
                value = std::min(255, 16 * n);
            }
            disc.SetValue(uint32_t(x), uint32_t(y), uint8_t(value));
        }
    // The blur itself is the shared filter, tested on its own.
    double sigma = soft * 0.01 * (size / 3);
    COLChannel blurred;
    CGaussianProcess g;
    g.SetChannels(&disc, &blurred);
    g.ProcessChannel(&sigma);
    int l = side, t = side, r = -1, b = -1, peak = 0;
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
            const int v = blurred.GetValue(uint32_t(x), uint32_t(y));
            if (!v) continue;
            l = std::min(l, x), r = std::max(r, x), t = std::min(t, y), b = std::max(b, y);
            peak = std::max(peak, v);
        }
    Stamp s;
    s.w = r - l + 1;
    s.h = b - t + 1;
    for (int y = t; y <= b; ++y)
        for (int x = l; x <= r; ++x) s.v.push_back(uint8_t(blurred.GetValue(uint32_t(x), uint32_t(y)) * 255 / peak));
    return s;
}

// The stroke mask of a canvas at zoom 1.
struct Stroke {
    int w, h;
    std::vector<uint8_t> s;
    Stroke(int width, int height) : w(width), h(height), s(size_t(width) * height, 0) {}

    void Segment(const Stamp& st, int alpha, int a, int b, int c, int d)
    {
        double A, B, C;
        if (a == c) {
            A = 1, B = 0, C = -a;
        } else if (b == d) {
            A = 0, B = 1, C = -b;
        } else {
            A = double(d - b) / (c - a), B = -1, C = b - a * A;
        }
        const double N = std::sqrt(A * A + B * B);
        for (int py = std::min(b, d); py <= std::max(b, d); ++py)
            for (int px = std::min(a, c); px <= std::max(a, c); ++px) {
                const double dist = std::fabs(A * px + B * py + C) / N;
                if (dist >= 1.0) continue;
                const double k = int(dist * 100) * 0.01;
                const int fall = int((1 - k * k * k) * 255);
                const int wgt = fall * alpha / 255;
                for (int j = 0; j < st.h; ++j)
                    for (int i = 0; i < st.w; ++i) {
                        const int t = st.At(i, j) * wgt / 255;
                        const int x = px + i - st.w / 2, y = py + j - st.h / 2;
                        if (!t || x < 0 || y < 0 || x >= w || y >= h) continue;
                        uint8_t& o = s[size_t(y) * w + x];
                        if (o < t) o = uint8_t(t);
                    }
            }
    }
};

// The stroke after each frame of a pointer path: press at the first point, a move to each further one.
inline std::vector<Stroke> Frames(const Stamp& st, int alpha, int w, int h, const std::vector<std::pair<int, int>>& path)
{
    std::vector<Stroke> frames;
    Stroke s(w, h);
    s.Segment(st, alpha, path[0].first, path[0].second, path[0].first, path[0].second);
    frames.push_back(s);
    for (size_t i = 1; i < path.size(); ++i) {
        s.Segment(st, alpha, path[i - 1].first, path[i - 1].second, path[i].first, path[i].second);
        frames.push_back(s);
    }
    return frames;
}

// The smart-adjust rule written out from its definition: the mask a pixel p (blue, green, red) is brought to
// between the foreground f and background b, its position on the line between them through the curve that holds
// 0 up to 32 and ramps to 255 at 224.
inline int PlainDistance(const uint8_t* a, const uint8_t* b)
{
    double sum = 0;
    for (int c = 0; c < 3; ++c)
        sum += double(a[c] - b[c]) * double(a[c] - b[c]);
    return int(std::floor(std::sqrt(sum)));
}

inline int SmartTarget(const uint8_t* p, const uint8_t* f, const uint8_t* b)
{
    const long d0 = PlainDistance(f, b), d1 = PlainDistance(p, b), d2 = PlainDistance(p, f);
    long a;
    if (d1 + d2 == 0)
        a = 255;
    else if (d0 < 16)
        a = 255 * d1 / (d1 + d2);
    else
        a = 255 * (d1 * d1 - d2 * d2 + d0 * d0) / (2 * d0 * d0);
    if (a < 0) a = -a;
    const int t = 255 * int(a > 255 ? 255 : a) - 8160;
    return t < 0 ? 0 : t < 48960 ? t / 192 : 255;
}

// The truncated mean of the 3 x 3 block around (cx, cy), blue, green and red, edge pixels standing in for those
// beyond: the reference colour a click of the smart-adjust tool picks.
inline std::vector<uint8_t> Mean3x3(const COLImage& picture, int cx, int cy)
{
    std::vector<uint8_t> c(3);
    for (int k = 0; k < 3; ++k) {
        int sum = 0;
        for (int y = cy - 1; y <= cy + 1; ++y)
            for (int x = cx - 1; x <= cx + 1; ++x) {
                const int px = std::clamp(x, 0, int(picture.GetWidth()) - 1);
                const int py = std::clamp(y, 0, int(picture.GetHeight()) - 1);
                sum += reinterpret_cast<const uint8_t*>(picture.GetBuffer(uint32_t(px), uint32_t(py)))[k];
            }
        c[k] = uint8_t(sum / 9);
    }
    return c;
}

// The mask after a smart-adjust stroke of these frames, in mode 0 (both ways), 1 (raise only) or 2 (lower only):
// every frame walks the whole stroke so far again, leaves the contour pixels (`in`, `out`) alone, and compares
// with the working alpha as it stood before that frame (`alpha` before the first, when given; the mask after).
// `picture` holds blue, green, red and alpha for each pixel.
inline std::vector<uint8_t> SmartStroke(std::vector<uint8_t> m, const std::vector<Stroke>& frames, int mode,
                                        const std::vector<uint8_t>& in, const std::vector<uint8_t>& out,
                                        const std::vector<uint8_t>& picture, const std::vector<uint8_t>& f,
                                        const std::vector<uint8_t>& b, std::vector<uint8_t> alpha = {})
{
    for (const Stroke& frame : frames) {
        if (alpha.empty()) alpha = m;
        for (size_t i = 0; i < m.size(); ++i) {
            const int s = frame.s[i];
            if (!s || in[i] || out[i]) continue;
            const int t = SmartTarget(&picture[i * 4], f.data(), b.data());
            if ((mode == 1 && t < alpha[i]) || (mode == 2 && t > alpha[i])) continue;
            m[i] = uint8_t(((255 - s) * m[i] + t * s) / 255);
        }
        alpha = m;
    }
    return m;
}

} // namespace plainbrush
