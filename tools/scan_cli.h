// The tool's side of scans: `vrncal measure SCAN --plan JOB`, and the scan
// `vrncal simulate --job JOB --scan OUT` renders of a marked sheet.
#ifndef VRNCAL_TOOLS_SCAN_CLI_H
#define VRNCAL_TOOLS_SCAN_CLI_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <vrncal/records.h>

#include "commands.h"
#include "workflow/head.h"

namespace vrncal::tools {

struct RenderArgs {
    std::string path;
    double dpi = 600.0;
    std::optional<double> angle;
    bool mirror = false;
    std::vector<int> missing, doubled;
    int dust = 12;
    int bits = 8;
    bool colour = false;
};

// The options of the rendered scan, on simulate.
void add_render_options(CLI::App* cmd, RenderArgs& a);

// Renders the scan of the job marked on the head (the record's settings),
// when a.path is set, and says so on standard output unless quiet.
void render_job_scan(const RenderArgs& a, const workflow::Head& head, const tagLenPar& par, const std::string& job,
                     std::uint64_t seed, bool quiet);

// SCAN and its options on the measure command, run when no subcommand is.
void add_measure_scan(CLI::App* measure, Context& ctx);

}  // namespace vrncal::tools

#endif
