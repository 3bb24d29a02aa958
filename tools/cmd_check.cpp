// check: lint a calibration before it reaches a machine.
#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include <vrncal/facade.h>

#include "atomic_file.h"
#include "calfile.h"
#include "commands.h"
#include "errors.h"
#include "lint.h"

namespace vrncal::tools {

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

int run_check(const std::string& path) {
    require_readable(path);
    std::vector<Finding> findings;
    if (is_data_file(path)) {
        validate_data_file(path);
        tagLenPar par;
        VrnCal vc;
        if (!vc.loadUcf(path.c_str(), par)) throw ToolError(path + ": the data file cannot be loaded");
        check_coefficients(par, findings);
    } else {
        findings = lint_table(read_file(path));
        const bool blocked = std::any_of(findings.begin(), findings.end(), [](const Finding& f) {
            return f.severity == Finding::Error && (f.message.find("will not load") != std::string::npos ||
                                                   f.message.find("the load stops") != std::string::npos);
        });
        if (!blocked) {
            tagLenPar par;
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
    }
    int errors = 0, warnings = 0;
    std::string out;
    for (const auto& f : findings) {
        (f.severity == Finding::Error ? errors : warnings)++;
        out += format_finding(path, f) + "\n";
    }
    if (errors == 0 && warnings == 0)
        out += fmt::format("{}: no problems found\n", path);
    else
        out += fmt::format("{}: {} error{}, {} warning{}\n", path, errors, errors == 1 ? "" : "s", warnings,
                           warnings == 1 ? "" : "s");
    fmt::print("{}", out);
    return errors > 0 ? 1 : 0;
}

}  // namespace

void add_check_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("check", "Lint a calibration before it reaches a machine");
    auto path = std::make_shared<std::string>();
    cmd->add_option("FILE", *path, "Correction table (or data file)")->required();
    cmd->footer(
        "Reads the file as the library does and reports, with line numbers: missing or malformed\n"
        "nine points, grids the loader drops, keys placed where the loader does not look for them,\n"
        "repeated sections or keys that hide earlier ones, numbers that do not convert, values out\n"
        "of sensible ranges and non-finite fitted coefficients.  Exit status 1 when there is an\n"
        "error (the file will not load as it reads), 0 when there are only warnings.\n\nExample:\n"
        "  vrncal check examples/sample.cor");
    cmd->callback([path, &ctx] { ctx.status = run_check(*path); });
}

}  // namespace vrncal::tools
