#include "desk/demo/clip_writer.h"

#include <fmt/format.h>

#include <cmath>
#include <stdexcept>
#include <utility>

namespace desk {

ClipWriter::ClipWriter(std::filesystem::path file, cv::Size size, double framesPerSecond)
    : file_(std::move(file)), size_(size) {
    const int h264 = cv::VideoWriter::fourcc('a', 'v', 'c', '1');
    if (!writer_.open(file_.string(), cv::CAP_FFMPEG, h264, framesPerSecond, size)) {
        throw std::runtime_error(
            fmt::format("no H.264 clip can be written to {}: OpenCV's FFmpeg back end found no H.264 encoder "
                        "(Debian has one in libavcodec59, libx264-164) or the folder takes no file",
                        file_.string()));
    }
}

void ClipWriter::Add(const cv::Mat& bgr) {
    CV_Assert(bgr.size() == size_ && bgr.type() == CV_8UC3);
    writer_.write(bgr);
    pictures_++;
}

void ClipWriter::Finish() {
    writer_.release();
    cv::VideoCapture clip(file_.string(), cv::CAP_FFMPEG);
    const auto number = [&clip](int property) { return static_cast<int>(std::lround(clip.get(property))); };
    const int codec = number(cv::CAP_PROP_FOURCC);
    const bool isH264 = codec == cv::VideoWriter::fourcc('a', 'v', 'c', '1') ||
                        codec == cv::VideoWriter::fourcc('h', '2', '6', '4');
    const cv::Size size(number(cv::CAP_PROP_FRAME_WIDTH), number(cv::CAP_PROP_FRAME_HEIGHT));
    const int pictures = number(cv::CAP_PROP_FRAME_COUNT);
    if (!clip.isOpened() || !isH264 || size != size_ || pictures != pictures_) {
        throw std::runtime_error(fmt::format(
            "{} did not become an H.264 clip of {} pictures of {} x {}: it reads as {} pictures of {} x {}{}",
            file_.string(), pictures_, size_.width, size_.height, pictures, size.width, size.height,
            isH264 ? "" : " in another format"));
    }
}

}  // namespace desk
