// info, convert and fit: a calibration file as a whole.
#include <cmath>
#include <cstring>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "errors.h"
#include "print.h"
#include "workflow/atomic_file.h"
#include "workflow/calfile.h"
#include "workflow/inspect.h"

namespace vrncal::tools {

namespace {

void run_info(const std::string& path, bool json, const Context& ctx) {
    const Calibration cal = load(path, ctx);
    const tagLenPar& p = cal.par;
    if (json) {
        nlohmann::ordered_json j;
        j["file"] = path;
        j["format"] = cal.data_file ? "data file" : "correction table";
        j["resolution"] = p.Resolution;
        j["half_resolution"] = p.HalfResolution;
        j["field_size"] = p.FieldSize;
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
    std::string s;
    s += fmt::format("{}: {}\n", path,
                     cal.data_file ? "calibration data file (binary; coefficients as stored)"
                                   : "correction table (text; coefficients fitted on load)");
    s += fmt::format("  resolution    {} counts, half {}\n", p.Resolution, p.HalfResolution);
    s += fmt::format("  field size    {} (linear conversion), ValSize {} (grids and clamping)\n", p.FieldSize,
                     p.ValSize);
    s += fmt::format("  lens flags    XYFlip {}  XInvert {}  YInvert {}   box: LEN_XYFLIP {}  LEN_XINVERT {}  "
                     "LEN_YINVERT {}\n",
                     p.XYFlip, p.XInvert, p.YInvert, p.LEN_XYFLIP, p.LEN_XINVERT, p.LEN_YINVERT);
    s += "  coefficients\n";
    const auto coefs = coefficients(p.CalCoefs);
    std::string row;
    for (std::size_t i = 0; i < coefs.size(); ++i) {
        const std::string cell = fmt::format("{:<9}{}", coefs[i].name, coefs[i].value);
        const bool last = i % 3 == 2 || i + 1 == coefs.size();
        row += last ? cell : fmt::format("{:<33}", cell);
        if (last) {
            s += "    " + row + "\n";
            row.clear();
        }
    }
    s += fmt::format("  grids         {}\n", p.Stacks.size());
    for (std::size_t i = 0; i < p.Stacks.size(); ++i) {
        const auto& st = p.Stacks[i];
        const auto d = deviation(st);
        s += fmt::format("    {}: {:>2} x {:<2}  InOrder {}  measured - nominal: max {:.4f}  rms {:.4f}\n", i,
                         st.Size, st.Size, st.InOrder, d.max, d.rms);
    }
    if (gains_in_use(p))
        s += fmt::format("  gain tables   in use (grid 1, {} rows)\n", p.LineCount);
    else
        s += fmt::format("  gain tables   off (grid {}, LineCount {})\n", p.grid, p.LineCount);
    print("{}", s);
}

// A data file written over the input it came from: allowed for a data file
// (its form is kept, and the command says "replaced"), refused for a table.
bool replaces_input(const Calibration& cal, const std::string& out, const char* command) {
    if (!same_file(cal.path, out)) return false;
    if (!cal.data_file)
        throw ToolError(fmt::format("{}: {} is the input, a correction table, and would be replaced by a binary data "
                                    "file; name another output",
                                    command, out));
    return true;
}

void run_convert(const std::string& in, const std::string& out, const Context& ctx) {
    Calibration cal = load(in, ctx);
    const bool replaced = replaces_input(cal, out, "convert");
    save_data_file(cal.par, out, replaced ? std::vector<std::string>{} : std::vector<std::string>{in});
    print("{}: {}calibration data file, {} grid(s), coefficients fitted from the nine points\n", out,
          replaced ? "replaced: " : "", cal.par.Stacks.size());
}

void run_fit(const std::string& in, const std::string& out, const Context& ctx) {
    Calibration cal = load(in, ctx);
    const bool replaced = !out.empty() && replaces_input(cal, out, "fit");
    NineFit fit = fit_nine_points(cal.par);
    std::string s = fmt::format("{}: nine-point fit\n", in);
    const auto refit = coefficients(fit.fitted.CalCoefs);
    const auto stored = coefficients(cal.par.CalCoefs);
    for (std::size_t i = 0; i < refit.size(); ++i) {
        const bool same = std::memcmp(&refit[i].value, &stored[i].value, sizeof(double)) == 0;
        s += fmt::format("  {:<9}{:<24}{}\n", refit[i].name, fmt::format("{}", refit[i].value),
                         same || !cal.data_file ? "" : fmt::format("(stored: {})", stored[i].value));
    }
    s += "  point  nominal            measured                   fit residual (um)\n";
    for (std::size_t i = 0; i < fit.residuals.size(); ++i) {
        const auto& r = fit.residuals[i];
        s += fmt::format("  {:<6} {:<18} {:<26} {:8.2f} {:8.2f}\n", i, fmt::format("({}, {})", r.point.X, r.point.Y),
                         fmt::format("({}, {})", r.point.RealX, r.point.RealY), r.dx_um, r.dy_um);
    }
    print("{}", s);
    if (!out.empty()) {
        save_data_file(fit.fitted, out, replaced ? std::vector<std::string>{} : std::vector<std::string>{in});
        print("{} {}\n", replaced ? "replaced" : "wrote", out);
    }
}

}  // namespace

void add_info_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("info", "Show what a calibration file holds");
    auto path = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    cmd->add_option("FILE", *path, "Calibration data file or correction table")->required();
    cmd->add_flag("--json", *json, "Print the same as JSON");
    cmd->footer("Example:\n  vrncal info examples/sample.cor\n  vrncal info examples/sample.cor --json");
    add_force_flag(cmd, ctx);
    cmd->callback([=, &ctx] { run_info(*path, *json, ctx); });
}

void add_convert_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand(
        "convert", "Load a calibration (a correction table is fitted on load) and save it as a data file");
    auto in = std::make_shared<std::string>();
    auto out = std::make_shared<std::string>();
    cmd->add_option("IN", *in, "Calibration data file or correction table")->required();
    cmd->add_option("OUT", *out, "Data file to write (replaced only when complete)")->required();
    cmd->footer("Saving fits the coefficients again from the nine points.\n\nExample:\n"
                "  vrncal convert examples/sample.cor sample.dat");
    add_force_flag(cmd, ctx);
    cmd->callback([=, &ctx] { run_convert(*in, *out, ctx); });
}

