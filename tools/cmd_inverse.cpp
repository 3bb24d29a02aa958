// inverse: device counts back to the field points the calibration drives
// there.
#include <cmath>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <vector>

#include <vrncal/inverse.h>

#include "commands.h"
#include "errors.h"
#include "points_io.h"
#include "print.h"
#include "workflow/atomic_file.h"
#include "workflow/calfile.h"
#include "workflow/numbers.h"

namespace vrncal::tools {

namespace {

struct InverseArgs {
    std::string calibration;
    std::string points = "-";
    std::string output;
    std::string mode = "grid";
    std::string box;
    double tolerance = InverseOptions{}.tolerance;
    bool echo = false;
    bool status = false;
    std::optional<double> field_size;
};

// One word per status, for the --status column.
const char* status_word(InverseStatus s) {
    switch (s) {
        case InverseStatus::Converged: return "ok";
        case InverseStatus::OutsideField: return "outside";
        case InverseStatus::DeviceLimit: return "device-limit";
        case InverseStatus::Folded: return "folded";
        case InverseStatus::NotConverged: return "not-reached";
        case InverseStatus::NotFinite: return "not-finite";
    }
    return "unknown";
}

int run_inverse(const InverseArgs& a, const Context& ctx) {
    if (!(a.tolerance > 0.0) || !(a.tolerance <= 1.0))
        throw ToolError("inverse: --tolerance must be above 0 and at most 1 count");
    Calibration cal = load(a.calibration, ctx, a.field_size);
    tagLenPar& par = cal.par;
    if (a.mode == "box" || !a.box.empty()) {
        par.CalMode = 0;
        if (!a.box.empty()) apply_box_file(a.box, par);
    }
    InverseOptions opt;
    opt.tolerance = a.tolerance;
    const Inverter inverter(par, opt);

    RowReader reader(a.points, 2);
    PointOutput out(a.output, {a.calibration, a.points, a.box});
    fmt::memory_buffer buf;
    auto put = std::back_inserter(buf);
    std::size_t failed = 0;
    float v[2];
    while (reader.next(v)) {
        const tagKelPointF counts{v[0], v[1]};
        const InverseResult r = inverter.invert(counts);
        const bool ok = r.status == InverseStatus::Converged;
        if (!ok && !a.status) {
            std::string detail;
            if (std::isfinite(r.field.x) && std::isfinite(r.field.y)) {
                if (r.residual <= opt.tolerance)
                    detail = fmt::format(" (field point {} {}, beyond +-{})", fmt_num(r.field.x), fmt_num(r.field.y),
                                         fmt_num(0.5 * par.ValSize));
                else
                    detail = fmt::format(" (closest field point found {} {}, {:.3f} counts off)", fmt_num(r.field.x),
                                         fmt_num(r.field.y), r.residual);
            }
            throw ToolError(fmt::format("{}:{}: device point {} {}: {}{}", reader.name(), reader.line(),
                                        fmt_num(counts.x), fmt_num(counts.y), inverseStatusText(r.status), detail));
        }
        if (a.echo) fmt::format_to(put, "{} {} ", counts.x, counts.y);
        if (a.status) {
            if (!ok) ++failed;
            fmt::format_to(put, "{} {} {} {} {}\n", r.field.x, r.field.y, status_word(r.status), r.iterations,
                           fmt_num(static_cast<float>(r.residual)));
        } else {
            fmt::format_to(put, "{} {}\n", r.field.x, r.field.y);
        }
        if (buf.size() > (1 << 16)) out.flush(buf);
    }
    out.flush(buf);
    out.commit();
    if (failed > 0) {
        print_error(fmt::format("{}: {} device point(s) without a field point (see the status column)",
                                reader.name(), failed));
        return 1;
    }
    return 0;
}

}  // namespace

void add_inverse_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("inverse", "Device counts back to the field points the calibration drives there");
    auto a = std::make_shared<InverseArgs>();
    cmd->add_option("FILE", a->calibration, "Calibration data file or correction table")->required();
    cmd->add_option("POINTS", a->points,
                    "Device points in counts, one 'x y' or 'x,y' per line ('#' comments, a header line "
                    "allowed); '-' or nothing reads standard input");
    cmd->add_option("-o,--output", a->output, "Write the field points here instead of standard output");
    auto* mode = cmd->add_option("--mode", a->mode, "Correction: grid (nine points and grids) or box")
                     ->check(CLI::IsMember({"grid", "box"}))
                     ->capture_default_str();
    cmd->add_option("--box", a->box, "Box parameters: an INI file with a [Box] section (implies --mode box)");
    cmd->add_option("--tolerance", a->tolerance,
                    "Largest distance, in counts on each axis, between the correction of the answer and the "
                    "device point (default 0.02)");
    cmd->add_flag("--echo", a->echo, "Print each device point before its field point: 'u v x y'");
    add_field_size_option(cmd, a->field_size);
    cmd->add_flag("--status", a->status,
                  "Add 'status iterations residual' to every line and go on past points without an answer");
    add_force_flag(cmd, ctx);
    cmd->footer(
        "Each output line is the field point 'x y' whose correction lies within the tolerance of the\n"
        "device point, found by Newton's method on the library's correction (the same bits as\n"
        "correct).  A device point outside the calibrated field (+-ValSize/2), at the device\n"
        "limits, where the correction folds or inside one of its jumps has no single answer: the\n"
        "command stops at the first, naming its line, or with --status marks each (outside,\n"
        "device-limit, folded, not-reached, not-finite), prints the point found or nan, and exits\n"
        "with status 1 at the end.\n\nExamples:\n"
        "  echo '45000 20000' | vrncal inverse examples/sample.cor\n"
        "  vrncal correct examples/sample.cor examples/points.txt | vrncal inverse examples/sample.cor --echo\n"
        "  vrncal inverse examples/sample.cor counts.txt --status -o field.txt");
    cmd->callback([a, mode, &ctx] {
        if (mode->count() > 0 && a->mode == "grid" && !a->box.empty())
            throw ToolError("inverse: --box sets box parameters and cannot be used with --mode grid");
        ctx.status = run_inverse(*a, ctx);
    });
}

}  // namespace vrncal::tools
