#include "desk/cli/replay.h"

#include <fmt/format.h>

#include <memory>
#include <utility>

#include "desk/base/usage_error.h"
#include "desk/cli/commands.h"

namespace desk {
namespace {

Sizing ReplaySizing(const ReplayOptions& options, cv::Size clip) {
    const cv::Size output = options.size.value_or(clip);
    return {output, MarginFor(clip, output)};
}

int RunReplay(const ReplayOptions& options) {
    Replay replay("replay", options);
    while (replay.Next()) {
    }
    return replay.Run().Finish();
}

}  // namespace

void AddReplayOptions(CLI::App& command, ReplayOptions& options) {
    command.add_option("CLIP", options.clip, "the node's input frames")->required()->group(Inputs);
    command.add_option("--grids", options.grids, "grid dump that drives the node")->required()->group(Inputs);
    command.add_option("--first-request", options.firstRequest,
                       "request id of the clip's first frame; without it line n belongs to frame n");
    AddSize(command, options.size);
    AddNodeOptions(command, options);
}

Replay::Replay(const std::string& command, const ReplayOptions& options, Pipeline::Observer observer)
    : options_(options),
      reader_(options.clip, options.frames, options.onDamage),
      dump_(options.grids, reader_.Format().size),
      pipeline_(command, options, reader_, ReplaySizing(options, reader_.Format().size), 0,
                std::move(observer)) {}

bool Replay::Next() {
    if (!pipeline_.Read()) {
        return false;
    }
    const size_t line = LineOf(reader_.Frame());
    pipeline_.Show(dump_.RequestId(line), dump_.Grid(line));
    return true;
}

size_t Replay::LineOf(int64_t frame) const {
    const auto n = static_cast<size_t>(frame);
    if (!options_.firstRequest) {
        if (n >= dump_.Size()) {
            throw UsageError(fmt::format(
                "the grid dump has {} lines and none for frame {} of the clip; --frames names the "
                "frames to take",
                dump_.Size(), frame));
        }
        return n;
    }
    const std::optional<size_t> line = dump_.Find(*options_.firstRequest + n);
    if (!line) {
        throw UsageError(
            fmt::format("the grid dump has no line of request {}, which frame {} of the clip needs",
                        *options_.firstRequest + n, frame));
    }
    return *line;
}

void AddReplay(CLI::App& app, ChosenCommand& chosen) {
    CLI::App& command = AddCommand(
        app, "replay", "Drives the node with a device's grid dump.",
        "dewarp-desk replay input.mkv --grids Warp2_Grid_20261115_171203.txt --size 1920x1080 -o out.mp4");
    const auto options = std::make_shared<ReplayOptions>();
    AddReplayOptions(command, *options);
    AddRecordingOptions(command, *options);
    command.callback([&chosen, options] { chosen = [options] { return RunReplay(*options); }; });
}

}  // namespace desk
