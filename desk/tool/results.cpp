#include "desk/tool/results.h"

#include <fmt/format.h>

#include "desk/demo/call_times.h"
#include "desk/tool/output_place.h"

namespace desk {
namespace {

using Json = nlohmann::json;

constexpr int SchemaVersion = 1;

Json SizeJson(Size size) {
    return {{"width", size.width}, {"height", size.height}};
}

Json PlaceJson(const CameraPlace& place) {
    return {{"x", place.shift.real()},
            {"y", place.shift.imag()},
            {"roll", place.turn.imag()},
            {"log_scale", place.turn.real()}};
}

Json FrameJson(const FrameRecord& record) {
    Json json = {{"frame", record.frame},
                 {"request", record.requestId},
                 {"margin_used",
                  {{"left", record.used.left},
                   {"top", record.used.top},
                   {"right", record.used.right},
                   {"bottom", record.used.bottom}}}};
    if (record.before && record.after) {
        json["camera_before"] = PlaceJson(*record.before);
        json["camera_after"] = PlaceJson(*record.after);
    }
    return json;
}

Json PlanesJson(const RunResults& results) {
    Json json = Json::object();
    for (const auto& [plane, error] : results.planes) {
        json[plane] = {{"max", error.max},
                       {"mean", error.mean},
                       {"psnr_db", error.psnr},
                       {"share_within_limit", error.shareWithinLimit}};
    }
    return json;
}

Json StagesJson(const RunResults& results) {
    Json json = Json::object();
    for (const auto& [stage, milliseconds] : results.stages) {
        if (!milliseconds.empty()) {
            const CallTimes times = Summarize({milliseconds.begin(), milliseconds.end()});
            json[stage] = {{"p50", times.p50}, {"p95", times.p95}, {"max", times.max}};
        }
    }
    return json;
}

}  // namespace

Json ToJson(const RunResults& results) {
    Json json = {
        {"schema", SchemaVersion},
        {"command", results.command},
        {"clip", results.clip},
        {"output", results.output},
        {"variant", NameOf(results.variant)},
        {"gl_renderer", results.renderer},
        {"library", results.library},
        {"input_size", SizeJson(results.sizes.input)},
        {"output_size", SizeJson(results.sizes.output)},
        {"margin", {{"horizontal", results.margin.horizontal}, {"vertical", results.margin.vertical}}},
        {"frames_per_second", results.framesPerSecond},
        {"frame_count", results.frames.size()},
        {"stage_ms", StagesJson(results)},
        {"counters",
         {{"imports", results.counters.imports},
          {"cache_hits", results.counters.cacheHits},
          {"live_images", results.counters.liveImages},
          {"open_fds", results.counters.openFds}}},
        {"psnr_db", results.psnr},
        {"findings", results.findings}};
    if (results.motionBefore && results.motionAfter) {
        json["motion_px_rms"] = {{"before", *results.motionBefore}, {"after", *results.motionAfter}};
    }
    if (!results.planes.empty()) {
        json["planes"] = PlanesJson(results);
        json["worst_frame"] = results.worstFrame;
    }
    Json frames = Json::array();
    for (const FrameRecord& record : results.frames) {
        frames.push_back(FrameJson(record));
    }
    json["frames"] = std::move(frames);
    return json;
}

void WriteJson(const Json& json, const std::string& place, bool overwrite) {
    // File names may be no UTF-8; such bytes are replaced rather than the results lost.
    const std::string text = json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    if (place.empty()) {
        return;
    }
    if (place == "-") {
        fmt::print("{}", text);
        return;
    }
    WriteWhole(place, text, overwrite);
}

}  // namespace desk
