// The subcommands of the vrncal tool.  Each add_* function registers one
// command (its options, help and example) on the application; the command
// runs from the parse callback and reports failure by throwing ToolError or
// by setting the exit status.
#ifndef VRNCAL_TOOLS_COMMANDS_H
#define VRNCAL_TOOLS_COMMANDS_H

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "workflow/calfile.h"

namespace vrncal::tools {

struct Context {
    int status = 0;
    bool force = false;  // --force: use a calibration with errors
};

void add_info_command(CLI::App& app, Context& ctx);
void add_convert_command(CLI::App& app, Context& ctx);
void add_fit_command(CLI::App& app, Context& ctx);
void add_correct_command(CLI::App& app, Context& ctx);
void add_check_command(CLI::App& app, Context& ctx);
void add_points_command(CLI::App& app, Context& ctx);
void add_simulate_command(CLI::App& app, Context& ctx);
void add_evaluate_command(CLI::App& app, Context& ctx);
void add_plot_command(CLI::App& app, Context& ctx);
void add_inverse_command(CLI::App& app, Context& ctx);
void add_diff_command(CLI::App& app, Context& ctx);
void add_plan_command(CLI::App& app, Context& ctx);
void add_measure_command(CLI::App& app, Context& ctx);

// True when a calibration written to path is a correction table: format
// "text", or no format and a path ending in .cor or .txt.
bool text_output(const std::string& path, const std::string& format);

// --field-size, for commands that load a calibration.
void add_field_size_option(CLI::App* cmd, std::optional<double>& field_size);

// Registers --force on a command that uses a calibration; also is added to
// its help where the command forces something more.
void add_force_flag(CLI::App* cmd, Context& ctx, const std::string& also = "");

// The one way a command loads a calibration: checked, refused with every
// error on a line of its own, or with --force used after the errors are
// shown as warnings.  Throws ToolError.
workflow::Calibration load(const std::string& path, const Context& ctx,
                           std::optional<double> field_size = std::nullopt);

// The options load() passes on, for workflow calls that load a table
// themselves.
workflow::LoadOptions load_options(const Context& ctx, std::optional<double> field_size);

// Writes text to a file whole or not at all (AtomicFile), or to standard
// output for "-"; the file may not be one of inputs.
void write_output(const std::string& path, const std::string& text, const std::vector<std::string>& inputs = {});

}  // namespace vrncal::tools

#endif
