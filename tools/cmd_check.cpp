// check: lint a calibration before it reaches a machine.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "errors.h"
#include "print.h"
#include "workflow/check.h"

namespace vrncal::tools {

namespace {

struct CheckOptions {
    std::string path;
    bool strict = false;
    bool json = false;
};

int run_check(const CheckOptions& o) {
    const Examination e = check_calibration(o.path);
    int errors = 0, warnings = 0;
    for (const auto& f : e.findings) (f.severity == Finding::Error ? errors : warnings)++;
    const bool failed = errors > 0 || (o.strict && warnings > 0);
    if (o.json) {
        nlohmann::ordered_json j;
        j["file"] = o.path;
        j["format"] = e.data_file ? "data file" : "correction table";
        j["loads"] = e.loaded;
        j["errors"] = errors;
        j["warnings"] = warnings;
        j["passed"] = !failed;
        auto& list = j["findings"] = nlohmann::ordered_json::array();
        for (const auto& f : e.findings)
            list.push_back({{"line", f.line > 0 ? nlohmann::ordered_json(f.line) : nlohmann::ordered_json(nullptr)},
                            {"severity", f.severity == Finding::Error ? "error" : "warning"},
                            {"code", f.code.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(f.code)},
                            {"message", f.message}});
        // Messages may echo bytes of a broken file: replace what is not UTF-8.
        print("{}\n", j.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
        return failed ? 1 : 0;
    }
    std::string out;
    for (const auto& f : e.findings) out += format_finding(o.path, f) + "\n";
    if (errors == 0 && warnings == 0)
        out += fmt::format("{}: no problems found\n", o.path);
    else
        out += fmt::format("{}: {} error{}, {} warning{}{}\n", o.path, errors, errors == 1 ? "" : "s", warnings,
                           warnings == 1 ? "" : "s", failed && errors == 0 ? " (--strict: warnings fail)" : "");
    print("{}", out);
    return failed ? 1 : 0;
}

}  // namespace

void add_check_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("check", "Lint a calibration before it reaches a machine");
    auto o = std::make_shared<CheckOptions>();
    cmd->add_option("FILE", o->path, "Correction table or data file")->required();
    cmd->add_flag("--strict", o->strict, "Fail (status 1) on warnings too");
    cmd->add_flag("--json", o->json, "Print the findings as JSON, for scripts");
    cmd->footer(
        "Reads the file as the library does and reports, with line numbers: missing or malformed\n"
        "nine points, grids the loader drops, keys placed where the loader does not look for them,\n"
        "misspelled keys, keys with blanks or tabs around them, repeated sections or keys that hide\n"
        "earlier ones, numbers that do not convert or convert to something else (a decimal comma, a\n"
        "comment after a value), a byte order mark, an empty or binary file, values out of sensible\n"
        "ranges, non-finite fitted coefficients, and grid points off the regular grid.  A data file\n"
        "is checked for structure and its grids and points as a table's.\n"
        "Errors make every other command refuse the file (unless --force); exit status 1 when there\n"
        "is an error (with --strict also when there is a warning), 0 otherwise.\n\nExamples:\n"
        "  vrncal check examples/sample.cor\n"
        "  vrncal check my.cor --strict --json");
    cmd->callback([o, &ctx] { ctx.status = run_check(*o); });
}

}  // namespace vrncal::tools
