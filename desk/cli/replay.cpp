#include <fmt/format.h>

#include "desk/base/usage_error.h"
#include "desk/cli/commands.h"
#include "desk/dump/grid_dump.h"

namespace desk {
namespace {

/// The request that drives a frame, counted from 0 in the clip, and its line; null where gaps are skipped and
/// it has none. Throws UsageError naming the frame otherwise.
const GridDump::Line* LineOf(const GridDump& dump, int64_t frame, const ReplayOptions& options) {
    // Unless it is tied by request ids, these rise by one from line to line.
    const uint64_t first = options.firstRequest.value_or(dump.Lines().front().requestId);
    const GridDump::Line* const line = dump.Find(first + static_cast<uint64_t>(frame));
    if (line != nullptr || options.onGap == OnDamage::Skip) {
        return line;
    }
    throw UsageError(
        options.firstRequest
            ? fmt::format("the grid dump has no line of request {}, which frame {} of the clip needs",
                          first + static_cast<uint64_t>(frame), frame)
            : fmt::format("the grid dump has {} lines and none for frame {} of the clip; --frames "
                          "names the frames to take",
                          dump.Lines().size(), frame));
}

}  // namespace

int RunReplay(const std::string& command, const ReplayOptions& options, Observer* observer) {
    CatchInterrupts();
    if (options.onGap == OnDamage::Skip && !options.truth.empty()) {
        throw UsageError("--truth is compared frame by frame; expected no --gaps skip with it");
    }
    ClipReader reader = options.Open(options.clip);
    const cv::Size clip = reader.Format().size;
    const GridDump dump(options.grids, clip, options.firstRequest || options.onGap == OnDamage::Skip);
    const cv::Size output = options.size.value_or(clip);
    Pipeline pipeline(command, options, reader, {output, MarginFor(clip, output)}, 0, observer);
    bool isShown = false;
    while (pipeline.Read()) {
        if (const GridDump::Line* const line = LineOf(dump, pipeline.Next(), options)) {
            pipeline.Show(line->requestId, line->grid);
            isShown = true;
        } else {
            pipeline.LeaveOut();
        }
    }
    if (!isShown && !Interrupted()) {
        throw UsageError(fmt::format("{} has no line for any frame of {}; its requests are {} to {}",
                                     options.grids.string(), options.clip.string(),
                                     dump.Lines().front().requestId, dump.Lines().back().requestId));
    }
    return pipeline.Finish();
}

void AddReplayOptions(CLI::App& command, ReplayOptions& options) {
    command.add_option("CLIP", options.clip, "the node's input frames")->required()->group(Inputs);
    command.add_option("--grids", options.grids, "grid dump that drives the node")->required()->group(Inputs);
    command.add_option("--first-request", options.firstRequest,
                       "request id of the clip's first frame; without it line n belongs to frame n");
    AddStopOrSkip(command, "--gaps", "what a frame without a line in the grid dump does to the run",
                  options.onGap);
    AddSize(command, options.size);
    AddNodeOptions(command, options);
}

void AddReplay(CLI::App& app, int& status) {
    auto [command, options] = AddCommand<ReplayOptions>(
        app, "replay", "Drives the node with a device's grid dump.",
        "dewarp-desk replay input.mkv --grids Warp2_Grid_20261115_171203.txt --size 1920x1080 -o out.mp4",
        status, [](const ReplayOptions& replay) { return RunReplay("replay", replay); });
    AddReplayOptions(command, options);
    AddRecordingOptions(command, options);
}

}  // namespace desk
