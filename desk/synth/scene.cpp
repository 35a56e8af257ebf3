#include "desk/synth/scene.h"

#include <fmt/format.h>

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "desk/base/usage_error.h"

namespace desk {
namespace {

constexpr int FilterBorder = 8;    // Lanczos reads four pixels on every side of what is seen
constexpr double LensBlur = 0.65;  // sigma in pixels: the lens and the optical low-pass filter

cv::Rect Middle(cv::Size whole, cv::Size part) {
    return {(whole.width - part.width) / 2, (whole.height - part.height) / 2, part.width, part.height};
}

cv::Point2d Centre(cv::Size size) {
    return {(size.width - 1) / 2.0, (size.height - 1) / 2.0};
}

}  // namespace

Scene::Scene(const cv::Mat& photo, cv::Size frame, cv::Size reach) : map_(frame) {
    const cv::Size needed = reach + cv::Size(FilterBorder, FilterBorder);
    if (photo.cols < needed.width || photo.rows < needed.height) {
        throw UsageError(fmt::format(
            "the picture is {} x {} pixels; frames of {} x {} and their shake need at least {} x {}",
            photo.cols, photo.rows, frame.width, frame.height, needed.width, needed.height));
    }
    const double shrink = std::min(static_cast<double>(photo.cols) / needed.width,
                                   static_cast<double>(photo.rows) / needed.height);
    const cv::Size used(static_cast<int>(shrink * needed.width), static_cast<int>(shrink * needed.height));
    cv::resize(photo(Middle(photo.size(), used)), pixels_, needed, 0, 0, cv::INTER_AREA);
    cv::GaussianBlur(pixels_, pixels_, cv::Size(), LensBlur);
}

cv::Mat Scene::Still(cv::Size size) const {
    return pixels_(Middle(pixels_.size(), size)).clone();
}

void Scene::Record(const std::function<CameraPose(double row)>& camera, cv::Mat& picture) {
    for (int row = 0; row < map_.rows; row++) {
        const CameraPose pose = camera(row);
        const cv::Point2d start =
            Centre(pixels_.size()) + SceneOf(pose, cv::Point2d(0, row) - Centre(map_.size()));
        const cv::Point2d step = SceneOf(pose, {1, 0}) - SceneOf(pose, {0, 0});
        for (int column = 0; column < map_.cols; column++) {
            map_(row, column) = cv::Point2f(start + column * step);
        }
    }
    cv::remap(pixels_, picture, map_, cv::noArray(), cv::INTER_LANCZOS4, cv::BORDER_REFLECT_101);
}

}  // namespace desk
