#include "workflow/fit_report.h"

#include <cmath>
#include <fmt/format.h>

#include <vrncal/facade.h>

#include "workflow/error.h"
#include "workflow/measure.h"
#include "workflow/numbers.h"

namespace vrncal::workflow {

namespace {

bool drives_to(const tagLenPar& par, tagKelPointF target, tagKelPointF drive) {
    tagKelPointF now{};
    VrnCal().CalibPoint(par, target, now);
    return std::fabs(double{now.x} - drive.x) <= 0.01 && std::fabs(double{now.y} - drive.y) <= 0.01;
}

}  // namespace

FitReport fit_report(const tagLenPar& par, const LengthUnit& unit, const Head* head,
                     const std::vector<VerificationMark>* marks, const std::string& marks_path) {
    FitReport r;
    r.fit = fit_nine_points(par);
    tagLenPar nine = par;  // the nine-point model alone
    nine.Stacks.clear();
    nine.CalMode = 1;
    tagLenPar full = par;
    full.CalMode = 1;
    const double to_unit = unit.per_field_unit / 1000.0;  // the fit residuals come in um of mm
    const double near = 1e-6 * par.ValSize;
    bool through_nine = true, through_full = true, any_drive = false;
    for (std::size_t i = 0; i < 9; ++i) {
        NineTarget& t = r.targets[i];
        const auto& res = r.fit.residuals[i];
        // The nine points are kept in the frame the model sees; the target a
        // host asks for is that point with the sign rule undone.
        double x = res.point.X, y = res.point.Y;
        apply_sign_rule(par, x, y);
        t.target = {static_cast<float>(x), static_cast<float>(y)};
        t.dx = res.dx_um * to_unit;
        t.dy = res.dy_um * to_unit;
        t.residual = std::hypot(t.dx, t.dy);
        if (head != nullptr) {
            tagKelPointF c{};
            VrnCal().CalibPoint(nine, t.target, c);
            t.model_error = landing_error(*head, par, t.target, c) * unit.per_field_unit;
            VrnCal().CalibPoint(full, t.target, c);
            t.full_error = landing_error(*head, par, t.target, c) * unit.per_field_unit;
        }
        if (marks == nullptr) continue;
        for (const auto& m : *marks) {
            if (!(std::fabs(double{m.target.x} - t.target.x) <= near && std::fabs(double{m.target.y} - t.target.y) <= near))
                continue;
            t.measured_error = std::hypot(double{m.measured.x} - m.target.x, double{m.measured.y} - m.target.y) *
                               unit.per_field_unit;
            ++r.measured_found;
            if (m.has_drive) {
                any_drive = true;
                through_nine = through_nine && drives_to(nine, m.target, m.drive);
                through_full = through_full && drives_to(full, m.target, m.drive);
                if (!through_nine && !through_full)
                    throw Error(fmt::format("{}:{}: the mark at ({}, {}) was driven to ({}, {}), through neither the "
                                            "nine-point model nor the whole calibration: it was marked through "
                                            "another calibration",
                                            marks_path, m.line, fmt_num(m.target.x), fmt_num(m.target.y),
                                            fmt_num(m.drive.x), fmt_num(m.drive.y)));
            }
            break;
        }
    }
    if (marks != nullptr)
        r.measured_through = !any_drive ? "" : through_full ? "the whole calibration" : "the nine-point model";
    for (const tagStack& s : par.Stacks) {
        GridFit g;
        g.size = s.Size;
        const Deviation d = deviation(s);
        g.max = d.max * unit.per_field_unit;
        g.rms = d.rms * unit.per_field_unit;
        g.looks_linear = grid_looks_linear(par, s, g.to_nine, g.to_nominal);
        g.to_nine *= unit.per_field_unit;
        g.to_nominal *= unit.per_field_unit;
        r.grids.push_back(g);
    }
    return r;
}

}  // namespace vrncal::workflow
