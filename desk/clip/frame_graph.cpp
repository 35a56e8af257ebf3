#include "desk/clip/frame_graph.h"

#include <fmt/format.h>

#include <stdexcept>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/pixdesc.h>
}

namespace desk {

void FrameGraph::Free::operator()(AVFilterGraph* graph) const {
    avfilter_graph_free(&graph);
}

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

std::string Scaling(cv::Size size, AVPixelFormat pixels, bool fullRange) {
    const AVPixFmtDescriptor* wanted = av_pix_fmt_desc_get(pixels);
    const bool isRgb = (wanted->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    const auto range = [](bool isFull) { return isFull ? "full" : "limited"; };
    return fmt::format("scale={}:{}:flags=bicubic+accurate_rnd:in_range={}:out_range={},format={}",
                       size.width, size.height, range(fullRange), range(fullRange || isRgb), wanted->name);
}

}  // namespace desk
