// points: read and replace calibration points and gain-table points through
// the facade's file-level members.
#include <cmath>
#include <fmt/format.h>
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

void run_set(const std::string& path, const std::string& stack, const std::string& points, const std::string& out) {
    const Calibration cal = load_calibration(path);
    const std::string target = edit_target(cal, out);
    const int index = stack_index(stack);
    std::vector<tagCalData> pts;
    for (const auto& r : read_all_rows(points, 4)) pts.push_back(tagCalData{r[0], r[1], r[2], r[3]});
    const PointsEdit e = set_stack_points(cal, index, points, pts, target);
    if (e.appended)
        fmt::print("{}: appended grid {} ({} x {}); coefficients refitted\n", target, e.index, e.size, e.size);
    else
        fmt::print("{}: replaced {} ({} x {}); coefficients refitted\n", target,
                   e.index < 0 ? std::string("the nine points") : fmt::format("grid {}", e.index), e.size, e.size);
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
    set->add_option("-o,--output", *out, "Data file to write (default: FILE itself, which must be a data file)");
    set->footer("The library saves the edited calibration as a binary data file and fits the\n"
                "coefficients again.\n\nExample:\n"
                "  vrncal points get sample.dat --stack 0 > grid.txt   # edit grid.txt, then\n"
                "  vrncal points set sample.dat grid.txt --stack 0");
    set->callback([=] { run_set(*path, *stack, *input, *out); });

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
