#include "desk/clip/ffmpeg.h"

#include <fmt/format.h>

#include <stdexcept>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace desk {

void AvScaler::Convert(const AVFrame& from, AVFrame& to, int matrix) {
    if (from.format == to.format && from.width == to.width && from.height == to.height) {
        // The scaler leaves the chroma of NV12 out when it has nothing to convert.
        av_frame_copy(&to, &from);
        return;
    }
    const auto fromPixels = static_cast<AVPixelFormat>(from.format);
    const auto toPixels = static_cast<AVPixelFormat>(to.format);
    scaler_.reset(sws_getCachedContext(scaler_.release(), from.width, from.height, fromPixels, to.width,
                                       to.height, toPixels, SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr,
                                       nullptr));
    if (!scaler_) {
        throw std::runtime_error(fmt::format("pictures of {} x {} in {} cannot be made {} x {} in {}",
                                             from.width, from.height, av_get_pix_fmt_name(fromPixels),
                                             to.width, to.height, av_get_pix_fmt_name(toPixels)));
    }
    constexpr int Unchanged = 1 << 16;
    const int* coefficients = sws_getCoefficients(matrix);
    const auto isFull = [](const AVFrame& frame) { return frame.color_range == AVCOL_RANGE_JPEG ? 1 : 0; };
    sws_setColorspaceDetails(scaler_.get(), coefficients, isFull(from), coefficients, isFull(to), 0,
                             Unchanged, Unchanged);
    sws_scale(scaler_.get(), from.data, from.linesize, 0, from.height, to.data, to.linesize);
}

AvOwned<AVFrame> ViewOf(const Nv12& picture, const ClipFormat& format) {
    AvOwned<AVFrame> view(av_frame_alloc());
    view->format = AV_PIX_FMT_NV12;
    view->width = picture.luma.cols;
    view->height = picture.luma.rows;
    view->color_range = RangeOf(format);
    const cv::Mat* const planes[] = {&picture.luma, &picture.chroma};
    for (int i = 0; i < 2; i++) {
        view->data[i] = planes[i]->data;
        view->linesize[i] = static_cast<int>(planes[i]->step);
    }
    return view;
}

}  // namespace desk
