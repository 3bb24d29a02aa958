#include "workflow/check.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include <vrncal/facade.h>

#include "workflow/atomic_file.h"
#include "workflow/calfile.h"
#include "workflow/error.h"

namespace vrncal::workflow {

namespace {

// Non-finite fitted or stored coefficients, which would send every corrected
// point to a device limit or to NaN.
void check_coefficients(const tagLenPar& p, std::vector<Finding>& findings) {
    const tagCalCoefs& c = p.CalCoefs;
    const std::pair<const char*, double> coefs[] = {
        {"QuadX", c.QuadX}, {"QuadY", c.QuadY}, {"AxisXL", c.AxisXL}, {"AxisXR", c.AxisXR},
        {"AxisYT", c.AxisYT}, {"AxisYB", c.AxisYB}, {"SXL", c.SXL}, {"SXR", c.SXR},
        {"ScaleX", c.ScaleX}, {"SYT", c.SYT}, {"SYB", c.SYB}, {"ScaleY", c.ScaleY},
        {"TXL", c.TXL}, {"TXR", c.TXR}, {"TYT", c.TYT}, {"TYB", c.TYB},
        {"PLX", c.PLX}, {"PLY", c.PLY}, {"Y2XAngle", c.Y2XAngle}, {"k2", c.k[2]}, {"k3", c.k[3]}};
    std::string bad;
    for (const auto& [name, v] : coefs)
        if (!std::isfinite(v)) bad += fmt::format("{}{} {}", bad.empty() ? "" : ", ", name, std::isnan(v) ? "nan" : v > 0 ? "inf" : "-inf");
    if (!bad.empty())
        findings.push_back({0, Finding::Error,
                            fmt::format("the fit gives non-finite coefficients ({}): the nine points are degenerate "
                                        "(a zero axis, or measurements that leave a fit without data)",
                                        bad)});
}

}  // namespace

std::vector<Finding> check_calibration(const std::string& path) {
    require_readable(path);
    std::vector<Finding> findings;
    if (is_data_file(path)) {
        validate_data_file(path);
        tagLenPar par;
        VrnCal vc;
        if (!vc.loadUcf(path.c_str(), par)) throw Error(path + ": the data file cannot be loaded");
        check_coefficients(par, findings);
        return findings;
    }
    const std::string text = read_file(path);
    findings = lint_table(text);
    const bool blocked = std::any_of(findings.begin(), findings.end(), [](const Finding& f) {
        return f.severity == Finding::Error && (f.message.find("will not load") != std::string::npos ||
                                               f.message.find("the load stops") != std::string::npos);
    });
    if (!blocked) {
        tagLenPar par;
        try {
            par.FieldSize = table_field_size(path, text).value_or(par.FieldSize);
        } catch (const Error&) {  // the linter reports it
        }
        VrnCal vc;
        try {
            if (vc.loadUcf(path.c_str(), par))
                check_coefficients(par, findings);
            else
                findings.push_back({0, Finding::Error, "the library does not load the file"});
        } catch (const std::exception& e) {
            findings.push_back({0, Finding::Error, fmt::format("the library's load fails with '{}'", e.what())});
        }
    }
    return findings;
}

}  // namespace vrncal::workflow
