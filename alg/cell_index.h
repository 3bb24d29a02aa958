// Internal: an index over the cells of one grid that finds, for a lookup
// point, the same cell as the row-major scan of the grid lookup, without
// testing every cell.
//
// The field is cut into buckets by a monotone function of each coordinate.
// Every cell is listed, in row-major order, in each bucket its inclusive
// nominal box touches.  A cell that encloses a point touches the point's
// bucket (the bucket function is monotone, so X0 <= x <= X1 gives
// b(X0) <= b(x) <= b(X1)), hence the first enclosing cell in the bucket's list
// is the first enclosing cell of the whole grid.  Cells that can never enclose
// a point (a NaN bound, or bounds in the wrong order) are not listed.
#ifndef VRNCAL_ALG_CELL_INDEX_H
#define VRNCAL_ALG_CELL_INDEX_H

#include <cstdint>
#include <vector>

#include "vrncal/records.h"

namespace vrncal_detail {

class CellIndex {
public:
    // Built from a stack with cells (stackHasCells) of fewer than 2^32
    // points; the stack must outlive the index and keep its points.
    explicit CellIndex(const tagStack& stack);

    // What findCellInclusive(stack, x, y) returns.  Allocates nothing.
    long find(double x, double y) const;

private:
    // One axis: buckets of equal width over [lo, hi); points below fall in
    // the first bucket, points at or above hi in the last.
    struct Axis {
        double lo = 0.0;
        double scale = 0.0;  // buckets per unit
        int count = 1;
        int bucket(double v) const {
            if (!(v >= lo)) return 0;
            const double t = (v - lo) * scale;
            if (!(t < count)) return count - 1;
            return static_cast<int>(t);
        }
    };

    bool build(int buckets);

    const tagStack* stack_;
    Axis ax_, ay_;
    std::vector<std::uint32_t> start_;  // per bucket, into cells_; one extra at the end
    std::vector<std::uint32_t> cells_;  // top-left point indices, row-major within a bucket
};

}  // namespace vrncal_detail

#endif
