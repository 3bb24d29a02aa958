// diff: what changes on the machine when calibration B replaces A.
#include <cmath>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "commands.h"
#include "errors.h"
#include "plot.h"
#include "print.h"
#include "verify_report.h"
#include "workflow/calfile.h"
#include "workflow/diff.h"
#include "workflow/numbers.h"
#include "workflow/units.h"

namespace vrncal::tools {

namespace {

struct DiffArgs {
    std::string a, b, plot, units = "mm";
    int pattern = 201;
    bool json = false;
    std::optional<double> tolerance;
    std::optional<double> field_size;
};

int run_diff(const DiffArgs& a, const Context& ctx) {
    const LengthUnit unit = length_unit(a.units);
    if (a.tolerance && !(*a.tolerance >= 0.0 && std::isfinite(*a.tolerance)))
        throw ToolError("diff: --tolerance must be a finite length of 0 or more");
    if (a.pattern < 2 || a.pattern > 2001) throw ToolError("diff: --pattern must be 2 to 2001 points per side");
    const Calibration ca = load(a.a, ctx, a.field_size);
    const Calibration cb = load(a.b, ctx, a.field_size);
    check_comparable(ca.par, cb.par, a.a, a.b);
    const Difference d = diff_calibrations(ca.par, cb.par, a.pattern);
    const double to_unit = unit.per_field_unit / d.counts_per_unit;  // report units per count

    if (a.json) {
        nlohmann::ordered_json j;
        j["a"] = a.a;
        j["b"] = a.b;
        j["field"] = 2 * d.half;
        j["pattern"] = d.pattern;
        j["grid_nodes"] = d.nodes;
        j["points"] = d.points;
        j["differing"] = d.differing;
        j["not_finite"] = d.not_finite;
        j["unit"] = unit.name;
        j["max_counts"] = number_or_null(d.max_counts);
        j["rms_counts"] = number_or_null(d.rms_counts);
        j["max"] = number_or_null(d.max_counts * to_unit);
        j["rms"] = number_or_null(d.rms_counts * to_unit);
        j["max_x_counts"] = number_or_null(d.max_x_counts);
        j["max_y_counts"] = number_or_null(d.max_y_counts);
        j["where"] = {number_or_null(d.where.x), number_or_null(d.where.y)};
        j["a_counts"] = {number_or_null(d.at_a.x), number_or_null(d.at_a.y)};
        j["b_counts"] = {number_or_null(d.at_b.x), number_or_null(d.at_b.y)};
        print("{}\n", j.dump(2));
    } else {
        std::string s = fmt::format("{} -> {}: {} x {} targets over +-{} and {} grid nodes ({})\n", a.a,
                                    a.b, d.pattern, d.pattern, fmt_num(d.half), d.nodes, unit.field);
        if (d.differing == 0) {
            s += "  identical: every target gets the same counts, to the bit\n";
        } else {
            s += fmt::format("  largest     {:.4f} counts = {:.{}f} {}  at ({}, {})\n", d.max_counts,
                             d.max_counts * to_unit, unit.decimals, unit.name, fmt_num(d.where.x), fmt_num(d.where.y));
            s += fmt::format("              A drives {} {}, B drives {} {}\n", fmt_num(d.at_a.x), fmt_num(d.at_a.y),
                             fmt_num(d.at_b.x), fmt_num(d.at_b.y));
            s += fmt::format("  rms         {:.4f} counts = {:.{}f} {}\n", d.rms_counts, d.rms_counts * to_unit,
                             unit.decimals, unit.name);
            s += fmt::format("  per axis    largest |B - A| x {:.4f} counts, y {:.4f} counts\n", d.max_x_counts,
                             d.max_y_counts);
            s += fmt::format("  differing   {} of {} targets\n", d.differing, d.points);
        }
        if (d.not_finite > 0)
            s += fmt::format("  not finite  {} targets get no finite count from A or B\n", d.not_finite);
        print("{}", s);
    }
    if (!a.plot.empty()) {
        PlotData p = diff_plot_data(ca.par, cb.par, unit);
        p.title = fmt::format("{} -> {}", a.a, a.b);
        render_plot(p, a.plot, 900, 820, {a.a, a.b});
    }
    if (d.not_finite > 0) {
        print_error(fmt::format("{} -> {}: {} targets without a finite count", a.a, a.b, d.not_finite));
        return 1;
    }
    if (a.tolerance && !(d.max_counts * to_unit <= *a.tolerance)) {
        print_error(fmt::format("{} -> {}: largest difference {:.{}f} {} exceeds the tolerance {} {}", a.a, a.b,
                                d.max_counts * to_unit, unit.decimals, unit.name, fmt_num(*a.tolerance), unit.name));
        return 1;
    }
    return 0;
}

}  // namespace

void add_diff_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("diff", "Compare two calibrations: how far apart they drive the same field points");
    auto a = std::make_shared<DiffArgs>();
    cmd->add_option("A", a->a, "The calibration in use (data file or correction table)")->required();
    cmd->add_option("B", a->b, "The calibration to compare with it")->required();
    cmd->add_option("--pattern", a->pattern, "Targets per side of the raster (default 201)");
    cmd->add_option("--units", a->units, "What a field unit is: mm (reports in um) or field (default mm)");
    cmd->add_option("--tolerance", a->tolerance,
                    "Exit with status 1 when the largest difference exceeds this (um, or field units)");
    cmd->add_option("--plot", a->plot, "Also draw the difference: .png or .svg");
    cmd->add_flag("--json", a->json, "Print the report as JSON (numbers, or null where there is none)");
    add_field_size_option(cmd, a->field_size);
    cmd->footer("Corrects the same targets through both calibrations (a raster over the smaller\n"
                "calibrated field plus every grid node of either) and reports the distance between the\n"
                "two drive positions: largest (and where), root mean square and per axis, in counts and\n"
                "in um (counts / (Resolution / FieldSize), field units taken as mm).  Both must drive\n"
                "the same device range.  A target without a finite count in either fails the command.\n\n"
                "Examples:\n"
                "  vrncal diff examples/sample.cor new.cor\n"
                "  vrncal diff examples/sample.cor new.cor --tolerance 5 --plot diff.png");
    add_force_flag(cmd, ctx);
    cmd->callback([a, &ctx] { ctx.status = run_diff(*a, ctx); });
}

}  // namespace vrncal::tools
