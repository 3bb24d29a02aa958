// Logical-to-device conversion: field units centred on the lens axis to
// device counts 0 .. Resolution.
#include "calib/lens_flags.h"
#include "math/fp.h"
#include "vrncal/facade.h"

using vrncal_detail::stored;

bool VrnCal::LP2DPEX_Cal(tagKelPointF in, tagKelPointF& out, const tagLenPar& par) {
    vrncal_detail::applyGridSigns(par, in);
    const double scale = static_cast<double>(par.Resolution) / par.FieldSize;
    // The two axes add the centre on opposite sides; the sums are the same.
    out.x = stored(par.HalfResolution + in.x * scale);
    out.y = stored(in.y * scale + par.HalfResolution);
    vrncal_detail::clampToDevice(par, out);
    return true;
}

namespace {

// Whether the shift of each axis subtracts.  The exchange flag pairs each
// axis with its own invert flag here, the reverse of the sign rule applied
// before the correction; machines are set up for this pairing, keep it.
struct ShiftSigns {
    bool x, y;
};

ShiftSigns shiftSigns(const tagLenPar& par) {
    const bool grid = par.CalMode != 0;
    const int exchange = grid ? par.XYFlip : par.LEN_XYFLIP;
    const int invertX = grid ? par.XInvert : par.LEN_XINVERT;
    const int invertY = grid ? par.YInvert : par.LEN_YINVERT;
    if (exchange != 0) return {invertX != 0, invertY != 0};
    return {invertY != 0, invertX != 0};
}

}  // namespace

bool VrnCal::LP2DPEX_SFT(const tagKelPointF& in, tagKelPointF& out, const tagLenPar& par, bool shift) {
    CalibPoint(par, in, out);
    if (shift) {
        const float h = static_cast<float>(par.HalfResolution);
        out.x = (out.x - h) * par.SftScaleX + h;
        out.y = (out.y - h) * par.SftScaleY + h;
        // The shift is given in field units: counts = Resolution * shift (in
        // float) / FieldSize (in double).
        const double dx = (par.Resolution * par.SftShiftX) / par.FieldSize;
        const double dy = (par.Resolution * par.SftShiftY) / par.FieldSize;
        const ShiftSigns minus = shiftSigns(par);
        out.x = stored(minus.x ? out.x - dx : out.x + dx);
        out.y = stored(minus.y ? out.y - dy : out.y + dy);
    }
    vrncal_detail::clampToDevice(par, out);
    return true;
}
