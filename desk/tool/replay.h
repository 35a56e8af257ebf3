#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>

#include "desk/demo/nv12.h"
#include "desk/tool/clip_reader.h"
#include "desk/tool/options.h"
#include "desk/tool/results.h"
#include "host/lumnoderequest.h"

namespace desk {

/// A clip and the grid dump that drives the node.
struct ReplayOptions {
    CommonOptions common;
    std::filesystem::path clip;
    std::filesystem::path grids;
    std::optional<uint64_t> firstRequest;  ///< request id of the clip's first frame; empty: line n, frame n
};

/// Adds CLIP, --grids, --first-request and the common options. `options` outlives the parsing.
void AddReplayOptions(CLI::App& command, ReplayOptions& options);

/// One frame that went through the node. The pictures are valid until the next one.
struct RenderedFrame {
    int64_t frame = 0;  ///< of the clip, from 0
    uint64_t requestId = 0;
    const IPEICAGridTransform& grid;
    const Nv12& input;
    const Nv12& output;
};

/// Who takes the frames: called once with the clip's format, where the size is the output's, before the
/// first.
struct FrameTaker {
    std::function<void(const ClipFormat&)> start;
    std::function<void(const RenderedFrame&)> take;
};

/// Takes the clip's frames, as they stand, through the node with the grids of the dump, until the clip ends
/// or the user interrupts. Fills in the results. Without --size the output is as large as the clip. Throws
/// UsageError naming the frames without a grid, before anything is rendered for them; DumpError.
void ReplayGrids(const ReplayOptions& options, RunResults& results, const FrameTaker& taker);

}  // namespace desk
