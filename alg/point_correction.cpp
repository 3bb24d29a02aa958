// Grid-mode point correction: a field point to the device counts the head is
// driven to.
#include <cmath>

#include "alg/grid_correction.h"
#include "math/fp.h"
#include "vrncal/calib_alg.h"

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

int CCalibAlg::CalibPoint2_new(const tagLenPar& par, tagKelPointF in, tagKelPointF& out) {
    return vrncal_detail::correctGridPoint(
        par, in, out, [&par](std::size_t i, const tagKelPointF& g, tagKelPointF& ratio, tagKelPointF& dev) {
            GetGridDR(par, g, ratio, dev, par.Stacks[i]);
        });
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
