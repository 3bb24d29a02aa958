// The simulator plays the machine: it marks jobs on a simulated head and
// measures the marks, and it runs a whole calibration as an engineer does it
// on a machine:
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
// Measurements are taken in the caller's frame, carry optional Gaussian noise
// and are rounded to float, as the calibration records store them.
#ifndef VRNCAL_WORKFLOW_SIMULATE_H
#define VRNCAL_WORKFLOW_SIMULATE_H

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "workflow/head.h"
#include "workflow/job.h"
#include "workflow/table_writer.h"

namespace vrncal::workflow {

// Gaussian measurement noise, reproducible on every platform: a 64-bit
// Mersenne Twister and a hand-written Box-Muller transform (the standard
// distributions differ between library implementations).
class Noise {
public:
    Noise(std::uint64_t seed, double sigma) : gen_(seed), sigma_(sigma) {}
    // Two independent samples of N(0, sigma^2); sigma 0 gives exact zeros and
    // draws nothing, so a noiseless run does not depend on the seed.
    void pair(double& a, double& b);

private:
    std::mt19937_64 gen_;
    double sigma_;
};

// Marks the job on the head (driven as the job says) and measures every
// mark in the caller's frame, adding noise of noise_um micrometres (standard
// deviation per axis) drawn from noise.  Throws Error.
std::vector<tagKelPointF> measure_marks(const Head& head, const tagLenPar& par, const std::vector<Mark>& marks,
                                        Noise& noise, double noise_um);

struct SimulateOptions {
    const Head* head = nullptr;
    std::vector<int> grids;    // points per side, each one of 5, 9, 17, 25, 33, 65
    double field_size = 100.0;  // field units spanned by the device range
    double val_size = 80.0;    // calibrated field, field units
    int xy_flip = 0, x_invert = 0, y_invert = 0;
    double noise_um = 0.0;     // measurement noise, standard deviation per axis
    std::uint64_t seed = 1;
};

// Throws Error unless the options describe a run: grid sizes from the list
// above, each once; 1 < val_size <= field_size; noise not negative.
void check_simulate_options(const SimulateOptions& opt);

// Checks the options and runs the calibration; returns the table ready to be
// written, with comments that describe the run (head, noise, seed, grids).
// Intermediate tables are loaded from temporary files.  Throws Error.
TableContent simulate_calibration(const SimulateOptions& opt);

// The record of the settings a table of these options carries.
tagLenPar settings_record(const TableContent& t);

}  // namespace vrncal::workflow

#endif
