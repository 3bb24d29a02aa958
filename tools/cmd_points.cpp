// points: read and replace calibration points and gain-table points through
// the facade's file-level members.
#include <cmath>
#include <fmt/format.h>
#include <optional>
#include <vector>

#include "commands.h"
#include "errors.h"
#include "points_io.h"
#include "workflow/calfile.h"
#include "workflow/numbers.h"
#include "workflow/points.h"

namespace vrncal::tools {

namespace {

// "nine" (the 3 x 3 points of the coefficient block) is index -1.
int stack_index(const std::string& s) {
    if (s == "nine") return -1;
    const auto v = parse_int(s);
    if (!v || *v < 0) throw ToolError(fmt::format("points: --stack '{}' is neither 'nine' nor a grid index", s));
    return *v;
}

int axis_index(const std::string& s) { return s == "x" ? 0 : 1; }

void run_get(const std::string& path, const std::string& stack) {
    const Calibration cal = load_calibration(path);
    const int index = stack_index(stack);
    const auto pts = stack_points(cal, index);
    const int size = index < 0 ? 3 : static_cast<int>(std::lround(std::sqrt(static_cast<double>(pts.size()))));
    std::string s = fmt::format("# {} {}: {} x {} points\n# X Y RealX RealY\n", path,
                                index < 0 ? std::string("nine points") : fmt::format("grid {}", index), size, size);
    for (const auto& p : pts) s += fmt::format("{} {} {} {}\n", p.X, p.Y, p.RealX, p.RealY);
    fmt::print("{}", s);
}

void run_set(const std::string& path, const std::string& stack, const std::string& points, const std::string& out,
             std::optional<double> field_size) {
    const Calibration cal = load_calibration(path, field_size);
    const int index = stack_index(stack);
    const bool text = !cal.data_file && (out.empty() || text_output(out, ""));
    if (cal.data_file && !out.empty() && text_output(out, ""))
        throw ToolError(out + ": the edit of a data file is saved as a data file; convert it to a table afterwards");
    std::vector<tagCalData> pts;
    for (const auto& r : read_all_rows(points, 4)) pts.push_back(tagCalData{r[0], r[1], r[2], r[3]});
    const std::string target = out.empty() ? path : out;
    const PointsEdit e = text ? set_table_points(path, index, points, pts, out, field_size)
                              : set_stack_points(cal, index, points, pts, target);
    const std::string what = e.index < 0 ? std::string("the nine points") : fmt::format("grid {}", e.index);
    if (text)
        fmt::print("{}: {} {} ({} x {}) in [Cal{}]; the table stays text\n", target,
                   e.appended ? "added" : "replaced", what, e.size, e.size, e.index < 0 ? 3 : e.size);
    else if (e.appended)
        fmt::print("{}: appended grid {} ({} x {}); coefficients refitted\n", target, e.index, e.size, e.size);
    else
        fmt::print("{}: replaced {} ({} x {}); coefficients refitted\n", target, what, e.size, e.size);
}

void run_gain(const std::string& path, const std::string& axis) {
    const GainTable g = gain_points(path, axis_index(axis));
    std::string s = fmt::format("# {} {} gain table: {} rows\n# position companion\n", path, axis, g.count);
    for (const auto& p : g.points) s += fmt::format("{} {}\n", p.x, p.y);
    fmt::print("{}", s);
}

void run_set_gain(const std::string& path, const std::string& axis, const std::string& points) {
    load_calibration(path);
    const auto rows = read_all_rows(points, 2);
    if (rows.empty() || rows.size() > 100)
        throw ToolError(fmt::format("{}: a gain table holds 1 to 100 rows, not {}", points, rows.size()));
    std::vector<tagKelPointF> pts;
    for (const auto& r : rows) pts.push_back(tagKelPointF{r[0], r[1]});
    set_gain_points(path, axis_index(axis), pts);
    fmt::print(stderr, "note: {} is unchanged: the library applies gain-table edits to a temporary record and "
                       "does not save them\n", path);
}

}  // namespace

void add_points_command(CLI::App& app, Context&) {
    auto* cmd = app.add_subcommand("points", "Read or replace calibration points and gain-table points");
    cmd->require_subcommand(1);
    cmd->footer("Examples:\n"
                "  vrncal points get examples/sample.cor --stack 0\n"
                "  vrncal points set sample.dat edited.txt --stack 0\n"
                "  vrncal points gain sample.dat --axis x");

    auto path = std::make_shared<std::string>();
    auto stack = std::make_shared<std::string>("nine");
    auto input = std::make_shared<std::string>();
    auto out = std::make_shared<std::string>();
    auto axis = std::make_shared<std::string>("x");
    auto field_size = std::make_shared<std::optional<double>>();

    auto* get = cmd->add_subcommand("get", "Print the points of the nine-point grid or of one grid");
    get->add_option("FILE", *path, "Calibration file")->required();
    get->add_option("--stack", *stack, "'nine' (default) or the grid index, 0 for the first grid");
    get->footer("Prints 'X Y RealX RealY' per point (nominal, then measured), row-major.\n\nExample:\n"
                "  vrncal points get examples/sample.cor --stack 0");
    get->callback([=] { run_get(*path, *stack); });

    auto* set = cmd->add_subcommand("set", "Replace the points of the nine-point grid or of one grid, refit and save");
    set->add_option("FILE", *path, "Calibration file")->required();
    set->add_option("POINTS", *input, "Points 'X Y RealX RealY' per line, row-major; '-' reads standard input")
        ->required();
    set->add_option("--stack", *stack, "'nine' (default), a grid index, or an index past the last grid to append");
    set->add_option("-o,--output", *out, "File to write instead of FILE: a correction table when it ends in .cor or "
                                         ".txt, a data file otherwise");
    add_field_size_option(set, *field_size);
    set->footer("A correction table is edited as text, in place: the points of the stack are replaced\n"
                "where they stand and every other line is kept (an appended grid gets its own [Cal<n>]\n"
                "section: a table holds one grid per size).  A data file is edited through the library,\n"
                "which fits the coefficients again and saves it as a data file.  The nine points are\n"
                "given as the table stores them, in the frame the nine-point model sees (see 'vrncal plan\n"
                "--help').\n\nExamples:\n"
                "  vrncal points get table.cor --stack 0 > grid.txt   # edit grid.txt, then\n"
                "  vrncal points set table.cor grid.txt --stack 0\n"
                "  vrncal points set sample.dat grid.txt --stack 0");
    set->callback([=] { run_set(*path, *stack, *input, *out, *field_size); });

    auto* gain = cmd->add_subcommand("gain", "Print the gain-table points of one axis as the library reads them");
    gain->add_option("FILE", *path, "Calibration file")->required();
    gain->add_option("--axis", *axis, "x or y")->check(CLI::IsMember({"x", "y"}));
    gain->footer("The library reads them from a fresh record in box mode, whose gain tables no file\n"
                 "stores: expect the record's default rows.\n\nExample:\n"
                 "  vrncal points gain examples/sample.cor --axis y");
    gain->callback([=] { run_gain(*path, *axis); });

    auto* set_gain = cmd->add_subcommand("set-gain", "Pass gain-table points to the library's edit (not saved)");
    set_gain->add_option("FILE", *path, "Calibration file")->required();
    set_gain->add_option("POINTS", *input, "Points 'position companion' per line")->required();
    set_gain->add_option("--axis", *axis, "x or y")->check(CLI::IsMember({"x", "y"}));
    set_gain->footer("The library applies the edit to a temporary record and does not save it: FILE is left\n"
                     "unchanged, and the command says so.\n\nExample:\n"
                     "  vrncal points set-gain sample.dat gains.txt --axis x");
    set_gain->callback([=] { run_set_gain(*path, *axis, *input); });
}

}  // namespace vrncal::tools
