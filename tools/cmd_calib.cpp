// info, convert and fit: a calibration file as a whole.
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <optional>

#include "commands.h"
#include "errors.h"
#include "print.h"
#include "workflow/atomic_file.h"
#include "workflow/calfile.h"
#include "workflow/fit_report.h"
#include "workflow/summary.h"
#include "workflow/lens.h"
#include "workflow/measured_head.h"
#include "workflow/table_file.h"

namespace vrncal::tools {

namespace {

void run_info(const std::string& path, bool json, std::optional<double> field_size, const Context& ctx) {
    const Calibration cal = load(path, ctx, field_size);
    const tagLenPar& p = cal.par;
    if (json) {
        nlohmann::ordered_json j;
        j["file"] = path;
        j["format"] = cal.data_file ? "data file" : "correction table";
        j["resolution"] = p.Resolution;
        j["half_resolution"] = p.HalfResolution;
        j["field_size"] = p.FieldSize;
        j["field_size_from"] = field_size_source(cal.field_size_from);
        j["val_size"] = p.ValSize;
        j["flags"] = {{"XYFlip", p.XYFlip}, {"XInvert", p.XInvert}, {"YInvert", p.YInvert},
                      {"LEN_XYFLIP", p.LEN_XYFLIP}, {"LEN_XINVERT", p.LEN_XINVERT}, {"LEN_YINVERT", p.LEN_YINVERT}};
        auto& coefs = j["coefficients"] = nlohmann::ordered_json::object();
        // A number that is not finite is written as null, never as a string.
        for (const auto& c : coefficients(p.CalCoefs)) coefs[c.name] = c.value;
        auto& stacks = j["stacks"] = nlohmann::ordered_json::array();
        for (const auto& s : p.Stacks) {
            const auto d = deviation(s);
            stacks.push_back({{"size", s.Size}, {"in_order", s.InOrder}, {"max_deviation", d.max},
                              {"rms_deviation", d.rms}});
        }
        j["gain_tables"] = {{"grid", p.grid}, {"line_count", p.LineCount}, {"in_use", gains_in_use(p)}};
        print("{}\n", j.dump(2));
        return;
    }
    print("{}", info_text(info_heading(path, cal.data_file), p, field_size_source(cal.field_size_from)));
}

void run_convert(const std::string& in, const std::string& out, const std::string& format,
                 std::optional<double> field_size, const Context& ctx) {
    if (same_file(in, out))
        throw ToolError(out + ": is the input itself; convert writes a new file and keeps the one it reads");
    Calibration cal = load(in, ctx, field_size);
    if (!text_output(out, format)) {
        save_data_file(cal.par, out, {in});
        print("{}: calibration data file, {} grid(s), coefficients fitted from the nine points\n", out,
              cal.par.Stacks.size());
        return;
    }
    const auto lost = save_as_table(
        cal.par, out, {"Correction table written by vrncal convert from " + std::filesystem::path(in).filename().string()},
        ctx.force);
    print("{}: correction table (text), {} grid(s), field size {}\n", out, cal.par.Stacks.size(), cal.par.FieldSize);
    for (const auto& d : lost) note(fmt::format("{}: not carried by the text form: {}", out, d));
}

struct FitArgs {
    std::string in, out, lens, head, measured, units = "mm";
    std::optional<double> field_size;
};

std::string opt_cell(const std::optional<double>& v, int decimals) {
    return v ? fmt::format("{:>9.{}f}", *v, decimals) : fmt::format("{:>9}", "-");
}

void run_fit(const FitArgs& a, const Context& ctx) {
    const LengthUnit unit = length_unit(a.units);
    Calibration cal = load(a.in, ctx, a.field_size);
    // A data file may be replaced by its own refit (it keeps its form, and
    // the command says so); a table may not.
    const bool replaced = !a.out.empty() && same_file(a.in, a.out);
    if (replaced && !cal.data_file)
        throw ToolError(fmt::format("fit: {} is the input, a correction table, and would be replaced by a binary "
                                    "data file; name another output",
                                    a.out));
    std::unique_ptr<Head> head;
    if (!a.lens.empty()) head = std::make_unique<LensModel>(read_lens_file(a.lens));
    if (!a.head.empty()) head = std::make_unique<MeasuredHead>(read_measured_head(a.head));
    if (head) head->check_range(cal.par);
    std::vector<VerificationMark> marks;
    if (!a.measured.empty()) marks = read_verification(a.measured);
    const FitReport r = fit_report(cal.par, unit, head.get(), a.measured.empty() ? nullptr : &marks, a.measured);
    const int dec = unit.decimals;

    std::string s = fmt::format("{}: nine-point fit\n", a.in);
    const auto refit = coefficients(r.fit.fitted.CalCoefs);
    const auto stored = coefficients(cal.par.CalCoefs);
    for (std::size_t i = 0; i < refit.size(); ++i) {
        const bool same = std::memcmp(&refit[i].value, &stored[i].value, sizeof(double)) == 0;
        s += fmt::format("  {:<9}{:<24}{}\n", refit[i].name, fmt::format("{}", refit[i].value),
                         same || !cal.data_file ? "" : fmt::format("(stored: {})", stored[i].value));
    }
    s += fmt::format("  what the model leaves at the nine points ({}; {})\n", unit.name, unit.field);
    s += "  point  nominal            measured                   fit residual       dx        dy";
    if (head) s += "  head: model    whole";
    if (!a.measured.empty()) s += "  measured";
    s += "\n";
    for (std::size_t i = 0; i < 9; ++i) {
        const auto& p = r.fit.residuals[i].point;
        const NineTarget& t = r.targets[i];
        s += fmt::format("  {:<6} {:<18} {:<26} {:>12.{}f} {:>9.{}f} {:>9.{}f}", i, fmt::format("({}, {})", p.X, p.Y),
                         fmt::format("({}, {})", p.RealX, p.RealY), t.residual, dec, t.dx, dec, t.dy, dec);
        if (head) s += fmt::format("  {}{}", opt_cell(t.model_error, dec), opt_cell(t.full_error, dec));
        if (!a.measured.empty()) s += fmt::format(" {}", opt_cell(t.measured_error, dec));
        s += "\n";
    }
    s += "  (fit residual: how far the correction of the measured position drives from the linear\n"
         "  drive of the nominal one, in the field)\n";
    if (head)
        s += "  (head: the landing error on the simulated head with the nine-point model alone, and with\n"
             "  the whole calibration)\n";
    if (!a.measured.empty())
        s += fmt::format("  (measured: {} of the nine points found in {}{})\n", r.measured_found, a.measured,
                         r.measured_through.empty() ? "" : ", marked through " + r.measured_through);
    for (const GridFit& g : r.grids)
        s += fmt::format("  {}x{} grid: measured - nominal  largest {:.{}f} {}, rms {:.{}f} {}\n", g.size, g.size, g.max,
                         dec, unit.name, g.rms, dec, unit.name);
    print("{}", s);
    for (const GridFit& g : r.grids)
        if (g.looks_linear)
            warn(fmt::format("{}: the {}x{} grid looks measured with the head driven linearly: at the nine points it "
                             "deviates as the nine points do ({:.{}f} {} from their deviations, {:.{}f} {} from "
                             "nominal), but the correction takes a grid as what the stages before it leave; mark it "
                             "through the table (vrncal plan job --stage {}) or import it with --single-pass",
                             a.in, g.size, g.size, g.to_nine, dec, unit.name, g.to_nominal, dec, unit.name, g.size));
    if (!a.out.empty()) {
        tagLenPar fitted = r.fit.fitted;
        save_data_file(fitted, a.out, replaced ? std::vector<std::string>{} : std::vector<std::string>{a.in});
        print("{} {}\n", replaced ? "replaced" : "wrote", a.out);
    }
}

}  // namespace

void add_field_size_option(CLI::App* cmd, std::optional<double>& field_size) {
    cmd->add_option("--field-size", field_size,
                    "Field units spanned by the device range, for a table that does not state it (default 100)");
}

void add_info_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("info", "Show what a calibration file holds");
    auto path = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    auto field_size = std::make_shared<std::optional<double>>();
    cmd->add_option("FILE", *path, "Calibration data file or correction table")->required();
    cmd->add_flag("--json", *json, "Print the same as JSON");
    add_field_size_option(cmd, *field_size);
    cmd->footer("The field size (field units spanned by the device range) comes from the table's own\n"
                "[vrncal] FieldSize key, from a data file, or from --field-size; a table written by the\n"
                "tool always states it.\n\nExample:\n  vrncal info examples/sample.cor\n"
                "  vrncal info examples/sample.cor --json");
    add_force_flag(cmd, ctx);
    cmd->callback([=, &ctx] { run_info(*path, *json, *field_size, ctx); });
}

