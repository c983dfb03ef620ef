#include "matting/warp_fit.h"

#include <cmath>
#include <utility>

namespace {

// The six points of the fit: corners, then the midpoints of the top and of the left side.
void FitPoints(const WarpCorner (&c)[4], WarpCorner (&p)[6])
{
    for (int i = 0; i < 4; ++i) p[i] = c[i];
    p[4] = {(c[0].x + c[1].x) / 2, (c[0].y + c[1].y) / 2};
    p[5] = {(c[0].x + c[3].x) / 2, (c[0].y + c[3].y) / 2};
}

} // namespace

void FitDirectWarp(const WarpCorner (&corners)[4], double (&xCoef)[6], double (&yCoef)[6])
{
    WarpCorner p[6];
    FitPoints(corners, p);
    auto fit = [](double p1, double p2, double p3, double p4, double m12, double m41, double (&c)[6]) {
        c[5] = p1;
        c[3] = 4 * m12 - 3 * p1 - p2;
        c[0] = (p2 - p1) - c[3];
        c[4] = 4 * m41 - 3 * p1 - p4;
        c[1] = (p4 - p1) - c[4];
        c[2] = (p3 - p1) - c[0] - c[1] - c[3] - c[4];
    };
    fit(p[0].x, p[1].x, p[2].x, p[3].x, p[4].x, p[5].x, xCoef);
    fit(p[0].y, p[1].y, p[2].y, p[3].y, p[4].y, p[5].y, yCoef);
}

bool FitInverseWarp(const WarpCorner (&corners)[4], double (&uCoef)[6], double (&vCoef)[6])
{
    for (int i = 0; i < 6; ++i) uCoef[i] = vCoef[i] = 0.0;
    WarpCorner p[6];
    FitPoints(corners, p);
    static const double kU[6] = {0, 1, 1, 0, 0.5, 0};
    static const double kV[6] = {0, 0, 1, 1, 0, 0.5};
    // Rows of the monomials x^2, y^2, xy, x, y, 1, with the two right-hand sides.
    double m[6][8];
    for (int r = 0; r < 6; ++r) {
        const double x = p[r].x, y = p[r].y;
        const double row[8] = {x * x, y * y, x * y, x, y, 1.0, kU[r], kV[r]};
        for (int c = 0; c < 8; ++c) m[r][c] = row[c];
    }
    for (int k = 0; k < 6; ++k) {
        if (m[k][k] == 0.0) {
            int swap = -1;
            for (int r = k + 1; r < 6 && swap < 0; ++r)
                if (m[r][k] != 0.0) swap = r;
            if (swap < 0) return false;
            for (int c = 0; c < 8; ++c) std::swap(m[k][c], m[swap][c]);
        }
        for (int r = k + 1; r < 6; ++r) {
            const double f = m[r][k] / m[k][k];
            for (int c = k; c < 8; ++c) m[r][c] -= f * m[k][c];
        }
    }
    double u[6], v[6];
    for (int k = 5; k >= 0; --k) {
        double su = m[k][6], sv = m[k][7];
        for (int c = k + 1; c < 6; ++c) {
            su -= m[k][c] * u[c];
            sv -= m[k][c] * v[c];
        }
        u[k] = su / m[k][k];
        v[k] = sv / m[k][k];
    }
    for (int i = 0; i < 6; ++i)
        if (!std::isfinite(u[i]) || !std::isfinite(v[i])) return false;
    for (int i = 0; i < 6; ++i) {
        uCoef[i] = u[i];
        vCoef[i] = v[i];
    }
    return true;
}
