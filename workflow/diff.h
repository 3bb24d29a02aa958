// Two calibrations compared where it matters: the device positions they
// drive the same field points to.  Before a new calibration goes to a
// machine, the difference says what will move and by how much.
#ifndef VRNCAL_WORKFLOW_DIFF_H
#define VRNCAL_WORKFLOW_DIFF_H

#include <cstddef>
#include <string>
#include <vector>

#include <vrncal/records.h>

#include "workflow/plot_data.h"
#include "workflow/units.h"

namespace vrncal::workflow {

struct Difference {
    int pattern = 0;             // raster targets per side
    double half = 0.0;           // the raster spans +-half (the smaller calibrated field)
    std::size_t nodes = 0;       // grid nodes of either calibration added to the raster
    std::size_t points = 0;      // targets compared
    std::size_t differing = 0;   // targets whose counts differ in any bit
    std::size_t not_finite = 0;  // targets where either calibration gives no finite count
    double counts_per_unit = 0;  // Resolution / FieldSize, the same for both
    // Distance between the two drive positions, counts (NaN when not_finite).
    double max_counts = 0.0;
    double rms_counts = 0.0;
    double max_x_counts = 0.0;   // largest |B - A| along each axis
    double max_y_counts = 0.0;
    tagKelPointF where{};        // field point of the largest distance
    tagKelPointF at_a{};         // the counts A and B give there
    tagKelPointF at_b{};
};

// Throws Error when the two do not drive the same device range (Resolution,
// HalfResolution or FieldSize differ: their counts do not compare).
void check_comparable(const tagLenPar& a, const tagLenPar& b, const std::string& name_a,
                      const std::string& name_b);

// Both corrections over a pattern x pattern raster of the smaller calibrated
// field, plus every grid node of either calibration inside it (where a moved
// node shows most).
Difference diff_calibrations(const tagLenPar& a, const tagLenPar& b, int pattern);

// The difference as a picture: the nominal grid, |B - A| as a colour map in
// the report unit, and B - A as arrows over a 17 x 17 raster.
PlotData diff_plot_data(const tagLenPar& a, const tagLenPar& b, const LengthUnit& unit);

}  // namespace vrncal::workflow

#endif
