// Internal: the O(1) cell lookup of a rectilinear stack, shared by the code
// that builds and checks the lookup and by the scalar path.  The vector paths
// do the same operations on eight points; they must not include this header
// (see calib/batch_model.h).
#ifndef VRNCAL_CALIB_BATCH_LOOKUP_H
#define VRNCAL_CALIB_BATCH_LOOKUP_H

#include <cstdint>

#include "calib/batch_model.h"

namespace vrncal_detail {

// trunc(clamp(t, 0, last)), with the clamp of the vector max/min
// instructions: a NaN t gives 0.
inline std::int32_t clampedGuess(float t, float last) {
    t = t > 0.0f ? t : 0.0f;
    t = t < last ? t : last;
    return static_cast<std::int32_t>(t);
}

inline std::int32_t guessColumn(const BatchStack& s, float x) { return clampedGuess((x - s.x0) * s.sx, s.last); }
inline std::int32_t guessRow(const BatchStack& s, float y) { return clampedGuess((s.y0 - y) * s.sy, s.last); }

// The first cell in row-major order whose nominal box holds (x, y), bounds
// inclusive, as the facade's scan finds it; -1 for none.  Rows and columns
// are independent in a rectilinear grid, so that cell is in the first row
// and the first column that hold the point: the column is the number of
// inner column Xs below x (a point on a shared edge stays in the left cell),
// the row the number of inner row Ys above y.
inline long rectilinearCell(const BatchStack& s, float x, float y) {
    if (!(x >= s.xLo && x <= s.xHi && y >= s.yLo && y <= s.yHi)) return -1;
    const std::int32_t gc = guessColumn(s, x);
    const std::int32_t gr = guessRow(s, y);
    const std::int32_t c = gc - 1 + (s.cmpX[gc] < x) + (s.cmpX[gc + 1] < x);
    const std::int32_t r = gr - 1 + (s.cmpY[gr] > y) + (s.cmpY[gr + 1] > y);
    return static_cast<long>(r) * s.cellsPerRow + c;
}

}  // namespace vrncal_detail

#endif
