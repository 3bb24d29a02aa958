// Grid-mode point correction: a field point to the device counts the head is
// driven to.
#include <cmath>

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
