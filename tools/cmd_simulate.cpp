// simulate, evaluate and plot: the calibration against a simulated head.
#include <cmath>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "commands.h"
#include "errors.h"
#include "plot.h"
#include "print.h"
#include "scan_cli.h"
#include "verify_report.h"
#include "workflow/atomic_file.h"
#include "workflow/calfile.h"
#include "workflow/evaluate.h"
#include "workflow/lens.h"
#include "workflow/measured_head.h"
#include "workflow/numbers.h"
#include "workflow/simulate.h"
#include "workflow/table_file.h"
#include "workflow/verification.h"

namespace vrncal::tools {

namespace {

const char* kModelHelp =
    "Lens model (field units are millimetres; H, R, F: HalfResolution, Resolution, FieldSize):\n"
    "  ax = (1 + gain_x) (u - H) (F / R) / f        ay = (1 + gain_y) (v - H) (F / R) / f\n"
    "  ty = tan ay                                  tx = tan ax (d sqrt(1 + ty^2) + e) / (d + e)\n"
    "  theta = atan(sqrt(tx^2 + ty^2))              phi = atan2(ty, tx)\n"
    "  r = f theta (1 + k theta^2)                  (x, y) = Rot(rho) r (cos phi, sin phi) + offset\n"
    "f focal, e separation of the mirrors, d distance from the y mirror to the lens,\n"
    "k distortion, rho rotation (degrees).  A lens file is an INI file with a [lens] section\n"
    "and these keys: focal separation distance distortion rotation offset_x offset_y gain_x gain_y.\n\n"
    "Measured head (--head): a CSV file with the columns u,v (drive, counts) and x,y (where the\n"
    "spot landed, field units, x along u and y along v) over a full regular grid of drives,\n"
    "interpolated by a natural bicubic spline; see docs/calibrating-a-machine.md.";

// The head options: a lens file or measured head data, then single lens
// values over the lens.
struct HeadOptions {
    std::string lens_file, head_file;
    std::optional<double> focal, separation, distance, distortion, rotation;
    std::vector<double> offset, gain;
};

void add_head_files(CLI::App* cmd, HeadOptions& o, const char* lens_help) {
    auto* lens = cmd->add_option("--lens", o.lens_file, lens_help);
    auto* head = cmd->add_option("--head", o.head_file, "Measured head data (CSV of u,v,x,y) instead of a lens");
    lens->excludes(head);
}

void add_lens_values(CLI::App* cmd, HeadOptions& o) {
    cmd->add_option("--focal", o.focal, "Focal length f of the f-theta lens (default 160)");
    cmd->add_option("--separation", o.separation, "Separation e of the two mirrors (default 12)");
    cmd->add_option("--distance", o.distance, "Distance d from the second mirror to the lens (default 35)");
    cmd->add_option("--distortion", o.distortion, "Radial distortion k of the lens (default 0.02)");
    cmd->add_option("--rotation", o.rotation, "Mounting rotation in degrees (default 0)");
    cmd->add_option("--offset", o.offset, "Mounting offset X,Y in field units (default 0,0)")->expected(2)->delimiter(',');
    cmd->add_option("--gain", o.gain, "Relative axis gain errors X,Y (default 0,0)")->expected(2)->delimiter(',');
}

LensModel resolve_lens(const HeadOptions& o) {
    LensModel lens = o.lens_file.empty() ? LensModel{} : read_lens_file(o.lens_file);
    if (o.focal) lens.focal = *o.focal;
    if (o.separation) lens.separation = *o.separation;
    if (o.distance) lens.distance = *o.distance;
    if (o.distortion) lens.distortion = *o.distortion;
    if (o.rotation) lens.rotation = *o.rotation;
    if (!o.offset.empty()) lens.offset_x = o.offset[0], lens.offset_y = o.offset[1];
    if (!o.gain.empty()) lens.gain_x = o.gain[0], lens.gain_y = o.gain[1];
    check_lens(lens);
    return lens;
}

enum class NoHead { DefaultLens, Refused, None };

// The head the options name; when they name none, the default lens, an
// error, or nothing.
std::unique_ptr<Head> resolve_head(const HeadOptions& o, const char* command, NoHead none) {
    const bool values = o.focal || o.separation || o.distance || o.distortion || o.rotation || !o.offset.empty() ||
                        !o.gain.empty();
    if (!o.head_file.empty()) {
        if (values) throw ToolError(fmt::format("{}: the lens values apply to a lens, not to measured head data", command));
        return std::make_unique<MeasuredHead>(read_measured_head(o.head_file));
    }
    if (o.lens_file.empty() && !values) {
        if (none == NoHead::None) return nullptr;
        if (none == NoHead::Refused)
            throw ToolError(fmt::format("{}: name the simulated head with --lens or --head", command));
    }
    return std::make_unique<LensModel>(resolve_lens(o));
}

// ---- simulate ---------------------------------------------------------

struct SimulateArgs {
    HeadOptions head;
    std::vector<int> grids{17};
    std::optional<double> field_size;
    double val_size = 80.0;
    bool xy_flip = false, x_invert = false, y_invert = false;
    double noise = 0.0;
    std::int64_t seed = 1;
    std::string output;
    std::string save_lens;
    std::string job, table;
    RenderArgs scan;
};

void check_noise(const SimulateArgs& a) {
    if (!(a.noise >= 0.0) || !std::isfinite(a.noise))
        throw ToolError("simulate: --noise must be a finite number, not negative");
    if (a.seed < 0) throw ToolError(fmt::format("simulate: --seed {} is negative: a seed is 0 or more", a.seed));
}

// The files a simulation reads, which its outputs may not replace.
std::vector<std::string> simulate_inputs(const SimulateArgs& a) {
    return {a.head.lens_file, a.head.head_file, a.job, a.table};
}

// Marks a job on the simulated head and writes the filled template.
void run_simulate_job(const SimulateArgs& a, const Head& head, const Context& ctx) {
    check_noise(a);
    tagLenPar par;
    if (!a.table.empty()) {
        par = read_table_file(a.table, load_options(ctx, a.field_size)).settings;
    } else {
        if (a.field_size) check_field_size(*a.field_size, "simulate: --field-size");
        par.FieldSize = a.field_size.value_or(100.0);
        par.LEN_XYFLIP = par.XYFlip = a.xy_flip;
        par.LEN_XINVERT = par.XInvert = a.x_invert;
        par.LEN_YINVERT = par.YInvert = a.y_invert;
    }
    head.check_range(par);
    const auto marks = read_job(a.job);
    Noise noise(static_cast<std::uint64_t>(a.seed), a.noise == 0.0 ? 0.0 : 1.0);
    const auto measured = measure_marks(head, par, marks, noise, a.noise);
    // A template may be filled in place: the file keeps its form, and the
    // command says so.
    const bool in_place = same_file(a.job, a.output);
    auto inputs = simulate_inputs(a);
    if (in_place) inputs.erase(inputs.begin() + 2);
    write_output(a.output, measured_text(marks, measured), inputs);
    if (a.output != "-")
        print("{}: {} marks of {} measured on the simulated head (noise {} um){}\n", a.output, marks.size(), a.job,
              a.noise, in_place ? "; filled in place" : "");
    render_job_scan(a.scan, head, par, a.job, a.seed, a.output == "-");
}

void run_simulate(const SimulateArgs& a, const Context& ctx) {
    const auto head = resolve_head(a.head, "simulate", NoHead::DefaultLens);
    if (!a.job.empty()) return run_simulate_job(a, *head, ctx);
    if (!a.table.empty()) throw ToolError("simulate: --table goes with --job");
    if (!a.scan.path.empty()) throw ToolError("simulate: --scan goes with --job");
    SimulateOptions opt;
    opt.head = head.get();
    opt.field_size = a.field_size.value_or(100.0);
    check_field_size(opt.field_size, "simulate: --field-size");
    opt.val_size = a.val_size;
    opt.xy_flip = a.xy_flip, opt.x_invert = a.x_invert, opt.y_invert = a.y_invert;
    check_noise(a);
    opt.noise_um = a.noise;
    opt.seed = static_cast<std::uint64_t>(a.seed);
    opt.grids = a.grids;
    check_simulate_options(opt);
    if (!a.save_lens.empty() && (a.save_lens == a.output || same_file(a.save_lens, a.output)))
        throw ToolError("simulate: --save-lens and -o name the same file");
    const TableContent t = simulate_calibration(opt);
    if (!a.save_lens.empty()) {
        const auto* lens = dynamic_cast<const LensModel*>(head.get());
        if (lens == nullptr) throw ToolError("simulate: --save-lens writes a lens; the head is measured data");
        write_output(a.save_lens, lens_to_ini(*lens), simulate_inputs(a));
    }
    write_output(a.output, table_text(t), simulate_inputs(a));
}

// ---- evaluate ---------------------------------------------------------

struct EvaluateArgs {
    std::string file;
    HeadOptions head;
    VerifyOptions verify;
    std::optional<double> field_size;
    int pattern = 101;
    bool json = false, placed = false;
    std::optional<double> tolerance;
};

int run_evaluate(const EvaluateArgs& a, const Context& ctx) {
    if (a.tolerance && !(*a.tolerance >= 0.0 && std::isfinite(*a.tolerance)))
        throw ToolError(fmt::format("evaluate: --tolerance {} is not a finite number, 0 or more", *a.tolerance));
    const Calibration cal = load(a.file, ctx, a.field_size);
    const auto head = resolve_head(a.head, "evaluate", a.verify.any() ? NoHead::None : NoHead::Refused);
    if (head) head->check_range(cal.par);
    if (a.pattern < 2 || a.pattern > 2001) throw ToolError("evaluate: --pattern must be 2 to 2001 points per side");
    const auto stages = head ? evaluate_stages(*head, cal.par, a.pattern, a.placed) : std::vector<Stage>{};
    const VerifySections verified = verify_sections(cal, a.file, a.verify);
    if (a.json) {
        nlohmann::ordered_json j;
        j["file"] = a.file;
        j["field"] = cal.par.ValSize;
        if (head) {
            if (a.placed) j["placed"] = true;
            j["points"] = a.pattern * a.pattern;
            auto& arr = j["stages"] = nlohmann::ordered_json::array();
            for (const auto& s : stages)
                arr.push_back({{"stage", s.name},
                               {"max_um", number_or_null(s.stats.max)},
                               {"rms_um", number_or_null(s.stats.rms)},
                               {"p95_um", number_or_null(s.stats.p95)}});
        }
        for (const auto& [key, value] : verified.json.items()) j[key] = value;
        print("{}\n", j.dump(2));
    } else {
        std::string out;
        if (head) {
            std::size_t w = 5;
            for (const auto& s : stages) w = std::max(w, s.name.size());
            out = fmt::format("{}: landing error over {} x {} targets in +-{} (um){}\n", a.file, a.pattern, a.pattern,
                              0.5 * cal.par.ValSize, a.placed ? ", the field turned and shifted into place" : "");
            out += fmt::format("  {:<{}}  {:>9}  {:>9}  {:>9}\n", "stage", w, "max", "rms", "p95");
            for (const auto& s : stages)
                out += fmt::format("  {:<{}}  {:>9.2f}  {:>9.2f}  {:>9.2f}\n", s.name, w, s.stats.max, s.stats.rms,
                                   s.stats.p95);
        }
        print("{}{}", out, verified.text);
    }
    if (!a.tolerance) return 0;
    int status = 0;
    // A landing error that is not a number fails any tolerance.
    for (const auto& s : stages)
        if (s.stats.not_finite > 0) {
            print_error(fmt::format("{}: {} of {} landing errors are not a number ({}): the tolerance is not met",
                                    a.file, s.stats.not_finite, s.stats.count, s.name));
            return 1;
        }
    if (head && !(stages.back().stats.max <= *a.tolerance)) {
        print_error(fmt::format("{}: largest landing error {:.2f} um on the simulated head exceeds the tolerance {} um",
                                a.file, stages.back().stats.max, *a.tolerance));
        status = 1;
    }
    if (verified.has_measured && !(verified.measured_max <= *a.tolerance)) {
        print_error(fmt::format("{}: largest measured landing error {:.{}f} {} exceeds the tolerance {} {}", a.file,
                                verified.measured_max, verified.decimals, verified.unit, *a.tolerance, verified.unit));
        status = 1;
    }
    return status;
}

// ---- plot -------------------------------------------------------------

struct PlotArgs {
    std::string file, output, size = "900x820", measured, units = "mm";
    HeadOptions head;
    std::optional<double> field_size;
    std::optional<double> factor;
    int lines = 17;
};

void run_plot(const PlotArgs& a, const Context& ctx) {
    const Calibration cal = load(a.file, ctx, a.field_size);
    const tagLenPar& par = cal.par;
    int width = 0, height = 0;
    if (const auto x = a.size.find('x'); x != std::string::npos) {
        width = parse_int(a.size.substr(0, x)).value_or(0);
        height = parse_int(a.size.substr(x + 1)).value_or(0);
    }
    if (width < 200 || height < 200 || width > 10000 || height > 10000)
        throw ToolError(fmt::format("plot: --size '{}' is not WIDTHxHEIGHT in pixels, 200 to 10000 each", a.size));
    if (a.lines < 2 || a.lines > 201) throw ToolError("plot: --lines must be 2 to 201");
    const auto head = resolve_head(a.head, "plot", NoHead::None);
    if (head) head->check_range(par);
    if (a.factor && !(*a.factor > 0.0 && std::isfinite(*a.factor)))
        throw ToolError("plot: --exaggerate must be a finite number above 0");
    PlotData d = plot_data(par, a.lines, a.factor, head.get());
    if (!a.measured.empty()) {
        // The measured errors as arrows; the drive lines give way to them.
        const LengthUnit unit = length_unit(a.units);
        const auto marks = read_verification(a.measured);
        check_drives(par, a.measured, marks);
        PlotData m = measured_plot_data(par, landing_report(par, marks, unit), unit, a.factor);
        m.cells = d.cells;
        m.error_um = std::move(d.error_um);
        d = std::move(m);
    }
    d.title = a.file;
    render_plot(d, a.output, width, height, {a.file, a.head.lens_file, a.head.head_file, a.measured});
}

}  // namespace

void add_simulate_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("simulate", "Calibrate a simulated scan head, or mark a job on it");
    auto a = std::make_shared<SimulateArgs>();
    add_head_files(cmd, a->head, "Lens file (INI, [lens] section); the options below override it");
    add_lens_values(cmd, a->head);
    cmd->add_option("--grids", a->grids, "Grid sizes to measure, in order, e.g. 9,17 (default 17)")
        ->delimiter(',');
    cmd->add_option("--field-size", a->field_size, "Field units spanned by the device range (default 100)");
    cmd->add_option("--val-size", a->val_size, "Calibrated field, field units (default 80)");
    cmd->add_flag("--xy-flip", a->xy_flip, "Set the exchange flag: XInvert acts on y, YInvert on x");
    cmd->add_flag("--x-invert", a->x_invert, "Set the x invert flag");
    cmd->add_flag("--y-invert", a->y_invert, "Set the y invert flag");
    cmd->add_option("--noise", a->noise, "Measurement noise, standard deviation per axis in um (default 0)");
    cmd->add_option("--seed", a->seed, "Seed of the noise, 0 or more (default 1)");
    cmd->add_option("--save-lens", a->save_lens, "Also write the lens used as a lens file, for evaluate and plot");
    cmd->add_option("--job", a->job, "Mark this job (or template) instead and write it filled with measurements");
    cmd->add_option("--table", a->table, "With --job: the table the job was planned on (field size and flags)");
    add_render_options(cmd, a->scan);
    cmd->add_option("-o,--output", a->output, "Correction table to write, '-' for standard output; with --job the "
                                              "filled measurement file")
        ->required();
    cmd->footer(std::string("The run: nine points marked without correction and measured; the nine-point "
                            "correction\nfitted from them; then each grid marked through the correction as it "
                            "stands (nine\npoints plus the grids before it) and measured.\n\n"
                            "With --job the simulator plays the machine for one stage: it drives the head to each "
                            "mark's\nu,v, measures where the spot lands (in the caller's frame, with the noise "
                            "asked for) and\nwrites the job with measured_x,measured_y filled in, ready for "
                            "'vrncal measure import'.  With --scan it also renders the scan of the marked sheet (a\n"
                            "job planned with --mark): the marks where the head lands them, the sheet turned and "
                            "offset on\nthe scanner, blur, noise, uneven paper and dust, for 'vrncal measure SCAN'; "
                            "the filled\nfile then holds the true landings to compare with.\n\n") +
                kModelHelp +
                "\n\nExamples:\n  vrncal simulate --lens examples/lens.ini --grids 9,17 --noise 2 --seed 7 -o "
                "sample.cor\n  vrncal simulate --head examples/head.csv --field-size 126 --val-size 120 -o head.cor\n"
                "  vrncal simulate --job nine.csv --table head.cor --head examples/head.csv --noise 20 -o "
                "nine-measured.csv");
    add_force_flag(cmd, ctx);
    cmd->callback([a, &ctx] { run_simulate(*a, ctx); });
}

