#pragma once

#include <cstdint>
#include <iostream>
#include <memory>
#include <opencv2/core.hpp>
#include <sstream>
#include <vector>

#include "desk/demo/nv12.h"
#include "desk/host/desk_host.h"
#include "desk/host/desk_node.h"
#include "desk/tool/options.h"
#include "desk/tool/results.h"

namespace desk {

/// The margin with which the node asks for an input of exactly this size. Throws UsageError when there is
/// none: the input is even, and at least as large as the output.
Margin MarginFor(cv::Size input, cv::Size output);

/// The input that the node asks for: both sizes are even.
cv::Size InputFor(cv::Size output, Margin margin);

/// The node's log, held back until the program's own first line is out.
class NodeLog {
public:
    NodeLog() = default;
    /// Releases what is still held back.
    ~NodeLog();
    NodeLog(const NodeLog&) = delete;
    NodeLog& operator=(const NodeLog&) = delete;

    std::ostream& Stream() {
        return stream_;
    }
    /// From now on lines go to stderr at once.
    void Release();

private:
    std::stringbuf kept_;
    std::ostream stream_{&kept_};
};

/// One node in its host: sizes negotiated, buffers in rotation, every frame timed and counted.
class Pipeline {
public:
    /// `inputBuffers` is how many input frames are held at a time. Fills in what the results say of the
    /// node, and prints the program's first line on stderr. `results` must outlive the pipeline. Throws
    /// UsageError for sizes that the GL cannot hold; std::runtime_error when there is no node.
    Pipeline(const CommonOptions& options, cv::Size output, Margin margin, int64_t inputBuffers,
             RunResults& results);

    cv::Size InputSize() const;
    cv::Size OutputSize() const;

    /// The input buffer of a frame. Its pixels stay until the frame that is `inputBuffers` later takes the
    /// buffer.
    Nv12 Input(int64_t frame);

    /// Takes a frame, whose input buffer is filled, through the node; the grid is the request's metadata.
    /// Records the frame. The picture stays valid until the next call. Throws std::runtime_error naming the
    /// request when the node fails.
    Nv12 Render(int64_t frame, uint64_t requestId, const IPEICAGridTransform& grid);

    /// Destroys the node, which completes its dump files, and adds what the host found to the results.
    void Finish();

private:
    RunResults& results_;
    NodeLog log_;
    DeskHost host_;
    std::unique_ptr<DeskNode> node_;
    std::vector<std::shared_ptr<GrallocBuffer>> inputs_;
    std::vector<std::shared_ptr<GrallocBuffer>> outputs_;
};

}  // namespace desk
