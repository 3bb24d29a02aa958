// A scan head defined by measured data: the landing positions measured for a
// regular grid of drive positions, interpolated smoothly in between.
//
// The file is a CSV with the columns u, v (drive, device counts) and x, y
// (where the spot landed, field units, in the head's frame: x grows with u,
// y with v).  The drives form a full regular grid: every combination of the
// distinct u values and the distinct v values appears once, in any order;
// the spacing need not be even.  At least 4 values per axis.
//
// Between the drives the landing follows a tensor-product natural cubic
// spline: along u through each row of the grid, then along v through the
// values so found.  It passes through every measured point, is twice
// continuously differentiable, and reproduces any landing that is a cubic
// polynomial along each axis up to the end conditions.  A drive outside the
// measured grid is refused: the data says nothing there.
#ifndef VRNCAL_WORKFLOW_MEASURED_HEAD_H
#define VRNCAL_WORKFLOW_MEASURED_HEAD_H

#include <string>
#include <vector>

#include "workflow/head.h"

namespace vrncal::workflow {

// A natural cubic spline through (t[i], y[i]), t strictly increasing.
class Spline {
public:
    Spline() = default;
    Spline(std::vector<double> t, std::vector<double> y);
    double operator()(double x) const;

private:
    std::vector<double> t_, y_, m_;  // knots, values, second derivatives
};

class MeasuredHead : public Head {
public:
    // u: nu drive values along a row, v: nv values; x, y: nv rows of nu
    // landings (row j holds the drives (u[i], v[j])).
    MeasuredHead(std::string name, std::vector<double> u, std::vector<double> v, std::vector<double> x,
                 std::vector<double> y);

    Landing land(const tagLenPar& par, tagKelPointF counts) const override;
    void check_range(const tagLenPar& par) const override;
    std::vector<std::string> describe() const override;

private:
    std::string name_;
    std::vector<double> u_, v_;
    std::vector<Spline> rows_x_, rows_y_;  // along u, one per v value
};

// Reads a head data file; throws Error naming the file and the line.
MeasuredHead read_measured_head(const std::string& path);

}  // namespace vrncal::workflow

#endif
