#include "workflow/measured_head.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <filesystem>
#include <map>

#include "workflow/csv.h"
#include "workflow/error.h"

namespace vrncal::workflow {

Spline::Spline(std::vector<double> t, std::vector<double> y) : t_(std::move(t)), y_(std::move(y)), m_(t_.size(), 0.0) {
    // Second derivatives with zero at both ends: the tridiagonal system of
    // the continuity of the first derivative, by the Thomas algorithm.
    const std::size_t n = t_.size();
    if (n < 3) return;
    std::vector<double> c(n, 0.0), d(n, 0.0);
    for (std::size_t i = 1; i + 1 < n; ++i) {
        const double h0 = t_[i] - t_[i - 1], h1 = t_[i + 1] - t_[i];
        const double a = h0 / 6.0, b = (h0 + h1) / 3.0, cc = h1 / 6.0;
        const double r = (y_[i + 1] - y_[i]) / h1 - (y_[i] - y_[i - 1]) / h0;
        const double den = b - a * c[i - 1];
        c[i] = cc / den;
        d[i] = (r - a * d[i - 1]) / den;
    }
    for (std::size_t i = n - 2; i >= 1; --i) m_[i] = d[i] - c[i] * m_[i + 1];
}

double Spline::operator()(double x) const {
    const std::size_t n = t_.size();
    std::size_t i = static_cast<std::size_t>(std::upper_bound(t_.begin(), t_.end(), x) - t_.begin());
    i = std::clamp<std::size_t>(i, 1, n - 1) - 1;
    const double h = t_[i + 1] - t_[i];
    const double a = (t_[i + 1] - x) / h, b = (x - t_[i]) / h;
    return a * y_[i] + b * y_[i + 1] + ((a * a * a - a) * m_[i] + (b * b * b - b) * m_[i + 1]) * h * h / 6.0;
}

MeasuredHead::MeasuredHead(std::string name, std::vector<double> u, std::vector<double> v, std::vector<double> x,
                           std::vector<double> y)
    : name_(std::move(name)), u_(std::move(u)), v_(std::move(v)) {
    const std::size_t nu = u_.size();
    for (std::size_t j = 0; j < v_.size(); ++j) {
        rows_x_.emplace_back(u_, std::vector<double>(x.begin() + j * nu, x.begin() + (j + 1) * nu));
        rows_y_.emplace_back(u_, std::vector<double>(y.begin() + j * nu, y.begin() + (j + 1) * nu));
    }
}

Head::Landing MeasuredHead::land(const tagLenPar&, tagKelPointF counts) const {
    const double u = counts.x, v = counts.y;
    const double tol = 0.5;  // half a count: the drives a record clamps to its range
    if (!(u >= u_.front() - tol && u <= u_.back() + tol && v >= v_.front() - tol && v <= v_.back() + tol))
        throw Error(fmt::format("{}: the drive ({}, {}) lies outside the measured data (u {} to {}, v {} to {}): "
                                "calibrate a smaller field",
                                name_, counts.x, counts.y, u_.front(), u_.back(), v_.front(), v_.back()));
    std::vector<double> cx(v_.size()), cy(v_.size());
    for (std::size_t j = 0; j < v_.size(); ++j) {
        cx[j] = rows_x_[j](u);
        cy[j] = rows_y_[j](u);
    }
    return {Spline(v_, std::move(cx))(v), Spline(v_, std::move(cy))(v)};
}

void MeasuredHead::check_range(const tagLenPar&) const {}

std::vector<std::string> MeasuredHead::describe() const {
    return {fmt::format("head: measured data {}, {} x {} drives, u {} to {}, v {} to {}",
                        std::filesystem::path(name_).filename().string(), u_.size(), v_.size(),
                        u_.front(), u_.back(), v_.front(), v_.back())};
}

MeasuredHead read_measured_head(const std::string& path) {
    const CsvFile f = read_csv(path);
    int cu = f.column("u"), cv = f.column("v"), cx = f.column("x"), cy = f.column("y");
    if (f.header_line == 0) cu = 0, cv = 1, cx = 2, cy = 3;
    if (cu < 0 || cv < 0 || cx < 0 || cy < 0)
        throw Error(fmt::format("{}:{}: head data needs the columns u, v (drive, counts) and x, y (landing)", path,
                                f.header_line));
    struct Sample {
        double x, y;
        int line;
    };
    std::map<std::pair<double, double>, Sample> samples;  // by (v, u)
    std::vector<double> us, vs;
    for (const auto& row : f.rows) {
        const double u = f.number(row, cu, "u"), v = f.number(row, cv, "v");
        const Sample s{f.number(row, cx, "x"), f.number(row, cy, "y"), row.line};
        const auto [it, fresh] = samples.emplace(std::make_pair(v, u), s);
        if (!fresh)
            throw Error(fmt::format("{}:{}: the drive ({}, {}) appears a second time (first on line {})", path,
                                    row.line, u, v, it->second.line));
        us.push_back(u);
        vs.push_back(v);
    }
    for (auto* axis : {&us, &vs}) {
        std::sort(axis->begin(), axis->end());
        axis->erase(std::unique(axis->begin(), axis->end()), axis->end());
    }
    if (us.size() < 4 || vs.size() < 4)
        throw Error(fmt::format("{}: head data needs at least 4 x 4 drives on a regular grid, not {} x {}", path,
                                us.size(), vs.size()));
    std::vector<double> xs, ys;
    for (double v : vs)
        for (double u : us) {
            const auto it = samples.find({v, u});
            if (it == samples.end())
                throw Error(fmt::format("{}: the drive ({}, {}) is missing: the drives must form a full grid of the "
                                        "{} u values and {} v values the file uses",
                                        path, u, v, us.size(), vs.size()));
            xs.push_back(it->second.x);
            ys.push_back(it->second.y);
        }
    // The head's frame: x grows with u along every row, y with v along every
    // column.  Swapped or mirrored columns show here.
    const std::size_t nu = us.size();
    for (std::size_t j = 0; j < vs.size(); ++j)
        for (std::size_t i = 0; i + 1 < nu; ++i) {
            const auto& a = samples.at({vs[j], us[i]});
            const auto& b = samples.at({vs[j], us[i + 1]});
            if (!(b.x > a.x))
                throw Error(fmt::format("{}:{}: x does not grow with u (x {} at u {}, line {}; x {} at u {}): the "
                                        "landing must be in the head's frame, x along u and y along v",
                                        path, b.line, a.x, us[i], a.line, b.x, us[i + 1]));
        }
    for (std::size_t i = 0; i < nu; ++i)
        for (std::size_t j = 0; j + 1 < vs.size(); ++j) {
            const auto& a = samples.at({vs[j], us[i]});
            const auto& b = samples.at({vs[j + 1], us[i]});
            if (!(b.y > a.y))
                throw Error(fmt::format("{}:{}: y does not grow with v (y {} at v {}, line {}; y {} at v {}): the "
                                        "landing must be in the head's frame, x along u and y along v",
                                        path, b.line, a.y, vs[j], a.line, b.y, vs[j + 1]));
        }
    return MeasuredHead(path, std::move(us), std::move(vs), std::move(xs), std::move(ys));
}

}  // namespace vrncal::workflow
