#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
}

#include <memory>
#include <string>

#include "desk/clip/nv12.h"

namespace desk {

struct AvFree {
    void operator()(AVCodecContext* codec) const {
        avcodec_free_context(&codec);
    }
    void operator()(AVFilterGraph* graph) const {
        avfilter_graph_free(&graph);
    }
    void operator()(AVFrame* frame) const {
        av_frame_free(&frame);
    }
    void operator()(AVPacket* packet) const {
        av_packet_free(&packet);
    }
    /// Of a clip that is read, or one that is written.
    void operator()(AVFormatContext* container) const {
        if (container->oformat != nullptr) {
            avio_closep(&container->pb);
            avformat_free_context(container);
        } else {
            avformat_close_input(&container);
        }
    }
};

template <typename Handle>
using AvOwned = std::unique_ptr<Handle, AvFree>;

/// An FFmpeg error code in words.
inline std::string AvText(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    return av_make_error_string(text, sizeof(text), error);
}

/// The planes of an NV12 frame, whose lines FFmpeg makes equally long.
inline Nv12 PlanesOf(const AVFrame& frame) {
    return {
        {frame.width, frame.height}, frame.data[0], frame.data[1], static_cast<size_t>(frame.linesize[0])};
}

/// FFmpeg's filters for one frame after the other: they turn, crop, scale and convert.
class FrameGraph {
public:
    /// What the filters, named as FFmpeg's program names them, make of the frame, with its time; valid until
    /// the next call. Throws std::runtime_error for what they cannot do.
    const AVFrame& Filter(AVFrame& frame, const std::string& filters);

private:
    std::string built_;  ///< what the graph is made of: frames may change in the middle of a clip
    AvOwned<AVFilterGraph> graph_;
    AvOwned<AVFrame> made_{av_frame_alloc()};
};

/// The filters that convert to a pixel format, luma levels staying as they are, and to a size: scaled, when
/// sizes differ, until it is just covered, what is too much cut off evenly on both sides.
std::string Scaling(cv::Size size, AVPixelFormat pixels, AVColorRange range);

/// How a picture that is stored has to be turned to be seen upright, as FFmpeg's filters say it; empty when
/// it is upright.
struct Turn {
    std::string filters;
    bool isTransposed = false;
    double odd = 0;  ///< degrees that the filters leave, of a turn by no quarters
};
Turn TurnOf(const AVStream& stream);

}  // namespace desk
