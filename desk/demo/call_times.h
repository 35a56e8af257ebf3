#pragma once

#include <vector>

namespace desk {

/// Time that calls took, in milliseconds.
struct CallTimes {
    double p50 = 0;
    double p95 = 0;
    double max = 0;
};

/// Nearest-rank percentiles of at least one value.
CallTimes Summarize(std::vector<double> milliseconds);

}  // namespace desk
