// correct: field points to device counts.
#include <cmath>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <vector>

#include "workflow/atomic_file.h"
#include "workflow/calfile.h"
#include "commands.h"
#include "correct.h"
#include "errors.h"
#include "points_io.h"
#include "print.h"
#include "workflow/numbers.h"

namespace vrncal::tools {

namespace {

// "12 of 500 points outside ±40, the calibrated field (ValSize 80)".
std::string outside_text(const CorrectCount& c, double half, const tagLenPar& par) {
    const bool calibrated = half == 0.5 * par.ValSize;
    return fmt::format("{} of {} point{} outside ±{}, {} ({} {})", c.outside, c.points, c.points == 1 ? "" : "s",
                       fmt_num(half), calibrated ? "the calibrated field" : "the field the device spans",
                       calibrated ? "ValSize" : "FieldSize", fmt_num(2.0 * half));
}

}  // namespace

void BlockCorrector::run(const tagKelPointF* in, tagKelPointF* out, std::size_t n) const {
    VrnCal vc;
    switch (conv_) {
    case Conversion::Corrected:
        batch_.correct(in, out, n);
        break;
    case Conversion::ScaleAndShift:
        for (std::size_t i = 0; i < n; ++i) vc.LP2DPEX_SFT(in[i], out[i], par_, true);
        break;
    case Conversion::Linear:
        for (std::size_t i = 0; i < n; ++i) vc.LP2DPEX_Cal(in[i], out[i], par_);
        break;
    }
}

CorrectCount correct_points(const tagLenPar& par, Conversion conv, const std::string& points,
                            const std::string& output, const CorrectChecks& checks, bool echo) {
    RowReader reader(points, 2);
    PointOutput out(output, checks.inputs);
    CorrectCount count;
    const double half = checks.field_half;
    const BlockCorrector corrector(par, conv);
    constexpr std::size_t kBlock = 1 << 16;
    std::vector<tagKelPointF> in(kBlock), dev(kBlock);
    fmt::memory_buffer buf;
    for (;;) {
        const std::size_t n = read_points(reader, in.data(), kBlock);
        if (n == 0) break;
        count.points += n;
        if (half > 0.0)
            for (std::size_t i = 0; i < n; ++i) count.outside += std::fabs(in[i].x) > half || std::fabs(in[i].y) > half;
        corrector.run(in.data(), dev.data(), n);
        if (!echo) {
            append_points(buf, dev.data(), n);
        } else {
            for (std::size_t i = 0; i < n; ++i) {
                fmt::format_to(std::back_inserter(buf), "{} {} ", in[i].x, in[i].y);
                append_point(buf, dev[i]);
            }
        }
        out.flush(buf);
    }
    if (checks.strict && count.outside > 0)
        throw ToolError(fmt::format("{}: {}; {}", reader.name(), outside_text(count, half, par),
                                    out.to_file() ? "nothing written" : "--strict"));
    out.commit();
    return count;
}

namespace {

struct CorrectOptions {
    std::string calibration;
    std::string points = "-";
    std::string output;
    std::string mode = "grid";
    std::string box;
    std::vector<float> scale;
    std::vector<float> shift;
    bool linear = false;
    bool strict = false;
    bool echo = false;
    std::optional<double> field_size;
};

// Option values that would give wrong counts without a word.
void check_options(const CorrectOptions& o) {
    for (float v : o.scale)
        if (!std::isfinite(v) || v == 0.0f)
            throw ToolError(fmt::format("correct: --scale {}: a scale is a finite number other than 0", v));
    for (float v : o.shift)
        if (!std::isfinite(v)) throw ToolError(fmt::format("correct: --shift {}: a shift is a finite number", v));
}

void run_correct(const CorrectOptions& o, const Context& ctx) {
    check_options(o);
    Calibration cal = load(o.calibration, ctx, o.field_size);
    tagLenPar& par = cal.par;
    if (o.mode == "box" || !o.box.empty()) {
        par.CalMode = 0;
        if (!o.box.empty()) apply_box_file(o.box, par);
    }
    Conversion conv = Conversion::Corrected;
    if (!o.scale.empty() || !o.shift.empty()) {
        conv = Conversion::ScaleAndShift;
        if (!o.scale.empty()) {
            par.SftScaleX = o.scale[0];
            par.SftScaleY = o.scale[1];
        }
        if (!o.shift.empty()) {
            par.SftShiftX = o.shift[0];
            par.SftShiftY = o.shift[1];
        }
    }
    if (o.linear) conv = Conversion::Linear;

    // The field the correction is made for: beyond it the grids clamp and
    // the counts are extrapolated (linearly, or in box mode, the device
    // range clamps).
    const bool calibrated = conv != Conversion::Linear && par.CalMode != 0;
    const double half = 0.5 * (calibrated ? par.ValSize : par.FieldSize);
    const CorrectCount count = correct_points(par, conv, o.points, o.output,
                                              CorrectChecks{{o.calibration, o.points, o.box}, half, o.strict}, o.echo);
    if (count.outside > 0) note((o.points == "-" ? "standard input" : o.points) + ": " + outside_text(count, half, par));
}

}  // namespace

void add_correct_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("correct", "Correct field points to device counts");
    auto o = std::make_shared<CorrectOptions>();
    cmd->add_option("FILE", o->calibration, "Calibration data file or correction table")->required();
    cmd->add_option("POINTS", o->points,
                    "Field points, one 'x y' or 'x,y' per line ('#' comments, a header line allowed); "
                    "'-' or nothing reads standard input");
    cmd->add_option("-o,--output", o->output, "Write the device points here instead of standard output");
    auto* mode = cmd->add_option("--mode", o->mode, "Correction: grid (nine points and grids) or box (manual box "
                                                    "parameters)")
                     ->check(CLI::IsMember({"grid", "box"}))
                     ->capture_default_str();
    cmd->add_option("--box", o->box, "Box parameters: an INI file with a [Box] section (implies --mode box)");
    auto* scale = cmd->add_option("--scale", o->scale, "Scale about the device centre after the correction: SX,SY")
                      ->expected(2)
                      ->delimiter(',');
    auto* shift = cmd->add_option("--shift", o->shift, "Shift after the correction, in field units: DX,DY")
                      ->expected(2)
                      ->delimiter(',');
    auto* linear = cmd->add_flag("--linear", o->linear, "Plain linear conversion without any correction");
    cmd->add_flag("--strict", o->strict,
                  "Fail (status 1, no output file) when a point lies outside the calibrated field");
    add_field_size_option(cmd, o->field_size);
    add_force_flag(cmd, ctx);
    linear->excludes(mode)->excludes(scale)->excludes(shift);
    cmd->add_flag("--echo", o->echo, "Print each field point before its device point: 'x y u v'");
    cmd->footer("Each output line is 'x y' in device counts (0 .. Resolution), in the shortest form that\n"
                "reads back as the same float.  --scale or --shift switch on the scale-and-shift\n"
                "conversion; a calibration file does not store the correction mode, so grid is the\n"
                "default.  Points outside the calibrated field (+-ValSize/2) are counted in a note on\n"
                "standard error; --strict makes them an error.\n\nExamples:\n"
                "  vrncal correct examples/sample.cor examples/points.txt\n"
                "  echo '10 -5' | vrncal correct examples/sample.cor\n"
                "  vrncal correct examples/sample.cor examples/points.txt --box examples/box.ini -o counts.txt");
    cmd->callback([o, mode, &ctx] {
        if (mode->count() > 0 && o->mode == "grid" && !o->box.empty())
            throw ToolError("correct: --box sets box parameters and cannot be used with --mode grid");
        run_correct(*o, ctx);
    });
}

}  // namespace vrncal::tools
