#include "desk/clip/ffmpeg.h"

namespace desk {

AvOwned<AVFrame> ViewOf(const Nv12& picture, const ClipFormat& format) {
    AvOwned<AVFrame> view(av_frame_alloc());
    view->format = AV_PIX_FMT_NV12;
    view->width = picture.luma.cols;
    view->height = picture.luma.rows;
    view->color_range = RangeOf(format);
    view->colorspace = static_cast<AVColorSpace>(format.matrix);
    const cv::Mat* const planes[] = {&picture.luma, &picture.chroma};
    for (int i = 0; i < 2; i++) {
        view->data[i] = planes[i]->data;
        view->linesize[i] = static_cast<int>(planes[i]->step);
        view->buf[i] = av_buffer_create(
            view->data[i], planes[i]->step * static_cast<size_t>(planes[i]->rows),
            [](void* /*opaque*/, uint8_t* /*data*/) {}, nullptr, AV_BUFFER_FLAG_READONLY);
    }
    return view;
}

}  // namespace desk
