// The batch corrector as it was before the scalar and vector paths: the
// facade's correction of each point through the library's out-of-line steps
// (ShapePoint, Line::GetLine, Line::GetCrossPoint), with the grid cell found
// through a bucket index.  Kept in the benchmark as the baseline the new
// paths are measured against; it gives the facade's bits.
#ifndef VRNCAL_BENCH_BASELINE_CORRECTOR_H
#define VRNCAL_BENCH_BASELINE_CORRECTOR_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "vrncal/records.h"

namespace baseline {

// An index over the cells of one grid that finds the same cell as the
// row-major scan: each cell is listed, in row-major order, in every bucket
// its inclusive nominal box touches.
class CellIndex {
public:
    explicit CellIndex(const tagStack& stack);
    long find(double x, double y) const;

private:
    struct Axis {
        double lo = 0.0;
        double scale = 0.0;
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
    std::vector<std::uint32_t> start_;
    std::vector<std::uint32_t> cells_;
};

class Corrector {
public:
    explicit Corrector(const tagLenPar& par);
    void correct(const tagKelPointF* in, tagKelPointF* out, std::size_t n) const;

private:
    bool correctOne(tagKelPointF in, tagKelPointF& out) const;
    const tagLenPar& par_;
    std::vector<std::optional<CellIndex>> index_;
};

}  // namespace baseline

#endif
