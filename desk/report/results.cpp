#include "desk/report/results.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "desk/output/output.h"

namespace desk {
namespace {

/// Nearest-rank percentiles of the milliseconds, of which there is at least one.
Json Percentiles(std::vector<double> milliseconds) {
    std::sort(milliseconds.begin(), milliseconds.end());
    const auto percentile = [&](double percent) {
        const double rank = std::ceil(percent / 100 * static_cast<double>(milliseconds.size()));
        return milliseconds[static_cast<size_t>(rank) - 1];
    };
    return {{"p50", percentile(50)}, {"p95", percentile(95)}, {"max", milliseconds.back()}};
}

}  // namespace

Json ToJson(const RunResults& results) {
    Json json = results.json;
    json["frame_count"] = results.frames.size();
    json["stage_ms"] = Json::object();
    for (const auto& [stage, milliseconds] : results.stages) {
        json["stage_ms"][stage] = Percentiles(milliseconds);
    }
    json["findings"] = results.findings;
    json["missed_limits"] = results.missedLimits;
    json["frames"] = results.frames;
    return json;
}

void WriteJson(const Json& json, const std::string& place, bool overwrite) {
    // File names may be no UTF-8; such bytes are replaced rather than the results lost.
    const std::string text = json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    if (place == "-") {
        fmt::print("{}", text);
    } else if (!place.empty()) {
        WriteWhole(place, text, overwrite);
    }
}

}  // namespace desk
