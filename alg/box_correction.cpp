// Box correction: the manual alternative to the grid correction, driven by a
// handful of hand-tuned factors and optional per-axis gain tables.
#include "alg/device_clamp.h"
#include "math/fp.h"
#include "vrncal/calib_alg.h"

using vrncal_detail::stored;

int CCalibAlg::CalibManual(const tagLenPar& par, tagKelPointF& in, tagKelPointF& out) {
    // in and out may be the same object; the gain lookup needs the caller's
    // point after out has been written.
    const tagKelPointF p = in;
    const double kc = static_cast<double>(par.Resolution) / par.FieldSize;

    // Scale in percent.
    const float x0 = stored(p.x * par.BoxScaleX / 100.0);
    const float y0 = stored(p.y * par.BoxScaleY / 100.0);

    // Skew: both axes use the scaled values, so y does not see the skewed x.
    const float x1 = stored(x0 - (1.0 - par.BoxSkewX) * y0);
    const float y1 = stored(y0 - x0 * (1.0 - par.BoxSkewY));

    // Keystone.
    const float x2 = stored(x1 - 2.0 * ((1.0 - par.BoxTrapX) * y1 * x1) / par.FieldSize);
    const float y2 = stored(y1 - 2.0 * ((1.0 - par.BoxTrapY) * x1 * y1) / par.FieldSize);

    // Counts, then the pincushion terms; X and Y stay in double.
    const double cx = x2 * kc;
    const double cy = y2 * kc;
    float ox = stored((par.BoxBarrelX - 1.0) * cx * cy * cy / par.HalfResolutionSq + cx);
    float oy = stored((par.BoxBarrelY - 1.0) * cy * cx * cx / par.HalfResolutionSq + cy);

    if (par.BoxGrid == 1) {
        // Unlike the grid correction, the box tables are read at the mirrored
        // point; the exchange flag swaps which invert flag acts on which axis.
        tagKelPointF g = p;
        const bool negX = par.LEN_XYFLIP == 0 ? par.LEN_XINVERT != 0 : par.LEN_YINVERT != 0;
        const bool negY = par.LEN_XYFLIP == 0 ? par.LEN_YINVERT != 0 : par.LEN_XINVERT != 0;
        if (negX) g.x = vrncal_detail::negated(g.x);
        if (negY) g.y = vrncal_detail::negated(g.y);
        const double fx = GetScaleValue(par.BoxLineCount, g.x, par.BoxXT, par.BoxXA, par.BoxXR);
        const double fy = GetScaleValue(par.BoxLineCount, g.y, par.BoxYT, par.BoxYA, par.BoxYR);
        ox = static_cast<float>(fx) * ox;
        oy = static_cast<float>(fy) * oy;
    }

    out.x = vrncal_detail::centreAndClamp(ox, par);
    out.y = vrncal_detail::centreAndClamp(oy, par);
    return 1;
}
