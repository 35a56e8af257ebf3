#include "desk/report/results.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "desk/output/output.h"

namespace desk {
namespace {

const char* NameOf(Stage stage) {
    constexpr const char* Names[] = {"read", "estimate", "node", "reference", "write", "measure"};
    return Names[static_cast<size_t>(stage)];
}

Json ToJson(cv::Size size) {
    return {{"width", size.width}, {"height", size.height}};
}

Json ToJson(const CameraResult& camera) {
    return {{"x", camera.x},
            {"y", camera.y},
            {"roll", camera.roll},
            {"log_scale", camera.logScale},
            {"step", camera.step}};
}

Json MarginIn(const RunResults& results, Side first, Side last, double input, double output) {
    double most = 0;
    for (const FrameResult& frame : results.frames) {
        most = std::max({most, frame.marginUsed[first], frame.marginUsed[last]});
    }
    return {{"pixels_on_a_side", (input - output) / 2},
            {"most_used", most},
            {"negotiated", input / output - 1},
            {"sufficient", 2 * most / output}};
}

Json Plane(const PlaneMeter& meter) {
    return {{"max", meter.Max()},
            {"mean", meter.Mean()},
            {"psnr_db", meter.Psnr()},
            {"share_within_limit", meter.ShareWithinLimit()}};
}

Json StageTimes(const RunResults& results) {
    Json json = Json::object();
    for (const auto& [stage, times] : results.milliseconds) {
        json[NameOf(stage)] = {
            {"p50", Percentile(times, 50)}, {"p95", Percentile(times, 95)}, {"max", Percentile(times, 100)}};
    }
    return json;
}

Json MarginUse(const RunResults& results) {
    const cv::Size& input = results.facts.inputSize;
    const cv::Size& output = results.facts.outputSize;
    return {{"horizontal", MarginIn(results, Left, Right, input.width, output.width)},
            {"vertical", MarginIn(results, Top, Bottom, input.height, output.height)}};
}

}  // namespace

// Found by the library for the elements of a list.
static void to_json(Json& json, const FrameRange& range) {
    json = {{"first", range.first}, {"last", range.end - 1}};
}

static void to_json(Json& json, const FrameResult& frame) {
    json = {{"frame", frame.frame}, {"request", frame.request}};
    for (const Side side : {Left, Top, Right, Bottom}) {
        json["margin_used"][SideNames[side]] = frame.marginUsed[side];
    }
    if (frame.camera) {
        json["camera_before"] = ToJson(frame.camera->before);
        json["camera_after"] = ToJson(frame.camera->after);
    }
}

double Percentile(std::vector<double> values, double percent) {
    const double rank = std::ceil(percent / 100 * static_cast<double>(values.size()));
    const auto found = values.begin() + static_cast<std::ptrdiff_t>(rank) - 1;
    std::nth_element(values.begin(), found, values.end());
    return *found;
}

Json ToJson(const RunResults& results) {
    const RunFacts& facts = results.facts;
    const RunCounters& counters = results.counters;
    Json json = {{"schema", 1},
                 {"command", facts.command},
                 {"clip", facts.clip},
                 {"output", facts.output},
                 {"credit", facts.credit},
                 {"variant", facts.variant},
                 {"gl_renderer", facts.glRenderer},
                 {"library", facts.library},
                 {"input_size", ToJson(facts.inputSize)},
                 {"output_size", ToJson(facts.outputSize)},
                 {"crop", static_cast<double>(facts.outputSize.area()) / facts.inputSize.area()},
                 {"frames_per_second", facts.framesPerSecond},
                 {"frame_count", results.frames.size()},
                 {"damaged_frames", results.damagedFrames},
                 {"worse_frames", results.worseFrames},
                 {"frames_without_grid", results.gridlessFrames},
                 {"counters",
                  {{"imports", counters.imports},
                   {"cache_hits", counters.cacheHits},
                   {"live_images", counters.liveImages},
                   {"open_fds", counters.openDescriptors}}},
                 {"margin_use", MarginUse(results)},
                 {"stage_ms", StageTimes(results)}};
    if (results.motion) {
        json["motion_px_rms"] = {{"before", results.motion->before}, {"after", results.motion->after}};
    }
    if (results.truth) {
        const auto& [luma, chroma] = *results.truth;
        json["psnr_db"] = {{"luma", luma.Psnr()},
                           {"luma_worst_frame", luma.WorstPsnr()},
                           {"chroma", chroma.Psnr()},
                           {"chroma_worst_frame", chroma.WorstPsnr()}};
    }
    if (results.reference) {
        json["planes"] = {{"luma", Plane(results.reference->luma)},
                          {"chroma", Plane(results.reference->chroma)}};
        json["worst_frame"] = results.worstFrame;
    }
    json["findings"] = results.findings;
    json["missed_limits"] = results.missedLimits;
    json["frames"] = results.frames;
    return json;
}

void WriteJson(const Json& json, const std::string& place, bool overwrite) {
    // File names may be no UTF-8; such bytes are replaced rather than the results lost. Others are escaped,
    // as a terminal may obey them.
    const std::string text = json.dump(2, ' ', true, Json::error_handler_t::replace) + "\n";
    if (place == "-") {
        static_cast<void>(std::fputs(text.c_str(), stdout));  // whether it arrives, main finds out
    } else if (!place.empty()) {
        WriteWhole(place, text, overwrite);
    }
}

}  // namespace desk
