#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "desk/dump/grid_dump.h"
#include "desk/options/options.h"
#include "desk/run/pipeline.h"

namespace desk {

/// A clip and the grid dump that drives the node.
struct ReplayOptions : RunOptions {
    std::filesystem::path grids;
    std::optional<cv::Size> size;          ///< of the output, pixels; the clip's without
    std::optional<uint64_t> firstRequest;  ///< request id of the clip's first frame; empty: line n, frame n
};

/// Adds CLIP, --grids, --first-request and the options of a run. `options` outlives the parsing.
void AddReplayOptions(CLI::App& command, ReplayOptions& options);

/// The clip's frames, as they stand, on their way through the node with the grids of the dump. Without --size
/// the output is as large as the clip.
class Replay {
public:
    /// Throws DumpError for a dump that cannot drive a node with this clip; as Pipeline does.
    Replay(const std::string& command, const ReplayOptions& options, Pipeline::Observer observer = {});

    /// Takes the clip's next frame to the node. False at the end of the clip, or when the user has
    /// interrupted the run. Throws UsageError naming the frame that has no grid.
    bool Next();

    Pipeline& Run() {
        return pipeline_;
    }

private:
    size_t LineOf(int64_t frame) const;

    const ReplayOptions& options_;
    ClipReader reader_;
    GridDump dump_;
    Pipeline pipeline_;
};

}  // namespace desk