void add_evaluate_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("evaluate", "Report the landing error of a calibration on a simulated head");
    auto a = std::make_shared<EvaluateArgs>();
    cmd->add_option("FILE", a->file, "Calibration data file or correction table")->required();
    add_head_files(cmd, a->head, "Lens file of the simulated head (INI, [lens] section)");
    add_verify_options(cmd, a->verify);
    add_field_size_option(cmd, a->field_size);
    cmd->add_option("--pattern", a->pattern, "Targets per side of the dense pattern (default 101)");
    cmd->add_option("--tolerance", a->tolerance,
                    "Exit with status 1 when the final largest error (simulated or measured) exceeds this (um), or "
                    "is not a number");
    cmd->add_flag("--json", a->json, "Print the table as JSON");
    cmd->add_flag("--placed", a->placed, "Judge the field's shape: the landings first turned and shifted onto the "
                                         "targets as well as they can be (for a calibration measured from scans)");
    cmd->footer(std::string("Drives the simulated head (--lens or --head) over an n x n pattern of targets spanning "
                            "+-ValSize/2,\nfirst linearly, then through the nine-point correction alone, then adding "
                            "the grids one by\none, and reports the distance between target and landing: largest, "
                            "root mean square\nand 95th percentile.\n\n"
                            "--measured reports the landing error measured on the machine: a verification file\n"
                            "(from 'vrncal plan verify', marked and measured) holds targets x,y and where their\n"
                            "marks landed, measured_x,measured_y (a drive u,v, when given, must be what FILE\n"
                            "drives the target to); overall and by ring: inner, middle and outer third of\n"
                            "+-ValSize/2 by max(|x|,|y|).  --holdout leaves every other node of the finest grid\n"
                            "out, rebuilds the correction from the rest and reports how far it drives from the\n"
                            "full one at the left-out nodes: what halving the grid's density costs.\n\n") +
                 kModelHelp +
                 "\n\nExamples:\n  vrncal evaluate examples/sample.cor --lens examples/lens.ini\n"
                 "  vrncal evaluate head.cor --measured verify-m.csv --tolerance 50\n"
                 "  vrncal evaluate examples/sample.cor --holdout");
    add_force_flag(cmd, ctx);
    cmd->callback([a, &ctx] { ctx.status = run_evaluate(*a, ctx); });
}

