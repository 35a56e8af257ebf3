#include <fmt/format.h>

#include "desk/base/usage_error.h"
#include "desk/cli/commands.h"
#include "desk/dump/grid_dump.h"

namespace desk {
namespace {

/// Throws UsageError naming the frame, counted from 0 in the clip, that has no grid.
const GridDump::Line& LineOf(const GridDump& dump, int64_t frame, std::optional<uint64_t> firstRequest) {
    const auto n = static_cast<size_t>(frame);
    if (!firstRequest) {
        if (n >= dump.Lines().size()) {
            throw UsageError(fmt::format(
                "the grid dump has {} lines and none for frame {} of the clip; --frames names the "
                "frames to take",
                dump.Lines().size(), frame));
        }
        return dump.Lines()[n];
    }
    const std::optional<size_t> line = dump.Find(*firstRequest + n);
    if (!line) {
        throw UsageError(
            fmt::format("the grid dump has no line of request {}, which frame {} of the clip needs",
                        *firstRequest + n, frame));
    }
    return dump.Lines()[*line];
}

}  // namespace

int RunReplay(const std::string& command, const ReplayOptions& options, Observer* observer) {
    ClipReader reader = options.Open(options.clip);
    const cv::Size clip = reader.Format().size;
    const GridDump dump(options.grids, clip);
    const cv::Size output = options.size.value_or(clip);
    Pipeline pipeline(command, options, reader, {output, MarginFor(clip, output)}, 0, observer);
    while (pipeline.Read()) {
        const GridDump::Line& line = LineOf(dump, pipeline.Next(), options.firstRequest);
        pipeline.Show(line.requestId, line.grid);
    }
    return pipeline.Finish();
}

void AddReplayOptions(CLI::App& command, ReplayOptions& options) {
    command.add_option("CLIP", options.clip, "the node's input frames")->required()->group(Inputs);
    command.add_option("--grids", options.grids, "grid dump that drives the node")->required()->group(Inputs);
    command.add_option("--first-request", options.firstRequest,
                       "request id of the clip's first frame; without it line n belongs to frame n");
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
