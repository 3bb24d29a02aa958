#include "workflow/simulate.h"

#include <cmath>
#include <fmt/format.h>
#include <set>

#include "workflow/error.h"
#include "workflow/table_file.h"

namespace vrncal::workflow {

namespace {

constexpr double kPi = 3.14159265358979323846;

}  // namespace

void Noise::pair(double& a, double& b) {
    if (sigma_ == 0.0) {
        a = b = 0.0;
        return;
    }
    // u1 in (0, 1] keeps the logarithm finite; u2 in [0, 1).
    const double u1 = static_cast<double>((gen_() >> 11) + 1) * 0x1p-53;
    const double u2 = static_cast<double>(gen_() >> 11) * 0x1p-53;
    const double radius = std::sqrt(-2.0 * std::log(u1)) * sigma_;
    a = radius * std::cos(2.0 * kPi * u2);
    b = radius * std::sin(2.0 * kPi * u2);
}

std::vector<tagKelPointF> measure_marks(const Head& head, const tagLenPar& par, const std::vector<Mark>& marks,
                                        Noise& noise, double noise_um) {
    const double sigma = noise_um / 1000.0;  // field units are millimetres
    std::vector<tagKelPointF> measured;
    measured.reserve(marks.size());
    for (const auto& m : marks) {
        const auto hit = land_in_caller_frame(head, par, tagKelPointF{m.u, m.v});
        if (!std::isfinite(hit.x) || !std::isfinite(hit.y))
            throw Error(fmt::format("simulate: the lens sends the spot for ({}, {}) off the work plane; check "
                                    "the focal length",
                                    m.x, m.y));
        double nx, ny;
        noise.pair(nx, ny);
        measured.push_back(tagKelPointF{static_cast<float>(hit.x + nx * sigma), static_cast<float>(hit.y + ny * sigma)});
    }
    return measured;
}

tagLenPar settings_record(const TableContent& t) {
    tagLenPar par;
    par.FieldSize = t.field_size.value_or(100.0);
    par.ValSize = static_cast<float>(t.val_size);
    par.Resolution = t.resolution;
    par.LEN_XYFLIP = par.XYFlip = t.xy_flip;
    par.LEN_XINVERT = par.XInvert = t.x_invert;
    par.LEN_YINVERT = par.YInvert = t.y_invert;
    par.CalMode = 1;
    return par;
}

void check_simulate_options(const SimulateOptions& opt) {
    std::set<int> seen;
    for (int n : opt.grids) {
        if (n != 5 && n != 9 && n != 17 && n != 25 && n != 33 && n != 65)
            throw Error(fmt::format("simulate: grid size {}: a grid has 5, 9, 17, 25, 33 or 65 points per side", n));
        if (!seen.insert(n).second) throw Error(fmt::format("simulate: grid size {} is listed twice", n));
    }
    if (!(opt.val_size > 1.0) || !(opt.val_size <= opt.field_size))
        throw Error(fmt::format("simulate: the calibrated field (ValSize) must be above 1 and at most the field "
                                "size {}", opt.field_size));
    if (!(opt.noise_um >= 0.0)) throw Error("simulate: the noise must not be negative");
}

TableContent simulate_calibration(const SimulateOptions& opt) {
    check_simulate_options(opt);
    TableContent t;
    t.field_size = opt.field_size;
    t.val_size = opt.val_size;
    t.xy_flip = opt.xy_flip;
    t.x_invert = opt.x_invert;
    t.y_invert = opt.y_invert;
    Noise noise(opt.seed, opt.noise_um == 0.0 ? 0.0 : 1.0);
    const Head& head = *opt.head;

    // 1. Nine points, driven linearly.
    const tagLenPar plain = settings_record(t);
    head.check_range(plain);
    const auto nine = plan_marks(plain, 3, Drive::Linear);
    const auto pts = stored_points(plain, 3, nine, measure_marks(head, plain, nine, noise, opt.noise_um));
    std::copy(pts.begin(), pts.end(), t.nine);

    // 2 and 3. Each grid through the correction as it stands.
    for (int n : opt.grids) {
        const tagLenPar par = load_table_text(table_text(t), opt.field_size);
        const auto marks = plan_marks(par, n, Drive::Corrected);
        tagStack stack;
        stack.Size = n;
        stack.InOrder = 1;
        stack.Points = stored_points(par, n, marks, measure_marks(head, par, marks, noise, opt.noise_um));
        t.grids.push_back(std::move(stack));
    }
    t.comments.push_back("Simulated calibration, written by vrncal simulate.");
    for (const auto& line : head.describe()) t.comments.push_back(line);
    std::string grids;
    for (int n : opt.grids) grids += fmt::format(" {}", n);
    t.comments.push_back(
        fmt::format("noise {} um, seed {}, grids{}", opt.noise_um, opt.seed, grids.empty() ? " none" : grids));
    return t;
}

}  // namespace vrncal::workflow