void add_plot_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("plot", "Draw a calibration: nominal grid, drive positions, landing error");
    auto a = std::make_shared<PlotArgs>();
    cmd->add_option("FILE", a->file, "Calibration data file or correction table")->required();
    cmd->add_option("-o,--output", a->output, "Picture to write: .png or .svg")->required();
    add_head_files(cmd, a->head, "Lens file: adds the landing error as a colour map");
    add_field_size_option(cmd, a->field_size);
    cmd->add_option("--measured", a->measured,
                    "Verification file: draw the measured landing errors as arrows instead of the drive lines");
    cmd->add_option("--units", a->units, "With --measured: what a field unit is, mm or field (default mm)");
    cmd->add_option("--exaggerate", a->factor, "Factor for the drive deviations (default: chosen to be visible)");
    cmd->add_option("--size", a->size, "WIDTHxHEIGHT in pixels (default 900x820)");
    cmd->add_option("--lines", a->lines, "Grid lines per direction (default 17)");
    cmd->footer("Examples:\n  vrncal plot examples/sample.cor --lens examples/lens.ini -o sample.png\n"
                "  vrncal plot head.cor --measured verify-m.csv -o measured.png");
    add_force_flag(cmd, ctx);
    cmd->callback([a, &ctx] { run_plot(*a, ctx); });
}

}  // namespace vrncal::tools
