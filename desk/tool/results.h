#pragma once

#include <array>
#include <chrono>
#include <complex>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "desk/host/desk_host.h"
#include "desk/host/desk_node.h"

namespace desk {

/// Pixels of the input that a frame's grid reads beyond the output's window, on each side; negative where the
/// window is not used up to its edge.
struct SideUse {
    double left = 0;
    double top = 0;
    double right = 0;
    double bottom = 0;
};

/// Where the camera looks in a frame, against the first frame. Rows are exposed one after the other, so shift
/// and roll change down the rows: the middle row has those of the place, y rows below it the shift is larger
/// by y * shiftPerRow + y * y * shiftBend, and the roll by y * rollPerRow.
struct CameraPlace {
    std::complex<double> turn;         ///< log(scale) + i roll
    std::complex<double> shift;        ///< x + i y, input pixels
    std::complex<double> shiftPerRow;  ///< pixels per row
    std::complex<double> shiftBend;    ///< pixels per row and row
    double rollPerRow = 0;             ///< radians per row
};

/// What is kept of one frame.
struct FrameRecord {
    int64_t frame = 0;  ///< of the clip, from 0
    uint64_t requestId = 0;
    SideUse used;
    std::optional<CameraPlace> before;  ///< estimated; stabilise only
    std::optional<CameraPlace> after;   ///< smoothed; stabilise only
};

/// How far a plane of the node's output lies from the reference, in levels, over all frames.
struct PlaneError {
    int max = 0;
    double mean = 0;
    double psnr = 0;              ///< dB
    double shareWithinLimit = 0;  ///< of the samples, 0 to 1
};

/// Counters over a run.
struct RunCounters {
    uint64_t imports = 0;     ///< buffers that the node made images of
    uint64_t cacheHits = 0;   ///< buffers that it had imported before
    uint64_t liveImages = 0;  ///< at the most
    uint64_t openFds = 0;     ///< of the process, at the most
};

/// Everything that a run tells about itself, for --json and --report.
struct RunResults {
    std::string command;
    std::string clip;
    std::string output;  ///< empty when the command writes no clip
    Variant variant = Variant::RealTime;
    std::string renderer;  ///< of the GL
    std::string library;   ///< file of the node
    Negotiated sizes{};
    Margin margin{};  ///< as published
    double framesPerSecond = 0;
    std::vector<FrameRecord> frames;
    std::map<std::string, std::vector<float>>
        stages;  ///< milliseconds per frame: read, estimate, node, write, ...
    RunCounters counters;
    std::optional<double> motionBefore;  ///< pixels RMS between consecutive frames
    std::optional<double> motionAfter;
    std::map<std::string, double> psnr;        ///< dB, by what was compared, for example "luma"
    std::map<std::string, PlaneError> planes;  ///< against the reference, "luma" and "chroma"; verify only
    int64_t worstFrame = 0;                    ///< of the clip, by the luma's error; verify only
    cv::Mat heatMap;                           ///< the worst frame's luma error, 8-bit BGR; verify only
    cv::Mat before;                            ///< the mean of all frames, 8-bit BGR; only for a report
    cv::Mat after;                             ///< likewise
    std::vector<std::string> findings;         ///< the host's: rules that the node broke
};

/// The results with "schema", without the pictures: summaries, the frames, p50, p95 and max per stage.
nlohmann::json ToJson(const RunResults& results);

/// Writes JSON to a file that is complete or not there, or to stdout for "-"; nothing for an empty name.
/// Throws UsageError when the file exists and may not be overwritten; std::runtime_error.
void WriteJson(const nlohmann::json& json, const std::string& place, bool overwrite);

/// Adds the time that it lives to one stage.
class StageTimer {
public:
    StageTimer(RunResults& results, const std::string& stage)
        : milliseconds_(results.stages[stage]), start_(std::chrono::steady_clock::now()) {}
    ~StageTimer() {
        const std::chrono::duration<float, std::milli> taken = std::chrono::steady_clock::now() - start_;
        milliseconds_.push_back(taken.count());
    }
    StageTimer(const StageTimer&) = delete;
    StageTimer& operator=(const StageTimer&) = delete;

private:
    std::vector<float>& milliseconds_;
    std::chrono::steady_clock::time_point start_;
};

}  // namespace desk
