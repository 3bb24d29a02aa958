// What a calibration buys on a simulated head: the landing error over a dense
// pattern of targets, driven linearly, then through the nine-point correction
// alone, then adding the grids one by one.
#ifndef VRNCAL_WORKFLOW_EVALUATE_H
#define VRNCAL_WORKFLOW_EVALUATE_H

#include <string>
#include <vector>

#include <vrncal/records.h>

#include "workflow/head.h"
#include "workflow/stats.h"

namespace vrncal::workflow {

struct Stage {
    std::string name;  // "uncorrected (linear)", "nine-point", "nine-point + 9x9", ...
    ErrorStats stats;  // micrometres
};

// Targets of an n x n pattern over +-val_size/2, row-major, y falling.
std::vector<tagKelPointF> target_pattern(int n, double val_size);

// Landing errors in micrometres of the targets driven through par: through
// the correction CalMode selects, or linearly.  Placed: once the landings
// are turned and shifted onto the targets as well as one rotation and one
// shift can (least squares), the error of the field's shape wherever the
// field lies, as a calibration measured from scans, which fix their own
// frame, is judged.
std::vector<double> landing_errors_um(const Head& head, const tagLenPar& par,
                                      const std::vector<tagKelPointF>& targets, bool corrected, bool placed = false);

// One stage per step of the calibration, over an n x n pattern spanning
// +-ValSize/2.  Throws Error unless 2 <= n <= 2001.
std::vector<Stage> evaluate_stages(const Head& head, const tagLenPar& par, int n, bool placed = false);

}  // namespace vrncal::workflow

#endif
