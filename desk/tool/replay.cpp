#include "desk/tool/replay.h"

#include <fmt/format.h>

#include <memory>

#include "desk/tool/commands.h"
#include "desk/tool/errors.h"
#include "desk/tool/grid_dump.h"
#include "desk/tool/pipeline.h"
#include "desk/tool/progress.h"
#include "desk/tool/run_output.h"

namespace desk {
namespace {

constexpr int64_t InputBuffers = 4;

/// Which line of the dump belongs to which frame.
class GridsOfFrames {
public:
    GridsOfFrames(const ReplayOptions& options, cv::Size input)
        : dump_(options.grids), firstRequest_(options.firstRequest) {
        dump_.RequireInputSize(input);
    }

    /// The line of a frame. Throws UsageError when there is none.
    size_t Line(int64_t frame) const {
        const auto n = static_cast<size_t>(frame);
        if (!firstRequest_) {
            if (n >= dump_.Size()) {
                throw UsageError(
                    fmt::format("the grid dump has {} lines and none for frame {} of the clip; "
                                "--frames names the frames to take",
                                dump_.Size(), frame));
            }
            return n;
        }
        const std::optional<size_t> line = dump_.Find(*firstRequest_ + n);
        if (!line) {
            throw UsageError(
                fmt::format("the grid dump has no line of request {}, which frame {} of the clip needs",
                            *firstRequest_ + n, frame));
        }
        return *line;
    }
    uint64_t RequestId(size_t line) const {
        return dump_.RequestId(line);
    }
    IPEICAGridTransform Grid(size_t line) {
        return dump_.Grid(line);
    }

private:
    GridDump dump_;
    std::optional<uint64_t> firstRequest_;
};

int RunReplay(const ReplayOptions& options, const std::filesystem::path& out) {
    RunResults results;
    results.command = "replay";
    std::unique_ptr<RunOutput> output;
    ReplayGrids(options, results,
                {[&](const ClipFormat& format) {
                     output = std::make_unique<RunOutput>(options.common, out, format, results);
                 },
                 [&](const RenderedFrame& frame) { output->Add(frame.input, frame.output); }});
    output->Finish();
    return FinishedCode(results);
}

}  // namespace

void AddReplayOptions(CLI::App& command, ReplayOptions& options) {
    command.add_option("CLIP", options.clip, "the node's input frames")->required();
    command.add_option("--grids", options.grids, "grid dump that drives the node")->required();
    command.add_option("--first-request", options.firstRequest,
                       "request id of the clip's first frame; without it line n belongs to frame n");
    AddCommonOptions(command, options.common);
}

void ReplayGrids(const ReplayOptions& options, RunResults& results, const FrameTaker& taker) {
    ClipReader reader(options.clip, options.common.frames);
    ClipFormat format = reader.Format();
    const cv::Size input = format.size;
    format.size = options.common.size.value_or(input);
    const Margin margin = MarginFor(input, format.size);
    GridsOfFrames grids(options, input);
    results.clip = options.clip.string();
    Pipeline pipeline(options.common, format.size, margin, InputBuffers, results);
    taker.start(format);
    Progress progress(options.common.progress, reader.ExpectedFrames());
    const auto read = [&](Nv12& picture) {
        const StageTimer timer(results, "read");
        return reader.Read(picture);
    };
    const int64_t first = options.common.frames.first;
    int64_t frame = first;
    for (Nv12 picture = pipeline.Input(frame); !Interrupted() && read(picture);
         picture = pipeline.Input(frame)) {
        const size_t line = grids.Line(frame);
        const IPEICAGridTransform grid = grids.Grid(line);
        const uint64_t requestId = grids.RequestId(line);
        const Nv12 output = pipeline.Render(frame, requestId, grid);
        taker.take({frame, requestId, grid, picture, output});
        frame++;
        progress.Step(frame - first);
    }
    progress.Finish(frame - first);
    pipeline.Finish();
}

void AddReplay(CLI::App& app, ChosenCommand& chosen) {
    CLI::App& command = AddCommand(
        app, "replay", "Drives the node with a device's grid dump.",
        "dewarp-desk replay input.mkv --grids Warp2_Grid_20261115_171203.txt --size 1920x1080 -o out.mp4");
    const auto options = std::make_shared<ReplayOptions>();
    const auto out = std::make_shared<std::filesystem::path>();
    AddReplayOptions(command, *options);
    command.add_option("-o,--out", *out, "clip to write: .mp4, .mkv, .y4m, or a folder")->required();
    command.callback(
        [&chosen, options, out] { chosen = [options, out] { return RunReplay(*options, *out); }; });
}

}  // namespace desk
