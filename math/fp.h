// Internal float helpers for the bit-exact numerics.
#ifndef VRNCAL_MATH_FP_H
#define VRNCAL_MATH_FP_H

namespace vrncal_detail {

// Rounds a double result to a 32-bit float: every value the algorithms call
// "stored" goes through here, exactly where the algorithm stores it.
inline float stored(double v) { return static_cast<float>(v); }

// Flips the sign bit (0 becomes -0), as the lens invert flags do.
inline float negated(float v) { return -v; }

}  // namespace vrncal_detail

#endif
