#pragma once

#include <chrono>
#include <map>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <string>
#include <utility>
#include <vector>

namespace desk {

using Json = nlohmann::ordered_json;

/// Everything that a run tells about itself. What is computed once stands under its name in the JSON, which
/// --json prints and the report shows; docs/DESK.md lists the names.
struct RunResults {
    Json json;
    Json frames = Json::array();                        ///< one object per frame, in order
    std::map<std::string, std::vector<double>> stages;  ///< milliseconds of every frame, by stage
    cv::Mat beforeAfter;                                ///< picture for the report, 8-bit BGR; may be empty
    cv::Mat heatMap;                                    ///< likewise
    std::string summary;                                ///< what was measured, in words
    std::vector<std::string> findings;                  ///< rules of the host that the node broke
    std::vector<std::string> missedLimits;              ///< one sentence each
};

/// The JSON with the summaries of stages, findings and limits, and the frames.
Json ToJson(const RunResults& results);

/// Writes JSON to a file that is complete or not there, or to stdout for "-"; nothing for an empty name.
/// Throws UsageError when the file exists and may not be overwritten; std::runtime_error.
void WriteJson(const Json& json, const std::string& place, bool overwrite);

/// Adds the time that it lives to one stage.
class StageTimer {
public:
    StageTimer(RunResults& results, const std::string& stage)
        : milliseconds_(results.stages[stage]), start_(std::chrono::steady_clock::now()) {}
    ~StageTimer() {
        const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start_;
        milliseconds_.push_back(taken.count());
    }
    StageTimer(const StageTimer&) = delete;
    StageTimer& operator=(const StageTimer&) = delete;

private:
    std::vector<double>& milliseconds_;
    std::chrono::steady_clock::time_point start_;
};

}  // namespace desk
