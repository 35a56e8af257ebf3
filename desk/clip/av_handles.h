#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <string>

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
    void operator()(SwsContext* scaler) const {
        sws_freeContext(scaler);
    }
    void operator()(AVFormatContext* input) const {
        avformat_close_input(&input);
    }
};

template <typename Handle>
using AvOwned = std::unique_ptr<Handle, AvFree>;

/// An FFmpeg error code in words.
inline std::string AvText(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    return av_make_error_string(text, sizeof(text), error);
}

/// The planes of a picture as FFmpeg takes them; valid as long as the picture.
struct AvPlanes {
    explicit AvPlanes(const Nv12& picture)
        : data{picture.luma.data, picture.chroma.data, nullptr, nullptr},
          stride{static_cast<int>(picture.luma.step), static_cast<int>(picture.chroma.step), 0, 0} {}

    uint8_t* data[4];
    int stride[4];
};

/// Converts between pixel formats and sizes; samples keep their range and matrix where both sides are YCbCr.
class AvScaler {
public:
    struct Side {
        int width;
        int height;
        AVPixelFormat format;
        bool fullRange;
    };

    /// Throws std::runtime_error when the conversion is not known.
    void Convert(const Side& from, const uint8_t* const* fromData, const int* fromStride, const Side& to,
                 uint8_t* const* toData, const int* toStride, int matrix);

private:
    AvOwned<SwsContext> scaler_;
};

}  // namespace desk
