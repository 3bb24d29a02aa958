// The verification sections of `vrncal evaluate`: the landing error
// measured on the machine (--measured) and the held-out check of the finest
// grid (--holdout), as text or JSON.
#ifndef VRNCAL_TOOLS_VERIFY_REPORT_H
#define VRNCAL_TOOLS_VERIFY_REPORT_H

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <string>

#include "workflow/calfile.h"
#include "workflow/units.h"

namespace vrncal::tools {

struct VerifyOptions {
    std::string measured;  // verification file
    bool holdout = false;
    bool points = false;   // list every measured mark
    std::string units = "mm";
    bool any() const { return !measured.empty() || holdout; }
};

void add_verify_options(CLI::App* cmd, VerifyOptions& o);

struct VerifySections {
    std::string text;
    nlohmann::ordered_json json = nlohmann::ordered_json::object();
    bool has_measured = false;
    double measured_max = 0.0;  // report unit; NaN when an error is not a number
    std::string unit;           // the report unit's name
    int decimals = 2;           // for lengths in it
};

// Throws Error for a file that cannot be read or marks made through another
// calibration.
VerifySections verify_sections(const workflow::Calibration& cal, const std::string& name, const VerifyOptions& o);

// A number for JSON: NaN and infinities are null, never a string.
nlohmann::ordered_json number_or_null(double v);

}  // namespace vrncal::tools

#endif
