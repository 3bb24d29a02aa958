// plan and measure: calibrating a real machine, stage by stage.
#include <fmt/format.h>
#include <memory>
#include <optional>

#include "commands.h"
#include "errors.h"
#include "print.h"
#include "scan_cli.h"
#include "workflow/atomic_file.h"
#include "workflow/calfile.h"
#include "workflow/measure.h"
#include "workflow/numbers.h"
#include "workflow/plan.h"
#include "workflow/verification.h"

namespace vrncal::tools {

namespace {

const char* kFramesHelp =
    "Frames.  The job's nominal positions x, y are in the caller's frame, the frame a host asks\n"
    "the library for points in; measure every stage in that frame.  With invert flags set the\n"
    "head's own axes run the other way (the library negates the caller's x or y before it drives\n"
    "the head; with the exchange flag XInvert acts on y and YInvert on x, the coordinates are\n"
    "never exchanged), so a measurement taken in the head's frame shows up mirrored, and the\n"
    "import refuses it.  The table keeps the grids as measured (the grid correction looks them\n"
    "up at the caller's point) and the nine points in the frame the nine-point model sees, the\n"
    "caller's point with the invert signs applied: the import converts them.";

const char* kScanHelp =
    "vrncal measure SCAN --plan JOB -o FILE: finds the marks on a scan of the sheet marked with the\n"
    "job (planned with --mark), matches them to the job's marks whatever the sheet's angle, side\n"
    "or place on the scanner, and writes the measurement file for 'vrncal measure import'.  The\n"
    "scan sets its own frame: origin at the centre mark, x along the centre row, y towards row 0\n"
    "(the side of the orientation marker); a pixel is 25.4 / dpi mm times --scale.  It reports the\n"
    "marks found, matched and rejected (with pixel positions) and each centre's uncertainty, and\n"
    "exits with 1 when marks are missing (they are left blank) unless --allow-missing.\n\n"
    "Examples:\n"
    "  vrncal measure grid9.png --plan grid9.csv -o grid9-measured.csv --overlay grid9-found.png\n"
    "  vrncal measure import head.cor grid9-measured.csv\n"
    "See docs/measuring-from-a-scan.md.";

int parse_stage(const std::string& s) {
    if (s == "nine" || s == "3") return 3;
    const auto n = parse_int(s);
    if (!n || !is_stage_size(*n))
        throw ToolError(fmt::format("--stage '{}': a stage is 'nine' or a grid of 5, 9, 17, 25, 33 or 65 points per "
                                    "side",
                                    s));
    return *n;
}

std::string sizes(const std::vector<int>& through) {
    std::string s = "nine points";
    for (int n : through) s += fmt::format(" + {}x{}", n, n);
    return s;
}

struct JobArgs {
    std::string table, job, templ, stage = "nine", mark;
    bool linear = false;
    std::optional<double> field_size, mark_size;
};

Shape parse_shape(const std::string& s) {
    if (s.empty()) return Shape::None;
    if (s == "dot") return Shape::Dot;
    if (s == "cross") return Shape::Cross;
    throw ToolError(fmt::format("plan: --mark '{}': a mark is a dot or a cross", s));
}

void require_outputs(const JobArgs& a) {
    if (a.job.empty() && a.templ.empty())
        throw ToolError("plan: name the job to write (--job), the template (--template) or both");
    if (!a.job.empty() && !a.templ.empty() && a.job != "-" && (a.job == a.templ || same_file(a.job, a.templ)))
        throw ToolError("plan: --job and --template name the same file");
    if (parse_shape(a.mark) == Shape::None && a.mark_size) throw ToolError("plan: --mark-size goes with --mark");
}

void write_job(const JobArgs& a, const Context& ctx) {
    require_outputs(a);
    const TableFile table = read_table_file(a.table, load_options(ctx, a.field_size));
    const StageJob job = stage_job(table, parse_stage(a.stage), a.linear, parse_shape(a.mark), a.mark_size);
    if (!a.job.empty()) write_output(a.job, job_text(job.file()), {a.table});
    if (!a.templ.empty()) write_output(a.templ, template_text(job.file()), {a.table});
    std::string how = job.drive == Drive::Linear
                          ? std::string("driven linearly")
                          : "driven through the table as it stands (" + sizes(job.through) + ")";
    if (job.style.shape != Shape::None)
        how += fmt::format(", drawn as {} of {:.4g} counts with an orientation marker beside mark 0",
                           job.style.shape == Shape::Dot ? "dots" : "crosses", job.style.size);
    const std::string& shown = a.job.empty() ? a.templ : a.job;
    if (shown != "-") print("{}: {}, {} marks {}\n", shown, stage_name(job.size), job.marks.size(), how);
    if (!a.templ.empty() && a.templ != "-")
        print("{}: measurement template: fill in measured_x and measured_y (field units, the frame of x and y), "
              "then: vrncal measure import {} {}\n",
              a.templ, a.table, a.templ);
}

struct NewArgs {
    JobArgs job;
    HeadSettings head;
    bool xy_flip = false, x_invert = false, y_invert = false, force = false;
};

void run_new(NewArgs a, const Context& ctx) {
    a.head.xy_flip = a.xy_flip, a.head.x_invert = a.x_invert, a.head.y_invert = a.y_invert;
    require_outputs(a.job);
    create_table(a.job.table, a.head, a.force);
    print("{}: new correction table: field size {}, calibrated field +-{}, resolution {}{}{}{}\n", a.job.table,
          a.head.field_size, 0.5 * a.head.val_size, a.head.resolution, a.xy_flip ? ", LEN_XYFLIP" : "",
          a.x_invert ? ", LEN_XINVERT" : "", a.y_invert ? ", LEN_YINVERT" : "");
    a.job.stage = "nine";
    a.job.field_size.reset();
    write_job(a.job, ctx);
}

struct ImportArgs {
    std::string table, file, stage;
    bool single_pass = false, as_residual = false, drop_grids = false;
    std::optional<double> field_size;
};

void run_import(const ImportArgs& a, const Context& ctx) {
    if (same_file(a.table, a.file)) throw ToolError(a.file + ": is the table itself; name the measurement file");
    const TableFile table = read_table_file(a.table, load_options(ctx, a.field_size));
    ImportOptions opt;
    if (!a.stage.empty()) opt.size = parse_stage(a.stage);
    opt.single_pass = a.single_pass;
    opt.as_residual = a.as_residual;
    opt.drop_grids = a.drop_grids;
    const ImportResult r = prepare_import(table, a.file, opt);
    write_import(table, r);
    print("{}: imported the {} from {} into [Cal{}] ({} marks; measured - nominal: max {:.4g}, rms {:.4g})\n",
          a.table, stage_name(r.size), a.file, r.size, r.points.size(), r.deviation.max, r.deviation.rms);
    if (r.converted)
        note(fmt::format("{}: a grid marked with the head driven linearly, converted to the residual form: an "
                         "approximation of a grid marked through the table and measured again",
                         a.file));
    if (!r.dropped.empty()) {
        std::string d;
        for (int n : r.dropped) d += fmt::format("{}{}x{}", d.empty() ? "" : ", ", n, n);
        print("{}: dropped the grids {} (measured through the old nine points): measure them again\n", a.table, d);
    }
}

struct VerifyArgs {
    JobArgs job;
    int pattern = 21;
};

void write_verification_job(const VerifyArgs& a, const Context& ctx) {
    require_outputs(a.job);
    if (!a.job.mark.empty())
        throw ToolError("plan verify: --mark draws the marks of a stage job; a verification job is measured at its "
                        "marks' centres, with calipers, a microscope or a camera");
    const Calibration cal = load(a.job.table, ctx, a.job.field_size);
    const auto marks = verification_marks(cal.par, a.pattern);
    if (!a.job.job.empty()) write_output(a.job.job, job_text(marks), {a.job.table});
    if (!a.job.templ.empty()) write_output(a.job.templ, template_text(marks), {a.job.table});
    const std::string& shown = a.job.job.empty() ? a.job.templ : a.job.job;
    if (shown != "-")
        print("{}: verification job, {} x {} targets over +-{}, driven through the whole calibration\n", shown,
              a.pattern, a.pattern, fmt_num(0.5 * cal.par.ValSize));
    if (!a.job.templ.empty() && a.job.templ != "-")
        print("{}: measurement template: fill in measured_x and measured_y (field units, the frame of x and y), "
              "then: vrncal evaluate {} --measured {}\n",
              a.job.templ, a.job.table, a.job.templ);
}

void add_job_outputs(CLI::App* cmd, JobArgs& a) {
    cmd->add_option("--job", a.job, "Marking job to write (CSV: index,row,column,x,y,u,v), '-' for standard output");
    cmd->add_option("--template", a.templ, "Measurement template to write (the job plus empty measured_x,measured_y)");
    cmd->add_option("--mark", a.mark, "Draw each mark as a 'dot' or a 'cross' and add an orientation marker, for "
                                      "measuring the sheet from a scan (vrncal measure SCAN)");
    cmd->add_option("--mark-size", a.mark_size, "With --mark: the mark's size across, field units (default 0.4 or a "
                                                "quarter of the pitch, whichever is less)");
}

}  // namespace

void add_plan_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("plan", "Start a correction table for a head, and write the marking job of a stage");
    cmd->require_subcommand(1);
    const std::string loop =
        "The loop: 'plan new' writes the table and the nine-point job; mark it, measure the marks,\n"
        "fill in the template and 'vrncal measure import' it; then 'plan job --stage 9', mark,\n"
        "measure, import; then 17, and so on.  Each grid is marked through the table as it stands,\n"
        "so it measures only what the stages before it leave.\n\n";
    cmd->footer(loop + kFramesHelp +
                "\n\nExamples:\n"
                "  vrncal plan new head.cor --field-size 126 --val-size 120 --job nine.csv --template nine-m.csv\n"
                "  vrncal plan job head.cor --stage 9 --job grid9.csv --template grid9-m.csv\n"
                "See docs/calibrating-a-machine.md for a whole calibration.");

