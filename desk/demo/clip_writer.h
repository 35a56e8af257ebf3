#pragma once

#include <filesystem>
#include <opencv2/videoio.hpp>

namespace desk {

/// Writes an H.264 clip in an MP4 file.
class ClipWriter {
public:
    /// Pictures of an even width and height. Throws std::runtime_error when there is no encoder or no place.
    ClipWriter(std::filesystem::path file, cv::Size size, double framesPerSecond);

    /// The next picture, 8-bit BGR of the clip's size.
    void Add(const cv::Mat& bgr);

    /// Completes the clip and reads its header back. Throws std::runtime_error when the file is not an H.264
    /// clip of the size and number of pictures that were added.
    void Finish();

private:
    std::filesystem::path file_;
    cv::Size size_;
    int pictures_ = 0;
    cv::VideoWriter writer_;
};

}  // namespace desk
