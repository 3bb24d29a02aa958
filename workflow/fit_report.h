// How well the nine-point model fits, in real units: what it leaves at each
// of the nine targets, what each grid corrects on top of it, and, given a
// simulated head or a verification file, where the marks at the nine
// targets really land.
#ifndef VRNCAL_WORKFLOW_FIT_REPORT_H
#define VRNCAL_WORKFLOW_FIT_REPORT_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include <vrncal/records.h>

#include "workflow/head.h"
#include "workflow/summary.h"
#include "workflow/units.h"
#include "workflow/verification.h"

namespace vrncal::workflow {

struct NineTarget {
    tagKelPointF target{};  // caller's frame
    double dx = 0.0, dy = 0.0;  // the fit residual (fit_nine_points), report unit
    double residual = 0.0;      // its length
    // On a simulated head: the landing error with the nine-point model alone
    // and with the whole calibration, report unit.
    std::optional<double> model_error, full_error;
    // From a verification file: the error measured at this target.
    std::optional<double> measured_error;
};

struct GridFit {
    int size = 0;
    double max = 0.0, rms = 0.0;  // measured - nominal, report unit
    bool looks_linear = false;    // measured with the head driven linearly, by the import's test
    double to_nine = 0.0;         // the test's distances, report unit
    double to_nominal = 0.0;
};

struct FitReport {
    NineFit fit;
    std::array<NineTarget, 9> targets;
    std::vector<GridFit> grids;
    // What the measured marks were driven through: "the nine-point model",
    // "the whole calibration" or "" (no drives in the file); empty without
    // a verification file.
    std::string measured_through;
    std::size_t measured_found = 0;  // the nine targets found in the file
};

// The report of par; head and marks are optional.  Throws Error when the
// file's drives match neither the nine-point model nor the whole
// calibration (marks of another calibration).
FitReport fit_report(const tagLenPar& par, const LengthUnit& unit, const Head* head,
                     const std::vector<VerificationMark>* marks, const std::string& marks_path);

}  // namespace vrncal::workflow

#endif