void add_convert_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("convert", "Save a calibration as a data file or as a correction table");
    auto in = std::make_shared<std::string>();
    auto out = std::make_shared<std::string>();
    auto format = std::make_shared<std::string>();
    auto field_size = std::make_shared<std::optional<double>>();
    cmd->add_option("IN", *in, "Calibration data file or correction table")->required();
    cmd->add_option("OUT", *out, "File to write (replaced only when complete); never IN itself")->required();
    cmd->add_option("--format", *format, "text (a correction table) or data (a binary data file); default: text "
                                         "for an OUT ending in .cor or .txt, data otherwise")
        ->check(CLI::IsMember({"text", "data"}));
    add_force_flag(cmd, ctx, "; and write a text table even where it cannot carry the calibration exactly");
    add_field_size_option(cmd, *field_size);
    cmd->footer("A data file is saved with the coefficients fitted again from the nine points.  A\n"
                "correction table is written so that it loads back to the same calibration, bit for bit:\n"
                "the tool loads what it wrote before it replaces OUT, and refuses (unless --force) when\n"
                "the text form cannot carry something (coefficients stored apart from their fit, a\n"
                "resolution other than 65535, two grids of one size ...).\n\nExamples:\n"
                "  vrncal convert examples/sample.cor sample.dat\n"
                "  vrncal convert sample.dat sample-again.cor");
    cmd->callback([=, &ctx] { run_convert(*in, *out, *format, *field_size, ctx); });
}

