// The alternative correction family: further field-point-to-counts models
// beside the grid-mode correction, each paired with one of the fitting
// variants (see calib_alg.h for the models and which fit fills them).
//
// Like the grid-mode correction these are per-point paths: everything lives on
// the stack and nothing allocates.
#include <cmath>

#include "alg/device_clamp.h"
#include "math/fp.h"
#include "vrncal/calib_alg.h"

using vrncal_detail::negated;
using vrncal_detail::stored;

namespace {

double countsPerUnit(const tagLenPar& par) {
    return static_cast<double>(par.Resolution) / par.FieldSize;
}

// The lens mirror rule of the grid correction.  The exchange flag never swaps
// the coordinates: it only swaps which invert flag acts on which axis.
void mirror(const tagLenPar& par, float& x, float& y) {
    if (par.XYFlip == 0) {
        if (par.XInvert) x = negated(x);
        if (par.YInvert) y = negated(y);
    } else {
        if (par.XInvert) y = negated(y);
        if (par.YInvert) x = negated(x);
    }
}

void mirror(const tagLenPar& par, double& x, double& y) {
    if (par.XYFlip == 0) {
        if (par.XInvert) x = -x;
        if (par.YInvert) y = -y;
    } else {
        if (par.XInvert) y = -y;
        if (par.YInvert) x = -x;
    }
}

// Gain tables looked up at the mirrored input point (as the box correction
// does, and unlike the grid-mode correction, which looks up the point as
// passed).  Float arithmetic.
void mirroredGains(const tagLenPar& par, tagKelPointF in, tagKelPointF& out) {
    if (par.grid != 1) return;
    mirror(par, in.x, in.y);
    const double fx = CCalibAlg::GetScaleValue(par.LineCount, in.x, par.XT, par.XA, par.XR);
    const double fy = CCalibAlg::GetScaleValue(par.LineCount, in.y, par.YT, par.YA, par.YR);
    out.x = static_cast<float>(fx) * out.x;
    out.y = static_cast<float>(fy) * out.y;
}

// Centre shift and clamp in float; a NaN passes both tests unchanged.
float centred(const tagLenPar& par, float v) { return vrncal_detail::centreAndClamp(v, par); }

// The same in double, for CalibPoint12.
double centred(const tagLenPar& par, double v) {
    v = v + par.HalfResolution;
    const double top = par.Resolution;
    if (v < 0.0)
        v = 0.0;
    else if (v > top)
        v = top;
    return v;
}

// The stages that CalibPoint2 and CalibPoint6 share with the grid-mode
// correction after its cross term: grid residual over all stacks, gain
// tables, centre shift and clamp.  p is the caller's input point, out the
// point in counts relative to the centre.
void gridStages(const tagLenPar& par, tagKelPointF p, double kc, tagKelPointF& out) {
    const tagCalCoefs& c = par.CalCoefs;

    // With the axes exchanged they trade their gain as well as their flag.
    tagKelPointF g = p;
    mirror(par, g.x, g.y);
    const double gainX = par.XYFlip == 0 ? c.ScaleX : c.ScaleY;
    const double gainY = par.XYFlip == 0 ? c.ScaleY : c.ScaleX;

    // Every stack contributes: the residuals of overlapping stacks add up.
    float dx = 0.0f;
    float dy = 0.0f;
    for (const tagStack& stack : par.Stacks) {
        tagKelPointF ratio;
        tagKelPointF dev;
        CCalibAlg::GetGridDR(par, g, ratio, dev, stack);
        dx += dev.x;
        dy += dev.y;
    }
    mirror(par, dx, dy);

    // A residual of 0.001 field units or less is applied at a quarter of its
    // size, not skipped; existing calibrations were measured with this.
    const double cx = dx * kc * gainX;
    const double cy = dy * kc * gainY;
    out.x = std::fabs(dx) > 0.001 ? stored(out.x - cx) : stored(out.x - 0.25 * cx);
    out.y = std::fabs(dy) > 0.001 ? stored(out.y - cy) : stored(out.y - 0.25 * cy);

    // The grid-mode tables are looked up at the point as passed, not mirrored.
    if (par.grid == 1) {
        const double fx = CCalibAlg::GetScaleValue(par.LineCount, p.x, par.XT, par.XA, par.XR);
        const double fy = CCalibAlg::GetScaleValue(par.LineCount, p.y, par.YT, par.YA, par.YR);
        out.x = out.x * static_cast<float>(fx);
        out.y = out.y * static_cast<float>(fy);
    }

    out.x = centred(par, out.x);
    out.y = centred(par, out.y);
}

}  // namespace

