// What a calibration holds and how well its nine points fit, as plain values
// for `vrncal info` and `vrncal fit` (and any other front end) to show.
#ifndef VRNCAL_WORKFLOW_SUMMARY_H
#define VRNCAL_WORKFLOW_SUMMARY_H

#include <array>
#include <string>
#include <vector>

#include <vrncal/records.h>

namespace vrncal::workflow {

struct Coef {
    const char* name;
    double value;
};

// The coefficients of the nine-point model in a fixed order (LinX, QuadX, ...,
// k0 to k3), named as the record names them.
std::vector<Coef> coefficients(const tagCalCoefs& c);

struct Deviation {
    double max = 0.0;
    double rms = 0.0;
};

// Largest and RMS distance of measured from nominal over a grid.
Deviation deviation(const tagStack& s);

// True when the gain tables take part in the correction.
bool gains_in_use(const tagLenPar& p);

struct NineFit {
    tagLenPar fitted;  // the record with the coefficients fitted again
    struct Residual {
        tagCalData point;  // nominal and measured, as stored
        double dx_um;      // drive of the corrected measured position minus
        double dy_um;      // the linear drive of the nominal, micrometres
    };
    std::array<Residual, 9> residuals;
};

// Fits the nine-point coefficients again and measures how well the fit
// inverts the nine measurements: the correction of each measured position
// should drive the head where the nominal was driven.
NineFit fit_nine_points(const tagLenPar& par);

// What `vrncal info` shows: heading, then resolution, field sizes (with
// where the field size comes from), lens flags, the coefficients, each grid
// with its deviations, the gain tables.
std::string info_text(const std::string& heading, const tagLenPar& p, const std::string& field_size_from);
// The heading of a loaded file: "PATH: correction table (...)".
std::string info_heading(const std::string& path, bool data_file);

}  // namespace vrncal::workflow

#endif
