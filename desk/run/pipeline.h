#pragma once

#include <cstdint>
#include <deque>
#include <future>
#include <memory>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "desk/clip/clip_reader.h"
#include "desk/clip/nv12.h"
#include "desk/host/desk_host.h"
#include "desk/host/desk_node.h"
#include "desk/host/pipelined_driver.h"
#include "desk/output/output.h"
#include "desk/report/results.h"
#include "desk/run/progress.h"
#include "desk/run/recording.h"
#include "desk/run/settings.h"
#include "desk/warp/sizing.h"

namespace desk {

/// A frame that came out of the node. Grid and pictures are valid while it is handed on.
struct RenderedFrame {
    int64_t number = 0;  ///< in the clip, from 0
    const IPEICAGridTransform& grid;
    Nv12 input;
    Nv12 output;
};

/// What else a command does with the frames that come out of the node.
class Observer {
public:
    virtual ~Observer() = default;
    /// Every frame, in order, and what is known so far.
    virtual void Add(const RenderedFrame& frame, RunResults& results) = 0;
    /// After the last frame, before the results are written.
    virtual void Finish(RunResults& results) = 0;
};

/// A clip on its way through one node: frames are read into input buffers, rendered, and in their order
/// recorded, timed and counted.
class Pipeline {
public:
    /// Up to `held` frames may be read ahead of the one that is shown. `observer` may be null. Prints the
    /// program's first line on stderr. Options, reader and observer must outlive the pipeline. Throws
    /// UsageError for sizes that the GL cannot hold, and as Recording does; std::runtime_error when there is
    /// no node, or no memory for the frames that are held.
    Pipeline(const std::string& command, const RunOptions& options, ClipReader& reader,
             const NodeSizing& sizing, size_t held, Observer* observer = nullptr);

    /// Takes the clip's next frame in. False when there is none, or the user has interrupted the run.
    bool Read();

    /// How many frames were taken and not yet shown.
    size_t Held() const {
        return frames_.size() - inFlight_;
    }
    /// The number in the clip, from 0, of the frame that is shown next.
    int64_t Next() const {
        return frames_[inFlight_].number;
    }
    /// The input of the frame that was taken last.
    Nv12 Newest();
    /// Leaves that frame out, as no grid is known for it.
    void LeaveOut();

    /// Takes the next frame to the node; the grid is the request's metadata, what is known of the camera
    /// goes into the results. The frame comes out at once, or as soon as as many others as may be in flight
    /// have followed it. Throws std::runtime_error naming the request when the node fails.
    void Show(uint64_t requestId, const IPEICAGridTransform& grid,
              const std::optional<Change<CameraResult>>& camera = std::nullopt);

    /// Has every frame come out that was shown, destroys the node, which completes its dump files, completes
    /// what is recorded, and says what was measured and what went wrong. Returns the program's exit code.
    /// Throws as Show does; std::runtime_error when the dumps lack a frame.
    ExitCode Finish();

    RunResults& Results() {
        return results_;
    }

private:
    /// A frame between Read and its way out of the node.
    struct Frame {
        int64_t number;  ///< in the clip
        FrameTime time;
        GrallocBuffer& input;
        uint64_t id = 0;  ///< of its request; this and what follows as soon as it is shown
        IPEICAGridTransform grid{};
        std::optional<Change<CameraResult>> camera{};
        std::future<uint32_t> result{};
    };

    GrallocBuffer& NextInput() {
        return *inputs_[(results_.frames.size() + frames_.size()) % inputs_.size()];
    }
    /// Of one of `frames_`.
    GrallocBuffer& OutputOf(size_t index) {
        return *outputs_[(results_.frames.size() + index) % outputs_.size()];
    }
    /// Says on stderr what is at work when it is known, and only then what was logged meanwhile.
    void CreateNode(Margin margin);
    /// Waits for the frame that was shown first of those in flight, and records it.
    void Collect();

    const RunOptions& options_;
    ClipReader& reader_;
    RunResults results_;
    std::unique_ptr<Output> dumps_;  ///< null without --dump-dir
    std::stringbuf early_;           ///< what is logged before the program's first line
    std::ostream log_{&early_};
    std::filesystem::path library_;
    std::unique_ptr<DeskHost> host_;
    std::unique_ptr<DeskNode> node_;
    std::optional<Recording> recording_;  ///< as soon as there is a node
    std::vector<std::shared_ptr<GrallocBuffer>> inputs_;
    std::vector<std::shared_ptr<GrallocBuffer>> outputs_;
    Progress progress_;
    Observer* observer_;
    std::deque<Frame> frames_;
    size_t inFlight_ = 0;                      ///< how many of them are in the node, the first ones
    std::unique_ptr<PipelinedDriver> driver_;  ///< null for one request at a time, on the caller's thread
};

}  // namespace desk
