// Checking a calibration against what the head really does.
//
// A verification run marks targets through the whole calibration and
// measures where the marks landed.  The verification file holds, per mark,
// the target (x, y) and the measured landing (measured_x, measured_y), in
// field units and the caller's frame, with the conventions of a measurement
// file: CSV with a header naming the columns, or 4 columns without one (x,
// y, measured x, measured y).  A filled verification job also has index,
// row, column and the drive (u, v); the drive is checked against the
// calibration being evaluated, so marks made through another calibration
// are not taken for this one's.
//
// The held-out check needs no new marks: it estimates, from the grids a
// table already holds, what the finest grid buys over one of half its
// density.
#ifndef VRNCAL_WORKFLOW_VERIFICATION_H
#define VRNCAL_WORKFLOW_VERIFICATION_H

#include <optional>
#include <string>
#include <vector>

#include <vrncal/records.h>

#include "workflow/head.h"
#include "workflow/job.h"
#include "workflow/plot_data.h"
#include "workflow/stats.h"
#include "workflow/units.h"

namespace vrncal::workflow {

struct VerificationMark {
    int line = 0;               // line in the file
    tagKelPointF target{};      // field units, caller's frame
    tagKelPointF measured{};    // where it landed
    bool has_drive = false;     // the file gives the drive
    tagKelPointF drive{};
};

// Reads a verification file.  Throws Error naming the file and the line.
std::vector<VerificationMark> read_verification(const std::string& path);

// Throws Error "PATH:LINE: ..." for the first mark whose drive is not what
// par gives its target (by more than 0.01 counts): it was marked through
// another calibration.
void check_drives(const tagLenPar& par, const std::string& path, const std::vector<VerificationMark>& marks);

// The marks of a verification job: n x n targets over +-ValSize/2 (the
// targets of evaluate's pattern), each driven through the whole
// calibration.
std::vector<Mark> verification_marks(const tagLenPar& par, int n);

// The marks of a verification job landed on a simulated head (no noise),
// as a verification run reads them.
std::vector<VerificationMark> simulated_verification(const Head& head, const tagLenPar& par,
                                                     const std::vector<Mark>& marks);

struct PointError {
    VerificationMark mark;
    double dx = 0.0, dy = 0.0;  // measured - target, report unit
    double error = 0.0;         // their length
    int ring = 0;               // 0 inner, 1 middle, 2 outer
};

struct RingStats {
    const char* name;  // "inner third", ...
    ErrorStats stats;  // report unit
};

struct LandingReport {
    double half = 0.0;        // the field the rings divide: +-ValSize/2
    ErrorStats overall;       // report unit; NaN everywhere when any error is not finite
    double mean_dx = 0.0;     // the mean error vector (a shift common to all marks), report unit
    double mean_dy = 0.0;
    RingStats rings[3];
    std::vector<PointError> points;
};

// The landing errors of the marks, overall and by ring: a mark is in the
// inner third when max(|x|, |y|) is at most a third of ValSize/2, in the
// middle third up to two thirds, else (beyond the field too) in the outer.
LandingReport landing_report(const tagLenPar& par, const std::vector<VerificationMark>& marks,
                             const LengthUnit& unit);

// The measured errors as arrows over the nominal grid of the field,
// exaggerated by factor (by default chosen to be visible); the colour map
// is left empty.
PlotData measured_plot_data(const tagLenPar& par, const LandingReport& report, const LengthUnit& unit,
                            std::optional<double> factor = std::nullopt);

struct Holdout {
    int size = 0;               // the finest grid, points per side
    int kept = 0;               // the thinned grid: every other node, (size + 1) / 2 per side
    std::size_t left_out = 0;   // nodes left out
    ErrorStats error;           // report unit: how far the thinned table drives from the full one there
    ErrorStats deviation;       // report unit: measured - nominal of the finest grid there
    tagKelPointF worst{};       // the left-out node of the largest error
};

// Leaves every other node of the finest grid out (every node in an odd row
// or column), rebuilds the correction with the rest, and measures at the
// left-out nodes how far the thinned correction drives from the full one,
// in field units of the head (counts over counts per field unit and the
// axis gain): the landing error the thinned table would leave there if the
// full one lands on target.  Throws Error when the table has no grid of 5
// or more points per side.
Holdout holdout_check(const tagLenPar& par, const LengthUnit& unit);

}  // namespace vrncal::workflow

#endif