int CCalibAlg::CalibPoint18(const tagLenPar& par, tagKelPointF in, tagKelPointF& out) {
    const double* k = par.CalCoefs.k;
    const double x = in.x;
    const double y = in.y;

    const double X = k[0] * x * x * y * y + k[2] * x * y * y + k[4] * y * y + k[6] * x * x * y +
                     k[8] * x * y + k[10] * y + k[12] * x * x + k[14] * x + k[16];
    const double Y = k[1] * x * x * y * y + k[3] * x * x * y + k[5] * x * x + k[7] * x * y * y +
                     k[9] * x * y + k[11] * x + k[13] * y * y + k[15] * y + k[17];
    out.x = stored(X);
    out.y = stored(Y);

    mirroredGains(par, in, out);

    // The polynomial works in field units; counts come last, after the gains.
    const double kc = countsPerUnit(par);
    out.x = stored(out.x * kc);
    out.y = stored(out.y * kc);

    out.x = centred(par, out.x);
    out.y = centred(par, out.y);
    return 1;
}

int CCalibAlg::CalibPoint14(const tagLenPar& par, tagKelPointF in, tagKelPointF& out) {
    const double* k = par.CalCoefs.k;
    const double x = in.x;
    const double y = in.y;

    // The coefficients yield counts relative to the centre: no conversion factor.
    const double X = (k[2] * x + k[0]) + k[4] * y + k[6] * x * x * x + k[8] * x * x * y +
                     k[10] * x * y * y + k[12] * y * y * y;
    const double Y = (k[3] * y + k[1]) + k[5] * x + k[7] * y * y * y + k[9] * x * y * y +
                     k[11] * x * x * y + k[13] * x * x * x;
    out.x = stored(X);
    out.y = stored(Y);

    mirroredGains(par, in, out);

    out.x = centred(par, out.x);
    out.y = centred(par, out.y);
    return 1;
}

int CCalibAlg::CalibPoint12(const tagLenPar& par, tagKelPointF in, tagKelPointF& out) {
    const tagCalCoefs& c = par.CalCoefs;
    const double* k = c.k;
    const double kc = countsPerUnit(par);
    const double x = in.x;
    const double y = in.y;

    // Constant per-side gains (0 takes the left and bottom gain), then counts.
    const double X = x * (x > 0.0 ? c.SXR : c.SXL) * kc;
    const double Y = y * (y > 0.0 ? c.SYT : c.SYB) * kc;

    double U = k[4] * X * X * X + k[6] * X * X * Y + k[8] * X * Y * Y + k[10] * Y * Y * Y +
               (k[0] * X + k[2] * Y);
    double V = k[7] * X * Y * Y + k[5] * Y * Y * Y + k[9] * X * X * Y + k[11] * X * X * X +
               (k[1] * Y + k[3] * X);

    // The tables are looked up at the corrected values in counts, in double.
    if (par.grid == 1) {
        double gu = U;
        double gv = V;
        mirror(par, gu, gv);
        U = U * GetScaleValue(par.LineCount, gu, par.XT, par.XA, par.XR);
        V = V * GetScaleValue(par.LineCount, gv, par.YT, par.YA, par.YR);
    }

    // Unlike the rest of the family this member shifts and clamps in double
    // and rounds to float only at the end.
    out.x = stored(centred(par, U));
    out.y = stored(centred(par, V));
    return 1;
}

int CCalibAlg::CalibPoint6(const tagLenPar& par, tagKelPointF in, tagKelPointF& out) {
    const double* k = par.CalCoefs.k;
    const double kc = countsPerUnit(par);

    tagKelPointF t;
    ShapePoint(par, in, t);
    const double x = t.x;
    const double y = t.y;

    // Counts relative to the centre, from the shaped point.
    const double X = (k[2] * x + k[0]) + k[4] * y + k[6] * x * y * y + k[8] * x * x + k[10] * y * y;
    const double Y = (k[3] * y + k[1]) + k[5] * x + k[7] * x * x * y + k[9] * y * y + k[11] * x * x;
    out.x = stored(X);
    out.y = stored(Y);

    gridStages(par, in, kc, out);
    return 1;
}

int CCalibAlg::CalibPoint2(const tagLenPar& par, tagKelPointF in, tagKelPointF& out) {
    const double* k = par.CalCoefs.k;
    const double kc = countsPerUnit(par);

    // No quadratic pre-warp: the shape correction acts on the input directly.
    tagKelPointF t;
    ShapePoint(par, in, t);

    out.x = stored(k[2] * t.y * t.y * t.x + kc * t.x);
    out.y = stored(k[3] * t.x * t.x * t.y + kc * t.y);

    gridStages(par, in, kc, out);
    return 1;
}
