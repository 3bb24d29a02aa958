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

namespace vrncal_detail {

namespace {

#define VRNCAL_INLINE inline __attribute__((always_inline))

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

// mask ? a : b on the bits, so that no branch is taken on the data.
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

// The summed deviation of every stack at the clamped point (x, y).  A stack
// that finds no cell adds +0, which leaves the sum as it is (a sum that
// starts at +0 is never -0), so it is skipped.
VRNCAL_INLINE void addStacks(const BatchModel& m, float x, float y, float& dx, float& dy) {
    for (std::size_t i = 0; i < m.stackCount; ++i) {
        const BatchStack& s = m.stacks[i];
        if (s.cells != nullptr) {
            const long k = rectilinearCell(s, x, y);
            if (k < 0) continue;
            const float* cell = s.cells + k * kCellFloats;
            const float ux = std::fabs(x - cell[8]);
            const float uy = std::fabs(y - cell[9]);
            addDeviation(cell, ux, ux, uy, uy, cell[9], cell[10], s.h, x, y, dx, dy);
            continue;
        }
        const tagStack& st = *s.stack;
        const long i00 = s.index != nullptr ? s.index->find(x, y) : findCellInclusive(st, x, y);
        if (i00 < 0) continue;
        const std::size_t n = static_cast<std::size_t>(st.Size);
        const tagCalData& p00 = st.Points[i00];
        const tagCalData& p01 = st.Points[i00 + 1];
        const tagCalData& p10 = st.Points[i00 + n];
        const tagCalData& p11 = st.Points[i00 + n + 1];
        const float r[8] = {p00.RealX, p00.RealY, p01.RealX, p01.RealY,
                            p10.RealX, p10.RealY, p11.RealX, p11.RealY};
        addDeviation(r, std::fabs(x - p00.X), std::fabs(x - p10.X), std::fabs(y - p00.Y),
                     std::fabs(y - p01.Y), p00.Y, p10.Y, s.h, x, y, dx, dy);
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

// CCalibAlg::CalibPoint2_new of the point the lens flags made of (inX, inY).
VRNCAL_INLINE void gridPoint(const BatchModel& m, float inX, float inY, float& outX, float& outY) {
    const float pxf = flipSign(inX, m.signX);
    const float pyf = flipSign(inY, m.signY);
    const double px = pxf;
    const double py = pyf;
    float tx = stored(m.quadX * px * px + px);
    float ty = stored(m.quadY * py * py + py);
    shape(m, tx, ty);
    const double dtx = tx;
    const double dty = ty;
    float ox = stored(m.k2 * dty * dty * dtx + m.kc * dtx);
    float oy = stored(m.k3 * dtx * dtx * dty + m.kc * dty);

    if (m.stackCount != 0) {
        // The grid correction mirrors the point back with the same rule the
        // facade applied, so the grid is looked up at the caller's point.
        float gx = inX;
        float gy = inY;
        if (gy < m.belowHalf)
            gy = m.lowValue;
        else if (gy > m.aboveHalf)
            gy = m.highValue;
        if (gx > m.aboveHalf)
            gx = m.highValue;
        else if (gx < m.belowHalf)
            gx = m.lowValue;
        float dx = 0.0f;
        float dy = 0.0f;
        addStacks(m, gx, gy, dx, dy);
        ox = applyResidual(ox, flipSign(dx, m.signX), m.kc, m.gainX);
        oy = applyResidual(oy, flipSign(dy, m.signY), m.kc, m.gainY);
    } else {
        ox = applyResidual(ox, flipSign(0.0f, m.signX), m.kc, m.gainX);
        oy = applyResidual(oy, flipSign(0.0f, m.signY), m.kc, m.gainY);
    }

    if (m.gainTables) {
        // Read at the point after the lens flags, unmirrored.
        ox = ox * static_cast<float>(scaleValue(m.tableX, px));
        oy = oy * static_cast<float>(scaleValue(m.tableY, py));
    }
    outX = centreAndClamp(m, ox);
    outY = centreAndClamp(m, oy);
}

// CCalibAlg::CalibManual of the point the lens flags and the box offsets
// made of (inX, inY).
VRNCAL_INLINE void boxPoint(const BatchModel& m, float inX, float inY, float& outX, float& outY) {
    const tagLenPar& par = *m.par;
    const float px = stored(flipSign(inX, m.signX) + par.BoxOffsetX);
    const float py = stored(flipSign(inY, m.signY) + par.BoxOffsetY);
    const float x0 = stored(px * par.BoxScaleX / 100.0);
    const float y0 = stored(py * par.BoxScaleY / 100.0);
    const float x1 = stored(x0 - (1.0 - par.BoxSkewX) * y0);
    const float y1 = stored(y0 - x0 * (1.0 - par.BoxSkewY));
    const float x2 = stored(x1 - 2.0 * ((1.0 - par.BoxTrapX) * y1 * x1) / par.FieldSize);
    const float y2 = stored(y1 - 2.0 * ((1.0 - par.BoxTrapY) * x1 * y1) / par.FieldSize);
    const double cx = x2 * m.kc;
    const double cy = y2 * m.kc;
    float ox = stored((par.BoxBarrelX - 1.0) * cx * cy * cy / par.HalfResolutionSq + cx);
    float oy = stored((par.BoxBarrelY - 1.0) * cy * cx * cx / par.HalfResolutionSq + cy);
    if (m.gainTables) {
        // The box tables are read at the point mirrored back.
        ox = static_cast<float>(scaleValue(m.tableX, flipSign(px, m.signX))) * ox;
        oy = static_cast<float>(scaleValue(m.tableY, flipSign(py, m.signY))) * oy;
    }
    outX = centreAndClamp(m, ox);
    outY = centreAndClamp(m, oy);
}

}  // namespace

void correctScalar(const BatchModel& m, const tagKelPointF* in, tagKelPointF* out, std::size_t n) {
    if (m.gridMode) {
        for (std::size_t i = 0; i < n; ++i) {
            const tagKelPointF p = in[i];  // in and out may be the same array
            gridPoint(m, p.x, p.y, out[i].x, out[i].y);
        }
    } else {
        for (std::size_t i = 0; i < n; ++i) {
            const tagKelPointF p = in[i];
            boxPoint(m, p.x, p.y, out[i].x, out[i].y);
        }
    }
}

}  // namespace vrncal_detail
