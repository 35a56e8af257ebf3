#include <memory>

#include "desk/cli/commands.h"

namespace desk {

void AddReplayOptions(CLI::App& command, ReplayOptions& options) {
    command.add_option("CLIP", options.clip, "the node's input frames")->required()->group(Inputs);
    command.add_option("--grids", options.grids, "grid dump that drives the node")->required()->group(Inputs);
    command.add_option("--first-request", options.firstRequest,
                       "request id of the clip's first frame; without it line n belongs to frame n");
    AddSize(command, options.size);
    AddNodeOptions(command, options);
}

void AddReplay(CLI::App& app, ChosenCommand& chosen) {
    CLI::App& command = AddCommand(
        app, "replay", "Drives the node with a device's grid dump.",
        "dewarp-desk replay input.mkv --grids Warp2_Grid_20261115_171203.txt --size 1920x1080 -o out.mp4");
    const auto options = std::make_shared<ReplayOptions>();
    AddReplayOptions(command, *options);
    AddRecordingOptions(command, *options);
    command.callback([&chosen, options] {
        chosen = [options] {
            Replay replay("replay", *options);
            replay.Run();
            return replay.Frames().Finish();
        };
    });
}

}  // namespace desk
