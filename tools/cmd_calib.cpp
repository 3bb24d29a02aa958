// info, convert and fit: a calibration file as a whole.
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <optional>

#include "commands.h"
#include "errors.h"
#include "workflow/atomic_file.h"
#include "workflow/calfile.h"
#include "workflow/inspect.h"
#include "workflow/table_file.h"

namespace vrncal::tools {

namespace {

const char* field_size_from(FieldSizeFrom from) {
    switch (from) {
        case FieldSizeFrom::Table: return "from [vrncal] FieldSize";
        case FieldSizeFrom::DataFile: return "stored in the data file";
        case FieldSizeFrom::Given: return "given";
        case FieldSizeFrom::Default: break;
    }
    return "the default: the table does not state one";
}

void run_info(const std::string& path, bool json, std::optional<double> field_size) {
    const Calibration cal = load_calibration(path, field_size);
    const tagLenPar& p = cal.par;
    if (json) {
        nlohmann::ordered_json j;
        j["file"] = path;
        j["format"] = cal.data_file ? "data file" : "correction table";
        j["resolution"] = p.Resolution;
        j["half_resolution"] = p.HalfResolution;
        j["field_size"] = p.FieldSize;
        j["field_size_from"] = field_size_from(cal.field_size_from);
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
    std::string s;
    s += fmt::format("{}: {}\n", path,
                     cal.data_file ? "calibration data file (binary; coefficients as stored)"
                                   : "correction table (text; coefficients fitted on load)");
    s += fmt::format("  resolution    {} counts, half {}\n", p.Resolution, p.HalfResolution);
    s += fmt::format("  field size    {} ({}; linear conversion), ValSize {} (grids and clamping)\n", p.FieldSize,
                     field_size_from(cal.field_size_from), p.ValSize);
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
    fmt::print("{}", s);
}

bool same_file(const std::string& a, const std::string& b) {
    std::error_code ec;
    return std::filesystem::equivalent(a, b, ec);
}

void run_convert(const std::string& in, const std::string& out, const std::string& format, bool force,
                 std::optional<double> field_size) {
    if (same_file(in, out))
        throw ToolError(out + ": is the input itself; convert writes a new file and keeps the one it reads");
    Calibration cal = load_calibration(in, field_size);
    if (!text_output(out, format)) {
        save_data_file(cal.par, out);
        fmt::print("{}: calibration data file, {} grid(s), coefficients fitted from the nine points\n", out,
                   cal.par.Stacks.size());
        return;
    }
    const auto lost = save_as_table(
        cal.par, out, {"Correction table written by vrncal convert from " + std::filesystem::path(in).filename().string()},
        force);
    fmt::print("{}: correction table (text), {} grid(s), field size {}\n", out, cal.par.Stacks.size(),
               cal.par.FieldSize);
    for (const auto& d : lost) fmt::print(stderr, "note: {}: not carried by the text form: {}\n", out, d);
}

void run_fit(const std::string& in, const std::string& out, std::optional<double> field_size) {
    Calibration cal = load_calibration(in, field_size);
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

void add_field_size_option(CLI::App* cmd, std::optional<double>& field_size) {
    cmd->add_option("--field-size", field_size,
                    "Field units spanned by the device range, for a table that does not state it (default 100)");
}

void add_info_command(CLI::App& app, Context&) {
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
    cmd->callback([=] { run_info(*path, *json, *field_size); });
}

void add_convert_command(CLI::App& app, Context&) {
    auto* cmd = app.add_subcommand("convert", "Save a calibration as a data file or as a correction table");
    auto in = std::make_shared<std::string>();
    auto out = std::make_shared<std::string>();
    auto format = std::make_shared<std::string>();
    auto force = std::make_shared<bool>(false);
    auto field_size = std::make_shared<std::optional<double>>();
    cmd->add_option("IN", *in, "Calibration data file or correction table")->required();
    cmd->add_option("OUT", *out, "File to write (replaced only when complete); never IN itself")->required();
    cmd->add_option("--format", *format, "text (a correction table) or data (a binary data file); default: text "
                                         "for an OUT ending in .cor or .txt, data otherwise")
        ->check(CLI::IsMember({"text", "data"}));
    cmd->add_flag("--force", *force, "Write a text table even where it cannot carry the calibration exactly");
    add_field_size_option(cmd, *field_size);
    cmd->footer("A data file is saved with the coefficients fitted again from the nine points.  A\n"
                "correction table is written so that it loads back to the same calibration, bit for bit:\n"
                "the tool loads what it wrote before it replaces OUT, and refuses (unless --force) when\n"
                "the text form cannot carry something (coefficients stored apart from their fit, a\n"
                "resolution other than 65535, two grids of one size ...).\n\nExamples:\n"
                "  vrncal convert examples/sample.cor sample.dat\n"
                "  vrncal convert sample.dat sample-again.cor");
    cmd->callback([=] { run_convert(*in, *out, *format, *force, *field_size); });
}

void add_fit_command(CLI::App& app, Context&) {
    auto* cmd = app.add_subcommand("fit", "Fit the nine-point coefficients and show how well they fit");
    auto in = std::make_shared<std::string>();
    auto out = std::make_shared<std::string>();
    auto field_size = std::make_shared<std::optional<double>>();
    cmd->add_option("FILE", *in, "Calibration data file or correction table")->required();
    cmd->add_option("-o,--output", *out, "Also save the fitted calibration as a data file");
    add_field_size_option(cmd, *field_size);
    cmd->footer("Prints the coefficients (for a data file, the stored value where it differs from the\n"
                "refit) and, for each of the nine points, how far the correction of its measured\n"
                "position drives from where its nominal position was driven.\n\nExample:\n"
                "  vrncal fit examples/sample.cor");
    cmd->callback([=] { run_fit(*in, *out, *field_size); });
}

bool text_output(const std::string& path, const std::string& format) {
    if (!format.empty()) return format == "text";
    const auto ext = std::filesystem::path(path).extension().string();
    return ext == ".cor" || ext == ".COR" || ext == ".txt";
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
