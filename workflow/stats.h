// Summary statistics of landing errors.
#ifndef VRNCAL_WORKFLOW_STATS_H
#define VRNCAL_WORKFLOW_STATS_H

#include <vector>

namespace vrncal::workflow {

struct ErrorStats {
    double max = 0.0;
    double rms = 0.0;
    double p95 = 0.0;  // nearest rank: the smallest value not exceeded by 95 % of the samples
    std::size_t count = 0;
};

// Takes the samples by value: the percentile sorts them.
ErrorStats summarize(std::vector<double> errors);

}  // namespace vrncal::workflow

#endif