    auto n = std::make_shared<NewArgs>();
    auto* create = cmd->add_subcommand("new", "Write a new correction table and the job of its nine points");
    create->add_option("TABLE", n->job.table, "Correction table to create")->required();
    create->add_option("--field-size", n->head.field_size, "Field units spanned by the device range (default 100)");
    create->add_option("--val-size", n->head.val_size, "Calibrated field, +-VAL/2 in field units (default 80)");
    create->add_option("--resolution", n->head.resolution, "Device range in counts (default 65535)");
    create->add_flag("--xy-flip", n->xy_flip, "Set the exchange flag (LEN_XYFLIP): XInvert acts on y, YInvert on x");
    create->add_flag("--x-invert", n->x_invert, "Set the x invert flag (LEN_XINVERT)");
    create->add_flag("--y-invert", n->y_invert, "Set the y invert flag (LEN_YINVERT)");
    create->add_flag("--force", n->force, "Replace an existing file");
    add_job_outputs(create, n->job);
    create->footer("The table holds the settings and no points: it does not load until the nine points are\n"
                   "imported.  The job drives the nine points (corners, edge middles and centre of the\n"
                   "calibrated field) linearly.\n\n" + std::string(kFramesHelp) +
                   "\n\nExample:\n"
                   "  vrncal plan new head.cor --field-size 126 --val-size 120 --job nine.csv --template nine-m.csv");
    create->callback([n, &ctx] { run_new(*n, ctx); });

