#include "workflow/stats.h"

#include <algorithm>
#include <cmath>

namespace vrncal::workflow {

ErrorStats summarize(std::vector<double> errors) {
    ErrorStats s;
    s.count = errors.size();
    if (errors.empty()) return s;
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
