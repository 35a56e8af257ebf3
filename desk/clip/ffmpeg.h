#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <memory>
#include <string>

#include "desk/clip/clip_format.h"
#include "desk/clip/nv12.h"

namespace desk {

struct AvFree {
    void operator()(AVCodecContext* codec) const {
        avcodec_free_context(&codec);
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

/// The picture as FFmpeg takes it, of a clip of this format; what has a reference to it outlives neither the
/// picture nor its pixels.
AvOwned<AVFrame> ViewOf(const Nv12& picture, const ClipFormat& format);

inline AVColorRange RangeOf(const ClipFormat& format) {
    return !format.isRangeTold ? AVCOL_RANGE_UNSPECIFIED
           : format.fullRange  ? AVCOL_RANGE_JPEG
                               : AVCOL_RANGE_MPEG;
}

}  // namespace desk
