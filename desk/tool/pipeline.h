#pragma once

#include <cstdint>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "desk/host/desk_host.h"
#include "desk/host/desk_node.h"
#include "desk/tool/errors.h"
#include "desk/tool/grids/warp_map.h"
#include "desk/tool/media/clip_reader.h"
#include "desk/tool/media/nv12.h"
#include "desk/tool/options.h"
#include "desk/tool/output_place.h"
#include "desk/tool/progress.h"
#include "desk/tool/recording.h"
#include "desk/tool/report/results.h"

namespace desk {

/// The margin with which the node asks for an input of exactly this size. Throws UsageError when there is
/// none: the input is even, and at least as large as the output.
Margin MarginFor(cv::Size input, cv::Size output);

/// The input that the node asks for: both sizes are even.
cv::Size InputFor(cv::Size output, Margin margin);

/// What a node is set up for.
struct Sizing {
    cv::Size output;  ///< pixels, both even
    Margin margin;
};

/// A clip on its way through one node: frames are read into input buffers, rendered in order, recorded, timed
/// and counted.
class Pipeline {
public:
    /// Up to `held` frames may be read ahead of the one that is rendered. Prints the program's first line on
    /// stderr. Options and reader must outlive the pipeline. Throws UsageError for sizes that the GL cannot
    /// hold, and as Recording does; std::runtime_error when there is no node.
    Pipeline(const std::string& command, const RunOptions& options, ClipReader& reader, const Sizing& sizing,
             int64_t held);

    /// Takes the clip's next frame in. False when there is none, or the user has interrupted the run.
    bool Read();

    /// Numbers of frames so far; they count from the first of the range, not of the clip.
    int64_t Taken() const {
        return taken_;
    }
    int64_t Shown() const {
        return static_cast<int64_t>(results_.frames.size());
    }

    /// The input of a frame that was read, until it has been shown and `held` more were read.
    Nv12 Input(int64_t frame);

    /// Takes the next frame through the node; the grid is the request's metadata, the details go into the
    /// frame's results. The picture stays valid until the next call. Throws std::runtime_error naming the
    /// request when the node fails.
    Nv12 Show(uint64_t requestId, const IPEICAGridTransform& grid, const Json& details = Json::object());

    /// Destroys the node, which completes its dump files, completes what is recorded, and says what was
    /// measured and what went wrong. Returns the program's exit code. Throws std::runtime_error when the
    /// dumps lack a frame.
    ExitCode Finish();

    RunResults& Results() {
        return results_;
    }

private:
    GrallocBuffer& InputBuffer(int64_t frame) {
        return *inputs_[static_cast<size_t>(frame) % inputs_.size()];
    }
    void Process(uint64_t requestId, const IPEICAGridTransform& grid, GrallocBuffer& input,
                 GrallocBuffer& output);
    ExitCode Tell() const;

    const RunOptions& options_;
    ClipReader& reader_;
    Sizing sizing_;
    RunResults results_;
    std::unique_ptr<OutputPlace> dumps_;  ///< null without --dump-dir
    DeskHost host_;
    Recording recording_;
    std::unique_ptr<DeskNode> node_;
    std::vector<std::shared_ptr<GrallocBuffer>> inputs_;
    std::vector<std::shared_ptr<GrallocBuffer>> outputs_;
    Progress progress_;
    int64_t taken_ = 0;
    SideUse mostUsed_{};
};

}  // namespace desk
