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

AVFrame& FrameGraph::Filter(AVFrame& frame, const std::string& filters) {
    const std::string source = fmt::format("video_size={}x{}:pix_fmt={}:time_base=1/1", frame.width,
                                           frame.height, frame.format);
    if (built_ != source + filters) {
        Build(source, filters);
        built_ = source + filters;
    }
    av_frame_unref(made_.get());
    int error = av_buffersrc_add_frame_flags(source_, &frame, AV_BUFFERSRC_FLAG_KEEP_REF);
    if (error >= 0) {
        error = av_buffersink_get_frame(sink_, made_.get());
    }
    if (error < 0) {
        throw std::runtime_error(
            fmt::format("a picture does not go through the filters {}: {}", filters, AvText(error)));
    }
    return *made_;
}

void FrameGraph::Build(const std::string& source, const std::string& filters) {
    graph_.reset(avfilter_graph_alloc());
    graph_->nb_threads = 1;
    const auto add = [this](AVFilterContext*& filter, const char* kind, const char* arguments) {
        return avfilter_graph_create_filter(&filter, avfilter_get_by_name(kind), kind, arguments, nullptr,
                                            graph_.get());
    };
    int error = add(source_, "buffer", source.c_str());
    error = error < 0 ? error : add(sink_, "buffersink", nullptr);
    AVFilterInOut* from = avfilter_inout_alloc();
    *from = {av_strdup("in"), source_, 0, nullptr};
    AVFilterInOut* to = avfilter_inout_alloc();
    *to = {av_strdup("out"), sink_, 0, nullptr};
    error = error < 0 ? error : avfilter_graph_parse_ptr(graph_.get(), filters.c_str(), &to, &from, nullptr);
    avfilter_inout_free(&from);
    avfilter_inout_free(&to);
    error = error < 0 ? error : avfilter_graph_config(graph_.get(), nullptr);
    if (error < 0) {
        throw std::runtime_error(
            fmt::format("pictures of {} do not go through the filters {}: {}", source, filters, AvText(error)));
    }
}

std::string Scaling(cv::Size size, AVPixelFormat pixels, bool fullRange) {
    const AVPixFmtDescriptor* wanted = av_pix_fmt_desc_get(pixels);
    const bool isRgb = (wanted->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    const auto range = [](bool isFull) { return isFull ? "full" : "limited"; };
    return fmt::format("scale={}:{}:flags=bicubic+accurate_rnd:in_range={}:out_range={},format={}", size.width,
                       size.height, range(fullRange), range(fullRange || isRgb), wanted->name);
}

}  // namespace desk