void add_fit_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("fit", "Fit the nine-point coefficients and show how well they fit");
    auto a = std::make_shared<FitArgs>();
    cmd->add_option("FILE", a->in, "Calibration data file or correction table")->required();
    cmd->add_option("-o,--output", a->out, "Also save the fitted calibration as a data file");
    auto* lens = cmd->add_option("--lens", a->lens, "Lens file of a simulated head: the landing error at the nine points");
    auto* head = cmd->add_option("--head", a->head, "Measured head data (CSV of u,v,x,y) instead of a lens");
    lens->excludes(head);
    cmd->add_option("--measured", a->measured,
                    "Verification file: the landing error measured at the nine points (marks at their positions)");
    cmd->add_option("--units", a->units, "What a field unit is: mm (reports in um) or field (default mm)");
    add_field_size_option(cmd, a->field_size);
    cmd->footer("Prints the coefficients (for a data file, the stored value where it differs from the\n"
                "refit); for each of the nine points, how far the correction of its measured position\n"
                "drives from where its nominal position was driven (what the model leaves there); and\n"
                "each grid's largest and RMS deviation from nominal.  A grid that looks measured with the\n"
                "head driven linearly gets a warning.  With --lens or --head, the landing error at the nine\n"
                "points on the simulated head; with --measured, the error measured there.\n\nExamples:\n"
                "  vrncal fit examples/sample.cor\n"
                "  vrncal fit examples/sample.cor --lens examples/lens.ini");
    add_force_flag(cmd, ctx);
    cmd->callback([a, &ctx] { run_fit(*a, ctx); });
}

bool text_output(const std::string& path, const std::string& format) {
    if (!format.empty()) return format == "text";
    const auto ext = std::filesystem::path(path).extension().string();
    return ext == ".cor" || ext == ".COR" || ext == ".txt";
}

void write_output(const std::string& path, const std::string& text, const std::vector<std::string>& inputs) {
    if (path == "-")
        write_stdout(text);
    else
        write_file(path, text, inputs);
}

void add_force_flag(CLI::App* cmd, Context& ctx, const std::string& also) {
    cmd->add_flag("--force", ctx.force,
                  "Use the calibration even when it has errors (they are shown as warnings; a file that does not "
                  "load is refused even so)" + also);
}

LoadOptions load_options(const Context& ctx, std::optional<double> field_size) {
    return LoadOptions{ctx.force, field_size};
}

Calibration load(const std::string& path, const Context& ctx, std::optional<double> field_size) {
    Calibration cal = load_calibration(path, load_options(ctx, field_size));
    for (const auto& line : cal.forced) warn(line);
    return cal;
}

}  // namespace vrncal::tools
