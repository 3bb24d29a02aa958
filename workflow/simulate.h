// A calibration run on the simulated head, as an engineer does it on a
// machine:
//
//   1. the nine points of a 3 x 3 grid over +-ValSize/2 are marked with the
//      head driven linearly (no correction) and measured;
//   2. the nine-point correction is fitted from them (by loading the table,
//      exactly as a machine would);
//   3. each grid, in the order given, is marked through the correction as it
//      stands (the nine-point correction plus the grids measured before it)
//      and measured.  The residuals of all grids add up in the correction, so
//      each grid measures only what the earlier stages left.
//
// Measurements carry optional Gaussian noise and are rounded to float, as the
// calibration records store them.
#ifndef VRNCAL_WORKFLOW_SIMULATE_H
#define VRNCAL_WORKFLOW_SIMULATE_H

#include <cstdint>
#include <string>
#include <vector>

#include "workflow/lens.h"
#include "workflow/table_writer.h"

namespace vrncal::workflow {

struct SimulateOptions {
    LensModel lens;
    std::vector<int> grids;   // points per side, each one of 5, 9, 17, 25, 33, 65
    double val_size = 80.0;   // calibrated field, field units
    double noise_um = 0.0;    // measurement noise, standard deviation per axis
    std::uint64_t seed = 1;
};

// Throws Error unless the options describe a run: grid sizes from the list
// above, each once; 1 < val_size <= 100 (the field size); noise not negative.
void check_simulate_options(const SimulateOptions& opt);

// Checks the options, runs the calibration; returns the table ready to be written, with comments
// that describe the run (lens, noise, seed, grids).  Intermediate
// tables are loaded from temporary files.  Throws Error.
TableContent simulate_calibration(const SimulateOptions& opt);

// The landing error of one target, in field units, when the head is driven
// to the device point the record's correction gives for it.
double landing_error(const LensModel& lens, const tagLenPar& par, tagKelPointF target, tagKelPointF counts);

}  // namespace vrncal::workflow

#endif
