#pragma once

#include <memory>
#include <string>

#include "desk/clip/ffmpeg.h"

struct AVFilterContext;
struct AVFilterGraph;

namespace desk {

/// FFmpeg's filters for one frame after the other: they turn, crop, scale and convert.
class FrameGraph {
public:
    /// What the filters, named as FFmpeg's program names them, make of the frame; valid until the next call.
    /// Throws std::runtime_error for what they cannot do.
    const AVFrame& Filter(AVFrame& frame, const std::string& filters);

private:
    struct Free {
        void operator()(AVFilterGraph* graph) const;
    };
    std::string built_;  ///< what the graph is made of: frames may change in the middle of a clip
    std::unique_ptr<AVFilterGraph, Free> graph_;
    AvOwned<AVFrame> made_{av_frame_alloc()};
};

/// The filters that scale to a size and convert to a pixel format, luma levels staying as they are.
std::string Scaling(cv::Size size, AVPixelFormat pixels, bool fullRange);

}  // namespace desk
