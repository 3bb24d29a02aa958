// Internal: the analytic shape terms of the nine-point fit, shared by the
// main fit (on its pre-warped points) and the fitting variants whose
// corrections have no pre-warp (on the raw points).
#ifndef VRNCAL_ALG_SHAPE_FIT_H
#define VRNCAL_ALG_SHAPE_FIT_H

#include "vrncal/records.h"

namespace vrncal_detail {

// From the nine points p (row-major 3 x 3): the half axes, offsets, the
// angle between the middle column and row with the shear it gives, the side
// and overall gains, and the keystone terms, written into par.CalCoefs.
void fitShapeTerms(tagLenPar& par, const tagCalData (&p)[9]);

}  // namespace vrncal_detail

#endif
