#include "workflow/evaluate.h"

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
                                      const std::vector<tagKelPointF>& targets, bool corrected) {
    std::vector<tagKelPointF> counts(targets.size());
    if (corrected) {
        Corrector(par).correct(targets.data(), counts.data(), targets.size());
    } else {
        VrnCal vc;
        for (std::size_t i = 0; i < targets.size(); ++i) vc.LP2DPEX_Cal(targets[i], counts[i], par);
    }
    std::vector<double> e(targets.size());
    for (std::size_t i = 0; i < targets.size(); ++i) e[i] = landing_error(head, par, targets[i], counts[i]) * 1000.0;
    return e;
}

std::vector<Stage> evaluate_stages(const Head& head, const tagLenPar& full, int n) {
    if (n < 2 || n > 2001) throw Error("evaluate: the pattern must have 2 to 2001 targets per side");
    const auto targets = target_pattern(n, full.ValSize);
    std::vector<Stage> stages;
    stages.push_back({"uncorrected (linear)", summarize(landing_errors_um(head, full, targets, false))});
    tagLenPar par = full;
    par.Stacks.clear();
    std::string name = "nine-point";
    stages.push_back({name, summarize(landing_errors_um(head, par, targets, true))});
    for (const auto& s : full.Stacks) {
        par.Stacks.push_back(s);
        name += fmt::format(" + {}x{}", s.Size, s.Size);
        stages.push_back({name, summarize(landing_errors_um(head, par, targets, true))});
    }
    return stages;
}

}  // namespace vrncal::workflow
