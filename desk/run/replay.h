#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "desk/dump/grid_dump.h"
#include "desk/run/pipeline.h"

namespace desk {

/// A clip and the grid dump that drives the node.
struct ReplayOptions : RunOptions {
    std::filesystem::path grids;
    std::optional<cv::Size> size;          ///< of the output, pixels; the clip's without
    std::optional<uint64_t> firstRequest;  ///< request id of the clip's first frame; empty: line n, frame n
};

/// The clip's frames, as they stand, on their way through the node with the grids of the dump. Without --size
/// the output is as large as the clip.
class Replay {
public:
    /// Throws DumpError for a dump that cannot drive a node with this clip; as Pipeline does.
    Replay(const std::string& command, const ReplayOptions& options, Pipeline::Observer observer = {});

    /// Takes the clip's frames to the node, to its end or until the user interrupts the run. Throws
    /// UsageError naming the frame that has no grid.
    void Run();

    Pipeline& Frames() {
        return pipeline_;
    }

private:
    const GridDump::Line& LineOf(int64_t frame) const;

    const ReplayOptions& options_;
    ClipReader reader_;
    GridDump dump_;
    Pipeline pipeline_;
};

}  // namespace desk
