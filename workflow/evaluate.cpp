#include "workflow/evaluate.h"

#include <cmath>
#include <fmt/format.h>

#include <vrncal/batch.h>
#include <vrncal/facade.h>

#include "workflow/error.h"
#include "workflow/head.h"

namespace vrncal::workflow {

std::vector<tagKelPointF> target_pattern(int n, double val_size) {
    std::vector<tagKelPointF> pts;
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c)
            pts.push_back(tagKelPointF{static_cast<float>(-0.5 * val_size + c * val_size / (n - 1)),
                                       static_cast<float>(0.5 * val_size - r * val_size / (n - 1))});
    return pts;
}

std::vector<double> landing_errors_um(const Head& head, const tagLenPar& par,
                                      const std::vector<tagKelPointF>& targets, bool corrected, bool placed) {
    const std::size_t n = targets.size();
    std::vector<tagKelPointF> counts(n);
    if (corrected) {
        Corrector(par).correct(targets.data(), counts.data(), n);
    } else {
        VrnCal vc;
        for (std::size_t i = 0; i < n; ++i) vc.LP2DPEX_Cal(targets[i], counts[i], par);
    }
    std::vector<Head::Landing> hit(n);
    for (std::size_t i = 0; i < n; ++i) hit[i] = land_in_caller_frame(head, par, counts[i]);
    // The rotation a about the landings' centroid h and the shift onto the
    // targets' centroid t that bring the landings nearest the targets.
    double hx = 0.0, hy = 0.0, tx = 0.0, ty = 0.0, a = 0.0;
    if (placed && n > 0) {
        for (std::size_t i = 0; i < n; ++i) hx += hit[i].x, hy += hit[i].y, tx += targets[i].x, ty += targets[i].y;
        hx /= static_cast<double>(n), hy /= static_cast<double>(n), tx /= static_cast<double>(n), ty /= static_cast<double>(n);
        double dot = 0.0, cross = 0.0;
        for (std::size_t i = 0; i < n; ++i) {
            const double px = hit[i].x - hx, py = hit[i].y - hy, qx = targets[i].x - tx, qy = targets[i].y - ty;
            dot += px * qx + py * qy, cross += px * qy - py * qx;
        }
        a = std::atan2(cross, dot);
    }
    std::vector<double> e(n);
    for (std::size_t i = 0; i < n; ++i) {
        double x = hit[i].x, y = hit[i].y;
        if (placed) {
            const double px = x - hx, py = y - hy;
            x = std::cos(a) * px - std::sin(a) * py + tx, y = std::sin(a) * px + std::cos(a) * py + ty;
        }
        e[i] = std::hypot(x - targets[i].x, y - targets[i].y) * 1000.0;
    }
    return e;
}

std::vector<Stage> evaluate_stages(const Head& head, const tagLenPar& full, int n, bool placed) {
    if (n < 2 || n > 2001) throw Error("evaluate: the pattern must have 2 to 2001 targets per side");
    const auto targets = target_pattern(n, full.ValSize);
    std::vector<Stage> stages;
    stages.push_back({"uncorrected (linear)", summarize(landing_errors_um(head, full, targets, false, placed))});
    tagLenPar par = full;
    par.Stacks.clear();
    std::string name = "nine-point";
    stages.push_back({name, summarize(landing_errors_um(head, par, targets, true, placed))});
    for (const auto& s : full.Stacks) {
        par.Stacks.push_back(s);
        name += fmt::format(" + {}x{}", s.Size, s.Size);
        stages.push_back({name, summarize(landing_errors_um(head, par, targets, true, placed))});
    }
    return stages;
}

}  // namespace vrncal::workflow
