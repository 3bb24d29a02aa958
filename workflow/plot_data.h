// What `vrncal plot` draws, computed apart from the drawing so that any
// renderer (the tool's cairo picture, a Python figure) shows the same: the
// nominal grid lines, the drive positions the correction gives for them with
// their deviations exaggerated, and optionally the landing error on a
// simulated head as a map of cells.
#ifndef VRNCAL_WORKFLOW_PLOT_DATA_H
#define VRNCAL_WORKFLOW_PLOT_DATA_H

#include <optional>
#include <string>
#include <vector>

#include <vrncal/records.h>

#include "workflow/head.h"

namespace vrncal::workflow {

struct PlotPoint {
    double x;
    double y;
};

struct PlotData {
    std::string title;
    double val_size = 80.0;                          // the calibrated field spans +-val_size/2
    std::vector<std::vector<PlotPoint>> nominal;     // grid lines at their nominal positions
    std::vector<std::vector<PlotPoint>> drive;       // the same lines at the exaggerated drive positions
    double factor = 1.0;                             // exaggeration of the drive deviations
    double max_deviation = 0.0;                      // largest drive deviation, field units
    // Optional colour map of the landing error: cells x cells values in
    // micrometres, row 0 at the top of the field.
    int cells = 0;
    std::vector<double> error_um;
};

// Grid lines per direction; factor: the exaggeration, chosen by auto_factor
// when not given; head: adds the landing error map of 120 x 120 cells.
PlotData plot_data(const tagLenPar& par, int lines, std::optional<double> factor, const Head* head);

// A factor 1, 2 or 5 times a power of ten that makes the largest deviation
// about a twentieth of the field.
double auto_factor(double max_deviation, double val_size);

}  // namespace vrncal::workflow

#endif
