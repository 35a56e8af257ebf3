#include "desk/synth/scene.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "desk/base/usage_error.h"

namespace desk {
namespace {

constexpr int FilterBorder = 8;    // pixels on two sides together that the interpolation reads around a frame
constexpr double LensBlur = 0.65;  // sigma in pixels: the lens and the optical low-pass filter

cv::Rect Central(cv::Size whole, cv::Size part) {
    return {(whole.width - part.width) / 2, (whole.height - part.height) / 2, part.width, part.height};
}

}  // namespace

Scene::Scene(const cv::Mat& photo, const ShakyCamera& camera) {
    const cv::Size frame = camera.FrameSize();
    const cv::Size needed = camera.Reach(frame) + cv::Size(FilterBorder, FilterBorder);
    if (photo.cols < needed.width || photo.rows < needed.height) {
        throw UsageError(fmt::format(
            "the picture is {} x {} pixels; frames of {} x {} and their shake need at least {} x {}",
            photo.cols, photo.rows, frame.width, frame.height, needed.width, needed.height));
    }
    const double shrink = std::min(static_cast<double>(photo.cols) / needed.width,
                                   static_cast<double>(photo.rows) / needed.height);
    const cv::Size used(static_cast<int>(shrink * needed.width), static_cast<int>(shrink * needed.height));
    cv::resize(photo(Central(photo.size(), used)), pixels_, needed, 0, 0, cv::INTER_AREA);
    cv::GaussianBlur(pixels_, pixels_, cv::Size(), LensBlur);
}

cv::Mat Scene::Still(cv::Size size) const {
    return pixels_(Central(pixels_.size(), size)).clone();
}

void Scene::Record(const ShakyCamera& camera, int frame, cv::Mat& picture) {
    const cv::Size size = camera.FrameSize();
    mapX_.create(size, CV_32FC1);
    mapY_.create(size, CV_32FC1);
    const double left = -(size.width - 1) / 2.0;
    for (int row = 0; row < size.height; row++) {
        const CameraPose pose = camera.RowPose(frame, row);
        const double c = std::cos(pose.roll);
        const double s = std::sin(pose.roll);
        const double y = row - (size.height - 1) / 2.0;
        const double startX = (pixels_.cols - 1) / 2.0 + pose.x + c * left - s * y;
        const double startY = (pixels_.rows - 1) / 2.0 + pose.y + s * left + c * y;
        auto* const mapX = mapX_.ptr<float>(row);
        auto* const mapY = mapY_.ptr<float>(row);
        for (int column = 0; column < size.width; column++) {
            mapX[column] = static_cast<float>(startX + c * column);
            mapY[column] = static_cast<float>(startY + s * column);
        }
    }
    cv::remap(pixels_, picture, mapX_, mapY_, cv::INTER_LANCZOS4, cv::BORDER_REFLECT_101);
}

}  // namespace desk
