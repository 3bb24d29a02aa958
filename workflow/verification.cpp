#include "workflow/verification.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include <vrncal/batch.h>

#include "workflow/csv.h"
#include "workflow/error.h"
#include "workflow/evaluate.h"
#include "workflow/numbers.h"
#include "workflow/simulate.h"

namespace vrncal::workflow {

namespace {

constexpr double kDriveTolerance = 0.01;  // counts

// Statistics that a NaN spoils rather than drops out of.
ErrorStats stats_of(const std::vector<double>& errors) {
    for (double e : errors)
        if (!std::isfinite(e)) {
            ErrorStats s;
            s.count = errors.size();
            s.max = s.rms = s.p95 = std::nan("");
            return s;
        }
    return summarize(errors);
}

// The gain the correction applies a grid residual with, per output axis.
void residual_gains(const tagLenPar& par, double& gx, double& gy) {
    gx = par.XYFlip != 0 ? par.CalCoefs.ScaleY : par.CalCoefs.ScaleX;
    gy = par.XYFlip != 0 ? par.CalCoefs.ScaleX : par.CalCoefs.ScaleY;
}

}  // namespace

std::vector<VerificationMark> read_verification(const std::string& path) {
    const CsvFile f = read_csv(path);
    int x = -1, y = -1, mx = -1, my = -1, u = -1, v = -1;
    if (f.header_line == 0) {
        const std::size_t n = f.rows.empty() ? 0 : f.rows.front().fields.size();
        if (n != 4)
            throw Error(fmt::format("{}:{}: without a header a verification file has 4 columns (x, y, measured x, "
                                    "measured y), not {}",
                                    path, f.rows.empty() ? 0 : f.rows.front().line, n));
        x = 0, y = 1, mx = 2, my = 3;
    } else {
        x = f.column("x"), y = f.column("y"), mx = f.column("measured_x"), my = f.column("measured_y");
        u = f.column("u"), v = f.column("v");
        if (x < 0 || y < 0 || mx < 0 || my < 0)
            throw Error(fmt::format("{}:{}: a verification file needs the columns x, y (the target) and measured_x, "
                                    "measured_y (where the mark landed)",
                                    path, f.header_line));
        if ((u < 0) != (v < 0)) throw Error(fmt::format("{}:{}: the drive needs both columns u and v", path, f.header_line));
    }
    std::vector<VerificationMark> marks;
    for (const auto& row : f.rows) {
        if (row.fields.size() < 4 && f.header_line == 0)
            throw Error(fmt::format("{}:{}: {} fields, not 4", path, row.line, row.fields.size()));
        VerificationMark m;
        m.line = row.line;
        m.target = {static_cast<float>(f.number(row, x, "x")), static_cast<float>(f.number(row, y, "y"))};
        m.measured = {static_cast<float>(f.number(row, mx, "measured_x")),
                      static_cast<float>(f.number(row, my, "measured_y"))};
        if (u >= 0) {
            m.has_drive = true;
            m.drive = {static_cast<float>(f.number(row, u, "u")), static_cast<float>(f.number(row, v, "v"))};
        }
        marks.push_back(m);
    }
    if (marks.empty()) throw Error(path + ": no measurements");
    return marks;
}

void check_drives(const tagLenPar& par, const std::string& path, const std::vector<VerificationMark>& marks) {
    const Corrector corrector(par);
    for (const auto& m : marks) {
        if (!m.has_drive) continue;
        tagKelPointF now{};
        corrector.correct(m.target, now);
        if (!(std::fabs(double{now.x} - m.drive.x) <= kDriveTolerance &&
              std::fabs(double{now.y} - m.drive.y) <= kDriveTolerance))
            throw Error(fmt::format("{}:{}: the mark at ({}, {}) was driven to ({}, {}), but the calibration drives it "
                                    "to ({}, {}): it was marked through another calibration (or field size)",
                                    path, m.line, fmt_num(m.target.x), fmt_num(m.target.y), fmt_num(m.drive.x),
                                    fmt_num(m.drive.y), fmt_num(now.x), fmt_num(now.y)));
    }
}

std::vector<Mark> verification_marks(const tagLenPar& par, int n) {
    if (n < 2 || n > 201) throw Error("a verification job has 2 to 201 targets per side");
    const auto targets = target_pattern(n, par.ValSize);
    std::vector<tagKelPointF> drives(targets.size());
    tagLenPar p = par;
    p.CalMode = 1;
    Corrector(p).correct(targets.data(), drives.data(), targets.size());
    std::vector<Mark> marks;
    for (std::size_t i = 0; i < targets.size(); ++i) {
        Mark m;
        m.index = static_cast<int>(i);
        m.row = static_cast<int>(i) / n;
        m.column = static_cast<int>(i) % n;
        m.x = targets[i].x;
        m.y = targets[i].y;
        m.u = drives[i].x;
        m.v = drives[i].y;
        marks.push_back(m);
    }
    return marks;
}

std::vector<VerificationMark> simulated_verification(const Head& head, const tagLenPar& par,
                                                     const std::vector<Mark>& marks) {
    Noise none(1, 0.0);
    const auto measured = measure_marks(head, par, marks, none, 0.0);
    std::vector<VerificationMark> out;
    for (std::size_t i = 0; i < marks.size(); ++i)
        out.push_back({static_cast<int>(i) + 1, {marks[i].x, marks[i].y}, measured[i], true, {marks[i].u, marks[i].v}});
    return out;
}

LandingReport landing_report(const tagLenPar& par, const std::vector<VerificationMark>& marks,
                             const LengthUnit& unit) {
    LandingReport r;
    r.half = 0.5 * par.ValSize;
    std::vector<double> all, ring[3];
    double sx = 0.0, sy = 0.0;
    for (const auto& m : marks) {
        PointError p;
        p.mark = m;
        p.dx = (double{m.measured.x} - m.target.x) * unit.per_field_unit;
        p.dy = (double{m.measured.y} - m.target.y) * unit.per_field_unit;
        p.error = std::hypot(p.dx, p.dy);
        const double reach = std::max(std::fabs(double{m.target.x}), std::fabs(double{m.target.y})) / r.half;
        p.ring = reach <= 1.0 / 3.0 ? 0 : reach <= 2.0 / 3.0 ? 1 : 2;
        all.push_back(p.error);
        ring[p.ring].push_back(p.error);
        sx += p.dx;
        sy += p.dy;
        r.points.push_back(p);
    }
    r.overall = stats_of(all);
    r.mean_dx = all.empty() ? 0.0 : sx / static_cast<double>(all.size());
    r.mean_dy = all.empty() ? 0.0 : sy / static_cast<double>(all.size());
    const char* names[3] = {"inner third", "middle third", "outer third"};
    for (int k = 0; k < 3; ++k) r.rings[k] = {names[k], stats_of(ring[k])};
    return r;
}

PlotData measured_plot_data(const tagLenPar& par, const LandingReport& report, const LengthUnit& unit,
                            std::optional<double> factor) {
    PlotData d;
    d.val_size = par.ValSize;
    const double half = 0.5 * par.ValSize;
    const int lines = 17;
    for (int dir = 0; dir < 2; ++dir)
        for (int i = 0; i < lines; ++i) {
            const double fixed = -half + i * par.ValSize / (lines - 1);
            d.nominal.push_back({dir == 0 ? PlotPoint{-half, fixed} : PlotPoint{fixed, -half},
                                 dir == 0 ? PlotPoint{half, fixed} : PlotPoint{fixed, half}});
        }
    for (const auto& p : report.points)
        d.arrows.push_back({p.mark.target.x, p.mark.target.y, p.dx / unit.per_field_unit, p.dy / unit.per_field_unit});
    const double largest = std::isfinite(report.overall.max) ? report.overall.max / unit.per_field_unit : 0.0;
    d.max_deviation = largest;
    d.factor = factor ? *factor : auto_factor(largest, par.ValSize);
    d.arrow_label = "measured landing error";
    d.subtitle = fmt::format("measured landing errors of {} marks, arrows x {} (largest {:.{}f} {}, rms {:.{}f} {})",
                             report.points.size(), d.factor, report.overall.max, unit.decimals, unit.name,
                             report.overall.rms, unit.decimals, unit.name);
    return d;
}

Holdout holdout_check(const tagLenPar& par, const LengthUnit& unit) {
    std::size_t finest = par.Stacks.size();
    for (std::size_t i = 0; i < par.Stacks.size(); ++i) {
        const tagStack& s = par.Stacks[i];
        const bool whole = s.Size >= 5 && s.Size % 2 == 1 &&
                           s.Points.size() >= static_cast<std::size_t>(s.Size) * static_cast<std::size_t>(s.Size);
        if (whole && (finest == par.Stacks.size() || s.Size >= par.Stacks[finest].Size)) finest = i;
    }
    if (finest == par.Stacks.size())
        throw Error("the held-out check needs a grid of 5 or more points per side, and the calibration has none");
    const tagStack& full = par.Stacks[finest];
    Holdout h;
    h.size = full.Size;
    h.kept = (full.Size + 1) / 2;
    tagLenPar thin = par;
    tagStack& kept = thin.Stacks[finest];
    kept.Size = h.kept;
    kept.Points.clear();
    std::vector<tagCalData> out;
    for (int r = 0; r < full.Size; ++r)
        for (int c = 0; c < full.Size; ++c) {
            const tagCalData& p = full.Points[static_cast<std::size_t>(r * full.Size + c)];
            (r % 2 == 0 && c % 2 == 0 ? kept.Points : out).push_back(p);
        }
    h.left_out = out.size();
    const double kc = par.Resolution / par.FieldSize;
    double gx, gy;
    residual_gains(par, gx, gy);
    const Corrector with(par), without(thin);
    std::vector<double> error, deviation;
    double worst = -1.0;
    for (const tagCalData& p : out) {
        const tagKelPointF target{p.X, p.Y};
        tagKelPointF a{}, b{};
        with.correct(target, a);
        without.correct(target, b);
        const double e = std::hypot((double{b.x} - a.x) / (kc * gx), (double{b.y} - a.y) / (kc * gy)) *
                         unit.per_field_unit;
        error.push_back(e);
        deviation.push_back(std::hypot(double{p.RealX} - p.X, double{p.RealY} - p.Y) * unit.per_field_unit);
        if (!(e <= worst)) worst = e, h.worst = target;
    }
    h.error = stats_of(error);
    h.deviation = stats_of(deviation);
    return h;
}

}  // namespace vrncal::workflow