void add_fit_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("fit", "Fit the nine-point coefficients and show how well they fit");
    auto in = std::make_shared<std::string>();
    auto out = std::make_shared<std::string>();
    cmd->add_option("FILE", *in, "Calibration data file or correction table")->required();
    cmd->add_option("-o,--output", *out, "Also save the fitted calibration as a data file");
    cmd->footer("Prints the coefficients (for a data file, the stored value where it differs from the\n"
                "refit) and, for each of the nine points, how far the correction of its measured\n"
                "position drives from where its nominal position was driven.\n\nExample:\n"
                "  vrncal fit examples/sample.cor");
    add_force_flag(cmd, ctx);
    cmd->callback([=, &ctx] { run_fit(*in, *out, ctx); });
}

void write_output(const std::string& path, const std::string& text, const std::vector<std::string>& inputs) {
    if (path == "-")
        write_stdout(text);
    else
        write_file(path, text, inputs);
}

void add_force_flag(CLI::App* cmd, Context& ctx) {
    cmd->add_flag("--force", ctx.force,
                  "Use the calibration even when it has errors (they are shown as warnings); a file that does not "
                  "load is refused even so");
}

Calibration load(const std::string& path, const Context& ctx) {
    Calibration cal = load_calibration(path, LoadOptions{ctx.force});
    for (const auto& line : cal.forced) warn(line);
    return cal;
}

}  // namespace vrncal::tools
