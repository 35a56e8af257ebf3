#include "desk/clip/ffmpeg.h"

#include <fmt/format.h>

#include <cmath>
#include <stdexcept>

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
}

namespace desk {

const AVFrame& FrameGraph::Filter(AVFrame& frame, const std::string& filters) {
    const std::string chain =
        fmt::format("buffer@in=video_size={}x{}:pix_fmt={}:time_base=1/1,{},buffersink@out", frame.width,
                    frame.height, frame.format, filters);
    int error = 0;
    if (built_ != chain) {
        graph_.reset(avfilter_graph_alloc());
        graph_->nb_threads = 1;
        error = avfilter_graph_parse_ptr(graph_.get(), chain.c_str(), nullptr, nullptr, nullptr);
        error = error < 0 ? error : avfilter_graph_config(graph_.get(), nullptr);
        built_ = chain;
    }
    av_frame_unref(made_.get());
    const auto end = [this](const char* name) { return avfilter_graph_get_filter(graph_.get(), name); };
    error = error < 0 ? error : av_buffersrc_write_frame(end("buffer@in"), &frame);
    error = error < 0 ? error : av_buffersink_get_frame(end("buffersink@out"), made_.get());
    if (error < 0) {
        throw std::runtime_error(
            fmt::format("a picture does not go through the filters {}: {}", chain, AvText(error)));
    }
    return *made_;
}

std::string Scaling(cv::Size size, AVPixelFormat pixels, AVColorRange range) {
    const AVPixFmtDescriptor* wanted = av_pix_fmt_desc_get(pixels);
    const bool isFull = range == AVCOL_RANGE_JPEG;
    const bool isRgb = (wanted->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    return fmt::format(
        "scale={0}:{1}:force_original_aspect_ratio=increase:force_divisible_by=2:flags=bicubic+accurate_rnd:"
        "in_range={2}:out_range={3},format={4},crop={0}:{1}",
        size.width, size.height, isFull ? "full" : "limited", isFull || isRgb ? "full" : "limited",
        wanted->name);
}

Turn TurnOf(const AVStream& stream) {
    const auto* matrix = reinterpret_cast<const int32_t*>(
        av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
    if (matrix == nullptr) {
        return {};
    }
    // A pixel at (x, y) is seen at (x m0 + y m3, x m1 + y m4).
    const bool isTransposed = std::abs(double{1} * matrix[1]) > std::abs(double{1} * matrix[0]);
    const bool isMirrored = matrix[isTransposed ? 3 : 0] < 0;
    const bool isFlipped = matrix[isTransposed ? 1 : 4] < 0;
    const double angle = av_display_rotation_get(matrix);
    return {isTransposed ? fmt::format("transpose={},", (isMirrored ? 1 : 0) + (isFlipped ? 2 : 0))
                         : std::string(isMirrored ? "hflip," : "") + (isFlipped ? "vflip," : ""),
            isTransposed, std::isnan(angle) ? 0 : std::abs(std::remainder(angle, 90))};
}

}  // namespace desk
