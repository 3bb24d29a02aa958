// Internal: the grid-mode correction of one point, with the grid lookup of
// each stack supplied by the caller.  CCalibAlg::CalibPoint2_new runs it with
// GetGridDR; the batch corrector with its cell index.  One body, so both give
// the same bits.
#ifndef VRNCAL_ALG_GRID_CORRECTION_H
#define VRNCAL_ALG_GRID_CORRECTION_H

#include <cmath>
#include <cstddef>

#include "alg/device_clamp.h"
#include "math/fp.h"
#include "vrncal/calib_alg.h"

namespace vrncal_detail {

// Lookup point and axis gains for the grid residual.  The exchange flag never
// swaps the coordinates: it swaps which invert flag acts on which axis, and
// which gain goes with which axis.
struct GridFrame {
    bool negateX;
    bool negateY;
    double gainX;
    double gainY;
};

inline GridFrame gridFrame(const tagLenPar& par) {
    const tagCalCoefs& c = par.CalCoefs;
    if (par.XYFlip == 0) return GridFrame{par.XInvert != 0, par.YInvert != 0, c.ScaleX, c.ScaleY};
    return GridFrame{par.YInvert != 0, par.XInvert != 0, c.ScaleY, c.ScaleX};
}

// The residual in counts.  A residual of 0.001 field units or less is applied
// at a quarter of its size, not skipped; the float |d| is widened for the test.
inline float applyResidual(float v, float d, double kc, double gain) {
    const double counts = d * kc * gain;
    if (std::fabs(d) > 0.001) return stored(v - counts);
    return stored(v - 0.25 * counts);
}

// deviationOf(i, g, ratio, dev) must do what
// CCalibAlg::GetGridDR(par, g, ratio, dev, par.Stacks[i]) does.
template <typename DeviationOf>
int correctGridPoint(const tagLenPar& par, tagKelPointF in, tagKelPointF& out,
                     DeviationOf&& deviationOf) {
    const tagCalCoefs& c = par.CalCoefs;
    const double kc = static_cast<double>(par.Resolution) / par.FieldSize;
    const double px = in.x;
    const double py = in.y;

    // Quadratic pre-warp, then the analytic shape correction in place.
    tagKelPointF t;
    t.x = stored(c.QuadX * px * px + px);
    t.y = stored(c.QuadY * py * py + py);
    CCalibAlg::ShapePoint(par, t, t);

    // Cubic cross term and conversion to counts.
    const double tx = t.x;
    const double ty = t.y;
    float ox = stored(c.k[2] * ty * ty * tx + kc * tx);
    float oy = stored(c.k[3] * tx * tx * ty + kc * ty);

    // The grid is looked up at the caller's point, not the pre-warped one.
    const GridFrame frame = gridFrame(par);
    tagKelPointF g = in;
    if (frame.negateX) g.x = negated(g.x);
    if (frame.negateY) g.y = negated(g.y);

    // Every stack contributes: the residuals of overlapping stacks add up.
    float dx = 0.0f;
    float dy = 0.0f;
    for (std::size_t i = 0; i < par.Stacks.size(); ++i) {
        tagKelPointF ratio{0.0f, 0.0f};
        tagKelPointF dev{0.0f, 0.0f};
        deviationOf(i, g, ratio, dev);
        dx += dev.x;
        dy += dev.y;
    }
    if (frame.negateX) dx = negated(dx);
    if (frame.negateY) dy = negated(dy);

    ox = applyResidual(ox, dx, kc, frame.gainX);
    oy = applyResidual(oy, dy, kc, frame.gainY);

    // The gain tables read the caller's coordinates, unmirrored (the box
    // correction mirrors them).
    if (par.grid == 1) {
        const double fx = CCalibAlg::GetScaleValue(par.LineCount, px, par.XT, par.XA, par.XR);
        const double fy = CCalibAlg::GetScaleValue(par.LineCount, py, par.YT, par.YA, par.YR);
        ox = ox * static_cast<float>(fx);
        oy = oy * static_cast<float>(fy);
    }

    out.x = centreAndClamp(ox, par);
    out.y = centreAndClamp(oy, par);
    return 1;
}

}  // namespace vrncal_detail

#endif
