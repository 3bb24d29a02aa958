// Grid-mode point correction: a field point to the device counts the head is
// driven to.
#include <cmath>

#include "alg/device_clamp.h"
#include "math/fp.h"
#include "vrncal/calib_alg.h"

using vrncal_detail::centreAndClamp;
using vrncal_detail::stored;

int CCalibAlg::ShapePoint(const tagLenPar& par, const tagKelPointF& in, tagKelPointF& out) {
    const tagCalCoefs& c = par.CalCoefs;
    // in and out may be the same object: read both coordinates first.
    const float x = in.x;
    const double y = in.y;

    const float x1 = stored(x - c.PLX * y);  // shear of x by y

    // Keystone in x, chosen by the side of the sheared x.
    float x2 = x1;
    if (x1 < 0.0f)
        x2 = stored(c.TXL * y * x1 / c.AxisXL + x1);
    else if (x1 > 0.0f)
        x2 = stored(x1 - c.TXR * y * x1 / c.AxisXR);

    // Keystone in y, chosen by the side of y and driven by the sheared x (not x2).
    float y2 = static_cast<float>(y);
    if (y < 0.0)
        y2 = stored(y + x1 * c.TYB * y / c.AxisYB);
    else if (y > 0.0)
        y2 = stored(y - x1 * c.TYT * y / c.AxisYT);

    out.x = stored(x2 * c.ScaleX);
    out.y = stored(y2 * c.ScaleY);
    return 1;
}

int CCalibAlg::CalibLSM(const tagLenPar& par, const tagKelPointF& in, tagKelPointF& out) {
    return CalibPoint2_new(par, in, out);
}

namespace {

// Lookup point and axis gains for the grid residual.  The exchange flag never
// swaps the coordinates: it swaps which invert flag acts on which axis, and
// which gain goes with which axis.
struct GridFrame {
    bool negateX;
    bool negateY;
    double gainX;
    double gainY;
};

GridFrame gridFrame(const tagLenPar& par) {
    const tagCalCoefs& c = par.CalCoefs;
    if (par.XYFlip == 0) return GridFrame{par.XInvert != 0, par.YInvert != 0, c.ScaleX, c.ScaleY};
    return GridFrame{par.YInvert != 0, par.XInvert != 0, c.ScaleY, c.ScaleX};
}

// The residual in counts.  A residual of 0.001 field units or less is applied
// at a quarter of its size, not skipped; the float |d| is widened for the test.
float applyResidual(float v, float d, double kc, double gain) {
    const double counts = d * kc * gain;
    if (std::fabs(d) > 0.001) return stored(v - counts);
    return stored(v - 0.25 * counts);
}

}  // namespace

int CCalibAlg::CalibPoint2_new(const tagLenPar& par, tagKelPointF in, tagKelPointF& out) {
    const tagCalCoefs& c = par.CalCoefs;
    const double kc = static_cast<double>(par.Resolution) / par.FieldSize;
    const double px = in.x;
    const double py = in.y;

    // Quadratic pre-warp, then the analytic shape correction in place.
    tagKelPointF t;
    t.x = stored(c.QuadX * px * px + px);
    t.y = stored(c.QuadY * py * py + py);
    ShapePoint(par, t, t);

    // Cubic cross term and conversion to counts.
    const double tx = t.x;
    const double ty = t.y;
    float ox = stored(c.k[2] * ty * ty * tx + kc * tx);
    float oy = stored(c.k[3] * tx * tx * ty + kc * ty);

    // The grid is looked up at the caller's point, not the pre-warped one.
    const GridFrame frame = gridFrame(par);
    tagKelPointF g = in;
    if (frame.negateX) g.x = vrncal_detail::negated(g.x);
    if (frame.negateY) g.y = vrncal_detail::negated(g.y);

    // Every stack contributes: the residuals of overlapping stacks add up.
    float dx = 0.0f;
    float dy = 0.0f;
    for (const tagStack& stack : par.Stacks) {
        tagKelPointF ratio{0.0f, 0.0f};
        tagKelPointF dev{0.0f, 0.0f};
        GetGridDR(par, g, ratio, dev, stack);
        dx += dev.x;
        dy += dev.y;
    }
    if (frame.negateX) dx = vrncal_detail::negated(dx);
    if (frame.negateY) dy = vrncal_detail::negated(dy);

    ox = applyResidual(ox, dx, kc, frame.gainX);
    oy = applyResidual(oy, dy, kc, frame.gainY);

    // The gain tables read the caller's coordinates, unmirrored (the box
    // correction mirrors them).
    if (par.grid == 1) {
        const double fx = GetScaleValue(par.LineCount, px, par.XT, par.XA, par.XR);
        const double fy = GetScaleValue(par.LineCount, py, par.YT, par.YA, par.YR);
        ox = ox * static_cast<float>(fx);
        oy = oy * static_cast<float>(fy);
    }

    out.x = centreAndClamp(ox, par);
    out.y = centreAndClamp(oy, par);
    return 1;
}

double CCalibAlg::GetScaleValue(int count, double v, const double* pos, const double* /*aux*/,
                                const double* gain) {
    // A table may hold 100 rows, but a count of 100 disables the lookup.
    if (count < 1 || count > 99) return 1.0;
    if (!(std::fabs(v) >= 0.000001)) return 1.0;  // near zero or NaN
    if (pos == nullptr || gain == nullptr) return 1.0;
    if (pos[0] >= v) return gain[0];
    if (v >= pos[count - 1]) return gain[count - 1];
    if (count == 1) return 1.0;
    for (int i = 0; i + 1 < count; ++i) {
        if (pos[i] <= v && v < pos[i + 1]) {
            if (std::fabs(pos[i + 1] - pos[i]) == 0.0) return gain[i];
            return gain[i] + (v - pos[i]) * (gain[i + 1] - gain[i]) / (pos[i + 1] - pos[i]);
        }
    }
    return 1.0;  // breakpoints not ascending
}

tagKelPointF CCalibAlg::getPointScale(const tagLenPar& par, tagKelPointF pt) {
    const tagCalCoefs& c = par.CalCoefs;
    tagKelPointF s{1.0f, 1.0f};
    // Compared in float, so the band -1 .. 1 always gives exactly 1.
    if (pt.x < -1.0f)
        s.x = stored((c.SXL - 1.0) * std::fabs(pt.x) / par.ValSize + 1.0);
    else if (pt.x > 1.0f)
        s.x = stored((c.SXR - 1.0) * std::fabs(pt.x) / par.ValSize + 1.0);
    if (pt.y < -1.0f)
        s.y = stored((c.SYB - 1.0) * std::fabs(pt.y) / par.ValSize + 1.0);
    else if (pt.y > 1.0f)
        s.y = stored((c.SYT - 1.0) * std::fabs(pt.y) / par.ValSize + 1.0);
    return s;
}
