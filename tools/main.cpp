// vrncal: the command-line tool.  Every failure ends in one line on standard
// error and a non-zero status: 1 for a failed command, 2 for bad usage.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <fmt/format.h>
#include <string>

#include "commands.h"
#include "errors.h"

int main(int argc, char** argv) {
    using namespace vrncal::tools;
    CLI::App app{"vrncal: field distortion correction for galvanometer scan heads", "vrncal"};
    app.require_subcommand(1);
    app.footer("Run 'vrncal COMMAND --help' for a command's options and an example.\n\n"
               "Example session:\n"
               "  vrncal info examples/sample.cor\n"
               "  vrncal correct examples/sample.cor examples/points.txt -o counts.txt\n"
               "  vrncal evaluate examples/sample.cor --lens examples/lens.ini\n"
               "  vrncal plot examples/sample.cor --lens examples/lens.ini -o sample.png");
    Context ctx;
    add_info_command(app, ctx);
    add_correct_command(app, ctx);
    add_convert_command(app, ctx);
    add_fit_command(app, ctx);
    add_points_command(app, ctx);
    add_check_command(app, ctx);
    add_simulate_command(app, ctx);
    add_evaluate_command(app, ctx);
    add_plot_command(app, ctx);
    add_plan_command(app, ctx);
    add_measure_command(app, ctx);
    if (argc > 1 && argv[1][0] != '-') {
        // CLI11 would only say that a command is required.
        std::string names;
        bool known = false;
        for (const CLI::App* sub : app.get_subcommands([](CLI::App*) { return true; })) {
            names += (names.empty() ? "" : ", ") + sub->get_name();
            known = known || sub->get_name() == argv[1];
        }
        if (!known) {
            fmt::print(stderr, "vrncal: unknown command '{}' (commands: {})\n", argv[1], names);
            return 2;
        }
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e);  // --help
        std::string what = e.what();
        if (what.empty()) what = "bad usage";
        fmt::print(stderr, "vrncal: {} (see vrncal --help)\n", what);
        return 2;
    } catch (const ToolError& e) {
        std::fflush(stdout);
        fmt::print(stderr, "vrncal: {}\n", e.what());
        return 1;
    } catch (const std::exception& e) {
        std::fflush(stdout);
        fmt::print(stderr, "vrncal: unexpected error: {}\n", e.what());
        return 1;
    }
    return ctx.status;
}
