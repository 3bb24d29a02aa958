// check: lint a calibration before it reaches a machine.
#include <fmt/format.h>

#include "commands.h"
#include "errors.h"
#include "workflow/check.h"

namespace vrncal::tools {

namespace {

int run_check(const std::string& path) {
    const std::vector<Finding> findings = check_calibration(path);
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
