// correct: field points to device counts.
#include <fmt/format.h>
#include <memory>
#include <vector>

#include "workflow/atomic_file.h"
#include "workflow/calfile.h"
#include "commands.h"
#include "correct.h"
#include "errors.h"
#include "points_io.h"

namespace vrncal::tools {

void BlockCorrector::run(const tagKelPointF* in, tagKelPointF* out, std::size_t n) const {
    VrnCal vc;
    switch (conv_) {
    case Conversion::Corrected:
        batch_.correct(in, out, n);
        break;
    case Conversion::ScaleAndShift:
        for (std::size_t i = 0; i < n; ++i) vc.LP2DPEX_SFT(in[i], out[i], par_, true);
        break;
    case Conversion::Linear:
        for (std::size_t i = 0; i < n; ++i) vc.LP2DPEX_Cal(in[i], out[i], par_);
        break;
    }
}

void correct_points(const tagLenPar& par, Conversion conv, const std::string& points, const std::string& output) {
    RowReader reader(points, 2);
    std::unique_ptr<AtomicFile> file;
    std::FILE* out = stdout;
    std::string out_name = "standard output";
    if (!output.empty() && output != "-") {
        file = std::make_unique<AtomicFile>(output);
        out = file->stream();
        out_name = output;
    }
    const BlockCorrector corrector(par, conv);
    constexpr std::size_t kBlock = 1 << 16;
    std::vector<tagKelPointF> in(kBlock), dev(kBlock);
    fmt::memory_buffer buf;
    for (;;) {
        const std::size_t n = read_points(reader, in.data(), kBlock);
        if (n == 0) break;
        corrector.run(in.data(), dev.data(), n);
        append_points(buf, dev.data(), n);
        flush_buffer(buf, out, out_name);
    }
    if (file) {
        file->commit();
    } else if (std::fflush(stdout) != 0) {
        throw ToolError("standard output: write failed");
    }
}

namespace {

struct CorrectOptions {
    std::string calibration;
    std::string points = "-";
    std::string output;
    std::string mode = "grid";
    std::string box;
    std::vector<float> scale;
    std::vector<float> shift;
    bool linear = false;
};

void run_correct(const CorrectOptions& o) {
    Calibration cal = load_calibration(o.calibration);
    tagLenPar& par = cal.par;
    if (o.mode == "box" || !o.box.empty()) {
        par.CalMode = 0;
        if (!o.box.empty()) apply_box_file(o.box, par);
    }
    Conversion conv = Conversion::Corrected;
    if (!o.scale.empty() || !o.shift.empty()) {
        conv = Conversion::ScaleAndShift;
        if (!o.scale.empty()) {
            par.SftScaleX = o.scale[0];
            par.SftScaleY = o.scale[1];
        }
        if (!o.shift.empty()) {
            par.SftShiftX = o.shift[0];
            par.SftShiftY = o.shift[1];
        }
    }
    if (o.linear) conv = Conversion::Linear;

    correct_points(par, conv, o.points, o.output);
}

}  // namespace

void add_correct_command(CLI::App& app, Context&) {
    auto* cmd = app.add_subcommand("correct", "Correct field points to device counts");
    auto o = std::make_shared<CorrectOptions>();
    cmd->add_option("FILE", o->calibration, "Calibration data file or correction table")->required();
    cmd->add_option("POINTS", o->points,
                    "Field points, one 'x y' or 'x,y' per line ('#' comments, a header line allowed); "
                    "'-' or nothing reads standard input");
    cmd->add_option("-o,--output", o->output, "Write the device points here instead of standard output");
    auto* mode = cmd->add_option("--mode", o->mode, "Correction: grid (nine points and grids) or box (manual box "
                                                    "parameters)")
                     ->check(CLI::IsMember({"grid", "box"}))
                     ->capture_default_str();
    cmd->add_option("--box", o->box, "Box parameters: an INI file with a [Box] section (implies --mode box)");
    auto* scale = cmd->add_option("--scale", o->scale, "Scale about the device centre after the correction: SX,SY")
                      ->expected(2)
                      ->delimiter(',');
    auto* shift = cmd->add_option("--shift", o->shift, "Shift after the correction, in field units: DX,DY")
                      ->expected(2)
                      ->delimiter(',');
    auto* linear = cmd->add_flag("--linear", o->linear, "Plain linear conversion without any correction");
    linear->excludes(mode)->excludes(scale)->excludes(shift);
    cmd->footer("Each output line is 'x y' in device counts (0 .. Resolution), in the shortest form that\n"
                "reads back as the same float.  --scale or --shift switch on the scale-and-shift\n"
                "conversion; a calibration file does not store the correction mode, so grid is the\n"
                "default.\n\nExamples:\n"
                "  vrncal correct examples/sample.cor examples/points.txt\n"
                "  echo '10 -5' | vrncal correct examples/sample.cor\n"
                "  vrncal correct examples/sample.cor examples/points.txt --box examples/box.ini -o counts.txt");
    cmd->callback([o, mode] {
        if (mode->count() > 0 && o->mode == "grid" && !o->box.empty())
            throw ToolError("correct: --box sets box parameters and cannot be used with --mode grid");
        run_correct(*o);
    });
}

}  // namespace vrncal::tools