    auto j = std::make_shared<JobArgs>();
    auto* job = cmd->add_subcommand("job", "Write the marking job of a stage of a table");
    job->add_option("TABLE", j->table, "Correction table")->required();
    job->add_option("--stage", j->stage, "'nine' (default) or a grid size: 5, 9, 17, 25, 33 or 65");
    job->add_flag("--linear", j->linear, "Drive a grid linearly (a single-pass measurement of the raw head)");
    add_field_size_option(job, j->field_size);
    add_job_outputs(job, *j);
    job->footer("A grid is driven through the table as it stands, leaving out an earlier grid of the\n"
                "same size: importing the stage again replaces that grid, and the new one measures what\n"
                "the other stages leave.  Marks are numbered row by row from the top left (x rising\n"
                "along a row, y falling from row to row).\n\n" + std::string(kFramesHelp) +
                "\n\nExample:\n  vrncal plan job head.cor --stage 17 --job grid17.csv --template grid17-m.csv");
    add_force_flag(job, ctx);
    job->callback([j, &ctx] { write_job(*j, ctx); });

    auto v = std::make_shared<VerifyArgs>();
    auto* verify = cmd->add_subcommand("verify", "Write a verification job: targets marked through the whole calibration");
    verify->add_option("TABLE", v->job.table, "Calibration (correction table or data file)")->required();
    verify->add_option("--pattern", v->pattern, "Targets per side over +-ValSize/2 (default 21)");
    add_field_size_option(verify, v->job.field_size);
    add_job_outputs(verify, v->job);
    verify->footer("Mark the job on the machine, measure where each mark landed, fill in the template and\n"
                   "let 'vrncal evaluate TABLE --measured FILE' report the landing error.  The targets are\n"
                   "those of 'evaluate --pattern N', so a simulated head gives the same numbers both ways.\n\n"
                   "Example:\n  vrncal plan verify head.cor --pattern 21 --template verify-m.csv");
    add_force_flag(verify, ctx);
    verify->callback([v, &ctx] { write_verification_job(*v, ctx); });
}

