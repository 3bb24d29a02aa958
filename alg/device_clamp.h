// Internal: the last step shared by the grid and box corrections.
#ifndef VRNCAL_ALG_DEVICE_CLAMP_H
#define VRNCAL_ALG_DEVICE_CLAMP_H

#include "vrncal/records.h"

namespace vrncal_detail {

// Shifts a corrected coordinate (counts about the centre) to the device
// centre in float arithmetic and clamps it to 0 .. Resolution.  Infinities
// land on the limits; a NaN passes unchanged.
inline float centreAndClamp(float v, const tagLenPar& par) {
    v = v + static_cast<float>(par.HalfResolution);
    const float limit = static_cast<float>(par.Resolution);
    if (v < 0.0f)
        v = 0.0f;
    else if (v > limit)
        v = limit;
    return v;
}

}  // namespace vrncal_detail

#endif
