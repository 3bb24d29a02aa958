#include "workflow/stats.h"

#include <algorithm>
#include <cmath>

namespace vrncal::workflow {

ErrorStats summarize(std::vector<double> errors) {
    ErrorStats s;
    s.count = errors.size();
    if (errors.empty()) return s;
    // A landing error that is not a number is no small error: it spoils the
    // statistics rather than drop out of them.
    for (double e : errors) s.not_finite += !std::isfinite(e);
    if (s.not_finite > 0) {
        s.max = s.rms = s.p95 = std::nan("");
        return s;
    }
    double sum_sq = 0.0;
    for (double e : errors) {
        sum_sq += e * e;
        s.max = std::max(s.max, e);
    }
    s.rms = std::sqrt(sum_sq / static_cast<double>(errors.size()));
    const std::size_t rank = (95 * errors.size() + 99) / 100;  // ceil(0.95 n) without rounding
    std::nth_element(errors.begin(), errors.begin() + static_cast<std::ptrdiff_t>(rank - 1), errors.end());
    s.p95 = errors[rank - 1];
    return s;
}

}  // namespace vrncal::workflow
