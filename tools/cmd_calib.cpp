// info, convert and fit: a calibration file as a whole.
#include <cmath>
#include <cstring>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "errors.h"
#include "workflow/atomic_file.h"
#include "workflow/calfile.h"
#include "workflow/inspect.h"

namespace vrncal::tools {

namespace {

void run_info(const std::string& path, bool json) {
    const Calibration cal = load_calibration(path);
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
        for (const auto& c : coefficients(p.CalCoefs)) coefs[c.name] = std::isfinite(c.value) ? nlohmann::ordered_json(c.value) : nlohmann::ordered_json(fmt::format("{}", c.value));
        auto& stacks = j["stacks"] = nlohmann::ordered_json::array();
        for (const auto& s : p.Stacks) {
            const auto d = deviation(s);
            stacks.push_back({{"size", s.Size}, {"in_order", s.InOrder}, {"max_deviation", d.max},
                              {"rms_deviation", d.rms}});
        }
        j["gain_tables"] = {{"grid", p.grid}, {"line_count", p.LineCount}, {"in_use", gains_in_use(p)}};
        fmt::print("{}\n", j.dump(2));
        return;
    }
    fmt::print("{}", info_text(info_heading(path, cal.data_file), p));
}

void run_convert(const std::string& in, const std::string& out) {
    Calibration cal = load_calibration(in);
    save_data_file(cal.par, out);
    fmt::print("{}: calibration data file, {} grid(s), coefficients fitted from the nine points\n", out,
               cal.par.Stacks.size());
}

void run_fit(const std::string& in, const std::string& out) {
    Calibration cal = load_calibration(in);
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
    fmt::print("{}", s);
    if (!out.empty()) {
        save_data_file(fit.fitted, out);
        fmt::print("wrote {}\n", out);
    }
}

}  // namespace

void add_info_command(CLI::App& app, Context&) {
    auto* cmd = app.add_subcommand("info", "Show what a calibration file holds");
    auto path = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    cmd->add_option("FILE", *path, "Calibration data file or correction table")->required();
    cmd->add_flag("--json", *json, "Print the same as JSON");
    cmd->footer("Example:\n  vrncal info examples/sample.cor\n  vrncal info examples/sample.cor --json");
    cmd->callback([=] { run_info(*path, *json); });
}

void add_convert_command(CLI::App& app, Context&) {
    auto* cmd = app.add_subcommand(
        "convert", "Load a calibration (a correction table is fitted on load) and save it as a data file");
    auto in = std::make_shared<std::string>();
    auto out = std::make_shared<std::string>();
    cmd->add_option("IN", *in, "Calibration data file or correction table")->required();
    cmd->add_option("OUT", *out, "Data file to write (replaced only when complete)")->required();
    cmd->footer("Saving fits the coefficients again from the nine points.\n\nExample:\n"
                "  vrncal convert examples/sample.cor sample.dat");
    cmd->callback([=] { run_convert(*in, *out); });
}

void add_fit_command(CLI::App& app, Context&) {
    auto* cmd = app.add_subcommand("fit", "Fit the nine-point coefficients and show how well they fit");
    auto in = std::make_shared<std::string>();
    auto out = std::make_shared<std::string>();
    cmd->add_option("FILE", *in, "Calibration data file or correction table")->required();
    cmd->add_option("-o,--output", *out, "Also save the fitted calibration as a data file");
    cmd->footer("Prints the coefficients (for a data file, the stored value where it differs from the\n"
                "refit) and, for each of the nine points, how far the correction of its measured\n"
                "position drives from where its nominal position was driven.\n\nExample:\n"
                "  vrncal fit examples/sample.cor");
    cmd->callback([=] { run_fit(*in, *out); });
}

void write_output(const std::string& path, const std::string& text) {
    if (path == "-") {
        if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size())
            throw ToolError("standard output: write failed");
        return;
    }
    AtomicFile file(path);
    if (std::fwrite(text.data(), 1, text.size(), file.stream()) != text.size())
        throw ToolError(path + ": write failed");
    file.commit();
}

}  // namespace vrncal::tools
