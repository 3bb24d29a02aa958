#include "workflow/diff.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fmt/format.h>

#include <vrncal/batch.h>

#include "workflow/error.h"

namespace vrncal::workflow {

namespace {

// Distance between two drive positions in counts; NaN unless both are finite.
double distance(tagKelPointF a, tagKelPointF b) {
    if (!std::isfinite(a.x) || !std::isfinite(a.y) || !std::isfinite(b.x) || !std::isfinite(b.y))
        return std::nan("");
    return std::hypot(double{b.x} - a.x, double{b.y} - a.y);
}

bool same_bits(tagKelPointF a, tagKelPointF b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

}  // namespace

void check_comparable(const tagLenPar& a, const tagLenPar& b, const std::string& name_a, const std::string& name_b) {
    if (a.Resolution != b.Resolution || a.HalfResolution != b.HalfResolution || a.FieldSize != b.FieldSize)
        throw Error(fmt::format("{} and {} drive different device ranges (Resolution {} and {}, HalfResolution {} "
                                "and {}, FieldSize {} and {}): their counts do not compare",
                                name_a, name_b, a.Resolution, b.Resolution, a.HalfResolution, b.HalfResolution,
                                a.FieldSize, b.FieldSize));
}

Difference diff_calibrations(const tagLenPar& a, const tagLenPar& b, int pattern) {
    if (pattern < 2 || pattern > 2001) throw Error("the raster takes 2 to 2001 targets per side");
    Difference d;
    d.pattern = pattern;
    d.half = 0.5 * std::min(a.ValSize, b.ValSize);
    d.counts_per_unit = a.Resolution / a.FieldSize;
    std::vector<tagKelPointF> targets;
    for (int r = 0; r < pattern; ++r)
        for (int c = 0; c < pattern; ++c)
            targets.push_back({static_cast<float>(-d.half + c * 2 * d.half / (pattern - 1)),
                               static_cast<float>(d.half - r * 2 * d.half / (pattern - 1))});
    std::vector<tagKelPointF> nodes;
    for (const tagLenPar* p : {&a, &b})
        for (const tagStack& s : p->Stacks)
            for (const tagCalData& n : s.Points)
                if (std::fabs(n.X) <= d.half && std::fabs(n.Y) <= d.half) nodes.push_back({n.X, n.Y});
    std::sort(nodes.begin(), nodes.end(),
              [](tagKelPointF p, tagKelPointF q) { return p.x < q.x || (p.x == q.x && p.y < q.y); });
    nodes.erase(std::unique(nodes.begin(), nodes.end(),
                            [](tagKelPointF p, tagKelPointF q) { return p.x == q.x && p.y == q.y; }),
                nodes.end());
    d.nodes = nodes.size();
    targets.insert(targets.end(), nodes.begin(), nodes.end());
    d.points = targets.size();

    std::vector<tagKelPointF> ca(targets.size()), cb(targets.size());
    Corrector(a).correct(targets.data(), ca.data(), targets.size());
    Corrector(b).correct(targets.data(), cb.data(), targets.size());
    double sum_sq = 0.0;
    for (std::size_t i = 0; i < targets.size(); ++i) {
        if (!same_bits(ca[i], cb[i])) ++d.differing;
        const double e = distance(ca[i], cb[i]);
        if (!std::isfinite(e)) {
            ++d.not_finite;
            continue;
        }
        sum_sq += e * e;
        d.max_x_counts = std::max(d.max_x_counts, std::fabs(double{cb[i].x} - ca[i].x));
        d.max_y_counts = std::max(d.max_y_counts, std::fabs(double{cb[i].y} - ca[i].y));
        if (e > d.max_counts || i == 0) {
            d.max_counts = e;
            d.where = targets[i];
            d.at_a = ca[i];
            d.at_b = cb[i];
        }
    }
    if (d.not_finite > 0) {
        d.max_counts = d.rms_counts = std::nan("");
    } else {
        d.rms_counts = std::sqrt(sum_sq / static_cast<double>(targets.size()));
    }
    return d;
}

PlotData diff_plot_data(const tagLenPar& a, const tagLenPar& b, const LengthUnit& unit) {
    PlotData d;
    d.val_size = std::min(a.ValSize, b.ValSize);
    const double half = 0.5 * d.val_size;
    const double kc = a.Resolution / a.FieldSize;
    const Corrector ca(a), cb(b);
    // B - A in field units at a field point.
    auto shift = [&](double x, double y) {
        const tagKelPointF p{static_cast<float>(x), static_cast<float>(y)};
        tagKelPointF ua, ub;
        ca.correct(p, ua);
        cb.correct(p, ub);
        return PlotPoint{(double{ub.x} - ua.x) / kc, (double{ub.y} - ua.y) / kc};
    };
    const int lines = 17;
    for (int dir = 0; dir < 2; ++dir)
        for (int i = 0; i < lines; ++i) {
            const double fixed = -half + i * d.val_size / (lines - 1);
            d.nominal.push_back({dir == 0 ? PlotPoint{-half, fixed} : PlotPoint{fixed, -half},
                                 dir == 0 ? PlotPoint{half, fixed} : PlotPoint{fixed, half}});
        }
    d.cells = 120;
    for (int r = 0; r < d.cells; ++r)
        for (int c = 0; c < d.cells; ++c) {
            const PlotPoint s = shift(-half + (c + 0.5) * d.val_size / d.cells, half - (r + 0.5) * d.val_size / d.cells);
            d.error_um.push_back(std::hypot(s.x, s.y) * unit.per_field_unit);
        }
    double largest = 0.0;
    for (int r = 0; r < lines; ++r)
        for (int c = 0; c < lines; ++c) {
            const double x = -half + c * d.val_size / (lines - 1), y = half - r * d.val_size / (lines - 1);
            const PlotPoint s = shift(x, y);
            d.arrows.push_back({x, y, s.x, s.y});
            if (std::isfinite(s.x) && std::isfinite(s.y)) largest = std::max(largest, std::hypot(s.x, s.y));
        }
    d.max_deviation = largest;
    d.factor = auto_factor(largest, d.val_size);
    d.arrow_label = "move of the drive position, B - A";
    d.subtitle = fmt::format("B - A: drive positions moved, arrows x {} (largest {:.{}f} {} on the raster)",
                             d.factor, largest * unit.per_field_unit, unit.decimals, unit.name);
    d.colour_label = fmt::format("|B - A| ({})", unit.name);
    return d;
}

}  // namespace vrncal::workflow
