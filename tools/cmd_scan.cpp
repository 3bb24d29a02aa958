// measure SCAN: the measurement file from a scan of the marked sheet; and the
// scan simulate renders of a job marked on a simulated head.
#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <memory>

#include "commands.h"
#include "errors.h"
#include "print.h"
#include "scan/measure_scan.h"
#include "scan/render.h"
#include "scan_cli.h"
#include "workflow/atomic_file.h"

namespace vrncal::tools {

namespace {

struct MeasureScanArgs {
    std::string scan, plan, output, overlay;
    std::optional<double> dpi;
    std::vector<double> scale;
    double unit = 1.0;
    bool light = false, allow_missing = false, upright = false;
};

std::string image_kind(const scan::ScanReport& r) {
    return fmt::format("{} bit {}", r.bits, r.channels == 1 ? "grey" : "colour");
}

std::string dpi_text(const scan::ScanReport& r) {
    return r.dpi_x == r.dpi_y ? fmt::format("{} dpi", r.dpi_x) : fmt::format("{} x {} dpi", r.dpi_x, r.dpi_y);
}

// On standard error when the measurements go to standard output.
void print_report(const MeasureScanArgs& a, const scan::ScanReport& r) {
    fmt::memory_buffer text;
    auto out = std::back_inserter(text);
    const int n = r.n, mid = (n - 1) / 2;
    fmt::format_to(out,
               "{}: {} x {} pixels, {}, {}; {} blobs of a mark's size or more, {} smaller specks; noise {:.2g} % of "
               "the paper\n",
               a.scan, r.width, r.height, image_kind(r), dpi_text(r), r.blobs, r.specks, 100.0 * r.noise);
    std::string how = r.orientation_assumed
                          ? std::string("no orientation marker in the plan: the sheet taken as upright")
                          : fmt::format("orientation marker at ({:.1f}, {:.1f})", r.marker->x, r.marker->y);
    fmt::format_to(out,
               "{}: {} of the {} marks of the {} of {} matched; {}; the sheet lies turned by {:.2f} degrees{}; the "
               "marks lie {:.1f} pixels apart, {:+.2f} % against the plan\n",
               a.scan, r.matched(), r.nodes.size(), workflow::stage_name(n), a.plan, how, r.turned_deg,
               r.mirrored ? ", mirrored" : "", r.pitch_px, 100.0 * (r.pitch_px / r.plan_pitch_px - 1.0));
    constexpr std::size_t kShown = 20;
    for (std::size_t i = 0; i < std::min(kShown, r.rejected.size()); ++i)
        fmt::format_to(out, "  rejected: ({:.1f}, {:.1f}) {}\n", r.rejected[i].first.x, r.rejected[i].first.y,
                   r.rejected[i].second);
    if (r.rejected.size() > kShown)
        fmt::format_to(out, "  ... and {} more rejected{}\n", r.rejected.size() - kShown,
                   a.overlay.empty() ? " (--overlay draws every one)" : " (the overlay shows every one)");
    for (int k : r.missing())
        fmt::format_to(out, "  not found: mark {} (row {}, column {}): {}\n", k, k / n, k % n,
                   r.nodes[static_cast<std::size_t>(k)].problem);
    std::vector<std::pair<double, int>> u;
    for (std::size_t k = 0; k < r.nodes.size(); ++k)
        if (r.nodes[k].found) u.emplace_back(r.nodes[k].uncertainty_um, static_cast<int>(k));
    std::sort(u.begin(), u.end());
    fmt::format_to(out,
               "  uncertainty of a centre from the scanner's noise, per axis: median {:.2g} um, largest {:.2g} um "
               "(mark {})\n",
               u[u.size() / 2].first, u.back().first, u.back().second);
    if (a.output != "-")
        fmt::format_to(out,
                   "{}: {} marks measured, field units in the sheet's frame (origin at the centre mark {}{}, x along "
                   "row {}, y towards row 0); next: vrncal measure import TABLE {}\n",
                   a.output, r.matched(), mid * n + mid,
                   r.frame.origin_interpolated ? ", missing: between its neighbours" : "", mid, a.output);
    const std::string report = fmt::to_string(text);
    if (a.output == "-")
        fmt::print(stderr, "{}", report);
    else
        print("{}", report);
}

int run_measure_scan(const MeasureScanArgs& a) {
    if (a.plan.empty()) throw ToolError("measure: name the plan of the scanned sheet: --plan JOB");
    if (a.output.empty()) throw ToolError("measure: name the measurement file to write: -o FILE");
    scan::MeasureOptions opt;
    opt.dpi = a.dpi;
    opt.light_marks = a.light;
    opt.upright = a.upright;
    opt.plan = a.plan;
    if (!(a.unit > 0.0) || !std::isfinite(a.unit)) throw ToolError("measure: --unit must be a positive number of mm");
    opt.unit_mm = a.unit;
    if (!a.scale.empty()) {
        for (double s : a.scale)
            if (!(s > 0.9 && s < 1.1))
                throw ToolError(
                    fmt::format("measure: --scale {}: a scanner's correction factor lies within 10 % of 1", s));
        opt.scale_x = a.scale[0], opt.scale_y = a.scale[1];
    }
    if (!a.overlay.empty() && (same_file(a.overlay, a.scan) || same_file(a.overlay, a.plan)))
        throw ToolError(a.overlay + ": is an input of the command; name another file for the overlay");
    const workflow::JobFile job = workflow::read_job_file(a.plan);
    const scan::ScanImage image = scan::read_scan(a.scan);
    const scan::ScanReport r = scan::measure_scan(a.scan, image, job, opt);
    write_output(a.output, scan::measurement_text(job, r), {a.scan, a.plan, a.overlay});
    if (!a.overlay.empty()) scan::write_image(a.overlay, scan::overlay_image(image, r), r.dpi_x);
    print_report(a, r);
    const auto missing = r.missing();
    if (missing.empty() || a.allow_missing) return 0;
    std::string list;
    for (std::size_t i = 0; i < missing.size(); ++i)
        list += fmt::format("{}{}", i == 0 ? "" : i + 1 == missing.size() ? " and " : ", ", missing[i]);
    print_error(fmt::format("{}: {} not found: the other {} are written to {}, {} left blank; measure {} by hand or "
                            "scan again (--allow-missing exits with 0)",
                            a.scan, missing.size() == 1 ? "mark " + list : "marks " + list, r.matched(), a.output,
                            missing.size() == 1 ? "that one" : "those", missing.size() == 1 ? "it" : "them"));
    return 1;
}

}  // namespace

void add_render_options(CLI::App* cmd, RenderArgs& a) {
    cmd->add_option("--scan", a.path, "With --job: also render the scan of the marked sheet (.png or .tif)");
    cmd->add_option("--dpi", a.dpi, "The scan's resolution (default 600)");
    cmd->add_option("--sheet-angle", a.angle, "The sheet's turn on the scanner, degrees (default: random within +-3)");
    cmd->add_flag("--mirror", a.mirror, "The scan shows the sheet mirrored");
    cmd->add_option("--missing", a.missing, "Marks left off the sheet, by index, e.g. 17,40")->delimiter(',');
    cmd->add_option("--double", a.doubled, "Marks marked twice, by index")->delimiter(',');
    cmd->add_option("--dust", a.dust, "Dust specks on the sheet (default 12)");
    cmd->add_option("--scan-bits", a.bits, "8 or 16 bits per sample (default 8)");
    cmd->add_flag("--colour", a.colour, "A colour scan instead of grey");
}

void render_job_scan(const RenderArgs& a, const workflow::Head& head, const tagLenPar& par, const std::string& job_path,
                     std::uint64_t seed, bool quiet) {
    if (a.path.empty()) return;
    const workflow::JobFile job = workflow::read_job_file(job_path);
    if (a.bits != 8 && a.bits != 16) throw ToolError("simulate: --scan-bits is 8 or 16");
    if (!(a.dpi >= 50.0 && a.dpi <= 5000.0)) throw ToolError("simulate: --dpi must be 50 to 5000");
    if (a.dust < 0 || a.dust > 10000) throw ToolError("simulate: --dust must be 0 to 10000");
    for (const auto* list : {&a.missing, &a.doubled})
        for (int k : *list)
            if (k < 0 || k >= static_cast<int>(job.marks.size()))
                throw ToolError(
                    fmt::format("simulate: mark {} is not in {} (0 to {})", k, job_path, job.marks.size() - 1));
    scan::RenderOptions o;
    o.dpi = a.dpi;
    o.angle_deg = a.angle;
    o.mirrored = a.mirror;
    o.missing = a.missing;
    o.doubled = a.doubled;
    o.dust = a.dust;
    o.bits = a.bits;
    o.colour = a.colour;
    o.seed = seed;
    const scan::RenderedScan s = scan::render_scan(head, par, job, o);
    scan::write_image(a.path, s.image, a.dpi);
    if (!quiet)
        print("{}: scan of {} marked on the simulated head: {} x {} pixels at {} dpi, the sheet turned by {:.2f} "
              "degrees{}\n",
              a.path, job_path, s.image.cols, s.image.rows, a.dpi, s.angle_deg, a.mirror ? ", mirrored" : "");
}

void add_measure_scan(CLI::App* measure, Context& ctx) {
    auto a = std::make_shared<MeasureScanArgs>();
    measure->add_option("SCAN", a->scan, "Scan of the marked sheet: PNG or TIFF, 8 or 16 bit, grey or colour");
    measure->add_option("--plan", a->plan, "The sheet's marking job (plan job --mark)");
    measure->add_option("-o,--output", a->output, "Measurement file to write, for 'vrncal measure import'");
    measure->add_option("--dpi", a->dpi, "The scanner's resolution (default: as the file states it)");
    measure
        ->add_option("--scale", a->scale,
                     "The scanner's correction factors X,Y along the image's axes: true "
                     "length / scanned length, from a scanned ruler (default 1,1)")
        ->expected(2)
        ->delimiter(',');
    measure->add_option("--unit", a->unit, "Millimetres per field unit (default 1)");
    measure->add_flag("--light-marks", a->light, "The marks are lighter than the sheet");
    measure->add_flag("--upright", a->upright,
                      "A plan without orientation marker: take the scan as upright, mark 0 "
                      "at its top left");
    measure->add_option("--overlay", a->overlay, "Also draw every mark found, with its index, on the scan (.png)");
    measure->add_flag("--allow-missing", a->allow_missing,
                      "Exit with 0 when marks are not found (they are left blank)");
    measure->callback([measure, a, &ctx] {
        if (measure->get_subcommands().empty()) {
            if (a->scan.empty())
                throw ToolError(
                    "measure: name the scan (vrncal measure SCAN --plan JOB -o FILE) or import a file "
                    "(vrncal measure import TABLE FILE)");
            ctx.status = run_measure_scan(*a);
        } else if (!a->scan.empty()) {
            throw ToolError("measure: a scan or an import, not both");
        }
    });
}

}  // namespace vrncal::tools
