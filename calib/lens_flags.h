// Internal: how the lens flags act on a field point before it is corrected.
#ifndef VRNCAL_CALIB_LENS_FLAGS_H
#define VRNCAL_CALIB_LENS_FLAGS_H

#include "math/fp.h"
#include "vrncal/records.h"

namespace vrncal_detail {

// The sign rule: without the exchange flag, the x invert flag negates x and
// the y invert flag y; with it, they swap axes (x invert negates y).  The
// coordinates themselves are never exchanged; the exchange flag only decides
// which invert flag acts on which axis.  Negation flips the sign bit.
inline void applySigns(int exchange, int invertX, int invertY, tagKelPointF& p) {
    if (exchange == 0) {
        if (invertX != 0) p.x = negated(p.x);
        if (invertY != 0) p.y = negated(p.y);
    } else {
        if (invertX != 0) p.y = negated(p.y);
        if (invertY != 0) p.x = negated(p.x);
    }
}

// The grid correction and the linear conversion use the copies of the flags.
inline void applyGridSigns(const tagLenPar& par, tagKelPointF& p) {
    applySigns(par.XYFlip, par.XInvert, par.YInvert, p);
}

// The point as the correction CalMode picks receives it: the grid correction
// takes the copies of the flags, the box correction the lens flags and then
// its offsets, added in double and stored as float.
inline tagKelPointF correctionInput(const tagLenPar& par, tagKelPointF p) {
    if (par.CalMode != 0) {
        applyGridSigns(par, p);
        return p;
    }
    applySigns(par.LEN_XYFLIP, par.LEN_XINVERT, par.LEN_YINVERT, p);
    p.x = stored(p.x + par.BoxOffsetX);
    p.y = stored(p.y + par.BoxOffsetY);
    return p;
}

// Clamps a device point to 0 .. Resolution, compared in float, x first.
// A NaN compares false both ways and passes through.
inline void clampToDevice(const tagLenPar& par, tagKelPointF& p) {
    const float limit = static_cast<float>(par.Resolution);
    if (p.x < 0.0f)
        p.x = 0.0f;
    else if (p.x > limit)
        p.x = limit;
    if (p.y < 0.0f)
        p.y = 0.0f;
    else if (p.y > limit)
        p.y = limit;
}

}  // namespace vrncal_detail

#endif
