#include "verify_report.h"

#include <cmath>
#include <fmt/format.h>

#include "errors.h"
#include "workflow/numbers.h"
#include "workflow/verification.h"

namespace vrncal::tools {

namespace {

// No marks: no numbers (null), not zeros that would read as a pass.
nlohmann::ordered_json stats_json(const ErrorStats& s) {
    const bool any = s.count > 0;
    return {{"count", s.count},
            {"max", number_or_null(any ? s.max : NAN)},
            {"rms", number_or_null(any ? s.rms : NAN)},
            {"p95", number_or_null(any ? s.p95 : NAN)}};
}

std::string stats_row(const std::string& name, const ErrorStats& s, const LengthUnit& u) {
    if (s.count == 0) return fmt::format("  {:<34}{:>6}\n", name, 0);
    return fmt::format("  {:<34}{:>6}  {:>9.{}f}  {:>9.{}f}  {:>9.{}f}\n", name, s.count, s.max, u.decimals, s.rms,
                       u.decimals, s.p95, u.decimals);
}

std::string stats_head(const LengthUnit& u) {
    return fmt::format("  {:<34}{:>6}  {:>9}  {:>9}  {:>9}   ({})\n", "", "count", "max", "rms", "p95", u.name);
}

}  // namespace

nlohmann::ordered_json number_or_null(double v) {
    return std::isfinite(v) ? nlohmann::ordered_json(v) : nlohmann::ordered_json(nullptr);
}

void add_verify_options(CLI::App* cmd, VerifyOptions& o) {
    cmd->add_option("--measured", o.measured,
                    "Verification file: targets x,y and where their marks landed, measured_x,measured_y");
    cmd->add_flag("--holdout", o.holdout,
                  "Leave every other node of the finest grid out and report the error at those nodes");
    cmd->add_flag("--points", o.points, "With --measured: list every mark with its error");
    cmd->add_option("--units", o.units,
                    "What a field unit is, for --measured and --holdout: mm (reports in um) or field (default mm)");
}

VerifySections verify_sections(const Calibration& cal, const std::string& name, const VerifyOptions& o) {
    const LengthUnit unit = length_unit(o.units);
    VerifySections out;
    out.unit = unit.name;
    out.decimals = unit.decimals;
    if (!o.measured.empty()) {
        const auto marks = read_verification(o.measured);
        check_drives(cal.par, o.measured, marks);
        const LandingReport r = landing_report(cal.par, marks, unit);
        out.has_measured = true;
        out.measured_max = r.overall.max;
        auto& j = out.json["measured"] = nlohmann::ordered_json::object();
        j["file"] = o.measured;
        j["unit"] = unit.name;
        j["all"] = stats_json(r.overall);
        j["mean_error"] = {number_or_null(r.mean_dx), number_or_null(r.mean_dy)};
        auto& rings = j["rings"] = nlohmann::ordered_json::array();
        for (const auto& ring : r.rings) {
            auto s = stats_json(ring.stats);
            s["ring"] = ring.name;
            rings.push_back(s);
        }
        out.text += fmt::format("{}: landing error measured at {} marks ({}; {}; rings by max(|x|,|y|))\n", name,
                                r.points.size(), o.measured, unit.field);
        out.text += stats_head(unit);
        out.text += stats_row("all marks", r.overall, unit);
        for (const auto& ring : r.rings)
            out.text += stats_row(fmt::format("{} ({} {:.4g})", ring.name, &ring == &r.rings[2] ? ">" : "<=",
                                              (&ring == &r.rings[0] ? 1 : 2) * r.half / 3),
                                  ring.stats, unit);
        out.text += fmt::format("  mean error (a shift of all marks)   dx {:.{}f} {}, dy {:.{}f} {}\n", r.mean_dx,
                                unit.decimals, unit.name, r.mean_dy, unit.decimals, unit.name);
        if (o.points) {
            auto& pts = j["points"] = nlohmann::ordered_json::array();
            out.text += fmt::format("  {:>6}  {:>10} {:>10}  {:>13} {:>13}  {:>9} {:>9} {:>9}  ring   ({})\n", "line",
                                    "x", "y", "measured x", "measured y", "dx", "dy", "error", unit.name);
            for (const auto& p : r.points) {
                pts.push_back({{"line", p.mark.line},
                               {"x", p.mark.target.x},
                               {"y", p.mark.target.y},
                               {"measured_x", p.mark.measured.x},
                               {"measured_y", p.mark.measured.y},
                               {"dx", number_or_null(p.dx)},
                               {"dy", number_or_null(p.dy)},
                               {"error", number_or_null(p.error)},
                               {"ring", r.rings[p.ring].name}});
                out.text += fmt::format("  {:>6}  {:>10} {:>10}  {:>13} {:>13}  {:>9.{}f} {:>9.{}f} {:>9.{}f}  {}\n",
                                        p.mark.line, fmt_num(p.mark.target.x), fmt_num(p.mark.target.y),
                                        fmt_num(p.mark.measured.x), fmt_num(p.mark.measured.y), p.dx, unit.decimals,
                                        p.dy, unit.decimals, p.error, unit.decimals, p.ring + 1);
            }
        }
    }
    if (o.holdout) {
        const Holdout h = holdout_check(cal.par, unit);
        auto& j = out.json["holdout"] = nlohmann::ordered_json::object();
        j["grid"] = h.size;
        j["thinned"] = h.kept;
        j["left_out"] = h.left_out;
        j["unit"] = unit.name;
        j["error"] = stats_json(h.error);
        j["deviation"] = stats_json(h.deviation);
        j["worst"] = {number_or_null(h.worst.x), number_or_null(h.worst.y)};
        out.text += fmt::format("{}: held-out check of the {}x{} grid: its {} nodes in odd rows or columns left out, "
                                "the rest as a {}x{} grid ({})\n",
                                name, h.size, h.size, h.left_out, h.kept, h.kept, unit.field);
        out.text += stats_head(unit);
        out.text += stats_row("error of the thinned table there", h.error, unit);
        out.text += stats_row(fmt::format("what the {}x{} grid corrects there", h.size, h.size), h.deviation, unit);
        out.text += fmt::format("  largest at ({}, {}).  This is what halving the density costs: near the\n"
                                "  measurement noise, a grid finer than {}x{} would measure mostly noise; well above\n"
                                "  it, density still matters here and a finer grid may pay.\n",
                                fmt_num(h.worst.x), fmt_num(h.worst.y), h.size, h.size);
    }
    return out;
}

}  // namespace vrncal::tools
