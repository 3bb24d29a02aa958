#include "workflow/plot_data.h"

#include <algorithm>
#include <cmath>

#include <vrncal/batch.h>

#include "workflow/evaluate.h"

namespace vrncal::workflow {

PlotData plot_data(const tagLenPar& par, int lines, std::optional<double> factor, const Head* head) {
    PlotData d;
    d.val_size = par.ValSize;
    const double half = 0.5 * par.ValSize;
    const double kc = par.Resolution / par.FieldSize;
    const int samples = 8 * (lines - 1) + 1;
    const Corrector corrector(par);
    // Drive positions back in field units, so they compare with nominal.
    auto drive_at = [&](double x, double y) {
        tagKelPointF dev{};
        corrector.correct(tagKelPointF{static_cast<float>(x), static_cast<float>(y)}, dev);
        return PlotPoint{(dev.x - par.HalfResolution) / kc, (dev.y - par.HalfResolution) / kc};
    };
    std::vector<std::vector<PlotPoint>> deviations;
    for (int dir = 0; dir < 2; ++dir)
        for (int i = 0; i < lines; ++i) {
            const double fixed = -half + i * par.ValSize / (lines - 1);
            std::vector<PlotPoint> nominal, dev;
            for (int k = 0; k < samples; ++k) {
                const double t = -half + k * par.ValSize / (samples - 1);
                const double x = dir == 0 ? t : fixed, y = dir == 0 ? fixed : t;
                const PlotPoint p = drive_at(x, y);
                nominal.push_back({x, y});
                dev.push_back({p.x - x, p.y - y});
                d.max_deviation = std::max(d.max_deviation, std::hypot(p.x - x, p.y - y));
            }
            d.nominal.push_back(std::move(nominal));
            deviations.push_back(std::move(dev));
        }
    d.factor = factor ? *factor : auto_factor(d.max_deviation, par.ValSize);
    for (std::size_t l = 0; l < d.nominal.size(); ++l) {
        std::vector<PlotPoint> line;
        for (std::size_t k = 0; k < d.nominal[l].size(); ++k)
            line.push_back({d.nominal[l][k].x + d.factor * deviations[l][k].x,
                            d.nominal[l][k].y + d.factor * deviations[l][k].y});
        d.drive.push_back(std::move(line));
    }
    if (head != nullptr) {
        d.cells = 120;
        std::vector<tagKelPointF> centres;
        for (int r = 0; r < d.cells; ++r)
            for (int c = 0; c < d.cells; ++c)
                centres.push_back(tagKelPointF{static_cast<float>(-half + (c + 0.5) * par.ValSize / d.cells),
                                               static_cast<float>(half - (r + 0.5) * par.ValSize / d.cells)});
        d.error_um = landing_errors_um(*head, par, centres, true);
    }
    return d;
}

double auto_factor(double max_deviation, double val_size) {
    if (!(max_deviation > 0.0)) return 1.0;
    const double want = val_size / 20.0 / max_deviation;
    if (want <= 1.0) return 1.0;
    const double p = std::pow(10.0, std::floor(std::log10(want)));
    double best = p;
    for (double m : {1.0, 2.0, 5.0})
        if (m * p <= want) best = m * p;
    return best;
}

}  // namespace vrncal::workflow
