// Internal float helpers for the bit-exact numerics.
#ifndef VRNCAL_MATH_FP_H
#define VRNCAL_MATH_FP_H

#include <climits>

namespace vrncal_detail {

// Rounds a double result to a 32-bit float: every value the algorithms call
// "stored" goes through here, exactly where the algorithm stores it.
inline float stored(double v) { return static_cast<float>(v); }

// Flips the sign bit (0 becomes -0), as the lens invert flags do.
inline float negated(float v) { return -v; }

// Truncates toward zero to a 32-bit int as the x86-64 conversion instruction
// does: NaN and values outside the int range give INT_MIN (its "integer
// indefinite" value) instead of undefined behaviour.
inline int truncToInt32(double v) {
    if (!(v >= -2147483648.0 && v < 2147483648.0)) return INT_MIN;
    return static_cast<int>(v);
}

}  // namespace vrncal_detail

#endif
