#include "workflow/check.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include <vrncal/file_io.h>
#include <vrncal/validate.h>

#include "workflow/calfile.h"
#include "workflow/error.h"
#include "workflow/input.h"
#include "workflow/measure.h"

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

// A data file's grids and points, checked as the linter checks a table's.
void check_data_file_points(const tagLenPar& p, std::vector<Finding>& findings) {
    const std::vector<tagCalData> nine(std::begin(p.CalCoefs.Cal3Pnts), std::end(p.CalCoefs.Cal3Pnts));
    check_grid_points("the nine points", false, 3, p.ValSize, nine, {}, findings);
    for (std::size_t g = 0; g < p.Stacks.size(); ++g) {
        const tagStack& s = p.Stacks[g];
        if (s.Size >= 2 && s.Points.size() >= static_cast<std::size_t>(s.Size) * static_cast<std::size_t>(s.Size))
            check_grid_points(fmt::format("grid {} ({} x {})", g, s.Size, s.Size), false, s.Size, p.ValSize,
                              s.Points, {}, findings);
    }
}

// "PATH:LINE: what" or "PATH: what" without the path and line.
std::string without_path(const std::string& message, const std::string& path) {
    if (message.compare(0, path.size(), path) != 0) return message;
    std::size_t at = path.size();
    if (at < message.size() && message[at] == ':') ++at;
    const std::size_t digits = message.find_first_not_of("0123456789", at);
    if (digits != std::string::npos && digits > at && message[digits] == ':') at = digits + 1;
    while (at < message.size() && message[at] == ' ') ++at;
    return message.substr(at);
}

bool has_error(const std::vector<Finding>& findings) {
    return std::any_of(findings.begin(), findings.end(), [](const Finding& f) { return f.severity == Finding::Error; });
}

}  // namespace

Examination examine_calibration(const std::string& path, const std::string& bytes,
                                std::optional<double> field_size) {
    Examination e;
    e.data_file = is_data_file(bytes);
    if (e.data_file) {
        validate_data_file(path, bytes);
    } else {
        e.findings = lint_table(bytes);
        // The field size is set before the load: the table's own, else the
        // one given, else the library's.
        try {
            e.own_field_size = table_field_size(path, bytes);
        } catch (const Error&) {  // the linter reports it
        }
        if (const auto fs = e.own_field_size ? e.own_field_size : field_size) e.par.FieldSize = *fs;
    }
    // The library's checked load gives loadUcf's record, or says why not.
    const vrncal::LoadResult loaded = vrncal::load(path, e.par);
    e.loaded = loaded.ok;
    if (!e.loaded) {
        if (e.data_file) throw Error(loaded.message);
        // The linter names the cause with its line, usually.
        if (!has_error(e.findings))
            e.findings.push_back({static_cast<int>(loaded.line), Finding::Error, without_path(loaded.message, path)});
        return e;
    }
    e.par.CalMode = 1;
    check_coefficients(e.par, e.findings);
    for (const auto& p : vrncal::validate(e.par)) {
        // Reported above with their cause, or by the linter with their line.
        if (p.code == vrncal::ProblemCode::CoefficientNotFinite) continue;
        if (!e.data_file && p.code == vrncal::ProblemCode::GainTableNeverApplies) continue;
        e.findings.push_back({0, Finding::Error, p.message, vrncal::problemCodeName(p.code)});
    }
    if (e.data_file) check_data_file_points(e.par, e.findings);
    for (std::size_t g = 0; g < e.par.Stacks.size(); ++g)
        if (double to_nine = 0.0, to_nominal = 0.0; grid_looks_linear(e.par, e.par.Stacks[g], to_nine, to_nominal))
            e.findings.push_back(
                {0, Finding::Error,
                 fmt::format("grid {} ({} x {}) looks measured with the head driven linearly (a single pass): at the "
                             "nine calibration points it deviates as the nine points do, so the correction would "
                             "apply those deviations twice; mark it through the table and measure it again, or "
                             "import it with 'measure import --single-pass'",
                             g, e.par.Stacks[g].Size, e.par.Stacks[g].Size)});
    std::stable_sort(e.findings.begin(), e.findings.end(),
                     [](const Finding& a, const Finding& b) { return a.line < b.line; });
    return e;
}

Examination check_calibration(const std::string& path) {
    return examine_calibration(path, read_file(path, kMaxCalibrationBytes), std::nullopt);
}

}  // namespace vrncal::workflow
