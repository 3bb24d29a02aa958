// vrncal::validate: what makes a calibration record's correction
// meaningless.
//
// The correction itself never refuses a record: NaN and infinite terms flow
// through to the device counts, a grid that can never be found for any point
// is skipped silently, and a zero field size divides by zero.  validate lists
// each such problem once, with a stable code for programs and a message for
// people, so that a host can refuse a record before it drives a head with it.
// It checks the record as a whole, for either correction mode.
#ifndef VRNCAL_VALIDATE_H
#define VRNCAL_VALIDATE_H

#include <string>
#include <vector>

#include "vrncal/export.h"
#include "vrncal/records.h"

namespace vrncal {

enum class ProblemCode {
    FieldSizeNotPositive,      // FieldSize not a finite number above 0 ("field-size-not-positive")
    ValSizeNotPositive,        // ValSize not a finite number above 0 ("val-size-not-positive")
    ResolutionBelowOne,        // Resolution below 1 ("resolution-below-one")
    HalfResolutionOutOfRange,  // HalfResolution outside 0 .. Resolution, or HalfResolutionSq
                               // not its positive square ("half-resolution-out-of-range")
    CoefficientNotFinite,      // a term of CalCoefs is NaN or infinite ("coefficient-not-finite")
    AxisZero,                  // a half axis (AxisXL, AxisXR, AxisYT, AxisYB) is 0, which the
                               // keystone correction divides by ("axis-zero")
    BoxTermNotFinite,          // a box correction term is NaN or infinite ("box-term-not-finite")
    GainTableNotFinite,        // a row of a switched-on gain table is not finite ("gain-table-not-finite")
    GainTableNeverApplies,     // a gain table is switched on but its row count is outside
                               // 1 .. 99, so it is never read ("gain-table-never-applies")
    GridTooFewPoints,          // a grid holds fewer than Size x Size points ("grid-too-few-points")
    GridNeverApplies,          // no point of the field is ever looked up in the grid: fewer than
                               // two points per side, or no cell whose nominal corners enclose any
                               // point of the field ("grid-never-applies")
    GridNotRegular,            // some cells can never be found: the nominal points are not a grid
                               // with x rising along each row and y falling from row to row
                               // ("grid-not-regular")
    GridPitchMismatch,         // the nominal pitch differs by more than 1 % from the pitch the
                               // interpolation assumes, ValSize / (Size - 1) ("grid-pitch-mismatch")
    GridPointNotFinite,        // a measured position is NaN or infinite ("grid-point-not-finite")
};

// The stable code, e.g. "grid-too-few-points".
VRNCAL_API const char* problemCodeName(ProblemCode code);

struct Problem {
    ProblemCode code;
    int stack = -1;       // the grid concerned, -1 when none
    std::string message;  // one line, e.g. "grid 1 (9 x 9): 80 points, 81 needed"
};

// The problems of the record, in a fixed order (scalars, coefficients, box
// terms, gain tables, then each grid); empty when there are none.
VRNCAL_API std::vector<Problem> validate(const tagLenPar& par);

}  // namespace vrncal

#endif
