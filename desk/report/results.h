#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "desk/clip/clip_format.h"
#include "desk/measure/quality.h"
#include "desk/warp/warp_map.h"

namespace desk {

using Json = nlohmann::ordered_json;

/// What ran. Sizes in pixels.
struct RunFacts {
    std::string command, clip, output, credit, variant, glRenderer, library;
    cv::Size inputSize, outputSize;
    double framesPerSecond = 0;
};

/// What a run does with a frame.
enum class Stage { Read, Estimate, Node, Reference, Write, Measure };

/// Something without the node, and with it.
template <typename Value>
struct Change {
    Value before{};
    Value after{};
};

/// Where a camera looks in a frame, against the first frame.
struct CameraResult {
    double x = 0, y = 0;  ///< input pixels
    double roll = 0;      ///< radians
    double logScale = 0;  ///< natural logarithm
    double step = 0;      ///< input pixels from the frame before
};

struct FrameResult {
    int64_t frame = 0;  ///< in the clip, from 0
    uint64_t request = 0;
    SideUse marginUsed{};
    std::optional<Change<CameraResult>> camera = std::nullopt;
};

/// The node's planes against others.
struct PlaneMeters {
    PlaneMeter luma;
    PlaneMeter chroma;
};

struct RunCounters {
    uint64_t imports = 0;     ///< buffers that became a GL image
    uint64_t cacheHits = 0;   ///< two buffers for a frame, less the imports: those not imported anew
    uint64_t liveImages = 0;  ///< when the node is gone
    uint64_t openDescriptors = 0;
};

/// Everything that a run tells about itself, for the JSON and for the report. What was not measured is empty.
struct RunResults {
    RunFacts facts;
    std::map<Stage, std::vector<double>> milliseconds;  ///< of every frame
    std::vector<FrameResult> frames;                    ///< in order
    RunCounters counters;
    std::optional<Change<double>> motion;  ///< between frames, pixels RMS
    std::optional<PlaneMeters> truth;
    std::optional<PlaneMeters> reference;    ///< made on the CPU
    int64_t worstFrame = 0;                  ///< against the reference; in the clip, from 0
    std::vector<FrameRange> damagedFrames;   ///< left out
    std::vector<FrameRange> gridlessFrames;  ///< left out: the grid dump has no line for them
    std::vector<FrameRange> worseFrames;     ///< that move more than before
    std::vector<std::string> findings;       ///< rules of the host that the node broke
    std::vector<std::string> missedLimits;   ///< one sentence each
    cv::Mat beforeAfter;                     ///< picture for the report, 8-bit BGR; may be empty
    cv::Mat heatMap;                         ///< likewise
};

/// Nearest-rank percentile of the values, of which there is at least one; `percent` is more than 0.
double Percentile(std::vector<double> values, double percent);

/// The results as JSON, which docs/DESK.md describes.
Json ToJson(const RunResults& results);

/// Writes JSON to a file that is complete or not there, or to stdout for "-"; nothing for an empty name.
/// Throws UsageError when the file exists and may not be overwritten; std::runtime_error.
void WriteJson(const Json& json, const std::string& place, bool overwrite);

/// Adds the time that it lives to one stage.
class StageTimer {
public:
    StageTimer(RunResults& results, Stage stage)
        : milliseconds_(results.milliseconds[stage]), start_(std::chrono::steady_clock::now()) {}
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
