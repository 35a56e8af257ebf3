#include "desk/clip/nv12.h"

#include <array>
#include <opencv2/imgproc.hpp>

namespace desk {

Nv12::Nv12(cv::Size size) : luma(size, CV_8UC1), chroma(size / 2, CV_8UC2) {}

Nv12::Nv12(cv::Size size, uint8_t* lumaPlane, uint8_t* chromaPlane, size_t strideBytes)
    : luma(size, CV_8UC1, lumaPlane, strideBytes), chroma(size / 2, CV_8UC2, chromaPlane, strideBytes) {}

void WriteNv12(const cv::Mat& bgr, Nv12& picture) {
    CV_Assert(bgr.size() == picture.luma.size());
    cv::Mat yCrCb;
    cv::cvtColor(bgr, yCrCb, cv::COLOR_BGR2YCrCb);
    cv::extractChannel(yCrCb, picture.luma, 0);
    cv::Mat half;
    cv::resize(yCrCb, half, picture.chroma.size(), 0, 0, cv::INTER_AREA);
    const std::array<int, 4> crCbToCbCr = {2, 0, 1, 1};
    cv::mixChannels(&half, 1, &picture.chroma, 1, crCbToCbCr.data(), 2);
}

cv::Mat ReadNv12(const Nv12& picture) {
    cv::Mat chroma;
    cv::resize(picture.chroma, chroma, picture.luma.size(), 0, 0, cv::INTER_LINEAR);
    cv::Mat bgr(picture.luma.size(), CV_8UC3);
    const std::array<cv::Mat, 2> planes = {picture.luma, chroma};
    const std::array<int, 6> yCbCrToYCrCb = {0, 0, 2, 1, 1, 2};
    cv::mixChannels(planes.data(), planes.size(), &bgr, 1, yCbCrToYCrCb.data(), 3);
    cv::cvtColor(bgr, bgr, cv::COLOR_YCrCb2BGR);
    return bgr;
}

Nv12 Middle(const Nv12& picture, cv::Size size) {
    // Whole chroma samples, so the corner is even.
    const cv::Point corner((picture.luma.cols - size.width) / 4 * 2,
                           (picture.luma.rows - size.height) / 4 * 2);
    Nv12 middle = picture;
    middle.luma = picture.luma(cv::Rect(corner, size));
    middle.chroma = picture.chroma(cv::Rect(corner / 2, size / 2));
    return middle;
}

}  // namespace desk
