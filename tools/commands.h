// The subcommands of the vrncal tool.  Each add_* function registers one
// command (its options, help and example) on the application; the command
// runs from the parse callback and reports failure by throwing ToolError or
// by setting the exit status.
#ifndef VRNCAL_TOOLS_COMMANDS_H
#define VRNCAL_TOOLS_COMMANDS_H

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace vrncal::tools {

struct Context {
    int status = 0;
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
void add_plan_command(CLI::App& app, Context& ctx);
void add_measure_command(CLI::App& app, Context& ctx);

// True when a calibration written to path is a correction table: format
// "text", or no format and a path ending in .cor or .txt.
bool text_output(const std::string& path, const std::string& format);

// --field-size, for commands that load a calibration.
void add_field_size_option(CLI::App* cmd, std::optional<double>& field_size);

// Writes text to a file through a temporary file and a rename, or to
// standard output for "-".
void write_output(const std::string& path, const std::string& text);

}  // namespace vrncal::tools

#endif
