// The scalar batch path: the facade's correction of a point with every step
// inlined into one loop.  The per-point work runs the same float and double
// operations in the same order as CCalibAlg::CalibPoint2_new, GetGridDR,
// Line::GetLine, Line::GetCrossPoint and CalibManual, so the results are the
// same bits; what it saves is the calls, the small structs passed through
// memory between them, the keystone branches and the cell scan.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "alg/cell_index.h"
#include "alg/grid_cell.h"
#include "calib/batch_lookup.h"
#include "calib/batch_model.h"
#include "math/fp.h"
#include "vrncal/calib_alg.h"
#include "vrncal/records.h"

#define VRNCAL_INLINE inline __attribute__((always_inline))

namespace vrncal_detail {

namespace {

// Flips the sign bit where the mask has it: the lens invert flags.
VRNCAL_INLINE float flipSign(float v, std::uint32_t mask) {
    std::uint32_t b;
    std::memcpy(&b, &v, sizeof b);
    b ^= mask;
    std::memcpy(&v, &b, sizeof v);
    return v;
}

// Shift to the device centre and clamp, in float; a NaN passes.
VRNCAL_INLINE float centreAndClamp(const BatchModel& m, float v) {
    v = v + m.centre;
    if (v < 0.0f) return 0.0f;
    if (v > m.limit) return m.limit;
    return v;
}

// take ? a : b on the bits, so that no branch is taken on the data.
VRNCAL_INLINE float select(bool take, float a, float b) {
    std::uint32_t ua, ub;
    std::memcpy(&ua, &a, sizeof ua);
    std::memcpy(&ub, &b, sizeof ub);
    const std::uint32_t mask = 0u - static_cast<std::uint32_t>(take);
    const std::uint32_t r = (ua & mask) | (ub & ~mask);
    float v;
    std::memcpy(&v, &r, sizeof v);
    return v;
}

// The analytic shape correction (CCalibAlg::ShapePoint) of the pre-warped
// point, in place, without a branch on the data: each keystone takes the
// coefficients of its half from a table indexed by the sign, and keeps the
// coordinate where it is zero (or NaN).
VRNCAL_INLINE void shape(const BatchModel& m, float& tx, float& ty) {
    const double y = ty;
    const float x1 = stored(tx - m.plx * y);
    const int left = x1 < 0.0f;
    const float kx = stored(m.keystoneX[left] * y * x1 / m.axisX[left] + x1);
    const float x2 = select((x1 < 0.0f) | (x1 > 0.0f), kx, x1);
    const int bottom = y < 0.0;
    const float ky = stored(y + x1 * m.keystoneY[bottom] * y / m.axisY[bottom]);
    const float y2 = select((y < 0.0) | (y > 0.0), ky, ty);
    tx = stored(x2 * m.scaleX);
    ty = stored(y2 * m.scaleY);
}

// Line::GetLine through left-right (line A) and top-bottom (line B), then
// Line::GetCrossPoint(B, A): the same float and double operations, without
// the lines passing through memory.
VRNCAL_INLINE void crossPoint(float lx, float ly, float rx, float ry, float tx, float ty, float bx,
                              float by, float& cx, float& cy) {
    const double aA = static_cast<float>(ly - ry);
    const double aB = static_cast<float>(rx - lx);
    const double aC = static_cast<float>(ry * lx - ly * rx);
    const double bA = static_cast<float>(ty - by);
    const double bB = static_cast<float>(bx - tx);
    const double bC = static_cast<float>(by * tx - ty * bx);
    const double d = bA * aB - aA * bB;
    cx = stored((bB * aC - aB * bC) / d);
    cy = stored((aA * bC - bA * aC) / d);
}

// The deviation of the clamped point (x, y) inside one cell (the steps of
// GetGridDR after the cell is found), added to (sx, sy).  r holds the
// measured corners r00x r00y r01x r01y r10x r10y r11x r11y; ux, lx, uy, ry
// are the distances from the corners' nominal X and Y.
VRNCAL_INLINE void addDeviation(const float* r, float ux, float lx, float uy, float ry, float y00,
                                float y10, float h, float x, float y, float& sx, float& sy) {
    const float r00x = r[0], r00y = r[1], r01x = r[2], r01y = r[3];
    const float r10x = r[4], r10y = r[5], r11x = r[6], r11y = r[7];
    // Four of the eight keep the corner where the corner difference is zero.
    const float topX = (r01x - r00x) * ux / h + r00x;
    const float topY = std::fabs(r01y - r00y) == 0 ? r00y : (r01y - r00y) * ux / h + r00y;
    const float bottomX = (r11x - r10x) * lx / h + r10x;
    const float bottomY = std::fabs(r11y - r10y) == 0 ? r10y : (r11y - r10y) * lx / h + r10y;
    const float leftX = std::fabs(r10x - r00x) == 0 ? r00x : r00x + (r10x - r00x) * uy / h;
    const float leftY = (r10y - r00y) * uy / h + r00y;
    const float rightX = std::fabs(r11x - r01x) == 0 ? r01x : r01x + (r11x - r01x) * ry / h;
    const float rightY = (r11y - r01y) * ry / h + r01y;

    float cx, cy;
    crossPoint(leftX, leftY, rightX, rightY, topX, topY, bottomX, bottomY, cx, cy);

    // x against the lookup x at both ends, y against the nominal Ys; the
    // fallbacks differ (top edge for x, left edge for y), as in GetGridDR.
    const float devX = std::fabs(bottomX - topX) > 0.0f
                           ? ((bottomX - x) - (topX - x)) * (cx - topX) / (bottomX - topX) + (topX - x)
                           : topX - x;
    const float devY = std::fabs(bottomY - topY) > 0.0f
                           ? ((bottomY - y10) - (topY - y00)) * (cy - topY) / (bottomY - topY) + (topY - y00)
                           : leftY - y;
    sx += devX;
    sy += devY;
}

// The deviation of one stack that is not rectilinear, found through its
// index (or the facade's scan), added to (dx, dy).
VRNCAL_INLINE void addIrregular(const BatchStack& s, float x, float y, float& dx, float& dy) {
    const tagStack& st = *s.stack;
    const long i00 = s.index != nullptr ? s.index->find(x, y) : findCellInclusive(st, x, y);
    if (i00 < 0) return;
    const std::size_t n = static_cast<std::size_t>(st.Size);
    const tagCalData& p00 = st.Points[i00];
    const tagCalData& p01 = st.Points[i00 + 1];
    const tagCalData& p10 = st.Points[i00 + n];
    const tagCalData& p11 = st.Points[i00 + n + 1];
    const float r[8] = {p00.RealX, p00.RealY, p01.RealX, p01.RealY, p10.RealX, p10.RealY, p11.RealX, p11.RealY};
    addDeviation(r, std::fabs(x - p00.X), std::fabs(x - p10.X), std::fabs(y - p00.Y), std::fabs(y - p01.Y),
                 p00.Y, p10.Y, s.h, x, y, dx, dy);
}

// The summed deviation of every stack at the clamped points (x[l], y[l]) of
// N points, in stack order.  A stack that finds no cell adds +0, which
// leaves the sum as it is (a sum that starts at +0 is never -0), so it is
// skipped.  The cells of up to eight stacks are looked up for every point
// before any is interpolated, and the points go through each step together:
// their arithmetic is independent, so one point's waits on the dividers and
// on the loads are filled with the other's work.
template <int N>
VRNCAL_INLINE void addStacks(const BatchModel& m, const float* x, const float* y, float* dx, float* dy) {
    constexpr std::size_t kAhead = 8;
    for (std::size_t base = 0; base < m.stackCount; base += kAhead) {
        const std::size_t count = m.stackCount - base < kAhead ? m.stackCount - base : kAhead;
        const BatchStack* stacks = m.stacks + base;
        const float* cells[kAhead][N];
        for (std::size_t j = 0; j < count; ++j) {
            for (int l = 0; l < N; ++l) {
                cells[j][l] = nullptr;
                if (stacks[j].cells == nullptr) continue;
                const long k = rectilinearCell(stacks[j], x[l], y[l]);
                if (k < 0) continue;
                cells[j][l] = stacks[j].cells + k * kCellFloats;
                __builtin_prefetch(cells[j][l]);
            }
        }
        for (std::size_t j = 0; j < count; ++j) {
            for (int l = 0; l < N; ++l) {
                if (stacks[j].cells == nullptr) {
                    addIrregular(stacks[j], x[l], y[l], dx[l], dy[l]);
                } else if (const float* cell = cells[j][l]) {
                    const float ux = std::fabs(x[l] - cell[8]);
                    const float uy = std::fabs(y[l] - cell[9]);
                    addDeviation(cell, ux, ux, uy, uy, cell[9], cell[10], stacks[j].h, x[l], y[l], dx[l], dy[l]);
                }
            }
        }
    }
}

// CCalibAlg::GetScaleValue; ascending breakpoints are bisected instead of
// scanned (the interval found is the same: it is unique), with a select
// rather than a branch at each step.
VRNCAL_INLINE double scaleValue(const BatchGainTable& t, double v) {
    if (!t.ascending) return CCalibAlg::GetScaleValue(t.count, v, t.pos, nullptr, t.gain);
    if (t.count < 1 || t.count > 99) return 1.0;
    if (!(std::fabs(v) >= 0.000001)) return 1.0;
    const double* pos = t.pos;
    if (pos[0] >= v) return t.gain[0];
    if (v >= pos[t.count - 1]) return t.gain[t.count - 1];
    // The last breakpoint at or below v; pos[0] < v < pos[count - 1] here.
    const double* at = pos;
    for (int len = t.count; len > 1;) {
        const int half = len / 2;
        at = at[half] <= v ? at + half : at;
        len -= half;
    }
    const long i = at - pos;
    return t.gain[i] + (v - pos[i]) * (t.gain[i + 1] - t.gain[i]) / (pos[i + 1] - pos[i]);
}

// The residual in counts; a residual of 0.001 field units or less is applied
// at a quarter of its size.  Multiplying by 1 is exact, so the full residual
// is 1 * counts and the factor comes from a table instead of a branch.
VRNCAL_INLINE float applyResidual(float v, float d, double kc, double gain) {
    static constexpr double kFactor[2] = {0.25, 1.0};
    const double counts = d * kc * gain;
    return stored(v - kFactor[std::fabs(d) > 0.001] * counts);
}

// CCalibAlg::CalibPoint2_new of the N points the lens flags made of
// in[0 .. N-1], step by step for all N together.
template <int N>
VRNCAL_INLINE void gridPoints(const BatchModel& m, const tagKelPointF* in, tagKelPointF* out) {
    float inX[N], inY[N], ox[N], oy[N];
    double px[N], py[N];
    for (int l = 0; l < N; ++l) {
        inX[l] = in[l].x;  // in and out may be the same array
        inY[l] = in[l].y;
        px[l] = flipSign(inX[l], m.signX);
        py[l] = flipSign(inY[l], m.signY);
        float tx = stored(m.quadX * px[l] * px[l] + px[l]);
        float ty = stored(m.quadY * py[l] * py[l] + py[l]);
        shape(m, tx, ty);
        const double dtx = tx;
        const double dty = ty;
        ox[l] = stored(m.k2 * dty * dty * dtx + m.kc * dtx);
        oy[l] = stored(m.k3 * dtx * dtx * dty + m.kc * dty);
    }

    float dx[N], dy[N];
    for (int l = 0; l < N; ++l) dx[l] = dy[l] = 0.0f;
    if (m.stackCount != 0) {
        // The grid correction mirrors the point back with the same rule the
        // facade applied, so the grid is looked up at the caller's point.
        float gx[N], gy[N];
        for (int l = 0; l < N; ++l) {
            gx[l] = inX[l];
            gy[l] = inY[l];
            if (gy[l] < m.belowHalf)
                gy[l] = m.lowValue;
            else if (gy[l] > m.aboveHalf)
                gy[l] = m.highValue;
            if (gx[l] > m.aboveHalf)
                gx[l] = m.highValue;
            else if (gx[l] < m.belowHalf)
                gx[l] = m.lowValue;
        }
        addStacks<N>(m, gx, gy, dx, dy);
    }

    for (int l = 0; l < N; ++l) {
        float x = applyResidual(ox[l], flipSign(dx[l], m.signX), m.kc, m.gainX);
        float y = applyResidual(oy[l], flipSign(dy[l], m.signY), m.kc, m.gainY);
        if (m.gainTables) {
            // Read at the point after the lens flags, unmirrored.
            x = x * static_cast<float>(scaleValue(m.tableX, px[l]));
            y = y * static_cast<float>(scaleValue(m.tableY, py[l]));
        }
        out[l].x = centreAndClamp(m, x);
        out[l].y = centreAndClamp(m, y);
    }
}

// CCalibAlg::CalibManual of the N points the lens flags and the box offsets
// made of in[0 .. N-1], for all N together.
template <int N>
VRNCAL_INLINE void boxPoints(const BatchModel& m, const tagKelPointF* in, tagKelPointF* out) {
    const tagLenPar& par = *m.par;
    float px[N], py[N], ox[N], oy[N];
    for (int l = 0; l < N; ++l) {
        px[l] = stored(flipSign(in[l].x, m.signX) + par.BoxOffsetX);
        py[l] = stored(flipSign(in[l].y, m.signY) + par.BoxOffsetY);
        const float x0 = stored(px[l] * par.BoxScaleX / 100.0);
        const float y0 = stored(py[l] * par.BoxScaleY / 100.0);
        const float x1 = stored(x0 - (1.0 - par.BoxSkewX) * y0);
        const float y1 = stored(y0 - x0 * (1.0 - par.BoxSkewY));
        const float x2 = stored(x1 - 2.0 * ((1.0 - par.BoxTrapX) * y1 * x1) / par.FieldSize);
        const float y2 = stored(y1 - 2.0 * ((1.0 - par.BoxTrapY) * x1 * y1) / par.FieldSize);
        const double cx = x2 * m.kc;
        const double cy = y2 * m.kc;
        ox[l] = stored((par.BoxBarrelX - 1.0) * cx * cy * cy / par.HalfResolutionSq + cx);
        oy[l] = stored((par.BoxBarrelY - 1.0) * cy * cx * cx / par.HalfResolutionSq + cy);
    }
    for (int l = 0; l < N; ++l) {
        if (m.gainTables) {
            // The box tables are read at the point mirrored back.
            ox[l] = static_cast<float>(scaleValue(m.tableX, flipSign(px[l], m.signX))) * ox[l];
            oy[l] = static_cast<float>(scaleValue(m.tableY, flipSign(py[l], m.signY))) * oy[l];
        }
        out[l].x = centreAndClamp(m, ox[l]);
        out[l].y = centreAndClamp(m, oy[l]);
    }
}

}  // namespace

void correctScalar(const BatchModel& m, const tagKelPointF* in, tagKelPointF* out, std::size_t n) {
    // Two points at a time: see addStacks.
    if (m.gridMode) {
        std::size_t i = 0;
        for (; i + 2 <= n; i += 2) gridPoints<2>(m, in + i, out + i);
        if (i < n) gridPoints<1>(m, in + i, out + i);
    } else {
        std::size_t i = 0;
        for (; i + 2 <= n; i += 2) boxPoints<2>(m, in + i, out + i);
        if (i < n) boxPoints<1>(m, in + i, out + i);
    }
}

}  // namespace vrncal_detail
