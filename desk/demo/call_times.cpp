#include "desk/demo/call_times.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace desk {

CallTimes Summarize(std::vector<double> milliseconds) {
    std::sort(milliseconds.begin(), milliseconds.end());
    const auto percentile = [&milliseconds](double percent) {
        const double rank = std::ceil(percent / 100 * static_cast<double>(milliseconds.size()));
        return milliseconds[static_cast<size_t>(rank) - 1];
    };
    return {percentile(50), percentile(95), percentile(100)};
}

}  // namespace desk