void add_measure_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("measure", "Measure the marks on a scan of a marked sheet, or import measured marks "
                                              "into a correction table");
    cmd->require_subcommand(0, 1);
    add_measure_scan(cmd, ctx);
    cmd->footer(kScanHelp);
    auto a = std::make_shared<ImportArgs>();
    auto* imp = cmd->add_subcommand("import", "Check measurements of a stage and write them into the table");
    imp->add_option("TABLE", a->table, "Correction table (text), edited in place")->required();
    imp->add_option("FILE", a->file, "Measurements: a filled template, or a CSV of index (or x,y) and "
                                     "measured_x,measured_y")
        ->required();
    imp->add_option("--stage", a->stage, "'nine' or a grid size (default: from the number of marks)");
    imp->add_flag("--single-pass", a->single_pass,
                  "The grid was marked with the head driven linearly: convert it to the residual form");
    imp->add_flag("--as-residual", a->as_residual,
                  "Take a grid that only looks linearly driven as marked through the table");
    imp->add_flag("--drop-grids", a->drop_grids, "New nine points: remove the grids measured through the old ones");
    add_field_size_option(imp, a->field_size);
    imp->footer(
        "Measured positions are in field units, in the caller's frame (the frame of the job's x\n"
        "and y).  Lines may come in any order; a file without a header has 3 columns (index,\n"
        "measured x, measured y) or 4 (x, y, measured x, measured y).  The import checks that every\n"
        "mark is measured once, that no value is missing or not a number, that the measurements\n"
        "are in field units (not micrometres), not swapped or mirrored (rows in rising y), that\n"
        "each mark lies where its neighbours put it, and that a filled template's drives are what\n"
        "the table gives now.  Any problem: one line naming the file and the line, status 1, and\n"
        "the table is not touched.\n\n"
        "A grid marked with the head driven linearly (a single pass over the raw head) is not a\n"
        "residual grid: the import refuses it.  --single-pass converts it: each mark gets the\n"
        "deviation that makes the table drive its measured landing point to its own drive,\n"
        "placed at its nominal position; an approximation of a grid marked through the table.\n\n"
        "The table stays text: the stage's section is replaced, every other line kept.\n\n"
        "Example:\n  vrncal measure import head.cor grid9-m.csv");
    add_force_flag(imp, ctx);
    imp->callback([a, &ctx] { run_import(*a, ctx); });
}

}  // namespace vrncal::tools
